#include "bench/BoardServer.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "bench/Rows.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

KvUInt32 get(const unsigned char* bytes)
{
    return static_cast<KvUInt32>(bytes[0]) << 24 | static_cast<KvUInt32>(bytes[1]) << 16 |
           static_cast<KvUInt32>(bytes[2]) << 8 | bytes[3];
}

sockaddr_in at(KvUInt32 address, std::uint16_t port)
{
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(address);
    place.sin_port = htons(port);
    return place;
}

epoll_event eventOf(int socket, unsigned events)
{
    epoll_event event{};
    event.events = events;
    event.data.fd = socket;
    return event;
}

}  // namespace

namespace KvNBoards {

void put(Bytes& bytes, KvUInt32 value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<unsigned char>(value >> shift));
}

Bytes question(KvUInt32 procedure, std::size_t argumentBytes)
{
    Bytes record;
    record.reserve(44 + argumentBytes);
    put(record, 0x80000000 | static_cast<KvUInt32>(40 + argumentBytes));
    for (const KvUInt32 number : {KvUInt32{0}, KvUInt32{0}, KvUInt32{2}, KvUInt32{8}, KvUInt32{1}, procedure})
        put(record, number);
    record.resize(44 + argumentBytes);
    return record;
}

Bytes reply(const Bytes& results)
{
    Bytes record;
    record.reserve(28 + results.size());
    put(record, 0x80000000 | static_cast<KvUInt32>(24 + results.size()));
    put(record, 0);
    put(record, 1);
    for (int i = 0; i < 4; ++i)
        put(record, 0);
    record.insert(record.end(), results.begin(), results.end());
    return record;
}

Bytes opaque(const Bytes& data)
{
    Bytes bytes;
    bytes.reserve(data.size() + 8);
    put(bytes, static_cast<KvUInt32>(data.size()));
    bytes.insert(bytes.end(), data.begin(), data.end());
    while (bytes.size() % 4 != 0)
        bytes.push_back(0);
    return bytes;
}

void BoardServer::start()
{
    m_epoll = ::epoll_create1(EPOLL_CLOEXEC);
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    const int one = 1;
    ::setsockopt(m_listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in any = at(0, 0);
    check(::bind(m_listener, reinterpret_cast<sockaddr*>(&any), sizeof any) == 0, "bind");
    check(::listen(m_listener, 1024) == 0, "listen");
    socklen_t size = sizeof any;
    ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&any), &size);
    port = ntohs(any.sin_port);
    add(m_listener, EPOLLIN);
    for (const auto& [address, board] : m_boards) {
        const int mapper = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
        const sockaddr_in place = at(address, mapperPort);
        check(::bind(mapper, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0, "bind the port mapper");
        m_mappers.push_back(mapper);
        add(mapper, EPOLLIN);
    }
    m_child = ::fork();
    check(m_child >= 0, "fork");
    if (m_child != 0)
        return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    serve();
}

void BoardServer::stop() const
{
    ::kill(m_child, SIGKILL);
    ::waitpid(m_child, nullptr, 0);
}

void BoardServer::add(int socket, unsigned events) const
{
    epoll_event event = eventOf(socket, events);
    check(::epoll_ctl(m_epoll, EPOLL_CTL_ADD, socket, &event) == 0, "epoll");
}

void BoardServer::change(int socket, unsigned events) const
{
    epoll_event event = eventOf(socket, events);
    check(::epoll_ctl(m_epoll, EPOLL_CTL_MOD, socket, &event) == 0, "epoll");
}

void BoardServer::serve()
{
    for (;;) {
        int wait = -1;
        if (!m_due.empty()) {
            const Milliseconds left = m_due.front().when - Clock::now();
            wait = left.count() <= 0 ? 0 : static_cast<int>(left.count() + 0.5);
        }
        epoll_event events[256];
        const int count = ::epoll_wait(m_epoll, events, 256, wait);
        for (int i = 0; i < count; ++i)
            handle(events[i].data.fd, events[i].events);
        while (!m_due.empty() && m_due.front().when <= Clock::now()) {
            const Due due = m_due.front();
            m_due.pop_front();
            answer(due.socket, due.id, *due.reply);
        }
    }
}

void BoardServer::handle(int socket, unsigned events)
{
    if (socket == m_listener)
        return accept();
    if (std::find(m_mappers.begin(), m_mappers.end(), socket) != m_mappers.end())
        return map(socket);
    if ((events & EPOLLOUT) != 0)
        flush(socket);
    if ((events & EPOLLIN) != 0)
        read(socket);
}

void BoardServer::accept()
{
    for (;;) {
        const int socket = ::accept4(m_listener, nullptr, nullptr, SOCK_NONBLOCK);
        if (socket < 0)
            return;
        const int one = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        sockaddr_in own{};
        socklen_t size = sizeof own;
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size);
        const KvUInt32 address = ntohl(own.sin_addr.s_addr);
        Connection& connection = m_connections[socket];
        connection = Connection();
        connection.board = &m_boards[address];
        add(socket, EPOLLIN);
    }
}

void BoardServer::map(int socket) const
{
    unsigned char question[512];
    sockaddr_in from{};
    socklen_t size = sizeof from;
    if (::recvfrom(socket, question, sizeof question, 0, reinterpret_cast<sockaddr*>(&from), &size) < 4)
        return;
    Bytes results;
    put(results, port);
    const Bytes record = reply(results);
    Bytes datagram(record.begin() + 4, record.end());
    std::memcpy(datagram.data(), question, 4);
    ::sendto(socket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&from), size);
}

void BoardServer::read(int socket)
{
    Connection& connection = m_connections[socket];
    unsigned char block[65536];
    const ssize_t size = ::recv(socket, block, sizeof block, 0);
    if (size <= 0) {
        if (size == 0 || errno != EAGAIN) {
            ::close(socket);
            m_connections.erase(socket);
        }
        return;
    }
    connection.input.insert(connection.input.end(), block, block + size);
    while (connection.input.size() >= 4) {
        const std::size_t record = 4 + (get(connection.input.data()) & 0x7FFFFFFF);
        if (connection.input.size() < record)
            return;
        const KvUInt32 id = get(connection.input.data() + 4);
        const KvUInt32 procedure = get(connection.input.data() + 24);
        connection.input.erase(connection.input.begin(), connection.input.begin() + static_cast<long>(record));
        const auto found = connection.board->replies.find(procedure);
        if (found == connection.board->replies.end())
            continue;
        if (connection.board->delays && id != 0)
            m_due.push_back({Clock::now() + delay, socket, id, found->second});
        else
            answer(socket, id, *found->second);
    }
}

void BoardServer::answer(int socket, KvUInt32 id, const Bytes& whole)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end())
        return;
    unsigned char head[8];
    std::memcpy(head, whole.data(), 4);
    for (int i = 0; i < 4; ++i)
        head[4 + i] = static_cast<unsigned char>(id >> (24 - 8 * i));
    Connection& connection = found->second;
    if (!connection.output.empty()) {
        connection.output.push_back(whole);
        std::memcpy(connection.output.back().data(), head, 8);
        return;
    }
    iovec parts[2] = {{head, 8}, {const_cast<unsigned char*>(whole.data()) + 8, whole.size() - 8}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    const ssize_t sent = ::sendmsg(socket, &message, MSG_NOSIGNAL);
    if (sent == static_cast<ssize_t>(whole.size()))
        return;
    const std::size_t begun = sent < 0 ? 0 : static_cast<std::size_t>(sent);
    connection.output.emplace_back(whole.begin() + static_cast<long>(begun), whole.end());
    if (begun < 8)
        std::memcpy(connection.output.back().data(), head + begun, 8 - begun);
    connection.sent = 0;
    change(socket, EPOLLIN | EPOLLOUT);
}

void BoardServer::flush(int socket)
{
    Connection& connection = m_connections[socket];
    while (!connection.output.empty()) {
        const Bytes& block = connection.output.front();
        const ssize_t sent =
            ::send(socket, block.data() + connection.sent, block.size() - connection.sent, MSG_NOSIGNAL);
        if (sent < 0)
            return;
        connection.sent += static_cast<std::size_t>(sent);
        if (connection.sent < block.size())
            continue;
        connection.output.pop_front();
        connection.sent = 0;
    }
    change(socket, EPOLLIN);
}

RawBoard::RawBoard(KvUInt32 address, std::uint16_t port) : m_socket(::socket(AF_INET, SOCK_STREAM, 0))
{
    const sockaddr_in place = at(address, port);
    check(::connect(m_socket, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0, "connect");
    const int one = 1;
    ::setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

RawBoard::~RawBoard()
{
    ::close(m_socket);
}

void RawBoard::ask(const Bytes& question) const
{
    check(::send(m_socket, question.data(), question.size(), 0) == static_cast<ssize_t>(question.size()), "send");
}

void RawBoard::take(unsigned char* place, std::size_t size) const
{
    while (size != 0) {
        const ssize_t received = ::recv(m_socket, place, size, 0);
        check(received > 0, "recv");
        place += received;
        size -= static_cast<std::size_t>(received);
    }
}

}  // namespace KvNBoards
