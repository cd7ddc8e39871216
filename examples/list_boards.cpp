// Scans boards and lists their serial numbers and firmware versions.
//
//     list_boards 10.0.0.1,10.0.0.2

#include <cstdio>

#include "inventory/KvCInventoryItem.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "manager/KvCInventoryManager.h"
#include "platform/errorhandling/KvCErrorManager.h"

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s ADDRESS[,ADDRESS...]\n", argv[0]);
        return 2;
    }
    KvCErrorListPool errors;
    KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    KvCInventoryRootHandle* boards = nullptr;
    KvCInventoryItem* tree = nullptr;
    if (manager.createRootHandleByIpAddressList(errors, argv[1], boards) == 0 &&
        manager.scan(errors, boards, tree) == 0) {
        const KvCInventoryAddress version = KvNInventoryIDs::FIRMWARE / KvNInventoryIDs::VERSION;
        for (KvCInventoryItem* board = tree->getFirstSubItem(); board != nullptr; board = board->getNext()) {
            const KvCVersion firmware = board->getValue<KvCVersion>(errors, version);
            std::printf("%lu  firmware %s\n", static_cast<unsigned long>(board->getID().getIndex()),
                        firmware.getAsString().c_str());
        }
    }
    const bool failed = tree == nullptr || errors.getErrorCount() != 0;
    if (tree == nullptr && errors.getErrorCount() == 0)
        std::fprintf(stderr, "no board at %s\n", argv[1]);
    KvCErrorManager::getSingleton()->sendErrorList(errors, 0);
    manager.deleteInventoryTree(tree);
    if (boards != nullptr)
        manager.deleteRootHandle(errors, boards);
    return failed ? 1 : 0;
}
