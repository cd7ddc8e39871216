#include "platform/dal/HandleTable.h"

#include <gtest/gtest.h>

#include <set>

using namespace KvNDeviceAccess;

namespace {

template <EntryKind of>
struct Probe : Entry
{
    static constexpr EntryKind entryKind = of;
    explicit Probe(int& alive) : Entry(of), m_alive(alive) { ++m_alive; }
    ~Probe() override { --m_alive; }

private:
    int& m_alive;
};

using FilterProbe = Probe<EntryKind::Filter>;
using DeviceProbe = Probe<EntryKind::Device>;

}  // namespace

TEST(HandleTable, findsWhatWasEnteredUntilItIsTaken)
{
    int alive = 0;
    HandleTable table(10);
    void* handle = table.add(makeShared<FilterProbe>(alive));
    ASSERT_NE(handle, nullptr);
    EXPECT_NE(table.find<FilterProbe>(handle), nullptr);
    EXPECT_NE(table.take<FilterProbe>(handle), nullptr);
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(table.find<FilterProbe>(handle), nullptr);
    EXPECT_EQ(table.take<FilterProbe>(handle), nullptr);
}

TEST(HandleTable, doesNotTakeAHandleOfOneKindForAnother)
{
    int alive = 0;
    HandleTable table(10);
    void* handle = table.add(makeShared<FilterProbe>(alive));
    EXPECT_EQ(table.find<DeviceProbe>(handle), nullptr);
    EXPECT_EQ(table.take<DeviceProbe>(handle), nullptr);
    EXPECT_NE(table.find<FilterProbe>(handle), nullptr);
}

TEST(HandleTable, refusesNullForeignAndGuessedHandles)
{
    int alive = 0;
    HandleTable table(10);
    void* handle = table.add(makeShared<FilterProbe>(alive));
    const auto key = reinterpret_cast<std::uintptr_t>(handle);
    int local = 0;
    for (const std::uintptr_t guess : {std::uintptr_t{0}, std::uintptr_t{1}, key + 1, key - 1, key << 1, ~key,
                                       ~std::uintptr_t{0}, reinterpret_cast<std::uintptr_t>(&local)})
        EXPECT_EQ(table.find<FilterProbe>(reinterpret_cast<void*>(guess)), nullptr) << guess;
}

TEST(HandleTable, recognisesAStaleHandleWhosePlaceIsUsedAgain)
{
    int alive = 0;
    HandleTable table(1);
    std::set<void*> former;
    for (int i = 0; i < 1000; ++i) {
        void* handle = table.add(makeShared<FilterProbe>(alive));
        ASSERT_NE(handle, nullptr);
        for (void* stale : former)
            ASSERT_EQ(table.find<FilterProbe>(stale), nullptr);
        ASSERT_TRUE(former.insert(handle).second);
        ASSERT_NE(table.take<FilterProbe>(handle), nullptr);
    }
}

TEST(HandleTable, givesNullWhenItIsFullAndGoesOnWhenAPlaceIsFree)
{
    int alive = 0;
    HandleTable table(2);
    void* first = table.add(makeShared<FilterProbe>(alive));
    void* second = table.add(makeShared<DeviceProbe>(alive));
    EXPECT_EQ(table.add(makeShared<FilterProbe>(alive)), nullptr);
    EXPECT_EQ(alive, 2);
    table.take<FilterProbe>(first);
    void* third = table.add(makeShared<FilterProbe>(alive));
    EXPECT_NE(third, nullptr);
    EXPECT_NE(third, first);
    EXPECT_NE(table.find<DeviceProbe>(second), nullptr);
}

TEST(HandleTable, usesAFreedPlaceAgainAsLateAsPossible)
{
    int alive = 0;
    HandleTable table(100);
    void* handles[3];
    for (void*& handle : handles)
        handle = table.add(makeShared<FilterProbe>(alive));
    table.take<FilterProbe>(handles[1]);
    table.take<FilterProbe>(handles[0]);
    const auto place = [](void* handle) { return reinterpret_cast<std::uintptr_t>(handle) & 0xFFFF; };
    EXPECT_EQ(place(table.add(makeShared<FilterProbe>(alive))), place(handles[1]));
    EXPECT_EQ(place(table.add(makeShared<FilterProbe>(alive))), place(handles[0]));
}

TEST(HandleTable, keepsAnEntryAliveForWhoeverFoundIt)
{
    int alive = 0;
    HandleTable table(10);
    void* handle = table.add(makeShared<FilterProbe>(alive));
    auto found = table.find<FilterProbe>(handle);
    table.take<FilterProbe>(handle);
    EXPECT_EQ(alive, 1);
    found.reset();
    EXPECT_EQ(alive, 0);
}
