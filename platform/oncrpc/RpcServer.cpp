#include "platform/oncrpc/RpcServer.h"

#include <utility>

#include "platform/oncrpc/ServerCore.h"

namespace KvNRpc {

ReplyWriter::ReplyWriter(ReplyWriter&& other) noexcept
{
    *this = std::move(other);
}

ReplyWriter& ReplyWriter::operator=(ReplyWriter&& other) noexcept
{
    if (this == &other)
        return *this;
    if (m_pending)
        systemError();
    m_owner = std::move(other.m_owner);
    m_pending = std::exchange(other.m_pending, false);
    m_connection = other.m_connection;
    m_listener = other.m_listener;
    m_peerAddress = other.m_peerAddress;
    m_peerPort = other.m_peerPort;
    m_xid = other.m_xid;
    return *this;
}

ReplyWriter::~ReplyWriter()
{
    if (m_pending)
        systemError();
}

void ReplyWriter::answer(const ReplyHeader& header, const void* results, std::size_t bytes) noexcept
{
    if (!std::exchange(m_pending, false))
        return;
    ReplyHeader whole = header;
    whole.xid = m_xid;
    if (const std::shared_ptr<ServerCore> core = m_owner.lock())
        core->answer(*this, whole, results, bytes);
}

void ReplyWriter::success(const void* results, std::size_t bytes) noexcept
{
    answer({}, results, bytes);
}

void ReplyWriter::refuse(KvUInt32 acceptStatus, KvUInt32 low, KvUInt32 high) noexcept
{
    ReplyHeader header;
    header.acceptStatus = acceptStatus;
    header.low = low;
    header.high = high;
    answer(header, nullptr, 0);
}

void ReplyWriter::programUnavailable() noexcept
{
    refuse(ProgramUnavailable);
}

void ReplyWriter::programMismatch(KvUInt32 low, KvUInt32 high) noexcept
{
    refuse(ProgramMismatch, low, high);
}

void ReplyWriter::procedureUnavailable() noexcept
{
    refuse(ProcedureUnavailable);
}

void ReplyWriter::garbageArguments() noexcept
{
    refuse(GarbageArguments);
}

void ReplyWriter::systemError() noexcept
{
    refuse(SystemError);
}

void ReplyWriter::authError(KvUInt32 authStatus) noexcept
{
    ReplyHeader header;
    header.status = Denied;
    header.rejectStatus = AuthError;
    header.authStatus = authStatus;
    answer(header, nullptr, 0);
}

void ReplyWriter::rpcMismatch() noexcept
{
    ReplyHeader header;
    header.status = Denied;
    header.rejectStatus = RpcMismatch;
    header.low = header.high = rpcVersion;
    answer(header, nullptr, 0);
}

void ReplyWriter::drop() noexcept
{
    if (!std::exchange(m_pending, false))
        return;
    if (const std::shared_ptr<ServerCore> core = m_owner.lock())
        core->settle(*this);
}

RpcServer::RpcServer(ServerHandler& handler, const ServerLimits& limits)
{
    try {
        m_core = std::allocate_shared<ServerCore>(KvNAllocation::Allocator<ServerCore>(), handler, limits);
    } catch (...) {
    }
}

RpcServer::~RpcServer() = default;

int RpcServer::listenTcp(int board, KvUInt32 address, std::uint16_t port) noexcept
{
    return m_core != nullptr ? m_core->listenTcp(board, address, port) : 0;
}

int RpcServer::listenUdp(int board, KvUInt32 address, std::uint16_t port, bool shared, int answerThrough) noexcept
{
    return m_core != nullptr ? m_core->listenUdp(board, address, port, shared, answerThrough) : 0;
}

std::uint16_t RpcServer::port(int listener) const noexcept
{
    return m_core != nullptr ? m_core->port(listener) : std::uint16_t(0);
}

const char* RpcServer::lastError() const noexcept
{
    return m_core != nullptr ? m_core->lastError() : "out of memory";
}

void RpcServer::run() noexcept
{
    if (m_core != nullptr)
        m_core->run();
}

void RpcServer::stop() noexcept
{
    if (m_core != nullptr)
        m_core->stop();
}

bool RpcServer::stopOnSignals() noexcept
{
    return m_core != nullptr && m_core->stopOnSignals();
}

bool RpcServer::post(std::function<void()> work) noexcept
{
    return m_core != nullptr && m_core->post(std::move(work));
}

void RpcServer::wake() noexcept
{
    if (m_core != nullptr)
        m_core->wake();
}

KvUInt64 RpcServer::startTimer(KvUInt32 milliseconds, std::function<void()> work) noexcept
{
    return m_core != nullptr ? m_core->startTimer(milliseconds, std::move(work)) : 0;
}

void RpcServer::cancelTimer(KvUInt64 timer) noexcept
{
    if (m_core != nullptr)
        m_core->cancelTimer(timer);
}

void RpcServer::protect(KvUInt64 connection, bool on) noexcept
{
    if (ServerConnection* place = m_core != nullptr ? m_core->find(connection) : nullptr)
        place->isProtected = on;
}

bool RpcServer::isOpen(KvUInt64 connection) const noexcept
{
    return m_core != nullptr && m_core->find(connection) != nullptr;
}

void RpcServer::close(KvUInt64 connection) noexcept
{
    if (ServerConnection* place = m_core != nullptr ? m_core->find(connection) : nullptr)
        place->closeSoon();
}

unsigned RpcServer::connectionCount() const noexcept
{
    return m_core != nullptr ? m_core->connectionCount() : 0;
}

std::size_t RpcServer::heldBytes() const noexcept
{
    return m_core != nullptr ? m_core->budget.held() : 0;
}

}  // namespace KvNRpc
