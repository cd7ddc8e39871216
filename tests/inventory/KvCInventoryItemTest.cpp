#include "inventory/KvCInventoryItem.h"

#include <gtest/gtest.h>

#include "base/Report.h"
#include "tests/inventory/InventoryTest.h"

using namespace KvNInventoryIDs;

namespace {

const KvCInventoryAddress unnamed(4711);

bool yes(KvCErrorListPool&, KvCInventoryItem*, KvCInventoryParameter*)
{
    return true;
}
bool no(KvCErrorListPool&, KvCInventoryItem*, KvCInventoryParameter*)
{
    return false;
}

class InventoryItem : public testing::Test
{
protected:
    KvCErrorListPool errors;
    ItemOwner root = makeItem(ROOT);
};

}  // namespace

TEST_F(InventoryItem, IsNamedByClassAndUnit)
{
    const KvCInventoryItem item(errors, CPU[3], "a processor");
    EXPECT_EQ(item.getClassId(), 2u);
    EXPECT_EQ(item.getUnitId(), 3u);
    EXPECT_EQ(item.getID(), CPU[3]);
    EXPECT_EQ(item.getAddress(), CPU[3]);
    EXPECT_STREQ(item.getDescription(), "a processor");
    EXPECT_EQ(item.getParent(), nullptr);
    EXPECT_EQ(item.getNext(), nullptr);
    EXPECT_EQ(item.getFirstSubItem(), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryItem, WithoutDescriptionHasAnEmptyOne)
{
    KvCInventoryItem item(errors, CPU, nullptr);
    EXPECT_STREQ(item.getDescription(), "");
    EXPECT_NE(item.createParameter<int>(errors, SIZE, 1, "", false, 0, nullptr, nullptr, nullptr), nullptr);
}

TEST_F(InventoryItem, SharesTheRegisteredNameAsDescription)
{
    EXPECT_EQ(KvCInventoryItem(errors, CPU, "CPU").getDescription(), Map.get(2));
    EXPECT_NE(KvCInventoryItem(errors, CPU, "ROOT").getDescription(), Map.get(1));
}

TEST_F(InventoryItem, AnIdThatIsNotOneElementIsReportedAndTheItemExists)
{
    const KvCInventoryItem two(errors, ROOT / CPU[3], "two");
    EXPECT_EQ(codesOf(errors), Codes{0x1300800});
    EXPECT_EQ(entryOf(errors, 0),
              "KvCInventoryItem::KvCInventoryItem: Internal error. Korvel Support information: Initializing item of "
              "category two: ID has not exactly one element.");
    EXPECT_EQ(two.getID(), CPU[3]);
    const KvCInventoryItem none(errors, THIS_NODE, "none");
    EXPECT_EQ(none.getID(), KvCInventoryAddress(0, 0));
    EXPECT_EQ(errors.getErrorCount(), 2u);
}

TEST_F(InventoryItem, AddPathFindsOrCreatesTheItemsAlongIt)
{
    EXPECT_EQ(root->addPath(errors, THIS_NODE), root.get());
    KvCInventoryItem* firmware = root->addPath(errors, CPU[2] / FIRMWARE);
    ASSERT_NE(firmware, nullptr);
    EXPECT_EQ(firmware->getAddress(), ROOT / CPU[2] / FIRMWARE);
    EXPECT_STREQ(firmware->getDescription(), "FIRMWARE");
    EXPECT_EQ(root->addPath(errors, CPU[2] / FIRMWARE), firmware);
    EXPECT_EQ(root->addPath(errors, CPU[2] / BIOS)->getParent(), firmware->getParent());
    EXPECT_EQ(root->getChildCount(), 1u);
    EXPECT_EQ(firmware->getNext(), root->getItem(CPU[2] / BIOS));
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryItem, AddPathStopsAtAnIdWithoutName)
{
    EXPECT_EQ(root->addPath(errors, CPU / unnamed[3] / FIRMWARE), nullptr);
    EXPECT_EQ(codesOf(errors), Codes{0x130080a});
    EXPECT_EQ(entryOf(errors, 0),
              "KvCInventoryItem::addPath: Cannot create item or parameter with non-predefined ID 4711[3].");
    ASSERT_NE(root->getItem(CPU), nullptr);
    EXPECT_EQ(root->getItem(CPU)->getFirstSubItem(), nullptr);
}

TEST_F(InventoryItem, AddItemAttachesBelowAnExistingItem)
{
    root->addPath(errors, CPU);
    KvCInventoryItem* bios = makeItem(BIOS).release();
    EXPECT_EQ(root->addItem(CPU, bios), root->getItem(CPU));
    EXPECT_EQ(bios->getAddress(), ROOT / CPU / BIOS);
    ItemOwner ram = makeItem(RAM);
    EXPECT_EQ(root->addItem(CPU / FLASH, ram.get()), nullptr);
    EXPECT_EQ(ram->getParent(), nullptr);
    EXPECT_EQ(root->getItem(CPU / FLASH), nullptr);
    EXPECT_EQ(root->addItem(THIS_NODE, nullptr), root.get());
    EXPECT_EQ(root->addItem(CPU, nullptr), root->getItem(CPU));
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryItem, AddItemRefusesAnIdThatIsThereAndAnAncestor)
{
    root->addPath(errors, CPU / BIOS);
    const ItemOwner second = makeItem(BIOS);
    EXPECT_EQ(root->addItem(CPU, second.get()), nullptr);
    EXPECT_EQ(second->getParent(), nullptr);
    EXPECT_EQ(root->getItem(CPU)->getChildCount(), 1u);
    EXPECT_EQ(root->addItem(CPU / BIOS, root.get()), nullptr);
    EXPECT_EQ(root->getParent(), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryItem, AddParameterAddsToAnExistingItem)
{
    root->addPath(errors, CPU);
    auto* size = new KvCInventoryParameter(errors, SIZE, "SIZE", 5, "", false, 0);
    EXPECT_EQ(root->addParameter(errors, CPU, size), root->getItem(CPU));
    EXPECT_EQ(root->getParameter(CPU / SIZE), size);
    EXPECT_EQ(root->addParameter(errors, CPU, nullptr), root->getItem(CPU));
    const ParameterOwner other(new KvCInventoryParameter(errors, SIZE, "SIZE", 6, "", false, 0));
    EXPECT_EQ(root->addParameter(errors, CPU / RAM, other.get()), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    EXPECT_EQ(root->addParameter(errors, CPU, other.get()), nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0x601802, 0x1300812}));
    EXPECT_EQ(entryOf(errors, 1), "KvCInventoryItem::addParameter: Cannot add parameter at item ROOT/CPU.");
    EXPECT_EQ(root->getParameter(CPU / SIZE), size);
}

TEST_F(InventoryItem, LooksUpByRelativeAddress)
{
    KvCInventoryParameter* value = addValue(*root, CPU[2] / FIRMWARE / VERSION, 1);
    EXPECT_EQ(root->getItem(THIS_NODE), root.get());
    EXPECT_EQ(root->getItem(CPU[2]), root->getFirstSubItem());
    EXPECT_EQ(root->getItem(CPU), nullptr);
    EXPECT_EQ(root->getItem(ROOT), nullptr);
    EXPECT_EQ(root->getParameter(CPU[2] / FIRMWARE / VERSION), value);
    EXPECT_EQ(root->getParameter(CPU[2] / FIRMWARE / VERSION[9]), value);
    EXPECT_EQ(root->getParameter(CPU[2] / VERSION), nullptr);
    EXPECT_EQ(root->getParameter(CPU / FIRMWARE / VERSION), nullptr);
    EXPECT_EQ(root->getParameter(THIS_NODE), nullptr);
}

TEST_F(InventoryItem, LookupsGoOnInTheFriend)
{
    const ItemOwner shared = makeItem(SHARED_DATA);
    KvCInventoryParameter* deep = addValue(*shared, FIRMWARE / VERSION, 1);
    KvCInventoryParameter* own = addValue(*shared, SIZE, 2);
    KvCInventoryItem* cpu = root->addPath(errors, CPU);
    EXPECT_EQ(root->getParameter(CPU / SIZE), nullptr);
    cpu->setFriend(shared.get());
    EXPECT_EQ(root->getItem(CPU / FIRMWARE), shared->getFirstSubItem());
    EXPECT_EQ(root->getParameter(CPU / FIRMWARE / VERSION), deep);
    EXPECT_EQ(root->getParameter(CPU / SIZE), own);
    KvCInventoryParameter* nearer = addValue(*root, CPU / SIZE, 3);
    EXPECT_EQ(root->getParameter(CPU / SIZE), nearer);
    // What is created is created in the item itself.
    EXPECT_NE(root->addPath(errors, CPU / FIRMWARE), shared->getFirstSubItem());
    EXPECT_EQ(root->getParameter(CPU / FIRMWARE / VERSION), nullptr);
}

TEST_F(InventoryItem, AParameterIsLookedForInTheFriendButNotInItsFriend)
{
    const ItemOwner near = makeItem(SHARED_DATA);
    const ItemOwner far = makeItem(SHARED_DATA[2]);
    addValue(*far, SIZE, 1);
    addValue(*far, FIRMWARE / SIZE, 2);
    root->setFriend(near.get());
    near->setFriend(far.get());
    EXPECT_EQ(root->getParameter(SIZE), nullptr);
    EXPECT_EQ(root->getItem(FIRMWARE), far->getFirstSubItem());
    EXPECT_NE(root->getParameter(FIRMWARE / SIZE), nullptr);
}

TEST_F(InventoryItem, FriendsThatGoRoundEndALookup)
{
    for (int length = 1; length < 6; ++length) {
        std::vector<ItemOwner> ring;
        for (int i = 0; i < length; ++i)
            ring.push_back(makeItem(SHARED_DATA[static_cast<KvUInt32>(i + 1)]));
        for (int i = 0; i < length; ++i)
            ring[static_cast<std::size_t>(i)]->setFriend(ring[static_cast<std::size_t>((i + 1) % length)].get());
        addValue(*ring.back(), FIRMWARE / SIZE, 1);
        root->setFriend(ring[0].get());
        EXPECT_EQ(root->getItem(CPU), nullptr);
        EXPECT_EQ(root->getItem(FIRMWARE), ring.back()->getFirstSubItem());
        EXPECT_EQ(ring[0]->getItem(CPU), nullptr);
    }
}

TEST_F(InventoryItem, ParametersHaveAnOrder)
{
    for (const auto& id : {SIZE, NAME, VERSION})
        addValue(*root, id, 1);
    EXPECT_EQ(root->getParameterByOrdinalNumber(0)->getID(), SIZE);
    EXPECT_EQ(root->getParameterByOrdinalNumber(2)->getID(), VERSION);
    EXPECT_EQ(root->getParameterByOrdinalNumber(3), nullptr);
    EXPECT_EQ(root->getParameterByOrdinalNumber(4294967295u), nullptr);
    std::vector<KvUInt32> seen;
    EXPECT_FALSE(root->forEachParameter([&](KvCInventoryParameter& parameter) {
        seen.push_back(parameter.getId());
        return seen.size() < 2;
    }));
    EXPECT_EQ(seen, (std::vector<KvUInt32>{98, 3}));
}

TEST_F(InventoryItem, ParametersOfOtherClassesArePassedOver)
{
    KvCComposite& base = *root;
    base.createParameter<int>(errors, SIZE.getCategory(), "plain", 0x10000, 5);
    EXPECT_EQ(root->getParameter(SIZE), nullptr);
    EXPECT_EQ(root->getParameterByOrdinalNumber(0), nullptr);
    KvCInventoryParameter* name = addValue(*root, NAME, 1);
    EXPECT_EQ(root->getParameterByOrdinalNumber(0), name);
    EXPECT_EQ(root->getParameterByOrdinalNumber(1), nullptr);
    EXPECT_EQ(root->getParameterByOrdinalNumber(0), name);
    KvCErrorListPool list;
    EXPECT_EQ(std::string(root->toString(list, 0x80, 0).c_str()),
              "ROOT\n    NAME Int32\n        1\n        No\n        0\n");
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryItem, CreatesParametersWithAllTheirProperties)
{
    KvCInventoryParameter* made =
        root->createParameter<double>(errors, CPU / VOLTAGE_MAX, 1.5, "V", true, 9, yes, no, yes);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->getAddress(), ROOT / CPU / VOLTAGE_MAX);
    EXPECT_STREQ(made->getDescription(), "VOLTAGE_MAX");
    EXPECT_STREQ(made->getUnit(), "V");
    EXPECT_TRUE(made->isModifiable());
    EXPECT_EQ(made->getRelevance(), 9u);
    EXPECT_EQ(made->getCheckFunction(), yes);
    EXPECT_EQ(made->getWriteFunction(), no);
    EXPECT_EQ(made->getUpdateFunction(), yes);
    EXPECT_EQ(addValue(*root, SIZE, 1)->getParent(), root.get());
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryItem, AParameterNeedsAPathARegisteredNameAndAFreePlace)
{
    const auto create = [&](const KvCInventoryAddress& path) {
        errors.clear();
        return root->createParameter<int>(errors, path, 1, "", false, 0, nullptr, nullptr, nullptr);
    };
    EXPECT_EQ(create(THIS_NODE), nullptr);
    EXPECT_EQ(codesOf(errors), Codes{0x1300808});
    EXPECT_EQ(entryOf(errors, 0),
              "KvCInventoryItem::createParameter: Internal error. Korvel Support information: An empty address is not "
              "allowed.");
    EXPECT_EQ(create(CPU / unnamed / SIZE), nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0x130080a, 0x1300809}));
    EXPECT_EQ(entryOf(errors, 1), "KvCInventoryItem::createParameter: Cannot find or create path.");
    EXPECT_EQ(create(CPU / unnamed[2]), nullptr);
    EXPECT_EQ(codesOf(errors), Codes{0x130080a});
    EXPECT_EQ(entryOf(errors, 0),
              "KvCInventoryItem::createParameter: Cannot create item or parameter with non-predefined ID 4711[2].");
    EXPECT_NE(create(CPU / SIZE), nullptr);
    EXPECT_EQ(create(CPU / SIZE), nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0x601802, 0x1300812, 0x130080b}));
    EXPECT_EQ(entryOf(errors, 2), "KvCInventoryItem::createParameter: Cannot create parameter SIZE.");
}

TEST_F(InventoryItem, ReadsAndWritesValuesByAddress)
{
    addValue(*root, CPU / SIZE, 5);
    EXPECT_EQ(root->getValue<int>(errors, CPU / SIZE), 5);
    EXPECT_EQ(root->setValue<int>(errors, CPU / SIZE, 6), root->getParameter(CPU / SIZE));
    EXPECT_EQ(root->getValue<int>(errors, CPU / SIZE), 6);
    addValue(*root, NAME, KvCString("a name"));
    EXPECT_STREQ(root->getValue<KvCString>(errors, NAME).c_str(), "a name");
    EXPECT_NE(root->setValue<KvCString>(errors, NAME, "another"), nullptr);
    EXPECT_STREQ(root->getValue<KvCString>(errors, NAME).c_str(), "another");
    EXPECT_EQ(errors.getErrorCount(), 0u);
    EXPECT_EQ(root->setValue<double>(errors, CPU / SIZE, 1.0), root->getParameter(CPU / SIZE));
    EXPECT_EQ(codesOf(errors), (Codes{0x601001, 0x1301007}));
}

TEST_F(InventoryItem, AMissingParameterIsNamedWithThePathAndTheItem)
{
    KvCInventoryItem* cpu = root->addPath(errors, CPU);
    EXPECT_EQ(cpu->getValue<int>(errors, RAM / SIZE), 0);
    EXPECT_EQ(codesOf(errors), Codes{0x1300801});
    EXPECT_EQ(entryOf(errors, 0), "KvCInventoryItem::getValue: Parameter RAM/SIZE does not exist at item ROOT/CPU.");
    EXPECT_EQ(cpu->setValue<KvCString>(errors, SIZE, "x"), nullptr);
    EXPECT_EQ(entryOf(errors, 1), "KvCInventoryItem::setValue: Parameter SIZE does not exist at item ROOT/CPU.");
    EXPECT_EQ(cpu->getValue<KvCString>(errors, SIZE).length(), 0u);
    EXPECT_EQ(cpu->getValue<KvCVersion>(errors, THIS_NODE), KvCVersion());
}

TEST_F(InventoryItem, CanBeDetachedAndRenamed)
{
    const ItemOwner cpu(root->addPath(errors, CPU));
    root->addPath(errors, RAM);
    cpu->addPath(errors, BIOS);
    cpu->detach();
    EXPECT_EQ(cpu->getParent(), nullptr);
    EXPECT_EQ(root->getFirstSubItem()->getID(), RAM);
    EXPECT_EQ(cpu->getFirstSubItem()->getAddress(), CPU / BIOS);
    cpu->detach();
    cpu->setID(FLASH[4]);
    EXPECT_EQ(cpu->getFirstSubItem()->getAddress(), FLASH[4] / BIOS);
    EXPECT_EQ(root->addItem(THIS_NODE, cpu.get()), root.get());
    EXPECT_EQ(root->getItem(FLASH[4] / BIOS), cpu->getFirstSubItem());
    cpu->setID(ROOT / CPU[7]);
    EXPECT_EQ(root->getItem(CPU[7]), cpu.get());
    cpu->detach();
}

TEST_F(InventoryItem, DropsTheDesignatedValuesOfItsWholeSubtree)
{
    for (const KvCInventoryAddress& path : {SIZE, CPU / SIZE, CPU / RAM / SIZE})
        addValue(*root, path, 1)->setDesignatedValue<int>(errors, 2);
    root->getItem(CPU)->deleteDesignatedValues();
    EXPECT_FALSE(root->getParameter(CPU / SIZE)->isDesignatedValueValid());
    EXPECT_FALSE(root->getParameter(CPU / RAM / SIZE)->isDesignatedValueValid());
    EXPECT_TRUE(root->getParameter(SIZE)->isDesignatedValueValid());
}
