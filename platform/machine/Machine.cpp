#include "platform/machine/Machine.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <utility>

#include "platform/machine/Processors.h"
#include "platform/machine/SystemFiles.h"

namespace KvNMachine {

namespace {

constexpr std::size_t identityDigits = 32;
constexpr std::size_t largestRouteTable = 1 << 20;
constexpr KvUInt64 sectorBytes = 512;
constexpr KvUInt64 ethernet = 1;

/** An address of either family as text; empty for another one. */
std::string textOf(const sockaddr* address)
{
    char text[INET6_ADDRSTRLEN] = {};
    if (address == nullptr)
        return "";
    if (address->sa_family == AF_INET) {
        sockaddr_in found;
        std::memcpy(&found, address, sizeof found);
        ::inet_ntop(AF_INET, &found.sin_addr, text, sizeof text);
    } else if (address->sa_family == AF_INET6) {
        sockaddr_in6 found;
        std::memcpy(&found, address, sizeof found);
        ::inet_ntop(AF_INET6, &found.sin6_addr, text, sizeof text);
    }
    return text;
}

std::string dmi(const SystemFiles& files, const char* name)
{
    return files.text(std::string("sys/class/dmi/id/") + name);
}

/** What the firmware's tables say; where there are none, what the device tree does. */
void readParts(const SystemFiles& files, Machine& machine)
{
    machine.system = {dmi(files, "sys_vendor"), dmi(files, "product_name"), dmi(files, "product_version"),
                      dmi(files, "product_serial"), ""};
    machine.board = {dmi(files, "board_vendor"), dmi(files, "board_name"), dmi(files, "board_version"),
                     dmi(files, "board_serial"), ""};
    machine.bios = {dmi(files, "bios_vendor"), "", dmi(files, "bios_version"), "", dmi(files, "bios_date")};
    if (!files.exists("sys/class/dmi/id")) {
        machine.system.model = files.text("proc/device-tree/model");
        machine.system.serialNumber = files.text("proc/device-tree/serial-number");
    }
}

KvUInt64 readMemory(const SystemFiles& files)
{
    const std::string all = files.content("proc/meminfo", 65536);
    constexpr std::string_view name = "MemTotal:";
    const std::size_t found = all.find(name);
    if (found == std::string::npos)
        return 0;
    const std::string value = tidied(all.substr(found + name.size(), all.find('\n', found) - found - name.size()));
    const auto kilobytes = parseNumber(std::string_view(value).substr(0, value.find(' ')));
    return kilobytes ? *kilobytes * 1024 : 0;
}

/** The serial number that a disk gives in its inquiry page 0x80, behind a header of four bytes. */
std::string inquiredSerial(const SystemFiles& files, const std::string& folder)
{
    const std::string page = files.content(folder + "device/vpd_pg80", 4096);
    return page.size() > 4 ? tidied(std::string_view(page).substr(4)) : "";
}

template <class... Texts>
std::string firstOf(Texts... texts)
{
    std::string result;
    ((result = result.empty() ? texts : result), ...);
    return result;
}

std::vector<Disk> readDisks(const SystemFiles& files)
{
    std::vector<Disk> disks;
    for (const std::string& name : files.names("sys/block")) {
        const std::string folder = "sys/block/" + name + "/";
        const KvUInt64 sectors = files.number(folder + "size").value_or(0);
        // Without a device behind it, it is a part of another one, or of the memory; the others are no disks.
        const bool isDrive = files.exists(folder + "device") && name.rfind("sr", 0) != 0 && name.rfind("fd", 0) != 0;
        if (!isDrive || sectors == 0)
            continue;
        Disk disk;
        disk.name = tidied(name);
        disk.vendor = files.text(folder + "device/vendor");
        // The number of a bus's vendor is no name.
        if (disk.vendor.rfind("0x", 0) == 0)
            disk.vendor.clear();
        disk.model = firstOf(files.text(folder + "device/model"), files.text(folder + "device/name"));
        disk.serialNumber =
            firstOf(files.text(folder + "serial"), files.text(folder + "device/serial"), inquiredSerial(files, folder));
        disk.bytes = sectors * sectorBytes;
        if (const auto rotating = files.number(folder + "queue/rotational"))
            disk.isRotating = *rotating != 0;
        disks.push_back(std::move(disk));
    }
    return disks;
}

/** The IPv4 default route of each interface. */
std::vector<std::pair<std::string, std::string>> readGateways(const SystemFiles& files)
{
    std::vector<std::pair<std::string, std::string>> result;
    const std::string table = files.content("proc/net/route", largestRouteTable);
    for (std::size_t begin = 0; begin < table.size();) {
        const std::size_t end = std::min(table.find('\n', begin), table.size());
        std::vector<std::string> fields;
        for (std::size_t at = begin; at < end && fields.size() < 3;) {
            const std::size_t next = std::min(table.find('\t', at), end);
            fields.push_back(tidied(std::string_view(table).substr(at, next - at)));
            at = next + 1;
        }
        begin = end + 1;
        if (fields.size() < 3 || fields[1] != "00000000")
            continue;
        // The table shows the address's four bytes as a number of this machine.
        KvUInt32 bytes = 0;
        const char* last = fields[2].data() + fields[2].size();
        if (std::from_chars(fields[2].data(), last, bytes, 16).ptr != last || bytes == 0)
            continue;
        char text[INET_ADDRSTRLEN] = {};
        ::inet_ntop(AF_INET, &bytes, text, sizeof text);
        result.emplace_back(fields[0], text);
    }
    return result;
}

std::vector<Interface> readInterfaces(const SystemFiles& files, const std::vector<InterfaceAddress>& addresses)
{
    const auto gateways = readGateways(files);
    std::vector<std::pair<KvUInt64, Interface>> found;
    for (const std::string& name : files.names("sys/class/net")) {
        const std::string folder = "sys/class/net/" + name + "/";
        if (files.number(folder + "type") != ethernet)
            continue;
        Interface interface;
        for (const bool isIPv4 : {true, false})
            std::copy_if(addresses.begin(), addresses.end(), std::back_inserter(interface.addresses),
                         [&](const InterfaceAddress& one) { return one.interface == name && one.isIPv4 == isIPv4; });
        // The system makes interfaces without hardware for many ends of its own; those that are used have an address.
        if (!files.exists(folder + "device") && interface.addresses.empty())
            continue;
        interface.name = tidied(name);
        interface.hardwareAddress = files.text(folder + "address");
        interface.state = files.text(folder + "operstate");
        if (const auto megabits = files.number(folder + "speed"); megabits && *megabits != 0 && *megabits < 0xFFFFFFFF)
            interface.bitsPerSecond = *megabits * 1000000;
        for (const auto& [device, gateway] : gateways)
            if (device == name && interface.gateway.empty())
                interface.gateway = gateway;
        found.emplace_back(files.number(folder + "ifindex").value_or(~KvUInt64(0)), std::move(interface));
    }
    std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<Interface> result;
    for (auto& [index, interface] : found)
        result.push_back(std::move(interface));
    return result;
}

/** The machine's lasting identity: that which the system was given when it was installed, else the first hardware
    address. */
std::string readIdentity(const SystemFiles& files, const std::vector<Interface>& interfaces)
{
    for (const char* path : {"etc/machine-id", "var/lib/dbus/machine-id"}) {
        std::string id = files.text(path);
        if (id.size() == identityDigits && id.find_first_not_of("0123456789abcdef") == std::string::npos &&
            id.find_first_not_of('0') != std::string::npos)
            return id;
    }
    for (const Interface& interface : interfaces)
        if (interface.hardwareAddress.find_first_not_of("0:") != std::string::npos)
            return interface.hardwareAddress;
    return "";
}

}  // namespace

std::vector<InterfaceAddress> interfaceAddresses()
{
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0)
        return {};
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, ::freeifaddrs);
    std::vector<InterfaceAddress> result;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        const std::string address = textOf(entry->ifa_addr);
        // A further address may come with a label behind the interface's name.
        const std::string_view name = entry->ifa_name;
        if (!address.empty())
            result.push_back({std::string(name.substr(0, name.find(':'))), address, textOf(entry->ifa_netmask),
                              entry->ifa_addr->sa_family == AF_INET});
    }
    return result;
}

Machine readMachine(const std::string& root, const std::vector<InterfaceAddress>& addresses)
{
    const SystemFiles files(root);
    Machine machine;
    machine.hostName = files.text("proc/sys/kernel/hostname");
    machine.architecture = files.text("proc/sys/kernel/arch");
    machine.kernel = {files.text("proc/sys/kernel/ostype"), files.text("proc/sys/kernel/osrelease"),
                      files.text("proc/sys/kernel/version")};
    readParts(files, machine);
    machine.memoryBytes = readMemory(files);
    machine.processors = readProcessors(root, files);
    machine.disks = readDisks(files);
    machine.interfaces = readInterfaces(files, addresses);
    machine.id = readIdentity(files, machine.interfaces);
    return machine;
}

}  // namespace KvNMachine
