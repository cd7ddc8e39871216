#pragma once

#include <string_view>

namespace KvNService {

/** Writes `text`, at most 4096 bytes of it, to standard error in one piece; false, and nothing is written, when that
    could not be done without waiting for whoever reads it. */
bool writeStandardError(std::string_view text) noexcept;

}  // namespace KvNService
