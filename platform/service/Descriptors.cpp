#include "platform/service/Descriptors.h"

#include <sys/resource.h>

namespace KvNService {

void allowAllDescriptors() noexcept
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace KvNService
