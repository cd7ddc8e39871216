#include <ctime>
#include <future>
#include <memory>
#include <vector>

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

/** What one board has said. */
struct Answer
{
    KvUInt32 serial = 0;
    KvDALSHolder holders[mostHolders];
    KvUInt32 count = mostHolders;
    KvCErrorListPool errors;
    bool good = false;
};

void ask(void* device, Answer& answer)
{
    KvUInt32 size = sizeof answer.serial;
    answer.good =
        KvDAL_getParam(answer.errors, device, KvNDeviceAccess::DeviceSerialNumber, 0, &size, &answer.serial) == 0 &&
        KvDAL_getAccessState(answer.errors, device, answer.holders, &answer.count) == 0;
}

/** Asks all boards at once, so that one that is slow to answer holds up nobody. */
std::vector<std::unique_ptr<Answer>> askAll(const Boards& boards)
{
    std::vector<std::unique_ptr<Answer>> answers;
    std::vector<std::future<void>> asked;
    for (KvUInt32 i = 0; i < boards.handle()->getBoardCount(); ++i) {
        answers.push_back(std::make_unique<Answer>());
        Answer& answer = *answers.back();
        void* device = boards.handle()->getCnHandleByOrdinalNumber(answer.errors, i);
        if (device != nullptr)
            asked.push_back(std::async(std::launch::async, [device, &answer] { ask(device, answer); }));
    }
    for (const std::future<void>& end : asked)
        end.wait();
    return answers;
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
    std::size_t asked = 0;
    for (const std::unique_ptr<Answer>& answer : askAll(boards)) {
        console.report(answer->errors);
        if (!answer->good)
            continue;
        ++asked;
        for (KvUInt32 j = 0; j < answer->count; ++j) {
            const KvDALSHolder& holder = answer->holders[j];
            list += (list.empty() ? "\n " : ",\n ") + asJson(answer->serial, holder);
            table.add({std::to_string(answer->serial), levelName(holder.level), holder.owner, dotted(holder.ipAddress),
                       sinceWhen(holder.secondsHeld), duration(holder.secondsHeld), duration(holder.secondsLeft)});
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
