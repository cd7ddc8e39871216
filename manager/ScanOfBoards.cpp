#include "manager/ScanOfBoards.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <optional>

#include "base/Report.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "manager/rpc/KVINVENTORYMANAGERRPCIF1Client.h"
#include "platform/dal/KvDALBase.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"

namespace KvNInventoryManager {

namespace {

/** Boards that are called at the same time. */
constexpr KvUInt32 mostAtOnce = 256;
constexpr KvUInt32 noBoard = 0xFFFFFFFF;

/** Whether a scan failed for want of something on this side that a board scanned alone may well have. `first` is the
    first entry that is none of the board's own, which say nothing about this side. */
bool lackedResources(const KvCErrorList& errors, KvUInt32 first)
{
    for (KvUInt32 i = first; i < errors.getErrorCount(); ++i) {
        switch (static_cast<KvNMessage>(errors.getErrorCode(i))) {
            case KvNMessage::RpcRepliesTooLarge:
            case KvNMessage::RpcOutOfMemory:
            case KvNMessage::AllocationFailed:
            case KvNMessage::OutOfMemory:
            case KvNMessage::RemoteOutOfMemory:
                return true;
            default:
                break;
        }
    }
    return false;
}

}  // namespace

void ScanTurns::take()
{
    std::unique_lock lock(m_mutex);
    m_freed.wait(lock, [this] { return m_free != 0; });
    --m_free;
}

void ScanTurns::giveBack()
{
    const std::lock_guard lock(m_mutex);
    ++m_free;
    m_freed.notify_one();
}

void ScanTurns::tellProgress(bool answered)
{
    if (m_progress == nullptr)
        return;
    const std::lock_guard lock(m_progressMutex);
    ++(answered ? m_answered : m_failed);
    m_progress(m_answered, m_failed, m_context);
}

/** One board, and what became of it. */
struct ScanOfBoards::OneScan
{
    KvUInt32 ordinal = 0;
    void* deviceHandle = nullptr;
    KvCString description;
    KvCInventoryItem* tree = nullptr;
    bool hasClient = false;
    bool connectFailed = false;
    bool clean = false;          // the scan itself reported nothing
    bool reported = false;       // it or the making of the client did
    KvUInt32 firstOwnError = 0;  // as ScanTurn has it
};

/** What the threads of a scan share: the boards are theirs, each by the one that has taken its number. */
struct ScanOfBoards::SideBySide
{
    struct Board : OneScan
    {
        KvCErrorListPool errors;
        bool isFirst = true;      // of those with this address
        KvUInt32 next = noBoard;  // with the same address
    };
    using Order = std::vector<KvUInt32, KvNAllocation::Allocator<KvUInt32>>;

    SideBySide(KvUInt32 count, ScanTurns& itsTurns) : boards(count), turns(itsTurns) {}
    void linkThoseOfOneAddress();

    std::vector<Board, KvNAllocation::Allocator<Board>> boards;
    std::atomic<KvUInt32> taken{0};
    ScanTurns& turns;
};

ScanOfBoards::ScanOfBoards(KvCErrorListPool& errors, const char* origin, const KvCInventoryRootHandle& rootHandle,
                           KvCInventoryItem& root, KvTBoardScans* boards, void (*progress)(KvUInt32, KvUInt32, void*),
                           void* context)
    : m_errors(errors),
      m_origin(origin),
      m_rootHandle(rootHandle),
      m_root(root),
      m_boards(boards),
      m_turns(KvNRtosAbstraction::processorCount(), progress, context)
{}

void ScanOfBoards::SideBySide::linkThoseOfOneAddress()
{
    const auto count = static_cast<KvUInt32>(boards.size());
    std::vector<const char*, KvNAllocation::Allocator<const char*>> addresses(count);
    Order order(count);
    KvCErrorListPool ignored;  // a handle that is none will say so itself
    for (KvUInt32 i = 0; i < count; ++i) {
        const char* address = KvDAL_getAddressFromHandle(ignored, boards[i].deviceHandle);
        addresses[i] = address != nullptr ? address : "";
        order[i] = i;
    }
    std::sort(order.begin(), order.end(), [&](KvUInt32 left, KvUInt32 right) {
        const int difference = std::strcmp(addresses[left], addresses[right]);
        return difference != 0 ? difference < 0 : left < right;
    });
    for (KvUInt32 i = 1; i < count; ++i) {
        if (std::strcmp(addresses[order[i - 1]], addresses[order[i]]) != 0)
            continue;
        boards[order[i - 1]].next = order[i];
        boards[order[i]].isFirst = false;
    }
}

void ScanOfBoards::prepare(OneScan& one, KvUInt32 ordinal) const
{
    one.ordinal = ordinal;
    one.deviceHandle = m_rootHandle.getCnHandleByOrdinalNumber(m_errors, ordinal);
}

void ScanOfBoards::scanOne(KvCErrorListPool& errors, OneScan& one, ScanTurn* turn)
{
    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    const KvNReport::Watch connecting(errors);
    KVINVENTORYMANAGERRPCIF1Client* client = manager.getRPCClient(errors, one.deviceHandle);
    one.hasClient = client != nullptr;
    if (client != nullptr) {
        // A client stays registered when it could not connect: another try is reported like the first.
        if (one.connectFailed)
            KvCInventoryManager::connectRPCClient(errors, *client, one.description);
        one.connectFailed = connecting.grew();
        const KvNReport::Watch scanning(errors);
        manager.scan(errors, *client, one.description, one.tree, false, turn);
        one.clean = !scanning.grew();
    }
    one.reported = connecting.grew();
    one.firstOwnError = turn != nullptr ? turn->firstOwnError() : 0;
}

bool ScanOfBoards::hang(KvCInventoryItem* tree) const
{
    if (m_root.addItem(KvNInventoryIDs::THIS_NODE, tree) != nullptr)
        return true;
    // A board before it has the same address.
    KV_REPORT(m_errors, ItemNotAdded, m_origin, tree->getID().toString(), m_root.getAddress().toString());
    delete tree;
    return false;
}

void ScanOfBoards::settle(OneScan& one)
{
    EBoardScan result = BoardFailed;
    if (!one.hasClient)
        m_success = false;
    else if (one.tree != nullptr && hang(one.tree)) {
        m_success = m_success || one.clean;
        result = one.reported ? BoardIncomplete : BoardComplete;
    }
    if (m_boards != nullptr)
        (*m_boards)[one.ordinal] =
            KvSBoardScan{one.ordinal, m_rootHandle.serialNumber(one.ordinal), result, one.description};
}

void ScanOfBoards::work(void* context)
{
    SideBySide& all = *static_cast<SideBySide*>(context);
    const auto count = static_cast<KvUInt32>(all.boards.size());
    for (KvUInt32 i = all.taken++; i < count; i = all.taken++) {
        if (!all.boards[i].isFirst)
            continue;
        for (KvUInt32 k = i; k != noBoard; k = all.boards[k].next) {
            ScanTurn turn(all.turns);
            scanOne(all.boards[k].errors, all.boards[k], &turn);
        }
    }
}

bool ScanOfBoards::runSideBySide()
{
    const KvUInt32 count = m_rootHandle.getBoardCount();
    if (count < 2)
        return false;
    std::optional<SideBySide> all;
    try {
        all.emplace(count, m_turns);
        for (KvUInt32 i = 0; i < count; ++i)
            prepare(all->boards[i], i);
        all->linkThoseOfOneAddress();
    } catch (const std::bad_alloc&) {
        return false;
    }
    for (SideBySide::Board& board : all->boards)
        board.description = KvCInventoryManager::getHcnInfo(board.deviceHandle);
    KvNRtosAbstraction::runSideBySide(std::min(count, mostAtOnce) - 1, work, &*all);
    for (SideBySide::Board& board : all->boards) {
        if (board.tree == nullptr && lackedResources(board.errors, board.firstOwnError)) {
            board.errors.clear();
            scanOne(board.errors, board, nullptr);
        }
        m_errors.takeOver(board.errors);
        settle(board);
    }
    return true;
}

bool ScanOfBoards::run()
{
    if (runSideBySide())
        return m_success;
    for (KvUInt32 i = 0; i < m_rootHandle.getBoardCount(); ++i) {
        ScanTurn turn(m_turns);
        OneScan one;
        prepare(one, i);
        one.description = KvCInventoryManager::getHcnInfo(one.deviceHandle);
        scanOne(m_errors, one, &turn);
        settle(one);
    }
    return m_success;
}

}  // namespace KvNInventoryManager
