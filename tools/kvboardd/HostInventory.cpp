#include "tools/kvboardd/HostInventory.h"

#include <array>
#include <charconv>

#include "base/KvCVersion.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "platform/errorhandling/KvCErrorList.h"

namespace KvNBoardService {

namespace {

using namespace KvNInventoryIDs;
using KvNMachine::Machine;

constexpr KvUInt32 plain = 0;
constexpr KvUInt32 typeRelevance = 5;
constexpr KvUInt32 identityRelevance = 10;

/** The first two or three numbers of a version text such as "6.1.0-18-amd64"; null when it does not begin with them,
    when one is beyond 255, or when something else follows and `whole` is wanted. */
std::optional<KvCVersion> versionIn(std::string_view text, bool whole)
{
    std::array<unsigned char, 3> numbers{};
    std::size_t count = 0;
    const char* at = text.data();
    const char* const end = text.data() + text.size();
    while (count < numbers.size()) {
        const auto result = std::from_chars(at, end, numbers[count]);
        if (result.ec != std::errc())
            return std::nullopt;
        at = result.ptr;
        ++count;
        if (at == end || *at != '.' || count == numbers.size())
            break;
        ++at;
    }
    if (count < 2 || (whole && at != end))
        return std::nullopt;
    return KvCVersion(numbers[0], numbers[1], numbers[2], 0, 0, 0);
}

/** Puts together a machine's tree. What is not known is left out: values as well as items without any. */
class Builder
{
public:
    Builder(KvCErrorListPool& errors, KvCInventoryItem& root) : m_errors(errors), m_root(root) {}

    void add(const KvCInventoryAddress& path, const std::string& text, KvUInt32 relevance = plain)
    {
        if (!text.empty())
            add(path, KvCString(text.c_str()), "", relevance);
    }
    template <class T>
    void add(const KvCInventoryAddress& path, const T& value, const char* unit, KvUInt32 relevance = plain)
    {
        m_root.createParameter(m_errors, path, value, unit, false, relevance, nullptr, nullptr, nullptr);
    }

    void identity(const Machine& machine, KvUInt32 serialNumber);
    void part(const KvCInventoryAddress& place, const KvNMachine::Part& part);
    void processor(const KvCInventoryAddress& place, const Machine& machine, const KvNMachine::Processor& processor);
    void disk(const KvCInventoryAddress& place, const KvNMachine::Disk& disk);
    void interface(const KvCInventoryAddress& place, const KvNMachine::Interface& interface);
    void kernel(const KvNMachine::Kernel& kernel);

private:
    void cache(const KvCInventoryAddress& place, const KvNMachine::Cache& cache);

    KvCErrorListPool& m_errors;
    KvCInventoryItem& m_root;
};

void Builder::identity(const Machine& machine, KvUInt32 serialNumber)
{
    add(NAME, machine.hostName, identityRelevance);
    add(SYSTEMNAME, machine.hostName, identityRelevance);
    add(BOARD_TYPE, hostBoardType, "", typeRelevance);
    add(SERIAL_NUMBER, serialNumber, "", identityRelevance);
    add(VENDOR, machine.system.vendor);
    add(MODEL, machine.system.model);
}

void Builder::part(const KvCInventoryAddress& place, const KvNMachine::Part& part)
{
    add(place / VENDOR, part.vendor);
    add(place / MODEL, part.model);
    if (const auto version = versionIn(part.version, true))
        add(place / VERSION, *version, "");
    add(place / INFO, part.version);
    add(place / RELEASE_DATE, part.date);
    add(place / SERIAL_NUMBER, part.serialNumber);
}

void Builder::processor(const KvCInventoryAddress& place, const Machine& machine,
                        const KvNMachine::Processor& processor)
{
    add(place / VENDOR, processor.vendor);
    add(place / MODEL, processor.model);
    if (processor.hertz)
        add(place / FREQUENCY, *processor.hertz, "Hz");
    if (processor.cores > 0xFF)
        add(place / NUMBER_OF_CORES, static_cast<KvUInt32>(processor.cores), "");
    else if (processor.cores != 0)
        add(place / NUMBER_OF_CORES, static_cast<unsigned char>(processor.cores), "");
    add(place / ARCHITECTURE, machine.architecture);
    std::array<KvUInt32, 3> counts{};
    const std::array<KvCInventoryAddress, 3> levels = {L1_CACHE, L2_CACHE, L3_CACHE};
    for (const KvNMachine::Cache& one : processor.caches)
        if (one.level >= 1 && one.level <= levels.size())
            cache(place / levels[one.level - 1][++counts[one.level - 1]], one);
}

void Builder::cache(const KvCInventoryAddress& place, const KvNMachine::Cache& cache)
{
    if (cache.bytes > 0xFFFFFFFF)
        add(place / SIZE64, cache.bytes, "Byte");
    else
        add(place / SIZE, static_cast<KvUInt32>(cache.bytes), "Byte");
    add(place / TYPE, cache.type);
    add(place / COUNT, static_cast<KvUInt32>(cache.count), "");
}

void Builder::disk(const KvCInventoryAddress& place, const KvNMachine::Disk& disk)
{
    add(place / NAME, disk.name);
    add(place / VENDOR, disk.vendor);
    add(place / MODEL, disk.model);
    add(place / SERIAL_NUMBER, disk.serialNumber);
    add(place / SIZE64, disk.bytes, "Byte");
    if (disk.isRotating)
        add(place / TYPE, *disk.isRotating ? "rotating" : "solid state");
}

void Builder::interface(const KvCInventoryAddress& place, const KvNMachine::Interface& interface)
{
    add(place / NAME, interface.name);
    add(place / MAC_ADDRESS, interface.hardwareAddress);
    KvUInt32 number = 0;
    for (const KvNMachine::InterfaceAddress& address : interface.addresses) {
        const KvCInventoryAddress at = ++number == 1 ? place : place / ADDRESS[number];
        add(at / IPADDRESS, address.address);
        add(at / SUBNET_MASK, address.mask);
    }
    add(place / GATEWAY_ADDRESS, interface.gateway);
    if (interface.bitsPerSecond)
        add(place / MAX_BAUDRATE, *interface.bitsPerSecond, "bit/s");
    add(place / STATUS, interface.state);
}

void Builder::kernel(const KvNMachine::Kernel& kernel)
{
    add(FIRMWARE / NAME, kernel.name);
    if (const auto version = versionIn(kernel.release, false))
        add(FIRMWARE / VERSION, *version, "");
    add(FIRMWARE / INFO, kernel.release.empty() ? kernel.build : kernel.release + " " + kernel.build);
}

void addEverything(Builder& builder, const Machine& machine, KvUInt32 serialNumber)
{
    builder.identity(machine, serialNumber);
    KvUInt32 number = 0;
    for (const KvNMachine::Processor& processor : machine.processors)
        builder.processor(CPU[++number], machine, processor);
    if (machine.memoryBytes != 0)
        builder.add(RAM / SIZE64, machine.memoryBytes, "Byte");
    builder.part(MAINBOARD, machine.board);
    builder.part(BIOS, machine.bios);
    number = 0;
    for (const KvNMachine::Disk& disk : machine.disks)
        builder.disk(FLASHDRIVE[++number], disk);
    number = 0;
    for (const KvNMachine::Interface& interface : machine.interfaces)
        builder.interface(NETWORK / ETHERNET[++number], interface);
    builder.kernel(machine.kernel);
}

}  // namespace

std::optional<KvUInt32> hostSerialNumber(const Machine& machine)
{
    if (machine.id.empty())
        return std::nullopt;
    // FNV-1a: any change of the identity is another number, and the identity itself is not given away.
    KvUInt32 hash = 2166136261u;
    for (const char c : machine.id)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    return hash == 0 ? 1 : hash;
}

bool describeHost(const Machine& machine, std::optional<KvUInt32> serialNumber, BoardDescription& board,
                  std::string& problem)
{
    if (!serialNumber)
        serialNumber = hostSerialNumber(machine);
    if (!serialNumber) {
        problem =
            "this machine has no /etc/machine-id and no hardware address: its serial number must be given with "
            "--serial";
        return false;
    }
    KvCErrorListPool errors;
    board.serialNumber = *serialNumber;
    board.boardType = hostBoardType;
    board.isMachine = true;
    board.boardName = board.systemName = machine.hostName;
    const KvCInventoryAddress id = HCN[*serialNumber];
    board.tree.reset(new (errors) KvCInventoryItem(errors, id, "HCN"));
    if (board.tree) {
        Builder builder(errors, *board.tree);
        addEverything(builder, machine, *serialNumber);
    }
    if (errors.getErrorCount() == 0 && board.tree)
        return true;
    problem = "the inventory of this machine cannot be made: ";
    problem += errors.getErrorCount() == 0 ? "out of memory" : errors.getErrorText(0);
    return false;
}

}  // namespace KvNBoardService
