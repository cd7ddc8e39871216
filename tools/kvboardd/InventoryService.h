#pragma once

#include <rpc/rpc.h>

#include "tools/kvboardd/Access.h"
#include "tools/kvboardd/Board.h"
#include "tools/kvboardd/LockTable.h"
#include "tools/kvboardd/Procedure.h"
#include "tools/kvboardd/Update.h"

namespace KvNBoardService {

class Files;

/**
 * The inventory manager service of one board (inventory_manager.x): its tree, its parameters, writing and applying
 * values, and its firmware update. Who changes something needs a lock of level 2; an update, once begun, does not.
 */
class InventoryService
{
public:
    static constexpr KvUInt32 program = 8;
    static constexpr KvUInt32 version = 1;

    /** What the service works on; all of it must outlive the service. */
    struct Parts
    {
        Board& board;
        LockTable& locks;
        Update& update;
        Files& files;  ///< on which images are put
    };

    InventoryService(const Parts& parts, Clock clock);

    /** May throw std::bad_alloc; a value is then either written whole or not at all. */
    Answer call(const Call& call);

    /** Goes on with the board's update; gives back when to come again, 0 when none is running. */
    Update::Milliseconds advanceUpdate() noexcept;

    /** The service that called itself this board's parent; 0 when none did. */
    KvUInt32 parent() const { return m_parent; }

private:
    Answer scan(const Call& call);
    Answer readParameter(const Call& call);
    Answer writeParameterValue(const Call& call);
    Answer getLocalAddress(const Call& call) const;
    Answer apply(const Call& call);
    Answer checkAuthority(const Call& call);
    Answer registerParent(const Call& call);

    // InventoryServiceUpdate.cpp
    Answer callUpdate(const Call& call);
    Answer update(const Call& call);
    Answer update2(const Call& call);
    Answer updateStatus(const Call& call);
    Answer updateStatus2(const Call& call);
    Answer updateErrors(const Call& call);
    Answer updateErrors2(const Call& call);
    Answer updateFinish(const Call& call);
    Answer generateRemoteFilename(const Call& call);
    template <class Arguments>
    bool beginUpdate(KvCErrorListPool& errors, const Call& call, const Arguments& arguments, KvUInt32 firmwareType,
                     const KvCInventoryAddress& address);
    std::string updateName() const;

    // InventoryFrames.h
    template <class Arguments, bool_t (*routine)(XDR*, Arguments*), class Action, class Result>
    Answer atAddress(const Call& call, const char* origin, const Action& action, const Result& result);
    template <class Arguments, bool_t (*routine)(XDR*, Arguments*), class Action, class Result>
    Answer withLock(const Call& call, const char* origin, const Action& action, const Result& result);

    Board& m_board;
    LockTable& m_locks;
    Update& m_update;
    Files& m_files;
    Clock m_clock;
    KvUInt32 m_parent = 0;
};

}  // namespace KvNBoardService
