#include "platform/files/KvNFiles.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#if defined(_WIN32)
#include <io.h>
#include <process.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace KvNFiles {

namespace {

/** Names of files in the making, for a handler of signals: fixed memory, taken and left with one atomic each. */
struct Unfinished
{
    std::atomic<bool> taken{false};
    std::atomic<bool> valid{false};
    char name[4096] = {};
};
Unfinished g_unfinished[8];

void remember(const std::string& name)
{
    if (name.size() >= sizeof g_unfinished[0].name)
        return;
    for (Unfinished& entry : g_unfinished) {
        if (entry.taken.exchange(true))
            continue;
        std::memcpy(entry.name, name.c_str(), name.size() + 1);
        entry.valid = true;
        return;
    }
}

void forget(const std::string& name)
{
    for (Unfinished& entry : g_unfinished) {
        if (entry.valid && name == entry.name) {
            entry.valid = false;
            entry.taken = false;
            return;
        }
    }
}

std::string reason()
{
    return std::generic_category().message(errno);
}

#if defined(_WIN32)

int processNumber()
{
    return _getpid();
}

void removeName(const char* name) noexcept
{
    DeleteFileA(name);
}

bool syncFile(std::FILE* file)
{
    return _commit(_fileno(file)) == 0;
}

bool seekFile(std::FILE* file, std::uint64_t position)
{
    return _fseeki64(file, static_cast<long long>(position), SEEK_SET) == 0;
}

bool putInPlace(const std::string& from, const std::string& to)
{
    if (MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0)
        return true;
    errno = EACCES;
    return false;
}

#else

int processNumber()
{
    return getpid();
}

void removeName(const char* name) noexcept
{
    unlink(name);
}

bool syncFile(std::FILE* file)
{
    return fsync(fileno(file)) == 0;
}

bool seekFile(std::FILE* file, std::uint64_t position)
{
    return fseeko(file, static_cast<off_t>(position), SEEK_SET) == 0;
}

bool putInPlace(const std::string& from, const std::string& to)
{
    if (std::rename(from.c_str(), to.c_str()) != 0)
        return false;
    // The new name lasts only when the folder has been synced too; a folder that cannot be synced is no failure.
    const std::string folder = std::filesystem::path(to).parent_path().string();
    const int descriptor = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        fsync(descriptor);
        ::close(descriptor);
    }
    return true;
}

#endif

/** The file that a path stands for in the end, there or not: links followed, so that a rename replaces the file and not
    the link. Links that lead nowhere else for ever stay where they are. */
std::string behindLinks(const std::string& path)
{
    constexpr int mostLinks = 40;
    std::error_code error;
    std::filesystem::path target = path;
    for (int i = 0; i < mostLinks && std::filesystem::is_symlink(target, error); ++i) {
        const std::filesystem::path next = std::filesystem::read_symlink(target, error);
        if (error)
            return path;
        target = target.parent_path() / next;
    }
    return target.string();
}

/** How problems name a file. */
std::string shownName(const std::string& path)
{
    return path.empty() ? "\"\"" : path;
}

}  // namespace

bool NewFile::fail(const std::string& path)
{
    m_problem = shownName(path) + ": " + reason();
    return false;
}

bool NewFile::makeBeside(const std::string& path)
{
    static std::atomic<unsigned> counter{0};
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::string name = ".kv-" + std::to_string(processNumber()) + "-" + std::to_string(++counter) + ".tmp";
        const std::string temporary = (folder / name).string();
        remember(temporary);
        m_file = std::fopen(temporary.c_str(), "wbx");
        if (m_file != nullptr) {
            m_temporary = temporary;
            return true;
        }
        const int error = errno;
        forget(temporary);
        errno = error;
        if (error != EEXIST)
            return fail(path);
    }
    return fail(path);
}

bool NewFile::open(const std::string& path)
{
    discard();
    m_problem.clear();
    m_path = behindLinks(path);
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(m_path, error);
    if (status.type() == std::filesystem::file_type::none) {
        errno = error.value();
        return fail(path);
    }
    if (std::filesystem::is_directory(status)) {
        errno = EISDIR;
        return fail(path);
    }
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
        m_file = std::fopen(m_path.c_str(), "wb");
        return m_file != nullptr || fail(path);
    }
    if (!makeBeside(m_path))
        return false;
    if (std::filesystem::is_regular_file(status))
        std::filesystem::permissions(m_temporary, status.permissions(), error);
    return true;
}

bool NewFile::write(const void* data, std::size_t bytes)
{
    if (m_file == nullptr)
        return false;
    return bytes == 0 || std::fwrite(data, 1, bytes, m_file) == bytes || fail(m_path);
}

bool NewFile::commit()
{
    if (m_file == nullptr)
        return false;
    bool good = std::fflush(m_file) == 0 && (m_temporary.empty() || syncFile(m_file));
    if (!good)
        fail(m_path);
    if (std::fclose(m_file) != 0 && good)
        good = fail(m_path);
    m_file = nullptr;
    if (good && !m_temporary.empty()) {
        good = putInPlace(m_temporary, m_path) || fail(m_path);
        if (good) {
            forget(m_temporary);
            m_temporary.clear();
        }
    }
    if (!good)
        discard();
    return good;
}

void NewFile::discard()
{
    if (m_file != nullptr)
        std::fclose(m_file);
    m_file = nullptr;
    if (!m_temporary.empty()) {
        removeName(m_temporary.c_str());
        forget(m_temporary);
        m_temporary.clear();
    }
}

bool writeFile(const std::string& path, const void* data, std::size_t bytes, std::string& problem)
{
    NewFile file;
    if (file.open(path) && file.write(data, bytes) && file.commit())
        return true;
    problem = file.problem();
    return false;
}

void removeUnfinished() noexcept
{
    for (const Unfinished& entry : g_unfinished) {
        if (entry.valid)
            removeName(entry.name);
    }
}

Reader::~Reader()
{
    if (m_file != nullptr && m_file != stdin)
        std::fclose(m_file);
}

bool Reader::open(const std::string& path)
{
    m_path = path == "-" ? "standard input" : shownName(path);
    m_file = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
    if (m_file == nullptr)
        m_problem = m_path + ": " + reason();
    return m_file != nullptr;
}

std::size_t Reader::read(void* block, std::size_t bytes)
{
    if (m_file == nullptr)
        return 0;
    const std::size_t count = std::fread(block, 1, bytes, m_file);
    if (count < bytes && std::ferror(m_file) != 0)
        m_problem = m_path + ": " + reason();
    return m_problem.empty() ? count : 0;
}

bool Reader::seek(std::uint64_t position)
{
    if (m_file != nullptr && seekFile(m_file, position))
        return true;
    if (m_file != nullptr)
        m_problem = m_path + ": " + reason();
    return false;
}

}  // namespace KvNFiles
