#include <sys/stat.h>

#include <csignal>
#include <fstream>
#include <thread>

#include "tests/tools/kvinv/Program.h"

namespace {

class Import : public CommandTest
{};

using Names = std::vector<std::string>;

}  // namespace

TEST_F(Import, MakesTheSectionsOfTheSamples)
{
    for (const std::string name : {"single-board", "rack"}) {
        const Ended ended = kvinv({"import", sample(name + ".json"), "-o", path("x.inv")});
        EXPECT_EQ(ended.status, 0);
        EXPECT_EQ(ended.out + ended.err, "");
        EXPECT_EQ(content(path("x.inv")), content(sample(name + ".inv"))) << name;
    }
    EXPECT_EQ(names(), Names{"x.inv"});
}

TEST_F(Import, ReadsStandardInputAndWritesStandardOutput)
{
    Circumstances piped;
    piped.input = content(sample("single-board.json"));
    EXPECT_EQ(kvinv({"import", "-", "-o", "-"}, piped).out, content(sample("single-board.inv")));
}

TEST_F(Import, AppendsToAnImage)
{
    put("image", content(sample("firmware-image.bin")));
    ASSERT_EQ(kvinv({"import", sample("single-board.json"), "--append", "-o", path("image")}).status, 0);
    EXPECT_EQ(content(path("image")), content(sample("firmware-image.bin")) + content(sample("single-board.inv")));
    EXPECT_EQ(kvinv({"show", path("image")}).out, kvinv({"show", sample("single-board.inv")}).out);
    EXPECT_EQ(names(), Names{"image"});
}

TEST_F(Import, WritesNothingWhenTheTreeIsWrong)
{
    put("old.inv", "old");
    put("t.json",
        "{\"format\": \"korvel-inventory\", \"version\": 1, \"tree\": {\"id\": \"ROOT\", \"items\": [{\"id\": "
        "\"FOO\"}]}}");
    const Ended ended = kvinv({"import", path("t.json"), "-o", path("old.inv")});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "kvinv: " + path("t.json") + ": at \"/tree/items/0/id\": \"FOO\" is not the name of an ID\n");
    EXPECT_EQ(content(path("old.inv")), "old");
    for (const std::string& file :
         {sample("single-board.inv"), sample("broken/no-section.bin"), std::string("/dev/null")}) {
        const Ended wrong = kvinv({"import", file, "-o", path("old.inv")});
        EXPECT_EQ(wrong.status, 1);
        EXPECT_EQ(wrong.err.substr(0, 7 + file.size() + 9), "kvinv: " + file + ": at \"\": ");
    }
    EXPECT_EQ(names(), (Names{"old.inv", "t.json"}));
}

TEST_F(Import, RefusesTextsThatASectionWouldCut)
{
    const auto tree = [](const std::string& description, const std::string& unit) {
        return "{\"format\": \"korvel-inventory\", \"version\": 1, \"tree\": {\"id\": \"ROOT\", \"items\": [{\"id\": "
               "\"CPU\", "
               "\"index\": 2, \"description\": \"" +
               description + "\", \"parameters\": [{\"id\": \"SIZE\", \"type\": \"UInt8\", \"value\": 1, \"unit\": \"" +
               unit + "\"}]}]}}";
    };
    put("t.json", tree(std::string(254, 'd'), std::string(100, 'u')));
    EXPECT_EQ(kvinv({"import", path("t.json"), "-o", path("x")}).status, 0);
    put("t.json", tree(std::string(255, 'd'), ""));
    EXPECT_EQ(kvinv({"import", path("t.json"), "-o", path("x")}).err,
              "kvinv: the description of ROOT/CPU[2] is too long: a section holds 254 bytes of it\n");
    put("t.json", tree("d", std::string(101, 'u')));
    EXPECT_EQ(kvinv({"import", path("t.json"), "-o", path("x")}).err,
              "kvinv: the unit of ROOT/CPU[2]/SIZE is too long: a section holds 100 bytes of it\n");
}

TEST_F(Import, SaysWhyItCannotReadOrWrite)
{
    const std::string tree = sample("single-board.json");
    const auto problemOf = [](const std::vector<std::string>& arguments, int status) {
        const Ended ended = kvinv(arguments);
        EXPECT_EQ(ended.status, status);
        EXPECT_EQ(ended.out, "");
        return ended.err;
    };
    EXPECT_EQ(problemOf({"import", tree}, 2), "kvinv: import needs -o FILE\n");
    EXPECT_EQ(problemOf({"import", tree, "--append", "-o", "-"}, 2),
              "kvinv: --append needs a file, not standard output\n");
    EXPECT_EQ(problemOf({"import", path("none"), "-o", path("x")}, 1),
              "kvinv: " + path("none") + ": No such file or directory\n");
    EXPECT_EQ(problemOf({"import", m_folder.string(), "-o", path("x")}, 1),
              "kvinv: " + m_folder.string() + ": Is a directory\n");
    EXPECT_EQ(problemOf({"import", tree, "-o", path("no/x")}, 1),
              "kvinv: " + path("no/x") + ": No such file or directory\n");
    EXPECT_EQ(problemOf({"import", tree, "-o", m_folder.string()}, 1),
              "kvinv: " + m_folder.string() + ": Is a directory\n");
    EXPECT_EQ(problemOf({"import", tree, "--append", "-o", path("none")}, 1),
              "kvinv: " + path("none") + ": No such file or directory\n");
    EXPECT_EQ(problemOf({"import", tree, "--append", "-o", "/dev/null"}, 1),
              "kvinv: /dev/null: only a regular file can be appended to\n");
    EXPECT_EQ(names(), Names{});
}

TEST_F(Import, IsNotKeptFromItsWorkByALinkOrADevice)
{
    put("real.inv", "old");
    std::filesystem::create_symlink("real.inv", path("link.inv"));
    ASSERT_EQ(kvinv({"import", sample("single-board.json"), "-o", path("link.inv")}).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(path("link.inv")));
    EXPECT_EQ(content(path("real.inv")), content(sample("single-board.inv")));
    EXPECT_EQ(kvinv({"import", sample("single-board.json"), "-o", "/dev/null"}).status, 0);
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(Import, LeavesNothingBehindWhenItsFileMustNotBeSoLarge)
{
    put("old.inv", "old");
    const std::string limited = "ulimit -f 8; exec " KVINV_PROGRAM " import " + sample("rack.json") + " -o ";
    for (const char* name : {"old.inv", "new.inv"}) {
        const Ended ended = Running("/bin/sh", {"-c", limited + path(name)}).wait();
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.err, "kvinv: " + path(name) + ": File too large\n");
    }
    EXPECT_EQ(content(path("old.inv")), "old");
    EXPECT_EQ(names(), Names{"old.inv"});
}

TEST_F(Import, LeavesNothingBehindWhenInterrupted)
{
    ASSERT_EQ(mkfifo(path("tree.json").c_str(), 0600), 0);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Running running(KVINV_PROGRAM, {"import", path("tree.json"), "-o", path("x.inv")});
        std::ofstream writer(path("tree.json"));  // opens when the program reads
        writer << "{\"format\": " << std::flush;
        running.signal(signal);
        EXPECT_EQ(running.wait().status, 128 + signal);
    }
    EXPECT_EQ(names(), Names{"tree.json"});
}
