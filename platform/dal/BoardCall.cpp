#include "platform/dal/BoardCall.h"

#include <memory>
#include <new>

#include "base/Report.h"
#include "platform/dal/KvDALBase.h"
#include "platform/oncrpc/KvCRpcClient.h"

namespace KvNDeviceAccess {

namespace {

constexpr KvUInt32 callMicroseconds = 5000000;

/* Ends the claim on the board's client on every way out. */
class ClientClaim
{
public:
    explicit ClientClaim(Board& board) noexcept : m_board(board) {}
    ~ClientClaim()
    {
        if (!m_ended)
            m_board.registerClient(deviceAccessProgram, nullptr);
    }
    ClientClaim(const ClientClaim&) = delete;
    ClientClaim& operator=(const ClientClaim&) = delete;

    KvCRpcClient* end(std::unique_ptr<KvCRpcClient> client)
    {
        m_ended = true;
        if (m_board.registerClient(deviceAccessProgram, client.get()))
            return client.release();
        return m_board.client(deviceAccessProgram);
    }

private:
    Board& m_board;
    bool m_ended = false;
};

KvCRpcClient* clientOf(KvCErrorListPool& errors, Board& board)
{
    KvCRpcClient* known = nullptr;
    if (board.claimClient(deviceAccessProgram, &board, known) == Board::Claim::Registered)
        return known;
    ClientClaim claim(board);
    std::unique_ptr<KvCRpcClient> made = makeClient(errors, board, callMicroseconds);
    return made == nullptr ? nullptr : claim.end(std::move(made));
}

}  // namespace

std::unique_ptr<KvCRpcClient> makeClient(KvCErrorListPool& errors, const Board& board, KvUInt32 microseconds)
{
    const KvNReport::Watch watch(errors);
    std::unique_ptr<KvCRpcClient> made(new (errors) KvCRpcClient(errors, board.address()));
    if (made == nullptr)
        throw std::bad_alloc();
    made->setParameter(errors, KvCRpcClient::Program, deviceAccessProgram);
    made->setParameter(errors, KvCRpcClient::Version, deviceAccessVersion);
    made->setParameter(errors, KvCRpcClient::CallTimeout, microseconds);
    return watch.grew() ? nullptr : std::move(made);
}

long callClient(KvCErrorListPool& errors, KvCRpcClient& client, BoardCall& call)
{
    KvCErrorListPool first;
    const long outcome =
        client.clntCall(first, call.procedure, call.encoder, call.arguments, call.decoder, call.result);
    return secondTry(errors, client, call, outcome, first);
}

bool noReplyCame(long outcome)
{
    return outcome == KvCRpcClient::TimedOut || outcome == KvCRpcClient::ConnectionLost;
}

long secondTry(KvCErrorListPool& errors, KvCRpcClient& client, BoardCall& call, long outcome, KvCErrorListPool& first)
{
    if (noReplyCame(outcome)) {
        call.repeated = true;
        KvNXdr::xdr_free(call.decoder, call.result);
        return client.clntCall(errors, call.procedure, call.encoder, call.arguments, call.decoder, call.result);
    }
    if (outcome != KvCRpcClient::Success)
        errors.takeOver(first);
    return outcome;
}

KvInt32 callBoard(KvCErrorListPool& errors, const char* origin, Board& board, BoardCall& call)
{
    KvCRpcClient* client = clientOf(errors, board);
    if (client != nullptr && callClient(errors, *client, call) == KvCRpcClient::Success)
        return Ok;
    return reportConnectionFailed(errors, origin, board);
}

KvInt32 reportConnectionFailed(KvCErrorListPool& errors, const char* origin, const Board& board)
{
    KV_REPORT(errors, DalConnectionFailed, origin, board.address());
    return ConnectionFailed;
}

KvInt32 reportInvalidReply(KvCErrorListPool& errors, const char* origin, const Board& board)
{
    KV_REPORT(errors, DalInvalidReply, origin, board.address());
    return InvalidReply;
}

void appendErrors(KvCErrorListPool& errors, const KvdaBytes& block)
{
    if (block.size != 0)
        errors.deSerialize(reinterpret_cast<const unsigned char*>(block.data), block.size);
}

KvInt32 reportRefusal(KvCErrorListPool& errors, const char* origin, const Board& board, KvInt32 status,
                      const char* owner)
{
    const char* address = board.address();
    // any number may come
    const bool known = status > 0 && status <= BoardLimit - BoardRefused;
    const KvInt32 result = known ? BoardRefused + status : BoardRefused;
    switch (result) {
        case BoardLocked:
            KV_REPORT(errors, DalBoardLocked, origin, address,
                      owner == nullptr || owner[0] == 0 ? "someone else" : owner);
            return result;
        case BoardBadAccess:
            KV_REPORT(errors, DalBoardBadAccess, origin, address);
            return result;
        case BoardBadArgument:
            KV_REPORT(errors, DalBoardBadArgument, origin, address);
            return result;
        case BoardBadName:
            KV_REPORT(errors, DalBoardBadName, origin, address);
            return result;
        case BoardNotFound:
            KV_REPORT(errors, DalBoardNotFound, origin, address);
            return result;
        case BoardNoTransfer:
            KV_REPORT(errors, DalBoardNoTransfer, origin, address);
            return result;
        case BoardOutOfOrder:
            KV_REPORT(errors, DalBoardOutOfOrder, origin, address);
            return result;
        case BoardCorrupt:
            KV_REPORT(errors, DalBoardCorrupt, origin, address);
            return result;
        case BoardNoSpace:
            KV_REPORT(errors, DalBoardNoSpace, origin, address);
            return result;
        case BoardIo:
            KV_REPORT(errors, DalBoardIo, origin, address);
            return result;
        case BoardBusy:
            KV_REPORT(errors, DalBoardBusy, origin, address);
            return result;
        case BoardLimit:
            KV_REPORT(errors, DalBoardLimit, origin, address);
            return result;
        default:
            KV_REPORT(errors, DalBoardRefused, origin, address, status);
            return BoardRefused;
    }
}

}  // namespace KvNDeviceAccess
