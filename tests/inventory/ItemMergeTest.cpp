#include <gtest/gtest.h>

#include "base/Report.h"
#include "tests/inventory/InventoryTest.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FailingAllocation.h"

using namespace KvNInventoryIDs;

namespace {

bool hook(KvCErrorListPool&, KvCInventoryItem*, KvCInventoryParameter*)
{
    return true;
}

/** A tree as plain text, to compare it by. */
std::string textOf(const KvCInventoryItem& item)
{
    KvCErrorListPool errors;
    return item.toString(errors, KvNInventoryItem::TextPlain, 0).c_str();
}

class ItemMerge : public testing::Test
{
protected:
    /** Merges and gives the source pointer as it is afterwards. */
    KvCInventoryItem* merge(KvCInventoryItem*& into, ItemOwner& from, KvUInt32 mode)
    {
        KvCInventoryItem* source = from.release();
        KvCInventoryItem::mergeTree(errors, into, source, mode);
        return source;
    }
    KvCInventoryItem* merge(ItemOwner& from, KvUInt32 mode)
    {
        KvCInventoryItem* into = target.get();
        return merge(into, from, mode);
    }

    KvCErrorListPool errors;
    ItemOwner target = makeItem(ROOT);
    ItemOwner other = makeItem(ROOT);
};

}  // namespace

TEST_F(ItemMerge, ACopyIsATreeOfItsOwn)
{
    addValue(*target, CPU[2] / RAM / SIZE, 5);
    addValue(*target, CPU[2] / NAME, KvCString("first"));
    addValue(*target, SIZE, 1.5);
    KvCInventoryParameter* size = target->getParameter(CPU[2] / RAM / SIZE);
    size->setCheckWriteUpdateFunction(hook, hook, hook);
    size->setAuxPointer(static_cast<KvNInventoryParameter::KvNAuxPointer::EType>(3), this);
    size->setDesignatedValue<int>(errors, 6);
    KvCInventoryItem* made = nullptr;
    target->copyTree(errors, made);
    const ItemOwner copy(made);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(textOf(*copy), textOf(*target));
    const KvCInventoryParameter* copied = copy->getParameter(CPU[2] / RAM / SIZE);
    EXPECT_NE(copied, size);
    EXPECT_EQ(copied->getWriteFunction(), hook);
    KvNInventoryParameter::KvNAuxPointer::EType type{};
    EXPECT_EQ(copied->getAuxPointer(type), this);
    EXPECT_EQ(type, 3u);
    EXPECT_FALSE(copied->isDesignatedValueValid());
    EXPECT_EQ(copied->getAddress(), ROOT / CPU[2] / RAM / SIZE);
    target.reset();
    EXPECT_EQ(copy->getValue<int>(errors, CPU[2] / RAM / SIZE), 5);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(ItemMerge, ACopyOfAPartHasNoParent)
{
    addValue(*target, CPU / RAM / SIZE, 5);
    target->addPath(errors, BIOS);
    KvCInventoryItem* made = nullptr;
    target->getItem(CPU)->copyTree(errors, made);
    const ItemOwner copy(made);
    EXPECT_EQ(copy->getAddress(), CPU);
    EXPECT_EQ(copy->getNext(), nullptr);
    EXPECT_EQ(textOf(*copy), textOf(*target->getItem(CPU)));
}

TEST_F(ItemMerge, ASecondChildWithTheSameIdIsLeftOutOfTheCopy)
{
    target->addPath(errors, CPU / RAM);
    target->addPath(errors, CPU / FLASH)->setID(RAM);
    target->addPath(errors, BIOS);
    KvCInventoryItem* made = nullptr;
    target->copyTree(errors, made);
    const ItemOwner copy(made);
    EXPECT_EQ(codesOf(errors), (Codes{0x1300816, 0x130080f}));
    EXPECT_EQ(
        entryOf(errors, 0),
        "KvCInventoryItem::copyTree: Internal error. Korvel Support information: Cannot add item RAM to inventory "
        "tree below item CPU.");
    EXPECT_EQ(entryOf(errors, 1),
              "KvCInventoryItem::copyTree: Internal error. Korvel Support information: Cannot copy subtree.");
    EXPECT_EQ(copy->getItem(CPU)->getChildCount(), 1u);
    EXPECT_NE(copy->getItem(BIOS), nullptr);
}

TEST_F(ItemMerge, ANullTargetTakesTheSourceAsItIs)
{
    KvCInventoryItem* none = nullptr;
    KvCInventoryItem* const root = other.get();
    EXPECT_EQ(merge(none, other, 0), nullptr);
    EXPECT_EQ(none, root);
    other.reset(none);
}

TEST_F(ItemMerge, ASourcePointerIsNullAlsoWhenItIsTheTargetPointer)
{
    KvCInventoryItem* both = target.get();
    KvCInventoryItem::mergeTree(errors, both, both, 0);
    EXPECT_EQ(both, nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(ItemMerge, ATreeMergedWithItselfOrWithNothingStays)
{
    addValue(*target, CPU / SIZE, 1);
    const std::string before = textOf(*target);
    KvCInventoryItem* into = target.get();
    KvCInventoryItem* same = target.get();
    KvCInventoryItem::mergeTree(errors, into, same, 1);
    EXPECT_EQ(same, nullptr);
    EXPECT_EQ(into, target.get());
    KvCInventoryItem::mergeTree(errors, into, same, 1);
    EXPECT_EQ(textOf(*target), before);
    KvCInventoryItem* none = nullptr;
    KvCInventoryItem::mergeTree(errors, none, same, 1);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(ItemMerge, TheTargetsParametersWinAndMissingOnesAreTakenWithModeOne)
{
    for (const KvUInt32 mode : {0u, 1u, 2u, 3u}) {
        target = makeItem(ROOT);
        other = makeItem(ROOT);
        addValue(*target, SIZE, 1);
        addValue(*target, CPU / SIZE, 1);
        addValue(*other, SIZE, 2);
        addValue(*other, NAME, 2);
        addValue(*other, CPU / SIZE, 2);
        addValue(*other, CPU / NAME, 2);
        EXPECT_EQ(merge(other, mode), nullptr);
        EXPECT_EQ(target->getValue<int>(errors, SIZE), 1);
        EXPECT_EQ(target->getValue<int>(errors, CPU / SIZE), 1);
        EXPECT_EQ(target->getParameter(NAME) != nullptr, (mode & 1) != 0);
        EXPECT_EQ(target->getParameter(CPU / NAME) != nullptr, (mode & 1) != 0);
        EXPECT_EQ(errors.getErrorCount(), 0u);
    }
}

TEST_F(ItemMerge, ItemsThatOnlyTheSourceHasAreMovedWithTheirParameters)
{
    target->addPath(errors, CPU / RAM);
    addValue(*other, CPU / FLASH / SIZE, 2);
    addValue(*other, BIOS[2] / SIZE, 3);
    const KvCInventoryItem* flash = other->getItem(CPU / FLASH);
    const KvCInventoryItem* bios = other->getItem(BIOS[2]);
    EXPECT_EQ(merge(other, 0), nullptr);
    EXPECT_EQ(target->getItem(CPU / FLASH), flash);
    EXPECT_EQ(target->getItem(BIOS[2]), bios);
    EXPECT_EQ(target->getValue<int>(errors, CPU / FLASH / SIZE), 2);
    EXPECT_EQ(bios->getAddress(), ROOT / BIOS[2]);
    EXPECT_EQ(target->getItem(CPU)->getChildCount(), 2u);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(ItemMerge, TheRootsOwnIdsDoNotMatter)
{
    other = makeItem(BOARD[7]);
    addValue(*other, CPU / SIZE, 2);
    EXPECT_EQ(merge(other, 0), nullptr);
    EXPECT_EQ(target->getID(), ROOT);
    EXPECT_EQ(target->getValue<int>(errors, CPU / SIZE), 2);
}

TEST_F(ItemMerge, ATargetInsideTheSourceIsReportedAndNothingIsDestroyed)
{
    KvCInventoryItem* inside = other->addPath(errors, CPU / RAM);
    KvCInventoryItem* source = other.get();
    KvCInventoryItem::mergeTree(errors, inside, source, 1);
    EXPECT_EQ(codesOf(errors), Codes{0x1300802});
    EXPECT_EQ(entryOf(errors, 0),
              "KvCInventoryItem::mergeTree: Internal error. Korvel Support information: Cannot attach inventory tree.");
    EXPECT_EQ(source, nullptr);
    EXPECT_EQ(inside, other->getItem(CPU / RAM));
}

TEST_F(ItemMerge, ASourceInsideTheTargetIsMovedUp)
{
    addValue(*target, CPU / RAM / SIZE, 2);
    KvCInventoryItem* into = target.get();
    KvCInventoryItem* source = target->getItem(CPU);
    KvCInventoryItem::mergeTree(errors, into, source, 0);
    EXPECT_EQ(source, nullptr);
    EXPECT_EQ(target->getItem(CPU), nullptr);
    EXPECT_EQ(target->getValue<int>(errors, RAM / SIZE), 2);
}

TEST_F(ItemMerge, SharedDataCountsAsTheTargetsOwn)
{
    const ItemOwner shared = makeItem(SHARED_DATA);
    addValue(*shared, SIZE, 1);
    shared->addPath(errors, CPU);
    target->setFriend(shared.get());
    addValue(*other, SIZE, 2);
    addValue(*other, CPU / RAM / SIZE, 3);
    EXPECT_EQ(merge(other, 1), nullptr);
    EXPECT_EQ(target->getValue<int>(errors, SIZE), 1);
    EXPECT_EQ(target->getFirstSubItem(), nullptr);
    EXPECT_EQ(shared->getValue<int>(errors, CPU / RAM / SIZE), 3);
}

TEST_F(ItemMerge, APartThatSharedDataLeadsBackIntoItselfIsReported)
{
    // The target looks through a friend inside the very subtree that is being merged.
    KvCInventoryItem* inner = other->addPath(errors, CPU / RAM);
    inner->addPath(errors, CPU);
    target->setFriend(inner);
    EXPECT_EQ(merge(other, 0), nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0x1300802, 0x1300803}));
    EXPECT_EQ(entryOf(errors, 1),
              "KvCInventoryItem::mergeTree: Internal error. Korvel Support information: Cannot merge inventory tree.");
    EXPECT_EQ(target->getFriend(), nullptr);
}

TEST_F(ItemMerge, AFailureBelowEndsTheMergeOnEveryLevel)
{
    target->addPath(errors, CPU / RAM / BANK);
    addValue(*other, CPU / RAM / BANK / SIZE, 1);
    addValue(*other, FLASH / SIZE, 1);
    KvCInventoryItem* into = target.get();
    KvCInventoryItem* source = other.release();
    {
        // The stack of pairs comes first, then the parameter's copy.
        const FailingAllocation second(2);
        KvCInventoryItem::mergeTree(errors, into, source, 1);
    }
    EXPECT_EQ(codesOf(errors), (Codes{0x1300803, 0x1300803, 0x1300803, 0x1300803}));
    EXPECT_EQ(source, nullptr);
    EXPECT_EQ(target->getItem(FLASH), nullptr);
    KvNReport::masterList().clear();
}

TEST_F(ItemMerge, LinksItemsToTheSharedDataTheyName)
{
    CapturedOutput output;
    addValue(*target, SHARED_DATA[3] / SIZE, 33u);
    addValue(*target, SHARED_DATA[3] / RAM / SIZE, 44u);
    addValue(*target, SHARED_DATA[3] / RAM / BANK / SIZE, 55u);
    addValue(*target, BOARD / SHARED_DATA_INDEX, 3u);
    target->addPath(errors, BOARD / RAM / BANK);
    target->addPath(errors, BOARD / FLASH / RAM);
    target->addPath(errors, BOARD[2] / RAM);
    target->linkSharedData(nullptr);
    EXPECT_EQ(target->getItem(BOARD)->getFriend(), target->getItem(SHARED_DATA[3]));
    EXPECT_EQ(target->getItem(BOARD / RAM)->getFriend(), target->getItem(SHARED_DATA[3] / RAM));
    EXPECT_EQ(target->getItem(BOARD / RAM / BANK)->getFriend(), target->getItem(SHARED_DATA[3] / RAM / BANK));
    EXPECT_EQ(target->getItem(BOARD / FLASH)->getFriend(), nullptr);
    EXPECT_EQ(target->getItem(BOARD / FLASH / RAM)->getFriend(), nullptr);
    EXPECT_EQ(target->getItem(BOARD[2])->getFriend(), nullptr);
    EXPECT_EQ(target->getFriend(), nullptr);
    EXPECT_EQ(target->getValue<KvUInt32>(errors, BOARD / SIZE), 33u);
    EXPECT_EQ(target->getValue<KvUInt32>(errors, BOARD / RAM / BANK / SIZE), 55u);
    const KvCInventoryItem* before = static_cast<KvCInventoryItem*>(target->getItem(BOARD / RAM)->getFriend());
    target->linkSharedData(nullptr);
    EXPECT_EQ(target->getItem(BOARD / RAM)->getFriend(), before);
    EXPECT_TRUE(output.messages.empty());
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(ItemMerge, SharedDataIsLookedForBelowTheParentAtAnyDepth)
{
    CapturedOutput output;
    addValue(*target, CPU / RAM / SHARED_DATA[2] / SIZE, 7u);
    addValue(*target, CPU / RAM / BANK / SHARED_DATA_INDEX, 2u);
    addValue(*target, CPU / RAM / BANK[2] / SHARED_DATA_INDEX, 2u);
    target->linkSharedData(nullptr);
    EXPECT_EQ(target->getValue<KvUInt32>(errors, CPU / RAM / BANK / SIZE), 7u);
    EXPECT_EQ(target->getValue<KvUInt32>(errors, CPU / RAM / BANK[2] / SIZE), 7u);
    EXPECT_TRUE(output.messages.empty());
}

TEST_F(ItemMerge, AMissingSharedItemIsAWarningAndEndsThereOnly)
{
    CapturedOutput output;
    addValue(*target, BOARD / SHARED_DATA_INDEX, 9u);
    addValue(*target, BOARD / CPU / SHARED_DATA_INDEX, 1u);
    addValue(*target, BOARD[2] / SHARED_DATA_INDEX, 1);
    addValue(*target, SHARED_DATA / SIZE, 1u);
    addValue(*target, BOARD[3] / SHARED_DATA_INDEX, 1u);
    target->linkSharedData(nullptr);
    ASSERT_EQ(output.messages.size(), 2u);
    EXPECT_TRUE(output.messages[0].warning);
    EXPECT_EQ(output.messages[0].code, 0x1300815u);
    EXPECT_EQ(output.messages[0].origin, "KvCInventoryItem::linkSharedData");
    EXPECT_EQ(output.messages[0].text,
              "Internal error. Korvel Support information: Item ROOT/BOARD references shared data item SHARED_DATA[9], "
              "but the shared data item does not exist.");
    EXPECT_EQ(output.messages[1].text,
              "Internal error. Korvel Support information: Item ROOT/BOARD[2] references shared data item "
              "SHARED_DATA[0], but the shared data item does not exist.");
    EXPECT_EQ(target->getItem(BOARD)->getFriend(), nullptr);
    EXPECT_EQ(target->getParameter(BOARD / SIZE), nullptr);
    EXPECT_EQ(target->getItem(BOARD[3])->getFriend(), target->getItem(SHARED_DATA));
}

TEST_F(ItemMerge, SharedItemsMayNotReferToEachOther)
{
    CapturedOutput output;
    target->addPath(errors, SHARED_DATA);
    addValue(*target, SHARED_DATA[2] / SHARED_DATA_INDEX, 1u);
    addValue(*target, BOARD / SHARED_DATA_INDEX, 1u);
    target->addPath(errors, BOARD / SHARED_DATA[5]);
    target->addPath(errors, SHARED_DATA / SHARED_DATA[5]);
    target->linkSharedData(nullptr);
    ASSERT_EQ(output.messages.size(), 2u);
    EXPECT_TRUE(output.messages[0].warning);
    EXPECT_EQ(output.messages[0].code, 0x1300813u);
    EXPECT_EQ(output.messages[0].text,
              "Internal error. Korvel Support information: Shared data items may not reference each other. Item "
              "ROOT/SHARED_DATA[2] or one of its ancestors has a SHARED_DATA_INDEX parameter.");
    EXPECT_EQ(output.messages[1].code, 0x1300813u);
    EXPECT_EQ(output.messages[1].text,
              "Internal error. Korvel Support information: Shared data items may not reference each other. Item "
              "ROOT/BOARD/SHARED_DATA[5] or one of its ancestors has a SHARED_DATA_INDEX parameter.");
    EXPECT_EQ(target->getItem(SHARED_DATA[2])->getFriend(), nullptr);
}

TEST_F(ItemMerge, ALinkedItemMayHaveNoLinkBelowIt)
{
    CapturedOutput output;
    target->addPath(errors, SHARED_DATA / RAM / BANK);
    addValue(*target, BOARD / SHARED_DATA_INDEX, 1u);
    addValue(*target, BOARD / RAM / SHARED_DATA_INDEX, 1u);
    target->addPath(errors, BOARD / RAM / BANK);
    target->linkSharedData(nullptr);
    ASSERT_EQ(output.messages.size(), 1u);
    EXPECT_TRUE(output.messages[0].warning);
    EXPECT_EQ(output.messages[0].code, 0x1300814u);
    EXPECT_EQ(output.messages[0].text,
              "Internal error. Korvel Support information: Item ROOT/BOARD/RAM has a SHARED_DATA_INDEX parameter "
              "although one of its ancestors already does.");
    EXPECT_EQ(target->getItem(BOARD / RAM)->getFriend(), nullptr);
    EXPECT_EQ(target->getItem(BOARD / RAM / BANK)->getFriend(), nullptr);
}

TEST_F(ItemMerge, LinkingToAGivenItem)
{
    CapturedOutput output;
    const ItemOwner shared = makeItem(SHARED_DATA);
    shared->addPath(errors, CPU);
    target->addPath(errors, CPU / RAM);
    target->linkSharedData(shared.get());
    EXPECT_EQ(target->getFriend(), shared.get());
    EXPECT_EQ(target->getItem(CPU)->getFriend(), shared->getItem(CPU));
    EXPECT_EQ(target->getItem(CPU / RAM)->getFriend(), nullptr);
    EXPECT_TRUE(output.messages.empty());
    shared->linkSharedData(nullptr);
    EXPECT_TRUE(output.messages.empty());
    shared->linkSharedData(target.get());
    ASSERT_EQ(output.messages.size(), 1u);
    EXPECT_EQ(output.messages[0].code, 0x1300813u);
    EXPECT_EQ(shared->getFriend(), nullptr);
}
