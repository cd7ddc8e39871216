#include "platform/service/OpenBeneath.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/service/File.h"
#include "tests/tools/kvboardd/TemporaryFolder.h"

namespace {

using namespace KvNService;

/** Both ways of opening do the same. */
class OpenBeneathTest : public testing::TestWithParam<OpenCall>
{
protected:
    int open(const char* name, int flags = O_RDONLY)
    {
        errno = 0;
        const Descriptor file(openBeneath(m_root.get(), name, flags, flags & O_CREAT ? 0600 : 0, GetParam()));
        return file ? 0 : errno;
    }

    TemporaryFolder m_folder;
    Descriptor m_root{::open(m_folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

TEST_P(OpenBeneathTest, AFileIsOpenedAndMade)
{
    m_folder.write("file", "content");
    EXPECT_EQ(open("file"), 0);
    EXPECT_EQ(open("none"), ENOENT);
    EXPECT_EQ(open("new", O_RDWR | O_CREAT | O_EXCL), 0);
    EXPECT_EQ(open("new", O_RDWR | O_CREAT | O_EXCL), EEXIST);
    struct stat status
    {};
    ASSERT_EQ(stat(m_folder.path("new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_P(OpenBeneathTest, NothingOutsideTheFolderIsOpened)
{
    const std::string sibling = "../" + std::filesystem::path(m_folder.path()).filename().string() + "/file";
    m_folder.write("file", "content");
    for (const char* name :
         {"", ".", "..", "../", "/etc/passwd", "/", "./file", "folder/file", "file/", sibling.c_str()})
        EXPECT_EQ(open(name), ENOENT) << name;
    EXPECT_EQ(open(std::string(4096, 'a').c_str()), ENAMETOOLONG);
    EXPECT_EQ(open("x\ny"), ENOENT);
}

TEST_P(OpenBeneathTest, NoLinkIsFollowed)
{
    m_folder.write("file", "content");
    for (const auto& [name, target] : {std::pair("outside", "/etc/passwd"),
                                       {"inside", "file"},
                                       {"folder", "."},
                                       {"magic", "/proc/self/fd/0"},
                                       {"loop", "loop"},
                                       {"dangling", "nowhere"}}) {
        ASSERT_EQ(symlink(target, m_folder.path(name).c_str()), 0);
        EXPECT_EQ(open(name), ELOOP) << name;
        EXPECT_NE(open(name, O_RDONLY | O_DIRECTORY), 0) << name;
        EXPECT_NE(open(name, O_RDWR | O_CREAT), 0) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(m_folder.path("nowhere")));
}

TEST_P(OpenBeneathTest, APipeIsNotWaitedFor)
{
    ASSERT_EQ(mkfifo(m_folder.path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(open("fifo"), 0);
    EXPECT_EQ(open("fifo", O_WRONLY), ENXIO);
}

INSTANTIATE_TEST_SUITE_P(Calls, OpenBeneathTest, testing::Values(OpenCall::Openat2, OpenCall::Openat),
                         [](const auto& row) { return row.param == OpenCall::Openat2 ? "openat2" : "openat"; });

}  // namespace
