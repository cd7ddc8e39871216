#include "fuzz/Trees.h"

#include "base/KvCBuffer.h"
#include "base/Report.h"

namespace KvNFuzz {

namespace {

/** What a user's own factory is to the library: its operation makes each node. */
class CountingFactory : public KvCInventoryItemFactory
{
public:
    using KvCInventoryItemFactory::KvCInventoryItemFactory;
    KvCComposite* createComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId, const char* descr,
                                  KvCComposite* parent) override
    {
        ++made;
        return KvCInventoryItemFactory::createComposite(errors, classId, unitId, descr, parent);
    }

    unsigned made = 0;
};

Reading readWith(KvCInventoryItemFactory& factory, std::span<const unsigned char> stream)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    if (!stream.empty())
        buffer.writeBuffer(errors, stream.data(), static_cast<KvUInt32>(stream.size()), 1);
    KvCInventoryItem* tree = nullptr;
    factory.deserialize(errors, tree, &buffer);
    Reading reading;
    reading.tree.reset(tree);
    reading.reports = reportsOf(errors);
    reading.position = buffer.getReadPosition();
    KvNReport::masterList().clear();
    return reading;
}

}  // namespace

Reading readTree(std::span<const unsigned char> stream)
{
    KvCErrorListPool errors;
    KvCInventoryItemFactory factory(errors);
    return readWith(factory, stream);
}

Reading readTreeByRecord(std::span<const unsigned char> stream)
{
    KvCErrorListPool errors;
    CountingFactory factory(errors);
    Reading reading = readWith(factory, stream);
    reading.nodes = factory.made;
    return reading;
}

Bytes streamOf(KvCInventoryItem& tree)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    KvCInventoryItemFactory factory(errors);
    factory.serialize(errors, &buffer, &tree);
    KV_FUZZ_CHECK(errors.getErrorCount() == 0);
    return Bytes(buffer.getStartPointer(), buffer.getStartPointer() + buffer.getOccupiedSize());
}

std::vector<std::string> reportsOf(const KvCErrorListPool& errors)
{
    std::vector<std::string> reports;
    for (KvUInt32 i = 0; i < errors.getErrorCount(); ++i)
        reports.push_back(std::to_string(errors.getErrorCode(i)) + ": " + errors.getErrorText(i));
    return reports;
}

}  // namespace KvNFuzz
