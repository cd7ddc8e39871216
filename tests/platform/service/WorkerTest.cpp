#include "platform/service/Worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <string>

namespace {

using KvNService::Worker;

/** Waits until something is done, at most a minute. */
class WorkerTest : public testing::Test
{
protected:
    void wait()
    {
        std::unique_lock guard(m_mutex);
        m_woken.wait_for(guard, std::chrono::minutes(1), [this] { return m_count != 0; });
        --m_count;
    }

    std::mutex m_mutex;
    std::condition_variable m_woken;
    int m_count = 0;
    Worker m_worker{[this] {
        const std::lock_guard guard(m_mutex);
        ++m_count;
        m_woken.notify_one();
    }};
    std::string m_done;
};

TEST_F(WorkerTest, WorkIsDoneBesideInOrderAndWhatFollowsHere)
{
    const auto here = std::this_thread::get_id();
    std::string worked;
    for (const char* name : {"a", "b", "c"})
        m_worker.run(
            [&, name] {
                EXPECT_NE(std::this_thread::get_id(), here);
                worked += name;
            },
            [&, name] {
                EXPECT_EQ(std::this_thread::get_id(), here);
                m_done += name;
            });
    for (int i = 0; i < 3; ++i)
        wait();
    EXPECT_EQ(m_done, "") << "nothing follows by itself";
    m_worker.collect();
    EXPECT_EQ(worked, "abc");
    EXPECT_EQ(m_done, "abc");
    m_worker.collect();
    EXPECT_EQ(m_done, "abc");
}

TEST_F(WorkerTest, WhatFollowsMayGiveMoreWork)
{
    m_worker.run([] {}, [this] { m_worker.run([] {}, [this] { m_done += "second"; }); });
    wait();
    m_worker.collect();
    EXPECT_EQ(m_done, "");
    wait();
    m_worker.collect();
    EXPECT_EQ(m_done, "second");
}

TEST_F(WorkerTest, AnExceptionEndsOnlyTheOneThatThrowsIt)
{
    m_worker.run([] {}, [] { throw std::bad_alloc(); });
    m_worker.run([] {}, [this] { m_done = "second"; });
    wait();
    wait();
    m_worker.collect();
    EXPECT_EQ(m_done, "second");
}

TEST(WorkerEndTest, WorkThatHasBegunIsWaitedForAndTheRestIsNotDone)
{
    std::atomic<bool> hasBegun{false};
    std::atomic<bool> mayEnd{false};
    std::atomic<bool> isOver{false};
    std::atomic<bool> second{false};
    const auto owned = std::make_shared<int>(0);
    std::thread other;
    {
        Worker worker([] {});
        worker.run(
            [&] {
                hasBegun = true;
                hasBegun.notify_all();
                mayEnd.wait(false);
                isOver = true;
            },
            [] { FAIL() << "nobody collects"; });
        worker.run([&second, owned] { second = true; }, [] {});
        hasBegun.wait(false);
        other = std::thread([&] {
            mayEnd = true;
            mayEnd.notify_all();
        });
    }
    other.join();
    EXPECT_TRUE(isOver);
    EXPECT_EQ(owned.use_count(), 1) << "what was given is destroyed";
}

}  // namespace
