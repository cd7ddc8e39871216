#include <string>

#include "base/Report.h"
#include "fuzz/Fuzz.h"
#include "platform/errorhandling/KvCErrorManager.h"
#include "tools/common/JsonEvents.h"
#include "tools/common/Text.h"

/*
 * Error lists as they come from boards: a block is taken whole or not at all, comes out as it went in, and whatever its
 * texts hold, what is shown of them steers no terminal.
 */

using namespace KvNFuzz;

namespace {

constexpr Costs::Limits limits{4096, 32, 5000, 40};

void checkShown(const std::string& shown)
{
    KV_FUZZ_CHECK(KvNJson::isUtf8(shown));
    for (std::string_view rest = shown; !rest.empty();) {
        const auto [code, bytes] = KvNJson::firstCharacter(rest);
        KV_FUZZ_CHECK(!KvNJson::isDangerous(code));
        rest.remove_prefix(bytes);
    }
}

void show(const KvCErrorListPool& list)
{
    for (KvUInt32 i = 0; i < list.getErrorCount() && i < 100; ++i) {
        checkShown(KvNText::escaped(list.getErrorText(i)));
        checkShown(KvNText::escaped(list.getErrorOrigin(i)));
    }
}

struct Output
{
    KvUInt32 entries = 0;
    std::size_t bytes = 0;

    static void take(void* context, bool, KvUInt32, const char* origin, const char* text)
    {
        auto* self = static_cast<Output*>(context);
        ++self->entries;
        self->bytes += std::string_view(origin).size() + std::string_view(text).size();
    }
};

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    KvCErrorListPool list;
    KV_REPORT(list, OutOfMemory, "fuzz");
    bool isTaken = false;
    {
        const Costs costs;
        isTaken = list.deSerialize(data, size);
        costs.check(size, limits);
    }
    if (!isTaken) {
        KV_FUZZ_CHECK(list.getErrorCount() == 1);
        return 0;
    }
    KvCErrorListPool first;
    KV_FUZZ_CHECK(first.deSerialize(data, size));
    KV_FUZZ_CHECK(first.getErrorCount() + 1 == list.getErrorCount());
    const std::vector<unsigned char> block = first.serialize();
    KvCErrorListPool second;
    KV_FUZZ_CHECK(second.deSerialize(block.data(), block.size()));
    KV_FUZZ_CHECK(second.getErrorCount() == first.getErrorCount());
    KV_FUZZ_CHECK(second.serialize() == block);
    KV_FUZZ_CHECK(block.size() <= size + 8);
    show(first);

    Output output;
    KvCErrorManager::setOutput(Output::take, &output);
    KvCErrorListPool& master = KvNReport::masterList();
    master.clear();
    KV_FUZZ_CHECK(master.deSerialize(data, size));
    const KvUInt32 reported = master.getErrorCount();
    KvCErrorManager::sendErrorList(master, 0);
    KvCErrorManager::setOutput(nullptr, nullptr);
    KV_FUZZ_CHECK(reported == first.getErrorCount());
    KV_FUZZ_CHECK(output.entries <= 300 + 1 && output.entries <= reported);
    master.clear();
    return 0;
}
