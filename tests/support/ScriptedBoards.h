#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/oncrpc/RpcServer.h"

/**
 * Boards for tests, behind real sockets on loopback: each answers its port mapper, its device access service and its
 * inventory manager service with the bytes that the test has set, and records the calls that came.
 * Boards are added, then start() serves them on a thread of its own until the object is destroyed. What a board does
 * may be changed at any time, from any thread.
 */
class ScriptedBoards : private KvNRpc::ServerHandler
{
public:
    using Bytes = std::vector<unsigned char>;

    static constexpr KvUInt32 PortMapperProgram = 100000;
    static constexpr KvUInt32 InventoryProgram = 8;
    static constexpr KvUInt32 DeviceAccessProgram = 0x20004B56;

    struct Call
    {
        KvUInt32 program;
        KvUInt32 procedure;
        Bytes arguments;
    };

    /** One board: who it is, and how it answers. */
    class Board
    {
    public:
        Board(KvUInt32 ownAddress, KvUInt32 serial, const char* system);

        /** The results of a procedure of the inventory manager service. */
        void answer(KvUInt32 procedure, const Bytes& results);
        /** The results of a procedure of the device access service. */
        void answerDeviceAccess(KvUInt32 procedure, const Bytes& results);
        /** The results of the next calls of a procedure of the inventory manager service, one after the other; the
            last ones are those of all further calls. Without results the connection ends instead. */
        void answers(KvUInt32 procedure, const std::vector<Bytes>& results);
        /** The procedure is never answered. */
        void stall(KvUInt32 procedure);
        void stallDeviceAccess(KvUInt32 procedure);
        /** The connection ends when the procedure is called. */
        void hangUp(KvUInt32 procedure);
        /** The service does not have the procedure; so it is with every procedure that was not set. */
        void lack(KvUInt32 procedure);
        /** Whether the board tells who it is. */
        void identify(bool answers);
        /** Whether its port mapper answers. */
        void mapPorts(bool answers);

        /** The calls of a program so far, but for the null procedure. */
        std::vector<Call> calls(KvUInt32 program = InventoryProgram) const;
        /** Waits until a procedure was called so many times; false after 30 s. */
        bool waitForCalls(KvUInt32 program, KvUInt32 procedure, std::size_t count) const;
        /** Connections that came to the inventory manager service and carried a call. */
        std::size_t connections() const;

        const KvUInt32 address;
        const KvUInt32 serialNumber;
        const std::string systemName;

    private:
        friend class ScriptedBoards;
        enum class Kind
        {
            Answer,
            Stall,
            HangUp,
            Lack
        };
        struct Behaviour
        {
            Kind kind = Kind::Lack;
            Bytes results;
            std::deque<Bytes> before;  // of the calls before
        };

        void set(KvUInt32 program, KvUInt32 procedure, Kind kind, const Bytes& results);

        mutable std::mutex m_mutex;
        mutable std::condition_variable m_called;
        std::map<std::pair<KvUInt32, KvUInt32>, Behaviour> m_behaviours;
        std::vector<Call> m_calls;
        std::vector<KvUInt64> m_connections;
        bool m_mapsPorts = true;
        int m_inventoryTcp = 0;
        int m_accessTcp = 0;
        int m_accessUdp = 0;
    };

    ScriptedBoards();
    ~ScriptedBoards() override;

    /** A board at an address of this process's own on loopback. It tells who it is and refuses everything else. */
    Board& add(KvUInt32 serialNumber, const char* systemName = "Scripted");
    void start();

    /** An address of this process's own at which nothing listens. */
    static KvUInt32 unusedAddress();
    /** "127.64.1.1" */
    static std::string quad(KvUInt32 address);

private:
    void call(const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply) override;
    void answerPortMapper(const Board& board, const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter& reply);

    KvNRpc::RpcServer m_server;
    std::deque<Board> m_boards;
    std::vector<KvNRpc::ReplyWriter> m_unanswered;  // on the loop's thread
    std::thread m_thread;
};
