#include "fuzz/ScriptedPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

namespace KvNFuzz {

namespace {

constexpr std::size_t largestCall = 65536;

int bound(int kind, std::uint16_t port)
{
    const int socket = ::socket(AF_INET, kind | SOCK_CLOEXEC, 0);
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    place.sin_port = htons(port);
    KV_FUZZ_CHECK(::bind(socket, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0);
    return socket;
}

std::uint16_t portOf(int socket)
{
    sockaddr_in place{};
    socklen_t size = sizeof place;
    KV_FUZZ_CHECK(::getsockname(socket, reinterpret_cast<sockaddr*>(&place), &size) == 0);
    return ntohs(place.sin_port);
}

bool receive(int connection, unsigned char* bytes, std::size_t size)
{
    while (size != 0) {
        const ssize_t received = ::recv(connection, bytes, size, 0);
        if (received <= 0)
            return false;
        bytes += received;
        size -= static_cast<std::size_t>(received);
    }
    return true;
}

/** The next record of one fragment, as this client sends them; no bytes when the connection has ended. */
Bytes receiveCall(int connection)
{
    unsigned char mark[4];
    if (!receive(connection, mark, sizeof mark))
        return {};
    const std::size_t size = Input(mark, sizeof mark).number(4) & 0x7FFFFFFF;
    KV_FUZZ_CHECK(size >= 4 && size <= largestCall);
    Bytes call(size);
    return receive(connection, call.data(), size) ? call : Bytes();
}

void replace(Bytes& bytes, std::string_view word, const unsigned char* with)
{
    for (auto at = bytes.begin();; at += 4) {
        at = std::search(at, bytes.end(), word.begin(), word.end());
        if (at == bytes.end())
            return;
        std::copy_n(with, 4, at);
    }
}

}  // namespace

ScriptedPeer::ScriptedPeer(bool hasDatagrams)
{
    const int listener = bound(SOCK_STREAM, 0);
    m_port = portOf(listener);
    KV_FUZZ_CHECK(::listen(listener, 64) == 0);
    std::thread([this, listener] { serveStream(listener); }).detach();
    if (!hasDatagrams)
        return;
    const int socket = bound(SOCK_DGRAM, m_port);
    std::thread([this, socket] { serveDatagrams(socket); }).detach();
}

void ScriptedPeer::play(Script script)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_script = std::move(script);
    m_answered.clear();
}

Bytes ScriptedPeer::answered() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_answered;
}

Bytes ScriptedPeer::filledIn(const Bytes& bytes, const unsigned char* transactionId) const
{
    Bytes result = bytes;
    const unsigned char port[4] = {0, 0, static_cast<unsigned char>(m_port >> 8), static_cast<unsigned char>(m_port)};
    replace(result, "XID!", transactionId);
    replace(result, "PORT", port);
    return result;
}

void ScriptedPeer::serveStream(int listener)
{
    for (;;) {
        const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0)
            continue;
        serve(connection);
        ::close(connection);
    }
}

void ScriptedPeer::serve(int connection)
{
    const Bytes call = receiveCall(connection);
    if (call.empty())
        return;
    Bytes answer;
    bool endsByReset = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        answer = filledIn(m_script.answer, call.data());
        endsByReset = m_script.endsByReset;
        m_answered = answer;
    }
    // Loopback takes all of it at once.
    ::send(connection, answer.data(), answer.size(), MSG_NOSIGNAL);
    if (!endsByReset)
        return;
    const linger atOnce{1, 0};
    ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

void ScriptedPeer::serveDatagrams(int socket)
{
    for (;;) {
        unsigned char call[1024];
        sockaddr_in sender{};
        socklen_t senderSize = sizeof sender;
        const ssize_t size =
            ::recvfrom(socket, call, sizeof call, 0, reinterpret_cast<sockaddr*>(&sender), &senderSize);
        if (size < 4)
            continue;
        std::vector<Bytes> answers;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            for (const Bytes& answer : m_script.datagrams)
                answers.push_back(filledIn(answer, call));
        }
        for (const Bytes& answer : answers)
            ::sendto(socket, answer.data(), answer.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&sender),
                     senderSize);
    }
}

}  // namespace KvNFuzz
