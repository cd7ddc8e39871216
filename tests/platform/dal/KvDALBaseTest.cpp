#include "platform/dal/KvDALBase.h"

#include "platform/dal/HandleTable.h"
#include "tests/platform/dal/DalTest.h"

using namespace KvNDeviceAccess;
using testing::ElementsAre;

namespace {

constexpr KvUInt32 address = ip(127, 0, 50, 10);

KvInt32 setNumber(void* filter, KvUInt32 id, KvUInt32 value, KvUInt32 size = 4)
{
    KvCErrorListPool errors;
    const KvInt32 result = KvDAL_setFilterParameter(errors, filter, id, size, &value);
    EXPECT_EQ(errors.getErrorCount(), result == 0 ? 0u : 1u);
    EXPECT_EQ(errors.getErrorCode(0), result == 0 ? 0u : 0x200000u + static_cast<KvUInt32>(result));
    return result;
}

KvInt32 setName(void* filter, const char* name, KvUInt32 size)
{
    KvCErrorListPool errors;
    return KvDAL_setFilterParameter(errors, filter, 1, size, name);
}

}  // namespace

TEST(KvDALFilter, ofAnotherKindCannotBeMade)
{
    KvCErrorListPool errors;
    void* filter = &errors;
    EXPECT_EQ(KvDAL_createFilter(errors, &filter, 2), UnknownFilterKind);
    EXPECT_EQ(filter, nullptr);
    EXPECT_STREQ(errors.getErrorText(0), "Internal error. Korvel Support information: Unknown kind of filter 2.");
    EXPECT_STREQ(errors.getErrorOrigin(0), "KvDAL_createFilter");
    EXPECT_EQ(KvDAL_createFilter(errors, nullptr, 1), InvalidArgument);
    EXPECT_EQ(errors.getErrorCode(1), 0x200002u);
}

TEST(KvDALFilter, takesNumbersOfFourBytesOnly)
{
    Filter filter;
    for (const KvUInt32 id : {6u, 7u, 8u, 9u})
        for (const KvUInt32 size : {0u, 1u, 3u, 5u, 8u})
            EXPECT_EQ(setNumber(filter.handle, id, 1, size), WrongSize) << id << " " << size;
}

TEST(KvDALFilter, takesOnlyValuesThatMakeSense)
{
    Filter filter;
    EXPECT_EQ(setNumber(filter.handle, 6, 0), WrongValue);
    EXPECT_EQ(setNumber(filter.handle, 6, 0x0A000002), Ok);
    EXPECT_EQ(setNumber(filter.handle, 6, 0xFFFFFFFF), Ok);
    EXPECT_EQ(setNumber(filter.handle, 7, 0), WrongValue);
    EXPECT_EQ(setNumber(filter.handle, 7, 0xFF00FF00), WrongValue);
    EXPECT_EQ(setNumber(filter.handle, 7, 1), WrongValue);
    EXPECT_EQ(setNumber(filter.handle, 7, 0x80000000), Ok);
    EXPECT_EQ(setNumber(filter.handle, 7, 0xFFFFFFFF), Ok);
    EXPECT_EQ(setNumber(filter.handle, 8, 0), WrongValue);
    EXPECT_EQ(setNumber(filter.handle, 8, 2), WrongValue);
    EXPECT_EQ(setNumber(filter.handle, 8, 1), Ok);
    EXPECT_EQ(setNumber(filter.handle, 9, 1), WrongValue);
    EXPECT_EQ(setNumber(filter.handle, 9, 0), Ok);
}

TEST(KvDALFilter, takesASystemNameWithItsNulOnly)
{
    Filter filter;
    const std::string longest(255, 's');
    EXPECT_EQ(setName(filter.handle, "rack", 5), Ok);
    EXPECT_EQ(setName(filter.handle, longest.c_str(), 256), Ok);
    EXPECT_EQ(setName(filter.handle, (longest + "s").c_str(), 257), WrongSize);
    EXPECT_EQ(setName(filter.handle, "", 1), WrongSize);
    EXPECT_EQ(setName(filter.handle, "", 0), WrongSize);
    EXPECT_EQ(setName(filter.handle, "rack", 4), WrongValue);
    EXPECT_EQ(setName(filter.handle, "ra\0k", 5), WrongValue);
    EXPECT_EQ(setName(filter.handle, "\0ack", 5), WrongValue);
}

TEST(KvDALFilter, hasNoOtherParameters)
{
    Filter filter;
    for (const KvUInt32 id : {0u, 2u, 3u, 4u, 5u, 10u, 12u, 0xFFFFFFFFu})
        EXPECT_EQ(setNumber(filter.handle, id, 1), UnknownParameter) << id;
    KvCErrorListPool errors;
    EXPECT_EQ(KvDAL_setFilterParameter(errors, filter.handle, 6, 4, nullptr), InvalidArgument);
}

TEST(KvDALFilter, hasNoListBeforeItIsAppliedOrAfterItWasChanged)
{
    ScriptedRack rack({boardAt(address, 5)});
    Filter filter;
    filter.with(6, address);
    KvUInt32 count = 0;
    KvCErrorListPool errors;
    EXPECT_EQ(KvDAL_getDeviceList(errors, filter.handle, nullptr, &count), FilterNotApplied);
    EXPECT_EQ(errors.getErrorCode(0), 0x200009u);
    EXPECT_THAT(filter.serials(), ElementsAre(5));
    filter.with(8, 1);
    EXPECT_EQ(KvDAL_getDeviceList(errors, filter.handle, nullptr, &count), FilterNotApplied);
}

TEST(KvDALFilter, saysHowLongTheListMustBe)
{
    ScriptedRack rack({boardAt(address, 5), boardAt(address + 1, 6), boardAt(address + 2, 7)});
    Filter filter;
    filter.with(6, address).with(6, address + 1).with(6, address + 2).apply();
    KvCErrorListPool errors;
    KvUInt32 count = 99;
    EXPECT_EQ(KvDAL_getDeviceList(errors, filter.handle, nullptr, &count), 21);
    EXPECT_EQ(count, 3u);
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: The device list has 0 entries, 3 are needed.");
    EXPECT_EQ(errors.getErrorCode(0), 0x200015u);
    KvDALSDeviceInfo infos[4] = {};
    count = 2;
    EXPECT_EQ(KvDAL_getDeviceList(errors, filter.handle, infos, &count), 21);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(infos[0].serialNumber, 0u);
    count = 4;
    EXPECT_EQ(KvDAL_getDeviceList(errors, filter.handle, infos, &count), 0);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(infos[2].serialNumber, 7u);
    EXPECT_EQ(infos[3].serialNumber, 0u);
    EXPECT_EQ(KvDAL_getDeviceList(errors, filter.handle, infos, nullptr), InvalidArgument);
}

TEST(KvDALFilter, thatFindsNothingHasAnEmptyList)
{
    ScriptedRack rack({boardAt(address, 5)});
    Filter filter;
    filter.with(6, address + 1);
    EXPECT_EQ(KvDAL_applyFilter(filter.errors, filter.handle), 0);
    KvUInt32 count = 7;
    EXPECT_EQ(KvDAL_getDeviceList(filter.errors, filter.handle, nullptr, &count), 0);
    EXPECT_EQ(count, 0u);
}

TEST(KvDALHandles, thatAreNullStaleOrOfAnotherKindAreRefused)
{
    Filter filter;
    Device device(address, 5);
    KvCErrorListPool errors;
    void* stale = nullptr;
    EXPECT_EQ(KvDAL_createFilter(errors, &stale, 1), 0);
    EXPECT_EQ(KvDAL_deleteFilter(errors, stale), 0);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    int local = 0;
    KvUInt32 value = 1;
    KvUInt32 size = 4;
    KvCRpcClient* client = nullptr;
    for (void* wrong : {static_cast<void*>(nullptr), stale, static_cast<void*>(&local), device.handle}) {
        EXPECT_EQ(KvDAL_setFilterParameter(errors, wrong, 6, 4, &value), InvalidHandle);
        EXPECT_EQ(KvDAL_applyFilter(errors, wrong), InvalidHandle);
        EXPECT_EQ(KvDAL_getDeviceList(errors, wrong, nullptr, &value), InvalidHandle);
        EXPECT_EQ(KvDAL_deleteFilter(errors, wrong), InvalidHandle);
    }
    for (void* wrong : {static_cast<void*>(nullptr), stale, static_cast<void*>(&local), filter.handle}) {
        EXPECT_EQ(KvDAL_getParam(errors, wrong, 4, 0, &size, &value), InvalidHandle);
        EXPECT_EQ(KvDAL_getAddressFromHandle(errors, wrong), nullptr);
        EXPECT_EQ(KvDAL_getRPCClientReference(errors, wrong, 8, &client), InvalidHandle);
        EXPECT_EQ(KvDAL_claimRPCClient(errors, wrong, 8, &client), InvalidHandle);
        EXPECT_EQ(KvDAL_deleteDeviceHandle(errors, wrong), InvalidHandle);
    }
    for (const KvUInt32 code : codes(errors))
        EXPECT_EQ(code, 0x200001u);
    EXPECT_EQ(errors.getErrorCount(), 36u);
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Device access handle is not valid.");
}

TEST(KvDALDevice, givesWhatItsRecordSays)
{
    KvDALSDeviceInfo info = {};
    std::strcpy(info.systemName, "rack");
    std::strcpy(info.boardName, "bench-left");
    info.serialNumber = 4711;
    info.boardType = 2211;
    info.ipAddress = 0x0A000002;
    KvCErrorListPool errors;
    void* device = nullptr;
    ASSERT_EQ(KvDAL_createDeviceHandle(errors, &device, info), 0);
    EXPECT_EQ(number(device, 4), 4711u);
    EXPECT_EQ(number(device, 5), 2211u);
    EXPECT_EQ(number(device, 6), 0x0A000002u);
    char text[256];
    KvUInt32 size = 256;
    EXPECT_EQ(KvDAL_getParam(errors, device, 1, 0, &size, text), 0);
    EXPECT_STREQ(text, "rack");
    EXPECT_EQ(size, 5u);
    size = 256;
    EXPECT_EQ(KvDAL_getParam(errors, device, 3, 0, &size, text), 0);
    EXPECT_STREQ(text, "bench-left");
    EXPECT_STREQ(KvDAL_getAddressFromHandle(errors, device), "10.0.0.2");
    EXPECT_EQ(errors.getErrorCount(), 0u);
    EXPECT_EQ(KvDAL_deleteDeviceHandle(errors, device), 0);
}

TEST(KvDALDevice, checksWhereItsParametersAreToGo)
{
    KvDALSDeviceInfo info = {};
    std::strcpy(info.systemName, "rack");
    info.ipAddress = address;
    KvCErrorListPool errors;
    void* device = nullptr;
    ASSERT_EQ(KvDAL_createDeviceHandle(errors, &device, info), 0);
    char text[256];
    for (const KvUInt32 wrong : {0u, 3u, 5u, 8u}) {
        KvUInt32 size = wrong;
        EXPECT_EQ(KvDAL_getParam(errors, device, 4, 0, &size, text), WrongSize) << wrong;
    }
    KvUInt32 size = 4;
    EXPECT_EQ(KvDAL_getParam(errors, device, 1, 0, &size, text), WrongSize);
    size = 5;
    EXPECT_EQ(KvDAL_getParam(errors, device, 1, 0, &size, text), Ok);
    size = 4;
    EXPECT_EQ(KvDAL_getParam(errors, device, 4, 1, &size, text), UnknownParameter);
    for (const KvUInt32 id : {0u, 2u, 7u, 8u, 11u, 13u, 0xFFFFFFFFu})
        EXPECT_EQ(KvDAL_getParam(errors, device, id, 0, &size, text), UnknownParameter) << id;
    EXPECT_EQ(KvDAL_getParam(errors, device, 4, 0, nullptr, text), InvalidArgument);
    EXPECT_EQ(KvDAL_getParam(errors, device, 4, 0, &size, nullptr), InvalidArgument);
    KvInt32 result = 0;
    number(device, 12, &result);
    EXPECT_EQ(result, NoAccess);
    KvDAL_deleteDeviceHandle(errors, device);
}

TEST(KvDALDevice, needsAnAddressAndTextsThatEnd)
{
    KvCErrorListPool errors;
    void* device = &errors;
    KvDALSDeviceInfo info = {};
    EXPECT_EQ(KvDAL_createDeviceHandle(errors, &device, info), InvalidArgument);
    EXPECT_EQ(device, nullptr);
    for (char* text : {info.systemName, info.boardName, info.hostAddress}) {
        info = {};
        info.ipAddress = address;
        std::memset(text, 'x', 256);
        EXPECT_EQ(KvDAL_createDeviceHandle(errors, &device, info), InvalidArgument);
    }
    info = {};
    info.ipAddress = address;
    EXPECT_EQ(KvDAL_createDeviceHandle(errors, nullptr, info), InvalidArgument);
    for (const KvUInt32 code : codes(errors))
        EXPECT_EQ(code, 0x200002u);
}

TEST(KvDALDevice, takesItsAddressAsTextToo)
{
    KvDALSDeviceInfo info = {};
    std::strcpy(info.hostAddress, "10.0.0.0x10");
    KvCErrorListPool errors;
    void* device = nullptr;
    ASSERT_EQ(KvDAL_createDeviceHandle(errors, &device, info), 0);
    EXPECT_EQ(number(device, 6), 0x0A000010u);
    EXPECT_STREQ(KvDAL_getAddressFromHandle(errors, device), "10.0.0.16");
    KvDAL_deleteDeviceHandle(errors, device);
}

TEST(KvDALMessages, areKnownToTheErrorManager)
{
    for (const KvUInt32 code : {0x200001u, 0x200014u, 0x200015u, 0x200801u, 0x20080Cu, 0x201001u})
        EXPECT_NE(KvCErrorManager::getMessageText(code), nullptr) << code;
    for (const KvUInt32 code : {0x200000u, 0x200016u, 0x20080Du, 0x201002u})
        EXPECT_EQ(KvCErrorManager::getMessageText(code), nullptr) << code;
}
