#include "tools/kvboardd/BoardFile.h"

#include <gtest/gtest.h>

#include "TemporaryFolder.h"
#include "base/KvCString.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryParameter.h"
#include "inventory/ids/KvNInventoryIDs.h"

namespace {

using namespace KvNBoardService;

constexpr const char* item = R"({"id": "HCN", "index": 5})";

/** A board file of boards given as text. */
std::string file(const std::string& boards)
{
    return R"({"format": "korvel-board", "version": 1, "boards": [)" + boards + "]}";
}

/** A board with serial number 5; `members` begins with a comma. */
std::string board(const std::string& members = "")
{
    return R"({"serialNumber": 5, "tree": )" + std::string(item) + members + "}";
}

class BoardFileTest : public testing::Test
{
protected:
    bool parse(const std::string& text)
    {
        m_problem.clear();
        return parseBoardFile(text, "b.json", m_folder.path(), m_boards, m_problem);
    }
    /** What is wrong with a file. */
    std::string problemOf(const std::string& text)
    {
        EXPECT_FALSE(parse(text)) << text;
        EXPECT_TRUE(m_boards.empty());
        return m_problem;
    }

    TemporaryFolder m_folder;
    std::vector<BoardDescription> m_boards;
    std::string m_problem;
};

TEST_F(BoardFileTest, ReadsTheSampleRack)
{
    ASSERT_TRUE(readBoardFile(KV_SAMPLES_DIR "/rack-boards.json", m_boards, m_problem)) << m_problem;
    ASSERT_EQ(m_boards.size(), 8u);
    EXPECT_EQ(m_boards[0].serialNumber, 4711u);
    EXPECT_EQ(m_boards[0].boardType, 6003u);
    EXPECT_EQ(m_boards[0].boardName, "IO-1");
    EXPECT_EQ(m_boards[0].systemName, "Rack A");
    EXPECT_EQ(m_boards[0].address, 0x7F00000Bu);
    EXPECT_EQ(m_boards[7].serialNumber, 4718u);
    EXPECT_EQ(m_boards[7].address, 0x7F000012u);
    for (const BoardDescription& description : m_boards)
        EXPECT_EQ(description.tree->getID(), KvNInventoryIDs::HCN[description.serialNumber]);
}

TEST_F(BoardFileTest, ASectionAloneIsOneBoardOnLoopback)
{
    ASSERT_TRUE(readBoardFile(KV_SAMPLES_DIR "/single-board.inv", m_boards, m_problem)) << m_problem;
    ASSERT_EQ(m_boards.size(), 1u);
    EXPECT_EQ(m_boards[0].serialNumber, 4711u);
    EXPECT_EQ(m_boards[0].boardType, 6003u);
    EXPECT_EQ(m_boards[0].boardName, "IO-1");
    EXPECT_EQ(m_boards[0].systemName, "Rack A");
    EXPECT_EQ(m_boards[0].address, 0x7F000001u);
}

TEST_F(BoardFileTest, ASectionOfSeveralBoardsIsRefused)
{
    EXPECT_FALSE(readBoardFile(KV_SAMPLES_DIR "/rack.inv", m_boards, m_problem));
    EXPECT_EQ(m_problem, KV_SAMPLES_DIR "/rack.inv: the tree's root is ROOT, not HCN or CN");
}

TEST_F(BoardFileTest, TreesStandInFilesOrInline)
{
    m_folder.write("t.json", R"({"format": "korvel-inventory", "version": 1, "tree": {"id": "CN", "index": 6}})");
    ASSERT_TRUE(parse(file(board() + R"(, {"serialNumber": 6, "tree": "t.json", "address": "127.0.0.2"})")))
        << m_problem;
    ASSERT_EQ(m_boards.size(), 2u);
    EXPECT_EQ(m_boards[0].tree->getID(), KvNInventoryIDs::HCN[5]);
    EXPECT_EQ(m_boards[1].tree->getID(), KvNInventoryIDs::CN[6]);
}

TEST_F(BoardFileTest, OnlySerialNumberAndTreeAreNeeded)
{
    ASSERT_TRUE(parse(file(board()))) << m_problem;
    EXPECT_EQ(m_boards[0].address, 0x7F000001u);
    EXPECT_EQ(m_boards[0].boardType, 0u);
    EXPECT_EQ(m_boards[0].boardName, "");
    EXPECT_EQ(m_boards[0].systemName, "");
}

TEST_F(BoardFileTest, MembersMayComeInAnyOrder)
{
    EXPECT_TRUE(parse(R"({"boards": [{"tree": )" + std::string(item) +
                      R"(, "systemName": "S", "serialNumber": 5}], "version": 1, "format": "korvel-board"})"))
        << m_problem;
    EXPECT_EQ(m_boards[0].systemName, "S");
}

TEST_F(BoardFileTest, AnInlineTreeIsReadWithItsValues)
{
    ASSERT_TRUE(parse(file(R"({"serialNumber": 5, "tree": {"id": "HCN", "index": 5, "parameters": [
        {"id": "NAME", "type": "String", "value": "x"}], "items": [{"id": "FIRMWARE"}]}, "boardType": 3})")))
        << m_problem;
    const auto* parameter = m_boards[0].tree->getParameter(KvNInventoryIDs::NAME);
    ASSERT_NE(parameter, nullptr);
    EXPECT_STREQ(parameter->valueIf<KvCString>()->c_str(), "x");
    EXPECT_NE(m_boards[0].tree->getItem(KvNInventoryIDs::FIRMWARE), nullptr);
    EXPECT_EQ(m_boards[0].boardType, 3u);
}

TEST_F(BoardFileTest, UnknownAndRepeatedMembersAreRefused)
{
    EXPECT_EQ(problemOf(R"({"format": "korvel-board", "colour": 1})"), "b.json: at \"/colour\": unknown member");
    EXPECT_EQ(problemOf(file(board(R"(, "port": 1)"))), "b.json: at \"/boards/0/port\": unknown member");
    EXPECT_EQ(problemOf(R"({"version": 1, "version": 1})"), "b.json: at \"/version\": the member is there twice");
    EXPECT_EQ(problemOf(file(board(R"(, "serialNumber": 5)"))),
              "b.json: at \"/boards/0/serialNumber\": the member is there twice");
}

TEST_F(BoardFileTest, MissingMembersAreNamed)
{
    EXPECT_EQ(problemOf("{}"), "b.json: at \"\": the member \"format\" is missing");
    EXPECT_EQ(problemOf(R"({"format": "korvel-board"})"), "b.json: at \"\": the member \"version\" is missing");
    EXPECT_EQ(problemOf(R"({"format": "korvel-board", "version": 1})"),
              "b.json: at \"\": the member \"boards\" is missing");
    EXPECT_EQ(problemOf(file("{}")), "b.json: at \"/boards/0\": the member \"serialNumber\" is missing");
    EXPECT_EQ(problemOf(file(R"({"serialNumber": 1})")), "b.json: at \"/boards/0\": the member \"tree\" is missing");
}

TEST_F(BoardFileTest, AnotherFormatOrVersionIsRefused)
{
    EXPECT_EQ(problemOf(R"({"format": "korvel-inventory"})"),
              "b.json: at \"/format\": format is \"korvel-inventory\", not \"korvel-board\"");
    EXPECT_EQ(problemOf(R"({"version": 2})"), "b.json: at \"/version\": version is not 1");
    EXPECT_EQ(problemOf(R"({"version": 1.0})"), "b.json: at \"/version\": version is not 1");
}

TEST_F(BoardFileTest, WrongValuesAreNamedWithWhatIsExpected)
{
    const std::string number = " instead of a whole number from 0 to 4294967295";
    const std::string text = " instead of a text of at most 255 bytes without zero bytes";
    const std::pair<std::string, std::string> wrong[] = {
        {R"({"serialNumber": "5"})", "serialNumber\": a text" + number},
        {R"({"serialNumber": -1})", "serialNumber\": another number" + number},
        {R"({"serialNumber": 4294967296})", "serialNumber\": another number" + number},
        {R"({"serialNumber": 1.5})", "serialNumber\": another number" + number},
        {R"({"boardType": null})", "boardType\": null" + number},
        {R"({"boardType": true})", "boardType\": true or false" + number},
        {R"({"boardName": 1})", "boardName\": a number" + text},
        {R"({"boardName": "a\u0000b"})", "boardName\": another text" + text},
        {R"({"systemName": ")" + std::string(256, 'x') + R"("})", "systemName\": another text" + text},
        {R"({"systemName": {}})", "systemName\": an object" + text},
        {R"({"systemName": []})", "systemName\": an array" + text},
        {R"({"tree": 1})", "tree\": a number instead of the name of a file, or an item"},
        {R"({"tree": ""})", "tree\": another text instead of the name of a file, or an item"},
        {R"({"address": "127.0.0.256"})", "address\": \"127.0.0.256\" is not an IPv4 address such as \"127.0.0.11\""}};
    for (const auto& [member, problem] : wrong)
        EXPECT_EQ(problemOf(file(member)), "b.json: at \"/boards/0/" + problem);
    EXPECT_EQ(problemOf("[]"), "b.json: at \"\": an array instead of an object");
    EXPECT_EQ(problemOf("1"), "b.json: at \"\": a number instead of an object");
    EXPECT_EQ(problemOf(file("1")), "b.json: at \"/boards/0\": a number instead of a board's object");
    EXPECT_EQ(problemOf(R"({"boards": {}})"), "b.json: at \"/boards\": an object instead of an array");
    EXPECT_EQ(problemOf(file("")), "b.json: at \"/boards\": there is no board");
}

TEST_F(BoardFileTest, SerialNumbersAndAddressesAreUsedOnce)
{
    EXPECT_EQ(problemOf(file(board() + "," + board(R"(, "address": "127.0.0.2")"))),
              "b.json: at \"/boards/1/serialNumber\": serial number 5 is used twice");
    const std::string other = R"({"serialNumber": 6, "tree": {"id": "HCN", "index": 6})";
    EXPECT_EQ(problemOf(file(board(R"(, "address": "127.0.0.9")") + "," + other + R"(, "address": "127.0.0.9"})")),
              "b.json: at \"/boards/1/address\": address 127.0.0.9 is used twice");
    EXPECT_EQ(problemOf(file(board() + "," + other + "}")), "b.json: at \"/boards/1\": address 127.0.0.1 is used twice")
        << "both took the default";
}

TEST_F(BoardFileTest, TheRootOfTheTreeIsTheBoard)
{
    EXPECT_EQ(problemOf(file(R"({"serialNumber": 6, "tree": {"id": "HCN", "index": 5}})")),
              "b.json: at \"/boards/0/tree\": the tree's root is HCN[5], not HCN[6] or CN[6]");
    EXPECT_EQ(problemOf(file(R"({"serialNumber": 6, "tree": {"id": "ROOT", "index": 6}})")),
              "b.json: at \"/boards/0/tree\": the tree's root is ROOT[6], not HCN[6] or CN[6]");
}

TEST_F(BoardFileTest, ProblemsInsideATreeSayWhere)
{
    const std::string inlined =
        problemOf(file(R"({"serialNumber": 5, "tree": {"id": "HCN", "index": 5, "items": [{"id": "NOSUCH"}]}})"));
    EXPECT_EQ(inlined.rfind("b.json: at \"/boards/0/tree/items/0/id\": ", 0), 0u) << inlined;
    const std::string missing = problemOf(file(R"({"serialNumber": 5, "tree": "none.inv"})"));
    EXPECT_EQ(missing.rfind("b.json: at \"/boards/0/tree\": " + m_folder.path("none.inv") + ": cannot be opened", 0),
              0u)
        << missing;
    m_folder.write("bad.json", R"({"format": "korvel-inventory", "version": 1, "tree": 7})");
    const std::string bad = problemOf(file(R"({"serialNumber": 5, "tree": "bad.json"})"));
    EXPECT_EQ(bad.rfind("b.json: at \"/boards/0/tree\": " + m_folder.path("bad.json") + ": at \"/tree\": ", 0), 0u)
        << bad;
    const std::string folder = problemOf(file(R"({"serialNumber": 5, "tree": "."})"));
    EXPECT_EQ(folder, "b.json: at \"/boards/0/tree\": " + m_folder.path(".") + ": not a regular file");
    const std::string broken =
        problemOf(file(R"({"serialNumber": 5, "tree": ")" KV_SAMPLES_DIR R"(/broken/unknown-tag.inv"})"));
    EXPECT_EQ(broken.rfind("b.json: at \"/boards/0/tree\": " KV_SAMPLES_DIR "/broken/unknown-tag.inv: ", 0), 0u)
        << broken;
}

TEST_F(BoardFileTest, WhatIsNotJsonIsRefused)
{
    for (const char* text : {"", "{", "korvel", R"({"format": "korvel-board", })", "{} {}"}) {
        EXPECT_EQ(problemOf(text).rfind("b.json: ", 0), 0u) << text;
        EXPECT_GT(m_problem.size(), 8u) << text;
    }
}

TEST_F(BoardFileTest, AFileThatCannotBeReadIsNamed)
{
    EXPECT_FALSE(readBoardFile(m_folder.path("none"), m_boards, m_problem));
    EXPECT_EQ(m_problem, m_folder.path("none") + ": cannot be opened: No such file or directory");
    EXPECT_FALSE(readBoardFile(m_folder.path(), m_boards, m_problem));
    EXPECT_EQ(m_problem, m_folder.path() + ": not a regular file");
    m_folder.write("empty", "");
    EXPECT_FALSE(readBoardFile(m_folder.path("empty"), m_boards, m_problem));
    EXPECT_EQ(m_problem.rfind(m_folder.path("empty") + ": ", 0), 0u);
}

TEST_F(BoardFileTest, EveryPrefixOfTheSampleIsRefused)
{
    const std::string whole = file(board(R"(, "boardName": "IO", "address": "127.0.0.3")"));
    ASSERT_TRUE(parse(whole)) << m_problem;
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_NE(problemOf(whole.substr(0, length)), "");
}

TEST(AddressTextTest, OnlyDottedQuadsAreAddresses)
{
    KvUInt32 address = 0;
    EXPECT_TRUE(parseAddress("10.0.0.2", address));
    EXPECT_EQ(address, 0x0A000002u);
    EXPECT_TRUE(parseAddress("255.255.255.255", address));
    EXPECT_EQ(address, 0xFFFFFFFFu);
    EXPECT_TRUE(parseAddress("0.0.0.0", address));
    EXPECT_EQ(address, 0u);
    for (const char* text :
         {"", "10", "10.0.0", "10.0.0.", "10.0.0.2.", "10.0.0.2.3", "10.0.0.256", "10.0.0.02", " 10.0.0.2", "10.0.0.2 ",
          "10.0.0.x", "10..0.2", "-1.0.0.2", "0x7f.0.0.1", "localhost", "10.0.0.1000"})
        EXPECT_FALSE(parseAddress(text, address)) << text;
}

}  // namespace
