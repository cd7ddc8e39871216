#include "tools/kvinv/Numbers.h"

#include <charconv>
#include <system_error>

bool parseNumber(std::string_view text, KvUInt64 largest, KvUInt64& value)
{
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text.remove_prefix(2);
        base = 16;
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return !text.empty() && error == std::errc() && end == text.data() + text.size() && value <= largest;
}
