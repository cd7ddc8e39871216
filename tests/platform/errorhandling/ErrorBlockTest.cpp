#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestMessages.h"
#include "platform/errorhandling/KvCErrorList.h"
#include "tests/support/FailingAllocation.h"

namespace {

using Bytes = std::vector<unsigned char>;

const TestMessages testMessages;

/** Builds a block piece by piece. */
struct Block
{
    Block& number(KvUInt32 value)
    {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<unsigned char>(value >> shift));
        return *this;
    }
    Block& text(const std::string& text)
    {
        number(static_cast<KvUInt32>(text.size()));
        bytes.insert(bytes.end(), text.begin(), text.end());
        return *this;
    }
    Bytes bytes;
};

bool read(KvCErrorList& errors, const Bytes& bytes)
{
    return errors.deSerialize(bytes.data(), static_cast<unsigned long>(bytes.size()));
}

Bytes twoEntries()
{
    return Block()
        .number(1)
        .number(2)
        .number(TestMessages::withText)
        .number(12)
        .text("Reader::open")
        .text("%s")
        .number(1)
        .text("a.bin")
        .number(TestMessages::plain)
        .number(13)
        .text("Reader::read")
        .text("")
        .number(0)
        .bytes;
}

TEST(ErrorBlock, OfAnEmptyListHasEightBytes)
{
    const KvCErrorListPool errors;
    EXPECT_EQ(errors.serialize(), (Bytes{0, 0, 0, 1, 0, 0, 0, 0}));
}

TEST(ErrorBlock, IsTheDocumentedOne)
{
    KvCErrorListPool errors;
    errors.setError(0x1600805, 0x1234, "A::b", "%s%x", "1.2", KvUInt32{0xAB});
    const Bytes expected = {
        0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01,  // version, one entry
        0x01, 0x60, 0x08, 0x05, 0x00, 0x00, 0x12, 0x34,  // code, line
        0x00, 0x00, 0x00, 0x04, 'A',  ':',  ':',  'b',   // origin
        0x00, 0x00, 0x00, 0x04, '%',  's',  '%',  'x',   // argument types
        0x00, 0x00, 0x00, 0x02,                          // two arguments
        0x00, 0x00, 0x00, 0x03, '1',  '.',  '2',         //
        0x00, 0x00, 0x00, 0x02, 'a',  'b',
    };
    EXPECT_EQ(errors.serialize(), expected);
}

TEST(ErrorBlock, ReadAndWrittenIsTheSame)
{
    KvCErrorListPool errors;
    ASSERT_TRUE(read(errors, twoEntries()));
    ASSERT_EQ(errors.getErrorCount(), 2U);
    EXPECT_EQ(errors.getErrorCode(0), TestMessages::withText);
    EXPECT_EQ(errors.getErrorLine(0), 12U);
    EXPECT_STREQ(errors.getErrorOrigin(0), "Reader::open");
    EXPECT_STREQ(errors.getErrorText(0), "Cannot open a.bin.");
    EXPECT_STREQ(errors.getErrorOrigin(1), "Reader::read");
    EXPECT_STREQ(errors.getErrorText(1), "Nothing to add.");
    EXPECT_EQ(errors.serialize(), twoEntries());
}

TEST(ErrorBlock, IsAppended)
{
    KvCErrorListPool errors;
    errors.setError(TestMessages::plain, 1, "T::t", nullptr);
    ASSERT_TRUE(read(errors, twoEntries()));
    EXPECT_EQ(errors.getErrorCount(), 3U);
    EXPECT_STREQ(errors.getErrorText(1), "Cannot open a.bin.");
}

TEST(ErrorBlock, WithoutBytesIsAnEmptyList)
{
    KvCErrorListPool errors;
    EXPECT_TRUE(errors.deSerialize(nullptr, 0));
    EXPECT_TRUE(errors.deSerialize(twoEntries().data(), 0));
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_FALSE(errors.deSerialize(nullptr, 8));
}

TEST(ErrorBlock, CutAnywhereIsMalformed)
{
    const Bytes whole = twoEntries();
    for (std::size_t size = 1; size < whole.size(); ++size) {
        KvCErrorListPool errors;
        EXPECT_FALSE(read(errors, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)))) << size;
        EXPECT_EQ(errors.getErrorCount(), 0U);
    }
}

TEST(ErrorBlock, WithBytesLeftOverIsMalformed)
{
    KvCErrorListPool errors;
    Bytes bytes = twoEntries();
    bytes.push_back(0);
    EXPECT_FALSE(read(errors, bytes));
    bytes = {0, 0, 0, 1, 0, 0, 0, 0, 0};
    EXPECT_FALSE(read(errors, bytes));
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST(ErrorBlock, OfAnotherVersionIsMalformed)
{
    KvCErrorListPool errors;
    EXPECT_FALSE(read(errors, Block().number(2).number(0).bytes));
    EXPECT_FALSE(read(errors, Block().number(0).number(0).bytes));
    EXPECT_FALSE(read(errors, Block().number(0x01000000).number(0).bytes));
}

TEST(ErrorBlock, WithExaggeratedNumbersIsMalformed)
{
    for (const KvUInt32 claimed : {0xFFFFFFFFU, 0xFFFFFFF0U, 0x80000000U, 0x7FFFFFFFU, 6U, 4U}) {
        KvCErrorListPool errors;
        const Bytes entries = Block().number(1).number(claimed).number(1).number(1).bytes;
        EXPECT_FALSE(read(errors, entries));
        Block origin;
        origin.number(1).number(1).number(1).number(1).number(claimed);
        for (const char c : {'h', 'e', 'l', 'l', 'o'})
            origin.bytes.push_back(static_cast<unsigned char>(c));
        origin.text("").number(0);
        EXPECT_FALSE(read(errors, origin.bytes));
        const Bytes arguments =
            Block().number(1).number(1).number(1).number(1).text("").text("").number(claimed).text("x").bytes;
        EXPECT_FALSE(read(errors, arguments));
        EXPECT_EQ(errors.getErrorCount(), 0U);
    }
}

TEST(ErrorBlock, MayHoldMoreArgumentsThanATextHasPlaceholders)
{
    Block block;
    block.number(1).number(1).number(TestMessages::withText).number(0).text("").text("").number(20);
    for (int i = 0; i < 20; ++i)
        block.text(std::to_string(i));
    KvCErrorListPool errors;
    ASSERT_TRUE(read(errors, block.bytes));
    EXPECT_STREQ(errors.getErrorText(0), "Cannot open 0.");
    EXPECT_EQ(errors.serialize(), block.bytes);
}

TEST(ErrorBlock, WithMoreArgumentsThanAnyMessageHasIsMalformed)
{
    for (const KvUInt32 count : {64U, 65U, 1000000U}) {
        Block block;
        block.number(1).number(1).number(TestMessages::withText).number(0).text("").text("").number(count);
        block.bytes.resize(block.bytes.size() + 4U * count);
        KvCErrorListPool errors;
        EXPECT_EQ(read(errors, block.bytes), count == 64) << count;
        EXPECT_EQ(errors.getErrorCount(), count == 64 ? 1U : 0U);
    }
}

TEST(ErrorBlock, TextsMayHoldNuls)
{
    const std::string text("a\0b", 3);
    const Bytes bytes = Block()
                            .number(1)
                            .number(1)
                            .number(TestMessages::withText)
                            .number(0)
                            .text(text)
                            .text("%s")
                            .number(1)
                            .text(text)
                            .bytes;
    KvCErrorListPool errors;
    ASSERT_TRUE(read(errors, bytes));
    EXPECT_STREQ(errors.getErrorOrigin(0), "a");
    EXPECT_STREQ(errors.getErrorText(0), "Cannot open a.");
    EXPECT_EQ(errors.serialize(), bytes);
}

TEST(ErrorBlock, HasNoBytesWhenMemoryIsOut)
{
    KvCErrorListPool errors;
    ASSERT_TRUE(read(errors, twoEntries()));
    const FailingAllocation none(1, true);
    EXPECT_TRUE(errors.serialize().empty());
}

TEST(ErrorBlock, ReadWithoutMemoryIsCounted)
{
    KvCErrorListPool errors;
    {
        const FailingAllocation none(1, true);
        EXPECT_TRUE(read(errors, twoEntries()));
    }
    EXPECT_EQ(errors.getErrorCount(), 2U);
    EXPECT_STREQ(errors.getErrorText(0), "Cannot open a.bin.");
    EXPECT_EQ(errors.getErrorCode(1), 0U);
}

TEST(ErrorBlock, HoldsOnlyWhatWasKept)
{
    KvCErrorListPool errors;
    for (KvUInt32 i = 0; i < 6; ++i) {
        const FailingAllocation failing(i == 1 || i == 3 ? 1 : 0, true);
        errors.setError(i + 1, 0, "", nullptr);
    }
    Block expected;
    expected.number(1).number(5);
    for (const KvUInt32 code : {1U, 2U, 3U, 5U, 6U})
        expected.number(code).number(0).text("").text("").number(0);
    EXPECT_EQ(errors.serialize(), expected.bytes);

    errors.clear();
    errors.setError(1, 0, "", nullptr);
    {
        const FailingAllocation none(1, true);
        errors.setError(2, 0, "", nullptr);
    }
    Block atTheEnd;
    atTheEnd.number(1).number(2);
    for (const KvUInt32 code : {1U, 2U})
        atTheEnd.number(code).number(0).text("").text("").number(0);
    EXPECT_EQ(errors.serialize(), atTheEnd.bytes);
}

}  // namespace
