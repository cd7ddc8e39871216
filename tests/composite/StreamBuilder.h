#pragma once

#include <cstring>
#include <string>

#include "Support.h"

/** Puts a stream together byte by byte, and breaks it. Independent of the code under test. */
class StreamBuilder
{
public:
    StreamBuilder& byte(unsigned value)
    {
        m_bytes.push_back(static_cast<unsigned char>(value));
        return *this;
    }
    StreamBuilder& number(KvUInt64 value, int width = 4)
    {
        for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
            byte(static_cast<unsigned>(value >> shift & 0xFF));
        return *this;
    }
    StreamBuilder& text(const std::string& value)
    {
        m_bytes.insert(m_bytes.end(), value.begin(), value.end());
        return *this;
    }
    /** Bytes in hexadecimal, blanks between them. */
    StreamBuilder& hex(const char* digits)
    {
        char* end = nullptr;
        for (unsigned long value = std::strtoul(digits, &end, 16); end != digits;
             value = std::strtoul(digits, &end, 16)) {
            byte(static_cast<unsigned>(value));
            digits = end;
        }
        return *this;
    }
    StreamBuilder& start(KvUInt32 classId, KvUInt32 unitId, const std::string& descr = "n")
    {
        byte(1).number(classId).number(unitId);
        return byte(static_cast<unsigned>(descr.size() + 1)).text(descr).byte(0);
    }
    StreamBuilder& end() { return byte(2); }
    /** A parameter record with the value bytes that `value` holds; L is right unless `extra` says otherwise. */
    StreamBuilder& parameter(KvUInt32 id, KvUInt32 type, const StreamBuilder& value, const std::string& descr = "p",
                             int extra = 0)
    {
        const auto length = static_cast<int>(13 + descr.size() + 1 + value.m_bytes.size()) + extra;
        byte(3).number(static_cast<KvUInt32>(length)).number(id).number(type);
        byte(static_cast<unsigned>(descr.size() + 1)).text(descr).byte(0);
        m_bytes.insert(m_bytes.end(), value.m_bytes.begin(), value.m_bytes.end());
        return *this;
    }

    StreamBuilder& set(std::size_t at, unsigned value)
    {
        m_bytes.at(at) = static_cast<unsigned char>(value);
        return *this;
    }
    StreamBuilder& cut(std::size_t size)
    {
        m_bytes.resize(size);
        return *this;
    }
    StreamBuilder& insert(std::size_t at, unsigned value, std::size_t count = 1)
    {
        m_bytes.insert(m_bytes.begin() + static_cast<std::ptrdiff_t>(at), count, static_cast<unsigned char>(value));
        return *this;
    }

    const Bytes& bytes() const { return m_bytes; }
    std::size_t size() const { return m_bytes.size(); }

private:
    Bytes m_bytes;
};

/** A buffer that holds the bytes. */
inline std::unique_ptr<KvCBuffer> bufferOf(const Bytes& bytes)
{
    KvCErrorListPool errors;
    std::unique_ptr<KvCBuffer> buffer(new KvCBuffer(errors));
    buffer->writeBuffer(errors, bytes.data(), static_cast<KvUInt32>(bytes.size()), 1);
    return buffer;
}
