#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace KvNService {

/**
 * A folder that is opened once; files in it are named without a path and never followed through links. Every operation
 * returns false, or null, and says in `problem` what the system said; names in it are those given.
 */
class Directory
{
public:
    /** Opens `path`; makes it (not what stands above it) when it is not there, for this user alone. */
    static std::unique_ptr<Directory> open(const std::string& path, std::string& problem);
    ~Directory();
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    /** Opens or makes the folder `name` in this one. */
    std::unique_ptr<Directory> sub(const std::string& name, std::string& problem) const;

    /** Keeps other processes from locking the folder as long as this object lives; fails when one has. */
    bool lock(std::string& problem) const;

    /** Reads a regular file of at most `maximum` bytes; `found` is false, and that no failure, when there is none. */
    bool read(const std::string& name, std::size_t maximum, std::vector<unsigned char>& bytes, bool& found,
              std::string& problem) const;

    /** Makes `bytes` the contents of the file `name`: written beside it, synced, renamed, the folder synced. The file
        has the old or the new contents at any instant, and the old ones when this fails (but for a folder that cannot
        be synced). */
    bool replace(const std::string& name, std::span<const unsigned char> bytes, std::string& problem) const;

private:
    Directory(int descriptor, std::string path) : m_descriptor(descriptor), m_path(std::move(path)) {}

    std::string describe(const std::string& name) const;

    int m_descriptor;
    std::string m_path;
};

}  // namespace KvNService
