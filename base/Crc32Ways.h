#pragma once

#include <cstddef>

#include "platform/KvTypes.h"

/** The ways in which crc32() is computed; it takes the fastest that the processor has. Each has the same arguments and
    result. */
namespace KvNCrc32 {

/** With tables, eight bytes a step, on any processor. */
KvUInt32 crc32ByTables(KvUInt32 soFar, const void* bytes, std::size_t count) noexcept;

/** Whether this processor multiplies without carry. */
bool canFold() noexcept;
/** With multiplications without carry, 64 bytes a step; only when canFold(). */
KvUInt32 crc32ByFolding(KvUInt32 soFar, const void* bytes, std::size_t count) noexcept;

}  // namespace KvNCrc32
