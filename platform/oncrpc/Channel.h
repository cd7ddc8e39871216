#pragma once

#include "platform/oncrpc/ClientLoop.h"
#include "platform/oncrpc/PortQuery.h"

namespace KvNRpc {

/** One established or growing connection of a channel and the calls sent on it. */
class Connection final : public RpcStream
{
public:
    Connection(Channel& channel, ClientLoop& loop, std::size_t largestReply);

    /** Ends the connection without a word to the channel. */
    void forget() noexcept;

    CallList calls;
    bool established = false;
    std::shared_ptr<Connection> next;

private:
    void onConnected() noexcept override;
    bool onBegun(KvUInt32 transactionId) noexcept override;
    void onRecord(Record record) noexcept override;
    bool onNoRoom(KvUInt32 transactionId, End why) noexcept override;
    void onEnded(End why, const std::error_code& error) noexcept override;
    PendingCall* find(KvUInt32 transactionId) const noexcept;

    Channel* m_channel;
};

/**
 * One client's way to its service, on the loop's thread: connects when a call needs it, sends calls on the current
 * connection and finishes them. After a time-out or a cancelled call the connection takes no further calls and ends
 * with its last one, so that a peer that stalls in the middle of a reply holds up nobody else.
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

    void submit(PendingCall& call) noexcept;
    void tick(TimePoint now) noexcept;
    void endAll(Failure failure) noexcept;
    void close() noexcept;

    // For connections:
    void connected(Connection& connection) noexcept;
    void ended(Connection& connection, RpcStream::End why, const std::error_code& error) noexcept;
    void finish(PendingCall& call, Failure failure, const char* text = "") noexcept;
    void closeIfUnused(Connection& connection) noexcept;

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
    void retire(Connection& connection) noexcept;
    void unlink(Connection& connection) noexcept;

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
};

}  // namespace KvNRpc
