#include "base/Report.h"

#include <string>

#include <gtest/gtest.h>

#include "base/KvCString.h"
#include "base/MessageTables.h"
#include "tests/support/CapturedOutput.h"

namespace {

class Report : public testing::Test
{
protected:
    Report()
    {
        KvNMessageTables::registerComposite();
        KvNMessageTables::registerStream();
        KvNMessageTables::registerInventory();
        KvNMessageTables::registerManager();
    }
    KvCErrorListPool errors;
};

TEST_F(Report, AppendsCodeLineOriginAndArguments)
{
    const unsigned long line = __LINE__ + 1;
    KV_REPORT(errors, TypeMismatch, "KvCParam::getValue", "noDescr", 0x121U);
    ASSERT_EQ(errors.getErrorCount(), 1U);
    EXPECT_EQ(errors.getErrorCode(0), 0x601001U);
    EXPECT_EQ(errors.getErrorLine(0), line);
    EXPECT_STREQ(errors.getErrorOrigin(0), "KvCParam::getValue");
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Internal inconsistency detected. "
                 "Parameter 'noDescr' (ID 289) has mismatching type.");
}

TEST_F(Report, TakesNoArgumentsWhereTheTextHasNone)
{
    KV_REPORT(errors, BufferNullPointer, "KvCBuffer::readBuffer");
    EXPECT_STREQ(errors.getErrorText(0), "Internal error. Korvel Support information: Null pointer detected.");
}

TEST_F(Report, TakesTextsAndNumbersOfAnyKind)
{
    const long status = -4;
    KV_REPORT(errors, InventoryAttachFailed, "T::t", status);
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Cannot attach KvCComposite object. Error code: -4");
    KV_REPORT(errors, BufferFileWriteFailed, "T::t", KvCString("own.bin"));
    EXPECT_STREQ(errors.getErrorText(1), "Internal error. Korvel Support information: Cannot write to file own.bin.");
    KV_REPORT(errors, BufferFileWriteFailed, "T::t", std::string("std.bin"));
    EXPECT_STREQ(errors.getErrorText(2), "Internal error. Korvel Support information: Cannot write to file std.bin.");
    const char* null = nullptr;
    KV_REPORT(errors, BufferFileWriteFailed, "T::t", null);
    EXPECT_STREQ(errors.getErrorText(3), "Internal error. Korvel Support information: Cannot write to file .");
    KV_REPORT(errors, CompositeAttachFailed, "T::t", 1, 2U, static_cast<unsigned char>(3), 0xFFFFFFFFUL, status);
    EXPECT_STREQ(errors.getErrorText(4),
                 "Internal error. Korvel Support information: Cannot attach composite (1 2) to its "
                 "parent (3 ffffffff). Internal error code: fffffffc.");
}

TEST_F(Report, ChecksArgumentsAtCompileTime)
{
    static_assert(KvNReport::argumentsFit<>(""));
    static_assert(KvNReport::argumentsFit<const char*, unsigned int>("%s%u"));
    static_assert(KvNReport::argumentsFit<char[5], KvCString>("%s%s"));
    static_assert(!KvNReport::argumentsFit<>("%s"));
    static_assert(!KvNReport::argumentsFit<int>("%s"));
    static_assert(!KvNReport::argumentsFit<const char*>("%u"));
    static_assert(!KvNReport::argumentsFit<int, int>("%u"));
}

TEST_F(Report, IsSeenByAWatch)
{
    KV_REPORT(errors, BufferNullPointer, "T::t");
    const KvNReport::Watch watch(errors);
    EXPECT_FALSE(watch.grew());
    KV_REPORT(errors, BufferNullPointer, "T::t");
    EXPECT_TRUE(watch.grew());
    const KvNReport::Watch later(errors);
    EXPECT_FALSE(later.grew());
}

TEST_F(Report, GoesToTheMasterListWhereThereIsNoOther)
{
    EXPECT_EQ(&KvNReport::masterList(), &KvCErrorManager::getMasterErrorList());
}

TEST_F(Report, OfAWarningNeedsNoList)
{
    CapturedOutput output;
    KV_WARN(SharedDataMissing, "KvCInventoryItem::linkSharedData", "ROOT", "SHARED_DATA[3]");
    ASSERT_EQ(output.messages.size(), 1U);
    EXPECT_TRUE(output.messages[0].warning);
    EXPECT_EQ(output.messages[0].code, 0x1300815U);
    EXPECT_EQ(output.messages[0].origin, "KvCInventoryItem::linkSharedData");
    EXPECT_EQ(output.messages[0].text,
              "Internal error. Korvel Support information: Item ROOT references shared data item "
              "SHARED_DATA[3], but the shared data item does not exist.");
}

}  // namespace
