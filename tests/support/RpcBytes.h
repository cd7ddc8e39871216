#pragma once

#include <cstdint>
#include <string>
#include <vector>

/** The bytes of RPC messages, put together by hand and not by the code that they test. */
namespace RpcBytes {

using Bytes = std::vector<unsigned char>;

inline void append(Bytes& bytes, std::uint32_t unit)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<unsigned char>(unit >> shift));
}

inline Bytes units(std::initializer_list<std::uint32_t> values)
{
    Bytes bytes;
    for (const std::uint32_t value : values)
        append(bytes, value);
    return bytes;
}

inline std::uint32_t unitAt(const Bytes& bytes, std::size_t offset)
{
    std::uint32_t unit = 0;
    for (std::size_t i = 0; i < 4; ++i)
        unit = unit << 8 | bytes.at(offset + i);
    return unit;
}

inline Bytes operator+(Bytes first, const Bytes& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/** A record of one fragment. */
inline Bytes record(const Bytes& message)
{
    return units({0x80000000u | static_cast<std::uint32_t>(message.size())}) + message;
}

/** A fragment that others follow. */
inline Bytes fragment(const Bytes& part)
{
    return units({static_cast<std::uint32_t>(part.size())}) + part;
}

/** An accepted reply with an empty verifier; status 0 is success, and then the results follow. */
inline Bytes accepted(std::uint32_t xid, std::uint32_t status, const Bytes& rest = {})
{
    return units({xid, 1, 0, 0, 0, status}) + rest;
}

inline Bytes denied(std::uint32_t xid, const Bytes& rest)
{
    return units({xid, 1, 1}) + rest;
}

}  // namespace RpcBytes
