#include "platform/service/Directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/service/OpenBeneath.h"
#include "platform/service/SystemCall.h"

namespace KvNService {

namespace {

constexpr int openFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t folderMode = 0700;
constexpr mode_t fileMode = 0600;
constexpr const char* temporarySuffix = ".new";

struct CloseFolder
{
    void operator()(DIR* folder) const { ::closedir(folder); }
};

/** Whether a file that was looked at is a regular one; errno is set when not. */
bool isRegular(int result, const struct stat& status)
{
    if (result != 0)
        return false;
    errno = ENOENT;
    return S_ISREG(status.st_mode);
}

}  // namespace

std::unique_ptr<Directory> Directory::open(const std::string& path, std::string& problem)
{
    if (::mkdir(path.c_str(), folderMode) != 0 && errno != EEXIST) {
        problem = "cannot make the folder " + path + ": " + reason(errno);
        return nullptr;
    }
    Descriptor descriptor(retried([&] { return ::open(path.c_str(), openFolder); }));
    if (!descriptor) {
        problem = "cannot open the folder " + path + ": " + reason(errno);
        return nullptr;
    }
    return std::unique_ptr<Directory>(new Directory(std::move(descriptor), path));
}

std::string Directory::describe(const std::string& name) const
{
    return m_path + "/" + name;
}

std::unique_ptr<Directory> Directory::sub(const std::string& name, std::string& problem) const
{
    if (::mkdirat(m_descriptor.get(), name.c_str(), folderMode) != 0 && errno != EEXIST) {
        problem = "cannot make the folder " + describe(name) + ": " + reason(errno);
        return nullptr;
    }
    Descriptor descriptor(openBeneath(m_descriptor.get(), name.c_str(), openFolder));
    if (!descriptor) {
        problem = "cannot open the folder " + describe(name) + ": " + reason(errno);
        return nullptr;
    }
    return std::unique_ptr<Directory>(new Directory(std::move(descriptor), describe(name)));
}

bool Directory::lock(std::string& problem) const
{
    if (retried([&] { return ::flock(m_descriptor.get(), LOCK_EX | LOCK_NB); }) == 0)
        return true;
    problem = errno == EWOULDBLOCK ? m_path + " is in use by another service"
                                   : "cannot lock the folder " + m_path + ": " + reason(errno);
    return false;
}

bool Directory::read(const std::string& name, std::size_t maximum, std::vector<unsigned char>& bytes, bool& found,
                     std::string& problem) const
{
    bytes.clear();
    found = false;
    const Descriptor file(openBeneath(m_descriptor.get(), name.c_str(), O_RDONLY));
    if (!file) {
        if (errno == ENOENT)
            return true;
        problem = "cannot open " + describe(name) + ": " + reason(errno);
        return false;
    }
    struct stat status = {};
    if (!isRegular(::fstat(file.get(), &status), status)) {
        problem = describe(name) + " is not a regular file";
        return false;
    }
    if (static_cast<std::uintmax_t>(status.st_size) > maximum) {
        problem = describe(name) + " is larger than " + std::to_string(maximum) + " bytes";
        return false;
    }
    bytes.resize(static_cast<std::size_t>(status.st_size));
    FileProblem why;
    if (!readAt(file.get(), 0, bytes)) {
        failed(why, "cannot read", describe(name));
        problem = why.text;
        return false;
    }
    found = true;
    return true;
}

Descriptor Directory::makeFile(const std::string& name) const
{
    // What a service that was killed left behind; O_EXCL then makes sure that the file is this one's own.
    if (isPlainName(name.c_str()))
        ::unlinkat(m_descriptor.get(), name.c_str(), 0);
    return Descriptor(openBeneath(m_descriptor.get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL, fileMode));
}

bool Directory::replaceFile(const std::string& name, const std::string& temporary, std::span<const unsigned char> bytes,
                            FileProblem& problem) const
{
    Descriptor file = makeFile(temporary);
    if (!file)
        return failed(problem, "cannot make", describe(temporary));
    if (!writeAt(file.get(), 0, bytes))
        return failed(problem, "cannot write", describe(temporary));
    if (retried([&] { return ::fsync(file.get()); }) != 0)
        return failed(problem, "cannot sync", describe(temporary));
    if (!file.close())
        return failed(problem, "cannot close", describe(temporary));
    if (::renameat(m_descriptor.get(), temporary.c_str(), m_descriptor.get(), name.c_str()) != 0)
        return failed(problem, "cannot rename to", describe(name));
    if (retried([&] { return ::fsync(m_descriptor.get()); }) == 0)
        return true;
    failed(problem, "cannot sync the folder of", describe(name));
    problem.text += "; it has the new contents, which a power failure can undo";
    problem.kind = FileProblem::Kind::Unsynced;
    return false;
}

bool Directory::replace(const std::string& name, std::span<const unsigned char> bytes, std::string& problem) const
{
    const std::string temporary = name + temporarySuffix;
    FileProblem why;
    if (replaceFile(name, temporary, bytes, why))
        return true;
    if (isPlainName(temporary.c_str()))
        ::unlinkat(m_descriptor.get(), temporary.c_str(), 0);
    problem = std::move(why.text);
    return false;
}

bool Directory::list(bool (*isWanted)(std::string_view name), std::vector<Entry>& entries, FileProblem& problem) const
{
    entries.clear();
    // A descriptor of its own: the place where reading stands belongs to it.
    Descriptor descriptor(retried([&] { return ::openat(m_descriptor.get(), ".", openFolder); }));
    std::unique_ptr<DIR, CloseFolder> folder(descriptor ? ::fdopendir(descriptor.get()) : nullptr);
    if (folder == nullptr)
        return failed(problem, "cannot read the folder", m_path);
    descriptor.release();
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(folder.get());
        if (entry == nullptr && errno != 0)
            return failed(problem, "cannot read the folder", m_path);
        if (entry == nullptr)
            return true;
        struct stat status = {};
        if (!isWanted(entry->d_name) ||
            !isRegular(::fstatat(m_descriptor.get(), entry->d_name, &status, AT_SYMLINK_NOFOLLOW), status))
            continue;
        entries.push_back({entry->d_name, static_cast<KvUInt64>(status.st_size),
                           static_cast<KvUInt64>(std::max<time_t>(status.st_mtime, 0))});
    }
}

bool Directory::hasFile(const std::string& name, FileProblem& problem) const
{
    struct stat status = {};
    errno = ENOENT;
    const int result =
        isPlainName(name.c_str()) ? ::fstatat(m_descriptor.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) : -1;
    return isRegular(result, status) || failed(problem, "cannot look at", describe(name));
}

bool Directory::isTaken(const std::string& name) const
{
    struct stat status = {};
    return ::fstatat(m_descriptor.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
}

std::unique_ptr<ReadFile> Directory::openFile(const std::string& name, FileProblem& problem) const
{
    // Looked at first: to open a device can do something.
    if (!hasFile(name, problem))
        return nullptr;
    Descriptor file(openBeneath(m_descriptor.get(), name.c_str(), O_RDONLY));
    struct stat status = {};
    if (!file || !isRegular(::fstat(file.get(), &status), status)) {
        failed(problem, "cannot open", describe(name));
        return nullptr;
    }
    return std::make_unique<ReadFile>(std::move(file), static_cast<KvUInt64>(status.st_size), describe(name));
}

std::unique_ptr<UnfinishedFile> Directory::beginFile(const std::string& beside, const std::string& name,
                                                     FileProblem& problem) const
{
    std::string path = describe(name);
    Descriptor folder(::fcntl(m_descriptor.get(), F_DUPFD_CLOEXEC, 0));
    if (!folder) {
        failed(problem, "cannot open the folder of", path);
        return nullptr;
    }
    // Whatever memory it needs is there before it is made, so that nothing can be left behind.
    auto result = std::make_unique<UnfinishedFile>(std::move(folder), beside, name, std::move(path));
    if (!result->take(makeFile(beside))) {
        failed(problem, "cannot make", describe(beside));
        return nullptr;
    }
    return result;
}

bool Directory::remove(const std::string& name, FileProblem& problem) const
{
    if (!hasFile(name, problem))
        return false;
    return ::unlinkat(m_descriptor.get(), name.c_str(), 0) == 0 || failed(problem, "cannot remove", describe(name));
}

bool Directory::freeBytes(KvUInt64& bytes, FileProblem& problem) const
{
    struct statvfs status = {};
    if (retried([&] { return ::fstatvfs(m_descriptor.get(), &status); }) != 0)
        return failed(problem, "cannot ask for the free space of", m_path);
    bytes = static_cast<KvUInt64>(status.f_bavail) * static_cast<KvUInt64>(status.f_frsize);
    return true;
}

}  // namespace KvNService
