#pragma once

#include <cstddef>

#include "base/BigEndian.h"
#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

/**
 * The byte buffer that every serialized stream passes through: one block with a read and a write position. Numbers are
 * stored most significant byte first. [start, write position) is the occupied part. The buffer grows as it is written;
 * its size in bytes grows in the small steps that are documented, the memory behind it geometrically. Bytes that were
 * never written are 0, and no byte outside the block is ever touched.
 * What fails is reported and leaves the positions as they were before the step that failed. Codes: 0xA00000 a position
 * outside the block, 0xA00001 an element size that is none, 0xA00002 no block, 0xA00004 and 0xA00005 files, 0x401 out
 * of memory, or more than 32 bits count.
 */
class KV_EXPORT KvCBuffer : public KvNAllocation::Object
{
public:
    /** A buffer of 1024 bytes; without a block, and 0x401 reported, when memory is out. */
    explicit KvCBuffer(KvCErrorListPool& errors) { initBuffer(errors); }
    ~KvCBuffer() { clearBuffer(); }
    KvCBuffer(const KvCBuffer&) = delete;
    KvCBuffer& operator=(const KvCBuffer&) = delete;

    /** Starts over with a fresh block of 1024 zero bytes. */
    void initBuffer(KvCErrorListPool& errors);
    /** Drops the block; the buffer must be initialised or grown before it is used again. */
    void clearBuffer() noexcept;
    /** Grows the block by `increment` bytes (-1: by 512), taken as unsigned. */
    void allocateBuffer(KvCErrorListPool& errors, KvInt32 increment);

    /** The pointers are null when there is no block; they are valid until the buffer grows. */
    char* getStartPointer() const noexcept { return m_start; }
    char* getReadPointer() const noexcept { return at(m_read); }
    char* getWritePointer() const noexcept { return at(m_write); }
    char* getEndPointer() const noexcept { return at(m_size); }
    /** Bytes in the block. */
    KvUInt32 getSize() const noexcept { return m_size; }
    /** Bytes before the write position. */
    KvUInt32 getOccupiedSize() const noexcept { return m_write; }
    /** Bytes behind the write position. */
    KvUInt32 getFreeSize() const noexcept { return m_size - m_write; }
    KvUInt32 getReadPosition() const noexcept { return m_read; }
    KvUInt32 getWritePosition() const noexcept { return m_write; }

    /** Sets the read position without any check; without a block nothing happens. */
    void setReadPosition(KvCErrorListPool& errors, KvUInt32 pos) noexcept;
    /** Sets the read position to `p`, which lies in the block or at its end. */
    void setReadPointer(KvCErrorListPool& errors, char* p);
    /** Sets the write position to `p`, which lies in the block or at its end; when 256 bytes or fewer are free behind
       it the block grows by 512. */
    void setWritePointer(KvCErrorListPool& errors, char* p);
    /** Moves the read position by `n` bytes, inside the block. */
    void incrementReadPointer(KvCErrorListPool& errors, KvInt32 n);
    /** Moves the write position by `n` bytes, by the rules of setWritePointer. */
    void incrementWritePointer(KvCErrorListPool& errors, KvInt32 n);

    /** Writes `count` bytes from `src`, as elements of `elemSize` bytes (1, 2, 4 or 8; -1: one element of `count`
       bytes), at the write position, which advances, or at `offset` from the start, which moves nothing. Whole elements
       are converted: of `count` bytes rounded up to a multiple of the element size `src` must have all. When fewer than
        `count` bytes are free behind the write position the block grows by `count`, wherever the bytes go; what would
       lie outside the block then is left out. Another element size writes nothing and reports nothing. */
    void writeBuffer(KvCErrorListPool& errors, const void* src, KvUInt32 count, KvInt32 elemSize = -1,
                     KvInt32 offset = -1)
    {
        if (offset == -1 && (elemSize == -1 || static_cast<KvUInt32>(elemSize) == count) && hasHeadroomFor(count)) {
            switch (count) {
                case 1:
                    return put<1>(src);
                case 2:
                    return put<2>(src);
                case 4:
                    return put<4>(src);
                case 8:
                    return put<8>(src);
                default:
                    break;
            }
        }
        writeElements(errors, src, count, elemSize, offset);
    }

    /** For a writer that puts many small fields at the write position itself: where it is, with memory for at least
        `bytes` bytes behind it (getReserve tells how much there is). They count when they are committed. Null when
       fewer bytes than usual are free behind the write position, so that the fields must be written one by one, and
       when memory is out, which is reported. */
    char* reserve(KvCErrorListPool& errors, KvUInt32 bytes);
    /** Bytes that may be put behind the write position; only meaningful after reserve. */
    KvUInt32 getReserve() const noexcept { return m_capacity - m_write - largestGrowth; }
    /** The write position becomes `end`, in the memory that was reserved; the block grows as it would have, had every
        field, of at most 256 bytes, been written by writeBuffer. */
    void commit(const char* end) noexcept;

    /** Reads `count` bytes into `dst`, as elements of `elemSize` bytes, from the read position, which advances (inside
       the block), or from `offset`. Where the reading begins must lie before the write position or at it; only that is
        checked: bytes of the block behind the write position are 0 or old ones, and what lies outside the block reads
        as 0. Whole elements are converted, as many as `count` bytes rounded up; `dst` must have room for them. */
    void readBuffer(KvCErrorListPool& errors, void* dst, KvUInt32 count, KvInt32 elemSize = -1, KvInt32 offset = -1);

    /** Reads a whole file to the start of the block and advances the write position by its size; meant for a fresh
        buffer. A file that cannot be opened is silently not read. What is no regular file, and one that turns out
        shorter than its size, is reported as 0xA00004. */
    void ReadFromFile(KvCErrorListPool& errors, const char* path);
    /** Writes the occupied part to a file. */
    void WriteToFile(KvCErrorListPool& errors, const char* path) const;

    /** Print the occupied part to standard output, for diagnosis. */
    void hexDumpBuffer() const;
    void printAsciiBuffer() const;
    void printBinaryBuffer() const;

private:
    static constexpr KvUInt32 initialSize = 1024;
    static constexpr KvUInt32 defaultGrowth = 512;
    static constexpr KvUInt32 headroom = 256;
    static constexpr KvUInt32 largestGrowth = headroom + defaultGrowth;  // of the block, behind what is committed

    char* at(KvUInt32 position) const noexcept { return m_start == nullptr ? nullptr : m_start + position; }
    bool hasHeadroomFor(KvUInt32 count) const noexcept
    {
        const KvUInt32 free = m_size - m_write;
        return free > headroom && free - headroom > count;
    }
    template <std::size_t size>
    void put(const void* src) noexcept
    {
        KvNBigEndian::UnsignedOf<size> bits;
        std::memcpy(&bits, src, size);
        KvNBigEndian::store(m_start + m_write, bits);
        m_write += static_cast<KvUInt32>(size);
    }
    bool grow(KvCErrorListPool& errors, KvUInt64 increment, KvUInt64 written = 0);
    bool ensureCapacity(KvCErrorListPool& errors, KvUInt64 size);
    void moveWrite(KvCErrorListPool& errors, KvInt64 position);
    void moveRead(KvCErrorListPool& errors, KvInt64 distance);
    void writeElements(KvCErrorListPool& errors, const void* src, KvUInt32 count, KvInt32 elemSize, KvInt32 offset);

    char* m_start = nullptr;
    KvUInt32 m_size = 0;      // bytes in the block, as everyone knows it
    KvUInt32 m_capacity = 0;  // bytes of memory behind it
    KvUInt32 m_read = 0;
    KvUInt32 m_write = 0;
};
