#include "platform/service/StandardError.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace KvNService {

namespace {

/** What a pipe that can be written to at all takes at once. */
constexpr std::size_t onePiece = 4096;

}  // namespace

bool writeStandardError(std::string_view text) noexcept
{
    pollfd entry{STDERR_FILENO, POLLOUT, 0};
    if (::poll(&entry, 1, 0) != 1 || (entry.revents & POLLOUT) == 0)
        return false;
    ssize_t written = 0;
    do
        written = ::write(STDERR_FILENO, text.data(), text.size() < onePiece ? text.size() : onePiece);
    while (written < 0 && errno == EINTR);
    return written >= 0;
}

}  // namespace KvNService
