#include "platform/errorhandling/ObjectSlabs.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/support/FailingAllocation.h"

namespace {

std::vector<ObjectSlabs::Room> takeMany(std::size_t count, std::size_t bytes)
{
    ObjectSlabs slabs;
    std::vector<ObjectSlabs::Room> rooms;
    for (std::size_t i = 0; i < count; ++i) {
        rooms.push_back(slabs.take(bytes, (count - i) * bytes));
        std::memset(rooms.back().memory, static_cast<int>(i), bytes);
    }
    return rooms;
}

bool isUntouched(const std::vector<ObjectSlabs::Room>& rooms, std::size_t bytes)
{
    for (std::size_t i = 0; i < rooms.size(); ++i)
        for (std::size_t k = 0; k < bytes; ++k)
            if (static_cast<unsigned char*>(rooms[i].memory)[k] != static_cast<unsigned char>(i))
                return false;
    return true;
}

}  // namespace

TEST(ObjectSlabs, ObjectsStandApartAndAligned)
{
    for (const std::size_t bytes : {1U, 8U, 13U, 104U, 1024U}) {
        const auto rooms = takeMany(1000, bytes);
        EXPECT_TRUE(isUntouched(rooms, bytes)) << bytes;
        for (const ObjectSlabs::Room& room : rooms) {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(room.memory) % 8, 0U);
            ObjectSlabs::release(room.memory, room.place);
        }
    }
}

TEST(ObjectSlabs, ObjectsAreGivenBackInAnyOrderByAnyThread)
{
    const auto rooms = takeMany(4000, 120);
    std::vector<std::thread> threads;
    for (std::size_t first = 0; first < 4; ++first) {
        threads.emplace_back([&rooms, first] {
            ObjectSlabs::Releases together;
            for (std::size_t i = rooms.size() - 1 - first; i < rooms.size(); i -= 4) {
                const ObjectSlabs::Room room = rooms[i];
                if (i % 3 == 0 || room.place == 0)
                    ObjectSlabs::release(room.memory, room.place);
                else
                    together.add(room.memory, room.place);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST(ObjectSlabs, ObjectsMayEndWhileOthersAreTaken)
{
    ObjectSlabs slabs;
    for (int i = 0; i < 2000; ++i) {
        const ObjectSlabs::Room room = slabs.take(100, 1000);
        ASSERT_NE(room.memory, nullptr);
        ObjectSlabs::release(room.memory, room.place);
    }
}

TEST(ObjectSlabs, TheHookIsAskedForEachObject)
{
    ObjectSlabs slabs;
    {
        const FailingAllocation counted(0);
        for (int i = 0; i < 10; ++i) {
            const ObjectSlabs::Room room = slabs.take(100, 1000);
            ObjectSlabs::release(room.memory, room.place);
        }
        EXPECT_EQ(counted.count(), 10U);
    }
    const FailingAllocation second(2);
    const ObjectSlabs::Room first = slabs.take(100, 1000);
    EXPECT_NE(first.memory, nullptr);
    EXPECT_EQ(slabs.take(100, 1000).memory, nullptr);
    ObjectSlabs::release(first.memory, first.place);
}

#ifdef KV_WATCHES_MEMORY
TEST(ObjectSlabs, NothingButLivingObjectsMayBeTouched)
{
    ObjectSlabs slabs;
    const ObjectSlabs::Room dead = slabs.take(104, 1000);
    const ObjectSlabs::Room together = slabs.take(104, 1000);
    const ObjectSlabs::Room alive = slabs.take(13, 1000);
    ObjectSlabs::release(dead.memory, dead.place, 104);
    {
        ObjectSlabs::Releases releases;
        releases.add(together.memory, together.place, 104);
    }
    const auto read = [](const ObjectSlabs::Room& room, std::size_t at) {
        return static_cast<const volatile unsigned char*>(room.memory)[at];
    };
    EXPECT_DEATH(read(dead, 0), "use-after-poison");
    EXPECT_DEATH(read(dead, 103), "use-after-poison");
    EXPECT_DEATH(read(together, 40), "use-after-poison");
    EXPECT_DEATH(read(alive, 13), "use-after-poison");
    std::memset(alive.memory, 1, 13);
    EXPECT_EQ(read(alive, 12), 1);
    ObjectSlabs::release(alive.memory, alive.place, 13);
}
#endif
