#include "tools/kvboardd/Store.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "TemporaryFolder.h"

namespace {

using KvNBoardService::Store;
namespace fs = std::filesystem;

std::vector<unsigned char> bytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

class StoreTest : public testing::Test
{
protected:
    std::unique_ptr<Store> open() { return Store::open(m_folder.path("state"), 4711, m_problem); }

    TemporaryFolder m_folder;
    std::string m_problem;
};

TEST_F(StoreTest, ANewStoreHoldsNothing)
{
    const auto store = open();
    ASSERT_TRUE(store) << m_problem;
    std::vector<unsigned char> section = bytes("x");
    EXPECT_TRUE(store->readInventory(section, m_problem));
    EXPECT_TRUE(section.empty());
    EXPECT_EQ(store->inventoryName(), m_folder.path("state/4711/inventory.inv"));
}

TEST_F(StoreTest, WhatIsWrittenIsThereWhenTheStoreIsOpenedAgain)
{
    for (const char* content : {"first", "the second one"}) {
        const auto store = open();
        ASSERT_TRUE(store) << m_problem;
        ASSERT_TRUE(store->writeInventory(bytes(content), m_problem)) << m_problem;
        EXPECT_EQ(m_folder.read("state/4711/inventory.inv"), content);
    }
    const auto store = open();
    std::vector<unsigned char> section;
    ASSERT_TRUE(store->readInventory(section, m_problem));
    EXPECT_EQ(section, bytes("the second one"));
}

TEST_F(StoreTest, NothingElseIsLeftInTheFolder)
{
    {
        const auto store = open();
        ASSERT_TRUE(store->writeInventory(bytes("x"), m_problem));
    }
    m_folder.write("state/4711/inventory.inv.new", "left by a service that was killed");
    const auto store = open();
    ASSERT_TRUE(store->writeInventory(bytes("y"), m_problem)) << m_problem;
    EXPECT_EQ(std::distance(fs::directory_iterator(m_folder.path("state/4711")), fs::directory_iterator()), 1);
    EXPECT_EQ(m_folder.read("state/4711/inventory.inv"), "y");
}

TEST_F(StoreTest, StateIsForThisUserAlone)
{
    const auto store = open();
    ASSERT_TRUE(store->writeInventory(bytes("x"), m_problem));
    struct stat status;
    ASSERT_EQ(stat(m_folder.path("state/4711").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0700u);
    ASSERT_EQ(stat(m_folder.path("state/4711/inventory.inv").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

TEST_F(StoreTest, TwoServicesCannotUseOneStore)
{
    const auto store = open();
    ASSERT_TRUE(store);
    EXPECT_FALSE(open());
    EXPECT_EQ(m_problem, m_folder.path("state/4711") + " is in use by another service");
    EXPECT_TRUE(Store::open(m_folder.path("state"), 4712, m_problem)) << "another board's is another store";
}

TEST_F(StoreTest, AFolderThatCannotBeMadeIsNamed)
{
    EXPECT_FALSE(Store::open(m_folder.path("no/such"), 1, m_problem));
    EXPECT_EQ(m_problem, "cannot make the folder " + m_folder.path("no/such") + ": No such file or directory");
    m_folder.write("file", "");
    EXPECT_FALSE(Store::open(m_folder.path("file"), 1, m_problem));
    EXPECT_EQ(m_problem, "cannot open the folder " + m_folder.path("file") + ": Not a directory");
}

TEST_F(StoreTest, LinksAreNotFollowed)
{
    fs::create_directory(m_folder.path("state"));
    fs::create_directory(m_folder.path("elsewhere"));
    fs::create_directory_symlink(m_folder.path("elsewhere"), m_folder.path("state/4711"));
    EXPECT_FALSE(open());
    fs::remove(m_folder.path("state/4711"));
    fs::create_directory(m_folder.path("state/4711"));
    m_folder.write("secret", "s");
    fs::create_symlink(m_folder.path("secret"), m_folder.path("state/4711/inventory.inv"));
    const auto store = open();
    ASSERT_TRUE(store) << m_problem;
    std::vector<unsigned char> section;
    EXPECT_FALSE(store->readInventory(section, m_problem));
    ASSERT_TRUE(store->writeInventory(bytes("x"), m_problem)) << m_problem;
    EXPECT_EQ(m_folder.read("secret"), "s") << "the link was replaced, not what it names";
}

TEST_F(StoreTest, OnlyARegularFileIsRead)
{
    fs::create_directories(m_folder.path("state/4711"));
    ASSERT_EQ(mkfifo(m_folder.path("state/4711/inventory.inv").c_str(), 0600), 0);
    const auto store = open();
    std::vector<unsigned char> section;
    EXPECT_FALSE(store->readInventory(section, m_problem));
    EXPECT_EQ(m_problem, m_folder.path("state/4711/inventory.inv") + " is not a regular file");
}

TEST_F(StoreTest, AFailedWriteLeavesTheOldContent)
{
    const auto store = open();
    ASSERT_TRUE(store->writeInventory(bytes("old"), m_problem));
    // The disk is full after 10 bytes.
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{10, before.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool written = store->writeInventory(bytes("more than ten bytes"), m_problem);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, handler);
    EXPECT_FALSE(written);
    EXPECT_EQ(m_problem, "cannot write " + m_folder.path("state/4711/inventory.inv.new") + ": File too large");
    EXPECT_EQ(m_folder.read("state/4711/inventory.inv"), "old");
    EXPECT_FALSE(fs::exists(m_folder.path("state/4711/inventory.inv.new")));
}

}  // namespace
