#include "ScriptedBoard.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>

using RpcBytes::Bytes;

namespace {

constexpr int pollTime = 20;

sockaddr_in loopback(std::uint32_t address, std::uint16_t port)
{
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(address);
    place.sin_port = htons(port);
    return place;
}

int bound(int kind, std::uint32_t address, std::uint16_t port)
{
    const int socket = ::socket(AF_INET, kind | SOCK_CLOEXEC, 0);
    const sockaddr_in place = loopback(address, port);
    if (::bind(socket, reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0) {
        ::close(socket);
        return -1;
    }
    return socket;
}

std::uint16_t portOf(int socket)
{
    sockaddr_in place{};
    socklen_t size = sizeof place;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&place), &size);
    return ntohs(place.sin_port);
}

}  // namespace

std::uint16_t unusedPort()
{
    const int socket = bound(SOCK_STREAM, 0x7F000001, 0);
    const std::uint16_t port = portOf(socket);
    ::close(socket);
    return port;
}

ScriptedBoard::ScriptedBoard(Script script, DatagramScript datagrams, std::uint32_t address)
    : m_script(std::move(script)), m_datagramScript(std::move(datagrams))
{
    for (int attempt = 0; attempt < 50 && m_port == 0; ++attempt) {
        m_listener = bound(SOCK_STREAM, address, 0);
        if (m_listener < 0)
            continue;
        const std::uint16_t port = portOf(m_listener);
        if (m_datagramScript != nullptr && (m_datagramSocket = bound(SOCK_DGRAM, address, port)) < 0) {
            ::close(m_listener);
            continue;
        }
        m_port = port;
    }
    if (m_port == 0 || ::listen(m_listener, 64) != 0)
        throw std::runtime_error("no port for a scripted board");
    m_acceptor = std::thread([this] { acceptAll(); });
    if (m_datagramSocket >= 0)
        m_answerer = std::thread([this] { answerDatagrams(); });
}

ScriptedBoard::~ScriptedBoard()
{
    m_stopping = true;
    m_acceptor.join();
    if (m_answerer.joinable())
        m_answerer.join();
    for (std::thread& thread : m_threads)
        thread.join();
    ::close(m_listener);
    if (m_datagramSocket >= 0)
        ::close(m_datagramSocket);
}

void ScriptedBoard::acceptAll()
{
    while (!m_stopping) {
        pollfd waiting{m_listener, POLLIN, 0};
        if (::poll(&waiting, 1, pollTime) <= 0)
            continue;
        const int socket = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0)
            continue;
        const int number = ++m_connections;
        m_threads.emplace_back([this, socket, number] {
            Connection connection(*this, socket);
            m_script(connection, number);
            if (connection.m_socket >= 0)
                ::close(connection.m_socket);
        });
    }
}

void ScriptedBoard::answerDatagrams()
{
    while (!m_stopping) {
        pollfd waiting{m_datagramSocket, POLLIN, 0};
        if (::poll(&waiting, 1, pollTime) <= 0)
            continue;
        Bytes datagram(65536);
        sockaddr_in sender{};
        socklen_t senderSize = sizeof sender;
        const ssize_t size = ::recvfrom(m_datagramSocket, datagram.data(), datagram.size(), 0,
                                        reinterpret_cast<sockaddr*>(&sender), &senderSize);
        if (size < 0)
            continue;
        ++m_datagrams;
        datagram.resize(static_cast<std::size_t>(size));
        if (const std::optional<Bytes> answer = m_datagramScript(datagram))
            ::sendto(m_datagramSocket, answer->data(), answer->size(), 0, reinterpret_cast<sockaddr*>(&sender),
                     senderSize);
    }
}

bool ScriptedBoard::Connection::wait(short events)
{
    while (!m_board.m_stopping && m_socket >= 0) {
        pollfd waiting{m_socket, events, 0};
        if (::poll(&waiting, 1, pollTime) > 0)
            return true;
    }
    return false;
}

bool ScriptedBoard::Connection::readBytes(unsigned char* place, std::size_t size)
{
    while (size != 0) {
        if (!wait(POLLIN))
            return false;
        const ssize_t step = ::recv(m_socket, place, size, 0);
        if (step <= 0)
            return false;
        place += step;
        size -= static_cast<std::size_t>(step);
    }
    return true;
}

Bytes ScriptedBoard::Connection::readCall()
{
    Bytes record;
    for (bool last = false; !last;) {
        Bytes mark(4);
        if (!readBytes(mark.data(), 4))
            return {};
        const std::uint32_t header = RpcBytes::unitAt(mark, 0);
        last = (header & 0x80000000u) != 0;
        const std::size_t before = record.size();
        record.resize(before + (header & 0x7FFFFFFFu));
        if (!readBytes(record.data() + before, record.size() - before))
            return {};
    }
    return record;
}

bool ScriptedBoard::Connection::send(const Bytes& bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        if (!wait(POLLOUT))
            return false;
        const ssize_t step = ::send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (step < 0 && errno != EAGAIN)
            return false;
        sent += step > 0 ? static_cast<std::size_t>(step) : 0;
    }
    return true;
}

bool ScriptedBoard::Connection::drip(const Bytes& bytes, int pause)
{
    for (const unsigned char byte : bytes) {
        if (stopped() || !send({byte}))
            return false;
        sleep(pause);
    }
    return true;
}

void ScriptedBoard::Connection::stall()
{
    unsigned char byte;
    while (wait(POLLIN))
        if (::recv(m_socket, &byte, 1, 0) <= 0)
            return;
}

void ScriptedBoard::Connection::reset()
{
    const linger atOnce{1, 0};
    ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    ::close(m_socket);
    m_socket = -1;
}

void ScriptedBoard::Connection::close()
{
    ::close(m_socket);
    m_socket = -1;
}

void ScriptedBoard::Connection::sleep(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
