#include "tools/kvboardd/Rights.h"

#include "tools/kvboardd/Log.h"

namespace KvNBoardService {

namespace {

constexpr const char* defaultUser = "nobody";
/** DIR or a temporary folder, SERIAL, files, and the files in it. */
constexpr unsigned folderDepth = 3;

}  // namespace

bool chooseRights(const Options& options, Rights& rights, std::string& problem)
{
    rights = {};
    const bool isRoot = KvNService::isRoot();
    if (!isRoot && !options.user)
        return true;
    const std::string name = options.user.value_or(defaultUser);
    rights.account = KvNService::findAccount(name, problem);
    if (!rights.account) {
        problem += isRoot && !options.user ? ": --user must name one that the service is to become" : "";
        return false;
    }
    if (!isRoot) {
        if (KvNService::isOwn(*rights.account)) {
            rights.account.reset();
            return true;
        }
        problem = "only root can become " + name;
        return false;
    }
    if (rights.account->user == 0) {
        log("warning: runs as root, as --user asks for: whatever is wrong with it is wrong with the whole machine");
        rights.keep = true;
    } else if (!KvNService::isMapped(*rights.account)) {
        problem = "the user namespace has no user " + name;
        if (options.user)
            return false;
        log("warning: " + problem + ": the namespace's root stays, without its capabilities");
        problem.clear();
        rights.account.reset();
    }
    return true;
}

bool takeRights(const Rights& rights, const std::vector<std::string>& folders, std::string& problem)
{
    if (rights.keep) {
        if (!KvNService::forbidNewPrivileges())
            log("cannot forbid new privileges");
        return true;
    }
    if (rights.account)
        for (const std::string& folder : folders)
            if (!KvNService::handOver(folder, *rights.account, folderDepth, problem))
                return false;
    return KvNService::dropPrivileges(rights.account ? &*rights.account : nullptr, problem);
}

}  // namespace KvNBoardService
