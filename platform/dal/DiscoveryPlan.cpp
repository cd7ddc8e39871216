#include "platform/dal/DiscoveryPlan.h"

#include <algorithm>

namespace KvNDeviceAccess {

namespace {

constexpr KvUInt32 mostHostsAskedSingly = 1024;
/* Of the loopback network, 127.0.0.0/24 counts. */
constexpr KvUInt32 loopbackAddress = 0x7F000001;
constexpr KvUInt32 loopbackMask = 0xFFFFFF00;

bool isLoopback(KvUInt32 address)
{
    return address >> 24 == 127;
}

/* The hosts of a network but its first and last address, which stand for the network itself and for all its hosts; a
   network of two or of one has no such addresses. */
void appendHosts(KvUInt32 network, KvUInt32 mask, Addresses& hosts)
{
    const KvUInt32 size = ~mask;  // number of addresses - 1
    const KvUInt32 first = size < 2 ? 0 : 1;
    const KvUInt32 last = size < 2 ? size : size - 1;
    if (last - first >= mostHostsAskedSingly)
        return;
    for (KvUInt32 host = first; host <= last; ++host)
        hosts.push_back(network + host);
}

void sortUnique(Addresses& addresses)
{
    std::sort(addresses.begin(), addresses.end());
    addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
}

}  // namespace

bool DiscoveryPlan::accepts(KvUInt32 address) const noexcept
{
    return anyNetwork || std::any_of(networks.begin(), networks.end(), [address](const Network& network) {
               return (address & network.mask) == network.address;
           });
}

DiscoveryPlan planDiscovery(const FilterSettings& settings, const HostInterfaces& interfaces)
{
    DiscoveryPlan plan;
    const bool byAddress = !settings.addresses.empty();
    plan.anyNetwork = byAddress && settings.subnetMask == 0;
    for (const HostInterface& own : interfaces) {
        const bool narrowed = !byAddress && isLoopback(own.address);
        const KvUInt32 mask =
            (settings.subnetMask != 0 ? settings.subnetMask : own.mask) | (narrowed ? loopbackMask : 0);
        const KvUInt32 network = (narrowed ? loopbackAddress : own.address) & mask;
        plan.networks.push_back({network, mask});
        if (byAddress)
            continue;
        if (own.broadcast != 0 && !narrowed)
            plan.broadcasts.push_back(own.broadcast);
        else
            appendHosts(network, mask, plan.hosts);
    }
    if (byAddress) {
        plan.overTcp = true;
        plan.hosts.assign(settings.addresses.begin(), settings.addresses.end());
    }
    sortUnique(plan.hosts);
    sortUnique(plan.broadcasts);
    return plan;
}

}  // namespace KvNDeviceAccess
