#include <csignal>
#include <deque>

#include "inventory/KvCInventoryItem.h"
#include "tests/tools/kvinv/ScriptedUpdate.h"

/* What is shown while boards are scanned: how many have answered, on a terminal only. */

namespace {

using ScriptedUpdate::Bytes;
using ScriptedUpdate::Record;

constexpr KvUInt32 scan = 1;
const std::string clear = "\r\x1b[K";

/** Three boards, 4711 to 4713, that a test may change. */
class ScanOfScriptedBoards : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        for (KvUInt32 serial = 4711; serial <= 4713; ++serial) {
            ScriptedBoards::Board& board = boards.add(serial);
            board.answer(scan, Record().number(0).opaque(treeOf(serial)).opaque({}));
            all.push_back(&board);
        }
        boards.start();
    }

    static Bytes treeOf(KvUInt32 serial)
    {
        KvCErrorListPool errors;
        KvCInventoryItem board(errors, KvNInventoryIDs::HCN[serial], "HCN");
        KvCBuffer buffer(errors);
        KvCInventoryItemFactory factory(errors);
        factory.serialize(errors, &buffer, &board);
        EXPECT_EQ(errors.getErrorCount(), 0U);
        return Bytes(buffer.getStartPointer(), buffer.getWritePointer());
    }

    std::string selection() const
    {
        std::string list;
        for (const ScriptedBoards::Board* board : all)
            list += (list.empty() ? "" : ",") + ScriptedBoards::quad(board->address);
        return list;
    }
    std::vector<std::string> arguments(const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> list = {"scan", "--ip", selection(), "-o", path("x.inv")};
        list.insert(list.end(), more.begin(), more.end());
        return list;
    }
    static Circumstances onTerminal(std::vector<std::string> environment = {"NO_COLOR=1"})
    {
        Circumstances terminal;
        terminal.errorsOnTerminal = true;
        terminal.environment = std::move(environment);
        return terminal;
    }

    ScriptedBoards boards;
    std::deque<ScriptedBoards::Board*> all;
};

/** How many boards are told to have answered, one time after the other. */
std::vector<int> answered(const std::string& text)
{
    std::vector<int> list;
    const std::string behind = " of 3 boards answered";
    for (std::size_t at = text.find(behind); at != std::string::npos; at = text.find(behind, at + 1))
        list.push_back(text[at - 1] - '0');
    return list;
}

std::string ofThree(const char* bar, const char* percent, int count)
{
    return "\r[" + std::string(bar) + "] " + percent + " % " + std::to_string(count) + " of 3 boards answered\x1b[K";
}

}  // namespace

TEST_F(ScanOfScriptedBoards, ShowsHowManyHaveAnsweredAndNothingAnyMoreInTheEnd)
{
    const Ended ended = kvinv(arguments(), onTerminal());
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "kvinv: reading 3 boards\r\n" + ofThree("........................................", "  0", 0) +
                             ofThree("#############...........................", " 33", 1) +
                             ofThree("##########################..............", " 66", 2) +
                             ofThree("########################################", "100", 3) + clear);
    EXPECT_EQ(ended.out, "");
}

TEST_F(ScanOfScriptedBoards, SaysHowManyHaveFailedAndTellsOfThemOnLinesOfTheirOwn)
{
    all[1]->hangUp(scan);
    const Ended ended = kvinv(arguments(), onTerminal());
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(answered(ended.err).back(), 2);
    EXPECT_NE(ended.err.find("100 % 2 of 3 boards answered, 1 failed\x1b[K" + clear + "kvinv: error 0x"),
              std::string::npos)
        << ended.err;
}

TEST_F(ScanOfScriptedBoards, HasColoursWhereTheyAreWanted)
{
    EXPECT_NE(kvinv(arguments(), onTerminal({})).err.find("\x1b[32m"), std::string::npos);
}

TEST_F(ScanOfScriptedBoards, IsShownWhileADiffReadsBoardsToo)
{
    ASSERT_EQ(kvinv(arguments()).status, 0);
    const Ended ended = kvinv({"diff", path("x.inv"), "ip:" + selection()}, onTerminal());
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(answered(ended.err), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(ended.err.substr(ended.err.size() - clear.size()), clear);
}

TEST_F(ScanOfScriptedBoards, IsShownOnlyToWhoCanSeeAndWantsIt)
{
    EXPECT_EQ(kvinv(arguments()).err, "") << "standard error is no terminal";
    Circumstances outputOnly;
    outputOnly.onTerminal = true;
    const Ended printed = kvinv({"scan", "--ip", selection()}, outputOnly);
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(printed.out.find("answered"), std::string::npos);
    EXPECT_EQ(kvinv(arguments({"-q"}), onTerminal()).err, "");
    EXPECT_EQ(kvinv(arguments(), onTerminal({"TERM=dumb"})).err, "kvinv: reading 3 boards\r\n");
    EXPECT_EQ(kvinv(arguments({"-vv"}), onTerminal()).err.find("answered"), std::string::npos);
}

TEST_F(ScanOfScriptedBoards, LeavesNoBarBehindWhenItIsInterrupted)
{
    all[2]->stall(scan);
    Running running(KVINV_PROGRAM, arguments(), onTerminal());
    for (const ScriptedBoards::Board* board : all)
        ASSERT_TRUE(board->waitForCalls(ScriptedBoards::InventoryProgram, scan, 1));
    running.signal(SIGINT);
    const Ended ended = running.wait();
    EXPECT_EQ(ended.status, 130);
    const std::size_t last = ended.err.rfind("boards answered");
    ASSERT_NE(last, std::string::npos) << ended.err;
    const std::size_t end = ended.err.find("\x1b[K", last);
    EXPECT_EQ(ended.err.substr(end, 3 + clear.size()), "\x1b[K" + clear) << ended.err;
    const std::string said = "kvinv: interrupted\r\n";
    EXPECT_EQ(ended.err.substr(ended.err.size() - said.size()), said);
    EXPECT_EQ(names(), std::vector<std::string>());
}
