#include "ScriptedBoards.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "FailingAllocation.h"

namespace {

constexpr std::uint16_t PortMapperPort = 20111;
constexpr KvUInt32 IdentifyProcedure = 1;

/** Each process has 255 addresses on loopback of its own. */
KvUInt32 nextAddress()
{
    static std::atomic<KvUInt32> last = 0;
    const auto process = static_cast<KvUInt32>(::getpid());
    return 0x7F400000 | (process & 0x3FFF) << 8 | (++last & 255);
}

void number(std::vector<unsigned char>& bytes, KvUInt32 value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<unsigned char>(value >> shift));
}

void text(std::vector<unsigned char>& bytes, const std::string& value)
{
    number(bytes, static_cast<KvUInt32>(value.size()));
    bytes.insert(bytes.end(), value.begin(), value.end());
    while (bytes.size() % 4 != 0)
        bytes.push_back(0);
}

KvUInt32 numberAt(const unsigned char* bytes)
{
    return static_cast<KvUInt32>(bytes[0]) << 24 | static_cast<KvUInt32>(bytes[1]) << 16 |
           static_cast<KvUInt32>(bytes[2]) << 8 | bytes[3];
}

}  // namespace

ScriptedBoards::Board::Board(KvUInt32 ownAddress, KvUInt32 serial, const char* system)
    : address(ownAddress), serialNumber(serial), systemName(system)
{
    identify(true);
}

void ScriptedBoards::Board::set(KvUInt32 program, KvUInt32 procedure, Kind kind, const Bytes& results)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_behaviours[{program, procedure}] = {kind, results, {}};
}

void ScriptedBoards::Board::answer(KvUInt32 procedure, const Bytes& results)
{
    set(InventoryProgram, procedure, Kind::Answer, results);
}

void ScriptedBoards::Board::answerDeviceAccess(KvUInt32 procedure, const Bytes& results)
{
    set(DeviceAccessProgram, procedure, Kind::Answer, results);
}

void ScriptedBoards::Board::answers(KvUInt32 procedure, const std::vector<Bytes>& results)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_behaviours[{InventoryProgram, procedure}] = {
        results.back().empty() ? Kind::HangUp : Kind::Answer, results.back(), {results.begin(), results.end() - 1}};
}

void ScriptedBoards::Board::stall(KvUInt32 procedure)
{
    set(InventoryProgram, procedure, Kind::Stall, {});
}

void ScriptedBoards::Board::stallDeviceAccess(KvUInt32 procedure)
{
    set(DeviceAccessProgram, procedure, Kind::Stall, {});
}

void ScriptedBoards::Board::hangUp(KvUInt32 procedure)
{
    set(InventoryProgram, procedure, Kind::HangUp, {});
}

void ScriptedBoards::Board::lack(KvUInt32 procedure)
{
    set(InventoryProgram, procedure, Kind::Lack, {});
}

void ScriptedBoards::Board::identify(bool answers)
{
    Bytes identity;
    number(identity, serialNumber);
    number(identity, 6001);
    text(identity, "Board " + std::to_string(serialNumber));
    text(identity, systemName);
    number(identity, 0);
    number(identity, serialNumber);
    number(identity, 65536);
    number(identity, 0);
    text(identity, "");
    set(DeviceAccessProgram, IdentifyProcedure, answers ? Kind::Answer : Kind::Stall, identity);
}

void ScriptedBoards::Board::mapPorts(bool answers)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_mapsPorts = answers;
}

std::vector<ScriptedBoards::Call> ScriptedBoards::Board::calls(KvUInt32 program) const
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::vector<Call> calls;
    for (const Call& call : m_calls)
        if (call.program == program && call.procedure != 0)
            calls.push_back(call);
    return calls;
}

bool ScriptedBoards::Board::waitForCalls(KvUInt32 program, KvUInt32 procedure, std::size_t count) const
{
    std::unique_lock<std::mutex> guard(m_mutex);
    return m_called.wait_for(guard, std::chrono::seconds(30), [&] {
        std::size_t found = 0;
        for (const Call& call : m_calls)
            found += call.program == program && call.procedure == procedure ? 1 : 0;
        return found >= count;
    });
}

std::size_t ScriptedBoards::Board::connections() const
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_connections.size();
}

ScriptedBoards::ScriptedBoards() : m_server(*this)
{
    ::setenv("KVDAL_PORTMAP_PORT", std::to_string(PortMapperPort).c_str(), 1);
}

ScriptedBoards::~ScriptedBoards()
{
    m_server.stop();
    if (m_thread.joinable())
        m_thread.join();
}

ScriptedBoards::Board& ScriptedBoards::add(KvUInt32 serialNumber, const char* systemName)
{
    const int index = static_cast<int>(m_boards.size());
    m_boards.emplace_back(nextAddress(), serialNumber, systemName);
    Board& board = m_boards.back();
    EXPECT_NE(0, m_server.listenTcp(index, board.address, PortMapperPort)) << m_server.lastError();
    EXPECT_NE(0, m_server.listenUdp(index, board.address, PortMapperPort)) << m_server.lastError();
    board.m_inventoryTcp = m_server.listenTcp(index, board.address, 0);
    board.m_accessTcp = m_server.listenTcp(index, board.address, 0);
    board.m_accessUdp = m_server.listenUdp(index, board.address, 0);
    EXPECT_TRUE(board.m_inventoryTcp != 0 && board.m_accessTcp != 0 && board.m_accessUdp != 0);
    return board;
}

void ScriptedBoards::start()
{
    m_thread = std::thread([this] {
        FailingAllocation::spareThisThread();
        m_server.run();
        m_unanswered.clear();
    });
}

KvUInt32 ScriptedBoards::unusedAddress()
{
    ::setenv("KVDAL_PORTMAP_PORT", std::to_string(PortMapperPort).c_str(), 1);
    return nextAddress();
}

std::string ScriptedBoards::quad(KvUInt32 address)
{
    return std::to_string(address >> 24) + "." + std::to_string(address >> 16 & 255) + "." +
           std::to_string(address >> 8 & 255) + "." + std::to_string(address & 255);
}

void ScriptedBoards::answerPortMapper(const Board& board, const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter& reply)
{
    if (call.procedure == 0)
        return reply.success(nullptr, 0);
    if (call.procedure != KvNRpc::portMapperGetPort || call.argumentBytes != 16)
        return reply.procedureUnavailable();
    const KvUInt32 program = numberAt(call.arguments);
    const KvUInt32 protocol = numberAt(call.arguments + 8);
    int listener = 0;
    if (program == InventoryProgram && protocol == KvNRpc::protocolTcp)
        listener = board.m_inventoryTcp;
    else if (program == DeviceAccessProgram)
        listener = protocol == KvNRpc::protocolTcp ? board.m_accessTcp : board.m_accessUdp;
    std::vector<unsigned char> port;
    number(port, listener != 0 ? m_server.port(listener) : 0);
    reply.success(port.data(), port.size());
}

void ScriptedBoards::call(const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply)
{
    Board& board = m_boards[static_cast<std::size_t>(call.board)];
    Board::Behaviour behaviour;
    bool mapsPorts;
    {
        const std::lock_guard<std::mutex> guard(board.m_mutex);
        board.m_calls.push_back(
            {call.program, call.procedure, Bytes(call.arguments, call.arguments + call.argumentBytes)});
        if (call.program == InventoryProgram &&
            (board.m_connections.empty() || board.m_connections.back() != call.connection))
            board.m_connections.push_back(call.connection);
        const auto found = board.m_behaviours.find({call.program, call.procedure});
        if (found != board.m_behaviours.end()) {
            behaviour = found->second;
            if (!behaviour.before.empty()) {
                behaviour.results = behaviour.before.front();
                behaviour.kind = behaviour.results.empty() ? Board::Kind::HangUp : Board::Kind::Answer;
                found->second.before.pop_front();
            }
        }
        mapsPorts = board.m_mapsPorts;
    }
    board.m_called.notify_all();
    if (call.program == PortMapperProgram) {
        if (mapsPorts)
            return answerPortMapper(board, call, reply);
        m_unanswered.push_back(std::move(reply));
        return;
    }
    if (call.procedure == 0)
        return reply.success(nullptr, 0);
    switch (behaviour.kind) {
        case Board::Kind::Answer:
            return reply.success(behaviour.results.data(), behaviour.results.size());
        case Board::Kind::Stall:
            m_unanswered.push_back(std::move(reply));
            return;
        case Board::Kind::HangUp:
            reply.drop();
            return m_server.close(call.connection);
        case Board::Kind::Lack:
            return reply.procedureUnavailable();
    }
}
