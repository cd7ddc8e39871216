#include "platform/oncrpc/RecordAssembler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include "FailingAllocation.h"
#include "RpcBytes.h"

using KvNRpc::ByteBudget;
using KvNRpc::Record;
using KvNRpc::RecordAssembler;
using RpcBytes::Bytes;
using RpcBytes::fragment;
using RpcBytes::record;
using RpcBytes::units;
using RpcBytes::operator+;
using State = RecordAssembler::State;

namespace {

Bytes bytesOf(const Record& record)
{
    return Bytes(record.data(), record.data() + record.size());
}

/** Feeds everything, in steps of `step` bytes; gives the records, and the state that ended it. */
std::pair<std::vector<Bytes>, State> feedAll(RecordAssembler& assembler, const Bytes& bytes, std::size_t step)
{
    std::vector<Bytes> records;
    for (std::size_t offset = 0; offset < bytes.size(); offset += step) {
        const unsigned char* data = bytes.data() + offset;
        std::size_t size = std::min(step, bytes.size() - offset);
        while (size != 0) {
            const State state = assembler.feed(data, size);
            if (state == State::Whole)
                records.push_back(bytesOf(assembler.take()));
            else if (state != State::More && state != State::Begun)
                return {records, state};
        }
    }
    return {records, State::More};
}

TEST(RecordAssembler, JoinsFragmentsInWhateverPiecesTheyArrive)
{
    const Bytes stream = record({1, 2, 3, 4, 5}) + fragment({6, 7}) + fragment({}) + fragment({8}) +
                         record({9, 10, 11}) + record(Bytes(3000, 12));
    const std::vector<Bytes> expected{{1, 2, 3, 4, 5}, {6, 7, 8, 9, 10, 11}, Bytes(3000, 12)};
    for (std::size_t step = 1; step < 40; ++step) {
        ByteBudget budget(100000);
        RecordAssembler assembler(5000, budget);
        const auto [records, state] = feedAll(assembler, stream, step);
        EXPECT_EQ(records, expected) << step;
        EXPECT_EQ(state, State::More);
        EXPECT_FALSE(assembler.inRecord());
        EXPECT_EQ(budget.held(), 0u);
    }
}

TEST(RecordAssembler, AnEmptyRecordIsARecord)
{
    ByteBudget budget(1000);
    RecordAssembler assembler(100, budget);
    EXPECT_EQ(feedAll(assembler, record({}), 1).first, std::vector<Bytes>{Bytes()});
}

TEST(RecordAssembler, TellsTheTransactionIdAsSoonAsItIsThere)
{
    ByteBudget budget(1000);
    RecordAssembler assembler(100, budget);
    const Bytes stream = fragment({1, 2, 3}) + fragment({4, 5});
    const unsigned char* data = stream.data();
    std::size_t size = stream.size();
    EXPECT_EQ(assembler.feed(data, size), State::Begun);
    EXPECT_EQ(assembler.transactionId(), 0x01020304u);
    EXPECT_EQ(size, 1u);
    EXPECT_TRUE(assembler.inRecord());
    EXPECT_EQ(assembler.feed(data, size), State::More);
}

TEST(RecordAssembler, GivesUpARecordBeyondTheLimitOnceItsCallIsKnown)
{
    ByteBudget budget(1 << 20);
    for (const std::uint32_t size : {17u, 0x7FFFFFFFu}) {
        RecordAssembler assembler(16, budget);
        EXPECT_EQ(feedAll(assembler, units({0x80000000u | size, 0xAABBCCDD}), 1).second, State::TooLong);
        EXPECT_EQ(assembler.transactionId(), 0xAABBCCDDu);
    }
    RecordAssembler exact(16, budget);
    EXPECT_EQ(feedAll(exact, record(Bytes(16, 1)), 1).first.size(), 1u);
    RecordAssembler fragments(16, budget);
    EXPECT_EQ(feedAll(fragments, fragment(Bytes(10, 1)) + units({7}), 1).second, State::TooLong);
}

TEST(RecordAssembler, MemoryGrowsWithWhatHasArrivedNotWithWhatIsClaimed)
{
    ByteBudget budget(1 << 30);
    RecordAssembler assembler(1 << 30, budget);
    const Bytes claim = units({0xBFFFFFFF});
    feedAll(assembler, claim, 4);
    EXPECT_EQ(budget.held(), 0u);
    feedAll(assembler, Bytes(5000, 1), 100);
    EXPECT_LE(budget.held(), 10000u);
}

TEST(RecordAssembler, TheWholeRecordTakesNoMoreThanItsSizeWhenItIsOneFragment)
{
    ByteBudget budget(1 << 30);
    RecordAssembler assembler(1 << 30, budget);
    feedAll(assembler, units({0x80000000u | 100001}), 4);
    feedAll(assembler, Bytes(100000, 1), 999);
    EXPECT_EQ(budget.held(), 100001u);
}

TEST(RecordAssembler, SixteenEmptyFragmentsAreBorneAndNoMore)
{
    ByteBudget budget(1000);
    Bytes empties;
    for (int i = 0; i < 16; ++i)
        empties = empties + fragment({});
    RecordAssembler patient(100, budget);
    EXPECT_EQ(feedAll(patient, empties + record({1}), 1).first, std::vector<Bytes>{{1}});
    RecordAssembler full(100, budget);
    EXPECT_EQ(feedAll(full, empties + fragment({}), 1).second, State::EmptyFragments);
    RecordAssembler mixed(100, budget);
    EXPECT_EQ(feedAll(mixed, empties + fragment({1}) + empties + record({2}), 1).first, (std::vector<Bytes>{{1, 2}}));
}

TEST(RecordAssembler, ASkippedRecordTakesNoMemory)
{
    ByteBudget budget(10000);
    RecordAssembler assembler(100, budget);
    const Bytes stream = units({0x80000000u | 50, 7}) + Bytes(46, 1) + record({1, 2, 3, 4});
    const unsigned char* data = stream.data();
    std::size_t size = stream.size();
    ASSERT_EQ(assembler.feed(data, size), State::Begun);
    assembler.skip();
    EXPECT_EQ(budget.held(), 0u);
    EXPECT_EQ(assembler.feed(data, size), State::Skipped);
    EXPECT_EQ(assembler.feed(data, size), State::Whole);
    EXPECT_EQ(bytesOf(assembler.take()), (Bytes{1, 2, 3, 4}));
}

TEST(RecordAssembler, ARecordHoldsItsBudgetUntilItDies)
{
    ByteBudget budget(4096);
    RecordAssembler first(4096, budget);
    RecordAssembler second(4096, budget);
    const Bytes stream = record(Bytes(3000, 1));
    const unsigned char* data = stream.data();
    std::size_t size = stream.size();
    State state = first.feed(data, size);
    while (state == State::Begun || state == State::More)
        state = first.feed(data, size);
    ASSERT_EQ(state, State::Whole);
    {
        const Record held = first.take();
        EXPECT_EQ(budget.held(), 3000u);
        EXPECT_EQ(feedAll(second, stream, 100).second, State::OutOfBudget);
    }
    RecordAssembler third(4096, budget);
    EXPECT_EQ(feedAll(third, record(Bytes(500, 1)), 100).first.size(), 1u);
}

TEST(RecordAssembler, ALackOfMemoryIsToldAndTheRecordCanBeSkipped)
{
    ByteBudget budget(1 << 20);
    RecordAssembler assembler(100000, budget);
    const Bytes stream = record(Bytes(50000, 1)) + record({1, 2, 3, 4});
    const FailingAllocation failing(2);
    const unsigned char* data = stream.data();
    std::size_t size = stream.size();
    ASSERT_EQ(assembler.feed(data, size), State::Begun);
    ASSERT_EQ(assembler.feed(data, size), State::OutOfMemory);
    assembler.skip();
    EXPECT_EQ(budget.held(), 0u);
    EXPECT_EQ(assembler.feed(data, size), State::Skipped);
    EXPECT_EQ(assembler.feed(data, size), State::Whole);
}

TEST(RecordAssembler, TheMarkOfARecordHasTheHighestBit)
{
    unsigned char mark[4];
    KvNRpc::putRecordMark(mark, 0x01020304);
    EXPECT_EQ(Bytes(mark, mark + 4), (Bytes{0x81, 2, 3, 4}));
}

/** As a stream does it: in place where there is room, in steps of at most `step` bytes. */
std::vector<Bytes> receiveAll(RecordAssembler& assembler, const Bytes& bytes, std::size_t step)
{
    std::vector<Bytes> records;
    for (std::size_t offset = 0; offset < bytes.size();) {
        unsigned char* place = nullptr;
        const std::size_t room = assembler.room(place);
        const unsigned char* data = bytes.data() + offset;
        std::size_t size = std::min(step, bytes.size() - offset);
        if (room != 0) {
            size = std::min(size, room);
            std::memcpy(place, data, size);
            offset += size;
            if (assembler.arrived(size) == State::Whole)
                records.push_back(bytesOf(assembler.take()));
            continue;
        }
        offset += size;
        while (size != 0)
            if (assembler.feed(data, size) == State::Whole)
                records.push_back(bytesOf(assembler.take()));
    }
    return records;
}

TEST(RecordAssembler, TakesLargeRecordsInPlace)
{
    Bytes first(500000);
    for (std::size_t i = 0; i < first.size(); ++i)
        first[i] = static_cast<unsigned char>(i * 7 + i / 256);
    const Bytes second(70000, 2);
    const Bytes stream = fragment(first) + record(second) + record({3, 4, 5, 6}) + record(first);
    const std::vector<Bytes> expected{first + second, {3, 4, 5, 6}, first};
    for (const std::size_t step : {1000u, 4096u, 65536u, 65537u, 300000u, 2000000u}) {
        ByteBudget budget(4000000);
        RecordAssembler assembler(1000000, budget);
        EXPECT_TRUE(receiveAll(assembler, stream, step) == expected) << step;
        EXPECT_EQ(0u, budget.held());
    }
}

TEST(RecordAssembler, HasNoMoreRoomThanTwiceWhatHasArrived)
{
    ByteBudget budget(1u << 30);
    RecordAssembler assembler(1u << 30, budget);
    const Bytes head = units({0x80000000u | (512u << 20), 0xAABBCCDD});
    std::size_t arrived = 4;
    const unsigned char* data = head.data();
    std::size_t size = head.size();
    EXPECT_EQ(State::Begun, assembler.feed(data, size));
    for (int i = 0; i < 12; ++i) {
        unsigned char* place = nullptr;
        const std::size_t room = assembler.room(place);
        ASSERT_NE(0u, room);
        EXPECT_GE(std::max<std::size_t>(2 * arrived, arrived + 65536) + 8, budget.held());
        std::memset(place, i, room);
        EXPECT_EQ(State::More, assembler.arrived(room));
        arrived += room;
    }
}

TEST(RecordAssembler, HasNoRoomForWhatNobodyWantsOrBeyondTheBudget)
{
    unsigned char* place = nullptr;
    const Bytes head = units({0x80000000u | 100000, 0xAABBCCDD});
    ByteBudget small(50000);
    RecordAssembler poor(1u << 20, small);
    const unsigned char* data = head.data();
    std::size_t size = head.size();
    EXPECT_EQ(State::Begun, poor.feed(data, size));
    EXPECT_EQ(0u, poor.room(place));

    ByteBudget budget(1u << 20);
    RecordAssembler skipping(1u << 20, budget);
    EXPECT_EQ(0u, skipping.room(place));
    data = head.data();
    size = head.size();
    EXPECT_EQ(State::Begun, skipping.feed(data, size));
    skipping.skip();
    EXPECT_EQ(0u, skipping.room(place));
}

#if !defined(KV_PLAIN_OBJECTS)
TEST(RecordAssembler, ReceivesInTheBlockThatARecordOfItsSizeHad)
{
    ByteBudget budget(1u << 20);
    const void* block = nullptr;
    std::vector<Bytes> others;
    for (int i = 0; i < 3; ++i) {
        // Something else takes the memory that the allocator would give at once.
        for (int k = 0; k < 3; ++k)
            others.emplace_back(300000);
        RecordAssembler assembler(1u << 20, budget);
        const Bytes stream = record(Bytes(300000, static_cast<unsigned char>(i)));
        const unsigned char* data = stream.data();
        std::size_t size = stream.size();
        EXPECT_EQ(State::Begun, assembler.feed(data, size));
        EXPECT_EQ(State::Whole, assembler.feed(data, size));
        EXPECT_EQ(300000u, budget.held());
        const Record whole = assembler.take();
        EXPECT_EQ(Bytes(300000, static_cast<unsigned char>(i)), bytesOf(whole));
        if (i != 0) {
            EXPECT_EQ(block, whole.data());
        }
        block = whole.data();
    }
    EXPECT_EQ(0u, budget.held());
}
#endif

TEST(RecordAssembler, HasRoomWithinTheBudgetWhateverRecordsCameBefore)
{
    for (const std::size_t before : {300000u, 310000u, 290001u}) {
        ByteBudget large(1u << 20);
        RecordAssembler first(1u << 20, large);
        ASSERT_EQ(1u, receiveAll(first, record(Bytes(before, 1)), 65536).size());
        ByteBudget budget(290000);
        RecordAssembler assembler(1u << 20, budget);
        EXPECT_TRUE(receiveAll(assembler, record(Bytes(290000, 2)), 65536) == std::vector<Bytes>{Bytes(290000, 2)});
        EXPECT_EQ(0u, budget.held());
    }
}

TEST(RecordAssembler, KeepsRecordsOfManyThreadsApart)
{
    ByteBudget budget(1u << 30);
    std::vector<std::thread> threads;
    for (unsigned char i = 0; i < 4; ++i)
        threads.emplace_back([&budget, i] {
            const Bytes expected(200000u + 1000u * i, i);
            const Bytes stream = record(expected);
            for (int k = 0; k < 50; ++k) {
                RecordAssembler assembler(1u << 20, budget);
                EXPECT_TRUE(receiveAll(assembler, stream, 65536) == std::vector<Bytes>{expected});
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0u, budget.held());
}

}  // namespace
