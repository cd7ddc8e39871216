#include "manager/KvCInventoryRootHandle.h"

#include <memory>

#include "ManagerTest.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FailingAllocation.h"

namespace {

using Handle = std::unique_ptr<KvCInventoryRootHandle>;

class RootHandle : public ::testing::Test
{
protected:
    ~RootHandle() override
    {
        KvCErrorListPool ignored;
        for (void* device : devices)
            KvDAL_deleteDeviceHandle(ignored, device);
    }

    void* addDevice(KvUInt32 ipAddress, KvUInt32 serialNumber)
    {
        void* device = nullptr;
        EXPECT_EQ(0, KvDAL_createDeviceHandle(errors, &device, deviceInfo(ipAddress, serialNumber)));
        devices.push_back(device);
        return device;
    }

    /** Whether a device handle is alive. */
    static bool isAlive(void* device)
    {
        KvCErrorListPool ignored;
        return KvDAL_getAddressFromHandle(ignored, device) != nullptr;
    }

    static std::string printed(const KvCInventoryRootHandle& handle)
    {
        ::testing::internal::CaptureStdout();
        handle.print();
        return ::testing::internal::GetCapturedStdout();
    }

    CapturedOutput output;
    KvCErrorListPool errors;
    std::vector<void*> devices;
};

TEST_F(RootHandle, ofDeviceRecordsMakesTheDeviceHandlesAndDeletesThem)
{
    const KvDALSDeviceInfo infos[] = {deviceInfo(0x7F420201, 21), deviceInfo(0x7F420202, 22)};
    Handle handle(new KvCInventoryRootHandle(errors, infos, 2));
    EXPECT_EQ(2u, handle->getBoardCount());
    void* first = handle->getCnHandleByOrdinalNumber(errors, 0);
    void* second = handle->getCnHandleBySerialNumber(errors, 22);
    EXPECT_EQ(second, handle->getCnHandleByOrdinalNumber(errors, 1));
    EXPECT_TRUE(isAlive(first) && isAlive(second));
    EXPECT_EQ(Codes(), codesOf(errors));
    handle.reset();
    EXPECT_FALSE(isAlive(first) || isAlive(second));
    EXPECT_TRUE(output.messages.empty());
}

TEST_F(RootHandle, ofDeviceHandlesLeavesThemToTheCaller)
{
    void* list[] = {addDevice(0x7F420201, 21), addDevice(0x7F420202, 22)};
    Handle handle(new KvCInventoryRootHandle(errors, list, 2));
    EXPECT_EQ(2u, handle->getBoardCount());
    EXPECT_EQ(list[1], handle->getCnHandleBySerialNumber(errors, 22));
    handle.reset();
    EXPECT_TRUE(isAlive(list[0]) && isAlive(list[1]));
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(RootHandle, ofADeviceHandleThatIsNoneLeavesItOut)
{
    void* list[] = {nullptr, addDevice(0x7F420202, 22)};
    const KvCInventoryRootHandle handle(errors, list, 2);
    EXPECT_EQ(1u, handle.getBoardCount());
    EXPECT_EQ(list[1], handle.getCnHandleByOrdinalNumber(errors, 0));
    ASSERT_LE(1u, errors.getErrorCount());
    EXPECT_EQ(0x160000Eu, errors.getErrorCode(errors.getErrorCount() - 1));
    EXPECT_EQ("Internal error. Korvel Support information: Cannot get KvDAL device handle parameter serial number.",
              lastText(errors));
}

TEST_F(RootHandle, ofADeviceRecordWithoutAddressLeavesItOutAndTellsTheErrorManager)
{
    KvDALSDeviceInfo infos[] = {deviceInfo(0, 21), deviceInfo(0x7F420202, 22)};
    std::strcpy(infos[0].hostAddress, "");
    const KvCInventoryRootHandle handle(errors, infos, 2);
    EXPECT_EQ(1u, handle.getBoardCount());
    EXPECT_EQ(Codes(), codesOf(errors));
    ASSERT_EQ(2u, output.messages.size());
    EXPECT_EQ(0x160000Du, output.messages[1].code);
    EXPECT_EQ("Internal error. Korvel Support information: Cannot create KvDAL device handle (error code 2).",
              output.messages[1].text);
    EXPECT_EQ("KvCInventoryRootHandle::initByDeviceList", output.messages[1].origin);
}

TEST_F(RootHandle, ofNothingHoldsNoBoards)
{
    KvDALSDeviceInfo info = deviceInfo(0x7F420201, 21);
    void* device = nullptr;
    for (const Handle& handle :
         {Handle(new KvCInventoryRootHandle(errors, &info, 0)), Handle(new KvCInventoryRootHandle(errors, &info, -1)),
          Handle(new KvCInventoryRootHandle(errors, &device, 0)),
          Handle(new KvCInventoryRootHandle(errors, static_cast<KvUInt32*>(nullptr), 2))})
        EXPECT_EQ(0u, handle->getBoardCount());
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(RootHandle, withOneSerialNumberTwiceGivesTheFirst)
{
    void* list[] = {addDevice(0x7F420201, 20), addDevice(0x7F420202, 22), addDevice(0x7F420203, 22)};
    const KvCInventoryRootHandle handle(errors, list, 3);
    EXPECT_EQ(list[1], handle.getCnHandleBySerialNumber(errors, 22));
}

TEST_F(RootHandle, reportsABoardThatItDoesNotHold)
{
    void* list[] = {addDevice(0x7F420201, 21)};
    const KvCInventoryRootHandle handle(errors, list, 1);
    EXPECT_EQ(nullptr, handle.getCnHandleByOrdinalNumber(errors, 1));
    EXPECT_EQ(nullptr, handle.getCnHandleBySerialNumber(errors, 22));
    EXPECT_EQ((Codes{0x1600000, 0x1600001}), codesOf(errors));
    EXPECT_STREQ("Internal error. Korvel Support information: Index out of range.", errors.getErrorText(0));
    EXPECT_STREQ("Internal error. Korvel Support information: Device serial number is not available.",
                 errors.getErrorText(1));
    EXPECT_STREQ("KvCInventoryRootHandle::getCnHandleByOrdinalNumber", errors.getErrorOrigin(0));
    EXPECT_STREQ("KvCInventoryRootHandle::getCnHandleBySerialNumber", errors.getErrorOrigin(1));
}

TEST_F(RootHandle, sharesItsBoardsWithItsCopies)
{
    const KvDALSDeviceInfo info = deviceInfo(0x7F420201, 21);
    Handle handle(new KvCInventoryRootHandle(errors, &info, 1));
    void* device = handle->getCnHandleByOrdinalNumber(errors, 0);
    KvDALSDeviceInfo other = deviceInfo(0x7F420202, 22);
    KvCInventoryRootHandle assigned(errors, &other, 1);
    void* dropped = assigned.getCnHandleByOrdinalNumber(errors, 0);
    assigned = *handle;
    EXPECT_FALSE(isAlive(dropped));
    {
        const KvCInventoryRootHandle copy(*handle);
        EXPECT_EQ(device, copy.getCnHandleByOrdinalNumber(errors, 0));
    }
    handle.reset();
    EXPECT_TRUE(isAlive(device));
    const KvCInventoryRootHandle& same = assigned;
    assigned = same;
    EXPECT_EQ(1u, assigned.getBoardCount());
    EXPECT_TRUE(isAlive(device));
}

TEST_F(RootHandle, printsALineForEachBoard)
{
    KvDALSDeviceInfo infos[] = {deviceInfo(0x0A000002, 4711), deviceInfo(0x0A000003, 12)};
    std::strcpy(infos[1].boardName, "");
    infos[1].boardType = 7;
    const KvCInventoryRootHandle handle(errors, infos, 2);
    EXPECT_EQ(
        "Inventory handle subsumes 2 device(s):\n"
        "Device  0: serial no. 4711, KV6001, name IO-1, system name Rack A, IP 10.0.0.2\n"
        "Device  1: serial no. 12, KV7, name , system name Rack A, IP 10.0.0.3\n",
        printed(handle));
    EXPECT_TRUE(output.messages.empty());
}

TEST_F(RootHandle, printsWhatItCannotReadAsQuestionMarks)
{
    void* list[] = {addDevice(0x0A000002, 4711)};
    const KvCInventoryRootHandle handle(errors, list, 1);
    KvDAL_deleteDeviceHandle(errors, list[0]);
    EXPECT_EQ(
        "Inventory handle subsumes 1 device(s):\n"
        "Device  0: serial no. 4711, KV0, name ???, system name ???, IP ???\n",
        printed(handle));
    EXPECT_EQ(4u, output.messages.size());
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(RootHandle, thatCannotDeleteItsDeviceHandlesTellsTheErrorManager)
{
    const KvDALSDeviceInfo info = deviceInfo(0x7F420201, 21);
    Handle handle(new KvCInventoryRootHandle(errors, &info, 1));
    KvDAL_deleteDeviceHandle(errors, handle->getCnHandleByOrdinalNumber(errors, 0));
    handle.reset();
    ASSERT_EQ(2u, output.messages.size());
    EXPECT_EQ(0x1600008u, output.messages[1].code);
    EXPECT_EQ("Internal error. Korvel Support information: Cannot delete KvDAL device handle (error code 1).",
              output.messages[1].text);
}

TEST_F(RootHandle, withoutMemoryHoldsNoBoardsAndReportsIt)
{
    const KvDALSDeviceInfo info = deviceInfo(0x7F420201, 21);
    void* list[] = {addDevice(0x7F420202, 22)};
    for (std::size_t number = 1; number <= 3; ++number) {
        for (const bool fromHandles : {false, true}) {
            KvCErrorListPool reported;
            Handle handle;
            {
                const FailingAllocation failing(number + 1);  // the first is the handle itself
                handle.reset(fromHandles ? new KvCInventoryRootHandle(reported, list, 1)
                                         : new KvCInventoryRootHandle(reported, &info, 1));
            }
            ASSERT_NE(nullptr, handle);
            EXPECT_EQ(0u, handle->getBoardCount());
            EXPECT_EQ(Codes{0x160000A}, codesOf(reported)) << number;
            EXPECT_EQ("Internal error. Korvel Support information: Cannot apply KvDAL filter (error code 3).",
                      lastText(reported));
        }
    }
}

TEST_F(RootHandle, ofAFilterThatIsNoneReportsIt)
{
    void* none = nullptr;
    const KvCInventoryRootHandle handle(errors, none);
    EXPECT_EQ(0u, handle.getBoardCount());
    ASSERT_EQ(2u, errors.getErrorCount());
    EXPECT_EQ(0x1600009u, errors.getErrorCode(1));
    EXPECT_EQ("Internal error. Korvel Support information: Cannot apply KvDAL filter (error code 1).",
              lastText(errors));
    EXPECT_STREQ("KvCInventoryRootHandle::initByFilter", errors.getErrorOrigin(1));
}

TEST_F(RootHandle, ofValuesThatTheFilterRefusesReportsThem)
{
    const KvUInt32 noAddress = 0;
    const Handle byMask(new KvCInventoryRootHandle(errors, KvUInt32{0x00FF00FF}));
    ASSERT_EQ(2u, errors.getErrorCount());
    EXPECT_EQ(0x1600007u, errors.getErrorCode(1));
    EXPECT_EQ(
        "Internal error. Korvel Support information: Cannot set KvDAL filter parameter subnet mask (error code 8).",
        lastText(errors));
    errors.clear();
    const Handle byAddress(new KvCInventoryRootHandle(errors, &noAddress, 1));
    ASSERT_EQ(2u, errors.getErrorCount());
    EXPECT_EQ(0x1600005u, errors.getErrorCode(1));
    errors.clear();
    const char* noName = nullptr;
    const Handle byName(new KvCInventoryRootHandle(errors, noName));
    ASSERT_EQ(2u, errors.getErrorCount());
    EXPECT_EQ(0x1600006u, errors.getErrorCode(1));
    EXPECT_EQ(0u, byMask->getBoardCount() + byAddress->getBoardCount() + byName->getBoardCount());
    EXPECT_TRUE(output.messages.empty());
}

TEST_F(RootHandle, describesItsBoardsForMessages)
{
    void* board = addDevice(0x0A000002, 4711);
    EXPECT_STREQ("HCN (serial number: 4711, IP address: 10.0.0.2)", Probe::getHcnInfo(board).c_str());
    EXPECT_TRUE(output.messages.empty());
    EXPECT_STREQ("HCN (unknown serial number)", Probe::getHcnInfo(nullptr).c_str());
    ASSERT_EQ(4u, output.messages.size());
    EXPECT_EQ(0x160080Eu, output.messages[1].code);
    EXPECT_EQ("Internal error. Korvel Support information: Cannot retrieve serial number from communication handle.",
              output.messages[1].text);
    EXPECT_EQ(0x160080Du, output.messages[3].code);
    EXPECT_EQ("Internal error. Korvel Support information: Cannot retrieve IP address from communication handle.",
              output.messages[3].text);
}

}  // namespace
