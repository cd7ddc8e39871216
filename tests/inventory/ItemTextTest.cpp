#include <gtest/gtest.h>

#include "base/Report.h"
#include "tests/inventory/InventoryTest.h"
#include "tests/support/FailingAllocation.h"

using namespace KvNInventoryIDs;

namespace {

class ItemText : public testing::Test
{
protected:
    std::string text(int flags, int level = 0)
    {
        KvCErrorListPool list;
        const std::string result = item->toString(list, flags, level).c_str();
        EXPECT_EQ(list.getErrorCount(), 0u);
        testing::internal::CaptureStdout();
        item->printTree(list, flags, level);
        std::fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), result);
        return result;
    }
    /** The value of a string parameter as it stands in the markup, between its tags. */
    std::string valueText(const char* value, int flags = 0)
    {
        item->setValue<KvCString>(errors, NAME, value);
        const std::string whole = text(flags | 0x1);
        const std::size_t first = whole.find("<VALUE>") + 7;
        return whole.substr(first, whole.find("</VALUE>") - first);
    }
    /** A parameter whose ID has no registered name. */
    void addUnnamed(const char* description)
    {
        item->addParameter(errors, THIS_NODE,
                           new KvCInventoryParameter(errors, KvCInventoryAddress(4711), description, 5, "", true, 7));
    }

    KvCErrorListPool errors;
    ItemOwner item = makeItem(BOARD[2]);
};

/** BOARD[2] with SERIAL_NUMBER = 1234. */
class ItemTextOfANumber : public ItemText
{
protected:
    ItemTextOfANumber() { addValue(*item, SERIAL_NUMBER, 1234u); }
};

}  // namespace

TEST_F(ItemTextOfANumber, WithoutFlagsIsMarkup)
{
    EXPECT_EQ(text(0),
              "<ITEM ID=\"BOARD[2]\">\n"
              "    <PARAM ID=\"SERIAL_NUMBER\" Type=\"UInt32\">\n"
              "        <VALUE>1234</VALUE>\n"
              "        <ISMODIFIABLE>No</ISMODIFIABLE>\n"
              "        <RELEVANCE>0</RELEVANCE>\n"
              "    </PARAM>\n"
              "</ITEM>\n");
}

TEST_F(ItemTextOfANumber, StandsAtTheLevelGiven)
{
    EXPECT_EQ(text(0x8, 2), "        <ITEM ID=\"BOARD[2]\">\n        </ITEM>\n");
    EXPECT_EQ(text(0x8, -3), "<ITEM ID=\"BOARD[2]\">\n</ITEM>\n");
    EXPECT_EQ(text(0xC0000, 1),
              "    <ITEM ID=\"BOARD[2]\">\n"
              "        <PARAM ID=\"SERIAL_NUMBER\" Type=\"UInt32\">\n"
              "            <VALUE>1234</VALUE>\n"
              "        </PARAM>\n"
              "    </ITEM>\n");
}

TEST_F(ItemTextOfANumber, FlatHasEveryLineAtTheLevelGiven)
{
    item->addPath(errors, CPU / RAM);
    EXPECT_EQ(text(0xC0001, 1),
              "    <ITEM ID=\"BOARD[2]\">\n"
              "    <PARAM ID=\"SERIAL_NUMBER\" Type=\"UInt32\">\n"
              "    <VALUE>1234</VALUE>\n"
              "    </PARAM>\n"
              "    <ITEM ID=\"CPU\">\n"
              "    <ITEM ID=\"RAM\">\n"
              "    </ITEM>\n"
              "    </ITEM>\n"
              "    </ITEM>\n");
}

TEST_F(ItemTextOfANumber, TheUnitLineIsThereForAUnitOrOnRequest)
{
    EXPECT_EQ(text(0xC0002),
              "<ITEM ID=\"BOARD[2]\">\n"
              "    <PARAM ID=\"SERIAL_NUMBER\" Type=\"UInt32\">\n"
              "        <VALUE>1234</VALUE>\n"
              "        <UNIT></UNIT>\n"
              "    </PARAM>\n"
              "</ITEM>\n");
    item->getParameter(SERIAL_NUMBER)->setUnit("<&%s");
    EXPECT_EQ(text(0xD0010),
              "    <PARAM ID=\"SERIAL_NUMBER\" Type=\"UInt32\">\n"
              "        <UNIT><&%s</UNIT>\n"
              "    </PARAM>\n");
    EXPECT_EQ(text(0xE0092), "    SERIAL_NUMBER UInt32\n        1234\n");
    EXPECT_EQ(text(0xD0080), "BOARD[2]\n    SERIAL_NUMBER UInt32\n        <&%s\n");
}

TEST_F(ItemText, TheIndexIsThereUnlessItIsOneOrOnRequest)
{
    EXPECT_EQ(text(0x80), "BOARD[2]\n");
    EXPECT_EQ(text(0x84), "BOARD[2]\n");
    EXPECT_EQ(text(0xA0), "BOARD.2\n");
    item->setID(BOARD);
    EXPECT_EQ(text(0x80), "BOARD\n");
    EXPECT_EQ(text(0x84), "BOARD[1]\n");
    EXPECT_EQ(text(0xA0), "BOARD\n");
    EXPECT_EQ(text(0xA4), "BOARD.1\n");
    EXPECT_EQ(text(0x24), "<ITEM ID=\"BOARD.1\">\n</ITEM>\n");
    item->setID(BOARD[0]);
    EXPECT_EQ(text(0x80), "BOARD[0]\n");
}

TEST_F(ItemTextOfANumber, ParametersOrItemLinesCanBeLeftOut)
{
    item->addPath(errors, CPU);
    EXPECT_EQ(text(0x8), "<ITEM ID=\"BOARD[2]\">\n    <ITEM ID=\"CPU\">\n    </ITEM>\n</ITEM>\n");
    EXPECT_EQ(text(0xC0010),
              "    <PARAM ID=\"SERIAL_NUMBER\" Type=\"UInt32\">\n"
              "        <VALUE>1234</VALUE>\n"
              "    </PARAM>\n");
    EXPECT_EQ(text(0x18), "");
}

TEST_F(ItemTextOfANumber, IdsCanBeNumbers)
{
    EXPECT_EQ(text(0xD0040), "<ITEM ID=\"" + std::to_string(BOARD.getCategory()) +
                                 "[2]\">\n    <PARAM ID=\"50\" Type=\"UInt32\">\n    </PARAM>\n</ITEM>\n");
}

TEST_F(ItemTextOfANumber, PlainHasOneLineForEachThing)
{
    item->addPath(errors, CPU);
    EXPECT_EQ(text(0x80),
              "BOARD[2]\n"
              "    SERIAL_NUMBER UInt32\n"
              "        1234\n"
              "        No\n"
              "        0\n"
              "    CPU\n");
}

TEST_F(ItemTextOfANumber, PartsCanBeLeftOut)
{
    EXPECT_EQ(text(0xD0200), "<ITEM>\n    <PARAM ID=\"SERIAL_NUMBER\" Type=\"UInt32\">\n    </PARAM>\n</ITEM>\n");
    EXPECT_EQ(text(0xD1010), "    <PARAM Type=\"UInt32\">\n    </PARAM>\n");
    EXPECT_EQ(text(0xD8010), "    <PARAM ID=\"SERIAL_NUMBER\">\n    </PARAM>\n");
    EXPECT_EQ(text(0xD9010), "    <PARAM>\n    </PARAM>\n");
    EXPECT_EQ(text(0x50010),
              "    <PARAM ID=\"SERIAL_NUMBER\" Type=\"UInt32\">\n        <RELEVANCE>0</RELEVANCE>\n    </PARAM>\n");
    EXPECT_EQ(text(0x90010),
              "    <PARAM ID=\"SERIAL_NUMBER\" Type=\"UInt32\">\n        <ISMODIFIABLE>No</ISMODIFIABLE>\n"
              "    </PARAM>\n");
    // Only when nothing is left of it a plain header line goes as a whole.
    EXPECT_EQ(text(0xD0280), "\n    SERIAL_NUMBER UInt32\n");
    EXPECT_EQ(text(0xD0680), "    SERIAL_NUMBER UInt32\n");
    EXPECT_EQ(text(0xC9090), "    \n        1234\n");
    EXPECT_EQ(text(0xCB090), "        1234\n");
}

TEST_F(ItemTextOfANumber, DescriptionsStandWhereAskedFor)
{
    EXPECT_EQ(text(0xD4800),
              "<ITEM ID=\"BOARD[2]\" Descr=\"BOARD\">\n"
              "    <PARAM ID=\"SERIAL_NUMBER\" Descr=\"SERIAL_NUMBER\" Type=\"UInt32\">\n"
              "    </PARAM>\n"
              "</ITEM>\n");
    EXPECT_EQ(text(0xD4880), "BOARD[2] BOARD\n    SERIAL_NUMBER SERIAL_NUMBER UInt32\n");
    EXPECT_EQ(text(0xD5A80), "BOARD\n    SERIAL_NUMBER UInt32\n");
    EXPECT_EQ(text(0xD6C00),
              "<ITEM ID=\"BOARD[2]\">\n    <PARAM ID=\"SERIAL_NUMBER\" Type=\"UInt32\">\n    </PARAM>\n</ITEM>\n");
}

TEST_F(ItemText, AnIdWithoutNameIsItsDescriptionOrItsNumber)
{
    addUnnamed("some text");
    EXPECT_EQ(text(0xD0010), "    <PARAM ID=\"some text\" Descr=\"some text\" Type=\"Int32\">\n    </PARAM>\n");
    EXPECT_EQ(text(0xD2010), "    <PARAM ID=\"some text\" Type=\"Int32\">\n    </PARAM>\n");
    EXPECT_EQ(text(0x2D2010), "    <PARAM ID=\"4711\" Type=\"Int32\">\n    </PARAM>\n");
    EXPECT_EQ(text(0xD2050), "    <PARAM ID=\"4711\" Type=\"Int32\">\n    </PARAM>\n");
    // In the plain form the blank depends on the flags alone.
    EXPECT_EQ(text(0xD1090), "    some text Int32\n");
    EXPECT_EQ(text(0xD3090), "    Int32\n");
    item->setID(KvCInventoryAddress(4712, 3));
    EXPECT_EQ(text(0x8), "<ITEM ID=\"BOARD[3]\" Descr=\"BOARD\">\n</ITEM>\n");
    EXPECT_EQ(text(0x200008), "<ITEM ID=\"4712[3]\" Descr=\"BOARD\">\n</ITEM>\n");
    EXPECT_EQ(text(0x48), "<ITEM ID=\"4712[3]\" Descr=\"BOARD\">\n</ITEM>\n");
    EXPECT_EQ(text(0x288), "BOARD\n");
    EXPECT_EQ(text(0x408), "<ITEM ID=\"BOARD[3]\">\n</ITEM>\n");
}

TEST_F(ItemText, AMissingDescriptionIsEmpty)
{
    addUnnamed(nullptr);
    EXPECT_EQ(text(0xD0010), "    <PARAM ID=\"\" Descr=\"\" Type=\"Int32\">\n    </PARAM>\n");
}

TEST_F(ItemText, ShowsValuesOfEveryType)
{
    addValue(*item, TEST_I8, static_cast<char>(-5));
    addValue(*item, TEST_UI64, static_cast<KvUInt64>(-1));
    addValue(*item, TEST_F32, 0.1f);
    addValue(*item, TEST_F64, 0.1);
    addValue(*item, TEST_V, KvCVersion(3, 1, 2, 2, 4, 7));
    EXPECT_EQ(text(0xE0090 | 0x1),
              "TEST_I8 Int8\n-5\nTEST_UI64 ULong64\n18446744073709551615\nTEST_F32 Float32\n0.1\n"
              "TEST_F64 Float64\n0.10000000000000001\nTEST_V Version\n3.1.2b4p7\n");
}

TEST_F(ItemText, ShowsFlagsAndNumbersOfAParameter)
{
    addValue(*item, SIZE, 1);
    item->getParameter(SIZE)->setModifiableFlag(true);
    item->getParameter(SIZE)->setRelevance(4294967295u);
    EXPECT_EQ(text(0x20090 | 0x1), "SIZE Int32\n1\nYes\n4294967295\n");
}

TEST_F(ItemText, EscapesWhatMarkupCannotHold)
{
    addValue(*item, NAME, KvCString());
    EXPECT_EQ(valueText(""), "");
    EXPECT_EQ(valueText("a<b&c>"), "a&lt;b&amp;c>");
    EXPECT_EQ(valueText("x]]>"), "x]]&gt;]>");
    EXPECT_EQ(valueText("]]>"), "]]&gt;]>");
    EXPECT_EQ(valueText("]]]>"), "]]]&gt;]>");
    EXPECT_EQ(valueText("]]>y"), "]]>y");
    EXPECT_EQ(valueText("\x01\x08\t\x0b\x0c\r\x0e\x1f \x7f\x80\xc3\xbc\xff%s"), "..\t..\r.. \x7f....%s");
    EXPECT_EQ(valueText("a<b\x01]]>", 0x100000), "a<b\x01]]>");
}

TEST_F(ItemText, SplitsStringsOfSeveralLines)
{
    addValue(*item, NAME, KvCString("one\n<two>\nthree"));
    const int only = 0xE0010;
    EXPECT_EQ(text(only),
              "    <PARAM ID=\"NAME\" Type=\"String\">\n"
              "        <VALUE>\n"
              "            one\n"
              "            &lt;two>\n"
              "            three\n"
              "        </VALUE>\n"
              "    </PARAM>\n");
    EXPECT_EQ(text(only | 0x1),
              "<PARAM ID=\"NAME\" Type=\"String\">\n<VALUE>\none\n&lt;two>\nthree\n</VALUE>\n</PARAM>\n");
    EXPECT_EQ(text(only | 0x100),
              "    <PARAM ID=\"NAME\" Type=\"String\">\n        <VALUE>one\n&lt;two>\nthree</VALUE>\n    </PARAM>\n");
    EXPECT_EQ(text(only | 0x80),
              "    NAME String\n        \n            one\n            &lt;two>\n            three\n\n");
    item->setValue<KvCString>(errors, NAME, "one\n");
    EXPECT_EQ(text(only),
              "    <PARAM ID=\"NAME\" Type=\"String\">\n"
              "        <VALUE>\n"
              "            one\n"
              "        </VALUE>\n"
              "    </PARAM>\n");
    item->setValue<KvCString>(errors, NAME, "\n]]>");
    EXPECT_EQ(text(only | 0x1), "<PARAM ID=\"NAME\" Type=\"String\">\n<VALUE>\n\n]]&gt;]>\n</VALUE>\n</PARAM>\n");
}

TEST_F(ItemText, LongTextsAreWrittenWhole)
{
    const std::string value(5000, 'v');
    const std::string unit(3000, 'u');
    item->createParameter<KvCString>(errors, NAME, value.c_str(), unit.c_str(), false, 0, nullptr, nullptr, nullptr);
    EXPECT_EQ(text(0xC0091), "NAME String\n" + value + "\n" + unit + "\n");
}

TEST_F(ItemText, OnlyTheSubtreeIsWritten)
{
    item->addPath(errors, CPU / RAM);
    item->addPath(errors, BIOS);
    KvCErrorListPool list;
    EXPECT_STREQ(item->getItem(CPU)->toString(list, 0x80, 0).c_str(), "CPU\n    RAM\n");
}

TEST_F(ItemTextOfANumber, OutOfMemoryIsReportedAndGivesTheEmptyText)
{
    addValue(*item, NAME, KvCString(std::string(4000, 'x').c_str()));
    addValue(*item, TEST_V, KvCVersion(200, 100, 100, 2, 40000, 50000));
    std::size_t failures = 0;
    for (std::size_t n = 1;; ++n) {
        KvCErrorListPool list;
        KvCString result;
        bool hasFailed;
        {
            const FailingAllocation one(n);
            result = item->toString(list, 0, 0);
            hasFailed = one.hasFailed();
        }
        if (!hasFailed)
            break;
        ++failures;
        ASSERT_GT(list.getErrorCount(), 0u);
        EXPECT_EQ(list.getErrorCode(list.getErrorCount() - 1), 0x1300810u);
        EXPECT_EQ(entryOf(list, list.getErrorCount() - 1),
                  "KvCInventoryItem::toString: Internal error. Korvel Support information: Cannot generate string "
                  "representation of inventory tree.");
        EXPECT_EQ(result.length(), 0u);
    }
    EXPECT_GE(failures, 3u);
    KvNReport::masterList().clear();
}
