#include "platform/oncrpc/RpcServer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <future>
#include <thread>

#include "FailingAllocation.h"
#include "RpcPeers.h"

namespace {

using namespace std::chrono_literals;
using KvNRpc::ReplyWriter;
using KvNRpc::ServerCall;
using KvNRpc::ServerLimits;

/** A client that sends what it likes. */
class RawClient
{
public:
    explicit RawClient(std::uint16_t port, int kind = SOCK_STREAM) : m_socket(::socket(AF_INET, kind, 0))
    {
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_addr.s_addr = htonl(0x7F000001);
        place.sin_port = htons(port);
        m_connected = ::connect(m_socket, reinterpret_cast<sockaddr*>(&place), sizeof place) == 0;
    }
    ~RawClient() { ::close(m_socket); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool send(const Bytes& bytes) const
    {
        return ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    /** As many bytes, or fewer when the server ends or 5 s pass. */
    Bytes receive(std::size_t size) const
    {
        Bytes bytes(size);
        std::size_t got = 0;
        while (got < size) {
            pollfd waiting{m_socket, POLLIN, 0};
            if (::poll(&waiting, 1, 5000) <= 0)
                break;
            const ssize_t step = ::recv(m_socket, bytes.data() + got, size - got, 0);
            if (step <= 0)
                break;
            got += static_cast<std::size_t>(step);
        }
        bytes.resize(got);
        return bytes;
    }
    /** Waits until the server has closed; false after 5 s. */
    bool isClosed() const
    {
        char byte[4096];
        for (;;) {
            pollfd waiting{m_socket, POLLIN, 0};
            if (::poll(&waiting, 1, 5000) <= 0)
                return false;
            if (::recv(m_socket, byte, sizeof byte, 0) <= 0)
                return true;
        }
    }
    int socket() const { return m_socket; }

private:
    int m_socket;
    bool m_connected;
};

Bytes call(std::uint32_t xid, std::uint32_t procedure = 1, const Bytes& arguments = {})
{
    return units({xid, 0, 2, testProgram, testVersion, procedure, 0, 0, 0, 0}) + arguments;
}

TEST(RpcServer, HandsTheCallAndWhereItCameFromToItsHandler)
{
    std::atomic<bool> right{false};
    EchoServer server({}, [&](const ServerCall& given, ReplyWriter reply) {
        right = given.board == 7 && given.transport == KvNRpc::ServerTransport::Tcp && given.connection == 1 &&
                given.peerAddress == 0x7F000001 && given.localAddress == 0x7F000001 && given.peerPort != 0 &&
                given.program == testProgram && given.version == testVersion && given.procedure == 1 &&
                given.header.xid == 42 && given.argumentBytes == 8 && given.arguments[3] == 5;
        reply.success(given.arguments, given.argumentBytes);
    });
    const RawClient client(server.port());
    client.send(record(call(42, 1, units({5, 6}))));
    EXPECT_EQ(client.receive(36), record(accepted(42, 0, units({5, 6}))));
    EXPECT_TRUE(right);
}

TEST(RpcServer, AnswersAsRfc5531Says)
{
    EchoServer server({}, [](const ServerCall& given, ReplyWriter reply) {
        switch (given.procedure) {
            case 1:
                return reply.programUnavailable();
            case 2:
                return reply.programMismatch(2, 5);
            case 3:
                return reply.procedureUnavailable();
            case 4:
                return reply.garbageArguments();
            case 5:
                return reply.systemError();
            case 6:
                return reply.authError(5);
            case 7:
                throw std::runtime_error("a service that fails");
            default:
                return;  // no answer given
        }
    });
    const RawClient client(server.port());
    const Bytes answers[] = {accepted(9, 1), accepted(9, 2, units({2, 5})), accepted(9, 3), accepted(9, 4),
                             accepted(9, 5), denied(9, units({1, 5})),      accepted(9, 5), accepted(9, 5)};
    for (std::uint32_t procedure = 1; procedure <= 8; ++procedure) {
        client.send(record(call(9, procedure)));
        const Bytes expected = record(answers[procedure - 1]);
        EXPECT_EQ(client.receive(expected.size()), expected) << procedure;
    }
    client.send(record(units({9, 0, 3, 0, 0, 0})));
    EXPECT_EQ(client.receive(28), record(denied(9, units({0, 2, 2}))));
    client.send(record(units({9, 0, 2, 1, 1, 1, 1, 401}) + Bytes(404) + units({0, 0})));
    EXPECT_EQ(client.receive(24), record(denied(9, units({1, 1}))));
}

TEST(RpcServer, EndsAConnectionThatSendsNoCalls)
{
    EchoServer server;
    const Bytes noise[] = {record(units({1, 1, 0, 0, 0, 0})),
                           record({}),
                           record({1}),
                           record(units({1, 0})),
                           Bytes{'G', 'E', 'T', ' ', '/', ' ', 'H', 'T', 'T', 'P', '/', '1', '.', '1', '\r', '\n'},
                           Bytes{0x16, 3, 1, 2, 0, 1, 0, 1, 0xFC, 3},
                           Bytes(400, 0)};
    for (const Bytes& bytes : noise) {
        const RawClient client(server.port());
        client.send(bytes);
        EXPECT_TRUE(client.isClosed());
    }
    EXPECT_EQ(server.calls, 0);
    const RawClient good(server.port());
    good.send(record(call(1)));
    EXPECT_EQ(good.receive(28), record(accepted(1, 0)));
}

TEST(RpcServer, AnswersDatagramsAndPassesOverNoise)
{
    EchoServer server;
    const RawClient client(server.server.port(server.udp), SOCK_DGRAM);
    client.send({1, 2, 3});
    client.send(units({1, 1, 0, 0, 0, 0}));
    client.send(call(77, 1, units({8})));
    EXPECT_EQ(client.receive(28), accepted(77, 0, units({8})));
    client.send(units({78, 0, 3}));
    EXPECT_EQ(client.receive(24), denied(78, units({0, 2, 2})));
}

TEST(RpcServer, AnswersPipelinedCallsAllAndInOrder)
{
    EchoServer server({.callsPerConnection = 4});
    const RawClient client(server.port());
    Bytes calls;
    Bytes replies;
    for (std::uint32_t i = 0; i < 10000; ++i) {
        calls = std::move(calls) + record(call(i, 1, units({i})));
        replies = std::move(replies) + record(accepted(i, 0, units({i})));
    }
    std::thread sender([&] { client.send(calls); });
    EXPECT_EQ(client.receive(replies.size()), replies);
    sender.join();
    EXPECT_EQ(server.calls, 10000);
}

TEST(RpcServer, ASilentADrippingAndAGreedyPeerHoldUpNobody)
{
    EchoServer server;
    const RawClient silent(server.port());
    const RawClient half(server.port());
    half.send({0x80, 0});
    const RawClient greedy(server.port());
    for (std::uint32_t i = 0; i < 100; ++i)
        greedy.send(record(call(i, 1, Bytes(1000, 1))));
    TestClient client(server.port());
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(client.echo("good"), KvCRpcClient::Success);
}

TEST(RpcServer, ManyCallsOfOnePeerDoNotKeepTheOthersWaiting)
{
    std::vector<std::uint32_t> served;  // on the loop's thread until the server has ended
    EchoServer server({}, [&](const ServerCall& given, ReplyWriter reply) {
        served.push_back(given.header.xid);
        reply.success(nullptr, 0);
    });
    const RawClient greedy(server.port());
    const RawClient good(server.port());
    // All of it is there before the loop looks at any of it.
    std::promise<void> sent;
    server.server.post([ready = sent.get_future().share()] { ready.wait(); });
    Bytes calls;
    for (std::uint32_t i = 1; i <= 1000; ++i)
        calls = std::move(calls) + record(call(i));
    EXPECT_TRUE(greedy.send(calls));
    EXPECT_TRUE(good.send(record(call(5000))));
    sent.set_value();
    EXPECT_EQ(greedy.receive(1000 * 28).size(), 1000u * 28);
    EXPECT_EQ(good.receive(28), record(accepted(5000, 0)));
    server.end();
    ASSERT_EQ(served.size(), 1001u);
    EXPECT_LT(std::find(served.begin(), served.end(), 5000) - served.begin(), 100);
}

TEST(RpcServer, EndsPeersThatTakeTooLong)
{
    EchoServer server({.firstRecordTime = 100, .recordTime = 200, .outputTime = 300, .idleTime = 400});
    {
        const RawClient silent(server.port());
        EXPECT_TRUE(silent.isClosed());
    }
    server.awaitNote("no first record in time");
    {
        const RawClient slow(server.port());
        slow.send(record(call(1)));
        slow.receive(28);
        slow.send({0x80});
        EXPECT_TRUE(slow.isClosed());
    }
    server.awaitNote("a record that takes too long");
    {
        const RawClient idle(server.port());
        idle.send(record(call(1)));
        idle.receive(28);
        EXPECT_TRUE(idle.isClosed());
    }
    server.awaitNote("idle");
}

TEST(RpcServer, EndsAPeerThatDoesNotReadItsAnswers)
{
    EchoServer server({.callsPerConnection = 4, .outputTime = 200}, [](const ServerCall&, ReplyWriter reply) {
        const Bytes large(1 << 20, 1);
        reply.success(large.data(), large.size());
    });
    const RawClient client(server.port());
    for (std::uint32_t i = 0; i < 50; ++i)
        client.send(record(call(i)));
    while (server.closedConnections == 0)
        std::this_thread::sleep_for(5ms);
    server.awaitNote("it does not read its answers");
    EXPECT_LE(server.calls, 30);
}

TEST(RpcServer, ARequestBeyondTheLimitEndsItsConnection)
{
    EchoServer server({.recordBytes = 100});
    const RawClient client(server.port());
    client.send(record(call(1, 1, Bytes(60, 1))));
    EXPECT_EQ(client.receive(88).size(), 88u);
    client.send(units({0x80000000u | 101, 5}));
    EXPECT_TRUE(client.isClosed());
    server.awaitNote("a record beyond the limit");
}

TEST(RpcServer, RequestsAndAnswersTogetherStayWithinTheTotal)
{
    EchoServer server({.connectionsPerSource = 64, .totalBytes = 200000});
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 8; ++i) {
        clients.push_back(std::make_unique<RawClient>(server.port()));
        clients.back()->send(units({0x80000000u | 100000, 5}) + Bytes(60000, 1));
    }
    while (server.closedConnections < 5)
        std::this_thread::sleep_for(5ms);
    server.awaitNote("no room for its request");
    clients.clear();
    while (server.closedConnections < 8)
        std::this_thread::sleep_for(5ms);
    std::atomic<std::size_t> held{1};
    std::atomic<bool> asked{false};
    server.server.post([&] {
        held = server.server.heldBytes();
        asked = true;
    });
    while (!asked)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(held, 0u);
}

TEST(RpcServer, WhoWantsLittleIsServedWhenOthersHoldAllTheMemory)
{
    EchoServer server({.connectionsPerSource = 64, .totalBytes = 20000},
                      [](const ServerCall&, ReplyWriter reply) { reply.success(nullptr, 0); });
    std::vector<std::unique_ptr<RawClient>> greedy;
    const RawClient good(server.port());
    for (std::uint32_t i = 0; i < 20; ++i) {
        // All but the last byte.
        greedy.push_back(std::make_unique<RawClient>(server.port()));
        greedy.back()->send(units({0x80000000u | (8000 - 200 * i), 5}) + Bytes(7995 - 200 * i, 1));
        EXPECT_TRUE(good.send(record(call(i))));
        EXPECT_EQ(good.receive(28), record(accepted(i, 0)));
    }
    server.awaitNote("it makes room for others: it held the most");
}

TEST(RpcServer, AProtectedConnectionHasItsMemoryBeforeOthers)
{
    EchoServer server({.totalBytes = 20000}, [&](const ServerCall& given, ReplyWriter reply) {
        server.server.protect(given.connection, true);
        reply.success(nullptr, 0);
    });
    const RawClient holder(server.port());
    holder.send(record(call(1)));
    EXPECT_EQ(holder.receive(28), record(accepted(1, 0)));
    const RawClient before(server.port());
    before.send(units({0x80000000u | 18000, 5}) + Bytes(15000, 1));
    const auto heldBytes = [&] {
        std::promise<std::size_t> held;
        server.server.post([&] { held.set_value(server.server.heldBytes()); });
        return held.get_future().get();
    };
    while (heldBytes() < 15000)
        std::this_thread::sleep_for(1ms);
    const Bytes large = record(call(2, 1, Bytes(16000, 1)));
    holder.send(Bytes(large.begin(), large.end() - 1));
    EXPECT_TRUE(before.isClosed());
    server.awaitNote("it makes room for others: it held the most");
    const RawClient after(server.port());
    after.send(units({0x80000000u | 18000, 5}) + Bytes(15000, 1));
    EXPECT_TRUE(after.isClosed());
    server.awaitNote("no room for its request");
    holder.send(Bytes(1, 1));
    EXPECT_EQ(holder.receive(28), record(accepted(2, 0)));
}

TEST(RpcServer, TheLongestIdleConnectionMakesPlaceForANewOneUnlessItIsProtected)
{
    EchoServer* place = nullptr;
    EchoServer server({.connectionsPerSource = 3}, [&](const ServerCall& given, ReplyWriter reply) {
        if (given.procedure == 2)
            place->server.protect(given.connection, true);
        reply.success(given.arguments, given.argumentBytes);
    });
    place = &server;
    const RawClient locked(server.port());
    locked.send(record(call(1, 2)));
    locked.receive(28);
    const RawClient idle(server.port());
    idle.send(record(call(1)));
    idle.receive(28);
    const RawClient newer(server.port());
    newer.send(record(call(1)));
    newer.receive(28);
    const RawClient fresh(server.port());
    fresh.send(record(call(3)));
    EXPECT_EQ(fresh.receive(28), record(accepted(3, 0)));
    EXPECT_TRUE(idle.isClosed());
    locked.send(record(call(4)));
    EXPECT_EQ(locked.receive(28), record(accepted(4, 0)));
    newer.send(record(call(5)));
    EXPECT_EQ(newer.receive(28), record(accepted(5, 0)));
}

TEST(RpcServer, ANewConnectionIsRefusedWhenAllAreBusy)
{
    std::vector<std::shared_ptr<ReplyWriter>> open;
    std::mutex mutex;
    EchoServer server({.connectionsPerBoard = 2}, [&](const ServerCall&, ReplyWriter reply) {
        const std::lock_guard lock(mutex);
        open.push_back(std::make_shared<ReplyWriter>(std::move(reply)));
    });
    const RawClient first(server.port());
    const RawClient second(server.port());
    first.send(record(call(1)));
    second.send(record(call(2)));
    while (server.calls < 2)
        std::this_thread::sleep_for(1ms);
    const RawClient third(server.port());
    EXPECT_TRUE(third.isClosed());
    server.awaitNote("connection refused: too many");
    server.server.post([&] {
        const std::lock_guard lock(mutex);
        open.clear();  // answers SYSTEM_ERR
    });
    EXPECT_EQ(first.receive(28), record(accepted(1, 5)));
    EXPECT_EQ(second.receive(28), record(accepted(2, 5)));
}

TEST(RpcServer, AnAnswerToAPeerThatHasGoneIsNothing)
{
    std::shared_ptr<ReplyWriter> open;
    EchoServer server(
        {}, [&](const ServerCall&, ReplyWriter reply) { open = std::make_shared<ReplyWriter>(std::move(reply)); });
    {
        const RawClient client(server.port());
        client.send(record(call(1)));
        while (server.calls < 1)
            std::this_thread::sleep_for(1ms);
    }
    while (server.closedConnections < 1)
        std::this_thread::sleep_for(1ms);
    std::atomic<bool> done{false};
    server.server.post([&] {
        open->success(nullptr, 0);
        open.reset();
        done = true;
    });
    while (!done)
        std::this_thread::sleep_for(1ms);
}

TEST(RpcServer, TimersRunWhenTheyAreDueAndNotWhenTheyAreCancelled)
{
    EchoServer server;
    std::string order;
    std::atomic<bool> done{false};
    server.server.post([&] {
        server.server.startTimer(60, [&] { order += 'c'; });
        server.server.startTimer(20, [&] { order += 'a'; });
        const KvUInt64 never = server.server.startTimer(30, [&] { order += 'x'; });
        server.server.startTimer(40, [&] {
            order += 'b';
            server.server.startTimer(40, [&] { done = true; });
        });
        server.server.cancelTimer(never);
    });
    while (!done)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(order, "abc");
}

TEST(RpcServer, CloseEndsAConnectionAfterItsAnswers)
{
    EchoServer* place = nullptr;
    EchoServer server({}, [&](const ServerCall& given, ReplyWriter reply) {
        const Bytes large(3000000, 1);
        place->server.close(given.connection);
        reply.success(large.data(), large.size());
    });
    place = &server;
    const RawClient client(server.port());
    client.send(record(call(1)));
    EXPECT_EQ(client.receive(5000000).size(), 3000028u);
    EXPECT_TRUE(client.isClosed());
}

TEST(RpcServer, StopSendsWhatHasBeenAnswered)
{
    EchoServer* place = nullptr;
    EchoServer server({}, [&](const ServerCall&, ReplyWriter reply) {
        const Bytes large(3000000, 1);
        reply.success(large.data(), large.size());
        place->server.stop();
    });
    place = &server;
    const RawClient client(server.port());
    client.send(record(call(1)));
    EXPECT_EQ(client.receive(5000000).size(), 3000028u);
    server.end();
    const RawClient late(server.port());
    EXPECT_TRUE(late.isClosed());
}

TEST(RpcServer, SigtermStopsIt)
{
    EchoServer idle;
    KvNRpc::RpcServer server(idle);
    ASSERT_TRUE(server.stopOnSignals());
    std::thread runner([&] { server.run(); });
    ::kill(::getpid(), SIGTERM);
    runner.join();
}

TEST(RpcServer, SaysWhyItCannotListen)
{
    EchoServer server;
    EXPECT_EQ(server.server.listenTcp(1, 0x7F000001, server.port()), 0);
    EXPECT_STREQ(server.server.lastError(), "the port is in use");
    EXPECT_EQ(server.server.listenUdp(1, 0xC0000201, 0), 0);
    EXPECT_STREQ(server.server.lastError(), "the address is not one of this machine");
    EXPECT_EQ(server.server.port(99), 0);
}

TEST(RpcServer, GoesOnAfterEachFailingAllocation)
{
    EchoServer server;
    bool reached = false;
    for (std::size_t number = 1; !reached; ++number) {
        ASSERT_LT(number, 50u);
        const int before = server.closedConnections;
        {
            const FailingAllocation failing(number);
            const RawClient client(server.port());
            client.send(record(call(1, 1, units({5}))));
            const Bytes reply = client.receive(32);
            EXPECT_TRUE(reply.empty() || reply == record(accepted(1, 0, units({5}))));
            EXPECT_TRUE(failing.hasFailed() || !reply.empty());
            reached = !failing.hasFailed();
        }
        const RawClient good(server.port());
        good.send(record(call(2)));
        EXPECT_EQ(good.receive(28), record(accepted(2, 0))) << number << " after " << before;
    }
}

TEST(RpcServer, TakesNewConnectionsAgainWhenDescriptorsAreThereAgain)
{
    EchoServer server;
    const RawClient before(server.port());
    before.send(record(call(1)));
    ASSERT_EQ(before.receive(28).size(), 28u);
    const int room = ::dup(before.socket());
    rlimit usual{};
    ::getrlimit(RLIMIT_NOFILE, &usual);
    rlimit few = usual;
    ::close(room);
    const int waiting = ::socket(AF_INET, SOCK_STREAM, 0);
    few.rlim_cur = static_cast<rlim_t>(waiting) + 1;
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(0x7F000001);
    place.sin_port = htons(server.port());
    std::atomic<bool> kept{false};
    server.server.post([&] {
        server.server.protect(1, true);
        kept = true;
    });
    while (!kept)
        std::this_thread::sleep_for(1ms);
    ::setrlimit(RLIMIT_NOFILE, &few);
    EXPECT_EQ(::connect(waiting, reinterpret_cast<sockaddr*>(&place), sizeof place), 0);
    server.awaitNote("no descriptor for a new connection");
    ::setrlimit(RLIMIT_NOFILE, &usual);
    const Bytes asked = record(call(2));
    EXPECT_EQ(::send(waiting, asked.data(), asked.size(), 0), static_cast<ssize_t>(asked.size()));
    pollfd answered{waiting, POLLIN, 0};
    EXPECT_EQ(::poll(&answered, 1, 5000), 1);
    ::close(waiting);
}

}  // namespace
