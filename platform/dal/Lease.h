#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/KvTypes.h"
#include "platform/dal/Board.h"
#include "platform/errorhandling/KvCErrorList.h"

namespace KvNDeviceAccess {

/** What a lock has of its board: the access id, and until when. Safe to use from several threads. */
class Lease
{
public:
    using Clock = std::chrono::steady_clock;

    enum class State
    {
        None,  // nothing was granted yet, or it has been given back
        Held,
        Lost,    // the lease has ended, or the board has forgotten it
        Adopted  // someone else's, who keeps it
    };

    /** Throws std::bad_alloc. */
    explicit Lease(std::shared_ptr<Board> board);
    ~Lease();
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    const Board& board() const { return *m_board; }
    /** The state now; `accessId` is set when the lease is held or adopted. */
    State access(KvUInt32& accessId) const noexcept;

    /** The board has granted the access id for so many seconds, counted from when it was asked. */
    void grant(KvUInt32 accessId, KvUInt32 seconds, Clock::time_point asked) noexcept;
    void adopt(KvUInt32 accessId) noexcept;
    /** Nothing is held any more. */
    void giveBack() noexcept { end(State::None); }
    void lose() noexcept { end(State::Lost); }

    /** When the board is to be asked again to keep the access id; far in the future when there is nothing to keep. A
        lease that has ended is lost by this. */
    Clock::time_point nextKeeping() noexcept;
    Clock::duration duration() const noexcept;
    /** The board has kept the access id that it was asked for at `asked`. */
    void kept(KvUInt32 accessId, Clock::time_point asked) noexcept;
    /** The board has not answered: to be asked again soon. */
    void postpone() noexcept;
    /** The board does not know the access id any more. */
    void refused(KvUInt32 accessId) noexcept;

    /** TCP port of the board's service as last heard of, 0: unknown. For the keeper alone. */
    KvUInt32 port = 0;

private:
    void end(State state) noexcept;

    const std::shared_ptr<Board> m_board;
    mutable std::mutex m_mutex;
    State m_state = State::None;
    KvUInt32 m_accessId = 0;
    Clock::duration m_duration{};
    Clock::time_point m_end;
    Clock::time_point m_next;
};

/**
 * Keeps the process's leases: one thread, started by the first of them and ended when the library is unloaded, asks
 * each board at a third of its lease, all that are due side by side, so that a silent board costs the others nothing.
 * A forked process keeps only what it is granted itself; the leases of before stay its parent's.
 */
class LeaseKeeper
{
public:
    static LeaseKeeper& instance() noexcept;

    /** Keeps `lease` whenever it is held, until forget(). Throws std::bad_alloc, and std::system_error when the thread
        cannot be had. */
    void keep(std::shared_ptr<Lease> lease);
    void forget(const Lease* lease) noexcept;
    /** A lease has been granted: when to wake has to be thought over. */
    void wake() noexcept;

private:
    using Leases = std::vector<std::shared_ptr<Lease>, KvNAllocation::Allocator<std::shared_ptr<Lease>>>;
    struct StopAtUnload;
    struct ForkHandler;

    static void beginAnew() noexcept;
    void start();
    void stop() noexcept;
    void run() noexcept;
    void collectDue(Leases& due, Lease::Clock::time_point& next, Lease::Clock::duration& shortest);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    Leases m_leases;
    std::thread m_thread;
    bool m_started = false;
    bool m_stop = false;
    bool m_awake = false;
};

}  // namespace KvNDeviceAccess
