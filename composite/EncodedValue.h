#pragma once

#include <new>

#include "base/BigEndian.h"
#include "composite/ElementTypes.h"
#include "composite/StreamFormat.h"

/**
 * A value in a record, of a type whose values stand inside their parameter: numbers, texts and versions. Found with one
 * look at how many bytes there are, and made where it belongs without a step through another value.
 */
class EncodedValue
{
public:
    /** Looks for a value of this type in the `available` bytes at `bytes`. False when it is not whole there, or of
        another type. */
    bool find(KvUInt32 type, const char* bytes, KvUInt32 available)
    {
        const KvUInt32 code = type & KvNElement::CodeMask;
        m_bytes = bytes;
        m_code = code;
        m_length = KvNElement::scalarSize(code);
        m_size = m_length;
        if (m_size != 0)
            return m_size <= available;
        if (code == KvNElement::KvCVersionCode) {
            m_size = sizeof(KvUInt64);
            return m_size <= available;
        }
        if (code != KvNElement::KvCStringCode || available < KvNStream::CountSize)
            return false;
        m_bytes = bytes + KvNStream::CountSize;
        m_length = KvNBigEndian::load<KvUInt32>(bytes);
        m_size = KvNStream::CountSize + m_length;
        return m_length <= available - KvNStream::CountSize;
    }

    /** Bytes that the value takes in its record. */
    KvUInt32 size() const { return m_size; }

    /** Makes the value at `room`, 16 bytes. False, and reported on the master error list, when memory for a long text
        is out; the text is empty then. */
    bool makeAt(void* room) const
    {
        if (m_code == KvNElement::KvCStringCode) {
            const auto* const text = new (room) KvCString(m_bytes, static_cast<unsigned int>(m_length));
            return m_length <= shortText || m_bytes[0] == '\0' || text->length() != 0;
        }
        if (m_code == KvNElement::KvCVersionCode)
            new (room) KvCVersion(static_cast<unsigned long long>(KvNBigEndian::load<KvUInt64>(m_bytes)));
        else
            makeNumber(room);
        return true;
    }

private:
    /** A text of this length, with its NUL, stands inside a string. */
    static constexpr KvUInt32 shortText = 15;

    void makeNumber(void* room) const
    {
        switch (m_length) {
            case 8:
                return store<KvUInt64>(room);
            case 4:
                return store<KvUInt32>(room);
            case 2:
                return store<unsigned short>(room);
            default:
                return store<unsigned char>(room);
        }
    }
    template <class Bits>
    void store(void* room) const
    {
        new (room) Bits(KvNBigEndian::load<Bits>(m_bytes));
    }

    const char* m_bytes = nullptr;
    KvUInt32 m_code = 0;
    KvUInt32 m_length = 0;
    KvUInt32 m_size = 0;
};
