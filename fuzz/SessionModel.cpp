#include "fuzz/SessionModel.h"

#include <algorithm>

#include "base/Crc32.h"

namespace KvNFuzz {

namespace {

constexpr std::int64_t lease = 20000;
constexpr std::int64_t wrongPeriod = 60000;
constexpr unsigned wrongIdsBorne = 10;
constexpr std::int64_t updateTime = 10000;
constexpr KvUInt32 simulatedPercent = 80;
constexpr std::size_t mostLocks = 64;

}  // namespace

void SessionModel::pass(std::int64_t milliseconds)
{
    m_now += milliseconds;
    for (std::size_t i = m_locks.size(); i-- > 0;) {
        const Lock lock = m_locks[i];
        if (m_now - lock.kept < lease)
            continue;
        m_locks.erase(m_locks.begin() + static_cast<std::ptrdiff_t>(i));
        if (lock.level == 2)
            modifyEnded(lock.accessId);
    }
    if (m_update != Update::Running)
        return;
    if (m_now - m_begun < updateTime) {
        m_percent = static_cast<KvUInt32>((m_now - m_begun) * simulatedPercent / updateTime);
        return;
    }
    const bool isGood = m_files[m_updated] == m_image.good;
    m_update = isGood ? Update::Done : Update::Failed;
    m_isUpdated = m_isUpdated || isGood;
    m_percent = isGood ? 100 : simulatedPercent;
}

SessionModel::Lock* SessionModel::find(unsigned host, KvUInt32 accessId)
{
    const auto found = std::find_if(m_locks.begin(), m_locks.end(),
                                    [&](const Lock& lock) { return lock.host == host && lock.accessId == accessId; });
    return found == m_locks.end() ? nullptr : &*found;
}

bool SessionModel::isFree(KvUInt32 level, const Lock* self) const
{
    return std::none_of(m_locks.begin(), m_locks.end(),
                        [&](const Lock& lock) { return &lock != self && (level == 2 || lock.level == 2); });
}

SessionModel::Status SessionModel::noteWrong(unsigned host)
{
    Wrong& wrong = m_wrong.try_emplace(host, Wrong{m_now, 0}).first->second;
    if (m_now - wrong.first >= wrongPeriod)
        wrong = {m_now, 0};
    return ++wrong.count > wrongIdsBorne ? Limit : BadAccess;
}

void SessionModel::modifyEnded(KvUInt32 accessId)
{
    if (m_writer == accessId)
        m_written.reset();
    if (m_finished && m_finished->accessId == accessId)
        m_finished.reset();
    if (m_transfer && m_transfer->accessId == accessId)
        m_transfer.reset();
}

SessionModel::Status SessionModel::changeLevel(Lock& lock, KvUInt32 level, KvUInt32& given)
{
    if (!isFree(level, &lock))
        return Locked;
    const bool isLowered = lock.level == 2 && level == 1;
    lock.level = level;
    lock.kept = m_now;
    given = lock.accessId;
    if (isLowered)
        modifyEnded(lock.accessId);
    return Ok;
}

SessionModel::Status SessionModel::request(unsigned host, KvUInt32 level, KvUInt32 accessId, KvUInt32 nonce,
                                           KvUInt32& given)
{
    given = 0;
    if (level != 1 && level != 2)
        return BadArgument;
    if (accessId != 0) {
        Lock* lock = find(host, accessId);
        return lock == nullptr ? noteWrong(host) : changeLevel(*lock, level, given);
    }
    for (Lock& lock : m_locks)
        if (lock.host == host && lock.nonce == nonce)
            return changeLevel(lock, level, given);
    if (!isFree(level, nullptr))
        return Locked;
    if (m_locks.size() >= mostLocks)
        return Limit;
    given = m_nextId++;
    m_locks.push_back({given, host, nonce, level, m_now, m_now});
    return Ok;
}

SessionModel::Status SessionModel::keep(unsigned host, KvUInt32 accessId)
{
    Lock* lock = find(host, accessId);
    if (lock == nullptr)
        return noteWrong(host);
    lock->kept = m_now;
    return Ok;
}

SessionModel::Status SessionModel::release(unsigned host, KvUInt32 accessId)
{
    const Lock* lock = find(host, accessId);
    if (lock == nullptr)
        return noteWrong(host);
    const bool mayModify = lock->level == 2;
    m_locks.erase(m_locks.begin() + (lock - m_locks.data()));
    if (mayModify)
        modifyEnded(accessId);
    return Ok;
}

SessionModel::Status SessionModel::authority(unsigned host, KvUInt32 accessId)
{
    const Lock* lock = find(host, accessId);
    if (lock == nullptr)
        return noteWrong(host);
    return lock->level == 2 ? Ok : BadAccess;
}

bool SessionModel::isKnown(KvUInt64 name) const
{
    return m_files.count(name) != 0 || std::find(m_names.begin(), m_names.end(), name) != m_names.end();
}

void SessionModel::remember(KvUInt64 name)
{
    if (std::find(m_names.begin(), m_names.end(), name) != m_names.end())
        return;
    if (m_names.size() < mostNames)
        return m_names.push_back(name);
    m_names[m_oldestName] = name;
    m_oldestName = (m_oldestName + 1) % mostNames;
}

KvUInt64 SessionModel::generateName()
{
    remember(m_nextName);
    return m_nextName++;
}

SessionModel::Status SessionModel::begin(KvUInt32 accessId, KvUInt64 name, KvUInt64 size, KvUInt32& transferId)
{
    transferId = 0;
    m_transfer.reset();
    if (!isKnown(name))
        return BadName;
    if (isBusy(name))
        return Busy;
    if (m_files.count(name) == 0 && m_files.size() >= mostFiles)
        return Limit;
    KvUInt64 used = 0;
    for (const auto& [number, content] : m_files)
        used += content.size();
    if (size > quota - std::min<KvUInt64>(quota, used))
        return NoSpace;
    transferId = ++m_lastTransfer;
    m_transfer = {accessId, transferId, name, size, {}};
    return Ok;
}

bool SessionModel::isTransfer(KvUInt32 accessId, KvUInt32 transferId) const
{
    return m_transfer && m_transfer->accessId == accessId && m_transfer->id == transferId;
}

SessionModel::Status SessionModel::put(KvUInt32 accessId, KvUInt32 transferId, KvUInt64 offset, const Bytes& bytes,
                                       KvUInt64& received)
{
    received = 0;
    if (!isTransfer(accessId, transferId))
        return NoTransfer;
    Bytes& held = m_transfer->bytes;
    received = held.size();
    if (bytes.size() > chunkBytes)
        return BadArgument;
    if (offset > held.size())
        return OutOfOrder;
    if (offset < held.size()) {
        const auto from = held.begin() + static_cast<std::ptrdiff_t>(offset);
        const bool isSame = bytes.size() <= held.size() - offset && std::equal(bytes.begin(), bytes.end(), from);
        return isSame ? Ok : OutOfOrder;
    }
    if (bytes.size() > m_transfer->size - held.size())
        return Corrupt;
    held.insert(held.end(), bytes.begin(), bytes.end());
    received = held.size();
    return Ok;
}

SessionModel::Status SessionModel::end(KvUInt32 accessId, KvUInt32 transferId, KvUInt32 crc32)
{
    if (m_finished && m_finished->accessId == accessId && m_finished->id == transferId)
        return m_finished->crc32 == crc32 ? Ok : Corrupt;
    if (!isTransfer(accessId, transferId))
        return NoTransfer;
    const Transfer transfer = *m_transfer;
    m_transfer.reset();
    if (transfer.bytes.size() != transfer.size ||
        KvNCrc32::crc32(0, transfer.bytes.data(), transfer.bytes.size()) != crc32)
        return Corrupt;
    if (isBusy(transfer.name))
        return Busy;
    m_files[transfer.name] = transfer.bytes;
    m_finished = {accessId, transferId, crc32};
    return Ok;
}

SessionModel::Status SessionModel::abort(KvUInt32 accessId, KvUInt32 transferId)
{
    if (!isTransfer(accessId, transferId))
        return NoTransfer;
    m_transfer.reset();
    return Ok;
}

SessionModel::Status SessionModel::remove(KvUInt64 name)
{
    if (!isKnown(name))
        return BadName;
    if (isBusy(name))
        return Busy;
    if (m_files.erase(name) == 0)
        return NotFound;
    remember(name);
    return Ok;
}

void SessionModel::write(KvUInt32 accessId, unsigned char value)
{
    m_writer = accessId;
    m_written = value;
}

void SessionModel::apply(KvUInt32 accessId)
{
    if (m_writer != accessId || !m_written)
        return;
    m_value = *m_written;
    m_written.reset();
}

bool SessionModel::beginUpdate(KvUInt64 name, KvUInt64 size)
{
    const auto file = m_files.find(name);
    if (m_update == Update::Running || file == m_files.end() || file->second.size() != size ||
        (file->second != m_image.good && file->second != m_image.wrongChecksum))
        return false;
    m_update = Update::Running;
    m_updated = name;
    m_begun = m_now;
    m_percent = 0;
    return true;
}

bool SessionModel::finishUpdate()
{
    if (m_update == Update::Running)
        return false;
    m_update = Update::Idle;
    m_percent = 0;
    return true;
}

}  // namespace KvNFuzz
