#include "tools/kvboardd/PortMapper.h"

#include "tools/kvboardd/Wire.h"

#include <rpc/pmap_prot.h>

namespace KvNBoardService {

namespace {

using Arguments = Record<pmap, xdr_pmap>;

Answer number(KvUInt32 value)
{
    u_int result = value;
    return encoded(xdr_u_int, result, 4);
}

}  // namespace

PortMapper::PortMapper(std::uint16_t port)
{
    add(program, version, Protocol::Tcp, port);
    add(program, version, Protocol::Udp, port);
}

void PortMapper::add(KvUInt32 mappedProgram, KvUInt32 mappedVersion, Protocol protocol, std::uint16_t port)
{
    m_mappings.push_back({mappedProgram, mappedVersion, protocol, port});
}

Answer PortMapper::call(const Call& call) const
{
    if (call.broadcast && call.procedure != PMAPPROC_GETPORT)
        return Answer::of(Answer::Kind::None);
    switch (call.procedure) {
        case PMAPPROC_NULL:
            return {};
        case PMAPPROC_SET:
        case PMAPPROC_UNSET: {
            Arguments arguments;
            return arguments.decode(call.arguments) ? number(FALSE) : Answer::of(Answer::Kind::GarbageArguments);
        }
        case PMAPPROC_GETPORT:
            return getPort(call);
        case PMAPPROC_DUMP:
            return dump(call);
        default:
            return Answer::of(Answer::Kind::ProcedureUnavailable);
    }
}

Answer PortMapper::getPort(const Call& call) const
{
    Arguments arguments;
    if (!arguments.decode(call.arguments))
        return Answer::of(Answer::Kind::GarbageArguments);
    std::uint16_t port = 0;
    for (const Mapping& mapping : m_mappings) {
        if (mapping.program != arguments->pm_prog || static_cast<KvUInt32>(mapping.protocol) != arguments->pm_prot)
            continue;
        // A version that is not here is answered with the port all the same: the service then says which it has.
        if (port == 0 || mapping.version == arguments->pm_vers)
            port = mapping.port;
    }
    if (port == 0 && call.broadcast)
        return Answer::of(Answer::Kind::None);
    return number(port);
}

Answer PortMapper::dump(const Call& call) const
{
    if (!call.arguments.empty())
        return Answer::of(Answer::Kind::GarbageArguments);
    std::vector<pmaplist> nodes(m_mappings.size());
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const Mapping& mapping = m_mappings[i];
        nodes[i].pml_map = {mapping.program, mapping.version, static_cast<KvUInt32>(mapping.protocol), mapping.port};
        nodes[i].pml_next = i + 1 < nodes.size() ? &nodes[i + 1] : nullptr;
    }
    pmaplist* first = nodes.empty() ? nullptr : nodes.data();
    return encoded(xdr_pmaplist, first, nodes.size() * 20 + 4);
}

}  // namespace KvNBoardService
