#include "platform/service/Random.h"

#include <sys/random.h>

#include <cerrno>

namespace KvNService {

namespace {

template <class T>
std::optional<T> random() noexcept
{
    T value = 0;
    ssize_t got = 0;
    do
        got = getrandom(&value, sizeof value, 0);
    while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(sizeof value))
        return std::nullopt;
    return value;
}

}  // namespace

std::optional<KvUInt32> random32() noexcept
{
    return random<KvUInt32>();
}

std::optional<KvUInt64> random64() noexcept
{
    return random<KvUInt64>();
}

}  // namespace KvNService
