#include "platform/oncrpc/ServerCore.h"

#include <csignal>
#include <cstdio>

namespace KvNRpc {

namespace {

constexpr std::size_t markBytes = 4;
constexpr Milliseconds tickTime{100};
constexpr Milliseconds drainTime{1000};
constexpr unsigned peersInOneGo = 32;
constexpr unsigned datagramsInOneGo = 32;
constexpr std::size_t largestDatagram = 65507;

bool wouldBlock(const std::error_code& error)
{
    return error == asio::error::would_block || error == asio::error::try_again;
}

struct WholeReply
{
    ReplyHeader header;
    const void* results;
    std::size_t bytes;
};

KvNXdr::bool_t xdr_wholeReply(KvNXdr::XDR* xdrs, WholeReply* reply)
{
    char* results = const_cast<char*>(static_cast<const char*>(reply->results));
    return xdr_replyHeader(xdrs, &reply->header) &&
           KvNXdr::xdr_opaque(xdrs, results, static_cast<KvUInt32>(reply->bytes));
}

bool encodeReply(const ReplyHeader& header, const void* results, std::size_t bytes, Bytes& message)
{
    WholeReply reply{header, results, bytes};
    if (encodeBytes(KvNXdr::proc<xdr_wholeReply>, &reply, message, markBytes) != EncodeStatus::Done)
        return false;
    putRecordMark(message.data(), message.size() - markBytes);
    return true;
}

}  // namespace

template <class Work>
void ServerCore::guarded(Work&& work) noexcept
{
    try {
        work();
    } catch (...) {
        note(0, 0, "a service function failed");
    }
}

template <class Work>
void ServerCore::forEachConnection(Work&& work) noexcept
{
    for (auto place = m_connections.begin(); place != m_connections.end();) {
        const std::shared_ptr<ServerConnection> connection = place->second;
        work(*connection);
        place = m_connections.upper_bound(connection->number);
    }
}

ServerCore::ServerCore(ServerHandler& handler, const ServerLimits& given)
    : limits(given), budget(given.totalBytes), m_handler(handler), m_tickTimer(context), m_workTimer(context)
{}

ServerCore::~ServerCore() = default;

int ServerCore::listenFailed(const std::error_code& error) noexcept
{
    char number[32];
    const char* text = describeError(error, number, sizeof number);
    if (isCondition(error, std::errc::address_in_use))
        text = "the port is in use";
    else if (isCondition(error, std::errc::address_not_available))
        text = "the address is not one of this machine";
    else if (isShortage(error))
        text = "no memory or no descriptor";
    std::snprintf(m_lastError, sizeof m_lastError, "%s", text);
    return 0;
}

int ServerCore::addListener(ListenerPtr listener, int board, KvUInt32 address) noexcept
{
    listener->board = board;
    listener->address = address;
    try {
        m_listeners.push_back(std::move(listener));
    } catch (...) {
        return listenFailed(std::make_error_code(std::errc::not_enough_memory));
    }
    waitForPeers(m_listeners.size() - 1);
    return static_cast<int>(m_listeners.size());
}

int ServerCore::listenTcp(int board, KvUInt32 address, std::uint16_t port) noexcept
{
    try {
        ListenerPtr listener = std::allocate_shared<Listener>(KvNAllocation::Allocator<Listener>(), context);
        listener->isTcp = true;
        listener->acceptor.open(asio::ip::tcp::v4());
#if !defined(_WIN32)
        listener->acceptor.set_option(asio::socket_base::reuse_address(true));
#endif
        listener->acceptor.bind({toAddress(address), port});
        listener->acceptor.listen();
        listener->acceptor.non_blocking(true);
        listener->port = listener->acceptor.local_endpoint().port();
        return addListener(std::move(listener), board, address);
    } catch (const std::system_error& failure) {
        return listenFailed(failure.code());
    } catch (...) {
        return listenFailed(std::make_error_code(std::errc::not_enough_memory));
    }
}

int ServerCore::listenUdp(int board, KvUInt32 address, std::uint16_t port, bool shared, int answerThrough) noexcept
{
    try {
        ListenerPtr listener = std::allocate_shared<Listener>(KvNAllocation::Allocator<Listener>(), context);
        listener->answerThrough = answerThrough;
        listener->socket.open(asio::ip::udp::v4());
        if (shared)
            listener->socket.set_option(asio::socket_base::reuse_address(true));
        listener->socket.bind({toAddress(address), port});
        listener->socket.non_blocking(true);
        listener->port = listener->socket.local_endpoint().port();
        return addListener(std::move(listener), board, address);
    } catch (const std::system_error& failure) {
        return listenFailed(failure.code());
    } catch (...) {
        return listenFailed(std::make_error_code(std::errc::not_enough_memory));
    }
}

std::uint16_t ServerCore::port(int listener) const noexcept
{
    const std::size_t index = static_cast<std::size_t>(listener) - 1;
    return index < m_listeners.size() ? m_listeners[index]->port : std::uint16_t(0);
}

void ServerCore::waitForPeers(std::size_t index) noexcept
{
    const ListenerPtr place = m_listeners[index];
    if (place->waiting || m_stopping)
        return;
    auto readable = [this, place, index](const std::error_code& error) {
        Listener& listener = *place;
        listener.waiting = false;
        if (m_stopping || error == asio::error::operation_aborted)
            return;
        if (!listener.isTcp)
            takeDatagrams(static_cast<int>(index) + 1);
        // Without descriptors the tick tries again; trying at once would only spin.
        if (!listener.isTcp || acceptSome(listener))
            waitForPeers(index);
    };
    try {
        if (place->isTcp)
            place->acceptor.async_wait(TcpAcceptor::wait_read, inSlot(place->slot, readable));
        else
            place->socket.async_wait(UdpSocket::wait_read, inSlot(place->slot, readable));
        place->waiting = true;
    } catch (...) {
        // The tick tries again.
    }
}

bool ServerCore::acceptSome(Listener& listener) noexcept
{
    for (unsigned i = 0; i < peersInOneGo; ++i) {
        try {
            std::error_code error;
            asio::ip::tcp::endpoint peer;
            TcpSocket socket(context);
            listener.acceptor.accept(socket, peer, error);
            if (wouldBlock(error))
                return true;
            if (isShortage(error)) {
                note(listener.board, 0, "no descriptor for a new connection");
                if (!dropLongestIdle(nullptr, 0))
                    return false;
                continue;
            }
            if (!error && peer.address().is_v4())
                accept(listener, std::move(socket), peer);
        } catch (...) {
            note(listener.board, 0, "no memory for a new connection");
        }
    }
    return true;
}

void ServerCore::accept(Listener& listener, TcpSocket socket, const asio::ip::tcp::endpoint& peer)
{
    const KvUInt32 source = static_cast<KvUInt32>(peer.address().to_v4().to_uint());
    if (!makePlace(listener.board, source))
        return note(listener.board, source, "connection refused: too many");
    std::error_code error;
    const asio::ip::tcp::endpoint local = socket.local_endpoint(error);
    if (error)
        return;
    const std::shared_ptr<ServerConnection> connection = std::allocate_shared<ServerConnection>(
        KvNAllocation::Allocator<ServerConnection>(), *this, listener.board, m_lastConnection + 1, source, peer.port(),
        static_cast<KvUInt32>(local.address().to_v4().to_uint()), local.port());
    m_connections.emplace(connection->number, connection);
    ++m_lastConnection;
    connection->socket() = std::move(socket);
    connection->begin();
}

bool ServerCore::makePlace(int board, KvUInt32 source) noexcept
{
    unsigned ofBoard = 0;
    unsigned ofSource = 0;
    for (const auto& [number, connection] : m_connections) {
        ofBoard += connection->board == board;
        ofSource += connection->board == board && connection->peerAddress == source;
    }
    if (ofSource >= limits.connectionsPerSource)
        return dropLongestIdle(&board, source);
    return ofBoard < limits.connectionsPerBoard || dropLongestIdle(&board, 0);
}

/** Ends the connection that has been idle longest: of a board and a source, of a board (source 0), of all (board null).
 */
bool ServerCore::dropLongestIdle(const int* board, KvUInt32 source) noexcept
{
    std::shared_ptr<ServerConnection> idlest;
    for (const auto& [number, connection] : m_connections) {
        if ((board != nullptr && connection->board != *board) || (source != 0 && connection->peerAddress != source))
            continue;
        if (connection->canYield() && (idlest == nullptr || connection->lastActivity < idlest->lastActivity))
            idlest = connection;
    }
    if (idlest != nullptr)
        idlest->drop("it makes place for a new connection");
    return idlest != nullptr;
}

void ServerCore::takeDatagrams(int number) noexcept
{
    Listener& listener = *m_listeners[static_cast<std::size_t>(number) - 1];
    for (unsigned i = 0; i < datagramsInOneGo; ++i) {
        std::error_code error;
        asio::ip::udp::endpoint sender;
        const std::size_t size = listener.socket.receive_from(asio::buffer(buffer.bytes), sender, 0, error);
        if (wouldBlock(error))
            return;
        if (!error && sender.address().is_v4())
            serve(buffer.bytes, size, nullptr, number, &sender);
    }
}

bool ServerCore::serve(const unsigned char* data, std::size_t size, ServerConnection* connection, int listener,
                       const asio::ip::udp::endpoint* sender) noexcept
{
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, const_cast<char*>(reinterpret_cast<const char*>(data)), size, KvNXdr::XDR_DECODE);
    CallHeader header;
    const CallVerdict verdict = decodeCall(&xdrs, header);
    if (verdict == CallVerdict::Drop)
        return false;
    ReplyWriter writer;
    writer.m_owner = weak_from_this();
    writer.m_pending = true;
    writer.m_xid = header.xid;
    ServerCall call{.header = header};
    if (connection != nullptr) {
        writer.m_connection = connection->number;
        call.transport = ServerTransport::Tcp;
        call.board = connection->board;
        call.connection = connection->number;
        call.peerAddress = connection->peerAddress;
        call.peerPort = connection->peerPort;
        call.localAddress = connection->localAddress;
        call.localPort = connection->localPort;
    } else {
        const Listener& place = *m_listeners[static_cast<std::size_t>(listener) - 1];
        writer.m_listener = place.answerThrough != 0 ? place.answerThrough : listener;
        writer.m_peerAddress = static_cast<KvUInt32>(sender->address().to_v4().to_uint());
        writer.m_peerPort = sender->port();
        call.transport = ServerTransport::Udp;
        call.board = place.board;
        call.peerAddress = writer.m_peerAddress;
        call.peerPort = sender->port();
        call.localAddress = place.address;
        call.localPort = place.port;
    }
    if (verdict == CallVerdict::WrongRpcVersion)
        return writer.rpcMismatch(), true;
    if (verdict == CallVerdict::BadAuth)
        return writer.authError(AuthBadCredential), true;
    call.program = header.program;
    call.version = header.version;
    call.procedure = header.procedure;
    call.arguments = data + KvNXdr::xdrmem_used(&xdrs);
    call.argumentBytes = KvNXdr::xdrmem_left(&xdrs);
    guarded([&] { m_handler.call(call, std::move(writer)); });
    return true;
}

void ServerCore::answer(const ReplyWriter& writer, const ReplyHeader& header, const void* results,
                        std::size_t bytes) noexcept
{
    if (writer.m_connection == 0) {
        Bytes message;
        const Listener& place = *m_listeners[static_cast<std::size_t>(writer.m_listener) - 1];
        if (!encodeReply(header, results, bytes, message) || message.size() - markBytes > largestDatagram)
            return note(place.board, writer.m_peerAddress, "an answer that does not fit a datagram");
        std::error_code ignored;
        UdpSocket& socket = m_listeners[static_cast<std::size_t>(writer.m_listener) - 1]->socket;
        socket.send_to(asio::buffer(message.data() + markBytes, message.size() - markBytes),
                       {toAddress(writer.m_peerAddress), writer.m_peerPort}, 0, ignored);
        return;
    }
    ServerConnection* found = find(writer.m_connection);
    if (found == nullptr)
        return;
    const std::shared_ptr<RpcStream> kept = found->shared_from_this();
    try {
        auto message = std::allocate_shared<Outgoing>(KvNAllocation::Allocator<Outgoing>());
        if (!encodeReply(header, results, bytes, message->bytes))
            return found->drop("no memory for its answer");
        while (!budget.take(message->bytes.size()))
            if (!makeRoomFor(*found, found->heldBytes() + message->bytes.size()))
                return found->drop("no room for its answer");
        message->budget = &budget;
        found->answer(std::move(message));
    } catch (...) {
        found->drop("no memory for its answer");
    }
}

bool ServerCore::makeRoomFor(const ServerConnection& wanting, std::size_t bytes) noexcept
{
    std::shared_ptr<ServerConnection> largest;
    std::size_t most = wanting.isProtected ? 0 : bytes;
    for (const auto& [number, connection] : m_connections) {
        const std::size_t held = connection->heldBytes();
        if (connection->isProtected || held <= most)
            continue;
        most = held;
        largest = connection;
    }
    if (largest != nullptr)
        largest->drop("it makes room for others: it held the most");
    return largest != nullptr;
}

void ServerCore::settle(const ReplyWriter& writer) noexcept
{
    if (ServerConnection* connection = find(writer.m_connection))
        connection->settle();
}

ServerConnection* ServerCore::find(KvUInt64 number) noexcept
{
    const auto place = m_connections.find(number);
    return place != m_connections.end() ? place->second.get() : nullptr;
}

void ServerCore::gone(ServerConnection& connection, const char* why) noexcept
{
    const std::shared_ptr<RpcStream> kept = connection.shared_from_this();
    m_connections.erase(connection.number);
    if (why != nullptr)
        note(connection.board, connection.peerAddress, why);
    guarded([&] { m_handler.closed(connection.board, connection.number); });
    stopIfDrained();
}

void ServerCore::note(int board, KvUInt32 peerAddress, const char* what) noexcept
{
    try {
        m_handler.note(board, peerAddress, what);
    } catch (...) {
    }
}

bool ServerCore::post(std::function<void()> work) noexcept
{
    try {
        asio::post(context, [this, todo = std::move(work)] { guarded(todo); });
        return true;
    } catch (...) {
        return false;
    }
}

void ServerCore::wake() noexcept
{
    if (m_wakes.exchange(true))
        return;
    try {
        asio::post(context, inSlot(m_wakeSlot, [this] {
                       m_wakes = false;
                       guarded([this] { m_handler.woken(); });
                   }));
    } catch (...) {
        m_wakes = false;
    }
}

KvUInt64 ServerCore::startTimer(KvUInt32 milliseconds, std::function<void()> work) noexcept
{
    try {
        m_timers.emplace(std::pair(Clock::now() + Milliseconds(milliseconds), m_lastTimer + 1), std::move(work));
    } catch (...) {
        return 0;
    }
    ++m_lastTimer;
    armTimers();
    return m_lastTimer;
}

void ServerCore::cancelTimer(KvUInt64 timer) noexcept
{
    for (auto place = m_timers.begin(); place != m_timers.end(); ++place) {
        if (place->first.second != timer)
            continue;
        m_timers.erase(place);
        return;
    }
}

void ServerCore::armFarAway() noexcept
{
    try {
        m_workTimer.expires_after(std::chrono::hours(1));
        m_workTimer.async_wait(inSlot(m_workSlot, [](const std::error_code&) {}));
    } catch (...) {
        // The tick looks after timers too.
    }
}

/** Has the next timer run when it is due; what waited before is forgotten by its slot's being used again. */
void ServerCore::armTimers() noexcept
{
    if (m_timers.empty())
        return;
    try {
        m_workTimer.expires_at(m_timers.begin()->first.first);
        m_workTimer.async_wait(inSlot(m_workSlot, [this](const std::error_code& error) {
            if (!error)
                runTimers();
        }));
    } catch (...) {
        // The tick looks after timers too.
    }
}

void ServerCore::runTimers() noexcept
{
    const TimePoint now = Clock::now();
    while (!m_timers.empty() && m_timers.begin()->first.first <= now) {
        const auto due = m_timers.extract(m_timers.begin());
        guarded(due.mapped());
    }
    armTimers();
}

void ServerCore::arm() noexcept
{
    try {
        m_tickTimer.expires_after(tickTime);
        m_tickTimer.async_wait(inSlot(m_tickSlot, [this](const std::error_code&) { tick(); }));
    } catch (...) {
        // Its memory is its own and the queue's is there since the first time.
    }
}

void ServerCore::tick() noexcept
{
    const TimePoint now = Clock::now();
    forEachConnection([now](ServerConnection& connection) {
        if (const char* why = connection.overdue(now))
            connection.drop(why);
    });
    for (std::size_t i = 0; i < m_listeners.size(); ++i)
        waitForPeers(i);
    if (!m_timers.empty() && m_timers.begin()->first.first <= now)
        runTimers();
    if (m_stopping && now >= m_stopDeadline)
        context.stop();
    arm();
}

void ServerCore::run() noexcept
{
    // Both timers have waited once before either can be missing room to wait again.
    if (m_timers.empty())
        armFarAway();
    else
        armTimers();
    arm();
    for (bool done = false; !done;) {
        try {
            context.run();
            done = true;
        } catch (...) {
            note(0, 0, "an event could not be handled");
        }
    }
    forEachConnection([](ServerConnection& connection) { connection.drop(nullptr); });
}

void ServerCore::stop() noexcept
{
    if (m_stopAsked.exchange(true))
        return;
    try {
        asio::post(context, inSlot(m_stopSlot, [this] { beginStop(); }));
    } catch (...) {
        context.stop();
    }
}

void ServerCore::beginStop() noexcept
{
    m_stopping = true;
    m_stopDeadline = Clock::now() + drainTime;
    std::error_code ignored;
    for (const ListenerPtr& listener : m_listeners) {
        listener->acceptor.close(ignored);
        if (!listener->isTcp)
            listener->socket.cancel(ignored);
    }
    forEachConnection([](ServerConnection& connection) { connection.closeSoon(); });
    stopIfDrained();
}

void ServerCore::stopIfDrained() noexcept
{
    if (!m_stopping)
        return;
    for (const auto& [number, connection] : m_connections)
        if (connection->hasOutput())
            return;
    context.stop();
}

bool ServerCore::stopOnSignals() noexcept
{
    try {
        m_signals = std::make_unique<asio::basic_signal_set<Executor>>(context.get_executor());
        m_signals->add(SIGTERM);
        m_signals->add(SIGINT);
        m_signals->async_wait([this](const std::error_code& error, int) {
            if (!error)
                stop();
        });
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace KvNRpc
