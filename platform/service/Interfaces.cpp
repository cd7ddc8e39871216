#include "platform/service/Interfaces.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <memory>

namespace KvNService {

namespace {

/** The IPv4 address in `address`; 0 when there is none. */
KvUInt32 ipv4(const sockaddr* address)
{
    if (address == nullptr || address->sa_family != AF_INET)
        return 0;
    sockaddr_in result;
    std::memcpy(&result, address, sizeof result);
    return ntohl(result.sin_addr.s_addr);
}

}  // namespace

std::vector<BroadcastInterface> broadcastInterfaces()
{
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0)
        return {};
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, freeifaddrs);
    std::vector<BroadcastInterface> result;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        if ((entry->ifa_flags & IFF_UP) == 0 || (entry->ifa_flags & IFF_BROADCAST) == 0)
            continue;
        const BroadcastInterface interface {
            ipv4(entry->ifa_addr), ipv4(entry->ifa_netmask), ipv4(entry->ifa_broadaddr)
        };
        if (interface.address != 0 && interface.broadcast != 0)
            result.push_back(interface);
    }
    return result;
}

}  // namespace KvNService
