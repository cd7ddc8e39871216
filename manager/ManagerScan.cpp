#include <new>
#include <optional>

#include "inventory/ids/KvNInventoryIDs.h"
#include "manager/ReceivedBlock.h"
#include "manager/ScanOfBoards.h"

/* The trees of boards, and all of them as one. */

using KvNInventoryManager::KvTBoardScans;
using KvNInventoryManager::RemoteCall;
using KvNInventoryManager::ScanOfBoards;
using KvNInventoryManager::ScanTurn;
namespace Procedure = KvNInventoryRpc::Procedure;

namespace {

/** Puts a board's tree into a buffer while it lies where it was received. What goes wrong is kept until it is known
   that the call has succeeded. */
class ReceivedTree final : public KvNInventoryRpc::TreeReceiver
{
public:
    explicit ReceivedTree(ScanTurn* turn) : m_turn(turn) {}

    void onReply() override
    {
        if (m_turn != nullptr)
            m_turn->take();
    }

    void onTree(const char* bytes, KvUInt32 length) override
    {
        m_buffer.emplace(m_errors);
        m_created = m_errors.getErrorCount() == 0;
        if (m_created)
            m_buffer->writeBuffer(m_errors, bytes, length, 1, -1);
    }

    /** The buffer with the tree, or null: 0x1600816, 0x1600817. */
    KvCBuffer* buffer(KvCErrorListPool& errors, const char* origin)
    {
        if (m_errors.getErrorCount() == 0)
            return &*m_buffer;
        errors.takeOver(m_errors);
        if (m_created)
            KV_REPORT(errors, RemoteBufferWriteFailed, origin);
        else
            KV_REPORT(errors, RemoteBufferNotCreated, origin);
        return nullptr;
    }

private:
    ScanTurn* m_turn;
    std::optional<KvCBuffer> m_buffer;
    KvCErrorListPool m_errors;
    bool m_created = false;
};

}  // namespace

long KvCInventoryManager::scan(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                               const KvCString& boardDescription, KvCInventoryItem*& tree, bool flag) const
{
    return scan(errors, client, boardDescription, tree, flag, nullptr);
}

long KvCInventoryManager::scan(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                               const KvCString& boardDescription, KvCInventoryItem*& tree, bool flag,
                               ScanTurn* turn) const
{
    constexpr const char* origin = "KvCInventoryManager::scan";
    tree = nullptr;
    ReceivedTree received(turn);
    RemoteCall<KvInventoryManagerRpcIFScanReply> remote(errors, client, origin, Procedure::scan);
    const auto stub = [&received](auto& board, auto& list, bool argument, auto& result) {
        return KvNInventoryRpc::scan(board, list, argument, received, result);
    };
    if (!remote.call(stub, flag))
        return -1;
    if (turn != nullptr)
        turn->noteReply(errors);
    if (remote.result().treeLength == 0) {
        KV_REPORT(errors, ScanResultEmpty, origin, boardDescription);
        return -1;
    }
    KvCBuffer* buffer = received.buffer(errors, origin);
    if (buffer == nullptr)
        return -1;
    remote.release();
    bool good = true;
    const auto read = [&](KvCInventoryItemFactory& factory, KvCBuffer& stream) {
        const KvNReport::Watch reading(errors);
        factory.deserialize(errors, tree, &stream);
        good = !reading.grew();
    };
    if (!KvNInventoryManager::readBuffer(errors, origin, *buffer, read))
        return -1;
    if (!good) {
        KV_REPORT(errors, ReceivedInventoryInvalid, origin, boardDescription);
        delete tree;
        tree = nullptr;
        return -1;
    }
    if (tree == nullptr) {
        KV_REPORT(errors, RemoteTreeDeserializeFailed, origin);
        return -1;
    }
    return 0;
}

namespace {

/** The item that the boards' trees hang under; null with 0x160081D when it cannot be made. */
KvCInventoryItem* makeRoot(KvCErrorListPool& errors, const char* origin)
{
    const KvNReport::Watch creation(errors);
    auto* root =
        new (errors) KvCInventoryItem(errors, KvNInventoryIDs::ROOT, KvNInventoryIDs::ROOT.getCategoryName().c_str());
    if (root != nullptr && !creation.grew())
        return root;
    KV_REPORT(errors, RootItemNotAllocated, origin);
    delete root;
    return nullptr;
}

}  // namespace

long KvCInventoryManager::scan(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                               KvCInventoryItem*& tree) const
{
    constexpr const char* origin = "KvCInventoryManager::scan";
    tree = nullptr;
    if (rootHandle == nullptr) {
        KV_REPORT(errors, RootHandleInvalid, origin);
        return -1;
    }
    KvCInventoryItem* root = makeRoot(errors, origin);
    if (root == nullptr)
        return -1;
    if (!ScanOfBoards(errors, origin, *rootHandle, *root).run()) {
        delete root;
        return -1;
    }
    tree = root;
    return 0;
}

long KvCInventoryManager::scanBoards(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                     KvCInventoryItem*& tree, KvTBoardScans& boards,
                                     void (*progress)(KvUInt32, KvUInt32, void*), void* context) const
{
    constexpr const char* origin = "KvCInventoryManager::scanBoards";
    tree = nullptr;
    boards.clear();
    if (rootHandle == nullptr) {
        KV_REPORT(errors, RootHandleInvalid, origin);
        return -1;
    }
    try {
        boards.resize(rootHandle->getBoardCount());
    } catch (const std::bad_alloc&) {
        KV_REPORT(errors, RemoteOutOfMemory, origin);
        return -1;
    }
    KvCInventoryItem* root = makeRoot(errors, origin);
    if (root == nullptr)
        return -1;
    ScanOfBoards(errors, origin, *rootHandle, *root, &boards, progress, context).run();
    if (root->getFirstSubItem() == nullptr) {
        delete root;
        return -1;
    }
    tree = root;
    return 0;
}
