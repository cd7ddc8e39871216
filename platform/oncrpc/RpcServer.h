#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "platform/KvTypes.h"
#include "platform/oncrpc/RpcMessage.h"

namespace KvNRpc {

/** What a server allows its peers; times in milliseconds, sizes in bytes. */
struct ServerLimits
{
    /** Connections of one board, and of one source address to one board. When there is no room for a new one, the
        longest idle one that is not protected makes place (first of the same source, when that is the limit). */
    unsigned connectionsPerBoard = 64;
    unsigned connectionsPerSource = 8;
    /** Calls of one connection that are not answered yet, or whose answers it has not read; it is not read meanwhile.
     */
    unsigned callsPerConnection = 16;
    /** Largest request. */
    std::size_t recordBytes = 1048576 + 4096;
    /** A new connection's first whole record; each record from its first byte; an answer from its first byte until it
        is drained; nothing at all. */
    KvUInt32 firstRecordTime = 10000;
    KvUInt32 recordTime = 10000;
    KvUInt32 outputTime = 10000;
    KvUInt32 idleTime = 300000;
    /** Requests and answers held in memory, all together. When there is no more, the connection that holds the most of
        it, and is not protected, is closed; that may be the one that needs it. */
    std::size_t totalBytes = 64u << 20;
};

enum class ServerTransport
{
    Tcp,
    Udp
};

/** One complete call. The arguments are valid until the handler returns. */
struct ServerCall
{
    /** The board that the listener was made for. */
    int board = 0;
    ServerTransport transport = ServerTransport::Tcp;
    /** Number of the TCP connection, never used again; 0 with UDP. */
    KvUInt64 connection = 0;
    /** IPv4, host order. */
    KvUInt32 peerAddress = 0;
    std::uint16_t peerPort = 0;
    KvUInt32 localAddress = 0;
    std::uint16_t localPort = 0;
    const CallHeader& header;
    KvUInt32 program = 0;
    KvUInt32 version = 0;
    KvUInt32 procedure = 0;
    const unsigned char* arguments = nullptr;
    std::size_t argumentBytes = 0;
};

class ServerCore;

/**
 * Answers one call, at once or later, once. Used on the loop's thread only (others post()). When the caller has gone,
 * answering does nothing. One that is destroyed without an answer answers SYSTEM_ERR.
 */
class ReplyWriter
{
public:
    ReplyWriter() noexcept = default;
    ReplyWriter(ReplyWriter&& other) noexcept;
    ReplyWriter& operator=(ReplyWriter&& other) noexcept;
    ~ReplyWriter();

    /** Success with the encoded results, which are copied. */
    void success(const void* results, std::size_t bytes) noexcept;
    void programUnavailable() noexcept;
    void programMismatch(KvUInt32 low, KvUInt32 high) noexcept;
    void procedureUnavailable() noexcept;
    void garbageArguments() noexcept;
    void systemError() noexcept;
    void authError(KvUInt32 authStatus) noexcept;
    void rpcMismatch() noexcept;
    /** Leaves the call without an answer (a broadcast that is not for us). */
    void drop() noexcept;
    /** Whether it still has to be answered. */
    explicit operator bool() const { return m_pending; }

private:
    friend class ServerCore;
    void answer(const ReplyHeader& header, const void* results, std::size_t bytes) noexcept;
    void refuse(KvUInt32 acceptStatus, KvUInt32 low = 0, KvUInt32 high = 0) noexcept;

    std::weak_ptr<ServerCore> m_owner;
    bool m_pending = false;
    KvUInt64 m_connection = 0;  // TCP
    int m_listener = 0;         // UDP
    KvUInt32 m_peerAddress = 0;
    std::uint16_t m_peerPort = 0;
    KvUInt32 m_xid = 0;
};

/** What a service is to the server; all on the loop's thread. An exception that leaves a function ends only the call
    (answered SYSTEM_ERR). */
class ServerHandler
{
public:
    virtual ~ServerHandler() = default;
    virtual void call(const ServerCall& call, ReplyWriter reply) = 0;
    /** A connection has ended, whoever ended it; possibly while an answer is being given. */
    virtual void closed(int /*board*/, KvUInt64 /*connection*/) {}
    /** Something for the log: a connection refused or dropped, and why. */
    virtual void note(int /*board*/, KvUInt32 /*peerAddress*/, const char* /*what*/) {}
    /** Somebody has called wake(). */
    virtual void woken() {}
};

/**
 * The board's side of ONC RPC: an event loop with TCP and UDP listeners.
 *
 * Made, given listeners, then run() on one thread until stop(). Each complete call goes to the handler; malformed ones
 * are answered as RFC 5531 says. A slow, silent or greedy peer is cut off by the limits and never holds up others, and
 * neither does a lack of memory or descriptors: the loop goes on. The handler is not owned and must outlive the server.
 */
class RpcServer
{
public:
    explicit RpcServer(ServerHandler& handler, const ServerLimits& limits = {});
    ~RpcServer();
    RpcServer(const RpcServer&) = delete;
    RpcServer& operator=(const RpcServer&) = delete;

    /** Listens on `address` (IPv4, host order) and `port` (0: any) for `board`, a number of the caller's. Returns the
        listener's number (from 1), or 0 and leaves the reason in lastError(). */
    int listenTcp(int board, KvUInt32 address, std::uint16_t port) noexcept;
    /** The same by UDP. `shared`: others may listen there too (a broadcast address, of which each gets a copy).
        `answerThrough`: the UDP listener whose socket, and so whose address, answers are sent from (0: this one). */
    int listenUdp(int board, KvUInt32 address, std::uint16_t port, bool shared = false, int answerThrough = 0) noexcept;
    /** The port that a listener really has. */
    std::uint16_t port(int listener) const noexcept;
    /** Why the last listen failed, in words. */
    const char* lastError() const noexcept;

    /** Serves until stop(); answers already given are sent before it returns, for at most a second. */
    void run() noexcept;
    /** Ends run(); from any thread. */
    void stop() noexcept;
    /** SIGTERM and SIGINT call stop() from now on. False when that cannot be had. */
    bool stopOnSignals() noexcept;

    /** Runs `work` on the loop's thread soon; from any thread. False when memory is out. */
    bool post(std::function<void()> work) noexcept;
    /** Has the handler's woken() called on the loop's thread soon, once for all calls until then; from any thread.
       Needs no memory. */
    void wake() noexcept;
    /** Runs `work` on the loop's thread after `milliseconds`; on that thread, or before run(). Returns the timer's
        number, or 0 when memory is out. */
    KvUInt64 startTimer(KvUInt32 milliseconds, std::function<void()> work) noexcept;
    /** Forgets a timer that has not run yet. */
    void cancelTimer(KvUInt64 timer) noexcept;

    /** Whether a connection must not make place for a new one, or room for others (its peer holds a lock). On the
        loop's thread. */
    void protect(KvUInt64 connection, bool on) noexcept;
    /** Whether a connection has not ended. On the loop's thread. */
    bool isOpen(KvUInt64 connection) const noexcept;
    /** Ends a connection after its answers are drained. On the loop's thread. */
    void close(KvUInt64 connection) noexcept;
    /** Connections open now, and bytes of requests and answers held. On the loop's thread. */
    unsigned connectionCount() const noexcept;
    std::size_t heldBytes() const noexcept;

private:
    std::shared_ptr<ServerCore> m_core;
};

}  // namespace KvNRpc
