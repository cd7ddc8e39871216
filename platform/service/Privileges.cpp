#include "platform/service/Privileges.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <vector>

#include "platform/service/File.h"
#include "platform/service/SystemCall.h"

namespace KvNService {

namespace {

constexpr std::size_t largestEntry = 1 << 20;

bool refused(const char* what, std::string& problem)
{
    problem = std::string("cannot ") + what + ": " + reason(errno);
    return false;
}

/** Whether the map of a user namespace ("inside outside count" lines) knows `id`. */
bool isInMap(const char* path, std::uintmax_t id)
{
    std::ifstream map(path);
    if (!map)
        return true;
    std::uintmax_t inside = 0;
    std::uintmax_t outside = 0;
    std::uintmax_t count = 0;
    while (map >> inside >> outside >> count)
        if (id >= inside && id - inside < count)
            return true;
    return false;
}

/** Takes every capability out of the set that the process can ever have again; without the right to do so it has none
    to take away. */
void boundCapabilities()
{
    constexpr int most = 64;
    for (int capability = 0; capability < most; ++capability)
        ::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0);
}

/** Empties the process's capability sets; which needs no capability. */
bool dropCapabilities()
{
    __user_cap_header_struct header{};
    header.version = _LINUX_CAPABILITY_VERSION_3;
    __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
    // The ambient set goes with the permitted and the inheritable ones.
    return ::syscall(SYS_capset, &header, none) == 0;
}

/** The names in a folder, without "." and "..". */
bool readNames(int folder, std::vector<std::string>& names)
{
    const int copy = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> list(copy < 0 ? nullptr : ::fdopendir(copy), ::closedir);
    if (!list) {
        if (copy >= 0)
            ::close(copy);
        return false;
    }
    errno = 0;
    while (const dirent* entry = ::readdir(list.get()))
        if (const std::string name = entry->d_name; name != "." && name != "..")
            names.push_back(name);
    return errno == 0;
}

/** Hands over what is called `name` in `folder`; what is no longer there is no failure. */
bool handOverEntry(int folder, const std::string& name, const Account& account, unsigned depth)
{
    const Descriptor entry(::openat(folder, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!entry || ::fstat(entry.get(), &status) != 0)
        return errno == ENOENT;
    const bool isFolder = S_ISDIR(status.st_mode);
    if (!isFolder && (!S_ISREG(status.st_mode) || status.st_nlink != 1))
        return true;
    if (::fchownat(entry.get(), "", account.user, account.group, AT_EMPTY_PATH) != 0)
        return false;
    std::vector<std::string> names;
    if (!isFolder || depth == 0)
        return true;
    return readNames(entry.get(), names) && std::all_of(names.begin(), names.end(), [&](const std::string& one) {
               return handOverEntry(entry.get(), one, account, depth - 1);
           });
}

/** Tries what only root may; true when all of it is refused. */
bool isPowerless(uid_t user)
{
    if (user != 0 && (::setuid(0) == 0 || ::seteuid(0) == 0))
        return false;
    return ::setgroups(0, nullptr) != 0;
}

}  // namespace

std::optional<Account> findAccount(const std::string& name, std::string& problem)
{
    std::vector<char> texts(1024);
    passwd entry{};
    passwd* found = nullptr;
    int error = 0;
    while ((error = ::getpwnam_r(name.c_str(), &entry, texts.data(), texts.size(), &found)) == ERANGE &&
           texts.size() < largestEntry)
        texts.resize(texts.size() * 2);
    if (found != nullptr)
        return Account{name, found->pw_uid, found->pw_gid};
    problem = "there is no user " + name;
    if (error != 0)
        problem = "cannot look up the user " + name + ": " + reason(error);
    return std::nullopt;
}

bool handOver(const std::string& path, const Account& account, unsigned depth, std::string& problem)
{
    return handOverEntry(AT_FDCWD, path, account, depth) ||
           refused(("hand " + path + " over to " + account.name).c_str(), problem);
}

bool isRoot()
{
    return ::geteuid() == 0;
}

bool isOwn(const Account& account)
{
    return ::geteuid() == account.user && ::getuid() == account.user;
}

bool isMapped(const Account& account)
{
    return isInMap("/proc/self/uid_map", account.user) && isInMap("/proc/self/gid_map", account.group);
}

bool forbidNewPrivileges()
{
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

bool dropPrivileges(const Account* account, std::string& problem)
{
    if (!forbidNewPrivileges())
        return refused("forbid new privileges", problem);
    boundCapabilities();
    if (account != nullptr) {
        if (::setgroups(0, nullptr) != 0)
            return refused("leave the supplementary groups", problem);
        if (::setresgid(account->group, account->group, account->group) != 0)
            return refused(("take the group of " + account->name).c_str(), problem);
        if (::setresuid(account->user, account->user, account->user) != 0)
            return refused(("become " + account->name).c_str(), problem);
    }
    if (!dropCapabilities())
        return refused("give up the capabilities", problem);
    if (isPowerless(::getuid()))
        return true;
    problem = "root's rights came back after they were given up";
    return false;
}

}  // namespace KvNService
