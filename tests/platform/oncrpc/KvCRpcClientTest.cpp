#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>
#include <vector>

#include "RpcPeers.h"

namespace {

using namespace std::chrono_literals;

/** Answers each call with its own arguments. */
void echoAll(ScriptedBoard::Connection& connection, int)
{
    for (Bytes call = connection.readCall(); !call.empty(); call = connection.readCall())
        connection.send(record(accepted(unitAt(call, 0), 0, Bytes(call.begin() + 40, call.end()))));
}

TEST(KvCRpcClient, SendsACallAsRfc5531LaysItOut)
{
    Seen calls;
    ScriptedBoard board([&](ScriptedBoard::Connection& connection, int) {
        const Bytes call = connection.readCall();
        calls.add(call);
        connection.send(record(accepted(unitAt(call, 0), 0, textBytes("yes"))));
        connection.stall();
    });
    TestClient client(board.port());
    ASSERT_EQ(client.echo("hello", 9), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, "yes");
    EXPECT_EQ(client.errors.getErrorCount(), 0u);
    const Bytes seen = calls.at(0);
    const Bytes expected = units({unitAt(seen, 0), 0, 2, testProgram, testVersion, 9, 0, 0, 0, 0}) + textBytes("hello");
    EXPECT_EQ(seen, expected);
}

TEST(KvCRpcClient, CallsTheSameServiceManyTimesOverOneConnection)
{
    ScriptedBoard board(echoAll);
    TestClient client(board.port());
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(client.echo(std::to_string(i)), KvCRpcClient::Success);
        EXPECT_EQ(client.answer, std::to_string(i));
    }
    EXPECT_EQ(board.connections(), 1);
}

TEST(KvCRpcClient, ConnectTwiceMakesOneConnection)
{
    ScriptedBoard board(echoAll);
    TestClient client(board.port());
    EXPECT_EQ(client.client.connect(client.errors), KvCRpcClient::Success);
    EXPECT_EQ(client.client.connect(client.errors), KvCRpcClient::Success);
    ASSERT_EQ(client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(board.connections(), 1);
}

TEST(KvCRpcClient, NullProcedureNeedsNoRoutines)
{
    EchoServer server;
    TestClient client(server.port());
    EXPECT_EQ(client.client.clntCall(client.errors, 0, &KvNXdr::xdr_void, nullptr, &KvNXdr::xdr_void, nullptr),
              KvCRpcClient::Success);
    EXPECT_EQ(client.client.clntCall(client.errors, 0, nullptr, nullptr, nullptr, nullptr), KvCRpcClient::Success);
    EXPECT_EQ(client.errors.getErrorCount(), 0u);
}

TEST(KvCRpcClient, LargeTextsGoThroughWhole)
{
    EchoServer server({.recordBytes = 16u << 20});
    TestClient client(server.port());
    std::string text(5000001, 'x');
    for (std::size_t i = 0; i < text.size(); i += 7)
        text[i] = static_cast<char>(i);
    ASSERT_EQ(client.echo(text), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, text);
}

TEST(KvCRpcClient, SixteenThreadsShareOneClientAndEachGetsItsOwnReplyInWhateverOrderTheyCome)
{
    std::unique_ptr<EchoServer> server;
    std::atomic<KvUInt64> connection{0};
    std::atomic<int> others{0};
    server = std::make_unique<EchoServer>(
        KvNRpc::ServerLimits{.callsPerConnection = 64}, [&](const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply) {
            if (connection.exchange(call.connection) != call.connection)
                ++others;
            const Bytes results(call.arguments, call.arguments + call.argumentBytes);
            const auto later = std::make_shared<KvNRpc::ReplyWriter>(std::move(reply));
            const KvUInt32 delay = unitAt(results, 4) % 5;
            server->server.startTimer(delay, [later, results] { later->success(results.data(), results.size()); });
        });
    TestClient client(server->port());
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 16; ++t)
        threads.emplace_back([&, t] {
            KvCErrorListPool errors;
            for (int i = 0; i < 50; ++i) {
                const std::string text = std::to_string(t * 1000 + i * 7 + 10000);
                std::string got;
                if (client.echo(errors, text, got) != KvCRpcClient::Success || got != text)
                    ++wrong;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(others, 1);
    server->end();
}

TEST(KvCRpcClient, ManyClientsEachToItsOwnBoard)
{
    EchoServer first;
    EchoServer second;
    std::vector<std::unique_ptr<TestClient>> clients;
    for (int i = 0; i < 12; ++i)
        clients.push_back(std::make_unique<TestClient>(i % 2 == 0 ? first.port() : second.port()));
    for (auto& client : clients)
        EXPECT_EQ(client->echo("x"), KvCRpcClient::Success) << client->errors.getErrorText(0);
    EXPECT_EQ(first.calls, 6);
    EXPECT_EQ(second.calls, 6);
}

TEST(KvCRpcClient, AConnectionThatThePeerClosedIsMadeAnewBeforeTheNextCall)
{
    std::atomic<int> closed{0};
    ScriptedBoard board([&](ScriptedBoard::Connection& connection, int) {
        const Bytes call = connection.readCall();
        connection.send(record(accepted(unitAt(call, 0), 0, textBytes("once"))));
        connection.close();
        ++closed;
    });
    TestClient client(board.port());
    for (int i = 1; i <= 5; ++i) {
        ASSERT_EQ(client.echo("x", 3), KvCRpcClient::Success);
        EXPECT_EQ(client.answer, "once");
        while (closed < i)
            std::this_thread::sleep_for(1ms);
        EXPECT_EQ(board.connections(), i);
    }
}

TEST(KvCRpcClient, ARepeatableCallIsSentOnceMoreWhenTheConnectionEndsBeforeTheReply)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int number) {
        const Bytes call = connection.readCall();
        if (number > 1)
            connection.send(record(accepted(unitAt(call, 0), 0, textBytes("second"))));
    });
    TestClient client(board.port());
    client.client.setRepeatable(5);
    ASSERT_EQ(client.echo("x", 5), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, "second");
    EXPECT_EQ(board.connections(), 2);
    EXPECT_EQ(client.errors.getErrorCount(), 0u);
}

TEST(KvCRpcClient, ARepeatableCallIsNotSentAThirdTime)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) { connection.readCall(); });
    TestClient client(board.port());
    client.client.setRepeatable(5);
    EXPECT_EQ(client.echo("x", 5), KvCRpcClient::ConnectionLost);
    EXPECT_EQ(board.connections(), 2);
}

TEST(KvCRpcClient, ACallThatIsNotRepeatableIsSentOnce)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) { connection.readCall(); });
    TestClient client(board.port());
    EXPECT_EQ(client.echo("x", 5), KvCRpcClient::ConnectionLost);
    EXPECT_EQ(board.connections(), 1);
    client.expectOnly(KvNMessage::RpcConnectionLost,
                      "Communication error. The connection ended before procedure 5 of 127.0.0.1:" +
                          std::to_string(board.port()) + " had answered: closed by the board.");
}

TEST(KvCRpcClient, ARepeatableCallIsNotRepeatedOnceAByteOfTheReplyHasCome)
{
    for (const std::size_t bytes : {std::size_t(1), std::size_t(4), std::size_t(5), std::size_t(8), std::size_t(20)}) {
        ScriptedBoard board([bytes](ScriptedBoard::Connection& connection, int) {
            const Bytes call = connection.readCall();
            Bytes reply = record(accepted(unitAt(call, 0), 0, textBytes("never")));
            reply.resize(bytes);
            connection.send(reply);
        });
        TestClient client(board.port());
        client.client.setRepeatable(5);
        EXPECT_EQ(client.echo("x", 5), KvCRpcClient::ConnectionLost) << bytes;
        EXPECT_EQ(board.connections(), 1) << bytes;
    }
}

TEST(KvCRpcClient, TheNullProcedureIsAlwaysRepeatable)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int number) {
        const Bytes call = connection.readCall();
        if (number == 2)
            connection.send(record(accepted(unitAt(call, 0), 0)));
    });
    TestClient client(board.port());
    EXPECT_EQ(client.client.clntCall(client.errors, 0, &KvNXdr::xdr_void, nullptr, &KvNXdr::xdr_void, nullptr),
              KvCRpcClient::Success);
}

TEST(KvCRpcClient, ARefusedConnectIsReportedAndRememberedForASecond)
{
    const std::uint16_t port = unusedPort();
    TestClient client(port);
    const std::string text = "Communication error. Cannot connect to 127.0.0.1:" + std::to_string(port) + ": refused.";
    EXPECT_EQ(client.client.connect(client.errors), KvCRpcClient::ConnectFailed);
    client.expectOnly(KvNMessage::RpcConnectFailed, text);

    EXPECT_EQ(client.echo("x"), KvCRpcClient::ConnectFailed);
    client.expectOnly(KvNMessage::RpcConnectFailed, text);
}

TEST(KvCRpcClient, AFailedConnectIsTriedAnewAfterASecondAndByConnectAtOnce)
{
    std::unique_ptr<ScriptedBoard> mapper;
    std::atomic<std::uint32_t> named{0};
    ScriptedBoard board(echoAll);
    mapper = std::make_unique<ScriptedBoard>(
        [](ScriptedBoard::Connection&, int) {},
        [&](const Bytes& datagram) { return accepted(unitAt(datagram, 0), 0, units({named.load()})); });
    TestClient client(0);
    client.set(KvCRpcClient::PortMapperPort, mapper->port());
    EXPECT_EQ(client.echo("x"), KvCRpcClient::ConnectFailed);
    named = board.port();
    EXPECT_EQ(client.echo("x"), KvCRpcClient::ConnectFailed);
    EXPECT_EQ(mapper->datagrams(), 1);
    EXPECT_EQ(client.client.connect(client.errors), KvCRpcClient::Success);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(mapper->datagrams(), 2);

    TestClient other(0);
    named = 0;
    other.set(KvCRpcClient::PortMapperPort, mapper->port());
    EXPECT_EQ(other.echo("x"), KvCRpcClient::ConnectFailed);
    named = board.port();
    std::this_thread::sleep_for(1050ms);
    EXPECT_EQ(other.echo("x"), KvCRpcClient::Success);
}

TEST(KvCRpcClient, ASilentHostEndsTheConnectAfterItsTimeout)
{
    // A listener whose queue is full answers no connect.
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) { connection.stall(); },
                        [](const Bytes&) { return std::nullopt; });
    TestClient client(0);
    client.set(KvCRpcClient::PortMapperPort, board.port());
    client.set(KvCRpcClient::ConnectTimeout, 300000);
    EXPECT_EQ(client.client.connect(client.errors), KvCRpcClient::ConnectFailed);
    client.expectOnly(KvNMessage::RpcPortMapperSilent, "Communication error. The port mapper at 127.0.0.1:" +
                                                           std::to_string(board.port()) + " does not answer.");
    EXPECT_EQ(board.datagrams(), 2);
}

TEST(KvCRpcClient, AStallingBoardEndsTheCallAtItsDeadlineAndTheNextCallGetsANewConnection)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int number) {
        const Bytes call = connection.readCall();
        if (number == 1)
            return connection.stall();
        connection.send(record(accepted(unitAt(call, 0), 0, textBytes("fine"))));
        connection.stall();
    });
    TestClient client(board.port());
    client.set(KvCRpcClient::CallTimeout, 150000);
    EXPECT_EQ(client.echo("x", 2), KvCRpcClient::TimedOut);
    client.expectOnly(KvNMessage::RpcTimedOut, "Communication error. Procedure 2 of 127.0.0.1:" +
                                                   std::to_string(board.port()) + " did not answer within 150 ms.");
    ASSERT_EQ(client.echo("x", 2), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, "fine");
}

TEST(KvCRpcClient, TheProcessWideTimeoutOverridesTheClients)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) { connection.stall(); });
    TestClient client(board.port());
    KvCRpcClient::setDefaultTimeout(120000);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::TimedOut);
    KvCRpcClient::setDefaultTimeout(0);
    client.expectOnly(KvNMessage::RpcTimedOut, "Communication error. Procedure 1 of 127.0.0.1:" +
                                                   std::to_string(board.port()) + " did not answer within 120 ms.");
}

TEST(KvCRpcClient, CancelAllEndsCallsInProgressFromAnotherThread)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) { connection.stall(); });
    TestClient client(board.port());
    client.set(KvCRpcClient::CallTimeout, 60000000);
    std::vector<std::thread> threads;
    std::atomic<int> cancelled{0};
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            KvCErrorListPool errors;
            std::string got;
            if (client.echo(errors, "x", got) == KvCRpcClient::Cancelled &&
                errors.getErrorCode(0) == static_cast<KvUInt32>(KvNMessage::RpcCancelled))
                ++cancelled;
        });
    while (board.connections() == 0)
        std::this_thread::sleep_for(5ms);
    std::this_thread::sleep_for(50ms);
    KvCRpcClient::cancelAll();
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(cancelled, 4);
}

TEST(KvCRpcClient, CancelAllWorksInASignalHandlerAndLaterCallsGoThrough)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int number) {
        if (number == 1)
            return connection.stall();
        echoAll(connection, number);
    });
    TestClient client(board.port());
    client.set(KvCRpcClient::CallTimeout, 60000000);
    const auto former = std::signal(SIGUSR1, [](int) { KvCRpcClient::cancelAll(); });
    const pthread_t caller = pthread_self();
    std::thread killer([&] {
        while (board.connections() == 0)
            std::this_thread::sleep_for(5ms);
        std::this_thread::sleep_for(50ms);
        pthread_kill(caller, SIGUSR1);
    });
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Cancelled);
    killer.join();
    std::signal(SIGUSR1, former);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
}

TEST(KvCRpcClient, CancelAllEndsAConnectInProgress)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) { connection.stall(); },
                        [](const Bytes&) { return std::nullopt; });
    TestClient client(0);
    client.set(KvCRpcClient::PortMapperPort, board.port());
    client.set(KvCRpcClient::ConnectTimeout, 60000000);
    std::thread killer([&] {
        while (board.datagrams() == 0)
            std::this_thread::sleep_for(5ms);
        KvCRpcClient::cancelAll();
    });
    EXPECT_EQ(client.client.connect(client.errors), KvCRpcClient::Cancelled);
    killer.join();
    client.expectOnly(KvNMessage::RpcConnectCancelled, "Communication error. Connecting to 127.0.0.1 was cancelled.");
}

TEST(KvCRpcClient, AWriteToAClosedConnectionRaisesNoSignal)
{
    // SIGPIPE has its default action here: it would end the test program.
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) {
        connection.readCall();
        connection.reset();
    });
    TestClient client(board.port());
    client.set(KvCRpcClient::CallTimeout, 2000000);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(client.echo(std::string(1000000, 'x'), 3), KvCRpcClient::ConnectionLost);
}

TEST(KvCRpcClient, WrongAddressesAndParametersAreReported)
{
    KvCErrorListPool errors;
    KvCRpcClient client(errors, "board.example");
    ASSERT_EQ(errors.getErrorCount(), 1u);
    EXPECT_EQ(errors.getErrorCode(0), static_cast<KvUInt32>(KvNMessage::RpcAddressInvalid));
    EXPECT_STREQ(errors.getErrorText(0), "Internal error. \"board.example\" is not an IPv4 address.");
    EXPECT_EQ(client.connect(errors), KvCRpcClient::ParameterInvalid);
    EXPECT_EQ(client.clntCall(errors, 1, &KvNXdr::xdr_void, nullptr, &KvNXdr::xdr_void, nullptr),
              KvCRpcClient::ParameterInvalid);

    KvCErrorListPool none;
    KvCRpcClient unnamed(none, nullptr);
    EXPECT_EQ(none.getErrorCount(), 1u);

    TestClient good(1);
    for (const auto& [key, value] : {std::pair<KvUInt32, KvUInt32>{0, 1},
                                     {8, 1},
                                     {KvCRpcClient::Program, 0},
                                     {KvCRpcClient::Port, 65536},
                                     {KvCRpcClient::PortMapperPort, 0},
                                     {KvCRpcClient::ConnectTimeout, 0},
                                     {KvCRpcClient::CallTimeout, 0},
                                     {KvCRpcClient::LargestReply, 0}}) {
        EXPECT_EQ(good.client.setParameter(good.errors, key, value), KvCRpcClient::ParameterInvalid);
        good.expectOnly(KvNMessage::RpcParameterInvalid, "Internal error. RPC client parameter " + std::to_string(key) +
                                                             " cannot be set to " + std::to_string(value) + ".");
    }
}

TEST(KvCRpcClient, AClientWithoutAProgramNumberSaysSo)
{
    KvCErrorListPool errors;
    KvCRpcClient client(errors, "127.0.0.1");
    EXPECT_EQ(client.connect(errors), KvCRpcClient::ParameterInvalid);
    EXPECT_EQ(errors.getErrorCode(0), static_cast<KvUInt32>(KvNMessage::RpcNotConfigured));
}

TEST(KvCRpcClient, ArgumentsThatCannotBeEncodedAreReported)
{
    TestClient client(1);
    Text arguments{nullptr, 5};
    EXPECT_EQ(client.client.clntCall(client.errors, 4, KvNXdr::proc<xdr_Text>, &arguments, &KvNXdr::xdr_void, nullptr),
              KvCRpcClient::ArgumentsInvalid);
    client.expectOnly(KvNMessage::RpcArgumentsInvalid,
                      "Internal error. The arguments of procedure 4 of 127.0.0.1 cannot be encoded.");
}

/** Leaves the process exactly so many free descriptors while it lives. */
class FewDescriptors
{
public:
    explicit FewDescriptors(std::size_t free)
    {
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit few = m_before;
        few.rlim_cur = 1024;
        ::setrlimit(RLIMIT_NOFILE, &few);
        for (int taken = ::open("/dev/null", O_RDONLY); taken >= 0; taken = ::open("/dev/null", O_RDONLY))
            m_taken.push_back(taken);
        for (; free > 0; --free) {
            ::close(m_taken.back());
            m_taken.pop_back();
        }
    }
    ~FewDescriptors()
    {
        for (const int taken : m_taken)
            ::close(taken);
        ::setrlimit(RLIMIT_NOFILE, &m_before);
    }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

private:
    rlimit m_before{};
    std::vector<int> m_taken;
};

TEST(KvCRpcClient, WithoutDescriptorsACallFailsWithAReasonOfItsOwn)
{
    ScriptedBoard board(echoAll);
    bool reached = false;
    for (std::size_t free = 0; !reached; ++free) {
        ASSERT_LT(free, 10u);
        TestClient client(board.port());
        client.set(KvCRpcClient::CallTimeout, 1000000);
        const long status = [&] {
            const FewDescriptors few(free);
            return client.client.connect(client.errors);
        }();
        reached = status == KvCRpcClient::Success;
        EXPECT_TRUE(free > 0 || !reached);
        if (!reached) {
            EXPECT_EQ(status, KvCRpcClient::OutOfMemory) << client.errors.getErrorText(0);
            EXPECT_EQ(client.errors.getErrorCode(0), static_cast<KvUInt32>(KvNMessage::RpcOutOfMemory));
        }
        // A shortage is not remembered as a failed connect.
        EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
    }
}

#if !defined(__SANITIZE_THREAD__)
TEST(KvCRpcClient, AForkedProcessCallsOverAConnectionOfItsOwn)
{
    ScriptedBoard board(echoAll);
    TestClient client(board.port());
    ASSERT_EQ(client.echo("before"), KvCRpcClient::Success);
    const pid_t child = ::fork();
    if (child == 0) {
        const bool right = client.echo("child") == KvCRpcClient::Success && client.answer == "child";
        ::_exit(right ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    ASSERT_EQ(client.echo("after"), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, "after");
    EXPECT_EQ(board.connections(), 2);
}
#endif

TEST(KvCRpcClient, AClientThatLivesAtExitDoesNotDisturbIt)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            auto board = std::make_unique<ScriptedBoard>(echoAll);
            static auto* client = new TestClient(board->port());
            const long status = client->echo("x");
            board.reset();
            std::exit(status == KvCRpcClient::Success ? 7 : 8);
        },
        testing::ExitedWithCode(7), "");
}

}  // namespace
