#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/oncrpc/RpcServer.h"
#include "platform/service/Directory.h"
#include "platform/service/Rpcbind.h"
#include "platform/service/Worker.h"
#include "tools/kvboardd/Board.h"
#include "tools/kvboardd/DeviceAccessService.h"
#include "tools/kvboardd/Files.h"
#include "tools/kvboardd/InventoryService.h"
#include "tools/kvboardd/LockTable.h"
#include "tools/kvboardd/Options.h"
#include "tools/kvboardd/PortMapper.h"
#include "tools/kvboardd/Procedure.h"
#include "tools/kvboardd/Transfers.h"
#include "tools/kvboardd/Update.h"

namespace KvNBoardService {

/** A board, and the folder for the files that are put on it. */
struct ServedBoard
{
    std::unique_ptr<Board> board;
    std::unique_ptr<KvNService::Directory> files;
};

/**
 * All boards of the process on one event loop: where they listen, which of their services a call is for, and what the
 * passing of time does to their locks and updates. Used on one thread.
 */
class Service : private KvNRpc::ServerHandler
{
public:
    Service(const Options& options, std::vector<ServedBoard> boards);
    ~Service() override;

    /** Opens everything that the boards are reached by; false, and why in `problem`, when something cannot be had. From
        now on SIGTERM and SIGINT end run(). */
    bool start(std::string& problem);

    /** Serves until a signal comes; `ready` is called when all boards answer. */
    void run(std::function<void()> ready);

private:
    /** One board with its services. */
    struct Unit
    {
        Unit(ServedBoard served, const Options& options, KvUInt64 bootId, KvNService::Worker& worker);

        std::unique_ptr<Board> board;
        Files files;
        Transfers transfers;
        LockTable locks;
        Update update;
        InventoryService inventory;
        DeviceAccessService access;
        PortMapper mapper;
        KvUInt64 updateTimer = 0;
    };

    /** A connection that makes no place for others, and the lock for which. */
    struct Protection
    {
        int board;
        KvUInt32 accessId;
    };

    void call(const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply) override;
    void closed(int board, KvUInt64 connection) override;
    void note(int board, KvUInt32 peerAddress, const char* what) override;
    void woken() override { m_worker.collect(); }

    bool listen(int index, Unit& unit, std::string& problem);
    bool listenMapper(int index, Unit& unit, std::string& problem);
    bool registerAll(std::string& problem);
    void unregisterAll();
    void answerMapper(const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply);
    void send(const KvNRpc::ServerCall& call, Answer answer, KvNRpc::ReplyWriter reply);
    void send(int board, KvUInt64 connection, Answer answer, KvNRpc::ReplyWriter reply);
    void advanceUpdate(Unit& unit);
    void everySecond();

    Options m_options;
    KvNRpc::RpcServer m_server;
    KvNService::Worker m_worker;  ///< waits for the disk
    std::vector<std::unique_ptr<Unit>> m_units;
    std::uint16_t m_tcpPort = 0;  ///< of the board that began to listen last
    std::uint16_t m_udpPort = 0;
    std::set<KvUInt32> m_broadcasts;
    std::unique_ptr<KvNService::Rpcbind> m_rpcbind;  ///< while the boards are registered
    std::map<KvUInt64, Protection> m_protected;
    KvUInt64 m_timer = 0;
};

}  // namespace KvNBoardService
