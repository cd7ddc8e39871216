#pragma once

#include "tools/kvboardd/Access.h"
#include "tools/kvboardd/Board.h"
#include "tools/kvboardd/LockTable.h"
#include "tools/kvboardd/Procedure.h"

namespace KvNBoardService {

/**
 * The inventory manager service of one board (inventory_manager.x): its tree, its parameters, writing and applying
 * values, for which the caller needs a lock of level 2, and whether a caller may do so. What it has not is answered as
 * unavailable.
 */
class InventoryService
{
public:
    static constexpr KvUInt32 program = 8;
    static constexpr KvUInt32 version = 1;

    /** `board` and `locks` must outlive the service. */
    InventoryService(Board& board, LockTable& locks, Clock clock);

    /** May throw std::bad_alloc; a value is then either written whole or not at all. */
    Answer call(const Call& call);

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
    bool mayModify(KvCErrorListPool& errors, const Call& call, KvUInt32 accessId, Answer& refusal);

    Board& m_board;
    LockTable& m_locks;
    Clock m_clock;
    KvUInt32 m_parent = 0;
};

}  // namespace KvNBoardService
