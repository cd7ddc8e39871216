#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

/**
 * Files of the programs: written beside their place and renamed, so that under a name there is always the old content
 * or the complete new one; and read whatever they are, piece by piece.
 * Problems are texts for people, `PATH: reason of the system`.
 */
namespace KvNFiles {

/**
 * A file in the making. What is written goes into a new file beside `path`; commit() syncs it, renames it to `path` and
 * syncs the folder. Without commit() nothing remains. A link is followed, the permissions of a file that is replaced
 * are kept, and what is not a regular file (a device, a pipe) is written to as it is.
 */
class NewFile
{
public:
    NewFile() = default;
    ~NewFile() { discard(); }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    /** Begins a file; false when it cannot be made. */
    bool open(const std::string& path);
    bool write(const void* data, std::size_t bytes);
    /** The file is complete: true when its content is on the disk under its name. */
    bool commit();
    /** Gives up what was written; nothing after commit(). */
    void discard();

    /** Why the last operation was false. */
    const std::string& problem() const { return m_problem; }

private:
    bool fail(const std::string& path);
    bool makeBeside(const std::string& path);

    std::FILE* m_file = nullptr;
    std::string m_path;       // where it goes in the end
    std::string m_temporary;  // where it is now; empty when written in place
    std::string m_problem;
};

/** Writes a whole file by NewFile. */
bool writeFile(const std::string& path, const void* data, std::size_t bytes, std::string& problem);

/** Removes what unfinished NewFiles have made; may be called by a handler of signals that ends the process. */
void removeUnfinished() noexcept;

/** A file, or standard input for the path "-", read piece by piece. A folder is a problem, anything else can be read.
 */
class Reader
{
public:
    Reader() = default;
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    bool open(const std::string& path);
    /** Reads up to `bytes` bytes and returns how many; 0 is the end, or a failure that problem() names. */
    std::size_t read(void* block, std::size_t bytes);
    /** Goes on reading at `position` bytes from the start of a regular file. */
    bool seek(std::uint64_t position);
    /** Why something failed; empty while nothing did. */
    const std::string& problem() const { return m_problem; }

private:
    std::FILE* m_file = nullptr;
    std::string m_path;
    std::string m_problem;
};

}  // namespace KvNFiles
