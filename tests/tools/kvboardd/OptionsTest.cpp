#include "tools/kvboardd/Options.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using KvNBoardService::CommandLine;

CommandLine read(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "kvboardd");
    return KvNBoardService::readCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

TEST(OptionsTest, LimitsHaveTheirDefaults)
{
    const CommandLine line = read({"--boards", "b.json"});
    ASSERT_TRUE(line.proceed) << line.text;
    EXPECT_EQ(line.options.boards, "b.json");
    EXPECT_FALSE(line.options.host);
    EXPECT_FALSE(line.options.user.has_value());
    EXPECT_EQ(line.options.state, "");
    EXPECT_EQ(line.options.portMapper, 0);
    EXPECT_EQ(line.options.port, 0);
    EXPECT_FALSE(line.options.rpcbind);
    EXPECT_FALSE(line.options.allAddresses);
    EXPECT_EQ(line.options.leaseSeconds, 20u);
    EXPECT_EQ(line.options.updateSeconds, 2u);
    EXPECT_EQ(line.options.maximumLocks, 64u);
    EXPECT_EQ(line.options.connections, 64u);
    EXPECT_EQ(line.options.connectionsPerSource, 8u);
    EXPECT_EQ(line.options.firstRecordSeconds, 10u);
    EXPECT_EQ(line.options.recordSeconds, 10u);
    EXPECT_EQ(line.options.outputSeconds, 10u);
    EXPECT_EQ(line.options.idleSeconds, 300u);
    EXPECT_EQ(line.options.requestBytes, 1052672u);
    EXPECT_EQ(line.options.memoryBytes, 67108864u);
}

TEST(OptionsTest, EverythingCanBeSet)
{
    const CommandLine line = read({"--boards",
                                   "b",
                                   "--state",
                                   "s",
                                   "--portmap",
                                   "10111",
                                   "--port",
                                   "7000",
                                   "--all-addresses",
                                   "--lease-seconds",
                                   "2",
                                   "--update-seconds",
                                   "7",
                                   "--max-locks",
                                   "3",
                                   "--max-connections",
                                   "4",
                                   "--max-connections-per-source",
                                   "5",
                                   "--first-record-seconds",
                                   "6",
                                   "--record-seconds",
                                   "7",
                                   "--output-seconds",
                                   "8",
                                   "--idle-seconds",
                                   "9",
                                   "--max-request",
                                   "2048",
                                   "--max-memory",
                                   "1048576",
                                   "--max-calls",
                                   "10",
                                   "--max-text",
                                   "11",
                                   "--max-chunk",
                                   "2000",
                                   "--max-wrong-ids",
                                   "12",
                                   "--wrong-id-seconds",
                                   "13"});
    ASSERT_TRUE(line.proceed) << line.text;
    EXPECT_EQ(line.options.state, "s");
    EXPECT_EQ(line.options.portMapper, 10111);
    EXPECT_EQ(line.options.port, 7000);
    EXPECT_TRUE(line.options.allAddresses);
    EXPECT_EQ(line.options.leaseSeconds, 2u);
    EXPECT_EQ(line.options.updateSeconds, 7u);
    EXPECT_EQ(line.options.maximumLocks, 3u);
    EXPECT_EQ(line.options.connections, 4u);
    EXPECT_EQ(line.options.connectionsPerSource, 5u);
    EXPECT_EQ(line.options.firstRecordSeconds, 6u);
    EXPECT_EQ(line.options.recordSeconds, 7u);
    EXPECT_EQ(line.options.outputSeconds, 8u);
    EXPECT_EQ(line.options.idleSeconds, 9u);
    EXPECT_EQ(line.options.requestBytes, 2048u);
    EXPECT_EQ(line.options.memoryBytes, 1048576u);
    EXPECT_EQ(line.options.callsPerConnection, 10u);
    EXPECT_EQ(line.options.textBytes, 11u);
    EXPECT_EQ(line.options.chunkBytes, 2000u);
    EXPECT_EQ(line.options.wrongIds, 12u);
    EXPECT_EQ(line.options.wrongIdSeconds, 13u);
}

TEST(OptionsTest, TheMachineItselfIsABoard)
{
    const CommandLine plain = read({"--host"});
    ASSERT_TRUE(plain.proceed) << plain.text;
    EXPECT_TRUE(plain.options.host);
    EXPECT_EQ(plain.options.boards, "");
    EXPECT_FALSE(plain.options.serial.has_value());
    EXPECT_EQ(plain.options.address, 0x7F000001u);
    const CommandLine full = read({"--host", "--serial", "4294967295", "--address", "10.1.2.3", "--user", "inventory"});
    ASSERT_TRUE(full.proceed) << full.text;
    EXPECT_EQ(full.options.serial, 4294967295u);
    EXPECT_EQ(full.options.address, 0x0A010203u);
    EXPECT_EQ(full.options.user, "inventory");
    EXPECT_EQ(read({"--host", "--serial", "0"}).options.serial, 0u);
}

TEST(OptionsTest, TheBoardsAndTheMachineExcludeEachOther)
{
    const auto refuses = [](const std::vector<const char*>& arguments, const char* reason) {
        const CommandLine line = read(arguments);
        EXPECT_EQ(line.status, 2);
        EXPECT_NE(line.text.find(reason), std::string::npos) << line.text;
    };
    refuses({}, "--boards FILE or --host is required");
    refuses({"--host", "--boards", "b"}, "--boards excludes --host");
    refuses({"--boards", "b", "--serial", "1"}, "--serial requires --host");
    refuses({"--boards", "b", "--address", "127.0.0.1"}, "--address requires --host");
    refuses({"--host", "--serial", "4294967296"}, "--serial");
    refuses({"--host", "--serial", "-1"}, "--serial");
    refuses({"--host", "--serial", "x"}, "--serial");
    for (const char* address : {"", "localhost", "127.0.0", "127.0.0.1.1", "127.0.0.256", "127.0.0.01", "::1"})
        refuses({"--host", "--address", address}, "is not an IPv4 address such as 127.0.0.11");
}

TEST(OptionsTest, TheHelpListsEveryOption)
{
    const CommandLine line = read({"--help"});
    EXPECT_FALSE(line.proceed);
    EXPECT_EQ(line.status, 0);
    for (const char* option : {"--boards",
                               "--host",
                               "--serial",
                               "--address",
                               "--user",
                               "--state",
                               "--portmap",
                               "--rpcbind",
                               "--port ",
                               "--all-addresses",
                               "--lease-seconds",
                               "--update-seconds",
                               "--max-locks",
                               "--max-wrong-ids",
                               "--wrong-id-seconds",
                               "--max-text",
                               "--max-chunk",
                               "--max-connections ",
                               "--max-connections-per-source",
                               "--max-calls",
                               "--first-record-seconds",
                               "--record-seconds",
                               "--output-seconds",
                               "--idle-seconds",
                               "--max-request",
                               "--max-memory",
                               "--version",
                               "Examples:"})
        EXPECT_NE(line.text.find(option), std::string::npos) << option;
    EXPECT_NE(line.text.find("1052672"), std::string::npos) << "defaults are shown";
}

TEST(OptionsTest, TheVersionIsShown)
{
    const CommandLine line = read({"--version"});
    EXPECT_EQ(line.status, 0);
    EXPECT_EQ(line.text.substr(0, 9), "kvboardd ");
}

TEST(OptionsTest, WrongUsageEndsWithTwo)
{
    const std::vector<std::vector<const char*>> wrong = {{},
                                                         {"--boards"},
                                                         {"--boards", "b", "--unknown"},
                                                         {"--boards", "b", "surplus"},
                                                         {"--boards", "b", "--portmap", "0"},
                                                         {"--boards", "b", "--portmap", "65536"},
                                                         {"--boards", "b", "--portmap", "x"},
                                                         {"--boards", "b", "--portmap", "111", "--rpcbind"},
                                                         {"--boards", "b", "--port", "-1"},
                                                         {"--boards", "b", "--lease-seconds", "0"},
                                                         {"--boards", "b", "--lease-seconds", "86401"},
                                                         {"--boards", "b", "--update-seconds", "86401"},
                                                         {"--boards", "b", "--max-locks", "65"},
                                                         {"--boards", "b", "--max-chunk", "1048577"}};
    for (const auto& arguments : wrong) {
        const CommandLine line = read(arguments);
        EXPECT_FALSE(line.proceed);
        EXPECT_EQ(line.status, 2);
        EXPECT_EQ(line.text.substr(0, 10), "kvboardd: ");
    }
}

}  // namespace
