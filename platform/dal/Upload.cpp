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

/* What a PutData has in front of its bytes, and the padding behind them. */
constexpr std::size_t putDataHead = 20;
constexpr std::size_t mostPadding = 3;
/* A board that takes less at a time has little room, and gets one chunk after the other. */
constexpr KvUInt32 roomyChunk = 65536;

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
    // the replies to the chunks on their way are together no larger than one may be elsewhere
    constexpr std::size_t largestReply = KvNRpc::ChannelSettings{}.largestReply / mostAhead;
    m_client->setParameter(m_errors, KvCRpcClient::LargestReply, static_cast<KvUInt32>(largestReply));
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
    m_chunkBytes = static_cast<KvUInt32>(std::min(most, m_file.size()));
    m_ahead = m_chunkBytes < roomyChunk ? 1 : mostAhead;
    if (!m_chunks[0].call.reserve(putDataHead + m_chunkBytes + mostPadding))
        throw std::bad_alloc();
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
    for (KvUInt64 position = 0; position < size || m_onTheirWay != 0;) {
        sendAhead(position);
        const KvInt32 result = m_onTheirWay != 0 ? takeAnswer(position) : sendAlone(position);
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

/* Makes room for the chunk of the file's bytes from `position` on; false when memory is out. */
bool Upload::prepareChunk(Chunk& chunk, KvUInt64 position) noexcept
{
    chunk.start = position;
    chunk.end = position + std::min<KvUInt64>(m_chunkBytes, m_file.size() - position);
    chunk.before = m_sent;
    chunk.ahead = m_onTheirWay != 0;
    return chunk.call.reserve(putDataHead + m_chunkBytes + mostPadding);
}

/* Reads a chunk to where it is sent from. */
Upload::Reading Upload::readChunk(Chunk& chunk)
{
    const auto bytes = static_cast<std::size_t>(chunk.end - chunk.start);
    char* const place = chunk.call.arguments() + putDataHead;
    std::size_t count = 0;
    if (!m_file.read(chunk.start, place, bytes, count))
        return Reading::Failed;
    if (count != bytes)
        return Reading::Changed;
    if (chunk.end > m_summed) {
        const auto known = static_cast<std::size_t>(m_summed - chunk.start);
        m_checksum = KvNCrc32::crc32(m_checksum, place + known, bytes - known);
        m_summed = chunk.end;
    }
    return Reading::Done;
}

KvdaPutData Upload::putData(const Chunk& chunk) const
{
    KvdaPutData data;
    data.accessId = m_accessId;
    data.transferId = m_transferId;
    data.offset = chunk.start;
    data.data = {chunk.call.arguments() + putDataHead, static_cast<KvUInt32>(chunk.end - chunk.start)};
    return data;
}

/* Sends as many chunks as may be on their way; the next one is at `position` when none is. What cannot be read or sent
   now is told when it is this chunk's turn, behind the answers to those before it. */
void Upload::sendAhead(KvUInt64 position)
{
    if (m_onTheirWay == 0)
        m_oldest = 0;
    else
        position = m_sent;
    while (m_ahead > 1 && m_onTheirWay < m_ahead && position < m_file.size() && !isCancelled()) {
        Chunk& chunk = m_chunks[(m_oldest + m_onTheirWay) % mostAhead];
        if (!prepareChunk(chunk, position) || readChunk(chunk) != Reading::Done)
            return;
        KvdaPutData data = putData(chunk);
        if (!m_client->sendCall(chunk.call, PutData, KvNXdr::proc<xdr_KvdaPutData>, &data))
            return;
        ++m_onTheirWay;
        position = m_sent = chunk.end;
    }
}

/* Forgets the chunks that are on their way. What the board makes of them does not matter: they are sent again. */
void Upload::dropAhead() noexcept
{
    const auto each = [this](const auto& act) {
        for (std::size_t i = 0; i < m_onTheirWay; ++i)
            act(m_chunks[(m_oldest + i) % mostAhead].call);
    };
    each([](KvNRpc::SentCall& sent) { sent.abandon(); });
    each([this](KvNRpc::SentCall& sent) { m_client->dropCall(sent, PutData); });
    m_onTheirWay = 0;
}

/* Waits for the answer to the oldest chunk on its way. */
KvInt32 Upload::takeAnswer(KvUInt64& position)
{
    if (isCancelled())
        return ended(KvCRpcClient::Cancelled);
    Chunk& chunk = m_chunks[m_oldest];
    m_oldest = (m_oldest + 1) % mostAhead;
    --m_onTheirWay;
    KvdaPutData data = putData(chunk);
    DecodedReceived reply;
    BoardCall sent{PutData, KvNXdr::proc<xdr_KvdaPutData>, &data, DecodedReceived::routine,
                   static_cast<KvdaReceived*>(&reply)};
    KvCErrorListPool first;
    long outcome = m_client->takeReply(first, chunk.call, PutData, sent.decoder, sent.result);
    const bool undisturbed = outcome == KvCRpcClient::Success && reply.status == 0;
    if (!undisturbed) {
        dropAhead();
        m_ahead = 1;
    }
    if (noReplyCame(outcome) && isCancelled())
        return ended(KvCRpcClient::Cancelled);
    outcome = secondTry(m_errors, *m_client, sent, outcome, first);
    const KvInt32 result = ended(outcome);
    return result == Ok ? judge(reply, sent.repeated, chunk, position) : result;
}

/* Sends the chunk at `position` and waits for its answer. */
KvInt32 Upload::sendAlone(KvUInt64& position)
{
    Chunk& chunk = m_chunks[0];
    if (!prepareChunk(chunk, position))
        throw std::bad_alloc();
    const Reading read = readChunk(chunk);
    if (read != Reading::Done)
        return read == Reading::Failed ? reportLocalFailure() : reportChanged();
    KvdaPutData data = putData(chunk);
    DecodedReceived reply;
    BoardCall alone{PutData, KvNXdr::proc<xdr_KvdaPutData>, &data, DecodedReceived::routine,
                    static_cast<KvdaReceived*>(&reply)};
    const KvInt32 result = call(alone);
    return result == Ok ? judge(reply, alone.repeated, chunk, position) : result;
}

/* What the board's answer to a chunk means. */
KvInt32 Upload::judge(const KvdaReceived& reply, bool repeated, const Chunk& chunk, KvUInt64& position)
{
    const bool goesElsewhere =
        reply.status == outOfOrder && (reply.received >= chunk.end || ++m_returns <= mostReturns);
    // what the board says of a disorder that is set right here is no failure of the transfer
    if (!goesElsewhere)
        passOn(reply.errorList, reply.status != 0);
    if (reply.status != 0 && !goesElsewhere)
        return reportRefusal(m_errors, m_origin, m_board, reply.status, nullptr);
    return goOn(reply, repeated, chunk, position);
}

/* Where the answer to a chunk says that the transfer goes on. */
KvInt32 Upload::goOn(const KvdaReceived& reply, bool repeated, const Chunk& chunk, KvUInt64& position)
{
    const bool taken = reply.status == 0;
    m_sent = std::max(m_sent, chunk.end);
    // of a request that was repeated the board may have served both, and refused the second
    const KvUInt64 most = taken || repeated ? m_sent : chunk.before;
    // a board that serves calls side by side may have come to this one before it had what is in front of it
    const bool mayHaveBeenEarly = chunk.ahead && !repeated;
    const bool sensible = taken ? reply.received >= chunk.end : mayHaveBeenEarly || reply.received != chunk.start;
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
    dropAhead();
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
    return ended(isCancelled() ? static_cast<long>(KvCRpcClient::Cancelled) : callClient(m_errors, *m_client, call));
}

/* Cancelling ends calls in progress; between two of them it has to be looked for. */
bool Upload::isCancelled() const
{
    return KvNRpc::cancelCount() != m_cancelCount;
}

/* What becomes of the transfer when a call has come to `outcome`. */
KvInt32 Upload::ended(long outcome)
{
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
