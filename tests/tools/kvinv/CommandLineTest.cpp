#include "tests/tools/kvinv/Program.h"

namespace {

std::string problemOf(const std::vector<std::string>& arguments)
{
    const Ended ended = kvinv(arguments);
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(lines(ended.err).size(), 1U) << ended.err;
    return ended.err;
}

const char* const commandNames[] = {"show", "section", "import", "diff", "ids", "explain", "discover", "scan",
                                    "get",  "set",     "put",    "ls",   "rm",  "update",  "lock",     "locks"};

}  // namespace

TEST(CommandLine, HelpGoesToStandardOutputAndHasAnExampleForEachCommand)
{
    const Ended all = kvinv({"--help"});
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(all.err, "");
    for (const char* name : commandNames) {
        EXPECT_NE(all.out.find(std::string("\n  ") + name + " "), std::string::npos) << name;
        for (const std::vector<std::string>& asked :
             {std::vector<std::string>{name, "--help"}, {"--help", name}, {name, "-h"}}) {
            const Ended one = kvinv(asked);
            EXPECT_EQ(one.status, 0);
            EXPECT_EQ(one.out.substr(0, 13 + std::string(name).size()), std::string("usage: kvinv ") + name);
            EXPECT_NE(one.out.find("\nexample:\n  kvinv " + std::string(name)), std::string::npos) << one.out;
        }
    }
}

TEST(CommandLine, SaysItsVersion)
{
    const Ended ended = kvinv({"--version"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "kvinv " KVINV_VERSION "\n");
}

TEST(CommandLine, NamesTheNearestRightCommandOrOption)
{
    EXPECT_EQ(problemOf({}), "kvinv: no command (kvinv --help lists them)\n");
    EXPECT_EQ(problemOf({"shwo", "x"}), "kvinv: unknown command shwo; did you mean show? (kvinv --help says more)\n");
    EXPECT_EQ(problemOf({"frobnicate"}), "kvinv: unknown command frobnicate (kvinv --help says more)\n");
    EXPECT_EQ(problemOf({"show", "--fromat", "json", "x"}),
              "kvinv: unknown option --fromat; did you mean --format? (kvinv show --help says more)\n");
    EXPECT_EQ(problemOf({"show", "--ip=1.2.3.4", "x"}), "kvinv: unknown option --ip (kvinv show --help says more)\n");
    EXPECT_EQ(problemOf({"show", "--format", "xml", "x"}),
              "kvinv: --format takes text, json or csv, not xml (kvinv show --help says more)\n");
    EXPECT_EQ(
        problemOf({"--color", "alwyas", "ids"}),
        "kvinv: --color takes auto, always or never, not alwyas; did you mean always? (kvinv ids --help says more)\n");
}

TEST(CommandLine, CountsTheArguments)
{
    EXPECT_EQ(problemOf({"show"}),
              "kvinv: too few arguments; usage: kvinv show [OPTION ...] FILE (kvinv show --help says more)\n");
    EXPECT_EQ(
        problemOf({"show", "a", "b"}),
        "kvinv: too many arguments, from b on; usage: kvinv show [OPTION ...] FILE (kvinv show --help says more)\n");
    EXPECT_EQ(problemOf({"diff", "a"}).substr(0, 25), "kvinv: too few arguments;");
    EXPECT_EQ(problemOf({"discover", "x"}),
              "kvinv: too many arguments, from x on; usage: kvinv discover [OPTION ...] (kvinv discover --help says "
              "more)\n");
    EXPECT_EQ(problemOf({"lock", "HCN[1]"}).substr(0, 27), "kvinv: no COMMAND after --;");
    EXPECT_EQ(problemOf({"lock", "HCN[1]", "--"}).substr(0, 27), "kvinv: no COMMAND after --;");
}

TEST(CommandLine, ANumberMayBeginWithAMinusAnotherValueStandsBehindDashes)
{
    EXPECT_EQ(
        problemOf({"set", "x", "-abc"}),
        "kvinv: unknown option -abc; a value that begins with - and is no number stands after -- (kvinv set --help "
        "says more)\n");
    EXPECT_EQ(problemOf({"set", "x", "--x"}),
              "kvinv: unknown option --x; a value that begins with - and is no number stands after -- (kvinv set "
              "--help says more)\n");
    // What is wrong with these is the address alone.
    EXPECT_EQ(problemOf({"set", "nothing", "-5"}), "kvinv: nothing is no address (kvinv ids lists the names)\n");
    EXPECT_EQ(problemOf({"set", "nothing", "-.5e3"}), "kvinv: nothing is no address (kvinv ids lists the names)\n");
    EXPECT_EQ(problemOf({"set", "nothing", "--", "-abc"}),
              "kvinv: nothing is no address (kvinv ids lists the names)\n");
}

TEST(CommandLine, TakesEveryArgumentAsItIs)
{
    for (const char* name : {"[a,b]", "[a]", "[]", "{}", "%%", "++", "show", "lock", "-5"})
        EXPECT_EQ(kvinv({"show", name}).err, std::string("kvinv: ") + name + ": No such file or directory\n");
    EXPECT_EQ(kvinv({"show", ""}).err, "kvinv: \"\": No such file or directory\n");
    EXPECT_EQ(kvinv({"ids", "[]"}).err, "kvinv: no ID is like []\n");
    EXPECT_EQ(problemOf({"get", ""}), "kvinv: \"\" is no address (kvinv ids lists the names)\n");
    EXPECT_EQ(problemOf({"show", "--level", "[1]", "x"}), "kvinv: --level takes a number from 0 to 1000, not [1]\n");
    EXPECT_EQ(problemOf({"show", "--level=[1]", "x"}), "kvinv: --level takes a number from 0 to 1000, not [1]\n");
    EXPECT_EQ(problemOf({"show", "--level=-1", "x"}), "kvinv: --level takes a number from 0 to 1000, not -1\n");
    EXPECT_EQ(problemOf({"scan", "--system="}), "kvinv: --system takes a name of 1 to 255 bytes\n");
}

TEST(CommandLine, SaysWhichOptionNeedsAValueAndWhichTakesNone)
{
    EXPECT_EQ(problemOf({"show", "x", "--level"}), "kvinv: --level needs a value (kvinv show --help says more)\n");
    EXPECT_EQ(problemOf({"scan", "-o"}), "kvinv: -o needs a value (kvinv scan --help says more)\n");
    EXPECT_EQ(problemOf({"ids", "--quiet=no"}), "kvinv: --quiet takes no value (kvinv ids --help says more)\n");
    EXPECT_EQ(problemOf({"--verbose=2", "ids"}), "kvinv: --verbose takes no value (kvinv --help says more)\n");
    EXPECT_EQ(kvinv({"--json", "show", "--level"}).err,
              "{\"code\": null, \"origin\": \"kvinv\", \"line\": 0, \"message\": \"--level needs a value (kvinv "
              "show --help says more)\"}\n");
}

TEST(CommandLine, StandardOutputIsForOneResult)
{
    EXPECT_EQ(problemOf({"scan", "--ip", "127.0.0.1", "-o", "-", "--format", "csv"}),
              "kvinv: -o - and --format or --json cannot both have standard output\n");
    EXPECT_EQ(kvinv({"scan", "--ip", "127.0.0.1", "-o", "-", "--json"}).status, 2);
}

TEST(CommandLine, RefusesAPortThatIsNone)
{
    for (const char* port : {"0", "65536", "-1", "0x2a", "x"}) {
        Circumstances circumstances;
        circumstances.environment = {std::string("KVDAL_PORTMAP_PORT=") + port};
        const std::string problem =
            std::string("kvinv: KVDAL_PORTMAP_PORT must be a port from 1 to 65535, not ") + port + "\n";
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{"locks", "--ip", "127.0.0.1"}, {"diff", "ip:127.0.0.1", "x"}}) {
            const Ended ended = kvinv(arguments, circumstances);
            EXPECT_EQ(ended.status, 2);
            EXPECT_EQ(ended.err, problem);
        }
    }
}

TEST(CommandLine, RefusesSelectionsThatAreNone)
{
    EXPECT_EQ(problemOf({"discover", "--ip", "10.0.0.2,host"}),
              "kvinv: --ip takes addresses such as 10.0.0.2, not host\n");
    EXPECT_EQ(problemOf({"discover", "--ip", "10.0.0"}), "kvinv: --ip takes addresses such as 10.0.0.2, not 10.0.0\n");
    EXPECT_EQ(problemOf({"discover", "--ip", "10.0.0.256"}),
              "kvinv: --ip takes addresses such as 10.0.0.2, not 10.0.0.256\n");
    EXPECT_EQ(problemOf({"discover", "--ip", " , "}), "kvinv: --ip takes 1 to 200 addresses, not 0\n");
    std::string many = "10.0.0.1";
    for (int i = 2; i <= 201; ++i)
        many += ",10.0.0." + std::to_string(i);
    EXPECT_EQ(problemOf({"scan", "--ip", many}), "kvinv: --ip takes 1 to 200 addresses, not 201\n");
    EXPECT_EQ(problemOf({"locks", "--subnet", "255.0.255.0"}),
              "kvinv: --subnet takes a mask such as 255.255.255.0, not 255.0.255.0\n");
    EXPECT_EQ(problemOf({"scan", "--system", ""}), "kvinv: --system takes a name of 1 to 255 bytes\n");
    EXPECT_EQ(problemOf({"scan", "--system", std::string(100000, 'x')}),
              "kvinv: --system takes a name of 1 to 255 bytes\n");
    EXPECT_EQ(problemOf({"diff", "ip:x", "y"}), "kvinv: ip: takes addresses such as 10.0.0.2, not x\n");
    EXPECT_EQ(problemOf({"diff", "subnet:x", "y"}), "kvinv: subnet: takes a mask such as 255.255.255.0, not x\n");
}

TEST(CommandLine, RefusesAddressesThatAreNone)
{
    EXPECT_EQ(problemOf({"get", "HCN[1]/NOSUCH"}), "kvinv: HCN[1]/NOSUCH is no address (kvinv ids lists the names)\n");
    EXPECT_EQ(problemOf({"get", "CPU/SIZE"}), "kvinv: CPU/SIZE does not begin with a board, as HCN[4711] does\n");
    EXPECT_EQ(problemOf({"set", "HCN[1]", "5"}), "kvinv: HCN[1] names a board, not a parameter\n");
    EXPECT_EQ(lines(problemOf({"get", std::string(100000, 'x')})).size(), 1U);
}

TEST(CommandLine, RefusesTimesThatMakeNoSense)
{
    for (const char* time : {"0", "-1", "x", "4295", "nan", "1s", ""})
        EXPECT_EQ(problemOf({"ids", "--timeout", time}),
                  std::string("kvinv: --timeout takes seconds from 0.001 to 4294, not ") + time + "\n");
}

TEST(CommandLine, TellsProblemsAsJsonWhenAskedTo)
{
    const Ended ended = kvinv({"--json", "get", "x\x1b"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(
        ended.err,
        "{\"code\": null, \"origin\": \"kvinv\", \"line\": 0, \"message\": \"x\\u001b is no address (kvinv ids lists "
        "the names)\"}\n");
}

TEST(CommandLine, EscapesWhatItRepeats)
{
    EXPECT_EQ(problemOf({"x\x1b[31m\ny"}), "kvinv: unknown command x\\x1b[31m\\ny (kvinv --help says more)\n");
}

TEST(Documents, TheManualIsOneThatManReadsWithoutWarning)
{
    const std::string man = "/usr/bin/man";
    if (!std::filesystem::exists(man))
        GTEST_SKIP() << "there is no man";
    Circumstances circumstances;
    circumstances.input = kvinv({"--generate-manual"}).out;
    circumstances.environment = {"LC_ALL=C.UTF-8", "MANWIDTH=80", "MANPAGER=cat"};
    const Ended ended = Running(man, {"--warnings", "-l", "-"}, circumstances).wait();
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    for (const char* title : {"NAME", "SYNOPSIS", "COMMANDS", "UPDATES", "INTERRUPTIONS", "ENVIRONMENT", "EXIT STATUS"})
        EXPECT_NE(ended.out.find("\n" + std::string(title) + "\n"), std::string::npos) << title;
}

TEST(Documents, TheManualAndTheCompletionsKnowEveryCommand)
{
    const std::string manual = kvinv({"--generate-manual"}).out;
    const std::string bash = kvinv({"--generate-bash-completion"}).out;
    const std::string zsh = kvinv({"--generate-zsh-completion"}).out;
    EXPECT_EQ(manual.substr(0, 11), ".TH KVINV 1");
    for (const char* name : commandNames) {
        EXPECT_NE(manual.find(std::string(".SS kvinv ") + name), std::string::npos) << name;
        EXPECT_NE(bash.find(std::string("        ") + name + ") kv_own="), std::string::npos) << name;
        EXPECT_NE(zsh.find(std::string("        ") + name + ") kv_own="), std::string::npos) << name;
    }
}
