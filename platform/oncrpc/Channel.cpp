#include "platform/oncrpc/Channel.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace KvNRpc {

namespace {

constexpr Milliseconds failureRemembered{1000};
/** How long a caller drives a connection himself, and how long the calls last between which it is parked. */
constexpr Milliseconds drivenTime{2};
/** How often a call of which nothing was sent moves to another connection. */
constexpr unsigned movesBorne = 3;

template <class T, class... Arguments>
std::shared_ptr<T> make(Arguments&&... arguments)
{
    return std::allocate_shared<T>(KvNAllocation::Allocator<T>(), std::forward<Arguments>(arguments)...);
}

}  // namespace

Connection::Connection(Channel& channel, ClientLoop& loop, std::size_t largestReply, std::uint16_t port)
    : RpcStream(loop.context(), loop.buffer(), largestReply, ClientLoop::budget()), m_channel(&channel), m_port(port)
{}

void Connection::forget() noexcept
{
    m_channel = nullptr;
    close();
}

void Connection::onConnected() noexcept
{
    established = true;
    m_channel->connected(*this);
}

PendingCall* Connection::find(KvUInt32 transactionId) const noexcept
{
    PendingCall* call = calls.first();
    while (call != nullptr && call->request.transactionId != transactionId)
        call = call->next;
    return call;
}

bool Connection::onBegun(KvUInt32 transactionId) noexcept
{
    PendingCall* call = find(transactionId);
    if (call != nullptr)
        call->replyBegun = true;
    return call != nullptr;
}

void Connection::onRecord(Record record) noexcept
{
    if (record.size() < 4)
        return end(End::Malformed, {});
    KvUInt32 transactionId = 0;
    for (unsigned i = 0; i < 4; ++i)
        transactionId = transactionId << 8 | record.data()[i];
    PendingCall* call = find(transactionId);
    if (call == nullptr)
        return;
    call->outcome.reply = std::move(record);
    if (m_driven)
        return finishDriven(*call, Failure::None);
    if (nothingUnfed() && m_channel->wouldPark(*this, *call)) {
        calls.remove(*call);
        call->connection = nullptr;
        m_finished = call;
        m_atRest = true;
        return;
    }
    // What a peer answers without having read it would pile up, call by call.
    if (call->message->sent != call->message->bytes.size() && !unsend(*call->message))
        m_channel->retire(*this);
    m_channel->finish(*call, Failure::None);
    m_channel->closeIfUnused(*this);
}

bool Connection::onNoRoom(KvUInt32 transactionId, End why) noexcept
{
    PendingCall* call = find(transactionId);
    const Failure failure = why == End::OutOfBudget ? Failure::OutOfBudget : Failure::OutOfMemory;
    if (m_driven) {
        if (call != nullptr)
            finishDriven(*call, failure);
        return true;
    }
    if (call != nullptr)
        m_channel->finish(*call, failure);
    m_channel->closeIfUnused(*this);
    return true;
}

bool Connection::onRest() noexcept
{
    PendingCall* call = std::exchange(m_finished, nullptr);
    m_atRest = false;
    Channel& channel = *m_channel;
    const bool parked = channel.park(*this);
    // The caller may call again at once, and then finds the connection parked.
    channel.finish(*call, Failure::None);
    return parked;
}

void Connection::finishDriven(PendingCall& call, Failure failure) noexcept
{
    calls.remove(call);
    call.connection = nullptr;
    call.outcome.failure = failure;
    call.outcome.port = m_port;
    m_drivenDone = true;
}

bool Connection::drive(PendingCall& call) noexcept
{
#if defined(KV_RPC_DRIVEN)
    if (peerHasClosed())
        return false;
    calls.append(call);
    call.connection = this;
    m_drivenDone = false;
    if (!sendDriven(call.message))
        return false;
    const TimePoint until = std::min(call.begun + drivenTime, call.request.deadline);
    while (!m_drivenDone && readDriven(until)) {
    }
    return m_drivenDone;
#else
    return static_cast<void>(call), false;
#endif
}

void Connection::onEnded(End why, const std::error_code& error) noexcept
{
    if (m_channel != nullptr)
        m_channel->ended(*this, why, error);
}

Channel::~Channel()
{
    close();
}

void Channel::close() noexcept
{
    stopConnecting();
    dropParked();
    if (m_current != nullptr)
        m_current->forget();
    m_current = nullptr;
    while (m_retired != nullptr) {
        m_retired->forget();
        m_retired = std::move(m_retired->next);
    }
    if (m_added)
        m_loop.remove(*this);
    m_added = false;
}

Channel::Driven Channel::drive(PendingCall& call) noexcept
{
    std::shared_ptr<Connection> connection;
    {
        const std::lock_guard lock(m_parkMutex);
        if (m_parked == nullptr || m_lent)
            return Driven::Not;
        m_lent = true;
        connection = m_parked;
    }
    const bool done = connection->drive(call);
    {
        const std::lock_guard lock(m_parkMutex);
        if (done && !m_wanted && connection->isFree()) {
            m_lent = false;
            return Driven::Done;
        }
        m_parked = nullptr;
    }
    if (m_loop.giveBack(shared_from_this(), connection, done ? nullptr : &call))
        return done ? Driven::Done : Driven::Begun;
    connection->forget();
    return done ? Driven::Done : Driven::Stopped;
}

void Channel::takeBack(const std::shared_ptr<Connection>& connection, PendingCall* call) noexcept
{
    {
        const std::lock_guard lock(m_parkMutex);
        m_lent = false;
        m_wanted = false;
    }
    const std::shared_ptr<Channel> self = shared_from_this();
    m_current = connection;
    const bool sent = call != nullptr && call->connection != nullptr;
    if (call != nullptr && !m_loop.begin()) {
        finish(*call, Failure::OutOfMemory);
        call = nullptr;
    }
    if (call != nullptr && !sent) {
        connection->forget();
        m_current = nullptr;
        route(*call);
    } else {
        connection->attach();
    }
    CallList waiting = m_connecting ? CallList() : m_waiting.takeAll();
    while (PendingCall* next = waiting.takeFirst())
        route(*next);
}

bool Channel::wouldPark(const Connection& connection, const PendingCall& call) const noexcept
{
#if defined(KV_RPC_DRIVEN)
    return m_current.get() == &connection && m_waiting.empty() && connection.calls.first() == &call &&
           call.next == nullptr && !connection.hasOutput() && Clock::now() < call.begun + drivenTime;
#else
    return static_cast<void>(connection), static_cast<void>(call), false;
#endif
}

bool Channel::park(Connection& connection) noexcept
{
    if (!connection.detach())
        return false;
    const std::lock_guard lock(m_parkMutex);
    m_parked = std::move(m_current);
    return true;
}

bool Channel::unpark() noexcept
{
    {
        const std::lock_guard lock(m_parkMutex);
        if (m_lent) {
            m_wanted = true;
            return false;
        }
        m_current = std::move(m_parked);
    }
    const std::shared_ptr<Connection> connection = m_current;
    if (connection != nullptr)
        connection->attach();
    return true;
}

void Channel::dropParked() noexcept
{
    std::shared_ptr<Connection> connection;
    {
        const std::lock_guard lock(m_parkMutex);
        if (!m_lent)
            connection = std::move(m_parked);
    }
    if (connection != nullptr)
        connection->forget();
}

void Channel::submit(PendingCall& call) noexcept
{
    if (!m_added)
        m_loop.add(*this);
    m_added = true;
    if (!m_loop.begin())
        return finish(call, Failure::OutOfMemory);
    if (call.cancelCount != cancelCount())
        return finish(call, Failure::Cancelled);
    route(call);
}

void Channel::route(PendingCall& call) noexcept
{
    if (m_current == nullptr && !m_connecting && !unpark())
        return m_waiting.append(call);
    if (m_current != nullptr && m_current->established) {
        const bool idle = m_current->calls.empty() && !m_current->hasOutput();
        if (!idle || !m_current->peerHasClosed())
            return assign(call);
        m_current->forget();
        m_current = nullptr;
    }
    if (!m_connecting && call.message != nullptr && Clock::now() < m_failedUntil) {
        m_port = m_failurePort;
        return finish(call, m_failure, m_failureText);
    }
    m_waiting.append(call);
    if (!m_connecting)
        startConnecting(call.settings);
}

void Channel::assign(PendingCall& call) noexcept
{
    if (call.message == nullptr)
        return finish(call, Failure::None);
    const std::shared_ptr<Connection> connection = m_current;
    call.connection = connection.get();
    connection->calls.append(call);
    connection->send(call.message);
}

void Channel::startConnecting(const ChannelSettings& settings) noexcept
{
    m_settings = settings;
    m_connecting = true;
    m_connectDeadline = Clock::now() + settings.connectTimeout;
    m_port = 0;
    if (settings.port != 0)
        return connectTo(settings.port);
    try {
        m_query = make<PortQuery>(m_loop.context(), m_loop.buffer(), ClientLoop::budget(), *this);
    } catch (...) {
        return connectFailed(Failure::OutOfMemory, "", 0);
    }
    const std::shared_ptr<PortQuery> query = m_query;
    query->start(m_settings);
}

void Channel::onPort(std::uint16_t port, Failure failure, const char* text) noexcept
{
    m_query = nullptr;
    if (failure != Failure::None)
        return connectFailed(failure, text, m_settings.portMapperPort);
    connectTo(port);
}

void Channel::connectTo(std::uint16_t port) noexcept
{
    m_port = port;
    try {
        m_current = make<Connection>(*this, m_loop, m_settings.largestReply, port);
    } catch (...) {
        return connectFailed(Failure::OutOfMemory, "", port);
    }
    const std::shared_ptr<Connection> connection = m_current;
    connection->connect(m_settings.address, port);
}

void Channel::stopConnecting() noexcept
{
    if (m_query != nullptr)
        m_query->cancel();
    m_query = nullptr;
    if (m_connecting && m_current != nullptr) {
        m_current->forget();
        m_current = nullptr;
    }
    m_connecting = false;
}

void Channel::connectFailed(Failure failure, const char* text, std::uint16_t port) noexcept
{
    stopConnecting();
    m_port = port;
    if (failure != Failure::OutOfMemory) {
        m_failedUntil = Clock::now() + failureRemembered;
        m_failure = failure;
        m_failurePort = port;
        std::snprintf(m_failureText, sizeof m_failureText, "%s", text);
    }
    CallList waiting = m_waiting.takeAll();
    while (PendingCall* call = waiting.takeFirst())
        finish(*call, failure, text);
}

void Channel::connected(Connection& connection) noexcept
{
    m_connecting = false;
    m_failedUntil = TimePoint();
    CallList waiting = m_waiting.takeAll();
    while (PendingCall* call = waiting.takeFirst()) {
        if (m_current.get() == &connection)
            assign(*call);
        else
            route(*call);
    }
}

void Channel::ended(Connection& connection, RpcStream::End why, const std::error_code& error) noexcept
{
    using End = RpcStream::End;
    if (!connection.established) {
        const bool memory = why == End::OutOfMemory || why == End::OutOfBudget || isShortage(error);
        char text[64];
        return connectFailed(memory ? Failure::OutOfMemory : Failure::Connect, describeError(error, text, sizeof text),
                             m_port);
    }
    const std::shared_ptr<RpcStream> kept = connection.shared_from_this();
    unlink(connection);
    CallList calls = connection.calls.takeAll();
    while (PendingCall* call = calls.takeFirst()) {
        call->connection = nullptr;
        connectionGone(*call, connection, why, error);
    }
}

/** What becomes of a call whose connection has ended: it fails, or is sent again where that does no harm. */
void Channel::connectionGone(PendingCall& call, const Connection& connection, RpcStream::End why,
                             const std::error_code& error) noexcept
{
    using End = RpcStream::End;
    const RecordAssembler& incoming = connection.incoming();
    const bool byNetwork = why == End::ByPeer || why == End::ByError;
    const bool known = incoming.hasTransactionId();
    const bool concerned = known ? incoming.transactionId() == call.request.transactionId : incoming.inRecord();
    if (!byNetwork && (concerned || !known)) {
        if (why == End::TooLong)
            return finish(call, Failure::TooLarge);
        if (why == End::Malformed)
            return finish(call, Failure::Malformed);
        return finish(call, why == End::OutOfBudget ? Failure::OutOfBudget : Failure::OutOfMemory);
    }
    if (call.message->sent == 0 && call.requeued < movesBorne) {
        ++call.requeued;
        return route(call);
    }
    if (call.request.repeatable && !call.repeated && !call.replyBegun && !(concerned && byNetwork)) {
        call.repeated = true;
        return route(call);
    }
    char text[64];
    finish(call, Failure::Lost,
           byNetwork ? describeError(error, text, sizeof text) : "the reply to another call cannot be followed");
}

void Channel::finish(PendingCall& call, Failure failure, const char* text) noexcept
{
    if (call.connection != nullptr)
        call.connection->calls.remove(call);
    call.connection = nullptr;
    m_loop.finish(call, failure, m_port, text);
}

PendingCall* Channel::due(const CallList& calls, TimePoint now, Failure& failure) const noexcept
{
    const KvUInt32 cancels = cancelCount();
    for (PendingCall* call = calls.first(); call != nullptr; call = call->next) {
        const bool unwanted = call->cancelCount != cancels || call->abandoned.load(std::memory_order_relaxed);
        if (!unwanted && now < call->request.deadline)
            continue;
        failure = unwanted ? Failure::Cancelled : Failure::Timeout;
        return call;
    }
    return nullptr;
}

void Channel::endDue(Connection& connection, TimePoint now) noexcept
{
    bool begun = false;
    Failure failure = Failure::Timeout;
    while (PendingCall* call = due(connection.calls, now, failure)) {
        begun = !connection.unsend(*call->message) || begun;
        finish(*call, failure);
    }
    if (begun)
        retire(connection);
}

void Channel::tick(TimePoint now) noexcept
{
    const std::shared_ptr<Channel> self = shared_from_this();
    Failure failure = Failure::Timeout;
    while (PendingCall* call = due(m_waiting, now, failure)) {
        m_waiting.remove(*call);
        finish(*call, failure);
    }
    if (m_connecting && m_waiting.empty())
        stopConnecting();
    else if (m_connecting && now >= m_connectDeadline)
        connectFailed(m_query != nullptr ? Failure::PortMapperSilent : Failure::ConnectTimeout, "",
                      m_query != nullptr ? m_settings.portMapperPort : m_port);
    if (m_query != nullptr)
        std::shared_ptr<PortQuery>(m_query)->tick(now);
    if (m_current != nullptr)
        endDue(*std::shared_ptr<Connection>(m_current), now);
    for (std::shared_ptr<Connection> connection = m_retired; connection != nullptr;) {
        const std::shared_ptr<Connection> next = connection->next;
        endDue(*connection, now);
        connection = next;
    }
}

void Channel::retire(Connection& connection) noexcept
{
    if (m_current.get() == &connection) {
        m_current->next = std::move(m_retired);
        m_retired = std::move(m_current);
        m_current = nullptr;
    }
    closeIfUnused(connection);
}

void Channel::closeIfUnused(Connection& connection) noexcept
{
    if (m_current.get() == &connection || !connection.calls.empty())
        return;
    const std::shared_ptr<RpcStream> kept = connection.shared_from_this();
    unlink(connection);
    connection.forget();
}

void Channel::unlink(Connection& connection) noexcept
{
    if (m_current.get() == &connection)
        m_current = nullptr;
    std::shared_ptr<Connection>* place = &m_retired;
    while (*place != nullptr && place->get() != &connection)
        place = &(*place)->next;
    if (*place != nullptr)
        *place = std::shared_ptr<Connection>((*place)->next);
}

void Channel::endAll(Failure failure) noexcept
{
    dropParked();
    CallList waiting = m_waiting.takeAll();
    while (PendingCall* call = waiting.takeFirst())
        finish(*call, failure);
    stopConnecting();
    if (m_current != nullptr)
        retire(*m_current);
    for (std::shared_ptr<Connection> connection = m_retired; connection != nullptr; connection = connection->next)
        while (PendingCall* call = connection->calls.first())
            finish(*call, failure);
}

}  // namespace KvNRpc
