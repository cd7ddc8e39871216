#pragma once

#include "platform/oncrpc/ClientLoop.h"
#include "platform/oncrpc/PortQuery.h"

namespace KvNRpc {

/** One established or growing connection of a channel and the calls sent on it. */
class Connection final : public RpcStream
{
public:
    Connection(Channel& channel, ClientLoop& loop, std::size_t largestReply, std::uint16_t port);

    /** Ends the connection without a word to the channel. */
    void forget() noexcept;

    /** While it is off the loop: sends a call and waits for its reply for a short time, on the caller's thread. False
        when that was not enough: the loop has to go on, with a call that names no connection from the start. */
    bool drive(PendingCall& call) noexcept;
    /** Whether the next call could be driven as well. */
    bool isFree() const noexcept
    {
        return isOpen() && !incoming().inRecord() && nothingUnfed() && !hasOutput() && calls.empty();
    }
    using RpcStream::attach;
    using RpcStream::detach;

    CallList calls;
    HandlerSlot returnSlot;
    bool established = false;
    std::shared_ptr<Connection> next;

private:
    void onConnected() noexcept override;
    bool onBegun(KvUInt32 transactionId) noexcept override;
    void onRecord(Record record) noexcept override;
    bool onNoRoom(KvUInt32 transactionId, End why) noexcept override;
    void onEnded(End why, const std::error_code& error) noexcept override;
    bool onRest() noexcept override;
    PendingCall* find(KvUInt32 transactionId) const noexcept;
    void finishDriven(PendingCall& call, Failure failure) noexcept;

    Channel* m_channel;
    const std::uint16_t m_port;
    /** The call that is finished as soon as the connection has been parked. */
    PendingCall* m_finished = nullptr;
    bool m_drivenDone = false;
};

/**
 * One client's way to its service, on the loop's thread: connects when a call needs it, sends calls on the current
 * connection and finishes them. After a time-out, a cancelled call, or an answer to a call that was not sent whole, the
 * connection takes no further calls and ends with its last one, so that a peer that stalls in the middle of a reply, or
 * does not read, holds up nobody else.
 *
 * Between quick calls an idle connection is parked off the loop. A caller that finds it there drives it himself, which
 * spares two changes of threads; after 2 ms, or when anybody else wants the connection, it goes back to the loop, which
 * alone knows deadlines, cancelling, sending again and failures. Nobody watches a parked connection: that its peer has
 * closed it is found by the next call, and until then it keeps its descriptor.
 */
class Channel final : public std::enable_shared_from_this<Channel>,
                      public KvNAllocation::Object,
                      public PortQuery::Asker
{
public:
    explicit Channel(ClientLoop& loop) noexcept : m_loop(loop) {}
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    enum class Driven
    {
        Not,      ///< there is no connection for it: submit() it
        Done,     ///< the call is finished
        Begun,    ///< the loop goes on with it
        Stopped,  ///< the loop has been stopped
    };
    /** Tries a call on the parked connection. On any thread. */
    Driven drive(PendingCall& call) noexcept;
    /** What was driven comes back. */
    void takeBack(const std::shared_ptr<Connection>& connection, PendingCall* call) noexcept;

    void submit(PendingCall& call) noexcept;
    void tick(TimePoint now) noexcept;
    void endAll(Failure failure) noexcept;
    void close() noexcept;

    // For connections:
    void connected(Connection& connection) noexcept;
    void ended(Connection& connection, RpcStream::End why, const std::error_code& error) noexcept;
    void finish(PendingCall& call, Failure failure, const char* text = "") noexcept;
    void closeIfUnused(Connection& connection) noexcept;
    /** Has it take no further calls; it ends with its last one. */
    void retire(Connection& connection) noexcept;
    /** Whether the connection is to be parked when this call is finished. */
    bool wouldPark(const Connection& connection, const PendingCall& call) const noexcept;
    bool park(Connection& connection) noexcept;

    // For the loop's list of channels:
    Channel* nextChannel = nullptr;
    Channel* previousChannel = nullptr;
    HandlerSlot closeSlot;

private:
    void onPort(std::uint16_t port, Failure failure, const char* text) noexcept override;
    void route(PendingCall& call) noexcept;
    void assign(PendingCall& call) noexcept;
    void startConnecting(const ChannelSettings& settings) noexcept;
    void connectTo(std::uint16_t port) noexcept;
    void connectFailed(Failure failure, const char* text, std::uint16_t port) noexcept;
    void stopConnecting() noexcept;
    void connectionGone(PendingCall& call, const Connection& connection, RpcStream::End why,
                        const std::error_code& error) noexcept;
    /** The first call of a list that has to end now, and why. */
    PendingCall* due(const CallList& calls, TimePoint now, Failure& failure) const noexcept;
    void endDue(Connection& connection, TimePoint now) noexcept;
    void unlink(Connection& connection) noexcept;
    /** Gets the parked connection back to the loop; false when a caller has it and will bring it. */
    bool unpark() noexcept;
    void dropParked() noexcept;

    ClientLoop& m_loop;
    bool m_added = false;
    ChannelSettings m_settings;
    CallList m_waiting;
    std::shared_ptr<Connection> m_current;
    /** Connections that take no further calls. */
    std::shared_ptr<Connection> m_retired;
    std::shared_ptr<PortQuery> m_query;
    bool m_connecting = false;
    TimePoint m_connectDeadline;
    std::uint16_t m_port = 0;

    /** The last connect's failure, which calls until `m_failedUntil` share. */
    TimePoint m_failedUntil;
    Failure m_failure = Failure::None;
    char m_failureText[64] = {};
    std::uint16_t m_failurePort = 0;

    /** Guards what follows, for all threads. */
    std::mutex m_parkMutex;
    std::shared_ptr<Connection> m_parked;
    bool m_lent = false;
    bool m_wanted = false;
};

}  // namespace KvNRpc
