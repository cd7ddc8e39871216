#include <cstdio>

#include "inventory/KvCInventoryItem.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "manager/KvCInventoryManager.h"

/** A program as a user of the installed library writes it: builds a small tree and reads a value back by its path. */
int main()
{
    KvCErrorListPool errors;
    KvCInventoryItem root(errors, KvNInventoryIDs::ROOT, "ROOT");
    const KvCInventoryAddress size = KvNInventoryIDs::CPU[2] / KvNInventoryIDs::RAM / KvNInventoryIDs::SIZE;
    root.createParameter<KvUInt32>(errors, size, 4096, "Byte", false, 0, nullptr, nullptr, nullptr);
    std::printf("%s = %lu\n", size.toString().c_str(),
                static_cast<unsigned long>(root.getValue<KvUInt32>(errors, size)));
    std::printf("%s\n", KvCInventoryManager::getFirmwareTypeString(KvNInventoryManager::UserFpga));
    return errors.getErrorCount() == 0 ? 0 : 1;
}
