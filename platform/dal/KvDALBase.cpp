#include "platform/dal/KvDALBase.h"

#include <algorithm>
#include <cstring>

#include "platform/dal/Entries.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"
#include "platform/oncrpc/KvCRpcClient.h"

using namespace KvNDeviceAccess;

namespace {

bool endsWithNul(const char* text, std::size_t size)
{
    return std::memchr(text, 0, size) != nullptr;
}

bool isSubnetMask(KvUInt32 mask)
{
    const KvUInt32 hosts = ~mask;
    return mask != 0 && (hosts & (hosts + 1)) == 0;
}

/* The value of a parameter of four bytes is one that the parameter takes. */
bool isFilterNumber(KvUInt32 id, KvUInt32 number)
{
    switch (id) {
        case FilterIpAddress:
            return number != 0;
        case FilterSubnetMask:
            return isSubnetMask(number);
        case FilterInterfaceType:
            return number == 1;
        default:
            return number == 0;
    }
}

KvInt32 setSystemName(KvCErrorListPool& errors, const char* origin, FilterSettings& settings, KvUInt32 size,
                      const char* name)
{
    if (size < 2 || size > sizeof settings.systemName) {
        KV_REPORT(errors, DalWrongSize, origin, FilterSystemName, size);
        return WrongSize;
    }
    if (name[0] == 0 || std::memchr(name, 0, size) != name + size - 1) {
        KV_REPORT(errors, DalWrongValue, origin, FilterSystemName);
        return WrongValue;
    }
    std::memcpy(settings.systemName, name, size);
    return Ok;
}

KvInt32 setFilterNumber(KvCErrorListPool& errors, const char* origin, FilterSettings& settings, KvUInt32 id,
                        KvUInt32 size, const void* value)
{
    KvUInt32 number = 0;
    if (size != sizeof number) {
        KV_REPORT(errors, DalWrongSize, origin, id, size);
        return WrongSize;
    }
    std::memcpy(&number, value, sizeof number);
    if (!isFilterNumber(id, number)) {
        KV_REPORT(errors, DalWrongValue, origin, id);
        return WrongValue;
    }
    if (id == FilterIpAddress)
        settings.addresses.push_back(number);
    else if (id == FilterSubnetMask)
        settings.subnetMask = number;
    return Ok;
}

KvInt32 getNumber(KvCErrorListPool& errors, const char* origin, KvUInt32 id, KvUInt32 number, KvUInt32* size,
                  void* value)
{
    if (*size != sizeof number) {
        KV_REPORT(errors, DalWrongSize, origin, id, *size);
        return WrongSize;
    }
    std::memcpy(value, &number, sizeof number);
    return Ok;
}

KvInt32 getText(KvCErrorListPool& errors, const char* origin, KvUInt32 id, const char* text, KvUInt32* size,
                void* value)
{
    const auto needed = static_cast<KvUInt32>(std::strlen(text) + 1);
    if (*size < needed) {
        KV_REPORT(errors, DalWrongSize, origin, id, *size);
        return WrongSize;
    }
    std::memcpy(value, text, needed);
    *size = needed;
    return Ok;
}

KvInt32 reportUnknownParameter(KvCErrorListPool& errors, const char* origin, KvUInt32 id, KvUInt32 index)
{
    KV_REPORT(errors, DalUnknownParameter, origin, id, index);
    return UnknownParameter;
}

KvInt32 getDeviceParam(KvCErrorListPool& errors, const char* origin, const DeviceEntry& device, KvUInt32 id,
                       KvUInt32* size, void* value)
{
    switch (id) {
        case DeviceSystemName:
            return getText(errors, origin, id, device.info.systemName, size, value);
        case DeviceBoardName:
            return getText(errors, origin, id, device.info.boardName, size, value);
        case DeviceSerialNumber:
            return getNumber(errors, origin, id, device.info.serialNumber, size, value);
        case DeviceBoardType:
            return getNumber(errors, origin, id, device.info.boardType, size, value);
        case DeviceIpAddress:
            return getNumber(errors, origin, id, device.info.ipAddress, size, value);
        case AccessId:
            break;
        default:
            return reportUnknownParameter(errors, origin, id, 0);
    }
    const KvUInt32 accessId = device.board->accessInForce();
    if (accessId != 0)
        return getNumber(errors, origin, id, accessId, size, value);
    KV_REPORT(errors, DalNoAccess, origin);
    return NoAccess;
}

KvInt32 getLockParam(KvCErrorListPool& errors, const char* origin, const LockEntry& lock, KvUInt32 id, KvUInt32* size,
                     void* value)
{
    if (id != AccessId)
        return reportUnknownParameter(errors, origin, id, 0);
    KvUInt32 accessId = 0;
    switch (lock.lease->access(accessId)) {
        case Lease::State::None:
            KV_REPORT(errors, DalNoAccess, origin);
            return NoAccess;
        case Lease::State::Lost:
            KV_REPORT(errors, DalAccessLost, origin, lock.board->address());
            return AccessLost;
        default:
            return getNumber(errors, origin, id, accessId, size, value);
    }
}

/* The record as it is kept: address as number and as text, whichever was given. False when there is none, or a text
   without end. */
bool complete(KvDALSDeviceInfo& info)
{
    if (!endsWithNul(info.systemName, sizeof info.systemName) || !endsWithNul(info.boardName, sizeof info.boardName) ||
        !endsWithNul(info.hostAddress, sizeof info.hostAddress))
        return false;
    if (info.ipAddress == 0)
        info.ipAddress = KvNRtosAbstraction::stringToIpV4(info.hostAddress);
    KvNRtosAbstraction::ipToString(info.ipAddress, info.hostAddress, sizeof info.hostAddress);
    return info.ipAddress != 0;
}

}  // namespace

KvInt32 KvDAL_createFilter(KvCErrorListPool& errors, void** filter, KvUInt32 kind)
{
    constexpr const char* origin = "KvDAL_createFilter";
    if (filter == nullptr)
        return reportInvalidArgument(errors, origin, "filter");
    *filter = nullptr;
    if (kind != DeviceFilter) {
        KV_REPORT(errors, DalUnknownFilterKind, origin, kind);
        return UnknownFilterKind;
    }
    return guarded(errors, origin, [&] { return enter(errors, origin, makeShared<FilterEntry>(), filter); });
}

KvInt32 KvDAL_setFilterParameter(KvCErrorListPool& errors, void* filter, KvUInt32 id, KvUInt32 size, const void* value)
{
    constexpr const char* origin = "KvDAL_setFilterParameter";
    const auto entry = handleTable().find<FilterEntry>(filter);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    if (value == nullptr)
        return reportInvalidArgument(errors, origin, "value");
    return guarded(errors, origin, [&] {
        const std::lock_guard<std::mutex> guard(entry->mutex);
        KvInt32 result = UnknownParameter;
        if (id == FilterSystemName)
            result = setSystemName(errors, origin, entry->settings, size, static_cast<const char*>(value));
        else if (id == FilterIpAddress || (id >= FilterSubnetMask && id <= FilterProtocolType))
            result = setFilterNumber(errors, origin, entry->settings, id, size, value);
        else
            reportUnknownParameter(errors, origin, id, 0);
        if (result == Ok)
            entry->applied = false;
        return result;
    });
}

KvInt32 KvDAL_applyFilter(KvCErrorListPool& errors, void* filter)
{
    constexpr const char* origin = "KvDAL_applyFilter";
    const auto entry = handleTable().find<FilterEntry>(filter);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    return guarded(errors, origin, [&] {
        FilterSettings settings;
        {
            const std::lock_guard<std::mutex> guard(entry->mutex);
            settings = entry->settings;
            entry->applied = false;
            entry->found.clear();
        }
        DeviceInfos found;
        const KvInt32 result = discover(errors, origin, settings, found);
        if (result != Ok)
            return result;
        const std::lock_guard<std::mutex> guard(entry->mutex);
        entry->found = std::move(found);
        entry->applied = true;
        return result;
    });
}

KvInt32 KvDAL_getDeviceList(KvCErrorListPool& errors, void* filter, KvDALSDeviceInfo* infos, KvUInt32* count)
{
    constexpr const char* origin = "KvDAL_getDeviceList";
    const auto entry = handleTable().find<FilterEntry>(filter);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    if (count == nullptr)
        return reportInvalidArgument(errors, origin, "count");
    const std::lock_guard<std::mutex> guard(entry->mutex);
    if (!entry->applied) {
        KV_REPORT(errors, DalFilterNotApplied, origin);
        return FilterNotApplied;
    }
    const KvUInt32 room = infos == nullptr ? 0 : *count;
    *count = static_cast<KvUInt32>(entry->found.size());
    if (room < *count) {
        KV_REPORT(errors, DalListTooSmall, origin, room, *count);
        return ListTooSmall;
    }
    std::copy(entry->found.begin(), entry->found.end(), infos);
    return Ok;
}

KvInt32 KvDAL_deleteFilter(KvCErrorListPool& errors, void* filter)
{
    if (handleTable().take<FilterEntry>(filter) == nullptr)
        return reportInvalidHandle(errors, "KvDAL_deleteFilter");
    return Ok;
}

KvInt32 KvDAL_createDeviceHandle(KvCErrorListPool& errors, void** device, const KvDALSDeviceInfo& info)
{
    constexpr const char* origin = "KvDAL_createDeviceHandle";
    if (device == nullptr)
        return reportInvalidArgument(errors, origin, "device");
    *device = nullptr;
    KvDALSDeviceInfo kept = info;
    if (!complete(kept))
        return reportInvalidArgument(errors, origin, "info");
    return guarded(errors, origin, [&] { return enter(errors, origin, makeShared<DeviceEntry>(kept), device); });
}

KvInt32 KvDAL_deleteDeviceHandle(KvCErrorListPool& errors, void* device)
{
    const auto entry = handleTable().take<DeviceEntry>(device);
    if (entry == nullptr)
        return reportInvalidHandle(errors, "KvDAL_deleteDeviceHandle");
    entry->board->endClaims(device);
    return Ok;
}

KvInt32 KvDAL_getParam(KvCErrorListPool& errors, void* handle, KvUInt32 id, KvUInt32 index, KvUInt32* size, void* value)
{
    constexpr const char* origin = "KvDAL_getParam";
    const auto device = handleTable().find<DeviceEntry>(handle);
    const auto lock = device == nullptr ? handleTable().find<LockEntry>(handle) : nullptr;
    if (device == nullptr && lock == nullptr)
        return reportInvalidHandle(errors, origin);
    if (size == nullptr || value == nullptr)
        return reportInvalidArgument(errors, origin, size == nullptr ? "size" : "value");
    if (index != 0)
        return reportUnknownParameter(errors, origin, id, index);
    return device != nullptr ? getDeviceParam(errors, origin, *device, id, size, value)
                             : getLockParam(errors, origin, *lock, id, size, value);
}

const char* KvDAL_getAddressFromHandle(KvCErrorListPool& errors, void* device)
{
    const auto entry = handleTable().find<DeviceEntry>(device);
    if (entry == nullptr) {
        reportInvalidHandle(errors, "KvDAL_getAddressFromHandle");
        return nullptr;
    }
    return entry->board->address();
}

KvInt32 KvDAL_getRPCClientReference(KvCErrorListPool& errors, void* device, KvUInt32 key, KvCRpcClient** client)
{
    constexpr const char* origin = "KvDAL_getRPCClientReference";
    if (client == nullptr)
        return reportInvalidArgument(errors, origin, "client");
    *client = nullptr;
    const auto entry = handleTable().find<DeviceEntry>(device);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    *client = entry->board->client(key);
    return Ok;
}

KvInt32 KvDAL_claimRPCClient(KvCErrorListPool& errors, void* device, KvUInt32 key, KvCRpcClient** client)
{
    constexpr const char* origin = "KvDAL_claimRPCClient";
    if (client == nullptr)
        return reportInvalidArgument(errors, origin, "client");
    *client = nullptr;
    const auto entry = handleTable().find<DeviceEntry>(device);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    return guarded(errors, origin, [&] {
        const Board::Claim claim = entry->board->claimClient(key, device, *client);
        if (claim == Board::Claim::HeldByCaller)
            return reportInvalidArgument(errors, origin, "key");
        if (claim == Board::Claim::Granted && handleTable().find<DeviceEntry>(device) == nullptr) {
            // deleted while this thread waited: nobody else would end the claim
            entry->board->endClaims(device);
            return reportInvalidHandle(errors, origin);
        }
        return static_cast<KvInt32>(Ok);
    });
}

KvInt32 KvDAL_registerRPCClient(KvCErrorListPool& errors, void* device, KvUInt32 key, KvCRpcClient* client)
{
    constexpr const char* origin = "KvDAL_registerRPCClient";
    std::unique_ptr<KvCRpcClient> owned(client);
    const auto entry = handleTable().find<DeviceEntry>(device);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    return guarded(errors, origin, [&] {
        if (!entry->board->registerClient(key, client)) {
            KV_REPORT(errors, DalClientExists, origin, key);
            return static_cast<KvInt32>(ClientExists);
        }
        static_cast<void>(owned.release());
        return static_cast<KvInt32>(Ok);
    });
}
