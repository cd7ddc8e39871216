#include "platform/errorhandling/KvCErrorList.h"

#include "platform/errorhandling/KvCErrorManager.h"

#include <string>

#include <gtest/gtest.h>

#include "TestMessages.h"
#include "tests/support/FailingAllocation.h"

namespace {

const TestMessages testMessages;

void report(KvCErrorList& errors, const char* argument)
{
    errors.setError(TestMessages::withText, 12, "Test::report", "%s", argument);
}

TEST(ErrorList, IsEmptyAtFirst)
{
    const KvCErrorListPool errors;
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(errors.getErrorCode(0), 0U);
    EXPECT_EQ(errors.getErrorLine(0), 0U);
    EXPECT_STREQ(errors.getErrorOrigin(0), "");
    EXPECT_STREQ(errors.getErrorText(0), "");
}

TEST(ErrorList, KeepsEntriesInTheOrderOfReporting)
{
    KvCErrorListPool errors;
    errors.setError(TestMessages::plain, 7, "Reader::open", nullptr);
    errors.setError(TestMessages::withText, 4294967295UL, "Reader::read", "%s", "a.bin");
    ASSERT_EQ(errors.getErrorCount(), 2U);
    EXPECT_EQ(errors.getErrorCode(0), 0x7f00000U);
    EXPECT_EQ(errors.getErrorLine(0), 7U);
    EXPECT_STREQ(errors.getErrorOrigin(0), "Reader::open");
    EXPECT_STREQ(errors.getErrorText(0), "Nothing to add.");
    EXPECT_EQ(errors.getErrorCode(1), 0x7f00001U);
    EXPECT_EQ(errors.getErrorLine(1), 4294967295UL);
    EXPECT_STREQ(errors.getErrorOrigin(1), "Reader::read");
    EXPECT_STREQ(errors.getErrorText(1), "Cannot open a.bin.");
    EXPECT_EQ(errors.getErrorCode(2), 0U);
    EXPECT_EQ(errors.getErrorLine(2), 0U);
    EXPECT_STREQ(errors.getErrorOrigin(2), "");
    EXPECT_STREQ(errors.getErrorText(2), "");
    EXPECT_STREQ(errors.getErrorText(0xFFFFFFFF), "");
}

TEST(ErrorList, FillsEachKindOfArgument)
{
    KvCErrorListPool errors;
    errors.setError(TestMessages::withAll, 1, "T::t", "%s%u%d%i%x", "text", KvUInt32{4294967295U}, KvInt32{-1},
                    KvInt32{-2147483647 - 1}, KvUInt32{0xFFEE0AU});
    EXPECT_STREQ(errors.getErrorText(0), "text 4294967295 -1 -2147483648 ffee0a");
}

TEST(ErrorList, StopsAtAConversionThatIsNone)
{
    for (const char* argTypes : {"%s%q%s", "%s%", "%s s", "%s%%"}) {
        KvCErrorListPool errors;
        errors.setError(TestMessages::withAll, 1, "T::t", argTypes, "first", "second", "third");
        EXPECT_STREQ(errors.getErrorText(0), "first %2 %3 %4 %5") << argTypes;
    }
    KvCErrorListPool errors;
    errors.setError(TestMessages::withAll, 1, "T::t", "%u%u%u%u%u%u%u%u%u", 1, 2, 3, 4, 5, 6, 7, 8, 9);
    EXPECT_STREQ(errors.getErrorText(0), "1 2 3 4 5");
}

TEST(ErrorList, ReplacesPlaceholdersInTheRegisteredTextOnly)
{
    KvCErrorListPool errors;
    errors.setError(TestMessages::repeated, 1, "T::t", "%s%s", "%2", "%1");
    EXPECT_STREQ(errors.getErrorText(0), "%1 before %2, then %1%% and %6");
}

TEST(ErrorList, LeavesPlaceholdersWithoutArgument)
{
    KvCErrorListPool errors;
    errors.setError(TestMessages::withAll, 1, "T::t", "%u%q%s", KvUInt32{5});
    EXPECT_STREQ(errors.getErrorText(0), "5 %2 %3 %4 %5");
}

TEST(ErrorList, TakesNullTextsAsEmpty)
{
    KvCErrorListPool errors;
    errors.setError(TestMessages::withText, 1, nullptr, "%s", static_cast<const char*>(nullptr));
    EXPECT_STREQ(errors.getErrorText(0), "Cannot open .");
    EXPECT_STREQ(errors.getErrorOrigin(0), "");
}

TEST(ErrorList, OwnsTheTextsItWasGiven)
{
    KvCErrorListPool errors;
    std::string origin = "Reader::open";
    std::string argument = "first";
    errors.setError(TestMessages::withText, 1, origin.c_str(), "%s", argument.c_str());
    origin.assign(origin.size(), '#');
    argument.assign(argument.size(), '#');
    EXPECT_STREQ(errors.getErrorOrigin(0), "Reader::open");
    EXPECT_STREQ(errors.getErrorText(0), "Cannot open first.");
}

TEST(ErrorList, SaysSoForACodeWithoutText)
{
    KvCErrorListPool errors;
    errors.setError(0xFEDCBA98, 1, "T::t", "%s", "lost");
    EXPECT_STREQ(errors.getErrorText(0), "Unknown message 0xfedcba98.");
}

TEST(ErrorList, RendersWhenAsked)
{
    static const char* const texts[] = {"Late text about %1."};
    static const KvResRange ranges[] = {{0, 1}, {0xFFFFFFFF, 0}};
    static const KvResText late = {texts, 1, ranges, 1, 0x7e00000};
    KvCErrorListPool errors;
    errors.setError(0x7e00000, 1, "T::t", "%s", "x");
    EXPECT_STREQ(errors.getErrorText(0), "Unknown message 0x7e00000.");
    ASSERT_TRUE(KvCErrorManager::registerMessages(&late));
    EXPECT_STREQ(errors.getErrorText(0), "Late text about x.");
    EXPECT_TRUE(KvCErrorManager::unregisterMessages(&late));
}

TEST(ErrorList, TextsStayWhileOthersAreAskedFor)
{
    KvCErrorListPool errors;
    report(errors, "one");
    report(errors, "two");
    errors.setError(1, 1, "T::t", nullptr);
    const std::string together = std::string(errors.getErrorText(0)) + errors.getErrorText(1);
    const char* first = errors.getErrorText(0);
    const char* second = errors.getErrorText(1);
    const char* unknown = errors.getErrorText(2);
    EXPECT_STREQ(first, "Cannot open one.");
    EXPECT_STREQ(second, "Cannot open two.");
    EXPECT_STREQ(unknown, "Unknown message 0x1.");
    EXPECT_EQ(together, "Cannot open one.Cannot open two.");
}

TEST(ErrorList, KeepsLongTextsWhole)
{
    KvCErrorListPool errors;
    const std::string longName(100000, 'n');
    report(errors, longName.c_str());
    EXPECT_EQ(errors.getErrorText(0), "Cannot open " + longName + ".");
}

TEST(ErrorList, IsEmptyAgainAfterClear)
{
    KvCErrorListPool errors;
    report(errors, "x");
    errors.clear();
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(errors.getErrorCode(0), 0U);
    report(errors, "y");
    EXPECT_STREQ(errors.getErrorText(0), "Cannot open y.");
}

TEST(ErrorList, KeepsManyEntries)
{
    KvCErrorListPool errors;
    for (KvUInt32 i = 0; i < 1000; ++i)
        errors.setError(i + 1, i, "T::t", nullptr);
    ASSERT_EQ(errors.getErrorCount(), 1000U);
    EXPECT_EQ(errors.getErrorCode(0), 1U);
    EXPECT_EQ(errors.getErrorCode(999), 1000U);
}

TEST(ErrorList, CountsWhatIsBeyondItsLimit)
{
    KvCErrorListPool errors;
    for (KvUInt32 i = 0; i < 65538; ++i)
        errors.setError(i + 1, 1, "T::t", nullptr);
    EXPECT_EQ(errors.getErrorCount(), 65538U);
    EXPECT_EQ(errors.getErrorCode(65535), 65536U);
    EXPECT_EQ(errors.getErrorCode(65536), 0U);
}

TEST(ErrorListWithoutMemory, KeepsOneEntryAndCountsTheRest)
{
    KvCErrorListPool errors;
    {
        const FailingAllocation none(1, true);
        report(errors, "kept");
        report(errors, "counted");
        EXPECT_EQ(errors.getErrorCount(), 2U);
        EXPECT_EQ(errors.getErrorCode(0), TestMessages::withText);
        EXPECT_STREQ(errors.getErrorText(0), "Cannot open %1.") << "there is no memory for the filled text";
        EXPECT_EQ(errors.getErrorCode(1), 0U);
        EXPECT_STREQ(errors.getErrorText(1), "");
        EXPECT_STREQ(errors.getErrorOrigin(1), "");
    }
    report(errors, "later");
    EXPECT_EQ(errors.getErrorCount(), 3U);
    EXPECT_STREQ(errors.getErrorText(0), "Cannot open kept.");
    EXPECT_STREQ(errors.getErrorOrigin(0), "Test::report");
    EXPECT_EQ(errors.getErrorLine(0), 12U);
    EXPECT_EQ(errors.getErrorCode(1), 0U);
    EXPECT_STREQ(errors.getErrorText(2), "Cannot open later.");
}

TEST(ErrorListWithoutMemory, FindsEntriesBehindGaps)
{
    KvCErrorListPool errors;
    for (KvUInt32 i = 0; i < 60; ++i) {
        const FailingAllocation failing(i % 3 == 1 ? 1 : 0, true);
        errors.setError(i + 1, 1, "T::t", nullptr);
    }
    EXPECT_EQ(errors.getErrorCount(), 60U);
    for (KvUInt32 i = 0; i < 60; ++i)
        EXPECT_EQ(errors.getErrorCode(i), i % 3 != 1 || i == 1 ? i + 1 : 0) << i;
}

TEST(ErrorListWithoutMemory, CutsWhatDoesNotFit)
{
    KvCErrorListPool errors;
    const std::string longText(1000, 'x');
    {
        const FailingAllocation none(1, true);
        errors.setError(TestMessages::withAll, 3, longText.c_str(), "%s%s%s%s%s", longText.c_str(), "2", "3", "4", "5");
    }
    EXPECT_EQ(errors.getErrorOrigin(0), std::string(79, 'x'));
    EXPECT_EQ(errors.getErrorText(0), std::string(63, 'x') + " 2 3 4 5");

    errors.clear();
    {
        const FailingAllocation none(1, true);
        const char* text = longText.c_str();
        errors.setError(TestMessages::withAll, 3, text, "%s%s%s%s%s", text, text, text, "4", "5");
    }
    const std::string cut(63, 'x');
    EXPECT_EQ(errors.getErrorText(0), cut + " " + cut + " %3 %4 %5") << "what does not fit at all is left out";
}

TEST(ErrorListWithoutMemory, CanBeUsedAgainAfterClear)
{
    KvCErrorListPool errors;
    const FailingAllocation none(1, true);
    report(errors, "a");
    errors.clear();
    report(errors, "b");
    EXPECT_EQ(errors.getErrorCount(), 1U);
    EXPECT_EQ(errors.getErrorCode(0), TestMessages::withText);
}

TEST(ErrorListWithoutMemory, LosesOnlyWhatFailed)
{
    for (std::size_t number = 1;; ++number) {
        KvCErrorListPool errors;
        bool failed = false;
        {
            const FailingAllocation failing(number);
            for (KvUInt32 i = 0; i < 20; ++i)
                errors.setError(i + 1, 1, "T::t", "%u", i);
            failed = failing.hasFailed();
        }
        EXPECT_EQ(errors.getErrorCount(), 20U);
        for (KvUInt32 i = 0; i < 20; ++i)
            EXPECT_EQ(errors.getErrorCode(i), i + 1) << "the spare entry takes the one that failed";
        if (!failed)
            break;
    }
}

TEST(ErrorList, TakesOverWhatAnotherListWasGiven)
{
    KvCErrorListPool errors;
    report(errors, "first");
    KvCErrorListPool other;
    report(other, "second");
    report(other, "third");
    EXPECT_NE(std::string(other.getErrorText(1)).find("third"), std::string::npos) << "rendered once already";
    errors.takeOver(other);
    EXPECT_EQ(other.getErrorCount(), 0U);
    ASSERT_EQ(errors.getErrorCount(), 3U);
    const char* const expected[] = {"first", "second", "third"};
    for (KvUInt32 i = 0; i < 3; ++i) {
        EXPECT_NE(std::string(errors.getErrorText(i)).find(expected[i]), std::string::npos) << i;
        EXPECT_STREQ(errors.getErrorOrigin(i), "Test::report");
        EXPECT_EQ(errors.getErrorLine(i), 12UL);
    }
    report(other, "again");
    EXPECT_EQ(other.getErrorCount(), 1U);
    errors.takeOver(other);
    EXPECT_EQ(errors.getErrorCount(), 4U);
    EXPECT_NE(std::string(errors.getErrorText(3)).find("again"), std::string::npos);
    errors.takeOver(other);
    EXPECT_EQ(errors.getErrorCount(), 4U);
}

TEST(ErrorList, CountsOnWhenItTakesOverMoreThanItKeeps)
{
    KvCErrorListPool& small = KvCErrorManager::createErrorList(0, 0, 0, 0, 3);
    KvCErrorListPool& straight = KvCErrorManager::createErrorList(0, 0, 0, 0, 3);
    KvCErrorListPool other;
    for (KvCErrorListPool* list : {&small, &straight})
        report(*list, "0");
    for (int i = 1; i < 6; ++i) {
        report(other, std::to_string(i).c_str());
        report(straight, std::to_string(i).c_str());
    }
    small.takeOver(other);
    EXPECT_EQ(small.getErrorCount(), 6U);
    for (KvUInt32 i = 0; i < 7; ++i) {
        EXPECT_EQ(small.getErrorCode(i), straight.getErrorCode(i)) << i;
        EXPECT_STREQ(small.getErrorText(i), straight.getErrorText(i)) << i;
    }
    KvCErrorManager::deleteErrorList(small);
    KvCErrorManager::deleteErrorList(straight);
}

TEST(ErrorList, TakesOverWithoutMemoryAndLosesNoCount)
{
    for (std::size_t number = 1;; ++number) {
        KvCErrorListPool other;
        {
            const FailingAllocation failing(1, true);
            report(other, "kept without memory");
        }
        report(other, "kept");
        KvCErrorListPool errors;
        report(errors, "before");
        bool failed = false;
        {
            const FailingAllocation failing(number, true);
            errors.takeOver(other);
            failed = failing.hasFailed();
        }
        EXPECT_EQ(errors.getErrorCount(), 3U) << number;
        EXPECT_EQ(errors.getErrorCode(1), TestMessages::withText + 0U) << number;
        if (!failed) {
            EXPECT_EQ(errors.getErrorCode(2), TestMessages::withText + 0U);
            break;
        }
    }
}

}  // namespace
