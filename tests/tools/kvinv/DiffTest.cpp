#include "tests/tools/kvinv/Program.h"

namespace {

class Diff : public CommandTest
{
protected:
    void putTree(const std::string& name, const std::string& members) const
    {
        put(name, "{\"format\": \"korvel-inventory\", \"version\": 1, \"tree\": {" + members + "}}");
    }
    Ended diff(const std::string& a, const std::string& b) const { return kvinv({"diff", path(a), path(b)}); }
};

std::string parameter(const std::string& id, const std::string& rest)
{
    return "{\"id\": \"" + id + "\", " + rest + "}";
}

}  // namespace

TEST_F(Diff, FindsNothingInTheSameTree)
{
    for (const std::vector<std::string>& pair : {std::vector<std::string>{"single-board.inv", "single-board.json"},
                                                 {"rack.json", "rack.inv"},
                                                 {"firmware-image.bin", "section-then-junk.bin"}}) {
        const Ended ended = kvinv({"diff", sample(pair[0]), sample(pair[1])});
        EXPECT_EQ(ended.status, 0);
        EXPECT_EQ(ended.out + ended.err, "");
    }
    EXPECT_EQ(kvinv({"diff", "--json", sample("rack.inv"), sample("rack.json")}).out, "[]\n");
}

TEST_F(Diff, SaysWhatIsOnlyInOneAndWhatHasChanged)
{
    putTree("a", "\"id\": \"HCN\", \"index\": 7, \"parameters\": [" +
                     parameter("NAME", "\"type\": \"String\", \"value\": \"old\"") + "," +
                     parameter("SIZE", "\"type\": \"UInt32\", \"value\": 1, \"unit\": \"Byte\"") + "," +
                     parameter("SLOT", "\"type\": \"UInt8\", \"value\": 1") +
                     "], \"items\": [{\"id\": \"CPU\"}, {\"id\": \"RAM\", \"parameters\": [" +
                     parameter("SIZE", "\"type\": \"UInt32\", \"value\": 5") + "]}]");
    putTree("b", "\"id\": \"HCN\", \"index\": 7, \"parameters\": [" +
                     parameter("NAME", "\"type\": \"String\", \"value\": \"new\\n\"") + "," +
                     parameter("SIZE",
                               "\"type\": \"UInt16\", \"value\": 1, \"unit\": \"KB\", \"modifiable\": true, "
                               "\"relevance\": 4, \"description\": \"d\"") +
                     "," + parameter("BIOS", "\"type\": \"Float64\", \"value\": 0.1") +
                     "], \"items\": [{\"id\": \"CPU\", \"description\": \"other\"}, {\"id\": \"RAM\", \"index\": 2}]");
    const Ended ended = diff("a", "b");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.out,
              "~ HCN[7]/NAME: \"old\" -> \"new\\n\"\n"
              "~ HCN[7]/SIZE: type UInt32 -> UInt16, unit \"Byte\" -> \"KB\", modifiable no -> yes, relevance 0 -> 4, "
              "description \"SIZE\" -> \"d\"\n"
              "- HCN[7]/SLOT: 1\n"
              "+ HCN[7]/BIOS: 0.1\n"
              "~ HCN[7]/CPU: description \"CPU\" -> \"other\"\n"
              "- HCN[7]/RAM\n"
              "- HCN[7]/RAM/SIZE: 5\n"
              "+ HCN[7]/RAM[2]\n");
}

TEST_F(Diff, IsAListWithJson)
{
    putTree("a", "\"id\": 1, \"parameters\": [" + parameter("SIZE", "\"type\": \"UInt8\", \"value\": 1") + "]");
    putTree("b", "\"id\": 1, \"parameters\": [" + parameter("SIZE", "\"type\": \"UInt8\", \"value\": 2") +
                     "], \"items\": [{\"id\": \"CPU\"}]");
    const Ended ended = kvinv({"diff", "--json", path("a"), path("b")});
    EXPECT_EQ(ended.status, 1);
    const std::string start = "{\"id\": \"SIZE\", \"description\": \"SIZE\", \"type\": \"UInt8\", \"value\": ";
    const std::string end = ", \"unit\": \"\", \"modifiable\": false, \"relevance\": 0}";
    EXPECT_EQ(ended.out, "[\n {\"change\": \"changed\", \"address\": \"ROOT/SIZE\", \"a\": " + start + "1" + end +
                             ", \"b\": " + start + "2" + end +
                             "},\n {\"change\": \"onlyB\", \"address\": \"ROOT/CPU\", \"a\": null, \"b\": "
                             "{\"description\": \"CPU\"}}\n]\n");
}

TEST_F(Diff, ComparesABoardWithTheSameBoardOfARack)
{
    const Ended more = kvinv({"diff", sample("single-board.inv"), sample("rack.inv")});
    EXPECT_EQ(more.status, 1);
    EXPECT_EQ(more.out.substr(0, 12), "+ HCN[4712]\n");
    EXPECT_EQ(more.out.find("HCN[4711]"), std::string::npos);
    const Ended less = kvinv({"diff", sample("rack.inv"), sample("single-board.inv")});
    EXPECT_EQ(less.out.substr(0, 12), "- HCN[4712]\n");
    putTree("rack", "\"id\": \"ROOT\", \"items\": [{\"id\": \"HCN\", \"index\": 7}]");
    putTree("board", "\"id\": \"HCN\", \"index\": 7");
    putTree("other", "\"id\": \"HCN\", \"index\": 8");
    EXPECT_EQ(diff("rack", "board").status, 0);
    EXPECT_EQ(diff("board", "rack").status, 0);
    EXPECT_EQ(diff("board", "other").out, "- HCN[7]\n+ HCN[8]\n");
    EXPECT_EQ(diff("other", "rack").out, "+ HCN[7]\n- HCN[8]\n");
}

TEST_F(Diff, TakesNaNAsEqualToItself)
{
    putTree("a", "\"id\": 1, \"parameters\": [" + parameter("SIZE", "\"type\": \"Float32\", \"value\": \"NaN\"") + "]");
    EXPECT_EQ(diff("a", "a").status, 0);
}

TEST_F(Diff, ReadsOneTreeFromStandardInput)
{
    Circumstances piped;
    piped.input = content(sample("single-board.json"));
    EXPECT_EQ(kvinv({"diff", "-", sample("single-board.inv")}, piped).status, 0);
    piped.input = content(sample("single-board.inv"));
    EXPECT_EQ(kvinv({"diff", sample("single-board.inv"), "-"}, piped).status, 0);
    EXPECT_EQ(kvinv({"diff", "-", "-"}).status, 2);
}

TEST_F(Diff, EndsWithTwoInTrouble)
{
    putTree("wrong", "\"id\": \"FOO\"");
    const std::string good = sample("single-board.inv");
    for (const std::string& bad : {path("none"), m_folder.string(), path("wrong"), sample("broken/unknown-tag.inv"),
                                   sample("broken/no-section.bin"), std::string("/dev/null")}) {
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{"diff", bad, good}, {"diff", good, bad}}) {
            const Ended ended = kvinv(arguments);
            EXPECT_EQ(ended.status, 2) << bad;
            EXPECT_EQ(ended.out, "") << bad;
            EXPECT_NE(ended.err, "") << bad;
        }
    }
}

TEST_F(Diff, EndsWithTwoWhenItsResultCannotBeWritten)
{
    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP() << "there is no /dev/full here";
    Circumstances full;
    full.output = "/dev/full";
    EXPECT_EQ(kvinv({"diff", sample("rack.inv"), sample("single-board.inv")}, full).status, 2);
    EXPECT_EQ(kvinv({"diff", "--json", sample("rack.inv"), sample("rack.inv")}, full).status, 2);
}

TEST_F(Diff, HasColoursWhenTheyAreWanted)
{
    putTree("a", "\"id\": \"ROOT\", \"items\": [{\"id\": \"CPU\"}]");
    putTree("b", "\"id\": \"ROOT\"");
    EXPECT_EQ(kvinv({"--color=always", "diff", path("a"), path("b")}).out, "\x1b[31m- ROOT/CPU\x1b[0m\n");
}
