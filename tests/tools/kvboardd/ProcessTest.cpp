#include <gtest/gtest.h>

#include <random>

#include "BoardProcess.h"
#include "RawRpc.h"
#include "inventory/KvCInventoryAddress.h"

namespace {

constexpr KvUInt32 host = 0x7F003C00;  // 127.0.60.0
constexpr KvUInt32 other = host + 200;
constexpr std::uint16_t mapperPort = 10460;
constexpr KvUInt32 mapper = 100000;
constexpr KvUInt32 inventory = 8;
constexpr KvUInt32 access = 0x20004B56;
constexpr KvUInt32 tcp = 6;
constexpr KvUInt32 udp = 17;

enum AcceptStatus : KvUInt32
{
    ProgramUnavailable = 1,
    ProgramMismatch,
    ProcedureUnavailable,
    Garbage
};

Bytes address(const char* text)
{
    KvCInventoryAddress parsed;
    parsed.readFromString(text);
    Bytes result = words({parsed.getLength(), 2 * parsed.getLength()});
    for (KvUInt32 i = 0; i < parsed.getLength(); ++i)
        result = result + words({parsed.getCategoryAt(i), parsed.getIndexAt(i)});
    return result;
}

/** Three boards of the sample rack at 127.0.60.1 to 127.0.60.3. */
class ProcessTest : public testing::Test
{
protected:
    void SetUp() override { m_folder.write("boards.json", boards()); }

    static std::string boards()
    {
        const auto board = [](const char* serial, const char* last, const char* tree) {
            return std::string(R"({"serialNumber": )") + serial + R"(, "boardType": 6003, "boardName": "IO-)" + last +
                   R"(", "systemName": "Rack A", "address": "127.0.60.)" + last + R"(", "tree": ")" KV_SAMPLES_DIR "/" +
                   tree + "\"}";
        };
        return R"({"format": "korvel-board", "version": 1, "boards": [)" + board("4711", "1", "single-board.json") +
               "," + board("4712", "2", "boards/io-2.inv") + "," + board("4713", "3", "boards/io-3.inv") + "]}";
    }
    void start(std::vector<std::string> more = {})
    {
        more.insert(more.begin(), {"--boards", m_folder.path("boards.json"), "--portmap", std::to_string(mapperPort)});
        m_process.start(more);
        ASSERT_EQ(m_process.output(), "ready: 3 boards\n") << m_process.log();
    }
    /** The port of a board's service, as its port mapper says. */
    static std::uint16_t port(KvUInt32 board, KvUInt32 program = inventory, KvUInt32 protocol = tcp)
    {
        const RawReply reply = callDatagram(host + board, mapperPort, mapper, 2, 3, words({program, 1, protocol, 0}));
        EXPECT_TRUE(reply.isSuccess());
        return static_cast<std::uint16_t>(WireReader(reply.body).word());
    }
    /** Whether a board answers a new caller. */
    static bool answers(KvUInt32 board = 1)
    {
        RawConnection connection(host + board, port(board));
        return connection.isOpen() && connection.call(inventory, 1, 0).isSuccess();
    }
    static KvUInt32 lock(RawConnection& connection, KvUInt32 level, KvUInt32 nonce = 1)
    {
        const RawReply reply = connection.call(access, 1, 2, words({level, 0, 0, nonce}) + counted("ann@pc (test)"));
        WireReader reader(reply.body);
        return reply.isSuccess() && reader.word() == 0 ? reader.word() : 0;
    }
    /** The status of writing a byte to TEST_UI8 of board 4711. */
    static KvUInt32 write(RawConnection& connection, KvUInt32 accessId, char value)
    {
        return status(connection.call(
            inventory, 1, 3,
            address("HCN[4711]/TEST/TEST_UI8") + words({accessId, 0x121}) + counted(std::string_view(&value, 1))));
    }
    static KvUInt32 apply(RawConnection& connection, KvUInt32 accessId)
    {
        return status(connection.call(inventory, 1, 6, address("HCN[4711]") + words({accessId})));
    }
    static KvUInt32 status(const RawReply& reply)
    {
        EXPECT_TRUE(reply.isSuccess());
        return WireReader(reply.body).word();
    }
    /** The current value of TEST_UI8: the byte behind the description in the parameter's stream. */
    static int value(RawConnection& connection)
    {
        const RawReply reply = connection.call(inventory, 1, 2, address("HCN[4711]/TEST/TEST_UI8"));
        WireReader reader(reply.body);
        EXPECT_EQ(reader.word(), 0u);
        const std::string stream = reader.counted();
        const auto length = static_cast<unsigned char>(stream.at(13));
        return static_cast<unsigned char>(stream.at(14u + length));
    }

    TemporaryFolder m_folder;
    BoardProcess m_process;
};

TEST_F(ProcessTest, SaysWhenAllBoardsAnswerAndEndsCleanly)
{
    start();
    for (const KvUInt32 board : {1u, 2u, 3u})
        EXPECT_TRUE(answers(board));
    EXPECT_EQ(m_process.stop(), 0) << m_process.log();
    EXPECT_EQ(m_process.output(), "ready: 3 boards\n") << "nothing else is on standard output";
}

TEST_F(ProcessTest, EndsCleanlyWithClientsConnected)
{
    start();
    RawConnection idle(host + 1, port(1));
    RawConnection busy(host + 1, port(1));
    ASSERT_TRUE(busy.send({0x80, 0, 0, 40, 1, 2, 3}));
    EXPECT_EQ(m_process.stop(), 0);
    EXPECT_TRUE(idle.isEnded());
}

TEST_F(ProcessTest, SigintEndsItToo)
{
    start();
    EXPECT_EQ(m_process.stop(2), 0);
}

TEST_F(ProcessTest, CanBeStartedAgainAtOnce)
{
    start();
    RawConnection connection(host + 1, mapperPort);
    ASSERT_TRUE(connection.call(mapper, 2, 0).isSuccess());
    ASSERT_EQ(m_process.stop(), 0);
    start();
    EXPECT_TRUE(answers());
}

TEST_F(ProcessTest, EachBoardsPortMapperAnswersOnBothTransports)
{
    start();
    for (const KvUInt32 board : {1u, 2u, 3u}) {
        RawConnection connection(host + board, mapperPort);
        const RawReply reply = connection.call(mapper, 2, 3, words({inventory, 1, tcp, 0}));
        ASSERT_TRUE(reply.isSuccess());
        EXPECT_EQ(WireReader(reply.body).word(), port(board));
        EXPECT_NE(port(board), 0);
        EXPECT_NE(port(board, access, udp), 0);
        EXPECT_EQ(port(board, inventory, udp), 0) << "the inventory manager has TCP alone";
        const RawReply all = connection.call(mapper, 2, 4);
        ASSERT_TRUE(all.isSuccess());
        EXPECT_EQ(all.body, words({1, mapper,    2, tcp, mapperPort,
                                   1, mapper,    2, udp, mapperPort,
                                   1, inventory, 1, tcp, port(board),
                                   1, access,    1, tcp, port(board),
                                   1, access,    1, udp, port(board, access, udp),
                                   0}));
    }
}

TEST_F(ProcessTest, ThePortMapperHasVersionTwoAndNothingElse)
{
    start();
    for (const KvUInt32 version : {0u, 1u, 3u, 4u}) {
        const RawReply reply = callDatagram(host + 1, mapperPort, mapper, version, 0);
        EXPECT_TRUE(reply.isAccepted(ProgramMismatch));
        EXPECT_EQ(reply.body, words({2, 2}));
    }
    EXPECT_TRUE(callDatagram(host + 1, mapperPort, inventory, 1, 0).isAccepted(ProgramUnavailable));
    EXPECT_EQ(callDatagram(host + 1, mapperPort, mapper, 2, 1, words({300000, 1, tcp, 9})).body, words({0}));
    EXPECT_EQ(callDatagram(host + 1, mapperPort, mapper, 2, 2, words({inventory, 1, 0, 0})).body, words({0}));
    EXPECT_TRUE(
        callDatagram(host + 1, mapperPort, mapper, 2, 5, words({inventory, 1, 0, 0})).isAccepted(ProcedureUnavailable));
    EXPECT_NE(port(1), 0) << "still registered";
}

TEST_F(ProcessTest, BoardsSayWhoTheyAre)
{
    start();
    Bytes bootId;
    for (const KvUInt32 board : {1u, 2u, 3u}) {
        const RawReply reply = callDatagram(host + board, port(board, access, udp), access, 1, 1);
        ASSERT_TRUE(reply.isSuccess());
        RawConnection connection(host + board, port(board, access));
        EXPECT_EQ(connection.call(access, 1, 1).body, reply.body);
        WireReader reader(reply.body);
        EXPECT_EQ(reader.word(), 4710 + board);
        EXPECT_EQ(reader.word(), 6003u);
        EXPECT_EQ(reader.counted(), "IO-" + std::to_string(board));
        EXPECT_EQ(reader.counted(), "Rack A");
        reader.longWord();
        EXPECT_EQ(reader.word(), 1048576u);
        EXPECT_EQ(reader.word(), 0u);
        EXPECT_EQ(reader.word(), 0u);
        EXPECT_TRUE(reader.isDone());
        bootId.assign(reply.body.begin() + 28, reply.body.begin() + 36);
    }
    ASSERT_EQ(m_process.stop(), 0);
    start();
    const RawReply again = callDatagram(host + 3, port(3, access, udp), access, 1, 1);
    ASSERT_TRUE(again.isSuccess());
    EXPECT_NE(Bytes(again.body.begin() + 28, again.body.begin() + 36), bootId) << "new at each start";
}

TEST_F(ProcessTest, AScanIsTheSampleTree)
{
    start();
    RawConnection connection(host + 2, port(2));
    const RawReply reply = connection.call(inventory, 1, 1, words({0}));
    WireReader reader(reply.body);
    EXPECT_EQ(reader.word(), 0u);
    const std::string tree = reader.counted();
    std::ifstream file(KV_SAMPLES_DIR "/boards/io-2.inv", std::ios::binary);
    const std::string section{std::istreambuf_iterator<char>(file), {}};
    EXPECT_TRUE(tree == section.substr(24, section.size() - 48));
}

TEST_F(ProcessTest, OtherProgramsAndVersionsAreRefusedAsTheRfcSays)
{
    start();
    RawConnection connection(host + 1, port(1));
    for (const KvUInt32 program : {inventory, access})
        for (const KvUInt32 version : {0u, 2u, 0xFFFFFFFFu}) {
            const RawReply reply = connection.call(program, version, 0);
            EXPECT_TRUE(reply.isAccepted(ProgramMismatch));
            EXPECT_EQ(reply.body, words({1, 1}));
        }
    EXPECT_TRUE(connection.call(9, 1, 0).isAccepted(ProgramUnavailable));
    EXPECT_TRUE(connection.call(mapper, 2, 0).isAccepted(ProgramUnavailable));
    EXPECT_TRUE(callDatagram(host + 1, port(1, access, udp), inventory, 1, 0).isAccepted(ProgramUnavailable));
    EXPECT_TRUE(callDatagram(host + 1, port(1, access, udp), access, 1, 2).isAccepted(ProcedureUnavailable));
    connection.send(record(words({5, 0, 3, inventory, 1, 0, 0, 0, 0, 0})));
    const RawReply rpcMismatch = connection.receive();
    EXPECT_TRUE(rpcMismatch.isDenied(0));
    EXPECT_EQ(rpcMismatch.body, words({2, 2}));
    connection.send(record(words({6, 0, 2, inventory, 1, 0, 1, 401}) + Bytes(404, 0) + words({0, 0})));
    EXPECT_TRUE(connection.receive().isDenied(1));
    EXPECT_TRUE(connection.call(inventory, 1, 0).isSuccess());
}

TEST_F(ProcessTest, EveryProcedureSurvivesEmptyShortAndRandomArguments)
{
    start();
    RawConnection connection(host + 1, port(1));
    std::mt19937 random(7);
    for (const KvUInt32 program : {inventory, access})
        for (KvUInt32 procedure = 0; procedure < 1024; ++procedure)
            for (const std::size_t size : {0u, 3u, 4u, 64u}) {
                Bytes arguments(size);
                for (unsigned char& byte : arguments)
                    byte = static_cast<unsigned char>(random());
                const RawReply reply = connection.call(program, 1, procedure, arguments);
                ASSERT_TRUE(reply.arrived) << program << " " << procedure;
                ASSERT_EQ(reply.replyStatus, 0u);
                ASSERT_TRUE(reply.status == 0 || reply.status == ProcedureUnavailable || reply.status == Garbage);
            }
    EXPECT_TRUE(answers());
}

TEST_F(ProcessTest, WhatIsNoCallNeverEndsTheService)
{
    start();
    std::mt19937 random(11);
    for (int i = 0; i < 50; ++i) {
        RawConnection connection(host + 1, port(1));
        Bytes noise(1 + random() % 2000);
        for (unsigned char& byte : noise)
            byte = static_cast<unsigned char>(random());
        connection.send(noise);
    }
    RawConnection web(host + 1, port(1));
    const std::string request = "GET / HTTP/1.1\r\nHost: board\r\n\r\n";
    web.send(Bytes(request.begin(), request.end()));
    for (int i = 0; i < 50; ++i) {
        Bytes noise(random() % 300);
        for (unsigned char& byte : noise)
            byte = static_cast<unsigned char>(random());
        exchangeDatagram(host + 1, mapperPort, noise, 0);
        exchangeDatagram(host + 1, port(1, access, udp), noise, 0);
    }
    EXPECT_TRUE(answers());
    EXPECT_TRUE(m_process.isRunning());
}

TEST_F(ProcessTest, SilentConnectionsHoldUpNobody)
{
    start();
    std::vector<std::unique_ptr<RawConnection>> silent;
    for (int i = 0; i < 6; ++i) {
        silent.push_back(std::make_unique<RawConnection>(host + 1, port(1)));
        ASSERT_TRUE(silent.back()->isOpen());
        if (i % 3 == 1)
            silent.back()->send({0x80, 0});
        if (i % 3 == 2)
            silent.back()->send({0x80, 0, 0, 40, 0, 0, 0, 1, 0, 0});
    }
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(answers());
    EXPECT_TRUE(answers(2));
}

TEST_F(ProcessTest, AClientThatNeverReadsHoldsUpNobody)
{
    start();
    RawConnection greedy(host + 1, port(1));
    Bytes calls;
    for (KvUInt32 i = 0; i < 10000; ++i)
        calls = std::move(calls) + record(callMessage(i, inventory, 1, 1, words({0})));
    greedy.send(calls);
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(answers());
}

TEST_F(ProcessTest, AValueIsWrittenAppliedAndReadBack)
{
    start();
    RawConnection connection(host + 1, port(1));
    EXPECT_EQ(value(connection), 8);
    const KvUInt32 id = lock(connection, 2);
    ASSERT_NE(id, 0u);
    EXPECT_EQ(write(connection, id, 42), 0u);
    EXPECT_EQ(value(connection), 8);
    EXPECT_EQ(apply(connection, id), 0u);
    EXPECT_EQ(value(connection), 42);
    EXPECT_EQ(status(connection.call(access, 1, 4, words({id}))), 0u);
    EXPECT_EQ(write(connection, id, 43), 1u) << "the lock is gone";
}

TEST_F(ProcessTest, WhatIsAppliedOutlastsARestartEvenAfterAKill)
{
    const std::vector<std::string> state = {"--state", m_folder.path("state")};
    start(state);
    {
        RawConnection connection(host + 1, port(1));
        const KvUInt32 id = lock(connection, 2);
        ASSERT_EQ(write(connection, id, 42), 0u);
        ASSERT_EQ(apply(connection, id), 0u);
        ASSERT_EQ(write(connection, id, 43), 0u);
    }
    ASSERT_EQ(m_process.stop(9), 128 + 9);
    start(state);
    RawConnection connection(host + 1, port(1));
    EXPECT_EQ(value(connection), 42);
    EXPECT_NE(lock(connection, 2), 0u) << "locks end with the service";
}

TEST_F(ProcessTest, WithoutAStateValuesEndWithTheService)
{
    start();
    {
        RawConnection connection(host + 1, port(1));
        const KvUInt32 id = lock(connection, 2);
        ASSERT_EQ(write(connection, id, 42), 0u);
        ASSERT_EQ(apply(connection, id), 0u);
    }
    ASSERT_EQ(m_process.stop(), 0);
    start();
    RawConnection connection(host + 1, port(1));
    EXPECT_EQ(value(connection), 8);
}

TEST_F(ProcessTest, ALockBelongsToTheHostThatTookIt)
{
    start();
    RawConnection holder(host + 1, port(1), other);
    ASSERT_TRUE(holder.isOpen());
    RawConnection thief(host + 1, port(1), other + 1);
    const KvUInt32 id = lock(holder, 2);
    ASSERT_NE(id, 0u);
    EXPECT_EQ(lock(thief, 2), 0u);
    EXPECT_EQ(lock(thief, 1), 0u);
    EXPECT_EQ(write(thief, id, 42), 1u);
    EXPECT_EQ(status(thief.call(access, 1, 4, words({id}))), 2u);
    EXPECT_EQ(write(holder, id, 42), 0u);
    const RawReply state = thief.call(access, 1, 10);
    WireReader reader(state.body);
    EXPECT_EQ(reader.word(), 0u);
    EXPECT_EQ(reader.word(), 1u);
    EXPECT_EQ(reader.word(), 2u);
    EXPECT_EQ(reader.counted(), "ann@pc (test)");
    EXPECT_EQ(reader.word(), other);
    RawConnection elsewhere(host + 2, port(2), other + 1);
    EXPECT_NE(lock(elsewhere, 2), 0u) << "each board has locks of its own";
}

TEST_F(ProcessTest, RightsAreThoseOfWhoHoldsTheBoard)
{
    start();
    RawConnection connection(host + 1, port(1));
    const auto ask = [&](const char* where, KvUInt32 id) {
        return connection.call(inventory, 1, 11, address(where) + words({id, 0x10003}));
    };
    EXPECT_EQ(ask("HCN[4711]", 77).body, words({0, 0, 0}));
    const KvUInt32 id = lock(connection, 2);
    ASSERT_NE(id, 0u);
    EXPECT_EQ(ask("HCN[4711]", id).body, words({0, 1, 0}));
    EXPECT_EQ(status(ask("HCN[4712]", id)), 1u) << "that is the next board";
    EXPECT_EQ(status(connection.call(access, 1, 4, words({id}))), 0u);
    EXPECT_EQ(ask("HCN[4711]", id).body, words({0, 0, 0}));
}

TEST_F(ProcessTest, TheLogCountsTheValuesThatAreApplied)
{
    start();
    RawConnection connection(host + 1, port(1));
    const KvUInt32 id = lock(connection, 2);
    ASSERT_EQ(write(connection, id, 42), 0u);
    ASSERT_EQ(apply(connection, id), 0u);
    ASSERT_EQ(write(connection, id, 43), 0u);
    const Bytes second = address("HCN[4711]/TEST/TEST_I8") + words({id, 0x111}) + counted("x");
    ASSERT_EQ(status(connection.call(inventory, 1, 3, second)), 0u);
    ASSERT_EQ(apply(connection, id), 0u);
    const std::string log = m_process.log();
    EXPECT_NE(log.find("board 4711: 1 value applied at HCN[4711] by 127.0.0.1\n"), std::string::npos) << log;
    EXPECT_NE(log.find("board 4711: 2 values applied at HCN[4711] by 127.0.0.1\n"), std::string::npos) << log;
}

TEST_F(ProcessTest, ALockWhoseHolderIsGoneEndsWithItsLease)
{
    start({"--lease-seconds", "3"});
    {
        RawConnection holder(host + 1, port(1), other);
        const KvUInt32 id = lock(holder, 2);
        ASSERT_NE(id, 0u);
        ASSERT_EQ(write(holder, id, 42), 0u);
    }
    RawConnection next(host + 1, port(1));
    EXPECT_EQ(lock(next, 2), 0u) << "the connection's end is not the lock's";
    KvUInt32 id = 0;
    for (int i = 0; i < 600 && id == 0; ++i) {
        next.hasReply(100);
        id = lock(next, 2);
    }
    ASSERT_NE(id, 0u);
    EXPECT_EQ(apply(next, id), 0u);
    EXPECT_EQ(value(next), 8) << "what the other wrote is dropped";
    EXPECT_NE(m_process.log().find("lock of level 2 not kept, 1 value dropped that was not applied"), std::string::npos)
        << m_process.log();
}

TEST_F(ProcessTest, GuessingAccessIdsIsSlow)
{
    start({"--max-wrong-ids", "2"});
    RawConnection connection(host + 1, port(1));
    EXPECT_EQ(status(connection.call(access, 1, 3, words({1}))), 2u);
    EXPECT_EQ(status(connection.call(access, 1, 3, words({2}))), 2u);
    connection.send(record(callMessage(9, access, 1, 3, words({3}))));
    EXPECT_FALSE(connection.hasReply(500)) << "the answer is late";
    const RawReply late = connection.receive();
    EXPECT_EQ(late.xid, 9u);
    EXPECT_EQ(status(late), 12u);
    EXPECT_TRUE(answers()) << "others are not";
    EXPECT_NE(m_process.log().find("wrong access id from 127.0.0.1"), std::string::npos) << m_process.log();
}

TEST_F(ProcessTest, ConnectionsOfOneSourceAreLimited)
{
    start({"--max-connections-per-source", "3"});
    const std::uint16_t service = port(1);
    RawConnection first(host + 1, service, other);
    ASSERT_TRUE(first.call(inventory, 1, 0).isSuccess());
    RawConnection second(host + 1, service, other);
    ASSERT_TRUE(second.call(inventory, 1, 0).isSuccess());
    RawConnection third(host + 1, service, other);
    ASSERT_TRUE(third.call(inventory, 1, 0).isSuccess());
    RawConnection fourth(host + 1, service, other);
    EXPECT_TRUE(fourth.call(inventory, 1, 0).isSuccess());
    EXPECT_TRUE(first.isEnded()) << "the one that was idle longest made place";
    EXPECT_TRUE(second.call(inventory, 1, 0).isSuccess());
    RawConnection elsewhere(host + 1, service, other + 1);
    EXPECT_TRUE(elsewhere.call(inventory, 1, 0).isSuccess()) << "another source has its own limit";
}

TEST_F(ProcessTest, AConnectionWithALockMakesNoPlace)
{
    start({"--max-connections-per-source", "2"});
    const std::uint16_t service = port(1);
    RawConnection holder(host + 1, service, other);
    const KvUInt32 id = lock(holder, 2);
    ASSERT_NE(id, 0u);
    RawConnection second(host + 1, service, other);
    ASSERT_TRUE(second.call(inventory, 1, 0).isSuccess());
    RawConnection third(host + 1, service, other);
    ASSERT_TRUE(third.call(inventory, 1, 0).isSuccess());
    EXPECT_TRUE(second.isEnded());
    EXPECT_EQ(write(holder, id, 42), 0u);
}

TEST_F(ProcessTest, ConnectionsOfABoardAreLimited)
{
    start({"--max-connections", "2"});
    const std::uint16_t service = port(1);
    RawConnection holder(host + 1, service, other);
    ASSERT_NE(lock(holder, 2), 0u);
    RawConnection second(host + 1, service, other + 1);
    ASSERT_TRUE(second.call(inventory, 1, 0).isSuccess());
    RawConnection third(host + 1, service, other + 2);
    EXPECT_TRUE(third.call(inventory, 1, 0).isSuccess());
    EXPECT_TRUE(second.isEnded()) << "the other one has a lock";
    EXPECT_TRUE(holder.call(inventory, 1, 0).isSuccess());
    EXPECT_TRUE(answers(2)) << "another board has its own limit";
}

TEST_F(ProcessTest, AClientThatDoesNotReadItsAnswersIsEnded)
{
    start({"--output-seconds", "1", "--max-calls", "100"});
    RawConnection greedy(host + 1, port(1));
    Bytes calls;
    for (KvUInt32 i = 0; i < 1000; ++i)
        calls = std::move(calls) + record(callMessage(i, inventory, 1, 1, words({0})));
    greedy.send(calls);
    const auto isNoted = [&] { return m_process.log().find("it does not read its answers") != std::string::npos; };
    for (int i = 0; i < 600 && !isNoted(); ++i)
        usleep(100000);
    EXPECT_TRUE(isNoted()) << m_process.log();
    EXPECT_TRUE(answers());
}

TEST_F(ProcessTest, AllBoardsTogetherHaveOneLimitOfMemory)
{
    start({"--max-memory", "65536"});
    RawConnection first(host + 1, port(1));
    RawConnection second(host + 2, port(2));
    const Bytes most = callMessage(1, inventory, 1, 0, Bytes(40000, 0));
    Bytes begun = record(most);
    begun.pop_back();
    ASSERT_TRUE(first.send(begun));
    ASSERT_TRUE(first.isOpen());
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(callDatagram(host + 1, mapperPort, mapper, 2, 0).isSuccess());
    second.send(begun);
    EXPECT_TRUE(second.isEnded());
    ASSERT_TRUE(first.send({most.back()}));
    EXPECT_TRUE(first.receive().isSuccess());
    EXPECT_NE(m_process.log().find("no room for its request"), std::string::npos) << m_process.log();
}

TEST_F(ProcessTest, ConnectionsThatSayNothingAreEnded)
{
    start({"--first-record-seconds", "1", "--record-seconds", "1", "--idle-seconds", "2"});
    RawConnection silent(host + 1, port(1));
    RawConnection half(host + 1, port(1));
    half.send({0x80, 0, 0, 40, 0});
    RawConnection idle(host + 1, port(1));
    EXPECT_TRUE(idle.call(inventory, 1, 0).isSuccess());
    EXPECT_TRUE(silent.isEnded());
    EXPECT_TRUE(half.isEnded());
    EXPECT_TRUE(idle.isEnded());
}

TEST_F(ProcessTest, ACallThatIsTooLargeEndsItsConnection)
{
    start({"--max-request", "2048"});
    for (const KvUInt32 size : {2049u, 0x7FFFFFFFu}) {
        RawConnection connection(host + 1, port(1));
        connection.send(words({0x80000000u | size, 1}));
        EXPECT_TRUE(connection.isEnded()) << size;
    }
    RawConnection connection(host + 1, port(1));
    connection.send(record(callMessage(1, inventory, 1, 0, Bytes(2048 - 40, 0))));
    EXPECT_TRUE(connection.receive().isSuccess());
}

TEST_F(ProcessTest, FragmentsAreJoined)
{
    start();
    RawConnection connection(host + 1, port(1));
    const Bytes message = callMessage(5, inventory, 1, 4);
    for (std::size_t i = 0; i + 1 < message.size(); ++i)
        connection.send(words({1}) + Bytes{message[i]});
    connection.send(words({0x80000001u}) + Bytes{message.back()});
    const RawReply reply = connection.receive();
    EXPECT_TRUE(reply.isSuccess());
    EXPECT_EQ(reply.body, words({1, 2, 380, 4711, 0}));
}

TEST_F(ProcessTest, ARegisteredParentIsInTheLog)
{
    start();
    RawConnection connection(host + 2, port(2));
    EXPECT_EQ(status(connection.call(inventory, 1, 16, words({4700}))), 0u);
    EXPECT_NE(m_process.log().find("board 4712: parent 4700 registered from 127.0.0.1"), std::string::npos)
        << m_process.log();
}

TEST_F(ProcessTest, TextsFromOutsideAreEscapedInTheLog)
{
    start();
    RawConnection connection(host + 1, port(1));
    const RawReply reply = connection.call(access, 1, 2, words({1, 0, 0, 1}) + counted("\x1B[2J\nkvboardd: forged"));
    EXPECT_EQ(status(reply), 0u);
    const std::string log = m_process.log();
    EXPECT_EQ(log.find('\x1B'), std::string::npos);
    EXPECT_EQ(log.find("\nkvboardd: forged"), std::string::npos);
    EXPECT_NE(log.find("kvboardd: forged\" at"), std::string::npos);
}

TEST_F(ProcessTest, RpcinfoGetsAnAnswerFromTheNullProcedures)
{
    if (std::system("command -v rpcinfo >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "rpcinfo is not installed";
    start();
    const auto asks = [](KvUInt32 board, std::uint16_t at, const std::string& what) {
        return std::system(("rpcinfo -a 127.0.60." + std::to_string(board) + "." + std::to_string(at / 256) + "." +
                            std::to_string(at % 256) + " -T " + what + " >/dev/null 2>&1")
                               .c_str()) == 0;
    };
    for (const KvUInt32 board : {1u, 3u}) {
        EXPECT_TRUE(asks(board, port(board), "tcp 8 1"));
        EXPECT_TRUE(asks(board, port(board), "tcp 8")) << "it finds the version by itself";
        EXPECT_FALSE(asks(board, port(board), "tcp 8 2"));
        EXPECT_TRUE(asks(board, port(board, access), "tcp 536890198 1"));
        EXPECT_TRUE(asks(board, port(board, access, udp), "udp 536890198 1"));
        EXPECT_TRUE(asks(board, mapperPort, "tcp 100000 2"));
        EXPECT_TRUE(asks(board, mapperPort, "udp 100000 2"));
    }
}

TEST_F(ProcessTest, ASectionAloneIsServedOnLoopback)
{
    m_process.start({"--boards", KV_SAMPLES_DIR "/single-board.inv", "--port", "10461"});
    ASSERT_EQ(m_process.output(), "ready: 1 boards\n") << m_process.log();
    RawConnection connection(0x7F000001, 10461);
    EXPECT_EQ(connection.call(inventory, 1, 4).body, words({1, 2, 380, 4711, 0}));
}

TEST_F(ProcessTest, WhatCannotBeServedIsSaidAndEndsTheProgram)
{
    const auto fails = [&](const std::vector<std::string>& arguments, int status, const std::string& text) {
        BoardProcess process;
        process.start(arguments);
        EXPECT_EQ(process.output(), "");
        EXPECT_EQ(process.wait(), status);
        EXPECT_NE(process.log().find(text), std::string::npos) << process.log();
    };
    fails({}, 2, "--boards FILE or --host is required");
    fails({"--boards", m_folder.path("none")}, 1, m_folder.path("none") + ": cannot be opened");
    m_folder.write("all.json",
                   R"({"format": "korvel-board", "version": 1, "boards": [{"serialNumber": 1, "address": "0.0.0.0",
                       "tree": {"id": "HCN"}}]})");
    fails({"--boards", m_folder.path("all.json")}, 1, "address 0.0.0.0 is permitted with --all-addresses only");
    m_folder.write("away.json",
                   R"({"format": "korvel-board", "version": 1, "boards": [{"serialNumber": 1, "address": "192.0.2.1",
                       "tree": {"id": "HCN"}}]})");
    fails({"--boards", m_folder.path("away.json")}, 1,
          "board 1: cannot listen on 192.0.2.1: the address is not one of this machine");
    m_folder.write("file", "");
    fails({"--boards", m_folder.path("boards.json"), "--state", m_folder.path("file")}, 1, "cannot open the folder");
    start({"--state", m_folder.path("state")});
    fails({"--boards", m_folder.path("boards.json"), "--portmap", std::to_string(mapperPort)}, 1,
          "cannot listen as port mapper on 127.0.60.1 port 10460: the port is in use");
    fails({"--boards", m_folder.path("boards.json"), "--state", m_folder.path("state")}, 1,
          "state/4711 is in use by another service");
    EXPECT_TRUE(answers()) << "the one that runs is not disturbed";
}

TEST_F(ProcessTest, AllAddressesAreServedWhenThatIsAskedFor)
{
    m_folder.write("all.json",
                   R"({"format": "korvel-board", "version": 1, "boards": [{"serialNumber": 1, "address": "0.0.0.0",
                       "tree": {"id": "HCN"}}]})");
    m_process.start({"--boards", m_folder.path("all.json"), "--all-addresses", "--portmap", "10462"});
    ASSERT_EQ(m_process.output(), "ready: 1 boards\n") << m_process.log();
    EXPECT_NE(m_process.log().find("warning: board 1 listens on all addresses"), std::string::npos);
    KvUInt32 from = 0;
    const RawReply reply =
        exchangeDatagram(host + 9, 10462, callMessage(1, mapper, 2, 3, words({access, 1, udp, 0})), 10000, &from);
    EXPECT_TRUE(reply.isSuccess());
}

TEST_F(ProcessTest, HelpAndVersionAreOnStandardOutput)
{
    for (const auto& [option, text] : {std::pair("--help", "Usage: kvboardd"), std::pair("--version", "kvboardd ")}) {
        BoardProcess process;
        process.start({option});
        EXPECT_EQ(process.wait(), 0);
        EXPECT_NE(process.output().find(text), std::string::npos);
        EXPECT_EQ(process.log(), "");
    }
}

}  // namespace
