#include "platform/files/KvNFiles.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace {

class Files : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = (fs::temp_directory_path() / "kv-files-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_folder = pattern;
    }
    void TearDown() override { fs::remove_all(m_folder); }
    std::string path(const char* name) const { return (m_folder / name).string(); }
    static std::string content(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    static void put(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
    std::size_t count() const
    {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(m_folder), fs::directory_iterator()));
    }

    fs::path m_folder;
};

}  // namespace

TEST_F(Files, AreThereOnlyWhenComplete)
{
    KvNFiles::NewFile file;
    ASSERT_TRUE(file.open(path("a"))) << file.problem();
    ASSERT_TRUE(file.write("first", 5));
    EXPECT_FALSE(fs::exists(path("a")));
    ASSERT_TRUE(file.commit()) << file.problem();
    EXPECT_EQ(content(path("a")), "first");
    EXPECT_EQ(count(), 1U);
}

TEST_F(Files, KeepTheOldContentUntilTheNewIsComplete)
{
    put(path("a"), "old");
    {
        KvNFiles::NewFile file;
        ASSERT_TRUE(file.open(path("a")));
        ASSERT_TRUE(file.write("new", 3));
        EXPECT_EQ(content(path("a")), "old");
    }
    EXPECT_EQ(content(path("a")), "old");
    EXPECT_EQ(count(), 1U);
    std::string problem;
    EXPECT_TRUE(KvNFiles::writeFile(path("a"), "new", 3, problem)) << problem;
    EXPECT_EQ(content(path("a")), "new");
    EXPECT_EQ(count(), 1U);
}

TEST_F(Files, KeepThePermissionsOfWhatTheyReplace)
{
    put(path("a"), "old");
    fs::permissions(path("a"), fs::perms::owner_read | fs::perms::owner_write);
    std::string problem;
    ASSERT_TRUE(KvNFiles::writeFile(path("a"), "new", 3, problem)) << problem;
    EXPECT_EQ(fs::status(path("a")).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(Files, AreReplacedBehindALink)
{
    put(path("a"), "old");
    fs::create_symlink("a", path("link"));
    std::string problem;
    ASSERT_TRUE(KvNFiles::writeFile(path("link"), "new", 3, problem)) << problem;
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_EQ(content(path("a")), "new");
}

TEST_F(Files, AreMadeWhereALinkLeads)
{
    fs::create_directory(path("folder"));
    fs::create_symlink("folder/second", path("first"));
    fs::create_symlink("../a", path("folder/second"));
    std::string problem;
    ASSERT_TRUE(KvNFiles::writeFile(path("first"), "new", 3, problem)) << problem;
    EXPECT_TRUE(fs::is_symlink(path("first")));
    EXPECT_TRUE(fs::is_symlink(path("folder/second")));
    EXPECT_EQ(content(path("a")), "new");
}

TEST_F(Files, ALinkThatLeadsNowhereStays)
{
    fs::create_symlink("loop", path("loop"));
    std::string problem;
    EXPECT_FALSE(KvNFiles::writeFile(path("loop"), "new", 3, problem));
    EXPECT_EQ(problem, path("loop") + ": Too many levels of symbolic links");
    EXPECT_TRUE(fs::is_symlink(path("loop")));
    EXPECT_EQ(count(), 1U);
}

TEST_F(Files, SayWhyTheyCannotBeMade)
{
    std::string problem;
    EXPECT_FALSE(KvNFiles::writeFile(path("no/a"), "x", 1, problem));
    EXPECT_EQ(problem, path("no/a") + ": No such file or directory");
    EXPECT_FALSE(KvNFiles::writeFile(m_folder.string(), "x", 1, problem));
    EXPECT_EQ(problem, m_folder.string() + ": Is a directory");
    EXPECT_EQ(count(), 0U);
}

TEST_F(Files, AreWrittenToADeviceInPlace)
{
    std::string problem;
    EXPECT_TRUE(KvNFiles::writeFile("/dev/null", "x", 1, problem)) << problem;
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    if (fs::exists("/dev/full")) {
        EXPECT_FALSE(KvNFiles::writeFile("/dev/full", "x", 1, problem));
        EXPECT_EQ(problem, "/dev/full: No space left on device");
    }
}

TEST_F(Files, UnfinishedOnesCanBeRemovedAtOnce)
{
    KvNFiles::NewFile file;
    ASSERT_TRUE(file.open(path("a")));
    EXPECT_EQ(count(), 1U);
    KvNFiles::removeUnfinished();
    EXPECT_EQ(count(), 0U);
}

TEST_F(Files, AreReadPieceByPiece)
{
    put(path("a"), "0123456789");
    KvNFiles::Reader reader;
    ASSERT_TRUE(reader.open(path("a")));
    char block[8] = {};
    EXPECT_EQ(reader.read(block, 6), 6U);
    EXPECT_EQ(reader.read(block, 6), 4U);
    EXPECT_EQ(reader.read(block, 6), 0U);
    EXPECT_TRUE(reader.seek(8));
    EXPECT_EQ(reader.read(block, 6), 2U);
    EXPECT_EQ(std::string(block, 2), "89");
    EXPECT_EQ(reader.problem(), "");
}

TEST_F(Files, SayWhyTheyCannotBeRead)
{
    KvNFiles::Reader missing;
    EXPECT_FALSE(missing.open(path("none")));
    EXPECT_EQ(missing.problem(), path("none") + ": No such file or directory");
    KvNFiles::Reader folder;
    char block[8];
    EXPECT_TRUE(folder.open(m_folder.string()));
    EXPECT_EQ(folder.read(block, sizeof block), 0U);
    EXPECT_EQ(folder.problem(), m_folder.string() + ": Is a directory");
}
