#include "tools/kvboardd/FileFolders.h"

#include "platform/service/Directory.h"
#include "platform/service/TemporaryFolder.h"

namespace KvNBoardService {

FileFolders::FileFolders() = default;

FileFolders::~FileFolders() = default;

bool FileFolders::open(const std::string& state, std::string& problem)
{
    std::string path = state;
    if (state.empty()) {
        m_temporary = KvNService::TemporaryFolder::make("kvboardd", problem);
        if (m_temporary == nullptr)
            return false;
        path = m_temporary->path();
    }
    m_root = KvNService::Directory::open(path, problem);
    return m_root != nullptr;
}

std::unique_ptr<KvNService::Directory> FileFolders::folder(KvUInt32 serial, std::string& problem) const
{
    const std::unique_ptr<KvNService::Directory> own = m_root->sub(std::to_string(serial), problem);
    return own == nullptr ? nullptr : own->sub("files", problem);
}

std::string FileFolders::temporaryPath() const
{
    return m_temporary == nullptr ? std::string() : m_temporary->path();
}

}  // namespace KvNBoardService
