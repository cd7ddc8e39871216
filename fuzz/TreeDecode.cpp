#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "composite/KvCComposite.h"
#include "composite/KvCCompositeFactory.h"
#include "fuzz/Trees.h"
#include "inventory/KvCInventoryParameter.h"

/*
 * Streams into trees: a tree or an error, never both; the same whether records are read in one go or one by one; a
 * stream read twice below one node finds all its nodes there the second time.
 */

using namespace KvNFuzz;

namespace {

// The smallest node has 10 bytes, the smallest parameter 16.
constexpr Costs::Limits limits{65536, 80, 20000, 80};

/** Whoever makes nodes that stand alone has them: a stream may hold several trees, or leave the node it is read below.
 */
class OwningFactory : public KvCCompositeFactory
{
public:
    using KvCCompositeFactory::KvCCompositeFactory;
    KvCComposite* createComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId, const char* descr,
                                  KvCComposite* parent) override
    {
        KvCComposite* const node = KvCCompositeFactory::createComposite(errors, classId, unitId, descr, parent);
        if (node != nullptr && parent == nullptr)
            alone.emplace_back(node);
        return node;
    }

    std::vector<std::unique_ptr<KvCComposite>> alone;
};

void readBelowANode(KvCBuffer& buffer)
{
    KvCErrorListPool errors;
    KvCComposite node(errors, 1, 1, "above");
    OwningFactory factory(errors);
    factory.deserialize(errors, &node, &buffer);
    if (errors.getErrorCount() != 0)
        return;
    const KvUInt32 children = node.getChildCount();
    const bool isBelow = factory.alone.empty();
    KvCComposite* const made = factory.deserialize(errors, &node, &buffer);
    KV_FUZZ_CHECK(errors.getErrorCount() == 0);
    KV_FUZZ_CHECK(node.getChildCount() == children);
    KV_FUZZ_CHECK(!isBelow || made == nullptr);
}

void readParameters(KvCBuffer& buffer)
{
    KvCErrorListPool errors;
    KvCInventoryItemFactory factory(errors);
    buffer.setReadPosition(errors, 0);
    for (KvUInt32 before = 0;; before = buffer.getReadPosition()) {
        KvCInventoryParameter* parameter = nullptr;
        factory.deserializeInventoryParameter(errors, parameter, &buffer);
        KV_FUZZ_CHECK(parameter == nullptr || errors.getErrorCount() == 0);
        if (parameter == nullptr)
            return;
        KV_FUZZ_CHECK(buffer.getReadPosition() > before);
        delete parameter;
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::span<const unsigned char> stream(data, size);
    const Reading byRecord = readTreeByRecord(stream);
    {
        const Costs costs;
        const Reading reading = readTree(stream);
        costs.check(size, limits);
        KV_FUZZ_CHECK(reading.tree == nullptr || reading.reports.empty());
        KV_FUZZ_CHECK(reading.tree != nullptr || !reading.reports.empty() || byRecord.nodes == 0);
        KV_FUZZ_CHECK(reading.reports == byRecord.reports);
        KV_FUZZ_CHECK(reading.position == byRecord.position);
        KV_FUZZ_CHECK((reading.tree == nullptr) == (byRecord.tree == nullptr));
        if (reading.tree != nullptr)
            KV_FUZZ_CHECK(streamOf(*reading.tree) == streamOf(*byRecord.tree));
    }
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    if (size != 0)
        buffer.writeBuffer(errors, data, static_cast<KvUInt32>(size), 1);
    readBelowANode(buffer);
    readParameters(buffer);
    KvNReport::masterList().clear();
    return 0;
}
