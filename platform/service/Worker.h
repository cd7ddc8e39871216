#pragma once

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>
#include <utility>

namespace KvNService {

/**
 * One thread beside an event loop, for what would hold the loop up: waiting for a disk. Work is done in the order in
 * which it was given; what is to follow is called on the loop's thread. All but the waking belongs to the loop's
 * thread.
 */
class Worker
{
public:
    using Task = std::function<void()>;

    /** `wake` is called on the worker's thread, or in run(), and has collect() called soon. It must neither throw nor
        fail: who waits for what follows would wait for ever. */
    explicit Worker(Task wake) : m_wake(std::move(wake)) {}
    /** Waits for the work that has begun; the rest, and what was to follow, is destroyed. */
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /** Has `work`, which must not throw, run there and then `done` by collect(). May throw std::bad_alloc, then neither
        is run. Where no thread can be had the work is done at once. */
    void run(Task work, Task done);

    /** Calls what follows finished work. An exception ends only the one that throws it. */
    void collect() noexcept;

private:
    struct Job
    {
        Task work;
        Task done;
    };

    bool hasThread() noexcept;
    void loop() noexcept;

    Task m_wake;
    std::mutex m_mutex;
    std::condition_variable m_given;
    std::list<Job> m_waiting;
    std::list<Job> m_finished;
    bool m_isEnding = false;
    std::thread m_thread;
};

}  // namespace KvNService
