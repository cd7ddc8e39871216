#pragma once

#include "platform/errorhandling/KvCErrorManager.h"

/** The four tables of the platform itself, known from the start. */
namespace KvNPlatformMessages {

constexpr KvUInt32 entriesDropped = 0x402;
constexpr unsigned int tableCount = 4;
extern const KvResText tables[tableCount];

}  // namespace KvNPlatformMessages
