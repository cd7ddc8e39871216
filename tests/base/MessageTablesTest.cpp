#include "base/MessageTables.h"

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "base/KvNMessage.h"

namespace {

class MessageTables : public testing::Test
{
protected:
    MessageTables()
    {
        KvNMessageTables::registerComposite();
        KvNMessageTables::registerStream();
        KvNMessageTables::registerInventory();
        KvNMessageTables::registerManager();
    }
    static std::string text(KvUInt32 code)
    {
        const char* found = KvCErrorManager::getMessageText(code);
        return found == nullptr ? "(none)" : found;
    }
};

TEST_F(MessageTables, HaveTheirBasesAndCounts)
{
    const struct
    {
        const KvResText& table;
        KvUInt32 base;
        KvUInt32 ranges;
        std::size_t texts;
    } cases[] = {{KvNMessageTables::composite(), 0x600000, 8, 17},
                 {KvNMessageTables::stream(), 0xa00000, 7, 30},
                 {KvNMessageTables::inventory(), 0x1300000, 6, 59},
                 {KvNMessageTables::manager(), 0x1600000, 2, 59}};
    for (const auto& expected : cases) {
        EXPECT_EQ(expected.table.base, expected.base);
        EXPECT_EQ(expected.table.rangeCount, expected.ranges);
        EXPECT_EQ(expected.table.textCount, expected.texts);
        EXPECT_EQ(expected.table.ranges[expected.ranges].first, 0xFFFFFFFFU);
        EXPECT_EQ(expected.table.ranges[expected.ranges].count, 0U);
        for (std::size_t i = 0; i < expected.texts; ++i)
            EXPECT_NE(expected.table.texts[i], nullptr);
    }
}

TEST_F(MessageTables, AreRegisteredOnce)
{
    KvNMessageTables::registerComposite();
    KvNMessageTables::registerManager();
    EXPECT_FALSE(KvCErrorManager::registerMessages(&KvNMessageTables::composite()));
    EXPECT_FALSE(KvCErrorManager::registerMessages(&KvNMessageTables::stream()));
    EXPECT_FALSE(KvCErrorManager::registerMessages(&KvNMessageTables::inventory()));
    EXPECT_FALSE(KvCErrorManager::registerMessages(&KvNMessageTables::manager()));
}

TEST_F(MessageTables, GiveTextsByCode)
{
    EXPECT_EQ(text(0x600800),
              "Internal error. Korvel Support information: Configuration failed. Cannot insert list element.");
    EXPECT_EQ(text(0x602004),
              "Korvel Support information: Abort initialization phase due to errors in PreInit for "
              "element \"%1 (ClassId: 0x%2)\".");
    EXPECT_EQ(text(0x603000),
              "Memory allocation failed. Not enough memory for requested operation. Cannot allocate string buffer.");
    EXPECT_EQ(text(0xa02000),
              "Internal error. Korvel Support information: Unable to deserialize data stream. Unknown "
              "tag %1 detected at position %2 - %3");
    EXPECT_EQ(text(0xa03009).back(), ' ');
    EXPECT_EQ(text(0x1300010), "Cannot get file read position.");
    EXPECT_EQ(text(0x1302806),
              "Internal error. Korvel Support information: Cannot attach KvCComposite object. Error code: %1");
    EXPECT_EQ(text(0x160081a), "Out of  memory. The requested operation cannot be completed.");
    EXPECT_EQ(text(0x1600828),
              "Internal error. Korvel Support information: Cannot register HCN inventory service at CN "
              "inventory service.");
    EXPECT_EQ(text(0x160000a), text(0x1600009));
}

TEST_F(MessageTables, KeepTheirTextsAsTheyAre)
{
    // FNV-1a of the tables' texts in order, NULs included: users compare them with what others have written down.
    std::uint64_t digest = 0xcbf29ce484222325U;
    for (const KvResText* table : {&KvNMessageTables::composite(), &KvNMessageTables::stream(),
                                   &KvNMessageTables::inventory(), &KvNMessageTables::manager()}) {
        for (std::size_t i = 0; i < table->textCount; ++i) {
            const std::string_view message = table->texts[i];
            for (std::size_t j = 0; j <= message.size(); ++j)
                digest = (digest ^ static_cast<unsigned char>(message.data()[j])) * 0x100000001b3U;
        }
    }
    EXPECT_EQ(digest, 0x9e44b1db5f20118U) << std::hex << digest;
}

TEST_F(MessageTables, HaveNoTextOutsideTheirRanges)
{
    for (const KvUInt32 code : {0x600000U, 0xa00800U, 0x600801U, 0x602800U, 0x603001U, 0x603800U, 0xa00006U, 0xa0300aU,
                                0x1300011U, 0x1300817U, 0x1302807U, 0x1600012U, 0x1600829U, 0x1601000U, 0x700000U})
        EXPECT_EQ(text(code), "(none)") << std::hex << code;
}

TEST_F(MessageTables, FillTheTextsOfReports)
{
    KvCErrorListPool errors;
    errors.setError(0x1600805, __LINE__, "Test::test", "%s", "10.0.0.5");
    EXPECT_STREQ(errors.getErrorText(0),
                 "Requested Korvel hardware is not connected. Korvel Support information: Cannot "
                 "find board with address 10.0.0.5.");
}

TEST_F(MessageTables, BeginThePlatformsTextsWithTheirClass)
{
    const std::set<std::string> classes = {
        "Internal error.", "Communication error.",      "Configuration error.", "Update error.", "Access denied.",
        "OS error.",       "Memory allocation failed.", "Out of memory."};
    for (const KvUInt32 base : {0x000000U, 0x100000U, 0x200000U, 0x300000U}) {
        std::size_t checked = 0;
        for (KvUInt32 code = base; code < base + 0x4000; ++code) {
            const std::string message = text(code);
            if (message == "(none)")
                continue;
            EXPECT_EQ(classes.count(message.substr(0, message.find('.') + 1)), 1U)
                << std::hex << code << ": " << message;
            ++checked;
        }
        EXPECT_GE(checked, 2U) << std::hex << base;
    }
}

TEST_F(MessageTables, NameTheCodes)
{
    static_assert(static_cast<KvUInt32>(KvNMessage::AllocationFailed) == 0x401);
    static_assert(static_cast<KvUInt32>(KvNMessage::TypeMismatch) == 0x601001);
    static_assert(static_cast<KvUInt32>(KvNMessage::StreamUnknownTag) == 0xa02000);
    static_assert(static_cast<KvUInt32>(KvNMessage::ItemNotAdded) == 0x1300816);
    static_assert(static_cast<KvUInt32>(KvNMessage::AccessDenied) == 0x1600824);
    static_assert(std::string_view(KvNReport::argTypesOf(KvNMessage::StreamUnknownTag)) == "%u%x%x");
}

}  // namespace
