#pragma once

#if defined(_MSC_VER) && (defined(_M_X64) || defined(_M_IX86))
#include <intrin.h>
#endif

/**
 * Hints to the processor's cache; they change nothing else, and any address may be given.
 */
namespace KvNPrefetch {

/** The bytes some way behind `object` will be read soon: objects that were made one after another stand so in memory,
    and a walk along their links sees only the next one. */
inline void readAhead(const void* object)
{
    constexpr int distance = 512;
    constexpr int line = 64;
    const auto* const ahead = static_cast<const char*>(object) + distance;
#if defined(__GNUC__)
    __builtin_prefetch(ahead);
    __builtin_prefetch(ahead + line);
#elif defined(_MSC_VER) && (defined(_M_X64) || defined(_M_IX86))
    _mm_prefetch(ahead, _MM_HINT_T0);
    _mm_prefetch(ahead + line, _MM_HINT_T0);
#else
    static_cast<void>(ahead);
    static_cast<void>(line);
#endif
}

}  // namespace KvNPrefetch
