#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "platform/KvTypes.h"

/** Boards that cost as little as can be, and connections to them without the library. */
namespace KvNBoards {

using Bytes = std::vector<unsigned char>;

/** Where every board's port mapper listens. */
inline constexpr std::uint16_t mapperPort = 20211;

void put(Bytes& bytes, KvUInt32 value);

/** A whole call record with the transaction id 0. */
Bytes question(KvUInt32 procedure, std::size_t argumentBytes);

/** A whole reply record, its mark and a transaction id of 0 included. */
Bytes reply(const Bytes& results);

/** `data` behind its length, filled up to a multiple of four. */
Bytes opaque(const Bytes& data);

/** What a board sends for each procedure. */
using Replies = std::map<KvUInt32, std::shared_ptr<const Bytes>>;

/** The boards: one process, one thread, one epoll loop. */
class BoardServer
{
public:
    /** Before start(). A board that delays takes `delay` for each answer to a call whose transaction id is not 0. */
    void add(KvUInt32 address, Replies replies, bool delays = false)
    {
        m_boards[address] = {std::move(replies), delays};
    }

    void start();
    void stop() const;

    static constexpr std::chrono::milliseconds delay{20};

    std::uint16_t port = 0;  ///< of all boards

private:
    struct Board
    {
        Replies replies;
        bool delays = false;
    };
    struct Connection
    {
        const Board* board = nullptr;
        Bytes input;
        std::deque<Bytes> output;
        std::size_t sent = 0;
    };
    struct Due
    {
        std::chrono::steady_clock::time_point when;
        int socket;
        KvUInt32 id;
        std::shared_ptr<const Bytes> reply;
    };

    void add(int socket, unsigned events) const;
    void change(int socket, unsigned events) const;
    [[noreturn]] void serve();
    void handle(int socket, unsigned events);
    void accept();
    void map(int socket) const;
    void read(int socket);
    void answer(int socket, KvUInt32 id, const Bytes& whole);
    void flush(int socket);

    std::map<KvUInt32, Board> m_boards;
    std::map<int, Connection> m_connections;
    std::vector<int> m_mappers;
    std::deque<Due> m_due;
    int m_epoll = -1;
    int m_listener = -1;
    pid_t m_child = -1;
};

/** A connection without the library: what the same bytes cost at least. */
class RawBoard
{
public:
    RawBoard(KvUInt32 address, std::uint16_t port);
    ~RawBoard();
    RawBoard(const RawBoard&) = delete;
    RawBoard& operator=(const RawBoard&) = delete;

    void ask(const Bytes& question) const;
    void take(unsigned char* place, std::size_t size) const;

private:
    int m_socket;
};

}  // namespace KvNBoards
