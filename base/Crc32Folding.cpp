/*
 * CRC-32 by folding, after V. Gopal et al., "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ Instruction"
 * (white paper, Intel, 2009).
 *
 * A checksum is the remainder of the bytes, taken as one long polynomial, divided by the checksum's own. The remainder
 * stays the same when a piece of the long polynomial that stands n bits in front of another one is multiplied by the
 * remainder of x^n and added to that one. So 512 bits are folded over the 512 that follow them, up to the last; these
 * are folded over each other until 128 are left, of which the tables make the remainder.
 *
 * A factor is a remainder of 32 bits in a register of 64: standing there, one bit up because a product of reflected
 * bits comes out one bit too low, it counts x^32 times as much. So the power is 32 less than the distance that it is
 * for.
 */

#include "base/Crc32Ways.h"

#include <cstdint>

#if (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__)
#define KV_CRC32_FOLDS
#include <wmmintrin.h>
#endif

namespace KvNCrc32 {

#if defined(KV_CRC32_FOLDS)

namespace {

constexpr std::size_t lane = 16;
constexpr std::size_t lanes = 4;
constexpr std::size_t step = lane * lanes;

/* The remainder of x^power, reflected, as a factor. */
constexpr std::int64_t factor(unsigned power)
{
    std::uint32_t remainder = 0x80000000;
    for (; power != 0; --power)
        remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? 0xEDB88320 : 0);
    return static_cast<std::int64_t>(remainder) << 1;
}

/* For 128 bits, which are multiplied in halves: the first half has 64 bits further to go. */
struct Factors
{
    std::int64_t first;
    std::int64_t second;
};
constexpr Factors factorsFor(unsigned distance)
{
    return {factor(distance + 32), factor(distance - 32)};
}

__attribute__((target("pclmul"))) __m128i load(const unsigned char* bytes)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

__attribute__((target("pclmul"))) __m128i fold(__m128i bits, __m128i factors, __m128i over)
{
    const __m128i first = _mm_clmulepi64_si128(bits, factors, 0x00);
    const __m128i second = _mm_clmulepi64_si128(bits, factors, 0x11);
    return _mm_xor_si128(_mm_xor_si128(first, second), over);
}

}  // namespace

bool canFold() noexcept
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("pclmul") != 0;
}

__attribute__((target("pclmul"))) KvUInt32 crc32ByFolding(KvUInt32 soFar, const void* bytes, std::size_t count) noexcept
{
    if (count < step)
        return crc32ByTables(soFar, bytes, count);
    const auto* next = static_cast<const unsigned char*>(bytes);
    __m128i bits[lanes];
    for (std::size_t i = 0; i < lanes; ++i)
        bits[i] = load(next + i * lane);
    // what came before counts as if it were added to the first 32 bits
    bits[0] = _mm_xor_si128(bits[0], _mm_cvtsi32_si128(static_cast<int>(~static_cast<std::uint32_t>(soFar))));
    constexpr Factors far = factorsFor(8 * step);
    const __m128i overStep = _mm_set_epi64x(far.second, far.first);
    for (next += step, count -= step; count >= step; next += step, count -= step) {
        for (std::size_t i = 0; i < lanes; ++i)
            bits[i] = fold(bits[i], overStep, load(next + i * lane));
    }
    constexpr Factors near = factorsFor(8 * lane);
    const __m128i overLane = _mm_set_epi64x(near.second, near.first);
    for (std::size_t i = 1; i < lanes; ++i)
        bits[i] = fold(bits[i - 1], overLane, bits[i]);
    unsigned char left[lane];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(left), bits[lanes - 1]);
    // all ones stand for a remainder of none, which is what was before these bits
    const KvUInt32 folded = crc32ByTables(0xFFFFFFFF, left, lane);
    return crc32ByTables(folded, next, count);
}

#else

bool canFold() noexcept
{
    return false;
}

KvUInt32 crc32ByFolding(KvUInt32 soFar, const void* bytes, std::size_t count) noexcept
{
    return crc32ByTables(soFar, bytes, count);
}

#endif

}  // namespace KvNCrc32
