#include "tools/common/JsonEvents.h"
#include "tools/kvinv/Commands.h"
#include "tools/kvinv/Interruption.h"
#include "tools/kvinv/RemoteFile.h"

namespace {

std::string asJson(const RemoteFile::Name& name, KvUInt64 size)
{
    std::string out = "{\"name\": ";
    KvNJson::appendText(out, RemoteFile::pathOf(name));
    out += ", \"directory\": ";
    KvNJson::appendText(out, name.directory.c_str());
    out += ", \"fileName\": ";
    KvNJson::appendText(out, name.fileName.c_str());
    return out + ", \"size\": " + std::to_string(size) + "}\n";
}

}  // namespace

int runPut(const Options& options, Console& console)
{
    Selection selection;
    KvCInventoryAddress address;
    RemoteFile::Local file;
    if (!selectionOf(options, selection, console) || !boardAddress(options.arguments[0], address, console))
        return StatusUsage;
    if (!RemoteFile::find(options.arguments[1], file, console))
        return StatusFailed;
    const Boards boards(selection, console);
    BoardLock lock(console);
    if (!boards.isGood() || Interruption::happened() || !lock.take(boards, address) || Interruption::happened())
        return StatusFailed;
    RemoteFile::Name name;
    {
        Progress progress(console);
        progress.begin("transferring");
        if (!RemoteFile::send(boards, address, lock, file, progress, 1000, name, console))
            return StatusFailed;
    }
    // The name comes first: whatever else fails, the file is there.
    console.write(options.json ? asJson(name, file.size) : console.shown(RemoteFile::pathOf(name)) + "\n");
    return lock.release() ? StatusDone : StatusFailed;
}
