#include <sys/stat.h>

#include <csignal>
#include <fstream>

#include "tests/tools/kvinv/Program.h"

namespace {

class Show : public CommandTest
{};

const char* const smallTree =
    "<ITEM ID=\"ROOT\">\n"
    "    <PARAM ID=\"SIZE\" Type=\"UInt32\">\n"
    "        <VALUE>7</VALUE>\n"
    "        <ISMODIFIABLE>No</ISMODIFIABLE>\n"
    "        <RELEVANCE>0</RELEVANCE>\n"
    "    </PARAM>\n"
    "</ITEM>\n";

/** A tree with texts that bite. */
const char* const nastyTree =
    "{\"format\": \"korvel-inventory\", \"version\": 1, \"tree\": {\"id\": \"ROOT\", \"parameters\": [{\"id\": "
    "\"NAME\", "
    "\"description\": \"d\\u001b[1m\", \"type\": \"String\", \"value\": \"a,\\\"b\\\"\\nc\", \"unit\": \"\\u001b[2J\", "
    "\"modifiable\": true, \"relevance\": 5}]}}";

}  // namespace

TEST_F(Show, PrintsTheTreeOfASection)
{
    const Ended ended = kvinv({"show", sample("broken/extra-128.inv")});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, smallTree);
    EXPECT_EQ(ended.err, "");
}

TEST_F(Show, FindsASectionAtEitherEndOfAnImage)
{
    const Ended atTheEnd = kvinv({"show", sample("firmware-image.bin")});
    EXPECT_EQ(atTheEnd.status, 0);
    EXPECT_NE(atTheEnd.out.find("<VALUE>4.0.1b2</VALUE>"), std::string::npos);
    EXPECT_EQ(kvinv({"show", sample("section-then-junk.bin")}).out, atTheEnd.out);
}

TEST_F(Show, ReadsStandardInput)
{
    Circumstances piped;
    piped.input = content(sample("broken/extra-128.inv"));
    EXPECT_EQ(kvinv({"show", "-"}, piped).out, smallTree);
    const Ended nothing = kvinv({"show", "-"});
    EXPECT_EQ(nothing.status, 1);
    EXPECT_EQ(nothing.err, "kvinv: no inventory section in standard input\n");
}

TEST_F(Show, HasAPlainFormAndLevels)
{
    EXPECT_EQ(kvinv({"show", "--flags", "0xE0080", "--level", "1", sample("broken/extra-128.inv")}).out,
              "    ROOT\n        SIZE UInt32\n            7\n");
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--flags", "x"},
                                                  {"--flags", "0x80000000"},
                                                  {"--level", "-1"},
                                                  {"--level", "1001"},
                                                  {"--json", "--level", "1"}}) {
        std::vector<std::string> arguments = {"show", sample("broken/extra-128.inv")};
        arguments.insert(arguments.end(), wrong.begin(), wrong.end());
        const Ended ended = kvinv(arguments);
        EXPECT_EQ(ended.status, 2) << wrong.back();
        EXPECT_EQ(ended.out, "");
    }
}

TEST_F(Show, WritesJson)
{
    const std::string json =
        "{\"format\": \"korvel-inventory\", \"version\": 1, \"tree\":\n"
        "{\"id\": \"ROOT\", \"index\": 1, \"description\": \"ROOT\",\n"
        " \"parameters\": [\n"
        "  {\"id\": \"SIZE\", \"description\": \"SIZE\", \"type\": \"UInt32\", \"value\": 7, \"unit\": \"\", "
        "\"modifiable\": "
        "false, \"relevance\": 0}],\n"
        " \"items\": []}}\n";
    EXPECT_EQ(kvinv({"show", "--json", sample("broken/extra-128.inv")}).out, json);
    EXPECT_EQ(kvinv({"show", "--format=json", sample("broken/extra-128.inv")}).out, json);
}

TEST_F(Show, WritesCsv)
{
    put("t.json", nastyTree);
    ASSERT_EQ(kvinv({"import", path("t.json"), "-o", path("t.inv")}).status, 0);
    EXPECT_EQ(kvinv({"show", "--format", "csv", path("t.inv")}).out,
              "address,type,value,unit,modifiable,relevance,description\r\n"
              "ROOT/NAME,String,\"a,\"\"b\"\"\nc\",\x1b[2J,true,5,d\x1b[1m\r\n");
    EXPECT_EQ(lines(kvinv({"show", "--format", "csv", sample("rack.inv")}).out).size(), 5081U);
}

TEST_F(Show, ShowsNothingThatSteersATerminal)
{
    put("t.json", nastyTree);
    ASSERT_EQ(kvinv({"import", path("t.json"), "-o", path("t.inv")}).status, 0);
    Circumstances terminal;
    terminal.onTerminal = true;
    for (const char* format : {"text", "json", "csv"}) {
        const Ended ended = kvinv({"show", "--format", format, path("t.inv")}, terminal);
        EXPECT_EQ(ended.status, 0);
        EXPECT_EQ(ended.out.find('\x1b'), std::string::npos) << format;
        EXPECT_NE(ended.out.find("[2J"), std::string::npos) << format;
    }
}

TEST_F(Show, SaysWhenThereIsNoSection)
{
    put("empty", "");
    put("byte", "x");
    for (const std::string& file : {sample("broken/no-section.bin"), path("empty"), path("byte")}) {
        const Ended ended = kvinv({"show", file});
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "kvinv: no inventory section in " + file + "\n");
    }
}

TEST_F(Show, SaysWhyAFileCannotBeRead)
{
    EXPECT_EQ(kvinv({"show", path("none")}).err, "kvinv: " + path("none") + ": No such file or directory\n");
    EXPECT_EQ(kvinv({"show", m_folder.string()}).err, "kvinv: " + m_folder.string() + ": Is a directory\n");
    const std::string longName = path(std::string(5000, 'x'));
    EXPECT_EQ(kvinv({"show", longName}).err, "kvinv: " + longName + ": File name too long\n");
    std::filesystem::create_symlink("loop", path("loop"));
    EXPECT_EQ(kvinv({"show", path("loop")}).err, "kvinv: " + path("loop") + ": Too many levels of symbolic links\n");
    EXPECT_EQ(kvinv({"show", path("none")}).status, 1);
}

TEST_F(Show, PrintsTheWholeChainOfErrorsInnermostFirst)
{
    const Ended ended = kvinv({"show", sample("broken/trailer-version-2.inv")});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "");
    const std::vector<std::string> told = lines(ended.err);
    ASSERT_EQ(told.size(), 2U) << ended.err;
    EXPECT_EQ(told[0].substr(0, 23), "kvinv: error 0x1300009:");
    EXPECT_NE(told[0].find("33554432"), std::string::npos);
    EXPECT_EQ(told[1].substr(0, 23), "kvinv: error 0x1300003:");
    const Ended verbose = kvinv({"-v", "show", sample("broken/trailer-version-2.inv")});
    EXPECT_NE(verbose.err.find(" [KvCInventoryData::"), std::string::npos) << verbose.err;
    EXPECT_NE(verbose.err.find(", line "), std::string::npos);
    const Ended json = kvinv({"show", "--json", sample("broken/trailer-version-2.inv")});
    EXPECT_EQ(json.err.substr(0, 49), "{\"code\": \"0x1300009\", \"origin\": \"KvCInventoryData");
}

TEST_F(Show, ReportsEveryBrokenSampleWithItsCodes)
{
    const std::vector<std::pair<std::string, std::vector<std::string>>> rows = {
        {"trailer-version-2.inv", {"0x1300009", "0x1300003"}},
        {"trailer-size-23.inv", {"0x1300008", "0x1300003"}},
        {"header-version-2.bin", {"0x1300009", "0x1300003"}},
        {"header-too-much.bin", {"0x1300005", "0x1300003"}},
        {"unit-101.inv", {"0x1302000", "0xa02000", "0x1302801", "0x1300000"}},
        {"unknown-tag.inv", {"0xa02000", "0x1302801", "0x1300000"}},
        {"end-without-start.inv", {"0xa01000", "0xa02000", "0x1302801", "0x1300000"}},
        {"string-too-long.inv", {"0xa01002", "0xa02000", "0x1302801", "0x1300000"}},
        {"extra-129.inv", {"0xa01002", "0xa02000", "0x1302801", "0x1300000"}},
        {"other-type.inv", {"0xa01001", "0xa02000", "0x1302801", "0x1300000"}},
        {"unknown-type.inv", {"0x601001", "0xa01001", "0xa02000", "0x1302801", "0x1300000"}},
        {"same-item-twice.inv", {"0x1302806", "0xa02000", "0x1302801", "0x1300000"}}};
    for (const auto& [name, codes] : rows) {
        const Ended ended = kvinv({"show", sample("broken/" + name)});
        EXPECT_EQ(ended.status, 1) << name;
        EXPECT_EQ(ended.out, "") << name;
        const std::vector<std::string> told = lines(ended.err);
        ASSERT_EQ(told.size(), codes.size()) << name << "\n" << ended.err;
        for (std::size_t i = 0; i < codes.size(); ++i)
            EXPECT_EQ(told[i].substr(0, 14 + codes[i].size()), "kvinv: error " + codes[i] + ":") << name;
        Circumstances piped;
        piped.input = content(sample("broken/" + name));
        EXPECT_EQ(kvinv({"show", "-"}, piped).status, 1) << name;
    }
}

TEST_F(Show, TakesAFileOfAnySize)
{
    put("sparse", "");
    std::filesystem::resize_file(path("sparse"), 5000000000);
    EXPECT_EQ(kvinv({"show", path("sparse")}).err, "kvinv: no inventory section in " + path("sparse") + "\n");
    std::ofstream(path("sparse"), std::ios::binary | std::ios::in | std::ios::ate)
        << content(sample("broken/extra-128.inv"));
    EXPECT_EQ(kvinv({"show", path("sparse")}).out, smallTree);
}

TEST_F(Show, EndsQuietlyWhenNobodyReads)
{
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    for (const char* format : {"text", "json", "csv"}) {
        Circumstances circumstances;
        circumstances.output = path("pipe");
        Running running(KVINV_PROGRAM, {"show", "--format", format, sample("rack.inv")}, circumstances);
        {
            std::ifstream reader(path("pipe"));
            std::string line;
            std::getline(reader, line);
        }
        const Ended ended = running.wait();
        EXPECT_EQ(ended.status, 0) << format;
        EXPECT_EQ(ended.err, "") << format;
    }
}

TEST_F(Show, SaysWhenTheOutputCannotBeWritten)
{
    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP() << "there is no /dev/full here";
    Circumstances full;
    full.output = "/dev/full";
    for (const char* format : {"text", "json", "csv"}) {
        const Ended ended = kvinv({"show", "--format", format, sample("rack.inv")}, full);
        EXPECT_EQ(ended.status, 1) << format;
        EXPECT_EQ(ended.err, "kvinv: standard output: No space left on device\n") << format;
    }
}

TEST_F(Show, UsesColoursOnlyWhereTheyAreWanted)
{
    const std::vector<std::string> broken = {"show", sample("broken/unknown-tag.inv")};
    EXPECT_EQ(kvinv(broken).err.find('\x1b'), std::string::npos);
    const Ended always = kvinv({"--color", "always", "show", sample("broken/unknown-tag.inv")});
    EXPECT_EQ(always.err.substr(0, 33), "kvinv: \x1b[31merror 0xa02000\x1b[0m: I");
    Circumstances refused;
    refused.environment = {"NO_COLOR=1"};
    refused.onTerminal = true;
    EXPECT_EQ(kvinv({"section", sample("single-board.inv")}, refused).out.find('\x1b'), std::string::npos);
    refused.environment.clear();
    EXPECT_EQ(kvinv({"section", sample("single-board.inv")}, refused).out.substr(0, 4), "\x1b[1m");
}
