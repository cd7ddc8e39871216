#include "manager/BoardCall.h"
#include "platform/dal/KvDALAp.h"

/* Access locks on boards. */

using KvNInventoryManager::BoardCall;

long KvCInventoryManager::lock(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                               const KvCInventoryAddress& address, int level, void*& lockHandle) const
{
    constexpr const char* origin = "KvCInventoryManager::lock";
    const BoardCall board(errors, origin, rootHandle, address);
    void* deviceHandle = board.findBoard();
    if (deviceHandle == nullptr)
        return -1;
    void* handle = nullptr;
    if (KvDAL_createAccessRestrictionHandle(errors, deviceHandle, &handle) != KvNDeviceAccess::Ok) {
        KV_REPORT(errors, AccessHandleNotCreated, origin, address.toString());
        return -1;
    }
    if (KvDAL_requestAccessRestrictionLevel(errors, handle, 0, level) != KvNDeviceAccess::Ok) {
        KV_REPORT(errors, AccessLevelDenied, origin, level, address.toString());
        KvDAL_deleteAccessRestrictionHandle(errors, handle);
        return -1;
    }
    lockHandle = handle;
    return 0;
}

long KvCInventoryManager::unlock(KvCErrorListPool& errors, void* lockHandle) const
{
    if (KvDAL_deleteAccessRestrictionHandle(errors, lockHandle) == KvNDeviceAccess::Ok)
        return 0;
    KV_REPORT(errors, AccessNotWithdrawn, "KvCInventoryManager::unlock");
    return -1;
}
