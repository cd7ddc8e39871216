#include "base/KvCString.h"

#include <climits>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "base/MessageTables.h"
#include "base/Report.h"
#include "tests/support/FailingAllocation.h"

namespace {

const char* const longText = "a text that is longer than fifteen characters";

std::string text(const KvCString& string)
{
    return string.c_str();
}

TEST(String, IsSixteenBytes)
{
    static_assert(sizeof(KvCString) == 16);
}

TEST(String, IsEmptyInAllItsForms)
{
    const KvCString none;
    const KvCString fromNull(static_cast<const char*>(nullptr));
    const KvCString fromEmpty("");
    for (const KvCString* string : {&none, &fromNull, &fromEmpty}) {
        EXPECT_EQ(string->length(), 0U);
        EXPECT_STREQ(string->c_str(), "");
        EXPECT_EQ(string->countChar('a'), 0U);
        EXPECT_TRUE(*string == none && *string == fromNull && *string == fromEmpty);
        EXPECT_FALSE(*string != none);
        EXPECT_TRUE(*string != KvCString("a"));
    }
}

TEST(String, HoldsTextsOfAnyLength)
{
    for (std::size_t length = 0; length < 40; ++length) {
        const std::string expected(length, 'x');
        const KvCString string(expected.c_str());
        EXPECT_EQ(string.length(), length);
        EXPECT_EQ(text(string), expected);
        EXPECT_EQ(string.countChar('x'), length);
    }
}

TEST(String, TakesAPartOfAText)
{
    EXPECT_EQ(text(KvCString("abcdef", 3)), "abc");
    EXPECT_EQ(text(KvCString("ab", 10)), "ab");
    EXPECT_EQ(text(KvCString("abc", 0U)), "");
    EXPECT_EQ(text(KvCString(static_cast<const char*>(nullptr), 5)), "");
    const char unterminated[] = {'a', 'b', 'c'};
    EXPECT_EQ(text(KvCString(unterminated, 3)), "abc");
    EXPECT_EQ(text(KvCString(longText, 20)), std::string(longText, 20));
}

TEST(String, HoldsNumbersInDecimal)
{
    EXPECT_EQ(text(KvCString(0UL)), "0");
    EXPECT_EQ(text(KvCString(4294967295UL)), "4294967295");
    EXPECT_EQ(text(KvCString(ULONG_MAX)), std::to_string(ULONG_MAX));
}

TEST(String, IsCopiedDeep)
{
    for (const char* original : {"short", longText}) {
        KvCString first(original);
        const KvCString copy(first);
        KvCString assigned("something else that is long enough");
        assigned = first;
        EXPECT_NE(copy.c_str(), first.c_str());
        first = "changed";
        EXPECT_EQ(text(copy), original);
        EXPECT_EQ(text(assigned), original);
    }
}

TEST(String, IsMoved)
{
    for (const char* original : {"short", longText}) {
        KvCString first(original);
        KvCString moved(std::move(first));
        EXPECT_EQ(text(moved), original);
        KvCString assigned(longText);
        assigned = std::move(moved);
        EXPECT_EQ(text(assigned), original);
        KvCString& same = assigned;
        assigned = std::move(same);
        EXPECT_EQ(text(assigned), original);
    }
}

TEST(String, IsAssigned)
{
    KvCString string(longText);
    KvCString& same = string;
    string = same;
    EXPECT_EQ(text(string), longText);
    string = "short";
    EXPECT_EQ(text(string), "short");
    string = longText;
    EXPECT_EQ(text(string), longText);
    string = KvCString();
    EXPECT_EQ(text(string), "");
    string = longText;
    string = static_cast<const char*>(nullptr);
    EXPECT_TRUE(string == KvCString());
}

TEST(String, IsComparedByteForByte)
{
    EXPECT_TRUE(KvCString("abc") == KvCString("abc"));
    EXPECT_TRUE(KvCString("abc") != KvCString("abd"));
    EXPECT_TRUE(KvCString("abc") != KvCString("ab"));
    EXPECT_TRUE(KvCString(longText) == KvCString(longText));
    EXPECT_TRUE(KvCString(longText) != KvCString(longText, 30));
    EXPECT_TRUE(KvCString(longText) != KvCString("a"));
    const std::string sameLength = std::string(longText).substr(1) + "!";
    EXPECT_TRUE(KvCString(longText) != KvCString(sameLength.c_str()));
}

TEST(String, IsConcatenated)
{
    const KvCString a("abc");
    EXPECT_EQ(text(a + KvCString("def")), "abcdef");
    EXPECT_EQ(text(a + "def"), "abcdef");
    EXPECT_EQ(text(a + static_cast<const char*>(nullptr)), "abc");
    EXPECT_EQ(text(KvCString() + a), "abc");
    EXPECT_EQ(text(KvCString() + KvCString()), "");
    EXPECT_EQ(text(a + longText), std::string("abc") + longText);
    EXPECT_EQ(text(KvCString(longText) + KvCString(longText)), std::string(longText) + longText);
    EXPECT_EQ(text(KvCString("12345678") + "1234567"), "123456781234567");
    EXPECT_EQ(text(a), "abc");
}

TEST(String, CountsCharacters)
{
    EXPECT_EQ(KvCString("1.2.3").countChar('.'), 2U);
    EXPECT_EQ(KvCString("1.2.3").countChar('\0'), 0U);
    EXPECT_EQ(KvCString("1.2.3").countChar('x'), 0U);
}

TEST(StringSplit, KeepsEmptyPieces)
{
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"x", {"x"}},
        {"", {""}},
        {"/a/", {"", "a", ""}},
        {"a//b", {"a", "", "b"}},
        {"a piece longer than fifteen/b", {"a piece longer than fifteen", "b"}},
    };
    for (const auto& [whole, pieces] : cases) {
        unsigned long count = 99;
        KvCString* split = KvCString(whole).split('/', &count);
        ASSERT_EQ(count, pieces.size()) << whole;
        for (std::size_t i = 0; i < pieces.size(); ++i)
            EXPECT_EQ(text(split[i]), pieces[i]);
        delete[] split;
    }
}

TEST(StringSplit, OfAStringWithoutTextIsOneEmptyPiece)
{
    unsigned long count = 0;
    KvCString* pieces = KvCString().split(',', &count);
    ASSERT_EQ(count, 1U);
    EXPECT_TRUE(pieces[0] == KvCString());
    delete[] pieces;
}

TEST(StringSplit, CountsInEitherWidth)
{
    KvUInt32 count = 9;
    KvCString* pieces = KvCString("a/b/").split('/', &count);
    ASSERT_EQ(count, 3U);
    EXPECT_STREQ(pieces[1].c_str(), "b");
    delete[] pieces;
}

TEST(StringSplit, WithoutMemoryIsNullAndNotReported)
{
    KvNReport::masterList().clear();
    const KvCString string("a,b");
    const FailingAllocation none(1, true);
    unsigned long count = 99;
    EXPECT_EQ(string.split(',', &count), nullptr);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(KvNReport::masterList().getErrorCount(), 0U);
}

class StringWithoutMemory : public testing::Test
{
protected:
    StringWithoutMemory()
    {
        KvNMessageTables::registerComposite();
        master.clear();
    }
    ~StringWithoutMemory() override { master.clear(); }

    void expectReported(const char* origin)
    {
        EXPECT_EQ(master.getErrorCount(), 1U);
        EXPECT_EQ(master.getErrorCode(0), 0x603000U);
        EXPECT_STREQ(master.getErrorOrigin(0), origin);
        EXPECT_STREQ(master.getErrorText(0),
                     "Memory allocation failed. Not enough memory for requested operation. "
                     "Cannot allocate string buffer.");
        EXPECT_GT(master.getErrorLine(0), 0U);
        master.clear();
    }

    KvCErrorListPool& master = KvNReport::masterList();
};

TEST_F(StringWithoutMemory, IsEmptyWhenItCannotBeConstructed)
{
    const KvCString original(longText);
    const FailingAllocation none(1, true);
    EXPECT_EQ(text(KvCString(longText)), "");
    expectReported("KvCString::KvCString");
    EXPECT_EQ(text(KvCString(longText, 20)), "");
    expectReported("KvCString::KvCString");
    EXPECT_EQ(text(KvCString(original)), "");
    expectReported("KvCString::KvCString");
    if (sizeof(unsigned long) > 4) {
        EXPECT_EQ(text(KvCString(ULONG_MAX)), "");
        expectReported("KvCString::KvCString");
    }
}

TEST_F(StringWithoutMemory, IsEmptyWhenItCannotBeAssigned)
{
    const KvCString original(longText);
    KvCString string("old");
    const FailingAllocation none(1, true);
    string = original;
    EXPECT_EQ(text(string), "");
    expectReported("KvCString::operator =");
    string = "old";
    string = longText;
    EXPECT_EQ(text(string), "");
    expectReported("KvCString::operator =");
}

TEST_F(StringWithoutMemory, IsEmptyWhenItCannotBeConcatenated)
{
    const KvCString a("ten bytes.");
    const FailingAllocation none(1, true);
    EXPECT_EQ(text(a + a), "");
    expectReported("KvCString::operator +");
    EXPECT_EQ(text(a + longText), "");
    expectReported("KvCString::operator +");
    EXPECT_EQ(text(a), "ten bytes.");
}

TEST_F(StringWithoutMemory, HoldsShortTexts)
{
    const FailingAllocation none(1, true);
    const KvCString fifteen("fifteen chars..");
    const KvCString copy(fifteen);
    KvCString assigned;
    assigned = copy;
    EXPECT_EQ(text(assigned), "fifteen chars..");
    EXPECT_EQ(text(KvCString("ab") + "cd"), "abcd");
    EXPECT_EQ(text(KvCString(4294967295UL)), "4294967295");
    EXPECT_EQ(none.count(), 0U);
    EXPECT_EQ(master.getErrorCount(), 0U);
}

TEST(StringHelpers, CompareAsSignedBytes)
{
    EXPECT_GT(KvCString::strcmp("a", "\x80"), 0);
    EXPECT_LT(KvCString::strcmp("\x80", "a"), 0);
    EXPECT_EQ(KvCString::strcmp("a", "\x80"), 97 + 128);
    EXPECT_EQ(KvCString::strcmp("abc", "abc"), 0);
    EXPECT_EQ(KvCString::strcmp("abc", "abd"), -1);
    EXPECT_EQ(KvCString::strcmp("ab", "abc"), -'c');
    EXPECT_EQ(KvCString::strcmp("", ""), 0);
}

TEST(StringHelpers, CopyTexts)
{
    char target[6] = "xxxxx";
    EXPECT_EQ(KvCString::strcpy(target, "ab"), target);
    EXPECT_EQ(std::string(target, 5), std::string("ab\0xx", 5));
    KvCString::strcpy(target, nullptr);
    EXPECT_EQ(std::string(target, 5), std::string("\0b\0xx", 5));
}

TEST(StringHelpers, MeasureTexts)
{
    EXPECT_EQ(KvCString::strlen("abc"), 3U);
    EXPECT_EQ(KvCString::strlen(""), 0U);
    EXPECT_EQ(KvCString::strlen(nullptr), 0U);
}

TEST(StringHelpers, CopyAndFill)
{
    char target[6] = "xxxxx";
    EXPECT_EQ(KvCString::strncpy(target, "ab", 5), target);
    EXPECT_EQ(std::string(target, 6), std::string("ab\0\0\0\0", 6));
    KvCString::strcpy(target, "xxxxx");
    KvCString::strncpy(target, nullptr, 3);
    EXPECT_EQ(std::string(target, 5), std::string("\0\0\0xx", 5));
    KvCString::strcpy(target, "xxxxx");
    KvCString::strncpy(target, "abcdef", 3);
    EXPECT_EQ(std::string(target, 5), "abcxx");
    KvCString::strncpy(target, "q", 0);
    EXPECT_EQ(std::string(target, 5), "abcxx");
}

TEST(StringHelpers, FindTexts)
{
    char hay[] = "abcabd";
    EXPECT_EQ(KvCString::strstr(hay, "abd"), hay + 3);
    const char* constant = hay;
    EXPECT_EQ(KvCString::strstr(constant, "abd"), constant + 3);
    EXPECT_EQ(KvCString::strstr(constant, "abx"), nullptr);
    EXPECT_EQ(KvCString::strstr(constant, ""), constant);
    EXPECT_EQ(KvCString::strstr(static_cast<const char*>(""), ""), nullptr);
    EXPECT_EQ(KvCString::strstr(static_cast<const char*>(nullptr), "a"), nullptr);
    EXPECT_EQ(KvCString::strstr(constant, nullptr), nullptr);
    EXPECT_EQ(KvCString::strstr(static_cast<const char*>("ab"), "abc"), nullptr);
}

}  // namespace
