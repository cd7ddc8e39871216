#include "manager/BoardCall.h"

#include "manager/DeviceParameter.h"

namespace KvNInventoryManager {

void* BoardCall::findBoard() const
{
    if (m_rootHandle == nullptr) {
        KV_REPORT(m_errors, RootHandleInvalid, m_origin);
        return nullptr;
    }
    void* deviceHandle = KvCInventoryManager::getInstance().getHcnHandle(m_errors, *m_rootHandle, m_address);
    if (deviceHandle != nullptr && !m_watch.grew())
        return deviceHandle;
    KV_REPORT(m_errors, BoardNotConnected, m_origin, m_address.toString());
    return nullptr;
}

bool BoardCall::readAccessId(void* lockHandle, KvUInt32& accessId) const
{
    if (readNumber(m_errors, lockHandle, KvNDeviceAccess::AccessId, accessId))
        return true;
    KV_REPORT(m_errors, AccessIdNotRead, m_origin, m_address.toString());
    return false;
}

KVINVENTORYMANAGERRPCIF1Client* BoardCall::clientOf(KvCErrorListPool& errors, void* deviceHandle)
{
    return KvCInventoryManager::getInstance().getRPCClient(errors, deviceHandle);
}

bool BoardCall::marshal(KvCErrorListPool& errors, const char* origin, const KvCInventoryAddress& address,
                        WireAddress& wire)
{
    if (KvCInventoryManager::getInstance().marshalInventoryAddress(errors, address, wire.record()) != 0)
        return false;
    if (wire.record().elementCount == address.getLength())
        return true;
    KV_REPORT(errors, OutOfMemory, origin);
    return false;
}

}  // namespace KvNInventoryManager

long KvCInventoryManager::marshalInventoryAddress(KvCErrorListPool& errors, KvCInventoryAddress address,
                                                  KvInventoryManagerRpcIFInventoryAddress& out) const
{
    const std::size_t count = address.getLength();
    out.values = static_cast<KvUInt32*>(KvNAllocation::allocate(count * 2 * sizeof(KvUInt32)));
    out.elementCount = out.values != nullptr ? address.getLength() : 0;
    out.valueCount = 2 * out.elementCount;
    if (out.values == nullptr) {
        KV_REPORT(errors, RemoteOutOfMemory, "KvCInventoryManager::marshalInventoryAddress");
        return -1;
    }
    for (KvUInt32 i = 0; i < out.elementCount; ++i) {
        out.values[2 * std::size_t{i}] = address.getCategoryAt(i);
        out.values[2 * std::size_t{i} + 1] = address.getIndexAt(i);
    }
    return 0;
}
