#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace KvNService {

/** A user of the system, by number, with the group that goes with it. */
struct Account
{
    std::string name;
    uid_t user = 0;
    gid_t group = 0;
};

/** The account called `name`; null, and why in `problem`, when there is none or it cannot be asked for. */
std::optional<Account> findAccount(const std::string& name, std::string& problem);

/** Makes `account` the owner of the folder at `path` and of the regular files and folders in it, `depth` levels of
   them; links, and files that have another name elsewhere, are left alone. False, and why in `problem`, when it fails.
 */
bool handOver(const std::string& path, const Account& account, unsigned depth, std::string& problem);

/** Whether the process has root's rights, at least in a user namespace of its own. */
bool isRoot();

/** Whether the process is `account`'s already. */
bool isOwn(const Account& account);

/** Whether the process can become `account`: in a user namespace, whether that user and group are known there. */
bool isMapped(const Account& account);

/**
 * Gives up what root may, for good: the supplementary groups, then group, user and all capabilities become those of
 * `account` (null: user and group stay, all else is given up); nothing that is run later can have more. Proves that
 * there is no way back. False, and why in `problem`, when a step fails: then the process must not go on.
 */
bool dropPrivileges(const Account* account, std::string& problem);

/** That nothing run by the process can have more rights than it has. False when the system does not know of this. */
bool forbidNewPrivileges();

}  // namespace KvNService
