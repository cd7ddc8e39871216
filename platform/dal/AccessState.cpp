#include <algorithm>
#include <cstring>

#include "platform/dal/BoardCall.h"
#include "platform/dal/Entries.h"
#include "platform/dal/KvDALAp.h"

using namespace KvNDeviceAccess;

namespace {

using DecodedAccessState = Decoded<KvdaAccessState, xdr_KvdaAccessState>;

KvDALSHolder shown(const KvdaHolder& holder)
{
    KvDALSHolder record = {};
    record.level = holder.level;
    record.ipAddress = holder.address;
    record.secondsHeld = holder.secondsHeld;
    record.secondsLeft = holder.secondsLeft;
    if (holder.owner != nullptr)
        std::memcpy(record.owner, holder.owner, std::min(std::strlen(holder.owner), sizeof record.owner - 1));
    return record;
}

}  // namespace

KvInt32 KvDAL_getAccessState(KvCErrorListPool& errors, void* device, KvDALSHolder* holders, KvUInt32* count)
{
    constexpr const char* origin = "KvDAL_getAccessState";
    if (count == nullptr || (holders == nullptr && *count != 0))
        return reportInvalidArgument(errors, origin, count == nullptr ? "count" : "holders");
    const auto entry = handleTable().find<DeviceEntry>(device);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    return guarded(errors, origin, [&] {
        DecodedAccessState state;
        BoardCall call{AccessState, KvNXdr::xdr_void, nullptr, DecodedAccessState::routine,
                       static_cast<KvdaAccessState*>(&state)};
        const KvInt32 result = callBoard(errors, origin, *entry->board, call);
        if (result != Ok)
            return result;
        appendErrors(errors, state.errorList);
        if (state.status != 0)
            return reportRefusal(errors, origin, *entry->board, state.status, nullptr);
        const KvUInt32 room = *count;
        *count = state.holderCount;
        if (room < *count) {
            KV_REPORT(errors, DalListTooSmall, origin, room, *count);
            return static_cast<KvInt32>(ListTooSmall);
        }
        std::transform(state.holders, state.holders + state.holderCount, holders, shown);
        return static_cast<KvInt32>(Ok);
    });
}
