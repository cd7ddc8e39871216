// What reading, holding and writing trees costs, for one parameter and for one child, at sizes that show the growth.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstddef>
#include <memory>

#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/ids/KvNInventoryIDs.h"

namespace {

using Tree = std::unique_ptr<KvCInventoryItem>;

/** A root with `count` children of four parameters each, as the channels of a board are. */
Tree makeRealistic(KvCErrorListPool& errors, KvUInt32 count)
{
    Tree root(new KvCInventoryItem(errors, KvNInventoryIDs::ROOT, "ROOT"));
    for (KvUInt32 i = 1; i <= count / 4; ++i) {
        const KvCInventoryAddress channel(KvNInventoryIDs::IOCHANNEL.getCategory(), i);
        KvCInventoryItem* item = root->addPath(errors, channel);
        item->createParameter<KvUInt32>(errors, KvNInventoryIDs::CHANNEL_NUMBER, i, "", false, 0, nullptr, nullptr,
                                        nullptr);
        item->createParameter<double>(errors, KvNInventoryIDs::VOLTAGE_MAX, 10.5, "V", true, 3, nullptr, nullptr,
                                      nullptr);
        item->createParameter<KvCString>(errors, KvNInventoryIDs::SIGNAL_NAME, KvCString("AI 17"), "", true, 0, nullptr,
                                         nullptr, nullptr);
        item->createParameter<float>(errors, KvNInventoryIDs::SCALING_FACTOR, 0.5F, "", false, 0, nullptr, nullptr,
                                     nullptr);
    }
    return root;
}

/** One item with `count` parameters: the catalogue's IDs first, then numbers without a name. */
Tree makeFat(KvCErrorListPool& errors, KvUInt32 count)
{
    Tree root(new KvCInventoryItem(errors, KvNInventoryIDs::ROOT, "ROOT"));
    for (KvUInt32 i = 1; i <= count; ++i) {
        auto* parameter = new KvCInventoryParameter(errors, KvCInventoryAddress(i), KvNInventoryIDs::Map.get(i), i, "",
                                                    false, KvUInt32{0});
        root->addParameter(errors, KvNInventoryIDs::THIS_NODE, parameter);
    }
    return root;
}

/** One item with `count` children without parameters. */
Tree makeWide(KvCErrorListPool& errors, KvUInt32 count)
{
    Tree root(new KvCInventoryItem(errors, KvNInventoryIDs::ROOT, "ROOT"));
    for (KvUInt32 i = 1; i <= count; ++i)
        root->addPath(errors, KvCInventoryAddress(KvNInventoryIDs::IOCHANNEL.getCategory(), i));
    return root;
}

std::size_t allocations = 0;

bool countAllocation(void*, std::size_t)
{
    ++allocations;
    return true;
}

template <Tree (*make)(KvCErrorListPool&, KvUInt32)>
void read(benchmark::State& state)
{
    KvCErrorListPool errors;
    const KvUInt32 count = static_cast<KvUInt32>(state.range(0));
    KvCBuffer stream(errors);
    KvCInventoryItemFactory factory(errors);
    factory.serialize(errors, &stream, make(errors, count).get());
    KvNAllocation::setHook(countAllocation, nullptr);
    std::size_t held = 0;
    allocations = 0;
    for (auto _ : state) {
        const std::size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
        KvCInventoryItem* tree = nullptr;
        factory.deserialize(errors, tree, &stream);
        held = mallinfo2().uordblks + mallinfo2().hblkhd - before;
        delete tree;
    }
    KvNAllocation::setHook(nullptr, nullptr);
    const double total = static_cast<double>(count);
    state.counters["allocations"] = static_cast<double>(allocations) / static_cast<double>(state.iterations()) / total;
    state.counters["bytes"] = static_cast<double>(held) / total;
    state.counters["each"] =
        benchmark::Counter(total, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    if (errors.getErrorCount() != 0)
        state.SkipWithError(errors.getErrorText(0));
}

template <Tree (*make)(KvCErrorListPool&, KvUInt32)>
void write(benchmark::State& state)
{
    KvCErrorListPool errors;
    const KvUInt32 count = static_cast<KvUInt32>(state.range(0));
    const Tree tree = make(errors, count);
    KvCInventoryItemFactory factory(errors);
    KvNAllocation::setHook(countAllocation, nullptr);
    allocations = 0;
    for (auto _ : state) {
        KvCBuffer stream(errors);
        factory.serialize(errors, &stream, tree.get());
        benchmark::DoNotOptimize(stream.getStartPointer());
    }
    KvNAllocation::setHook(nullptr, nullptr);
    const double total = static_cast<double>(count);
    state.counters["allocations"] = static_cast<double>(allocations) / static_cast<double>(state.iterations()) / total;
    state.counters["each"] =
        benchmark::Counter(total, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    if (errors.getErrorCount() != 0)
        state.SkipWithError(errors.getErrorText(0));
}

BENCHMARK(read<makeRealistic>)
    ->Name("read/realistic")
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(read<makeFat>)
    ->Name("read/parameters of one item")
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(read<makeWide>)
    ->Name("read/children of one item")
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(write<makeRealistic>)
    ->Name("write/realistic")
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(write<makeFat>)
    ->Name("write/parameters of one item")
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(write<makeWide>)
    ->Name("write/children of one item")
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
