#include <algorithm>
#include <optional>
#include <string_view>

#include "fuzz/ScriptedPeer.h"
#include "manager/rpc/InventoryRecords.h"
#include "platform/dal/DeviceAccessRecords.h"
#include "platform/oncrpc/KvCRpcClient.h"
#include "platform/oncrpc/RpcMessage.h"

/*
 * One call of each kind against a board that sends any bytes and hangs up: it comes to a result at once, a success is
 * what a whole reply with this call's id says, and everything else is reported.
 * The first byte says which call, the second how the connection ends and whether the call may be repeated; the rest is
 * what the board sends.
 */

using namespace KvNFuzz;

namespace {

constexpr KvUInt32 program = 8;
constexpr KvUInt32 largestReply = 65536;
/** Never over: whoever waits for it hangs. */
constexpr KvUInt32 callTimeout = 60000000;

/** The first whole reply with this call's id in what the board sent; null when the stream ends or breaks before. */
std::optional<Bytes> replyIn(const Bytes& stream, KvUInt32 transactionId)
{
    std::size_t at = 0;
    for (;;) {
        Bytes record;
        unsigned emptyFragments = 0;
        for (bool isLast = false; !isLast;) {
            if (stream.size() - at < 4)
                return std::nullopt;
            const KvUInt32 mark = Input(stream.data() + at, 4).number(4);
            at += 4;
            isLast = mark >> 31 != 0;
            const std::size_t length = mark & 0x7FFFFFFF;
            emptyFragments = length == 0 ? emptyFragments + 1 : 0;
            if (length > stream.size() - at || record.size() + length > largestReply || emptyFragments > 16)
                return std::nullopt;
            record.insert(record.end(), stream.begin() + static_cast<std::ptrdiff_t>(at),
                          stream.begin() + static_cast<std::ptrdiff_t>(at + length));
            at += length;
        }
        if (record.size() < 4)
            return std::nullopt;
        if (Input(record.data(), 4).number(4) == transactionId)
            return record;
    }
}

/** What such a reply comes to. */
template <class Result>
long meaningOf(Bytes reply, KvNXdr::xdrproc_t routine)
{
    KvNXdr::XDR stream;
    KvNXdr::xdrmem_create(&stream, reinterpret_cast<char*>(reply.data()), reply.size(), KvNXdr::XDR_DECODE);
    KvNRpc::ReplyHeader header;
    if (KvNRpc::xdr_replyHeader(&stream, &header) == 0)
        return KvCRpcClient::ReplyMalformed;
    if (header.status == KvNRpc::Accepted && header.acceptStatus == KvNRpc::Success) {
        Result result{};
        const bool isWhole = routine(&stream, &result) != 0 && KvNXdr::xdrmem_left(&stream) == 0;
        KvNXdr::xdr_free(routine, &result);
        return isWhole ? long{KvCRpcClient::Success} : long{KvCRpcClient::ReplyMalformed};
    }
    if (KvNXdr::xdrmem_left(&stream) != 0)
        return KvCRpcClient::ReplyMalformed;
    if (header.status == KvNRpc::Denied)
        return header.rejectStatus == KvNRpc::RpcMismatch ? KvCRpcClient::RpcVersionMismatch
                                                          : KvCRpcClient::AuthenticationError;
    return KvCRpcClient::ProgramUnavailable + static_cast<long>(header.acceptStatus) - 1;
}

struct Board
{
    ScriptedPeer peer{false};
    /** Keeps the loop that all clients share. */
    KvCErrorListPool errors;
    KvCRpcClient keeper{errors, "127.0.0.1"};
};

Board& board()
{
    static Board* const only = new Board;
    return *only;
}

template <class Result>
void call(KvNXdr::xdrproc_t routine, KvUInt32 procedure, const ScriptedPeer::Script& script, bool isRepeatable)
{
    board().peer.play(script);
    KvCErrorListPool errors;
    KvCRpcClient client(errors, "127.0.0.1");
    client.setParameter(errors, KvCRpcClient::Program, program);
    client.setParameter(errors, KvCRpcClient::Version, 1);
    client.setParameter(errors, KvCRpcClient::Port, board().peer.port());
    client.setParameter(errors, KvCRpcClient::CallTimeout, callTimeout);
    client.setParameter(errors, KvCRpcClient::LargestReply, largestReply);
    if (isRepeatable)
        client.setRepeatable(procedure);
    KV_FUZZ_CHECK(errors.getErrorCount() == 0);
    Result result{};
    const long outcome = client.clntCall(errors, procedure, KvNXdr::xdr_void, nullptr, routine, &result);
    client.freeResults(routine, &result);
    KV_FUZZ_CHECK(errors.getErrorCount() == (outcome == KvCRpcClient::Success ? 0u : 1u));
    KV_FUZZ_CHECK(outcome != KvCRpcClient::TimedOut && outcome != KvCRpcClient::OutOfMemory);
    if (script.endsByReset && outcome == KvCRpcClient::ConnectionLost)
        return;  // a reset may overtake what was sent
    const Bytes answered = board().peer.answered();
    constexpr std::string_view id = "XID!";
    const auto place = std::search(script.answer.begin(), script.answer.end(), id.begin(), id.end());
    std::optional<Bytes> reply;
    if (place != script.answer.end()) {
        const auto at = static_cast<std::size_t>(place - script.answer.begin());
        reply = replyIn(answered, Input(answered.data() + at, 4).number(4));
    }
    if (reply)
        KV_FUZZ_CHECK(outcome == meaningOf<Result>(*reply, routine));
    else
        KV_FUZZ_CHECK(outcome == KvCRpcClient::ConnectionLost || outcome == KvCRpcClient::ReplyMalformed ||
                      outcome == KvCRpcClient::ReplyTooLarge);
}

template <class Result>
void callInventory(KvUInt32 procedure, const ScriptedPeer::Script& script, bool isRepeatable)
{
    call<Result>(KvNInventoryRpc::routine<Result>, procedure, script, isRepeatable);
}

template <auto routine, class Result>
void callAccess(KvUInt32 procedure, const ScriptedPeer::Script& script, bool isRepeatable)
{
    call<Result>(KvNXdr::proc<routine>, procedure, script, isRepeatable);
}

using namespace KvNDeviceAccess;

struct Operation
{
    KvUInt32 procedure;
    void (*run)(KvUInt32 procedure, const ScriptedPeer::Script& script, bool isRepeatable);
};

constexpr Operation operations[] = {
    {1, callInventory<KvInventoryManagerRpcIFScanResult>},
    {2, callInventory<KvInventoryManagerRpcIFReadParameterResult>},
    {3, callInventory<KvInventoryManagerRpcIFStatusResult>},
    {4, callInventory<KvInventoryManagerRpcIFLocalAddressResult>},
    {8, callInventory<KvInventoryManagerRpcIFUpdateStatusResult>},
    {10, callInventory<KvInventoryManagerRpcIFRemoteFilenameResult>},
    {11, callInventory<KvInventoryManagerRpcIFCheckAuthorityResult>},
    {14, callInventory<KvInventoryManagerRpcIFUpdateStatus2Result>},
    {15, callInventory<KvInventoryManagerRpcIFUpdateErrors2Result>},
    {1, callAccess<xdr_KvdaIdentity, KvdaIdentity>},
    {2, callAccess<xdr_KvdaAccess, KvdaAccess>},
    {3, callAccess<xdr_KvdaResult, KvdaResult>},
    {5, callAccess<xdr_KvdaTransfer, KvdaTransfer>},
    {6, callAccess<xdr_KvdaReceived, KvdaReceived>},
    {10, callAccess<xdr_KvdaAccessState, KvdaAccessState>},
    {11, callAccess<xdr_KvdaFileList, KvdaFileList>},
};

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    Input input(data, size);
    const Operation& operation = operations[input.byte() % std::size(operations)];
    const unsigned char how = input.byte();
    ScriptedPeer::Script script;
    script.endsByReset = (how & 1) != 0;
    script.answer = input.all();
    operation.run(operation.procedure, script, (how & 2) != 0);
    return 0;
}
