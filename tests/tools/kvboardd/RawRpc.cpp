#include "RawRpc.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr int patience = 10000;

sockaddr_in endpoint(KvUInt32 address, std::uint16_t port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = htonl(address);
    result.sin_port = htons(port);
    return result;
}

bool wait(int descriptor, short events, int milliseconds)
{
    pollfd entry{descriptor, events, 0};
    int result = 0;
    do
        result = poll(&entry, 1, milliseconds);
    while (result < 0 && errno == EINTR);
    return result == 1;
}

RawReply takeApart(const Bytes& message)
{
    RawReply reply;
    WireReader reader(message);
    reply.xid = reader.word();
    if (reader.word() != 1)
        return reply;
    reply.replyStatus = reader.word();
    std::size_t head = 16;
    if (reply.replyStatus == 0) {
        reader.word();
        head += 8 + (reader.counted().size() + 3) / 4 * 4;
    }
    reply.status = reader.word();
    reply.arrived = reader.isGood();
    if (reply.arrived)
        reply.body.assign(message.begin() + static_cast<std::ptrdiff_t>(head), message.end());
    return reply;
}

}  // namespace

Bytes callMessage(KvUInt32 xid, KvUInt32 program, KvUInt32 version, KvUInt32 procedure, const Bytes& arguments)
{
    return words({xid, 0, 2, program, version, procedure, 0, 0, 0, 0}) + arguments;
}

Bytes record(const Bytes& message)
{
    return words({0x80000000u | static_cast<KvUInt32>(message.size())}) + message;
}

RawConnection::RawConnection(KvUInt32 address, std::uint16_t port, KvUInt32 source)
    : m_descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const sockaddr_in own = endpoint(source, 0);
    const sockaddr_in peer = endpoint(address, port);
    if ((source != 0 && bind(m_descriptor, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) ||
        connect(m_descriptor, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0) {
        close(m_descriptor);
        m_descriptor = -1;
    }
}

RawConnection::~RawConnection()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
}

bool RawConnection::send(const Bytes& bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        if (!wait(m_descriptor, POLLOUT, 200))
            return false;
        const ssize_t sent =
            ::send(m_descriptor, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent <= 0)
            return false;
        done += static_cast<std::size_t>(sent);
    }
    return true;
}

bool RawConnection::read(unsigned char* bytes, std::size_t size)
{
    while (size != 0) {
        if (!wait(m_descriptor, POLLIN, patience))
            return false;
        const ssize_t got = recv(m_descriptor, bytes, size, 0);
        if (got <= 0)
            return false;
        bytes += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

RawReply RawConnection::receive()
{
    Bytes message;
    bool isLast = false;
    while (!isLast) {
        Bytes head(4);
        if (!read(head.data(), head.size()))
            return {};
        const KvUInt32 mark = WireReader(head).word();
        isLast = (mark & 0x80000000u) != 0;
        const std::size_t before = message.size();
        message.resize(before + (mark & 0x7FFFFFFFu));
        if (!read(message.data() + before, message.size() - before))
            return {};
    }
    return takeApart(message);
}

RawReply RawConnection::call(KvUInt32 program, KvUInt32 version, KvUInt32 procedure, const Bytes& arguments)
{
    const KvUInt32 xid = m_xid++;
    send(record(callMessage(xid, program, version, procedure, arguments)));
    RawReply reply = receive();
    reply.arrived = reply.arrived && reply.xid == xid;
    return reply;
}

bool RawConnection::isEnded()
{
    if (!wait(m_descriptor, POLLIN, patience))
        return false;
    unsigned char byte = 0;
    return recv(m_descriptor, &byte, 1, 0) <= 0;
}

bool RawConnection::hasReply(int milliseconds)
{
    return wait(m_descriptor, POLLIN, milliseconds);
}

void RawConnection::finish()
{
    shutdown(m_descriptor, SHUT_WR);
}

RawReply exchangeDatagram(KvUInt32 address, std::uint16_t port, const Bytes& message, int milliseconds, KvUInt32* from)
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    const sockaddr_in peer = endpoint(address, port);
    sendto(descriptor, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&peer), sizeof peer);
    RawReply reply;
    if (wait(descriptor, POLLIN, milliseconds)) {
        Bytes answer(65536);
        sockaddr_in sender{};
        socklen_t size = sizeof sender;
        const ssize_t got =
            recvfrom(descriptor, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&sender), &size);
        answer.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        reply = takeApart(answer);
        if (from != nullptr)
            *from = ntohl(sender.sin_addr.s_addr);
    }
    close(descriptor);
    return reply;
}

RawReply callDatagram(KvUInt32 address, std::uint16_t port, KvUInt32 program, KvUInt32 version, KvUInt32 procedure,
                      const Bytes& arguments)
{
    return exchangeDatagram(address, port, callMessage(77, program, version, procedure, arguments));
}
