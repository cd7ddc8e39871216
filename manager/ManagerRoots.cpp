#include <cstring>

#include "base/Report.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "manager/KvCInventoryManager.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"

/* Root handles: making them from a selection, and choosing a board in them. */

namespace {

constexpr KvUInt32 MaximalAddresses = 200;

/** What an address in a list is made of; everything else separates. */
constexpr const char* AddressCharacters = ".0123456789ABCDEFabcdefXx";

/** Collects the addresses in a list, as many as there is room for. */
KvUInt32 readAddresses(const char* list, KvUInt32 (&addresses)[MaximalAddresses])
{
    KvUInt32 count = 0;
    while (*list != '\0' && count < MaximalAddresses) {
        list += std::strcspn(list, AddressCharacters);
        const std::size_t length = std::strspn(list, AddressCharacters);
        char token[64];  // a longer run of these characters is no address
        if (length != 0 && length < sizeof token) {
            std::memcpy(token, list, length);
            token[length] = '\0';
            addresses[count] = KvNRtosAbstraction::stringToIpV4(token);
            if (addresses[count] != 0)
                ++count;
        }
        list += length;
    }
    return count;
}

/** Makes a root handle from the arguments of one of its constructors; without memory 0x160081D. */
template <class... Selection>
long createRootHandle(KvCErrorListPool& errors, const char* origin, KvCInventoryRootHandle*& rootHandle,
                      Selection... selection)
{
    rootHandle = new (errors) KvCInventoryRootHandle(errors, selection...);
    if (rootHandle != nullptr)
        return 0;
    KV_REPORT(errors, RootItemNotAllocated, origin);
    return -1;
}

}  // namespace

long KvCInventoryManager::createRootHandleByIpAddressList(KvCErrorListPool& errors, const char* list,
                                                          KvCInventoryRootHandle*& rootHandle) const
{
    const char* text = list != nullptr ? list : "";
    KvUInt32 addresses[MaximalAddresses];
    const KvUInt32 count = readAddresses(text, addresses);
    const KvUInt32* first = addresses;
    rootHandle = count != 0 ? new (errors) KvCInventoryRootHandle(errors, first, count) : nullptr;
    if (rootHandle != nullptr)
        return 0;
    KV_REPORT(errors, RootHandleNotCreated, "KvCInventoryManager::createRootHandleByIpAddressList", text);
    return -1;
}

long KvCInventoryManager::createRootHandleByIpSubnetMask(KvCErrorListPool& errors, const char* mask,
                                                         KvCInventoryRootHandle*& rootHandle) const
{
    return createRootHandle(errors, "KvCInventoryManager::createRootHandleByIpSubnetMask", rootHandle,
                            KvNRtosAbstraction::stringToIpV4(mask));
}

long KvCInventoryManager::createRootHandleBySystemName(KvCErrorListPool& errors, const char* name,
                                                       KvCInventoryRootHandle*& rootHandle) const
{
    return createRootHandle(errors, "KvCInventoryManager::createRootHandleBySystemName", rootHandle, name);
}

long KvCInventoryManager::createRootHandleByDeviceInfoList(KvCErrorListPool& errors, const KvDALSDeviceInfo* infos,
                                                           int count, KvCInventoryRootHandle*& rootHandle) const
{
    return createRootHandle(errors, "KvCInventoryManager::createRootHandleByDeviceInfoList", rootHandle, infos, count);
}

long KvCInventoryManager::createRootHandleByDeviceHandleList(KvCErrorListPool& errors, void* const* deviceHandles,
                                                             int count, KvCInventoryRootHandle*& rootHandle) const
{
    return createRootHandle(errors, "KvCInventoryManager::createRootHandleByDeviceHandleList", rootHandle,
                            deviceHandles, count);
}

long KvCInventoryManager::createRootHandleByFilter(KvCErrorListPool& errors, void* filter,
                                                   KvCInventoryRootHandle*& rootHandle) const
{
    return createRootHandle(errors, "KvCInventoryManager::createRootHandleByFilter", rootHandle, filter);
}

long KvCInventoryManager::deleteRootHandle(KvCErrorListPool&, KvCInventoryRootHandle* rootHandle) const
{
    if (rootHandle == nullptr)
        return -1;
    delete rootHandle;
    return 0;
}

long KvCInventoryManager::getRootHandleCount(KvCErrorListPool& errors, const KvCInventoryRootHandle* rootHandle,
                                             KvUInt32& count) const
{
    if (rootHandle == nullptr) {
        KV_REPORT(errors, RootHandleInvalid, "KvCInventoryManager::getRootHandleCount");
        return -1;
    }
    count = rootHandle->getBoardCount();
    return 0;
}

long KvCInventoryManager::printRootHandle(KvCErrorListPool& errors, const KvCInventoryRootHandle* rootHandle) const
{
    if (rootHandle == nullptr) {
        KV_REPORT(errors, RootHandleInvalid, "KvCInventoryManager::printRootHandle");
        return -1;
    }
    rootHandle->print();
    return 0;
}

void* KvCInventoryManager::getHcnHandle(KvCErrorListPool& errors, const KvCInventoryRootHandle& rootHandle,
                                        const KvCInventoryAddress& address) const
{
    constexpr const char* origin = "KvCInventoryManager::getHcnHandle";
    const KvCInventoryAddress node = address.getFirstElement();
    if (node.getCategory() != KvNInventoryIDs::HCN.getCategory() &&
        node.getCategory() != KvNInventoryIDs::CN.getCategory()) {
        KV_REPORT(errors, NodeIdentifierInvalid, origin, node.toString());
        return nullptr;
    }
    void* deviceHandle = rootHandle.getCnHandleBySerialNumber(errors, node.getIndex());
    if (deviceHandle == nullptr)
        KV_REPORT(errors, NodeHandleFailed, origin, node.toString());
    return deviceHandle;
}
