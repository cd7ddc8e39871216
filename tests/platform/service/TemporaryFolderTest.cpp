#include "platform/service/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/stat.h>

#include "tests/tools/kvboardd/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;

class OwnTemporaryFolderTest : public testing::Test
{
protected:
    OwnTemporaryFolderTest() { setenv("TMPDIR", m_place.path().c_str(), 1); }
    ~OwnTemporaryFolderTest() override { unsetenv("TMPDIR"); }

    TemporaryFolder m_place;
    std::string m_problem;
};

TEST_F(OwnTemporaryFolderTest, ItIsItsOwnersAloneAndGoesWithAllThatIsInIt)
{
    m_place.write("outside", "stays");
    auto folder = KvNService::TemporaryFolder::make("prefix", m_problem);
    const auto second = KvNService::TemporaryFolder::make("prefix", m_problem);
    ASSERT_TRUE(folder && second) << m_problem;
    EXPECT_NE(folder->path(), second->path());
    EXPECT_EQ(folder->path().find(m_place.path("prefix-")), 0u);
    struct stat status
    {};
    ASSERT_EQ(stat(folder->path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    fs::create_directories(folder->path() + "/a/b");
    std::ofstream(folder->path() + "/a/b/file") << "x";
    fs::create_symlink(m_place.path("outside"), folder->path() + "/a/link");
    fs::create_directory_symlink(m_place.path(), folder->path() + "/a/folder");
    const std::string path = folder->path();
    folder.reset();
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(m_place.read("outside"), "stays") << "links are not followed";
    EXPECT_TRUE(fs::exists(second->path()));
}

TEST_F(OwnTemporaryFolderTest, WhereNoneCanBeMadeItIsSaidWhy)
{
    setenv("TMPDIR", m_place.path("none").c_str(), 1);
    EXPECT_EQ(KvNService::TemporaryFolder::make("prefix", m_problem), nullptr);
    EXPECT_NE(m_problem.find("no folder for temporary files"), std::string::npos) << m_problem;
}

}  // namespace
