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
