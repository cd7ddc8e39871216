#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include "BoardProcess.h"
#include "RawRpc.h"
#include "UpdateSupport.h"

/* Updates of a board, by the program itself. */

namespace {

namespace fs = std::filesystem;

constexpr KvUInt32 loopback = 0x7F000001;
constexpr std::uint16_t servicePort = 10465;
constexpr KvUInt32 inventory = 8;
constexpr KvUInt32 access = 0x20004B56;
constexpr const char* name = "00000000000000aa";
const std::string formerVersion("\x03\x01\x02\x02\x00\x04\x00\x07", 8);
const std::string newVersion("\x04\x00\x01\x02\x00\x02\x00\x00", 8);

enum State : KvUInt32
{
    Idle,
    Running,
    Finished
};

Bytes withAddress(const char* text)
{
    const KvCInventoryAddress address = at(text);
    Bytes result = words({address.getLength(), 2 * address.getLength()});
    for (KvUInt32 i = 0; i < address.getLength(); ++i)
        result = result + words({address.getCategoryAt(i), address.getIndexAt(i)});
    return result;
}

/** A client of the board 4711. */
class Client
{
public:
    struct Status
    {
        KvUInt32 state;
        KvUInt32 percent;
        KvUInt32 step;
        KvUInt32 errors;
    };

    KvUInt32 lock()
    {
        const RawReply reply = m_connection.call(access, 1, 2, words({2, 0, 0, 1}) + counted("ann@pc (test)"));
        WireReader reader(reply.body);
        m_accessId = reply.isSuccess() && reader.word() == 0 ? reader.word() : 0;
        return m_accessId;
    }
    /** The status of beginning an update of FIRMWARE. */
    KvUInt32 begin(std::size_t size)
    {
        return statusOf(7, words({m_accessId}) + counted(std::string("transfer/") + name) +
                               words({0, 0, static_cast<KvUInt32>(size)}));
    }
    KvUInt32 finish() { return statusOf(12, words({m_accessId})); }
    Status status()
    {
        const RawReply reply = m_connection.call(inventory, 1, 14, m_firmware + words({0}));
        WireReader reader(reply.body);
        EXPECT_TRUE(reply.isSuccess());
        EXPECT_EQ(reader.word(), 0u);
        const KvUInt32 state = reader.word();
        const KvUInt32 percent = reader.word();
        const KvUInt32 step = reader.word();
        return {state, percent, step, reader.word()};
    }
    /** Waits, at most a minute, until the update is over; the state that was seen last. Percentages may only grow. */
    Status follow()
    {
        Status last = status();
        for (int i = 0; i < 6000 && last.state == Running; ++i) {
            usleep(10000);
            const Status now = status();
            EXPECT_GE(now.percent, last.percent);
            last = now;
        }
        return last;
    }
    std::vector<KvUInt32> errors()
    {
        const RawReply reply = m_connection.call(inventory, 1, 9, m_firmware + words({m_accessId}));
        WireReader reader(reply.body);
        EXPECT_EQ(reader.word(), 0u);
        const std::string block = reader.counted();
        KvCErrorListPool list;
        EXPECT_TRUE(list.deSerialize(reinterpret_cast<const unsigned char*>(block.data()), block.size()));
        return codes(list);
    }
    /** Whether VERSION of FIRMWARE is this one: its bytes stand in the stream of the parameter. */
    bool hasVersion(const std::string& packed)
    {
        const RawReply reply = m_connection.call(inventory, 1, 2, withAddress("HCN[4711]/FIRMWARE/VERSION"));
        WireReader reader(reply.body);
        EXPECT_EQ(reader.word(), 0u);
        return reader.counted().find(packed) != std::string::npos;
    }

private:
    KvUInt32 statusOf(KvUInt32 procedure, const Bytes& arguments)
    {
        const RawReply reply = m_connection.call(inventory, 1, procedure, m_firmware + arguments);
        EXPECT_TRUE(reply.isSuccess());
        return WireReader(reply.body).word();
    }

    RawConnection m_connection{loopback, servicePort};
    Bytes m_firmware = withAddress("HCN[4711]/FIRMWARE");
    KvUInt32 m_accessId = 0;
};

/** The program with one board, its state in a folder of the test's, and the sample image on the board. */
class UpdateProcessTest : public testing::Test
{
protected:
    void SetUp() override
    {
        fs::create_directories(m_folder.path("state/4711/files"));
        fs::copy_file(KV_SAMPLES_DIR "/firmware-image.bin", m_folder.path(file));
        fs::permissions(m_folder.path(file), fs::perms::owner_write, fs::perm_options::add);
        m_size = fs::file_size(m_folder.path(file));
    }
    void start(const char* seconds)
    {
        m_process.start({"--boards", KV_SAMPLES_DIR "/single-board.inv", "--port", std::to_string(servicePort),
                         "--state", m_folder.path("state"), "--update-seconds", seconds});
        ASSERT_EQ(m_process.output(), "ready: 1 boards\n") << m_process.log();
    }
    void put(const Bytes& image)
    {
        m_folder.write(file, std::string(image.begin(), image.end()));
        m_size = image.size();
    }

    using Codes = std::vector<KvUInt32>;

    const std::string file = std::string("state/4711/files/") + name;
    TemporaryFolder m_folder;
    BoardProcess m_process;
    std::size_t m_size = 0;
};

TEST_F(UpdateProcessTest, AnUpdateGoesThroughAndOutlastsARestart)
{
    start("1");
    {
        Client client;
        ASSERT_NE(client.lock(), 0u);
        EXPECT_TRUE(client.hasVersion(formerVersion));
        ASSERT_EQ(client.begin(m_size), 0u);
        const Client::Status first = client.status();
        EXPECT_EQ(first.state, Running);
        EXPECT_LT(first.percent, 100u);
        const Client::Status last = client.follow();
        EXPECT_EQ(last.state, Finished);
        EXPECT_EQ(last.percent, 100u);
        EXPECT_EQ(last.errors, 0u);
        EXPECT_TRUE(client.hasVersion(newVersion));
    }
    ASSERT_EQ(m_process.stop(SIGKILL), 128 + SIGKILL);
    start("1");
    {
        Client client;
        EXPECT_TRUE(client.hasVersion(newVersion));
        const Client::Status status = client.status();
        EXPECT_EQ(status.state, Finished);
        EXPECT_EQ(status.percent, 100u);
        ASSERT_NE(client.lock(), 0u);
        EXPECT_EQ(client.errors(), Codes{});
        EXPECT_EQ(client.finish(), 0u);
        EXPECT_EQ(client.status().state, Idle);
    }
    EXPECT_EQ(m_process.stop(), 0) << m_process.log();
    start("1");
    Client client;
    EXPECT_EQ(client.status().state, Idle);
    EXPECT_TRUE(client.hasVersion(newVersion));
}

TEST_F(UpdateProcessTest, AServiceKilledInTheMiddleComesBackWithTheFormerVersionAndAnError)
{
    start("60");
    {
        Client client;
        ASSERT_NE(client.lock(), 0u);
        ASSERT_EQ(client.begin(m_size), 0u);
        EXPECT_EQ(client.status().state, Running);
        ASSERT_EQ(m_process.stop(SIGKILL), 128 + SIGKILL);
    }
    start("0");
    {
        Client client;
        EXPECT_TRUE(client.hasVersion(formerVersion));
        const Client::Status status = client.status();
        EXPECT_EQ(status.state, Finished);
        EXPECT_LT(status.percent, 100u);
        EXPECT_EQ(status.errors, 1u);
        ASSERT_NE(client.lock(), 0u);
        EXPECT_EQ(client.errors(), Codes{0x302012});
    }
    EXPECT_EQ(m_process.stop(), 0);
    start("0");
    Client client;
    ASSERT_NE(client.lock(), 0u);
    EXPECT_EQ(client.errors(), Codes{0x302012}) << "the error stays until the update is closed";
    ASSERT_EQ(client.begin(m_size), 0u) << "or another one begins";
    EXPECT_EQ(client.follow().percent, 100u);
    EXPECT_TRUE(client.hasVersion(newVersion));
}

TEST_F(UpdateProcessTest, KilledAtAnyMomentItIsDoneOrHasFailed)
{
    for (int round = 0; round < 12; ++round) {
        fs::remove(m_folder.path("state/4711/inventory.inv"));
        fs::remove(m_folder.path("state/4711/update.json"));
        start("0");
        {
            Client client;
            ASSERT_NE(client.lock(), 0u);
            ASSERT_EQ(client.begin(m_size), 0u);
            usleep(static_cast<useconds_t>(round) * 700);
            ASSERT_EQ(m_process.stop(SIGKILL), 128 + SIGKILL);
        }
        start("0");
        Client client;
        const Client::Status status = client.status();
        EXPECT_EQ(status.state, Finished) << round;
        EXPECT_EQ(status.percent == 100, status.errors == 0) << round;
        EXPECT_TRUE(client.hasVersion(status.errors == 0 ? newVersion : formerVersion)) << round;
        ASSERT_EQ(m_process.stop(), 0);
    }
}

TEST_F(UpdateProcessTest, ALargeImageIsVerifiedWhileOthersAreServed)
{
    put(goodImage(std::size_t(32) << 20));
    start("0");
    Client client;
    ASSERT_NE(client.lock(), 0u);
    ASSERT_EQ(client.begin(m_size), 0u);
    int served = 0;
    Client::Status status = client.status();
    for (; status.state == Running; status = client.status())
        ++served;
    EXPECT_GT(served, 5);
    EXPECT_EQ(status.percent, 100u);
}

TEST_F(UpdateProcessTest, AnImageThatIsNotWhatItSaysFailsInTheEnd)
{
    put(goodImage(1000, 1));
    start("0");
    Client client;
    ASSERT_NE(client.lock(), 0u);
    ASSERT_EQ(client.begin(m_size), 0u);
    const Client::Status status = client.follow();
    EXPECT_EQ(status.state, Finished);
    EXPECT_LT(status.percent, 100u);
    EXPECT_EQ(client.errors(), (Codes{0x302010, 0x302011}));
    EXPECT_TRUE(client.hasVersion(formerVersion));
    EXPECT_NE(m_process.log().find("update of HCN[4711]/FIRMWARE to version 4.0 has failed: Update error. The image "
                                   "says that the checksum of its content is"),
              std::string::npos)
        << m_process.log();
}

TEST_F(UpdateProcessTest, WithoutAStateFolderAnUpdateLastsAsLongAsTheService)
{
    m_process.start({"--boards", KV_SAMPLES_DIR "/single-board.inv", "--port", std::to_string(servicePort)});
    ASSERT_EQ(m_process.output(), "ready: 1 boards\n") << m_process.log();
    Client client;
    EXPECT_EQ(client.status().state, Idle);
    ASSERT_NE(client.lock(), 0u);
    EXPECT_EQ(client.begin(m_size), 1u) << "an image of another folder is none";
}

TEST_F(UpdateProcessTest, AStateThatCannotBeReadIsSaidAtTheStart)
{
    const std::pair<const char*, const char*> rows[] = {
        {"", "update.json: "},
        {"{}", "update.json: at \"\": the member \"format\" is missing"},
        {R"({"format": "korvel-update", "version": 1, "state": "running", "address": "HCN[4712]/FIRMWARE",)"
         R"("firmwareType": 0, "newVersion": "0x0400010200020000", "errors": ""})",
         "update.json: it holds an update of \"HCN[4712]/FIRMWARE\", which is no address of HCN[4711]"}};
    for (const auto& [content, problem] : rows) {
        m_folder.write("state/4711/update.json", content);
        m_process.start({"--boards", KV_SAMPLES_DIR "/single-board.inv", "--port", std::to_string(servicePort),
                         "--state", m_folder.path("state")});
        EXPECT_EQ(m_process.wait(), 1);
        EXPECT_EQ(m_process.output(), "");
        EXPECT_NE(m_process.log().find(problem), std::string::npos) << m_process.log();
    }
}

}  // namespace
