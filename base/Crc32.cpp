#include "base/Crc32.h"

#include <array>
#include <cstdint>

#include "base/Crc32Ways.h"

namespace KvNCrc32 {

namespace {

constexpr std::size_t slice = 8;
using Table = std::array<std::uint32_t, 256>;

/* Of tables[n], entry b is what the byte b contributes to the remainder when n more bytes follow it. */
constexpr std::array<Table, slice> makeTables()
{
    constexpr std::uint32_t reflectedPolynomial = 0xEDB88320;
    std::array<Table, slice> tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t remainder = byte;
        for (int bit = 0; bit < 8; ++bit)
            remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? reflectedPolynomial : 0);
        tables[0][byte] = remainder;
    }
    for (std::size_t n = 1; n < slice; ++n) {
        for (std::size_t byte = 0; byte < 256; ++byte) {
            const std::uint32_t before = tables[n - 1][byte];
            tables[n][byte] = (before >> 8) ^ tables[0][before & 0xFF];
        }
    }
    return tables;
}

constexpr std::array<Table, slice> tables = makeTables();

/* Least significant byte first, whatever the host's order: that of the reflected bits. */
std::uint32_t loadReflected(const unsigned char* bytes)
{
    return bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8 | static_cast<std::uint32_t>(bytes[2]) << 16 |
           static_cast<std::uint32_t>(bytes[3]) << 24;
}

}  // namespace

KvUInt32 crc32ByTables(KvUInt32 soFar, const void* bytes, std::size_t count) noexcept
{
    const auto* next = static_cast<const unsigned char*>(bytes);
    std::uint32_t remainder = ~static_cast<std::uint32_t>(soFar);
    // eight bytes a step: their contributions do not depend on each other
    for (; count >= slice; count -= slice, next += slice) {
        const std::uint32_t low = remainder ^ loadReflected(next);
        const std::uint32_t high = loadReflected(next + 4);
        remainder = tables[7][low & 0xFF] ^ tables[6][low >> 8 & 0xFF] ^ tables[5][low >> 16 & 0xFF] ^
                    tables[4][low >> 24] ^ tables[3][high & 0xFF] ^ tables[2][high >> 8 & 0xFF] ^
                    tables[1][high >> 16 & 0xFF] ^ tables[0][high >> 24];
    }
    for (; count != 0; --count, ++next)
        remainder = (remainder >> 8) ^ tables[0][(remainder ^ *next) & 0xFF];
    return ~remainder;
}

KvUInt32 crc32(KvUInt32 soFar, const void* bytes, std::size_t count) noexcept
{
    static const bool folds = canFold();
    return folds ? crc32ByFolding(soFar, bytes, count) : crc32ByTables(soFar, bytes, count);
}

}  // namespace KvNCrc32
