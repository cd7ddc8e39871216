#include "inventory/ids/KvNInventoryIDs.h"
#include "tools/common/JsonEvents.h"
#include "tools/common/Text.h"
#include "tools/kvinv/Commands.h"
#include "tools/kvinv/Numbers.h"

namespace {

bool isMeant(KvUInt32 id, const char* name, const std::string& pattern)
{
    KvUInt64 number = 0;
    if (parseNumber(pattern, 0xFFFFFFFF, number))
        return id == number;
    return KvNText::matches(name, pattern);
}

}  // namespace

int runIds(const Options& options, Console& console)
{
    const std::string pattern = options.arguments.empty() ? "" : options.arguments[0];
    std::string out;
    KvUInt32 found = 0;
    for (KvUInt32 id = 0; id < KvNInventoryIDs::Map.getCount(); ++id) {
        const char* name = KvNInventoryIDs::Map.get(id);
        if (name == nullptr || (!options.arguments.empty() && !isMeant(id, name, pattern)))
            continue;
        if (options.json) {
            out += (found > 0 ? ",\n {\"id\": " : " {\"id\": ") + std::to_string(id) + ", \"name\": ";
            KvNJson::appendString(out, name);
            out += "}";
        } else {
            const std::string number = std::to_string(id);
            out += std::string(number.size() < 3 ? 3 - number.size() : 0, ' ') + number + "  " + name + "\n";
        }
        ++found;
    }
    if (options.json)
        out = found > 0 ? "[\n" + out + "\n]\n" : "[]\n";
    console.write(out);
    if (found > 0)
        return StatusDone;
    console.problem("no ID is like " + pattern);
    return StatusFailed;
}
