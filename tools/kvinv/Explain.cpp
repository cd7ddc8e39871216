#include <charconv>

#include "inventory/KvCInventoryItemFactory.h"
#include "platform/errorhandling/KvCErrorManager.h"
#include "tools/common/JsonEvents.h"
#include "tools/kvinv/Commands.h"
#include "tools/kvinv/Numbers.h"

namespace {

std::string hexadecimal(KvUInt64 code)
{
    char digits[20];
    const auto end = std::to_chars(digits, digits + sizeof digits, static_cast<unsigned long long>(code), 16).ptr;
    return "0x" + std::string(digits, end);
}

}  // namespace

int runExplain(const Options& options, Console& console)
{
    const std::string& given = options.arguments[0];
    KvUInt64 code = 0;
    const bool isNumber = parseNumber(given, 0xFFFFFFFF, code);
    // The first factory makes the texts of streams and buffers known.
    KvCErrorListPool errors;
    const KvCInventoryItemFactory factory(errors);
    const char* text = isNumber ? KvCErrorManager::getMessageText(static_cast<KvUInt32>(code)) : nullptr;
    KvUInt64 hexCode = 0;
    const bool isHex = parseNumber("0x" + given, 0xFFFFFFFF, hexCode) &&
                       KvCErrorManager::getMessageText(static_cast<KvUInt32>(hexCode)) != nullptr;
    const std::string hint = text == nullptr && isHex ? "; did you mean " + hexadecimal(hexCode) + "?" : "";
    if (!isNumber) {
        console.problem("a message code is a number such as 0x1600804, not " + given + hint);
        return StatusUsage;
    }
    if (text == nullptr) {
        console.problem("no message has the code " + hexadecimal(code) + hint);
        return StatusFailed;
    }
    std::string out;
    if (options.json) {
        out = "{\"code\": \"" + hexadecimal(code) + "\", \"message\": ";
        KvNJson::appendString(out, text);
        out += "}\n";
    } else {
        out = std::string(text) + "\n";
    }
    console.write(out);
    return StatusDone;
}
