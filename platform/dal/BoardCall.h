#pragma once

#include <memory>

#include "platform/dal/Board.h"
#include "platform/dal/DeviceAccessRecords.h"
#include "platform/errorhandling/KvCErrorList.h"
#include "platform/oncrpc/KvXdr.h"

namespace KvNDeviceAccess {

/** One call of a board's device access service. */
struct BoardCall
{
    KvUInt32 procedure;
    KvNXdr::xdrproc_t encoder;
    void* arguments;
    KvNXdr::xdrproc_t decoder;
    void* result;
    /** Whether the call was sent a second time because no reply came to the first: the board may have served both. */
    bool repeated = false;
};

/** A client of the board's device access service for the caller alone, whose calls last at most so long; null,
   reported, when it cannot be set up. Throws std::bad_alloc. */
std::unique_ptr<KvCRpcClient> makeClient(KvCErrorListPool& errors, const Board& board, KvUInt32 microseconds);

/** Calls through `client`, once more when the reply is lost. Returns a KvCRpcClient::Result; the reason of a failure is
    reported. */
long callClient(KvCErrorListPool& errors, KvCRpcClient& client, BoardCall& call);

/** Whether a call that has come to `outcome` is made once more. */
bool noReplyCame(long outcome);

/** The rest of callClient() when the first try has come to `outcome` and reported `first`, which is empty
    afterwards. */
long secondTry(KvCErrorListPool& errors, KvCRpcClient& client, BoardCall& call, long outcome, KvCErrorListPool& first);

/** Calls the board's device access service through the client that all handles of the board share, once more when the
    reply is lost, each time for at most 5 seconds. ConnectionFailed and the reason are reported with `origin`. Throws
    std::bad_alloc. */
KvInt32 callBoard(KvCErrorListPool& errors, const char* origin, Board& board, BoardCall& call);

/** Reports that the board cannot be called, and returns ConnectionFailed. */
KvInt32 reportConnectionFailed(KvCErrorListPool& errors, const char* origin, const Board& board);

/** Reports that the board's reply makes no sense, and returns InvalidReply. */
KvInt32 reportInvalidReply(KvCErrorListPool& errors, const char* origin, const Board& board);

/** Appends the entries that a board sent with its reply; a block that is malformed adds nothing. */
void appendErrors(KvCErrorListPool& errors, const KvdaBytes& block);

/** Reports the status by which a board refused a call, as the Result that stands for it; `owner` is the holder of a
    locked board. */
KvInt32 reportRefusal(KvCErrorListPool& errors, const char* origin, const Board& board, KvInt32 status,
                      const char* owner);

}  // namespace KvNDeviceAccess
