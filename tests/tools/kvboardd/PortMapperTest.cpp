#include "tools/kvboardd/PortMapper.h"

#include <gtest/gtest.h>

#include "WireBytes.h"

namespace {

using namespace KvNBoardService;

class PortMapperTest : public testing::Test
{
protected:
    PortMapperTest()
    {
        m_mapper.add(8, 1, PortMapper::Protocol::Tcp, 4000);
        m_mapper.add(0x20004B56, 1, PortMapper::Protocol::Tcp, 4000);
        m_mapper.add(0x20004B56, 1, PortMapper::Protocol::Udp, 4001);
    }
    Answer call(KvUInt32 procedure, const Bytes& arguments = {}, bool broadcast = false)
    {
        Call call;
        call.procedure = procedure;
        call.broadcast = broadcast;
        call.arguments = arguments;
        return m_mapper.call(call);
    }

    PortMapper m_mapper{111};
};

TEST_F(PortMapperTest, AnswersTheNullProcedure)
{
    const Answer answer = call(0);
    EXPECT_EQ(answer.kind, Answer::Kind::Success);
    EXPECT_TRUE(answer.results.empty());
}

TEST_F(PortMapperTest, SaysAtWhichPortAServiceIs)
{
    EXPECT_EQ(call(3, words({8, 1, 6, 0})).results, words({4000}));
    EXPECT_EQ(call(3, words({0x20004B56, 1, 17, 0})).results, words({4001}));
    EXPECT_EQ(call(3, words({100000, 2, 17, 0})).results, words({111}));
}

TEST_F(PortMapperTest, SaysZeroForWhatIsNotHere)
{
    EXPECT_EQ(call(3, words({9, 1, 6, 0})).results, words({0}));
    EXPECT_EQ(call(3, words({8, 1, 17, 0})).results, words({0}));
}

TEST_F(PortMapperTest, AnotherVersionGetsThePortOfTheOneThatIsHere)
{
    EXPECT_EQ(call(3, words({8, 7, 6, 0})).results, words({4000}));
}

TEST_F(PortMapperTest, ListsEverything)
{
    EXPECT_EQ(call(4).results, words({1, 100000, 2, 6,          111, 1, 100000, 2, 17,         111, 1,  8,    1,
                                      6, 4000,   1, 0x20004B56, 1,   6, 4000,   1, 0x20004B56, 1,   17, 4001, 0}));
}

TEST_F(PortMapperTest, NothingCanBeSetOrUnset)
{
    EXPECT_EQ(call(1, words({300000, 1, 6, 99})).results, words({0}));
    EXPECT_EQ(call(2, words({8, 1, 6, 4000})).results, words({0}));
    EXPECT_EQ(call(3, words({300000, 1, 6, 0})).results, words({0}));
    EXPECT_EQ(call(3, words({8, 1, 6, 0})).results, words({4000}));
}

TEST_F(PortMapperTest, CallsNothingOnBehalfOfOthers)
{
    EXPECT_EQ(call(5, words({8, 1, 1, 0})).kind, Answer::Kind::ProcedureUnavailable);
    EXPECT_EQ(call(6).kind, Answer::Kind::ProcedureUnavailable);
}

TEST_F(PortMapperTest, MalformedArgumentsAreGarbage)
{
    for (const KvUInt32 procedure : {1u, 2u, 3u}) {
        EXPECT_EQ(call(procedure, words({8, 1, 6})).kind, Answer::Kind::GarbageArguments);
        EXPECT_EQ(call(procedure, words({8, 1, 6, 0, 0})).kind, Answer::Kind::GarbageArguments);
        EXPECT_EQ(call(procedure).kind, Answer::Kind::GarbageArguments);
    }
    EXPECT_EQ(call(4, words({0})).kind, Answer::Kind::GarbageArguments);
}

TEST_F(PortMapperTest, ABroadcastIsAnsweredOnlyByWhoHasTheService)
{
    EXPECT_EQ(call(3, words({0x20004B56, 1, 17, 0}), true).results, words({4001}));
    EXPECT_EQ(call(3, words({9, 1, 17, 0}), true).kind, Answer::Kind::None);
    EXPECT_EQ(call(4, {}, true).kind, Answer::Kind::None);
    EXPECT_EQ(call(0, {}, true).kind, Answer::Kind::None);
}

}  // namespace
