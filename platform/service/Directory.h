#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/service/File.h"

namespace KvNService {

/**
 * A folder that is opened once; files in it are named without a path and never followed through links, and only regular
 * ones are opened. Every operation returns false, or null, and says in `problem` what the system said; names in it are
 * those given.
 */
class Directory
{
public:
    /** Opens `path`; makes it (not what stands above it) when it is not there, for this user alone. */
    static std::unique_ptr<Directory> open(const std::string& path, std::string& problem);
    ~Directory() = default;
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
        has the old or the new contents at any instant, and the old ones when this fails; but when the folder cannot be
        synced they are new, nobody knows for how long, and `problem` says so. */
    bool replace(const std::string& name, std::span<const unsigned char> bytes, std::string& problem) const;

    /** A file in the folder. */
    struct Entry
    {
        std::string name;
        KvUInt64 size = 0;
        KvUInt64 modified = 0;  ///< seconds since 1970-01-01 UTC
    };

    /** The regular files whose names `isWanted`, in no order. */
    bool list(bool (*isWanted)(std::string_view name), std::vector<Entry>& entries, FileProblem& problem) const;

    /** Opens the regular file `name`. */
    std::unique_ptr<ReadFile> openFile(const std::string& name, FileProblem& problem) const;

    /** Whether there is a regular file `name`: true, or false and Missing, or false and something else. */
    bool hasFile(const std::string& name, FileProblem& problem) const;

    /** Whether the name is taken by anything at all, or that cannot be known. */
    bool isTaken(const std::string& name) const;

    /** Begins a file that is called `beside` until it is committed and `name` then; replaces what is called `beside`.
     */
    std::unique_ptr<UnfinishedFile> beginFile(const std::string& beside, const std::string& name,
                                              FileProblem& problem) const;

    /** Removes the regular file `name`. */
    bool remove(const std::string& name, FileProblem& problem) const;

    /** Bytes that this user can still store in the folder's file system. */
    bool freeBytes(KvUInt64& bytes, FileProblem& problem) const;

private:
    Directory(Descriptor descriptor, std::string path) : m_descriptor(std::move(descriptor)), m_path(std::move(path)) {}

    std::string describe(const std::string& name) const;
    Descriptor makeFile(const std::string& name) const;
    bool replaceFile(const std::string& name, const std::string& temporary, std::span<const unsigned char> bytes,
                     FileProblem& problem) const;

    Descriptor m_descriptor;
    std::string m_path;
};

}  // namespace KvNService
