#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <thread>

#include "RpcBytes.h"

/**
 * A board that does what a test tells it, however wrong that is: a TCP listener on a loopback address whose every
 * connection is served by a script on a thread of its own. Everything ends when the object is destroyed.
 */
class ScriptedBoard
{
public:
    class Connection
    {
    public:
        /** The next whole record, without its marks; empty when the client has gone. */
        RpcBytes::Bytes readCall();
        /** All the bytes; false when the client has gone. */
        bool send(const RpcBytes::Bytes& bytes);
        /** Byte for byte, `pause` milliseconds apart. */
        bool drip(const RpcBytes::Bytes& bytes, int pause);
        /** Waits until the client closes or the board ends. */
        void stall();
        /** Closes with a reset instead of an end. */
        void reset();
        /** Ends the connection in order. */
        void close();
        void sleep(int milliseconds);
        bool stopped() const { return m_board.m_stopping; }

    private:
        friend class ScriptedBoard;
        Connection(ScriptedBoard& board, int socket) : m_board(board), m_socket(socket) {}
        bool readBytes(unsigned char* place, std::size_t size);
        bool wait(short events);
        ScriptedBoard& m_board;
        int m_socket;
    };

    /** Serves one connection; `number` counts from 1. The connection is closed when it returns. */
    using Script = std::function<void(Connection& connection, int number)>;
    /** Answers a datagram; no bytes: no answer. */
    using DatagramScript = std::function<std::optional<RpcBytes::Bytes>(const RpcBytes::Bytes& datagram)>;

    explicit ScriptedBoard(Script script, DatagramScript datagrams = nullptr, std::uint32_t address = 0x7F000001);
    ~ScriptedBoard();
    ScriptedBoard(const ScriptedBoard&) = delete;
    ScriptedBoard& operator=(const ScriptedBoard&) = delete;

    /** TCP and, with a datagram script, UDP. */
    std::uint16_t port() const { return m_port; }
    int connections() const { return m_connections; }
    int datagrams() const { return m_datagrams; }

private:
    void acceptAll();
    void answerDatagrams();

    Script m_script;
    DatagramScript m_datagramScript;
    int m_listener = -1;
    int m_datagramSocket = -1;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_stopping{false};
    std::atomic<int> m_connections{0};
    std::atomic<int> m_datagrams{0};
    std::mutex m_mutex;
    std::list<std::thread> m_threads;
    std::thread m_acceptor;
    std::thread m_answerer;
};

/** A loopback port on which nobody listens. */
std::uint16_t unusedPort();
