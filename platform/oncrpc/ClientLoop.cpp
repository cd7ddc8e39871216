#include "platform/oncrpc/ClientLoop.h"

#include <atomic>
#include <cstdio>

#if !defined(_WIN32)
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#endif

#include "platform/oncrpc/Channel.h"

namespace KvNRpc {

namespace {

constexpr Milliseconds tickTime{20};

std::atomic<KvUInt32> cancellations{0};
static_assert(std::atomic<KvUInt32>::is_always_lock_free, "signal handlers count up");

ByteBudget replies(repliesLimit);

long processId() noexcept
{
#if defined(_WIN32)
    return 0;  // there is no fork
#else
    return static_cast<long>(::getpid());
#endif
}

/** Leaves signals that are meant for the process to the program's own threads. */
void leaveSignalsToOthers() noexcept
{
#if !defined(_WIN32)
    sigset_t signals;
    sigfillset(&signals);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGPROF, SIGSYS})
        sigdelset(&signals, own);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
#endif
}

/** The process's loop; never destroyed, so that clients may outlive the library's static objects. */
struct Home
{
    std::mutex mutex;
    std::weak_ptr<ClientLoop> loop;
};

Home& home()
{
    static Home* const place = new Home;
    return *place;
}

/** Ends the thread of a loop that still has clients when the library is unloaded. */
struct ExitGuard
{
    ~ExitGuard()
    {
        std::shared_ptr<ClientLoop> loop;
        {
            const std::lock_guard lock(home().mutex);
            loop = home().loop.lock();
        }
        if (loop != nullptr && loop->isOurs())
            loop->stop();
    }
};

}  // namespace

void cancelEverything() noexcept
{
    cancellations.fetch_add(1, std::memory_order_relaxed);
}

KvUInt32 cancelCount() noexcept
{
    return cancellations.load(std::memory_order_relaxed);
}

void CallList::append(PendingCall& call) noexcept
{
    call.next = nullptr;
    call.previous = m_last;
    (m_last != nullptr ? m_last->next : m_first) = &call;
    m_last = &call;
}

void CallList::remove(PendingCall& call) noexcept
{
    (call.previous != nullptr ? call.previous->next : m_first) = call.next;
    (call.next != nullptr ? call.next->previous : m_last) = call.previous;
    call.next = call.previous = nullptr;
}

PendingCall* CallList::takeFirst() noexcept
{
    PendingCall* call = m_first;
    if (call != nullptr)
        remove(*call);
    return call;
}

CallList CallList::takeAll() noexcept
{
    CallList all = *this;
    *this = CallList();
    return all;
}

std::shared_ptr<ClientLoop> ClientLoop::instance() noexcept
{
    try {
        Home& place = home();
        static const ExitGuard guard;
        const std::lock_guard lock(place.mutex);
        std::shared_ptr<ClientLoop> loop = place.loop.lock();
        if (loop != nullptr && loop->isOurs())
            return loop;
        // A loop that came along in a fork has no thread here; its clients leave it behind one by one.
        loop = make();
        place.loop = loop;
        return loop;
    } catch (...) {
        return nullptr;
    }
}

std::shared_ptr<ClientLoop> ClientLoop::make()
{
    auto loop = std::allocate_shared<ClientLoop>(KvNAllocation::Allocator<ClientLoop>());
    loop->m_thread = std::thread([place = loop.get()] { place->run(); });
    return loop;
}

ClientLoop::ClientLoop() : m_process(processId()), m_context(1), m_timer(m_context), m_work(m_context.get_executor()) {}

ClientLoop::~ClientLoop()
{
    stop();
}

bool ClientLoop::isOurs() const noexcept
{
    return m_process == processId();
}

ByteBudget& ClientLoop::budget() noexcept
{
    return replies;
}

void ClientLoop::run() noexcept
{
    leaveSignalsToOthers();
    for (;;) {
        try {
            m_context.run();
            return;
        } catch (...) {
            // What a handler could not have has ended its own stream; the others go on.
        }
    }
}

void ClientLoop::stop() noexcept
{
    {
        const std::lock_guard lock(m_submitMutex);
        if (m_stopped)
            return;
        m_stopped = true;
    }
    m_context.stop();
    if (m_thread.joinable())
        m_thread.join();
    try {
        m_context.restart();
        m_context.poll();  // what had been submitted
    } catch (...) {
    }
    endAll(Failure::Cancelled);
}

bool ClientLoop::submit(Channel& channel, PendingCall& call) noexcept
{
    const std::lock_guard lock(m_submitMutex);
    if (m_stopped)
        return false;
    try {
        asio::post(m_context, inSlot(call.slot, [&channel, &call] { channel.submit(call); }));
        return true;
    } catch (...) {
        return false;
    }
}

bool ClientLoop::giveBack(std::shared_ptr<Channel> channel, std::shared_ptr<Connection>& connection,
                          PendingCall* call) noexcept
{
    HandlerSlot& slot = connection->returnSlot;
    const std::lock_guard lock(m_submitMutex);
    if (m_stopped)
        return false;
    try {
        asio::post(m_context, inSlot(slot, [channel = std::move(channel), kept = std::move(connection), call] {
                       channel->takeBack(kept, call);
                   }));
    } catch (...) {
        // Its memory is its own, so this cannot be missing.
    }
    return true;
}

void ClientLoop::retire(std::shared_ptr<Channel> channel) noexcept
{
    Channel& place = *channel;
    const std::lock_guard lock(m_submitMutex);
    if (m_stopped)
        return place.close();
    try {
        asio::post(m_context, inSlot(place.closeSlot, [kept = std::move(channel)] { kept->close(); }));
    } catch (...) {
        // Its memory is its own, so this cannot be missing.
    }
}

void ClientLoop::add(Channel& channel) noexcept
{
    channel.nextChannel = m_channels;
    if (m_channels != nullptr)
        m_channels->previousChannel = &channel;
    m_channels = &channel;
}

void ClientLoop::remove(Channel& channel) noexcept
{
    (channel.previousChannel != nullptr ? channel.previousChannel->nextChannel : m_channels) = channel.nextChannel;
    if (channel.nextChannel != nullptr)
        channel.nextChannel->previousChannel = channel.previousChannel;
}

bool ClientLoop::begin() noexcept
{
    ++m_calls;
    return arm();
}

void ClientLoop::finish(PendingCall& call, Failure failure, std::uint16_t port, const char* text) noexcept
{
    --m_calls;
    call.outcome.failure = failure;
    call.outcome.port = port;
    std::snprintf(call.outcome.text, sizeof call.outcome.text, "%s", text);
    const std::lock_guard lock(call.mutex);
    call.done = true;
    call.ready.notify_one();
}

bool ClientLoop::arm() noexcept
{
    if (m_armed)
        return true;
    try {
        m_timer.expires_after(tickTime);
        m_timer.async_wait(inSlot(m_timerSlot, [this](const std::error_code&) {
            m_armed = false;
            tick();
        }));
        m_armed = true;
    } catch (...) {
    }
    return m_armed;
}

void ClientLoop::tick() noexcept
{
    const TimePoint now = Clock::now();
    for (Channel* channel = m_channels; channel != nullptr;) {
        Channel* const next = channel->nextChannel;
        channel->tick(now);
        channel = next;
    }
    if (m_calls != 0 && !arm())
        endAll(Failure::OutOfMemory);
}

void ClientLoop::endAll(Failure failure) noexcept
{
    for (Channel* channel = m_channels; channel != nullptr; channel = channel->nextChannel)
        channel->endAll(failure);
}

}  // namespace KvNRpc
