#include "tools/kvinv/Progress.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

/** A terminal that keeps what is written to it. */
struct Terminal
{
    Progress::Look look(bool isShown = true, bool isColored = false)
    {
        return {isShown, isColored, [this] { return columns; }, [this](std::string_view text) { written += text; }};
    }
    /** What has been written since the last time. */
    std::string taken() { return std::exchange(written, ""); }

    unsigned columns = 80;
    std::string written;
};

const std::string clear = "\r\x1b[K";

std::string drawn(const std::string& line)
{
    return "\r" + line + "\x1b[K";
}

}  // namespace

TEST(Progress, ShowsABarThePercentageAndWhatIsDone)
{
    Terminal terminal;
    Progress progress(terminal.look());
    EXPECT_EQ(terminal.taken(), "") << "nothing is being done yet";
    progress.begin("transferring");
    EXPECT_EQ(terminal.taken(), drawn("[........................................]   0 % transferring"));
    progress.reach(509);
    EXPECT_EQ(terminal.taken(), drawn("[####################....................]  50 % transferring"));
    progress.reach(1000);
    EXPECT_EQ(terminal.taken(), drawn("[########################################] 100 % transferring"));
}

TEST(Progress, ChangesWhatIsDoneAndHowMuchAtOnce)
{
    Terminal terminal;
    terminal.columns = 30;
    Progress progress(terminal.look());
    progress.advance("1 of 4", 250);
    EXPECT_EQ(terminal.taken(), drawn("[###...........]  25 % 1 of 4"));
    progress.advance("2 of 4", 100);
    EXPECT_EQ(terminal.taken(), drawn("[###...........]  25 % 2 of 4"));
}

TEST(Progress, OnlyGrows)
{
    Terminal terminal;
    Progress progress(terminal.look());
    progress.begin("x");
    progress.reach(300);
    terminal.taken();
    for (const unsigned told : {299U, 0U, 300U}) {
        progress.reach(told);
        EXPECT_EQ(progress.reached(), 300U);
        EXPECT_EQ(terminal.taken(), "") << "nothing has changed";
    }
    for (const unsigned told : {1001U, 0xFFFFFFFFU, 5U}) {
        progress.reach(told);
        EXPECT_EQ(progress.reached(), 1000U);
    }
    EXPECT_EQ(terminal.taken(), drawn("[########################################] 100 % x"));
}

TEST(Progress, IsWrittenAgainOnlyWhenItLooksOtherwise)
{
    Terminal terminal;
    Progress progress(terminal.look());
    progress.begin("x");
    terminal.taken();
    progress.reach(9);
    EXPECT_EQ(terminal.taken(), "") << "not a percent yet";
    progress.reach(10);
    EXPECT_NE(terminal.taken(), "");
}

TEST(Progress, FitsTheTerminalAndLeavesItsLastColumnFree)
{
    const std::vector<std::pair<unsigned, std::string>> rows = {
        {200, "[####################....................]  50 % abc"},
        {53, "[####################....................]  50 % abc"},
        {52, "[###################....................]  50 % abc"},
        {21, "[####....]  50 % abc"},
        {20, "[#####......]  50 %"},
        {17, "[####....]  50 %"},
        {16, " 50 %"},
        {6, " 50 %"},
        {5, ""},
        {1, ""},
        {0, ""}};
    for (const auto& [columns, line] : rows) {
        Terminal terminal;
        terminal.columns = columns;
        Progress progress(terminal.look());
        progress.reach(500);
        progress.begin("abc");
        EXPECT_EQ(terminal.taken(), line.empty() ? "" : drawn(line)) << columns;
        EXPECT_LT(line.size(), std::max(columns, 1U));
    }
}

TEST(Progress, FollowsATerminalThatBecomesNarrower)
{
    Terminal terminal;
    Progress progress(terminal.look());
    progress.begin("abc");
    terminal.taken();
    terminal.columns = 21;
    progress.reach(500);
    EXPECT_EQ(terminal.taken(), drawn("[####....]  50 % abc"));
}

TEST(Progress, WritesNothingWhereItIsNotShown)
{
    Terminal terminal;
    {
        Progress progress(terminal.look(false));
        progress.begin("transferring");
        progress.reach(500);
        progress.hide();
        progress.show();
        EXPECT_EQ(progress.reached(), 500U);
    }
    EXPECT_EQ(terminal.taken(), "");
}

TEST(Progress, HasColoursOnlyWhereTheyAreWanted)
{
    Terminal terminal;
    terminal.columns = 17;
    Progress progress(terminal.look(true, true));
    progress.reach(500);
    progress.begin("");
    EXPECT_EQ(terminal.taken(), drawn("[\x1b[32m####\x1b[0m....]  50 %"));
}

TEST(Progress, GivesWayToMessages)
{
    Terminal terminal;
    terminal.columns = 21;
    Progress progress(terminal.look());
    progress.begin("abc");
    terminal.taken();
    progress.hide();
    EXPECT_EQ(terminal.taken(), clear);
    progress.hide();
    EXPECT_EQ(terminal.taken(), "") << "it is hidden";
    progress.show();
    EXPECT_EQ(terminal.taken(), drawn("[........]   0 % abc"));
}

TEST(Progress, LeavesItsLineInTheEnd)
{
    Terminal terminal;
    {
        Progress progress(terminal.look());
        progress.begin("abc");
        terminal.taken();
    }
    EXPECT_EQ(terminal.taken(), "\n");
    {
        Progress progress(terminal.look());
        progress.begin("abc");
        progress.hide();
        terminal.taken();
    }
    EXPECT_EQ(terminal.taken(), "") << "there is no line to leave";
}

TEST(Progress, IsNotSteeredByWhatIsDone)
{
    Terminal terminal;
    terminal.columns = 40;
    Progress progress(terminal.look());
    progress.begin("a\x1b[2J\nb");
    EXPECT_EQ(terminal.taken().find("\x1b[2J"), std::string::npos);
}
