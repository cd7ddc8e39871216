#include <chrono>
#include <cstdio>
#include <vector>

#include "platform/dal/KvDALAp.h"
#include "tools/common/JsonEvents.h"
#include "tools/common/Text.h"
#include "tools/kvinv/Commands.h"
#include "tools/kvinv/RemoteFile.h"

namespace {

constexpr KvUInt32 mostFiles = 4096;

/** "2026-11-21T09:30:00Z"; seconds behind the year 9999 as they are. */
std::string timeText(KvUInt64 seconds)
{
    constexpr KvUInt64 secondsOfDay = 86400;
    constexpr KvUInt64 endOfTime = 253402300800;  // the year 10000
    if (seconds >= endOfTime)
        return std::to_string(seconds);
    const std::chrono::year_month_day day(
        std::chrono::sys_days(std::chrono::days(static_cast<int>(seconds / secondsOfDay))));
    const auto rest = static_cast<unsigned>(seconds % secondsOfDay);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02u:%02u:%02uZ", static_cast<int>(day.year()),
                  static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()), rest / 3600, rest / 60 % 60,
                  rest % 60);
    return text;
}

std::string asJson(const KvDALSFile& file)
{
    std::string out = "{\"name\": ";
    KvNJson::appendText(out, RemoteFile::pathOf(file.directory, file.fileName));
    return out + ", \"size\": " + std::to_string(file.size) + ", \"modified\": \"" + timeText(file.modified) + "\"}";
}

}  // namespace

int runLs(const Options& options, Console& console)
{
    Selection selection;
    KvCInventoryAddress address;
    if (!selectionOf(options, selection, console) || !boardAddress(options.arguments[0], address, console))
        return StatusUsage;
    const Boards boards(selection, console);
    if (!boards.isGood())
        return StatusFailed;
    KvCErrorListPool errors;
    std::vector<KvDALSFile> files(mostFiles);
    KvUInt32 count = mostFiles;
    KvUInt64 freeBytes = 0;
    void* device = boards.handle()->getCnHandleBySerialNumber(errors, address.getIndexAt(0));
    const bool good = device != nullptr && KvDAL_listFiles(errors, device, files.data(), &count, &freeBytes) == 0;
    console.report(errors);
    if (!good)
        return StatusFailed;
    files.resize(count);
    KvNText::Table table({{"size", true}, {"modified"}, {"name"}});
    std::string list;
    for (const KvDALSFile& file : files) {
        list += (list.empty() ? "\n  " : ",\n  ") + asJson(file);
        table.add(
            {std::to_string(file.size), timeText(file.modified), RemoteFile::pathOf(file.directory, file.fileName)});
    }
    const std::string room = std::to_string(freeBytes);
    if (options.json)
        console.write("{\"files\": [" + list + (list.empty() ? "" : "\n ") + "],\n \"freeBytes\": " + room + "}\n");
    else
        console.write(table.text(console.bold(), console.plain()) + room + " bytes free\n");
    return StatusDone;
}
