#include "platform/service/Rpcbind.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/oncrpc/RpcMessage.h"

namespace KvNService {

namespace {

constexpr std::uint16_t rpcbindPort = 111;
constexpr std::uint16_t firstReservedPort = 600;
constexpr std::uint16_t lastReservedPort = 1023;
constexpr KvUInt32 setProcedure = 1;
constexpr KvUInt32 unsetProcedure = 2;
constexpr int tries = 4;
constexpr int waitMilliseconds = 500;

std::string reason(int error)
{
    return std::generic_category().message(error);
}

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/** The answer to `header` in a datagram: 0 or 1, or -1 when the datagram is not it. */
int answerIn(const KvNRpc::CallHeader& header, unsigned char* bytes, std::size_t size)
{
    KvNXdr::XDR stream;
    KvNXdr::xdrmem_create(&stream, reinterpret_cast<char*>(bytes), size, KvNXdr::XDR_DECODE);
    KvNRpc::ReplyHeader reply;
    KvNXdr::bool_t result = 0;
    if (!KvNRpc::xdr_replyHeader(&stream, &reply) || reply.xid != header.xid)
        return -1;
    if (reply.status != KvNRpc::Accepted || reply.acceptStatus != KvNRpc::Success)
        return 0;
    return KvNXdr::xdr_bool(&stream, &result) && result != 0 ? 1 : 0;
}

}  // namespace

Rpcbind::Rpcbind() : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    for (std::uint16_t port = lastReservedPort; m_socket >= 0 && port >= firstReservedPort; --port) {
        const sockaddr_in own = loopback(port);
        if (::bind(m_socket, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 || errno == EACCES)
            break;
    }
    const sockaddr_in peer = loopback(rpcbindPort);
    if (m_socket < 0 || ::connect(m_socket, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0)
        m_problem = "cannot reach rpcbind: " + reason(errno);
}

Rpcbind::~Rpcbind()
{
    if (m_socket >= 0)
        ::close(m_socket);
}

bool Rpcbind::ask(KvUInt32 procedure, const RpcbindMapping& mapping, std::string& problem)
{
    if (!m_problem.empty()) {
        problem = m_problem;
        return false;
    }
    KvNRpc::CallHeader header;
    header.xid = KvNRpc::firstTransactionId();
    header.program = KvNRpc::portMapperProgram;
    header.version = KvNRpc::portMapperVersion;
    header.procedure = procedure;
    KvNRpc::PortMapping record;
    record.program = mapping.program;
    record.version = mapping.version;
    record.protocol = mapping.protocol;
    record.port = mapping.port;
    char request[128];
    KvNXdr::XDR stream;
    KvNXdr::xdrmem_create(&stream, request, sizeof request, KvNXdr::XDR_ENCODE);
    if (!KvNRpc::xdr_callHeader(&stream, &header) || !KvNRpc::xdr_portMapping(&stream, &record)) {
        problem = "cannot encode a call of rpcbind";
        return false;
    }
    for (int i = 0; i < tries; ++i) {
        if (::send(m_socket, request, KvNXdr::xdrmem_used(&stream), 0) < 0) {
            problem = "cannot reach rpcbind: " + reason(errno);
            return false;
        }
        pollfd entry{m_socket, POLLIN, 0};
        if (::poll(&entry, 1, waitMilliseconds) != 1)
            continue;
        unsigned char reply[512];
        const ssize_t size = ::recv(m_socket, reply, sizeof reply, 0);
        const int answer = size < 0 ? -1 : answerIn(header, reply, static_cast<std::size_t>(size));
        if (answer >= 0) {
            problem = answer == 0 ? "rpcbind refuses" : "";
            return answer == 1;
        }
    }
    problem = "rpcbind does not answer at 127.0.0.1:111";
    return false;
}

bool Rpcbind::set(const RpcbindMapping& mapping, std::string& problem)
{
    return ask(setProcedure, mapping, problem);
}

bool Rpcbind::unset(KvUInt32 program, KvUInt32 version, std::string& problem)
{
    return ask(unsetProcedure, {program, version, 0, 0}, problem);
}

}  // namespace KvNService
