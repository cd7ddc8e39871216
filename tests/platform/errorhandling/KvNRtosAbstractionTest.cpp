#include "platform/errorhandling/KvNRtosAbstraction.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/support/FailingAllocation.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

using namespace KvNRtosAbstraction;

TEST(Mutex, IsHeldByOne)
{
    Mutex* mutex = nullptr;
    ASSERT_TRUE(initMutex(&mutex, nullptr));
    ASSERT_TRUE(lockMutex(mutex, -1));
    std::atomic<bool> entered{false};
    std::thread other([&] {
        EXPECT_TRUE(lockMutex(mutex, -1));
        entered = true;
        unlockMutex(mutex);
    });
    EXPECT_FALSE(entered);
    unlockMutex(mutex);
    other.join();
    EXPECT_TRUE(entered);
    deleteMutex(mutex);
}

TEST(Mutex, IsGivenUpAfterTheTime)
{
    Mutex* mutex = nullptr;
    ASSERT_TRUE(initMutex(&mutex, nullptr));
    ASSERT_TRUE(lockMutex(mutex, 0));
    std::thread other([&] { EXPECT_FALSE(lockMutex(mutex, 1)); });
    other.join();
    unlockMutex(mutex);
    deleteMutex(mutex);
}

TEST(Mutex, IsNullWithoutMemory)
{
    Mutex* mutex = nullptr;
    const FailingAllocation none(1, true);
    EXPECT_FALSE(initMutex(&mutex, nullptr));
    EXPECT_EQ(mutex, nullptr);
    EXPECT_FALSE(lockMutex(mutex, -1));
    unlockMutex(mutex);
    deleteMutex(mutex);
}

TEST(IpV4, IsReadFromDottedQuads)
{
    EXPECT_EQ(stringToIpV4("10.0.0.2"), 0x0A000002U);
    EXPECT_EQ(stringToIpV4("255.255.255.255"), 0xFFFFFFFFU);
    EXPECT_EQ(stringToIpV4("0.0.0.1"), 1U);
    EXPECT_EQ(stringToIpV4("127.0.0.11"), 0x7F00000BU);
    EXPECT_EQ(stringToIpV4("0x7f.0X0.0.0xB"), 0x7F00000BU);
    EXPECT_EQ(stringToIpV4("010.0.0.08"), 0x0A000008U) << "decimal, whatever its leading zeros";
}

TEST(IpV4, IsZeroForAnythingElse)
{
    for (const char* text : {"",
                             "1",
                             "1.2.3",
                             "1.2.3.",
                             ".1.2.3",
                             "1..2.3",
                             "1.2.3.4.",
                             "1.2.3.4.5",
                             "256.0.0.1",
                             "1.2.3.4294967297",
                             "1.2.3.18446744073709551617",
                             "a.b.c.d",
                             "0x.0.0.1",
                             "0x100.0.0.1",
                             " 1.2.3.4",
                             "1.2.3.4 ",
                             "-1.2.3.4",
                             "1.2.3.0x",
                             "1,2,3,4",
                             "0.0.0.0"})
        EXPECT_EQ(stringToIpV4(text), 0U) << text;
    EXPECT_EQ(stringToIpV4(nullptr), 0U);
}

TEST(IpV4, IsWrittenAsDottedQuad)
{
    char text[ipTextSize];
    EXPECT_STREQ(ipToString(0x0A000002, text, sizeof text), "10.0.0.2");
    EXPECT_STREQ(ipToString(0xFFFFFFFF, text, sizeof text), "255.255.255.255");
    EXPECT_STREQ(ipToString(0, text, sizeof text), "0.0.0.0");
    EXPECT_STREQ(ipToString(0x0A000002, text, 5), "10.0");
}

class RegularFile : public testing::Test
{
protected:
    RegularFile()
        : folder(std::filesystem::temp_directory_path() / ("kv-rtos-" + std::to_string(std::random_device()())))
    {
        std::filesystem::create_directories(folder);
    }
    ~RegularFile() override { std::filesystem::remove_all(folder); }

    std::FILE* open(const std::filesystem::path& path) { return openRegularFile(path.string().c_str(), &size, &kind); }

    std::filesystem::path folder;
    KvUInt64 size = 99;
    FileKind kind = FileKind::Missing;
};

TEST_F(RegularFile, TellsItsSize)
{
    std::ofstream(folder / "three") << "abc";
    std::FILE* file = open(folder / "three");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(kind, FileKind::Regular);
    EXPECT_EQ(size, 3U);
    char text[4] = {};
    EXPECT_EQ(std::fread(text, 1, 4, file), 3U);
    EXPECT_STREQ(text, "abc");
    std::fclose(file);
}

TEST_F(RegularFile, TellsSizesBeyondFourGigabytes)
{
    std::ofstream(folder / "sparse") << "";
    std::filesystem::resize_file(folder / "sparse", 0x100000001);
    std::FILE* file = open(folder / "sparse");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(size, 0x100000001U);
    std::fclose(file);
}

TEST_F(RegularFile, IsNothingElse)
{
    EXPECT_EQ(open(folder / "missing"), nullptr);
    EXPECT_EQ(kind, FileKind::Missing);
    EXPECT_EQ(open(folder), nullptr);
    EXPECT_EQ(kind, FileKind::Other);
#ifndef _WIN32
    EXPECT_EQ(open("/dev/zero"), nullptr);
    EXPECT_EQ(kind, FileKind::Other);
    const std::string pipe = (folder / "pipe").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(open(pipe), nullptr) << "and it does not wait for a writer";
    EXPECT_EQ(kind, FileKind::Other);
#endif
}

TEST(SideBySide, RunsOnAsManyThreadsAsAskedForAtOnce)
{
    struct Meeting
    {
        std::mutex mutex;
        std::condition_variable changed;
        unsigned present = 0;
    } meeting;
    const auto meet = [](void* context) {
        Meeting& all = *static_cast<Meeting*>(context);
        std::unique_lock lock(all.mutex);
        ++all.present;
        all.changed.notify_all();
        all.changed.wait(lock, [&all] { return all.present == 8; });
    };
    KvNRtosAbstraction::runSideBySide(7, meet, &meeting);
    EXPECT_EQ(meeting.present, 8u);
    EXPECT_LE(1u, KvNRtosAbstraction::processorCount());
}

/** More than the stacks of helpers have room for; it comes with every thread of this program. */
thread_local unsigned char largeVariable[3 << 20];

TEST(SideBySide, HasThreadsWithRoomForWorkWhateverElseTheyBringAlong)
{
    std::atomic<unsigned> runs{0};
    const auto count = [](void* context) {
        largeVariable[sizeof largeVariable - 1] = 1;
        volatile unsigned char room[128 << 10];
        for (std::size_t i = 0; i < sizeof room; i += 4096)
            room[i] = 1;
        ++*static_cast<std::atomic<unsigned>*>(context);
    };
    KvNRtosAbstraction::runSideBySide(3, count, &runs);
    EXPECT_EQ(runs, 4u);
}

TEST(SideBySide, RunsOnTheCallersThreadWhenThereIsNoOther)
{
    struct Seen
    {
        std::atomic<unsigned> runs{0};
        std::thread::id last;
    } seen;
    const auto look = [](void* context) {
        Seen& all = *static_cast<Seen*>(context);
        ++all.runs;
        all.last = std::this_thread::get_id();
    };
    KvNRtosAbstraction::runSideBySide(0, look, &seen);
    EXPECT_EQ(seen.runs, 1u);
    EXPECT_EQ(seen.last, std::this_thread::get_id());
    const FailingAllocation failing(1, true);
    KvNRtosAbstraction::runSideBySide(5, look, &seen);
    EXPECT_EQ(seen.runs, 2u);
    EXPECT_EQ(seen.last, std::this_thread::get_id());
}

}  // namespace
