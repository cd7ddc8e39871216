#include <cstring>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "base/BigEndian.h"
#include "base/Report.h"
#include "tools/kvboardd/DeviceAccessRecords.h"
#include "tools/kvboardd/DeviceAccessService.h"
#include "tools/kvboardd/Log.h"
#include "tools/kvboardd/Wire.h"

namespace KvNBoardService {

namespace {

/** What a call was about, for messages. */
struct Asked
{
    std::string name;
    KvUInt64 offset = 0;
    std::size_t bytes = 0;
    std::size_t limit = 0;  ///< that the board has for it
    KvUInt32 crc32 = 0;
};

std::string remoteName(const char* directory, const char* fileName)
{
    return shown(std::string(directory) + "/" + fileName);
}

KvdaStatus statusOf(Files::Outcome outcome)
{
    switch (outcome) {
        case Files::Outcome::Done:
            return KVDA_OK;
        case Files::Outcome::BadName:
            return KVDA_BAD_NAME;
        case Files::Outcome::NotFound:
            return KVDA_NOT_FOUND;
        case Files::Outcome::Busy:
            return KVDA_BUSY;
        case Files::Outcome::TooMany:
            return KVDA_LIMIT;
        case Files::Outcome::NoSpace:
            return KVDA_NO_SPACE;
        case Files::Outcome::NoTransfer:
            return KVDA_NO_TRANSFER;
        case Files::Outcome::OutOfOrder:
        case Files::Outcome::OtherData:
            return KVDA_OUT_OF_ORDER;
        case Files::Outcome::ChunkTooLarge:
            return KVDA_BAD_ARGUMENT;
        case Files::Outcome::TooMuchData:
        case Files::Outcome::Incomplete:
        case Files::Outcome::OtherChecksum:
            return KVDA_CORRUPT;
        case Files::Outcome::NoRandom:
        case Files::Outcome::Io:
            return KVDA_IO;
    }
    return KVDA_IO;
}

/** Reports why a call about files was refused or failed. */
void report(KvCErrorListPool& errors, const Transfers::Result& result, const Asked& asked, const char* origin)
{
    switch (result.outcome) {
        case Files::Outcome::Done:
            return;
        case Files::Outcome::BadName:
            KV_REPORT(errors, BoardBadFileName, origin, asked.name);
            return;
        case Files::Outcome::NotFound:
            KV_REPORT(errors, BoardNoFile, origin, asked.name);
            return;
        case Files::Outcome::Busy:
            KV_REPORT(errors, BoardFileBusy, origin, asked.name);
            return;
        case Files::Outcome::TooMany:
            KV_REPORT(errors, BoardTooManyFiles, origin, asked.limit);
            return;
        case Files::Outcome::NoSpace:
            KV_REPORT(errors, BoardNoSpace, origin, std::to_string(result.size), result.problem);
            return;
        case Files::Outcome::NoTransfer:
            KV_REPORT(errors, BoardNoTransfer, origin, result.transferId);
            return;
        case Files::Outcome::OutOfOrder:
            KV_REPORT(errors, BoardOutOfOrder, origin, std::to_string(asked.offset), std::to_string(result.received));
            return;
        case Files::Outcome::OtherData:
            KV_REPORT(errors, BoardOtherData, origin, std::to_string(asked.offset));
            return;
        case Files::Outcome::ChunkTooLarge:
            KV_REPORT(errors, BoardChunkTooLarge, origin, asked.bytes, asked.limit);
            return;
        case Files::Outcome::TooMuchData:
            KV_REPORT(errors, BoardTooMuchData, origin, std::to_string(result.size));
            return;
        case Files::Outcome::Incomplete:
            KV_REPORT(errors, BoardFileIncomplete, origin, std::to_string(result.size),
                      std::to_string(result.received));
            return;
        case Files::Outcome::OtherChecksum:
            KV_REPORT(errors, BoardFileChecksum, origin, result.crc32, asked.crc32);
            return;
        case Files::Outcome::NoRandom:
            KV_REPORT(errors, BoardNoFileName, origin);
            return;
        case Files::Outcome::Io:
            KV_REPORT(errors, BoardFileTrouble, origin, result.problem);
            return;
    }
}

/** The answer, if it has been given already, or the promise of it. */
Answer nowOrLater(std::shared_ptr<Later> later)
{
    if (later->isGiven())
        return later->take();
    Answer answer;
    answer.later = std::move(later);
    return answer;
}

Answer plainAnswer(KvdaStatus status, const KvCErrorListPool& errors)
{
    ErrorBlock block(errors, KVDA_MAX_ERRORS);
    KvdaResult record{status, {block.size(), block.data()}};
    return encoded(xdr_KvdaResult, record, fieldRoom + roomFor(block.size()));
}

Answer transferAnswer(KvdaStatus status, KvUInt32 transferId, const KvCErrorListPool& errors)
{
    ErrorBlock block(errors, KVDA_MAX_ERRORS);
    KvdaTransfer record{status, transferId, {block.size(), block.data()}};
    return encoded(xdr_KvdaTransfer, record, fieldRoom + roomFor(block.size()));
}

Answer receivedAnswer(KvdaStatus status, KvUInt64 received, const KvCErrorListPool& errors)
{
    ErrorBlock block(errors, KVDA_MAX_ERRORS);
    KvdaReceived record{status, received, {block.size(), block.data()}};
    return encoded(xdr_KvdaReceived, record, fieldRoom + roomFor(block.size()));
}

/** The status of a caller who may not change the board. */
KvdaStatus refusalOf(const Authority& authority)
{
    return authority.outcome == LockTable::Outcome::Granted ? KVDA_BAD_ACCESS : statusOf(authority.outcome);
}

/** The file name of a record whose texts begin behind its access id; "", which no file has, when a zero byte in one of
    them would hide what stands behind it. `arguments` have been decoded. */
template <class Named>
const char* fileNameOf(std::span<const unsigned char> arguments, const Named& record)
{
    const auto lengthAt = [&](std::size_t place) { return KvNBigEndian::load<KvUInt32>(arguments.data() + place); };
    const std::size_t directoryLength = lengthAt(4);
    const bool isWhole = std::strlen(record.directory) == directoryLength &&
                         std::strlen(record.fileName) == lengthAt(8 + (directoryLength + 3) / 4 * 4);
    return isWhole ? record.fileName : "";
}

/** The bytes of a file on their way, of which only the place among the arguments is noted: a copy of each would cost
    more than writing it. Otherwise as KvdaPutData. */
struct PutData
{
    u_int accessId;
    u_int transferId;
    u_quad_t offset;
    u_int place;
    u_int bytes;
};

bool_t xdr_PutData(XDR* stream, PutData* record)
{
    if (stream->x_op != XDR_DECODE)
        return stream->x_op == XDR_FREE;
    if (!xdr_u_int(stream, &record->accessId) || !xdr_u_int(stream, &record->transferId) ||
        !xdr_u_quad_t(stream, &record->offset) || !xdr_u_int(stream, &record->bytes) || record->bytes > KVDA_MAX_CHUNK)
        return FALSE;
    record->place = xdr_getpos(stream);
    return xdr_setpos(stream, record->place + RNDUP(record->bytes));
}

}  // namespace

/** Who calls, and what that says of the answer. */
struct DeviceAccessService::Caller
{
    Answer answered(Answer answer) const
    {
        answer.accessId = authority.outcome == LockTable::Outcome::Granted ? accessId : 0;
        answer.slow = authority.slow;
        return answer;
    }

    Authority authority;
    KvUInt32 accessId = 0;
};

/**
 * A procedure that changes files, and so needs the access id of a lock of level 2: `serve(errors, arguments, caller)`
 * does it and answers, `refuse(status, errors)` answers a caller without that lock.
 */
template <class Arguments, bool_t (*routine)(XDR*, Arguments*), class Refuse, class Serve>
Answer DeviceAccessService::withLock(const Call& call, const Refuse& refuse, const Serve& serve)
{
    Record<Arguments, routine> arguments;
    if (!arguments.decode(call.arguments))
        return Answer::of(Answer::Kind::GarbageArguments);
    KvCErrorListPool errors;
    const KvUInt32 accessId = arguments->accessId;
    const Caller caller{checkModify(errors, call, accessId, m_locks, m_clock(), m_board.serialNumber()), accessId};
    if (!caller.authority.mayModify)
        return caller.answered(refuse(refusalOf(caller.authority), errors));
    return serve(errors, *arguments, caller);
}

void DeviceAccessService::logFile(const char* what, const std::string& name, KvUInt32 peer) const
{
    log("board " + std::to_string(m_board.serialNumber()) + ": file " + name + " " + what + " from " +
        addressText(peer));
}

Answer DeviceAccessService::putBegin(const Call& call)
{
    const auto refuse = [](KvdaStatus status, const KvCErrorListPool& errors) {
        return transferAnswer(status, 0, errors);
    };
    return withLock<KvdaPutBegin, xdr_KvdaPutBegin>(
        call, refuse, [&](KvCErrorListPool& errors, const KvdaPutBegin& arguments, const Caller& caller) {
            const char* const fileName = fileNameOf(call.arguments, arguments);
            Asked asked;
            asked.name = remoteName(arguments.directory, fileName);
            asked.limit = m_files.limits().files;
            const Transfers::Result result =
                m_transfers.begin(caller.accessId, arguments.directory, fileName, arguments.size);
            report(errors, result, asked, "DeviceAccessService::putBegin");
            if (result.outcome == Files::Outcome::Done)
                logFile("is being put", asked.name, call.peer);
            return caller.answered(transferAnswer(statusOf(result.outcome), result.transferId, errors));
        });
}

Answer DeviceAccessService::putData(const Call& call)
{
    const auto refuse = [](KvdaStatus status, const KvCErrorListPool& errors) {
        return receivedAnswer(status, 0, errors);
    };
    return withLock<PutData, xdr_PutData>(
        call, refuse, [&](KvCErrorListPool&, const PutData& arguments, const Caller& caller) {
            Asked asked;
            asked.offset = arguments.offset;
            asked.bytes = arguments.bytes;
            asked.limit = m_transfers.limits().chunkBytes;
            const auto later = std::make_shared<Later>();
            m_transfers.put(
                caller.accessId, arguments.transferId, asked.offset,
                call.arguments.subspan(arguments.place, asked.bytes),
                [later, asked, caller](const Transfers::Result& result) {
                    KvCErrorListPool reasons;
                    report(reasons, result, asked, "DeviceAccessService::putData");
                    later->give(caller.answered(receivedAnswer(statusOf(result.outcome), result.received, reasons)));
                });
            return nowOrLater(later);
        });
}

Answer DeviceAccessService::putEnd(const Call& call)
{
    return withLock<KvdaPutEnd, xdr_KvdaPutEnd>(
        call, plainAnswer, [&](KvCErrorListPool&, const KvdaPutEnd& arguments, const Caller& caller) {
            Asked asked;
            asked.name = m_transfers.name();
            asked.crc32 = arguments.crc32;
            const auto later = std::make_shared<Later>();
            m_transfers.end(caller.accessId, arguments.transferId, asked.crc32,
                            [this, later, asked, caller, peer = call.peer](const Transfers::Result& result) {
                                KvCErrorListPool reasons;
                                report(reasons, result, asked, "DeviceAccessService::putEnd");
                                logFile(result.outcome == Files::Outcome::Done ? "put" : "not put", asked.name, peer);
                                later->give(caller.answered(plainAnswer(statusOf(result.outcome), reasons)));
                            });
            return nowOrLater(later);
        });
}

Answer DeviceAccessService::putAbort(const Call& call)
{
    return withLock<KvdaPutAbort, xdr_KvdaPutAbort>(
        call, plainAnswer, [&](KvCErrorListPool& errors, const KvdaPutAbort& arguments, const Caller& caller) {
            Asked asked;
            asked.name = m_transfers.name();
            const Transfers::Result result = m_transfers.abort(caller.accessId, arguments.transferId);
            report(errors, result, asked, "DeviceAccessService::putAbort");
            if (result.outcome == Files::Outcome::Done)
                logFile("given up", asked.name, call.peer);
            return caller.answered(plainAnswer(statusOf(result.outcome), errors));
        });
}

Answer DeviceAccessService::deleteFile(const Call& call)
{
    return withLock<KvdaFileName, xdr_KvdaFileName>(
        call, plainAnswer, [&](KvCErrorListPool& errors, const KvdaFileName& arguments, const Caller& caller) {
            const char* const fileName = fileNameOf(call.arguments, arguments);
            Asked asked;
            asked.name = remoteName(arguments.directory, fileName);
            Transfers::Result result;
            std::shared_ptr<KvNService::ReadFile> deleted;
            result.outcome = m_files.remove(arguments.directory, fileName, result.problem, &deleted);
            m_transfers.close(std::move(deleted));
            report(errors, result, asked, "DeviceAccessService::deleteFile");
            if (result.outcome == Files::Outcome::Done)
                logFile("deleted", asked.name, call.peer);
            return caller.answered(plainAnswer(statusOf(result.outcome), errors));
        });
}

Answer DeviceAccessService::listFiles(const Call& call)
{
    if (!call.arguments.empty())
        return Answer::of(Answer::Kind::GarbageArguments);
    KvCErrorListPool errors;
    Transfers::Result result;
    std::vector<Files::Entry> entries;
    KvUInt64 freeBytes = 0;
    result.outcome = m_files.list(entries, freeBytes, result.problem);
    report(errors, result, {}, "DeviceAccessService::listFiles");
    if (entries.size() > KVDA_MAX_FILES)
        entries.resize(KVDA_MAX_FILES);
    std::string directory = Files::directoryName;
    std::vector<KvdaFile> records;
    std::size_t room = fieldRoom;
    for (const Files::Entry& entry : entries) {
        records.push_back({directory.data(), encodable(entry.fileName), entry.size, entry.modified});
        room += fieldRoom + roomFor(directory.size()) + roomFor(entry.fileName.size());
    }
    ErrorBlock block(errors, KVDA_MAX_ERRORS);
    KvdaFileList record{statusOf(result.outcome),
                        {static_cast<u_int>(records.size()), records.data()},
                        freeBytes,
                        {block.size(), block.data()}};
    return encoded(xdr_KvdaFileList, record, room + roomFor(block.size()));
}

}  // namespace KvNBoardService
