#pragma once

#include "tools/kvboardd/Access.h"
#include "tools/kvboardd/Board.h"
#include "tools/kvboardd/LockTable.h"
#include "tools/kvboardd/Procedure.h"

namespace KvNBoardService {

/**
 * The device access service of one board (device_access.x): who the board is, and its locks. By datagram only the
 * identification is answered. What it has not is answered as unavailable.
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

    /** `board` and `locks` must outlive the service. */
    DeviceAccessService(const Board& board, LockTable& locks, Clock clock, const Identity& identity);

    /** May throw std::bad_alloc. */
    Answer call(const Call& call);

private:
    Answer identify(const Call& call) const;
    Answer requestAccess(const Call& call);
    Answer keepAccess(const Call& call);
    Answer releaseAccess(const Call& call);
    Answer accessState(const Call& call);
    Answer plainResult(const Call& call, LockTable::Outcome outcome, KvUInt32 accessId);

    const Board& m_board;
    LockTable& m_locks;
    Clock m_clock;
    Identity m_identity;
};

}  // namespace KvNBoardService
