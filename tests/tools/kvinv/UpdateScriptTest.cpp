#include <csignal>
#include <thread>

#include "tests/tools/kvinv/BoardService.h"
#include "tests/tools/kvinv/ScriptedUpdate.h"

/* The command, above all its updates, against a board that does what a test says, however wrong that is. */

using namespace ScriptedUpdate;

namespace {

/** Real boards beside a scripted one. */
class BesideAScriptedBoard : public BoardServiceTest
{};

/** The percentages that a bar has shown. */
std::vector<int> percentages(const std::string& text)
{
    std::vector<int> list;
    for (std::size_t at = text.find(" %"); at != std::string::npos; at = text.find(" %", at + 1))
        list.push_back(std::stoi(text.substr(at - 3, 3)));
    return list;
}

}  // namespace

TEST_F(UpdateOfAScriptedBoard, GoesThroughItsStepsInTheirOrder)
{
    const Ended ended = update();
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, told() + "updated: HCN[4711]/FIRMWARE to version 4.0.1b2\n");
    EXPECT_EQ(ended.err, transferring() + "kvinv: the board is programming\nkvinv: the board has verified the image\n");
    EXPECT_EQ(calls(), (std::vector<int>{RequestAccess, PutBegin, PutData, PutEnd, Delete, ReleaseAccess, ReadParameter,
                                         FileName, Update, UpdateStatus, UpdateErrors, UpdateFinish, Authority}));
}

TEST_F(UpdateOfAScriptedBoard, IsQuietWhenAskedTo)
{
    EXPECT_EQ(update({"-q"}).err, "");
    board.answers(UpdateStatus - 100, {status(finished, 100)});
    const Ended json = update({"--json"});
    EXPECT_EQ(json.err, "");
    EXPECT_EQ(json.out,
              "{\"address\": \"HCN[4711]/FIRMWARE\", \"type\": \"UserFirmware\", \"kind\": null, \"image\": \"" +
                  path("fw.bin") + "\", \"size\": " + std::to_string(std::filesystem::file_size(path("fw.bin"))) +
                  ", \"onBoard\": \"3.1.2b4p7\", \"inImage\": \"4.0.1b2\", \"result\": \"updated\", \"errors\": "
                  "[]}\n");
}

TEST_F(UpdateOfAScriptedBoard, TheBarOnlyGrowsWhateverTheBoardTells)
{
    board.answers(UpdateStatus - 100, {status(running, 50), status(running, 20), status(running, 4000000000),
                                       status(running, 0), status(unknown, 0), status(finished, 3)});
    Circumstances terminal;
    terminal.errorsOnTerminal = true;
    terminal.environment = {"NO_COLOR=1"};
    const Ended ended = update({}, terminal);
    EXPECT_EQ(ended.status, 0);
    const std::vector<int> shown = percentages(ended.err);
    ASSERT_GE(shown.size(), 4U) << ended.err;
    EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end())) << ended.err;
    EXPECT_EQ(shown.front(), 0);
    EXPECT_EQ(shown.back(), 100);
    EXPECT_EQ(std::count(shown.begin(), shown.end(), 100), 2) << "100 % is reached only when the board has verified it";
    EXPECT_EQ(ended.err.substr(ended.err.size() - 2), "\r\n") << "the line is left";
    EXPECT_EQ(ended.err.find("\x1b[32m"), std::string::npos);
    EXPECT_EQ(ended.out, told() + "updated: HCN[4711]/FIRMWARE to version 4.0.1b2\n") << "nothing but the result";
}

TEST_F(UpdateOfAScriptedBoard, ATerminalThatCannotWriteOnALineAgainGetsLines)
{
    Circumstances terminal;
    terminal.errorsOnTerminal = true;
    terminal.environment = {"TERM=dumb"};
    const Ended ended = update({}, terminal);
    EXPECT_EQ(ended.err.find(" %"), std::string::npos) << ended.err;
    EXPECT_NE(ended.err.find("kvinv: the board is programming\r\n"), std::string::npos) << ended.err;
}

TEST_F(UpdateOfAScriptedBoard, CallsThatAreToldHaveALineEach)
{
    Circumstances terminal;
    terminal.errorsOnTerminal = true;
    const Ended ended = update({"-vv"}, terminal);
    EXPECT_EQ(ended.status, 0);
    EXPECT_NE(ended.err.find("ms\r\nkvinv: the board has verified the image\r\n"), std::string::npos) << ended.err;
    EXPECT_EQ(ended.err.find('\x1b'), std::string::npos) << ended.err;
}

TEST_F(UpdateOfAScriptedBoard, ABarThatIsNotWantedIsNotShown)
{
    Circumstances terminal;
    terminal.errorsOnTerminal = true;
    EXPECT_EQ(update({"-q"}, terminal).err, "");
}

TEST_F(UpdateOfAScriptedBoard, WhatIsUnknownForAWhileIsAskedAgain)
{
    board.answers(UpdateStatus - 100,
                  {status(unknown, 0), result(1), Bytes(), status(running, 70), status(finished, 100)});
    const Ended ended = update();
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.err, transferring() +
                             "kvinv: the board does not say how far the update is; it is asked again for 60 seconds\n"
                             "kvinv: the board is programming\nkvinv: the board has verified the image\n");
}

TEST_F(UpdateOfAScriptedBoard, ThatIsLostFailsAfterTheUsualEnd)
{
    board.answers(UpdateStatus - 100, {status(running, 10), status(idle, 0)});
    const Ended ended = update();
    expectWholeEnd(ended);
    EXPECT_EQ(ended.err, transferring() +
                             "kvinv: the board is programming\nkvinv: the board has lost the update\nkvinv: the update "
                             "has failed\n");
}

TEST_F(UpdateOfAScriptedBoard, ThatEndsWithErrorsFailsAndTellsThem)
{
    board.answer(UpdateErrors - 100, result(0, errorBlock(0x3FFFFF)));
    const Ended ended = update();
    expectWholeEnd(ended);
    EXPECT_NE(ended.err.find("kvinv: error 0x3fffff: Unknown message 0x3fffff.\n"), std::string::npos) << ended.err;
    const Ended json = update({"--json"});
    EXPECT_NE(
        json.out.find("\"result\": \"failed\", \"errors\": [{\"code\": \"0x3fffff\", \"message\": \"Unknown message "
                      "0x3fffff.\"}]}"),
        std::string::npos)
        << json.out;
}

TEST_F(UpdateOfAScriptedBoard, ThatIsRefusedLeavesNoFileAndNoLock)
{
    board.answer(Update - 100, result(1, errorBlock(0x3FFFFE)));
    const Ended ended = update();
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, told());
    EXPECT_NE(ended.err.find("kvinv: error 0x3ffffe: "), std::string::npos) << ended.err;
    EXPECT_NE(ended.err.find("kvinv: error 0x160080f: "), std::string::npos) << ended.err;
    EXPECT_TRUE(wasCalled(Delete));
    EXPECT_TRUE(wasCalled(ReleaseAccess));
    EXPECT_FALSE(wasCalled(UpdateStatus) || wasCalled(UpdateErrors) || wasCalled(UpdateFinish));
}

TEST_F(UpdateOfAScriptedBoard, TheRestOfTheEndIsDoneWhateverFailsOfIt)
{
    board.answer(UpdateErrors - 100, result(1));
    board.answer(UpdateFinish - 100, result(1));
    board.answer(Authority - 100, Record().number(0).number(0).opaque({}));
    board.answerDeviceAccess(ReleaseAccess, result(2));
    const Ended ended = update();
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, told());
    for (const char* code : {"0x1600811", "0x1600826", "0x1600824", "0x1600821"})
        EXPECT_NE(ended.err.find(std::string("kvinv: error ") + code + ": "), std::string::npos) << code << ended.err;
    EXPECT_NE(ended.err.find("kvinv: warning: the image may still be on the board, as dir/file\n"), std::string::npos);
    EXPECT_TRUE(wasCalled(ReleaseAccess));
}

TEST_F(UpdateOfAScriptedBoard, EachStepOfTheEndThatFailsMakesTheUpdateFail)
{
    for (const KvUInt32 procedure : {UpdateFinish, Authority}) {
        const Bytes good = procedure == Authority ? Bytes(Record().number(0).number(1).opaque({})) : result(0);
        board.answer(procedure - 100,
                     procedure == Authority ? Bytes(Record().number(1).number(0).opaque({})) : result(1));
        board.answers(UpdateStatus - 100, {status(finished, 100)});
        EXPECT_EQ(update().status, 1) << procedure;
        board.answer(procedure - 100, good);
    }
    board.answerDeviceAccess(ReleaseAccess, result(2));
    EXPECT_EQ(update().status, 1);
    board.answerDeviceAccess(ReleaseAccess, result(0));
    EXPECT_EQ(update().status, 0);
}

TEST_F(UpdateOfAScriptedBoard, AKindOfTheBoardsOwnIsPassedOnAndFollowed)
{
    board.answers(UpdateStatus2 - 100, {status2(running, 30, 0), status2(finished, 100, 0)});
    const Ended good = update({"--kind", "0x2000"});
    EXPECT_EQ(good.status, 0) << good.err;
    EXPECT_TRUE(wasCalled(Update2) && wasCalled(UpdateStatus2) && wasCalled(UpdateFinish));
    EXPECT_FALSE(wasCalled(Update) || wasCalled(UpdateStatus) || wasCalled(UpdateErrors2));
    for (const ScriptedBoards::Call& call : board.calls()) {
        if (call.procedure == Update2 - 100) {
            // Behind the address of two elements and the access id.
            EXPECT_EQ(Bytes(call.arguments.begin() + 28, call.arguments.begin() + 32), (Bytes{0, 0, 0x20, 0}));
        }
    }
    board.answers(UpdateStatus2 - 100, {status2(finished, 100, 2)});
    board.answers(UpdateErrors2 - 100, {Record().number(0).opaque(errorBlock(0x3FFFF1)).opaque({}),
                                        Record().number(0).opaque(errorBlock(0x3FFFF2)).opaque({})});
    const Ended bad = update({"--kind", "7"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.err.find("error 0x3ffff1: "), std::string::npos) << bad.err;
    EXPECT_NE(bad.err.find("error 0x3ffff2: "), std::string::npos) << bad.err;
}

TEST_F(UpdateOfAScriptedBoard, ALockThatIsNotGivenIsTheEnd)
{
    board.answerDeviceAccess(RequestAccess, Record().number(1).number(0).number(0).text("somebody").opaque({}));
    const Ended ended = update();
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("kvinv: error 0x160081f: "), std::string::npos) << ended.err;
    EXPECT_EQ(calls(), (std::vector<int>{RequestAccess, ReadParameter}));
}

TEST_F(UpdateOfAScriptedBoard, ADryRunAndARefusalOnlyRead)
{
    const Ended dry = update({"--dry-run"});
    EXPECT_EQ(dry.status, 0);
    EXPECT_EQ(dry.out, told() + "dry run: nothing was changed\n");
    EXPECT_EQ(dry.err, "");
    board.answer(ReadParameter - 100, versionAnswer("4.0.1b2"));
    const Ended refused = update();
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err,
              "kvinv: version 4.0.1b2 of " + path("fw.bin") +
                  " is not newer than 4.0.1b2 of HCN[4711]/FIRMWARE; nothing was changed (--force tries it "
                  "all the same)\n");
    EXPECT_EQ(update({"--dry-run"}).status, 1);
    EXPECT_EQ(calls(), (std::vector<int>{ReadParameter, ReadParameter, ReadParameter}));
}

TEST_F(UpdateOfAScriptedBoard, AnInterruptionEndsTheTransferAndGivesTheLockBack)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        board.stallDeviceAccess(PutData);
        const std::vector<int> seen = calls();
        const auto begun = static_cast<std::size_t>(std::count(seen.begin(), seen.end(), int(PutData)));
        Running process(KVINV_PROGRAM, arguments());
        ASSERT_TRUE(board.waitForCalls(ScriptedBoards::DeviceAccessProgram, PutData, begun + 1));
        process.signal(signal);
        const Ended ended = process.wait();
        EXPECT_EQ(ended.status, 128 + signal);
        EXPECT_EQ(lines(ended.err).back(), "kvinv: interrupted");
    }
    const std::vector<int> list = calls();
    EXPECT_EQ(std::count(list.begin(), list.end(), int(PutAbort)), 3);
    EXPECT_EQ(std::count(list.begin(), list.end(), int(ReleaseAccess)), 3);
    EXPECT_FALSE(wasCalled(Update) || wasCalled(PutEnd));
}

TEST_F(UpdateOfAScriptedBoard, WhileTheBoardProgramsAnInterruptionIsToldAndWaitedOut)
{
    board.answer(UpdateStatus - 100, status(running, 40));
    Running process(KVINV_PROGRAM, arguments());
    ASSERT_TRUE(board.waitForCalls(ScriptedBoards::InventoryProgram, UpdateStatus - 100, 1));
    process.signal(SIGINT);
    ASSERT_TRUE(process.waitFor("another interruption leaves it to the board\n", "err"));
    EXPECT_FALSE(wasCalled(ReleaseAccess));
    board.answer(UpdateStatus - 100, status(finished, 100));
    const Ended ended = process.wait();
    EXPECT_EQ(ended.status, 130);
    EXPECT_EQ(ended.out, told() + "updated: HCN[4711]/FIRMWARE to version 4.0.1b2\n");
    EXPECT_TRUE(wasCalled(UpdateFinish) && wasCalled(Delete) && wasCalled(ReleaseAccess));
}

TEST_F(UpdateOfAScriptedBoard, ASecondInterruptionLeavesTheUpdateToTheBoard)
{
    for (const bool isStalled : {false, true}) {
        board.answer(UpdateStatus - 100, status(running, 40));
        Running process(KVINV_PROGRAM, arguments());
        ASSERT_TRUE(process.waitFor("the board is programming", "err"));
        process.signal(SIGINT);
        ASSERT_TRUE(process.waitFor("another interruption leaves it to the board\n", "err"));
        if (isStalled) {
            const std::size_t asked = board.calls().size();
            board.stall(UpdateStatus - 100);
            while (board.calls().size() <= asked)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            // The next one, at the latest, is not answered.
            std::this_thread::sleep_for(std::chrono::milliseconds(400));
        }
        process.signal(SIGINT);
        const Ended ended = process.wait();
        EXPECT_EQ(ended.status, 130);
        const std::vector<std::string> told = lines(ended.err);
        ASSERT_GE(told.size(), 2U);
        EXPECT_EQ(
            told[told.size() - 2],
            "kvinv: warning: the update is left to the board; when it is over, kvinv rm HCN[4711] dir/file deletes "
            "the image there");
        EXPECT_EQ(told.back(), "kvinv: interrupted");
    }
    const std::vector<int> list = calls();
    EXPECT_EQ(std::count(list.begin(), list.end(), int(ReleaseAccess)), 2);
    EXPECT_FALSE(wasCalled(UpdateFinish) || wasCalled(Delete) || wasCalled(UpdateErrors));
}

TEST_F(UpdateOfAScriptedBoard, TheBarIsLeftWhenItIsInterrupted)
{
    board.answer(UpdateStatus - 100, status(running, 40));
    Circumstances terminal;
    terminal.errorsOnTerminal = true;
    Running process(KVINV_PROGRAM, arguments(), terminal);
    ASSERT_TRUE(board.waitForCalls(ScriptedBoards::InventoryProgram, UpdateStatus - 100, 1));
    process.signal(SIGINT);
    ASSERT_TRUE(board.waitForCalls(ScriptedBoards::InventoryProgram, UpdateStatus - 100, 6));
    process.signal(SIGINT);
    const Ended ended = process.wait();
    EXPECT_EQ(ended.status, 130);
    EXPECT_EQ(lines(ended.err).back(), "kvinv: interrupted\r");
    EXPECT_TRUE(wasCalled(ReleaseAccess));
}

TEST_F(UpdateOfAScriptedBoard, AThirdInterruptionEndsTheCommandAtOnce)
{
    board.stallDeviceAccess(PutData);
    board.stallDeviceAccess(ReleaseAccess);
    Running process(KVINV_PROGRAM, arguments());
    ASSERT_TRUE(board.waitForCalls(ScriptedBoards::DeviceAccessProgram, PutData, 1));
    process.signal(SIGINT);
    ASSERT_TRUE(board.waitForCalls(ScriptedBoards::DeviceAccessProgram, ReleaseAccess, 1));
    process.signal(SIGTERM);
    process.signal(SIGINT);
    const Ended ended = process.wait();
    EXPECT_TRUE(ended.status == 128 + SIGINT || ended.status == 128 + SIGTERM) << ended.status;
    EXPECT_EQ(ended.err.find("0x1600821"), std::string::npos) << "it has waited for the lock: " << ended.err;
}

TEST_F(BesideAScriptedBoard, AnInterruptedScanLeavesTheFileAsItWas)
{
    constexpr KvUInt32 scan = 1;
    ScriptedBoards scripted;
    ScriptedBoards::Board& silent = scripted.add(4799);
    silent.stall(scan);
    scripted.start();
    const std::string port = std::getenv("KVDAL_PORTMAP_PORT");
    const std::unique_ptr<Running> service = startService({}, port);
    ASSERT_NE(service, nullptr) << "the service does not start";
    put("x.inv", "old");
    Running process(KVINV_PROGRAM,
                    {"scan", "--ip", "127.0.70.1," + ScriptedBoards::quad(silent.address), "-o", path("x.inv")});
    ASSERT_TRUE(silent.waitForCalls(ScriptedBoards::InventoryProgram, scan, 1));
    // The other one has answered by now.
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    process.signal(SIGINT);
    EXPECT_EQ(process.wait().status, 130);
    EXPECT_EQ(content(path("x.inv")), "old");
}

TEST_F(UpdateOfAScriptedBoard, TheFilesOnABoardAreListedAsTheyAre)
{
    const auto listed = [&](const Record& files) {
        board.answerDeviceAccess(ListFiles, files);
        return kvinv({"ls", "--ip", ScriptedBoards::quad(board.address), "HCN[4711]"});
    };
    const Ended ended = listed(Record()
                                   .number(0)
                                   .number(3)
                                   .text("")
                                   .text("bare")
                                   .wide(0)
                                   .wide(0)
                                   .text("d")
                                   .text("a\x1b[2J\nb")
                                   .wide(~std::uint64_t{0})
                                   .wide(951827696)
                                   .text("d/e")
                                   .text("late")
                                   .wide(5)
                                   .wide(253402300800)
                                   .wide(77)
                                   .opaque({}));
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.out,
              "                size  modified              name\n"
              "                   0  1970-01-01T00:00:00Z  bare\n"
              "18446744073709551615  2000-02-29T12:34:56Z  d/a\\x1b[2J\\nb\n"
              "                   5  253402300800          d/e/late\n"
              "77 bytes free\n");
    const Ended refused = listed(Record().number(10).number(0).wide(0).opaque(errorBlock(0x3FFFFF)));
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_NE(refused.err.find("kvinv: error 0x3fffff: "), std::string::npos) << refused.err;
}

TEST_F(UpdateOfAScriptedBoard, NamesFromTheBoardDoNotSteerTheTerminal)
{
    board.answer(FileName - 100, Record().number(0).characters("d").characters("f\x1b[2J\n").opaque({}));
    board.answer(Authority - 100, Record().number(0).number(1).opaque({}));
    board.answerDeviceAccess(Delete, result(10));
    const Ended ended = update();
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err.find('\x1b'), std::string::npos) << ended.err;
    EXPECT_NE(ended.err.find("f\\x1b[2J\\n"), std::string::npos) << ended.err;
}
