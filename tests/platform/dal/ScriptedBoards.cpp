#include "tests/platform/dal/ScriptedBoards.h"

#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "platform/dal/DeviceAccessRecords.h"
#include "tests/support/FailingAllocation.h"

using namespace KvNDeviceAccess;
using KvNRpc::ReplyWriter;
using KvNRpc::ServerCall;
using KvNRpc::ServerTransport;

namespace {

template <class Record>
void succeed(ReplyWriter& reply, KvNXdr::bool_t (*routine)(KvNXdr::XDR*, Record*), Record& record)
{
    std::vector<char> bytes(70000);
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, bytes.data(), bytes.size(), KvNXdr::XDR_ENCODE);
    if (!routine(&xdrs, &record))
        reply.systemError();
    else
        reply.success(bytes.data(), KvNXdr::xdrmem_used(&xdrs));
}

template <class Record>
bool decode(const ServerCall& call, KvNXdr::bool_t (*routine)(KvNXdr::XDR*, Record*), Record& record)
{
    KvNXdr::XDR xdrs;
    auto* bytes = const_cast<char*>(reinterpret_cast<const char*>(call.arguments));
    KvNXdr::xdrmem_create(&xdrs, bytes, call.argumentBytes, KvNXdr::XDR_DECODE);
    return routine(&xdrs, &record) && KvNXdr::xdrmem_left(&xdrs) == 0;
}

/* Strings of replies are only read. */
char* wireText(const std::string& text)
{
    return const_cast<char*>(text.c_str());
}

KvdaBytes wireBytes(std::vector<unsigned char>& bytes)
{
    return {reinterpret_cast<char*>(bytes.data()), static_cast<KvUInt32>(bytes.size())};
}

/* One port for the process's port mappers; not those of other programs that run these tests at the same time. */
std::uint16_t chosenPort = 0;

}  // namespace

ScriptedBoard boardAt(KvUInt32 address, KvUInt32 serialNumber)
{
    ScriptedBoard board;
    board.address = address;
    board.serialNumber = serialNumber;
    return board;
}

ScriptedRack::ScriptedRack(std::vector<ScriptedBoard> boards) : m_boards(std::move(boards))
{
    std::string problem;
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (chosenPort == 0)
            chosenPort = static_cast<std::uint16_t>(20000 + (getpid() * 101L + attempt * 7L) % 10000);
        setenv("KVDAL_PORTMAP_PORT", std::to_string(chosenPort).c_str(), 1);
        m_server = std::make_unique<KvNRpc::RpcServer>(*this);
        try {
            for (std::size_t i = 0; i < m_boards.size(); ++i)
                listen(static_cast<int>(i));
            m_thread = std::thread([this] {
                FailingAllocation::spareThisThread();
                m_server->run();
            });
            return;
        } catch (const std::runtime_error& error) {
            problem = error.what();
            chosenPort = 0;
        }
    }
    throw std::runtime_error("no port for the scripted boards: " + problem);
}

ScriptedRack::~ScriptedRack()
{
    m_server->stop();
    m_thread.join();
}

void ScriptedRack::listen(int i)
{
    ScriptedBoard& board = m_boards[static_cast<std::size_t>(i)];
    const auto check = [this](int listener) {
        if (listener == 0)
            throw std::runtime_error(m_server->lastError());
        return listener;
    };
    board.udpPort = m_server->port(check(m_server->listenUdp(i, board.address, 0)));
    board.tcpPort = m_server->port(check(m_server->listenTcp(i, board.address, 0)));
    int mapper = 0;
    if (board.mapsByUdp)
        mapper = check(m_server->listenUdp(i, board.address, chosenPort));
    if (board.mapsByTcp)
        check(m_server->listenTcp(i, board.address, chosenPort));
    if (board.broadcast != 0)
        check(m_server->listenUdp(i, board.broadcast, chosenPort, true, mapper));
}

void ScriptedRack::with(std::size_t i, const std::function<void(ScriptedBoard&)>& change)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    change(m_boards[i]);
}

ScriptedBoard ScriptedRack::look(std::size_t i)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_boards[i];
}

bool ScriptedRack::waitUntil(std::size_t i, const std::function<bool(const ScriptedBoard&)>& wanted)
{
    for (int round = 0; round < 1000; ++round) {
        if (wanted(look(i)))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

void ScriptedRack::call(const ServerCall& call, ReplyWriter reply)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    ScriptedBoard& board = m_boards[static_cast<std::size_t>(call.board)];
    if (call.program == KvNRpc::portMapperProgram)
        return mapPort(call, std::move(reply), board);
    if (board.silent)
        return reply.drop();
    if (call.program != deviceAccessProgram || board.refuses)
        return reply.programUnavailable();
    if (const ScriptedFault* fault = board.files.note(call.procedure, call.arguments, call.argumentBytes))
        return meet(*fault, call, std::move(reply), board);
    const std::vector<unsigned char> answer = board.files.serve(call.procedure, call.arguments, call.argumentBytes);
    if (!answer.empty()) {
        reply.success(answer.data(), answer.size());
        while (!m_late.empty()) {
            m_late.back().first.success(m_late.back().second.data(), m_late.back().second.size());
            m_late.pop_back();
        }
        return;
    }
    switch (call.procedure) {
        case Identify:
            return identify(std::move(reply), board);
        case RequestAccess:
            return requestAccess(call, std::move(reply), board);
        case KeepAccess:
        case ReleaseAccess:
            return keepOrRelease(call, std::move(reply), board);
        case AccessState:
            return accessState(std::move(reply), board);
        default:
            return reply.procedureUnavailable();
    }
}

void ScriptedRack::meet(const ScriptedFault& fault, const ServerCall& call, ReplyWriter reply, ScriptedBoard& board)
{
    if (fault.kind == ScriptedFault::Kind::Answer)
        return reply.success(fault.answer.data(), fault.answer.size());
    if (fault.kind == ScriptedFault::Kind::Late) {
        m_late.emplace_back(std::move(reply), board.files.serve(call.procedure, call.arguments, call.argumentBytes));
        return;
    }
    if (fault.kind == ScriptedFault::Kind::LoseReply)
        board.files.serve(call.procedure, call.arguments, call.argumentBytes);
    reply.drop();
    if (fault.kind != ScriptedFault::Kind::Silence)
        m_server->close(call.connection);
}

void ScriptedRack::mapPort(const ServerCall& call, ReplyWriter reply, ScriptedBoard& board)
{
    const bool byUdp = call.transport == ServerTransport::Udp;
    ++(byUdp ? board.datagrams : board.streams);
    if (byUdp && board.datagramsLost > 0) {
        --board.datagramsLost;
        return reply.drop();
    }
    KvNRpc::PortMapping mapping;
    if (!decode(call, KvNRpc::xdr_portMapping, mapping))
        return reply.garbageArguments();
    if (!board.portReply.empty())
        return reply.success(board.portReply.data(), board.portReply.size());
    KvUInt32 port = 0;
    if (mapping.program == deviceAccessProgram && mapping.version == deviceAccessVersion)
        port = mapping.protocol == KvNRpc::protocolUdp ? board.udpPort : board.tcpPort;
    succeed(reply, KvNXdr::xdr_u_int, port);
}

void ScriptedRack::identify(ReplyWriter reply, ScriptedBoard& board)
{
    ++board.identified;
    if (!board.identityReply.empty())
        return reply.success(board.identityReply.data(), board.identityReply.size());
    KvdaIdentity identity;
    identity.serialNumber = board.serialNumber;
    identity.boardType = board.boardType;
    identity.boardName = wireText(board.boardName);
    identity.systemName = wireText(board.systemName);
    identity.bootId = 1;
    identity.maxChunk = board.maxChunk;
    succeed(reply, xdr_KvdaIdentity, identity);
}

void ScriptedRack::requestAccess(const ServerCall& call, ReplyWriter reply, ScriptedBoard& board)
{
    Decoded<KvdaAccessRequest, xdr_KvdaAccessRequest> request;
    if (!request.from(call.arguments, call.argumentBytes))
        return reply.garbageArguments();
    ++board.requested;
    if (!board.accessReply.empty())
        return reply.success(board.accessReply.data(), board.accessReply.size());
    const bool repeated = !board.nonces.empty() && board.nonces.back() == request.nonce;
    board.nonces.push_back(request.nonce);
    board.owner = request.owner;
    KvdaAccess access;
    access.owner = wireText(board.otherHolder);
    access.errorList = wireBytes(board.errorList);
    if (board.refusal != 0) {
        access.status = static_cast<KvInt32>(board.refusal);
    } else if (!board.otherHolder.empty()) {
        access.status = 1;
    } else if (request.accessId != 0 && (board.forgetful || request.accessId != board.accessId)) {
        access.status = 2;
    } else {
        if (request.accessId == 0 && !repeated)
            board.accessId = 1000 * board.serialNumber + ++board.granted;
        board.level = request.level;
        board.leaseEnd = std::chrono::steady_clock::now() + std::chrono::seconds(board.leaseSeconds);
        access.accessId = board.accessId;
        access.leaseSeconds = board.leaseSeconds;
    }
    if (board.repliesLost > 0) {
        --board.repliesLost;
        reply.drop();
        m_server->close(call.connection);
        return;
    }
    succeed(reply, xdr_KvdaAccess, access);
}

void ScriptedRack::accessState(ReplyWriter reply, ScriptedBoard& board)
{
    std::vector<KvdaHolder> holders;
    for (const std::string& owner : board.holders)
        holders.push_back({1, wireText(owner), ip(10, 0, 0, 9), 5, 15});
    KvdaAccessState state;
    state.status = static_cast<KvInt32>(board.refusal);
    state.holders = holders.data();
    state.holderCount = static_cast<KvUInt32>(holders.size());
    state.errorList = wireBytes(board.errorList);
    succeed(reply, xdr_KvdaAccessState, state);
}

void ScriptedRack::keepOrRelease(const ServerCall& call, ReplyWriter reply, ScriptedBoard& board)
{
    KvUInt32 accessId = 0;
    if (!decode(call, KvNXdr::xdr_u_int, accessId))
        return reply.garbageArguments();
    const bool keeping = call.procedure == KeepAccess;
    if (keeping && board.keepSilent)
        return reply.drop();
    KvdaResult result;
    result.errorList = wireBytes(board.errorList);
    const auto now = std::chrono::steady_clock::now();
    if (board.refusal != 0) {
        result.status = static_cast<KvInt32>(board.refusal);
    } else if (board.forgetful || accessId != board.accessId || now >= board.leaseEnd) {
        result.status = 2;
    } else if (keeping) {
        ++board.kept;
        board.leaseEnd = now + std::chrono::seconds(board.leaseSeconds);
    } else {
        ++board.released;
        board.accessId = 0;
    }
    if (!keeping && board.repliesLost > 0) {
        --board.repliesLost;
        reply.drop();
        m_server->close(call.connection);
        return;
    }
    succeed(reply, xdr_KvdaResult, result);
}
