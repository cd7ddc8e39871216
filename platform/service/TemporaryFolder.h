#pragma once

#include <memory>
#include <string>
#include <utility>

namespace KvNService {

/** A folder of the process's own among the system's temporary files; removed, with all that is in it, with the object.
    What a process that was killed leaves there is the system's to clear. */
class TemporaryFolder
{
public:
    /** Makes one whose name begins with `prefix`; null, and why in `problem`, when it cannot. */
    static std::unique_ptr<TemporaryFolder> make(const std::string& prefix, std::string& problem);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return m_path; }

private:
    explicit TemporaryFolder(std::string path) : m_path(std::move(path)) {}

    std::string m_path;
};

}  // namespace KvNService
