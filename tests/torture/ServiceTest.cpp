#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "MemoryControl.h"
#include "inventory/KvCInventoryAddress.h"
#include "tests/tools/kvboardd/BoardProcess.h"
#include "tests/tools/kvboardd/RawRpc.h"

/*
 * The service while its memory fails: for every procedure of its programs, for a new connection and for a datagram, the
 * k-th allocation from the moment in which the request is sent, and every one from there on, for every k until the
 * request needs no more. Each time the service goes on, what it answered is the truth, nothing is half done, the same
 * request is served afterwards, and it holds no more memory and descriptors than without a failure.
 */
namespace {

constexpr KvUInt32 loopback = 0x7F000001;
constexpr std::uint16_t servicePort = 10492;
constexpr std::uint16_t mapperPort = 10493;
constexpr KvUInt32 inventory = 8;
constexpr KvUInt32 access = 0x20004B56;
constexpr KvUInt32 mapper = 100000;
constexpr std::size_t imageSize = 90519;

/** More allocations than these are sampled; KV_TORTURE_FULL in the environment makes every sweep whole. */
constexpr std::size_t wholeUntil = 60;
constexpr std::size_t sampledBeyond = 150;

Bytes at(const char* text)
{
    KvCInventoryAddress parsed;
    parsed.readFromString(text);
    Bytes result = words({parsed.getLength(), 2 * parsed.getLength()});
    for (KvUInt32 i = 0; i < parsed.getLength(); ++i)
        result = result + words({parsed.getCategoryAt(i), parsed.getIndexAt(i)});
    return result;
}

/** The program with one board, loaded with an allocator that the test controls. */
class Service
{
public:
    Service()
    {
        m_folder.write("control", std::string(sizeof(MemoryControl), '\0'));
        const std::string path = m_folder.path("control");
        const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
        control = static_cast<MemoryControl*>(
            mmap(nullptr, sizeof(MemoryControl), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
        close(file);
        setenv("KV_TORTURE_MEMORY", path.c_str(), 1);
        setenv("LD_PRELOAD", KV_TORTURE_LIBRARY, 1);
        const char* const options = getenv("ASAN_OPTIONS");
        setenv("ASAN_OPTIONS", (std::string(options == nullptr ? "" : options) + ":verify_asan_link_order=0").c_str(),
               1);
        m_process.start({"--boards", KV_SAMPLES_DIR "/single-board.inv", "--port", std::to_string(servicePort),
                         "--portmap", std::to_string(mapperPort), "--update-seconds", "0", "--max-wrong-ids", "10000",
                         "--max-connections", "1000", "--max-connections-per-source", "1000", "--max-files", "4096"});
        unsetenv("LD_PRELOAD");
    }
    ~Service() { munmap(control, sizeof(MemoryControl)); }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    bool isReady() { return m_process.output() == "ready: 1 boards\n" && control->live > 0; }
    bool isRunning() { return m_process.isRunning(); }
    std::string log() const { return m_process.log(); }
    int stop() { return m_process.stop(); }

    long descriptors() const
    {
        std::error_code ignored;
        const std::filesystem::directory_iterator entries("/proc/" + std::to_string(m_process.id()) + "/fd", ignored);
        return std::distance(begin(entries), end(entries));
    }
    /** Blocks and descriptors. */
    using Held = std::pair<long, long>;

    Held held() const { return {control->live, descriptors()}; }
    /** Whether it comes to hold no more than this: what has ended is given back soon. */
    bool comesTo(const Held& most) const
    {
        for (int i = 0; i < 1000; ++i) {
            const Held now = held();
            if (now.first <= most.first && now.second <= most.second)
                return true;
            usleep(1000);
        }
        return false;
    }
    /** What it holds when it has come to rest. */
    Held heldAtRest() const
    {
        Held last = held();
        for (int i = 0, same = 0; i < 1000 && same < 20; ++i) {
            usleep(1000);
            const Held now = held();
            same = now == last ? same + 1 : 0;
            last = now;
        }
        return last;
    }

    MemoryControl* control;

private:
    TemporaryFolder m_folder;
    BoardProcess m_process;
};

/** Who prepares a request, and looks at what became of it, with memory. */
class Client
{
public:
    RawReply call(KvUInt32 program, KvUInt32 procedure, const Bytes& arguments = {})
    {
        const std::uint16_t port = program == mapper ? mapperPort : servicePort;
        std::unique_ptr<RawConnection>& connection = program == mapper ? m_mapper : m_service;
        for (int i = 0; i < 2; ++i) {
            if (connection == nullptr)
                connection = std::make_unique<RawConnection>(loopback, port);
            RawReply reply = connection->call(program, program == mapper ? 2 : 1, procedure, arguments);
            if (reply.arrived)
                return reply;
            connection.reset();
        }
        return {};
    }
    KvUInt32 status(KvUInt32 program, KvUInt32 procedure, const Bytes& arguments)
    {
        const RawReply reply = call(program, procedure, arguments);
        return reply.isSuccess() ? WireReader(reply.body).word() : 0xFFFF;
    }
    /** What comes behind the status. */
    KvUInt32 second(KvUInt32 program, KvUInt32 procedure, const Bytes& arguments)
    {
        const RawReply reply = call(program, procedure, arguments);
        WireReader reader(reply.body);
        return reply.isSuccess() && reader.word() == 0 ? reader.word() : 0;
    }

    Bytes lockArguments() const { return words({2, 0, 0, m_nonce}) + counted("ann@pc (test)"); }
    void lock() { accessId = second(access, 2, lockArguments()); }
    void unlock()
    {
        // A lock whose answer was lost is had again with the same nonce.
        if (accessId == 0)
            lock();
        call(access, 4, words({accessId}));
        accessId = 0;
        ++m_nonce;
    }
    void askForAName()
    {
        const RawReply reply = call(inventory, 10, at("HCN[4711]") + words({accessId}));
        WireReader reader(reply.body);
        reader.word();
        name.clear();
        for (std::string* text : {static_cast<std::string*>(nullptr), &name})
            for (KvUInt32 left = reader.word(); left != 0 && reader.isGood(); --left) {
                const char c = static_cast<char>(reader.word());
                if (text != nullptr)
                    *text += c;
            }
    }
    Bytes named() const { return words({accessId}) + counted("transfer") + counted(name); }
    void beginPut(std::size_t size)
    {
        transferId = second(access, 5, named() + words({0, static_cast<KvUInt32>(size)}));
    }
    void putAll()
    {
        const std::string image = content();
        beginPut(image.size());
        call(access, 6, words({accessId, transferId, 0, 0}) + counted(image));
        call(access, 7, words({accessId, transferId, crc(image)}));
    }
    static std::string content()
    {
        std::ifstream file(KV_SAMPLES_DIR "/firmware-image.bin", std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static KvUInt32 crc(const std::string& bytes)
    {
        KvUInt32 sum = 0xFFFFFFFF;
        for (const char c : bytes) {
            sum ^= static_cast<unsigned char>(c);
            for (int bit = 0; bit < 8; ++bit)
                sum = sum >> 1 ^ (sum % 2 != 0 ? 0xEDB88320 : 0);
        }
        return ~sum;
    }
    void removeFile() { call(access, 9, named()); }
    /** The size of the file that was named; 0 when there is none. */
    KvUInt64 fileSize()
    {
        const RawReply reply = call(access, 11);
        WireReader reader(reply.body);
        reader.word();
        for (KvUInt32 left = reader.word(); left != 0 && reader.isGood(); --left) {
            reader.counted();
            const bool isIt = reader.counted() == name;
            const KvUInt64 size = reader.longWord();
            reader.longWord();
            if (isIt)
                return size;
        }
        return 0;
    }
    Bytes firmware() const { return at("HCN[4711]/FIRMWARE"); }
    KvUInt32 update()
    {
        return status(inventory, 7,
                      firmware() + words({accessId}) + counted("transfer/" + name) + words({0, 0, imageSize}));
    }
    /** Waits, at most a minute, until no update runs, and closes one that is over. */
    void finishUpdate()
    {
        for (int i = 0; i < 6000; ++i) {
            const RawReply reply = call(inventory, 8, firmware());
            WireReader reader(reply.body);
            reader.word();
            if (!reply.isSuccess() || reader.word() != 1)
                break;
            usleep(10000);
        }
        call(inventory, 12, firmware() + words({accessId}));
    }
    std::string value()
    {
        const RawReply reply = call(inventory, 2, at("HCN[4711]/TEST/TEST_S"));
        WireReader reader(reply.body);
        reader.word();
        return reader.counted();
    }

    KvUInt32 accessId = 0;
    KvUInt32 transferId = 0;
    std::string name;
    std::string before;

private:
    std::unique_ptr<RawConnection> m_service;
    std::unique_ptr<RawConnection> m_mapper;
    KvUInt32 m_nonce = 1;
};

using Step = void (*)(Client&);
using Arguments = Bytes (*)(Client&);
using Question = bool (*)(Client&);

void nothing(Client&) {}

Bytes noArguments(Client&)
{
    return {};
}

bool always(Client&)
{
    return true;
}

/** What a request is; the zeroed fields have defaults. */
struct Request
{
    const char* name;
    KvUInt32 program;
    KvUInt32 procedure;
    Arguments arguments = noArguments;
    Step prepare = nothing;
    Step cleanUp = nothing;
    bool isSameEachTime = false;  ///< a good answer has always the same bytes
    bool hasStatus = true;        ///< the answer begins with a status, 0 when good
    KvUInt32 also = 0;            ///< a status that is good when the request is repeated
    Question isWhole = always;    ///< nothing is half done, asked after the failure
    Question isDone = always;     ///< the request has been done, asked after a good answer
    enum Way
    {
        Connected,
        Connecting,
        Datagram
    } way = Connected;
};

void PrintTo(const Request& request, std::ostream* stream)
{
    *stream << request.name;
}

const char* const newValue = "a value that is long enough to need memory of its own";

void withLock(Client& client)
{
    client.lock();
}
void withoutLock(Client& client)
{
    client.unlock();
}
void withName(Client& client)
{
    client.lock();
    client.askForAName();
}
void withFile(Client& client)
{
    withName(client);
    client.putAll();
}
void withoutFile(Client& client)
{
    client.removeFile();
    client.unlock();
}
void withUpdate(Client& client)
{
    withFile(client);
    client.update();
}
void withoutUpdate(Client& client)
{
    client.finishUpdate();
    withoutFile(client);
}
void withTransfer(Client& client)
{
    withName(client);
    client.beginPut(imageSize);
}
void withData(Client& client)
{
    withTransfer(client);
    client.call(access, 6, words({client.accessId, client.transferId, 0, 0}) + counted(Client::content()));
}
bool isFileWhole(Client& client)
{
    const KvUInt64 size = client.fileSize();
    return size == 0 || size == imageSize;
}
bool isFileThere(Client& client)
{
    return client.fileSize() == imageSize;
}
bool isFileGone(Client& client)
{
    return client.fileSize() == 0;
}
Bytes value(const char* text)
{
    return words({0x2000}) + counted(text);
}
/** The value written is not there before it is applied, and the one before is. */
void withValue(Client& client)
{
    client.lock();
    client.call(inventory, 3, at("HCN[4711]/TEST/TEST_S") + words({client.accessId}) + value("text"));
    client.call(inventory, 6, at("HCN[4711]") + words({client.accessId}));
    client.before = client.value();
}
void withWrittenValue(Client& client)
{
    withValue(client);
    client.call(inventory, 3, at("HCN[4711]/TEST/TEST_S") + words({client.accessId}) + value(newValue));
}
bool isOldOrNew(Client& client)
{
    const std::string now = client.value();
    return now == client.before || now.find(newValue) != std::string::npos;
}
bool isNew(Client& client)
{
    return client.value().find(newValue) != std::string::npos;
}
/** A value that was written, or was not, is applied: it is never another one. */
bool isOldOrNewWhenApplied(Client& client)
{
    client.call(inventory, 6, at("HCN[4711]") + words({client.accessId}));
    return isOldOrNew(client);
}
bool isNewWhenApplied(Client& client)
{
    return isOldOrNewWhenApplied(client) && isNew(client);
}
Bytes boardWithId(Client& client)
{
    return at("HCN[4711]") + words({client.accessId});
}
Bytes firmwareWithId(Client& client)
{
    return client.firmware() + words({client.accessId});
}
Bytes idAlone(Client& client)
{
    return words({client.accessId});
}

std::vector<Request> inventoryRequests()
{
    return {
        {.name = "Null", .program = inventory, .procedure = 0, .isSameEachTime = true, .hasStatus = false},
        {.name = "Scan",
         .program = inventory,
         .procedure = 1,
         .arguments = [](Client&) { return words({0}); },
         .isSameEachTime = true},
        {.name = "ReadParameter",
         .program = inventory,
         .procedure = 2,
         .arguments = [](Client&) { return at("HCN[4711]/NAME"); },
         .isSameEachTime = true},
        {.name = "WriteParameterValue",
         .program = inventory,
         .procedure = 3,
         .arguments =
             [](Client& client) { return at("HCN[4711]/TEST/TEST_S") + words({client.accessId}) + value(newValue); },
         .prepare = withValue,
         .cleanUp = withoutLock,
         .isWhole = isOldOrNewWhenApplied,
         .isDone = isNewWhenApplied},
        {.name = "GetLocalAddress", .program = inventory, .procedure = 4, .isSameEachTime = true, .hasStatus = false},
        {.name = "Apply",
         .program = inventory,
         .procedure = 6,
         .arguments = boardWithId,
         .prepare = withWrittenValue,
         .cleanUp = withoutLock,
         .isWhole = isOldOrNew,
         .isDone = isNew},
        {.name = "Update",
         .program = inventory,
         .procedure = 7,
         .arguments =
             [](Client& client) {
                 return client.firmware() + words({client.accessId}) + counted("transfer/" + client.name) +
                        words({0, 0, imageSize});
             },
         .prepare = withFile,
         .cleanUp = withoutUpdate,
         .also = 0xFFFFFFFF},
        {.name = "UpdateStatus",
         .program = inventory,
         .procedure = 8,
         .arguments = [](Client& client) { return client.firmware(); },
         .isSameEachTime = true},
        {.name = "UpdateErrors",
         .program = inventory,
         .procedure = 9,
         .arguments = firmwareWithId,
         .prepare = withUpdate,
         .cleanUp = withoutUpdate,
         .also = 0xFFFFFFFF},
        {.name = "GenerateRemoteFilename",
         .program = inventory,
         .procedure = 10,
         .arguments = boardWithId,
         .prepare = withLock,
         .cleanUp = withoutLock},
        {.name = "CheckAuthority",
         .program = inventory,
         .procedure = 11,
         .arguments = [](Client& client) { return boardWithId(client) + words({0x10001}); },
         .prepare = withLock,
         .cleanUp = withoutLock,
         .isSameEachTime = true},
        {.name = "UpdateFinish",
         .program = inventory,
         .procedure = 12,
         .arguments = firmwareWithId,
         .prepare =
             [](Client& client) {
                 withUpdate(client);
                 for (int i = 0; i < 1000 && WireReader(client.call(inventory, 8, client.firmware()).body).word() != 0;
                      ++i)
                     usleep(1000);
             },
         .cleanUp = withoutUpdate,
         .also = 0xFFFFFFFF},
        {.name = "Update2",
         .program = inventory,
         .procedure = 13,
         .arguments =
             [](Client& client) {
                 return client.firmware() + words({client.accessId, 0}) + counted("transfer/" + client.name) +
                        words({0, imageSize});
             },
         .prepare = withFile,
         .cleanUp = withoutUpdate,
         .also = 0xFFFFFFFF},
        {.name = "UpdateStatus2",
         .program = inventory,
         .procedure = 14,
         .arguments = [](Client& client) { return client.firmware() + words({0}); },
         .isSameEachTime = true},
        {.name = "UpdateErrors2",
         .program = inventory,
         .procedure = 15,
         .arguments = [](Client& client) { return firmwareWithId(client) + words({0}); },
         .prepare = withLock,
         .cleanUp = withoutLock,
         .also = 0xFFFFFFFF},
        {.name = "RegisterParent",
         .program = inventory,
         .procedure = 16,
         .arguments = [](Client&) { return words({1}); },
         .also = 0xFFFFFFFF},
    };
}

std::vector<Request> accessRequests()
{
    return {
        {.name = "AccessNull", .program = access, .procedure = 0, .isSameEachTime = true, .hasStatus = false},
        {.name = "Identify", .program = access, .procedure = 1, .isSameEachTime = true, .hasStatus = false},
        {.name = "RequestAccess",
         .program = access,
         .procedure = 2,
         .arguments = [](Client& client) { return client.lockArguments(); },
         .cleanUp = withoutLock},
        {.name = "KeepAccess",
         .program = access,
         .procedure = 3,
         .arguments = idAlone,
         .prepare = withLock,
         .cleanUp = withoutLock},
        {.name = "ReleaseAccess",
         .program = access,
         .procedure = 4,
         .arguments = idAlone,
         .prepare = withLock,
         .cleanUp = withoutLock,
         .also = 2},
        {.name = "PutBegin",
         .program = access,
         .procedure = 5,
         .arguments =
             [](Client& client) {
                 return client.named() + words({0, imageSize});
             },
         .prepare = withName,
         .cleanUp = withoutFile,
         .isWhole = isFileGone},
        {.name = "PutData",
         .program = access,
         .procedure = 6,
         .arguments =
             [](Client& client) {
                 return words({client.accessId, client.transferId, 0, 0}) + counted(Client::content());
             },
         .prepare = withTransfer,
         .cleanUp = withoutFile,
         .isWhole = isFileGone},
        {.name = "PutEnd",
         .program = access,
         .procedure = 7,
         .arguments =
             [](Client& client) {
                 return words({client.accessId, client.transferId, Client::crc(Client::content())});
             },
         .prepare = withData,
         .cleanUp = withoutFile,
         .also = 6,
         .isWhole = isFileWhole,
         .isDone = isFileThere},
        {.name = "PutAbort",
         .program = access,
         .procedure = 8,
         .arguments =
             [](Client& client) {
                 return words({client.accessId, client.transferId});
             },
         .prepare = withData,
         .cleanUp = withoutFile,
         .also = 6,
         .isWhole = isFileGone,
         .isDone = isFileGone},
        {.name = "Delete",
         .program = access,
         .procedure = 9,
         .arguments = [](Client& client) { return client.named(); },
         .prepare = withFile,
         .cleanUp = withoutFile,
         .also = 5,
         .isWhole = isFileWhole,
         .isDone = isFileGone},
        {.name = "AccessState", .program = access, .procedure = 10, .prepare = withLock, .cleanUp = withoutLock},
        {.name = "ListFiles", .program = access, .procedure = 11, .prepare = withFile, .cleanUp = withoutFile},
    };
}

std::vector<Request> otherRequests()
{
    return {
        {.name = "Accepting",
         .program = inventory,
         .procedure = 4,
         .isSameEachTime = true,
         .hasStatus = false,
         .way = Request::Connecting},
        {.name = "AcceptingAtTheMapper",
         .program = mapper,
         .procedure = 0,
         .isSameEachTime = true,
         .hasStatus = false,
         .way = Request::Connecting},
        {.name = "MapperNull", .program = mapper, .procedure = 0, .isSameEachTime = true, .hasStatus = false},
        {.name = "MapperGetPort",
         .program = mapper,
         .procedure = 3,
         .arguments =
             [](Client&) {
                 return words({inventory, 1, 6, 0});
             },
         .isSameEachTime = true,
         .hasStatus = false},
        {.name = "MapperDump", .program = mapper, .procedure = 4, .isSameEachTime = true, .hasStatus = false},
        {.name = "MapperGetPortByDatagram",
         .program = mapper,
         .procedure = 3,
         .arguments =
             [](Client&) {
                 return words({inventory, 1, 6, 0});
             },
         .isSameEachTime = true,
         .hasStatus = false,
         .way = Request::Datagram},
        {.name = "IdentifyByDatagram",
         .program = access,
         .procedure = 1,
         .isSameEachTime = true,
         .hasStatus = false,
         .way = Request::Datagram},
        {.name = "UnknownProcedure", .program = access, .procedure = 99, .also = 0xFFFFFFFF},
        {.name = "UnknownProgram", .program = 4711, .procedure = 1, .also = 0xFFFFFFFF},
    };
}

class ServiceTorture : public testing::TestWithParam<Request>
{
protected:
    static void SetUpTestSuite() { s_service = std::make_unique<Service>(); }
    static void TearDownTestSuite()
    {
        EXPECT_EQ(s_service->stop(), 0) << s_service->log().substr(0, 2000);
        s_service.reset();
    }
    void SetUp() override { ASSERT_TRUE(s_service->isReady()) << s_service->log(); }

    struct Attempt
    {
        bool hasFailed = false;
        std::size_t count = 0;
        std::string finding;
    };

    RawReply send(const Bytes& arguments)
    {
        const Request& request = GetParam();
        const std::uint16_t port = request.program == mapper ? mapperPort : servicePort;
        const KvUInt32 version = request.program == mapper ? 2 : 1;
        if (request.way == Request::Datagram)
            return exchangeDatagram(loopback, port,
                                    callMessage(1, request.program, version, request.procedure, arguments), 200);
        if (m_connection == nullptr)
            m_connection = std::make_unique<RawConnection>(loopback, port);
        if (!m_connection->isOpen())
            return {};
        return m_connection->call(request.program, version, request.procedure, arguments);
    }
    /** Connects, and has the service accept, before memory fails. */
    void connect()
    {
        const bool isMapper = GetParam().program == mapper;
        m_connection = std::make_unique<RawConnection>(loopback, isMapper ? mapperPort : servicePort);
        m_connection->call(isMapper ? mapper : access, isMapper ? 2 : 1, 0);
    }
    bool isGood(const RawReply& reply) const
    {
        return reply.isSuccess() && (!GetParam().hasStatus || WireReader(reply.body).word() == 0);
    }

    Attempt attempt(std::size_t number, bool lasting)
    {
        const Request& request = GetParam();
        Attempt made;
        Client client;
        request.prepare(client);
        const Bytes arguments = request.arguments(client);
        if (request.way == Request::Connected)
            connect();
        s_service->control->arm(number, lasting);
        const RawReply reply = send(arguments);
        s_service->control->disarm();
        made.hasFailed = s_service->control->hasFailed;
        made.count = s_service->control->count;
        if (!s_service->isRunning())
            made.finding = "the service has ended: " + s_service->log().substr(0, 3000);
        else if (!made.hasFailed && !isGood(reply) && request.also != 0xFFFFFFFF)
            made.finding = "not served with memory";
        else if (isGood(reply) && request.isSameEachTime && !m_expected.empty() && reply.body != m_expected)
            made.finding = "another answer";
        else if (!request.isWhole(client))
            made.finding = "something is half done";
        else if (isGood(reply) && !request.isDone(client))
            made.finding = "answered as done, and not done";
        if (made.finding.empty() && !isGood(reply))
            made.finding = repeat(client, arguments);
        if (m_expected.empty() && isGood(reply))
            m_expected = reply.body;
        m_connection.reset();
        request.cleanUp(client);
        return made;
    }
    /** The same request once more, with memory and on a connection of its own. */
    std::string repeat(Client& client, const Bytes& arguments)
    {
        const Request& request = GetParam();
        m_connection.reset();
        const RawReply reply = send(arguments);
        if (!reply.arrived)
            return "not served afterwards";
        if (request.also == 0xFFFFFFFF)
            return "";
        const bool good = isGood(reply);
        if (!good && (!reply.isSuccess() || request.also == 0 || WireReader(reply.body).word() != request.also))
            return "refused afterwards: " + std::to_string(reply.isSuccess() ? WireReader(reply.body).word() : 0xFFFF);
        return good && !request.isDone(client) ? "not done afterwards" : "";
    }

    /** How much more is held after an attempt; the least of three, since what is made once stays. */
    Service::Held growth(std::size_t number, bool lasting)
    {
        Service::Held least(1000000, 1000000);
        for (int i = 0; i < 3; ++i) {
            const Service::Held before = s_service->heldAtRest();
            attempt(number, lasting);
            const Service::Held after = s_service->heldAtRest();
            least.first = std::min(least.first, after.first - before.first);
            least.second = std::min(least.second, after.second - before.second);
        }
        return least;
    }

    /** What an attempt has left behind that is not left behind with memory, `usual`. */
    std::string lost(std::size_t number, bool lasting, const Service::Held& usual)
    {
        Service::Held more = growth(number, lasting);
        if (more.first > usual.first || more.second > usual.second) {
            // The master error list keeps so many reports, and then no more.
            for (int i = 0; i < 300; ++i)
                attempt(number, lasting);
            more = growth(number, lasting);
        }
        if (more.first <= usual.first && more.second <= usual.second)
            return "";
        return std::to_string(more.first - usual.first) + " blocks and " + std::to_string(more.second - usual.second) +
               " descriptors are lost";
    }

    std::size_t sweep(std::size_t allocations, const Service::Held& usual, bool lasting)
    {
        int findings = 0;
        std::size_t tried = 0;
        Service::Held most = s_service->heldAtRest();
        for (std::size_t number = 1; findings < 3;) {
            Attempt made = attempt(number, lasting);
            ++tried;
            most.first += usual.first;
            most.second += usual.second;
            if (made.finding.empty() && !s_service->comesTo(most)) {
                made.finding = lost(number, lasting, usual);
                most = s_service->heldAtRest();
            }
            EXPECT_EQ(made.finding, "") << "malloc, allocation " << number << (lasting ? " and all that follow" : "");
            findings += made.finding.empty() ? 0 : 1;
            if (!made.hasFailed || !s_service->isRunning())
                break;
            const bool isWhole = std::getenv("KV_TORTURE_FULL") != nullptr || allocations <= sampledBeyond;
            number += isWhole || number < wholeUntil ? 1 : allocations / (sampledBeyond - wholeUntil) + 1;
        }
        return tried;
    }

    static std::unique_ptr<Service> s_service;
    std::unique_ptr<RawConnection> m_connection;
    Bytes m_expected;
};

std::unique_ptr<Service> ServiceTorture::s_service;

TEST_P(ServiceTorture, GoesOnAndTellsTheTruth)
{
    attempt(0, false);
    const Attempt whole = attempt(0, false);
    ASSERT_EQ(whole.finding, "") << s_service->log().substr(0, 2000);
    Service::Held usual = growth(0, false);
    usual.first = std::max(usual.first, 0L);
    usual.second = std::max(usual.second, 0L);
    std::size_t tried = 0;
    for (const bool lasting : {false, true})
        tried += sweep(whole.count, usual, lasting);
    std::printf("%s: %zu allocations, %zu tried\n", GetParam().name, whole.count, tried);
}

std::string nameOf(const testing::TestParamInfo<Request>& info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Inventory, ServiceTorture, testing::ValuesIn(inventoryRequests()), nameOf);
INSTANTIATE_TEST_SUITE_P(Access, ServiceTorture, testing::ValuesIn(accessRequests()), nameOf);
INSTANTIATE_TEST_SUITE_P(Other, ServiceTorture, testing::ValuesIn(otherRequests()), nameOf);

}  // namespace
