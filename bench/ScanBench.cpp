// What a scan of running boards costs. The boards' addresses come from KV_BENCH_BOARDS (dotted quads, separated by
// commas), their port mappers' port from KVDAL_PORTMAP_PORT; for example those that
// `kvboardd --boards samples/rack-boards.json --portmap 10111` serves.

#include <benchmark/benchmark.h>

#include <cstdlib>

#include "inventory/KvCInventoryItem.h"
#include "manager/KvCInventoryManager.h"

namespace {

void scan(benchmark::State& state)
{
    const char* addresses = std::getenv("KV_BENCH_BOARDS");
    if (addresses == nullptr) {
        state.SkipWithError("KV_BENCH_BOARDS names no boards");
        return;
    }
    KvCErrorListPool errors;
    KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    KvCInventoryRootHandle* boards = nullptr;
    manager.createRootHandleByIpAddressList(errors, addresses, boards);
    KvUInt32 count = 0;
    manager.getRootHandleCount(errors, boards, count);
    for (auto _ : state) {
        KvCInventoryItem* tree = nullptr;
        if (manager.scan(errors, boards, tree) != 0)
            state.SkipWithError("the scan failed");
        manager.deleteInventoryTree(tree);
    }
    state.counters["boards"] = count;
    if (boards != nullptr)
        manager.deleteRootHandle(errors, boards);
}
BENCHMARK(scan)->Unit(benchmark::kMillisecond);

}  // namespace
