#pragma once

#include "manager/rpc/InventoryRecords.h"
#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/oncrpc/KvCRpcClient.h"

/**
 * The client of one board's inventory manager service, version 1 of the interface. It adds no state to KvCRpcClient;
 * its type says that a registered client speaks this interface. Owned by the device access library once registered
 * there.
 */
class KV_EXPORT KVINVENTORYMANAGERRPCIF1Client : public KvCRpcClient
{
public:
    using KvCRpcClient::KvCRpcClient;
    ~KVINVENTORYMANAGERRPCIF1Client() override;
};

/*
 * One stub for each procedure, all of one shape: the arguments are put into their record, the result record is zeroed,
 * the procedure is called, and the error list that came with the result is appended to `errors` (a malformed one adds
 * nothing and fails nothing). Returns 0, or the KvCRpcClient::Result of a call that failed, reported in `errors`.
 * The caller releases `result` on every path, with KvCRpcClient::freeResults and the record's routine; what the
 * arguments point at stays the caller's.
 */
namespace KvNInventoryRpc {

KV_EXPORT long scan(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors, bool flag,
                    KvInventoryManagerRpcIFScanResult& result);

/** The same, with the tree handed to `receiver` on the way, whatever the call comes to in the end. */
KV_EXPORT long scan(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors, bool flag, TreeReceiver& receiver,
                    KvInventoryManagerRpcIFScanReply& result);

KV_EXPORT long readParameter(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                             KvInventoryManagerRpcIFInventoryAddress address,
                             KvInventoryManagerRpcIFReadParameterResult& result);

KV_EXPORT long writeParameterValue(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                                   KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId,
                                   KvInventoryManagerRpcIFParameterValue value,
                                   KvInventoryManagerRpcIFStatusResult& result);

KV_EXPORT long getLocalAddress(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                               KvInventoryManagerRpcIFLocalAddressResult& result);

KV_EXPORT long apply(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                     KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId,
                     KvInventoryManagerRpcIFStatusResult& result);

/** `fileName` is not null. */
KV_EXPORT long update(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                      KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId, const char* fileName,
                      KvInventoryManagerRpcIFFirmwareType firmwareType, KvUInt64 size,
                      KvInventoryManagerRpcIFStatusResult& result);

KV_EXPORT long updateStatus(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                            KvInventoryManagerRpcIFInventoryAddress address,
                            KvInventoryManagerRpcIFUpdateStatusResult& result);

KV_EXPORT long updateErrors(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                            KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId,
                            KvInventoryManagerRpcIFStatusResult& result);

KV_EXPORT long generateRemoteFilename(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                                      KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId,
                                      KvInventoryManagerRpcIFRemoteFilenameResult& result);

KV_EXPORT long checkAuthority(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                              KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId, KvUInt32 right,
                              KvInventoryManagerRpcIFCheckAuthorityResult& result);

KV_EXPORT long updateFinish(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                            KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId,
                            KvInventoryManagerRpcIFStatusResult& result);

/** `fileName` is not null. */
KV_EXPORT long update2(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                       KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId, KvUInt32 kind,
                       const char* fileName, KvUInt64 size, KvInventoryManagerRpcIFStatusResult& result);

KV_EXPORT long updateStatus2(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                             KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 selector,
                             KvInventoryManagerRpcIFUpdateStatus2Result& result);

KV_EXPORT long updateErrors2(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                             KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId, KvUInt32 index,
                             KvInventoryManagerRpcIFUpdateErrors2Result& result);

KV_EXPORT long registerParent(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors, KvUInt32 parent,
                              KvInventoryManagerRpcIFStatusResult& result);

}  // namespace KvNInventoryRpc
