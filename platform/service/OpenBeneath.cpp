#include "platform/service/OpenBeneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

#include "platform/service/SystemCall.h"

namespace KvNService {

namespace {

int openat2(int folder, const char* name, int flags, mode_t mode)
{
    open_how how{};
    how.flags = static_cast<unsigned>(flags);
    how.mode = mode;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    return static_cast<int>(::syscall(SYS_openat2, folder, name, &how, sizeof how));
}

}  // namespace

bool isPlainName(const char* name) noexcept
{
    return *name != '\0' && std::strchr(name, '/') == nullptr && std::strcmp(name, ".") != 0 &&
           std::strcmp(name, "..") != 0;
}

int openBeneath(int folder, const char* name, int flags, mode_t mode, OpenCall call) noexcept
{
    if (!isPlainName(name)) {
        errno = ENOENT;
        return -1;
    }
    const int all = flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    if (call == OpenCall::Openat2) {
        const int file = retried([&] { return openat2(folder, name, all, mode); });
        // A filter of system calls says EPERM; when that is the file's own answer, openat gives it again.
        if (file >= 0 || (errno != ENOSYS && errno != EPERM))
            return file;
    }
    return retried([&] { return ::openat(folder, name, all, mode); });
}

}  // namespace KvNService
