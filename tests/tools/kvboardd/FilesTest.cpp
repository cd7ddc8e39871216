#include "tools/kvboardd/Files.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>

#include "TemporaryFolder.h"
#include "platform/service/Directory.h"

namespace {

using KvNBoardService::Files;
using Outcome = Files::Outcome;
namespace fs = std::filesystem;

constexpr const char* first = "0000000000000064";
constexpr const char* second = "0000000000000065";

std::vector<unsigned char> bytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

/** The files of one board in a folder of the test's, with names that are counted. */
class FilesTest : public testing::Test
{
protected:
    std::unique_ptr<Files> open(Files::Limits limits = {})
    {
        std::string problem;
        return std::make_unique<Files>(KvNService::Directory::open(m_folder.path("files"), problem), limits,
                                       [this]() -> std::optional<KvUInt64> {
                                           return m_next == 0 ? std::nullopt : std::optional<KvUInt64>(m_next++);
                                       });
    }
    std::string name()
    {
        std::string directory;
        std::string fileName;
        EXPECT_EQ(m_files->generateName(directory, fileName), Outcome::Done);
        EXPECT_EQ(directory, "transfer");
        return fileName;
    }
    Outcome begin(const std::string& fileName, KvUInt64 size)
    {
        m_unfinished.reset();
        return m_files->begin("transfer", fileName, size, m_unfinished, m_problem);
    }
    /** Puts a file under a name that was handed out. */
    Outcome put(const std::string& fileName, const std::string& content)
    {
        const Outcome outcome = begin(fileName, content.size());
        if (outcome != Outcome::Done)
            return outcome;
        KvNService::FileProblem problem;
        EXPECT_TRUE(m_unfinished->write(0, bytes(content), problem));
        EXPECT_EQ(m_files->commit(*m_unfinished, fileName, m_problem), Outcome::Done);
        m_files->release();
        m_unfinished.reset();
        return outcome;
    }
    Outcome openPath(std::string_view path)
    {
        m_file.reset();
        return m_files->open(path, m_file, m_problem);
    }
    Outcome remove(const std::string& fileName) { return remove("transfer", fileName); }
    Outcome remove(const std::string& directory, const std::string& fileName)
    {
        return m_files->remove(directory, fileName, m_problem);
    }
    /** The names of all files. */
    std::vector<std::string> listed()
    {
        std::vector<Files::Entry> entries;
        EXPECT_EQ(m_files->list(entries, m_free, m_problem), Outcome::Done) << m_problem;
        std::vector<std::string> names;
        for (const Files::Entry& entry : entries)
            names.push_back(entry.fileName);
        return names;
    }
    std::string place(const std::string& name) const { return m_folder.path("files/" + name); }
    std::size_t inFolder() const
    {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(m_folder.path("files")), fs::directory_iterator()));
    }

    using Names = std::vector<std::string>;

    TemporaryFolder m_folder;
    KvUInt64 m_next = 100;  // 0: the source has nothing
    std::unique_ptr<Files> m_files = open();
    std::unique_ptr<KvNService::ReadFile> m_file;
    std::shared_ptr<KvNService::UnfinishedFile> m_unfinished;
    std::string m_problem;
    KvUInt64 m_free = 0;
};

TEST_F(FilesTest, NamesHandedOutHaveOnePattern)
{
    m_next = 0xFEDCBA9876543210;
    EXPECT_EQ(name(), "fedcba9876543210");
    m_next = 100;
    EXPECT_EQ(name(), first);
    EXPECT_EQ(name(), second);
    EXPECT_EQ(inFolder(), 0u) << "a name alone takes no space";
}

TEST_F(FilesTest, ANameIsHandedOutOnce)
{
    EXPECT_EQ(name(), first);
    m_next = 100;
    EXPECT_EQ(name(), second) << "the former is remembered";
    ASSERT_EQ(put(first, "x"), Outcome::Done);
    m_files = open();
    m_next = 100;
    EXPECT_EQ(name(), second) << "the former has a file";
    m_folder.write("files/0000000000000066", "");
    mkdir(place("0000000000000067").c_str(), 0700);
    EXPECT_EQ(name(), "0000000000000068") << "whatever has the name";
}

TEST_F(FilesTest, WithoutRandomNumbersThereIsNoName)
{
    m_next = 0;
    std::string directory = "before";
    std::string fileName = "before";
    EXPECT_EQ(m_files->generateName(directory, fileName), Outcome::NoRandom);
    EXPECT_EQ(fileName, "before");
    std::string problem;
    Files files(KvNService::Directory::open(m_folder.path("files"), problem), {}, [] { return KvUInt64(7); });
    EXPECT_EQ(files.generateName(directory, fileName), Outcome::Done);
    EXPECT_EQ(files.generateName(directory, fileName), Outcome::NoRandom) << "a source that is stuck";
}

TEST_F(FilesTest, ANameHandedOutHasNoFileUntilOneIsPut)
{
    const std::string path = "transfer/" + name();
    EXPECT_EQ(openPath(path), Outcome::NotFound);
    EXPECT_EQ(remove(first), Outcome::NotFound);
    EXPECT_TRUE(listed().empty());
    ASSERT_EQ(begin(first, 3), Outcome::Done);
    EXPECT_EQ(openPath(path), Outcome::NotFound) << "nor while it comes";
    EXPECT_TRUE(listed().empty());
    ASSERT_EQ(put(first, "abc"), Outcome::Done);
    EXPECT_EQ(listed(), Names{first});
    ASSERT_EQ(openPath(path), Outcome::Done);
    EXPECT_EQ(m_file->size(), 3u);
}

TEST_F(FilesTest, AFileIsReadThroughItsRemotePath)
{
    name();
    ASSERT_EQ(put(first, "0123456789"), Outcome::Done);
    ASSERT_EQ(openPath(std::string("transfer/") + first), Outcome::Done);
    KvNService::FileProblem problem;
    std::vector<unsigned char> read(4);
    ASSERT_TRUE(m_file->read(3, read, problem));
    EXPECT_EQ(read, bytes("3456"));
    EXPECT_FALSE(m_file->read(7, read, problem)) << "beyond its end";
    EXPECT_FALSE(m_file->read(0xFFFFFFFFFFFFFFFF, read, problem));
    ASSERT_EQ(remove(first), Outcome::Done);
    ASSERT_TRUE(m_file->read(0, read, problem)) << "what was opened stays readable";
    EXPECT_EQ(read, bytes("0123"));
}

TEST_F(FilesTest, NamesThatWereNotHandedOutAreRefused)
{
    name();
    ASSERT_EQ(put(first, "content"), Outcome::Done);
    m_folder.write("outside", "secret");
    m_folder.write("files/plain", "no name of this board's");
    const std::string nul = std::string(first) + '\0';
    const std::string bad[] = {"",
                               ".",
                               "..",
                               "../outside",
                               "/etc/passwd",
                               m_folder.path("outside"),
                               "plain",
                               std::string(4096, 'a'),
                               std::string(first) + "\n",
                               "\n",
                               nul,
                               std::string(16, '\0'),
                               "0000000000000064.part",
                               "000000000000064",
                               "00000000000000064",
                               "000000000000006A",
                               "0x00000000000064",
                               " 000000000000064",
                               "+000000000000064",
                               "0000000000000063",
                               std::string("./") + first,
                               std::string("transfer/") + first,
                               std::string(first) + "/",
                               "\xFF\xFE",
                               "%2e%2e",
                               "ffffffffffffffff",
                               "CON",
                               first + std::string("/..")};
    for (const std::string& fileName : bad) {
        EXPECT_EQ(begin(fileName, 1), Outcome::BadName) << fileName;
        EXPECT_EQ(remove(fileName), Outcome::BadName) << fileName;
        EXPECT_EQ(openPath("transfer/" + fileName), Outcome::BadName) << fileName;
    }
    const std::string directories[] = {"",
                                       ".",
                                       "..",
                                       "Transfer",
                                       "transfer/",
                                       "/transfer",
                                       "transfer/..",
                                       "files",
                                       m_folder.path("files"),
                                       std::string("transfer\0", 9),
                                       "transfer\n",
                                       std::string(4096, 't')};
    for (const std::string& directory : directories) {
        EXPECT_EQ(m_files->begin(directory, first, 1, m_unfinished, m_problem), Outcome::BadName) << directory;
        EXPECT_EQ(remove(directory, first), Outcome::BadName) << directory;
        EXPECT_EQ(openPath(directory + "/" + first), Outcome::BadName) << directory;
        EXPECT_EQ(m_files->setBusy(directory + "/" + first, true), Outcome::BadName) << directory;
    }
    EXPECT_EQ(openPath(first), Outcome::BadName) << "the name alone is not the path";
    EXPECT_EQ(m_files->setBusy(first, true), Outcome::BadName);
    EXPECT_EQ(inFolder(), 2u);
    EXPECT_EQ(m_folder.read("outside"), "secret");
    EXPECT_EQ(listed(), Names{first});
}

TEST_F(FilesTest, WhatIsNotARegularFileIsNeitherFollowedNorListedNorOpened)
{
    m_folder.write("outside", "secret");
    for (int i = 0; i < 5; ++i)
        name();
    ASSERT_EQ(symlink(m_folder.path("outside").c_str(), place("0000000000000064").c_str()), 0);
    ASSERT_EQ(symlink("/dev/zero", place("0000000000000065").c_str()), 0);
    ASSERT_EQ(mkfifo(place("0000000000000066").c_str(), 0600), 0);
    ASSERT_EQ(mkdir(place("0000000000000067").c_str(), 0700), 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const int folder = socket(AF_UNIX, SOCK_STREAM, 0);
    const std::string where = fs::relative(place("0000000000000068")).string();
    where.copy(address.sun_path, sizeof address.sun_path - 1);
    bind(folder, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    close(folder);
    EXPECT_TRUE(listed().empty());
    for (const char* fileName :
         {"0000000000000064", "0000000000000065", "0000000000000066", "0000000000000067", "0000000000000068"}) {
        EXPECT_EQ(openPath(std::string("transfer/") + fileName), Outcome::NotFound) << fileName;
        EXPECT_EQ(remove(fileName), Outcome::NotFound) << fileName;
    }
    ASSERT_EQ(put("0000000000000064", "new"), Outcome::Done) << "a link makes place, it is not written through";
    EXPECT_EQ(m_folder.read("outside"), "secret");
    EXPECT_EQ(m_folder.read("files/0000000000000064"), "new");
    m_files = open();
    EXPECT_EQ(openPath("transfer/0000000000000066"), Outcome::BadName) << "after a restart it is no name";
}

TEST_F(FilesTest, ADeviceIsNotOpened)
{
    name();
    if (mknod(place(first).c_str(), S_IFCHR | 0600, makedev(1, 5)) != 0)
        GTEST_SKIP() << "only root can make a device";
    EXPECT_EQ(openPath(std::string("transfer/") + first), Outcome::NotFound);
    EXPECT_TRUE(listed().empty());
}

TEST_F(FilesTest, AFolderOfFilesThatIsALinkIsRefused)
{
    m_folder.write("elsewhere", "");
    fs::create_directory(m_folder.path("real"));
    fs::create_directory(m_folder.path("state"));
    fs::create_directory_symlink(m_folder.path("real"), m_folder.path("state/files"));
    std::string problem;
    const auto root = KvNService::Directory::open(m_folder.path("state"), problem);
    ASSERT_TRUE(root);
    EXPECT_EQ(root->sub("files", problem), nullptr);
    EXPECT_NE(problem.find("cannot open the folder"), std::string::npos) << problem;
}

TEST_F(FilesTest, NamesStayValidAfterARestartWhileTheirFilesExist)
{
    name();
    name();
    ASSERT_EQ(put(first, "content"), Outcome::Done);
    m_files = open();
    EXPECT_EQ(openPath(std::string("transfer/") + first), Outcome::Done);
    EXPECT_EQ(put(first, "other"), Outcome::Done) << "and can be put again";
    EXPECT_EQ(begin(second, 1), Outcome::BadName) << "a name without a file is forgotten";
    EXPECT_EQ(remove(first), Outcome::Done);
    EXPECT_EQ(remove(first), Outcome::NotFound) << "a repeated call, because an answer was lost";
}

TEST_F(FilesTest, OnlyTheLastNamesHandedOutAreRemembered)
{
    m_files = open({.bytes = 1000, .files = 10, .names = 2});
    name();
    name();
    EXPECT_EQ(begin(first, 1), Outcome::Done);
    m_unfinished.reset();
    name();
    EXPECT_EQ(begin(first, 1), Outcome::BadName);
    EXPECT_EQ(begin(second, 1), Outcome::Done);
    EXPECT_EQ(begin("0000000000000066", 1), Outcome::Done);
}

TEST_F(FilesTest, WhatAKilledServiceLeftUnfinishedIsRemoved)
{
    m_folder.write("files/0000000000000064.part", "half of it");
    m_folder.write("files/0000000000000065", "complete");
    m_folder.write("files/notes.part", "not ours");
    EXPECT_EQ(m_files->removeUnfinished(m_problem), Outcome::Done);
    EXPECT_FALSE(fs::exists(place("0000000000000064.part")));
    EXPECT_EQ(listed(), Names{second});
    EXPECT_TRUE(fs::exists(place("notes.part")));
}

TEST_F(FilesTest, FilesAreListedByNameWithSizeAndTime)
{
    for (const KvUInt64 number : {0xB0u, 0x64u, 0xA0u}) {
        m_next = number;
        ASSERT_EQ(put(name(), std::string(number, 'x')), Outcome::Done);
    }
    std::vector<Files::Entry> entries;
    ASSERT_EQ(m_files->list(entries, m_free, m_problem), Outcome::Done);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].fileName, "0000000000000064");
    EXPECT_EQ(entries[0].size, 0x64u);
    EXPECT_EQ(entries[1].fileName, "00000000000000a0");
    EXPECT_EQ(entries[2].fileName, "00000000000000b0");
    const auto now = static_cast<KvUInt64>(time(nullptr));
    EXPECT_LE(entries[0].modified, now + 1);
    EXPECT_GE(entries[0].modified + 3600, now);
}

TEST_F(FilesTest, TheQuotaIsForAllFilesTogether)
{
    m_files = open({.bytes = 100});
    for (int i = 0; i < 3; ++i)
        name();
    ASSERT_EQ(put(first, std::string(60, 'x')), Outcome::Done);
    listed();
    EXPECT_EQ(m_free, 40u);
    EXPECT_EQ(begin(second, 41), Outcome::NoSpace);
    EXPECT_EQ(m_problem, "40 bytes of the files' share are free");
    for (const KvUInt64 size : {KvUInt64(1) << 62, KvUInt64(1) << 63, ~KvUInt64(0)})
        EXPECT_EQ(begin(second, size), Outcome::NoSpace);
    EXPECT_EQ(begin(second, 40), Outcome::Done);
    listed();
    EXPECT_EQ(m_free, 0u) << "what comes has its room";
    m_unfinished.reset();
    m_files->release();
    listed();
    EXPECT_EQ(m_free, 40u);
    ASSERT_EQ(remove(first), Outcome::Done);
    listed();
    EXPECT_EQ(m_free, 100u);
}

TEST_F(FilesTest, NoMoreIsFreeThanTheDiskHas)
{
    m_files = open({.bytes = KvUInt64(1) << 50});
    listed();
    const fs::space_info space = fs::space(m_folder.path());
    EXPECT_LT(m_free, KvUInt64(1) << 50);
    EXPECT_LE(m_free, space.capacity);
    name();
    EXPECT_EQ(begin(first, KvUInt64(1) << 49), Outcome::NoSpace);
    EXPECT_NE(m_problem.find("bytes of the disk are free"), std::string::npos) << m_problem;
}

TEST_F(FilesTest, FilesAreLimitedInNumber)
{
    m_files = open({.bytes = 1000, .files = 2});
    for (int i = 0; i < 3; ++i)
        name();
    ASSERT_EQ(put(first, ""), Outcome::Done);
    ASSERT_EQ(put(second, ""), Outcome::Done);
    EXPECT_EQ(begin("0000000000000066", 0), Outcome::TooMany);
    EXPECT_EQ(put(first, "again"), Outcome::Done) << "one that is there is no further one";
    ASSERT_EQ(remove(first), Outcome::Done);
    EXPECT_EQ(begin("0000000000000066", 0), Outcome::Done);
}

TEST_F(FilesTest, ABusyFileIsNeitherReplacedNorDeleted)
{
    name();
    name();
    const std::string path = std::string("transfer/") + first;
    ASSERT_EQ(put(first, "image"), Outcome::Done);
    ASSERT_EQ(begin(first, 3), Outcome::Done);
    const auto before = std::move(m_unfinished);
    ASSERT_EQ(m_files->setBusy(path, true), Outcome::Done);
    ASSERT_EQ(m_files->setBusy(path, true), Outcome::Done);
    EXPECT_EQ(begin(first, 1), Outcome::Busy);
    EXPECT_EQ(remove(first), Outcome::Busy);
    EXPECT_EQ(m_files->commit(*before, first, m_problem), Outcome::Busy) << "one that was begun before";
    EXPECT_EQ(openPath(path), Outcome::Done) << "it can be read";
    EXPECT_EQ(put(second, "x"), Outcome::Done) << "others are not busy";
    ASSERT_EQ(m_files->setBusy(path, false), Outcome::Done);
    ASSERT_EQ(m_files->setBusy(path, false), Outcome::Done);
    EXPECT_EQ(m_folder.read(std::string("files/") + first), "image");
    EXPECT_EQ(remove(first), Outcome::Done);
}

TEST_F(FilesTest, AFileThatIsDeletedCanBeHandedOverToBeClosed)
{
    name();
    ASSERT_EQ(put(first, "content"), Outcome::Done);
    std::shared_ptr<KvNService::ReadFile> deleted;
    EXPECT_EQ(m_files->remove("transfer", first, m_problem, &deleted), Outcome::Done);
    EXPECT_EQ(inFolder(), 0u);
    ASSERT_TRUE(deleted);
    EXPECT_EQ(deleted->size(), 7u);
    EXPECT_EQ(m_files->remove("transfer", first, m_problem, &deleted), Outcome::NotFound);
    EXPECT_FALSE(deleted);
}

TEST_F(FilesTest, AnUnfinishedFileLeavesNothing)
{
    name();
    ASSERT_EQ(begin(first, 3), Outcome::Done);
    EXPECT_EQ(inFolder(), 1u);
    m_unfinished.reset();
    EXPECT_EQ(inFolder(), 0u);
}

TEST_F(FilesTest, AFolderThatIsGoneIsTroubleAndNoCrash)
{
    name();
    fs::remove_all(m_folder.path("files"));
    EXPECT_EQ(begin(first, 1), Outcome::Io);
    EXPECT_NE(m_problem.find("cannot make"), std::string::npos) << m_problem;
    EXPECT_EQ(openPath(std::string("transfer/") + first), Outcome::NotFound);
    EXPECT_TRUE(listed().empty());
}

}  // namespace
