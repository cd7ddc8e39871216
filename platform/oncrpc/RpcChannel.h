#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "platform/errorhandling/KvCErrorList.h"
#include "platform/oncrpc/RecordAssembler.h"

namespace KvNRpc {

/** Why a call did not come to a reply. */
enum class Failure
{
    None,
    Connect,  // `text` says why, at `port`
    ConnectTimeout,
    PortMapperSilent,
    PortMapperMalformed,
    PortMapperRefused,
    NotRegistered,
    Timeout,
    Lost,  // `text` says how
    Malformed,
    TooLarge,
    OutOfBudget,
    OutOfMemory,
    Cancelled
};

/** What a call comes to: a reply, or a failure with what its message needs. */
struct CallOutcome
{
    Failure failure = Failure::OutOfMemory;
    /** The port spoken to; 0 when it was not known yet. */
    std::uint16_t port = 0;
    char text[64] = {};
    Record reply;
};

/** What a channel is set to; read when it connects. */
struct ChannelSettings
{
    KvUInt32 address = 0;
    KvUInt32 program = 0;
    KvUInt32 version = 0;
    std::uint16_t port = 0;
    std::uint16_t portMapperPort = 111;
    std::chrono::microseconds connectTimeout{5000000};
    std::size_t largestReply = 64u << 20;
};

/** A request to a channel. */
struct CallRequest
{
    /** The record, with room for its mark; none: only the connection is wanted. */
    Bytes message;
    KvUInt32 transactionId = 0;
    bool repeatable = false;
    std::chrono::steady_clock::time_point deadline;
    /** cancelCount() when the call began. */
    KvUInt32 cancelCount = 0;
};

/** Replies held by all calls of the process together. */
constexpr std::size_t repliesLimit = 512u << 20;

class Channel;
class ClientLoop;
struct Outgoing;
struct PendingCall;

/**
 * A call that is sent now and whose reply is waited for later, so that one thread may have several on their way; with
 * the record that it is sent in, which has room for the arguments from the start and serves the next call too.
 * One thread uses it, and ends it before the link that it was sent by.
 */
class SentCall
{
public:
    SentCall() noexcept;
    /** Waits until nothing of the call is on its way. */
    ~SentCall();
    SentCall(const SentCall&) = delete;
    SentCall& operator=(const SentCall&) = delete;

    /** Has room for arguments of `bytes` bytes from now on; false when memory is out. Not while it is on its way. */
    bool reserve(std::size_t bytes) noexcept;
    /** The room for a record, its mark and its header, of which the arguments come last. */
    unsigned char* record() const noexcept;
    std::size_t room() const noexcept { return m_room; }
    /** Where the arguments stand. What is here when they are encoded from here is not copied, and stays as it is until
        the next reserve(). */
    char* arguments() const noexcept;

    /** Whether it was sent, and its reply has not been waited for. */
    bool isOnItsWay() const noexcept { return m_call != nullptr; }
    /** When that was. */
    std::chrono::steady_clock::time_point sentAt() const noexcept;
    /** Nobody is going to wait for the reply. */
    void abandon() noexcept;

private:
    friend class ChannelLink;
    struct Call;
    std::shared_ptr<Outgoing> m_record;
    std::size_t m_room = 0;
    std::unique_ptr<Call> m_call;
};

/**
 * The connection of one client to one service, on the loop that all clients of the process share.
 *
 * The loop's thread starts with the first link and ends with the last. call() may be used by several threads at once;
 * it blocks until there is an outcome. A link that was carried into a forked process begins anew there.
 */
class ChannelLink : public KvNAllocation::Object
{
public:
    ChannelLink() noexcept : m_transactionId(firstTransactionId()) {}
    ~ChannelLink();
    ChannelLink(const ChannelLink&) = delete;
    ChannelLink& operator=(const ChannelLink&) = delete;

    /** Not for use while calls are in progress. */
    ChannelSettings settings;

    KvUInt32 nextTransactionId() noexcept;
    /** Sends the request and waits for what comes of it. */
    void call(CallRequest& request, CallOutcome& outcome) noexcept;

    /** Sends the first `size` bytes of a call's record; false when memory is out. */
    bool send(SentCall& call, KvUInt32 transactionId, std::size_t size) noexcept;
    /** Waits for what comes of a call, which has timed out at `deadline`. */
    void finish(SentCall& call, std::chrono::steady_clock::time_point deadline, CallOutcome& outcome) noexcept;

private:
    bool attach() noexcept;

    std::mutex m_mutex;
    std::shared_ptr<ClientLoop> m_loop;
    std::shared_ptr<Channel> m_channel;
    KvUInt32 m_transactionId;
};

/** Ends every call, connect and search in progress; for any thread and for signal handlers. */
void cancelEverything() noexcept;
/** Counts up with each cancelEverything(): what began before the count changed is cancelled. */
KvUInt32 cancelCount() noexcept;

}  // namespace KvNRpc
