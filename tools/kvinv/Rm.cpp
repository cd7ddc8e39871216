#include "tools/kvinv/Commands.h"
#include "tools/kvinv/Interruption.h"
#include "tools/kvinv/RemoteFile.h"

int runRm(const Options& options, Console& console)
{
    Selection selection;
    KvCInventoryAddress address;
    if (!selectionOf(options, selection, console) || !boardAddress(options.arguments[0], address, console))
        return StatusUsage;
    RemoteFile::Name name;
    if (!RemoteFile::nameOf(options.arguments[1], name)) {
        const std::string& given = options.arguments[1];
        console.problem((given.empty() ? "\"\"" : given) + " is no name of a file (kvinv ls lists them)");
        return StatusUsage;
    }
    const Boards boards(selection, console);
    BoardLock lock(console);
    if (!boards.isGood() || Interruption::happened() || !lock.take(boards, address) || Interruption::happened())
        return StatusFailed;
    const bool isRemoved = RemoteFile::remove(boards, address, lock, name, console);
    return lock.release() && isRemoved ? StatusDone : StatusFailed;
}
