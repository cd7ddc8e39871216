#include "platform/service/Directory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "tests/tools/kvboardd/TemporaryFolder.h"

namespace {

using namespace KvNService;
namespace fs = std::filesystem;

std::vector<unsigned char> bytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

class DirectoryTest : public testing::Test
{
protected:
    std::string content(const std::string& name) { return m_folder.read("folder/" + name); }
    void make(const std::string& name, const std::string& content) { m_folder.write("folder/" + name, content); }
    std::string place(const std::string& name) { return m_folder.path("folder/" + name); }

    TemporaryFolder m_folder;
    std::string m_text;
    FileProblem m_problem;
    std::unique_ptr<Directory> m_directory = Directory::open(m_folder.path("folder"), m_text);
};

TEST_F(DirectoryTest, AFileIsReplacedAsAWhole)
{
    ASSERT_TRUE(m_directory) << m_text;
    make("file.new", "what a killed service left");
    ASSERT_TRUE(m_directory->replace("file", bytes("first"), m_text)) << m_text;
    ASSERT_TRUE(m_directory->replace("file", bytes("second"), m_text)) << m_text;
    EXPECT_EQ(content("file"), "second");
    EXPECT_FALSE(fs::exists(place("file.new")));
    EXPECT_FALSE(m_directory->replace("no/such", bytes("x"), m_text));
    EXPECT_NE(m_text.find("cannot make"), std::string::npos) << m_text;
    fs::create_directory(place("folder"));
    EXPECT_FALSE(m_directory->replace("folder", bytes("x"), m_text));
    EXPECT_NE(m_text.find("cannot rename to"), std::string::npos) << m_text;
    EXPECT_FALSE(fs::exists(place("folder.new")));
}

TEST_F(DirectoryTest, AnUnfinishedFileIsNotThereUnderItsName)
{
    make("name", "old");
    make("beside", "what a killed service left");
    {
        const auto file = m_directory->beginFile("beside", "name", m_problem);
        ASSERT_TRUE(file);
        EXPECT_TRUE(file->write(0, bytes("hello "), m_problem));
        EXPECT_TRUE(file->write(6, bytes("world"), m_problem));
        std::vector<unsigned char> read(5);
        EXPECT_TRUE(file->read(3, read, m_problem));
        EXPECT_EQ(read, bytes("lo wo"));
        EXPECT_EQ(content("name"), "old");
        EXPECT_TRUE(file->sync(m_problem));
        EXPECT_TRUE(file->commit(m_problem));
        EXPECT_TRUE(file->syncFolder(m_problem));
        EXPECT_EQ(content("name"), "hello world");
        file->discard();
        EXPECT_FALSE(file->read(7, read, m_problem)) << "there is not so much";
        EXPECT_NE(m_problem.text.find("it became shorter"), std::string::npos);
    }
    EXPECT_EQ(content("name"), "hello world") << "what was committed stays";
    EXPECT_FALSE(fs::exists(place("beside")));
    {
        const auto file = m_directory->beginFile("beside", "name", m_problem);
        ASSERT_TRUE(file->write(0, bytes("half"), m_problem));
    }
    EXPECT_EQ(content("name"), "hello world");
    EXPECT_FALSE(fs::exists(place("beside"))) << "nothing else does";
}

TEST_F(DirectoryTest, PlacesBeyondWhatASystemCanNameAreRefused)
{
    const auto file = m_directory->beginFile("beside", "name", m_problem);
    std::vector<unsigned char> one(1);
    for (const KvUInt64 offset : {KvUInt64(1) << 63, ~KvUInt64(0), (KvUInt64(1) << 63) - 1}) {
        EXPECT_FALSE(file->write(offset, one, m_problem)) << offset;
        EXPECT_EQ(m_problem.kind, FileProblem::Kind::Full);
        EXPECT_FALSE(file->read(offset, one, m_problem)) << offset;
    }
}

TEST_F(DirectoryTest, OnlyRegularFilesAreSeen)
{
    m_folder.write("outside", "secret");
    make("file", "content");
    make("other", "not wanted");
    fs::create_directory(place("folder"));
    ASSERT_EQ(symlink(m_folder.path("outside").c_str(), place("link").c_str()), 0);
    ASSERT_EQ(symlink(place("file").c_str(), place("inner link").c_str()), 0);
    ASSERT_EQ(mkfifo(place("fifo").c_str(), 0600), 0);
    std::vector<Directory::Entry> entries;
    ASSERT_TRUE(m_directory->list([](std::string_view name) { return name != "other"; }, entries, m_problem));
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].name, "file");
    EXPECT_EQ(entries[0].size, 7u);
    for (const char* name : {"folder", "link", "inner link", "fifo", "none", "../outside", "..", ""}) {
        FileProblem problem;
        EXPECT_EQ(m_directory->openFile(name, problem), nullptr) << name;
        EXPECT_EQ(problem.kind, FileProblem::Kind::Missing) << name << problem.text;
        EXPECT_FALSE(m_directory->remove(name, problem)) << name;
    }
    EXPECT_TRUE(m_directory->isTaken("fifo"));
    EXPECT_TRUE(m_directory->isTaken("link"));
    EXPECT_FALSE(m_directory->isTaken("none"));
    EXPECT_EQ(m_folder.read("outside"), "secret");
    ASSERT_TRUE(m_directory->remove("file", m_problem));
    EXPECT_FALSE(fs::exists(place("file")));
}

TEST_F(DirectoryTest, AFileIsReadInPieces)
{
    make("file", "0123456789");
    const auto file = m_directory->openFile("file", m_problem);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->size(), 10u);
    std::vector<unsigned char> read(3);
    EXPECT_TRUE(file->read(7, read, m_problem));
    EXPECT_EQ(read, bytes("789"));
    EXPECT_FALSE(file->read(8, read, m_problem));
    fs::resize_file(place("file"), 5);
    EXPECT_FALSE(file->read(4, read, m_problem)) << "it shrank while it was read";
    EXPECT_TRUE(file->read(10, {}, m_problem));
}

TEST_F(DirectoryTest, TheFreeSpaceIsThatOfItsFileSystem)
{
    KvUInt64 free = 0;
    ASSERT_TRUE(m_directory->freeBytes(free, m_problem));
    EXPECT_GT(free, 0u);
    EXPECT_LE(free, fs::space(m_folder.path()).capacity);
}

}  // namespace
