#include "tools/kvboardd/Log.h"

#include <cstdio>

namespace KvNBoardService {

void log(std::string_view line) noexcept
{
    // One call, so that a line stays whole whatever else writes there.
    std::fprintf(stderr, "kvboardd: %.*s\n", static_cast<int>(line.size()), line.data());
}

std::string escaped(std::string_view text, std::size_t maximum)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    for (const char character : text.substr(0, maximum)) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte < 0x7F && byte != '\\') {
            result += character;
        } else {
            result += "\\x";
            result += digits[byte >> 4];
            result += digits[byte & 0xF];
        }
    }
    if (text.size() > maximum)
        result += "...";
    return result;
}

std::string addressText(KvUInt32 address)
{
    std::string result;
    for (int shift = 24; shift >= 0; shift -= 8) {
        if (shift != 24)
            result += '.';
        result += std::to_string((address >> shift) & 0xFF);
    }
    return result;
}

}  // namespace KvNBoardService
