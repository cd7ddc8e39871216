#pragma once

#include <climits>
#include <cstdint>

/*
 * The only widths of the library. A quantity that is 32 or 64 bits wide has the same width on every host; where `long`
 * has 32 bits the documented interface speaks of `long` and `unsigned long`, elsewhere of the fixed-width types.
 */
#if ULONG_MAX == 0xFFFFFFFFUL
using KvInt32 = long;
using KvUInt32 = unsigned long;
using KvInt64 = long long;
using KvUInt64 = unsigned long long;
#else
using KvInt32 = std::int32_t;
using KvUInt32 = std::uint32_t;
using KvInt64 = std::int64_t;
using KvUInt64 = std::uint64_t;
#endif
