#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace KvNService {

/** What the system says about an error number. */
inline std::string reason(int error)
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

}  // namespace KvNService
