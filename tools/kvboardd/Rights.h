#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/service/Privileges.h"
#include "tools/kvboardd/Options.h"

namespace KvNBoardService {

/** As whom the service runs when everything is open. */
struct Rights
{
    bool keep = false;                           ///< root stays root, because that was asked for
    std::optional<KvNService::Account> account;  ///< whom to become; null: whoever it is already
};

/** Finds out whom to become: the user that the command line names; nobody when started by root. False, and why in
    `problem`, when there is no such user or it cannot be become. Logs what its user should know. */
bool chooseRights(const Options& options, Rights& rights, std::string& problem);

/** Hands `folders`, with what is in them, over to whom the service becomes, and becomes it, for good. To be called
    before there are other threads. False, and why in `problem`, when that fails: the service must not run then. */
bool takeRights(const Rights& rights, const std::vector<std::string>& folders, std::string& problem);

}  // namespace KvNBoardService
