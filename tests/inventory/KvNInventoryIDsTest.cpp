#include "inventory/ids/KvNInventoryIDs.h"

#include <cstdlib>

#include <gtest/gtest.h>

#include "base/MessageTables.h"
#include "inventory/ids/LoadTime.h"
#include "inventory/ids/PredefinedNames.h"
#include "tests/inventory/InventoryTest.h"

namespace {

/** What could be seen before the library's load-time work, at its last step, and behind its unloading. */
struct Witness
{
    Witness()
    {
        compositeTextBefore = KvCErrorManager::getMessageText(0x600800);
        namesBefore = KvNInventoryIDs::Map.getCount();
        KvNLoadTime::setLastStep(lastStep);
        stepsBefore = steps;
    }
    ~Witness()
    {
        if (isUnloadChecked)
            _Exit(KvCErrorManager::getMessageText(0x600800) == nullptr &&
                          KvCErrorManager::getMessageText(0x1300000) != nullptr &&
                          KvCErrorManager::getMessageText(0x1600000) != nullptr
                      ? 0
                      : 1);
    }

    static void lastStep()
    {
        ++steps;
        wasComplete = KvNInventoryIDs::Map.getCount() == 811 && KvNInventoryIDs::THIRDPARTYBOARD.getCategory() == 810 &&
                      KvCErrorManager::getMessageText(0x600800) != nullptr &&
                      KvCErrorManager::getMessageText(0x1300000) != nullptr &&
                      KvCErrorManager::getMessageText(0x1600000) != nullptr;
    }

    const char* compositeTextBefore;
    KvUInt32 namesBefore;
    static inline int stepsBefore;
    static inline int steps = 0;
    static inline bool wasComplete = false;
    static inline bool isUnloadChecked = false;
};

// Made before, and destroyed behind, everything without a priority of its own.
__attribute__((init_priority(101))) Witness witness;

}  // namespace

TEST(InventoryIDs, AllAreRegisteredUnderTheirNames)
{
    EXPECT_EQ(KvNInventoryIDs::Map.getCount(), 811u);
    EXPECT_STREQ(KvNInventoryIDs::Map.get(0), "DUMMY");
    EXPECT_STREQ(KvNInventoryIDs::Map.get(810), "THIRDPARTYBOARD");
    EXPECT_EQ(KvNInventoryIDs::Map.get(811), nullptr);
}

TEST(InventoryIDs, EachConstantIsItsNumberAndReadsAsItsName)
{
    const struct
    {
        KvUInt32 number;
        const char* name;
        const KvCInventoryAddress& constant;
    } rows[] = {
#define KV_INVENTORY_ID(number, NAME) {number, #NAME, KvNInventoryIDs::NAME},
#include "inventory/ids/InventoryIDs.def"
#undef KV_INVENTORY_ID
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.constant, KvCInventoryAddress(row.number, 1));
        EXPECT_STREQ(KvNInventoryIDs::Map.get(row.number), row.name);
        EXPECT_STREQ(KvNInventoryIDs::predefinedName(row.number), row.name);
        EXPECT_TRUE(KvNInventoryIDs::isPredefinedName(row.number, row.name));
        KvCInventoryAddress read;
        read.readFromString(KvCString(row.name));
        EXPECT_EQ(read, row.number == 0 ? KvCInventoryAddress() : row.constant) << row.name;
    }
    EXPECT_EQ(KvNInventoryIDs::predefinedName(811), nullptr);
    EXPECT_FALSE(KvNInventoryIDs::isPredefinedName(811, ""));
    EXPECT_FALSE(KvNInventoryIDs::isPredefinedName(2, nullptr));
    EXPECT_FALSE(KvNInventoryIDs::isPredefinedName(2, "CPUS"));
}

TEST(InventoryIDs, SomeNumbersThatFilesRelyOn)
{
    EXPECT_EQ(KvNInventoryIDs::ROOT.getCategory(), 1u);
    EXPECT_EQ(KvNInventoryIDs::CPU.getCategory(), 2u);
    EXPECT_EQ(KvNInventoryIDs::SERIAL_NUMBER.getCategory(), 50u);
    EXPECT_EQ(KvNInventoryIDs::TEST.getCategory(), 324u);
    EXPECT_EQ(KvNInventoryIDs::MIN.getCategory(), 442u);
    EXPECT_EQ(KvNInventoryIDs::SHARED_DATA.getCategory(), 566u);
    EXPECT_EQ(KvNInventoryIDs::SHARED_DATA_INDEX.getCategory(), 567u);
    EXPECT_EQ(KvNInventoryIDs::INTERFACE.getCategory(), 631u);
    EXPECT_EQ(KvNInventoryIDs::IO_RESOURCE_ID.getCategory(), 804u);
}

TEST(InventoryIDs, ThisNodeIsTheEmptyAddress)
{
    EXPECT_TRUE(KvNInventoryIDs::THIS_NODE.isEmpty());
    EXPECT_STREQ(KvNInventoryIDs::THIS_NODE.toString().c_str(), "");
    EXPECT_STREQ(KvNInventoryIDs::CPU.toString().c_str(), "CPU");
    EXPECT_STREQ((KvNInventoryIDs::ROOT / KvNInventoryIDs::CPU[2]).toString().c_str(), "ROOT/CPU[2]");
}

TEST(InventoryIDs, LoadingRunsTheLastStepOnceWhenAllElseIsThere)
{
    EXPECT_EQ(witness.compositeTextBefore, nullptr);
    EXPECT_EQ(witness.namesBefore, 0u);
    EXPECT_EQ(Witness::stepsBefore, 0);
    EXPECT_EQ(Witness::steps, 1);
    EXPECT_TRUE(Witness::wasComplete);
    KvNLoadTime::setLastStep(Witness::lastStep);
    EXPECT_EQ(Witness::steps, 2);
    KvNLoadTime::setLastStep(nullptr);
    EXPECT_EQ(Witness::steps, 2);
}

TEST(InventoryIDsDeathTest, UnloadingForgetsTheFirstTableAloneAndLast)
{
    EXPECT_EXIT(
        {
            Witness::isUnloadChecked = true;
            std::exit(2);
        },
        testing::ExitedWithCode(0), "");
}
