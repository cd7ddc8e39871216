#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/KvTypes.h"
#include "platform/oncrpc/RpcServer.h"
#include "tests/platform/dal/ScriptedFiles.h"

/**
 * Boards that do as a test says: each has a port mapper and a device access service on an address of its own, all of
 * them served by one thread over real sockets. A board's script may be changed at any time with the rack's mutex held
 * (`with`). The port mappers' port is one for the process, and in KVDAL_PORTMAP_PORT.
 */
struct ScriptedBoard
{
    // who it is
    KvUInt32 address = 0;
    KvUInt32 serialNumber = 0;
    KvUInt32 boardType = 2211;
    std::string boardName = "board";
    std::string systemName = "rack";

    // its port mapper
    bool mapsByUdp = true;
    bool mapsByTcp = true;
    KvUInt32 datagramsLost = 0;            // requests to the port mapper that get lost at first
    std::vector<unsigned char> portReply;  // instead of the port, when not empty
    KvUInt32 broadcast = 0;                // also listens there

    // its device access service
    bool silent = false;                       // answers nothing
    bool refuses = false;                      // does not have the program
    std::vector<unsigned char> identityReply;  // instead of the identity, when not empty

    // its locks: one holder
    KvUInt32 leaseSeconds = 20;
    bool keepSilent = false;
    bool forgetful = false;                  // knows no access id
    KvUInt32 repliesLost = 0;                // of requests and releases: done, but the connection ends without a reply
    std::vector<unsigned char> accessReply;  // instead of the answer to a request, when not empty
    KvUInt32 refusal = 0;                    // status of every request, keeping and release, when not 0
    std::string otherHolder;                 // someone else has the board
    std::vector<unsigned char> errorList;    // with every answer

    KvUInt32 maxChunk = 65536;
    ScriptedFiles files;

    std::vector<std::string> holders;  // that it says it has, each at level 1

    // what has happened
    KvUInt32 datagrams = 0;  // requests to the port mapper by UDP
    KvUInt32 streams = 0;    // and by TCP
    KvUInt32 identified = 0;
    KvUInt32 requested = 0;
    KvUInt32 granted = 0;
    KvUInt32 kept = 0;
    KvUInt32 released = 0;
    KvUInt32 accessId = 0;  // held now
    KvInt32 level = 0;
    std::string owner;
    std::vector<KvUInt64> nonces;
    std::chrono::steady_clock::time_point leaseEnd;

    // where its service listens
    std::uint16_t udpPort = 0;
    std::uint16_t tcpPort = 0;
};

class ScriptedRack : public KvNRpc::ServerHandler
{
public:
    explicit ScriptedRack(std::vector<ScriptedBoard> boards);
    ~ScriptedRack() override;

    /** Runs `change` on board `i` between two calls. */
    void with(std::size_t i, const std::function<void(ScriptedBoard&)>& change);
    ScriptedBoard look(std::size_t i);
    /** Waits until the board is as `wanted` says, at most 10 s; whether it is. */
    bool waitUntil(std::size_t i, const std::function<bool(const ScriptedBoard&)>& wanted);

private:
    void listen(int board);
    void call(const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply) override;
    void meet(const ScriptedFault& fault, const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply,
              ScriptedBoard& board);
    void mapPort(const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply, ScriptedBoard& board);
    void identify(KvNRpc::ReplyWriter reply, ScriptedBoard& board);
    void requestAccess(const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply, ScriptedBoard& board);
    void accessState(KvNRpc::ReplyWriter reply, ScriptedBoard& board);
    void keepOrRelease(const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply, ScriptedBoard& board);

    std::mutex m_mutex;
    std::vector<ScriptedBoard> m_boards;
    std::vector<std::pair<KvNRpc::ReplyWriter, std::vector<unsigned char>>> m_late;
    std::unique_ptr<KvNRpc::RpcServer> m_server;
    std::thread m_thread;
};

/** Host-order address from its parts. */
constexpr KvUInt32 ip(KvUInt32 a, KvUInt32 b, KvUInt32 c, KvUInt32 d)
{
    return a << 24 | b << 16 | c << 8 | d;
}

/** A board with that address and serial number, otherwise as usual. */
ScriptedBoard boardAt(KvUInt32 address, KvUInt32 serialNumber);
