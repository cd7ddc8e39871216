#include <string_view>

#include "fuzz/Trees.h"
#include "inventory/KvCInventoryParameter.h"

/*
 * What was read can be written, and then reads back to the same tree and the same bytes. A copy of the tree has these
 * bytes too. Descriptions of 255 characters are the exception: a record has no length for them, so they are lost.
 */

using namespace KvNFuzz;

namespace {

constexpr std::size_t longestDescription = 254;

bool hasLongDescription(const KvCInventoryItem& tree)
{
    std::vector<const KvCInventoryItem*> open{&tree};
    bool found = false;
    const auto judge = [&](const char* description) {
        found = found || (description != nullptr && std::string_view(description).size() > longestDescription);
    };
    while (!open.empty()) {
        const KvCInventoryItem& item = *open.back();
        open.pop_back();
        judge(item.getDescription());
        item.forEachParameter([&](const KvCInventoryParameter& parameter) {
            judge(parameter.getDescr());
            return true;
        });
        for (const KvCInventoryItem* child = item.getFirstSubItem(); child != nullptr; child = child->getNext())
            open.push_back(child);
    }
    return found;
}

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const Reading first = readTree({data, size});
    if (first.tree == nullptr)
        return 0;
    const Bytes stream = streamOf(*first.tree);
    const Reading second = readTree(stream);
    KV_FUZZ_CHECK(second.reports.empty());
    KV_FUZZ_CHECK(second.tree != nullptr);
    const bool isCut = hasLongDescription(*first.tree);
    KV_FUZZ_CHECK(isCut || streamOf(*second.tree) == stream);
    KvCErrorListPool errors;
    KvCInventoryItem* made = nullptr;
    first.tree->copyTree(errors, made);
    const ItemOwner copy(made);
    KV_FUZZ_CHECK(errors.getErrorCount() == 0 && copy != nullptr);
    KV_FUZZ_CHECK(streamOf(*copy) == stream);
    // A parameter that came without unit is written without one, even if it got one from a record that came again.
    // Paths are output, of which a deep tree has much.
    if (size <= 2048 && !isCut) {
        const Reading third = readTree(stream);
        KV_FUZZ_CHECK(third.tree->toString(errors, 0, 0) == second.tree->toString(errors, 0, 0));
    }
    return 0;
}
