#pragma once

#include <vector>

#include "platform/KvTypes.h"
#include "platform/dal/Host.h"
#include "platform/errorhandling/KvCErrorList.h"

namespace KvNDeviceAccess {

using Addresses = std::vector<KvUInt32, KvNAllocation::Allocator<KvUInt32>>;

/** The parameters of a filter; all that are set must hold. */
struct FilterSettings
{
    Addresses addresses;        // empty: not set; of several one must hold
    KvUInt32 subnetMask = 0;    // 0: not set
    char systemName[256] = "";  // "": not set
};

/** Whom a search asks, and whose answers it takes. */
struct DiscoveryPlan
{
    Addresses hosts;       // asked one by one
    Addresses broadcasts;  // broadcast addresses asked
    bool overTcp = false;  // the hosts are asked over TCP, too

    /** Networks that an answering host must belong to. */
    struct Network
    {
        KvUInt32 address;
        KvUInt32 mask;
    };
    std::vector<Network, KvNAllocation::Allocator<Network>> networks;
    bool anyNetwork = false;  // no network is asked for

    /** Whether a host with that address may be selected. */
    bool accepts(KvUInt32 address) const noexcept;
};

/** The plan for a filter on a host with those interfaces. Throws std::bad_alloc. */
DiscoveryPlan planDiscovery(const FilterSettings& settings, const HostInterfaces& interfaces);

}  // namespace KvNDeviceAccess
