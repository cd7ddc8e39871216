#include "inventory/KvCInventoryTagMap.h"

#include <deque>
#include <string>

#include <gtest/gtest.h>

#include "tests/inventory/InventoryTest.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FailingAllocation.h"

TEST(InventoryTagMap, IsEmptyAtFirst)
{
    const KvCInventoryTagMap map;
    EXPECT_EQ(map.getCount(), 0u);
    EXPECT_EQ(map.get(0), nullptr);
    EXPECT_EQ(map.find("", 0), 0u);
    EXPECT_EQ(map.find("CPU", 3), 0u);
}

TEST(InventoryTagMap, KeepsThePointersOfItsNames)
{
    KvCInventoryTagMap map;
    const char first[] = "FIRST";
    const char second[] = "SECOND";
    EXPECT_EQ(map.add(0, first), 0u);
    EXPECT_EQ(map.add(1, second), 1u);
    EXPECT_EQ(map.getCount(), 2u);
    EXPECT_EQ(map.get(0), first);
    EXPECT_EQ(map.get(1), second);
    EXPECT_EQ(map.get(2), nullptr);
    EXPECT_EQ(map.get(4294967295u), nullptr);
}

TEST(InventoryTagMap, ACategoryOutOfSequenceIsReportedAndStoredAtTheNextPlace)
{
    CapturedOutput output;
    KvCInventoryTagMap map;
    for (KvUInt32 i = 0; i < 3; ++i)
        map.add(i, "NAME");
    EXPECT_TRUE(output.messages.empty());
    EXPECT_EQ(map.add(5, "LATE"), 5u);
    EXPECT_EQ(map.getCount(), 4u);
    EXPECT_STREQ(map.get(3), "LATE");
    EXPECT_EQ(map.get(5), nullptr);
    ASSERT_EQ(output.messages.size(), 1u);
    EXPECT_FALSE(output.messages[0].warning);
    EXPECT_EQ(output.messages[0].code, 0x1301801u);
    EXPECT_EQ(output.messages[0].origin, "KvCInventoryTagMap::add");
    EXPECT_EQ(output.messages[0].text,
              "Internal error. Korvel Support information: Invalid category value for inventory ID LATE.");
}

TEST(InventoryTagMap, AMapThatCannotGrowReportsAtOnceAndStoresNothing)
{
    CapturedOutput output;
    KvCInventoryTagMap map;
    {
        const FailingAllocation first(1);
        EXPECT_EQ(map.add(0, "FIRST"), 0u);
    }
    EXPECT_EQ(map.getCount(), 0u);
    ASSERT_EQ(output.messages.size(), 1u);
    EXPECT_EQ(output.messages[0].code, 0x1301800u);
    EXPECT_EQ(output.messages[0].origin, "KvCInventoryTagMap::add");
    EXPECT_EQ(output.messages[0].text,
              "Internal error. Korvel Support information: Cannot allocate memory during initialization of inventory "
              "ID FIRST.");
    EXPECT_EQ(map.add(0, "FIRST"), 0u);
    EXPECT_EQ(map.getCount(), 1u);
}

TEST(InventoryTagMap, GrowsAt1024NamesAndFindsThemAllAsBefore)
{
    CapturedOutput output;
    KvCInventoryTagMap map;
    std::deque<std::string> names;
    for (KvUInt32 i = 0; i < 5000; ++i) {
        names.push_back("N" + std::to_string(i));
        if (i == 1024) {
            const FailingAllocation all(1, true);
            map.add(i, names.back().c_str());
            EXPECT_EQ(map.getCount(), 1024u);
            EXPECT_EQ(map.find("N1023", 5), 1023u);
        }
        map.add(i, names.back().c_str());
    }
    EXPECT_EQ(output.messages.size(), 1u);
    EXPECT_EQ(map.getCount(), 5000u);
    for (KvUInt32 i = 1; i < 5000; ++i)
        EXPECT_EQ(map.find(names[i].c_str(), names[i].size()), i);
    EXPECT_EQ(map.find("N0", 2), 0u);
    EXPECT_EQ(map.find("N5000", 5), 0u);
}

TEST(InventoryTagMap, FindsTheFirstOfEqualNamesFromOneOn)
{
    KvCInventoryTagMap map;
    map.add(0, "SAME");
    EXPECT_EQ(map.find("SAME", 4), 0u);
    map.add(1, "OTHER");
    map.add(2, "SAME");
    map.add(3, "SAME");
    map.add(4, nullptr);
    map.add(5, "");
    EXPECT_EQ(map.find("SAME", 4), 2u);
    EXPECT_EQ(map.find("OTHER", 5), 1u);
    EXPECT_EQ(map.find("OTHERS", 5), 1u);
    EXPECT_EQ(map.find("OTHER", 4), 0u);
    EXPECT_EQ(map.find("OTHER\0", 6), 0u);
    EXPECT_EQ(map.find("", 0), 5u);
    EXPECT_EQ(map.get(4), nullptr);
}
