#include "platform/errorhandling/KvCErrorManager.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestMessages.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FailingAllocation.h"

namespace {

TEST(ErrorManager, IsOne)
{
    KvCErrorManager* manager = KvCErrorManager::s_pErrorManager;
    if (manager == nullptr)
        manager = KvCErrorManager::getSingleton();
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(KvCErrorManager::getSingleton(), manager);
    EXPECT_EQ(KvCErrorManager::s_pErrorManager, manager);
    EXPECT_EQ(&KvCErrorManager::s_pErrorManager->getMasterErrorList(), &KvCErrorManager::getMasterErrorList());
    EXPECT_EQ(&manager->getMasterErrorList(), &KvCErrorManager::getMasterErrorList());
}

TEST(Messages, OfThePlatformAreKnownFromTheStart)
{
    EXPECT_STREQ(KvCErrorManager::getMessageText(0x401),
                 "Memory allocation failed. Not enough memory for requested operation.");
    EXPECT_EQ(KvCErrorManager::getMessageText(0), nullptr);
    EXPECT_EQ(KvCErrorManager::getMessageText(0x400), nullptr);
    EXPECT_EQ(KvCErrorManager::getMessageText(0x800), nullptr);
    EXPECT_NE(KvCErrorManager::getMessageText(0x100000), nullptr);
    EXPECT_NE(KvCErrorManager::getMessageText(0x200801), nullptr);
    EXPECT_NE(KvCErrorManager::getMessageText(0x300000), nullptr);
}

TEST(Messages, AreKnownWhileTheirTableIsRegistered)
{
    const KvResText table = {TestMessages::texts, 4, TestMessages::ranges, 3, 0x7d00000};
    EXPECT_EQ(KvCErrorManager::getMessageText(0x7d00000), nullptr);
    ASSERT_TRUE(KvCErrorManager::registerMessages(&table));
    EXPECT_STREQ(KvCErrorManager::getMessageText(0x7d00000), "Nothing to add.");
    EXPECT_STREQ(KvCErrorManager::getMessageText(0x7d00001), "Cannot open %1.");
    EXPECT_EQ(KvCErrorManager::getMessageText(0x7d00002), nullptr) << "past the end of a range";
    EXPECT_EQ(KvCErrorManager::getMessageText(0x7d00800), nullptr) << "an empty range";
    EXPECT_STREQ(KvCErrorManager::getMessageText(0x7d01000), "%1 %2 %3 %4 %5");
    EXPECT_EQ(KvCErrorManager::getMessageText(0x7d01002), nullptr);
    EXPECT_EQ(KvCErrorManager::getMessageText(0x7d01800), nullptr) << "no such range";
    EXPECT_TRUE(KvCErrorManager::unregisterMessages(&table));
    EXPECT_EQ(KvCErrorManager::getMessageText(0x7d00000), nullptr);
    EXPECT_FALSE(KvCErrorManager::unregisterMessages(&table));
}

TEST(Messages, AreRegisteredOnce)
{
    const TestMessages messages;
    const KvResText sameBase = {TestMessages::texts, 4, TestMessages::ranges, 3, 0x7f00000};
    EXPECT_FALSE(KvCErrorManager::registerMessages(&TestMessages::table));
    EXPECT_FALSE(KvCErrorManager::registerMessages(&sameBase));
    EXPECT_FALSE(KvCErrorManager::unregisterMessages(&sameBase));
    EXPECT_FALSE(KvCErrorManager::unregisterMessages(nullptr));
}

TEST(Messages, OfAMalformedTableAreRefused)
{
    const char* const texts[] = {"a", "b"};
    const KvResRange ranges[] = {{0, 1}, {1, 1}, {0xFFFFFFFF, 0}};
    const KvResRange beyond[] = {{0, 1}, {1, 2}, {0xFFFFFFFF, 0}};
    const KvResRange wrapping[] = {{0, 1}, {0xFFFFFFFF, 2}, {0xFFFFFFFF, 0}};
    const KvResRange tooMany[] = {{0, 2}, {0, 2049}, {0xFFFFFFFF, 0}};
    const KvResText refused[] = {
        {texts, 2, ranges, 2, 0x7e00001},   {texts, 1, ranges, 2, 0x7e00000},     {texts, 2, beyond, 2, 0x7e00000},
        {texts, 2, wrapping, 2, 0x7e00000}, {nullptr, 2, ranges, 2, 0x7e00000},   {texts, 2, nullptr, 2, 0x7e00000},
        {texts, 2, ranges, 513, 0x7e00000}, {texts, 4000, tooMany, 2, 0x7e00000},
    };
    for (const KvResText& table : refused)
        EXPECT_FALSE(KvCErrorManager::registerMessages(&table)) << &table - refused;
    EXPECT_FALSE(KvCErrorManager::registerMessages(nullptr));
}

TEST(Messages, OfManyTablesFindRoomOrAreRefused)
{
    const char* const texts[] = {"text"};
    const KvResRange ranges[] = {{0, 1}, {0xFFFFFFFF, 0}};
    std::vector<KvResText> tables;
    for (KvUInt32 i = 0; i < 40; ++i)
        tables.push_back({texts, 1, ranges, 1, 0x10000000 + i * 0x100000});
    std::size_t registered = 0;
    {
        const FailingAllocation none(1, true);
        while (KvCErrorManager::registerMessages(&tables[registered]))
            ++registered;
    }
    EXPECT_LT(registered, 16U);
    for (std::size_t i = registered; i < tables.size(); ++i)
        EXPECT_TRUE(KvCErrorManager::registerMessages(&tables[i]));
    for (const KvResText& table : tables)
        EXPECT_STREQ(KvCErrorManager::getMessageText(table.base), "text");
    for (const KvResText& table : tables)
        EXPECT_TRUE(KvCErrorManager::unregisterMessages(&table));
    EXPECT_EQ(KvCErrorManager::getMessageText(0x10000000), nullptr);
}

TEST(Sending, DeliversEntriesInOrderAndEmptiesTheList)
{
    const TestMessages messages;
    CapturedOutput output;
    KvCErrorListPool errors;
    errors.setError(TestMessages::withText, 1, "A::b", "%s", "x\n");
    errors.setError(0x99, 2, "C::d", nullptr);
    KvCErrorManager::sendErrorList(errors, 0);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(errors.getErrorCode(0), 0U);
    ASSERT_EQ(output.messages.size(), 2U);
    EXPECT_FALSE(output.messages[0].warning);
    EXPECT_EQ(output.messages[0].code, TestMessages::withText);
    EXPECT_EQ(output.messages[0].origin, "A::b");
    EXPECT_EQ(output.messages[0].text, "Cannot open x\n.");
    EXPECT_EQ(output.messages[1].code, 0x99U);
    EXPECT_EQ(output.messages[1].text, "Unknown message 0x99.");
    KvCErrorManager::sendErrorList(errors, 0);
    EXPECT_EQ(output.messages.size(), 2U);
}

TEST(Sending, TellsHowManyEntriesWereNotKept)
{
    CapturedOutput output;
    KvCErrorListPool& errors = KvCErrorManager::createErrorList(0, 0, 2, 1, 2);
    for (KvUInt32 code = 1; code <= 5; ++code)
        errors.setError(code, 1, "T::t", nullptr);
    KvCErrorManager::sendErrorList(errors, 0);
    KvCErrorManager::deleteErrorList(errors);
    ASSERT_EQ(output.messages.size(), 3U);
    EXPECT_EQ(output.messages[0].code, 1U);
    EXPECT_EQ(output.messages[1].code, 2U);
    EXPECT_EQ(output.messages[2].code, 0x402U);
    EXPECT_EQ(output.messages[2].text,
              "Internal error. Korvel Support information: 3 more messages could not be kept.");
}

TEST(Sending, DeliversWhatWasReportedWithoutMemoryInItsPlace)
{
    CapturedOutput output;
    KvCErrorListPool errors;
    for (KvUInt32 i = 1; i <= 4; ++i) {
        const FailingAllocation failing(i == 2 || i == 4 ? 1 : 0, true);
        errors.setError(i, 1, "T::t", nullptr);
    }
    KvCErrorManager::sendErrorList(errors, 0);
    ASSERT_EQ(output.messages.size(), 4U);
    EXPECT_EQ(output.messages[0].code, 1U);
    EXPECT_EQ(output.messages[1].code, 2U);
    EXPECT_EQ(output.messages[2].code, 3U);
    EXPECT_EQ(output.messages[3].code, 0x402U);
}

TEST(Sending, OfTheMasterListMayReportToItAgain)
{
    KvCErrorManager::getMasterErrorList().clear();
    KvCErrorManager::setOutput(
        [](void*, bool, KvUInt32, const char*, const char*) {
            KvCErrorManager::getMasterErrorList().setError(2, 1, "T::output", nullptr);
        },
        nullptr);
    KvCErrorManager::getMasterErrorList().setError(1, 1, "T::t", nullptr);
    KvCErrorManager::sendErrorList(KvCErrorManager::getMasterErrorList(), 0);
    KvCErrorManager::setOutput(nullptr, nullptr);
    EXPECT_EQ(KvCErrorManager::getMasterErrorList().getErrorCount(), 1U);
    EXPECT_EQ(KvCErrorManager::getMasterErrorList().getErrorCode(0), 2U);
    KvCErrorManager::getMasterErrorList().clear();
}

TEST(Warnings, AreDeliveredAtOnce)
{
    const TestMessages messages;
    CapturedOutput output;
    KvCErrorManager::sendWarning(TestMessages::withText, 5, "A::b", "%s", "w");
    ASSERT_EQ(output.messages.size(), 1U);
    EXPECT_TRUE(output.messages[0].warning);
    EXPECT_EQ(output.messages[0].code, TestMessages::withText);
    EXPECT_EQ(output.messages[0].origin, "A::b");
    EXPECT_EQ(output.messages[0].text, "Cannot open w.");
}

TEST(Warnings, AreDeliveredWithoutMemory)
{
    const TestMessages messages;
    CapturedOutput output;
    {
        const FailingAllocation none(1, true);
        KvCErrorManager::sendWarning(TestMessages::plain, 5, "A::b", nullptr);
    }
    ASSERT_EQ(output.messages.size(), 1U);
    EXPECT_EQ(output.messages[0].text, "Nothing to add.");
}

TEST(DefaultOutput, IsOneLineAnEntryOnStandardError)
{
    const TestMessages messages;
    KvCErrorListPool errors;
    errors.setError(TestMessages::withText, 1, "A::b", "%s", "file");
    errors.setError(TestMessages::plain, 1, "", nullptr);
    testing::internal::CaptureStderr();
    KvCErrorManager::sendErrorList(errors, 0);
    KvCErrorManager::sendWarning(0x1600804, 1, "C::d", nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "error 0x7f00001: Cannot open file. [A::b]\n"
              "error 0x7f00000: Nothing to add.\n"
              "warning 0x1600804: Unknown message 0x1600804. [C::d]\n");
}

TEST(DefaultOutput, ShowsControlCharactersEscaped)
{
    const TestMessages messages;
    KvCErrorListPool errors;
    errors.setError(
        TestMessages::withText, 1, "A\x1b::b", "%s",
        "\x1b[2J\n\r\t\x7f \xc2\x9b \x9b \xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80 \xc0\xaf \xed\xa0\x80 \xe2\x82");
    testing::internal::CaptureStderr();
    KvCErrorManager::sendErrorList(errors, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "error 0x7f00001: Cannot open \\x1b[2J\\x0a\\x0d\\x09\\x7f \\xc2\\x9b \\x9b \xc3\xa4 \xe2\x82\xac "
              "\xf0\x9f\x98\x80 \\xc0\\xaf \\xed\\xa0\\x80 \\xe2\\x82. [A\\x1b::b]\n");
}

TEST(DefaultOutput, ShowsLongTextsWhole)
{
    const TestMessages messages;
    KvCErrorListPool errors;
    const std::string name(5000, 'n');
    errors.setError(TestMessages::withText, 1, "", "%s", name.c_str());
    testing::internal::CaptureStderr();
    KvCErrorManager::sendErrorList(errors, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "error 0x7f00001: Cannot open " + name + ".\n");
}

TEST(PrivateList, KeepsUpToItsLimit)
{
    KvCErrorListPool& errors = KvCErrorManager::createErrorList(0, 0, 1, 2, 5);
    for (KvUInt32 code = 1; code <= 7; ++code)
        errors.setError(code, 1, "T::t", nullptr);
    EXPECT_EQ(errors.getErrorCount(), 7U);
    EXPECT_EQ(errors.getErrorCode(4), 5U);
    EXPECT_EQ(errors.getErrorCode(5), 0U);
    KvCErrorManager::deleteErrorList(errors);
}

TEST(PrivateList, HasRoomForItsInitialEntries)
{
    KvCErrorListPool& errors = KvCErrorManager::createErrorList(0, 0, 100, 0, 200);
    FailingAllocation counting(0);
    for (KvUInt32 i = 0; i < 100; ++i)
        errors.setError(1, 1, "T::t", nullptr);
    EXPECT_EQ(counting.count(), 100U) << "one allocation for each entry, none for their list";
    KvCErrorManager::deleteErrorList(errors);
}

TEST(PrivateList, TakesMemoryForNoMoreThanItMayKeep)
{
    static std::size_t most;
    most = 0;
    KvNAllocation::setHook(
        [](void*, std::size_t bytes) {
            most = bytes > most ? bytes : most;
            return true;
        },
        nullptr);
    KvCErrorListPool& errors = KvCErrorManager::createErrorList(0, 1, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF);
    errors.setError(1, 1, "T::t", nullptr);
    errors.setError(2, 1, "T::t", nullptr);
    KvNAllocation::setHook(nullptr, nullptr);
    EXPECT_LE(most, 65536 * sizeof(void*));
    EXPECT_EQ(errors.getErrorCode(1), 2U);
    KvCErrorManager::deleteErrorList(errors);
}

TEST(PrivateList, IsTheMasterListWhenMemoryIsOut)
{
    KvCErrorListPool& master = KvCErrorManager::getMasterErrorList();
    const FailingAllocation none(1, true);
    EXPECT_EQ(&KvCErrorManager::createErrorList(0, 0, 1, 1, 1), &master);
    KvCErrorManager::deleteErrorList(master);
    master.setError(1, 1, "T::t", nullptr);
    EXPECT_EQ(master.getErrorCount(), 1U);
    master.clear();
}

TEST(PrivateList, OfAnyOtherOriginIsLeftAlone)
{
    KvCErrorListPool errors;
    errors.setError(1, 1, "T::t", nullptr);
    KvCErrorManager::deleteErrorList(errors);
    EXPECT_EQ(errors.getErrorCount(), 1U);
}

}  // namespace
