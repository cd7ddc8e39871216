#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "platform/KvTypes.h"

/*
 * Bytes as they are transmitted (RFC 4506), put together and taken apart by hand, so that tests depend neither on the
 * library's routines nor on generated ones.
 */

using Bytes = std::vector<unsigned char>;

inline Bytes words(std::initializer_list<KvUInt32> numbers)
{
    Bytes result;
    for (const KvUInt32 number : numbers)
        for (const unsigned shift : {24u, 16u, 8u, 0u})
            result.push_back(static_cast<unsigned char>(number >> shift));
    return result;
}

inline Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/** Counted bytes with their padding. */
inline Bytes counted(std::string_view bytes)
{
    Bytes result = words({static_cast<KvUInt32>(bytes.size())});
    result.insert(result.end(), bytes.begin(), bytes.end());
    result.resize((result.size() + 3) / 4 * 4, 0);
    return result;
}

/** Takes bytes apart; whatever is not there reads as 0 and makes isGood() false. */
class WireReader
{
public:
    explicit WireReader(const Bytes& bytes) : m_bytes(bytes) {}

    KvUInt32 word()
    {
        KvUInt32 result = 0;
        for (int i = 0; i < 4; ++i)
            result = result << 8 | byte();
        return result;
    }
    KvUInt64 longWord()
    {
        const KvUInt64 high = word();
        return high << 32 | word();
    }
    std::string counted()
    {
        const KvUInt32 size = word();
        std::string result;
        for (KvUInt32 i = 0; i < size && m_isGood; ++i)
            result += static_cast<char>(byte());
        while (m_position % 4 != 0 && m_isGood)
            byte();
        return result;
    }
    bool isGood() const { return m_isGood; }
    /** Everything has been read, and nothing was missing. */
    bool isDone() const { return m_isGood && m_position == m_bytes.size(); }

private:
    unsigned char byte()
    {
        m_isGood = m_isGood && m_position < m_bytes.size();
        return m_isGood ? m_bytes[m_position++] : 0;
    }

    const Bytes& m_bytes;
    std::size_t m_position = 0;
    bool m_isGood = true;
};
