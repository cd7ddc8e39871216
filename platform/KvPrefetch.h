#pragma once

#if defined(_MSC_VER) && (defined(_M_X64) || defined(_M_IX86))
#include <intrin.h>
#endif

/**
 * Hints to the processor's cache; they change nothing else, and any address may be given. Objects that were made one
 * after another mostly stand so in memory: a walk along their links sees only the next one, and these functions see
 * further.
 */
namespace KvNPrefetch {

inline constexpr int cacheLine = 64;
/** Far enough for memory to answer meanwhile. */
inline constexpr int distance = 8 * cacheLine;

inline void touch(const char* bytes)
{
#if defined(__GNUC__)
    __builtin_prefetch(bytes);
#elif defined(_MSC_VER) && (defined(_M_X64) || defined(_M_IX86))
    _mm_prefetch(bytes, _MM_HINT_T0);
#else
    static_cast<void>(bytes);
#endif
}

/** What was made some time after `object` will be needed soon; from one object of the walk to the next lie some `step`
    bytes. */
template <int step>
void readAhead(const void* object)
{
    for (int place = 0; place < step; place += cacheLine)
        touch(static_cast<const char*>(object) + distance + place);
}

/** The same for what was made some time before `object`. */
template <int step>
void readBack(const void* object)
{
    for (int place = 0; place < step; place += cacheLine)
        touch(static_cast<const char*>(object) - distance - place);
}

}  // namespace KvNPrefetch
