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

}  // namespace KvNRpc
