#pragma once

#include <functional>

#include "platform/KvTypes.h"
#include "tools/kvboardd/LockTable.h"
#include "tools/kvboardd/Procedure.h"

class KvCErrorListPool;

namespace KvNBoardService {

/** The time now, from a clock that never goes backwards. */
using Clock = std::function<LockTable::Time()>;

/** Reports why `outcome`, anything but Granted, refused what `call` asked for with `accessId`, says in the log when the
   id was wrong, and makes the answer late after too many of them. */
void refuseAccess(KvCErrorListPool& errors, const Call& call, LockTable::Outcome outcome, KvUInt32 accessId,
                  const LockTable::Limits& limits, KvUInt32 serialNumber, Answer& answer);

/** What an access id entitles a caller to. */
struct Authority
{
    LockTable::Outcome outcome = LockTable::Outcome::BadAccess;
    bool mayModify = false;
    bool slow = false;  ///< the answer is to be late
};

/** Whether `call` comes from who holds the lock of level 2 with `accessId`; reports why not, as refuseAccess() does. */
Authority checkModify(KvCErrorListPool& errors, const Call& call, KvUInt32 accessId, LockTable& locks,
                      LockTable::Time now, KvUInt32 serialNumber);

}  // namespace KvNBoardService
