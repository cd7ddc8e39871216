#include "platform/errorhandling/MessageTable.h"

#include <cstddef>

#include <gtest/gtest.h>

namespace {

struct Rows
{
    static constexpr KvUInt32 base = 0x500000;
    static constexpr KvNMessageTable::Row rows[] = {
        {1, 0, "", "a"}, {1, 1, "%s%u", "%2 and %1"}, {3, 2, "", "late"}, {4, 0, "%x", "0x%1"}};
};
using Table = KvNMessageTable::Table<Rows, 2>;

TEST(MessageTable, IsMadeOfItsRows)
{
    constexpr KvResText table = Table::record();
    static_assert(table.base == 0x500000 && table.rangeCount == 7 && table.textCount == 6);
    EXPECT_STREQ(table.texts[0], "a");
    EXPECT_STREQ(table.texts[1], "%2 and %1");
    EXPECT_EQ(table.texts[2], nullptr);
    EXPECT_EQ(table.texts[3], nullptr);
    EXPECT_STREQ(table.texts[4], "late");
    EXPECT_STREQ(table.texts[5], "0x%1");
}

TEST(MessageTable, EndsItsRangesWithAMark)
{
    constexpr KvResRange expected[] = {{0, 0}, {0, 2}, {2, 0}, {2, 3}, {5, 1}, {6, 0}, {6, 0}};
    static_assert(Table::hasRanges(expected));
    constexpr KvResRange shorter[] = {{0, 0}, {0, 2}};
    static_assert(!Table::hasRanges(shorter));
    EXPECT_EQ(Table::record().ranges[7].first, 0xFFFFFFFFU);
    EXPECT_EQ(Table::record().ranges[7].count, 0U);
}

TEST(MessageTable, IsCheckedByTheCompiler)
{
    using namespace KvNMessageTable;
    static_assert(countArguments("") == 0 && countArguments("%s%u%d%i%x") == 5);
    static_assert(countArguments("%q") == -1 && countArguments("s") == -1 && countArguments("%") == -1);
    static_assert(placeholdersAgree("%s", "a %1 b %1") && placeholdersAgree("", "100 %"));
    static_assert(!placeholdersAgree("%s", "a") && !placeholdersAgree("%s%s", "%2") && !placeholdersAgree("", "%1"));
    static_assert(!placeholdersAgree("%s", "%1 %6"));
    constexpr Row twice[] = {{0, 0, "", "a"}, {0, 0, "", "b"}};
    constexpr Row backwards[] = {{1, 0, "", "a"}, {0, 5, "", "b"}};
    constexpr Row tooFar[] = {{0, 0x800, "", "a"}};
    static_assert(wellFormed(Rows::rows) && !wellFormed(twice) && !wellFormed(backwards) && !wellFormed(tooFar));
}

TEST(MessageTable, HasTheLayoutThatIsRegistered)
{
    if (sizeof(void*) != 8)
        GTEST_SKIP() << "the layout is that of hosts with pointers of 64 bits";
    EXPECT_EQ(offsetof(KvResText, texts), 0U);
    EXPECT_EQ(offsetof(KvResText, textCount), 8U);
    EXPECT_EQ(offsetof(KvResText, ranges), 16U);
    EXPECT_EQ(offsetof(KvResText, rangeCount), 24U);
    EXPECT_EQ(offsetof(KvResText, base), 28U);
    EXPECT_EQ(sizeof(KvResText), 32U);
    EXPECT_EQ(sizeof(KvResRange), 8U);
}

}  // namespace
