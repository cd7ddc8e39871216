#pragma once

#include <cstddef>

#include "platform/KvExport.h"
#include "platform/KvTypes.h"

/**
 * The checksum of files and firmware images: CRC-32 with the polynomial 0x04C11DB7, bits reflected, initial and final
 * value 0xFFFFFFFF; of "123456789" it is 0xCBF43926.
 */
namespace KvNCrc32 {

/** The checksum of some bytes followed by the `count` bytes at `bytes` (null only when there are none), where `soFar`
   is the checksum of the former; 0 is that of no bytes. */
KV_EXPORT KvUInt32 crc32(KvUInt32 soFar, const void* bytes, std::size_t count) noexcept;

}  // namespace KvNCrc32
