#include "platform/oncrpc/ServerCore.h"

namespace KvNRpc {

ServerConnection::ServerConnection(ServerCore& core, int itsBoard, KvUInt64 itsNumber, KvUInt32 itsPeerAddress,
                                   std::uint16_t itsPeerPort, KvUInt32 itsLocalAddress, std::uint16_t itsLocalPort)
    : RpcStream(core.context, core.buffer, core.limits.recordBytes, core.budget),
      board(itsBoard),
      number(itsNumber),
      peerAddress(itsPeerAddress),
      peerPort(itsPeerPort),
      localAddress(itsLocalAddress),
      localPort(itsLocalPort),
      lastActivity(Clock::now()),
      m_core(core),
      m_created(lastActivity)
{}

void ServerConnection::onBytes() noexcept
{
    lastActivity = Clock::now();
    if (!incoming().inRecord())
        m_recordBegan = lastActivity;
}

void ServerConnection::onRecord(Record record) noexcept
{
    m_hadRecord = true;
    m_recordBegan = lastActivity = Clock::now();
    ++m_calls;
    if (m_calls >= m_core.limits.callsPerConnection) {
        m_full = true;
        pause(true);
    }
    if (!m_core.serve(record.data(), record.size(), this, 0, nullptr))
        drop("a record that is no call");
}

bool ServerConnection::makeRoom() noexcept
{
    return m_core.makeRoomFor(*this, incoming().claimedBytes() + outputBytes());
}

void ServerConnection::answer(std::shared_ptr<Outgoing> message) noexcept
{
    lastActivity = Clock::now();
    if (!hasOutput())
        m_outputBegan = lastActivity;
    send(std::move(message));
}

void ServerConnection::settle() noexcept
{
    callDone();
}

void ServerConnection::onSent(Outgoing&, bool whole) noexcept
{
    if (!whole)
        return;
    lastActivity = m_outputBegan = Clock::now();
    callDone();
}

void ServerConnection::callDone() noexcept
{
    --m_calls;
    if (m_closing && !isBusy())
        return drop(nullptr);
    if (!m_full || m_closing || m_calls >= m_core.limits.callsPerConnection)
        return;
    m_full = false;
    m_recordBegan = Clock::now();
    pause(false);
}

void ServerConnection::closeSoon() noexcept
{
    if (!isBusy())
        return drop(nullptr);
    m_closing = true;
    pause(true);
}

void ServerConnection::drop(const char* why) noexcept
{
    if (!isOpen())
        return;
    const std::shared_ptr<RpcStream> self = shared_from_this();
    close();
    // Now, not when the last operation in progress has ended: someone may be waiting for the room.
    m_assembler.clear();
    m_core.gone(*this, why);
}

void ServerConnection::onEnded(End why, const std::error_code&) noexcept
{
    switch (why) {
        case End::TooLong:
            return m_core.gone(*this, "a record beyond the limit");
        case End::Malformed:
            return m_core.gone(*this, "record marking that makes no sense");
        case End::OutOfBudget:
            return m_core.gone(*this, "no room for its request");
        case End::OutOfMemory:
            return m_core.gone(*this, "out of memory");
        default:
            return m_core.gone(*this, nullptr);
    }
}

const char* ServerConnection::overdue(TimePoint now) const noexcept
{
    const ServerLimits& limits = m_core.limits;
    if (hasOutput() && now >= m_outputBegan + Milliseconds(limits.outputTime))
        return "it does not read its answers";
    if (isBusy())
        return nullptr;
    if (!m_hadRecord && now >= m_created + Milliseconds(limits.firstRecordTime))
        return "no first record in time";
    if (incoming().inRecord() && now >= m_recordBegan + Milliseconds(limits.recordTime))
        return "a record that takes too long";
    if (!incoming().inRecord() && now >= lastActivity + Milliseconds(limits.idleTime))
        return "idle";
    return nullptr;
}

bool ServerConnection::canYield() const noexcept
{
    return !isProtected && !isBusy() && (!m_hadRecord || !incoming().inRecord());
}

}  // namespace KvNRpc
