#include "platform/service/Directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace KvNService {

namespace {

std::string reason(int error)
{
    return std::generic_category().message(error);
}

/** Runs a system call again when a signal interrupted it. */
template <class Call>
auto retried(Call call)
{
    decltype(call()) result{};
    do
        result = call();
    while (result < 0 && errno == EINTR);
    return result;
}

/** An open file. */
class File
{
public:
    explicit File(int descriptor) : m_descriptor(descriptor) {}
    ~File() { close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int get() const { return m_descriptor; }
    bool close()
    {
        if (m_descriptor < 0)
            return true;
        // Not repeated when interrupted: the descriptor is gone then.
        return ::close(std::exchange(m_descriptor, -1)) == 0 || errno == EINTR;
    }

private:
    int m_descriptor;
};

bool writeAll(int descriptor, std::span<const unsigned char> bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = retried([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
        if (written < 0)
            return false;
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

constexpr int openFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t folderMode = 0700;
constexpr mode_t fileMode = 0600;
constexpr const char* temporarySuffix = ".new";

}  // namespace

std::unique_ptr<Directory> Directory::open(const std::string& path, std::string& problem)
{
    if (::mkdir(path.c_str(), folderMode) != 0 && errno != EEXIST) {
        problem = "cannot make the folder " + path + ": " + reason(errno);
        return nullptr;
    }
    const int descriptor = retried([&] { return ::open(path.c_str(), openFolder); });
    if (descriptor < 0) {
        problem = "cannot open the folder " + path + ": " + reason(errno);
        return nullptr;
    }
    return std::unique_ptr<Directory>(new Directory(descriptor, path));
}

Directory::~Directory()
{
    ::close(m_descriptor);
}

std::string Directory::describe(const std::string& name) const
{
    return m_path + "/" + name;
}

std::unique_ptr<Directory> Directory::sub(const std::string& name, std::string& problem) const
{
    if (::mkdirat(m_descriptor, name.c_str(), folderMode) != 0 && errno != EEXIST) {
        problem = "cannot make the folder " + describe(name) + ": " + reason(errno);
        return nullptr;
    }
    const int descriptor = retried([&] { return ::openat(m_descriptor, name.c_str(), openFolder | O_NOFOLLOW); });
    if (descriptor < 0) {
        problem = "cannot open the folder " + describe(name) + ": " + reason(errno);
        return nullptr;
    }
    return std::unique_ptr<Directory>(new Directory(descriptor, describe(name)));
}

bool Directory::lock(std::string& problem) const
{
    if (retried([&] { return ::flock(m_descriptor, LOCK_EX | LOCK_NB); }) == 0)
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
    File file(
        retried([&] { return ::openat(m_descriptor, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK); }));
    if (file.get() < 0) {
        if (errno == ENOENT)
            return true;
        problem = "cannot open " + describe(name) + ": " + reason(errno);
        return false;
    }
    struct stat status;
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        problem = describe(name) + " is not a regular file";
        return false;
    }
    if (static_cast<std::uintmax_t>(status.st_size) > maximum) {
        problem = describe(name) + " is larger than " + std::to_string(maximum) + " bytes";
        return false;
    }
    bytes.resize(static_cast<std::size_t>(status.st_size));
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = retried([&] { return ::read(file.get(), bytes.data() + done, bytes.size() - done); });
        if (got <= 0) {
            problem = "cannot read " + describe(name) + ": " + (got == 0 ? "it became shorter" : reason(errno));
            return false;
        }
        done += static_cast<std::size_t>(got);
    }
    found = true;
    return true;
}

bool Directory::replace(const std::string& name, std::span<const unsigned char> bytes, std::string& problem) const
{
    const std::string temporary = name + temporarySuffix;
    const auto failed = [&](const char* what, const std::string& file) {
        problem = std::string("cannot ") + what + " " + describe(file) + ": " + reason(errno);
        ::unlinkat(m_descriptor, temporary.c_str(), 0);
        return false;
    };
    // What a service that was killed left behind; O_EXCL then makes sure that the file is this one's own.
    ::unlinkat(m_descriptor, temporary.c_str(), 0);
    File file(retried([&] {
        return ::openat(m_descriptor, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                        fileMode);
    }));
    if (file.get() < 0)
        return failed("make", temporary);
    if (!writeAll(file.get(), bytes))
        return failed("write", temporary);
    if (retried([&] { return ::fsync(file.get()); }) != 0)
        return failed("sync", temporary);
    if (!file.close())
        return failed("close", temporary);
    if (::renameat(m_descriptor, temporary.c_str(), m_descriptor, name.c_str()) != 0)
        return failed("rename to", name);
    if (retried([&] { return ::fsync(m_descriptor); }) != 0)
        return failed("sync the folder of", name);
    return true;
}

}  // namespace KvNService
