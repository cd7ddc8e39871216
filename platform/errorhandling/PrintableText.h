#pragma once

#include <cstddef>

/**
 * Makes texts from outside fit for a terminal or a log: control characters and bytes that are not UTF-8 are shown as
 * "\xNN", everything else as it is.
 */
namespace KvNPrintableText {

/** Bytes of the UTF-8 character at `text` that can be shown; 0 when there is none. */
inline std::size_t printableAt(const char* text)
{
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80)
        return first >= 0x20 && first != 0x7F ? 1 : 0;

    const std::size_t length = first >= 0xC2 && first <= 0xDF   ? 2
                               : first >= 0xE0 && first <= 0xEF ? 3
                               : first >= 0xF0 && first <= 0xF4 ? 4
                                                                : 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    }
    const bool isControl = first == 0xC2 && byte(1) < 0xA0;
    const bool isOverlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
    const bool isNoCharacter = (first == 0xED && byte(1) > 0x9F) || (first == 0xF4 && byte(1) > 0x8F);
    return isControl || isOverlong || isNoCharacter ? 0 : length;
}

/** Calls `put(bytes, count)` with the pieces of what is shown for `text`. */
template <class Put>
void escape(const char* text, Put&& put)
{
    static constexpr char digits[] = "0123456789abcdef";
    const char* plain = text;
    while (*text != '\0') {
        const std::size_t length = printableAt(text);
        if (length != 0) {
            text += length;
            continue;
        }
        const auto byte = static_cast<unsigned char>(*text);
        const char shown[] = {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        put(plain, static_cast<std::size_t>(text - plain));
        put(shown, sizeof shown);
        plain = ++text;
    }
    put(plain, static_cast<std::size_t>(text - plain));
}

}  // namespace KvNPrintableText
