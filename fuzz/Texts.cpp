#include <string>

#include "base/KvCVersion.h"
#include "base/Report.h"
#include "composite/ElementTypes.h"
#include "composite/KvCParam.h"
#include "fuzz/Fuzz.h"
#include "inventory/KvCInventoryAddress.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"
#include "tools/common/JsonEvents.h"
#include "tools/common/ParameterText.h"
#include "tools/common/Text.h"
#include "tools/kvboardd/BoardFile.h"

/*
 * Texts that people and files name things with: addresses of items, versions, values, addresses of hosts. What a text
 * was read as writes itself as a text that reads back to the same.
 */

using namespace KvNFuzz;

namespace {

void readAddress(const std::string& text)
{
    KvCInventoryAddress address;
    address.readFromString(text.c_str());
    KvCInventoryAddress again;
    again.readFromString(address.toString());
    KV_FUZZ_CHECK(again == address);
    for (KvUInt32 i = 0; i < address.getLength(); ++i)
        KV_FUZZ_CHECK(address.getCategoryAt(i) != 0);
    KV_FUZZ_CHECK(address.getHeadAddress() / address.getLastElement() == address);
    KV_FUZZ_CHECK(address.getFirstElement() / address.getSubAddress() == address);
}

void readVersion(const std::string& text)
{
    KvCVersion version;
    const bool isOne = version.setByString(text.c_str());
    KV_FUZZ_CHECK(isOne || version == KvCVersion());
    KV_FUZZ_CHECK(KvCVersion(version.getAsString()) == version);
    KvCVersion parsed;
    if (KvNParameterText::parseVersion(text, parsed))
        KV_FUZZ_CHECK(isOne && parsed == version);
}

void readValue(const std::string& text, KvUInt32 type)
{
    KvCErrorListPool errors;
    KvCParam parameter(errors, 1, "value", type);
    std::string problem;
    if (!KvNParameterText::setValueText(parameter, text, problem)) {
        KV_FUZZ_CHECK(!problem.empty());
        return;
    }
    const std::string shown = KvNParameterText::valueText(parameter);
    KvCParam again(errors, 1, "value", type);
    KV_FUZZ_CHECK(KvNParameterText::setValueText(again, shown, problem));
    KV_FUZZ_CHECK(KvNParameterText::valueText(again) == shown);
}

void readHost(const std::string& text)
{
    const KvUInt32 host = KvNRtosAbstraction::stringToIpV4(text.c_str());
    char quad[KvNRtosAbstraction::ipTextSize];
    KvNRtosAbstraction::ipToString(host, quad, sizeof quad);
    KV_FUZZ_CHECK(KvNRtosAbstraction::stringToIpV4(quad) == host);
    KvUInt32 parsed = 0;
    if (KvNBoardService::parseAddress(text, parsed))
        KV_FUZZ_CHECK(parsed == host);
}

void showText(const std::string& text)
{
    for (const bool keepsLines : {false, true}) {
        const std::string shown = KvNText::escaped(text, keepsLines);
        KV_FUZZ_CHECK(KvNJson::isUtf8(shown));
        KV_FUZZ_CHECK(shown.size() <= 8 * text.size());
        for (std::string_view rest = shown; !rest.empty();) {
            const auto [code, bytes] = KvNJson::firstCharacter(rest);
            KV_FUZZ_CHECK(!KvNJson::isDangerous(code) || (keepsLines && (code == '\n' || code == '\t')));
            rest.remove_prefix(bytes);
        }
    }
    std::string decoded;
    KvNJson::decodeBase64(text, decoded);
    KvNText::matches(text, text.substr(0, text.size() / 2));
}

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const Costs costs;
    readAddress(text);
    readVersion(text);
    for (const KvUInt32 type : {0x111u, 0x112u, 0x114u, 0x118u, 0x121u, 0x122u, 0x124u, 0x128u, 0x214u, 0x218u, 0x1124u,
                                0x1218u, 0x2000u, 0x4000u})
        readValue(text, type);
    readHost(text);
    showText(text);
    costs.check(size, {4096, 80, 60000, 1000});
    KvNReport::masterList().clear();
    return 0;
}
