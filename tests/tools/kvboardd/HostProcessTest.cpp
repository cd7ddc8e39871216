#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <sstream>

#include <pwd.h>
#include <sys/stat.h>

#include "BoardProcess.h"
#include "RawRpc.h"
#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/ids/KvNInventoryIDs.h"

namespace {

constexpr KvUInt32 loopback = 0x7F000001;
constexpr KvUInt32 elsewhere = 0x7F003C09;  // 127.0.60.9
constexpr KvUInt32 inventory = 8;
constexpr KvUInt32 access = 0x20004B56;
constexpr std::uint16_t servicePort = 10463;

/** The lines of a process's status (and of each of its threads'), "Name:\tvalue", by name. */
std::string statusLine(const std::filesystem::path& file, const std::string& name)
{
    std::ifstream status(file);
    for (std::string line; std::getline(status, line);)
        if (line.rfind(name + ":", 0) == 0)
            return line.substr(name.size() + 1);
    return "";
}

/** What stands in the status of every thread of the process, when it is the same. */
std::string ofAllThreads(pid_t process, const std::string& name)
{
    std::string all;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        const std::string one = statusLine(thread.path() / "status", name);
        if (!all.empty() && all != one)
            return "differs";
        all = one;
    }
    std::string result;
    std::istringstream words(all);
    for (std::string word; words >> word;)
        result += (result.empty() ? "" : " ") + word;
    return result;
}

std::string fourTimes(unsigned long id)
{
    const std::string one = std::to_string(id);
    return one + " " + one + " " + one + " " + one;
}

/** The machine itself, served by the program. */
class HostProcessTest : public testing::Test
{
protected:
    void start(std::vector<std::string> more = {})
    {
        more.insert(more.begin(), {"--host", "--port", std::to_string(servicePort)});
        m_process.start(more);
        ASSERT_EQ(m_process.output(), "ready: 1 boards\n") << m_process.log();
    }
    std::unique_ptr<KvCInventoryItem> scan(KvUInt32 address)
    {
        RawConnection connection(address, servicePort);
        const RawReply reply = connection.call(inventory, 1, 1, words({0}));
        EXPECT_TRUE(reply.isSuccess());
        WireReader reader(reply.body);
        EXPECT_EQ(reader.word(), 0u);
        const std::string stream = reader.counted();
        KvCErrorListPool errors;
        KvCBuffer buffer(errors);
        buffer.writeBuffer(errors, stream.data(), static_cast<KvUInt32>(stream.size()), 1);
        KvCInventoryItem* root = nullptr;
        KvCInventoryItemFactory(errors).deserialize(errors, root, &buffer);
        EXPECT_EQ(errors.getErrorCount(), 0);
        return std::unique_ptr<KvCInventoryItem>(root);
    }

    TemporaryFolder m_folder;
    BoardProcess m_process;
};

/** The program started by root, who can become somebody else. */
class RootProcessTest : public HostProcessTest
{
protected:
    void SetUp() override
    {
        std::ifstream map("/proc/self/uid_map");
        unsigned long inside = 0, outside = 0, count = 0;
        map >> inside >> outside >> count;
        if (geteuid() != 0 || count < 65535)
            GTEST_SKIP() << "needs root, and users whom it can become";
    }
    static passwd account(const char* name)
    {
        const passwd* found = getpwnam(name);
        EXPECT_NE(found, nullptr) << name;
        return found == nullptr ? passwd() : *found;
    }
    void expectPowerless(const passwd& user)
    {
        const pid_t process = m_process.id();
        EXPECT_EQ(ofAllThreads(process, "Uid"), fourTimes(user.pw_uid));
        EXPECT_EQ(ofAllThreads(process, "Gid"), fourTimes(user.pw_gid));
        EXPECT_EQ(ofAllThreads(process, "Groups"), "");
        EXPECT_EQ(ofAllThreads(process, "NoNewPrivs"), "1");
        for (const char* set : {"CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb"})
            EXPECT_EQ(ofAllThreads(process, set), "0000000000000000") << set;
    }
    unsigned owner(const std::string& name) const
    {
        struct stat status
        {};
        EXPECT_EQ(lstat(m_folder.path(name).c_str(), &status), 0) << name;
        return status.st_uid;
    }
};

TEST_F(HostProcessTest, TheMachineIsABoardOnLoopback)
{
    start({"--serial", "4242"});
    RawConnection connection(loopback, servicePort);
    EXPECT_EQ(connection.call(inventory, 1, 4).body, words({1, 2, 380, 4242, 0}));
    const RawReply reply = connection.call(access, 1, 1);
    WireReader reader(reply.body);
    EXPECT_EQ(reader.word(), 4242u);
    EXPECT_EQ(reader.word(), 0u);
    const std::string boardName = reader.counted();
    EXPECT_EQ(reader.counted(), boardName);
    char hostName[256] = {};
    ASSERT_EQ(gethostname(hostName, sizeof hostName - 1), 0);
    EXPECT_EQ(boardName, hostName);
    const auto tree = scan(loopback);
    ASSERT_TRUE(tree);
    EXPECT_TRUE(tree->getID() == KvNInventoryIDs::HCN[4242]);
    EXPECT_NE(tree->getParameter(KvNInventoryIDs::CPU / KvNInventoryIDs::NUMBER_OF_CORES), nullptr);
    EXPECT_NE(tree->getParameter(KvNInventoryIDs::RAM / KvNInventoryIDs::SIZE64), nullptr);
    EXPECT_NE(tree->getParameter(KvNInventoryIDs::FIRMWARE / KvNInventoryIDs::INFO), nullptr);
}

TEST_F(HostProcessTest, TheMachineIsNotUpdated)
{
    start({"--serial", "4242"});
    RawConnection connection(loopback, servicePort);
    const RawReply locked = connection.call(access, 1, 2, words({2, 0, 0, 1}) + counted("t"));
    WireReader lock(locked.body);
    EXPECT_EQ(lock.word(), 0u);
    const Bytes firmware = words({2, 4, 380, 4242, 9, 1});
    const RawReply refused =
        connection.call(inventory, 1, 7, firmware + words({lock.word()}) + counted("transfer/x") + words({0, 0, 0}));
    ASSERT_TRUE(refused.isSuccess());
    WireReader reader(refused.body);
    EXPECT_EQ(reader.word(), 1u);
    const std::string errors = reader.counted();
    EXPECT_NE(errors.find(std::string("\0\x30\x20\x15", 4)), std::string::npos);
}

TEST_F(HostProcessTest, TheSerialNumberOfAMachineStaysTheSame)
{
    const auto serial = [&]() -> KvUInt32 {
        start({"--address", "127.0.60.9"});
        const auto tree = scan(elsewhere);
        EXPECT_EQ(m_process.stop(), 0);
        return tree ? tree->getID().getIndex() : 0;
    };
    const KvUInt32 first = serial();
    EXPECT_NE(first, 0u);
    EXPECT_EQ(serial(), first);
}

TEST_F(HostProcessTest, AllAddressesNeedConsentHereToo)
{
    m_process.start({"--host", "--address", "0.0.0.0"});
    EXPECT_EQ(m_process.wait(), 1);
    EXPECT_NE(m_process.log().find("address 0.0.0.0 is permitted with --all-addresses only"), std::string::npos)
        << m_process.log();
    start({"--address", "0.0.0.0", "--all-addresses"});
    EXPECT_NE(m_process.log().find("listens on all addresses"), std::string::npos) << m_process.log();
    EXPECT_TRUE(RawConnection(elsewhere, servicePort).call(inventory, 1, 0).isSuccess());
}

TEST_F(RootProcessTest, RootIsGivenUpWhenEverythingIsOpen)
{
    start({"--portmap", "111", "--state", m_folder.path("state")});
    expectPowerless(account("nobody"));
    EXPECT_TRUE(RawConnection(loopback, 111).call(100000, 2, 0).isSuccess()) << "a port that only root can have";
    const std::string serial = std::filesystem::directory_iterator(m_folder.path("state"))->path().filename();
    EXPECT_EQ(owner("state/" + serial), account("nobody").pw_uid);
    EXPECT_EQ(owner("state/" + serial + "/files"), account("nobody").pw_uid);
    EXPECT_EQ(m_process.stop(), 0) << m_process.log();
}

TEST_F(RootProcessTest, TheUserCanBeNamed)
{
    start({"--user", "daemon"});
    expectPowerless(account("daemon"));
}

TEST_F(RootProcessTest, RootStaysWhenThatIsAskedFor)
{
    start({"--user", "root"});
    EXPECT_EQ(ofAllThreads(m_process.id(), "Uid"), fourTimes(0));
    EXPECT_EQ(ofAllThreads(m_process.id(), "NoNewPrivs"), "1");
    EXPECT_NE(m_process.log().find("warning: runs as root"), std::string::npos) << m_process.log();
}

TEST_F(RootProcessTest, WithoutItsUserTheServiceDoesNotStart)
{
    m_process.start({"--host", "--user", "no-such-user"});
    EXPECT_EQ(m_process.wait(), 1);
    EXPECT_EQ(m_process.output(), "");
    EXPECT_EQ(m_process.log(), "kvboardd: there is no user no-such-user\n");
}

TEST_F(RootProcessTest, WhatRootHasStoredBelongsToTheUserAfterwards)
{
    m_folder.write("board.json", R"({"format": "korvel-board", "version": 1, "boards": [{"serialNumber": 7, "tree":
        {"id": "HCN", "index": 7, "parameters": [{"id": "SLOT", "type": "UInt8", "value": 1, "modifiable": true}]}}]})");
    const auto startBoard = [&](const std::string& user) {
        m_process.start({"--boards", m_folder.path("board.json"), "--port", std::to_string(servicePort), "--state",
                         m_folder.path("state"), "--user", user});
        ASSERT_EQ(m_process.output(), "ready: 1 boards\n") << m_process.log();
    };
    const auto store = [&](char value) {
        RawConnection connection(loopback, servicePort);
        const RawReply reply =
            connection.call(access, 1, 2, words({2, 0, 0, static_cast<KvUInt32>(value)}) + counted("t"));
        WireReader lock(reply.body);
        EXPECT_EQ(lock.word(), 0u);
        const KvUInt32 id = lock.word();
        const Bytes slot = words({2, 4, 380, 7, 64, 1});
        const Bytes board = words({1, 2, 380, 7});
        const Bytes written = counted(std::string_view(&value, 1));
        EXPECT_EQ(connection.call(inventory, 1, 3, slot + words({id, 0x121}) + written).body.at(3), 0u);
        EXPECT_EQ(connection.call(inventory, 1, 6, board + words({id})).body.at(3), 0u);
    };
    startBoard("root");
    store(5);
    EXPECT_EQ(m_process.stop(), 0);
    EXPECT_EQ(owner("state/7/inventory.inv"), 0u);
    startBoard("nobody");
    EXPECT_EQ(owner("state/7/inventory.inv"), account("nobody").pw_uid);
    store(6);
    expectPowerless(account("nobody"));
    EXPECT_EQ(m_process.stop(), 0);
    startBoard("nobody");
    const auto tree = scan(loopback);
    ASSERT_TRUE(tree);
    KvCErrorListPool errors;
    EXPECT_EQ(tree->getValue<unsigned char>(errors, KvNInventoryIDs::SLOT), 6);
}

TEST_F(RootProcessTest, TheTemporaryFolderIsTheUsersAndGoesWithTheService)
{
    const std::filesystem::path place = m_process.temporaryPath();
    start();
    const auto found = std::filesystem::directory_iterator(place);
    ASSERT_NE(found, std::filesystem::directory_iterator());
    struct stat status
    {};
    ASSERT_EQ(lstat(found->path().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, account("nobody").pw_uid);
    EXPECT_EQ(m_process.stop(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(place));
}

}  // namespace
