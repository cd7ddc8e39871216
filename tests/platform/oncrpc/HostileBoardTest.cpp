#include <gtest/gtest.h>
// GoogleTest's header has to come first.
#include <rapidcheck/gtest.h>

#include <chrono>
#include <thread>

#include "FailingAllocation.h"
#include "RpcPeers.h"

namespace {

using namespace std::chrono_literals;
using Connection = ScriptedBoard::Connection;

/** What a board sends back for a call. */
using Answer = std::function<Bytes(std::uint32_t xid)>;

/** Sends these bytes to each call, then waits for the client to go. */
ScriptedBoard::Script sending(Answer answer)
{
    return [answer](Connection& connection, int) {
        const Bytes call = connection.readCall();
        if (call.empty())
            return;
        connection.send(answer(unitAt(call, 0)));
        connection.stall();
    };
}

/** A call that is answered so ends with this one failure. */
void expectFailure(const std::string& what, const Answer& answer, long status, KvNMessage message)
{
    ScriptedBoard board(sending(answer));
    TestClient client(board.port());
    client.set(KvCRpcClient::LargestReply, 4096);
    EXPECT_EQ(client.echo("x"), status) << what;
    EXPECT_EQ(client.errors.getErrorCount(), 1u) << what;
    EXPECT_EQ(client.errors.getErrorCode(0), static_cast<KvUInt32>(message)) << what;
}

void expectMalformed(const std::string& what, const Answer& answer)
{
    expectFailure(what, answer, KvCRpcClient::ReplyMalformed, KvNMessage::RpcReplyMalformed);
}

TEST(HostileBoard, RepliesThatAreNoneAreMalformed)
{
    expectMalformed("eight zero bytes after the id", [](auto xid) { return record(units({xid, 0, 0})); });
    expectMalformed("a call", [](auto xid) { return record(units({xid, 0, 0, 0, 0, 0})); });
    expectMalformed("reply status 2", [](auto xid) { return record(units({xid, 1, 2, 0, 0, 0})); });
    expectMalformed("accept status 6", [](auto xid) { return record(accepted(xid, 6)); });
    expectMalformed("reject status 2", [](auto xid) { return record(denied(xid, units({2, 0, 0}))); });
    expectMalformed("verifier of 401 bytes", [](auto xid) {
        return record(units({xid, 1, 0, 0, 401}) + Bytes(404) + units({0, 0}));
    });
    expectMalformed("only the id", [](auto xid) { return record(units({xid})); });
    expectMalformed("no results", [](auto xid) { return record(accepted(xid, 0)); });
    expectMalformed("bytes behind the results",
                    [](auto xid) { return record(accepted(xid, 0, textBytes("ok") + units({0}))); });
    expectMalformed("bytes behind a refusal", [](auto xid) { return record(accepted(xid, 3, units({0}))); });
    expectMalformed("a mismatch without its range", [](auto xid) { return record(accepted(xid, 2, units({1}))); });
    for (const std::uint32_t length : {0xFFFFFFFFu, 0xFFFFFFF0u, 0x80000000u, 0x7FFFFFFFu, 5u})
        expectMalformed("results of " + std::to_string(length), [=](auto xid) {
            return record(accepted(xid, 0, units({length, 0x41414141})));
        });
    expectMalformed("one less than there is", [](auto xid) {
        return record(accepted(xid, 0, units({4, 0x41414141, 0x41414141})));
    });
    expectMalformed("a record without bytes", [](auto) { return record({}); });
    expectMalformed("a record of three bytes", [](auto) { return record({1, 2, 3}); });
    expectMalformed("fragments without bytes, for ever", [](auto) { return Bytes(4 * 200); });
}

TEST(HostileBoard, EveryRefusalOfRfc5531HasItsOwnResult)
{
    using Client = KvCRpcClient;
    expectFailure(
        "program", [](auto xid) { return record(accepted(xid, 1)); }, Client::ProgramUnavailable,
        KvNMessage::RpcProgramUnavailable);
    expectFailure(
        "version",
        [](auto xid) {
            return record(accepted(xid, 2, units({0xFFFFFFFF, 0})));
        },
        Client::VersionMismatch, KvNMessage::RpcProgramMismatch);
    expectFailure(
        "procedure", [](auto xid) { return record(accepted(xid, 3)); }, Client::ProcedureUnavailable,
        KvNMessage::RpcProcedureUnavailable);
    expectFailure(
        "arguments", [](auto xid) { return record(accepted(xid, 4)); }, Client::GarbageArguments,
        KvNMessage::RpcGarbageArguments);
    expectFailure(
        "system", [](auto xid) { return record(accepted(xid, 5)); }, Client::SystemError, KvNMessage::RpcSystemError);
    expectFailure(
        "RPC version",
        [](auto xid) {
            return record(denied(xid, units({0, 3, 3})));
        },
        Client::RpcVersionMismatch, KvNMessage::RpcVersionMismatch);
    expectFailure(
        "credentials",
        [](auto xid) {
            return record(denied(xid, units({1, 5})));
        },
        Client::AuthenticationError, KvNMessage::RpcAuthenticationError);
}

TEST(HostileBoard, RefusalsSayInWordsWhatWasRefused)
{
    ScriptedBoard board([](Connection& connection, int) {
        for (std::uint32_t i = 0; i < 7; ++i) {
            const Bytes call = connection.readCall();
            if (call.empty())
                return;
            const std::uint32_t xid = unitAt(call, 0);
            const Bytes answers[] = {
                accepted(xid, 1), accepted(xid, 2, units({4, 6})), accepted(xid, 3),          accepted(xid, 4),
                accepted(xid, 5), denied(xid, units({0, 3, 4})),   denied(xid, units({1, 5}))};
            connection.send(record(answers[i]));
        }
        connection.stall();
    });
    const std::string place = "127.0.0.1:" + std::to_string(board.port());
    TestClient client(board.port());
    const auto next = [&](KvNMessage message, const std::string& text) {
        client.echo("x", 11);
        client.expectOnly(message, text);
    };
    next(KvNMessage::RpcProgramUnavailable,
         "Communication error. The service at " + place + " does not have program 536875572.");
    next(KvNMessage::RpcProgramMismatch, "Communication error. The service at " + place +
                                             " does not have version 3 of program 536875572, but versions 4 to 6.");
    next(KvNMessage::RpcProcedureUnavailable, "Communication error. Procedure 11 is not available at " + place + ".");
    next(KvNMessage::RpcGarbageArguments,
         "Communication error. The service could not decode the arguments of procedure 11 of " + place + ".");
    next(KvNMessage::RpcSystemError,
         "Communication error. Procedure 11 of " + place + " failed with a system error of the service.");
    next(KvNMessage::RpcVersionMismatch,
         "Communication error. The service at " + place + " speaks other versions of RPC: 3 to 4.");
    next(KvNMessage::RpcAuthenticationError,
         "Access denied. The service refused the credentials for procedure 11 of " + place + ", reason 5.");
    EXPECT_EQ(board.connections(), 1);
}

TEST(HostileBoard, ARecordBeyondTheLimitFailsTheCallThatItAnswers)
{
    const auto tooLarge = [](const std::string& what, const Answer& answer) {
        expectFailure(what, answer, KvCRpcClient::ReplyTooLarge, KvNMessage::RpcReplyTooLarge);
    };
    tooLarge("one fragment", [](auto xid) { return record(accepted(xid, 0, textBytes(std::string(5000, 'x')))); });
    tooLarge("a claim of 2^31-1", [](auto xid) { return units({0xFFFFFFFF, xid}); });
    tooLarge("a claim of 0x7FFFFFF0", [](auto xid) { return units({0xFFFFFFF0, xid}); });
    tooLarge("fragments without end", [](auto xid) {
        Bytes bytes = fragment(units({xid}));
        for (int i = 0; i < 100; ++i)
            bytes = bytes + fragment(Bytes(100, 1));
        return bytes;
    });
    ScriptedBoard board(sending([](auto xid) { return units({0xFFFFFFFF, xid}); }));
    TestClient client(board.port());
    client.set(KvCRpcClient::LargestReply, 100);
    client.echo("x", 6);
    client.expectOnly(KvNMessage::RpcReplyTooLarge,
                      "Communication error. The reply to procedure 6 of 127.0.0.1:" + std::to_string(board.port()) +
                          " is larger than the permitted 100 bytes.");
}

TEST(HostileBoard, AReplyOfExactlyTheLimitIsTaken)
{
    ScriptedBoard board(sending([](auto xid) { return record(accepted(xid, 0, textBytes(std::string(1000, 'x')))); }));
    TestClient client(board.port());
    client.set(KvCRpcClient::LargestReply, 1028);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
    TestClient other(board.port());
    other.set(KvCRpcClient::LargestReply, 1027);
    EXPECT_EQ(other.echo("x"), KvCRpcClient::ReplyTooLarge);
}

TEST(HostileBoard, AClaimOfAllMemoryThatStallsTimesOutAndTakesNone)
{
    FailingAllocation allocations(0);
    {
        ScriptedBoard board(sending([](auto xid) { return units({0x80000000u | 60000000, xid, 1, 0}); }));
        TestClient client(board.port());
        client.set(KvCRpcClient::CallTimeout, 200000);
        EXPECT_EQ(client.echo("x"), KvCRpcClient::TimedOut);
    }
    EXPECT_LT(allocations.count(), 100u);
}

TEST(HostileBoard, FragmentsOfOneByteAreJoined)
{
    ScriptedBoard board(sending([](auto xid) {
        const Bytes reply = accepted(xid, 0, textBytes("piecewise"));
        Bytes bytes;
        for (std::size_t i = 0; i + 1 < reply.size(); ++i)
            bytes = bytes + fragment({reply[i]}) + (i % 3 == 0 ? fragment({}) : Bytes());
        return bytes + record({reply.back()});
    }));
    TestClient client(board.port());
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, "piecewise");
}

TEST(HostileBoard, ARecordSentByteForByteIsTakenAndADripEndsAtTheDeadline)
{
    ScriptedBoard board([](Connection& connection, int) {
        const Bytes call = connection.readCall();
        connection.drip(record(accepted(unitAt(call, 0), 0, textBytes("drop by drop"))), 1);
        const Bytes next = connection.readCall();
        if (!next.empty())
            connection.drip(record(accepted(unitAt(next, 0), 0, textBytes(std::string(2000, 'x')))), 5);
    });
    TestClient client(board.port());
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, "drop by drop");
    client.set(KvCRpcClient::CallTimeout, 200000);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::TimedOut);
}

TEST(HostileBoard, AForeignTransactionIdIsPassedOver)
{
    ScriptedBoard board(sending([](auto xid) {
        return record(accepted(xid + 1000, 0, textBytes("not mine"))) + record(units({xid ^ 0x80000000u, 9, 9})) +
               record(accepted(xid, 0, textBytes("mine"))) + record(accepted(xid, 0, textBytes("again")));
    }));
    TestClient client(board.port());
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, "mine");
}

TEST(HostileBoard, AFloodOfForeignRepliesEndsAtTheDeadline)
{
    ScriptedBoard board([](Connection& connection, int) {
        const Bytes call = connection.readCall();
        const Bytes foreign = record(accepted(unitAt(call, 0) + 1, 0, textBytes(std::string(1000, 'x'))));
        while (connection.send(foreign)) {
        }
    });
    TestClient client(board.port());
    client.set(KvCRpcClient::CallTimeout, 200000);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::TimedOut);
}

TEST(HostileBoard, TheLateReplyOfATimedOutCallIsNobodys)
{
    ScriptedBoard board([](Connection& connection, int number) {
        const Bytes call = connection.readCall();
        if (call.empty())
            return;
        if (number == 1)
            connection.sleep(300);
        connection.send(record(accepted(unitAt(call, 0), 0, textBytes(number == 1 ? "late" : "in time"))));
        connection.stall();
    });
    TestClient client(board.port());
    client.set(KvCRpcClient::CallTimeout, 100000);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::TimedOut);
    client.set(KvCRpcClient::CallTimeout, 5000000);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, "in time");
}

TEST(HostileBoard, ACallThatStallsDoesNotHoldUpTheNextAndEarlierOnesStillGetTheirReplies)
{
    // The first connection answers its first call late and its second never.
    ScriptedBoard board([](Connection& connection, int number) {
        const Bytes first = connection.readCall();
        if (first.empty())
            return;
        if (number == 1) {
            connection.readCall();
            connection.sleep(400);
        }
        connection.send(record(accepted(unitAt(first, 0), 0, textBytes(number == 1 ? "patient" : "quick"))));
        connection.stall();
    });
    TestClient client(board.port());
    std::string patient;
    KvCErrorListPool patientErrors;
    std::thread other([&] { client.echo(patientErrors, "x", patient); });
    while (board.connections() == 0)
        std::this_thread::sleep_for(1ms);
    KvCRpcClient::setDefaultTimeout(150000);
    EXPECT_EQ(client.echo("y"), KvCRpcClient::TimedOut);
    KvCRpcClient::setDefaultTimeout(0);
    EXPECT_EQ(client.echo("z"), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, "quick");
    other.join();
    EXPECT_EQ(patient, "patient");
    EXPECT_EQ(patientErrors.getErrorCount(), 0u);
}

/** How a board goes after a number of bytes. */
enum class Cut
{
    End,
    Reset,
    Silence
};

TEST(HostileBoard, ACutAfterAnyByteIsAFailureAndNeverASuccess)
{
    const std::size_t whole = record(accepted(1, 0, textBytes("cut"))).size();
    for (const Cut cut : {Cut::End, Cut::Reset, Cut::Silence}) {
        for (std::size_t bytes = 0; bytes < whole; ++bytes) {
            ScriptedBoard board([=](Connection& connection, int) {
                const Bytes call = connection.readCall();
                if (call.empty())
                    return;
                Bytes reply = record(accepted(unitAt(call, 0), 0, textBytes("cut")));
                reply.resize(bytes);
                connection.send(reply);
                if (cut == Cut::Reset)
                    connection.reset();
                else if (cut == Cut::Silence)
                    connection.stall();
            });
            TestClient client(board.port());
            client.set(KvCRpcClient::CallTimeout, cut == Cut::Silence ? 40000 : 5000000);
            EXPECT_EQ(client.echo("x"), cut == Cut::Silence ? KvCRpcClient::TimedOut : KvCRpcClient::ConnectionLost)
                << bytes;
            EXPECT_EQ(client.errors.getErrorCount(), 1u);
        }
    }
}

TEST(HostileBoard, ABoardThatClosesAtOnceIsAConnectionLost)
{
    ScriptedBoard board([](Connection& connection, int) { connection.reset(); });
    TestClient client(board.port());
    const long status = client.echo("x");
    EXPECT_TRUE(status == KvCRpcClient::ConnectionLost || status == KvCRpcClient::ConnectFailed) << status;
    EXPECT_EQ(client.errors.getErrorCount(), 1u);
    EXPECT_LE(board.connections(), 5);
}

TEST(HostileBoard, ABoardThatNeverReadsEndsTheCallAtItsDeadline)
{
    ScriptedBoard board([](Connection& connection, int) {
        while (!connection.stopped())
            connection.sleep(10);
    });
    TestClient client(board.port());
    client.set(KvCRpcClient::CallTimeout, 200000);
    EXPECT_EQ(client.echo(std::string(20000000, 'x')), KvCRpcClient::TimedOut);
}

TEST(HostileBoard, AReplyThatComesBeforeTheWholeCallIsReadIsTaken)
{
    ScriptedBoard board([](Connection& connection, int number) {
        Bytes call;
        if (number == 1)
            call = connection.readCall();
        connection.send(record(accepted(unitAt(call, 0), 5)));
        connection.readCall();
    });
    TestClient client(board.port());
    EXPECT_EQ(client.echo("x"), KvCRpcClient::SystemError);
}

TEST(HostileBoard, AReplyToACallThatIsNotReadEndsTheConnection)
{
    ScriptedBoard board([](Connection& connection, int number) {
        Bytes call = connection.readCall();
        connection.send(record(accepted(unitAt(call, 0), 0, textBytes("read"))));
        // the next call's reply, over and over, and none of that call is read
        const Bytes early = record(accepted(unitAt(call, 0) + 1, 0, textBytes("not read")));
        while (number == 1 && !connection.stopped() && connection.send(early))
            connection.sleep(10);
        connection.stall();
    });
    TestClient client(board.port());
    client.set(KvCRpcClient::CallTimeout, 2000000);
    EXPECT_EQ(client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(client.echo(std::string(20000000, 'x')), KvCRpcClient::Success);
    EXPECT_EQ(client.answer, "not read");
    EXPECT_EQ(client.echo("y"), KvCRpcClient::Success) << "it does not stand behind what is never taken";
    EXPECT_EQ(client.answer, "read");
    EXPECT_EQ(board.connections(), 2);
    EXPECT_EQ(client.errors.getErrorCount(), 0u);
}

// ---- the port mapper

/** A client that has to ask a port mapper, and the mapper. */
struct Asking
{
    explicit Asking(
        ScriptedBoard::DatagramScript datagrams, ScriptedBoard::Script tcp = [](Connection&, int) {})
        : mapper(std::move(tcp), std::move(datagrams)), client(0)
    {
        client.set(KvCRpcClient::PortMapperPort, mapper.port());
        place = "127.0.0.1:" + std::to_string(mapper.port());
    }
    void expectFailure(KvNMessage message, const std::string& text)
    {
        EXPECT_EQ(client.client.connect(client.errors), KvCRpcClient::ConnectFailed);
        client.expectOnly(message, text);
    }
    ScriptedBoard mapper;
    TestClient client;
    std::string place;
};

Bytes named(const Bytes& datagram, std::uint32_t port)
{
    return accepted(unitAt(datagram, 0), 0, units({port}));
}

TEST(PortMapper, IsAskedAsRfc1833LaysItOut)
{
    ScriptedBoard board(sending([](auto xid) { return record(accepted(xid, 0, textBytes("here"))); }));
    Seen datagrams;
    Asking asking([&](const Bytes& datagram) {
        datagrams.add(datagram);
        return named(datagram, board.port());
    });
    ASSERT_EQ(asking.client.echo("x"), KvCRpcClient::Success);
    const Bytes seen = datagrams.at(0);
    EXPECT_EQ(seen, units({unitAt(seen, 0), 0, 2, 100000, 2, 3, 0, 0, 0, 0, testProgram, testVersion, 6, 0}));
}

TEST(PortMapper, IsAskedAgainWhenADatagramIsLost)
{
    ScriptedBoard board(sending([](auto xid) { return record(accepted(xid, 0, textBytes("here"))); }));
    int count = 0;
    Asking asking([&](const Bytes& datagram) -> std::optional<Bytes> {
        if (++count < 3)
            return std::nullopt;
        return named(datagram, board.port());
    });
    EXPECT_EQ(asking.client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(asking.mapper.datagrams(), 3);
}

TEST(PortMapper, IsAskedByTcpWhenItAnswersNoDatagrams)
{
    ScriptedBoard board(sending([](auto xid) { return record(accepted(xid, 0, textBytes("here"))); }));
    Asking asking([](const Bytes&) { return std::nullopt; },
                  [&](Connection& connection, int) {
                      const Bytes call = connection.readCall();
                      connection.send(record(named(call, board.port())));
                      connection.stall();
                  });
    EXPECT_EQ(asking.client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(asking.mapper.connections(), 1);
}

TEST(PortMapper, IsAskedByTcpAtOnceWhenTheHostRefusesDatagrams)
{
    ScriptedBoard board(sending([](auto xid) { return record(accepted(xid, 0, textBytes("here"))); }));
    Asking asking(nullptr, [&](Connection& connection, int) {
        const Bytes call = connection.readCall();
        connection.send(record(named(call, board.port())));
        connection.stall();
    });
    asking.client.set(KvCRpcClient::ConnectTimeout, 1000000);
    EXPECT_EQ(asking.client.echo("x"), KvCRpcClient::Success);
}

TEST(PortMapper, PortZeroIsNotRegistered)
{
    Asking asking([](const Bytes& datagram) { return named(datagram, 0); });
    asking.expectFailure(KvNMessage::RpcPortNotRegistered, "Communication error. The port mapper at " + asking.place +
                                                               " knows no TCP port of program 536875572, version 3.");
}

TEST(PortMapper, ARefusalIsReported)
{
    Asking asking([](const Bytes& datagram) { return accepted(unitAt(datagram, 0), 1); });
    asking.expectFailure(KvNMessage::RpcPortMapperRefused,
                         "Communication error. The port mapper at " + asking.place + " refused to name a port.");
}

TEST(PortMapper, NeitherUdpNorTcpIsAConnectFailure)
{
    TestClient client(0);
    const std::uint16_t port = unusedPort();
    client.set(KvCRpcClient::PortMapperPort, port);
    EXPECT_EQ(client.client.connect(client.errors), KvCRpcClient::ConnectFailed);
    client.expectOnly(KvNMessage::RpcConnectFailed,
                      "Communication error. Cannot connect to 127.0.0.1:" + std::to_string(port) + ": refused.");
}

TEST(PortMapper, DatagramsThatMakeNoSenseArePassedOver)
{
    ScriptedBoard board(sending([](auto xid) { return record(accepted(xid, 0, textBytes("here"))); }));
    int count = 0;
    Asking asking([&](const Bytes& datagram) -> std::optional<Bytes> {
        switch (++count) {
            case 1:
                return accepted(unitAt(datagram, 0) + 1, 0, units({1}));
            case 2:
                return named(datagram, 65536);
            default:
                return named(datagram, board.port());
        }
    });
    EXPECT_EQ(asking.client.echo("x"), KvCRpcClient::Success);
    EXPECT_EQ(count, 3);
}

TEST(PortMapper, AnAnswerByTcpThatMakesNoSenseIsReported)
{
    const Answer answers[] = {
        [](auto xid) { return record(accepted(xid, 0, units({65536}))); },
        [](auto xid) {
            return record(accepted(xid, 0, units({1, 2})));
        },
        [](auto xid) { return record(accepted(xid, 0)); },
        [](auto xid) {
            return units({0xFFFFFFFF, xid});
        },
    };
    for (const Answer& answer : answers) {
        Asking asking(nullptr, sending(answer));
        asking.expectFailure(
            KvNMessage::RpcPortMapperMalformed,
            "Communication error. The port mapper at " + asking.place + " gave an answer that makes no sense.");
    }
}

TEST(PortMapper, APortThatNobodyListensOnIsRefused)
{
    const std::uint16_t port = unusedPort();
    Asking asking([port](const Bytes& datagram) { return named(datagram, port); });
    asking.expectFailure(KvNMessage::RpcConnectFailed,
                         "Communication error. Cannot connect to 127.0.0.1:" + std::to_string(port) + ": refused.");
}

TEST(PortMapper, ThatAnswersFromAnotherHostIsNotHeard)
{
    // The mapper of another loopback host is asked: its answer names a port, and the connection goes to the host asked.
    ScriptedBoard elsewhere([](Connection&, int) {}, nullptr, 0x7F000002);
    Asking asking([&](const Bytes& datagram) { return named(datagram, elsewhere.port()); });
    EXPECT_EQ(asking.client.client.connect(asking.client.errors), KvCRpcClient::ConnectFailed);
    EXPECT_EQ(elsewhere.connections(), 0);
}

// ---- anything at all

RC_GTEST_PROP(AnyBytesAsReply, EndInAnErrorOrASuccessWithinTheDeadline, ())
{
    const auto noise = *rc::gen::container<Bytes>(rc::gen::arbitrary<unsigned char>());
    const int frame = *rc::gen::inRange(0, 4);
    ScriptedBoard board([&](Connection& connection, int) {
        const Bytes call = connection.readCall();
        if (call.empty())
            return;
        const std::uint32_t xid = unitAt(call, 0);
        const Bytes frames[] = {noise, record(noise), record(units({xid}) + noise), record(accepted(xid, 0, noise))};
        connection.send(frames[frame]);
    });
    TestClient client(board.port());
    const long status = client.echo("x");
    RC_ASSERT((status == KvCRpcClient::Success) == (client.errors.getErrorCount() == 0));
    RC_ASSERT(client.errors.getErrorCount() <= 1u);
    if (frame < 2)
        RC_ASSERT(status != KvCRpcClient::Success);
}

// ---- memory

TEST(OutOfMemory, EachFailingAllocationFailsACallWithAnErrorOrLeavesItUnaffected)
{
    EchoServer server;
    bool reached = false;
    for (std::size_t number = 1; !reached; ++number) {
        ASSERT_LT(number, 200u);
        const FailingAllocation failing(number);
        KvCErrorListPool errors;
        {
            KvCRpcClient client(errors, "127.0.0.1");
            client.setParameter(errors, KvCRpcClient::Program, testProgram);
            client.setParameter(errors, KvCRpcClient::Version, testVersion);
            client.setParameter(errors, KvCRpcClient::Port, server.port());
            std::string text(3000, 'x');
            Text arguments{text.data(), static_cast<KvUInt32>(text.size())};
            Text results;
            const long status =
                client.clntCall(errors, 1, KvNXdr::proc<xdr_Text>, &arguments, KvNXdr::proc<xdr_Text>, &results);
            EXPECT_EQ(status == KvCRpcClient::Success, errors.getErrorCount() == 0) << number;
            if (status == KvCRpcClient::Success) {
                EXPECT_EQ(results.string(), text);
            } else {
                EXPECT_TRUE(failing.hasFailed()) << number << errors.getErrorText(0);
            }
            client.freeResults(KvNXdr::proc<xdr_Text>, &results);
        }
        reached = !failing.hasFailed();
    }
}

TEST(OutOfMemory, WithoutMemoryFromAnyPointOnACallFailsAndNothingHangs)
{
    for (std::size_t number = 1; number < 40; ++number) {
        ScriptedBoard board(sending([](auto xid) { return record(accepted(xid, 0, textBytes("here"))); }));
        ScriptedBoard mapper([](Connection&, int) {},
                             [&](const Bytes& datagram) { return named(datagram, board.port()); });
        const FailingAllocation failing(number, true);
        KvCErrorListPool errors;
        KvCRpcClient client(errors, "127.0.0.1");
        client.setParameter(errors, KvCRpcClient::Program, testProgram);
        client.setParameter(errors, KvCRpcClient::PortMapperPort, mapper.port());
        client.setParameter(errors, KvCRpcClient::CallTimeout, 2000000);
        Text results;
        const long status = client.clntCall(errors, 1, nullptr, nullptr, KvNXdr::proc<xdr_Text>, &results);
        EXPECT_EQ(status == KvCRpcClient::Success, !failing.hasFailed()) << number << " " << errors.getErrorText(0);
        if (status != KvCRpcClient::Success) {
            EXPECT_EQ(status, KvCRpcClient::OutOfMemory) << number << " " << errors.getErrorText(0);
        }
        client.freeResults(KvNXdr::proc<xdr_Text>, &results);
    }
}

}  // namespace
