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

}  // namespace KvNBoardService
