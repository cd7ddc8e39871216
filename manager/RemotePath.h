#pragma once

#include "base/Report.h"
#include "manager/KvCInventoryManager.h"

namespace KvNInventoryManager {

/** Characters that an update carries of a file's path; what is behind them is cut off. */
constexpr KvUInt32 UpdatePathLength = 303;
constexpr KvUInt32 Update2PathLength = 511;

/** Characters of a file's path on its board. */
constexpr KvUInt64 pathLength(KvUInt32 directoryLength, KvUInt32 fileNameLength)
{
    return directoryLength != 0 ? KvUInt64{directoryLength} + 1 + fileNameLength : fileNameLength;
}

/** The path of a transferred file on its board. Without memory for it there is none: 0x601002. */
class RemotePath
{
public:
    RemotePath(KvCErrorListPool& errors, const char* origin, const KvSRemoteFileHandle& file)
        : m_path(file.directory.length() != 0 ? file.directory + "/" + file.fileName : file.fileName),
          m_isWhole(m_path.length() == pathLength(file.directory.length(), file.fileName.length()))
    {
        if (!m_isWhole)
            KV_REPORT(errors, OutOfMemory, origin);
    }

    bool isWhole() const { return m_isWhole; }
    const char* c_str() const { return m_path.c_str(); }

private:
    const KvCString m_path;
    const bool m_isWhole;
};

}  // namespace KvNInventoryManager
