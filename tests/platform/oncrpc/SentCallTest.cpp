#include "platform/oncrpc/RpcChannel.h"

#include "RpcPeers.h"
#include "tests/support/FailingAllocation.h"

namespace {

constexpr KvUInt32 procedure = 4;

/** Calls with four bytes each, of which several may be on their way. */
class SentCallTest : public testing::Test
{
protected:
    /** Sends a call with these bytes, which are put where they are sent from. */
    static bool send(TestClient& client, KvNRpc::SentCall& call, const char* four)
    {
        if (!call.reserve(8))
            return false;
        std::memcpy(call.arguments() + 4, four, 4);
        Text text{call.arguments() + 4, 4};
        return client.client.sendCall(call, procedure, KvNXdr::proc<xdr_Text>, &text);
    }
    /** The reply's bytes; what it came to is in `outcome`. */
    std::string take(TestClient& client, KvNRpc::SentCall& call)
    {
        Text text;
        outcome = client.client.takeReply(client.errors, call, procedure, KvNXdr::proc<xdr_Text>, &text);
        const std::string bytes = text.string();
        client.client.freeResults(KvNXdr::proc<xdr_Text>, &text);
        EXPECT_FALSE(call.isOnItsWay());
        return bytes;
    }
    /** The bytes of a call, and the reply that gives them back. */
    static std::string argument(const Bytes& call) { return {call.begin() + 44, call.begin() + 48}; }
    static Bytes echo(const Bytes& call, std::uint32_t foreign = 0)
    {
        return record(accepted(unitAt(call, 0) + foreign, 0, textBytes(argument(call))));
    }

    long outcome = -1;
};

}  // namespace

TEST_F(SentCallTest, areTheSameBytesAsOfACallThatIsWaitedFor)
{
    Seen seen;
    ScriptedBoard board([&](ScriptedBoard::Connection& connection, int) {
        while (true) {
            const Bytes call = connection.readCall();
            if (call.empty())
                return;
            seen.add(call);
            connection.send(echo(call));
        }
    });
    TestClient client(board.port());
    EXPECT_EQ(client.echo("abcd", procedure), KvCRpcClient::Success);
    KvNRpc::SentCall call;
    ASSERT_TRUE(send(client, call, "abcd"));
    EXPECT_EQ(take(client, call), "abcd");
    EXPECT_EQ(outcome, KvCRpcClient::Success);
    ASSERT_EQ(seen.count(), 2u);
    const Bytes waited = seen.at(0);
    const Bytes sent = seen.at(1);
    EXPECT_EQ(Bytes(waited.begin() + 4, waited.end()), Bytes(sent.begin() + 4, sent.end()));
    EXPECT_EQ(unitAt(sent, 0), unitAt(waited, 0) + 1);
    EXPECT_EQ(client.errors.getErrorCount(), 0u);
}

TEST_F(SentCallTest, getTheirOwnRepliesInWhateverOrderTheyComeAndNoOthers)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) {
        std::vector<Bytes> calls;
        for (int i = 0; i < 3; ++i)
            calls.push_back(connection.readCall());
        connection.send(echo(calls[2]));
        connection.send(record(accepted(unitAt(calls[0], 0) - 1, 0, textBytes("nobody's"))));
        connection.send(echo(calls[1], 0x1000));
        connection.send(echo(calls[0]));
        connection.send(echo(calls[0]));
        connection.send(echo(calls[1]));
        connection.stall();
    });
    TestClient client(board.port());
    KvNRpc::SentCall calls[3];
    EXPECT_TRUE(send(client, calls[0], "aaaa") && send(client, calls[1], "bbbb") && send(client, calls[2], "cccc"));
    EXPECT_EQ(take(client, calls[0]), "aaaa");
    EXPECT_EQ(take(client, calls[1]), "bbbb");
    EXPECT_EQ(take(client, calls[2]), "cccc");
    EXPECT_EQ(client.errors.getErrorCount(), 0u);
}

TEST_F(SentCallTest, comeInTheOrderInWhichTheyWereSentAndUseTheirRecordAgain)
{
    EchoServer server;
    TestClient client(server.port());
    KvNRpc::SentCall calls[4];
    const unsigned char* records[4] = {};
    for (int round = 0; round < 50; ++round) {
        for (int i = 0; i < 4; ++i) {
            const std::string text = std::to_string(1000 + round * 4 + i);
            ASSERT_TRUE(send(client, calls[i], text.c_str()));
            EXPECT_TRUE(round == 0 || calls[i].record() == records[i]) << round;
            records[i] = calls[i].record();
        }
        for (int i = 0; i < 4; ++i)
            ASSERT_EQ(take(client, calls[i]), std::to_string(1000 + round * 4 + i));
    }
}

TEST_F(SentCallTest, endTogetherWhenTheirConnectionDoes)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) {
        const Bytes first = connection.readCall();
        connection.readCall();
        connection.readCall();
        connection.send(echo(first));
    });
    TestClient client(board.port());
    KvNRpc::SentCall calls[3];
    EXPECT_TRUE(send(client, calls[0], "aaaa") && send(client, calls[1], "bbbb") && send(client, calls[2], "cccc"));
    EXPECT_EQ(take(client, calls[0]), "aaaa");
    take(client, calls[1]);
    EXPECT_EQ(outcome, KvCRpcClient::ConnectionLost);
    take(client, calls[2]);
    EXPECT_EQ(outcome, KvCRpcClient::ConnectionLost);
    EXPECT_EQ(client.errors.getErrorCount(), 2u);
}

TEST_F(SentCallTest, timeOutWhenTheyAreWaitedForAndNotBefore)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) {
        const Bytes first = connection.readCall();
        connection.readCall();
        connection.sleep(400);
        connection.send(echo(first));
        connection.stall();
    });
    TestClient client(board.port());
    client.set(KvCRpcClient::CallTimeout, 100000);
    KvNRpc::SentCall calls[2];
    EXPECT_TRUE(send(client, calls[0], "aaaa") && send(client, calls[1], "bbbb"));
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    EXPECT_EQ(take(client, calls[0]), "aaaa") << "it is there already";
    take(client, calls[1]);
    EXPECT_EQ(outcome, KvCRpcClient::TimedOut);
    client.expectOnly(KvNMessage::RpcTimedOut, client.errors.getErrorText(0));
}

TEST_F(SentCallTest, areDroppedWithoutAWordAndTheirConnectionWithThem)
{
    Seen seen;
    ScriptedBoard board([&](ScriptedBoard::Connection& connection, int number) {
        if (number == 2) {
            connection.send(echo(connection.readCall()));
            return connection.stall();
        }
        seen.add(connection.readCall());
        seen.add(connection.readCall());
        connection.stall();
    });
    TestClient client(board.port());
    KvNRpc::SentCall calls[3];
    EXPECT_TRUE(send(client, calls[0], "aaaa") && send(client, calls[1], "bbbb"));
    while (seen.count() < 2)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    calls[1].abandon();
    client.client.dropCall(calls[0], procedure);
    client.client.dropCall(calls[1], procedure);
    EXPECT_FALSE(calls[0].isOnItsWay() || calls[1].isOnItsWay());
    ASSERT_TRUE(send(client, calls[2], "cccc"));
    EXPECT_EQ(take(client, calls[2]), "cccc");
    EXPECT_EQ(board.connections(), 2);
    EXPECT_EQ(client.errors.getErrorCount(), 0u);
}

TEST_F(SentCallTest, thatNobodyWaitsForEndWithTheirObject)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) { connection.stall(); });
    TestClient client(board.port());
    KvNRpc::SentCall call;
    EXPECT_TRUE(send(client, call, "aaaa"));
}

TEST_F(SentCallTest, thatAreCancelledSaySo)
{
    ScriptedBoard board([](ScriptedBoard::Connection& connection, int) { connection.stall(); });
    TestClient client(board.port());
    KvNRpc::SentCall calls[2];
    EXPECT_TRUE(send(client, calls[0], "aaaa") && send(client, calls[1], "bbbb"));
    KvCRpcClient::cancelAll();
    take(client, calls[0]);
    EXPECT_EQ(outcome, KvCRpcClient::Cancelled);
    take(client, calls[1]);
    EXPECT_EQ(outcome, KvCRpcClient::Cancelled);
}

TEST_F(SentCallTest, thatDoNotFitAreNotSent)
{
    EchoServer server;
    TestClient client(server.port());
    KvNRpc::SentCall call;
    ASSERT_TRUE(call.reserve(4));
    char bytes[] = "abcd";
    Text text{bytes, 4};
    EXPECT_FALSE(client.client.sendCall(call, procedure, KvNXdr::proc<xdr_Text>, &text));
    EXPECT_FALSE(call.isOnItsWay());
    EXPECT_EQ(client.errors.getErrorCount(), 0u);
}

TEST_F(SentCallTest, byAClientThatCannotCallAreNotSent)
{
    KvNRpc::SentCall call;
    ASSERT_TRUE(call.reserve(8));
    TestClient nowhere(1, "nowhere");
    EXPECT_FALSE(send(nowhere, call, "abcd"));
    KvCErrorListPool errors;
    KvCRpcClient notConfigured(errors, "127.0.0.1");
    Text text;
    EXPECT_FALSE(notConfigured.sendCall(call, procedure, KvNXdr::proc<xdr_Text>, &text));
    {
        const FailingAllocation failing(1);
        KvCRpcClient withoutMemory(errors, "127.0.0.1");
        EXPECT_TRUE(failing.hasFailed());
        EXPECT_FALSE(withoutMemory.sendCall(call, procedure, KvNXdr::proc<xdr_Text>, &text));
    }
    EXPECT_FALSE(call.isOnItsWay());
}

TEST_F(SentCallTest, withoutMemoryAreNotSentOrSaySo)
{
    EchoServer server;
    for (std::size_t n = 1; n < 100; ++n) {
        TestClient client(server.port());
        KvNRpc::SentCall call;
        bool failed = false;
        bool sent = false;
        {
            const FailingAllocation failing(n);
            sent = send(client, call, "aaaa");
            if (sent)
                take(client, call);
            failed = failing.hasFailed();
        }
        EXPECT_EQ(client.errors.getErrorCount(), sent && outcome != KvCRpcClient::Success ? 1u : 0u) << n;
        if (!failed) {
            EXPECT_TRUE(sent);
            EXPECT_EQ(outcome, KvCRpcClient::Success);
            return;
        }
    }
    FAIL() << "allocations without end";
}
