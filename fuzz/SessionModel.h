#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "fuzz/Fuzz.h"

namespace KvNFuzz {

/**
 * What callers may expect of a board's locks, files, values and update, said as simply as it can be: no limits of
 * memory, no disk, no clock but the one that is passed on. Sessions compare the services with it.
 * The time is in milliseconds; a status is one of KvdaStatus, and 1 for a refusal by the inventory manager service.
 */
class SessionModel
{
public:
    enum Status : KvUInt32
    {
        Ok,
        Locked,
        BadAccess,
        BadArgument,
        BadName,
        NotFound,
        NoTransfer,
        OutOfOrder,
        Corrupt,
        NoSpace,
        Io,
        Busy,
        Limit
    };

    static constexpr std::size_t quota = 2000;
    static constexpr std::size_t mostFiles = 3;
    static constexpr std::size_t mostNames = 4;
    static constexpr std::size_t chunkBytes = 4096;

    struct Lock
    {
        KvUInt32 accessId;
        unsigned host;
        KvUInt32 nonce;
        KvUInt32 level;
        std::int64_t since;
        std::int64_t kept;
    };

    struct Image
    {
        Bytes good;
        Bytes wrongChecksum;
    };

    SessionModel(KvUInt32 firstAccessId, KvUInt64 firstName, const Image& image)
        : m_nextId(firstAccessId), m_nextName(firstName), m_image(image)
    {}

    void pass(std::int64_t milliseconds);

    Status request(unsigned host, KvUInt32 level, KvUInt32 accessId, KvUInt32 nonce, KvUInt32& given);
    Status keep(unsigned host, KvUInt32 accessId);
    Status release(unsigned host, KvUInt32 accessId);
    /** Whether the caller may change the board. */
    Status authority(unsigned host, KvUInt32 accessId);
    const std::vector<Lock>& locks() const { return m_locks; }
    std::int64_t now() const { return m_now; }

    // From here on the caller has authority.
    KvUInt64 generateName();
    Status begin(KvUInt32 accessId, KvUInt64 name, KvUInt64 size, KvUInt32& transferId);
    Status put(KvUInt32 accessId, KvUInt32 transferId, KvUInt64 offset, const Bytes& bytes, KvUInt64& received);
    Status end(KvUInt32 accessId, KvUInt32 transferId, KvUInt32 crc32);
    Status abort(KvUInt32 accessId, KvUInt32 transferId);
    Status remove(KvUInt64 name);
    const std::map<KvUInt64, Bytes>& files() const { return m_files; }
    /** What has come of the transfer under way; null without one. */
    const Bytes* received() const { return m_transfer ? &m_transfer->bytes : nullptr; }
    KvUInt32 lastTransfer() const { return m_lastTransfer; }

    void write(KvUInt32 accessId, unsigned char value);
    void apply(KvUInt32 accessId);
    unsigned char value() const { return m_value; }

    bool beginUpdate(KvUInt64 name, KvUInt64 size);
    bool finishUpdate();
    /** As KvimUpdateState. */
    KvUInt32 updateState() const { return m_update == Update::Failed ? 2 : static_cast<KvUInt32>(m_update); }
    KvUInt32 updatePercent() const { return m_percent; }
    bool hasUpdateFailed() const { return m_update == Update::Failed; }
    bool isUpdated() const { return m_isUpdated; }

private:
    enum class Update
    {
        Idle,
        Running,
        Done,
        Failed
    };

    struct Wrong
    {
        std::int64_t first;
        unsigned count;
    };

    struct Transfer
    {
        KvUInt32 accessId;
        KvUInt32 id;
        KvUInt64 name;
        KvUInt64 size;
        Bytes bytes;
    };

    struct Finished
    {
        KvUInt32 accessId;
        KvUInt32 id;
        KvUInt32 crc32;
    };

    Lock* find(unsigned host, KvUInt32 accessId);
    Status changeLevel(Lock& lock, KvUInt32 level, KvUInt32& given);
    bool isFree(KvUInt32 level, const Lock* self) const;
    Status noteWrong(unsigned host);
    void modifyEnded(KvUInt32 accessId);
    bool isTransfer(KvUInt32 accessId, KvUInt32 transferId) const;
    bool isKnown(KvUInt64 name) const;
    void remember(KvUInt64 name);
    bool isBusy(KvUInt64 name) const { return m_update == Update::Running && m_updated == name; }

    std::int64_t m_now = 0;
    KvUInt32 m_nextId;
    KvUInt64 m_nextName;
    const Image& m_image;
    std::vector<Lock> m_locks;
    std::map<unsigned, Wrong> m_wrong;
    std::map<KvUInt64, Bytes> m_files;
    std::vector<KvUInt64> m_names;  ///< handed out, the oldest first where places are used again
    std::size_t m_oldestName = 0;
    std::optional<Transfer> m_transfer;
    std::optional<Finished> m_finished;
    KvUInt32 m_lastTransfer = 0;
    unsigned char m_value = 7;
    std::optional<unsigned char> m_written;
    KvUInt32 m_writer = 0;
    Update m_update = Update::Idle;
    KvUInt64 m_updated = 0;
    std::int64_t m_begun = 0;
    KvUInt32 m_percent = 0;
    bool m_isUpdated = false;
};

}  // namespace KvNFuzz
