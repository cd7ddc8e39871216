#pragma once

#include <cstddef>

#include "platform/KvTypes.h"
#include "platform/oncrpc/RpcMessage.h"

namespace KvNRpc {

/** Memory that several assemblers share: bytes held now and at most. Safe to use from several threads. */
class ByteBudget
{
public:
    explicit ByteBudget(std::size_t limit) noexcept : m_limit(limit) {}
    bool take(std::size_t bytes) noexcept;
    void giveBack(std::size_t bytes) noexcept;
    std::size_t held() const noexcept { return __atomic_load_n(&m_held, __ATOMIC_RELAXED); }
    std::size_t limit() const noexcept { return m_limit; }

private:
    std::size_t m_held = 0;
    std::size_t m_limit;
};

/** A whole record (or the room that one takes), counted in a budget as long as it lives. */
class Record
{
public:
    Record() noexcept = default;
    Record(Record&& other) noexcept;
    Record& operator=(Record&& other) noexcept;
    ~Record() { clear(); }

    const unsigned char* data() const { return m_data; }
    std::size_t size() const { return m_size; }
    void clear() noexcept;

private:
    friend class RecordAssembler;
    unsigned char* m_data = nullptr;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
    ByteBudget* m_budget = nullptr;
};

/**
 * Makes records out of a byte stream with the record marking of RFC 5531, for client and server alike.
 *
 * Memory grows with the bytes that have arrived (at most twofold, or 64 KiB), never with what a header claims; but for
 * one block of up to 2 MiB that the process keeps of the last large record, which the next one of its size gets whole.
 * A record is given up as soon as its headers claim more than the limit; of fragments without bytes 16 in a row are
 * borne. Bytes of a record that nobody wants are dropped as they come.
 */
class RecordAssembler
{
public:
    enum class State
    {
        More,     // all bytes taken, record not whole
        Begun,    // its first four bytes (the transaction id) are there; reported once a record
        Whole,    // take() it
        Skipped,  // a record dropped by skip() has ended
        TooLong,  // the stream cannot be followed any further from here on
        EmptyFragments,
        OutOfBudget,
        OutOfMemory
    };

    RecordAssembler(std::size_t limit, ByteBudget& budget) noexcept : m_limit(limit), m_budget(budget) {}

    void setLimit(std::size_t limit) noexcept { m_limit = limit; }
    /** Takes bytes off `data` and counts down `size`, up to the next state that is not More. */
    State feed(const unsigned char*& data, std::size_t& size) noexcept;
    /** Where the bytes that come next may be received at once, without feed(): the room for them, 0 when there is none
        or it is not worth it. What was put there is told to arrived(). */
    std::size_t room(unsigned char*& place) noexcept;
    /** Counts bytes in that were received in the room: More or Whole. */
    State arrived(std::size_t bytes) noexcept;
    /** The record that is Whole; the next one begins. */
    Record take() noexcept;
    /** Drops the rest of the record that has Begun. */
    void skip() noexcept;
    /** Drops what there is; no more comes. */
    void clear() noexcept { reset(); }

    /** Whether bytes of a record have come, its headers' included. */
    bool inRecord() const noexcept { return m_headerBytes != 0 || m_fragmentsBegun; }
    /** Whether the transaction id is known, and it. */
    bool hasTransactionId() const noexcept { return m_received >= 4; }
    KvUInt32 transactionId() const noexcept { return m_transactionId; }
    /** Bytes of the budget that the record in progress has. */
    std::size_t heldBytes() const noexcept { return m_record.m_capacity; }
    /** Bytes that it has as far as its last header says. */
    std::size_t claimedBytes() const noexcept { return m_record.m_size + m_fragmentLeft; }

private:
    State takeHeader(const unsigned char*& data, std::size_t& size) noexcept;
    State takeBody(const unsigned char*& data, std::size_t& size) noexcept;
    State makeRoom(std::size_t bytes) noexcept;
    /** Has the record go on in the block that was kept; false when there is none for so many bytes. */
    bool takeSpare(std::size_t bytes) noexcept;
    void reset() noexcept;

    std::size_t m_limit;
    ByteBudget& m_budget;
    Record m_record;
    KvUInt32 m_header = 0;
    KvUInt32 m_headerBytes = 0;
    KvUInt32 m_fragmentLeft = 0;
    KvUInt32 m_emptyFragments = 0;
    KvUInt32 m_transactionId = 0;
    std::size_t m_received = 0;
    bool m_fragmentsBegun = false;
    bool m_last = false;
    bool m_skipping = false;
};

/** Bytes of a record's mark. */
constexpr std::size_t recordMarkBytes = 4;

/** Writes the mark of a record of one fragment of `size` bytes. */
void putRecordMark(unsigned char* place, std::size_t size) noexcept;

}  // namespace KvNRpc
