#include "manager/BoardCall.h"
#include "manager/rpc/ValueBytes.h"

/* Values for boards, and making boards adopt them. */

using KvNInventoryManager::BoardCall;
using KvNInventoryManager::StatusCall;
namespace Procedure = KvNInventoryRpc::Procedure;

template <class T>
long KvCInventoryManager::writeParameterValue(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                                              const KvCInventoryAddress& address, KvUInt32 accessId,
                                              const T& value) const
{
    constexpr const char* origin = "KvCInventoryManager::writeParameterValue";
    KvNInventoryRpc::ValueBytes bytes;
    if (!bytes.set(errors, origin, value))
        return -1;
    StatusCall remote(errors, client, origin, Procedure::writeParameterValue);
    if (!remote.callAt(address, KvNInventoryRpc::writeParameterValue, accessId, bytes.record()))
        return -1;
    if (remote.result().status == 0)
        return 0;
    KV_REPORT(errors, RemoteWriteFailed, origin, address.toString());
    return -1;
}

template <class T>
long KvCInventoryManager::writeOnBoard(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                       const KvCInventoryAddress& address, void* lockHandle, const T& value) const
{
    const BoardCall board(errors, "KvCInventoryManager::writeParameterValue", rootHandle, address);
    return board.runLocked(lockHandle, [&](KVINVENTORYMANAGERRPCIF1Client& client, KvUInt32 accessId) {
        return writeParameterValue(errors, client, address, accessId, value);
    });
}

#define KV_ARRAY_ELEMENT_TYPE(code, type, suffix, name, format)
#define KV_ELEMENT_TYPE(code, type, suffix, name, format)                                                             \
    template KV_EXPORT long KvCInventoryManager::writeParameterValue<type>(                                           \
        KvCErrorListPool&, KVINVENTORYMANAGERRPCIF1Client&, const KvCInventoryAddress&, KvUInt32, const type&) const; \
    template KV_EXPORT long KvCInventoryManager::writeOnBoard<type>(                                                  \
        KvCErrorListPool&, KvCInventoryRootHandle*, const KvCInventoryAddress&, void*, const type&) const;
#include "composite/ElementTypes.def"

long KvCInventoryManager::apply(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                                const KvCInventoryAddress& address, KvUInt32 accessId) const
{
    StatusCall remote(errors, client, "KvCInventoryManager::apply", Procedure::apply);
    if (!remote.callAt(address, KvNInventoryRpc::apply, accessId))
        return -1;
    return remote.result().status == 0 ? 0 : -1;
}

long KvCInventoryManager::apply(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                const KvCInventoryAddress& address, void* lockHandle) const
{
    const BoardCall board(errors, "KvCInventoryManager::apply", rootHandle, address);
    return board.runLocked(lockHandle, [&](KVINVENTORYMANAGERRPCIF1Client& client, KvUInt32 accessId) {
        return apply(errors, client, address, accessId);
    });
}
