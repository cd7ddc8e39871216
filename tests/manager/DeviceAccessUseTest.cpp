#include <memory>

#include "RecordedAccess.h"

/* What the manager asks of the device access library, call by call, and what it makes of every failure of it. */

namespace {

using Handle = std::unique_ptr<KvCInventoryRootHandle>;
constexpr KvUInt32 Reported = FakeDeviceAccess::Reported;

class DeviceAccessUse : public ::testing::Test
{
public:
    DeviceAccessUse() { FakeDeviceAccess::reset(); }
    ~DeviceAccessUse() override
    {
        delete fake.client;
        fake.client = nullptr;
    }

    Calls taken() { return std::exchange(fake.calls, {}); }
    Handle bySystem() { return Handle(new KvCInventoryRootHandle(errors, "Rack A")); }
    Handle byMask() { return Handle(new KvCInventoryRootHandle(errors, KvUInt32{0xFFFFFF00})); }
    Handle byAddresses()
    {
        const KvUInt32 addresses[] = {0x0A000001, 0x0A000002};
        return Handle(new KvCInventoryRootHandle(errors, addresses, 2));
    }

    /** `operation` fails with 9; the root handle says so with this message, and has no boards. */
    void fails(const char* operation, KvUInt32 code, const char* what, Handle (DeviceAccessUse::*make)())
    {
        FakeDeviceAccess::reset();
        errors.clear();
        fake.failures[operation] = 9;
        const Handle handle = (this->*make)();
        EXPECT_EQ(0u, handle->getBoardCount()) << operation;
        EXPECT_EQ((Codes{Reported, code}), codesOf(errors)) << operation;
        EXPECT_EQ(std::string("Internal error. Korvel Support information: Cannot ") + what + " (error code 9).",
                  lastText(errors));
        EXPECT_EQ(operation == std::string("createFilter") ? 0 : 1,
                  std::count(fake.calls.begin(), fake.calls.end(), "deleteFilter"));
    }

    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    FakeDeviceAccess& fake = FakeDeviceAccess::instance();
    CapturedOutput output;
    KvCErrorListPool errors;
};

TEST_F(DeviceAccessUse, ofAnAddressListSetsEachAddressInItsOrder)
{
    KvCInventoryRootHandle* root = nullptr;
    EXPECT_EQ(0, manager.createRootHandleByIpAddressList(errors, "10.0.0.1, 10.0.0.2", root));
    const Handle handle(root);
    EXPECT_EQ(
        (Calls{"createFilter 1", "setFilterParameter 8 4 1", "setFilterParameter 9 4 0",
               "setFilterParameter 6 4 167772161", "setFilterParameter 6 4 167772162", "applyFilter",
               "getDeviceList size", "getDeviceList list", "createDeviceHandle 100", "getParam 4 0 4", "deleteFilter"}),
        taken());
    EXPECT_EQ(1u, handle->getBoardCount());
    EXPECT_EQ(Codes(), codesOf(errors));
    EXPECT_TRUE(output.messages.empty()) << "a list that is too small for the first question is no failure";
}

TEST_F(DeviceAccessUse, ofAnAddressListStopsAtTwoHundred)
{
    std::string list;
    for (int i = 0; i < 250; ++i)
        list += "10.0.0.1 0 10.0.0.300 ";
    KvCInventoryRootHandle* root = nullptr;
    EXPECT_EQ(0, manager.createRootHandleByIpAddressList(errors, list.c_str(), root));
    const Handle handle(root);
    EXPECT_EQ(200, std::count(fake.calls.begin(), fake.calls.end(), "setFilterParameter 6 4 167772161"));
}

TEST_F(DeviceAccessUse, ofAMaskAndOfASystemNameSetsThem)
{
    fake.boards = 0;
    KvCInventoryRootHandle* root = nullptr;
    EXPECT_EQ(0, manager.createRootHandleByIpSubnetMask(errors, "255.255.0.0", root));
    EXPECT_EQ((Calls{"createFilter 1", "setFilterParameter 8 4 1", "setFilterParameter 9 4 0",
                     "setFilterParameter 7 4 4294901760", "applyFilter", "getDeviceList size", "deleteFilter"}),
              taken());
    manager.deleteRootHandle(errors, root);
    EXPECT_EQ(0, manager.createRootHandleBySystemName(errors, "Rack A", root));
    EXPECT_EQ(
        (Calls{"createFilter 1", "setFilterParameter 1 7 Rack A", "applyFilter", "getDeviceList size", "deleteFilter"}),
        taken());
    manager.deleteRootHandle(errors, root);
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(DeviceAccessUse, ofAFilterLeavesTheFilterToTheCaller)
{
    fake.boards = 2;
    void* filter = &fake;
    Handle handle(new KvCInventoryRootHandle(errors, filter));
    EXPECT_EQ((Calls{"applyFilter", "getDeviceList size", "getDeviceList list", "createDeviceHandle 100",
                     "getParam 4 0 4", "createDeviceHandle 101", "getParam 4 0 4"}),
              taken());
    handle.reset();
    EXPECT_EQ((Calls{"deleteDeviceHandle 100", "deleteDeviceHandle 101"}), taken());
}

TEST_F(DeviceAccessUse, reportsEachFailureOfTheFilter)
{
    fails("createFilter", 0x1600002, "create KvDAL filter", &DeviceAccessUse::byMask);
    fails("setFilterParameter 8", 0x1600003, "set KvDAL filter parameter interface type", &DeviceAccessUse::byMask);
    fails("setFilterParameter 9", 0x1600004, "set KvDAL filter parameter protocol type", &DeviceAccessUse::byAddresses);
    fails("setFilterParameter 6", 0x1600005, "set KvDAL filter parameter IP address", &DeviceAccessUse::byAddresses);
    fails("setFilterParameter 1", 0x1600006, "set KvDAL filter parameter system name", &DeviceAccessUse::bySystem);
    fails("setFilterParameter 7", 0x1600007, "set KvDAL filter parameter subnet mask", &DeviceAccessUse::byMask);
    fails("applyFilter", 0x1600009, "apply KvDAL filter", &DeviceAccessUse::byMask);
    fails("getDeviceList list", 0x160000B, "get KvDAL device list", &DeviceAccessUse::byMask);
    EXPECT_TRUE(output.messages.empty());
}

TEST_F(DeviceAccessUse, tellsTheErrorManagerWhyTheSizeOfTheListCannotBeHad)
{
    fake.failures["getDeviceList size"] = 9;
    const Handle handle = byMask();
    EXPECT_EQ(Codes{0x160000B}, codesOf(errors));
    ASSERT_EQ(1u, output.messages.size());
    EXPECT_EQ(Reported, output.messages[0].code);
}

TEST_F(DeviceAccessUse, keepsItsBoardsWhenTheFilterCannotBeDeleted)
{
    fake.failures["deleteFilter"] = 9;
    ::testing::internal::CaptureStdout();
    const Handle handle = byMask();
    EXPECT_EQ("Info: Error 0x00000009 from KvDAL_deleteFilter().\n", ::testing::internal::GetCapturedStdout());
    EXPECT_EQ((Codes{Reported, 0x160000C}), codesOf(errors));
    EXPECT_EQ("Internal error. Korvel Support information: Cannot delete KvDAL filter (error code 9).",
              lastText(errors));
    EXPECT_EQ(1u, handle->getBoardCount());
}

TEST_F(DeviceAccessUse, keepsABoardWhoseSerialNumberCannotBeRead)
{
    fake.failures["getParam 4"] = 9;
    const Handle handle = byMask();
    EXPECT_EQ(1u, handle->getBoardCount());
    EXPECT_EQ(reinterpret_cast<void*>(std::uintptr_t{100}), handle->getCnHandleBySerialNumber(errors, 0));
    EXPECT_EQ(Codes(), codesOf(errors));
    ASSERT_EQ(1u, output.messages.size());
    EXPECT_EQ(Reported, output.messages[0].code);
}

TEST_F(DeviceAccessUse, leavesOutABoardOfWhichNoHandleCanBeMade)
{
    fake.failures["createDeviceHandle 100"] = 9;
    fake.boards = 2;
    const Handle handle = byMask();
    EXPECT_EQ(1u, handle->getBoardCount());
    EXPECT_EQ(Codes(), codesOf(errors));
    ASSERT_EQ(2u, output.messages.size());
    EXPECT_EQ(0x160000Du, output.messages[1].code);
}

TEST_F(DeviceAccessUse, makesAndRegistersAClient)
{
    const Handle handle = byMask();
    taken();
    EXPECT_EQ(fake.client, nullptr);
    // Nothing listens for it: it is registered all the same.
    KVINVENTORYMANAGERRPCIF1Client* client = Probe::getRPCClient(errors, handle->getCnHandleByOrdinalNumber(errors, 0));
    EXPECT_NE(nullptr, client);
    EXPECT_EQ(fake.client, client);
    EXPECT_EQ((Calls{"getRPCClientReference 8", "claimRPCClient 8", "getAddressFromHandle", "getParam 4 0 4",
                     "getParam 6 0 4", "registerRPCClient 8 client"}),
              taken());
    EXPECT_EQ(0x1600803u, errors.getErrorCode(errors.getErrorCount() - 1));
    EXPECT_EQ("Communication error. Cannot connect to board HCN (serial number: 100, IP address: 10.0.0.1).",
              lastText(errors));
    EXPECT_EQ(client, Probe::getRPCClient(errors, handle->getCnHandleByOrdinalNumber(errors, 0)));
    EXPECT_EQ(Calls{"getRPCClientReference 8"}, taken());
}

TEST_F(DeviceAccessUse, hasNoClientWhenAnyStepToItFails)
{
    const Handle handle = byMask();
    void* device = handle->getCnHandleByOrdinalNumber(errors, 0);
    const std::pair<const char*, const char*> steps[] = {{"getRPCClientReference", "getRPCClientReference 8"},
                                                         {"claimRPCClient", "claimRPCClient 8"},
                                                         {"getAddressFromHandle", "registerRPCClient 8 none"},
                                                         {"registerRPCClient", "registerRPCClient 8 client"}};
    for (const auto& [step, last] : steps) {
        FakeDeviceAccess::reset();
        fake.failures[step] = 9;
        EXPECT_EQ(nullptr, Probe::getRPCClient(errors, device)) << step;
        EXPECT_EQ(last, fake.calls.back());
        EXPECT_EQ(nullptr, fake.client);
    }
}

TEST_F(DeviceAccessUse, printsWhatItReads)
{
    fake.boards = 11;
    fake.failures["getParam 5"] = 9;
    const Handle handle = byMask();
    ::testing::internal::CaptureStdout();
    handle->print();
    const std::string text = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(0u, text.find("Inventory handle subsumes 11 device(s):\n"
                            "Device  0: serial no. 100, KV0, name text, system name text, IP 10.0.0.1\n"));
    EXPECT_NE(std::string::npos,
              text.find("Device 10: serial no. 110, KV0, name text, system name text, IP 10.0.0.11\n"));
}

}  // namespace
