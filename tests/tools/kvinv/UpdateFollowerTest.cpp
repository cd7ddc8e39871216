#include "tools/kvinv/UpdateFollower.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Verdict = UpdateFollower::Verdict;
using Milliseconds = UpdateFollower::Milliseconds;

constexpr KvUInt32 idle = 0;
constexpr KvUInt32 running = 1;
constexpr KvUInt32 finished = 2;
constexpr KvUInt32 unknown = 3;

/** So many milliseconds after the start. */
UpdateFollower::Time at(int milliseconds)
{
    return UpdateFollower::Time() + Milliseconds(milliseconds);
}

}  // namespace

TEST(UpdateFollower, AsksARunningUpdateAgainAndEndsWithAFinishedOne)
{
    UpdateFollower follower(at(0));
    EXPECT_EQ(follower.answered(running, 10, at(1)), Verdict::Running);
    EXPECT_EQ(follower.pause(), Milliseconds(200));
    EXPECT_EQ(follower.answered(finished, 100, at(2)), Verdict::Finished);
}

TEST(UpdateFollower, ABoardWithoutUpdateHasLostIt)
{
    UpdateFollower follower(at(0));
    EXPECT_EQ(follower.answered(running, 10, at(1)), Verdict::Running);
    EXPECT_EQ(follower.answered(idle, 0, at(2)), Verdict::Lost);
}

TEST(UpdateFollower, ThePercentageOnlyGrowsAndEndsAtAHundred)
{
    UpdateFollower follower(at(0));
    const std::vector<std::pair<KvUInt32, KvUInt32>> rows = {{0, 0},   {30, 30},   {20, 30},          {31, 31},
                                                             {99, 99}, {101, 100}, {0xFFFFFFFF, 100}, {5, 100}};
    for (const auto& [told, made] : rows) {
        EXPECT_EQ(follower.answered(running, told, at(1)), Verdict::Running);
        EXPECT_EQ(follower.percent(), made);
    }
}

TEST(UpdateFollower, ThePercentageOfABoardThatDoesNotKnowDoesNotCount)
{
    UpdateFollower follower(at(0));
    follower.answered(unknown, 80, at(1));
    EXPECT_EQ(follower.percent(), 0U);
}

TEST(UpdateFollower, IsPatientForAMinuteWithABoardThatDoesNotAnswerOrDoesNotKnow)
{
    for (const bool answers : {false, true}) {
        UpdateFollower follower(at(0));
        const auto worse = [&](int time) {
            return answers ? follower.answered(unknown, 0, at(time)) : follower.failed(at(time));
        };
        EXPECT_EQ(worse(1), Verdict::NoAnswer);
        EXPECT_EQ(follower.pause(), Milliseconds(1000)) << "not as often as a board that answers";
        EXPECT_EQ(worse(59999), Verdict::NoAnswer);
        EXPECT_EQ(worse(60000), Verdict::GivenUp);
    }
}

TEST(UpdateFollower, ABetterAnswerBeginsTheMinuteAnew)
{
    UpdateFollower follower(at(0));
    EXPECT_EQ(follower.failed(at(59999)), Verdict::NoAnswer);
    EXPECT_EQ(follower.answered(running, 1, at(60001)), Verdict::Running) << "better late than never";
    EXPECT_EQ(follower.pause(), Milliseconds(200));
    EXPECT_EQ(follower.failed(at(70000)), Verdict::NoAnswer);
    EXPECT_EQ(follower.answered(7, 1, at(120000)), Verdict::NoAnswer) << "any state that is none is unknown";
    EXPECT_EQ(follower.failed(at(120001)), Verdict::GivenUp);
}

TEST(UpdateFollower, AnAnswerThatEndsTheUpdateIsNeverTooLate)
{
    UpdateFollower follower(at(0));
    EXPECT_EQ(follower.failed(at(100)), Verdict::NoAnswer);
    EXPECT_EQ(follower.answered(finished, 0, at(900000)), Verdict::Finished);
}
