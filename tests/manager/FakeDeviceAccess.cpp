#include "FakeDeviceAccess.h"

#include <cstring>
#include <memory>

#include "platform/oncrpc/KvCRpcClient.h"

namespace {

constexpr std::uintptr_t Filter = 1;
constexpr std::uintptr_t LockHandle = 2;
constexpr std::uintptr_t TransferHandle = 3;
constexpr std::uintptr_t FirstDevice = 100;

std::string number(KvUInt64 value)
{
    return std::to_string(value);
}

KvUInt32 serialOf(void* device)
{
    return static_cast<KvUInt32>(reinterpret_cast<std::uintptr_t>(device));
}

/** Notes the call, and gives the result set for it. */
KvInt32 note(KvCErrorListPool& errors, const std::string& operation, const std::string& arguments = "")
{
    FakeDeviceAccess& fake = FakeDeviceAccess::instance();
    fake.calls.push_back(arguments.empty() ? operation : operation + " " + arguments);
    auto found = fake.failures.find(operation);
    if (found == fake.failures.end())
        found = fake.failures.find(operation + " " + arguments.substr(0, arguments.find(' ')));
    if (found == fake.failures.end())
        return 0;
    errors.setError(FakeDeviceAccess::Reported, __LINE__, "FakeDeviceAccess", nullptr);
    return found->second;
}

/** Makes a handle; whoever was refused one finds something in `handle` all the same. */
KvInt32 create(KvCErrorListPool& errors, const char* operation, std::uintptr_t key, void** handle, int& open)
{
    *handle = reinterpret_cast<void*>(key);
    const KvInt32 result = note(errors, operation);
    if (result == 0)
        ++open;
    return result;
}

}  // namespace

FakeDeviceAccess& FakeDeviceAccess::instance()
{
    static FakeDeviceAccess fake;
    return fake;
}

KvInt32 KvDAL_createFilter(KvCErrorListPool& errors, void** filter, KvUInt32 kind)
{
    const KvInt32 result = note(errors, "createFilter", number(kind));
    if (result == 0)
        *filter = reinterpret_cast<void*>(Filter);
    return result;
}

KvInt32 KvDAL_setFilterParameter(KvCErrorListPool& errors, void*, KvUInt32 id, KvUInt32 size, const void* value)
{
    std::string text;
    if (id == KvNDeviceAccess::FilterSystemName) {
        text = std::string(static_cast<const char*>(value), size - 1);
    } else {
        KvUInt32 read = 0;
        std::memcpy(&read, value, sizeof read);
        text = number(read);
    }
    return note(errors, "setFilterParameter", number(id) + " " + number(size) + " " + text);
}

KvInt32 KvDAL_applyFilter(KvCErrorListPool& errors, void*)
{
    return note(errors, "applyFilter");
}

KvInt32 KvDAL_getDeviceList(KvCErrorListPool& errors, void*, KvDALSDeviceInfo* infos, KvUInt32* count)
{
    const KvUInt32 boards = FakeDeviceAccess::instance().boards;
    const bool sizeOnly = infos == nullptr;
    const KvInt32 result = note(errors, "getDeviceList", sizeOnly ? "size" : "list");
    if (result != 0)
        return result;
    if (sizeOnly && boards != 0) {
        *count = boards;
        errors.setError(FakeDeviceAccess::Reported, __LINE__, "FakeDeviceAccess", nullptr);
        return KvNDeviceAccess::ListTooSmall;
    }
    for (KvUInt32 i = 0; i < boards; ++i) {
        infos[i] = KvDALSDeviceInfo{};
        infos[i].serialNumber = static_cast<KvUInt32>(FirstDevice) + i;
    }
    *count = boards;
    return 0;
}

KvInt32 KvDAL_deleteFilter(KvCErrorListPool& errors, void*)
{
    return note(errors, "deleteFilter");
}

KvInt32 KvDAL_createDeviceHandle(KvCErrorListPool& errors, void** device, const KvDALSDeviceInfo& info)
{
    const KvInt32 result = note(errors, "createDeviceHandle", number(info.serialNumber));
    if (result == 0)
        *device = reinterpret_cast<void*>(static_cast<std::uintptr_t>(info.serialNumber));
    return result;
}

KvInt32 KvDAL_deleteDeviceHandle(KvCErrorListPool& errors, void* device)
{
    return note(errors, "deleteDeviceHandle", number(serialOf(device)));
}

KvInt32 KvDAL_getParam(KvCErrorListPool& errors, void* handle, KvUInt32 id, KvUInt32 index, KvUInt32* size, void* value)
{
    const KvInt32 result = note(errors, "getParam", number(id) + " " + number(index) + " " + number(*size));
    if (result != 0)
        return result;
    const KvUInt32 serial = serialOf(handle);
    const KvUInt32 numbers[] = {serial, 6001, 0x0A000001 + serial - static_cast<KvUInt32>(FirstDevice), 0xACCE55};
    const KvUInt32 which = id == KvNDeviceAccess::AccessId ? 3 : id - KvNDeviceAccess::DeviceSerialNumber;
    if (id < KvNDeviceAccess::DeviceSerialNumber)
        std::strcpy(static_cast<char*>(value), "text");
    else
        std::memcpy(value, &numbers[which], sizeof numbers[which]);
    return 0;
}

const char* KvDAL_getAddressFromHandle(KvCErrorListPool& errors, void*)
{
    return note(errors, "getAddressFromHandle") == 0 ? "127.0.0.1" : nullptr;
}

KvInt32 KvDAL_getRPCClientReference(KvCErrorListPool& errors, void*, KvUInt32 key, KvCRpcClient** client)
{
    *client = FakeDeviceAccess::instance().client;
    return note(errors, "getRPCClientReference", number(key));
}

KvInt32 KvDAL_claimRPCClient(KvCErrorListPool& errors, void*, KvUInt32 key, KvCRpcClient** client)
{
    *client = nullptr;
    return note(errors, "claimRPCClient", number(key));
}

KvInt32 KvDAL_registerRPCClient(KvCErrorListPool& errors, void*, KvUInt32 key, KvCRpcClient* client)
{
    std::unique_ptr<KvCRpcClient> owned(client);
    const KvInt32 result = note(errors, "registerRPCClient", number(key) + (client != nullptr ? " client" : " none"));
    if (result == 0)
        FakeDeviceAccess::instance().client = owned.release();
    return result;
}

KvInt32 KvDAL_createAccessRestrictionHandle(KvCErrorListPool& errors, void*, void** lock)
{
    return create(errors, "createAccessRestrictionHandle", LockHandle, lock, FakeDeviceAccess::instance().openLocks);
}

KvInt32 KvDAL_deleteAccessRestrictionHandle(KvCErrorListPool& errors, void* lock)
{
    --FakeDeviceAccess::instance().openLocks;
    return note(errors, "deleteAccessRestrictionHandle", number(serialOf(lock)));
}

KvInt32 KvDAL_requestAccessRestrictionLevel(KvCErrorListPool& errors, void*, KvUInt32 index, KvInt32 level)
{
    return note(errors, "requestAccessRestrictionLevel", number(index) + " " + std::to_string(level));
}

KvInt32 KvDAL_createFTClientHandle(KvCErrorListPool& errors, void*, void** transfer)
{
    return create(errors, "createFTClientHandle", TransferHandle, transfer, FakeDeviceAccess::instance().openTransfers);
}

KvInt32 KvDAL_deleteFTClientHandle(KvCErrorListPool& errors, void* transfer)
{
    --FakeDeviceAccess::instance().openTransfers;
    return note(errors, "deleteFTClientHandle", number(serialOf(transfer)));
}

KvInt32 KvDAL_putFileU(KvCErrorListPool& errors, void* reserved, void* transfer, const wchar_t* localPath,
                       const char* directory, const char* fileName, void (*progress)(unsigned int, void*),
                       void* context)
{
    std::string path;
    for (; *localPath != L'\0'; ++localPath)
        path += static_cast<char>(*localPath);
    const KvInt32 result = note(errors, "putFileU",
                                number(serialOf(reserved)) + " " + number(serialOf(transfer)) + " " + path + " '" +
                                    directory + "' '" + fileName + "'");
    FakeDeviceAccess& fake = FakeDeviceAccess::instance();
    fake.progressFunction = progress;
    fake.progressContext = context;
    for (const unsigned int value : fake.progress)
        progress(value, context);
    return result;
}

KvInt32 KvDAL_deleteFile(KvCErrorListPool& errors, void* reserved, void* transfer, const char* directory,
                         const char* fileName)
{
    return note(
        errors, "deleteFile",
        number(serialOf(reserved)) + " " + number(serialOf(transfer)) + " '" + directory + "' '" + fileName + "'");
}
