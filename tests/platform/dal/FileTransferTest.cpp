#include <algorithm>
#include <thread>

#include "platform/dal/Upload.h"
#include "platform/oncrpc/KvCRpcClient.h"
#include "tests/platform/dal/DalTest.h"
#include "tests/platform/dal/FileTransferFixture.h"
#include "tests/support/RpcBytes.h"

using namespace KvNDeviceAccess;
using RpcBytes::operator+;
using RpcBytes::units;
using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<unsigned char>;

TEST_F(FileTransfer, sendsTheseBytesInThisOrder)
{
    ASSERT_EQ(put("0123456789ABCDEF01234"), 0);
    const ScriptedFiles files = look();
    EXPECT_THAT(files.procedures(), ElementsAre(1, 5, 6, 6, 6, 7));
    ASSERT_EQ(files.calls.size(), 6u);
    EXPECT_THAT(files.calls[0].arguments, IsEmpty());
    EXPECT_EQ(files.calls[1].arguments,
              units({77, 3, 0x64697200, 5, 0x696D6167, 0x65000000, 0, 21}));  // "dir", "image"
    EXPECT_EQ(files.calls[2].arguments, units({77, 101, 0, 0, 8, 0x30313233, 0x34353637}));
    EXPECT_EQ(files.calls[3].arguments, units({77, 101, 0, 8, 8, 0x38394142, 0x43444546}));
    EXPECT_EQ(files.calls[4].arguments, units({77, 101, 0, 16, 5, 0x30313233, 0x34000000}));
    EXPECT_EQ(files.calls[5].arguments, units({77, 101, checksumOf21}));
    EXPECT_EQ(files.stored.at("dir/image"), "0123456789ABCDEF01234");
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(FileTransfer, tellsItsProgressAfterEachChunkAndTheWholeWhenTheBoardHasCheckedIt)
{
    const std::vector<std::pair<std::size_t, std::vector<unsigned>>> cases = {{0, {1000}},
                                                                              {1, {1000}},
                                                                              {7, {1000}},
                                                                              {8, {1000}},
                                                                              {9, {888, 1000}},
                                                                              {16, {500, 1000}},
                                                                              {21, {380, 761, 1000}},
                                                                              {40, {200, 400, 600, 800, 1000}}};
    for (const auto& [size, wanted] : cases) {
        std::string content;
        for (std::size_t i = 0; i < size; ++i)
            content += static_cast<char>(i * 37);
        told.clear();
        ASSERT_EQ(put(content), 0) << size;
        EXPECT_EQ(told, wanted) << size;
        EXPECT_EQ(look().stored.at("dir/image"), content) << size;
        EXPECT_EQ(look().announced, size);
    }
    EXPECT_EQ(look().callsOf(PutData).size(), 0u + 1 + 1 + 1 + 2 + 2 + 3 + 5);
    rack.with(0, [](ScriptedBoard& board) { board.files.faults[{PutEnd, 0}] = answer(units({10, 0})); });
    told.clear();
    EXPECT_EQ(put("12345678"), -BoardIo);
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(FileTransfer, worksWithoutAProgressFunction)
{
    const std::wstring path = folder.file("local", "0123456789");
    EXPECT_EQ(KvDAL_putFileU(errors, nullptr, transfer, path.c_str(), "dir", "image", nullptr, nullptr), 0);
    EXPECT_EQ(look().stored.at("dir/image"), "0123456789");
}

TEST(FileTransferProgress, isInThousandthsOfFilesOfAnySize)
{
    constexpr KvUInt64 largest = ~KvUInt64{0};
    EXPECT_EQ(thousandths(0, 1), 0u);
    EXPECT_EQ(thousandths(1, 1000), 1u);
    EXPECT_EQ(thousandths(1999, 2000), 999u);
    EXPECT_EQ(thousandths(999999, 1000000), 999u);
    EXPECT_EQ(thousandths(5, 5), 999u);
    EXPECT_EQ(thousandths(largest / 1000, largest), 0u);
    EXPECT_EQ(thousandths(largest / 2, largest), 500u);
    EXPECT_EQ(thousandths(largest - 1, largest), 999u);
    EXPECT_EQ(thousandths(largest, largest), 999u);
    unsigned former = 0;
    for (KvUInt64 done = 0; done < largest - (KvUInt64{1} << 50); done += KvUInt64{1} << 50) {
        const unsigned now = thousandths(done, largest);
        ASSERT_GE(now, former);
        former = now;
    }
}

TEST_F(FileTransfer, takesTheChunkThatTheBoardSaysButNoneAboveTheLimit)
{
    rack.with(0, [](ScriptedBoard& board) { board.maxChunk = 0xFFFFFFFF; });
    const std::string content(1048577, 'k');
    ASSERT_EQ(put(content), 0);
    const std::vector<Bytes> sent = look().callsOf(PutData);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].size(), 20u + 1048576);
    EXPECT_EQ(sent[1], units({77, 101, 0, 1048576, 1, 0x6B000000}));
    EXPECT_THAT(told, ElementsAre(999, 1000));
    EXPECT_EQ(look().stored.at("dir/image"), content);
}

TEST_F(FileTransfer, withABoardThatTakesNoBytesOrIsAnotherOneIsNotBegun)
{
    rack.with(0, [](ScriptedBoard& board) { board.maxChunk = 0; });
    EXPECT_EQ(put("x"), -InvalidReply);
    EXPECT_THAT(codes(errors), ElementsAre(0x20000D));
    EXPECT_STREQ(errors.getErrorOrigin(0), "KvDAL_putFileU");
    rack.with(0, [](ScriptedBoard& board) {
        board.maxChunk = 8;
        board.serialNumber = 6;
    });
    errors.clear();
    EXPECT_EQ(put("x"), -InvalidReply);
    EXPECT_THAT(look().procedures(), ElementsAre(1, 1));
}

TEST_F(FileTransfer, survivesTheLossOfEachCallAndOfEachReply)
{
    const std::vector<std::pair<KvUInt32, int>> places = {{Identify, 1}, {PutBegin, 1}, {PutData, 1},
                                                          {PutData, 2},  {PutData, 3},  {PutEnd, 1}};
    for (const auto kind : {ScriptedFault::Kind::LoseCall, ScriptedFault::Kind::LoseReply}) {
        for (const auto& place : places) {
            fresh({{place, {kind, {}}}});
            told.clear();
            ASSERT_EQ(put("0123456789ABCDEF01234"), 0) << place.first << ' ' << place.second;
            const ScriptedFiles files = look();
            EXPECT_EQ(files.stored.at("dir/image"), "0123456789ABCDEF01234");
            EXPECT_EQ(files.ended, 1u);
            EXPECT_EQ(files.calls.size(), 7u);
            EXPECT_THAT(files.callsOf(PutAbort), IsEmpty());
            EXPECT_THAT(told, ElementsAre(380, 761, 1000));
            EXPECT_EQ(errors.getErrorCount(), 0u);
        }
    }
}

TEST_F(FileTransfer, survivesTheLossOfEveryOtherReply)
{
    ScriptedFaults lost;
    for (int i = 1; i < 12; i += 2)
        lost[{PutData, i}] = {ScriptedFault::Kind::LoseReply, {}};
    lost[{Identify, 1}] = lost[{PutBegin, 1}] = lost[{PutEnd, 1}] = {ScriptedFault::Kind::LoseReply, {}};
    fresh(lost);
    ASSERT_EQ(put("0123456789ABCDEF0123456789abcdef01234567"), 0);
    EXPECT_EQ(look().stored.at("dir/image"), "0123456789ABCDEF0123456789abcdef01234567");
    EXPECT_EQ(look().ended, 1u);
}

TEST_F(FileTransfer, whoseReplyIsLostAgainFailsAndLeavesNothing)
{
    for (const KvUInt32 procedure : {Identify, PutBegin, PutData, PutEnd}) {
        for (const auto kind : {ScriptedFault::Kind::LoseCall, ScriptedFault::Kind::LoseReply}) {
            fresh({{{procedure, 0}, {kind, {}}}});
            EXPECT_EQ(put("0123456789ABCDEF01234"), -ConnectionFailed);
            ASSERT_EQ(errors.getErrorCount(), 2u) << procedure;
            EXPECT_EQ(errors.getErrorCode(0) & 0xFFF00000, 0x100000u);
            EXPECT_EQ(errors.getErrorCode(1), 0x20000Cu);
            const ScriptedFiles files = look();
            EXPECT_THAT(files.stored, IsEmpty()) << procedure;
            EXPECT_EQ(files.callsOf(procedure).size(), 2u);
            EXPECT_EQ(files.callsOf(PutAbort).size(), procedure >= PutData ? 1u : 0u);
            // the board may have taken the file as a whole
            EXPECT_EQ(files.callsOf(Delete).size(), procedure == PutEnd ? 1u : 0u);
            EXPECT_EQ(files.transferId != 0, procedure == PutBegin && kind == ScriptedFault::Kind::LoseReply);
        }
    }
}

TEST_F(FileTransfer, thatTheBoardRefusesIsWithdrawn)
{
    const std::vector<std::pair<KvUInt32, int>> places = {{PutBegin, 1}, {PutData, 1}, {PutData, 3}, {PutEnd, 1}};
    for (const auto& place : places) {
        for (const KvUInt32 status : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 77u, 0x80000000u}) {
            if (place.first == PutData && status == 7)
                continue;
            const Bytes refusal = place.first == PutEnd ? units({status, 0}) : units({status, 0, 0});
            fresh({{place, answer(place.first == PutData ? units({status, 0, 0, 0}) : refusal)}});
            const KvInt32 known = status <= 12 ? static_cast<KvInt32>(status) : 0;
            EXPECT_EQ(put("0123456789ABCDEF01234"), -(100 + known)) << place.first << ' ' << status;
            EXPECT_THAT(codes(errors), ElementsAre(0x200800u + static_cast<KvUInt32>(known)));
            const ScriptedFiles files = look();
            EXPECT_THAT(files.stored, IsEmpty());
            EXPECT_EQ(files.transferId, 0u);
            EXPECT_THAT(files.callsOf(Delete), IsEmpty());
            // a transfer that was not begun cannot be withdrawn
            EXPECT_THAT(files.callsOf(PutAbort),
                        place.first == PutBegin ? std::vector<Bytes>() : std::vector<Bytes>{units({77, 101})});
        }
    }
}

TEST_F(FileTransfer, goesBackToWhatTheBoardStillHas)
{
    // the board has lost its bytes once
    fresh({});
    rack.with(0, [](ScriptedBoard& board) { board.files.faults[{PutData, 3}] = answer(units({7, 0, 8, 0})); });
    onProgress = [this](unsigned) {
        rack.with(0, [](ScriptedBoard& board) {
            if (board.files.calls.size() == 4)
                board.files.received.resize(8);
        });
    };
    ASSERT_EQ(put("0123456789ABCDEF01234"), 0);
    const ScriptedFiles files = look();
    EXPECT_EQ(files.stored.at("dir/image"), "0123456789ABCDEF01234");
    const std::vector<Bytes> sent = files.callsOf(PutData);
    ASSERT_EQ(sent.size(), 5u);
    EXPECT_EQ(sent[3], units({77, 101, 0, 8, 8, 0x38394142, 0x43444546}));
    EXPECT_EQ(sent[4], units({77, 101, 0, 16, 5, 0x30313233, 0x34000000}));
    EXPECT_THAT(files.callsOf(PutEnd), ElementsAre(units({77, 101, checksumOf21})));
    EXPECT_THAT(told, ElementsAre(380, 761, 761, 761, 1000));
}

TEST_F(FileTransfer, goesOnInTheMiddleOfAChunkWhenTheBoardHasLessOfIt)
{
    fresh({{{PutData, 2}, answer(units({7, 0, 3, 0}))}});
    onProgress = [this](unsigned) {
        rack.with(0, [](ScriptedBoard& board) {
            if (board.files.calls.size() == 3)
                board.files.received.resize(3);
        });
    };
    ASSERT_EQ(put("0123456789ABCDEF01234"), 0);
    EXPECT_EQ(look().stored.at("dir/image"), "0123456789ABCDEF01234");
    EXPECT_THAT(look().callsOf(PutEnd), ElementsAre(units({77, 101, checksumOf21})));
}

TEST_F(FileTransfer, goesOnAfterARepeatedChunkThatTheBoardTookTheFirstTime)
{
    fresh({{{PutData, 2}, {ScriptedFault::Kind::LoseReply, {}}}, {{PutData, 3}, answer(units({7, 0, 16, 0}))}});
    ASSERT_EQ(put("0123456789ABCDEF01234"), 0);
    EXPECT_EQ(look().stored.at("dir/image"), "0123456789ABCDEF01234");
    EXPECT_THAT(told, ElementsAre(380, 761, 1000));
}

TEST_F(FileTransfer, doesNotGoBackForEver)
{
    ScriptedFaults back;
    for (int i = 2; i < 100; i += 2)
        back[{PutData, i}] = answer(units({7, 0, 0, 0}));
    fresh(back);
    EXPECT_EQ(put("0123456789ABCDEF01234"), -BoardOutOfOrder);
    EXPECT_THAT(codes(errors), ElementsAre(0x200807));
    EXPECT_EQ(look().callsOf(PutData).size(), 34u);
    EXPECT_EQ(look().callsOf(PutAbort).size(), 1u);
}

TEST_F(FileTransfer, doesNotCreepForwardForEver)
{
    // back to the start once, and then forward byte by byte
    ScriptedFaults creep = {{{PutData, 3}, answer(units({7, 0, 0, 0}))}};
    for (KvUInt32 i = 1; i < 100; ++i)
        creep[{PutData, 3 + static_cast<int>(i)}] = answer(units({7, 0, i, 0}));
    fresh(creep);
    EXPECT_EQ(put(std::string(200, 'x')), -BoardOutOfOrder);
    EXPECT_THAT(codes(errors), ElementsAre(0x200807));
    EXPECT_EQ(look().callsOf(PutData).size(), 19u);
    EXPECT_EQ(look().callsOf(PutAbort).size(), 1u);
}

TEST_F(FileTransfer, thatWasSetRightIsNoFailure)
{
    KvCErrorListPool reported;
    reported.setError(0x300000, 1, "Files::write", nullptr);
    const Bytes block = reported.serialize();
    const Bytes disorder = units({7, 0, 0, static_cast<KvUInt32>(block.size())}) + block;
    fresh({{{PutData, 2}, answer(disorder)}});
    EXPECT_EQ(put("0123456789ABCDEF01234"), 0);
    EXPECT_THAT(codes(errors), IsEmpty());
    EXPECT_EQ(look().stored.at("dir/image"), "0123456789ABCDEF01234");
    // what the board says of the one that is not borne any more is told
    ScriptedFaults always;
    for (int i = 2; i < 100; i += 2)
        always[{PutData, i}] = answer(disorder);
    fresh(always);
    EXPECT_EQ(put("0123456789ABCDEF01234"), -BoardOutOfOrder);
    EXPECT_THAT(codes(errors), ElementsAre(0x300000, 0x200807));
}

TEST_F(FileTransfer, whoseLastReplyWasLostAndThenRefusedLeavesNothing)
{
    fresh({{{PutEnd, 1}, {ScriptedFault::Kind::LoseReply, {}}}, {{PutEnd, 2}, answer(units({6, 0}))}});
    EXPECT_EQ(put("0123456789ABCDEF01234"), -BoardNoTransfer);
    EXPECT_EQ(look().ended, 1u);
    EXPECT_THAT(look().stored, IsEmpty());
    EXPECT_THAT(look().procedures(), ElementsAre(1, 5, 6, 6, 6, 7, 7, 8, 9));
}

TEST_F(FileTransfer, doesNotWaitTwiceForABoardThatFallsSilent)
{
    fresh({{{PutEnd, 1}, {ScriptedFault::Kind::Silence, {}}},
           {{PutAbort, 0}, {ScriptedFault::Kind::Silence, {}}},
           {{Delete, 0}, {ScriptedFault::Kind::Silence, {}}}});
    std::thread canceller([&] {
        rack.waitUntil(0, [](const ScriptedBoard& board) { return !board.files.callsOf(PutEnd).empty(); });
        KvCRpcClient::setDefaultTimeout(100000);
        KvCRpcClient::cancelAll();
    });
    EXPECT_EQ(put("0123456789ABCDEF01234"), -TransferCancelled);
    canceller.join();
    KvCRpcClient::setDefaultTimeout(0);
    EXPECT_THAT(look().procedures(), ElementsAre(1, 5, 6, 6, 6, 7, 8, 9));
}

TEST_F(FileTransfer, isWithdrawnWhenTheBoardSaysThatItHasWhatItCannotHave)
{
    const Bytes nonsense[] = {
        units({0, 0, 8, 0}),           // nothing taken
        units({0, 0, 15, 0}),          // a part of the chunk taken
        units({0, 0, 17, 0}),          // more than was sent
        units({0, 1, 16, 0}),          //
        units({7, 0, 8, 0}),           // out of order, but where it was to be
        units({7, 0, 9, 0}),           // more than what was sent before
        units({7, 0, 16, 0}),          // taken and refused
        units({7, 0xFFFFFFFF, 0, 0}),  //
    };
    for (const Bytes& reply : nonsense) {
        fresh({{{PutData, 2}, answer(reply)}});
        EXPECT_EQ(put("0123456789ABCDEF01234"), -InvalidReply);
        EXPECT_THAT(codes(errors), ElementsAre(0x20000D));
        EXPECT_THAT(look().procedures(), ElementsAre(1, 5, 6, 6, 8));
        EXPECT_THAT(look().stored, IsEmpty());
    }
    // beyond what was sent stays nonsense when the chunk was repeated
    fresh({{{PutData, 2}, {ScriptedFault::Kind::LoseReply, {}}}, {{PutData, 3}, answer(units({7, 0, 17, 0}))}});
    EXPECT_EQ(put("0123456789ABCDEF01234"), -InvalidReply);
}

TEST_F(FileTransfer, isWithdrawnWhenAReplyCannotBeRead)
{
    for (const KvUInt32 procedure : {Identify, PutBegin, PutData, PutEnd}) {
        for (const Bytes& reply : {Bytes{}, Bytes{1, 2, 3, 4}, Bytes(4000, 0xFF), units({0, 0, 0, 0, 0, 0, 0})}) {
            fresh({{{procedure, 1}, answer(reply)}});
            const KvInt32 result = put("0123456789ABCDEF01234");
            EXPECT_TRUE(result == -ConnectionFailed || (procedure == Identify && result == -InvalidReply)) << result;
            EXPECT_GE(errors.getErrorCount(), 1u);
            EXPECT_THAT(look().stored, IsEmpty());
            EXPECT_EQ(look().callsOf(PutAbort).size(), procedure >= PutData ? 1u : 0u);
        }
    }
}

TEST_F(FileTransfer, needsAnAccessIdInForce)
{
    KvDAL_deleteAccessRestrictionHandle(errors, lock);
    EXPECT_EQ(put("x"), -NoAccess);
    EXPECT_EQ(KvDAL_deleteFile(errors, nullptr, transfer, "dir", "image"), NoAccess);
    EXPECT_THAT(codes(errors), ElementsAre(0x20000E, 0x20000E));
    EXPECT_EQ(rack.look(0).streams, 0u);
}

TEST_F(FileTransfer, sendsNothingWhenThereIsNoLocalFile)
{
    ASSERT_EQ(::mkfifo(narrow(folder.path("pipe")).c_str(), 0600), 0);
    const std::vector<std::pair<std::wstring, std::string>> cases = {
        {folder.path("missing"), "No such file or directory"},
        {folder.path("."), "Is a directory"},
        {folder.path("pipe"), "Not a regular file"}};
    for (const auto& [path, reason] : cases) {
        errors.clear();
        EXPECT_EQ(putPath(path), -LocalFileFailed);
        EXPECT_THAT(codes(errors), ElementsAre(0x200012));
        EXPECT_EQ(errors.getErrorText(0),
                  "Access denied. Cannot read the local file '" + narrow(path) + "': " + reason + ".");
    }
    const wchar_t broken[] = {L'a', static_cast<wchar_t>(0xD800), 0};
    errors.clear();
    EXPECT_EQ(putPath(broken), -LocalFileFailed);
    EXPECT_STREQ(errors.getErrorText(0),
                 "Access denied. Cannot read the local file 'a\xEF\xBF\xBD': Invalid or "
                 "incomplete multibyte or wide character.");
    EXPECT_EQ(rack.look(0).streams, 0u);
}

TEST_F(FileTransfer, takesALocalFileOfAnyName)
{
    std::ofstream(folder.bytes() +
                  "/Gr\xC3\xB6\xC3\x9F"
                  "e-\xE6\x96\x87\xE4\xBB\xB6-\xF0\x9F\x98\x80.bin")
        << "named";
    EXPECT_EQ(putPath(folder.path("") + L"Gr\xF6\xDF"
                                        L"e-\x6587\x4EF6-\x1F600.bin"),
              0);
    EXPECT_EQ(look().stored.at("dir/image"), "named");
}

TEST_F(FileTransfer, whoseLocalFileChangesIsWithdrawn)
{
    const std::wstring path = folder.path("local");
    const std::string name = narrow(path);
    // and how many chunks were sent
    const std::vector<std::pair<std::function<void()>, std::size_t>> changes = {
        {[&] { EXPECT_EQ(::truncate(name.c_str(), 12), 0); }, 1},
        {[&] { EXPECT_EQ(::truncate(name.c_str(), 0), 0); }, 1},
        {[&] { EXPECT_EQ(::truncate(name.c_str(), 22), 0); }, 3},
        {[&] { setWritten(path, 1000); }, 3}};
    for (const auto& [change, chunks] : changes) {
        fresh({});
        onProgress = [&, now = change](unsigned thousandth) {
            if (thousandth == 380)
                now();
        };
        EXPECT_EQ(put("0123456789ABCDEF01234"), -LocalFileChanged);
        EXPECT_THAT(codes(errors), ElementsAre(0x200013));
        EXPECT_EQ(errors.getErrorText(0), "Access denied. The local file '" + name + "' changed while it was read.");
        const ScriptedFiles files = look();
        EXPECT_EQ(files.callsOf(PutData).size(), chunks);
        EXPECT_EQ(files.callsOf(PutAbort).size(), 1u);
        EXPECT_THAT(files.callsOf(PutEnd), IsEmpty());
        EXPECT_EQ(files.transferId, 0u);
    }
}

TEST_F(FileTransfer, whoseLocalFileHasMoreThanItSaysOrCannotBeReadIsWithdrawn)
{
    // files that the system makes up say that they are empty
    EXPECT_EQ(putPath(L"/proc/self/status"), -LocalFileChanged);
    EXPECT_EQ(putPath(L"/proc/self/mem"), -LocalFileFailed);
    EXPECT_THAT(codes(errors), ElementsAre(0x200013, 0x200012));
    EXPECT_STREQ(errors.getErrorText(1),
                 "Access denied. Cannot read the local file '/proc/self/mem': Input/output error.");
    EXPECT_THAT(look().procedures(), ElementsAre(1, 5, 8, 1, 5, 8));
}

TEST_F(FileTransfer, isEndedByCancellingACallInProgress)
{
    for (const KvUInt32 procedure : {Identify, PutBegin, PutData, PutEnd}) {
        fresh({{{procedure, 0}, {ScriptedFault::Kind::Silence, {}}}});
        std::thread canceller([&] {
            rack.waitUntil(0, [&](const ScriptedBoard& board) { return !board.files.callsOf(procedure).empty(); });
            KvCRpcClient::cancelAll();
        });
        EXPECT_EQ(put("0123456789ABCDEF01234"), -TransferCancelled);
        canceller.join();
        ASSERT_EQ(errors.getErrorCount(), 2u);
        EXPECT_EQ(errors.getErrorCode(0) & 0xFFF00000, 0x100000u);
        EXPECT_EQ(errors.getErrorCode(1), 0x200014u);
        EXPECT_STREQ(errors.getErrorText(1),
                     "Communication error. The file transfer to the board at 127.0.50.60 was cancelled.");
        const ScriptedFiles files = look();
        EXPECT_EQ(files.callsOf(procedure).size(), 1u);
        EXPECT_EQ(files.callsOf(PutAbort).size(), procedure >= PutData ? 1u : 0u);
        EXPECT_EQ(files.callsOf(Delete).size(), procedure == PutEnd ? 1u : 0u);
    }
}

TEST_F(FileTransfer, isEndedByCancellingBetweenTwoCalls)
{
    onProgress = [](unsigned thousandth) {
        if (thousandth == 380)
            KvCRpcClient::cancelAll();
    };
    EXPECT_EQ(put("0123456789ABCDEF01234"), -TransferCancelled);
    EXPECT_THAT(codes(errors), ElementsAre(0x200014));
    EXPECT_THAT(look().procedures(), ElementsAre(1, 5, 6, 8));
    EXPECT_EQ(look().transferId, 0u);
    onProgress = nullptr;
    EXPECT_EQ(put("0123456789ABCDEF01234"), 0);
}

TEST_F(FileTransfer, saysWhyABoardCannotBeReached)
{
    Device other(address + 1, 9);
    void* adopted = nullptr;
    void* there = nullptr;
    ASSERT_EQ(KvDAL_adoptAccessRestriction(errors, other.handle, 5, &adopted), 0);
    ASSERT_EQ(KvDAL_createFTClientHandle(errors, other.handle, &there), 0);
    const std::wstring path = folder.file("local", "x");
    EXPECT_EQ(KvDAL_putFileU(errors, nullptr, there, path.c_str(), "", "f", nullptr, nullptr), -ConnectionFailed);
    ASSERT_EQ(errors.getErrorCount(), 2u);
    EXPECT_EQ(errors.getErrorCode(0) & 0xFFF00000, 0x100000u);
    EXPECT_EQ(errors.getErrorCode(1), 0x20000Cu);
    EXPECT_EQ(KvDAL_deleteFTClientHandle(errors, there), 0);
    EXPECT_EQ(KvDAL_deleteAccessRestrictionHandle(errors, adopted), 0);
}

TEST_F(FileTransfer, takesNamesOfTheBoardOfUpTo255Bytes)
{
    const std::string longest(255, 'n');
    EXPECT_EQ(put("x", "", longest), 0);
    EXPECT_EQ(put("x", std::string(200, 'd'), std::string(54, 'n')), 0);
    EXPECT_EQ(put("x", std::string(253, 'd'), "n"), 0);
    EXPECT_EQ(look().stored.size(), 3u);
    const std::size_t calls = look().calls.size();
    for (const auto& [directory, fileName] :
         std::vector<std::pair<std::string, std::string>>{{"", longest + "n"},
                                                          {std::string(200, 'd'), std::string(55, 'n')},
                                                          {longest, "n"},
                                                          {std::string(254, 'd'), "n"},
                                                          {std::string(100000, 'd'), std::string(100000, 'n')},
                                                          {"dir", ""}}) {
        errors.clear();
        EXPECT_EQ(put("x", directory, fileName), -InvalidArgument);
        EXPECT_EQ(KvDAL_deleteFile(errors, nullptr, transfer, directory.c_str(), fileName.c_str()), InvalidArgument);
        EXPECT_THAT(codes(errors), ElementsAre(0x200002, 0x200002));
    }
    EXPECT_EQ(look().calls.size(), calls);
}

TEST_F(FileTransfer, refusesNullPointers)
{
    const std::wstring path = folder.file("local", "x");
    const wchar_t* local = path.c_str();
    EXPECT_EQ(KvDAL_putFileU(errors, nullptr, transfer, nullptr, "d", "f", nullptr, nullptr), -InvalidArgument);
    EXPECT_EQ(KvDAL_putFileU(errors, nullptr, transfer, local, nullptr, "f", nullptr, nullptr), -InvalidArgument);
    EXPECT_EQ(KvDAL_putFileU(errors, nullptr, transfer, local, "d", nullptr, nullptr, nullptr), -InvalidArgument);
    EXPECT_EQ(KvDAL_putFileU(errors, this, transfer, local, "d", "f", nullptr, nullptr), -InvalidArgument);
    EXPECT_EQ(KvDAL_deleteFile(errors, nullptr, transfer, nullptr, "f"), InvalidArgument);
    EXPECT_EQ(KvDAL_deleteFile(errors, nullptr, transfer, "d", nullptr), InvalidArgument);
    EXPECT_EQ(KvDAL_deleteFile(errors, this, transfer, "d", "f"), InvalidArgument);
    EXPECT_EQ(KvDAL_createFTClientHandle(errors, device.handle, nullptr), InvalidArgument);
    EXPECT_EQ(errors.getErrorCount(), 8u);
    EXPECT_STREQ(
        errors.getErrorText(1),
        "Internal error. Korvel Support information: Invalid argument 'directory' of a device access operation.");
    EXPECT_EQ(rack.look(0).streams, 0u);
}

TEST_F(FileTransfer, throughAHandleThatIsNoneIsAnError)
{
    const std::wstring path = folder.file("local", "x");
    void* stale = nullptr;
    ASSERT_EQ(KvDAL_createFTClientHandle(errors, device.handle, &stale), 0);
    ASSERT_EQ(KvDAL_deleteFTClientHandle(errors, stale), 0);
    void* const none[] = {nullptr, stale, device.handle, lock, this};
    for (void* handle : none) {
        errors.clear();
        EXPECT_EQ(KvDAL_putFileU(errors, nullptr, handle, path.c_str(), "d", "f", nullptr, nullptr), -InvalidHandle);
        EXPECT_EQ(KvDAL_deleteFile(errors, nullptr, handle, "d", "f"), InvalidHandle);
        EXPECT_EQ(KvDAL_deleteFTClientHandle(errors, handle == device.handle ? nullptr : handle), InvalidHandle);
        EXPECT_THAT(codes(errors), ElementsAre(0x200001, 0x200001, 0x200001));
    }
    void* made = this;
    EXPECT_EQ(KvDAL_createFTClientHandle(errors, transfer, &made), InvalidHandle);
    EXPECT_EQ(made, nullptr);
    KvUInt32 size = 4;
    KvUInt32 value = 0;
    EXPECT_EQ(KvDAL_getParam(errors, transfer, 12, 0, &size, &value), InvalidHandle);
}

TEST_F(FileTransfer, goesOnWhenItsHandlesAreDeletedMeanwhile)
{
    onProgress = [this](unsigned thousandth) {
        if (thousandth != 380)
            return;
        std::thread([this] {
            KvCErrorListPool unused;
            EXPECT_EQ(KvDAL_deleteFTClientHandle(unused, transfer), 0);
            EXPECT_EQ(KvDAL_deleteAccessRestrictionHandle(unused, lock), 0);
            EXPECT_EQ(KvDAL_deleteDeviceHandle(unused, device.handle), 0);
        }).join();
    };
    EXPECT_EQ(put("0123456789ABCDEF01234"), 0);
    EXPECT_EQ(look().stored.at("dir/image"), "0123456789ABCDEF01234");
    EXPECT_EQ(KvDAL_deleteFTClientHandle(errors, transfer), InvalidHandle);
}

TEST_F(FileTransfer, toOneBoardTakesItsTurn)
{
    const std::wstring path = folder.file("local", "0123456789ABCDEF01234");
    std::vector<std::thread> users;
    for (int i = 0; i < 4; ++i)
        users.emplace_back([&, i] {
            KvCErrorListPool own;
            void* handle = nullptr;
            EXPECT_EQ(KvDAL_createFTClientHandle(own, device.handle, &handle), 0);
            const std::string name = "file" + std::to_string(i);
            EXPECT_EQ(KvDAL_putFileU(own, nullptr, handle, path.c_str(), "", name.c_str(), nullptr, nullptr), 0);
            EXPECT_EQ(KvDAL_deleteFTClientHandle(own, handle), 0);
        });
    for (std::thread& user : users)
        user.join();
    const ScriptedFiles files = look();
    EXPECT_EQ(files.stored.size(), 4u);
    std::vector<KvUInt32> wanted;
    for (int i = 0; i < 4; ++i)
        wanted.insert(wanted.end(), {1, 5, 6, 6, 6, 7});
    EXPECT_EQ(files.procedures(), wanted);
}

TEST_F(FileTransfer, passesOnWhatTheBoardReportsBeforeItsOwnEntry)
{
    KvCErrorListPool reported;
    reported.setError(0x300000, 1, "Files::write", nullptr);
    rack.with(0, [&](ScriptedBoard& board) { board.files.errorList = reported.serialize(); });
    // with each answer but the identity
    EXPECT_EQ(put("x"), 0);
    EXPECT_THAT(codes(errors), ElementsAre(0x300000, 0x300000, 0x300000));
    fresh({{{PutData, 1},
            answer(units({9, 0, 0}) + units({static_cast<KvUInt32>(reported.serialize().size())}) +
                   reported.serialize())}});
    EXPECT_EQ(put("x"), -BoardNoSpace);
    EXPECT_THAT(codes(errors), ElementsAre(0x300000, 0x200809));
}

TEST_F(FileTransfer, holdsNoMoreReportsOfABoardThanOneReplyCan)
{
    KvCErrorListPool reported;
    reported.setError(0x300000, 1, std::string(9980, 'o').c_str(), nullptr);
    const std::vector<unsigned char> block = reported.serialize();
    ASSERT_EQ(block.size(), 10008u);
    rack.with(0, [&](ScriptedBoard& board) {
        board.maxChunk = 1;
        board.files.errorList = block;
    });
    EXPECT_EQ(put(std::string(100, 'x')), 0);
    EXPECT_EQ(errors.getErrorCount(), 6u);
    rack.with(0, [&](ScriptedBoard& board) {
        board.files.faults[{PutEnd, 2}] = answer(units({10, static_cast<KvUInt32>(block.size())}) + block);
    });
    errors.clear();
    EXPECT_EQ(put(std::string(100, 'x')), -BoardIo);
    EXPECT_EQ(errors.getErrorCount(), 8u);
}
