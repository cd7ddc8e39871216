
#include <gtest/gtest.h>

#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "tests/inventory/InventoryTest.h"

/*
 * Trees as deep and as wide as anyone may hand us: no operation recurses, and none costs more than linear time (one
 * that did would not end within any test's time). Nothing here asserts a time.
 */
using namespace KvNInventoryIDs;

namespace {

constexpr KvUInt32 many = 1'000'000;

/** A chain of `count` items below ROOT, each with one parameter where `hasParameters`. */
ItemOwner makeChain(KvUInt32 count, bool hasParameters)
{
    KvCErrorListPool errors;
    ItemOwner root = makeItem(ROOT);
    KvCInventoryItem* item = root.get();
    for (KvUInt32 i = 0; i < count; ++i) {
        item = item->addPath(errors, CPU);
        if (hasParameters)
            addValue(*item, SIZE, i);
    }
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return root;
}

/** ROOT with children CPU[first] to CPU[first + count - 1], each with one parameter. */
ItemOwner makeWide(KvUInt32 first, KvUInt32 count)
{
    KvCErrorListPool errors;
    ItemOwner root = makeItem(ROOT);
    for (KvUInt32 i = 0; i < count; ++i)
        addValue(*root->addPath(errors, CPU[first + i]), SIZE, i);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return root;
}

KvUInt32 depthOf(const KvCInventoryItem& root)
{
    KvUInt32 depth = 0;
    for (const KvCInventoryItem* item = &root; item != nullptr; item = item->getFirstSubItem())
        ++depth;
    return depth;
}

KvUInt32 updates;
bool countUpdate(KvCErrorListPool&, KvCInventoryItem*, KvCInventoryParameter*)
{
    ++updates;
    return true;
}

ItemOwner throughStream(KvCInventoryItem& root)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    KvCInventoryItemFactory factory(errors);
    factory.serialize(errors, &buffer, &root);
    KvCInventoryItem* back = nullptr;
    factory.deserialize(errors, back, &buffer);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return ItemOwner(back);
}

}  // namespace

TEST(InventorySize, AChainOfAMillionItems)
{
    KvCErrorListPool errors;
    const ItemOwner chain = makeChain(many, true);
    KvCInventoryItem* copied = nullptr;
    chain->copyTree(errors, copied);
    ItemOwner copy(copied);
    EXPECT_EQ(depthOf(*copy), many + 1);
    const KvCString flat = chain->toString(errors, KvNInventoryItem::TextFlat | KvNInventoryItem::TextPlain, 0);
    EXPECT_EQ(flat, copy->toString(errors, KvNInventoryItem::TextFlat | KvNInventoryItem::TextPlain, 0));
    EXPECT_GT(flat.length(), many * 20);

    KvCInventoryItem* target = chain.get();
    KvCInventoryItem* source = copy.release();
    KvCInventoryItem::mergeTree(errors, target, source, KvNInventoryItem::MergeParameters);
    EXPECT_EQ(depthOf(*chain), many + 1);

    KvCInventoryItem* deepest = chain.get();
    while (deepest->getFirstSubItem() != nullptr)
        deepest = deepest->getFirstSubItem();
    EXPECT_EQ(deepest->getAddress().getLength(), many + 1);
    EXPECT_EQ(chain->getItem(deepest->getAddress().getSubAddress()), deepest);
    deepest->getParameter(SIZE)->setCheckWriteUpdateFunction(countUpdate, countUpdate, countUpdate);
    deepest->getParameter(SIZE)->setDesignatedValue<KvUInt32>(errors, 5);
    updates = 0;
    chain->check(errors, nullptr);
    chain->apply(errors, nullptr);
    chain->update(errors, nullptr);
    chain->deleteDesignatedValues();
    chain->linkSharedData(nullptr);
    EXPECT_EQ(updates, 3u);
    EXPECT_EQ(deepest->getValue<KvUInt32>(errors, SIZE), 5u);
    const ItemOwner back = throughStream(*chain);
    EXPECT_EQ(depthOf(*back), many + 1);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST(InventorySize, AMillionChildren)
{
    KvCErrorListPool errors;
    const ItemOwner wide = makeWide(1, many);
    EXPECT_EQ(wide->getChildCount(), many);
    EXPECT_EQ(wide->getValue<KvUInt32>(errors, CPU[777'777] / SIZE), 777'776u);
    EXPECT_EQ(wide->getItem(CPU[many + 1]), nullptr);
    KvCInventoryItem* copied = nullptr;
    wide->copyTree(errors, copied);
    const ItemOwner copy(copied);
    EXPECT_EQ(copy->getChildCount(), many);
    const ItemOwner back = throughStream(*wide);
    EXPECT_EQ(back->getChildCount(), many);
    EXPECT_EQ(back->toString(errors, KvNInventoryItem::TextPlain, 0), wide->toString(errors, 0x80, 0));
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST(InventorySize, WideTreesMerge)
{
    KvCErrorListPool errors;
    const ItemOwner target = makeWide(1, many / 2);
    KvCInventoryItem* into = target.get();
    KvCInventoryItem* source = makeWide(many / 4, many / 2).release();
    KvCInventoryItem::mergeTree(errors, into, source, KvNInventoryItem::MergeParameters);
    EXPECT_EQ(target->getChildCount(), many / 4 * 3 - 1);
    EXPECT_EQ(target->getValue<KvUInt32>(errors, CPU[many / 2] / SIZE), many / 2 - 1);
    EXPECT_EQ(target->getValue<KvUInt32>(errors, CPU[many / 2 + 1] / SIZE), many / 4 + 1);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST(InventorySize, AMillionParametersInOneItem)
{
    KvCErrorListPool errors;
    ItemOwner root = makeItem(ROOT);
    for (KvUInt32 i = 0; i < many; ++i) {
        auto* parameter = new (errors) KvCInventoryParameter(errors, KvCInventoryAddress(i), nullptr, i, "V", false, 0);
        root->addParameter(errors, THIS_NODE, parameter);
    }
    EXPECT_EQ(root->getValue<KvUInt32>(errors, KvCInventoryAddress(654'321)), 654'321u);
    KvUInt32 seen = 0;
    while (const KvCInventoryParameter* parameter = root->getParameterByOrdinalNumber(seen))
        ASSERT_EQ(parameter->getId(), seen++);
    EXPECT_EQ(seen, many);
    const ItemOwner back = throughStream(*root);
    EXPECT_EQ(back->getValue<KvUInt32>(errors, KvCInventoryAddress(654'321)), 654'321u);
    KvCInventoryItem* into = root.get();
    KvCInventoryItem* source = throughStream(*back).release();
    KvCInventoryItem::mergeTree(errors, into, source, KvNInventoryItem::MergeParameters);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST(InventorySize, LinkedItemsByTheHundredThousand)
{
    KvCErrorListPool errors;
    const ItemOwner root = makeItem(ROOT);
    addValue(*root, SHARED_DATA / RAM / SIZE, 1u);
    for (KvUInt32 i = 1; i <= 100'000; ++i) {
        addValue(*root->addPath(errors, BOARD[i]), SHARED_DATA_INDEX, 1u);
        root->addPath(errors, BOARD[i] / RAM);
    }
    root->linkSharedData(nullptr);
    EXPECT_EQ(root->getValue<KvUInt32>(errors, BOARD[99'999] / RAM / SIZE), 1u);
}
