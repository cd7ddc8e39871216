#include "manager/KvCInventoryManager.h"

#include "base/Report.h"
#include "inventory/KvCInventoryData.h"

using KvNInventoryManager::FirmwareType;

KvCInventoryManager& KvCInventoryManager::getInstance()
{
    static KvCInventoryManager instance;
    return instance;
}

const char* KvCInventoryManager::getFirmwareTypeString(FirmwareType type)
{
    switch (type) {
#define KV_FIRMWARE_TYPE(number, wireNumber, name) \
    case number:                                   \
        return #name;
#include "manager/FirmwareTypes.def"
#undef KV_FIRMWARE_TYPE
    }
    return "Invalid";
}

void KvCInventoryManager::deleteInventoryTree(KvCInventoryItem* tree) const
{
    delete tree;
}

long KvCInventoryManager::extractInventoryTreeFromFile(KvCErrorListPool& errors, const char* fileName,
                                                       KvCInventoryItem*& tree) const
{
    const KvNReport::Watch watch(errors);
    KvCInventoryData::extractInventoryTreeFromFile(errors, fileName, tree);
    return watch.grew() ? -1 : 0;
}
