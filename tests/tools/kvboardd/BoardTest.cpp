#include "tools/kvboardd/Board.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>

#include "SampleBoard.h"
#include "TemporaryFolder.h"
#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/KvCInventoryParameter.h"

namespace {

using namespace KvNBoardService;
using Bytes = std::vector<unsigned char>;

constexpr KvUInt32 id = 77;

Bytes bytesOf(const std::string& text)
{
    return {text.begin(), text.end()};
}

class BoardTest : public testing::Test
{
protected:
    bool write(const char* address, KvUInt32 type, const Bytes& bytes, KvUInt32 accessId = id)
    {
        m_errors.clear();
        return m_board->write(m_errors, accessId, at(address), {type, bytes});
    }
    std::size_t apply(const char* address, KvUInt32 accessId = id)
    {
        m_errors.clear();
        std::size_t applied = 0;
        EXPECT_TRUE(m_board->apply(m_errors, accessId, at(address), applied));
        return applied;
    }
    /** The current value of a parameter below the root. */
    std::string value(const char* below)
    {
        KvCErrorListPool errors;
        const KvCInventoryParameter* parameter = m_board->tree().getParameter(at(below));
        return parameter == nullptr ? "none" : parameter->getValueAsString(errors).c_str();
    }
    std::string text() { return m_errors.getErrorText(0); }

    std::unique_ptr<Board> m_board = sampleBoard();
    KvCErrorListPool m_errors;
};

TEST_F(BoardTest, KnowsItsAddress)
{
    EXPECT_EQ(m_board->localAddress(), KvNInventoryIDs::HCN[4711]);
}

TEST_F(BoardTest, AScanIsTheTreeAsItIsStored)
{
    const KvCBuffer* stream = m_board->scan(m_errors);
    ASSERT_NE(stream, nullptr);
    std::ifstream file(KV_SAMPLES_DIR "/single-board.inv", std::ios::binary);
    const std::string section{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(std::string(stream->getStartPointer(), stream->getOccupiedSize()),
              section.substr(24, section.size() - 48));
}

TEST_F(BoardTest, AParameterIsReadWithEverythingItHas)
{
    KvCBuffer buffer(m_errors);
    ASSERT_TRUE(m_board->read(m_errors, at("HCN[4711]/TEST/TEST_UI16"), buffer));
    KvCInventoryItemFactory factory(m_errors);
    KvCInventoryParameter* parameter = nullptr;
    factory.deserializeInventoryParameter(m_errors, parameter, &buffer);
    const std::unique_ptr<KvCInventoryParameter> owner(parameter);
    ASSERT_NE(parameter, nullptr);
    EXPECT_EQ(parameter->getValue<unsigned short>(m_errors), 1600);
    EXPECT_TRUE(parameter->isModifiable());
    EXPECT_EQ(m_errors.getErrorCount(), 0u);
}

TEST_F(BoardTest, AWrittenValueIsCurrentOnlyWhenItIsApplied)
{
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_UI16", 0x122, {0x12, 0x34}));
    EXPECT_EQ(value("TEST/TEST_UI16"), "1600");
    EXPECT_EQ(m_board->writtenCount(), 1u);
    EXPECT_EQ(apply("HCN[4711]/TEST"), 1u);
    EXPECT_EQ(value("TEST/TEST_UI16"), "4660");
    EXPECT_EQ(m_board->writtenCount(), 0u);
    EXPECT_EQ(apply("HCN[4711]/TEST"), 0u) << "nothing is left to apply";
}

TEST_F(BoardTest, EachOfTheTwelveTypesIsTaken)
{
    const struct
    {
        const char* name;
        KvUInt32 type;
        Bytes bytes;
        const char* text;
    } rows[] = {
        {"TEST_I8", 0x111, {0xFE}, "-2"},
        {"TEST_I16", 0x112, {0xFF, 0xFD}, "-3"},
        {"TEST_I32", 0x114, {0xFF, 0xFF, 0xFF, 0xFC}, "-4"},
        {"TEST_I64", 0x118, {0x80, 0, 0, 0, 0, 0, 0, 0}, "-9223372036854775808"},
        {"TEST_UI8", 0x121, {0xFE}, "254"},
        {"TEST_UI16", 0x122, {0xFF, 0xFD}, "65533"},
        {"TEST_UI32", 0x124, {0xFF, 0xFF, 0xFF, 0xFC}, "4294967292"},
        {"TEST_UI64", 0x128, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, "18446744073709551615"},
        {"TEST_F32", 0x214, {0x3F, 0xC0, 0, 0}, "1.5"},
        {"TEST_F64", 0x218, {0xC0, 0x04, 0, 0, 0, 0, 0, 0}, "-2.5"},
        {"TEST_S", 0x2000, bytesOf("other, and longer than fifteen bytes"), "other, and longer than fifteen bytes"},
        {"TEST_V", 0x4000, {3, 1, 2, 0x20, 0, 4, 0, 7}, nullptr}};
    for (const auto& row : rows) {
        const std::string below = std::string("TEST/") + row.name;
        ASSERT_TRUE(write(("HCN[4711]/" + below).c_str(), row.type, row.bytes)) << row.name << ": " << text();
        if (row.text != nullptr) {
            EXPECT_NE(value(below.c_str()), row.text);
        }
    }
    EXPECT_EQ(apply("HCN[4711]"), 12u);
    for (const auto& row : rows)
        if (row.text != nullptr) {
            EXPECT_EQ(value((std::string("TEST/") + row.name).c_str()), row.text);
        }
    KvCErrorListPool errors;
    EXPECT_EQ(m_board->tree().getParameter(at("TEST/TEST_V"))->getValue<KvCVersion>(errors).getAsULong64(),
              0x0301022000040007u);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(BoardTest, TheLastOfSeveralValuesCounts)
{
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_UI8", 0x121, {1}));
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_UI8", 0x121, {2}));
    EXPECT_EQ(m_board->writtenCount(), 1u);
    EXPECT_EQ(apply("HCN[4711]/TEST/TEST_UI8"), 1u);
    EXPECT_EQ(value("TEST/TEST_UI8"), "2");
}

TEST_F(BoardTest, AnEmptyTextIsAValue)
{
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_S", 0x2000, {}));
    EXPECT_EQ(apply("HCN[4711]"), 1u);
    EXPECT_EQ(value("TEST/TEST_S"), "");
}

TEST_F(BoardTest, ApplyTakesWhatIsAtOrBelowTheAddressAlone)
{
    ASSERT_TRUE(write("HCN[4711]/LOCATION", 0x2000, bytesOf("L")));
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_UI8", 0x121, {1}));
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_UI16", 0x122, {0, 2}));
    ASSERT_TRUE(write("HCN[4711]/NETWORK/ETHERNET[2]/IPADDRESS", 0x2000, bytesOf("I")));
    EXPECT_EQ(apply("HCN[4711]/NETWORK/ETHERNET"), 0u);
    EXPECT_EQ(apply("HCN[4711]/NETWORK"), 1u);
    EXPECT_EQ(value("NETWORK/ETHERNET[2]/IPADDRESS"), "I");
    EXPECT_EQ(apply("HCN[4711]/TEST/TEST_UI8"), 1u) << "a parameter alone";
    EXPECT_EQ(value("TEST/TEST_UI8"), "1");
    EXPECT_EQ(value("TEST/TEST_UI16"), "1600");
    EXPECT_EQ(m_board->writtenCount(), 2u);
    EXPECT_EQ(apply("HCN[4711]"), 2u);
    EXPECT_EQ(value("LOCATION"), "L");
    EXPECT_EQ(value("TEST/TEST_UI16"), "2");
}

TEST_F(BoardTest, WrittenValuesBelongToTheAccessIdThatWroteThem)
{
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_UI8", 0x121, {1}, 1));
    EXPECT_EQ(apply("HCN[4711]", 2), 0u) << "another's values are not applied";
    EXPECT_EQ(m_board->dropWritten(2), 0u);
    EXPECT_EQ(m_board->dropWritten(1), 1u);
    EXPECT_EQ(apply("HCN[4711]", 1), 0u);
    EXPECT_EQ(value("TEST/TEST_UI8"), "8");
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_UI8", 0x121, {1}, 1));
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_UI16", 0x122, {0, 1}, 2));
    EXPECT_EQ(m_board->writtenCount(), 1u) << "what another id wrote before is dropped";
    EXPECT_EQ(apply("HCN[4711]", 2), 1u);
    EXPECT_EQ(value("TEST/TEST_UI8"), "8");
}

TEST_F(BoardTest, AnUnknownAddressIsRefused)
{
    EXPECT_FALSE(write("HCN[4711]/TEST/NAME", 0x2000, {}));
    EXPECT_EQ(codes(m_errors), std::vector<KvUInt32>{0x300801});
    EXPECT_EQ(text(), "Configuration error. The board has nothing at the address HCN[4711]/TEST/NAME.");
    EXPECT_FALSE(write("HCN[4711]/TEST[2]/TEST_UI8", 0x121, {1}));
    EXPECT_EQ(codes(m_errors), std::vector<KvUInt32>{0x300801});
    std::size_t applied = 9;
    KvCErrorListPool errors;
    EXPECT_FALSE(m_board->apply(errors, id, at("HCN[4711]/CPU[99]"), applied));
    EXPECT_EQ(codes(errors), std::vector<KvUInt32>{0x300801});
    EXPECT_EQ(applied, 0u);
    KvCBuffer buffer(m_errors);
    EXPECT_FALSE(m_board->read(m_errors, at("HCN[4711]/CPU[99]/NAME"), buffer));
    EXPECT_EQ(buffer.getOccupiedSize(), 0u);
}

TEST_F(BoardTest, AnotherBoardsAddressIsRefused)
{
    for (const char* address : {"HCN[4712]/TEST/TEST_UI8", "CN[4711]/TEST/TEST_UI8", "TEST/TEST_UI8", ""}) {
        EXPECT_FALSE(write(address, 0x121, {1}));
        EXPECT_EQ(codes(m_errors), std::vector<KvUInt32>{0x300802}) << address;
    }
    EXPECT_EQ(text(), "Configuration error. Address  is not one of this board; its addresses begin with HCN[4711].");
}

TEST_F(BoardTest, AnItemIsNoParameter)
{
    EXPECT_FALSE(write("HCN[4711]/TEST", 0x121, {1}));
    EXPECT_EQ(codes(m_errors), std::vector<KvUInt32>{0x300808});
    m_errors.clear();
    KvCBuffer buffer(m_errors);
    EXPECT_FALSE(m_board->read(m_errors, at("HCN[4711]"), buffer));
    EXPECT_EQ(codes(m_errors), std::vector<KvUInt32>{0x300808});
}

TEST_F(BoardTest, AParameterThatCannotBeChangedIsRefused)
{
    EXPECT_FALSE(write("HCN[4711]/SERIAL_NUMBER", 0x124, {0, 0, 0, 1}));
    EXPECT_EQ(codes(m_errors), std::vector<KvUInt32>{0x300803});
    EXPECT_EQ(text(), "Access denied. Parameter HCN[4711]/SERIAL_NUMBER cannot be changed.");
}

TEST_F(BoardTest, AnotherTypeIsRefused)
{
    EXPECT_FALSE(write("HCN[4711]/TEST/TEST_UI16", 0x112, {0, 1}));
    EXPECT_EQ(codes(m_errors), std::vector<KvUInt32>{0x300804});
    EXPECT_EQ(text(),
              "Configuration error. Parameter HCN[4711]/TEST/TEST_UI16 has the type UInt16, it cannot take a value "
              "with the type code 0x112.");
    for (const KvUInt32 type : {0u, 0x1124u, 0x1218u, 0x10122u, 0xFFFFFFFFu}) {
        EXPECT_FALSE(write("HCN[4711]/TEST/TEST_UI16", type, {0, 1}));
        EXPECT_EQ(codes(m_errors), std::vector<KvUInt32>{0x300804});
    }
}

TEST_F(BoardTest, AnotherSizeIsRefused)
{
    for (const Bytes& bytes : {Bytes{}, Bytes{1}, Bytes{1, 2, 3}}) {
        EXPECT_FALSE(write("HCN[4711]/TEST/TEST_UI16", 0x122, bytes));
        EXPECT_EQ(codes(m_errors), std::vector<KvUInt32>{0x300805});
    }
    EXPECT_EQ(text(), "Configuration error. Parameter HCN[4711]/TEST/TEST_UI16 takes values of 2 bytes, not of 3.");
    EXPECT_FALSE(write("HCN[4711]/TEST/TEST_V", 0x4000, Bytes(7, 0)));
    EXPECT_EQ(codes(m_errors), std::vector<KvUInt32>{0x300805});
}

TEST_F(BoardTest, TextsHaveNoZeroBytesAndALimit)
{
    EXPECT_FALSE(write("HCN[4711]/TEST/TEST_S", 0x2000, {'a', 0, 'b'}));
    EXPECT_EQ(codes(m_errors), std::vector<KvUInt32>{0x300806});
    m_board = sampleBoard(nullptr, {.textBytes = 4});
    EXPECT_TRUE(write("HCN[4711]/TEST/TEST_S", 0x2000, Bytes(4, 'x')));
    EXPECT_FALSE(write("HCN[4711]/TEST/TEST_S", 0x2000, Bytes(5, 'x')));
    EXPECT_EQ(codes(m_errors), std::vector<KvUInt32>{0x300807});
    EXPECT_EQ(text(),
              "Configuration error. The text for parameter HCN[4711]/TEST/TEST_S has 5 bytes, at most 4 are allowed.");
}

TEST_F(BoardTest, ARefusedValueChangesNothing)
{
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_UI8", 0x121, {1}));
    EXPECT_FALSE(write("HCN[4711]/TEST/TEST_UI8", 0x121, {1, 2}, 2));
    EXPECT_EQ(m_board->writtenCount(), 1u) << "not even whose values they are";
    EXPECT_EQ(apply("HCN[4711]"), 1u);
    EXPECT_EQ(value("TEST/TEST_UI8"), "1");
}

TEST_F(BoardTest, AScanShowsWhatIsAppliedAndNotWhatIsWritten)
{
    const std::size_t size = m_board->scan(m_errors)->getOccupiedSize();
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_S", 0x2000, bytesOf("texts")));
    EXPECT_EQ(m_board->scan(m_errors)->getOccupiedSize(), size);
    ASSERT_EQ(apply("HCN[4711]"), 1u);
    EXPECT_EQ(m_board->scan(m_errors)->getOccupiedSize(), size + 1);
}

class BoardStateTest : public BoardTest
{
protected:
    void start()
    {
        m_board.reset();
        std::string problem;
        auto store = Store::open(m_folder.path("state"), 4711, problem);
        ASSERT_TRUE(store) << problem;
        m_board = sampleBoard(std::move(store));
    }
    void restart()
    {
        start();
        std::string problem;
        ASSERT_TRUE(m_board->restore(problem)) << problem;
    }

    TemporaryFolder m_folder;
};

TEST_F(BoardStateTest, AppliedValuesOutlastTheService)
{
    restart();
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_UI8", 0x121, {1}));
    ASSERT_TRUE(write("HCN[4711]/LOCATION", 0x2000, bytesOf("here")));
    ASSERT_EQ(apply("HCN[4711]/TEST"), 1u);
    restart();
    EXPECT_EQ(value("TEST/TEST_UI8"), "1");
    EXPECT_NE(value("LOCATION"), "here") << "written but not applied";
    EXPECT_EQ(m_board->writtenCount(), 0u);
}

TEST_F(BoardStateTest, TheStateIsASectionWithTheWholeTree)
{
    restart();
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_UI8", 0x121, {1}));
    ASSERT_EQ(apply("HCN[4711]/TEST"), 1u);
    KvCInventoryItem* root = nullptr;
    KvCInventoryData::extractInventoryTreeFromFile(m_errors, m_folder.path("state/4711/inventory.inv").c_str(), root);
    const std::unique_ptr<KvCInventoryItem> owner(root);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getValue<unsigned char>(m_errors, at("TEST/TEST_UI8")), 1);
    EXPECT_EQ(root->getValue<unsigned short>(m_errors, at("TEST/TEST_UI16")), 1600);
}

TEST_F(BoardStateTest, WhatCannotBeStoredIsNotApplied)
{
    restart();
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_UI8", 0x121, {1}));
    ASSERT_TRUE(write("HCN[4711]/TEST/TEST_S", 0x2000, bytesOf("a text of more than fifteen bytes")));
    // A folder of that name cannot be replaced by a file.
    std::filesystem::create_directory(m_folder.path("state/4711/inventory.inv"));
    std::size_t applied = 9;
    m_errors.clear();
    EXPECT_FALSE(m_board->apply(m_errors, id, at("HCN[4711]"), applied));
    EXPECT_EQ(codes(m_errors), (std::vector<KvUInt32>{0x301001, 0x301000}));
    EXPECT_EQ(text(), "OS error. The board cannot store its values: cannot rename to " +
                          m_folder.path("state/4711/inventory.inv") + ": Is a directory.");
    EXPECT_EQ(applied, 0u);
    EXPECT_EQ(value("TEST/TEST_UI8"), "8");
    EXPECT_EQ(value("TEST/TEST_S"), "text");
    EXPECT_EQ(m_board->writtenCount(), 2u);
    std::filesystem::remove(m_folder.path("state/4711/inventory.inv"));
    EXPECT_EQ(apply("HCN[4711]"), 2u) << "it can be tried again";
    EXPECT_EQ(value("TEST/TEST_UI8"), "1");
    EXPECT_EQ(value("TEST/TEST_S"), "a text of more than fifteen bytes");
}

TEST_F(BoardStateTest, ADamagedStateIsNotPassedOver)
{
    std::filesystem::create_directories(m_folder.path("state/4711"));
    const std::string name = m_folder.path("state/4711/inventory.inv");
    std::string problem;
    m_folder.write("state/4711/inventory.inv", "damaged");
    start();
    EXPECT_FALSE(m_board->restore(problem));
    EXPECT_EQ(problem, name + ": no inventory section");
    std::filesystem::copy(KV_SAMPLES_DIR "/broken/unknown-tag.inv", name,
                          std::filesystem::copy_options::overwrite_existing);
    start();
    EXPECT_FALSE(m_board->restore(problem));
    EXPECT_EQ(problem.rfind(name + ": ", 0), 0u) << problem;
    std::filesystem::copy(KV_SAMPLES_DIR "/boards/io-2.inv", name, std::filesystem::copy_options::overwrite_existing);
    start();
    EXPECT_FALSE(m_board->restore(problem));
    EXPECT_EQ(problem, name + ": it holds HCN[4712], not HCN[4711]");
}

TEST_F(BoardStateTest, ANewVersionIsServedAndStored)
{
    restart();
    m_board->scan(m_errors);
    ASSERT_TRUE(m_board->setVersion(m_errors, at("HCN[4711]/FIRMWARE"), KvCVersion(4, 0, 1, 2, 2, 0)));
    EXPECT_EQ(value("FIRMWARE/VERSION"), "4.0.1b2");
    const KvCBuffer* stream = m_board->scan(m_errors);
    ASSERT_NE(stream, nullptr);
    const std::string bytes(stream->getStartPointer(), stream->getOccupiedSize());
    EXPECT_NE(bytes.find(std::string("\x04\x00\x01\x02\x00\x02\x00\x00", 8)), std::string::npos);
    restart();
    EXPECT_EQ(value("FIRMWARE/VERSION"), "4.0.1b2");
    EXPECT_EQ(value("BOOTLOADER/VERSION"), "1.0") << "of that item alone";
}

TEST_F(BoardStateTest, AVersionThatCannotBeStoredIsNotServed)
{
    restart();
    std::filesystem::create_directory(m_folder.path("state/4711/inventory.inv"));
    m_errors.clear();
    EXPECT_FALSE(m_board->setVersion(m_errors, at("HCN[4711]/FIRMWARE"), KvCVersion(4, 0, 1, 2, 2, 0)));
    EXPECT_EQ(codes(m_errors), (std::vector<KvUInt32>{0x301001}));
    EXPECT_EQ(value("FIRMWARE/VERSION"), "3.1.2b4p7");
}

TEST_F(BoardStateTest, OnlyWhatHasAVersionGetsOne)
{
    restart();
    const KvCVersion version(4, 0, 1, 2, 2, 0);
    m_errors.clear();
    EXPECT_FALSE(m_board->setVersion(m_errors, at("HCN[4711]/CPU"), version));
    EXPECT_FALSE(m_board->setVersion(m_errors, at("HCN[4712]/FIRMWARE"), version));
    EXPECT_EQ(codes(m_errors), (std::vector<KvUInt32>{0x300801, 0x300802}));
    EXPECT_FALSE(std::filesystem::exists(m_folder.path("state/4711/inventory.inv")));
}

TEST_F(BoardStateTest, HowAnUpdateStandsIsRemembered)
{
    using State = UpdateRecord::State;
    restart();
    UpdateRecord record;
    std::string problem;
    ASSERT_TRUE(m_board->recall(record, problem)) << problem;
    EXPECT_EQ(record.state, State::Idle);
    ASSERT_TRUE(m_board->remember(m_errors, {State::Verified, "HCN[4711]/FIRMWARE", 0, 0x0400000000000000u, {}}));
    restart();
    ASSERT_TRUE(m_board->recall(record, problem)) << problem;
    EXPECT_EQ(record.state, State::Verified);
    EXPECT_EQ(record.address, "HCN[4711]/FIRMWARE");
    EXPECT_EQ(record.newVersion, 0x0400000000000000u);

    std::filesystem::remove(m_folder.path("state/4711/update.json"));
    std::filesystem::create_directory(m_folder.path("state/4711/update.json"));
    EXPECT_FALSE(m_board->recall(record, problem));
    EXPECT_EQ(problem, m_folder.path("state/4711/update.json") + " is not a regular file");
    m_errors.clear();
    EXPECT_FALSE(m_board->remember(m_errors, {}));
    EXPECT_EQ(codes(m_errors), (std::vector<KvUInt32>{0x301001}));
}

}  // namespace
