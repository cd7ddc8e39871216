#pragma once

#include <cstdint>
#include <string>
#include <vector>

/** Bytes as they travel, written in tests as hexadecimal text or put together field by field. */
using Bytes = std::vector<unsigned char>;

/** The bytes of a text like "00 00 00 01"; blanks and line breaks do not count. */
inline Bytes hex(const char* text)
{
    Bytes bytes;
    const auto digit = [](char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; };
    for (; *text != '\0'; ++text) {
        if (*text == ' ' || *text == '\n')
            continue;
        bytes.push_back(static_cast<unsigned char>(digit(text[0]) << 4 | digit(text[1])));
        ++text;
    }
    return bytes;
}

/** An XDR record made field by field, independently of the library's own routines. */
class Record
{
public:
    Record& number(std::uint32_t value)
    {
        for (int shift = 24; shift >= 0; shift -= 8)
            m_bytes.push_back(static_cast<unsigned char>(value >> shift));
        return *this;
    }
    Record& opaque(const Bytes& bytes)
    {
        number(static_cast<std::uint32_t>(bytes.size()));
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
        while (m_bytes.size() % 4 != 0)
            m_bytes.push_back(0);
        return *this;
    }
    Record& text(const std::string& text) { return opaque(Bytes(text.begin(), text.end())); }
    Record& characters(const std::string& text)
    {
        number(static_cast<std::uint32_t>(text.size()));
        for (const char c : text)
            number(static_cast<unsigned char>(c));
        return *this;
    }
    operator const Bytes&() const { return m_bytes; }

private:
    Bytes m_bytes;
};
