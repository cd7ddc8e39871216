#include <algorithm>
#include <filesystem>
#include <thread>

#include "base/KvNMessage.h"
#include "platform/dal/DeviceAccessProgram.h"
#include "platform/oncrpc/KvCRpcClient.h"
#include "tests/platform/dal/FileTransferFixture.h"
#include "tests/support/RpcBytes.h"

using namespace KvNDeviceAccess;
using RpcBytes::units;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr std::size_t chunk = 65536;

/* Bytes that differ from chunk to chunk. */
std::string bytesOf(std::size_t size)
{
    std::string content(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        content[i] = static_cast<char>(i * 31 + i / chunk);
    return content;
}

}  // namespace

/** Files that are sent ahead of the answers: the board takes 64 KiB at a time. */
class FileTransferAhead : public FileTransfer
{
protected:
    FileTransferAhead()
    {
        rack.with(0, [](ScriptedBoard& board) { board.maxChunk = chunk; });
    }
    ~FileTransferAhead() override { KvCRpcClient::setDefaultTimeout(0); }

    /** The offsets of the chunks that came. */
    std::vector<KvUInt32> offsets()
    {
        std::vector<KvUInt32> all;
        for (const std::vector<unsigned char>& arguments : look().callsOf(PutData))
            all.push_back(RpcBytes::unitAt(arguments, 12));
        return all;
    }
    /** How often the board was told to drop what it has. */
    std::size_t withdrawn() { return look().callsOf(PutAbort).size(); }
    bool waitForChunks(std::size_t count)
    {
        return rack.waitUntil(0,
                              [&](const ScriptedBoard& board) { return board.files.callsOf(PutData).size() == count; });
    }

    const std::string content = bytesOf(9 * chunk + 5);
};

TEST_F(FileTransferAhead, ofAnySizeComesInOrderAndWhole)
{
    for (const std::size_t size : {chunk, chunk + 1, 3 * chunk + 3, 4 * chunk, 5 * chunk, 9 * chunk + 5}) {
        fresh({});
        const std::string bytes = bytesOf(size);
        ASSERT_EQ(put(bytes), 0) << size;
        const ScriptedFiles files = look();
        EXPECT_TRUE(files.stored.at("dir/image") == bytes) << size;
        std::vector<KvUInt32> wanted;
        for (std::size_t at = 0; at < size; at += chunk)
            wanted.push_back(static_cast<KvUInt32>(at));
        EXPECT_EQ(offsets(), wanted);
        EXPECT_THAT(told, SizeIs(wanted.size())) << "after each chunk, and at the end";
        EXPECT_EQ(told.back(), 1000u);
        EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
        EXPECT_EQ(errors.getErrorCount(), 0u);
    }
}

TEST_F(FileTransferAhead, hasFourChunksOnTheirWayAndTellsNothingBeforeTheBoardHas)
{
    fresh({{{PutData, 1}, {ScriptedFault::Kind::Silence, {}}}});
    std::thread canceller([&] {
        EXPECT_TRUE(waitForChunks(4));
        KvCRpcClient::cancelAll();
    });
    EXPECT_EQ(put(content), -TransferCancelled);
    canceller.join();
    EXPECT_THAT(offsets(), ElementsAre(0, chunk, 2 * chunk, 3 * chunk));
    EXPECT_THAT(told, IsEmpty());
    ASSERT_EQ(errors.getErrorCount(), 2u);
    EXPECT_EQ(errors.getErrorCode(0) & 0xFFF00000, 0x100000u);
    EXPECT_EQ(errors.getErrorCode(1), 0x200014u);
    EXPECT_EQ(withdrawn(), 1u);
}

TEST_F(FileTransferAhead, toABoardThatTakesLittleIsSentOneChunkAfterTheOther)
{
    rack.with(0, [](ScriptedBoard& board) { board.maxChunk = chunk - 1; });
    fresh({{{PutData, 1}, answer(units({10, 0, 0, 0}))}});
    EXPECT_EQ(put(content), -BoardIo);
    EXPECT_THAT(offsets(), ElementsAre(0));
}

TEST_F(FileTransferAhead, ofWhichAChunkIsRefusedIsWithdrawn)
{
    for (const int refused : {1, 2, 5, 10}) {
        for (const KvUInt32 status : {1u, 2u, 6u, 9u, 10u, 77u}) {
            fresh({{{PutData, refused}, answer(units({status, 0, 0, 0}))}});
            const KvInt32 known = status <= 12 ? static_cast<KvInt32>(status) : 0;
            EXPECT_EQ(put(content), -(100 + known)) << refused;
            // what the board says of the chunks behind it is not told
            EXPECT_THAT(codes(errors), ElementsAre(0x200800u + static_cast<KvUInt32>(known)));
            EXPECT_THAT(told, SizeIs(static_cast<std::size_t>(refused - 1)));
            const ScriptedFiles files = look();
            EXPECT_THAT(files.stored, IsEmpty());
            EXPECT_EQ(files.transferId, 0u);
            EXPECT_EQ(files.callsOf(PutAbort).size(), 1u);
        }
    }
}

TEST_F(FileTransferAhead, survivesTheLossOfEachChunkAndOfEachAnswer)
{
    for (const auto kind : {ScriptedFault::Kind::LoseCall, ScriptedFault::Kind::LoseReply}) {
        for (int lost = 1; lost <= 10; ++lost) {
            fresh({{{PutData, lost}, {kind, {}}}});
            ASSERT_EQ(put(content), 0) << lost;
            const ScriptedFiles files = look();
            EXPECT_TRUE(files.stored.at("dir/image") == content) << lost;
            EXPECT_EQ(files.ended, 1u);
            EXPECT_THAT(files.callsOf(PutAbort), IsEmpty());
            EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
            EXPECT_EQ(told.back(), 1000u);
            EXPECT_EQ(errors.getErrorCount(), 0u);
        }
    }
}

TEST_F(FileTransferAhead, ofWhichNoAnswerComesTwiceFailsAndLeavesNothing)
{
    for (const auto kind : {ScriptedFault::Kind::LoseCall, ScriptedFault::Kind::LoseReply}) {
        fresh({{{PutData, 0}, {kind, {}}}});
        EXPECT_EQ(put(content), -ConnectionFailed);
        ASSERT_EQ(errors.getErrorCount(), 2u);
        EXPECT_EQ(errors.getErrorCode(0) & 0xFFF00000, 0x100000u);
        EXPECT_EQ(errors.getErrorCode(1), 0x20000Cu);
        EXPECT_THAT(told, IsEmpty());
        EXPECT_THAT(look().stored, IsEmpty());
        EXPECT_EQ(withdrawn(), 1u);
    }
}

TEST_F(FileTransferAhead, goesOnWhereTheBoardSaysAfterADisorder)
{
    // the third chunk gets lost in the board, which says so once; those behind it make gaps
    fresh({{{PutData, 3}, answer(units({7, 0, 2 * chunk - 100, 0}))}});
    onProgress = [this](unsigned) {
        rack.with(0, [](ScriptedBoard& board) {
            if (board.files.received.size() == 2 * chunk && board.files.calls.size() > 4)
                board.files.received.resize(2 * chunk - 100);
        });
    };
    ASSERT_EQ(put(content), 0);
    EXPECT_TRUE(look().stored.at("dir/image") == content);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
}

TEST_F(FileTransferAhead, isWithdrawnWhenTheBoardSaysThatItHasWhatItCannotHave)
{
    const std::vector<unsigned char> nonsense[] = {
        units({0, 0, chunk, 0}),       // the chunk not taken
        units({0, 0, 10 * chunk, 0}),  // more than there is
        units({0, 1, 2 * chunk, 0}),   //
        units({7, 0, 2 * chunk, 0}),   // taken and refused
        units({7, 0, 3 * chunk, 0}),   // refused, and the one behind it taken
        units({7, 0xFFFFFFFF, 0, 0}),  //
    };
    for (const std::vector<unsigned char>& reply : nonsense) {
        fresh({{{PutData, 2}, answer(reply)}});
        EXPECT_EQ(put(content), -InvalidReply);
        EXPECT_THAT(codes(errors), ElementsAre(0x20000D));
        EXPECT_THAT(told, SizeIs(1));
        EXPECT_THAT(look().stored, IsEmpty());
        EXPECT_EQ(withdrawn(), 1u);
    }
}

TEST_F(FileTransferAhead, isTakenFromABoardThatAnswersLaterThanInOrder)
{
    fresh({{{PutData, 1}, {ScriptedFault::Kind::Late, {}}},
           {{PutData, 2}, {ScriptedFault::Kind::Late, {}}},
           {{PutData, 3}, {ScriptedFault::Kind::Late, {}}},
           {{PutData, 6}, {ScriptedFault::Kind::Late, {}}}});
    ASSERT_EQ(put(content), 0);
    EXPECT_TRUE(look().stored.at("dir/image") == content);
    EXPECT_THAT(offsets(), SizeIs(10));
    EXPECT_THAT(told, SizeIs(10));
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
}

TEST_F(FileTransferAhead, goesOnWhenTheBoardCameToAChunkBeforeItHadTheOneInFrontOfIt)
{
    fresh({{{PutData, 2}, answer(units({7, 0, chunk, 0}))}});
    ASSERT_EQ(put(content), 0);
    EXPECT_TRUE(look().stored.at("dir/image") == content);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    // the first chunk has none in front of it, and one that was sent again went alone
    fresh({{{PutData, 1}, answer(units({7, 0, 0, 0}))}});
    EXPECT_EQ(put(content), -InvalidReply);
    fresh({{{PutData, 0}, answer(units({7, 0, chunk, 0}))}, {{PutData, 1}, answer(units({0, 0, chunk, 0}))}});
    EXPECT_EQ(put(content), -InvalidReply);
    EXPECT_THAT(codes(errors), ElementsAre(0x20000D));
}

TEST_F(FileTransferAhead, hasTheTimeOfACallForEachAnswerBehindTheOneBeforeIt)
{
    // four of them take longer than a call may
    KvCRpcClient::setDefaultTimeout(2000000);
    rack.with(0, [](ScriptedBoard& board) { board.files.milliseconds = 700; });
    EXPECT_EQ(put(bytesOf(5 * chunk)), 0);
    EXPECT_THAT(offsets(), ElementsAre(0, chunk, 2 * chunk, 3 * chunk, 4 * chunk)) << "none was sent twice";
}

TEST_F(FileTransferAhead, isRepeatedWhenTheBoardFallsSilent)
{
    KvCRpcClient::setDefaultTimeout(300000);
    fresh({{{PutData, 3}, {ScriptedFault::Kind::Silence, {}}}});
    ASSERT_EQ(put(content), 0);
    EXPECT_TRUE(look().stored.at("dir/image") == content);
    EXPECT_EQ(errors.getErrorCount(), 0u);

    fresh({{{PutData, 0}, {ScriptedFault::Kind::Silence, {}}}});
    EXPECT_EQ(put(content), -ConnectionFailed);
    EXPECT_EQ(errors.getErrorCount(), 2u);
    EXPECT_THAT(told, IsEmpty());
    EXPECT_THAT(offsets(), ElementsAre(0, chunk, 2 * chunk, 3 * chunk, 0)) << "the one that was to be answered, again";
}

TEST_F(FileTransferAhead, takesRepliesOfAQuarterOfWhatOthersTakeForThereAreFour)
{
    const auto withErrors = [](std::size_t bytes) {
        std::vector<unsigned char> reply = units({0, 0, chunk, static_cast<std::uint32_t>(bytes)});
        reply.resize(reply.size() + bytes);
        return answer(reply);
    };
    constexpr std::size_t quarter = 16u << 20;
    fresh({{{PutData, 1}, withErrors(quarter - 40)}});
    EXPECT_EQ(put(content), -ConnectionFailed);
    EXPECT_THAT(codes(errors), ElementsAre(static_cast<KvUInt32>(KvNMessage::RpcReplyMalformed), 0x20000C));
    fresh({{{PutData, 1}, withErrors(quarter)}});
    EXPECT_EQ(put(content), -ConnectionFailed);
    EXPECT_THAT(codes(errors), ElementsAre(static_cast<KvUInt32>(KvNMessage::RpcReplyTooLarge), 0x20000C));
    EXPECT_EQ(withdrawn(), 1u);
}

TEST_F(FileTransferAhead, isEndedByCancellingBeforeAChunkIsSentAgain)
{
    struct Traced
    {
        int chunks = 0;
        static void take(void* context, const KvCRpcClient::TracedCall& call)
        {
            auto* self = static_cast<Traced*>(context);
            if (call.procedure == PutData && ++self->chunks == 1)
                KvCRpcClient::cancelAll();
        }
    } traced;
    fresh({{{PutData, 1}, {ScriptedFault::Kind::LoseCall, {}}}});
    KvCRpcClient::setTrace(&Traced::take, &traced);
    EXPECT_EQ(put(content), -TransferCancelled);
    KvCRpcClient::setTrace(nullptr, nullptr);
    EXPECT_THAT(codes(errors), ElementsAre(0x200014));
    EXPECT_EQ(traced.chunks, 4) << "those that were on their way";
    EXPECT_EQ(withdrawn(), 1u);
}

TEST_F(FileTransferAhead, isEndedByCancellingFromTheProgressFunction)
{
    onProgress = [this](unsigned) {
        if (told.size() == 2)
            KvCRpcClient::cancelAll();
    };
    EXPECT_EQ(put(content), -TransferCancelled);
    EXPECT_THAT(codes(errors), ElementsAre(0x200014)) << "as between two calls";
    EXPECT_THAT(told, SizeIs(2));
    EXPECT_THAT(look().stored, IsEmpty());
    EXPECT_EQ(look().transferId, 0u);
    EXPECT_LE(offsets().size(), 6u);
    onProgress = nullptr;
    EXPECT_EQ(put(content), 0);
}

TEST_F(FileTransferAhead, whoseLocalFileChangesIsWithdrawnAfterTheAnswersToWhatWasRead)
{
    const std::wstring path = folder.path("local");
    // and how many chunks were sent and told: four have been read when the first is told, and no more than that
    const std::vector<std::pair<std::function<void()>, std::size_t>> changes = {
        {[&] { std::filesystem::resize_file(path, 5 * chunk + 5); }, 5},
        {[&] { std::filesystem::resize_file(path, 0); }, 4},
        {[&] { std::filesystem::resize_file(path, 10 * chunk); }, 10},
        {[&] { setWritten(path, 1000); }, 10}};
    for (const auto& [change, chunks] : changes) {
        fresh({});
        onProgress = [&, now = change](unsigned) {
            if (told.size() == 1)
                now();
        };
        EXPECT_EQ(put(content), -LocalFileChanged);
        EXPECT_THAT(codes(errors), ElementsAre(0x200013));
        EXPECT_THAT(offsets(), SizeIs(chunks));
        EXPECT_THAT(told, SizeIs(std::min<std::size_t>(chunks, 9))) << "the whole is not there";
        EXPECT_THAT(look().callsOf(PutEnd), IsEmpty());
        EXPECT_EQ(withdrawn(), 1u);
    }
}

TEST_F(FileTransferAhead, ofWhichEveryCallIsToldToATrace)
{
    struct Traced
    {
        std::vector<KvUInt32> procedures;
        std::vector<long> results;
        static void take(void* context, const KvCRpcClient::TracedCall& call)
        {
            static_cast<Traced*>(context)->procedures.push_back(call.procedure);
            static_cast<Traced*>(context)->results.push_back(call.result);
        }
    } traced;
    KvCRpcClient::setTrace(&Traced::take, &traced);
    EXPECT_EQ(put(bytesOf(3 * chunk)), 0);
    EXPECT_THAT(traced.procedures, ElementsAre(1, 5, 6, 6, 6, 7));
    EXPECT_THAT(traced.results, Each(0));
    KvCRpcClient::setTrace(nullptr, nullptr);
}
