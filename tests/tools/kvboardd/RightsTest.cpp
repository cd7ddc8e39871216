#include "tools/kvboardd/Rights.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>

#include <grp.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TemporaryFolder.h"

namespace {

using KvNBoardService::chooseRights;
using KvNBoardService::Options;
using KvNBoardService::Rights;
using KvNBoardService::takeRights;

/** Runs `body` in a process of its own, whose rights may end with it; its exit status. */
int inProcess(const std::function<int()>& body)
{
    const pid_t process = fork();
    if (process == 0)
        _exit(body());
    int status = 0;
    waitpid(process, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool becomes(const char* user)
{
    Options options;
    options.user = user;
    Rights rights;
    std::string problem;
    return chooseRights(options, rights, problem) && takeRights(rights, {}, problem);
}

class RightsTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "needs root";
        std::string problem;
        if (const auto nobody = KvNService::findAccount("nobody", problem); nobody && !KvNService::isMapped(*nobody))
            GTEST_SKIP() << "the user namespace has no other user";
    }
};

TEST_F(RightsTest, ByDefaultRootBecomesNobody)
{
    Rights rights;
    std::string problem;
    ASSERT_TRUE(chooseRights(Options(), rights, problem)) << problem;
    ASSERT_TRUE(rights.account.has_value());
    EXPECT_EQ(rights.account->name, "nobody");
    EXPECT_NE(rights.account->user, 0u);
    EXPECT_FALSE(rights.keep);
}

TEST_F(RightsTest, AnUnknownUserIsRefused)
{
    Options options;
    options.user = "no-such-user";
    Rights rights;
    std::string problem;
    EXPECT_FALSE(chooseRights(options, rights, problem));
    EXPECT_EQ(problem, "there is no user no-such-user");
}

TEST_F(RightsTest, ThereIsNoWayBack)
{
    EXPECT_EQ(inProcess([] {
                  if (!becomes("nobody"))
                      return 1;
                  if (setuid(0) == 0 || seteuid(0) == 0 || setresuid(0, 0, 0) == 0 || setgid(0) == 0)
                      return 2;
                  if (setgroups(0, nullptr) == 0 || getgroups(0, nullptr) != 0)
                      return 3;
                  if (getuid() == 0 || geteuid() == 0 || getgid() == 0 || getegid() == 0)
                      return 4;
                  return access("/etc/shadow", R_OK) == 0 ? 5 : 0;
              }),
              0);
}

TEST_F(RightsTest, OnlyRootBecomesAnother)
{
    EXPECT_EQ(inProcess([] {
                  if (!becomes("nobody"))
                      return 1;
                  Rights rights;
                  std::string problem;
                  Options options;
                  if (!chooseRights(options, rights, problem) || rights.account || rights.keep)
                      return 2;
                  options.user = "nobody";
                  if (!chooseRights(options, rights, problem) || rights.account)
                      return 3;
                  if (!takeRights(rights, {}, problem))
                      return 4;
                  options.user = "root";
                  if (chooseRights(options, rights, problem) || problem != "only root can become root")
                      return 5;
                  return 0;
              }),
              0);
}

TEST_F(RightsTest, TheRootOfANamespaceWithoutUsersStaysWithoutCapabilities)
{
    const int status = inProcess([] {
        if (unshare(CLONE_NEWUSER) != 0)
            return 77;
        std::ofstream("/proc/self/uid_map") << "0 0 1\n";
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/gid_map") << "0 0 1\n";
        Rights rights;
        std::string problem;
        Options options;
        if (!chooseRights(options, rights, problem) || rights.account || rights.keep)
            return 1;
        if (!takeRights(rights, {}, problem))
            return 2;
        options.user = "nobody";
        if (chooseRights(options, rights, problem) || problem != "the user namespace has no user nobody")
            return 3;
        return sethostname("x", 1) == 0 || getuid() != 0 ? 4 : 0;
    });
    if (status == 77)
        GTEST_SKIP() << "user namespaces cannot be made here";
    EXPECT_EQ(status, 0);
}

TEST_F(RightsTest, FoldersAreHandedOverButNothingElse)
{
    const TemporaryFolder folder;
    const auto make = [&](const std::string& name) { std::filesystem::create_directories(folder.path(name)); };
    make("state/files/deep/deeper");
    folder.write("state/inventory.inv", "x");
    folder.write("state/files/one", "x");
    folder.write("elsewhere", "x");
    std::filesystem::create_hard_link(folder.path("elsewhere"), folder.path("state/hard"));
    std::filesystem::create_symlink(folder.path("elsewhere"), folder.path("state/soft"));
    std::string problem;
    const auto nobody = KvNService::findAccount("nobody", problem);
    ASSERT_TRUE(nobody.has_value()) << problem;
    ASSERT_TRUE(KvNService::handOver(folder.path("state"), *nobody, 2, problem)) << problem;
    const auto owner = [&](const std::string& name) {
        struct stat status
        {};
        EXPECT_EQ(lstat(folder.path(name).c_str(), &status), 0) << name;
        return status.st_uid;
    };
    for (const char* name : {"state", "state/inventory.inv", "state/files", "state/files/one", "state/files/deep"})
        EXPECT_EQ(owner(name), nobody->user) << name;
    for (const char* name : {"elsewhere", "state/soft", "state/files/deep/deeper"})
        EXPECT_EQ(owner(name), 0u) << name;
    std::filesystem::create_directory_symlink(folder.path("state"), folder.path("link"));
    KvNService::Account root{"root", 0, 0};
    ASSERT_TRUE(KvNService::handOver(folder.path("link"), root, 2, problem)) << problem;
    EXPECT_EQ(owner("state"), nobody->user) << "a link is not followed";
}

}  // namespace
