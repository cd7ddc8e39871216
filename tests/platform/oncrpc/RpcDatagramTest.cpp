#include "platform/oncrpc/RpcDatagram.h"

#include <chrono>
#include <map>
#include <thread>
#include <vector>

#include "FailingAllocation.h"
#include "RpcPeers.h"

namespace {

using namespace std::chrono_literals;
using KvNRpc::RpcDatagram;

struct Got
{
    KvUInt64 tag;
    KvUInt32 address;
    RpcDatagram::Outcome outcome;
    long refusal;
    Bytes results;
};

/** Collects replies, and may ask further. */
struct Collector
{
    std::vector<Got> replies;
    std::function<void(RpcDatagram&, const RpcDatagram::Reply&)> further;

    static void take(void* context, RpcDatagram& exchange, const RpcDatagram::Reply& reply)
    {
        auto* self = static_cast<Collector*>(context);
        self->replies.push_back({reply.tag, reply.address, reply.outcome, reply.refusal,
                                 Bytes(reply.results, reply.results + reply.resultBytes)});
        if (self->further)
            self->further(exchange, reply);
    }
    RpcDatagram::End run(RpcDatagram& exchange, KvUInt32 milliseconds)
    {
        return exchange.run(milliseconds, take, this);
    }
};

RpcDatagram::Request request(KvUInt32 address, std::uint16_t port, KvUInt64 tag,
                             RpcDatagram::Transport transport = RpcDatagram::Transport::Udp)
{
    RpcDatagram::Request asked;
    asked.address = address;
    asked.port = port;
    asked.transport = transport;
    asked.program = testProgram;
    asked.version = testVersion;
    asked.procedure = 1;
    asked.tag = tag;
    return asked;
}

std::optional<Bytes> answerEleven(const Bytes& datagram)
{
    return accepted(unitAt(datagram, 0), 0, units({11}));
}

void nothing(ScriptedBoard::Connection&, int) {}

TEST(RpcDatagram, AsksManyHostsAtOnceAndEndsWhenAllHaveAnswered)
{
    ScriptedBoard first(nothing, answerEleven, 0x7F000001);
    ScriptedBoard second(nothing, answerEleven, 0x7F000002);
    ScriptedBoard third(nothing, answerEleven, 0x7F000003);
    RpcDatagram exchange;
    ASSERT_TRUE(exchange.add(request(0x7F000001, first.port(), 1)));
    ASSERT_TRUE(exchange.add(request(0x7F000002, second.port(), 2)));
    ASSERT_TRUE(exchange.add(request(0x7F000003, third.port(), 3)));
    Collector collector;
    EXPECT_EQ(collector.run(exchange, 60000), RpcDatagram::End::AllAnswered);
    ASSERT_EQ(collector.replies.size(), 3u);
    std::map<KvUInt64, KvUInt32> addresses;
    for (const Got& got : collector.replies) {
        addresses[got.tag] = got.address;
        EXPECT_EQ(got.outcome, RpcDatagram::Outcome::Answered);
        EXPECT_EQ(got.results, units({11}));
    }
    EXPECT_EQ(addresses, (std::map<KvUInt64, KvUInt32>{{1, 0x7F000001}, {2, 0x7F000002}, {3, 0x7F000003}}));
}

TEST(RpcDatagram, SendsTheCallWithItsArgumentsAgainUntilItIsAnswered)
{
    Seen seen;
    ScriptedBoard board(nothing, [&](const Bytes& datagram) -> std::optional<Bytes> {
        seen.add(datagram);
        return seen.count() < 3 ? std::nullopt : answerEleven(datagram);
    });
    RpcDatagram exchange;
    const KvUInt32 times[] = {0, 30, 60, 90};
    exchange.setTimes(times, 4);
    RpcDatagram::Request asked = request(0x7F000001, board.port(), 1);
    const Bytes arguments = units({7, 8});
    asked.arguments = arguments.data();
    asked.argumentBytes = arguments.size();
    exchange.add(asked);
    Collector collector;
    EXPECT_EQ(collector.run(exchange, 60000), RpcDatagram::End::AllAnswered);
    ASSERT_EQ(seen.count(), 3u);
    EXPECT_EQ(seen.at(0), units({unitAt(seen.at(0), 0), 0, 2, testProgram, testVersion, 1, 0, 0, 0, 0, 7, 8}));
    EXPECT_EQ(seen.at(0), seen.at(2));
}

TEST(RpcDatagram, TheDeadlineEndsTheSearchForSilentHosts)
{
    ScriptedBoard silent(nothing, [](const Bytes&) { return std::nullopt; });
    ScriptedBoard good(nothing, answerEleven, 0x7F000002);
    RpcDatagram exchange;
    exchange.add(request(0x7F000001, silent.port(), 1));
    exchange.add(request(0x7F000002, good.port(), 2));
    Collector collector;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(collector.run(exchange, 300), RpcDatagram::End::Deadline);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
    ASSERT_EQ(collector.replies.size(), 1u);
    EXPECT_EQ(collector.replies[0].tag, 2u);
    EXPECT_EQ(silent.datagrams(), 2);
}

TEST(RpcDatagram, AReplyOfAnotherHostOrToAnotherCallDoesNotCount)
{
    ScriptedBoard board(nothing, [](const Bytes& datagram) -> std::optional<Bytes> {
        return accepted(unitAt(datagram, 0) + 1, 0, units({1}));
    });
    RpcDatagram exchange;
    exchange.add(request(0x7F000001, board.port(), 1));
    Collector collector;
    EXPECT_EQ(collector.run(exchange, 100), RpcDatagram::End::Deadline);
    EXPECT_TRUE(collector.replies.empty());
}

TEST(RpcDatagram, ARefusalIsToldWithItsReason)
{
    ScriptedBoard board(nothing, [](const Bytes& datagram) { return accepted(unitAt(datagram, 0), 1); });
    ScriptedBoard other(nothing, [](const Bytes& datagram) { return denied(unitAt(datagram, 0), units({1, 5})); });
    RpcDatagram exchange;
    exchange.add(request(0x7F000001, board.port(), 1));
    exchange.add(request(0x7F000001, other.port(), 2));
    Collector collector;
    EXPECT_EQ(collector.run(exchange, 60000), RpcDatagram::End::AllAnswered);
    ASSERT_EQ(collector.replies.size(), 2u);
    for (const Got& got : collector.replies) {
        EXPECT_EQ(got.outcome, RpcDatagram::Outcome::Refused);
        EXPECT_EQ(got.refusal, got.tag == 1 ? KvCRpcClient::ProgramUnavailable : KvCRpcClient::AuthenticationError);
    }
}

TEST(RpcDatagram, AsksByTcpAndTellsWhoRefuses)
{
    EchoServer server;
    RpcDatagram exchange;
    RpcDatagram::Request asked = request(0x7F000001, server.port(), 1, RpcDatagram::Transport::Tcp);
    const Bytes arguments = units({5});
    asked.arguments = arguments.data();
    asked.argumentBytes = 4;
    exchange.add(asked);
    exchange.add(request(0x7F000001, unusedPort(), 2, RpcDatagram::Transport::Tcp));
    Collector collector;
    EXPECT_EQ(collector.run(exchange, 60000), RpcDatagram::End::AllAnswered);
    ASSERT_EQ(collector.replies.size(), 2u);
    for (const Got& got : collector.replies) {
        EXPECT_EQ(got.outcome, got.tag == 1 ? RpcDatagram::Outcome::Answered : RpcDatagram::Outcome::Unreachable);
        EXPECT_EQ(got.results, got.tag == 1 ? units({5}) : Bytes());
    }
}

TEST(RpcDatagram, AHandlerMayAskFurtherAndDropWhatIsNoLongerNeeded)
{
    ScriptedBoard mapper(nothing, answerEleven);
    ScriptedBoard silent(nothing, [](const Bytes&) { return std::nullopt; });
    EchoServer server;
    RpcDatagram exchange;
    exchange.add(request(0x7F000001, mapper.port(), 1));
    exchange.add(request(0x7F000001, silent.port(), 2));
    Collector collector;
    collector.further = [&](RpcDatagram& running, const RpcDatagram::Reply& reply) {
        if (reply.tag != 1)
            return;
        running.drop(2);
        EXPECT_TRUE(running.add(request(0x7F000001, server.server.port(server.udp), 3)));
        EXPECT_TRUE(running.add(request(0x7F000001, server.port(), 4, RpcDatagram::Transport::Tcp)));
    };
    EXPECT_EQ(collector.run(exchange, 60000), RpcDatagram::End::AllAnswered);
    EXPECT_EQ(collector.replies.size(), 3u);
}

TEST(RpcDatagram, DropsEveryRequestOfATagAndNoOther)
{
    ScriptedBoard mapper(nothing, answerEleven);
    ScriptedBoard silent(nothing, [](const Bytes&) { return std::nullopt; });
    RpcDatagram exchange;
    exchange.add(request(0x7F000001, silent.port(), 2));
    exchange.add(request(0x7F000001, mapper.port(), 1));
    exchange.add(request(0x7F000001, silent.port(), 2));
    exchange.add(request(0x7F000001, silent.port(), 3));
    exchange.drop(3);
    exchange.drop(3);
    exchange.drop(4);
    Collector collector;
    collector.further = [](RpcDatagram& running, const RpcDatagram::Reply&) { running.drop(2); };
    EXPECT_EQ(collector.run(exchange, 60000), RpcDatagram::End::AllAnswered);
    EXPECT_EQ(collector.replies.size(), 1u);
    // a tag may be used again
    exchange.add(request(0x7F000001, mapper.port(), 2));
    collector.further = nullptr;
    EXPECT_EQ(collector.run(exchange, 60000), RpcDatagram::End::AllAnswered);
    EXPECT_EQ(collector.replies.size(), 2u);
}

TEST(RpcDatagram, ABroadcastCollectsEachSenderOnceUntilTheDeadline)
{
    // Two services share the loopback network's broadcast address and answer from their own.
    EchoServer idle;
    KvNRpc::RpcServer server(idle);
    const int first = server.listenUdp(1, 0x7F000001, 0);
    const int second = server.listenUdp(2, 0x7F000002, 0);
    const int any = server.listenUdp(1, 0x7FFFFFFF, 0, true, first);
    ASSERT_NE(any, 0);
    ASSERT_NE(server.listenUdp(2, 0x7FFFFFFF, server.port(any), true, second), 0);
    std::thread runner([&] { server.run(); });
    RpcDatagram exchange;
    const KvUInt32 times[] = {0, 50};
    exchange.setTimes(times, 2);
    RpcDatagram::Request asked = request(0x7FFFFFFF, server.port(any), 9);
    asked.broadcast = true;
    exchange.add(asked);
    Collector collector;
    EXPECT_EQ(collector.run(exchange, 300), RpcDatagram::End::Deadline);
    Collector one;
    exchange.setMostSenders(1);
    exchange.add(asked);
    EXPECT_EQ(one.run(exchange, 300), RpcDatagram::End::Deadline);
    server.stop();
    runner.join();
    EXPECT_EQ(one.replies.size(), 1u);
    ASSERT_EQ(collector.replies.size(), 2u);
    EXPECT_EQ(collector.replies[0].address + collector.replies[1].address, 0xFE000003u);
}

TEST(RpcDatagram, CancelAllEndsTheSearch)
{
    ScriptedBoard silent(nothing, [](const Bytes&) { return std::nullopt; });
    RpcDatagram exchange;
    exchange.add(request(0x7F000001, silent.port(), 1));
    std::thread killer([&] {
        while (silent.datagrams() == 0)
            std::this_thread::sleep_for(1ms);
        KvCRpcClient::cancelAll();
    });
    Collector collector;
    EXPECT_EQ(collector.run(exchange, 60000), RpcDatagram::End::Cancelled);
    killer.join();
}

TEST(RpcDatagram, WithoutRequestsItEndsAtOnceAndItCanBeRunAgain)
{
    ScriptedBoard board(nothing, answerEleven);
    RpcDatagram exchange;
    Collector collector;
    EXPECT_EQ(collector.run(exchange, 60000), RpcDatagram::End::AllAnswered);
    exchange.add(request(0x7F000001, board.port(), 1));
    EXPECT_EQ(collector.run(exchange, 60000), RpcDatagram::End::AllAnswered);
    exchange.add(request(0x7F000001, board.port(), 2));
    EXPECT_EQ(collector.run(exchange, 60000), RpcDatagram::End::AllAnswered);
    EXPECT_EQ(collector.replies.size(), 2u);
}

TEST(RpcDatagram, EachFailingAllocationIsToldOrLeavesTheSearchUnaffected)
{
    ScriptedBoard board(nothing, answerEleven);
    ScriptedBoard tcp([](ScriptedBoard::Connection& connection, int) {
        const Bytes call = connection.readCall();
        connection.send(record(accepted(unitAt(call, 0), 0)));
        connection.stall();
    });
    bool reached = false;
    for (std::size_t number = 1; !reached; ++number) {
        ASSERT_LT(number, 60u);
        const FailingAllocation failing(number);
        RpcDatagram exchange;
        const bool added = exchange.add(request(0x7F000001, board.port(), 1)) &&
                           exchange.add(request(0x7F000001, tcp.port(), 2, RpcDatagram::Transport::Tcp));
        Collector collector;
        const RpcDatagram::End end = collector.run(exchange, 5000);
        int answered = 0;
        for (const Got& got : collector.replies)
            answered += got.outcome == RpcDatagram::Outcome::Answered;
        EXPECT_EQ(failing.hasFailed(), !added || end != RpcDatagram::End::AllAnswered || answered != 2) << number;
        reached = !failing.hasFailed();
    }
}

}  // namespace
