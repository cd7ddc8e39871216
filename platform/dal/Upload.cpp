#include "platform/dal/Upload.h"

#include <algorithm>

#include "base/Crc32.h"
#include "base/Report.h"
#include "platform/dal/BoardCall.h"
#include "platform/dal/Entries.h"
#include "platform/oncrpc/KvCRpcClient.h"
#include "platform/oncrpc/RpcChannel.h"

namespace KvNDeviceAccess {

namespace {

/* A board may have to wait for its disk, most of all when the file is complete. */
constexpr KvUInt32 callMicroseconds = 20000000;
/* For dropping the transfer: of a board that has just answered, and of one that does not. */
constexpr KvUInt32 withdrawMicroseconds = 5000000;
constexpr KvUInt32 hopelessMicroseconds = 1000000;
/* How often a board may have the transfer go on before the end of what it was just sent. */
constexpr unsigned mostReturns = 16;

constexpr KvInt32 outOfOrder = BoardOutOfOrder - BoardRefused;

}  // namespace

unsigned int thousandths(KvUInt64 done, KvUInt64 size)
{
    constexpr KvUInt64 whole = 1000;
    constexpr KvUInt64 last = 999;
    if (done >= size)
        return last;
    const bool fits = done <= ~KvUInt64{0} / whole;
    return static_cast<unsigned int>(std::min(fits ? done * whole / size : done / (size / whole), last));
}

Upload::Upload(KvCErrorListPool& errors, const char* origin, Board& board, KvUInt32 accessId,
               KvUInt32 cancelCount) noexcept
    : m_errors(errors), m_origin(origin), m_board(board), m_accessId(accessId), m_cancelCount(cancelCount)
{}

Upload::~Upload() = default;

KvInt32 Upload::run(const wchar_t* localPath, const char* directory, const char* fileName, Progress progress,
                    void* context)
{
    // encoding only reads
    m_name = {m_accessId, const_cast<char*>(directory), const_cast<char*>(fileName)};
    KvInt32 result = openLocal(localPath);
    if (result == Ok)
        result = prepare();
    if (result == Ok)
        result = begin();
    if (result != Ok)
        return result;
    result = guarded(m_errors, m_origin, [&] {
        const KvInt32 sent = sendAll(progress, context);
        return sent == Ok ? finish() : sent;
    });
    if (result != Ok)
        withdraw(result);
    else if (progress != nullptr)
        progress(1000, context);
    return result;
}

KvInt32 Upload::openLocal(const wchar_t* localPath)
{
    toUtf8(localPath, m_localName);
    return m_file.open(localPath) ? static_cast<KvInt32>(Ok) : reportLocalFailure();
}

/* The connection, and what the board takes at a time. */
KvInt32 Upload::prepare()
{
    m_client = makeClient(m_errors, m_board, callMicroseconds);
    if (m_client == nullptr)
        return reportConnectionFailed(m_errors, m_origin, m_board);
    DecodedIdentity identity;
    BoardCall identify{Identify, KvNXdr::xdr_void, nullptr, DecodedIdentity::routine,
                       static_cast<KvdaIdentity*>(&identity)};
    const KvInt32 result = call(identify);
    if (result != Ok)
        return result;
    passOn(identity.errorList, false);
    // another board may have got the address
    if (identity.maxChunk == 0 || identity.serialNumber != m_board.serialNumber())
        return reportInvalidReply(m_errors, m_origin, m_board);
    const KvUInt64 most = std::min(identity.maxChunk, mostChunk);
    m_chunk.resize(static_cast<std::size_t>(std::min(most, m_file.size())));
    return Ok;
}

KvInt32 Upload::begin()
{
    KvdaPutBegin wanted;
    wanted.accessId = m_accessId;
    wanted.directory = m_name.directory;
    wanted.fileName = m_name.fileName;
    wanted.size = m_file.size();
    DecodedTransfer transfer;
    BoardCall putBegin{PutBegin, KvNXdr::proc<xdr_KvdaPutBegin>, &wanted, DecodedTransfer::routine,
                       static_cast<KvdaTransfer*>(&transfer)};
    const KvInt32 result = call(putBegin);
    if (result != Ok)
        return result;
    passOn(transfer.errorList, transfer.status != 0);
    m_transferId = transfer.transferId;
    return transfer.status == 0 ? static_cast<KvInt32>(Ok)
                                : reportRefusal(m_errors, m_origin, m_board, transfer.status, nullptr);
}

KvInt32 Upload::sendAll(Progress progress, void* context)
{
    const KvUInt64 size = m_file.size();
    unsigned int told = 0;
    for (KvUInt64 position = 0; position < size;) {
        const auto bytes = static_cast<KvUInt32>(std::min<KvUInt64>(m_chunk.size(), size - position));
        KvInt32 result = readChunk(position, bytes);
        if (result == Ok)
            result = sendChunk(position, bytes);
        if (result != Ok)
            return result;
        told = std::max(told, thousandths(position, size));
        if (progress != nullptr && position < size)
            progress(told, context);
    }
    bool same = false;
    if (!m_file.unchanged(same))
        return reportLocalFailure();
    return same ? static_cast<KvInt32>(Ok) : reportChanged();
}

KvInt32 Upload::readChunk(KvUInt64 position, KvUInt32 bytes)
{
    std::size_t count = 0;
    if (!m_file.read(position, m_chunk.data(), bytes, count))
        return reportLocalFailure();
    if (count != bytes)
        return reportChanged();
    const KvUInt64 end = position + bytes;
    if (end > m_summed) {
        const auto known = static_cast<std::size_t>(m_summed - position);
        m_checksum = KvNCrc32::crc32(m_checksum, m_chunk.data() + known, bytes - known);
        m_summed = end;
    }
    return Ok;
}

KvInt32 Upload::sendChunk(KvUInt64& position, KvUInt32 bytes)
{
    KvdaPutData data;
    data.accessId = m_accessId;
    data.transferId = m_transferId;
    data.offset = position;
    data.data = {m_chunk.data(), bytes};
    DecodedReceived reply;
    BoardCall putData{PutData, KvNXdr::proc<xdr_KvdaPutData>, &data, DecodedReceived::routine,
                      static_cast<KvdaReceived*>(&reply)};
    const KvInt32 result = call(putData);
    if (result != Ok)
        return result;
    const KvUInt64 end = position + bytes;
    const bool goesElsewhere = reply.status == outOfOrder && (reply.received >= end || ++m_returns <= mostReturns);
    // what the board says of a disorder that is set right here is no failure of the transfer
    if (!goesElsewhere)
        passOn(reply.errorList, reply.status != 0);
    if (reply.status != 0 && !goesElsewhere)
        return reportRefusal(m_errors, m_origin, m_board, reply.status, nullptr);
    return goOn(reply, putData.repeated, position, end);
}

/* Where the reply to the bytes from `position` to `end` says that the transfer goes on. */
KvInt32 Upload::goOn(const KvdaReceived& reply, bool repeated, KvUInt64& position, KvUInt64 end)
{
    const bool taken = reply.status == 0;
    // of a request that was repeated the board may have served both, and refused the second
    const KvUInt64 most = taken || repeated ? std::max(m_sent, end) : m_sent;
    m_sent = std::max(m_sent, end);
    const bool sensible = taken ? reply.received >= end : reply.received != position;
    if (!sensible || reply.received > most)
        return reportInvalidReply(m_errors, m_origin, m_board);
    position = reply.received;
    return Ok;
}

KvInt32 Upload::finish()
{
    KvdaPutEnd whole{m_accessId, m_transferId, m_checksum};
    DecodedResult reply;
    BoardCall putEnd{PutEnd, KvNXdr::proc<xdr_KvdaPutEnd>, &whole, DecodedResult::routine,
                     static_cast<KvdaResult*>(&reply)};
    m_endUnknown = true;
    const KvInt32 result = call(putEnd);
    if (result != Ok)
        return result;
    // of a request that was repeated the first may have been served
    m_endUnknown = putEnd.repeated && reply.status != 0;
    passOn(reply.errorList, reply.status != 0);
    return reply.status == 0 ? static_cast<KvInt32>(Ok)
                             : reportRefusal(m_errors, m_origin, m_board, reply.status, nullptr);
}

/* Has the board drop what it has received. The first failure is the one to be told: this one's are not. A board that
   does not answer is not waited for a second time. */
void Upload::withdraw(KvInt32 reason)
{
    bool hopeless = reason == ConnectionFailed;
    const auto ask = [&](KvUInt32 procedure, KvNXdr::xdrproc_t encoder, void* arguments) {
        const KvUInt32 time = hopeless ? hopelessMicroseconds : withdrawMicroseconds;
        KvCErrorListPool unused;
        m_client->setParameter(unused, KvCRpcClient::CallTimeout, time);
        m_client->setParameter(unused, KvCRpcClient::ConnectTimeout, time);
        const auto once = [&] {
            DecodedResult reply;
            return m_client->clntCall(unused, procedure, encoder, arguments, DecodedResult::routine,
                                      static_cast<KvdaResult*>(&reply));
        };
        long outcome = once();
        if (outcome == KvCRpcClient::ConnectionLost && !hopeless)
            outcome = once();
        hopeless = hopeless || outcome != KvCRpcClient::Success;
    };
    KvdaPutAbort abort{m_accessId, m_transferId};
    ask(PutAbort, KvNXdr::proc<xdr_KvdaPutAbort>, &abort);
    if (m_endUnknown)
        ask(Delete, KvNXdr::proc<xdr_KvdaFileName>, &m_name);
}

KvInt32 Upload::call(BoardCall& call)
{
    long outcome = KvCRpcClient::Cancelled;
    // cancelling ends calls in progress; between two of them it has to be looked for
    if (KvNRpc::cancelCount() == m_cancelCount)
        outcome = callClient(m_errors, *m_client, call);
    if (outcome == KvCRpcClient::Success)
        return Ok;
    if (outcome != KvCRpcClient::Cancelled)
        return reportConnectionFailed(m_errors, m_origin, m_board);
    KV_REPORT(m_errors, DalTransferCancelled, m_origin, m_board.address());
    return TransferCancelled;
}

/* A transfer has any number of replies: of those that say no failure, only as much is passed on as one can hold. */
void Upload::passOn(const KvdaBytes& errorList, bool always)
{
    if (!always && errorList.size > mostErrors - m_errorBytes)
        return;
    m_errorBytes = std::min(mostErrors, m_errorBytes + errorList.size);
    appendErrors(m_errors, errorList);
}

KvInt32 Upload::reportLocalFailure()
{
    KV_REPORT(m_errors, DalLocalFileFailed, m_origin, m_localName, m_file.problem());
    return LocalFileFailed;
}

KvInt32 Upload::reportChanged()
{
    KV_REPORT(m_errors, DalLocalFileChanged, m_origin, m_localName);
    return LocalFileChanged;
}

}  // namespace KvNDeviceAccess
