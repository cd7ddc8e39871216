#pragma once

#include <string>

#include "manager/KvCInventoryManager.h"
#include "tools/kvinv/Boards.h"
#include "tools/kvinv/Console.h"
#include "tools/kvinv/Progress.h"

/** Files of this host on their way to a board, and their names there. */
namespace RemoteFile {

using Name = KvNInventoryManager::KvSRemoteFileHandle;

/** A name on a board as people and scripts see it: folder and file name with a "/" between them. */
std::string pathOf(const std::string& directory, const std::string& fileName);
std::string pathOf(const Name& name);
/** The name that `path` stands for, split at its last "/"; false when no file name is in it. */
bool nameOf(const std::string& path, Name& name);

/** A file of this host that can be sent. */
struct Local
{
    std::string path;
    std::wstring wide;
    KvUInt64 size = 0;
};
/** False, told, when the file cannot be read or is no regular file. */
bool find(const std::string& path, Local& file, Console& console);

/** Transfers the file under the lock; `progress` reaches `share` thousandths in the end. False, told, when that failed
    or the user interrupted it: then nothing is left on the board. */
bool send(const Boards& boards, const KvCInventoryAddress& address, const BoardLock& lock, const Local& file,
          Progress& progress, unsigned share, Name& name, Console& console);
/** Deletes the file on the board; false, told, when that failed. */
bool remove(const Boards& boards, const KvCInventoryAddress& address, const BoardLock& lock, const Name& name,
            Console& console);

}  // namespace RemoteFile
