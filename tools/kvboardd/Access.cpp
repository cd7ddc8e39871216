#include "tools/kvboardd/Access.h"

#include "base/Report.h"
#include "tools/kvboardd/Log.h"

namespace KvNBoardService {

void refuseAccess(KvCErrorListPool& errors, const Call& call, LockTable::Outcome outcome, KvUInt32 accessId,
                  const LockTable::Limits& limits, KvUInt32 serialNumber, Answer& answer)
{
    const char* const origin = "LockTable::check";
    const std::string peer = addressText(call.peer);
    switch (outcome) {
        case LockTable::Outcome::BadAccess:
            log("board " + std::to_string(serialNumber) + ": wrong access id from " + peer);
            KV_REPORT(errors, BoardBadAccess, origin, accessId, peer);
            return;
        case LockTable::Outcome::TooManyWrong:
            log("board " + std::to_string(serialNumber) + ": too many wrong access ids from " + peer);
            answer.slow = true;
            KV_REPORT(errors, BoardTooManyWrongIds, origin, peer);
            return;
        case LockTable::Outcome::TooMany:
            KV_REPORT(errors, BoardTooManyLocks, origin, limits.holders);
            return;
        case LockTable::Outcome::NoRandom:
            KV_REPORT(errors, BoardNoRandom, origin);
            return;
        case LockTable::Outcome::Granted:
        case LockTable::Outcome::Locked:       // the caller knows by whom
        case LockTable::Outcome::BadArgument:  // the caller knows which
            return;
    }
}

Authority checkModify(KvCErrorListPool& errors, const Call& call, KvUInt32 accessId, LockTable& locks,
                      LockTable::Time now, KvUInt32 serialNumber)
{
    LockTable::Level level = LockTable::Level::None;
    Authority authority;
    authority.outcome = locks.check(now, call.peer, accessId, level);
    if (authority.outcome != LockTable::Outcome::Granted) {
        Answer refusal;
        refuseAccess(errors, call, authority.outcome, accessId, locks.limits(), serialNumber, refusal);
        authority.slow = refusal.slow;
        return authority;
    }
    authority.mayModify = level == LockTable::Level::Modify;
    if (!authority.mayModify)
        KV_REPORT(errors, BoardAccessTooLow, "checkModify", accessId);
    return authority;
}

}  // namespace KvNBoardService
