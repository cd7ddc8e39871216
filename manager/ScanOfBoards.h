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
    /** Of each board that has answered or failed `progress(answered, failed, context)` is told, one call at a time;
        null: nobody is. */
    ScanTurns(KvUInt32 places, void (*progress)(KvUInt32, KvUInt32, void*), void* context)
        : m_free(places), m_progress(progress), m_context(context)
    {}
    void take();
    void giveBack();
    void tellProgress(bool answered);

private:
    std::mutex m_mutex;
    std::condition_variable m_freed;
    KvUInt32 m_free;
    std::mutex m_progressMutex;
    void (*const m_progress)(KvUInt32, KvUInt32, void*);
    void* const m_context;
    KvUInt32 m_answered = 0;
    KvUInt32 m_failed = 0;
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
        else
            m_turns.tellProgress(false);
    }
    ScanTurn(const ScanTurn&) = delete;
    ScanTurn& operator=(const ScanTurn&) = delete;

    void take()
    {
        if (m_taken)
            return;
        m_turns.tellProgress(true);
        m_turns.take();
        m_taken = true;
    }

    /** The reply is taken: what the list holds so far may be what the board reports itself. */
    void noteReply(const KvCErrorList& errors) { m_firstOwnError = errors.getErrorCount(); }
    /** Where the errors of this side begin that followed the reply; 0 without a reply. */
    KvUInt32 firstOwnError() const { return m_firstOwnError; }

private:
    ScanTurns& m_turns;
    KvUInt32 m_firstOwnError = 0;
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
                 KvCInventoryItem& root, KvTBoardScans* boards = nullptr,
                 void (*progress)(KvUInt32, KvUInt32, void*) = nullptr, void* context = nullptr);

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
    ScanTurns m_turns;
    bool m_success = false;
};

}  // namespace KvNInventoryManager
