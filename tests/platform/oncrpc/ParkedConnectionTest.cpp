#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "FailingAllocation.h"
#include "RpcPeers.h"

/* Calls on a connection that has carried quick ones: their callers drive it themselves, and nobody can tell. */

namespace {

using namespace std::chrono_literals;

/** Whether the system refuses to limit how long a socket is waited for. */
std::atomic<bool> refusesLimits{false};

}  // namespace

extern "C" int setsockopt(int socket, int level, int name, const void* value, socklen_t size) noexcept
{
    if (level == SOL_SOCKET && name == SO_RCVTIMEO && refusesLimits) {
        errno = ENOMEM;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_setsockopt, socket, level, name, value, size));
}

namespace {

Bytes answerTo(const Bytes& call, const std::string& text)
{
    return record(accepted(unitAt(call, 0), 0, textBytes(text)));
}

/** Answers `quick` calls at once, and leaves the next one to `then`. */
ScriptedBoard::Script afterQuickCalls(int quick,
                                      std::function<void(ScriptedBoard::Connection&, const Bytes&, int)> then)
{
    return [quick, then](ScriptedBoard::Connection& connection, int number) {
        for (int i = 0; i < quick; ++i) {
            const Bytes call = connection.readCall();
            if (call.empty())
                return;
            connection.send(answerTo(call, "quick"));
        }
        const Bytes call = connection.readCall();
        if (!call.empty())
            then(connection, call, number);
    };
}

void callQuickly(TestClient& client, int times)
{
    for (int i = 0; i < times; ++i)
        ASSERT_EQ(client.echo("x"), KvCRpcClient::Success);
}

TEST(ParkedConnection, StillEndsACallAtItsDeadline)
{
    ScriptedBoard board(
        afterQuickCalls(3, [](ScriptedBoard::Connection& connection, const Bytes&, int) { connection.stall(); }));
    TestClient client(board.port());
    client.set(KvCRpcClient::CallTimeout, 150000);
    callQuickly(client, 3);
    EXPECT_EQ(client.echo("x", 2), KvCRpcClient::TimedOut);
    client.expectOnly(KvNMessage::RpcTimedOut, "Communication error. Procedure 2 of 127.0.0.1:" +
                                                   std::to_string(board.port()) + " did not answer within 150 ms.");
    ASSERT_EQ(client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(board.connections(), 2);
}

TEST(ParkedConnection, IsThereOnlyWhereItsWaitingCanBeLimited)
{
    refusesLimits = true;
    ScriptedBoard board(
        afterQuickCalls(3, [](ScriptedBoard::Connection& connection, const Bytes&, int) { connection.sleep(2000); }));
    TestClient client(board.port());
    client.set(KvCRpcClient::CallTimeout, 150000);
    callQuickly(client, 3);
    EXPECT_EQ(client.echo("x", 2), KvCRpcClient::TimedOut) << "at its deadline, not when the board has gone";
    refusesLimits = false;
}

TEST(ParkedConnection, DoesNotHoldUpOthersBehindASlowCall)
{
    std::atomic<bool> slowCame{false};
    ScriptedBoard board(afterQuickCalls(2, [&](ScriptedBoard::Connection& connection, const Bytes& slow, int) {
        slowCame = true;
        const Bytes quick = connection.readCall();
        connection.send(answerTo(quick, "second"));
        connection.send(answerTo(slow, "first"));
        connection.stall();
    }));
    TestClient client(board.port());
    callQuickly(client, 2);
    std::string first;
    KvCErrorListPool errors;
    std::thread slow([&] { EXPECT_EQ(client.echo(errors, "slow", first), KvCRpcClient::Success); });
    while (!slowCame)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(client.echo("quick"), KvCRpcClient::Success);
    slow.join();
    EXPECT_EQ(client.answer, "second");
    EXPECT_EQ(first, "first");
    EXPECT_EQ(board.connections(), 1);
}

TEST(ParkedConnection, IsCancelled)
{
    std::atomic<bool> came{false};
    ScriptedBoard board(afterQuickCalls(2, [&](ScriptedBoard::Connection& connection, const Bytes&, int) {
        came = true;
        connection.stall();
    }));
    TestClient client(board.port());
    client.set(KvCRpcClient::CallTimeout, 60000000);
    callQuickly(client, 2);
    std::thread canceller([&] {
        while (!came)
            std::this_thread::sleep_for(1ms);
        KvCRpcClient::cancelAll();
    });
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Cancelled);
    canceller.join();
}

TEST(ParkedConnection, ThatEndsBeforeTheReplyIsMadeAnewForWhatMayBeRepeatedOnly)
{
    ScriptedBoard board(afterQuickCalls(1, [](ScriptedBoard::Connection&, const Bytes&, int) {}));
    TestClient client(board.port());
    client.client.setRepeatable(5);
    callQuickly(client, 1);
    EXPECT_EQ(client.echo("x", 5), KvCRpcClient::Success) << "the first of the next connection";
    EXPECT_EQ(client.answer, "quick");
    EXPECT_EQ(client.echo("x", 6), KvCRpcClient::ConnectionLost);
    EXPECT_EQ(board.connections(), 2);
    client.expectOnly(KvNMessage::RpcConnectionLost,
                      "Communication error. The connection ended before procedure 6 of 127.0.0.1:" +
                          std::to_string(board.port()) + " had answered: closed by the board.");
}

TEST(ParkedConnection, ThatEndsInsideTheReplyIsReported)
{
    ScriptedBoard board(afterQuickCalls(2, [](ScriptedBoard::Connection& connection, const Bytes& call, int) {
        Bytes reply = answerTo(call, "cut");
        reply.resize(reply.size() - 4);
        connection.send(reply);
    }));
    TestClient client(board.port());
    client.client.setRepeatable(5);
    callQuickly(client, 2);
    EXPECT_EQ(client.echo("x", 5), KvCRpcClient::ConnectionLost);
    EXPECT_EQ(board.connections(), 1);
}

TEST(ParkedConnection, TakesAReplyInWhateverPieces)
{
    const std::string large(300000, 'y');
    ScriptedBoard board(afterQuickCalls(2, [&](ScriptedBoard::Connection& connection, const Bytes& call, int) {
        connection.drip(answerTo(call, "drip"), 1);
        const Bytes second = connection.readCall();
        const Bytes reply = answerTo(second, large);
        for (std::size_t at = 0; at < reply.size(); at += 70001) {
            connection.send(Bytes(reply.begin() + static_cast<long>(at),
                                  reply.begin() + static_cast<long>(std::min(at + 70001, reply.size()))));
            connection.sleep(1);
        }
        const Bytes third = connection.readCall();
        connection.send(answerTo(third, "third"));
        connection.stall();
    }));
    TestClient client(board.port());
    callQuickly(client, 2);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, "drip");
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, large);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, "third");
    EXPECT_EQ(board.connections(), 1);
}

TEST(ParkedConnection, PassesOverWhatNobodyAskedFor)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) {
        for (Bytes call = connection.readCall(); !call.empty(); call = connection.readCall()) {
            const Bytes foreign = record(accepted(unitAt(call, 0) + 1000, 0, textBytes("foreign")));
            Bytes half = record(accepted(unitAt(call, 0) + 2000, 0, textBytes("half of another")));
            const Bytes rest(half.begin() + 20, half.end());
            half.resize(20);
            connection.send(foreign + answerTo(call, "own") + half);
            connection.sleep(1);
            connection.send(rest);
        }
    });
    TestClient client(board.port());
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(client.echo("x"), KvCRpcClient::Success);
        EXPECT_EQ(client.answer, "own");
    }
    EXPECT_EQ(board.connections(), 1);
}

TEST(ParkedConnection, PassesOverManyRecordsAtOnceBeforeAndBehindTheReply)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) {
        for (Bytes call = connection.readCall(); !call.empty(); call = connection.readCall()) {
            Bytes all;
            for (KvUInt32 i = 0; i < 15; ++i)
                all = all + (i == 7 ? answerTo(call, "own")
                                    : record(accepted(unitAt(call, 0) + 1000 + i, 0, textBytes("foreign"))));
            connection.send(all);
        }
    });
    TestClient client(board.port());
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(client.echo("x"), KvCRpcClient::Success);
        EXPECT_EQ(client.answer, "own");
    }
    EXPECT_EQ(board.connections(), 1);
}

TEST(ParkedConnection, EndsWithARecordThatCannotBeFollowed)
{
    ScriptedBoard board(afterQuickCalls(2, [](ScriptedBoard::Connection& connection, const Bytes&, int) {
        connection.send(fragment({1, 2}) + Bytes{0x80, 0, 0, 0});
        connection.stall();
    }));
    TestClient client(board.port());
    callQuickly(client, 2);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::ReplyMalformed);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(board.connections(), 2);
}

TEST(ParkedConnection, RefusesAReplyBeyondTheLimit)
{
    ScriptedBoard board(afterQuickCalls(2, [](ScriptedBoard::Connection& connection, const Bytes& call, int) {
        connection.send(units({0xFFFFFFF0, unitAt(call, 0)}));
        connection.stall();
    }));
    TestClient client(board.port());
    client.set(KvCRpcClient::LargestReply, 1000000);
    callQuickly(client, 2);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::ReplyTooLarge);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
}

TEST(ParkedConnection, SendsArgumentsThatTheBoardTakesItsTimeToRead)
{
    const std::string large(20000000, 'z');
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) {
        for (int i = 0;; ++i) {
            if (i == 2)
                connection.sleep(30);
            const Bytes call = connection.readCall();
            if (call.empty())
                return;
            connection.send(record(accepted(unitAt(call, 0), 0, Bytes(call.begin() + 40, call.end()))));
        }
    });
    TestClient client(board.port());
    callQuickly(client, 2);
    ASSERT_EQ(client.echo(large), KvCRpcClient::Success);
    EXPECT_TRUE(client.answer == large);
    callQuickly(client, 2);
    EXPECT_EQ(board.connections(), 1);
}

TEST(ParkedConnection, FailsOrSucceedsWhicheverAllocationFails)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) {
        FailingAllocation::spareThisThread();
        for (Bytes call = connection.readCall(); !call.empty(); call = connection.readCall())
            connection.send(answerTo(call, std::string(100000, 'a')));
    });
    TestClient client(board.port());
    for (const bool lasting : {false, true}) {
        bool failed = true;
        for (std::size_t number = 1; failed; ++number) {
            callQuickly(client, 3);
            KvCErrorListPool errors;
            std::string got;
            long status = 0;
            {
                const FailingAllocation failing(number, lasting);
                status = client.echo(errors, "x", got);
                failed = failing.hasFailed();
            }
            EXPECT_EQ(status != KvCRpcClient::Success, errors.getErrorCount() != 0) << number;
            if (status == KvCRpcClient::Success) {
                EXPECT_EQ(got.size(), 100000u);
            } else {
                EXPECT_EQ(status, KvCRpcClient::OutOfMemory) << number;
            }
        }
    }
}

TEST(ParkedConnection, IsSharedByManyThreads)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) {
        for (Bytes call = connection.readCall(); !call.empty(); call = connection.readCall())
            connection.send(record(accepted(unitAt(call, 0), 0, Bytes(call.begin() + 40, call.end()))));
    });
    TestClient client(board.port());
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&client, i] {
            KvCErrorListPool errors;
            std::string got;
            for (int k = 0; k < 200; ++k) {
                const std::string text = std::to_string(1000 * i + k);
                ASSERT_EQ(client.echo(errors, text, got), KvCRpcClient::Success);
                ASSERT_EQ(got, text);
                if (k % 50 == 0)
                    std::this_thread::sleep_for(3ms);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(board.connections(), 1);
}

}  // namespace
