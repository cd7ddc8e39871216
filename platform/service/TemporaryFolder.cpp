#include "platform/service/TemporaryFolder.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "platform/service/SystemCall.h"

namespace KvNService {

std::unique_ptr<TemporaryFolder> TemporaryFolder::make(const std::string& prefix, std::string& problem)
{
    std::error_code error;
    const std::filesystem::path place = std::filesystem::temp_directory_path(error);
    if (error) {
        problem = "there is no folder for temporary files: " + error.message();
        return nullptr;
    }
    std::string name = (place / (prefix + "-XXXXXX")).string();
    std::unique_ptr<TemporaryFolder> result(new TemporaryFolder(std::string(name.size(), ' ')));
    if (::mkdtemp(name.data()) == nullptr) {
        problem = "cannot make a temporary folder " + name + ": " + reason(errno);
        result->m_path.clear();
        return nullptr;
    }
    result->m_path.swap(name);
    return result;
}

TemporaryFolder::~TemporaryFolder()
{
    if (m_path.empty())
        return;
    try {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    } catch (...) {
        // It stays, as after a kill.
    }
}

}  // namespace KvNService
