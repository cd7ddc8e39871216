#pragma once

#include "inventory/KvCInventoryAddress.h"
#include "inventory_manager.h"
#include "platform/errorhandling/KvCErrorList.h"
#include "tools/kvboardd/InventoryService.h"
#include "tools/kvboardd/Wire.h"

/* What the procedures of the inventory manager service have in common; for its own sources. */

namespace KvNBoardService {

/** The status of a result. */
inline constexpr u_int done = 0;
inline constexpr u_int refused = 1;

/** Room for the fields of a result beside its counted bytes. */
inline constexpr std::size_t fieldRoom = 64;

/** The address that was transmitted; false, and reported, when its counts disagree or memory is out. */
bool takeAddress(KvCErrorListPool& errors, const KvimAddress& record, KvCInventoryAddress& address, const char* origin);

/** A result that is a status and an error list. Errors that cannot be transmitted are a refusal too. */
Answer plainResult(u_int status, const KvCErrorListPool& errors);

/** The same for an operation that went well or did not. */
inline Answer resultOf(bool good, const KvCErrorListPool& errors)
{
    return plainResult(good ? done : refused, errors);
}

/**
 * A procedure that takes an address: `action(errors, arguments, address)` does it and says whether it went well,
 * `result(good, errors)` makes the answer.
 */
template <class Arguments, bool_t (*routine)(XDR*, Arguments*), class Action, class Result>
Answer InventoryService::atAddress(const Call& call, const char* origin, const Action& action, const Result& result)
{
    Record<Arguments, routine> arguments;
    if (!arguments.decode(call.arguments))
        return Answer::of(Answer::Kind::GarbageArguments);
    KvCErrorListPool errors;
    KvCInventoryAddress address;
    const bool good = takeAddress(errors, arguments->address, address, origin) && action(errors, *arguments, address);
    return result(good, errors);
}

/** The same for a procedure that changes something, and so needs the access id of a lock of level 2. */
template <class Arguments, bool_t (*routine)(XDR*, Arguments*), class Action, class Result>
Answer InventoryService::withLock(const Call& call, const char* origin, const Action& action, const Result& result)
{
    Authority authority;
    KvUInt32 accessId = 0;
    const auto guarded = [&](KvCErrorListPool& errors, const Arguments& arguments, const KvCInventoryAddress& address) {
        authority = checkModify(errors, call, arguments.accessId, m_locks, m_clock(), m_board.serialNumber());
        if (!authority.mayModify)
            return false;
        accessId = arguments.accessId;
        return action(errors, arguments, address);
    };
    Answer answer = atAddress<Arguments, routine>(call, origin, guarded, result);
    answer.slow = authority.slow;
    answer.accessId = accessId;
    return answer;
}

}  // namespace KvNBoardService
