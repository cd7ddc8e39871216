#include <ctime>

#include "platform/dal/KvDALAp.h"
#include "tools/common/JsonEvents.h"
#include "tools/common/Text.h"
#include "tools/kvinv/Boards.h"
#include "tools/kvinv/Commands.h"

namespace {

constexpr KvUInt32 mostHolders = 64;

std::string levelName(KvInt32 level)
{
    if (level == KvNDeviceAccess::Observe)
        return "observe";
    return level == KvNDeviceAccess::Modify ? "modify" : "level " + std::to_string(level);
}

/** When something began that has lasted so many seconds, in local time. */
std::string sinceWhen(KvUInt32 seconds)
{
    const std::time_t began = std::time(nullptr) - static_cast<std::time_t>(seconds);
    char text[32] = "";
    if (const std::tm* local = std::localtime(&began); local != nullptr)
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", local);
    return text;
}

/** "45 s", "12:05 min", "3:04:05 h" */
std::string duration(KvUInt32 seconds)
{
    const auto two = [](KvUInt32 number) { return (number < 10 ? "0" : "") + std::to_string(number); };
    if (seconds < 60)
        return std::to_string(seconds) + " s";
    if (seconds < 3600)
        return std::to_string(seconds / 60) + ":" + two(seconds % 60) + " min";
    return std::to_string(seconds / 3600) + ":" + two(seconds / 60 % 60) + ":" + two(seconds % 60) + " h";
}

std::string asJson(KvUInt32 serial, const KvDALSHolder& holder)
{
    std::string out = "{\"serialNumber\": " + std::to_string(serial) + ", \"level\": \"" + levelName(holder.level) +
                      "\", \"owner\": ";
    KvNJson::appendText(out, holder.owner);
    return out + ", \"address\": \"" + dotted(holder.ipAddress) +
           "\", \"secondsHeld\": " + std::to_string(holder.secondsHeld) +
           ", \"secondsLeft\": " + std::to_string(holder.secondsLeft) + "}";
}

}  // namespace

int runLocks(const Options& options, Console& console)
{
    Selection selection;
    if (!selectionOf(options, selection, console))
        return StatusUsage;
    const Boards boards(selection, console);
    if (!boards.isGood())
        return StatusFailed;
    KvNText::Table table(
        {{"serial", true}, {"level"}, {"owner"}, {"address"}, {"since"}, {"held", true}, {"left", true}});
    std::string list;
    KvUInt32 asked = 0;
    for (KvUInt32 i = 0; i < boards.handle()->getBoardCount(); ++i) {
        KvCErrorListPool errors;
        KvDALSHolder holders[mostHolders];
        KvUInt32 count = mostHolders;
        void* device = boards.handle()->getCnHandleByOrdinalNumber(errors, i);
        KvUInt32 serial = 0;
        KvUInt32 size = sizeof serial;
        const bool good = device != nullptr &&
                          KvDAL_getParam(errors, device, KvNDeviceAccess::DeviceSerialNumber, 0, &size, &serial) == 0 &&
                          KvDAL_getAccessState(errors, device, holders, &count) == 0;
        console.report(errors);
        if (!good)
            continue;
        ++asked;
        for (KvUInt32 j = 0; j < count; ++j) {
            list += (list.empty() ? "\n " : ",\n ") + asJson(serial, holders[j]);
            table.add({std::to_string(serial), levelName(holders[j].level), holders[j].owner,
                       dotted(holders[j].ipAddress), sinceWhen(holders[j].secondsHeld),
                       duration(holders[j].secondsHeld), duration(holders[j].secondsLeft)});
        }
    }
    if (options.json)
        console.write("[" + list + (list.empty() ? "]\n" : "\n]\n"));
    else
        console.write(table.text(console.bold(), console.plain()));
    if (asked == 0)
        return StatusFailed;
    return boards.isComplete() && asked == boards.infos().size() ? StatusDone : StatusIncomplete;
}
