// What calls and scans cost beside raw sockets that move the same bytes. Boards and raw exchanges are served by one
// process that is forked at the start; what is compared takes turns, and the medians give the ratios.
//
//     bench_remote [--json FILE] [rounds [calls|scans|large|curve]]

#include <arpa/inet.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <thread>

#include "base/KvCBuffer.h"
#include "bench/BoardServer.h"
#include "bench/Rows.h"
#include "bench/Trees.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "manager/KvCInventoryManager.h"
#include "platform/dal/KvDALBase.h"
#include "platform/oncrpc/KvCRpcClient.h"

namespace {

using namespace KvNBoards;

constexpr KvUInt32 firstBoard = 0x7F500001;  // 127.80.0.1: 200 boards with a tree of 64 KiB
constexpr KvUInt32 boards = 200;
constexpr KvUInt32 firstLargeBoard = 0x7F510001;  // 8 boards with 125,000 parameters each
constexpr KvUInt32 largeBoards = 8;
constexpr KvUInt32 parametersOfLargeBoard = 125000;
constexpr KvUInt32 plainAddress = 0x7F520001;  // answers procedure n with reply n

/** The stream of a board of the realistic tree. */
Bytes treeStream(KvUInt32 serialNumber, KvUInt32 parameters)
{
    KvCErrorListPool errors;
    KvCInventoryItem board(errors, KvNInventoryIDs::HCN[serialNumber], "HCN");
    KvNTrees::fillBoard(errors, board, parameters);
    KvCBuffer buffer(errors);
    KvCInventoryItemFactory factory(errors);
    factory.serialize(errors, &buffer, &board);
    check(errors.getErrorCount() == 0, "a tree for the boards");
    return Bytes(buffer.getStartPointer(), buffer.getWritePointer());
}

KvUInt32 parametersFor(std::size_t bytes)
{
    KvUInt32 parameters = 480;
    while (treeStream(1, parameters + 12).size() <= bytes)
        parameters += 12;
    return parameters;
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
void benchCalls(Rows& rows, const BoardServer& server, const char* name, KvUInt32 procedure, std::size_t bytes,
                int times, int rounds, double limit)
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
    rows.ratio(name, "raw sockets", median(own) / times * 1000, median(floor) / times * 1000, limit, "us");
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

using Streams = std::vector<std::unique_ptr<KvCBuffer>>;

Streams buffersOf(const std::vector<Bytes>& streams, KvUInt32 count)
{
    Streams buffers;
    KvCErrorListPool errors;
    for (KvUInt32 i = 0; i < count; ++i) {
        buffers.emplace_back(new KvCBuffer(errors));
        buffers.back()->writeBuffer(errors, streams[i].data(), static_cast<KvUInt32>(streams[i].size()), 1, -1);
    }
    need(errors);
    return buffers;
}

/** One read row: a stream to a tree, and the tree freed. */
void readRow(KvCBuffer& stream)
{
    KvCErrorListPool errors;
    KvCInventoryItemFactory factory(errors);
    KvCInventoryItem* tree = nullptr;
    factory.deserialize(errors, tree, &stream);
    delete tree;
    need(errors);
}

unsigned cores()
{
    return std::max(1U, std::thread::hardware_concurrency());
}

/** The read rows of all streams, on so many threads. */
double readAll(const Streams& streams, unsigned threads)
{
    std::atomic<std::size_t> next{0};
    const auto read = [&] {
        for (std::size_t i = next++; i < streams.size(); i = next++)
            readRow(*streams[i]);
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

struct ScanLimits
{
    double first = 0;
    double second = 0;
};

/** Scans of `count` boards from `first` on beside `delay` milliseconds, receiving the same bytes by raw sockets, and
   one read row of each stream, spread over the cores. Neither side walks the trees; both free them. */
void benchScan(Rows& rows, const BoardServer& server, KvUInt32 first, KvUInt32 count, const std::vector<Bytes>& streams,
               double delay, int rounds, const std::string& what, const ScanLimits& limits)
{
    std::vector<std::unique_ptr<RawBoard>> raw;
    std::vector<std::unique_ptr<unsigned char[]>> places(count);
    for (KvUInt32 i = 0; i < count; ++i)
        raw.push_back(std::make_unique<RawBoard>(first + i, server.port));
    const std::size_t bytes = scanReply(streams[0]).size();
    const Streams buffers = buffersOf(streams, count);
    std::vector<double> connecting;
    std::vector<double> second;
    std::vector<double> receiving;
    std::vector<double> reading;
    for (int round = 0; round < rounds + 1; ++round) {
        receiving.push_back(receiveAll(raw, bytes, places));
        reading.push_back(readAll(buffers, cores()));
        Boards all(first, count);
        connecting.push_back(all.scan(count));
        second.push_back(all.scan(count));
    }
    for (auto* values : {&connecting, &second, &receiving, &reading})
        values->erase(values->begin());
    const double floor = delay + median(receiving) + median(reading);
    std::printf("  floor: waiting %.1f ms, receiving %.1f ms, reading on %u cores %.1f ms\n", delay, median(receiving),
                cores(), median(reading));
    rows.ratio("first scan of " + what, "waiting, raw sockets and reading", median(connecting), floor, limits.first,
               "ms");
    rows.ratio("second scan of " + what, "waiting, raw sockets and reading", median(second), floor, limits.second,
               "ms");
}

}  // namespace

int main(int argc, char** argv)
{
    Rows rows(takeJsonOption(argc, argv));
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 15;
    const std::string only = argc > 2 ? argv[2] : "";
    const auto wanted = [&only](const char* part) { return only.empty() || only == part; };
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
    ::setrlimit(RLIMIT_NOFILE, &files);
    ::setenv("KVDAL_PORTMAP_PORT", std::to_string(mapperPort).c_str(), 1);

    BoardServer server;
    const auto keep = [](const Bytes& bytes) { return std::make_shared<const Bytes>(bytes); };
    const KvUInt32 parameters = parametersFor(65536);
    std::vector<Bytes> streams;
    for (KvUInt32 i = 0; i < boards; ++i) {
        streams.push_back(treeStream(i + 1, parameters));
        server.add(firstBoard + i, {{1, keep(scanReply(streams.back()))}}, true);
    }
    std::vector<Bytes> largeStreams;
    for (KvUInt32 i = 0; i < largeBoards && wanted("large"); ++i) {
        largeStreams.push_back(treeStream(i + 1, parametersOfLargeBoard));
        server.add(firstLargeBoard + i, {{1, keep(scanReply(largeStreams.back()))}});
    }
    const auto blockOf = [&](std::size_t bytes) { return keep(reply(opaque(Bytes(bytes, 7)))); };
    server.add(plainAddress,
               {{0, keep(reply({}))}, {1, blockOf(64 << 10)}, {2, blockOf(1 << 20)}, {3, blockOf(16 << 20)}});
    server.start();

    if (wanted("calls")) {
        benchCalls(rows, server, "null call", 0, 0, 2000, rounds, 1.25);
        benchCalls(rows, server, "reply of 64 KiB", 1, 64 << 10, 300, rounds, 1.4);
        benchCalls(rows, server, "reply of 1 MiB", 2, 1 << 20, 30, rounds, 1.4);
        benchCalls(rows, server, "reply of 16 MiB", 3, 16 << 20, 4, rounds, 1.4);
    }
    if (wanted("scans"))
        benchScan(rows, server, firstBoard, boards, streams, BoardServer::delay.count(), rounds, "200 boards",
                  {2.5, 1.3});
    if (wanted("large"))
        benchScan(rows, server, firstLargeBoard, largeBoards, largeStreams, 0, std::max(3, rounds / 3),
                  "8 boards with 1,000,000 parameters", {0, 1.3});
    for (const KvUInt32 count : {1U, 2U, 5U, 10U, 20U, 50U, 100U, 200U})
        if (only == "curve")
            benchScan(rows, server, firstBoard, count, streams, BoardServer::delay.count(), rounds,
                      std::to_string(count) + (count == 1 ? " board" : " boards"), {});
    server.stop();
    return 0;
}
