#include <sstream>

#include "ManagerTest.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/ScriptedBoards.h"

namespace {

/** Three boards that can be found: two of one system and one of another. */
class Selection : public ::testing::Test
{
protected:
    Selection()
    {
        first = &scripted.add(31, "System A");
        second = &scripted.add(32, "System B");
        third = &scripted.add(33, "System A");
        scripted.start();
    }
    ~Selection() override { manager.deleteRootHandle(errors, root); }

    std::string serials()
    {
        std::ostringstream text;
        for (KvUInt32 i = 0; root != nullptr && i < root->getBoardCount(); ++i) {
            KvUInt32 serial = 0;
            KvUInt32 size = sizeof serial;
            KvDAL_getParam(errors, root->getCnHandleByOrdinalNumber(errors, i), 4, 0, &size, &serial);
            text << (i == 0 ? "" : " ") << serial;
        }
        return text.str();
    }

    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    CapturedOutput output;
    KvCErrorListPool errors;
    KvCInventoryRootHandle* root = nullptr;
    ScriptedBoards scripted;
    ScriptedBoards::Board* first;
    ScriptedBoards::Board* second;
    ScriptedBoards::Board* third;
};

TEST_F(Selection, byAddressesFindsTheBoardsInTheirOrder)
{
    const std::string list =
        ScriptedBoards::quad(third->address) + ", " + ScriptedBoards::quad(first->address) + ";nonsense";
    EXPECT_EQ(0, manager.createRootHandleByIpAddressList(errors, list.c_str(), root));
    EXPECT_EQ("33 31", serials());
    EXPECT_EQ(Codes(), codesOf(errors));
    EXPECT_TRUE(output.messages.empty());

    KvUInt32 count = 0;
    EXPECT_EQ(0, manager.getRootHandleCount(errors, root, count));
    EXPECT_EQ(2u, count);
}

TEST_F(Selection, byAddressesTakesHexadecimalParts)
{
    char list[40];
    std::snprintf(list, sizeof list, "0x%X.0X%x.%u.%u", static_cast<unsigned>(first->address >> 24),
                  static_cast<unsigned>(first->address >> 16 & 255), static_cast<unsigned>(first->address >> 8 & 255),
                  static_cast<unsigned>(first->address & 255));
    EXPECT_EQ(0, manager.createRootHandleByIpAddressList(errors, list, root));
    EXPECT_EQ("31", serials());
}

TEST_F(Selection, byAddressesWhereNobodyAnswersGivesAHandleWithoutBoards)
{
    const std::string list = ScriptedBoards::quad(ScriptedBoards::unusedAddress());
    EXPECT_EQ(0, manager.createRootHandleByIpAddressList(errors, list.c_str(), root));
    ASSERT_NE(nullptr, root);
    EXPECT_EQ(0u, root->getBoardCount());
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(Selection, byAddressesTakesTwoHundredAtMost)
{
    std::string list;
    for (int i = 0; i < 200; ++i)
        list += "1.2.3 ";  // no addresses: they do not count
    for (int i = 0; i < 199; ++i)
        list += ScriptedBoards::quad(second->address) + " ";
    list += ScriptedBoards::quad(first->address) + " " + ScriptedBoards::quad(third->address);
    EXPECT_EQ(0, manager.createRootHandleByIpAddressList(errors, list.c_str(), root));
    EXPECT_EQ(std::string::npos, serials().find("33"));
    EXPECT_NE(std::string::npos, serials().find("31"));
}

TEST_F(Selection, byDeviceRecordsAndHandlesAndFilterHoldsThoseBoards)
{
    KvDALSDeviceInfo infos[] = {deviceInfo(second->address, 32), deviceInfo(first->address, 31)};
    EXPECT_EQ(0, manager.createRootHandleByDeviceInfoList(errors, infos, 2, root));
    EXPECT_EQ("32 31", serials());

    void* list[] = {root->getCnHandleByOrdinalNumber(errors, 1)};
    KvCInventoryRootHandle* byHandles = nullptr;
    EXPECT_EQ(0, manager.createRootHandleByDeviceHandleList(errors, list, 1, byHandles));
    ASSERT_NE(nullptr, byHandles);
    EXPECT_EQ(list[0], byHandles->getCnHandleBySerialNumber(errors, 31));
    EXPECT_EQ(0, manager.deleteRootHandle(errors, byHandles));
    EXPECT_EQ(0, manager.deleteRootHandle(errors, root));
    root = nullptr;

    void* filter = nullptr;
    ASSERT_EQ(0, KvDAL_createFilter(errors, &filter, 1));
    for (const ScriptedBoards::Board* board : {first, second, third})
        ASSERT_EQ(0, KvDAL_setFilterParameter(errors, filter, 6, 4, &board->address));
    ASSERT_EQ(0, KvDAL_setFilterParameter(errors, filter, 1, 9, "System A"));
    EXPECT_EQ(0, manager.createRootHandleByFilter(errors, filter, root));
    EXPECT_EQ("31 33", serials());
    EXPECT_EQ(0, KvDAL_deleteFilter(errors, filter)) << "the filter stays the caller's";
    EXPECT_EQ(Codes(), codesOf(errors));
    EXPECT_TRUE(output.messages.empty());
}

TEST_F(Selection, bySystemNameAndSubnetMaskAsksTheHostsOwnNetworks)
{
    // What stands on this host's networks is not known here: it is enough that the search is made and ends.
    EXPECT_EQ(0, manager.createRootHandleBySystemName(errors, "A system that nobody has", root));
    ASSERT_NE(nullptr, root);
    EXPECT_EQ(0u, root->getBoardCount());
    EXPECT_EQ(0, manager.deleteRootHandle(errors, root));
    root = nullptr;
    EXPECT_EQ(0, manager.createRootHandleByIpSubnetMask(errors, "255.255.255.255", root));
    ASSERT_NE(nullptr, root);
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(Selection, byAMaskThatIsNoneReportsWhatTheFilterRefuses)
{
    EXPECT_EQ(0, manager.createRootHandleByIpSubnetMask(errors, "nonsense", root));
    ASSERT_NE(nullptr, root);
    EXPECT_EQ(0u, root->getBoardCount());
    EXPECT_EQ(0x1600007u, errors.getErrorCode(errors.getErrorCount() - 1));
}

TEST(RootHandles, byAListWithoutAddressesCannotBeMade)
{
    KvCErrorListPool errors;
    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    for (const char* list : {"", " ,; ", "1.2.3", "0.0.0.0", "10.0.0.256", "beef"}) {
        errors.clear();
        auto* root = reinterpret_cast<KvCInventoryRootHandle*>(&errors);
        EXPECT_EQ(-1, manager.createRootHandleByIpAddressList(errors, list, root)) << list;
        EXPECT_EQ(nullptr, root);
        EXPECT_EQ(Codes{0x1600806}, codesOf(errors));
        EXPECT_EQ(
            "Internal error. Korvel Support information: Cannot create root handle for " + std::string(list) + ".",
            lastText(errors));
        EXPECT_STREQ("KvCInventoryManager::createRootHandleByIpAddressList", errors.getErrorOrigin(0));
    }
    KvCInventoryRootHandle* root = nullptr;
    EXPECT_EQ(-1, manager.createRootHandleByIpAddressList(errors, nullptr, root));
    EXPECT_EQ(-1, manager.createRootHandleByIpAddressList(errors, std::string(1000, '1').c_str(), root));
    EXPECT_EQ(nullptr, root);
}

TEST(RootHandles, withoutMemoryAreNull)
{
    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    KvDALSDeviceInfo info = deviceInfo(0x7F420301, 1);
    void* none = nullptr;
    const auto check = [&](KvUInt32 code, auto create) {
        KvCErrorListPool errors;
        auto* root = reinterpret_cast<KvCInventoryRootHandle*>(&errors);
        {
            const FailingAllocation failing(1, true);
            EXPECT_EQ(-1, create(errors, root));
        }
        EXPECT_EQ(nullptr, root);
        EXPECT_EQ(Codes{code}, codesOf(errors));
    };
    check(0x1600806, [&](auto& e, auto& r) { return manager.createRootHandleByIpAddressList(e, "10.0.0.1", r); });
    check(0x160081D, [&](auto& e, auto& r) { return manager.createRootHandleByIpSubnetMask(e, "255.0.0.0", r); });
    check(0x160081D, [&](auto& e, auto& r) { return manager.createRootHandleBySystemName(e, "Rack A", r); });
    check(0x160081D, [&](auto& e, auto& r) { return manager.createRootHandleByDeviceInfoList(e, &info, 1, r); });
    check(0x160081D, [&](auto& e, auto& r) { return manager.createRootHandleByDeviceHandleList(e, &none, 1, r); });
    check(0x160081D, [&](auto& e, auto& r) { return manager.createRootHandleByFilter(e, none, r); });
}

TEST(RootHandles, thatAreNullAreRefused)
{
    KvCErrorListPool errors;
    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    EXPECT_EQ(-1, manager.deleteRootHandle(errors, nullptr));
    EXPECT_EQ(Codes(), codesOf(errors));
    KvUInt32 count = 5;
    EXPECT_EQ(-1, manager.getRootHandleCount(errors, nullptr, count));
    EXPECT_EQ(5u, count);
    EXPECT_EQ(-1, manager.printRootHandle(errors, nullptr));
    EXPECT_EQ((Codes{0x1600802, 0x1600802}), codesOf(errors));
    EXPECT_STREQ("KvCInventoryManager::getRootHandleCount", errors.getErrorOrigin(0));
    EXPECT_STREQ("KvCInventoryManager::printRootHandle", errors.getErrorOrigin(1));
}

TEST(RootHandles, arePrinted)
{
    KvCErrorListPool errors;
    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    KvCInventoryRootHandle* root = nullptr;
    EXPECT_EQ(0, manager.createRootHandleByDeviceInfoList(errors, nullptr, 0, root));
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(0, manager.printRootHandle(errors, root));
    EXPECT_EQ("Inventory handle subsumes 0 device(s):\n", ::testing::internal::GetCapturedStdout());
    EXPECT_EQ(0, manager.deleteRootHandle(errors, root));
}

}  // namespace
