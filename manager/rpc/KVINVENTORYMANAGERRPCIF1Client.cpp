#include "manager/rpc/KVINVENTORYMANAGERRPCIF1Client.h"

#include "manager/rpc/Procedures.h"

KVINVENTORYMANAGERRPCIF1Client::~KVINVENTORYMANAGERRPCIF1Client() = default;

namespace KvNInventoryRpc {

namespace {

/** The shape of every stub, behind the filling of its arguments and the zeroing of its result. */
template <class Result>
long callInto(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors, Procedure::Number procedure,
              KvNXdr::xdrproc_t encoder, void* arguments, Result& result)
{
    const long outcome = client.clntCall(errors, procedure, encoder, arguments, routine<Result>, &result);
    if (outcome != 0)
        return outcome;
    if (result.errorList.data != nullptr)
        errors.deSerialize(reinterpret_cast<const unsigned char*>(result.errorList.data), result.errorList.length);
    return 0;
}

template <class Arguments, class Result>
long call(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors, Procedure::Number procedure,
          Arguments arguments, Result& result)
{
    result = Result{};
    return callInto(client, errors, procedure, routine<Arguments>, &arguments, result);
}

/** XDR routines serve both directions and so take no constant text; encoding does not change it. */
char* encodable(const char* text)
{
    return const_cast<char*>(text);
}

}  // namespace

long scan(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors, bool flag,
          KvInventoryManagerRpcIFScanResult& result)
{
    return call(client, errors, Procedure::scan,
                KvInventoryManagerRpcIFScanArguments{static_cast<unsigned char>(flag ? 1 : 0)}, result);
}

long scan(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors, bool flag, TreeReceiver& receiver,
          KvInventoryManagerRpcIFScanReply& result)
{
    KvInventoryManagerRpcIFScanArguments arguments{static_cast<unsigned char>(flag ? 1 : 0)};
    result = KvInventoryManagerRpcIFScanReply{};
    result.receiver = &receiver;
    return callInto(client, errors, Procedure::scan, routine<KvInventoryManagerRpcIFScanArguments>, &arguments, result);
}

long readParameter(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                   KvInventoryManagerRpcIFInventoryAddress address, KvInventoryManagerRpcIFReadParameterResult& result)
{
    return call(client, errors, Procedure::readParameter, address, result);
}

long writeParameterValue(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                         KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId,
                         KvInventoryManagerRpcIFParameterValue value, KvInventoryManagerRpcIFStatusResult& result)
{
    return call(client, errors, Procedure::writeParameterValue,
                KvInventoryManagerRpcIFWriteParameterValueArguments{address, accessId, value}, result);
}

long getLocalAddress(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                     KvInventoryManagerRpcIFLocalAddressResult& result)
{
    result = KvInventoryManagerRpcIFLocalAddressResult{};
    return callInto(client, errors, Procedure::getLocalAddress, &KvNXdr::xdr_void, nullptr, result);
}

long apply(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
           KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId,
           KvInventoryManagerRpcIFStatusResult& result)
{
    return call(client, errors, Procedure::apply, KvInventoryManagerRpcIFAccessArguments{address, accessId}, result);
}

long update(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
            KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId, const char* fileName,
            KvInventoryManagerRpcIFFirmwareType firmwareType, KvUInt64 size,
            KvInventoryManagerRpcIFStatusResult& result)
{
    return call(client, errors, Procedure::update,
                KvInventoryManagerRpcIFUpdateArguments{address, accessId, encodable(fileName), firmwareType, size},
                result);
}

long updateStatus(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                  KvInventoryManagerRpcIFInventoryAddress address, KvInventoryManagerRpcIFUpdateStatusResult& result)
{
    return call(client, errors, Procedure::updateStatus, address, result);
}

long updateErrors(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                  KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId,
                  KvInventoryManagerRpcIFStatusResult& result)
{
    return call(client, errors, Procedure::updateErrors, KvInventoryManagerRpcIFAccessArguments{address, accessId},
                result);
}

long generateRemoteFilename(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                            KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId,
                            KvInventoryManagerRpcIFRemoteFilenameResult& result)
{
    return call(client, errors, Procedure::generateRemoteFilename,
                KvInventoryManagerRpcIFAccessArguments{address, accessId}, result);
}

long checkAuthority(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                    KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId, KvUInt32 right,
                    KvInventoryManagerRpcIFCheckAuthorityResult& result)
{
    return call(client, errors, Procedure::checkAuthority,
                KvInventoryManagerRpcIFCheckAuthorityArguments{address, accessId, right}, result);
}

long updateFinish(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                  KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId,
                  KvInventoryManagerRpcIFStatusResult& result)
{
    return call(client, errors, Procedure::updateFinish, KvInventoryManagerRpcIFAccessArguments{address, accessId},
                result);
}

long update2(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
             KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId, KvUInt32 kind, const char* fileName,
             KvUInt64 size, KvInventoryManagerRpcIFStatusResult& result)
{
    return call(client, errors, Procedure::update2,
                KvInventoryManagerRpcIFUpdate2Arguments{address, accessId, kind, encodable(fileName), size}, result);
}

long updateStatus2(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                   KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 selector,
                   KvInventoryManagerRpcIFUpdateStatus2Result& result)
{
    return call(client, errors, Procedure::updateStatus2,
                KvInventoryManagerRpcIFUpdateStatus2Arguments{address, selector}, result);
}

long updateErrors2(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors,
                   KvInventoryManagerRpcIFInventoryAddress address, KvUInt32 accessId, KvUInt32 index,
                   KvInventoryManagerRpcIFUpdateErrors2Result& result)
{
    return call(client, errors, Procedure::updateErrors2,
                KvInventoryManagerRpcIFUpdateErrors2Arguments{address, accessId, index}, result);
}

long registerParent(KVINVENTORYMANAGERRPCIF1Client& client, KvCErrorListPool& errors, KvUInt32 parent,
                    KvInventoryManagerRpcIFStatusResult& result)
{
    return call(client, errors, Procedure::registerParent, KvInventoryManagerRpcIFNumber{parent}, result);
}

}  // namespace KvNInventoryRpc
