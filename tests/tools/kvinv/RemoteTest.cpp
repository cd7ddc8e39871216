#include <algorithm>
#include <csignal>

#include "tests/tools/kvinv/BoardService.h"

namespace {

const char* const portMapperPort = "17170";

/** A board's service with two boards, for the whole suite. */
class Remote : public BoardServiceTest
{
protected:
    static void SetUpTestSuite() { s_service = startService({}); }
    static void TearDownTestSuite() { s_service.reset(); }
    void SetUp() override
    {
        CommandTest::SetUp();
        ASSERT_NE(s_service, nullptr) << "the service does not start";
    }

    static std::unique_ptr<Running> startService(std::string boards, const std::string& port = portMapperPort,
                                                 const std::vector<std::string>& more = {})
    {
        return BoardServiceTest::startService(std::move(boards), port, more);
    }
    static Circumstances with(std::vector<std::string> variables = {}, const std::string& port = portMapperPort)
    {
        return BoardServiceTest::with(std::move(variables), port);
    }
    static Ended run(std::vector<std::string> arguments, const Circumstances& circumstances = with())
    {
        const auto dashes = std::find(arguments.begin(), arguments.end(), "--");
        arguments.insert(dashes, {"--ip", "127.0.70.1,127.0.70.2"});
        return kvinv(arguments, circumstances);
    }
    static std::string valueOf(const std::string& address) { return run({"get", address}).out; }

    static std::unique_ptr<Running> s_service;
};

std::unique_ptr<Running> Remote::s_service;

}  // namespace

TEST_F(Remote, DiscoverListsTheBoards)
{
    const Ended ended = run({"discover"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.out,
              "serial    type  name  system  address\n"
              "  4711  KV6003  IO-1  Rack A  127.0.70.1\n"
              "  4712  KV6007  IO-2  Rack A  127.0.70.2\n");
    EXPECT_EQ(kvinv({"discover", "--json", "--ip", "127.0.70.2"}, with()).out,
              "[\n {\"serialNumber\": 4712, \"boardType\": 6007, \"boardName\": \"IO-2\", \"systemName\": \"Rack A\", "
              "\"address\": \"127.0.70.2\"}\n]\n");
}

TEST_F(Remote, AnAddressWithoutBoardIsNamed)
{
    const Ended some = kvinv({"discover", "--ip", "127.0.70.1,127.0.70.99"}, with());
    EXPECT_EQ(some.status, 3);
    EXPECT_EQ(some.err, "kvinv: no board answers at 127.0.70.99\n");
    EXPECT_EQ(lines(some.out).size(), 2U);
    const Ended none = kvinv({"scan", "--ip", "127.0.70.99"}, with());
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.err, "kvinv: no board answers at 127.0.70.99\n");
    EXPECT_EQ(none.out, "");
    const Ended system = kvinv({"discover", "--system", "no such system"}, with());
    EXPECT_EQ(system.status, 1);
    EXPECT_EQ(system.err, "kvinv: no board was found\n");
    EXPECT_EQ(kvinv({"scan", "--ip", "127.0.70.1,127.0.70.99", "-o", path("x.inv")}, with()).status, 3);
    EXPECT_EQ(kvinv({"diff", path("x.inv"), "ip:127.0.70.1"}, with()).status, 0);
    EXPECT_EQ(kvinv({"diff", path("x.inv"), "ip:127.0.70.1,127.0.70.99"}, with()).status, 2);
}

TEST_F(Remote, ScanDeliversTheTreeOfAllBoards)
{
    const Ended stored = run({"scan", "-o", path("x.inv")});
    EXPECT_EQ(stored.status, 0);
    EXPECT_EQ(stored.out + stored.err, "");
    EXPECT_EQ(run({"scan"}).out, kvinv({"show", path("x.inv")}).out);
    EXPECT_EQ(run({"scan", "--format", "csv"}).out, kvinv({"show", "--format", "csv", path("x.inv")}).out);
    EXPECT_EQ(run({"scan", "--json", "-o", path("y.inv")}).out, kvinv({"show", "--json", path("x.inv")}).out);
    EXPECT_EQ(content(path("y.inv")), content(path("x.inv")));
    EXPECT_EQ(kvinv({"diff", path("x.inv"), "ip:127.0.70.1,127.0.70.2"}, with()).status, 0);
    const Ended changed = kvinv({"diff", sample("single-board.inv"), "ip:127.0.70.1,127.0.70.2"}, with());
    EXPECT_EQ(changed.status, 1);
    EXPECT_EQ(lines(changed.out)[0], "+ HCN[4712]");
    const Ended failed = run({"scan", "-o", path("no/x.inv")});
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.err, "kvinv: " + path("no/x.inv") + ": No such file or directory\n");
}

TEST_F(Remote, GetReadsOneParameter)
{
    EXPECT_EQ(valueOf("HCN[4711]/NAME"), "IO-1\n");
    EXPECT_EQ(valueOf("ROOT/HCN[4711]/CPU/FREQUENCY"), "2000000000\n");
    EXPECT_EQ(valueOf("HCN[4711]/FIRMWARE/VERSION"), "3.1.2b4p7\n");
    Circumstances terminal = with();
    terminal.onTerminal = true;
    EXPECT_EQ(run({"get", "HCN[4711]/CPU/FREQUENCY"}, terminal).out, "2000000000 Hz\r\n");
    EXPECT_EQ(
        run({"get", "--json", "HCN[4711]/CPU/FREQUENCY"}).out,
        "{\"id\": \"FREQUENCY\", \"description\": \"FREQUENCY\", \"type\": \"Float64\", \"value\": 2e+09, \"unit\": "
        "\"Hz\", \"modifiable\": false, \"relevance\": 0}\n");
}

TEST_F(Remote, GetSaysWhatIsMissing)
{
    const Ended parameter = run({"get", "HCN[4711]/CPU[9]/NAME"});
    EXPECT_EQ(parameter.status, 1);
    EXPECT_EQ(parameter.out, "");
    const std::vector<std::string> told = lines(parameter.err);
    ASSERT_EQ(told.size(), 2U) << parameter.err;
    EXPECT_EQ(told[0].substr(0, 18), "kvinv: error 0x300");
    EXPECT_EQ(told[1],
              "kvinv: error 0x1600800: Internal error. Korvel Support information: Cannot read parameter "
              "HCN[4711]/CPU[9]/NAME.");
    const Ended board = run({"get", "HCN[1]/NAME"});
    EXPECT_EQ(board.status, 1);
    EXPECT_EQ(lines(board.err).size(), 3U);
    EXPECT_NE(board.err.find("kvinv: error 0x1600805: "), std::string::npos);
}

TEST_F(Remote, SetChangesAValueOfEachType)
{
    const std::vector<std::pair<std::string, std::string>> rows = {{"TEST_I8", "-128"},
                                                                   {"TEST_UI8", "255"},
                                                                   {"TEST_I16", "-32768"},
                                                                   {"TEST_UI16", "65535"},
                                                                   {"TEST_I32", "-2147483648"},
                                                                   {"TEST_UI32", "4294967295"},
                                                                   {"TEST_F32", "-0.1"},
                                                                   {"TEST_F64", "1e-300"},
                                                                   {"TEST_V", "9.8.7a6p5"},
                                                                   {"TEST_I64", "-9223372036854775808"},
                                                                   {"TEST_UI64", "18446744073709551615"}};
    for (const auto& [name, value] : rows) {
        const std::string address = "HCN[4711]/TEST/" + name;
        const Ended ended = run({"set", address, value});
        EXPECT_EQ(ended.status, 0) << name;
        EXPECT_EQ(ended.out + ended.err, "") << name;
        EXPECT_EQ(valueOf(address), value + "\n");
    }
    EXPECT_EQ(kvinv({"set", "--ip", "127.0.70.1", "HCN[4711]/UNITNAME", "--", "-x y\xC3\xA4"}, with()).status, 0);
    EXPECT_EQ(valueOf("HCN[4711]/UNITNAME"), "-x y\xC3\xA4\n");
    EXPECT_EQ(run({"locks", "--json"}).out, "[]\n");
}

TEST_F(Remote, SetRefusesBeforeAnythingIsSent)
{
    const auto refused = [](const std::string& address, const std::string& value) {
        const Ended ended = run({"set", address, value}, with({"KVINV_TRACE=1"}));
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.out, "");
        const std::vector<std::string> told = lines(ended.err);
        EXPECT_EQ(told.size(), 2U) << ended.err;
        EXPECT_EQ(told.front().substr(0, 45), "kvinv: call 127.0.70.1 readParameter(): resul");
        return told.back();
    };
    EXPECT_EQ(refused("HCN[4711]/NAME", "x"), "kvinv: HCN[4711]/NAME is not modifiable");
    EXPECT_EQ(refused("HCN[4711]/TEST/TEST_UI8", "256"),
              "kvinv: HCN[4711]/TEST/TEST_UI8: UInt8 takes an integer from 0 to 255, not 256");
    EXPECT_EQ(refused("HCN[4711]/TEST/TEST_V", "1"),
              "kvinv: HCN[4711]/TEST/TEST_V: Version takes a version, for example 3.1.2b4p7, not 1");
}

TEST_F(Remote, LockRunsACommandAndEndsAsItDoes)
{
    const Ended ended = run({"lock", "HCN[4711]", "--", "sh", "-c", "echo \"$KVINV_ACCESS\"; exit 7"});
    EXPECT_EQ(ended.status, 7);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.out.substr(0, 5), "4711:");
    EXPECT_EQ(run({"lock", "HCN[4711]", "--", "sh", "-c", "kill -9 $$"}).status, 137);
    EXPECT_EQ(run({"lock", "HCN[4711]", "--", "true", "--ip", "-x"}).status, 0);
    const Ended none = run({"lock", "HCN[4711]", "--", "/no/such/command"});
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.err, "kvinv: /no/such/command: No such file or directory\n");
    EXPECT_EQ(run({"locks", "--json"}).out, "[]\n");
}

TEST_F(Remote, CommandsInsideALockUseIt)
{
    const std::string kvinvIp = std::string(KVINV_PROGRAM) + " ";
    const std::string ip = " --ip 127.0.70.1 ";
    const Ended inside =
        run({"lock", "HCN[4711]", "--", "sh", "-c",
             kvinvIp + "set" + ip + "'HCN[4711]/LOCATION' inside && " + kvinvIp + "get" + ip +
                 "'HCN[4711]/LOCATION' && " + kvinvIp + "locks" + ip + "&& " + kvinvIp + "lock" + ip +
                 "'HCN[4711]' -- sh -c 'echo again $KVINV_ACCESS' && " + kvinvIp + "locks --json" + ip});
    EXPECT_EQ(inside.status, 0) << inside.err;
    const std::vector<std::string> told = lines(inside.out);
    ASSERT_EQ(told.size(), 7U) << inside.out;
    EXPECT_EQ(told[0], "inside");
    EXPECT_EQ(told[1].substr(0, 13), "serial  level");
    EXPECT_EQ(told[2].substr(0, 14), "  4711  modify");
    EXPECT_EQ(told[3].substr(0, 11), "again 4711:");
    // Neither of them has given the lock back.
    EXPECT_EQ(told[5].substr(0, 42), " {\"serialNumber\": 4711, \"level\": \"modify\",");
    EXPECT_EQ(run({"locks", "--json"}).out, "[]\n");
}

TEST_F(Remote, WhoeverHoldsTheLockKeepsOthersOut)
{
    const Ended outside =
        run({"lock", "HCN[4711]", "--", "sh", "-c",
             "unset KVINV_ACCESS; " + std::string(KVINV_PROGRAM) + " set --ip 127.0.70.1 'HCN[4711]/LOCATION' x"});
    EXPECT_EQ(outside.status, 1);
    EXPECT_NE(outside.err.find("is locked by"), std::string::npos) << outside.err;
    EXPECT_NE(outside.err.find("kvinv: error 0x160081f: Access denied."), std::string::npos) << outside.err;
    // A lock on one board is none on another.
    EXPECT_EQ(run({"lock", "HCN[4712]", "--", "sh", "-c",
                   std::string(KVINV_PROGRAM) + " set --ip 127.0.70.1 'HCN[4711]/LOCATION' y"})
                  .status,
              0);
}

TEST_F(Remote, AnAccessIdThatIsNoneIsRefused)
{
    const Ended wrong = run({"set", "HCN[4711]/LOCATION", "z"}, with({"KVINV_ACCESS=4711:77"}));
    EXPECT_EQ(wrong.status, 1);
    EXPECT_NE(wrong.err.find("kvinv: error 0x1600801: "), std::string::npos) << wrong.err;
    for (const char* text : {"x", "4711", "4711:", ":5", "4711:0", "4711:x", "4711:4294967296"}) {
        const Ended junk = run({"set", "HCN[4711]/LOCATION", "z"}, with({std::string("KVINV_ACCESS=") + text}));
        EXPECT_EQ(junk.status, 1);
        EXPECT_EQ(junk.err, std::string("kvinv: KVINV_ACCESS must be SERIAL:ID, not ") + text + "\n");
    }
    EXPECT_NE(valueOf("HCN[4711]/LOCATION"), "z\n");
}

TEST_F(Remote, AnInterruptionOfTheCommandGivesTheLockBack)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::vector<std::string> arguments = {"lock", "--ip", "127.0.70.1", "HCN[4711]",
                                              "--",   "sh",   "-c",         "echo locked; exec sleep 600"};
        Running running(KVINV_PROGRAM, arguments, with());
        ASSERT_TRUE(running.waitFor("locked"));
        EXPECT_EQ(lines(run({"locks"}).out).size(), 2U);
        running.signal(signal);
        const Ended ended = running.wait();
        EXPECT_EQ(ended.status, 128 + signal);
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(run({"locks", "--json"}).out, "[]\n");
    }
}

TEST_F(Remote, ACommandThatSurvivesInterruptionsKeepsTheLockAndItsStatus)
{
    Running running(
        KVINV_PROGRAM,
        {"lock", "--ip", "127.0.70.1", "HCN[4711]", "--", "sh", "-c",
         "n=0; trap 'n=$((n+1)); echo caught $n' INT; echo locked; while [ $n -lt 3 ]; do sleep 0.02; done; "
         "exit 5"},
        with());
    ASSERT_TRUE(running.waitFor("locked"));
    for (const char* caught : {"caught 1", "caught 2", "caught 3"}) {
        EXPECT_EQ(lines(run({"locks"}).out).size(), 2U);
        running.signal(SIGINT);
        ASSERT_TRUE(running.waitFor(caught));
    }
    EXPECT_EQ(running.wait().status, 5);
    EXPECT_EQ(run({"locks", "--json"}).out, "[]\n");
}

TEST_F(Remote, ALostLockDoesNotGoUnnoticed)
{
    const std::string port = "17171";
    std::unique_ptr<Running> service = startService(
        "{\"serialNumber\": 9, \"boardType\": 6003, \"boardName\": \"IO\", \"systemName\": \"S\", \"address\": "
        "\"127.0.70.9\", \"tree\": {\"id\": \"HCN\", \"index\": 9}}",
        port);
    ASSERT_NE(service, nullptr);
    put("go", "");
    Running running(KVINV_PROGRAM,
                    {"lock", "--ip", "127.0.70.9", "HCN[9]", "--", "sh", "-c",
                     "echo locked; while [ -e " + path("go") + " ]; do sleep 0.05; done"},
                    with({}, port));
    ASSERT_TRUE(running.waitFor("locked"));
    service.reset();
    std::filesystem::remove(path("go"));
    const Ended ended = running.wait();
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("kvinv: error 0x1600821: "), std::string::npos) << ended.err;
}

TEST_F(Remote, ABoardThatFailsWhileItIsReadLeavesTheOthersDelivered)
{
    // It says who it is, but has no memory for the answer that its tree takes.
    const std::unique_ptr<Running> failing = startService(
        "{\"serialNumber\": 4710, \"boardType\": 6003, \"boardName\": \"full\", \"systemName\": \"S\", \"address\": "
        "\"127.0.70.5\", \"tree\": {\"id\": \"HCN\", \"index\": 4710, \"parameters\": [{\"id\": \"NAME\", \"type\": "
        "\"String\", \"value\": \"" +
            std::string(200000, 'x') + "\"}]}}",
        portMapperPort, {"--max-memory", "65536"});
    ASSERT_NE(failing, nullptr);
    const std::string selection = "127.0.70.5,127.0.70.1,127.0.70.2";
    EXPECT_EQ(kvinv({"discover", "--ip", selection}, with()).status, 0);
    const Ended ended = kvinv({"scan", "--ip", selection, "-o", path("x.inv")}, with());
    EXPECT_EQ(ended.status, 3);
    EXPECT_NE(ended.err.find("could not be read\n"), std::string::npos) << ended.err;
    EXPECT_EQ(kvinv({"diff", path("x.inv"), "ip:127.0.70.1,127.0.70.2"}, with()).status, 0) << "the others are whole";
    const Ended none = kvinv({"scan", "--ip", "127.0.70.5", "-o", path("y.inv")}, with());
    EXPECT_NE(none.status, 0);
}

TEST_F(Remote, TextsOfBoardsDoNotSteerTheTerminal)
{
    const std::string port = "17172";
    const std::unique_ptr<Running> service = startService(
        "{\"serialNumber\": 8, \"boardType\": 6003, \"boardName\": \"a\\u001b[2J\\nb\", \"systemName\": \"S\", "
        "\"address\": "
        "\"127.0.70.8\", \"tree\": {\"id\": \"HCN\", \"index\": 8, \"parameters\": [{\"id\": \"NAME\", \"type\": "
        "\"String\", "
        "\"value\": \"v\\u001b[1m\"}]}}",
        port);
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(lines(kvinv({"discover", "--ip", "127.0.70.8"}, with({}, port)).out).back(),
              "     8  KV6003  a\\x1b[2J\\nb  S       127.0.70.8");
    Circumstances terminal = with({}, port);
    EXPECT_EQ(kvinv({"get", "--ip", "127.0.70.8", "HCN[8]/NAME"}, terminal).out, "v\x1b[1m\n");
    terminal.onTerminal = true;
    EXPECT_EQ(kvinv({"get", "--ip", "127.0.70.8", "HCN[8]/NAME"}, terminal).out, "v\\x1b[1m\r\n");
}
