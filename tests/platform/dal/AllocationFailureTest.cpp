#include <algorithm>
#include <functional>

#include "platform/dal/DeviceAccessProgram.h"
#include "platform/oncrpc/KvCRpcClient.h"
#include "tests/platform/dal/DalTest.h"
#include "tests/platform/dal/FileTransferFixture.h"
#include "tests/support/FailingAllocation.h"

using namespace KvNDeviceAccess;

namespace {

constexpr KvUInt32 address = ip(127, 0, 50, 40);

/* Fails the first, the second, … allocation of `operation` until none fails any more. Each time the result says what
   happened: a failure is reported, a success is one. `check` is asked after each success, `undo` after each time. */
void failEach(const std::function<KvInt32(KvCErrorListPool&)>& operation, const std::function<void()>& check,
              const std::function<void()>& undo)
{
    for (std::size_t n = 1; n < 1000; ++n) {
        KvCErrorListPool errors;
        KvInt32 result = 0;
        bool happened = false;
        {
            const FailingAllocation failing(n);
            result = operation(errors);
            happened = failing.hasFailed();
        }
        if (result == 0) {
            EXPECT_EQ(errors.getErrorCount(), 0u) << n;
            check();
        } else {
            EXPECT_GT(errors.getErrorCount(), 0u) << n;
        }
        undo();
        if (!happened) {
            EXPECT_EQ(result, 0);
            return;
        }
    }
    FAIL() << "allocations without end";
}

}  // namespace

TEST(DalAllocationFailure, ofMakingAFilter)
{
    void* filter = nullptr;
    failEach([&](KvCErrorListPool& errors) { return KvDAL_createFilter(errors, &filter, 1); },
             [&] { EXPECT_NE(filter, nullptr); },
             [&] {
                 KvCErrorListPool errors;
                 KvDAL_deleteFilter(errors, filter);
             });
}

TEST(DalAllocationFailure, ofSettingAddresses)
{
    for (int round = 0; round < 5; ++round) {
        Filter filter;
        for (int i = 0; i < round; ++i)
            filter.with(6, address);
        failEach(
            [&](KvCErrorListPool& errors) {
                const KvUInt32 value = address;
                return KvDAL_setFilterParameter(errors, filter.handle, 6, 4, &value);
            },
            [] {}, [] {});
    }
}

TEST(DalAllocationFailure, ofDiscoveryByAddress)
{
    ScriptedRack rack({boardAt(address, 5), boardAt(address + 1, 6)});
    Filter filter;
    filter.with(6, address).with(6, address + 1);
    Warnings warnings;
    failEach([&](KvCErrorListPool& errors) { return KvDAL_applyFilter(errors, filter.handle); },
             [&] {
                 KvDALSDeviceInfo infos[2];
                 KvUInt32 count = 2;
                 KvCErrorListPool errors;
                 EXPECT_EQ(KvDAL_getDeviceList(errors, filter.handle, infos, &count), 0);
                 EXPECT_EQ(count, 2u);
             },
             [] {});
}

TEST(DalAllocationFailure, ofMakingADeviceHandle)
{
    KvDALSDeviceInfo info = {};
    info.ipAddress = address;
    info.serialNumber = 5;
    void* device = nullptr;
    failEach([&](KvCErrorListPool& errors) { return KvDAL_createDeviceHandle(errors, &device, info); },
             [&] { EXPECT_EQ(number(device, 4), 5u); },
             [&] {
                 KvCErrorListPool errors;
                 KvDAL_deleteDeviceHandle(errors, device);
             });
}

TEST(DalAllocationFailure, ofClaimingAndRegisteringAClient)
{
    std::unique_ptr<Device> device;
    const auto renew = [&] {
        device.reset();
        device = std::make_unique<Device>(address, 5);
    };
    renew();
    KvCRpcClient* client = nullptr;
    failEach(
        [&](KvCErrorListPool& errors) {
            const KvInt32 result = KvDAL_claimRPCClient(errors, device->handle, 8, &client);
            if (result != 0)
                return result;
            client = new (errors) KvCRpcClient(errors, "127.0.50.40");
            if (client == nullptr || errors.getErrorCount() != 0) {
                errors.setError(0x401, __LINE__, "test", nullptr);
                delete client;
                client = nullptr;
                KvDAL_registerRPCClient(errors, device->handle, 8, nullptr);
                return static_cast<KvInt32>(OutOfMemory);
            }
            return KvDAL_registerRPCClient(errors, device->handle, 8, client);
        },
        [&] {
            KvCErrorListPool errors;
            KvCRpcClient* found = nullptr;
            EXPECT_EQ(KvDAL_getRPCClientReference(errors, device->handle, 8, &found), 0);
            EXPECT_EQ(found, client);
        },
        renew);
}

TEST(DalAllocationFailure, ofRegisteringAClientUnclaimed)
{
    std::unique_ptr<Device> device;
    KvCRpcClient* client = nullptr;
    const auto renew = [&] {
        device.reset();
        device = std::make_unique<Device>(address, 5);
        client = new KvCRpcClient(device->errors, "127.0.50.40");
    };
    renew();
    failEach([&](KvCErrorListPool& errors) { return KvDAL_registerRPCClient(errors, device->handle, 8, client); },
             [] {}, renew);
    // the last one made has not been given away
    delete client;
}

TEST(DalAllocationFailure, ofTakingAndGivingBackALock)
{
    ScriptedRack rack({boardAt(address, 5)});
    failEach(
        [&](KvCErrorListPool& errors) {
            KvDALSDeviceInfo info = {};
            info.ipAddress = address;
            info.serialNumber = 5;
            void* device = nullptr;
            void* lock = nullptr;
            KvInt32 result = KvDAL_createDeviceHandle(errors, &device, info);
            if (result == 0)
                result = KvDAL_createAccessRestrictionHandle(errors, device, &lock);
            if (result == 0)
                result = KvDAL_requestAccessRestrictionLevel(errors, lock, 0, Modify);
            KvCErrorListPool unused;
            if (lock != nullptr) {
                const KvInt32 released = KvDAL_deleteAccessRestrictionHandle(errors, lock);
                result = result == 0 ? released : result;
            }
            KvDAL_deleteDeviceHandle(unused, device);
            return result;
        },
        [&] { EXPECT_EQ(rack.look(0).accessId, 0u); },
        [&] {
            rack.with(0, [](ScriptedBoard& board) { board.accessId = 0; });
            // no handle has been left behind that keeps the board and its client
            Device again(address, 5);
            KvCErrorListPool errors;
            KvCRpcClient* client = nullptr;
            EXPECT_EQ(KvDAL_getRPCClientReference(errors, again.handle, 0x20004B56, &client), 0);
            EXPECT_EQ(client, nullptr);
        });
}

TEST_F(FileTransfer, withoutMemoryFailsAndLeavesNothing)
{
    const std::wstring path = folder.file("local", "0123456789ABCDEF01234");
    failEach(
        [&](KvCErrorListPool& list) {
            void* handle = nullptr;
            KvInt32 result = KvDAL_createFTClientHandle(list, device.handle, &handle);
            if (result != 0)
                return result;
            result = KvDAL_putFileU(list, nullptr, handle, path.c_str(), "dir", "image", nullptr, nullptr);
            EXPECT_EQ(look().stored.empty(), result != 0);
            KvCErrorListPool unused;
            KvDAL_deleteFTClientHandle(unused, handle);
            return result;
        },
        [] {}, [&] { fresh({}); });
}

TEST_F(FileTransfer, aheadOfTheAnswersWithoutMemoryFailsOrGoesSlowlyAndLeavesNothing)
{
    const std::string content(6 * 65536 + 1, 'x');
    const std::wstring path = folder.file("local", content);
    const auto board = [&] {
        fresh({});
        rack.with(0, [](ScriptedBoard& now) { now.maxChunk = 65536; });
    };
    board();
    failEach(
        [&](KvCErrorListPool& list) {
            const KvInt32 result =
                KvDAL_putFileU(list, nullptr, transfer, path.c_str(), "dir", "image", nullptr, nullptr);
            const ScriptedFiles files = look();
            EXPECT_EQ(files.stored.count("dir/image"), result == 0 ? 1u : 0u);
            EXPECT_TRUE(result != 0 || files.stored.at("dir/image") == content);
            return result;
        },
        [] {}, board);
}

TEST_F(FileTransfer, filesAreDeletedAndListedOrNotWhenMemoryIsOut)
{
    const std::vector<unsigned char> list = {0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 'f', 0, 0, 0, 0, 0, 0, 0,
                                             0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0, 0, 0, 0,   0, 0, 7, 0, 0, 0, 0};
    const auto board = [&] {
        fresh({{{ListFiles, 0}, answer(list)}});
        rack.with(0, [](ScriptedBoard& now) { now.files.stored["dir/image"] = "x"; });
    };
    board();
    failEach(
        [&](KvCErrorListPool& own) {
            KvDALSFile file = {};
            KvUInt32 count = 1;
            const KvInt32 result = KvDAL_listFiles(own, device.handle, &file, &count, nullptr);
            EXPECT_STREQ(file.fileName, result == 0 ? "f" : "");
            return result != 0 ? result : KvDAL_deleteFile(own, nullptr, transfer, "dir", "image");
        },
        [&] { EXPECT_TRUE(look().stored.empty()); }, board);
}
