#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "manager/KvCInventoryManager.h"

namespace KvNInventoryManager {

/** As many places as there are processors, for the threads of a scan that make trees of replies. It bounds the memory
    that they hold: a reply that waits for its turn is counted among the replies of the process. */
class ScanTurns
{
public:
    explicit ScanTurns(KvUInt32 places) : m_free(places) {}
    void take();
    void giveBack();

private:
    std::mutex m_mutex;
    std::condition_variable m_freed;
    KvUInt32 m_free;
};

/** One board's turn: taken once its reply has come, given back at the end of the scope. */
class ScanTurn
{
public:
    explicit ScanTurn(ScanTurns& turns) : m_turns(turns) {}
    ~ScanTurn()
    {
        if (m_taken)
            m_turns.giveBack();
    }
    ScanTurn(const ScanTurn&) = delete;
    ScanTurn& operator=(const ScanTurn&) = delete;

    void take()
    {
        if (!m_taken)
            m_turns.take();
        m_taken = true;
    }

private:
    ScanTurns& m_turns;
    bool m_taken = false;
};

/**
 * The scan of all boards of a root handle. Boards are called side by side, each with an error list of its own; what
 * they gave is put together afterwards in the order of the boards, so that trees, errors and result are those of a scan
 * one after the other. Without memory or threads for that it is one.
 * Handles that lead to one board share its client, and are scanned in their order.
 */
class ScanOfBoards
{
public:
    /** Trees are hung under `root`; `boards`, when there are any, has an entry for each board, which is filled. */
    ScanOfBoards(KvCErrorListPool& errors, const char* origin, const KvCInventoryRootHandle& rootHandle,
                 KvCInventoryItem& root, KvTBoardScans* boards)
        : m_errors(errors), m_origin(origin), m_rootHandle(rootHandle), m_root(root), m_boards(boards)
    {}

    /** What scan() goes by. */
    bool run();

private:
    struct OneScan;
    struct SideBySide;

    void prepare(OneScan& one, KvUInt32 ordinal) const;
    bool runSideBySide();
    static void scanOne(KvCErrorListPool& errors, OneScan& one, ScanTurn* turn);
    static void work(void* context);
    void settle(OneScan& one);
    bool hang(KvCInventoryItem* tree) const;

    KvCErrorListPool& m_errors;
    const char* m_origin;
    const KvCInventoryRootHandle& m_rootHandle;
    KvCInventoryItem& m_root;
    KvTBoardScans* m_boards;
    bool m_success = false;
};

}  // namespace KvNInventoryManager
