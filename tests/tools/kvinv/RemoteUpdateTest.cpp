#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/tools/kvinv/BoardService.h"

/* Files on boards, and updates, against the real service. */

namespace {

const char* const portMapperPort = "17173";
const std::string ip = "127.0.70.1,127.0.70.2";
const std::string item = "HCN[4711]/FIRMWARE";

class Changing : public BoardServiceTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        // The service leaves root when it can, and its folder has to be its own.
        std::filesystem::permissions(m_folder, std::filesystem::perms::all);
        begin("1");
    }
    void begin(const std::string& updateSeconds)
    {
        service = startService({}, portMapperPort, {"--update-seconds", updateSeconds});
        ASSERT_NE(service, nullptr) << "the service does not start";
    }
    static Ended run(std::vector<std::string> arguments, Circumstances circumstances = {})
    {
        const auto dashes = std::find(arguments.begin(), arguments.end(), "--");
        arguments.insert(dashes, {"--ip", ip});
        circumstances.environment.push_back(std::string("KVDAL_PORTMAP_PORT=") + portMapperPort);
        return kvinv(arguments, circumstances);
    }
    std::unique_ptr<Running> start(std::vector<std::string> arguments, bool errorsOnTerminal = false) const
    {
        if (std::find(arguments.begin(), arguments.end(), "--") == arguments.end())
            arguments.insert(arguments.end(), {"--ip", ip});
        Circumstances circumstances = with({}, portMapperPort);
        circumstances.errorsOnTerminal = errorsOnTerminal;
        return std::make_unique<Running>(KVINV_PROGRAM, arguments, circumstances);
    }
    /** An image of `bytes` zeros whose section has the parameters. */
    std::string image(const std::string& parameters, const std::string& itemName = "FIRMWARE", std::size_t bytes = 5000)
    {
        put("tree.json",
            "{\"format\": \"korvel-inventory\", \"version\": 1, \"tree\": {\"id\": \"ROOT\", \"items\": "
            "[{\"id\": \"" +
                itemName + "\", \"parameters\": [" + parameters + "]}]}}");
        put("image.bin", std::string(bytes, '\0'));
        EXPECT_EQ(kvinv({"import", path("tree.json"), "--append", "-o", path("image.bin")}).err, "");
        return path("image.bin");
    }
    static std::string version(const std::string& text)
    {
        return "{\"id\": \"VERSION\", \"type\": \"Version\", \"value\": \"" + text + "\"}";
    }
    static std::string number(const std::string& id, const std::string& value)
    {
        return "{\"id\": \"" + id + "\", \"type\": \"UInt32\", \"value\": " + value + "}";
    }
    static std::string versionOnBoard() { return run({"get", item + "/VERSION"}).out; }
    void expectNothingLeft() const
    {
        EXPECT_EQ(run({"locks", "--json"}).out, "[]\n");
        EXPECT_EQ(run({"ls", "--json", "HCN[4711]"}).out.substr(0, 12), "{\"files\": []");
    }
    /** A file too large to be transferred at once. */
    std::string largeFile(const char* name, unsigned megabytes = 300)
    {
        put(name, "");
        std::filesystem::resize_file(path(name), std::uintmax_t{megabytes} << 20);
        return path(name);
    }

    std::unique_ptr<Running> service;
};

std::string told(const std::string& onBoard, const std::string& inImage, const std::string& file)
{
    return "board: " + item + " has version " + onBoard + "\nimage: " + file + " has version " + inImage +
           " (UserFirmware, " + std::to_string(std::filesystem::file_size(file)) + " bytes)\n";
}

}  // namespace

TEST_F(Changing, PutPrintsTheNameUnderWhichTheFileIsListedAndDeleted)
{
    put("a.bin", std::string(100000, 'x'));
    const Ended stored = run({"put", "HCN[4711]", path("a.bin")});
    EXPECT_EQ(stored.status, 0);
    EXPECT_EQ(stored.err, "");
    ASSERT_FALSE(stored.out.empty());
    const std::string name = stored.out.substr(0, stored.out.size() - 1);
    EXPECT_NE(name.find('/'), std::string::npos);
    const std::vector<std::string> listed = lines(run({"ls", "HCN[4711]"}).out);
    ASSERT_EQ(listed.size(), 3U);
    EXPECT_EQ(listed[0], "  size  modified              name");
    EXPECT_EQ(listed[1].substr(0, 8), "100000  ");
    EXPECT_EQ(listed[1].substr(18, 1) + listed[1].substr(27, 3),
              "T"
              "Z  ");
    EXPECT_EQ(listed[1].substr(30), name);
    EXPECT_NE(listed[2].find(" bytes free"), std::string::npos);
    const std::string json = run({"ls", "--json", "HCN[4711]"}).out;
    EXPECT_NE(json.find("{\"name\": \"" + name + "\", \"size\": 100000, \"modified\": \"20"), std::string::npos)
        << json;
    EXPECT_EQ(lines(run({"ls", "HCN[4712]"}).out).size(), 2U) << "another board has none";
    const Ended gone = run({"rm", "HCN[4711]", name});
    EXPECT_EQ(gone.status, 0);
    EXPECT_EQ(gone.out + gone.err, "");
    expectNothingLeft();
    const Ended again = run({"rm", "HCN[4711]", name});
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.err.find("kvinv: error 0x1600815: "), std::string::npos) << again.err;
    expectNothingLeft();
}

TEST_F(Changing, AFileWithoutBytesCanBePut)
{
    put("empty", "");
    const Ended stored = run({"put", "--json", "HCN[4711]/CPU", path("empty")});
    EXPECT_EQ(stored.status, 0) << stored.err;
    EXPECT_NE(stored.out.find("\"size\": 0}\n"), std::string::npos) << stored.out;
    EXPECT_NE(run({"ls", "HCN[4711]"}).out.find("\n   0  20"), std::string::npos);
}

TEST_F(Changing, WhatCannotBeReadIsToldBeforeAnythingIsSent)
{
    const Circumstances traced = with({"KVINV_TRACE=1"}, portMapperPort);
    for (const char* command : {"put", "update"}) {
        const Ended missing = run({command, item, path("none")}, traced);
        EXPECT_EQ(missing.status, 1);
        EXPECT_EQ(missing.err, "kvinv: " + path("none") + ": No such file or directory\n");
        const Ended folder = run({command, item, m_folder.string()}, traced);
        EXPECT_EQ(folder.status, 1);
        EXPECT_EQ(folder.err, "kvinv: " + m_folder.string() + ": only a regular file can be put on a board\n");
        const Ended device = run({command, item, "/dev/null"}, traced);
        EXPECT_EQ(device.status, 1);
        EXPECT_EQ(device.err, "kvinv: /dev/null: only a regular file can be put on a board\n");
        const Ended input = run({command, item, "-"}, traced);
        EXPECT_EQ(input.status, 1);
        EXPECT_EQ(input.err, "kvinv: standard input: only a regular file can be put on a board\n");
    }
    EXPECT_EQ(run({"rm", "HCN[4711]", "folder/"}).status, 2);
    EXPECT_EQ(run({"rm", "HCN[4711]", ""}).err, "kvinv: \"\" is no name of a file (kvinv ls lists them)\n");
}

TEST_F(Changing, ALockedBoardIsLeftAlone)
{
    const std::string inside = " --ip 127.0.70.1 'HCN[4711]' " + sample("rack-boards.json");
    const Ended ended = run(
        {"lock", "HCN[4711]", "--", "sh", "-c", "unset KVINV_ACCESS; " + std::string(KVINV_PROGRAM) + " put" + inside});
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("kvinv: error 0x160081f: Access denied."), std::string::npos) << ended.err;
    expectNothingLeft();
}

TEST_F(Changing, InsideALockItIsUsed)
{
    const std::string self = KVINV_PROGRAM;
    const std::string board = " --ip 127.0.70.1 'HCN[4711]'";
    const Ended ended = run({"lock", "HCN[4711]", "--", "sh", "-c",
                             "name=$(" + self + " put" + board + " " + sample("rack-boards.json") + ") && " + self +
                                 " rm" + board + " $name && " + self + " update --ip 127.0.70.1 -q '" + item + "' " +
                                 sample("firmware-image.bin") + " && " + self + " locks --json --ip 127.0.70.1"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    const std::vector<std::string> said = lines(ended.out);
    ASSERT_EQ(said.size(), 6U) << ended.out;
    EXPECT_EQ(said[2], "updated: " + item + " to version 4.0.1b2");
    EXPECT_NE(said[4].find("\"level\": \"modify\""), std::string::npos) << "it has not been given back";
    expectNothingLeft();
}

TEST_F(Changing, AGoodImageUpdatesTheBoard)
{
    const std::string file = sample("firmware-image.bin");
    const Ended dry = run({"-vv", "update", "--dry-run", item, file});
    EXPECT_EQ(dry.status, 0);
    EXPECT_EQ(dry.out, told("3.1.2b4p7", "4.0.1b2", file) + "dry run: nothing was changed\n");
    for (const std::string& line : lines(dry.err))
        EXPECT_NE(line.find(" readParameter(): result 0, "), std::string::npos) << "only reading: " << line;
    EXPECT_EQ(versionOnBoard(), "3.1.2b4p7\n");
    const Ended good = run({"update", item, file});
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.out, told("3.1.2b4p7", "4.0.1b2", file) + "updated: " + item + " to version 4.0.1b2\n");
    EXPECT_EQ(good.err,
              "kvinv: transferring " + file +
                  " (90519 bytes)\nkvinv: the board is programming\nkvinv: the board has verified the image\n");
    EXPECT_EQ(versionOnBoard(), "4.0.1b2\n");
    expectNothingLeft();
    const Ended again = run({"update", item, file});
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(again.out, told("4.0.1b2", "4.0.1b2", file));
    EXPECT_EQ(again.err, "kvinv: version 4.0.1b2 of " + file + " is not newer than 4.0.1b2 of " + item +
                             "; nothing was changed (--force tries it all the same)\n");
    EXPECT_EQ(run({"update", "-q", "--force", "--kind", "0", item, file}).status, 0);
    expectNothingLeft();
}

TEST_F(Changing, AnOlderImageIsTakenOnlyByForce)
{
    const std::string file = image(version("2.0"));
    const Ended refused = run({"update", "--json", item, file});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(
        refused.out.find("\"onBoard\": \"3.1.2b4p7\", \"inImage\": \"2.0\", \"result\": \"refused\", \"errors\": []}"),
        std::string::npos)
        << refused.out;
    EXPECT_EQ(versionOnBoard(), "3.1.2b4p7\n");
    EXPECT_EQ(run({"update", "--force", item, file}).status, 0);
    EXPECT_EQ(versionOnBoard(), "2.0\n");
}

TEST_F(Changing, AnImageThatDoesNotFitIsRefusedBeforeAnythingIsChanged)
{
    put("plain.bin", std::string(3000, 'x'));
    const std::vector<std::pair<std::string, std::string>> rows = {
        {path("plain.bin"), "no inventory section in " + path("plain.bin")},
        {sample("broken/unit-101.inv"),
         "the inventory section in " + sample("broken/unit-101.inv") + " cannot be read"},
        {sample("single-board.inv"),
         "version 3.1.2b4p7 of " + sample("single-board.inv") + " is not newer than 3.1.2b4p7 of " + item}};
    for (const auto& [file, why] : rows) {
        const Ended ended = run({"-vv", "update", item, file});
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(lines(ended.err).back(), "kvinv: " + why + "; nothing was changed (--force tries it all the same)");
        EXPECT_EQ(ended.err.find("RequestAccess"), std::string::npos);
    }
    const std::string other = image(version("9.0"), "CPU");
    EXPECT_EQ(run({"update", item, other}).err,
              "kvinv: " + other +
                  " is no image for UserFirmware: it has no item FIRMWARE; nothing was changed "
                  "(--force tries it all the same)\n");
    EXPECT_EQ(run({"update", "HCN[4711]/FPGA", other}).err,
              "kvinv: " + other +
                  " is no image for UserFpga: it has no item FPGA, FPGAFIRMWARE or USERFPGA; nothing was "
                  "changed (--force tries it all the same)\n");
    const std::string silent = image(number("SIZE", "5000"));
    EXPECT_EQ(run({"update", item, silent}).err, "kvinv: " + silent +
                                                     " does not say which version it is; nothing was changed (--force "
                                                     "tries it all the same)\n");
    const Ended nowhere = run({"update", "HCN[4711]/FIRMWARE[7]", image(version("9.0"))});
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_EQ(
        lines(nowhere.err).back(),
        "kvinv: the version of HCN[4711]/FIRMWARE[7] cannot be read; nothing was changed (--force tries it all the "
        "same)");
    EXPECT_EQ(versionOnBoard(), "3.1.2b4p7\n");
    expectNothingLeft();
}

TEST_F(Changing, WhatTheBoardRefusesIsTheEndAlsoByForce)
{
    const std::string file = image(version("9.0") + ", " + number("MIN_HW_COMPATIBILITY_ID", "900"));
    for (const char* option : {"-q", "--force"}) {
        const Ended ended = run({"update", option, item, file});
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.out, told("3.1.2b4p7", "9.0", file));
        EXPECT_NE(ended.err.find("kvinv: error 0x302"), std::string::npos) << ended.err;
        EXPECT_NE(ended.err.find("kvinv: error 0x160080f: "), std::string::npos) << ended.err;
        expectNothingLeft();
    }
    put("plain.bin", std::string(3000, 'x'));
    EXPECT_EQ(run({"update", "--force", item, path("plain.bin")}).status, 1);
    EXPECT_EQ(versionOnBoard(), "3.1.2b4p7\n");
    expectNothingLeft();
}

TEST_F(Changing, AnUpdateThatEndsWithErrorsTellsThem)
{
    const std::string file =
        image(version("9.0") + ", " + number("SIZE", "5000") + ", " + number("CHECKSUM_CRC32", "1"));
    for (const std::vector<std::string>& kind : {std::vector<std::string>{}, {"--kind", "0"}}) {
        std::vector<std::string> arguments = {"update", item, file};
        arguments.insert(arguments.end(), kind.begin(), kind.end());
        const Ended ended = run(arguments);
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.out, told("3.1.2b4p7", "9.0", file));
        EXPECT_NE(ended.err.find("kvinv: the board is programming\n"), std::string::npos);
        EXPECT_NE(ended.err.find("kvinv: error 0x302"), std::string::npos) << ended.err;
        EXPECT_EQ(lines(ended.err).back(), "kvinv: the update has failed");
        expectNothingLeft();
    }
    EXPECT_EQ(versionOnBoard(), "3.1.2b4p7\n");
}

TEST_F(Changing, TheFirmwareTypeIsNamedWhereTheAddressDoesNotSayIt)
{
    const Ended unsaid = run({"update", "HCN[4711]/CPU", sample("firmware-image.bin")});
    EXPECT_EQ(unsaid.status, 2);
    EXPECT_EQ(unsaid.err, "kvinv: HCN[4711]/CPU does not say which firmware is meant; --type does\n");
    const Ended near = run({"update", "--type", "UserFirmwrae", item, sample("firmware-image.bin")});
    EXPECT_EQ(near.status, 2);
    EXPECT_EQ(
        near.err,
        "kvinv: --type takes UserFirmware, FactoryFirmware, UserFpga, FactoryFpga, CnCpuConfiguration, "
        "FactoryIplFirmware, UserIplFirmware, CnFirmware, CnIplFirmware, BootLoader, IoFpga1, IoFpga2 or IoFpga3, "
        "not UserFirmwrae; did you mean UserFirmware? (kvinv update --help says more)\n");
    EXPECT_EQ(run({"update", "--kind", "x", item, sample("firmware-image.bin")}).err,
              "kvinv: --kind takes a number from 0 to 4294967295, not x\n");
    const Ended factory = run({"update", "-q", "--type", "FactoryFirmware", item, sample("firmware-image.bin")});
    EXPECT_EQ(factory.status, 0) << factory.err;
    EXPECT_NE(factory.out.find("(FactoryFirmware, "), std::string::npos);
}

TEST_F(Changing, AnInterruptedTransferLeavesNeitherFileNorLock)
{
    const std::string file = largeFile("large.bin");
    for (const char* command : {"put", "update"}) {
        std::vector<std::string> arguments = {command, item, file};
        if (arguments[0] == "update")
            arguments.push_back("--force");
        const std::unique_ptr<Running> running = start(arguments);
        ASSERT_TRUE(service->waitFor(" is being put from ", "err"));
        running->signal(SIGINT);
        const Ended ended = running->wait();
        EXPECT_EQ(ended.status, 130);
        EXPECT_EQ(lines(ended.err).back(), "kvinv: interrupted");
        expectNothingLeft();
        service.reset();
        begin("1");
    }
}

TEST_F(Changing, AnUpdateThatIsUnderWayIsNotInterrupted)
{
    for (const bool onTerminal : {false, true}) {
        const std::unique_ptr<Running> running =
            start({"update", item, onTerminal ? image(version("5.0")) : sample("firmware-image.bin")}, onTerminal);
        ASSERT_TRUE(service->waitFor(onTerminal ? "to version 5.0 begun" : "to version 4.0.1b2 begun", "err"));
        running->signal(SIGINT);
        const Ended ended = running->wait();
        EXPECT_EQ(ended.status, 130);
        EXPECT_NE(ended.err.find("the board is programming, which is not interrupted"), std::string::npos) << ended.err;
        EXPECT_EQ(versionOnBoard(), onTerminal ? "5.0\n" : "4.0.1b2\n");
        expectNothingLeft();
    }
}

TEST_F(Changing, ASecondInterruptionLeavesTheUpdateToTheBoardWithoutALock)
{
    service.reset();
    begin("3");
    const std::unique_ptr<Running> running = start({"update", item, sample("firmware-image.bin")});
    ASSERT_TRUE(running->waitFor("kvinv: the board is programming\n", "err"));
    running->signal(SIGINT);
    ASSERT_TRUE(running->waitFor("another interruption", "err"));
    running->signal(SIGINT);
    const Ended ended = running->wait();
    EXPECT_EQ(ended.status, 130);
    EXPECT_EQ(run({"locks", "--json"}).out, "[]\n");
    EXPECT_EQ(versionOnBoard(), "3.1.2b4p7\n") << "it is not over yet";
    ASSERT_TRUE(service->waitFor("to version 4.0.1b2 is done", "err"));
    EXPECT_EQ(versionOnBoard(), "4.0.1b2\n");
    // What it said about the file is so.
    const std::size_t begin = ended.err.find("kvinv rm HCN[4711] ") + 19;
    const std::string name = ended.err.substr(begin, ended.err.find(" deletes the image there") - begin);
    EXPECT_EQ(run({"rm", "HCN[4711]", name}).status, 0) << name;
    expectNothingLeft();
}

TEST_F(Changing, ASecondInterruptionInsideALockDoesTheSame)
{
    service.reset();
    begin("3");
    const std::string told = path("told");
    const std::string update =
        "exec " KVINV_PROGRAM " update --ip " + ip + " " + item + " " + sample("firmware-image.bin") + " 2> " + told;
    const std::unique_ptr<Running> running = start({"lock", "HCN[4711]", "--ip", ip, "--", "sh", "-c", update});
    for (const char* text : {"kvinv: the board is programming\n", "another interruption"}) {
        for (int i = 0; i < 1000 && content(told).find(text) == std::string::npos; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        running->signal(SIGINT);
    }
    EXPECT_EQ(running->wait().status, 130);
    EXPECT_NE(content(told).find("kvinv: warning: the update is left to the board;"), std::string::npos);
    EXPECT_EQ(run({"locks", "--json"}).out, "[]\n");
}

TEST_F(Changing, AFileMayHaveAnyNameInUtf8)
{
    put("gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80", "content");
    EXPECT_EQ(run({"put", item, path("gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80")}).err, "");
    put("\xff", "content");
    EXPECT_EQ(run({"put", item, path("\xff")}).err,
              "kvinv: " + path("\\xff") + ": a file with a name that is not UTF-8 cannot be put on a board\n");
}

TEST_F(Changing, PutShowsABarOnATerminal)
{
    const std::unique_ptr<Running> running = start({"put", item, largeFile("large.bin", 10)}, true);
    const Ended ended = running->wait();
    EXPECT_EQ(ended.status, 0);
    EXPECT_NE(ended.err.find("100 % transferring\x1b[K\r\n"), std::string::npos) << ended.err;
    EXPECT_EQ(lines(ended.out).size(), 1U);
}
