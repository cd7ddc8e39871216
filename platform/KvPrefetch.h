#pragma once

#include <cstddef>
#include <cstdint>

#if defined(_MSC_VER) && (defined(_M_X64) || defined(_M_IX86))
#include <intrin.h>
#endif

/**
 * Hints to the processor's cache; they change nothing else, and any address may be given. Objects that were made one
 * after another mostly stand so in memory: a walk along their links sees only the next one, and these functions see
 * further.
 */
namespace KvNPrefetch {

inline constexpr std::size_t cacheLine = 64;
/** Far enough for memory to answer meanwhile, where a walk takes a few nanoseconds for an object. */
inline constexpr std::size_t distance = 32 * cacheLine;

/** An address, as no pointer may lead so far away from its object. */
inline void touch(std::uintptr_t address)
{
#if defined(__GNUC__)
    __builtin_prefetch(reinterpret_cast<const void*>(address));
#elif defined(_MSC_VER) && (defined(_M_X64) || defined(_M_IX86))
    _mm_prefetch(reinterpret_cast<const char*>(address), _MM_HINT_T0);
#else
    static_cast<void>(address);
#endif
}

/** What was made some time after `object` will be needed soon; from one object of the walk to the next lie some `step`
    bytes. */
template <std::size_t step>
void readAhead(const void* object)
{
    for (std::size_t place = 0; place < step; place += cacheLine)
        touch(reinterpret_cast<std::uintptr_t>(object) + distance + place);
}

/** The same for what was made some time before `object`. */
template <std::size_t step>
void readBack(const void* object)
{
    for (std::size_t place = 0; place < step; place += cacheLine)
        touch(reinterpret_cast<std::uintptr_t>(object) - distance - place);
}

}  // namespace KvNPrefetch
