#include "tools/kvboardd/LockTable.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

using namespace std::chrono_literals;
using KvNBoardService::LockTable;
using Level = LockTable::Level;
using Outcome = LockTable::Outcome;

constexpr KvUInt32 here = 0x7F000001;
constexpr KvUInt32 there = 0x0A000002;

class LockTableTest : public testing::Test
{
protected:
    LockTable make(LockTable::Limits limits)
    {
        return LockTable(
            limits,
            [this]() -> std::optional<KvUInt32> {
                if (m_ids.empty())
                    return m_next == 0 ? std::nullopt : std::optional<KvUInt32>(m_next++);
                const KvUInt32 id = m_ids.back();
                m_ids.pop_back();
                return id;
            },
            [this](KvUInt32 id, LockTable::End why) { m_ended.emplace_back(id, why); });
    }
    LockTable::Answer ask(LockTable& table, Level level, KvUInt32 host, KvUInt64 nonce, std::string owner = "someone")
    {
        return table.request(m_now, {host, level, 0, nonce, std::move(owner)});
    }
    LockTable::Answer change(LockTable& table, Level level, KvUInt32 host, KvUInt32 id)
    {
        return table.request(m_now, {host, level, id, 0, "someone"});
    }

    LockTable::Time m_now{1000s};
    KvUInt32 m_next = 100;        // 0: the source has nothing
    std::vector<KvUInt32> m_ids;  // given first, from the back
    std::vector<std::pair<KvUInt32, LockTable::End>> m_ended;
    LockTable m_table = make({});
};

TEST_F(LockTableTest, AnyNumberMayObserve)
{
    EXPECT_EQ(ask(m_table, Level::Observe, here, 1).accessId, 100u);
    EXPECT_EQ(ask(m_table, Level::Observe, here, 2).accessId, 101u);
    EXPECT_EQ(ask(m_table, Level::Observe, there, 1).accessId, 102u);
    EXPECT_EQ(m_table.holders(m_now).size(), 3u);
}

TEST_F(LockTableTest, AModifierIsAloneAndOthersAreToldWhoItIs)
{
    ASSERT_EQ(ask(m_table, Level::Modify, here, 1, "ann@pc (kvinv)").outcome, Outcome::Granted);
    for (const Level level : {Level::Observe, Level::Modify}) {
        const auto answer = ask(m_table, level, there, 2);
        EXPECT_EQ(answer.outcome, Outcome::Locked);
        EXPECT_EQ(answer.accessId, 0u);
        EXPECT_EQ(answer.owner, "ann@pc (kvinv)");
        EXPECT_EQ(answer.ownerHost, here);
    }
}

TEST_F(LockTableTest, AnObserverKeepsModifiersOut)
{
    ASSERT_EQ(ask(m_table, Level::Observe, here, 1, "bob").outcome, Outcome::Granted);
    const auto answer = ask(m_table, Level::Modify, there, 2);
    EXPECT_EQ(answer.outcome, Outcome::Locked);
    EXPECT_EQ(answer.owner, "bob");
}

TEST_F(LockTableTest, OtherLevelsCannotBeAskedFor)
{
    EXPECT_EQ(ask(m_table, Level::None, here, 1).outcome, Outcome::BadArgument);
    EXPECT_EQ(ask(m_table, static_cast<Level>(3), here, 1).outcome, Outcome::BadArgument);
    const KvUInt32 id = ask(m_table, Level::Modify, here, 1).accessId;
    EXPECT_EQ(change(m_table, Level::None, here, id).outcome, Outcome::BadArgument);
    Level level = Level::None;
    EXPECT_EQ(m_table.check(m_now, here, id, level), Outcome::Granted);
    EXPECT_EQ(level, Level::Modify);
}

TEST_F(LockTableTest, ALostReplyIsAskedForAgainWithTheSameNonce)
{
    const KvUInt32 id = ask(m_table, Level::Modify, here, 7).accessId;
    const auto again = ask(m_table, Level::Modify, here, 7);
    EXPECT_EQ(again.outcome, Outcome::Granted);
    EXPECT_EQ(again.accessId, id);
    EXPECT_EQ(m_table.holders(m_now).size(), 1u);
    EXPECT_EQ(ask(m_table, Level::Modify, there, 7).outcome, Outcome::Locked) << "another host's nonce";
}

TEST_F(LockTableTest, TheNonceOfAnEndedLockGivesANewOne)
{
    const KvUInt32 id = ask(m_table, Level::Modify, here, 7).accessId;
    ASSERT_EQ(m_table.release(m_now, here, id), Outcome::Granted);
    EXPECT_EQ(ask(m_table, Level::Modify, here, 7).accessId, id + 1);
}

TEST_F(LockTableTest, TheLevelOfALockChangesOnTheSameId)
{
    const KvUInt32 id = ask(m_table, Level::Observe, here, 1).accessId;
    const KvUInt32 other = ask(m_table, Level::Observe, there, 1, "carl").accessId;
    const auto refused = change(m_table, Level::Modify, here, id);
    EXPECT_EQ(refused.outcome, Outcome::Locked);
    EXPECT_EQ(refused.owner, "carl");
    ASSERT_EQ(m_table.release(m_now, there, other), Outcome::Granted);
    EXPECT_EQ(change(m_table, Level::Modify, here, id).accessId, id);
    Level level = Level::None;
    EXPECT_EQ(m_table.check(m_now, here, id, level), Outcome::Granted);
    EXPECT_EQ(level, Level::Modify);
}

TEST_F(LockTableTest, LoweringTheLevelEndsTheRightToModify)
{
    const KvUInt32 id = ask(m_table, Level::Modify, here, 1).accessId;
    EXPECT_EQ(change(m_table, Level::Observe, here, id).outcome, Outcome::Granted);
    ASSERT_EQ(m_ended.size(), 1u);
    EXPECT_EQ(m_ended[0], std::make_pair(id, LockTable::End::Lowered));
    EXPECT_EQ(ask(m_table, Level::Observe, there, 1).outcome, Outcome::Granted);
}

TEST_F(LockTableTest, ALockEndsWhenItIsNotKeptForTheLease)
{
    const KvUInt32 id = ask(m_table, Level::Modify, here, 1).accessId;
    m_now += 20s - 1ns;
    EXPECT_EQ(m_table.keep(m_now, here, id), Outcome::Granted);
    m_now += 20s - 1ns;
    EXPECT_EQ(m_table.holders(m_now).size(), 1u);
    EXPECT_TRUE(m_ended.empty());
    m_now += 1ns;
    EXPECT_EQ(m_table.keep(m_now, here, id), Outcome::BadAccess);
    ASSERT_EQ(m_ended.size(), 1u);
    EXPECT_EQ(m_ended[0], std::make_pair(id, LockTable::End::Expired));
    EXPECT_EQ(ask(m_table, Level::Modify, there, 1).outcome, Outcome::Granted);
}

TEST_F(LockTableTest, AnIdIsGoodFromItsHolderAlone)
{
    const KvUInt32 id = ask(m_table, Level::Modify, here, 1).accessId;
    Level level = Level::None;
    EXPECT_EQ(m_table.keep(m_now, there, id), Outcome::BadAccess);
    EXPECT_EQ(m_table.check(m_now, there, id, level), Outcome::BadAccess);
    EXPECT_EQ(change(m_table, Level::Observe, there, id).outcome, Outcome::BadAccess);
    EXPECT_EQ(m_table.release(m_now, there, id), Outcome::BadAccess);
    EXPECT_EQ(m_table.release(m_now, here, id), Outcome::Granted);
    EXPECT_EQ(m_table.release(m_now, here, id), Outcome::BadAccess) << "released already";
}

TEST_F(LockTableTest, AnIdIsNeverZeroAndNeverOneThatIsHeldOrRemembered)
{
    m_ids = {5, 4, 4, 0, 4};
    const KvUInt32 first = ask(m_table, Level::Observe, here, 1).accessId;
    const KvUInt32 second = ask(m_table, Level::Observe, here, 2).accessId;
    EXPECT_EQ(first, 4u);
    EXPECT_EQ(second, 5u) << "0 and the ids in use are passed over";
    ASSERT_EQ(m_table.release(m_now, here, first), Outcome::Granted);
    m_ids = {6, 4};
    EXPECT_EQ(ask(m_table, Level::Observe, here, 3).accessId, 6u);
}

TEST_F(LockTableTest, OnlySoManyEndedIdsAreRemembered)
{
    LockTable::Limits limits;
    limits.remembered = 2;
    LockTable table = make(limits);
    for (KvUInt32 id : {41u, 42u, 43u}) {
        m_ids = {id};
        ASSERT_EQ(table.release(m_now, here, ask(table, Level::Observe, here, 1).accessId), Outcome::Granted);
    }
    m_ids = {41, 43, 42};
    EXPECT_EQ(ask(table, Level::Observe, here, 1).accessId, 41u);
}

TEST_F(LockTableTest, WithoutARandomSourceThereIsNoLock)
{
    m_next = 0;
    EXPECT_EQ(ask(m_table, Level::Observe, here, 1).outcome, Outcome::NoRandom);
    m_ids.assign(200, 0);
    EXPECT_EQ(ask(m_table, Level::Observe, here, 1).outcome, Outcome::NoRandom) << "a source that is stuck";
    EXPECT_TRUE(m_table.holders(m_now).empty());
}

TEST_F(LockTableTest, HoldersAreLimited)
{
    for (KvUInt64 nonce = 0; nonce < 64; ++nonce)
        ASSERT_EQ(ask(m_table, Level::Observe, here, nonce).outcome, Outcome::Granted);
    EXPECT_EQ(ask(m_table, Level::Observe, there, 1).outcome, Outcome::TooMany);
    EXPECT_EQ(ask(m_table, Level::Observe, here, 5).outcome, Outcome::Granted) << "a lock that exists already";
    ASSERT_EQ(m_table.release(m_now, here, 100), Outcome::Granted);
    EXPECT_EQ(ask(m_table, Level::Observe, there, 1).outcome, Outcome::Granted);
}

TEST_F(LockTableTest, HoldersAreShownWithTheirTimes)
{
    ask(m_table, Level::Observe, here, 1, "ann");
    m_now += 1500ms;
    const KvUInt32 second = ask(m_table, Level::Observe, there, 2, "bob").accessId;
    m_now += 5s;
    ASSERT_EQ(m_table.keep(m_now, there, second), Outcome::Granted);
    const auto holders = m_table.holders(m_now);
    ASSERT_EQ(holders.size(), 2u);
    EXPECT_EQ(holders[0].level, Level::Observe);
    EXPECT_EQ(holders[0].owner, "ann");
    EXPECT_EQ(holders[0].host, here);
    EXPECT_EQ(holders[0].held, 6s);
    EXPECT_EQ(holders[0].left, 14s);
    EXPECT_EQ(holders[1].owner, "bob");
    EXPECT_EQ(holders[1].host, there);
    EXPECT_EQ(holders[1].held, 5s);
    EXPECT_EQ(holders[1].left, 20s);
    EXPECT_TRUE(m_table.isHeld(m_now, second));
    EXPECT_FALSE(m_table.isHeld(m_now, second + 1));
    m_now += 20s;
    EXPECT_FALSE(m_table.isHeld(m_now, second));
}

TEST_F(LockTableTest, WrongIdsOfAHostAreCountedAndARightOneStaysRight)
{
    const KvUInt32 id = ask(m_table, Level::Modify, here, 1).accessId;
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(m_table.keep(m_now, here, 1), Outcome::BadAccess);
    EXPECT_EQ(m_table.keep(m_now, here, 1), Outcome::TooManyWrong);
    EXPECT_EQ(m_table.keep(m_now, here, id), Outcome::Granted);
    EXPECT_EQ(m_table.keep(m_now, there, 1), Outcome::BadAccess) << "another host";
    m_now += 60s;
    EXPECT_EQ(m_table.keep(m_now, here, 1), Outcome::BadAccess) << "the period is over";
}

TEST_F(LockTableTest, HostsWithWrongIdsAreRememberedUpToALimit)
{
    LockTable::Limits limits;
    limits.remembered = 2;
    LockTable table = make(limits);
    EXPECT_EQ(table.keep(m_now, 1, 9), Outcome::BadAccess);
    EXPECT_EQ(table.keep(m_now, 2, 9), Outcome::BadAccess);
    EXPECT_EQ(table.keep(m_now, 3, 9), Outcome::TooManyWrong);
    m_now += 60s;
    EXPECT_EQ(table.keep(m_now, 3, 9), Outcome::BadAccess);
}

}  // namespace
