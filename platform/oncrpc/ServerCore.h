#pragma once

#include <atomic>
#include <map>
#include <vector>

#include "platform/oncrpc/RpcServer.h"
#include "platform/oncrpc/RpcStream.h"

namespace KvNRpc {

/** One client's connection to a board. */
class ServerConnection final : public RpcStream
{
public:
    ServerConnection(ServerCore& core, int board, KvUInt64 number, KvUInt32 peerAddress, std::uint16_t peerPort,
                     KvUInt32 localAddress, std::uint16_t localPort);

    void answer(std::shared_ptr<Outgoing> message) noexcept;
    /** A call that will have no answer. */
    void settle() noexcept;
    /** Ends the connection once its answers are drained. */
    void closeSoon() noexcept;
    /** Ends it now. */
    void drop(const char* why) noexcept;
    /** What the clock has to say: null, or why the connection has to end. */
    const char* overdue(TimePoint now) const noexcept;
    /** Whether it may make place for a new one. */
    bool canYield() const noexcept;
    bool isBusy() const noexcept { return m_calls != 0 || hasOutput(); }
    /** Bytes of the server's memory for requests and answers that it has. */
    std::size_t heldBytes() const noexcept { return incoming().heldBytes() + outputBytes(); }

    const int board;
    const KvUInt64 number;
    const KvUInt32 peerAddress;
    const std::uint16_t peerPort;
    const KvUInt32 localAddress;
    const std::uint16_t localPort;
    bool isProtected = false;
    TimePoint lastActivity;

private:
    void onBytes() noexcept override;
    void onRecord(Record record) noexcept override;
    bool makeRoom() noexcept override;
    void onSent(Outgoing& message, bool whole) noexcept override;
    void onEnded(End why, const std::error_code& error) noexcept override;
    void callDone() noexcept;

    ServerCore& m_core;
    TimePoint m_created;
    TimePoint m_recordBegan;
    TimePoint m_outputBegan;
    /** Calls whose answers have not been given or not been sent. */
    unsigned m_calls = 0;
    bool m_hadRecord = false;
    bool m_closing = false;
    bool m_full = false;
};

/** The loop behind an RpcServer. */
class ServerCore : public std::enable_shared_from_this<ServerCore>, public KvNAllocation::Object
{
public:
    ServerCore(ServerHandler& handler, const ServerLimits& given);
    ~ServerCore();
    ServerCore(const ServerCore&) = delete;
    ServerCore& operator=(const ServerCore&) = delete;

    int listenTcp(int board, KvUInt32 address, std::uint16_t port) noexcept;
    int listenUdp(int board, KvUInt32 address, std::uint16_t port, bool shared, int answerThrough) noexcept;
    std::uint16_t port(int listener) const noexcept;
    const char* lastError() const noexcept { return m_lastError; }

    void run() noexcept;
    void stop() noexcept;
    bool stopOnSignals() noexcept;
    bool post(std::function<void()> work) noexcept;
    void wake() noexcept;
    KvUInt64 startTimer(KvUInt32 milliseconds, std::function<void()> work) noexcept;
    void cancelTimer(KvUInt64 timer) noexcept;
    ServerConnection* find(KvUInt64 number) noexcept;
    unsigned connectionCount() const noexcept { return static_cast<unsigned>(m_connections.size()); }

    /** Decodes a message and has it served or refused; false when it is no call at all. */
    bool serve(const unsigned char* data, std::size_t size, ServerConnection* connection, int listener,
               const asio::ip::udp::endpoint* sender) noexcept;
    void answer(const ReplyWriter& writer, const ReplyHeader& header, const void* results, std::size_t bytes) noexcept;
    void settle(const ReplyWriter& writer) noexcept;
    /** Ends the connection that holds the most memory of those that are not protected and hold more than the
        `bytes` that `wanting` is to have, or, if that is protected, anything; whether there was one. So who wants
       little is served whatever others want.
     */
    bool makeRoomFor(const ServerConnection& wanting, std::size_t bytes) noexcept;
    /** A connection has ended. */
    void gone(ServerConnection& connection, const char* why) noexcept;
    void note(int board, KvUInt32 peerAddress, const char* what) noexcept;

    const ServerLimits limits;
    ReadBuffer buffer;
    ByteBudget budget;

private:
    // Operations that are still queued when the loop dies live here.
    HandlerSlot m_tickSlot;
    HandlerSlot m_workSlot;
    HandlerSlot m_stopSlot;
    HandlerSlot m_wakeSlot;
    std::atomic<bool> m_wakes{false};  ///< woken() is on its way

public:
    asio::io_context context{1};

private:
    struct Listener : public KvNAllocation::Object
    {
        explicit Listener(asio::io_context& loop) : acceptor(loop), socket(loop) {}
        TcpAcceptor acceptor;
        UdpSocket socket;
        int board = 0;
        KvUInt32 address = 0;
        std::uint16_t port = 0;
        int answerThrough = 0;
        bool isTcp = false;
        bool waiting = false;
        HandlerSlot slot;
    };
    /** Shared with the wait in progress, whose memory is the listener's. */
    using ListenerPtr = std::shared_ptr<Listener>;

    int addListener(ListenerPtr listener, int board, KvUInt32 address) noexcept;
    int listenFailed(const std::error_code& error) noexcept;
    void waitForPeers(std::size_t index) noexcept;
    /** Takes waiting peers in; false when descriptors are missing. */
    bool acceptSome(Listener& listener) noexcept;
    void accept(Listener& listener, TcpSocket socket, const asio::ip::tcp::endpoint& peer);
    bool makePlace(int board, KvUInt32 source) noexcept;
    bool dropLongestIdle(const int* board, KvUInt32 source) noexcept;
    /** Calls `work` with each connection; those that end meanwhile are left out. */
    template <class Work>
    void forEachConnection(Work&& work) noexcept;
    void takeDatagrams(int listener) noexcept;
    void arm() noexcept;
    void tick() noexcept;
    void armTimers() noexcept;
    void armFarAway() noexcept;
    void runTimers() noexcept;
    void beginStop() noexcept;
    void stopIfDrained() noexcept;
    template <class Work>
    void guarded(Work&& work) noexcept;

    ServerHandler& m_handler;
    std::vector<ListenerPtr, KvNAllocation::Allocator<ListenerPtr>> m_listeners;
    using ConnectionEntry = std::pair<const KvUInt64, std::shared_ptr<ServerConnection>>;
    std::map<KvUInt64, std::shared_ptr<ServerConnection>, std::less<KvUInt64>,
             KvNAllocation::Allocator<ConnectionEntry>>
        m_connections;
    KvUInt64 m_lastConnection = 0;
    Timer m_tickTimer;
    Timer m_workTimer;
    std::map<std::pair<TimePoint, KvUInt64>, std::function<void()>> m_timers;
    KvUInt64 m_lastTimer = 0;
    std::unique_ptr<asio::basic_signal_set<Executor>> m_signals;
    std::atomic<bool> m_stopAsked{false};
    bool m_stopping = false;
    TimePoint m_stopDeadline;
    char m_lastError[96] = {};
};

}  // namespace KvNRpc
