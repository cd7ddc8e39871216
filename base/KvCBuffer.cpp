#include "base/KvCBuffer.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "base/Report.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"

namespace {

constexpr KvUInt64 largestSize = 0xFFFFFFFF;

constexpr bool isElementSize(KvUInt32 size)
{
    return size == 1 || size == 2 || size == 4 || size == 8;
}

/** Bytes that the conversion of `count` bytes touches: whole elements. */
KvUInt64 wholeElements(KvUInt32 count, KvUInt32 elementSize)
{
    return (static_cast<KvUInt64>(count) + elementSize - 1) / elementSize * elementSize;
}

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace

void KvCBuffer::initBuffer(KvCErrorListPool& errors)
{
    clearBuffer();
    m_start = static_cast<char*>(KvNAllocation::allocate(initialSize));
    if (m_start == nullptr) {
        KV_REPORT(errors, AllocationFailed, "KvCBuffer::initBuffer");
        return;
    }
    std::memset(m_start, 0, initialSize);
    m_size = initialSize;
    m_capacity = initialSize;
}

void KvCBuffer::clearBuffer() noexcept
{
    KvNAllocation::release(m_start);
    m_start = nullptr;
    m_size = 0;
    m_capacity = 0;
    m_read = 0;
    m_write = 0;
}

void KvCBuffer::allocateBuffer(KvCErrorListPool& errors, KvInt32 increment)
{
    grow(errors, increment == -1 ? defaultGrowth : static_cast<KvUInt32>(increment));
}

/** Grows the block; false, and reported, when that fails. The caller writes the first `written` bytes of the block. */
bool KvCBuffer::grow(KvCErrorListPool& errors, KvUInt64 increment, KvUInt64 written)
{
    const KvUInt64 size = m_size + increment;
    if (!ensureCapacity(errors, increment > largestSize ? increment : size))
        return false;
    const auto unwritten = static_cast<std::size_t>(std::max<KvUInt64>(m_size, written));
    std::memset(m_start + unwritten, 0, static_cast<std::size_t>(size) - unwritten);
    m_size = static_cast<KvUInt32>(size);
    return true;
}

/** Takes memory for a block of `size` bytes; false, and reported, when that fails. */
bool KvCBuffer::ensureCapacity(KvCErrorListPool& errors, KvUInt64 size)
{
    if (size <= m_capacity && m_start != nullptr)
        return true;
    // Half as much again keeps many small steps linear; a step that is larger than that gets what it needs, and room
    // for the headroom that follows.
    const KvUInt64 geometric = static_cast<KvUInt64>(m_capacity) + m_capacity / 2;
    KvUInt64 capacity = size + initialSize > geometric ? size + initialSize : geometric;
    capacity = capacity > largestSize ? largestSize : capacity;
    void* const block =
        size > largestSize ? nullptr : KvNAllocation::reallocate(m_start, static_cast<std::size_t>(capacity));
    if (block == nullptr) {
        KV_REPORT(errors, AllocationFailed, "KvCBuffer::allocateBuffer");
        return false;
    }
    m_start = static_cast<char*>(block);
    m_capacity = static_cast<KvUInt32>(capacity);
    return true;
}

char* KvCBuffer::reserve(KvCErrorListPool& errors, KvUInt32 bytes)
{
    // Committing must not need memory: what the block may grow by then is there. A writer that goes on without being
    // asked for its bytes is given twice as many each time, so that few of them are ever moved.
    const KvUInt64 needed = KvUInt64{m_write} + bytes + largestGrowth;
    const KvUInt64 doubled = std::min(KvUInt64{m_capacity} * 2, largestSize - initialSize);
    const bool isThere = needed <= m_capacity;
    if (!hasHeadroomFor(0) || (!isThere && !ensureCapacity(errors, std::max(needed, doubled))))
        return nullptr;
    return m_start + m_write;
}

void KvCBuffer::commit(const char* end) noexcept
{
    m_write = static_cast<KvUInt32>(end - m_start);
    if (m_write < m_size && hasHeadroomFor(0))
        return;
    // As fields of that size find more than the headroom free, each makes the block grow by one step at most.
    const KvUInt32 oldSize = m_size;
    const KvUInt32 missing = m_write + headroom + 1 - m_size;
    m_size += (missing + defaultGrowth - 1) / defaultGrowth * defaultGrowth;
    const KvUInt32 unwritten = m_write > oldSize ? m_write : oldSize;
    std::memset(m_start + unwritten, 0, m_size - unwritten);
}

void KvCBuffer::setReadPosition(KvCErrorListPool&, KvUInt32 pos) noexcept
{
    m_read = m_start == nullptr ? 0 : pos;
}

void KvCBuffer::setReadPointer(KvCErrorListPool& errors, char* p)
{
    const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(m_start);
    const std::uintptr_t place = reinterpret_cast<std::uintptr_t>(p);
    if (place < start || place - start > m_size) {
        KV_REPORT(errors, BufferPointerOutOfRange, "KvCBuffer::setReadPointer");
        return;
    }
    m_read = static_cast<KvUInt32>(place - start);
}

void KvCBuffer::setWritePointer(KvCErrorListPool& errors, char* p)
{
    const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(m_start);
    const std::uintptr_t place = reinterpret_cast<std::uintptr_t>(p);
    moveWrite(errors, place < start ? -1 : static_cast<KvInt64>(place - start));
}

/** Sets the write position, by the rules of setWritePointer. */
void KvCBuffer::moveWrite(KvCErrorListPool& errors, KvInt64 position)
{
    if (m_start == nullptr) {
        KV_REPORT(errors, BufferNullPointer, "KvCBuffer::setWritePointer");
        return;
    }
    if (position < 0 || position > static_cast<KvInt64>(m_size)) {
        KV_REPORT(errors, BufferPointerOutOfRange, "KvCBuffer::setWritePointer");
        return;
    }
    m_write = static_cast<KvUInt32>(position);
    if (m_size - m_write <= headroom)
        grow(errors, defaultGrowth);
}

/** Moves the read position, by the rules of incrementReadPointer. */
void KvCBuffer::moveRead(KvCErrorListPool& errors, KvInt64 distance)
{
    if (m_start == nullptr) {
        KV_REPORT(errors, BufferNullPointer, "KvCBuffer::incrementReadPointer");
        return;
    }
    const KvInt64 position = static_cast<KvInt64>(m_read) + distance;
    if (position < 0 || position > static_cast<KvInt64>(m_size)) {
        KV_REPORT(errors, BufferPointerOutOfRange, "KvCBuffer::incrementReadPointer");
        return;
    }
    m_read = static_cast<KvUInt32>(position);
}

void KvCBuffer::incrementReadPointer(KvCErrorListPool& errors, KvInt32 n)
{
    moveRead(errors, n);
}

void KvCBuffer::incrementWritePointer(KvCErrorListPool& errors, KvInt32 n)
{
    moveWrite(errors, static_cast<KvInt64>(m_write) + n);
}

void KvCBuffer::writeElements(KvCErrorListPool& errors, const void* src, KvUInt32 count, KvInt32 elemSize,
                              KvInt32 offset)
{
    const bool atWritePosition = offset == -1;
    if (m_size - m_write < count && !grow(errors, count))
        return;
    const KvUInt32 elementSize = elemSize == -1 ? count : static_cast<KvUInt32>(elemSize);
    // Kept: an element size that is none is no failure when writing.
    if (!isElementSize(elementSize))
        return;

    const KvUInt64 target = atWritePosition ? m_write : static_cast<KvUInt32>(offset);
    const KvUInt64 inside = target < m_size ? m_size - target : 0;
    const KvUInt64 bytes = wholeElements(count, elementSize);
    const KvUInt64 whole = bytes <= inside ? bytes : inside / elementSize * elementSize;
    if (whole != 0)
        KvNBigEndian::copy(m_start + target, src, static_cast<std::size_t>(whole / elementSize), elementSize);
    if (whole < bytes && whole < inside) {
        char last[8];
        KvNBigEndian::copy(last, static_cast<const char*>(src) + whole, 1, elementSize);
        std::memcpy(m_start + target + whole, last, static_cast<std::size_t>(inside - whole));
    }
    if (atWritePosition)
        moveWrite(errors, static_cast<KvInt64>(m_write) + count);
}

void KvCBuffer::readBuffer(KvCErrorListPool& errors, void* dst, KvUInt32 count, KvInt32 elemSize, KvInt32 offset)
{
    if (count == 0)
        return;
    if (m_start == nullptr) {
        KV_REPORT(errors, BufferNullPointer, "KvCBuffer::readBuffer");
        return;
    }
    const bool atReadPosition = offset == -1;
    const KvUInt32 source = atReadPosition ? m_read : static_cast<KvUInt32>(offset);
    if (source > m_write) {
        KV_REPORT(errors, BufferPointerOutOfRange, "KvCBuffer::readBuffer");
        return;
    }
    const KvUInt32 elementSize = elemSize == -1 ? count : static_cast<KvUInt32>(elemSize);
    if (!isElementSize(elementSize)) {
        KV_REPORT(errors, BufferInvalidTypeSize, "KvCBuffer::readBuffer");
        return;
    }

    const KvUInt64 inside = m_size - source;
    const KvUInt64 bytes = wholeElements(count, elementSize);
    const KvUInt64 whole = bytes <= inside ? bytes : inside / elementSize * elementSize;
    KvNBigEndian::copy(dst, m_start + source, static_cast<std::size_t>(whole / elementSize), elementSize);
    if (whole < bytes) {
        char* rest = static_cast<char*>(dst) + whole;
        std::memset(rest, 0, static_cast<std::size_t>(bytes - whole));
        if (whole < inside) {
            char last[8] = {};
            std::memcpy(last, m_start + source + whole, static_cast<std::size_t>(inside - whole));
            KvNBigEndian::copy(rest, last, 1, elementSize);
        }
    }
    if (atReadPosition)
        moveRead(errors, count);
}

void KvCBuffer::ReadFromFile(KvCErrorListPool& errors, const char* path)
{
    using KvNRtosAbstraction::FileKind;
    KvUInt64 size = 0;
    FileKind kind = FileKind::Missing;
    const File file(KvNRtosAbstraction::openRegularFile(path, &size, &kind));
    if (kind == FileKind::Other)
        KV_REPORT(errors, BufferReadFailed, "KvCBuffer::ReadFromFile");
    else if (file == nullptr && kind == FileKind::Regular)
        KV_REPORT(errors, OutOfMemory, "KvCBuffer::ReadFromFile");
    const std::size_t before = m_size;
    if (file == nullptr || !grow(errors, size, size))
        return;
    const auto bytes = static_cast<std::size_t>(size);
    const std::size_t taken = bytes == 0 ? 0 : std::fread(m_start, 1, bytes, file.get());
    if (taken != bytes) {
        const std::size_t unwritten = std::max(before, taken);
        if (unwritten < bytes)
            std::memset(m_start + unwritten, 0, bytes - unwritten);
        KV_REPORT(errors, BufferReadFailed, "KvCBuffer::ReadFromFile");
        return;
    }
    moveWrite(errors, static_cast<KvInt64>(m_write) + static_cast<KvInt64>(size));
}

void KvCBuffer::WriteToFile(KvCErrorListPool& errors, const char* path) const
{
    if (m_start == nullptr) {
        KV_REPORT(errors, BufferNullPointer, "KvCBuffer::WriteToFile");
        return;
    }
    std::FILE* file = path == nullptr ? nullptr : std::fopen(path, "wb");
    bool written = file != nullptr;
    if (file != nullptr) {
        written = m_write == 0 || std::fwrite(m_start, 1, m_write, file) == m_write;
        written = std::fclose(file) == 0 && written;
    }
    if (!written)
        KV_REPORT(errors, BufferFileWriteFailed, "KvCBuffer::WriteToFile", path);
}
