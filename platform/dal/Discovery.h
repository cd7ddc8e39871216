#pragma once

#include <vector>

#include "platform/dal/DiscoveryPlan.h"
#include "platform/dal/KvDALBase.h"

namespace KvNDeviceAccess {

using DeviceInfos = std::vector<KvDALSDeviceInfo, KvNAllocation::Allocator<KvDALSDeviceInfo>>;

/** Searches for the boards that `settings` select, as KvDAL_applyFilter says, and appends them to `found` in their
    order. Returns a Result, reported with `origin`. Throws std::bad_alloc. */
KvInt32 discover(KvCErrorListPool& errors, const char* origin, const FilterSettings& settings, DeviceInfos& found);

}  // namespace KvNDeviceAccess
