#include <gtest/gtest.h>

#include "base/Report.h"
#include "tests/inventory/InventoryTest.h"

using namespace KvNInventoryIDs;

namespace {

/** The parameters that hooks were called with, in order, and the context they got. */
std::vector<std::string> calls;
KvCInventoryItem* context;

bool record(KvCInventoryItem* given, const KvCInventoryParameter* parameter)
{
    calls.push_back(parameter->getAddress().toString().c_str());
    context = given;
    return true;
}
bool accept(KvCErrorListPool&, KvCInventoryItem* item, KvCInventoryParameter* parameter)
{
    return record(item, parameter);
}
bool reject(KvCErrorListPool&, KvCInventoryItem* item, KvCInventoryParameter* parameter)
{
    return !record(item, parameter);
}
bool report(KvCErrorListPool& errors, KvCInventoryItem* item, KvCInventoryParameter* parameter)
{
    KV_REPORT(errors, FileReadFailed, "report");
    return record(item, parameter);
}

class ItemApply : public testing::Test
{
protected:
    using Hook = KvCInventoryParameter::Hook;

    ItemApply() { calls.clear(); }
    KvCInventoryParameter* add(const KvCInventoryAddress& path, Hook check, Hook write, Hook update)
    {
        return root->createParameter<int>(errors, path, 1, "", true, 0, check, write, update);
    }

    KvCErrorListPool errors;
    ItemOwner root = makeItem(ROOT);
};

}  // namespace

TEST_F(ItemApply, PassesVisitChildrenBeforeTheirParentAndParametersInOrder)
{
    const ItemOwner other = makeItem(BOARD);
    for (const KvCInventoryAddress& path :
         {SIZE, NAME, CPU / SIZE, CPU / RAM / NAME, CPU / RAM / SIZE, CPU / FLASH / SIZE, BIOS / SIZE})
        add(path, accept, accept, accept)->setDesignatedValue<int>(errors, 2);
    const std::vector<std::string> order = {"ROOT/CPU/RAM/NAME", "ROOT/CPU/RAM/SIZE", "ROOT/CPU/FLASH/SIZE",
                                            "ROOT/CPU/SIZE",     "ROOT/BIOS/SIZE",    "ROOT/SIZE",
                                            "ROOT/NAME"};
    root->check(errors, other.get());
    EXPECT_EQ(calls, order);
    EXPECT_EQ(context, other.get());
    calls.clear();
    root->apply(errors, nullptr);
    EXPECT_EQ(calls, order);
    EXPECT_EQ(context, nullptr);
    calls.clear();
    root->update(errors, root.get());
    EXPECT_EQ(calls, order);
    EXPECT_EQ(context, root.get());
    EXPECT_EQ(root->getValue<int>(errors, CPU / RAM / SIZE), 2);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(ItemApply, CheckAsksOnlyWhereThereIsAProposalAndAHook)
{
    KvCInventoryParameter* unproposed = add(SIZE, reject, nullptr, nullptr);
    KvCInventoryParameter* unhooked = add(NAME, nullptr, nullptr, nullptr);
    unhooked->setDesignatedValue<int>(errors, 2);
    root->check(errors, nullptr);
    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(unhooked->isDesignatedValueValid());
    EXPECT_FALSE(unproposed->isDesignatedValueValid());
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(ItemApply, ARejectedProposalIsDroppedAndSkippedByApply)
{
    KvCInventoryParameter* rejected = add(SIZE, reject, accept, nullptr);
    KvCInventoryParameter* complaining = add(NAME, report, accept, nullptr);
    rejected->setDesignatedValue<int>(errors, 2);
    complaining->setDesignatedValue<int>(errors, 2);
    root->check(errors, nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0x1300811, 0x1300005}));
    EXPECT_EQ(entryOf(errors, 0), "KvCInventoryItem::check: Check failed for parameter ROOT/SIZE.");
    EXPECT_FALSE(rejected->isDesignatedValueValid());
    EXPECT_TRUE(complaining->isDesignatedValueValid());
    calls.clear();
    root->apply(errors, nullptr);
    EXPECT_EQ(calls, std::vector<std::string>{"ROOT/NAME"});
    EXPECT_EQ(rejected->getValue<int>(errors), 1);
    EXPECT_EQ(complaining->getValue<int>(errors), 2);
}

TEST_F(ItemApply, ApplyWithoutWriteHookDropsTheProposal)
{
    KvCInventoryParameter* parameter = add(CPU / SIZE, nullptr, nullptr, nullptr);
    parameter->setDesignatedValue<int>(errors, 2);
    root->apply(errors, nullptr);
    EXPECT_EQ(codesOf(errors), Codes{0x1300806});
    EXPECT_EQ(entryOf(errors, 0),
              "KvCInventoryItem::apply: Internal error. Korvel Support information: Cannot change value of parameter "
              "ROOT/CPU/SIZE. Feature is not implemented.");
    EXPECT_FALSE(parameter->isDesignatedValueValid());
    EXPECT_EQ(parameter->getValue<int>(errors), 1);
}

TEST_F(ItemApply, AWriteThatReportsAnErrorLeavesTheCurrentValueAndGoesOn)
{
    KvCInventoryParameter* failing = add(SIZE, nullptr, report, nullptr);
    KvCInventoryParameter* good = add(NAME, nullptr, reject, nullptr);
    failing->setDesignatedValue<int>(errors, 2);
    good->setDesignatedValue<int>(errors, 2);
    root->apply(errors, nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0x1300005, 0x1300804}));
    EXPECT_EQ(entryOf(errors, 1), "KvCInventoryItem::apply: Cannot write new value for parameter ROOT/SIZE.");
    EXPECT_FALSE(failing->isDesignatedValueValid());
    EXPECT_EQ(failing->getValue<int>(errors), 1);
    EXPECT_EQ(good->getValue<int>(errors), 2);
}

TEST_F(ItemApply, AProposalThatCannotBeAdoptedStays)
{
    // The write hook itself drops the proposal, so there is nothing left to adopt.
    KvCInventoryParameter* parameter = add(
        SIZE, nullptr,
        [](KvCErrorListPool&, KvCInventoryItem*, KvCInventoryParameter* own) {
            own->deleteDesignatedValue();
            return true;
        },
        nullptr);
    parameter->setDesignatedValue<int>(errors, 2);
    root->apply(errors, nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0x1301004, 0x1300805}));
    EXPECT_EQ(entryOf(errors, 1), "KvCInventoryItem::apply: Cannot adopt new value for parameter ROOT/SIZE.");
}

TEST_F(ItemApply, UpdateReportsEachHookThatReportsAnError)
{
    add(CPU / SIZE, nullptr, nullptr, report);
    add(SIZE, nullptr, nullptr, reject);
    add(NAME, accept, accept, nullptr);
    root->update(errors, nullptr);
    EXPECT_EQ(calls, (std::vector<std::string>{"ROOT/CPU/SIZE", "ROOT/SIZE"}));
    EXPECT_EQ(codesOf(errors), (Codes{0x1300005, 0x1300807}));
    EXPECT_EQ(entryOf(errors, 1), "KvCInventoryItem::update: Cannot update value for parameter ROOT/CPU/SIZE.");
}

TEST_F(ItemApply, APassOverAPartOfTheTreeStaysInIt)
{
    add(SIZE, nullptr, nullptr, accept);
    add(CPU / SIZE, nullptr, nullptr, accept);
    add(RAM / SIZE, nullptr, nullptr, accept);
    root->getItem(CPU)->update(errors, nullptr);
    EXPECT_EQ(calls, std::vector<std::string>{"ROOT/CPU/SIZE"});
}
