#include "manager/KvCInventoryManager.h"

#include "ManagerTest.h"

namespace {

TEST(InventoryManager, isOneObject)
{
    EXPECT_EQ(&KvCInventoryManager::getInstance(), &KvCInventoryManager::getInstance());
    EXPECT_EQ(&KvCInventoryManager::getInstance(),
              &(KvCInventoryManager::getInstance() = KvCInventoryManager::getInstance()));
}

TEST(InventoryManager, namesTheFirmwareTypes)
{
    const char* names[] = {"Invalid",
                           "UserFirmware",
                           "FactoryFirmware",
                           "UserFpga",
                           "FactoryFpga",
                           "CnCpuConfiguration",
                           "FactoryIplFirmware",
                           "UserIplFirmware",
                           "CnFirmware",
                           "CnIplFirmware",
                           "BootLoader",
                           "IoFpga1",
                           "IoFpga2",
                           "IoFpga3",
                           "Invalid"};
    for (KvUInt32 type = 0; type < 15; ++type)
        EXPECT_STREQ(names[type],
                     KvCInventoryManager::getFirmwareTypeString(static_cast<KvNInventoryManager::FirmwareType>(type)));
    EXPECT_STREQ("Invalid", KvCInventoryManager::getFirmwareTypeString(
                                static_cast<KvNInventoryManager::FirmwareType>(0xFFFFFFFF)));
}

TEST(InventoryManager, deletesTreesAndIgnoresNone)
{
    KvCErrorListPool errors;
    KvCInventoryManager::getInstance().deleteInventoryTree(nullptr);
    auto* tree = new (errors) KvCInventoryItem(errors, KvNInventoryIDs::ROOT, "ROOT");
    tree->addPath(errors, KvNInventoryIDs::HCN / KvNInventoryIDs::CPU);
    KvCInventoryManager::getInstance().deleteInventoryTree(tree);
}

TEST(InventoryManager, readsTheTreeOfAFile)
{
    KvCErrorListPool errors;
    KvCInventoryItem* tree = nullptr;
    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    EXPECT_EQ(0, manager.extractInventoryTreeFromFile(errors, KV_SAMPLES_DIR "/single-board.inv", tree));
    EXPECT_EQ(Codes(), codesOf(errors));
    EXPECT_NE(nullptr, tree);
    manager.deleteInventoryTree(tree);

    tree = nullptr;
    EXPECT_EQ(-1, manager.extractInventoryTreeFromFile(errors, KV_SAMPLES_DIR "/no such file", tree));
    EXPECT_EQ(Codes{0x1300001}, codesOf(errors));
    EXPECT_EQ(nullptr, tree);
}

}  // namespace
