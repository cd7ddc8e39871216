#include "manager/DeviceParameter.h"

#include <cstring>

namespace KvNInventoryManager {

bool readNumber(KvCErrorListPool& errors, void* handle, KvNDeviceAccess::HandleParameter id, KvUInt32& value)
{
    KvUInt32 size = sizeof value;
    if (KvDAL_getParam(errors, handle, id, 0, &size, &value) == KvNDeviceAccess::Ok)
        return true;
    value = 0;
    return false;
}

bool readText(KvCErrorListPool& errors, void* handle, KvNDeviceAccess::HandleParameter id, char (&text)[DeviceTextSize])
{
    char received[DeviceTextSize] = "";
    KvUInt32 size = sizeof received;
    if (KvDAL_getParam(errors, handle, id, 0, &size, received) != KvNDeviceAccess::Ok)
        return false;
    received[DeviceTextSize - 1] = '\0';
    std::memcpy(text, received, sizeof received);
    return true;
}

}  // namespace KvNInventoryManager
