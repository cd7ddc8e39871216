#pragma once

#include <cstddef>
#include <cstring>
#include <span>
#include <vector>

#include <rpc/rpc.h>

#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"
#include "tools/kvboardd/Procedure.h"

namespace KvNBoardService {

/**
 * A record of generated code, and whoever decodes into it gives back on every path what decoding took. The code sees
 * memory only, never a socket.
 */
template <class T, bool_t (*routine)(XDR*, T*)>
class Record
{
public:
    Record() = default;
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    ~Record()
    {
        XDR stream{};
        stream.x_op = XDR_FREE;
        routine(&stream, &m_value);
    }

    /** Decodes arguments; false when they are not exactly one record. */
    bool decode(std::span<const unsigned char> bytes)
    {
        XDR stream;
        // Decoding does not write; the library knows no const.
        auto* start = const_cast<char*>(reinterpret_cast<const char*>(bytes.data()));
        xdrmem_create(&stream, start, static_cast<u_int>(bytes.size()), XDR_DECODE);
        return routine(&stream, &m_value) != FALSE && xdr_getpos(&stream) == bytes.size();
    }

    T& operator*() { return m_value; }
    T* operator->() { return &m_value; }

private:
    T m_value{};
};

/** The number that came for an enumeration, which may be none of it. */
template <class Enumeration>
int transmitted(const Enumeration& value)
{
    int number = 0;
    static_assert(sizeof number == sizeof value);
    std::memcpy(&number, &value, sizeof number);
    return number;
}

/** Encodes `result`, which refers to memory of the caller's, into at most `room` bytes. */
template <class T>
Answer encoded(bool_t (*routine)(XDR*, T*), T& result, std::size_t room)
{
    Answer answer;
    answer.results.resize(room);
    XDR stream;
    xdrmem_create(&stream, reinterpret_cast<char*>(answer.results.data()), static_cast<u_int>(room), XDR_ENCODE);
    if (routine(&stream, &result) == FALSE)
        return Answer::of(Answer::Kind::SystemError);
    answer.results.resize(xdr_getpos(&stream));
    return answer;
}

/** The error list block that ends every result; no bytes stand for an empty list. */
class ErrorBlock
{
public:
    /** A list of more than `maximum` bytes is replaced by one that says so. */
    ErrorBlock(const KvCErrorListPool& errors, std::size_t maximum);

    char* data() { return reinterpret_cast<char*>(m_bytes.data()); }
    u_int size() const { return static_cast<u_int>(m_bytes.size()); }

private:
    std::vector<unsigned char> m_bytes;
};

/** Bytes that counted bytes take at most when encoded. */
constexpr std::size_t roomFor(std::size_t bytes)
{
    return bytes + 8;
}

}  // namespace KvNBoardService
