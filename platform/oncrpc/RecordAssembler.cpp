#include "platform/oncrpc/RecordAssembler.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

#include "platform/errorhandling/KvCErrorList.h"

namespace KvNRpc {

namespace {
constexpr KvUInt32 lastFragment = 0x80000000;
constexpr KvUInt32 emptyFragmentsBorne = 16;
constexpr std::size_t firstRoom = 1024;
constexpr std::size_t worthRoom = 4096;
constexpr std::size_t surelyRoom = 65536;

/** The last large block that was given back, for the next record of about its size: replies of one board, or pieces of
    one file, are alike, and memory that is fresh from the system costs as much as what is received into it. It is no
    part of any budget while nobody uses it. Sanitized builds keep none, so that every use of a dead record is found. */
class SpareBlock
{
public:
    /** A block of at least `bytes` bytes and hardly more, and how many it has; null: none. */
    unsigned char* take(std::size_t bytes, std::size_t& capacity) noexcept
    {
        if (bytes < smallest)
            return nullptr;
        unsigned char* const block = m_block.exchange(nullptr, std::memory_order_acquire);
        if (block == nullptr)
            return nullptr;
        std::memcpy(&capacity, block, sizeof capacity);
        if (capacity >= bytes && capacity - bytes <= bytes / 8)
            return block;
        keep(block, capacity);
        return nullptr;
    }
    /** False when the block is not of the size that is kept. */
    bool keep(unsigned char* block, std::size_t capacity) noexcept
    {
        if (capacity < smallest || capacity > largest)
            return false;
        std::memcpy(block, &capacity, sizeof capacity);
        KvNAllocation::release(m_block.exchange(block, std::memory_order_acq_rel));
        return true;
    }

private:
#if defined(KV_PLAIN_OBJECTS)
    static constexpr std::size_t smallest = static_cast<std::size_t>(-1);
#else
    static constexpr std::size_t smallest = std::size_t{128} << 10;
#endif
    static constexpr std::size_t largest = std::size_t{2} << 20;

    std::atomic<unsigned char*> m_block{nullptr};
};

constinit SpareBlock spare;

}  // namespace

bool ByteBudget::take(std::size_t bytes) noexcept
{
    std::size_t held = __atomic_load_n(&m_held, __ATOMIC_RELAXED);
    do {
        if (bytes > m_limit || held > m_limit - bytes)
            return false;
    } while (!__atomic_compare_exchange_n(&m_held, &held, held + bytes, true, __ATOMIC_RELAXED, __ATOMIC_RELAXED));
    return true;
}

void ByteBudget::giveBack(std::size_t bytes) noexcept
{
    __atomic_sub_fetch(&m_held, bytes, __ATOMIC_RELAXED);
}

Record::Record(Record&& other) noexcept
{
    *this = std::move(other);
}

Record& Record::operator=(Record&& other) noexcept
{
    if (this != &other) {
        clear();
        m_data = std::exchange(other.m_data, nullptr);
        m_size = std::exchange(other.m_size, 0);
        m_capacity = std::exchange(other.m_capacity, 0);
        m_budget = std::exchange(other.m_budget, nullptr);
    }
    return *this;
}

void Record::clear() noexcept
{
    if (!spare.keep(m_data, m_capacity))
        KvNAllocation::release(m_data);
    if (m_budget != nullptr)
        m_budget->giveBack(m_capacity);
    m_data = nullptr;
    m_size = 0;
    m_capacity = 0;
    m_budget = nullptr;
}

RecordAssembler::State RecordAssembler::feed(const unsigned char*& data, std::size_t& size) noexcept
{
    while (size != 0) {
        const State state = m_fragmentLeft == 0 ? takeHeader(data, size) : takeBody(data, size);
        if (state != State::More)
            return state;
    }
    return State::More;
}

RecordAssembler::State RecordAssembler::takeHeader(const unsigned char*& data, std::size_t& size) noexcept
{
    m_header = m_header << 8 | *data;
    ++data;
    --size;
    if (++m_headerBytes < 4)
        return State::More;
    m_headerBytes = 0;
    m_fragmentsBegun = true;
    m_last = (m_header & lastFragment) != 0;
    m_fragmentLeft = m_header & ~lastFragment;
    if (!m_skipping && (m_received > m_limit || m_fragmentLeft > m_limit - m_received)) {
        // Four bytes more say which call it is that has to be told.
        if (m_received >= 4 || m_fragmentLeft == 0)
            return State::TooLong;
    }
    if (m_fragmentLeft != 0) {
        m_emptyFragments = 0;
        return State::More;
    }
    if (m_last) {
        if (!m_skipping)
            return State::Whole;
        reset();
        return State::Skipped;
    }
    return ++m_emptyFragments > emptyFragmentsBorne ? State::EmptyFragments : State::More;
}

RecordAssembler::State RecordAssembler::takeBody(const unsigned char*& data, std::size_t& size) noexcept
{
    std::size_t step = std::min<std::size_t>(size, m_fragmentLeft);
    const bool announces = m_received < 4;
    if (announces)
        step = std::min(step, 4 - m_received);
    if (!m_skipping) {
        const State room = makeRoom(step);
        if (room != State::More)
            return room;
        std::memcpy(m_record.m_data + m_record.m_size, data, step);
        m_record.m_size += step;
    }
    for (std::size_t i = 0; announces && i < step; ++i)
        m_transactionId = m_transactionId << 8 | data[i];
    data += step;
    size -= step;
    if (!m_skipping || announces)
        m_received += step;
    m_fragmentLeft -= static_cast<KvUInt32>(step);
    if (announces && m_received == 4 && m_received + m_fragmentLeft > m_limit)
        return State::TooLong;
    if (m_fragmentLeft == 0 && m_last && m_skipping) {
        reset();
        return State::Skipped;
    }
    if (m_fragmentLeft == 0 && m_last)
        return State::Whole;
    return announces && m_received == 4 ? State::Begun : State::More;
}

std::size_t RecordAssembler::room(unsigned char*& place) noexcept
{
    if (m_skipping || m_received < 4 || m_fragmentLeft < worthRoom)
        return 0;
    const std::size_t step = std::min<std::size_t>(m_fragmentLeft, std::max(m_record.m_size, surelyRoom));
    if (m_record.m_capacity - m_record.m_size < worthRoom && makeRoom(step) != State::More)
        return 0;
    place = m_record.m_data + m_record.m_size;
    return std::min<std::size_t>(m_record.m_capacity - m_record.m_size, m_fragmentLeft);
}

RecordAssembler::State RecordAssembler::arrived(std::size_t bytes) noexcept
{
    m_record.m_size += bytes;
    m_received += bytes;
    m_fragmentLeft -= static_cast<KvUInt32>(bytes);
    return m_fragmentLeft == 0 && m_last ? State::Whole : State::More;
}

RecordAssembler::State RecordAssembler::makeRoom(std::size_t bytes) noexcept
{
    const std::size_t needed = m_record.m_size + bytes;
    if (needed <= m_record.m_capacity)
        return State::More;
    const std::size_t claimed = m_record.m_size + m_fragmentLeft;
    std::size_t room = std::max({firstRoom, needed, std::min(2 * m_record.m_capacity, claimed)});
    room = std::max(needed, std::min(room, m_limit));
    if (m_received >= 4 && takeSpare(claimed))
        return State::More;
    if (!m_budget.take(room - m_record.m_capacity))
        return State::OutOfBudget;
    void* block = KvNAllocation::reallocate(m_record.m_data, room);
    if (block == nullptr) {
        m_budget.giveBack(room - m_record.m_capacity);
        return State::OutOfMemory;
    }
    m_record.m_data = static_cast<unsigned char*>(block);
    m_record.m_capacity = room;
    m_record.m_budget = &m_budget;
    return State::More;
}

bool RecordAssembler::takeSpare(std::size_t bytes) noexcept
{
    std::size_t capacity = 0;
    unsigned char* const block = spare.take(bytes, capacity);
    if (block == nullptr)
        return false;
    if (!KvNAllocation::mayAllocate(capacity) || !m_budget.take(capacity - m_record.m_capacity)) {
        spare.keep(block, capacity);
        return false;
    }
    if (m_record.m_size != 0)
        std::memcpy(block, m_record.m_data, m_record.m_size);
    KvNAllocation::release(m_record.m_data);
    m_record.m_data = block;
    m_record.m_capacity = capacity;
    m_record.m_budget = &m_budget;
    return true;
}

Record RecordAssembler::take() noexcept
{
    Record record = std::move(m_record);
    reset();
    return record;
}

void RecordAssembler::skip() noexcept
{
    m_record.clear();
    m_skipping = true;
}

void RecordAssembler::reset() noexcept
{
    m_record.clear();
    m_emptyFragments = 0;
    m_received = 0;
    m_transactionId = 0;
    m_fragmentsBegun = false;
    m_last = false;
    m_skipping = false;
    m_fragmentLeft = 0;
}

void putRecordMark(unsigned char* place, std::size_t size) noexcept
{
    const KvUInt32 mark = lastFragment | static_cast<KvUInt32>(size);
    for (unsigned i = 0; i < 4; ++i)
        place[i] = static_cast<unsigned char>(mark >> (24 - 8 * i));
}

}  // namespace KvNRpc
