#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/oncrpc/RpcChannel.h"
#include "platform/oncrpc/RpcStream.h"

namespace KvNRpc {

class Connection;

/** A call in progress; it is the caller's, who waits until it is finished. */
struct PendingCall
{
    CallRequest& request;
    CallOutcome& outcome;
    const ChannelSettings& settings;
    KvUInt32 cancelCount;
    TimePoint begun = Clock::now();
    std::shared_ptr<Outgoing> message{};
    Connection* connection = nullptr;
    PendingCall* next = nullptr;
    PendingCall* previous = nullptr;
    /** Its caller waits for no reply any more; it ends as cancelled, soon. */
    std::atomic<bool> abandoned{false};
    bool replyBegun = false;
    bool repeated = false;
    unsigned requeued = 0;

    std::mutex mutex{};
    std::condition_variable ready{};
    bool done = false;
    HandlerSlot slot{};
};

/** Calls in the order of their coming. */
class CallList
{
public:
    PendingCall* first() const noexcept { return m_first; }
    bool empty() const noexcept { return m_first == nullptr; }
    void append(PendingCall& call) noexcept;
    void remove(PendingCall& call) noexcept;
    PendingCall* takeFirst() noexcept;
    /** All calls; this list is empty then. */
    CallList takeAll() noexcept;

private:
    PendingCall* m_first = nullptr;
    PendingCall* m_last = nullptr;
};

/**
 * The event loop that all clients of the process share, and its thread. Deadlines, sending again and cancelling are
 * looked after 50 times a second as long as calls are in progress; a signal handler need only count up a number.
 */
class ClientLoop : public KvNAllocation::Object
{
public:
    /** The process's loop, started when there is none; null when it cannot be had. */
    static std::shared_ptr<ClientLoop> instance() noexcept;
    static std::shared_ptr<ClientLoop> make();

    ClientLoop();
    ~ClientLoop();
    ClientLoop(const ClientLoop&) = delete;
    ClientLoop& operator=(const ClientLoop&) = delete;

    /** Whether the loop was made in this process, not in one that it was forked from. */
    bool isOurs() const noexcept;
    /** Hands a call to the loop's thread; false when the loop has been stopped. */
    bool submit(Channel& channel, PendingCall& call) noexcept;
    /** Brings a connection that was driven, and the call that could not be finished (null: none), to the loop's thread;
        false, and the connection left, when the loop has been stopped. */
    bool giveBack(std::shared_ptr<Channel> channel, std::shared_ptr<Connection>& connection,
                  PendingCall* call) noexcept;
    /** Closes the channel on the loop's thread; frees it. */
    void retire(std::shared_ptr<Channel> channel) noexcept;
    /** Ends the thread; calls in progress are cancelled. */
    void stop() noexcept;

    asio::io_context& context() noexcept { return m_context; }
    ReadBuffer& buffer() noexcept { return m_buffer; }
    static ByteBudget& budget() noexcept;

    // On the loop's thread:
    void add(Channel& channel) noexcept;
    void remove(Channel& channel) noexcept;
    /** Counts a call in; false when deadlines could not be looked after. */
    bool begin() noexcept;
    void finish(PendingCall& call, Failure failure, std::uint16_t port, const char* text) noexcept;

private:
    void run() noexcept;
    bool arm() noexcept;
    void tick() noexcept;
    void endAll(Failure failure) noexcept;

    const long m_process;
    std::mutex m_submitMutex;
    bool m_stopped = false;
    Channel* m_channels = nullptr;
    std::size_t m_calls = 0;
    bool m_armed = false;
    ReadBuffer m_buffer;
    HandlerSlot m_timerSlot;
    asio::io_context m_context;
    Timer m_timer;
    asio::executor_work_guard<Executor> m_work;
    std::thread m_thread;
};

}  // namespace KvNRpc
