#include <cstring>
#include <utility>

#include "manager/ReceivedBlock.h"

/* Single things that boards tell or are told: parameters, addresses. */

using KvNInventoryManager::BoardCall;
using KvNInventoryManager::RemoteCall;
using KvNInventoryManager::StatusCall;
using KvNInventoryRpc::Opaque;
namespace Procedure = KvNInventoryRpc::Procedure;

namespace {

/** Gives a parameter all that another one has; false when memory for a part of it could not be had. */
bool assignWhole(KvCInventoryParameter& parameter, const KvCInventoryParameter& received)
{
    parameter.clearStateBit(KvCParam::ConstructionFailedBit);
    parameter = received;
    return parameter.getStateBit(KvCParam::ConstructionFailedBit) == 0 &&
           std::strcmp(parameter.getUnit(), received.getUnit()) == 0;
}

}  // namespace

long KvCInventoryManager::readParameter(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                                        const KvCInventoryAddress& address, KvCInventoryParameter& parameter) const
{
    constexpr const char* origin = "KvCInventoryManager::readParameter";
    RemoteCall<KvInventoryManagerRpcIFReadParameterResult> remote(errors, client, origin, Procedure::readParameter);
    if (!remote.callAt(address, KvNInventoryRpc::readParameter))
        return -1;
    const Opaque& block = remote.result().parameter;
    if (block.length == 0) {
        KV_REPORT(errors, RemoteReadFailed, origin, address.toString());
        return -1;
    }
    KvCInventoryParameter* received = nullptr;
    bool good = true;
    const auto read = [&](KvCInventoryItemFactory& factory, KvCBuffer& buffer) {
        const KvNReport::Watch reading(errors);
        factory.deserializeInventoryParameter(errors, received, &buffer);
        good = !reading.grew();
    };
    if (!readBlock(errors, origin, remote, block, read))
        return -1;
    if (!good) {
        // Kept: the code of a factory that cannot be made.
        KV_REPORT(errors, RemoteFactoryNotCreated, origin);
        delete received;
        return -1;
    }
    if (received == nullptr) {
        KV_REPORT(errors, ReceivedParameterInvalid, origin);
        return -1;
    }
    const bool whole = assignWhole(parameter, *received);
    delete received;
    if (whole)
        return 0;
    KV_REPORT(errors, RemoteOutOfMemory, origin);
    return -1;
}

long KvCInventoryManager::getLocalAddress(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                                          KvCInventoryAddress& address) const
{
    constexpr const char* origin = "KvCInventoryManager::getLocalAddress";
    RemoteCall<KvInventoryManagerRpcIFLocalAddressResult> remote(errors, client, origin, Procedure::getLocalAddress);
    if (!remote.call(KvNInventoryRpc::getLocalAddress))
        return -1;
    const KvInventoryManagerRpcIFInventoryAddress& received = remote.result().address;
    if (received.valueCount != 2 * KvUInt64{received.elementCount}) {
        KV_REPORT(errors, RemoteAddressCorrupt, origin);
        return -1;
    }
    const KvUInt64 whole = KvUInt64{address.getLength()} + received.elementCount;
    const KvCInventoryAddress own = KvCInventoryAddress::fromPairs(received.values, received.elementCount);
    remote.release();  // however long it is, the address is held no more than twice
    KvCInventoryAddress extended = address / own;
    if (extended.getLength() != whole) {
        KV_REPORT(errors, OutOfMemory, origin);
        return -1;
    }
    address = std::move(extended);
    return 0;
}

long KvCInventoryManager::registerParent(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                                         KvUInt32 parent) const
{
    constexpr const char* origin = "KvCInventoryManager::registerParent";
    StatusCall remote(errors, client, origin, Procedure::registerParent);
    if (!remote.call(KvNInventoryRpc::registerParent, parent))
        return -1;
    if (remote.result().status == 0)
        return 0;
    KV_REPORT(errors, ServiceRegistrationFailed, origin);
    return -1;
}

long KvCInventoryManager::readParameter(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                        const KvCInventoryAddress& address, KvCInventoryParameter& parameter) const
{
    const BoardCall board(errors, "KvCInventoryManager::readParameter", rootHandle, address);
    return board.run(
        [&](KVINVENTORYMANAGERRPCIF1Client& client) { return readParameter(errors, client, address, parameter); });
}
