#pragma once

#include <memory>
#include <string>

#include "platform/KvTypes.h"

namespace KvNService {
class Directory;
class TemporaryFolder;
}  // namespace KvNService

namespace KvNBoardService {

/**
 * Where the files put on the boards are: DIR/SERIAL/files in the folder given with --state; without one, in a temporary
 * folder that goes with this object.
 */
class FileFolders
{
public:
    /** `state`: DIR, which is there; empty: none. False, and why in `problem`, when no folder can be had. */
    bool open(const std::string& state, std::string& problem);
    FileFolders();
    ~FileFolders();

    /** The folder for the files of the board `serial`, made when it is not there; null, and why in `problem`. */
    std::unique_ptr<KvNService::Directory> folder(KvUInt32 serial, std::string& problem) const;

    /** The temporary folder; empty when there is none. */
    std::string temporaryPath() const;

private:
    std::unique_ptr<KvNService::TemporaryFolder> m_temporary;
    std::unique_ptr<KvNService::Directory> m_root;
};

}  // namespace KvNBoardService
