#include <gtest/gtest.h>

#include "ServicesFixture.h"
#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/KvCInventoryParameter.h"

namespace {

using ServicesTest = ServicesFixture;

TEST_F(ServicesTest, TheNullProceduresAnswerNothing)
{
    for (const Bytes& arguments : {Bytes{}, words({1, 2})}) {
        EXPECT_EQ(access(0, arguments).kind, Answer::Kind::Success);
        EXPECT_EQ(inventory(0, arguments).kind, Answer::Kind::Success);
        EXPECT_TRUE(access(0, arguments).results.empty());
        EXPECT_TRUE(inventory(0, arguments).results.empty());
    }
}

TEST_F(ServicesTest, ProceduresThatTheBoardHasNotAreUnavailable)
{
    for (KvUInt32 procedure = 0; procedure < 1024; ++procedure) {
        const bool isInventory = procedure <= 16 && procedure != 5;
        EXPECT_EQ(inventory(procedure).kind == Answer::Kind::ProcedureUnavailable, !isInventory) << procedure;
        const bool isAccess = procedure <= 11;
        EXPECT_EQ(access(procedure).kind == Answer::Kind::ProcedureUnavailable, !isAccess) << procedure;
    }
    EXPECT_EQ(inventory(0xFFFFFFFF).kind, Answer::Kind::ProcedureUnavailable);
}

TEST_F(ServicesTest, IdentifySaysWhoTheBoardIs)
{
    const Bytes expected =
        words({4711, 6003}) + counted("IO-1") + counted("Rack A") + words({0x01020304, 0x05060708, 65536, 0, 0});
    EXPECT_EQ(access(1).results, expected);
    EXPECT_EQ(access(1, {}, there, true).results, expected) << "by datagram too";
    EXPECT_EQ(access(1, words({0})).kind, Answer::Kind::GarbageArguments);
}

TEST_F(ServicesTest, OnlyIdentifyIsAnsweredByDatagram)
{
    EXPECT_EQ(access(0, {}, here, true).kind, Answer::Kind::Success);
    for (const KvUInt32 procedure : {2u, 3u, 4u, 10u})
        EXPECT_EQ(access(procedure, {}, here, true).kind, Answer::Kind::ProcedureUnavailable) << procedure;
}

TEST_F(ServicesTest, ALockIsGivenWithItsLease)
{
    EXPECT_EQ(access(2, words({2, 0, 0, 1}) + counted("ann@pc (kvinv)")).results, words({Ok, 100, 20, 0, 0}));
    EXPECT_EQ(access(2, words({2, 0, 0, 1}) + counted("ann@pc (kvinv)")).results, words({Ok, 100, 20, 0, 0}))
        << "the same nonce";
}

TEST_F(ServicesTest, AConflictSaysWhoHoldsTheBoard)
{
    ASSERT_NE(lock(2), 0u);
    const Answer answer = access(2, words({1, 0, 0, 9}) + counted("bob"), there);
    EXPECT_EQ(answer.accessId, 0u);
    WireReader reader(answer.results);
    EXPECT_EQ(reader.word(), Locked);
    EXPECT_EQ(reader.word(), 0u);
    EXPECT_EQ(reader.word(), 20u);
    EXPECT_EQ(reader.counted(), "ann@pc (test)");
    takeErrors(reader);
    EXPECT_EQ(m_codes, Codes{0x300000});
    EXPECT_STREQ(m_errors.getErrorText(0), "Access denied. The board is locked by \"ann@pc (test)\" at 127.0.0.1.");
}

TEST_F(ServicesTest, LevelsThatAreNoneAreRefused)
{
    for (const KvUInt32 level : {0u, 3u, 7u, 0x80000000u, 0xFFFFFFFFu}) {
        const Answer answer = access(2, words({level, 0, 0, 9}) + counted("bob"));
        WireReader reader(answer.results);
        EXPECT_EQ(reader.word(), BadArgument);
        EXPECT_EQ(reader.word(), 0u);
        reader.word();
        EXPECT_EQ(reader.counted(), "");
        takeErrors(reader);
        EXPECT_EQ(m_codes, Codes{0x300003});
    }
    EXPECT_STREQ(m_errors.getErrorText(0),
                 "Access denied. Korvel Support information: Access level -1 cannot be requested.");
}

TEST_F(ServicesTest, LocksAreLimited)
{
    for (int i = 0; i < 64; ++i)
        ASSERT_NE(lock(1), 0u);
    const Answer answer = access(2, words({1, 0, 5, 5}) + counted(""));
    WireReader reader(answer.results);
    EXPECT_EQ(reader.word(), Limit);
    reader.word();
    reader.word();
    reader.counted();
    takeErrors(reader);
    EXPECT_EQ(m_codes, Codes{0x300004});
    EXPECT_STREQ(m_errors.getErrorText(0), "Access denied. The board has given 64 locks already.");
}

TEST_F(ServicesTest, ALockIsKeptAndReleased)
{
    const KvUInt32 id = lock(2);
    m_now += 19s;
    EXPECT_EQ(take(access(3, words({id}))), Ok);
    m_now += 19s;
    EXPECT_EQ(take(access(4, words({id}))), Ok);
    EXPECT_EQ(take(access(4, words({id}))), BadAccess);
    EXPECT_EQ(m_codes, Codes{0x300001});
    EXPECT_STREQ(m_errors.getErrorText(0),
                 "Access denied. Access ID 100 is not one of a lock held from 127.0.0.1, or its "
                 "lease has ended.");
    EXPECT_NE(lock(2, there), 0u);
}

TEST_F(ServicesTest, AnEndedLeaseIsABadAccess)
{
    const KvUInt32 id = lock(2);
    m_now += 20s;
    EXPECT_EQ(take(access(3, words({id}))), BadAccess);
}

TEST_F(ServicesTest, ManyWrongIdsAreAnsweredLate)
{
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(take(access(3, words({1}))), BadAccess);
        EXPECT_FALSE(m_slow);
    }
    EXPECT_EQ(take(access(3, words({1}))), Limit);
    EXPECT_TRUE(m_slow);
    EXPECT_EQ(m_codes, Codes{0x300005});
    EXPECT_EQ(write(1, 5), 1u);
    EXPECT_TRUE(m_slow) << "whichever procedure is tried";
    const KvUInt32 id = lock(2);
    EXPECT_EQ(take(access(3, words({id}))), Ok);
    EXPECT_FALSE(m_slow);
}

TEST_F(ServicesTest, TheStateShowsAllHolders)
{
    EXPECT_EQ(access(10).results, words({Ok, 0, 0}));
    lock(1);
    m_now += 3s;
    access(2, words({1, 0, 7, 7}) + counted("bob"), there);
    m_now += 2s;
    EXPECT_EQ(access(10).results, words({Ok, 2, 1}) + counted("ann@pc (test)") + words({here, 5, 15, 1}) +
                                      counted("bob") + words({there, 2, 18}) + words({0}));
}

TEST_F(ServicesTest, AScanIsTheTree)
{
    for (const KvUInt32 flag : {0u, 1u}) {
        const Answer answer = inventory(1, words({flag}));
        WireReader reader(answer.results);
        EXPECT_EQ(reader.word(), 0u);
        KvCErrorListPool errors;
        const KvCBuffer* stream = m_board->scan(errors);
        EXPECT_EQ(reader.counted(), std::string(stream->getStartPointer(), stream->getOccupiedSize()));
        EXPECT_EQ(reader.word(), 0u);
        EXPECT_TRUE(reader.isDone());
    }
}

TEST_F(ServicesTest, AParameterIsRead)
{
    const Answer answer = inventory(2, address("HCN[4711]/TEST/TEST_UI8"));
    WireReader reader(answer.results);
    EXPECT_EQ(reader.word(), 0u);
    const std::string stream = reader.counted();
    takeErrors(reader);
    EXPECT_TRUE(m_codes.empty());
    KvCBuffer buffer(m_errors);
    buffer.writeBuffer(m_errors, stream.data(), static_cast<KvUInt32>(stream.size()), 1);
    KvCInventoryItemFactory factory(m_errors);
    KvCInventoryParameter* parameter = nullptr;
    factory.deserializeInventoryParameter(m_errors, parameter, &buffer);
    const std::unique_ptr<KvCInventoryParameter> owner(parameter);
    ASSERT_NE(parameter, nullptr);
    EXPECT_EQ(parameter->getValue<unsigned char>(m_errors), 8);
}

TEST_F(ServicesTest, AParameterThatIsNotThereIsSaidSo)
{
    const Answer answer = inventory(2, address("HCN[4711]/TEST/NAME"));
    WireReader reader(answer.results);
    EXPECT_EQ(reader.word(), 1u);
    EXPECT_EQ(reader.counted(), "");
    takeErrors(reader);
    EXPECT_EQ(m_codes, Codes{0x300801});
}

TEST_F(ServicesTest, AnAddressWhoseCountsDisagreeIsCorrupt)
{
    for (const Bytes& record : {words({1, 4, hcn, 4711, 1, 1}), words({2, 2, hcn, 4711}), words({1, 1, hcn}),
                                words({0x80000001, 2, hcn, 4711})}) {
        const Answer answer = inventory(2, record);
        WireReader reader(answer.results);
        EXPECT_EQ(reader.word(), 1u);
        reader.counted();
        takeErrors(reader);
        EXPECT_EQ(m_codes, Codes{0x300800});
    }
}

TEST_F(ServicesTest, TheLocalAddressIsTheRoot)
{
    EXPECT_EQ(inventory(4).results, words({1, 2, hcn, 4711, 0}));
    EXPECT_EQ(inventory(4, words({0})).kind, Answer::Kind::GarbageArguments);
}

TEST_F(ServicesTest, AValueIsWrittenAndAppliedByWhoHoldsTheBoard)
{
    const KvUInt32 id = lock(2);
    EXPECT_EQ(write(id, 42), 0u);
    EXPECT_TRUE(m_codes.empty());
    EXPECT_EQ(current(), 8);
    EXPECT_EQ(apply(id), 0u);
    EXPECT_EQ(current(), 42);
}

TEST_F(ServicesTest, WithoutALockNothingIsWrittenOrApplied)
{
    EXPECT_EQ(write(0, 42), 1u);
    EXPECT_EQ(m_codes, Codes{0x300001});
    EXPECT_EQ(apply(0), 1u);
    EXPECT_EQ(m_codes, Codes{0x300001});
    EXPECT_EQ(m_board->writtenCount(), 0u);
}

TEST_F(ServicesTest, AnotherHostsAccessIdIsOfNoUse)
{
    const KvUInt32 id = lock(2);
    EXPECT_EQ(write(id, 42, there), 1u);
    EXPECT_EQ(m_codes, Codes{0x300001});
    EXPECT_EQ(write(id, 42), 0u);
    EXPECT_EQ(apply(id, there), 1u);
    EXPECT_EQ(current(), 8);
}

TEST_F(ServicesTest, AnObserverCannotWrite)
{
    const KvUInt32 id = lock(1);
    EXPECT_EQ(write(id, 42), 1u);
    EXPECT_EQ(m_codes, Codes{0x300002});
    EXPECT_EQ(apply(id), 1u);
    EXPECT_EQ(m_codes, Codes{0x300002});
}

TEST_F(ServicesTest, WhatWasNotAppliedGoesWithTheLock)
{
    KvUInt32 id = lock(2);
    ASSERT_EQ(write(id, 42), 0u);
    ASSERT_EQ(take(access(4, words({id}))), Ok);
    id = lock(2);
    EXPECT_EQ(apply(id), 0u);
    EXPECT_EQ(current(), 8) << "released";

    ASSERT_EQ(write(id, 43), 0u);
    m_now += 20s;
    id = lock(2);
    EXPECT_EQ(apply(id), 0u);
    EXPECT_EQ(current(), 8) << "the lease ended";

    ASSERT_EQ(write(id, 44), 0u);
    ASSERT_EQ(access(2, words({1, id, 0, 0}) + counted("")).accessId, id);
    ASSERT_EQ(access(2, words({2, id, 0, 0}) + counted("")).accessId, id);
    EXPECT_EQ(apply(id), 0u);
    EXPECT_EQ(current(), 8) << "lowered and raised again";
}

TEST_F(ServicesTest, ApplyingAtAnUnknownAddressIsRefused)
{
    const KvUInt32 id = lock(2);
    EXPECT_EQ(take(inventory(6, address("HCN[4711]/CPU[99]") + words({id}))), 1u);
    EXPECT_EQ(m_codes, Codes{0x300801});
    EXPECT_EQ(take(inventory(6, words({0, 0, id}))), 1u);
    EXPECT_EQ(m_codes, Codes{0x300802});
}

TEST_F(ServicesTest, WhoHoldsTheBoardHasAllRights)
{
    const KvUInt32 id = lock(2);
    EXPECT_EQ(inventory(11, address("HCN[4711]") + words({id, 0x10001})).results, words({0, 1, 0}));
    EXPECT_EQ(inventory(11, address("HCN[4711]") + words({id, 0x10001})).accessId, id);
    for (const char* where : {"HCN[4711]", "HCN[4711]/CPU", "HCN[4711]/TEST/TEST_UI8"})
        for (const KvUInt32 right : {0x10001u, 0x10002u, 0x10003u})
            EXPECT_EQ(isAllowed(id, right, address(where)), 1u) << where << " " << right;
}

TEST_F(ServicesTest, WhoIsNotEntitledIsToldSoWithoutAnError)
{
    const auto isDenied = [this](KvUInt32 accessId, KvUInt32 right, KvUInt32 peer) {
        return isAllowed(accessId, right, address("HCN[4711]"), peer) == 0 && m_status == 0 && m_codes.empty();
    };
    const KvUInt32 holder = lock(2);
    for (const KvUInt32 right : {0u, 1u, 0x10000u, 0x10004u, 0x20001u, 0xFFFFFFFFu})
        EXPECT_TRUE(isDenied(holder, right, here)) << right << " is no right";
    EXPECT_TRUE(isDenied(holder, 0x10001, there)) << "another host's";
    EXPECT_TRUE(isDenied(0, 0x10001, here));
    EXPECT_TRUE(isDenied(holder + 1, 0x10001, here));
    m_now += 20s;
    EXPECT_TRUE(isDenied(holder, 0x10001, here)) << "the lease has ended";
    const KvUInt32 observer = lock(1);
    for (const KvUInt32 right : {0x10001u, 0x10002u, 0x10003u})
        EXPECT_TRUE(isDenied(observer, right, here)) << right;
}

TEST_F(ServicesTest, RightsAtAddressesThatAreNotTheBoardsAreRefused)
{
    const KvUInt32 id = lock(2);
    const struct
    {
        Bytes where;
        KvUInt32 code;
    } rows[] = {{address("HCN[4712]"), 0x300802},
                {words({0, 0}), 0x300802},
                {address("HCN[4711]/CPU[99]"), 0x300801},
                {words({2, 2, hcn, 4711}), 0x300800}};
    for (const auto& row : rows) {
        EXPECT_EQ(isAllowed(id, 0x10001, row.where), 0u);
        EXPECT_EQ(m_status, 1u);
        EXPECT_EQ(m_codes, Codes{row.code});
    }
}

TEST_F(ServicesTest, AskingForRightsIsNoWayToGuessAccessIds)
{
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(isAllowed(1, 0x10001, address("HCN[4711]")), 0u);
        EXPECT_FALSE(m_slow);
    }
    EXPECT_EQ(isAllowed(1, 0x10001, address("HCN[4711]")), 0u);
    EXPECT_TRUE(m_slow);
}

TEST_F(ServicesTest, ARegisteredParentIsRemembered)
{
    EXPECT_EQ(take(inventory(16, words({4700}))), 0u);
    EXPECT_EQ(m_inventory.parent(), 4700u);
}

TEST_F(ServicesTest, AValidAccessIdIsReportedToWhoeverKeepsConnections)
{
    const KvUInt32 id = lock(2);
    EXPECT_EQ(access(3, words({id})).accessId, id);
    EXPECT_EQ(access(3, words({id + 1})).accessId, 0u);
    EXPECT_EQ(inventory(6, address("HCN[4711]") + words({id})).accessId, id);
    EXPECT_EQ(inventory(6, address("HCN[4711]") + words({id + 1})).accessId, 0u);
    EXPECT_EQ(access(4, words({id})).accessId, 0u);
}

TEST_F(ServicesTest, EveryCutOrLengthenedArgumentIsGarbage)
{
    const Bytes value = address("HCN[4711]/TEST/TEST_UI8") + words({100, 0x121}) + counted("x");
    const struct
    {
        bool inventory;
        KvUInt32 procedure;
        Bytes arguments;
    } calls[] = {{true, 1, words({0})},
                 {true, 2, address("HCN[4711]/TEST/TEST_UI8")},
                 {true, 3, value},
                 {true, 6, address("HCN[4711]") + words({100})},
                 {true, 11, address("HCN[4711]") + words({100, 0x10001})},
                 {true, 16, words({1})},
                 {false, 2, words({2, 0, 0, 1}) + counted("someone")},
                 {false, 3, words({100})},
                 {false, 4, words({100})}};
    for (const auto& row : calls) {
        const auto kind = [&](const Bytes& arguments) {
            return (row.inventory ? inventory(row.procedure, arguments) : access(row.procedure, arguments)).kind;
        };
        EXPECT_EQ(kind(row.arguments), Answer::Kind::Success);
        for (std::size_t size = 0; size < row.arguments.size(); ++size)
            EXPECT_EQ(kind(Bytes(row.arguments.begin(), row.arguments.begin() + static_cast<std::ptrdiff_t>(size))),
                      Answer::Kind::GarbageArguments)
                << row.procedure << " cut to " << size;
        EXPECT_EQ(kind(row.arguments + Bytes{0}), Answer::Kind::GarbageArguments);
        EXPECT_EQ(kind(row.arguments + words({0})), Answer::Kind::GarbageArguments);
    }
}

TEST_F(ServicesTest, LengthsBeyondTheirBoundsAreGarbage)
{
    for (const KvUInt32 length : {0xFFFFFFFFu, 0xFFFFFFF0u, 0x80000000u, 0x7FFFFFFFu, 513u, 1048577u}) {
        EXPECT_EQ(inventory(2, words({1, length, hcn, 4711})).kind, Answer::Kind::GarbageArguments);
        EXPECT_EQ(inventory(3, words({1, 2, hcn, 4711, 100, 0x2000, length})).kind, Answer::Kind::GarbageArguments);
        EXPECT_EQ(access(2, words({2, 0, 0, 1, length})).kind, Answer::Kind::GarbageArguments);
    }
    EXPECT_EQ(access(2, words({2, 0, 0, 1}) + counted(std::string(256, 'x'))).kind, Answer::Kind::GarbageArguments);
    EXPECT_EQ(access(2, words({2, 0, 0, 1}) + counted(std::string(255, 'x'))).kind, Answer::Kind::Success);
}

}  // namespace
