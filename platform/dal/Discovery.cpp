#include "platform/dal/Discovery.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>
#include <unordered_map>
#include <utility>

#include "base/Report.h"
#include "platform/dal/DeviceAccessRecords.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"
#include "platform/oncrpc/RpcDatagram.h"
#include "platform/oncrpc/RpcMessage.h"

namespace KvNDeviceAccess {

namespace {

using KvNRpc::RpcDatagram;
using Transport = RpcDatagram::Transport;

constexpr KvUInt32 searchMilliseconds = 1500;
constexpr KvUInt32 requestTimes[] = {0, 250, 700};

/* The largest reply taken over TCP: an identity with its longest texts and error list, and its header. */
constexpr std::size_t largestReply = mostErrors + 4096;

/* The questions that a host is asked; with the host's address they make the tag of a request. */
enum Question : KvUInt32
{
    PortByUdp,
    PortByTcp,
    IdentityByUdp,
    IdentityByTcp
};

KvUInt64 tagOf(Question question, KvUInt32 address)
{
    return (static_cast<KvUInt64>(question) << 32) | address;
}

/* One search from its first request to the list. */
class Search
{
public:
    Search(const DiscoveryPlan& plan, const FilterSettings& settings) : m_plan(plan), m_settings(settings) {}

    RpcDatagram::End run();
    bool outOfMemory() const { return m_outOfMemory; }
    /** Warns of the boards that are left out and appends the others. */
    void collect(DeviceInfos& found);

private:
    struct Host
    {
        bool registered = false;  // the port mapper knows a device access service
        bool identified = false;
        bool invalid = false;  // an answer made no sense
        bool listed = false;   // has its place in the list already
        KvDALSDeviceInfo info = {};
    };
    using Hosts = std::unordered_map<KvUInt32, Host, std::hash<KvUInt32>, std::equal_to<KvUInt32>,
                                     KvNAllocation::Allocator<std::pair<const KvUInt32, Host>>>;

    void askPort(RpcDatagram& exchange, KvUInt32 address, Question question, bool broadcast);
    void askIdentity(RpcDatagram& exchange, KvUInt32 address, Question question, KvUInt32 port);
    void add(RpcDatagram& exchange, const RpcDatagram::Request& request);
    static void handle(void* context, RpcDatagram& exchange, const RpcDatagram::Reply& reply) noexcept;
    void answered(RpcDatagram& exchange, const RpcDatagram::Reply& reply);
    void portAnswered(RpcDatagram& exchange, Host& host, Question question, const RpcDatagram::Reply& reply);
    void identityAnswered(RpcDatagram& exchange, Host& host, const RpcDatagram::Reply& reply);
    void append(const Host& host, DeviceInfos& found) const;

    const DiscoveryPlan& m_plan;
    const FilterSettings& m_settings;
    Hosts m_hosts;
    bool m_outOfMemory = false;
};

void Search::add(RpcDatagram& exchange, const RpcDatagram::Request& request)
{
    if (!exchange.add(request))
        throw std::bad_alloc();
}

void Search::askPort(RpcDatagram& exchange, KvUInt32 address, Question question, bool broadcast)
{
    KvNRpc::PortMapping mapping;
    mapping.program = deviceAccessProgram;
    mapping.version = deviceAccessVersion;
    mapping.protocol = question == PortByUdp ? KvNRpc::protocolUdp : KvNRpc::protocolTcp;
    KvNRpc::Bytes arguments;
    if (KvNRpc::encodeBytes(KvNXdr::proc<KvNRpc::xdr_portMapping>, &mapping, arguments) != KvNRpc::EncodeStatus::Done)
        throw std::bad_alloc();
    RpcDatagram::Request request;
    request.address = address;
    request.port = KvNRpc::portMapperPort();
    request.transport = question == PortByUdp ? Transport::Udp : Transport::Tcp;
    request.broadcast = broadcast;
    request.program = KvNRpc::portMapperProgram;
    request.version = KvNRpc::portMapperVersion;
    request.procedure = KvNRpc::portMapperGetPort;
    request.arguments = arguments.data();
    request.argumentBytes = arguments.size();
    request.tag = tagOf(question, address);
    add(exchange, request);
}

void Search::askIdentity(RpcDatagram& exchange, KvUInt32 address, Question question, KvUInt32 port)
{
    RpcDatagram::Request request;
    request.address = address;
    request.port = static_cast<std::uint16_t>(port);
    request.transport = question == IdentityByUdp ? Transport::Udp : Transport::Tcp;
    request.program = deviceAccessProgram;
    request.version = deviceAccessVersion;
    request.procedure = Identify;
    request.tag = tagOf(question, address);
    add(exchange, request);
}

RpcDatagram::End Search::run()
{
    RpcDatagram exchange;
    exchange.setTimes(requestTimes, std::size(requestTimes));
    exchange.setLargestReply(largestReply);
    for (const KvUInt32 address : m_plan.broadcasts)
        askPort(exchange, address, PortByUdp, true);
    for (const KvUInt32 address : m_plan.hosts) {
        askPort(exchange, address, PortByUdp, false);
        if (m_plan.overTcp)
            askPort(exchange, address, PortByTcp, false);
    }
    return exchange.run(searchMilliseconds, &Search::handle, this);
}

void Search::handle(void* context, RpcDatagram& exchange, const RpcDatagram::Reply& reply) noexcept
{
    auto* search = static_cast<Search*>(context);
    try {
        search->answered(exchange, reply);
    } catch (const std::bad_alloc&) {
        search->m_outOfMemory = true;
    }
}

void Search::answered(RpcDatagram& exchange, const RpcDatagram::Reply& reply)
{
    const bool usable = reply.outcome == RpcDatagram::Outcome::Answered && m_plan.accepts(reply.address);
    if (!usable)
        return;
    Host& host = m_hosts[reply.address];
    const auto question = static_cast<Question>(reply.tag >> 32);
    if (host.identified)
        return;
    if (question == PortByUdp || question == PortByTcp)
        portAnswered(exchange, host, question, reply);
    else
        identityAnswered(exchange, host, reply);
}

void Search::portAnswered(RpcDatagram& exchange, Host& host, Question question, const RpcDatagram::Reply& reply)
{
    KvNXdr::XDR xdrs;
    // a decoding stream only reads
    auto* bytes = const_cast<char*>(reinterpret_cast<const char*>(reply.results));
    KvNXdr::xdrmem_create(&xdrs, bytes, reply.resultBytes, KvNXdr::XDR_DECODE);
    KvUInt32 port = 0;
    if (!KvNXdr::xdr_u_int(&xdrs, &port) || KvNXdr::xdrmem_left(&xdrs) != 0 || port > 0xFFFF) {
        host.registered = true;
        host.invalid = true;
        return;
    }
    const bool byUdp = question == PortByUdp;
    KvUInt32& known = byUdp ? host.info.deviceAccessUdpPort : host.info.deviceAccessTcpPort;
    if (port == 0 || known != 0)
        return;
    known = port;
    host.registered = true;
    askIdentity(exchange, reply.address, byUdp ? IdentityByUdp : IdentityByTcp, port);
}

void Search::identityAnswered(RpcDatagram& exchange, Host& host, const RpcDatagram::Reply& reply)
{
    DecodedIdentity identity;
    if (!identity.from(reply.results, reply.resultBytes)) {
        host.invalid = true;
        return;
    }
    KvDALSDeviceInfo& info = host.info;
    // both names have at most 255 characters
    std::memcpy(info.systemName, identity.systemName, std::strlen(identity.systemName) + 1);
    std::memcpy(info.boardName, identity.boardName, std::strlen(identity.boardName) + 1);
    KvNRtosAbstraction::ipToString(reply.address, info.hostAddress, sizeof info.hostAddress);
    info.serialNumber = identity.serialNumber;
    info.boardType = identity.boardType;
    info.ipAddress = reply.address;
    host.identified = true;
    for (const Question question : {PortByUdp, PortByTcp, IdentityByUdp, IdentityByTcp})
        exchange.drop(tagOf(question, reply.address));
}

void Search::append(const Host& host, DeviceInfos& found) const
{
    const bool named = m_settings.systemName[0] == 0 || std::strcmp(m_settings.systemName, host.info.systemName) == 0;
    if (host.identified && named)
        found.push_back(host.info);
}

void Search::collect(DeviceInfos& found)
{
    Addresses order;
    if (m_settings.addresses.empty()) {
        for (const auto& known : m_hosts)
            order.push_back(known.first);
        std::sort(order.begin(), order.end());
    } else {
        order.assign(m_settings.addresses.begin(), m_settings.addresses.end());
    }
    for (const KvUInt32 address : order) {
        const auto known = m_hosts.find(address);
        if (known == m_hosts.end() || known->second.listed)
            continue;
        Host& host = known->second;
        host.listed = true;
        append(host, found);
        if (host.identified || !host.registered)
            continue;
        char text[KvNRtosAbstraction::ipTextSize];
        KvNRtosAbstraction::ipToString(address, text, sizeof text);
        if (host.invalid)
            KV_WARN(DalIdentityInvalid, "KvDAL_applyFilter", text);
        else
            KV_WARN(DalBoardNotIdentified, "KvDAL_applyFilter", text);
    }
}

}  // namespace

KvInt32 discover(KvCErrorListPool& errors, const char* origin, const FilterSettings& settings, DeviceInfos& found)
{
    HostInterfaces interfaces;
    if ((settings.addresses.empty() || settings.subnetMask != 0) && !listInterfaces(interfaces)) {
        KV_REPORT(errors, DalNetworkFailed, origin, "the list of network interfaces");
        return NetworkFailed;
    }
    const DiscoveryPlan plan = planDiscovery(settings, interfaces);
    Search search(plan, settings);
    const RpcDatagram::End end = search.run();
    if (search.outOfMemory())
        throw std::bad_alloc();
    if (end == RpcDatagram::End::OutOfMemory) {
        KV_REPORT(errors, DalNetworkFailed, origin, "sockets or memory");
        return NetworkFailed;
    }
    if (end == RpcDatagram::End::Cancelled) {
        KV_REPORT(errors, DalCancelled, origin);
        return Cancelled;
    }
    search.collect(found);
    return Ok;
}

}  // namespace KvNDeviceAccess
