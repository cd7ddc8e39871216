#include <gtest/gtest.h>

#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "BoardProcess.h"
#include "RawRpc.h"
#include "base/Crc32.h"

namespace {

namespace fs = std::filesystem;

constexpr KvUInt32 loopback = 0x7F000001;
constexpr std::uint16_t servicePort = 10464;
constexpr KvUInt32 inventory = 8;
constexpr KvUInt32 access = 0x20004B56;
constexpr std::size_t chunk = 65536;
constexpr KvUInt32 hcn = 380;

enum Status : KvUInt32
{
    Ok,
    BadAccess = 2,
    BadName = 4,
    NotFound,
    OutOfOrder = 7,
    NoSpace = 9
};

std::string pattern(std::size_t size)
{
    std::string result(size, 0);
    for (std::size_t i = 0; i < size; ++i)
        result[i] = static_cast<char>(i * 7 + i / 251);
    return result;
}

/** A client of the board 4711. */
class Client
{
public:
    Client() : m_connection(loopback, servicePort) {}

    KvUInt32 lock()
    {
        const RawReply reply = m_connection.call(access, 1, 2, words({2, 0, 0, 1}) + counted("ann@pc (test)"));
        WireReader reader(reply.body);
        return reply.isSuccess() && reader.word() == Ok ? m_accessId = reader.word() : 0;
    }
    /** Asks for a file name. */
    std::string name()
    {
        const Bytes where = words({1, 2, hcn, 4711, m_accessId});
        const RawReply reply = m_connection.call(inventory, 1, 10, where);
        WireReader reader(reply.body);
        EXPECT_EQ(reader.word(), Ok);
        EXPECT_EQ(characters(reader), "transfer");
        return characters(reader);
    }
    KvUInt32 begin(const std::string& name, KvUInt64 size)
    {
        const RawReply reply = m_connection.call(
            access, 1, 5,
            words({m_accessId}) + counted("transfer") + counted(name) + words({0, static_cast<KvUInt32>(size)}));
        WireReader reader(reply.body);
        m_status = reader.word();
        return m_transfer = reader.word();
    }
    /** Puts bytes; how many the board has then. */
    KvUInt64 put(KvUInt64 offset, std::string_view bytes)
    {
        const RawReply reply = m_connection.call(
            access, 1, 6, words({m_accessId, m_transfer, 0, static_cast<KvUInt32>(offset)}) + counted(bytes));
        WireReader reader(reply.body);
        EXPECT_TRUE(reply.isSuccess());
        m_status = reader.word();
        return reader.longWord();
    }
    KvUInt32 end(const std::string& content)
    {
        const KvUInt32 crc = KvNCrc32::crc32(0, content.data(), content.size());
        return status(m_connection.call(access, 1, 7, words({m_accessId, m_transfer, crc})));
    }
    KvUInt32 putFile(const std::string& name, const std::string& content)
    {
        begin(name, content.size());
        for (std::size_t at = 0; at < content.size() && m_status == Ok; at += chunk)
            put(at, std::string_view(content).substr(at, chunk));
        return m_status == Ok ? end(content) : m_status;
    }
    KvUInt32 remove(const std::string& name)
    {
        return status(m_connection.call(access, 1, 9, words({m_accessId}) + counted("transfer") + counted(name)));
    }
    /** The names of the files. */
    std::vector<std::string> list()
    {
        const RawReply reply = m_connection.call(access, 1, 11);
        WireReader reader(reply.body);
        EXPECT_TRUE(reply.isSuccess());
        EXPECT_EQ(reader.word(), Ok);
        std::vector<std::string> names(reader.word());
        for (std::string& name : names) {
            EXPECT_EQ(reader.counted(), "transfer");
            name = reader.counted();
            reader.longWord();
            reader.longWord();
        }
        reader.longWord();
        reader.counted();
        EXPECT_TRUE(reader.isDone());
        return names;
    }
    KvUInt32 lastStatus() const { return m_status; }
    RawConnection& connection() { return m_connection; }

private:
    static std::string characters(WireReader& reader)
    {
        std::string result(reader.word(), ' ');
        for (char& character : result)
            character = static_cast<char>(reader.word());
        return result;
    }
    static KvUInt32 status(const RawReply& reply)
    {
        EXPECT_TRUE(reply.isSuccess());
        return WireReader(reply.body).word();
    }

    RawConnection m_connection;
    KvUInt32 m_accessId = 0;
    KvUInt32 m_transfer = 0;
    KvUInt32 m_status = 0;
};

/** The program with one board, and its files in a folder of the test's. */
class FilesProcessTest : public testing::Test
{
protected:
    void start(std::vector<std::string> more = {})
    {
        const std::vector<std::string> arguments = {"--boards", KV_SAMPLES_DIR "/single-board.inv",
                                                    "--port",   std::to_string(servicePort),
                                                    "--state",  m_folder.path("state")};
        more.insert(more.begin(), arguments.begin(), arguments.end());
        m_process.start(more);
        ASSERT_EQ(m_process.output(), "ready: 1 boards\n") << m_process.log();
    }
    std::string place(const std::string& name) const { return m_folder.path("state/4711/files/" + name); }
    /** What stands in the folder of the files. */
    std::vector<std::string> inFolder() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(place("")))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    using Names = std::vector<std::string>;

    TemporaryFolder m_folder;
    BoardProcess m_process;
};

TEST_F(FilesProcessTest, FilesOfAllSizesArePutAndOutlastARestart)
{
    start();
    Names names;
    std::vector<std::string> contents;
    {
        Client client;
        ASSERT_NE(client.lock(), 0u);
        for (const std::size_t size : {std::size_t(0), std::size_t(1), chunk, 3 * chunk + 1, std::size_t(9) << 20}) {
            names.push_back(client.name());
            contents.push_back(pattern(size));
            ASSERT_EQ(client.putFile(names.back(), contents.back()), Ok) << size;
        }
    }
    for (std::size_t i = 0; i < names.size(); ++i)
        EXPECT_TRUE(m_folder.read("state/4711/files/" + names[i]) == contents[i]) << i;
    EXPECT_EQ(m_process.stop(), 0) << m_process.log();
    start();
    Client client;
    ASSERT_NE(client.lock(), 0u);
    const Names first = {names[0]};
    std::sort(names.begin(), names.end());
    EXPECT_EQ(client.list(), names);
    EXPECT_EQ(client.putFile(first[0], "other"), Ok) << "the name is good as long as the file is there";
    for (const std::string& name : names)
        EXPECT_EQ(client.remove(name), Ok);
    EXPECT_TRUE(inFolder().empty());
}

TEST_F(FilesProcessTest, AServiceKilledInMidTransferLeavesNothingOfIt)
{
    start();
    std::string complete;
    std::string unfinished;
    {
        Client client;
        ASSERT_NE(client.lock(), 0u);
        complete = client.name();
        unfinished = client.name();
        ASSERT_EQ(client.putFile(complete, "complete"), Ok);
        client.begin(unfinished, 2 * chunk);
        ASSERT_EQ(client.put(0, pattern(chunk)), chunk);
        client.begin(complete, 20);
        ASSERT_EQ(client.put(0, "not the whole"), 13u);
        ASSERT_EQ(m_process.stop(SIGKILL), 128 + SIGKILL);
        EXPECT_EQ(inFolder().size(), 2u) << "what it left";
    }
    start();
    EXPECT_EQ(inFolder(), Names{complete});
    EXPECT_EQ(m_folder.read("state/4711/files/" + complete), "complete");
    Client client;
    client.put(13, "...");
    EXPECT_EQ(client.lastStatus(), BadAccess) << "locks are gone too";
    ASSERT_NE(client.lock(), 0u) << "and free again";
    EXPECT_EQ(client.list(), Names{complete});
    client.begin(unfinished, 1);
    EXPECT_EQ(client.lastStatus(), BadName) << "a name under which nothing was put";
    EXPECT_EQ(client.remove(complete), Ok);
}

TEST_F(FilesProcessTest, AClientThatGoesAwayLeavesNothing)
{
    start({"--lease-seconds", "2"});
    {
        Client client;
        ASSERT_NE(client.lock(), 0u);
        client.begin(client.name(), 2 * chunk);
        ASSERT_EQ(client.put(0, pattern(chunk)), chunk);
        EXPECT_EQ(inFolder().size(), 1u);
    }
    for (int i = 0; i < 600 && !inFolder().empty(); ++i)
        usleep(100000);
    EXPECT_TRUE(inFolder().empty());
    EXPECT_NE(m_process.log().find("lock of level 2 not kept, a file dropped that was not complete"), std::string::npos)
        << m_process.log();
}

TEST_F(FilesProcessTest, ATransferGoesOnOverAnotherConnection)
{
    start();
    Client client;
    const KvUInt32 accessId = client.lock();
    client.begin(client.name(), 6);
    ASSERT_EQ(client.put(0, "abc"), 3u);
    RawConnection other(loopback, servicePort);
    const Bytes same = words({accessId, 1, 0, 0}) + counted("abc");
    EXPECT_EQ(other.call(access, 1, 6, same).body, words({Ok, 0, 3, 0})) << "a chunk whose answer was lost";
    const Bytes next = words({accessId, 1, 0, 3}) + counted("def");
    EXPECT_EQ(other.call(access, 1, 6, next).body, words({Ok, 0, 6, 0}));
    EXPECT_EQ(other.call(access, 1, 6, next).body, words({Ok, 0, 6, 0}));
    EXPECT_EQ(client.end("abcdef"), Ok);
    EXPECT_EQ(client.end("abcdef"), Ok) << "an end whose answer was lost";
}

TEST_F(FilesProcessTest, ManyChunksOnTheirWayAtOnceAreTakenInOrder)
{
    start();
    Client client;
    const KvUInt32 accessId = client.lock();
    const std::string name = client.name();
    const std::string content = pattern(std::size_t(18) << 20);
    client.begin(name, content.size());
    constexpr KvUInt32 large = 1u << 20;
    for (KvUInt32 at = 0; at < content.size(); at += large)
        ASSERT_TRUE(client.connection().send(
            record(callMessage(1000 + at / large, access, 1, 6,
                               words({accessId, 1, 0, at}) + counted(std::string_view(content).substr(at, large))))));
    const KvUInt32 crc = KvNCrc32::crc32(0, content.data(), content.size());
    client.connection().send(record(callMessage(2000, access, 1, 7, words({accessId, 1, crc}))));
    for (std::size_t i = 0; i < content.size() / large; ++i)
        ASSERT_EQ(WireReader(client.connection().receive().body).word(), Ok) << i;
    EXPECT_EQ(client.connection().receive().body, words({Ok, 0}));
    EXPECT_TRUE(m_folder.read("state/4711/files/" + name) == content);
}

TEST_F(FilesProcessTest, ChunksBehindOneThatIsRefusedAreRefusedUntilItComesAgain)
{
    start();
    Client client;
    const KvUInt32 accessId = client.lock();
    const std::string name = client.name();
    const std::string content = pattern(4 * chunk);
    client.begin(name, content.size());
    KvUInt32 xid = 1000;
    const auto send = [&](std::size_t at, std::string_view bytes) {
        return client.connection().send(record(
            callMessage(xid++, access, 1, 6, words({accessId, 1, 0, static_cast<KvUInt32>(at)}) + counted(bytes))));
    };
    const auto part = [&](std::size_t at) { return std::string_view(content).substr(at, chunk); };
    ASSERT_TRUE(send(0, part(0)));
    ASSERT_TRUE(send(0, part(chunk))) << "other bytes than the board has";
    ASSERT_TRUE(send(2 * chunk, part(2 * chunk)) && send(3 * chunk, part(3 * chunk))) << "behind a gap";
    for (const std::size_t at : {chunk, 2 * chunk, 3 * chunk})
        ASSERT_TRUE(send(at, part(at)));
    const std::pair<KvUInt32, std::size_t> wanted[] = {{Ok, 1}, {OutOfOrder, 1}, {OutOfOrder, 1}, {OutOfOrder, 1},
                                                       {Ok, 2}, {Ok, 3},         {Ok, 4}};
    KvUInt32 answered = 1000;
    for (const auto& [status, chunks] : wanted) {
        const RawReply reply = client.connection().receive();
        EXPECT_EQ(reply.xid, answered++);
        WireReader reader(reply.body);
        EXPECT_EQ(reader.word(), status);
        EXPECT_EQ(reader.longWord(), chunks * chunk);
    }
    EXPECT_EQ(client.end(content), Ok);
    EXPECT_TRUE(m_folder.read("state/4711/files/" + name) == content);
}

TEST_F(FilesProcessTest, WhatOthersPlantInTheFolderIsNoFile)
{
    start();
    Client client;
    ASSERT_NE(client.lock(), 0u);
    const std::string name = client.name();
    m_folder.write("secret", "secret");
    ASSERT_EQ(mkfifo(place("00000000000000aa").c_str(), 0666), 0);
    ASSERT_EQ(symlink(m_folder.path("secret").c_str(), place("00000000000000bb").c_str()), 0);
    ASSERT_EQ(symlink("/dev/zero", place(name).c_str()), 0);
    ASSERT_EQ(symlink(m_folder.path("secret").c_str(), place(name + ".part").c_str()), 0);
    EXPECT_TRUE(client.list().empty());
    EXPECT_EQ(client.remove("00000000000000aa"), BadName);
    EXPECT_EQ(client.remove("00000000000000bb"), BadName);
    EXPECT_EQ(client.remove(name), NotFound);
    EXPECT_EQ(client.putFile(name, "content"), Ok);
    EXPECT_EQ(m_folder.read("secret"), "secret");
    EXPECT_EQ(client.list(), Names{name});
    EXPECT_EQ(m_process.stop(), 0);
    start();
    Client again;
    EXPECT_EQ(again.list(), Names{name});
    EXPECT_EQ(inFolder(), (Names{"00000000000000aa", "00000000000000bb", name})) << "what is not ours stays";
}

TEST_F(FilesProcessTest, AFullDiskLeavesNothingAndDamagesNothing)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can mount a small file system";
    // In a mount namespace of this process; what it mounts is seen by nobody else.
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        GTEST_SKIP() << "no mount namespace can be made here";
    const std::string state = m_folder.path("state");
    fs::create_directory(state);
    if (mount("none", state.c_str(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "no tmpfs can be mounted here";
    start();
    {
        Client client;
        ASSERT_NE(client.lock(), 0u);
        const std::string first = client.name();
        const std::string second = client.name();
        ASSERT_EQ(client.putFile(first, pattern(2 * chunk)), Ok);
        client.begin(second, std::size_t(2) << 20);
        EXPECT_EQ(client.lastStatus(), NoSpace) << "more than there is";
        client.begin(second, 8 * chunk);
        ASSERT_EQ(client.put(0, pattern(chunk)), chunk);
        std::ofstream(state + "/filler") << std::string(std::size_t(1) << 20, 'x');
        client.put(chunk, pattern(chunk));
        EXPECT_EQ(client.lastStatus(), NoSpace) << "somebody else has taken it meanwhile";
        EXPECT_EQ(inFolder(), Names{first});
        EXPECT_TRUE(m_folder.read("state/4711/files/" + first) == pattern(2 * chunk));
        EXPECT_EQ(client.list(), Names{first});
        fs::remove(state + "/filler");
        EXPECT_EQ(client.putFile(second, pattern(8 * chunk)), Ok);
    }
    EXPECT_EQ(m_process.stop(), 0) << m_process.log();
    EXPECT_EQ(umount(state.c_str()), 0);
}

TEST_F(FilesProcessTest, ALimitOfTheSizeOfFilesIsAFullDisk)
{
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{3 * chunk / 2, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    start();
    setrlimit(RLIMIT_FSIZE, &before);
    Client client;
    ASSERT_NE(client.lock(), 0u);
    const std::string name = client.name();
    EXPECT_EQ(client.putFile(name, pattern(chunk)), Ok);
    EXPECT_EQ(client.putFile(name, pattern(2 * chunk)), NoSpace);
    EXPECT_EQ(inFolder(), Names{name});
    EXPECT_TRUE(m_folder.read("state/4711/files/" + name) == pattern(chunk));
}

TEST_F(FilesProcessTest, TheLimitsOfTheCommandLineHold)
{
    start({"--max-files", "1", "--max-files-bytes", "1000"});
    Client client;
    ASSERT_NE(client.lock(), 0u);
    const std::string name = client.name();
    EXPECT_EQ(client.putFile(name, pattern(1001)), NoSpace);
    EXPECT_EQ(client.putFile(name, pattern(400)), Ok);
    EXPECT_EQ(client.putFile(client.name(), ""), 12u);
}

TEST_F(FilesProcessTest, ManyBoardsNeedMoreDescriptorsThanAreUsual)
{
    std::string boards;
    for (int i = 1; i <= 150; ++i)
        boards += (i == 1 ? R"({"format": "korvel-board", "version": 1, "boards": [)" : ", ") +
                  std::string(R"({"serialNumber": )") + std::to_string(i) + R"(, "address": "127.0.61.)" +
                  std::to_string(i) + R"(", "tree": {"id": "HCN", "index": )" + std::to_string(i) + "}}";
    m_folder.write("boards.json", boards + "]}");
    const std::vector<std::string> arguments = {"--boards", m_folder.path("boards.json"), "--portmap", "10465"};
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit few{64, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    m_process.start(arguments);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(m_process.output(), "ready: 150 boards\n") << m_process.log();

    BoardProcess second;
    second.start(arguments);
    EXPECT_EQ(second.wait(), 1);
    EXPECT_NE(second.log().find("the port is in use"), std::string::npos) << second.log();
}

TEST_F(FilesProcessTest, WithoutAStateTheFilesGoWithTheService)
{
    const auto files = [this] {
        std::size_t count = 0;
        for (const auto& entry : fs::recursive_directory_iterator(m_process.temporaryPath()))
            count += entry.is_regular_file();
        return count;
    };
    m_process.start({"--boards", KV_SAMPLES_DIR "/single-board.inv", "--port", std::to_string(servicePort)});
    {
        Client client;
        ASSERT_NE(client.lock(), 0u);
        ASSERT_EQ(client.putFile(client.name(), "content"), Ok);
        client.begin(client.name(), 2 * chunk);
        EXPECT_EQ(files(), 2u);
    }
    EXPECT_EQ(m_process.stop(), 0) << m_process.log();
    EXPECT_TRUE(fs::is_empty(m_process.temporaryPath()));
}

}  // namespace
