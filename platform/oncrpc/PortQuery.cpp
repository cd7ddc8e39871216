#include "platform/oncrpc/PortQuery.h"

#include <array>

namespace KvNRpc {

namespace {

constexpr std::array<Milliseconds, 3> sendTimes{Milliseconds(0), Milliseconds(250), Milliseconds(700)};
constexpr Milliseconds tcpTime{1500};
constexpr std::size_t markBytes = 4;
constexpr std::size_t largestAnswer = 1024;

struct GetPortCall
{
    CallHeader header;
    PortMapping mapping;
};

KvNXdr::bool_t xdr_getPortCall(KvNXdr::XDR* xdrs, GetPortCall* call)
{
    return xdr_callHeader(xdrs, &call->header) && xdr_portMapping(xdrs, &call->mapping);
}

}  // namespace

EncodeStatus encodeGetPort(KvUInt32 transactionId, KvUInt32 program, KvUInt32 version, Bytes& message) noexcept
{
    GetPortCall call;
    call.header.xid = transactionId;
    call.header.program = portMapperProgram;
    call.header.version = portMapperVersion;
    call.header.procedure = portMapperGetPort;
    call.mapping = {program, version, protocolTcp, 0};
    const EncodeStatus status = encodeBytes(KvNXdr::proc<xdr_getPortCall>, &call, message, markBytes);
    if (status == EncodeStatus::Done)
        putRecordMark(message.data(), message.size() - markBytes);
    return status;
}

/** The same question over a connection. */
class PortQuery::TcpQuery final : public RpcStream
{
public:
    TcpQuery(asio::io_context& context, ReadBuffer& buffer, ByteBudget& budget, PortQuery& query)
        : RpcStream(context, buffer, largestAnswer, budget), m_query(&query)
    {}
    void forget() noexcept
    {
        m_query = nullptr;
        close();
    }

private:
    bool onBegun(KvUInt32 transactionId) noexcept override { return transactionId == m_query->m_transactionId; }
    void onRecord(Record record) noexcept override { m_query->tcpAnswered(record); }
    void onEnded(End why, const std::error_code& error) noexcept override
    {
        if (m_query != nullptr)
            m_query->tcpFailed(why, error);
    }

    PortQuery* m_query;
};

PortQuery::PortQuery(asio::io_context& context, ReadBuffer& buffer, ByteBudget& budget, Asker& asker)
    : m_context(context), m_buffer(buffer), m_budget(budget), m_asker(&asker), m_socket(context)
{}

void PortQuery::start(const ChannelSettings& target) noexcept
{
    m_settings = target;
    m_transactionId = firstTransactionId();
    m_started = Clock::now();
    if (encodeGetPort(m_transactionId, target.program, target.version, m_request) != EncodeStatus::Done)
        return finish(0, Failure::OutOfMemory);
    try {
        m_socket.open(asio::ip::udp::v4());
        m_socket.connect({toAddress(target.address), target.portMapperPort});
        m_socket.non_blocking(true);
    } catch (const std::system_error& failure) {
        char text[64];
        return finish(0, isShortage(failure.code()) ? Failure::OutOfMemory : Failure::Connect,
                      describeError(failure.code(), text, sizeof text));
    } catch (...) {
        return finish(0, Failure::OutOfMemory);
    }
    waitForDatagram();
    tick(m_started);
}

void PortQuery::tick(TimePoint now) noexcept
{
    const std::shared_ptr<PortQuery> self = shared_from_this();
    while (m_asker != nullptr && m_sent < sendTimes.size() && now >= m_started + sendTimes[m_sent]) {
        ++m_sent;
        sendDatagram();
    }
    if (m_asker != nullptr && now >= m_started + tcpTime)
        askByTcp();
}

void PortQuery::sendDatagram() noexcept
{
    std::error_code error;
    m_socket.send(asio::buffer(m_request.data() + markBytes, m_request.size() - markBytes), 0, error);
    if (error == asio::error::connection_refused)
        askByTcp();
}

void PortQuery::waitForDatagram() noexcept
{
    try {
        auto readable = [self = shared_from_this()](const std::error_code& error) {
            if (error || self->m_asker == nullptr)
                return;
            self->takeDatagrams();
            if (self->m_asker != nullptr)
                self->waitForDatagram();
        };
        m_socket.async_wait(UdpSocket::wait_read, inSlot(m_slot, std::move(readable)));
    } catch (...) {
        finish(0, Failure::OutOfMemory);
    }
}

void PortQuery::takeDatagrams() noexcept
{
    for (unsigned i = 0; i < 16 && m_asker != nullptr; ++i) {
        std::error_code error;
        const std::size_t size = m_socket.receive(asio::buffer(m_buffer.bytes), 0, error);
        if (error == asio::error::connection_refused)
            return askByTcp();
        if (error || takeReply(m_buffer.bytes, size, false))
            return;
    }
}

void PortQuery::askByTcp() noexcept
{
    if (m_tcpTried)
        return;
    m_tcpTried = true;
    try {
        auto message = std::allocate_shared<Outgoing>(KvNAllocation::Allocator<Outgoing>());
        if (!message->bytes.assign(m_request.data(), m_request.size()))
            return finish(0, Failure::OutOfMemory);
        m_stream =
            std::allocate_shared<TcpQuery>(KvNAllocation::Allocator<TcpQuery>(), m_context, m_buffer, m_budget, *this);
        m_stream->send(std::move(message));
    } catch (...) {
        return finish(0, Failure::OutOfMemory);
    }
    m_stream->connect(m_settings.address, m_settings.portMapperPort);
}

void PortQuery::tcpAnswered(const Record& record) noexcept
{
    takeReply(record.data(), record.size(), true);
}

void PortQuery::tcpFailed(RpcStream::End why, const std::error_code& error) noexcept
{
    using End = RpcStream::End;
    if (why == End::OutOfMemory || why == End::OutOfBudget || isShortage(error))
        return finish(0, Failure::OutOfMemory);
    if (why == End::TooLong || why == End::Malformed)
        return finish(0, Failure::PortMapperMalformed);
    char text[64];
    finish(0, Failure::Connect, describeError(error, text, sizeof text));
}

/** Judges a reply. A datagram that makes no sense may be anyone's and is passed over; what comes by TCP is `final`. */
bool PortQuery::takeReply(const unsigned char* data, std::size_t size, bool final) noexcept
{
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, const_cast<char*>(reinterpret_cast<const char*>(data)), size, KvNXdr::XDR_DECODE);
    ReplyHeader header;
    KvUInt32 port = 0;
    const bool decoded = xdr_replyHeader(&xdrs, &header) && header.xid == m_transactionId;
    const bool success = decoded && header.status == Accepted && header.acceptStatus == Success;
    const bool sound =
        decoded && (!success || KvNXdr::xdr_u_int(&xdrs, &port)) && KvNXdr::xdrmem_left(&xdrs) == 0 && port <= 65535;
    if (!sound && !final)
        return false;
    if (!sound)
        finish(0, Failure::PortMapperMalformed);
    else if (!success)
        finish(0, Failure::PortMapperRefused);
    else
        finish(static_cast<std::uint16_t>(port), port == 0 ? Failure::NotRegistered : Failure::None);
    return true;
}

void PortQuery::finish(std::uint16_t port, Failure failure, const char* text) noexcept
{
    Asker* asker = m_asker;
    const std::shared_ptr<PortQuery> self = shared_from_this();
    cancel();
    if (asker != nullptr)
        asker->onPort(port, failure, text);
}

void PortQuery::cancel() noexcept
{
    m_asker = nullptr;
    std::error_code ignored;
    m_socket.close(ignored);
    if (m_stream != nullptr)
        m_stream->forget();
}

}  // namespace KvNRpc
