// What calls and scans cost beside raw sockets that move the same bytes. Boards and raw exchanges are served by one
// process that is forked at the start; what is compared takes turns, and the medians give the ratios.
//
//     bench_remote [rounds [calls|scans|large]]

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "manager/KvCInventoryManager.h"
#include "platform/dal/KvDALBase.h"
#include "platform/oncrpc/KvCRpcClient.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::uint16_t mapperPort = 20211;
constexpr KvUInt32 firstBoard = 0x7F500001;  // 127.80.0.1: 200 boards with a tree of 64 KiB
constexpr KvUInt32 boards = 200;
constexpr KvUInt32 firstLargeBoard = 0x7F510001;  // 8 boards with 125,000 parameters each
constexpr KvUInt32 largeBoards = 8;
constexpr KvUInt32 parametersOfLargeBoard = 125000;
constexpr KvUInt32 plainAddress = 0x7F520001;  // answers procedure n with reply n
constexpr auto boardDelay = std::chrono::milliseconds(20);

void put(Bytes& bytes, KvUInt32 value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<unsigned char>(value >> shift));
}

KvUInt32 get(const unsigned char* bytes)
{
    return static_cast<KvUInt32>(bytes[0]) << 24 | static_cast<KvUInt32>(bytes[1]) << 16 |
           static_cast<KvUInt32>(bytes[2]) << 8 | bytes[3];
}

void check(bool good, const char* what)
{
    if (good)
        return;
    std::perror(what);
    std::exit(1);
}

sockaddr_in at(KvUInt32 address, std::uint16_t port)
{
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(address);
    place.sin_port = htons(port);
    return place;
}

/** The stream of a board with `parameters` parameters, four in each channel. */
Bytes treeStream(KvUInt32 serialNumber, KvUInt32 parameters)
{
    KvCErrorListPool errors;
    KvCInventoryItem board(errors, KvNInventoryIDs::HCN[serialNumber], "HCN");
    for (KvUInt32 i = 1; i <= parameters / 4; ++i) {
        KvCInventoryItem* item =
            board.addPath(errors, KvCInventoryAddress(KvNInventoryIDs::IOCHANNEL.getCategory(), i));
        item->createParameter<KvUInt32>(errors, KvNInventoryIDs::CHANNEL_NUMBER, i, "", false, 0, nullptr, nullptr,
                                        nullptr);
        item->createParameter<double>(errors, KvNInventoryIDs::VOLTAGE_MAX, 10.5, "V", true, 3, nullptr, nullptr,
                                      nullptr);
        item->createParameter<KvCString>(errors, KvNInventoryIDs::SIGNAL_NAME, KvCString("AI 17"), "", true, 0, nullptr,
                                         nullptr, nullptr);
        item->createParameter<float>(errors, KvNInventoryIDs::SCALING_FACTOR, 0.5F, "", false, 0, nullptr, nullptr,
                                     nullptr);
    }
    KvCBuffer buffer(errors);
    KvCInventoryItemFactory factory(errors);
    factory.serialize(errors, &buffer, &board);
    check(errors.getErrorCount() == 0, "a tree for the boards");
    return Bytes(buffer.getStartPointer(), buffer.getWritePointer());
}

KvUInt32 parametersFor(std::size_t bytes)
{
    KvUInt32 parameters = 400;
    while (treeStream(1, parameters + 40).size() <= bytes)
        parameters += 40;
    return parameters;
}

/** A whole call record; boards answer its transaction id, 0, at once. */
Bytes question(KvUInt32 procedure, std::size_t argumentBytes)
{
    Bytes record;
    record.reserve(44 + argumentBytes);
    put(record, 0x80000000 | static_cast<KvUInt32>(40 + argumentBytes));
    for (const KvUInt32 number : {KvUInt32{0}, KvUInt32{0}, KvUInt32{2}, KvUInt32{8}, KvUInt32{1}, procedure})
        put(record, number);
    record.resize(44 + argumentBytes);
    return record;
}

/** A whole reply record, its mark and a transaction id of 0 included. */
Bytes reply(const Bytes& results)
{
    Bytes record;
    record.reserve(28 + results.size());
    put(record, 0x80000000 | static_cast<KvUInt32>(24 + results.size()));
    put(record, 0);
    put(record, 1);
    for (int i = 0; i < 4; ++i)
        put(record, 0);
    record.insert(record.end(), results.begin(), results.end());
    return record;
}

Bytes opaque(const Bytes& data)
{
    Bytes bytes;
    bytes.reserve(data.size() + 8);
    put(bytes, static_cast<KvUInt32>(data.size()));
    bytes.insert(bytes.end(), data.begin(), data.end());
    while (bytes.size() % 4 != 0)
        bytes.push_back(0);
    return bytes;
}

Bytes scanReply(const Bytes& tree)
{
    const Bytes block = opaque(tree);
    Bytes results;
    results.reserve(block.size() + 8);
    put(results, 0);
    results.insert(results.end(), block.begin(), block.end());
    put(results, 0);
    return reply(results);
}

/** What a board sends for each procedure. */
using Replies = std::map<KvUInt32, std::shared_ptr<const Bytes>>;

/** The boards: one process, one thread, one epoll loop. */
class Server
{
public:
    void add(KvUInt32 address, Replies replies) { m_replies[address] = std::move(replies); }

    void start()
    {
        m_epoll = ::epoll_create1(EPOLL_CLOEXEC);
        m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        const int one = 1;
        ::setsockopt(m_listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_in any = at(0, 0);
        check(::bind(m_listener, reinterpret_cast<sockaddr*>(&any), sizeof any) == 0, "bind");
        check(::listen(m_listener, 1024) == 0, "listen");
        socklen_t size = sizeof any;
        ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&any), &size);
        port = ntohs(any.sin_port);
        watch(m_listener, EPOLLIN);
        for (const auto& [address, replies] : m_replies) {
            const int mapper = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
            const sockaddr_in place = at(address, mapperPort);
            check(::bind(mapper, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0, "bind the port mapper");
            m_mappers.push_back(mapper);
            watch(mapper, EPOLLIN);
        }
        m_child = ::fork();
        check(m_child >= 0, "fork");
        if (m_child != 0)
            return;
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        serve();
    }

    void stop() const
    {
        ::kill(m_child, SIGKILL);
        ::waitpid(m_child, nullptr, 0);
    }

    std::uint16_t port = 0;

private:
    struct Connection
    {
        const Replies* replies = nullptr;
        bool delays = false;
        Bytes input;
        std::deque<Bytes> output;
        std::size_t sent = 0;
    };
    struct Due
    {
        Clock::time_point when;
        int socket;
        KvUInt32 id;
        std::shared_ptr<const Bytes> reply;
    };

    void watch(int socket, unsigned events, int operation = EPOLL_CTL_ADD) const
    {
        epoll_event event{};
        event.events = events;
        event.data.fd = socket;
        ::epoll_ctl(m_epoll, operation, socket, &event);
    }

    [[noreturn]] void serve()
    {
        for (;;) {
            int wait = -1;
            if (!m_due.empty()) {
                const Milliseconds left = m_due.front().when - Clock::now();
                wait = left.count() <= 0 ? 0 : static_cast<int>(left.count() + 0.5);
            }
            epoll_event events[256];
            const int count = ::epoll_wait(m_epoll, events, 256, wait);
            for (int i = 0; i < count; ++i)
                handle(events[i].data.fd, events[i].events);
            while (!m_due.empty() && m_due.front().when <= Clock::now()) {
                const Due due = m_due.front();
                m_due.pop_front();
                answer(due.socket, due.id, *due.reply);
            }
        }
    }

    void handle(int socket, unsigned events)
    {
        if (socket == m_listener)
            return accept();
        if (std::find(m_mappers.begin(), m_mappers.end(), socket) != m_mappers.end())
            return map(socket);
        if ((events & EPOLLOUT) != 0)
            flush(socket);
        if ((events & EPOLLIN) != 0)
            read(socket);
    }

    void accept()
    {
        for (;;) {
            const int socket = ::accept4(m_listener, nullptr, nullptr, SOCK_NONBLOCK);
            if (socket < 0)
                return;
            const int one = 1;
            ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
            sockaddr_in own{};
            socklen_t size = sizeof own;
            ::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size);
            const KvUInt32 address = ntohl(own.sin_addr.s_addr);
            Connection& connection = m_connections[socket];
            connection = Connection();
            connection.replies = &m_replies[address];
            connection.delays = address >= firstBoard && address < firstBoard + boards;
            watch(socket, EPOLLIN);
        }
    }

    void map(int socket) const
    {
        unsigned char question[512];
        sockaddr_in from{};
        socklen_t size = sizeof from;
        if (::recvfrom(socket, question, sizeof question, 0, reinterpret_cast<sockaddr*>(&from), &size) < 4)
            return;
        Bytes results;
        put(results, port);
        const Bytes record = reply(results);
        Bytes datagram(record.begin() + 4, record.end());
        std::memcpy(datagram.data(), question, 4);
        ::sendto(socket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&from), size);
    }

    void read(int socket)
    {
        Connection& connection = m_connections[socket];
        unsigned char block[65536];
        const ssize_t size = ::recv(socket, block, sizeof block, 0);
        if (size <= 0) {
            if (size == 0 || errno != EAGAIN) {
                ::close(socket);
                m_connections.erase(socket);
            }
            return;
        }
        connection.input.insert(connection.input.end(), block, block + size);
        while (connection.input.size() >= 4) {
            const std::size_t record = 4 + (get(connection.input.data()) & 0x7FFFFFFF);
            if (connection.input.size() < record)
                return;
            const KvUInt32 id = get(connection.input.data() + 4);
            const KvUInt32 procedure = get(connection.input.data() + 24);
            connection.input.erase(connection.input.begin(), connection.input.begin() + static_cast<long>(record));
            const auto found = connection.replies->find(procedure);
            if (found == connection.replies->end())
                continue;
            if (connection.delays && id != 0)
                m_due.push_back({Clock::now() + boardDelay, socket, id, found->second});
            else
                answer(socket, id, *found->second);
        }
    }

    void answer(int socket, KvUInt32 id, const Bytes& whole)
    {
        const auto found = m_connections.find(socket);
        if (found == m_connections.end())
            return;
        unsigned char head[8];
        std::memcpy(head, whole.data(), 4);
        for (int i = 0; i < 4; ++i)
            head[4 + i] = static_cast<unsigned char>(id >> (24 - 8 * i));
        Connection& connection = found->second;
        if (!connection.output.empty()) {
            connection.output.push_back(whole);
            std::memcpy(connection.output.back().data(), head, 8);
            return;
        }
        iovec parts[2] = {{head, 8}, {const_cast<unsigned char*>(whole.data()) + 8, whole.size() - 8}};
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = 2;
        const ssize_t sent = ::sendmsg(socket, &message, MSG_NOSIGNAL);
        if (sent == static_cast<ssize_t>(whole.size()))
            return;
        const std::size_t begun = sent < 0 ? 0 : static_cast<std::size_t>(sent);
        connection.output.emplace_back(whole.begin() + static_cast<long>(begun), whole.end());
        if (begun < 8)
            std::memcpy(connection.output.back().data(), head + begun, 8 - begun);
        connection.sent = 0;
        watch(socket, EPOLLIN | EPOLLOUT, EPOLL_CTL_MOD);
    }

    void flush(int socket)
    {
        Connection& connection = m_connections[socket];
        while (!connection.output.empty()) {
            const Bytes& block = connection.output.front();
            const ssize_t sent =
                ::send(socket, block.data() + connection.sent, block.size() - connection.sent, MSG_NOSIGNAL);
            if (sent < 0)
                return;
            connection.sent += static_cast<std::size_t>(sent);
            if (connection.sent < block.size())
                continue;
            connection.output.pop_front();
            connection.sent = 0;
        }
        watch(socket, EPOLLIN, EPOLL_CTL_MOD);
    }

    std::map<KvUInt32, Replies> m_replies;
    std::map<int, Connection> m_connections;
    std::vector<int> m_mappers;
    std::deque<Due> m_due;
    int m_epoll = -1;
    int m_listener = -1;
    pid_t m_child = -1;
};

/** A connection without the library: what the same bytes cost at least. */
class RawBoard
{
public:
    RawBoard(KvUInt32 address, std::uint16_t port) : m_socket(::socket(AF_INET, SOCK_STREAM, 0))
    {
        const sockaddr_in place = at(address, port);
        check(::connect(m_socket, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0, "connect");
        const int one = 1;
        ::setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    ~RawBoard() { ::close(m_socket); }
    RawBoard(const RawBoard&) = delete;
    RawBoard& operator=(const RawBoard&) = delete;

    void ask(const Bytes& question) const
    {
        check(::send(m_socket, question.data(), question.size(), 0) == static_cast<ssize_t>(question.size()), "send");
    }
    void take(unsigned char* place, std::size_t size) const
    {
        while (size != 0) {
            const ssize_t received = ::recv(m_socket, place, size, 0);
            check(received > 0, "recv");
            place += received;
            size -= static_cast<std::size_t>(received);
        }
    }

private:
    int m_socket;
};

double timeOf(const std::function<void()>& work)
{
    const auto began = Clock::now();
    work();
    return Milliseconds(Clock::now() - began).count();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void row(const char* name, double own, double floor, double limit)
{
    std::printf("%-46s %10.3f ms %10.3f ms %7.2f (at most %.2f)\n", name, own, floor, own / floor, limit);
    std::fflush(stdout);
}

void need(const KvCErrorListPool& errors)
{
    if (errors.getErrorCount() == 0)
        return;
    std::fprintf(stderr, "%s\n", errors.getErrorText(0));
    std::exit(1);
}

struct Block
{
    KvUInt32 length = 0;
    char* data = nullptr;
};

KvNXdr::bool_t xdr_block(KvNXdr::XDR* xdrs, Block* block)
{
    return KvNXdr::xdr_bytes(xdrs, &block->data, &block->length, 0xFFFFFFFF);
}

/** Calls of one client beside exchanges of the same bytes: `times` of them are one measurement. */
void benchCalls(const Server& server, const char* name, KvUInt32 procedure, std::size_t bytes, int times, int rounds,
                double limit)
{
    KvCErrorListPool errors;
    KvCRpcClient client(errors, "127.82.0.1");
    client.setParameter(errors, KvCRpcClient::Program, 8);
    client.setParameter(errors, KvCRpcClient::Version, 1);
    client.setParameter(errors, KvCRpcClient::Port, server.port);
    const RawBoard raw(plainAddress, server.port);
    const Bytes call = question(procedure, 0);
    std::unique_ptr<unsigned char[]> place;
    std::vector<double> own;
    std::vector<double> floor;
    for (int round = 0; round < rounds + 2; ++round) {
        own.push_back(timeOf([&] {
            for (int i = 0; i < times; ++i) {
                if (bytes == 0) {
                    client.clntCall(errors, procedure, nullptr, nullptr, nullptr, nullptr);
                    continue;
                }
                Block block;
                client.clntCall(errors, procedure, nullptr, nullptr, KvNXdr::proc<xdr_block>, &block);
                client.freeResults(KvNXdr::proc<xdr_block>, &block);
            }
        }));
        need(errors);
        floor.push_back(timeOf([&] {
            for (int i = 0; i < times; ++i) {
                const std::size_t whole = 28 + (bytes == 0 ? 0 : 4 + bytes);
                place.reset(new unsigned char[whole]);
                raw.ask(call);
                raw.take(place.get(), whole);
            }
        }));
    }
    own.erase(own.begin(), own.begin() + 2);
    floor.erase(floor.begin(), floor.begin() + 2);
    row(name, median(own) / times, median(floor) / times, limit);
}

/** A root handle over boards that were not discovered: their clients are made by the first scan. */
struct Boards
{
    Boards(KvUInt32 first, KvUInt32 count)
    {
        std::vector<KvDALSDeviceInfo> infos(count);
        for (KvUInt32 i = 0; i < count; ++i) {
            in_addr place{htonl(first + i)};
            std::snprintf(infos[i].hostAddress, sizeof infos[i].hostAddress, "%s", inet_ntoa(place));
            infos[i].serialNumber = i + 1;
            infos[i].ipAddress = first + i;
        }
        KvCInventoryManager::getInstance().createRootHandleByDeviceInfoList(errors, infos.data(),
                                                                            static_cast<int>(count), root);
    }
    ~Boards() { KvCInventoryManager::getInstance().deleteRootHandle(errors, root); }
    Boards(const Boards&) = delete;
    Boards& operator=(const Boards&) = delete;

    double scan(KvUInt32 expected)
    {
        KvCInventoryManager& manager = KvCInventoryManager::getInstance();
        KvCInventoryItem* tree = nullptr;
        const double took = timeOf([&] {
            manager.scan(errors, root, tree);
            need(errors);
            KvUInt32 found = 0;
            for (const KvCInventoryItem* item = tree->getFirstSubItem(); item != nullptr; item = item->getNext())
                ++found;
            check(found == expected, "boards");
            manager.deleteInventoryTree(tree);
        });
        return took;
    }

    KvCErrorListPool errors;
    KvCInventoryRootHandle* root = nullptr;
};

/** One read row: a stream to a tree, and the tree freed. */
void readRow(const Bytes& stream)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    buffer.writeBuffer(errors, stream.data(), static_cast<KvUInt32>(stream.size()), 1, -1);
    KvCInventoryItemFactory factory(errors);
    KvCInventoryItem* tree = nullptr;
    factory.deserialize(errors, tree, &buffer);
    delete tree;
    need(errors);
}

unsigned cores()
{
    return std::max(1U, std::thread::hardware_concurrency());
}

/** The read rows of all streams, on so many threads. */
double readAll(const std::vector<Bytes>& streams, unsigned threads)
{
    std::atomic<std::size_t> next{0};
    const auto read = [&] {
        for (std::size_t i = next++; i < streams.size(); i = next++)
            readRow(streams[i]);
    };
    return timeOf([&] {
        std::vector<std::thread> others;
        for (unsigned i = 1; i < threads; ++i)
            others.emplace_back(read);
        read();
        for (std::thread& other : others)
            other.join();
    });
}

/** Receiving the replies of all boards by raw sockets, all asked at once. */
double receiveAll(const std::vector<std::unique_ptr<RawBoard>>& raw, std::size_t bytes,
                  std::vector<std::unique_ptr<unsigned char[]>>& places)
{
    const Bytes call = question(1, 4);
    return timeOf([&] {
        for (std::size_t i = 0; i < raw.size(); ++i)
            raw[i]->ask(call);
        for (std::size_t i = 0; i < raw.size(); ++i) {
            places[i].reset(new unsigned char[bytes]);
            raw[i]->take(places[i].get(), bytes);
        }
    });
}

void benchScan(const Server& server, KvUInt32 first, KvUInt32 count, const std::vector<Bytes>& streams, double delay,
               int rounds, const char* firstName, double firstLimit, const char* secondName, double secondLimit)
{
    std::vector<std::unique_ptr<RawBoard>> raw;
    std::vector<std::unique_ptr<unsigned char[]>> places(count);
    for (KvUInt32 i = 0; i < count; ++i)
        raw.push_back(std::make_unique<RawBoard>(first + i, server.port));
    const std::size_t bytes = scanReply(streams[0]).size();
    std::vector<double> connecting;
    std::vector<double> second;
    std::vector<double> receiving;
    std::vector<double> reading;
    std::vector<double> readingAlone;
    for (int round = 0; round < rounds + 1; ++round) {
        receiving.push_back(receiveAll(raw, bytes, places));
        reading.push_back(readAll(streams, cores()));
        readingAlone.push_back(readAll(streams, 1));
        Boards all(first, count);
        connecting.push_back(all.scan(count));
        second.push_back(all.scan(count));
    }
    for (auto* values : {&connecting, &second, &receiving, &reading, &readingAlone})
        values->erase(values->begin());
    const double floor = delay + median(receiving) + median(reading);
    std::printf("  floor: waiting %.1f ms, receiving %.1f ms, reading on %u cores %.1f ms (on one %.1f ms)\n", delay,
                median(receiving), cores(), median(reading), median(readingAlone));
    if (firstName != nullptr)
        row(firstName, median(connecting), floor, firstLimit);
    row(secondName, median(second), floor, secondLimit);
}

}  // namespace

int main(int argc, char** argv)
{
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 15;
    const std::string only = argc > 2 ? argv[2] : "";
    const auto wanted = [&only](const char* part) { return only.empty() || only == part; };
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
    ::setrlimit(RLIMIT_NOFILE, &files);
    ::setenv("KVDAL_PORTMAP_PORT", std::to_string(mapperPort).c_str(), 1);

    Server server;
    const auto keep = [](const Bytes& bytes) { return std::make_shared<const Bytes>(bytes); };
    const KvUInt32 parameters = parametersFor(65536);
    std::vector<Bytes> streams;
    for (KvUInt32 i = 0; i < boards; ++i) {
        streams.push_back(treeStream(i + 1, parameters));
        server.add(firstBoard + i, {{1, keep(scanReply(streams.back()))}});
    }
    std::vector<Bytes> largeStreams;
    for (KvUInt32 i = 0; i < largeBoards; ++i) {
        largeStreams.push_back(treeStream(i + 1, parametersOfLargeBoard));
        server.add(firstLargeBoard + i, {{1, keep(scanReply(largeStreams.back()))}});
    }
    const auto blockOf = [&](std::size_t bytes) { return keep(reply(opaque(Bytes(bytes, 7)))); };
    server.add(plainAddress,
               {{0, keep(reply({}))}, {1, blockOf(64 << 10)}, {2, blockOf(1 << 20)}, {3, blockOf(16 << 20)}});
    server.start();

    std::printf("%-46s %13s %13s %7s\n", "work", "library", "raw", "ratio");
    if (wanted("calls")) {
        benchCalls(server, "null call", 0, 0, 2000, rounds, 1.25);
        benchCalls(server, "reply of 64 KiB", 1, 64 << 10, 300, rounds, 1.4);
        benchCalls(server, "reply of 1 MiB", 2, 1 << 20, 30, rounds, 1.4);
        benchCalls(server, "reply of 16 MiB", 3, 16 << 20, 4, rounds, 1.4);
    }
    if (wanted("scans"))
        benchScan(server, firstBoard, boards, streams, 20, rounds, "first scan of 200 boards", 2.5,
                  "second scan of 200 boards", 1.3);
    if (wanted("large"))
        benchScan(server, firstLargeBoard, largeBoards, largeStreams, 0, std::max(3, rounds / 3), nullptr, 0,
                  "scan of 8 boards, 1,000,000 parameters", 1.3);
    server.stop();
    return 0;
}
