#pragma once

#include <cstddef>
#include <vector>

#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

namespace KvNDeviceAccess {

/** One IPv4 address of this host, on an interface that is up. */
struct HostInterface
{
    KvUInt32 address;
    KvUInt32 mask;
    KvUInt32 broadcast;  // 0: the interface has none
};

using HostInterfaces = std::vector<HostInterface, KvNAllocation::Allocator<HostInterface>>;

/** Appends what the operating system knows; false when it does not say. Throws std::bad_alloc. */
bool listInterfaces(HostInterfaces& interfaces);

/** The text by which a board shows a lock's holder to others: "user@host (program)", at most 255 characters, without
    control characters. What is not known is "?". */
void ownerText(char (&text)[256]) noexcept;

/** A number that no other request of this host has. */
KvUInt64 randomNonce() noexcept;

}  // namespace KvNDeviceAccess
