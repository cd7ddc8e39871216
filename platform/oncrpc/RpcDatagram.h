#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

namespace KvNRpc {

/**
 * RPC calls to many hosts side by side: for finding boards.
 *
 * Requests are added, then run() sends them, by UDP again at given times until answered, and hands each reply to the
 * handler as it comes; the handler may add further requests (ask a host that answered who it is). run() ends when every
 * request has its answer, at the deadline, or when cancelAll() was called. One thread uses an object; it can be run
 * again. IPv4 addresses are host-order numbers (10.0.0.2 is 0x0A000002).
 */
class RpcDatagram : public KvNAllocation::Object
{
public:
    enum class Transport
    {
        Udp,
        Tcp  // connects at once, sends once
    };

    enum class Outcome
    {
        Answered,    // accepted with success: `results` are the procedure's result
        Refused,     // the service refused the call (RFC 5531): `refusal` is the KvCRpcClient::Result
        Unreachable  // the host refuses: a connect failed, the connection ended, or no memory for the request
    };

    struct Request
    {
        KvUInt32 address = 0;
        std::uint16_t port = 0;
        Transport transport = Transport::Udp;
        /** The address is a broadcast address: each sender's first reply is delivered, and the request counts as
            answered only at the deadline. UDP only. */
        bool broadcast = false;
        KvUInt32 program = 0;
        KvUInt32 version = 0;
        KvUInt32 procedure = 0;
        /** Encoded arguments; copied. */
        const unsigned char* arguments = nullptr;
        std::size_t argumentBytes = 0;
        /** The caller's own, handed back with each reply. */
        KvUInt64 tag = 0;
    };

    struct Reply
    {
        KvUInt64 tag;
        /** The sender: for a broadcast whoever answered, otherwise the address asked (no other's reply counts). */
        KvUInt32 address;
        Transport transport;
        Outcome outcome;
        long refusal;
        /** Encoded results, valid during the handler. */
        const unsigned char* results;
        std::size_t resultBytes;
    };

    enum class End
    {
        AllAnswered,
        Deadline,
        Cancelled,
        OutOfMemory  // or no socket could be had
    };

    using Handler = void (*)(void* context, RpcDatagram& exchange, const Reply& reply);

    RpcDatagram() noexcept;
    ~RpcDatagram();
    RpcDatagram(const RpcDatagram&) = delete;
    RpcDatagram& operator=(const RpcDatagram&) = delete;

    /** Adds a request, sent by run() or, when it runs, at once; false when memory is out. */
    bool add(const Request& request) noexcept;

    /** Drops the unanswered requests with this tag: none of them is waited for any longer. */
    void drop(KvUInt64 tag) noexcept;

    /** When an unanswered UDP request is sent, in milliseconds after it was added (or after run() began); default
        0, 250 and 700. At most 8 times are kept. */
    void setTimes(const KvUInt32* milliseconds, std::size_t count) noexcept;

    /** Largest reply taken over TCP, default 64 KiB. */
    void setLargestReply(std::size_t bytes) noexcept;

    /** Of how many senders a broadcast takes replies, default 4096: whoever forges senders fills no memory. */
    void setMostSenders(std::size_t count) noexcept;

    /** Sends, waits at most `milliseconds`, and calls `handler` with each reply. No exception leaves it. */
    End run(KvUInt32 milliseconds, Handler handler, void* context) noexcept;

    /** Its own. */
    struct State;

private:
    State* m_state = nullptr;
};

}  // namespace KvNRpc
