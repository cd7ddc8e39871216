#include "tools/common/JsonEvents.h"
#include "tools/common/Text.h"
#include "tools/kvinv/Boards.h"
#include "tools/kvinv/Commands.h"

namespace {

void printJson(const std::vector<KvDALSDeviceInfo>& infos, Console& console)
{
    std::string out = "[";
    for (const KvDALSDeviceInfo& info : infos) {
        out += &info == &infos.front() ? "\n " : ",\n ";
        out += "{\"serialNumber\": " + std::to_string(info.serialNumber) +
               ", \"boardType\": " + std::to_string(info.boardType) + ", \"boardName\": ";
        KvNJson::appendText(out, info.boardName);
        out += ", \"systemName\": ";
        KvNJson::appendText(out, info.systemName);
        out += ", \"address\": \"" + dotted(info.ipAddress) + "\"}";
    }
    console.write(out + (infos.empty() ? "]\n" : "\n]\n"));
}

}  // namespace

int runDiscover(const Options& options, Console& console)
{
    Selection selection;
    if (!selectionOf(options, selection, console))
        return StatusUsage;
    const Boards boards(selection, console);
    if (options.json)
        printJson(boards.infos(), console);
    if (!boards.isGood())
        return StatusFailed;
    if (!options.json) {
        KvNText::Table table({{"serial", true}, {"type", true}, {"name"}, {"system"}, {"address"}});
        for (const KvDALSDeviceInfo& info : boards.infos())
            table.add({std::to_string(info.serialNumber), "KV" + std::to_string(info.boardType), info.boardName,
                       info.systemName, dotted(info.ipAddress)});
        console.write(table.text(console.bold(), console.plain()));
    }
    return boards.isComplete() ? StatusDone : StatusIncomplete;
}
