#include "platform/dal/Lease.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "platform/dal/KeepRound.h"

#if !defined(_WIN32)
#include <pthread.h>

#include <csignal>
#endif

namespace KvNDeviceAccess {

namespace {

using Clock = Lease::Clock;
using std::chrono::milliseconds;

/* What fails is tried again after a tenth of the lease, within these limits. */
constexpr milliseconds shortestPause{100};
constexpr milliseconds longestPause{1000};
/* One round of questions takes no longer: leases that become due meanwhile wait for it. */
constexpr milliseconds shortestRound{100};
constexpr milliseconds longestRound{1000};

}  // namespace

Lease::Lease(std::shared_ptr<Board> board) : m_board(std::move(board))
{
    m_board->addAccess(this);
}

Lease::~Lease()
{
    m_board->removeAccess(this);
}

Lease::State Lease::access(KvUInt32& accessId) const noexcept
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_state == State::Held && Clock::now() >= m_end)
        return State::Lost;
    if (m_state == State::Held || m_state == State::Adopted)
        accessId = m_accessId;
    return m_state;
}

void Lease::grant(KvUInt32 accessId, KvUInt32 seconds, Clock::time_point asked) noexcept
{
    // a lease beyond a day says no more than one of a day
    constexpr KvUInt32 longest = 86400;
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_state = State::Held;
    m_accessId = accessId;
    m_duration = std::chrono::seconds(std::min(seconds, longest));
    m_end = asked + m_duration;
    m_next = asked + m_duration / 3;
    m_board->setAccess(this, accessId, m_end);
}

void Lease::adopt(KvUInt32 accessId) noexcept
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_state = State::Adopted;
    m_accessId = accessId;
    m_board->setAccess(this, accessId, Clock::time_point::max());
}

void Lease::end(State state) noexcept
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_state = state;
    m_accessId = 0;
    m_board->setAccess(this, 0);
}

Clock::time_point Lease::nextKeeping() noexcept
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_state == State::Held && Clock::now() >= m_end) {
        m_state = State::Lost;
        m_board->setAccess(this, 0);
    }
    return m_state == State::Held ? std::min(m_next, m_end) : Clock::time_point::max();
}

Clock::duration Lease::duration() const noexcept
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_duration;
}

void Lease::kept(KvUInt32 accessId, Clock::time_point asked) noexcept
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_state != State::Held || m_accessId != accessId)
        return;
    m_end = std::max(m_end, asked + m_duration);
    m_next = asked + m_duration / 3;
    m_board->setAccess(this, accessId, m_end);
}

void Lease::postpone() noexcept
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_next = Clock::now() + std::clamp<Clock::duration>(m_duration / 10, shortestPause, longestPause);
}

void Lease::refused(KvUInt32 accessId) noexcept
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_state != State::Held || m_accessId != accessId)
        return;
    m_state = State::Lost;
    m_board->setAccess(this, 0);
}

struct LeaseKeeper::StopAtUnload
{
    ~StopAtUnload() { LeaseKeeper::instance().stop(); }
};

struct LeaseKeeper::ForkHandler
{
    ForkHandler()
    {
#if !defined(_WIN32)
        if (pthread_atfork(nullptr, nullptr, &LeaseKeeper::beginAnew) != 0)
            throw std::bad_alloc();
#endif
    }
};

namespace {

alignas(LeaseKeeper) unsigned char keeperStorage[sizeof(LeaseKeeper)];

}  // namespace

/* Never destroyed, for the reason given at handleTable(). */
LeaseKeeper& LeaseKeeper::instance() noexcept
{
    static LeaseKeeper* const only = ::new (static_cast<void*>(keeperStorage)) LeaseKeeper;
    return *only;
}

/* In a process that has just been forked: the thread stayed with the parent and can neither be waited for nor woken.
   What it may have been in the midst of changing is left as it is. */
void LeaseKeeper::beginAnew() noexcept
{
    ::new (static_cast<void*>(keeperStorage)) LeaseKeeper;
}

void LeaseKeeper::keep(std::shared_ptr<Lease> lease)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    start();
    if (std::find(m_leases.begin(), m_leases.end(), lease) == m_leases.end())
        m_leases.push_back(std::move(lease));
}

void LeaseKeeper::forget(const Lease* lease) noexcept
{
    std::shared_ptr<Lease> forgotten;
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto place = std::find_if(m_leases.begin(), m_leases.end(),
                                    [lease](const std::shared_ptr<Lease>& one) { return one.get() == lease; });
    if (place == m_leases.end())
        return;
    forgotten = std::move(*place);
    m_leases.erase(place);
}

void LeaseKeeper::wake() noexcept
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_awake = true;
    m_changed.notify_all();
}

/* With the mutex held. The transport is used once before the guard that stops the thread is made, so that whatever it
   keeps for the whole process is taken down after the thread has ended. */
void LeaseKeeper::start()
{
    if (m_started)
        return;
    {
        KeepRound first;
        first.run(milliseconds(0));
    }
    static const ForkHandler forkHandler;
    static const StopAtUnload stopAtUnload;
    m_thread = std::thread([this] { run(); });
    m_started = true;
}

void LeaseKeeper::stop() noexcept
{
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_stop = true;
        m_changed.notify_all();
    }
    if (m_thread.joinable())
        m_thread.join();
}

/* With the mutex held. When memory is out, the rest waits for the next round. */
void LeaseKeeper::collectDue(Leases& due, Clock::time_point& next, Clock::duration& shortest)
{
    const Clock::time_point now = Clock::now();
    next = Clock::time_point::max();
    shortest = longestRound * 3;
    try {
        for (const std::shared_ptr<Lease>& lease : m_leases) {
            const Clock::time_point keeping = lease->nextKeeping();
            if (keeping == Clock::time_point::max())
                continue;
            shortest = std::min(shortest, lease->duration());
            if (keeping <= now)
                due.push_back(lease);
            else
                next = std::min(next, keeping);
        }
    } catch (const std::bad_alloc&) {
        next = now + shortestPause;
    }
}

void LeaseKeeper::run() noexcept
{
#if !defined(_WIN32)
    // signals are the program's own threads'
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
#endif
    std::unique_lock<std::mutex> guard(m_mutex);
    while (!m_stop) {
        Leases due;
        Clock::time_point next;
        Clock::duration shortest;
        m_awake = false;
        collectDue(due, next, shortest);
        if (due.empty()) {
            const auto changed = [this] { return m_stop || m_awake; };
            if (next == Clock::time_point::max())
                m_changed.wait(guard, changed);
            else
                m_changed.wait_until(guard, next, changed);
            continue;
        }
        guard.unlock();
        KeepRound round;
        for (std::shared_ptr<Lease>& lease : due)
            round.add(*lease);
        round.run(std::clamp<milliseconds>(std::chrono::duration_cast<milliseconds>(shortest / 3), shortestRound,
                                           longestRound));
        due.clear();
        guard.lock();
    }
}

}  // namespace KvNDeviceAccess
