#include "platform/dal/Host.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <random>

#if defined(_WIN32)
#include <winsock2.h>
// winsock2.h comes before the headers that build on it
#include <iphlpapi.h>
#include <windows.h>
#else
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pwd.h>
#include <unistd.h>
#include <cerrno>
#endif

namespace KvNDeviceAccess {

#if defined(_WIN32)

namespace {

bool hasBroadcast(const IP_ADAPTER_ADDRESSES& adapter)
{
    return adapter.IfType != IF_TYPE_PPP && adapter.IfType != IF_TYPE_TUNNEL &&
           adapter.IfType != IF_TYPE_SOFTWARE_LOOPBACK;
}

void appendAdapter(const IP_ADAPTER_ADDRESSES& adapter, HostInterfaces& interfaces)
{
    for (const IP_ADAPTER_UNICAST_ADDRESS* unicast = adapter.FirstUnicastAddress; unicast != nullptr;
         unicast = unicast->Next) {
        const auto* socketAddress = reinterpret_cast<const sockaddr_in*>(unicast->Address.lpSockaddr);
        if (socketAddress->sin_family != AF_INET)
            continue;
        const KvUInt32 address = ntohl(socketAddress->sin_addr.s_addr);
        const unsigned prefix = unicast->OnLinkPrefixLength;
        const KvUInt32 mask = prefix == 0 || prefix > 32 ? 0 : 0xFFFFFFFFu << (32 - prefix);
        interfaces.push_back({address, mask, hasBroadcast(adapter) && prefix < 31 ? address | ~mask : 0});
    }
}

void nameOfUser(char* text, DWORD size)
{
    if (!GetUserNameA(text, &size))
        text[0] = 0;
}

void nameOfHost(char* text, DWORD size)
{
    if (!GetComputerNameA(text, &size))
        text[0] = 0;
}

void nameOfProgram(char* text, std::size_t size)
{
    char path[MAX_PATH] = "";
    GetModuleFileNameA(nullptr, path, MAX_PATH - 1);
    const char* name = path;
    for (const char* at = path; *at != 0; ++at) {
        if (*at == '\\' || *at == '/')
            name = at + 1;
    }
    std::snprintf(text, size, "%s", name);
}

}  // namespace

bool listInterfaces(HostInterfaces& interfaces)
{
    constexpr ULONG flags = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
    std::vector<unsigned char, KvNAllocation::Allocator<unsigned char>> block;
    ULONG size = 16384;
    ULONG result = ERROR_BUFFER_OVERFLOW;
    for (int round = 0; round < 4 && result == ERROR_BUFFER_OVERFLOW; ++round) {
        block.resize(size);
        result =
            GetAdaptersAddresses(AF_INET, flags, nullptr, reinterpret_cast<IP_ADAPTER_ADDRESSES*>(block.data()), &size);
    }
    if (result == ERROR_NO_DATA)
        return true;
    if (result != ERROR_SUCCESS)
        return false;
    for (auto* adapter = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(block.data()); adapter != nullptr;
         adapter = adapter->Next) {
        if (adapter->OperStatus == IfOperStatusUp)
            appendAdapter(*adapter, interfaces);
    }
    return true;
}

#else

namespace {

KvUInt32 ipV4Of(const sockaddr* address)
{
    return ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr);
}

void nameOfUser(char* text, std::size_t size)
{
    char block[2048];
    passwd entry;
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, block, sizeof block, &found) == 0 && found != nullptr)
        std::snprintf(text, size, "%s", entry.pw_name);
    else
        std::snprintf(text, size, "%lu", static_cast<unsigned long>(geteuid()));
}

void nameOfHost(char* text, std::size_t size)
{
    if (gethostname(text, size) != 0)
        text[0] = 0;
    text[size - 1] = 0;
}

void nameOfProgram(char* text, std::size_t size)
{
#if defined(__linux__)
    std::snprintf(text, size, "%s", program_invocation_short_name);
#else
    std::snprintf(text, size, "%s", getprogname());
#endif
}

}  // namespace

bool listInterfaces(HostInterfaces& interfaces)
{
    ifaddrs* all = nullptr;
    if (getifaddrs(&all) != 0)
        return false;
    struct Free
    {
        ifaddrs* list;
        ~Free() { freeifaddrs(list); }
    } const freeAtEnd{all};
    for (const ifaddrs* one = all; one != nullptr; one = one->ifa_next) {
        const bool usable = one->ifa_addr != nullptr && one->ifa_addr->sa_family == AF_INET &&
                            one->ifa_netmask != nullptr && (one->ifa_flags & IFF_UP) != 0;
        if (!usable)
            continue;
        const bool broadcasts = (one->ifa_flags & IFF_BROADCAST) != 0 && (one->ifa_flags & IFF_LOOPBACK) == 0 &&
                                one->ifa_broadaddr != nullptr;
        interfaces.push_back(
            {ipV4Of(one->ifa_addr), ipV4Of(one->ifa_netmask), broadcasts ? ipV4Of(one->ifa_broadaddr) : 0});
    }
    return true;
}

#endif

void ownerText(char (&text)[256]) noexcept
{
    char user[64] = "";
    char host[96] = "";
    char program[80] = "";
    nameOfUser(user, sizeof user);
    nameOfHost(host, sizeof host);
    nameOfProgram(program, sizeof program);
    const auto orUnknown = [](const char* name) { return name[0] == 0 ? "?" : name; };
    std::snprintf(text, sizeof text, "%s@%s (%s)", orUnknown(user), orUnknown(host), orUnknown(program));
    for (char* at = text; *at != 0; ++at) {
        if (static_cast<unsigned char>(*at) < 0x20 || *at == 0x7F)
            *at = '?';
    }
}

KvUInt64 randomNonce() noexcept
{
    try {
        std::random_device source;
        return (static_cast<KvUInt64>(source()) << 32) | source();
    } catch (const std::exception&) {
        return static_cast<KvUInt64>(std::chrono::steady_clock::now().time_since_epoch().count());
    }
}

}  // namespace KvNDeviceAccess
