#include <new>

#include "inventory/ids/KvNInventoryIDs.h"
#include "manager/ReceivedBlock.h"

/* The trees of boards, and all of them as one. */

using KvNInventoryManager::KvSBoardScan;
using KvNInventoryManager::KvTBoardScans;
using KvNInventoryManager::RemoteCall;
using KvNInventoryRpc::Opaque;
namespace Procedure = KvNInventoryRpc::Procedure;

long KvCInventoryManager::scan(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                               const KvCString& boardDescription, KvCInventoryItem*& tree, bool flag) const
{
    constexpr const char* origin = "KvCInventoryManager::scan";
    tree = nullptr;
    RemoteCall<KvInventoryManagerRpcIFScanResult> remote(errors, client, origin, Procedure::scan);
    if (!remote.call(KvNInventoryRpc::scan, flag))
        return -1;
    const Opaque& block = remote.result().tree;
    if (block.length == 0) {
        KV_REPORT(errors, ScanResultEmpty, origin, boardDescription);
        return -1;
    }
    bool good = true;
    const auto read = [&](KvCInventoryItemFactory& factory, KvCBuffer& buffer) {
        const KvNReport::Watch reading(errors);
        factory.deserialize(errors, tree, &buffer);
        good = !reading.grew();
    };
    if (!readBlock(errors, origin, remote, block, read))
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

/** Hangs a board's tree under the root. One that finds no place, because a board before it has the same address, is
    deleted and reported. */
bool addBoard(KvCErrorListPool& errors, const char* origin, KvCInventoryItem& root, KvCInventoryItem* tree)
{
    if (root.addItem(KvNInventoryIDs::THIS_NODE, tree) != nullptr)
        return true;
    KV_REPORT(errors, ItemNotAdded, origin, tree->getID().toString(), root.getAddress().toString());
    delete tree;
    return false;
}

}  // namespace

bool KvCInventoryManager::scanEach(KvCErrorListPool& errors, const char* origin,
                                   const KvCInventoryRootHandle& rootHandle, KvCInventoryItem& root,
                                   KvTBoardScans* boards) const
{
    bool success = false;
    for (KvUInt32 i = 0; i < rootHandle.getBoardCount(); ++i) {
        void* deviceHandle = rootHandle.getCnHandleByOrdinalNumber(errors, i);
        const KvCString description = getHcnInfo(deviceHandle);
        KvNInventoryManager::EBoardScan result = KvNInventoryManager::BoardFailed;
        const KvNReport::Watch connecting(errors);
        KVINVENTORYMANAGERRPCIF1Client* client = getRPCClient(errors, deviceHandle);
        if (client == nullptr) {
            success = false;
        } else {
            const KvNReport::Watch scanning(errors);
            KvCInventoryItem* tree = nullptr;
            scan(errors, *client, description, tree, false);
            const bool clean = !scanning.grew();
            if (tree != nullptr && addBoard(errors, origin, root, tree)) {
                success = success || clean;
                result = connecting.grew() ? KvNInventoryManager::BoardIncomplete : KvNInventoryManager::BoardComplete;
            }
        }
        if (boards != nullptr)
            (*boards)[i] = KvSBoardScan{i, rootHandle.serialNumber(i), result, description};
    }
    return success;
}

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
    if (!scanEach(errors, origin, *rootHandle, *root, nullptr)) {
        delete root;
        return -1;
    }
    tree = root;
    return 0;
}

long KvCInventoryManager::scanBoards(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                     KvCInventoryItem*& tree, KvTBoardScans& boards) const
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
    scanEach(errors, origin, *rootHandle, *root, &boards);
    if (root->getFirstSubItem() == nullptr) {
        delete root;
        return -1;
    }
    tree = root;
    return 0;
}
