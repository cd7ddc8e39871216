#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/KvTypes.h"
#include "tools/kvboardd/Files.h"

namespace KvNBoardService {

/**
 * How a file comes onto one board: begun with its name and size, then its bytes in order, ended with its checksum. It
 * appears under its name whole, after it is on the disk, or not at all. A transfer belongs to the access id that may
 * change the board; there is one at a time, and it ends with its lock. Whether an access id may do so is not decided
 * here.
 * Waiting for the disk would hold up whoever else is served, so that is done beside: while a file comes it is synced
 * piece by piece, of which never more than two are only in memory, with the bytes that are answered later because they
 * have to wait for it. So the end of a large transfer has no more to wait for than that of a small one.
 * Operations may throw std::bad_alloc, and then can be repeated.
 */
class Transfers
{
public:
    using Outcome = Files::Outcome;

    struct Limits
    {
        std::size_t chunkBytes = 1048576;         ///< of one put()
        KvUInt64 pieceBytes = KvUInt64(8) << 20;  ///< synced at a time
    };

    struct Result
    {
        Outcome outcome = Outcome::Done;
        KvUInt32 transferId = 0;  ///< of begin()
        KvUInt64 received = 0;    ///< bytes held now
        KvUInt64 size = 0;        ///< that were announced
        KvUInt32 crc32 = 0;       ///< of what was received, with OtherChecksum
        std::string problem;      ///< what the system said
    };

    /** Told the result: before the operation returns, or later. */
    using Done = std::function<void(const Result&)>;
    /** Runs `work` where it may wait, and `done` here when that is over. When it throws neither is run. */
    using Beside = std::function<void(std::function<void()> work, std::function<void()> done)>;

    /** `files` must outlive the object, and `beside` must not call `done` when the object is gone. */
    Transfers(Files& files, const Limits& limits, Beside beside);
    ~Transfers();

    /** Begins a transfer; the one before ends, whatever becomes of this one. */
    Result begin(KvUInt32 accessId, std::string_view directory, std::string_view fileName, KvUInt64 size);

    /** The next bytes, or some that came before. What fails for want of space or by the disk ends the transfer. */
    void put(KvUInt32 accessId, KvUInt32 transferId, KvUInt64 offset, std::span<const unsigned char> bytes, Done done);

    /** Everything has come. A transfer that is not whole ends; one that ended well does so again. */
    void end(KvUInt32 accessId, KvUInt32 transferId, KvUInt32 crc32, Done done);

    /** Ends a transfer, of which nothing remains. */
    Result abort(KvUInt32 accessId, KvUInt32 transferId);

    /** `accessId` may no longer change the board: its transfer ends. Whether there was one. */
    bool lockEnded(KvUInt32 accessId) noexcept;

    /** Has a file destroyed, and so closed, where that may take long. */
    void close(std::shared_ptr<const void> file) noexcept;

    /** The path of the file that is being put; empty when none is. */
    std::string name() const;

    const Limits& limits() const { return m_limits; }

private:
    struct Transfer;
    using TransferPtr = std::shared_ptr<Transfer>;

    /** The last transfer that ended well. */
    struct Finished
    {
        KvUInt32 accessId = 0;
        KvUInt32 transferId = 0;
        KvUInt32 crc32 = 0;
    };

    Transfer* find(KvUInt32 accessId, KvUInt32 transferId) const;
    Result accept(KvUInt64 offset, std::span<const unsigned char> bytes);
    Result repeat(KvUInt64 offset, std::span<const unsigned char> bytes) const;
    void startSync();
    void synced(const TransferPtr& transfer);
    void place(const TransferPtr& transfer);
    void placed(const TransferPtr& transfer);
    void drop() noexcept;

    Files& m_files;
    Limits m_limits;
    Beside m_beside;
    TransferPtr m_transfer;
    Finished m_finished;
    KvUInt32 m_lastId = 0;
};

}  // namespace KvNBoardService
