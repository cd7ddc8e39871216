#pragma once

#include "platform/dal/KvDALBase.h"

namespace KvNInventoryManager {

/** Size of the texts among a device's parameters, with their NUL. */
constexpr KvUInt32 DeviceTextSize = 256;

/** Reads a number among the parameters of a device or lock handle; false, and `value` 0, when that fails (reported). */
bool readNumber(KvCErrorListPool& errors, void* handle, KvNDeviceAccess::HandleParameter id, KvUInt32& value);

/** Reads a text among the parameters of a device handle; false, and `text` left as it was, when that fails
    (reported). */
bool readText(KvCErrorListPool& errors, void* handle, KvNDeviceAccess::HandleParameter id,
              char (&text)[DeviceTextSize]);

}  // namespace KvNInventoryManager
