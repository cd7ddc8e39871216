#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

/**
 * Streams hold every number most significant byte first. This is the only place that turns bytes around; the host's
 * order is an argument, so that both are tested on any host.
 */
namespace KvNBigEndian {

template <std::size_t bytes>
using UnsignedOf = std::conditional_t<
    bytes == 1, std::uint8_t,
    std::conditional_t<bytes == 2, std::uint16_t, std::conditional_t<bytes == 4, std::uint32_t, std::uint64_t>>>;

/** The number with its bytes in reverse order. */
template <class Unsigned>
constexpr Unsigned reversed(Unsigned value)
{
    static_assert(std::is_unsigned_v<Unsigned>);
    if constexpr (sizeof(Unsigned) == 1) {
        return value;
    } else if constexpr (sizeof(Unsigned) == 2) {
        return static_cast<Unsigned>((value >> 8) | (value << 8));
    } else {
        constexpr unsigned half = sizeof(Unsigned) * 4;
        using Half = UnsignedOf<sizeof(Unsigned) / 2>;
        return static_cast<Unsigned>((static_cast<Unsigned>(reversed(static_cast<Half>(value))) << half) |
                                     reversed(static_cast<Half>(value >> half)));
    }
}

/** Stores a number of 1, 2, 4 or 8 bytes (a float's bits count as a number) at `bytes`, of any alignment. */
template <std::endian host = std::endian::native, class T>
void store(void* bytes, T value)
{
    static_assert(std::is_trivially_copyable_v<T> &&
                  (sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8));
    auto bits = std::bit_cast<UnsignedOf<sizeof(T)>>(value);
    if constexpr (host == std::endian::little)
        bits = reversed(bits);
    std::memcpy(bytes, &bits, sizeof bits);
}

/** The number stored at `bytes`. */
template <class T, std::endian host = std::endian::native>
T load(const void* bytes)
{
    static_assert(std::is_trivially_copyable_v<T> &&
                  (sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8));
    UnsignedOf<sizeof(T)> bits;
    std::memcpy(&bits, bytes, sizeof bits);
    if constexpr (host == std::endian::little)
        bits = reversed(bits);
    return std::bit_cast<T>(bits);
}

/** Copies `count` numbers of `elementSize` bytes between the host's order and the stream's, in either direction.
    `elementSize` is 1, 2, 4 or 8; the blocks do not overlap. */
template <std::endian host = std::endian::native>
void copy(void* target, const void* source, std::size_t count, std::size_t elementSize)
{
    const auto convert = [&]<std::size_t size>(std::integral_constant<std::size_t, size>) {
        auto* to = static_cast<unsigned char*>(target);
        const auto* from = static_cast<const unsigned char*>(source);
        for (std::size_t i = 0; i < count; ++i)
            store<host>(to + i * size,
                        std::bit_cast<UnsignedOf<size>>(load<UnsignedOf<size>, std::endian::big>(from + i * size)));
    };
    if (host == std::endian::big || elementSize == 1) {
        if (count != 0)
            std::memcpy(target, source, count * elementSize);
    } else if (elementSize == 2) {
        convert(std::integral_constant<std::size_t, 2>());
    } else if (elementSize == 4) {
        convert(std::integral_constant<std::size_t, 4>());
    } else {
        convert(std::integral_constant<std::size_t, 8>());
    }
}

}  // namespace KvNBigEndian
