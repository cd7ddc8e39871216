#include "tools/kvboardd/LockTable.h"

#include <algorithm>
#include <utility>

namespace KvNBoardService {

namespace {

constexpr int maximumIdTries = 100;

}  // namespace

LockTable::LockTable(const Limits& limits, IdSource ids, ModifyEnded ended)
    : m_limits(limits), m_ids(std::move(ids)), m_ended(std::move(ended))
{
    // Locks end without needing memory: the room for what is remembered of them is taken in advance.
    m_locks.reserve(m_limits.holders);
    m_past.resize(m_limits.remembered, 0);
}

LockTable::Answer LockTable::request(Time now, const Request& request)
{
    expire(now);
    if (request.level != Level::Observe && request.level != Level::Modify)
        return {};
    if (request.accessId != 0) {
        Lock* lock = find(request.host, request.accessId);
        if (lock == nullptr)
            return {noteWrong(now, request.host), 0, {}, 0};
        return changeLevel(now, *lock, request.level);
    }
    const auto again = std::find_if(m_locks.begin(), m_locks.end(), [&](const Lock& lock) {
        return lock.host == request.host && lock.nonce == request.nonce;
    });
    if (again != m_locks.end())
        return changeLevel(now, *again, request.level);
    if (const Lock* holder = obstacle(request.level, nullptr))
        return refuse(*holder);
    if (m_locks.size() >= m_limits.holders)
        return {Outcome::TooMany, 0, {}, 0};
    const std::optional<KvUInt32> id = newId();
    if (!id)
        return {Outcome::NoRandom, 0, {}, 0};
    m_locks.push_back({*id, request.host, request.nonce, request.level, request.owner, now, now});
    return {Outcome::Granted, *id, {}, 0};
}

LockTable::Answer LockTable::changeLevel(Time now, Lock& lock, Level level)
{
    if (const Lock* holder = obstacle(level, &lock))
        return refuse(*holder);
    const bool lowered = lock.level == Level::Modify && level != Level::Modify;
    lock.level = level;
    lock.kept = now;
    if (lowered)
        m_ended(lock.accessId, End::Lowered);
    return {Outcome::Granted, lock.accessId, {}, 0};
}

LockTable::Answer LockTable::refuse(const Lock& holder) const
{
    return {Outcome::Locked, 0, holder.owner, holder.host};
}

const LockTable::Lock* LockTable::obstacle(Level level, const Lock* self) const
{
    for (const Lock& lock : m_locks)
        if (&lock != self && (level == Level::Modify || lock.level == Level::Modify))
            return &lock;
    return nullptr;
}

LockTable::Outcome LockTable::keep(Time now, KvUInt32 host, KvUInt32 accessId)
{
    expire(now);
    Lock* lock = find(host, accessId);
    if (lock == nullptr)
        return noteWrong(now, host);
    lock->kept = now;
    return Outcome::Granted;
}

LockTable::Outcome LockTable::release(Time now, KvUInt32 host, KvUInt32 accessId)
{
    expire(now);
    const Lock* lock = find(host, accessId);
    if (lock == nullptr)
        return noteWrong(now, host);
    end(static_cast<std::size_t>(lock - m_locks.data()), End::Released);
    return Outcome::Granted;
}

LockTable::Outcome LockTable::check(Time now, KvUInt32 host, KvUInt32 accessId, Level& level)
{
    expire(now);
    const Lock* lock = find(host, accessId);
    if (lock == nullptr)
        return noteWrong(now, host);
    level = lock->level;
    return Outcome::Granted;
}

std::vector<LockTable::Holder> LockTable::holders(Time now)
{
    expire(now);
    std::vector<Holder> result;
    result.reserve(m_locks.size());
    for (const Lock& lock : m_locks)
        result.push_back({lock.level, lock.owner, lock.host,
                          std::chrono::duration_cast<std::chrono::seconds>(now - lock.since),
                          std::chrono::ceil<std::chrono::seconds>(lock.kept + m_limits.lease - now)});
    return result;
}

bool LockTable::isHeld(Time now, KvUInt32 accessId)
{
    expire(now);
    return std::any_of(m_locks.begin(), m_locks.end(), [&](const Lock& lock) { return lock.accessId == accessId; });
}

void LockTable::expire(Time now)
{
    for (std::size_t i = m_locks.size(); i-- > 0;)
        if (now - m_locks[i].kept >= m_limits.lease)
            end(i, End::Expired);
}

LockTable::Lock* LockTable::find(KvUInt32 host, KvUInt32 accessId)
{
    for (Lock& lock : m_locks)
        if (lock.accessId == accessId && lock.host == host)
            return &lock;
    return nullptr;
}

std::optional<KvUInt32> LockTable::newId()
{
    for (int i = 0; i < maximumIdTries; ++i) {
        const std::optional<KvUInt32> id = m_ids();
        if (!id)
            return std::nullopt;
        if (*id != 0 && !isTaken(*id))
            return id;
    }
    return std::nullopt;
}

bool LockTable::isTaken(KvUInt32 accessId) const
{
    return std::any_of(m_locks.begin(), m_locks.end(), [&](const Lock& lock) { return lock.accessId == accessId; }) ||
           std::find(m_past.begin(), m_past.end(), accessId) != m_past.end();
}

void LockTable::end(std::size_t position, End why)
{
    const KvUInt32 accessId = m_locks[position].accessId;
    const bool modified = m_locks[position].level == Level::Modify;
    m_locks.erase(m_locks.begin() + static_cast<std::ptrdiff_t>(position));
    if (!m_past.empty()) {
        m_past[m_oldest] = accessId;
        m_oldest = (m_oldest + 1) % m_past.size();
    }
    if (modified)
        m_ended(accessId, why);
}

LockTable::Outcome LockTable::noteWrong(Time now, KvUInt32 host)
{
    const auto isOver = [&](const Wrong& wrong) { return now - wrong.first >= m_limits.wrongPeriod; };
    auto place = m_wrong.find(host);
    if (place == m_wrong.end()) {
        if (m_wrong.size() >= m_limits.remembered) {
            std::erase_if(m_wrong, [&](const auto& entry) { return isOver(entry.second); });
            if (m_wrong.size() >= m_limits.remembered)
                return Outcome::TooManyWrong;
        }
        place = m_wrong.emplace(host, Wrong{now, 0}).first;
    } else if (isOver(place->second)) {
        place->second = {now, 0};
    }
    ++place->second.count;
    return place->second.count > m_limits.wrongIds ? Outcome::TooManyWrong : Outcome::BadAccess;
}

}  // namespace KvNBoardService
