#include "tools/common/Text.h"

#include <gtest/gtest.h>

using namespace KvNText;

TEST(Escaping, KeepsOrdinaryTextOfEveryScript)
{
    EXPECT_EQ(escaped("Rack A <bay 0>"), "Rack A <bay 0>");
    EXPECT_EQ(escaped("Gr\xC3\xB6\xC3\x9F"
                      "e \xE2\x82\xAC \xF0\x9F\x98\x80"),
              "Gr\xC3\xB6\xC3\x9F"
              "e \xE2\x82\xAC \xF0\x9F\x98\x80");
}

TEST(Escaping, TakesTheTeethOutOfTerminalSequences)
{
    EXPECT_EQ(escaped("\x1b[2J\x07"), "\\x1b[2J\\x07");
    EXPECT_EQ(escaped("\x7f"), "\\x7f");
    EXPECT_EQ(escaped("\xC2\x9B"
                      "31m"),
              "\\u009b31m");
    EXPECT_EQ(escaped("\xE2\x80\xAE"
                      "txt"),
              "\\u202etxt");
}

TEST(Escaping, KeepsOneEntryOnOneLine)
{
    EXPECT_EQ(escaped("a\nb\r\tc"), "a\\nb\\r\\tc");
    EXPECT_EQ(escaped("a\nb\tc\r", true), "a\nb\tc\\r");
}

TEST(Escaping, ShowsBytesThatAreNoText)
{
    EXPECT_EQ(escaped("\xFF\xC3("), "\\xff\\xc3(");
    EXPECT_EQ(escaped("\xED\xA0\x80"), "\\xed\\xa0\\x80");
    EXPECT_EQ(escaped(std::string_view("a\0b", 3)), "a\\x00b");
}

TEST(Csv, QuotesOnlyWhatNeedsIt)
{
    EXPECT_EQ(csvLine({"a", "b c", ""}), "a,b c,\r\n");
    EXPECT_EQ(csvLine({"a,b", "say \"x\"", "two\nlines", "cr\r"}),
              "\"a,b\",\"say \"\"x\"\"\",\"two\nlines\",\"cr\r\"\r\n");
}

TEST(Suggestions, FindTheWordThatWasMeant)
{
    const std::vector<std::string> names = {"show", "section", "scan", "discover", "locks", "lock"};
    EXPECT_EQ(nearest("shwo", names), "show");
    EXPECT_EQ(nearest("sacn", names), "scan");
    EXPECT_EQ(nearest("disc", names), "discover");
    EXPECT_EQ(nearest("LOCKS", names), "locks");
    EXPECT_EQ(nearest("frobnicate", names), "");
    EXPECT_EQ(nearest("", names), "");
    EXPECT_EQ(nearest(std::string(100000, 'x'), names), "");
}

TEST(Patterns, AreLookedForAnywhereOrMatchTheWhole)
{
    EXPECT_TRUE(matches("SERIAL_NUMBER", "serial"));
    EXPECT_TRUE(matches("SERIAL_NUMBER", "NUMBER"));
    EXPECT_TRUE(matches("SERIAL_NUMBER", ""));
    EXPECT_FALSE(matches("SERIAL_NUMBER", "SERIALS"));
    EXPECT_TRUE(matches("TEST_I8", "TEST_*"));
    EXPECT_TRUE(matches("TEST_I8", "*_i?"));
    EXPECT_FALSE(matches("TEST_I16", "*_i?"));
    EXPECT_FALSE(matches("MY_TEST_I8", "TEST_*"));
    EXPECT_TRUE(matches("", "*"));
    EXPECT_FALSE(matches("", "?"));
}

TEST(Tables, AlignTheirColumns)
{
    Table table({{"serial", true}, {"name"}, {"address"}});
    table.add({"4711", "IO-1", "10.0.0.2"});
    table.add({"12",
               "\xC3\x9C"
               "ber",
               "10.0.0.3"});
    EXPECT_EQ(table.text(),
              "serial  name  address\n"
              "  4711  IO-1  10.0.0.2\n"
              "    12  \xC3\x9C"
              "ber  10.0.0.3\n");
    EXPECT_EQ(table.text("<", ">").substr(0, 23), "<serial  name  address>");
}

TEST(Tables, EscapeWhatBoardsSay)
{
    Table table({{"name"}});
    table.add({"a\x1b[31m\nb"});
    EXPECT_EQ(table.text(), "name\na\\x1b[31m\\nb\n");
}
