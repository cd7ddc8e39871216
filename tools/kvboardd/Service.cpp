#include "tools/kvboardd/Service.h"

#include <chrono>
#include <utility>

#include "platform/service/Interfaces.h"
#include "platform/service/Random.h"
#include "tools/kvboardd/Log.h"

namespace KvNBoardService {

namespace {

constexpr KvUInt32 slowAnswerMilliseconds = 1000;
constexpr KvUInt32 tickMilliseconds = 1000;

LockTable::Time now()
{
    return std::chrono::steady_clock::now();
}

LockTable::Limits lockLimits(const Options& options)
{
    LockTable::Limits limits;
    limits.holders = options.maximumLocks;
    limits.lease = std::chrono::seconds(options.leaseSeconds);
    limits.wrongIds = options.wrongIds;
    limits.wrongPeriod = std::chrono::seconds(options.wrongIdSeconds);
    return limits;
}

KvNRpc::ServerLimits serverLimits(const Options& options)
{
    KvNRpc::ServerLimits limits;
    limits.connectionsPerBoard = options.connections;
    limits.connectionsPerSource = options.connectionsPerSource;
    limits.callsPerConnection = options.callsPerConnection;
    limits.recordBytes = options.requestBytes;
    limits.firstRecordTime = options.firstRecordSeconds * 1000;
    limits.recordTime = options.recordSeconds * 1000;
    limits.outputTime = options.outputSeconds * 1000;
    limits.idleTime = options.idleSeconds * 1000;
    limits.totalBytes = options.memoryBytes;
    return limits;
}

Files::Limits fileLimits(const Options& options)
{
    Files::Limits limits;
    limits.bytes = options.filesBytes;
    limits.files = options.files;
    return limits;
}

Transfers::Limits transferLimits(const Options& options)
{
    Transfers::Limits limits;
    limits.chunkBytes = options.chunkBytes;
    return limits;
}

const char* textOf(LockTable::End why)
{
    switch (why) {
        case LockTable::End::Released:
            return "released";
        case LockTable::End::Lowered:
            return "lowered to level 1";
        case LockTable::End::Expired:
            return "not kept";
    }
    return "";
}

/** Drops what was written and what is being put with a lock that has ended, and says so. */
void endModify(Board& board, Transfers& transfers, KvUInt32 accessId, LockTable::End why) noexcept
{
    const std::size_t dropped = board.dropWritten(accessId);
    const bool isPutting = transfers.lockEnded(accessId);
    try {
        std::string line = "board " + std::to_string(board.serialNumber()) + ": lock of level 2 " + textOf(why);
        if (dropped != 0)
            line += ", " + valueCount(dropped) + " dropped that " + (dropped == 1 ? "was" : "were") + " not applied";
        if (isPutting)
            line += ", a file dropped that was not complete";
        log(line);
    } catch (const std::bad_alloc&) {
        log("a lock of level 2 has ended");
    }
}

void write(const Answer& answer, KvNRpc::ReplyWriter& reply)
{
    switch (answer.kind) {
        case Answer::Kind::Success:
            return reply.success(answer.results.data(), answer.results.size());
        case Answer::Kind::ProcedureUnavailable:
            return reply.procedureUnavailable();
        case Answer::Kind::GarbageArguments:
            return reply.garbageArguments();
        case Answer::Kind::SystemError:
            return reply.systemError();
        case Answer::Kind::None:
            return reply.drop();
    }
}

/** Whether a call is for the one version there is; answers it when not. */
bool isVersion(const KvNRpc::ServerCall& call, KvUInt32 version, KvNRpc::ReplyWriter& reply)
{
    if (call.version == version)
        return true;
    reply.programMismatch(version, version);
    return false;
}

Call callOf(const KvNRpc::ServerCall& call)
{
    Call result;
    result.procedure = call.procedure;
    result.peer = call.peerAddress;
    result.datagram = call.transport == KvNRpc::ServerTransport::Udp;
    result.arguments = {call.arguments, call.argumentBytes};
    return result;
}

}  // namespace

Service::Unit::Unit(ServedBoard served, const Options& options, KvUInt64 bootId, KvNService::Worker& worker)
    : board(std::move(served.board)),
      files(std::move(served.files), fileLimits(options), KvNService::random64),
      transfers(files, transferLimits(options),
                [&worker](std::function<void()> work, std::function<void()> done) {
                    worker.run(std::move(work), std::move(done));
                }),
      locks(lockLimits(options), KvNService::random32,
            [this](KvUInt32 accessId, LockTable::End why) { endModify(*board, transfers, accessId, why); }),
      update(*board, std::chrono::seconds(options.updateSeconds)),
      inventory({*board, locks, update, files}, now),
      access(*board, locks, files, transfers, now, {bootId, static_cast<KvUInt32>(options.chunkBytes)}),
      mapper(options.portMapper)
{}

Service::Service(const Options& options, std::vector<ServedBoard> boards)
    : m_options(options), m_server(*this, serverLimits(options)), m_worker([this] { m_server.wake(); })
{
    const KvUInt64 bootId = KvNService::random64().value_or(0);
    for (ServedBoard& board : boards)
        m_units.push_back(std::make_unique<Unit>(std::move(board), options, bootId, m_worker));
}

Service::~Service()
{
    unregisterAll();
}

bool Service::start(std::string& problem)
{
    if (!m_server.stopOnSignals()) {
        problem = "cannot wait for signals";
        return false;
    }
    int index = 0;
    for (const std::unique_ptr<Unit>& unit : m_units) {
        if (unit->files.removeUnfinished(problem) != Files::Outcome::Done || !unit->update.restore(problem) ||
            !listen(index, *unit, problem))
            return false;
        ++index;
    }
    return !m_options.rpcbind || registerAll(problem);
}

bool Service::listen(int index, Unit& unit, std::string& problem)
{
    const KvUInt32 address = unit.board->address();
    const std::string who = "board " + std::to_string(unit.board->serialNumber());
    // rpcbind knows one port for a program, whatever the address: then all boards take that of the first.
    const bool isAny = m_options.port == 0 && (!m_options.rpcbind || index == 0);
    const std::uint16_t wanted = isAny || m_options.port != 0 ? m_options.port : m_tcpPort;
    const int tcp = m_server.listenTcp(index, address, wanted);
    if (tcp == 0) {
        problem = who + ": cannot listen on " + addressText(address) +
                  (wanted == 0 ? "" : " port " + std::to_string(wanted)) + ": " + m_server.lastError();
        return false;
    }
    m_tcpPort = m_server.port(tcp);
    int udp = m_server.listenUdp(index, address, m_tcpPort);
    if (udp == 0 && isAny && !m_options.rpcbind)
        udp = m_server.listenUdp(index, address, 0);
    if (udp == 0) {
        problem = who + ": cannot listen on " + addressText(address) + " UDP port " + std::to_string(m_tcpPort) + ": " +
                  m_server.lastError();
        return false;
    }
    m_udpPort = m_server.port(udp);
    unit.mapper.add(InventoryService::program, InventoryService::version, PortMapper::Protocol::Tcp, m_tcpPort);
    unit.mapper.add(DeviceAccessService::program, DeviceAccessService::version, PortMapper::Protocol::Tcp, m_tcpPort);
    unit.mapper.add(DeviceAccessService::program, DeviceAccessService::version, PortMapper::Protocol::Udp, m_udpPort);
    log(who + " at " + addressText(address) + ", TCP port " + std::to_string(m_tcpPort) + ", UDP port " +
        std::to_string(m_udpPort));
    return m_options.portMapper == 0 || listenMapper(index, unit, problem);
}

bool Service::listenMapper(int index, Unit& unit, std::string& problem)
{
    const KvUInt32 address = unit.board->address();
    const int udp = m_server.listenUdp(index, address, m_options.portMapper);
    if (udp == 0 || m_server.listenTcp(index, address, m_options.portMapper) == 0) {
        problem = "board " + std::to_string(unit.board->serialNumber()) + ": cannot listen as port mapper on " +
                  addressText(address) + " port " + std::to_string(m_options.portMapper) + ": " + m_server.lastError();
        return false;
    }
    for (const KvNService::BroadcastInterface& interface : KvNService::broadcastInterfaces()) {
        if (interface.address != address)
            continue;
        if (m_server.listenUdp(index, interface.broadcast, m_options.portMapper, true, udp) != 0)
            m_broadcasts.insert(interface.broadcast);
        else
            log("cannot listen on the broadcast address " + addressText(interface.broadcast) + ": " +
                m_server.lastError());
    }
    return true;
}

bool Service::registerAll(std::string& problem)
{
    m_rpcbind = std::make_unique<KvNService::Rpcbind>();
    std::string ignored;
    // What a service that was killed left registered would make rpcbind refuse.
    m_rpcbind->unset(InventoryService::program, InventoryService::version, ignored);
    m_rpcbind->unset(DeviceAccessService::program, DeviceAccessService::version, ignored);
    const auto tcp = static_cast<KvUInt32>(PortMapper::Protocol::Tcp);
    const auto udp = static_cast<KvUInt32>(PortMapper::Protocol::Udp);
    return m_rpcbind->set({InventoryService::program, InventoryService::version, tcp, m_tcpPort}, problem) &&
           m_rpcbind->set({DeviceAccessService::program, DeviceAccessService::version, tcp, m_tcpPort}, problem) &&
           m_rpcbind->set({DeviceAccessService::program, DeviceAccessService::version, udp, m_udpPort}, problem);
}

void Service::unregisterAll()
{
    const std::unique_ptr<KvNService::Rpcbind> rpcbind = std::move(m_rpcbind);
    std::string problem;
    if (rpcbind && (!rpcbind->unset(InventoryService::program, InventoryService::version, problem) ||
                    !rpcbind->unset(DeviceAccessService::program, DeviceAccessService::version, problem)))
        log(problem);
}

void Service::run(std::function<void()> ready)
{
    everySecond();
    if (m_server.post(std::move(ready)))
        m_server.run();
    unregisterAll();
}

void Service::call(const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply)
{
    if (m_timer == 0)
        everySecond();
    if (m_options.portMapper != 0 && call.localPort == m_options.portMapper)
        return answerMapper(call, std::move(reply));
    Unit& unit = *m_units[static_cast<std::size_t>(call.board)];
    if (call.program == DeviceAccessService::program) {
        if (isVersion(call, DeviceAccessService::version, reply))
            send(call, unit.access.call(callOf(call)), std::move(reply));
    } else if (call.program == InventoryService::program && call.transport == KvNRpc::ServerTransport::Tcp) {
        if (isVersion(call, InventoryService::version, reply))
            send(call, unit.inventory.call(callOf(call)), std::move(reply));
        if (unit.updateTimer == 0)
            advanceUpdate(unit);
    } else {
        reply.programUnavailable();
    }
}

void Service::answerMapper(const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply)
{
    const Unit& unit = *m_units[static_cast<std::size_t>(call.board)];
    const bool isBroadcast = m_broadcasts.count(call.localAddress) != 0;
    if (call.program != PortMapper::program || call.version != PortMapper::version) {
        // Whoever asks everyone wants to hear from those that have what he asks for.
        if (isBroadcast)
            return reply.drop();
        if (call.program != PortMapper::program)
            return reply.programUnavailable();
        return reply.programMismatch(PortMapper::version, PortMapper::version);
    }
    Call mapped = callOf(call);
    mapped.broadcast = isBroadcast;
    Answer answer = unit.mapper.call(mapped);
    if (isBroadcast && answer.kind != Answer::Kind::Success)
        return reply.drop();
    write(answer, reply);
}

void Service::send(const KvNRpc::ServerCall& call, Answer answer, KvNRpc::ReplyWriter reply)
{
    if (!answer.later)
        return send(call.board, call.connection, std::move(answer), std::move(reply));
    const auto writer = std::make_shared<KvNRpc::ReplyWriter>(std::move(reply));
    answer.later->then([this, writer, board = call.board, connection = call.connection](Answer given) {
        send(board, connection, std::move(given), std::move(*writer));
    });
}

void Service::send(int board, KvUInt64 connection, Answer answer, KvNRpc::ReplyWriter reply)
{
    // An answer that comes later may find its connection gone, whose end will not be told again.
    if (answer.accessId != 0 && m_server.isOpen(connection)) {
        m_protected.insert_or_assign(connection, Protection{board, answer.accessId});
        m_server.protect(connection, true);
    }
    if (!answer.slow)
        return write(answer, reply);
    const auto later = std::make_shared<std::pair<Answer, KvNRpc::ReplyWriter>>(std::move(answer), std::move(reply));
    if (m_server.startTimer(slowAnswerMilliseconds, [later] { write(later->first, later->second); }) == 0)
        write(later->first, later->second);
}

void Service::closed(int, KvUInt64 connection)
{
    m_protected.erase(connection);
}

void Service::note(int board, KvUInt32 peerAddress, const char* what)
{
    const Unit& unit = *m_units[static_cast<std::size_t>(board)];
    log("board " + std::to_string(unit.board->serialNumber()) + ": " + addressText(peerAddress) + ": " + shown(what));
}

/** Goes on with a board's update as long as one is running, a little at a time. */
void Service::advanceUpdate(Unit& unit)
{
    const auto pause = static_cast<KvUInt32>(unit.inventory.advanceUpdate().count());
    const auto next = [this, &unit] {
        unit.updateTimer = 0;
        advanceUpdate(unit);
    };
    // When there is no memory for a timer, the next second or call goes on.
    if (pause != 0)
        unit.updateTimer = m_server.startTimer(pause, next);
}

void Service::everySecond()
{
    for (const std::unique_ptr<Unit>& unit : m_units) {
        unit->locks.expire(now());
        if (unit->updateTimer == 0)
            advanceUpdate(*unit);
    }
    std::erase_if(m_protected, [this](const auto& entry) {
        Unit& unit = *m_units[static_cast<std::size_t>(entry.second.board)];
        if (unit.locks.isHeld(now(), entry.second.accessId))
            return false;
        m_server.protect(entry.first, false);
        return true;
    });
    m_timer = m_server.startTimer(tickMilliseconds, [this] { everySecond(); });
}

}  // namespace KvNBoardService
