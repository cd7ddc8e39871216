#include "platform/oncrpc/RpcChannel.h"

#include "platform/oncrpc/Channel.h"

namespace KvNRpc {

namespace {

/** Forgets an object of the process that this one was forked from: its thread and descriptors are not ours. */
template <class T>
void leaveBehind(std::shared_ptr<T>& object) noexcept
{
    union Kept
    {
        explicit Kept(std::shared_ptr<T>&& held) noexcept : value(std::move(held)) {}
        ~Kept() {}
        std::shared_ptr<T> value;
    };
    const Kept kept(std::move(object));
}

}  // namespace

ChannelLink::~ChannelLink()
{
    if (m_loop == nullptr)
        return;
    if (m_loop->isOurs()) {
        m_loop->retire(std::move(m_channel));
        return;
    }
    leaveBehind(m_loop);
    leaveBehind(m_channel);
}

bool ChannelLink::attach() noexcept
{
    const std::lock_guard lock(m_mutex);
    if (m_loop != nullptr && m_loop->isOurs())
        return true;
    try {
        leaveBehind(m_loop);
        leaveBehind(m_channel);
        std::shared_ptr<ClientLoop> loop = ClientLoop::instance();
        if (loop == nullptr)
            return false;
        m_channel = std::allocate_shared<Channel>(KvNAllocation::Allocator<Channel>(), *loop);
        m_loop = std::move(loop);
        return true;
    } catch (...) {
        return false;
    }
}

KvUInt32 ChannelLink::nextTransactionId() noexcept
{
    return __atomic_add_fetch(&m_transactionId, 1, __ATOMIC_RELAXED);
}

void ChannelLink::call(CallRequest& request, CallOutcome& outcome) noexcept
{
    outcome.failure = Failure::OutOfMemory;
    if (!attach())
        return;
    PendingCall pending{
        .request = request, .outcome = outcome, .settings = settings, .cancelCount = request.cancelCount};
    if (request.message.size() != 0) {
        try {
            pending.message = std::allocate_shared<Outgoing>(KvNAllocation::Allocator<Outgoing>());
        } catch (...) {
            return;
        }
        pending.message->bytes = std::move(request.message);
    }
    using Driven = Channel::Driven;
    const bool mayDrive = pending.message != nullptr && request.cancelCount == cancelCount();
    const Driven driven = mayDrive ? m_channel->drive(pending) : Driven::Not;
    if (driven == Driven::Done)
        return;
    if (driven == Driven::Stopped || (driven == Driven::Not && !m_loop->submit(*m_channel, pending))) {
        outcome.failure = Failure::Cancelled;
        return;
    }
    std::unique_lock lock(pending.mutex);
    pending.ready.wait(lock, [&pending] { return pending.done; });
}

struct SentCall::Call : public KvNAllocation::Object
{
    explicit Call(const ChannelSettings& settings) noexcept
        : pending{.request = request, .outcome = outcome, .settings = settings, .cancelCount = KvNRpc::cancelCount()}
    {
        // Whoever waits for it knows how long; until then it may stand in line.
        request.deadline = TimePoint::max();
    }

    CallRequest request;
    CallOutcome outcome;
    PendingCall pending;
};

SentCall::SentCall() noexcept = default;

SentCall::~SentCall()
{
    if (m_call == nullptr)
        return;
    abandon();
    std::unique_lock lock(m_call->pending.mutex);
    m_call->pending.ready.wait(lock, [this] { return m_call->pending.done; });
}

bool SentCall::reserve(std::size_t bytes) noexcept
{
    const std::size_t wanted = recordMarkBytes + plainCallHeaderBytes + bytes;
    // A connection that was given up may still have what was sent last.
    if (m_room >= wanted && m_record.use_count() == 1)
        return true;
    m_room = 0;
    try {
        m_record = std::allocate_shared<Outgoing>(KvNAllocation::Allocator<Outgoing>());
    } catch (...) {
        m_record = nullptr;
        return false;
    }
    auto* block = static_cast<unsigned char*>(KvNAllocation::allocate(wanted));
    if (block == nullptr)
        return false;
    m_record->bytes.adopt(block, wanted);
    m_room = wanted;
    return true;
}

unsigned char* SentCall::record() const noexcept
{
    return m_record->bytes.data();
}

char* SentCall::arguments() const noexcept
{
    return reinterpret_cast<char*>(record() + recordMarkBytes + plainCallHeaderBytes);
}

TimePoint SentCall::sentAt() const noexcept
{
    return m_call->pending.begun;
}

void SentCall::abandon() noexcept
{
    if (m_call != nullptr)
        m_call->pending.abandoned.store(true, std::memory_order_relaxed);
}

bool ChannelLink::send(SentCall& call, KvUInt32 transactionId, std::size_t size) noexcept
{
    if (!attach())
        return false;
    call.m_call.reset(new SentCall::Call(settings));
    if (call.m_call == nullptr)
        return false;
    call.m_record->bytes.setSize(size);
    call.m_call->request.transactionId = transactionId;
    PendingCall& pending = call.m_call->pending;
    pending.message = call.m_record;
    if (!m_loop->submit(*m_channel, pending)) {
        pending.outcome.failure = Failure::Cancelled;
        pending.done = true;
    }
    return true;
}

void ChannelLink::finish(SentCall& call, TimePoint deadline, CallOutcome& outcome) noexcept
{
    PendingCall& pending = call.m_call->pending;
    bool inTime = true;
    {
        std::unique_lock lock(pending.mutex);
        const auto isDone = [&pending] { return pending.done; };
        inTime = pending.ready.wait_until(lock, deadline, isDone);
        if (!inTime) {
            call.abandon();
            pending.ready.wait(lock, isDone);
        }
    }
    outcome = std::move(pending.outcome);
    if (!inTime && outcome.failure == Failure::Cancelled && pending.cancelCount == cancelCount())
        outcome.failure = Failure::Timeout;
    call.m_call.reset();
}

}  // namespace KvNRpc
