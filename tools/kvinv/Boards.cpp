#include "tools/kvinv/Boards.h"

#include <algorithm>
#include <cstring>

#include "inventory/ids/KvNInventoryIDs.h"
#include "platform/dal/KvDALAp.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"
#include "platform/host/KvNHost.h"
#include "tools/kvinv/Interruption.h"
#include "tools/kvinv/Numbers.h"

namespace {

constexpr std::size_t mostAddresses = 200;
constexpr const char* accessVariable = "KVINV_ACCESS";
constexpr const char* portVariable = "KVDAL_PORTMAP_PORT";

bool isSeparator(char c)
{
    return c == ',' || c == ' ' || c == '\t' || c == '\n';
}

bool addressesOf(const std::string& list, const std::string& option, Selection& selection, Console& console)
{
    std::size_t begin = 0;
    while (begin < list.size()) {
        std::size_t end = begin;
        while (end < list.size() && !isSeparator(list[end]))
            ++end;
        if (end > begin) {
            const std::string word = list.substr(begin, end - begin);
            const KvUInt32 address = KvNRtosAbstraction::stringToIpV4(word.c_str());
            if (address == 0) {
                console.problem(option + " takes addresses such as 10.0.0.2, not " + word);
                return false;
            }
            if (std::find(selection.addresses.begin(), selection.addresses.end(), address) == selection.addresses.end())
                selection.addresses.push_back(address);
        }
        begin = end + 1;
    }
    if (selection.addresses.empty() || selection.addresses.size() > mostAddresses) {
        console.problem(option + " takes 1 to 200 addresses, not " + std::to_string(selection.addresses.size()));
        return false;
    }
    return true;
}

bool maskOf(const std::string& text, const std::string& option, Selection& selection, Console& console)
{
    selection.mask = KvNRtosAbstraction::stringToIpV4(text.c_str());
    const KvUInt32 zeros = ~selection.mask;
    if (selection.mask != 0 && (zeros & (zeros + 1)) == 0)
        return true;
    console.problem(option + " takes a mask such as 255.255.255.0, not " + text);
    return false;
}

bool systemOf(const std::string& name, const std::string& option, Selection& selection, Console& console)
{
    selection.system = name;
    if (!name.empty() && name.size() <= 255)
        return true;
    console.problem(option + " takes a name of 1 to 255 bytes");
    return false;
}

/** Whether the environment names a port at which boards can be asked, or none; told when not. */
bool isPortSound(Console& console)
{
    const char* port = KvNHost::environment(portVariable);
    KvUInt64 number = 0;
    if (port == nullptr || *port == '\0' ||
        (std::strpbrk(port, "xX") == nullptr && parseNumber(port, 65535, number) && number != 0))
        return true;
    console.problem(std::string(portVariable) + " must be a port from 1 to 65535, not " + port);
    return false;
}

/** Owns a filter of the device access library. */
class Filter
{
public:
    explicit Filter(KvCErrorListPool& errors) : m_errors(errors)
    {
        KvDAL_createFilter(errors, &m_filter, KvNDeviceAccess::DeviceFilter);
    }
    ~Filter()
    {
        KvCErrorListPool ignored;
        if (m_filter != nullptr)
            KvDAL_deleteFilter(ignored, m_filter);
    }
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;

    bool set(KvUInt32 id, const void* value, std::size_t size)
    {
        return m_filter != nullptr &&
               KvDAL_setFilterParameter(m_errors, m_filter, id, static_cast<KvUInt32>(size), value) == 0;
    }
    bool apply(std::vector<KvDALSDeviceInfo>& infos)
    {
        if (m_filter == nullptr || KvDAL_applyFilter(m_errors, m_filter) != 0)
            return false;
        KvUInt32 count = 0;
        KvCErrorListPool ignored;
        if (KvDAL_getDeviceList(ignored, m_filter, nullptr, &count) == 0 || count == 0)
            return true;
        infos.resize(count);
        return KvDAL_getDeviceList(m_errors, m_filter, infos.data(), &count) == 0;
    }

private:
    KvCErrorListPool& m_errors;
    void* m_filter = nullptr;
};

}  // namespace

bool selectionOf(const Options& options, Selection& selection, Console& console)
{
    if (!isPortSound(console))
        return false;
    if (options.ip && !addressesOf(*options.ip, "--ip", selection, console))
        return false;
    if (options.subnet && !maskOf(*options.subnet, "--subnet", selection, console))
        return false;
    return !options.system || systemOf(*options.system, "--system", selection, console);
}

bool selectionOf(const std::string& text, Selection& selection, bool& isOne, Console& console)
{
    isOne = false;
    for (const char* beginning : {"ip:", "subnet:", "system:"})
        isOne = isOne || text.compare(0, std::strlen(beginning), beginning) == 0;
    if (isOne && !isPortSound(console))
        return false;
    if (text.compare(0, 3, "ip:") == 0)
        return addressesOf(text.substr(3), "ip:", selection, console);
    if (text.compare(0, 7, "subnet:") == 0)
        return maskOf(text.substr(7), "subnet:", selection, console);
    if (text.compare(0, 7, "system:") == 0)
        return systemOf(text.substr(7), "system:", selection, console);
    return true;
}

Boards::Boards(const Selection& selection, Console& console) : m_console(console)
{
    Interruption::expectOrderlyEnd();
    search(selection);
    if (!m_good)
        return;
    nameMissing(selection);
    if (m_infos.empty()) {
        if (m_complete)
            console.problem("no board was found");
        return;
    }
    KvCErrorListPool errors;
    m_good = KvCInventoryManager::getInstance().createRootHandleByDeviceInfoList(
                 errors, m_infos.data(), static_cast<int>(m_infos.size()), m_handle) == 0;
    console.report(errors);
}

Boards::~Boards()
{
    KvCErrorListPool errors;
    if (m_handle != nullptr)
        KvCInventoryManager::getInstance().deleteRootHandle(errors, m_handle);
}

void Boards::search(const Selection& selection)
{
    KvCErrorListPool errors;
    Filter filter(errors);
    bool good = true;
    for (const KvUInt32 address : selection.addresses)
        good = good && filter.set(KvNDeviceAccess::FilterIpAddress, &address, sizeof address);
    if (selection.mask != 0)
        good = good && filter.set(KvNDeviceAccess::FilterSubnetMask, &selection.mask, sizeof selection.mask);
    if (!selection.system.empty())
        good = good &&
               filter.set(KvNDeviceAccess::FilterSystemName, selection.system.c_str(), selection.system.size() + 1);
    m_good = good && filter.apply(m_infos);
    m_console.report(errors);
}

void Boards::nameMissing(const Selection& selection)
{
    for (const KvUInt32 address : selection.addresses) {
        const bool answered = std::any_of(m_infos.begin(), m_infos.end(),
                                          [&](const KvDALSDeviceInfo& info) { return info.ipAddress == address; });
        if (answered)
            continue;
        m_complete = false;
        m_console.problem("no board answers at " + dotted(address));
    }
}

std::string dotted(KvUInt32 address)
{
    return std::to_string(address >> 24 & 255) + "." + std::to_string(address >> 16 & 255) + "." +
           std::to_string(address >> 8 & 255) + "." + std::to_string(address & 255);
}

bool boardAddress(const std::string& text, KvCInventoryAddress& address, Console& console)
{
    address.readFromString(KvCString(text.c_str()));
    if (address.getLength() > 1 && address.getFirstElement() == KvNInventoryIDs::ROOT)
        address = address.getSubAddress();
    if (address.isEmpty()) {
        console.problem((text.empty() ? "\"\"" : text) + " is no address (kvinv ids lists the names)");
        return false;
    }
    const KvUInt32 category = address.getCategoryAt(0);
    if (category == KvNInventoryIDs::HCN.getCategory() || category == KvNInventoryIDs::CN.getCategory())
        return true;
    console.problem(text + " does not begin with a board, as HCN[4711] does");
    return false;
}

bool BoardLock::adopt(const Boards& boards, KvUInt32 serial, KvUInt32 accessId)
{
    KvCErrorListPool errors;
    void* device = boards.handle()->getCnHandleBySerialNumber(errors, serial);
    m_adopted = device != nullptr && KvDAL_adoptAccessRestriction(errors, device, accessId, &m_lock) == 0;
    m_console.report(errors);
    return m_adopted;
}

bool BoardLock::take(const Boards& boards, const KvCInventoryAddress& address)
{
    Interruption::expectGivingBack();
    const char* given = KvNHost::environment(accessVariable);
    if (given != nullptr && *given != '\0') {
        const std::string text = given;
        const std::size_t colon = std::min(text.find(':'), text.size());
        KvUInt64 serial = 0;
        KvUInt64 accessId = 0;
        if (!parseNumber(text.substr(0, colon), 0xFFFFFFFF, serial) || colon == text.size() ||
            !parseNumber(text.substr(colon + 1), 0xFFFFFFFF, accessId) || accessId == 0) {
            m_console.problem(std::string(accessVariable) + " must be SERIAL:ID, not " + text);
            return false;
        }
        if (serial == address.getIndexAt(0))
            return adopt(boards, static_cast<KvUInt32>(serial), static_cast<KvUInt32>(accessId));
    }
    KvCErrorListPool errors;
    const long result =
        KvCInventoryManager::getInstance().lock(errors, boards.handle(), address, KvNDeviceAccess::Modify, m_lock);
    m_console.report(errors);
    return result == 0;
}

KvUInt32 BoardLock::accessId()
{
    KvCErrorListPool errors;
    KvUInt32 accessId = 0;
    KvUInt32 size = sizeof accessId;
    if (KvDAL_getParam(errors, m_lock, KvNDeviceAccess::AccessId, 0, &size, &accessId) != 0)
        accessId = 0;
    m_console.report(errors);
    return accessId;
}

bool BoardLock::release()
{
    if (m_lock == nullptr)
        return true;
    Interruption::giveBack();
    KvCErrorListPool errors;
    long result = 0;
    if (m_adopted)
        result = KvDAL_deleteAccessRestrictionHandle(errors, m_lock);
    else
        result = KvCInventoryManager::getInstance().unlock(errors, m_lock);
    m_lock = nullptr;
    m_console.report(errors);
    return result == 0;
}
