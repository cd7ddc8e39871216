#pragma once

#include <optional>

#include "platform/KvTypes.h"

namespace KvNService {

/** From the system's random source; null when that fails. */
std::optional<KvUInt32> random32() noexcept;
std::optional<KvUInt64> random64() noexcept;

}  // namespace KvNService
