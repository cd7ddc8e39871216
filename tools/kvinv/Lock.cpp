#include "platform/host/KvNHost.h"
#include "tools/kvinv/Boards.h"
#include "tools/kvinv/Commands.h"
#include "tools/kvinv/Interruption.h"

int runLock(const Options& options, Console& console)
{
    Selection selection;
    KvCInventoryAddress address;
    if (!selectionOf(options, selection, console) || !boardAddress(options.arguments[0], address, console))
        return StatusUsage;
    const Boards boards(selection, console);
    BoardLock lock(console);
    if (!boards.isGood() || Interruption::happened() || !lock.take(boards, address))
        return StatusFailed;
    const KvUInt32 accessId = lock.accessId();
    if (accessId == 0 || Interruption::happened())
        return StatusFailed;
    const KvNHost::Ending ending = KvNHost::run(
        options.command, {{"KVINV_ACCESS", std::to_string(address.getIndexAt(0)) + ":" + std::to_string(accessId)}});
    if (!ending.started)
        console.problem(ending.problem);
    const bool isReleased = lock.release();
    if (!ending.started)
        return StatusFailed;
    // What COMMAND says comes first; but a lock that was lost is not to go unnoticed.
    return ending.status == StatusDone && !isReleased ? static_cast<int>(StatusFailed) : ending.status;
}
