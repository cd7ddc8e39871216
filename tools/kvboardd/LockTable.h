#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/KvTypes.h"

namespace KvNBoardService {

/**
 * Who may look at a board undisturbed and who may change it. Level 1 (Observe) has any number of holders, level 2
 * (Modify) one holder and no observers; a conflict fails at once. A lock is known by an access id, belongs to the host
 * that asked for it and ends when it is released or not kept for the length of the lease.
 * Pure logic: the time is an argument and never goes backwards, ids come from the source given. Nothing is held but
 * what is bounded by the limits. Operations may throw std::bad_alloc, and then have changed nothing that was asked.
 */
class LockTable
{
public:
    using Time = std::chrono::steady_clock::time_point;

    enum class Level
    {
        None = 0,
        Observe = 1,
        Modify = 2
    };

    enum class Outcome
    {
        Granted,
        Locked,        ///< someone else's lock is in the way
        BadAccess,     ///< no such access id, not from that host, or its lease has ended
        BadArgument,   ///< a level that cannot be asked for
        TooMany,       ///< the limit of holders is reached
        TooManyWrong,  ///< a wrong access id, after too many others from that host
        NoRandom       ///< the source gave no usable id
    };

    struct Limits
    {
        std::size_t holders = 64;
        std::chrono::seconds lease{20};
        std::size_t wrongIds = 10;             ///< wrong ids of a host that are answered as usual ...
        std::chrono::seconds wrongPeriod{60};  ///< ... within this time
        std::size_t remembered = 1024;         ///< ids of ended locks that are not given again; hosts with wrong ids
    };

    /** IPv4 addresses are host-order numbers: 10.0.0.2 is 0x0A000002. */
    struct Request
    {
        KvUInt32 host = 0;
        Level level = Level::None;
        KvUInt32 accessId = 0;  ///< 0: a new lock; else the lock whose level changes
        KvUInt64 nonce = 0;     ///< of a new lock: the same from the same host gives the same lock again
        std::string owner;
    };

    struct Answer
    {
        Outcome outcome = Outcome::BadArgument;
        KvUInt32 accessId = 0;   ///< when granted
        std::string owner;       ///< with Locked: a holder, as it called itself
        KvUInt32 ownerHost = 0;  ///< with Locked: that holder's address
    };

    struct Holder
    {
        Level level = Level::None;
        std::string owner;
        KvUInt32 host = 0;
        std::chrono::seconds held{0};
        std::chrono::seconds left{0};  ///< until the lease ends, rounded up
    };

    /** Why an access id lost the right to change the board. */
    enum class End
    {
        Released,
        Lowered,
        Expired
    };

    /** Gives random ids; null when there is none to be had. */
    using IdSource = std::function<std::optional<KvUInt32>()>;
    /** Told when an access id no longer is the one that may change the board. Must not throw or call the table. */
    using ModifyEnded = std::function<void(KvUInt32 accessId, End why)>;

    LockTable(const Limits& limits, IdSource ids, ModifyEnded ended);

    /** A new lock, or another level for the one named. A granted request renews the lease. */
    Answer request(Time now, const Request& request);

    /** Renews the lease of a lock. */
    Outcome keep(Time now, KvUInt32 host, KvUInt32 accessId);

    /** Ends a lock. */
    Outcome release(Time now, KvUInt32 host, KvUInt32 accessId);

    /** The level that an access id has from that host: Granted and `level`, else BadAccess or TooManyWrong. */
    Outcome check(Time now, KvUInt32 host, KvUInt32 accessId, Level& level);

    /** All locks, in the order in which they were given. */
    std::vector<Holder> holders(Time now);

    /** Whether a lock is held with that id; never counted as a wrong id. */
    bool isHeld(Time now, KvUInt32 accessId);

    /** Ends the locks whose lease has ended; every operation does so first. */
    void expire(Time now);

    const Limits& limits() const { return m_limits; }

private:
    struct Lock
    {
        KvUInt32 accessId = 0;
        KvUInt32 host = 0;
        KvUInt64 nonce = 0;
        Level level = Level::None;
        std::string owner;
        Time since;
        Time kept;
    };

    struct Wrong
    {
        Time first;
        std::size_t count = 0;
    };

    Lock* find(KvUInt32 host, KvUInt32 accessId);
    Answer changeLevel(Time now, Lock& lock, Level level);
    Answer refuse(const Lock& holder) const;
    const Lock* obstacle(Level level, const Lock* self) const;
    std::optional<KvUInt32> newId();
    bool isTaken(KvUInt32 accessId) const;
    void end(std::size_t position, End why);
    Outcome noteWrong(Time now, KvUInt32 host);

    Limits m_limits;
    IdSource m_ids;
    ModifyEnded m_ended;
    std::vector<Lock> m_locks;
    std::vector<KvUInt32> m_past;  ///< ids of ended locks, as a ring
    std::size_t m_oldest = 0;
    std::map<KvUInt32, Wrong> m_wrong;  ///< by host
};

}  // namespace KvNBoardService
