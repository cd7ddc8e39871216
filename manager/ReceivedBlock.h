#pragma once

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "manager/BoardCall.h"

namespace KvNInventoryManager {

/** Has `read(factory, buffer)` make of a buffer what it can. False when it does not come to that: 0x1600818. */
template <class Read>
bool readBuffer(KvCErrorListPool& errors, const char* origin, KvCBuffer& buffer, Read read)
{
    const KvNReport::Watch factoryCreation(errors);
    KvCInventoryItemFactory factory(errors);
    if (factoryCreation.grew()) {
        KV_REPORT(errors, RemoteFactoryNotCreated, origin);
        return false;
    }
    read(factory, buffer);
    return true;
}

/** Puts the block of a result into a buffer, gives the result back, and has `read(factory, buffer)` make of it what it
    can. False when it does not come to that: 0x1600816 to 0x1600818. */
template <class Result, class Read>
bool readBlock(KvCErrorListPool& errors, const char* origin, RemoteCall<Result>& call,
               const KvNInventoryRpc::Opaque& block, Read read)
{
    const KvNReport::Watch creation(errors);
    KvCBuffer buffer(errors);
    if (creation.grew()) {
        KV_REPORT(errors, RemoteBufferNotCreated, origin);
        return false;
    }
    const KvNReport::Watch writing(errors);
    buffer.writeBuffer(errors, block.data, block.length, 1, -1);
    if (writing.grew()) {
        KV_REPORT(errors, RemoteBufferWriteFailed, origin);
        return false;
    }
    call.release();
    return readBuffer(errors, origin, buffer, read);
}

}  // namespace KvNInventoryManager
