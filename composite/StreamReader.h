#pragma once

#include <initializer_list>

#include "base/BigEndian.h"
#include "base/KvCBuffer.h"

/**
 * Takes the fields of a record straight from the buffer's memory, with one check for each group of fields. Nothing
 * behind the write position is ever taken: a group that is cut short moves the read position as reading field by field
 * would, with the buffer's own reports, and gives null.
 */
class StreamReader
{
public:
    StreamReader(KvCErrorListPool& errors, KvCBuffer& buffer) : m_errors(errors), m_buffer(buffer) {}

    /** The bytes of the next fields, whose sizes are given; null when they are not all there. */
    const char* take(std::initializer_list<KvUInt32> sizes)
    {
        KvUInt64 total = 0;
        for (const KvUInt32 size : sizes)
            total += size;
        const KvUInt32 position = m_buffer.getReadPosition();
        if (isPast() || total > m_buffer.getWritePosition() - position)
            return passEnd(sizes);
        const char* const bytes = m_buffer.getReadPointer();
        m_buffer.setReadPosition(m_errors, static_cast<KvUInt32>(position + total));
        return bytes;
    }

    /** Whether more was read than was written. */
    bool isPast() const { return m_buffer.getReadPosition() > m_buffer.getWritePosition(); }

private:
    const char* passEnd(std::initializer_list<KvUInt32> sizes)
    {
        constexpr KvUInt32 largestStep = 0x7FFFFFFF;
        for (const KvUInt32 size : sizes) {
            m_buffer.incrementReadPointer(m_errors, static_cast<KvInt32>(size < largestStep ? size : largestStep));
            if (isPast())
                break;
        }
        return nullptr;
    }

    KvCErrorListPool& m_errors;
    KvCBuffer& m_buffer;
};
