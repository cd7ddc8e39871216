#include "platform/dal/KvDALAp.h"

#include "platform/dal/BoardCall.h"
#include "platform/dal/Entries.h"

using namespace KvNDeviceAccess;

namespace {

/* A new lock handle on a device's board, as far as it can be made without the board. */
template <class Use>
KvInt32 createLock(KvCErrorListPool& errors, const char* origin, void* device, void** lock, Use&& use)
{
    if (lock == nullptr)
        return reportInvalidArgument(errors, origin, "lock");
    *lock = nullptr;
    const auto entry = handleTable().find<DeviceEntry>(device);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    return guarded(errors, origin, [&] {
        const auto made = makeShared<LockEntry>(*entry->board);
        const KvInt32 result = enter(errors, origin, made, lock);
        if (result == Ok)
            use(*made);
        return result;
    });
}

KvInt32 takeGrant(KvCErrorListPool& errors, const char* origin, LockEntry& lock, const KvdaAccess& access,
                  KvUInt32 formerId, Lease::Clock::time_point asked)
{
    if (access.status == 0) {
        if (access.accessId == 0 || access.leaseSeconds == 0)
            return reportInvalidReply(errors, origin, *lock.board);
        lock.lease->grant(access.accessId, access.leaseSeconds, asked);
        LeaseKeeper::instance().wake();
        return Ok;
    }
    const KvInt32 result = reportRefusal(errors, origin, *lock.board, access.status, access.owner);
    if (result == BoardBadAccess && formerId != 0)
        lock.lease->refused(formerId);
    return result;
}

KvInt32 requestLevel(KvCErrorListPool& errors, const char* origin, LockEntry& lock, KvInt32 level)
{
    KvUInt32 formerId = 0;
    if (lock.lease->access(formerId) == Lease::State::Adopted) {
        KV_REPORT(errors, DalAccessAdopted, origin);
        return AccessAdopted;
    }
    LeaseKeeper::instance().keep(lock.lease);
    char owner[256];
    ownerText(owner);
    KvdaAccessRequest request;
    request.level = level;
    request.accessId = formerId;
    request.nonce = randomNonce();
    request.owner = owner;
    DecodedAccess access;
    BoardCall call{RequestAccess, KvNXdr::proc<xdr_KvdaAccessRequest>, &request, DecodedAccess::routine,
                   static_cast<KvdaAccess*>(&access)};
    const auto asked = Lease::Clock::now();
    const KvInt32 result = callBoard(errors, origin, *lock.board, call);
    if (result != Ok)
        return result;
    appendErrors(errors, access.errorList);
    return takeGrant(errors, origin, lock, access, formerId, asked);
}

KvInt32 release(KvCErrorListPool& errors, const char* origin, LockEntry& lock, KvUInt32 accessId)
{
    DecodedResult answer;
    BoardCall call{ReleaseAccess, KvNXdr::proc<KvNXdr::xdr_u_int>, &accessId, DecodedResult::routine,
                   static_cast<KvdaResult*>(&answer)};
    const KvInt32 result = callBoard(errors, origin, *lock.board, call);
    if (result != Ok)
        return result;
    appendErrors(errors, answer.errorList);
    if (answer.status == 0)
        return Ok;
    if (answer.status != BoardBadAccess - BoardRefused)
        return reportRefusal(errors, origin, *lock.board, answer.status, nullptr);
    if (call.repeated)
        return Ok;  // released by the first request, whose reply was lost
    KV_REPORT(errors, DalAccessLost, origin, lock.board->address());
    return AccessLost;
}

}  // namespace

KvInt32 KvDAL_createAccessRestrictionHandle(KvCErrorListPool& errors, void* device, void** lock)
{
    return createLock(errors, "KvDAL_createAccessRestrictionHandle", device, lock, [](LockEntry&) {});
}

KvInt32 KvDAL_adoptAccessRestriction(KvCErrorListPool& errors, void* device, KvUInt32 accessId, void** lock)
{
    constexpr const char* origin = "KvDAL_adoptAccessRestriction";
    if (accessId == 0)
        return reportInvalidArgument(errors, origin, "accessId");
    return createLock(errors, origin, device, lock, [accessId](LockEntry& made) { made.lease->adopt(accessId); });
}

KvInt32 KvDAL_requestAccessRestrictionLevel(KvCErrorListPool& errors, void* lock, KvUInt32 index, KvInt32 level)
{
    constexpr const char* origin = "KvDAL_requestAccessRestrictionLevel";
    const auto entry = handleTable().find<LockEntry>(lock);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    if (index != 0 || (level != Observe && level != Modify))
        return reportInvalidArgument(errors, origin, index != 0 ? "index" : "level");
    return guarded(errors, origin, [&] {
        const std::lock_guard<std::mutex> guard(entry->requests);
        // deleted while this thread waited: what it got now would never be released
        if (handleTable().find<LockEntry>(lock) == nullptr)
            return reportInvalidHandle(errors, origin);
        return requestLevel(errors, origin, *entry, level);
    });
}

KvInt32 KvDAL_deleteAccessRestrictionHandle(KvCErrorListPool& errors, void* lock)
{
    constexpr const char* origin = "KvDAL_deleteAccessRestrictionHandle";
    const auto entry = handleTable().take<LockEntry>(lock);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    return guarded(errors, origin, [&] {
        const std::lock_guard<std::mutex> guard(entry->requests);
        LeaseKeeper::instance().forget(entry->lease.get());
        KvUInt32 accessId = 0;
        const Lease::State state = entry->lease->access(accessId);
        entry->lease->giveBack();
        if (state == Lease::State::Lost) {
            KV_REPORT(errors, DalAccessLost, origin, entry->board->address());
            return static_cast<KvInt32>(AccessLost);
        }
        return state == Lease::State::Held ? release(errors, origin, *entry, accessId) : static_cast<KvInt32>(Ok);
    });
}
