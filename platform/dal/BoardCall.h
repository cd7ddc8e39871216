#pragma once

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

/** Calls the board's device access service through the client that all handles of the board share, once more when the
    reply is lost, each time for at most 5 seconds. ConnectionFailed and the reason are reported with `origin`. Throws
    std::bad_alloc. */
KvInt32 callBoard(KvCErrorListPool& errors, const char* origin, Board& board, BoardCall& call);

/** Appends the entries that a board sent with its reply; a block that is malformed adds nothing. */
void appendErrors(KvCErrorListPool& errors, const KvdaBytes& block);

/** Reports the status by which a board refused a call, as the Result that stands for it; `owner` is the holder of a
    locked board. */
KvInt32 reportRefusal(KvCErrorListPool& errors, const char* origin, const Board& board, KvInt32 status,
                      const char* owner);

}  // namespace KvNDeviceAccess
