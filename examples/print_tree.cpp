// Prints the inventory tree that a file carries: a section alone, or at the end of a firmware image.
//
//     print_tree FILE

#include <cstdio>

#include "inventory/KvCInventoryItem.h"
#include "manager/KvCInventoryManager.h"
#include "platform/errorhandling/KvCErrorManager.h"

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FILE\n", argv[0]);
        return 2;
    }
    KvCErrorListPool errors;
    KvCInventoryItem* tree = nullptr;
    KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    if (manager.extractInventoryTreeFromFile(errors, argv[1], tree) != 0) {
        KvCErrorManager::getSingleton()->sendErrorList(errors, 0);
        return 1;
    }
    if (tree == nullptr) {
        std::fprintf(stderr, "no inventory section in %s\n", argv[1]);
        return 1;
    }
    tree->printTree(errors, 0, 0);
    manager.deleteInventoryTree(tree);
    return 0;
}
