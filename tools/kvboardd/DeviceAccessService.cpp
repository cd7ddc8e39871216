#include "tools/kvboardd/DeviceAccessService.h"

#include <cstring>
#include <utility>
#include <vector>

#include "base/Report.h"
#include "tools/kvboardd/DeviceAccessRecords.h"
#include "tools/kvboardd/Log.h"
#include "tools/kvboardd/Wire.h"

namespace KvNBoardService {

namespace {

constexpr std::size_t mostHolders = 64;

LockTable::Level levelOf(int number)
{
    return number == KVDA_OBSERVE  ? LockTable::Level::Observe
           : number == KVDA_MODIFY ? LockTable::Level::Modify
                                   : LockTable::Level::None;
}

}  // namespace

DeviceAccessService::DeviceAccessService(const Board& board, LockTable& locks, Files& files, Transfers& transfers,
                                         Clock clock, const Identity& identity)
    : m_board(board),
      m_locks(locks),
      m_files(files),
      m_transfers(transfers),
      m_clock(std::move(clock)),
      m_identity(identity)
{}

Answer DeviceAccessService::call(const Call& call)
{
    if (call.procedure == NULLPROC)
        return {};
    if (call.procedure == KVDA_IDENTIFY)
        return identify(call);
    if (call.datagram)
        return Answer::of(Answer::Kind::ProcedureUnavailable);
    switch (call.procedure) {
        case KVDA_REQUEST_ACCESS:
            return requestAccess(call);
        case KVDA_KEEP_ACCESS:
            return keepAccess(call);
        case KVDA_RELEASE_ACCESS:
            return releaseAccess(call);
        case KVDA_PUT_BEGIN:
            return putBegin(call);
        case KVDA_PUT_DATA:
            return putData(call);
        case KVDA_PUT_END:
            return putEnd(call);
        case KVDA_PUT_ABORT:
            return putAbort(call);
        case KVDA_DELETE:
            return deleteFile(call);
        case KVDA_ACCESS_STATE:
            return accessState(call);
        case KVDA_LIST_FILES:
            return listFiles(call);
        default:
            return Answer::of(Answer::Kind::ProcedureUnavailable);
    }
}

Answer DeviceAccessService::identify(const Call& call) const
{
    if (!call.arguments.empty())
        return Answer::of(Answer::Kind::GarbageArguments);
    KvdaIdentity record{};
    record.serialNumber = m_board.serialNumber();
    record.boardType = m_board.boardType();
    record.boardName = encodable(m_board.boardName());
    record.systemName = encodable(m_board.systemName());
    record.bootId = m_identity.bootId;
    record.maxChunk = m_identity.maximumChunk;
    return encoded(xdr_KvdaIdentity, record,
                   fieldRoom + roomFor(m_board.boardName().size()) + roomFor(m_board.systemName().size()));
}

Answer DeviceAccessService::requestAccess(const Call& call)
{
    Record<KvdaAccessRequest, xdr_KvdaAccessRequest> arguments;
    if (!arguments.decode(call.arguments))
        return Answer::of(Answer::Kind::GarbageArguments);
    const char* const origin = "DeviceAccessService::requestAccess";
    const int level = transmitted(arguments->level);
    const std::string owner = arguments->owner;
    const LockTable::Answer given =
        m_locks.request(m_clock(), {call.peer, levelOf(level), arguments->accessId, arguments->nonce, owner});
    KvCErrorListPool errors;
    Answer refusal;
    if (given.outcome == LockTable::Outcome::Locked)
        KV_REPORT(errors, BoardLocked, origin, given.owner, addressText(given.ownerHost));
    else if (given.outcome == LockTable::Outcome::BadArgument)
        KV_REPORT(errors, BoardBadLevel, origin, level);
    else if (given.outcome != LockTable::Outcome::Granted)
        refuseAccess(errors, call, given.outcome, arguments->accessId, m_locks.limits(), m_board.serialNumber(),
                     refusal);
    else
        log("board " + std::to_string(m_board.serialNumber()) + ": access level " + std::to_string(level) +
            " given to \"" + shown(owner) + "\" at " + addressText(call.peer));
    ErrorBlock block(errors, KVDA_MAX_ERRORS);
    KvdaAccess record{statusOf(given.outcome),
                      given.accessId,
                      static_cast<u_int>(m_locks.limits().lease.count()),
                      encodable(given.owner),
                      {block.size(), block.data()}};
    Answer answer = encoded(xdr_KvdaAccess, record, fieldRoom + roomFor(given.owner.size()) + roomFor(block.size()));
    answer.accessId = given.accessId;
    answer.slow = refusal.slow;
    return answer;
}

Answer DeviceAccessService::keepAccess(const Call& call)
{
    Record<u_int, xdr_u_int> arguments;
    if (!arguments.decode(call.arguments))
        return Answer::of(Answer::Kind::GarbageArguments);
    Answer answer = plainResult(call, m_locks.keep(m_clock(), call.peer, *arguments), *arguments);
    return answer;
}

Answer DeviceAccessService::releaseAccess(const Call& call)
{
    Record<u_int, xdr_u_int> arguments;
    if (!arguments.decode(call.arguments))
        return Answer::of(Answer::Kind::GarbageArguments);
    const LockTable::Outcome outcome = m_locks.release(m_clock(), call.peer, *arguments);
    if (outcome == LockTable::Outcome::Granted)
        log("board " + std::to_string(m_board.serialNumber()) + ": access released from " + addressText(call.peer));
    Answer answer = plainResult(call, outcome, *arguments);
    answer.accessId = 0;
    return answer;
}

Answer DeviceAccessService::plainResult(const Call& call, LockTable::Outcome outcome, KvUInt32 accessId)
{
    KvCErrorListPool errors;
    Answer refusal;
    if (outcome != LockTable::Outcome::Granted)
        refuseAccess(errors, call, outcome, accessId, m_locks.limits(), m_board.serialNumber(), refusal);
    ErrorBlock block(errors, KVDA_MAX_ERRORS);
    KvdaResult record{statusOf(outcome), {block.size(), block.data()}};
    Answer answer = encoded(xdr_KvdaResult, record, fieldRoom + roomFor(block.size()));
    answer.accessId = outcome == LockTable::Outcome::Granted ? accessId : 0;
    answer.slow = refusal.slow;
    return answer;
}

Answer DeviceAccessService::accessState(const Call& call)
{
    if (!call.arguments.empty())
        return Answer::of(Answer::Kind::GarbageArguments);
    const std::vector<LockTable::Holder> holders = m_locks.holders(m_clock());
    std::vector<KvdaHolder> records;
    std::size_t room = fieldRoom;
    for (const LockTable::Holder& holder : holders) {
        if (records.size() == mostHolders)
            break;
        records.push_back({holder.level == LockTable::Level::Modify ? KVDA_MODIFY : KVDA_OBSERVE,
                           encodable(holder.owner), holder.host, static_cast<u_int>(holder.held.count()),
                           static_cast<u_int>(holder.left.count())});
        room += fieldRoom + roomFor(holder.owner.size());
    }
    KvdaAccessState record{KVDA_OK, {static_cast<u_int>(records.size()), records.data()}, {0, nullptr}};
    return encoded(xdr_KvdaAccessState, record, room);
}

}  // namespace KvNBoardService
