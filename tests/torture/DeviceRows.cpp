#include <unistd.h>

#include <cstring>

#include "Operation.h"
#include "TestBoards.h"
#include "manager/rpc/InventoryRecords.h"
#include "manager/rpc/KVINVENTORYMANAGERRPCIF1Client.h"
#include "platform/oncrpc/KvCRpcClient.h"

/* Calls, filters, handles, locks and files of boards. */

namespace {

using namespace KvNDeviceAccess;

struct Filter
{
    KvCErrorListPool setUp;
    void* filter = nullptr;
    void* made = nullptr;
    KvDALSDeviceInfo infos[4] = {};
    KvUInt32 count = 0;

    Filter()
    {
        TestBoards::start();
        KvDAL_createFilter(setUp, &filter, DeviceFilter);
    }
    ~Filter()
    {
        KvDAL_deleteFilter(setUp, filter);
        if (made != nullptr)
            KvDAL_deleteFilter(setUp, made);
    }
    KvInt32 select(KvCErrorListPool& errors)
    {
        KvUInt32 first = TestBoards::address;
        const KvInt32 result = KvDAL_setFilterParameter(errors, filter, FilterIpAddress, 4, &first);
        ++first;
        return result != 0 ? result : KvDAL_setFilterParameter(errors, filter, FilterIpAddress, 4, &first);
    }
    void renew()
    {
        KvDAL_deleteFilter(setUp, filter);
        KvDAL_createFilter(setUp, &filter, DeviceFilter);
        select(setUp);
    }
};

struct Selected : Filter
{
    Selected() { select(setUp); }
};

void addFilterRows(Table& table)
{
    table.add<Filter>(
        "KvDAL_createFilter KvDAL_deleteFilter",
        [](Filter& state, KvCErrorListPool& errors) {
            return KvDAL_createFilter(errors, &state.made, DeviceFilter) == 0;
        },
        [](Filter& state) { return std::string(state.made != nullptr ? "made" : "none"); });
    table.add<Filter>(
        "KvDAL_setFilterParameter", [](Filter& state, KvCErrorListPool& errors) { return state.select(errors) == 0; },
        [](Filter&) { return std::string(); });
    table.add<Selected>(
        "KvDAL_applyFilter KvDAL_getDeviceList",
        [](Selected& state, KvCErrorListPool& errors) {
            state.count = 4;
            return KvDAL_applyFilter(errors, state.filter) == 0 &&
                   KvDAL_getDeviceList(errors, state.filter, state.infos, &state.count) == 0;
        },
        [](Selected& state) {
            std::string found;
            for (KvUInt32 i = 0; i < state.count; ++i)
                found += std::to_string(state.infos[i].serialNumber) + state.infos[i].boardName + " ";
            return found;
        });
}

struct Device
{
    KvCErrorListPool setUp;
    const KvDALSDeviceInfo info = TestBoards::info();
    void* device = nullptr;
    void* other = nullptr;
    void* lock = nullptr;
    void* transfer = nullptr;
    KvCRpcClient* client = nullptr;
    KvUInt32 number = 0;
    KvUInt32 count = 0;
    std::string text;

    Device()
    {
        TestBoards::start();
        KvDAL_createDeviceHandle(setUp, &device, info);
        text.reserve(100);
    }
    ~Device()
    {
        if (transfer != nullptr)
            KvDAL_deleteFTClientHandle(setUp, transfer);
        if (lock != nullptr)
            KvDAL_deleteAccessRestrictionHandle(setUp, lock);
        if (other != nullptr)
            KvDAL_deleteDeviceHandle(setUp, other);
        KvDAL_deleteDeviceHandle(setUp, device);
    }
    /** Takes the board; one that an attempt has left behind is free again when its lease has ended. */
    void take()
    {
        KvDAL_createAccessRestrictionHandle(setUp, device, &lock);
        for (int i = 0; i < 600; ++i) {
            if (KvDAL_requestAccessRestrictionLevel(setUp, lock, 0, Modify) == 0)
                return;
            usleep(10000);
        }
    }
};

std::string numberOf(Device& state)
{
    return std::to_string(state.number);
}

void addHandleRows(Table& table)
{
    table.add<Device>(
        "KvDAL_createDeviceHandle KvDAL_deleteDeviceHandle",
        [](Device& state, KvCErrorListPool& errors) {
            return KvDAL_createDeviceHandle(errors, &state.other, state.info) == 0;
        },
        [](Device& state) { return std::string(state.other != nullptr ? "made" : "none"); });
    table.add<Device>(
        "KvDAL_getParam KvDAL_getAddressFromHandle",
        [](Device& state, KvCErrorListPool& errors) {
            KvUInt32 size = sizeof state.number;
            return KvDAL_getParam(errors, state.device, DeviceSerialNumber, 0, &size, &state.number) == 0 &&
                   std::strcmp(KvDAL_getAddressFromHandle(errors, state.device), "127.0.80.1") == 0;
        },
        numberOf);
    table.add<Device>(
        "KvDAL_getRPCClientReference KvDAL_claimRPCClient KvDAL_registerRPCClient",
        [](Device& state, KvCErrorListPool& errors) {
            KvInt32 result = KvDAL_claimRPCClient(errors, state.device, 8, &state.client);
            if (result != 0 || state.client != nullptr)
                return result == 0;
            state.client = new (errors) KvCRpcClient(errors, "127.0.80.1");
            if (state.client == nullptr)
                errors.setError(0x401, 1, "test", nullptr);
            result = KvDAL_registerRPCClient(errors, state.device, 8, state.client);
            if (result != 0 || state.client == nullptr) {
                state.client = nullptr;
                return false;
            }
            KvCRpcClient* found = nullptr;
            return KvDAL_getRPCClientReference(errors, state.device, 8, &found) == 0 && found == state.client;
        },
        [](Device& state) { return std::string(state.client != nullptr ? "registered" : "none"); });
}

struct Observed : Device
{
    KvDALSHolder holders[64] = {};
    Observed()
    {
        KvDAL_createAccessRestrictionHandle(setUp, device, &lock);
        for (int i = 0; i < 600 && KvDAL_requestAccessRestrictionLevel(setUp, lock, 0, Observe) != 0; ++i)
            usleep(10000);
    }
};

struct NotConnected : Device
{
    void drop()
    {
        if (lock != nullptr)
            KvDAL_deleteAccessRestrictionHandle(setUp, lock);
        lock = nullptr;
    }
};

void addLockRows(Table& table)
{
    table.add<NotConnected>(
        "KvDAL_createAccessRestrictionHandle KvDAL_requestAccessRestrictionLevel KvDAL_deleteAccessRestrictionHandle",
        [](NotConnected& state, KvCErrorListPool& errors) {
            state.drop();
            KvInt32 result = KvDAL_createAccessRestrictionHandle(errors, state.device, &state.lock);
            if (result == 0)
                result = KvDAL_requestAccessRestrictionLevel(errors, state.lock, 0, Observe);
            if (result != 0)
                return false;
            const KvInt32 released = KvDAL_deleteAccessRestrictionHandle(errors, state.lock);
            state.lock = nullptr;
            return released == 0;
        },
        [](NotConnected& state) { return std::string(state.lock == nullptr ? "given back" : "kept"); });
    table.add<NotConnected>(
        "KvDAL_adoptAccessRestriction",
        [](NotConnected& state, KvCErrorListPool& errors) {
            state.drop();
            return KvDAL_adoptAccessRestriction(errors, state.device, 77, &state.lock) == 0;
        },
        [](NotConnected& state) { return std::string(state.lock != nullptr ? "adopted" : "none"); });
    table.add<Observed>(
        "KvDAL_getAccessState",
        [](Observed& state, KvCErrorListPool& errors) {
            state.count = 64;
            return KvDAL_getAccessState(errors, state.device, state.holders, &state.count) == 0;
        },
        [](Observed& state) {
            return std::string(state.count > 0 && state.holders[0].level == Observe ? "observed" : "wrong");
        });
}

KvUInt32 g_pairs[] = {380, 4711};  // HCN[4711]
constexpr KvInventoryManagerRpcIFInventoryAddress board = {1, 2, g_pairs};

/** A client of the first board's inventory service. */
struct Caller
{
    KvCErrorListPool setUp;
    KVINVENTORYMANAGERRPCIF1Client* client = nullptr;
    KvUInt32 seen = 0;

    Caller()
    {
        TestBoards::start();
        client = made(setUp);
        client->connect(setUp);
    }
    ~Caller() { delete client; }
    static KVINVENTORYMANAGERRPCIF1Client* made(KvCErrorListPool& errors)
    {
        auto* const made = new (errors) KVINVENTORYMANAGERRPCIF1Client(errors, "127.0.80.1");
        if (made == nullptr) {
            errors.setError(0x401, 1, "test", nullptr);
            return nullptr;
        }
        made->setParameter(errors, KvCRpcClient::Program, 8);
        made->setParameter(errors, KvCRpcClient::Version, 1);
        made->setParameter(errors, KvCRpcClient::PortMapperPort, TestBoards::mapperPort);
        made->setParameter(errors, KvCRpcClient::CallTimeout, 5000000);
        made->setParameter(errors, KvCRpcClient::ConnectTimeout, 5000000);
        made->setRepeatable(1);
        return made;
    }
    /** What came back, and what was reported with it. */
    void note(const KvCErrorListPool& errors, KvUInt32 value)
    {
        seen = value;
        for (KvUInt32 i = 0; i < errors.getErrorCount(); ++i)
            seen = seen * 31 + errors.getErrorCode(i);
    }
};

std::string seenBy(Caller& caller)
{
    return std::to_string(caller.seen);
}

struct Transfer : Device
{
    KvDALSFile files[256] = {};
    KvUInt64 free = 0;
    std::string directory;
    std::string fileName;
    Transfer()
    {
        take();
        askForAName();
        KvDAL_createFTClientHandle(setUp, device, &transfer);
    }
    ~Transfer() { remove(); }
    /** The board hands out the name of a file to come. */
    void askForAName()
    {
        const Caller caller;
        KvUInt32 accessId = 0;
        KvUInt32 size = sizeof accessId;
        KvDAL_getParam(setUp, lock, AccessId, 0, &size, &accessId);
        KvInventoryManagerRpcIFRemoteFilenameResult name{};
        KvNInventoryRpc::generateRemoteFilename(*caller.client, setUp, board, accessId, name);
        directory.assign(name.directory.data, name.directory.length);
        fileName.assign(name.fileName.data, name.fileName.length);
        caller.client->freeResults(KvNInventoryRpc::routine<KvInventoryManagerRpcIFRemoteFilenameResult>, &name);
    }
    void put(KvCErrorListPool& errors)
    {
        number = KvDAL_putFileU(errors, nullptr, transfer, TestBoards::imagePath(), directory.c_str(), fileName.c_str(),
                                nullptr, nullptr) == 0
                     ? 1
                     : 0;
    }
    void remove()
    {
        KvCErrorListPool unused;
        KvDAL_deleteFile(unused, nullptr, transfer, directory.c_str(), fileName.c_str());
    }
    /** What is listed of the file. */
    std::string listed() const
    {
        for (KvUInt32 i = 0; i < count; ++i)
            if (fileName == files[i].fileName)
                return directory == files[i].directory ? std::to_string(files[i].size) : "elsewhere";
        return "not there";
    }
    std::string look()
    {
        count = 256;
        return KvDAL_listFiles(setUp, device, files, &count, &free) == 0 ? listed() : "not listed";
    }
};

struct Put : Transfer
{
    Put() { put(setUp); }
};

void addFileRows(Table& table)
{
    table.add<Device>(
        "KvDAL_createFTClientHandle KvDAL_deleteFTClientHandle",
        [](Device& state, KvCErrorListPool& errors) {
            return KvDAL_createFTClientHandle(errors, state.device, &state.transfer) == 0;
        },
        [](Device& state) { return std::string(state.transfer != nullptr ? "made" : "none"); });
    table.add<Transfer>(
        "KvDAL_putFileU",
        [](Transfer& state, KvCErrorListPool& errors) {
            state.put(errors);
            return state.number == 1;
        },
        [](Transfer& state) { return state.look(); });
    table.add<Put>(
        "KvDAL_deleteFile",
        [](Put& state, KvCErrorListPool& errors) {
            if (state.number == 2)
                state.put(errors);
            state.number = 2;
            return KvDAL_deleteFile(errors, nullptr, state.transfer, state.directory.c_str(), state.fileName.c_str()) ==
                   0;
        },
        [](Put& state) { return state.look(); });
    table.add<Put>(
        "KvDAL_listFiles",
        [](Put& state, KvCErrorListPool& errors) {
            state.count = 256;
            return KvDAL_listFiles(errors, state.device, state.files, &state.count, &state.free) == 0;
        },
        [](Put& state) { return state.listed(); });
}

void addClientRows(Table& table)
{
    table.add<Caller>(
        "KvCRpcClient::KvCRpcClient KvCRpcClient::connect KvCRpcClient::setParameter KvCRpcClient::setRepeatable "
        "KvCRpcClient::setTrace KvCRpcClient::setDefaultTimeout KvCRpcClient::cancelAll",
        [](Caller& caller, KvCErrorListPool& errors) {
            delete caller.client;
            KvCRpcClient::setTrace(nullptr, nullptr);
            KvCRpcClient::setDefaultTimeout(0);
            caller.client = Caller::made(errors);
            return isQuiet(errors) && caller.client->connect(errors) == 0;
        },
        seenBy);
    table.add<Caller>(
        "KvCRpcClient::clntCall KvCRpcClient::freeResults",
        [](Caller& caller, KvCErrorListPool& errors) {
            KvInventoryManagerRpcIFLocalAddressResult result{};
            constexpr auto routine = KvNInventoryRpc::routine<KvInventoryManagerRpcIFLocalAddressResult>;
            const long called = caller.client->clntCall(errors, 4, KvNXdr::xdr_void, nullptr, routine, &result);
            if (called == 0)
                caller.note(errors, result.address.elementCount);
            caller.client->freeResults(routine, &result);
            return called == 0;
        },
        seenBy);
}

/** One stub: calls it, notes what came back and frees it. */
#define KV_STUB_ROW(stub, Result, field, ...)                                                      \
    table.add<Caller>(                                                                             \
        "KvNInventoryRpc::" #stub,                                                                 \
        [](Caller& caller, KvCErrorListPool& errors) {                                             \
            Result result{};                                                                       \
            const long called = KvNInventoryRpc::stub(*caller.client, errors, __VA_ARGS__ result); \
            if (called == 0)                                                                       \
                caller.note(errors, result.field);                                                 \
            caller.client->freeResults(KvNInventoryRpc::routine<Result>, &result);                 \
            return called == 0;                                                                    \
        },                                                                                         \
        seenBy)

char g_value[] = "a value";
constexpr KvInventoryManagerRpcIFParameterValue value = {0x2000, {7, g_value}};

void addStubRows(Table& table)
{
    KV_STUB_ROW(scan, KvInventoryManagerRpcIFScanResult, tree.length, false, );
    KV_STUB_ROW(readParameter, KvInventoryManagerRpcIFReadParameterResult, status, board, );
    KV_STUB_ROW(writeParameterValue, KvInventoryManagerRpcIFStatusResult, status, board, 0, value, );
    KV_STUB_ROW(getLocalAddress, KvInventoryManagerRpcIFLocalAddressResult, address.elementCount, );
    KV_STUB_ROW(apply, KvInventoryManagerRpcIFStatusResult, status, board, 0, );
    KV_STUB_ROW(update, KvInventoryManagerRpcIFStatusResult, status, board, 0, "f",
                KvInventoryManagerRpcIFFirmwareType{}, 1, );
    KV_STUB_ROW(updateStatus, KvInventoryManagerRpcIFUpdateStatusResult, status, board, );
    KV_STUB_ROW(updateErrors, KvInventoryManagerRpcIFStatusResult, status, board, 0, );
    KV_STUB_ROW(generateRemoteFilename, KvInventoryManagerRpcIFRemoteFilenameResult, status, board, 0, );
    KV_STUB_ROW(checkAuthority, KvInventoryManagerRpcIFCheckAuthorityResult, status, board, 0, 0x10001, );
    KV_STUB_ROW(updateFinish, KvInventoryManagerRpcIFStatusResult, status, board, 0, );
    KV_STUB_ROW(update2, KvInventoryManagerRpcIFStatusResult, status, board, 0, 1, "f", 1, );
    KV_STUB_ROW(updateStatus2, KvInventoryManagerRpcIFUpdateStatus2Result, status, board, 0, );
    KV_STUB_ROW(updateErrors2, KvInventoryManagerRpcIFUpdateErrors2Result, status, board, 0, 0, );
    KV_STUB_ROW(registerParent, KvInventoryManagerRpcIFStatusResult, status, 1, );
}

}  // namespace

void addDeviceRows(Table& table)
{
    addFilterRows(table);
    addHandleRows(table);
    addLockRows(table);
    addFileRows(table);
    addClientRows(table);
    addStubRows(table);
}
