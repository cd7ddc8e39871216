#pragma once

#include <vector>

#include "platform/KvTypes.h"

namespace KvNService {

/** An IPv4 address of one of the machine's interfaces that can be broadcast on; host-order numbers. */
struct BroadcastInterface
{
    KvUInt32 address = 0;
    KvUInt32 mask = 0;
    KvUInt32 broadcast = 0;
};

/** The machine's interfaces that are up and have a broadcast address; empty when they cannot be had. */
std::vector<BroadcastInterface> broadcastInterfaces();

}  // namespace KvNService
