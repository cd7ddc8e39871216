#pragma once

#include <cstring>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "base/ShortCopy.h"
#include "composite/KvCComposite.h"
#include "composite/StreamFormat.h"

/**
 * Writes the records of a tree straight into a buffer's memory, each with one check for room. What it wrote counts only
 * when it is committed: before anyone else uses the buffer, and at the end. Records that are not of the usual kind are
 * left to the caller.
 */
class RecordWriter
{
public:
    RecordWriter(KvCErrorListPool& errors, KvCBuffer& buffer) : m_errors(errors), m_buffer(buffer) {}
    RecordWriter(const RecordWriter&) = delete;
    RecordWriter& operator=(const RecordWriter&) = delete;
    ~RecordWriter() { commit(); }

    /** What was written is in the buffer now. */
    void commit()
    {
        if (m_at != nullptr)
            m_buffer.commit(m_at);
        m_at = nullptr;
        m_end = nullptr;
    }

    /** Whether there is room for a record; when false, everything written is committed. */
    bool hasRoom()
    {
        if (static_cast<std::size_t>(m_end - m_at) >= largestRecord)
            return true;
        commit();
        if (m_isOut)
            return false;
        const KvNReport::Watch watch(m_errors);
        m_at = m_buffer.reserve(m_errors, largestRecord);
        m_end = m_at == nullptr ? nullptr : m_at + m_buffer.getReserve();
        m_isOut = watch.grew();
        return m_at != nullptr;
    }

    // For these there is room.
    void writeStart(const KvCComposite& node)
    {
        *m_at = KvNStream::StartTag;
        KvNBigEndian::store(m_at + 1, node.getClassId());
        KvNBigEndian::store(m_at + 5, node.getUnitId());
        m_at = putDescription(m_at + KvNStream::TagSize + 8, node.getDescription(), node.getDescriptionSize());
    }
    void writeEnd() { *m_at++ = KvNStream::EndTag; }
    /** The record of a parameter whose value stands as it is: a number, a version, a short text. `putCustom(at)` writes
        what a derived class adds, at most 128 bytes, and gives where that ends. False, and nothing written, for any
        other parameter. */
    template <class PutCustom>
    bool writeParameter(const KvCParam& parameter, PutCustom&& putCustom)
    {
        char* const record = m_at + KvNStream::TagSize;
        char* const value =
            putDescription(record + KvNStream::ParameterFieldsSize - 1, parameter.getDescr(), parameter.getDescrSize());
        char* const custom = putValue(value, parameter);
        if (custom == nullptr)
            return false;
        char* const end = putCustom(custom);
        *m_at = KvNStream::ParameterTag;
        KvNBigEndian::store(record, static_cast<KvUInt32>(end - record));
        KvNBigEndian::store(record + 4, parameter.getId());
        KvNBigEndian::store(record + 8, parameter.getType());
        m_at = end;
        return true;
    }

private:
    /** No field that is written here is longer than what a buffer keeps free behind its write position (KvCBuffer). */
    static constexpr std::size_t longestText = 250;
    /** Fields, description, text, and what a derived class adds. */
    static constexpr KvUInt32 largestRecord = 16 + 255 + (KvNStream::CountSize + longestText + 1) + 128;

    /** Kept: as the length of a description is one byte, the low 8 bits of its size, so many bytes are written. */
    static char* putDescription(char* at, const char* descr, unsigned char size)
    {
        *at = static_cast<char>(size);
        copyShort(at + 1, descr == nullptr ? "" : descr, size);
        return at + 1 + size;
    }

    /** Null for a value of another kind. */
    static char* putValue(char* at, const KvCParam& parameter)
    {
        const void* const value = parameter.getValuePointer();
        const KvUInt32 code = parameter.getType() & KvNElement::CodeMask;
        if (value == nullptr)
            return nullptr;
        switch (KvNElement::scalarSize(code)) {
            case 8:
                return putNumber<KvUInt64>(at, value);
            case 4:
                return putNumber<KvUInt32>(at, value);
            case 2:
                return putNumber<unsigned short>(at, value);
            case 1:
                return putNumber<unsigned char>(at, value);
            default:
                break;
        }
        if (code == KvNElement::KvCVersionCode) {
            KvNBigEndian::store(at, KvUInt64{static_cast<const KvCVersion*>(value)->getAsULong64()});
            return at + sizeof(KvUInt64);
        }
        return code == KvNElement::KvCStringCode ? putText(at, *static_cast<const KvCString*>(value)) : nullptr;
    }

    template <class Bits>
    static char* putNumber(char* at, const void* value)
    {
        Bits bits;
        std::memcpy(&bits, value, sizeof bits);
        KvNBigEndian::store(at, bits);
        return at + sizeof bits;
    }

    static char* putText(char* at, const KvCString& text)
    {
        const KvUInt32 size = text.length() + 1;
        if (size > longestText)
            return nullptr;
        KvNBigEndian::store(at, size);
        copyShort(at + KvNStream::CountSize, text.c_str(), size);
        return at + KvNStream::CountSize + size;
    }

    KvCErrorListPool& m_errors;
    KvCBuffer& m_buffer;
    char* m_at = nullptr;
    char* m_end = nullptr;
    bool m_isOut = false;  ///< memory was out: it is not asked for again with every record
};
