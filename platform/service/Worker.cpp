#include "platform/service/Worker.h"

#include <signal.h>

#include <utility>

namespace KvNService {

Worker::~Worker()
{
    {
        const std::lock_guard guard(m_mutex);
        m_isEnding = true;
    }
    m_given.notify_one();
    if (m_thread.joinable())
        m_thread.join();
}

bool Worker::hasThread() noexcept
{
    if (m_thread.joinable())
        return true;
    // Signals are for the loop's thread.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        m_thread = std::thread([this] { loop(); });
    } catch (...) {
        // What is given is done at once instead.
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return m_thread.joinable();
}

void Worker::run(Task work, Task done)
{
    // From here on nothing needs memory.
    std::list<Job> job;
    job.push_back({std::move(work), std::move(done)});
    const bool isBeside = hasThread();
    if (!isBeside)
        job.front().work();
    {
        const std::lock_guard guard(m_mutex);
        std::list<Job>& queue = isBeside ? m_waiting : m_finished;
        queue.splice(queue.end(), job);
    }
    if (isBeside)
        m_given.notify_one();
    else
        m_wake();
}

void Worker::loop() noexcept
{
    std::unique_lock guard(m_mutex);
    for (;;) {
        m_given.wait(guard, [this] { return m_isEnding || !m_waiting.empty(); });
        if (m_isEnding)
            return;
        std::list<Job> job;
        job.splice(job.end(), m_waiting, m_waiting.begin());
        guard.unlock();
        job.front().work();
        guard.lock();
        m_finished.splice(m_finished.end(), job);
        guard.unlock();
        m_wake();
        guard.lock();
    }
}

void Worker::collect() noexcept
{
    std::list<Job> finished;
    {
        const std::lock_guard guard(m_mutex);
        finished.swap(m_finished);
    }
    while (!finished.empty()) {
        try {
            finished.front().done();
        } catch (...) {
            // Whoever waits for it sees its functions destroyed.
        }
        finished.pop_front();
    }
}

}  // namespace KvNService
