#pragma once

#include <rpc/rpc.h>

#include <string>

#include "tools/kvboardd/Access.h"
#include "tools/kvboardd/Board.h"
#include "tools/kvboardd/Files.h"
#include "tools/kvboardd/LockTable.h"
#include "tools/kvboardd/Procedure.h"
#include "tools/kvboardd/Transfers.h"

namespace KvNBoardService {

/**
 * The device access service of one board (device_access.x): who the board is, its locks, and the files put on it, for
 * which the caller needs a lock of level 2. By datagram only the identification is answered. What it has not is
 * answered as unavailable.
 */
class DeviceAccessService
{
public:
    static constexpr KvUInt32 program = 0x20004B56;
    static constexpr KvUInt32 version = 1;

    struct Identity
    {
        KvUInt64 bootId = 0;  ///< of this start of the service
        KvUInt32 maximumChunk = 1048576;
    };

    /** All but the clock and the identity must outlive the service. */
    DeviceAccessService(const Board& board, LockTable& locks, Files& files, Transfers& transfers, Clock clock,
                        const Identity& identity);

    /** May throw std::bad_alloc. Bytes of files, and their end, are answered later when the disk is to be waited for.
     */
    Answer call(const Call& call);

private:
    Answer identify(const Call& call) const;
    Answer requestAccess(const Call& call);
    Answer keepAccess(const Call& call);
    Answer releaseAccess(const Call& call);
    Answer accessState(const Call& call);
    Answer plainResult(const Call& call, LockTable::Outcome outcome, KvUInt32 accessId);

    // DeviceAccessFiles.cpp
    Answer putBegin(const Call& call);
    Answer putData(const Call& call);
    Answer putEnd(const Call& call);
    Answer putAbort(const Call& call);
    Answer deleteFile(const Call& call);
    Answer listFiles(const Call& call);
    struct Caller;
    template <class Arguments, bool_t (*routine)(XDR*, Arguments*), class Refuse, class Serve>
    Answer withLock(const Call& call, const Refuse& refuse, const Serve& serve);
    void logFile(const char* what, const std::string& name, KvUInt32 peer) const;

    const Board& m_board;
    LockTable& m_locks;
    Files& m_files;
    Transfers& m_transfers;
    Clock m_clock;
    Identity m_identity;
};

}  // namespace KvNBoardService
