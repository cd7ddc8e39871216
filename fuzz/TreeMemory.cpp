#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "fuzz/Trees.h"
#include "inventory/KvCInventoryData.h"

/*
 * Reading, copying and writing while memory is out: the allocation that the first two bytes say fails, and with the
 * third odd all that follow. What failed is reported; what was not reported is right.
 */

using namespace KvNFuzz;

namespace {

/** Lets an allocation fail. */
class Failing
{
public:
    Failing(std::size_t number, bool isLasting) : m_number(number), m_isLasting(isLasting)
    {
        KvNAllocation::setHook(ask, this);
    }
    ~Failing() { KvNAllocation::setHook(nullptr, nullptr); }
    Failing(const Failing&) = delete;
    Failing& operator=(const Failing&) = delete;

private:
    static bool ask(void* context, std::size_t)
    {
        auto* self = static_cast<Failing*>(context);
        ++self->m_count;
        return self->m_isLasting ? self->m_count < self->m_number : self->m_count != self->m_number;
    }

    std::size_t m_number;
    bool m_isLasting;
    std::size_t m_count = 0;
};

/** What the section holds, and what is written from it; false when anything was reported. */
bool readAndWrite(KvCErrorListPool& errors, const Bytes& section, ItemOwner& tree, ItemOwner& copy, Bytes& written)
{
    KvCInventoryItem* made = nullptr;
    KvCInventoryData::extractInventoryTreeFromMem(errors, section.data(), section.size(), made);
    tree.reset(made);
    if (tree == nullptr)
        return errors.getErrorCount() == 0;
    made = nullptr;
    tree->copyTree(errors, made);
    copy.reset(made);
    KvCBuffer buffer(errors);
    if (errors.getErrorCount() == 0)
        KvCInventoryData::generateInventorySection(errors, buffer, tree.get());
    if (errors.getErrorCount() == 0)
        written.assign(buffer.getStartPointer(), buffer.getStartPointer() + buffer.getOccupiedSize());
    return errors.getErrorCount() == 0;
}

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    Input input(data, size);
    const std::size_t number = input.number(2) + 1;
    const bool isLasting = (input.byte() & 1) != 0;
    const Bytes section = input.all();
    ItemOwner tree;
    ItemOwner copy;
    Bytes written;
    bool isGood = false;
    {
        KvCErrorListPool errors;
        const Failing failing(number, isLasting);
        isGood = readAndWrite(errors, section, tree, copy, written);
    }
    // An error may be on the master list alone, but nothing may be missing without any.
    isGood = isGood && KvNReport::masterList().getErrorCount() == 0;
    KvNReport::masterList().clear();
    KvCErrorListPool errors;
    ItemOwner rightTree;
    ItemOwner rightCopy;
    Bytes right;
    const bool isRight = readAndWrite(errors, section, rightTree, rightCopy, right);
    if (isGood)
        KV_FUZZ_CHECK(isRight && written == right);
    if (isGood && copy != nullptr)
        KV_FUZZ_CHECK(streamOf(*copy) == streamOf(*rightCopy));
    KvNReport::masterList().clear();
    return 0;
}
