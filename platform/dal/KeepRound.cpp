#include "platform/dal/KeepRound.h"

#include <new>

#include "platform/dal/DeviceAccessRecords.h"
#include "platform/dal/KvDALBase.h"
#include "platform/oncrpc/RpcMessage.h"

namespace KvNDeviceAccess {

namespace {

using KvNRpc::RpcDatagram;

enum Question : KvUInt64
{
    Port = 0,
    Keep = 1
};

KvUInt64 tagOf(std::size_t place, Question question)
{
    return static_cast<KvUInt64>(place) * 2 + question;
}

}  // namespace

void KeepRound::add(Lease& lease) noexcept
{
    KvUInt32 accessId = 0;
    if (lease.access(accessId) != Lease::State::Held)
        return;
    try {
        m_items.push_back({&lease, accessId, Lease::Clock::now(), false});
    } catch (const std::bad_alloc&) {
        lease.postpone();
        return;
    }
    const std::size_t place = m_items.size() - 1;
    static_cast<void>(lease.port == 0 ? askPort(place) : askToKeep(place));
}

bool KeepRound::askPort(std::size_t place) noexcept
{
    KvNRpc::PortMapping mapping;
    mapping.program = deviceAccessProgram;
    mapping.version = deviceAccessVersion;
    mapping.protocol = KvNRpc::protocolTcp;
    KvNRpc::Bytes arguments;
    if (KvNRpc::encodeBytes(KvNXdr::proc<KvNRpc::xdr_portMapping>, &mapping, arguments) != KvNRpc::EncodeStatus::Done)
        return false;
    RpcDatagram::Request request;
    request.address = m_items[place].lease->board().ipAddress();
    request.port = KvNRpc::portMapperPort();
    request.transport = RpcDatagram::Transport::Tcp;
    request.program = KvNRpc::portMapperProgram;
    request.version = KvNRpc::portMapperVersion;
    request.procedure = KvNRpc::portMapperGetPort;
    request.arguments = arguments.data();
    request.argumentBytes = arguments.size();
    request.tag = tagOf(place, Port);
    return m_exchange.add(request);
}

bool KeepRound::askToKeep(std::size_t place) noexcept
{
    Item& item = m_items[place];
    KvNRpc::Bytes arguments;
    if (KvNRpc::encodeBytes(KvNXdr::proc<KvNXdr::xdr_u_int>, &item.accessId, arguments) != KvNRpc::EncodeStatus::Done)
        return false;
    RpcDatagram::Request request;
    request.address = item.lease->board().ipAddress();
    request.port = static_cast<std::uint16_t>(item.lease->port);
    request.transport = RpcDatagram::Transport::Tcp;
    request.program = deviceAccessProgram;
    request.version = deviceAccessVersion;
    request.procedure = KeepAccess;
    request.arguments = arguments.data();
    request.argumentBytes = arguments.size();
    request.tag = tagOf(place, Keep);
    item.asked = Lease::Clock::now();
    return m_exchange.add(request);
}

void KeepRound::run(std::chrono::milliseconds time) noexcept
{
    m_exchange.setLargestReply(mostErrors + 4096);
    m_exchange.run(static_cast<KvUInt32>(time.count()), &KeepRound::handle, this);
    for (const Item& item : m_items) {
        if (item.settled)
            continue;
        item.lease->postpone();
        // whatever the reason, the service may have moved
        item.lease->port = 0;
    }
}

void KeepRound::handle(void* context, RpcDatagram&, const RpcDatagram::Reply& reply) noexcept
{
    static_cast<KeepRound*>(context)->answered(reply);
}

void KeepRound::answered(const RpcDatagram::Reply& reply) noexcept
{
    if (reply.outcome != RpcDatagram::Outcome::Answered)
        return;
    const auto place = static_cast<std::size_t>(reply.tag / 2);
    Item& item = m_items[place];
    if (reply.tag % 2 == Port) {
        KvNXdr::XDR xdrs;
        // a decoding stream only reads
        auto* bytes = const_cast<char*>(reinterpret_cast<const char*>(reply.results));
        KvNXdr::xdrmem_create(&xdrs, bytes, reply.resultBytes, KvNXdr::XDR_DECODE);
        KvUInt32 port = 0;
        if (!KvNXdr::xdr_u_int(&xdrs, &port) || port == 0 || port > 0xFFFF)
            return;
        item.lease->port = port;
        static_cast<void>(askToKeep(place));
        return;
    }
    DecodedResult result;
    if (!result.from(reply.results, reply.resultBytes))
        return;
    if (result.status == 0) {
        item.settled = true;
        item.lease->kept(item.accessId, item.asked);
    } else if (result.status == BoardBadAccess - BoardRefused) {
        item.settled = true;
        item.lease->refused(item.accessId);
    }
}

}  // namespace KvNDeviceAccess
