#include <atomic>
#include <thread>

#include "ManagerTest.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/ScriptedBoards.h"

/* The client of a board, and what becomes of operations on boards behind real sockets. */

namespace {

class Client : public ::testing::Test
{
protected:
    ~Client() override
    {
        KvCRpcClient::setDefaultTimeout(0);
        manager.deleteInventoryTree(tree);
        manager.deleteRootHandle(errors, root);
    }

    ScriptedBoards::Board& add(KvUInt32 serialNumber)
    {
        ScriptedBoards::Board& board = scripted.add(serialNumber);
        board.answer(1, scanResult(0, treeStream(serialNumber)));
        infos.push_back(deviceInfo(board.address, serialNumber));
        return board;
    }

    void addBoardThatIsDown(KvUInt32 serialNumber)
    {
        infos.push_back(deviceInfo(ScriptedBoards::unusedAddress(), serialNumber));
    }

    void start()
    {
        scripted.start();
        ASSERT_EQ(0,
                  manager.createRootHandleByDeviceInfoList(errors, infos.data(), static_cast<int>(infos.size()), root));
    }

    void* device(KvUInt32 ordinal) { return root->getCnHandleByOrdinalNumber(errors, ordinal); }

    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    CapturedOutput output;
    KvCErrorListPool errors;
    ScriptedBoards scripted;
    std::vector<KvDALSDeviceInfo> infos;
    KvCInventoryRootHandle* root = nullptr;
    KvCInventoryItem* tree = nullptr;
};

TEST_F(Client, isMadeOnceForABoard)
{
    ScriptedBoards::Board& board = add(51);
    start();
    KVINVENTORYMANAGERRPCIF1Client* client = Probe::getRPCClient(errors, device(0));
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(client, Probe::getRPCClient(errors, device(0)));
    EXPECT_EQ(0, manager.scan(errors, root, tree));
    EXPECT_EQ(client, Probe::getRPCClient(errors, device(0)));

    void* other = nullptr;
    ASSERT_EQ(0, KvDAL_createDeviceHandle(errors, &other, infos[0]));
    EXPECT_EQ(client, Probe::getRPCClient(errors, other)) << "all handles of a board share its client";
    KvDAL_deleteDeviceHandle(errors, other);
    EXPECT_EQ(1u, board.connections());
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(Client, isMadeOnceByThreadsThatAskTogether)
{
    ScriptedBoards::Board& board = add(51);
    board.answer(2, Record().number(0).opaque(parameterStream(12.5, "V")).opaque({}));
    start();
    KVINVENTORYMANAGERRPCIF1Client* clients[8] = {};
    std::vector<std::thread> threads;
    for (auto& client : clients)
        threads.emplace_back([&client, this, handle = device(0)] {
            KvCErrorListPool own;
            client = Probe::getRPCClient(own, handle);
            KvCInventoryParameter parameter(own, KvNInventoryIDs::NAME, "", 0.0, "", false, 0);
            EXPECT_EQ(0, manager.readParameter(own, root, KvNInventoryIDs::HCN[51] / KvNInventoryIDs::CPU, parameter));
            EXPECT_EQ(12.5, parameter.getValue<double>(own));
            EXPECT_EQ(Codes(), codesOf(own));
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const auto* client : clients) {
        EXPECT_NE(nullptr, client);
        EXPECT_EQ(clients[0], client);
    }
    EXPECT_EQ(1u, board.connections());
    EXPECT_EQ(8u, board.calls().size());
}

TEST_F(Client, ofABoardThatIsDownNamesTheBoardAndEachCallFails)
{
    addBoardThatIsDown(52);
    start();
    EXPECT_EQ(-1, manager.scan(errors, root, tree));
    EXPECT_EQ(nullptr, tree);
    ASSERT_EQ(4u, errors.getErrorCount());
    EXPECT_EQ(0x100000u, errors.getErrorCode(0) & 0xFFF00000u) << "the reason stands first";
    EXPECT_EQ(0x1600803u, errors.getErrorCode(1));
    EXPECT_EQ("Communication error. Cannot connect to board HCN (serial number: 52, IP address: " +
                  ScriptedBoards::quad(infos[0].ipAddress) + ").",
              errors.getErrorText(1));
    EXPECT_STREQ("KvCInventoryManager::configureRPCClient", errors.getErrorOrigin(1));
    EXPECT_EQ(errors.getErrorCode(0), errors.getErrorCode(2)) << "the second try fails for the same reason";
    EXPECT_EQ(0x1600804u, errors.getErrorCode(3));

    errors.clear();
    EXPECT_EQ(-1, manager.scan(errors, root, tree));
    EXPECT_EQ(2u, errors.getErrorCount()) << "the client stays registered, so it is not configured again";
    EXPECT_EQ(0x1600804u, errors.getErrorCode(1));
}

TEST_F(Client, ofABoardWithABadAddressIsReported)
{
    infos.push_back(deviceInfo(ScriptedBoards::unusedAddress(), 53));
    std::strcpy(infos[0].hostAddress, "nowhere");
    start();
    EXPECT_EQ(-1, manager.scan(errors, root, tree));
    EXPECT_NE(0u, errors.getErrorCount());
}

TEST_F(Client, thatIsOfAnotherInterfaceIsNone)
{
    add(51);
    start();
    ASSERT_EQ(0, KvDAL_registerRPCClient(errors, device(0), 8, new KvCRpcClient(errors, "127.0.0.1")));
    EXPECT_EQ(nullptr, Probe::getRPCClient(errors, device(0)));
    KvCInventoryParameter parameter(errors, KvNInventoryIDs::NAME, "", 0.0, "", false, 0);
    EXPECT_EQ(-1, manager.readParameter(errors, root, KvNInventoryIDs::HCN[51], parameter));
    EXPECT_EQ(Codes(), codesOf(errors)) << "without a message";
}

TEST_F(Client, ofNoDeviceHandleIsNone)
{
    EXPECT_EQ(nullptr, Probe::getRPCClient(errors, static_cast<void*>(nullptr)));
    EXPECT_EQ(1u, errors.getErrorCount());
}

TEST_F(Client, ofOneBoardDoesNotHoldUpOthersWhileItConnects)
{
    ScriptedBoards::Board& silent = add(54);
    silent.mapPorts(false);
    add(55);
    start();
    std::atomic<bool> over = false;
    std::thread slow([&over, handle = device(0)] {
        KvCErrorListPool own;
        EXPECT_NE(nullptr, Probe::getRPCClient(own, handle));
        EXPECT_EQ(2u, own.getErrorCount());
        EXPECT_EQ(0x1600803u, own.getErrorCode(1));
        over = true;
    });
    EXPECT_TRUE(silent.waitForCalls(ScriptedBoards::PortMapperProgram, 3, 1));
    EXPECT_NE(nullptr, Probe::getRPCClient(errors, device(1)));
    EXPECT_FALSE(over) << "the other board was served while the first was still connecting";
    EXPECT_EQ(Codes(), codesOf(errors));
    KvCRpcClient::cancelAll();
    slow.join();
}

TEST_F(Client, ofABoardThatStallsGivesUpAndTheOthersAreDelivered)
{
    add(55);
    ScriptedBoards::Board& stalled = add(56);
    stalled.stall(1);
    add(57);
    start();
    KvCRpcClient::setDefaultTimeout(300000);
    KvNInventoryManager::KvTBoardScans boards;
    EXPECT_EQ(0, manager.scanBoards(errors, root, tree, boards));
    ASSERT_NE(nullptr, tree);
    EXPECT_NE(nullptr, tree->getItem(KvNInventoryIDs::HCN[55]));
    EXPECT_EQ(nullptr, tree->getItem(KvNInventoryIDs::HCN[56]));
    EXPECT_NE(nullptr, tree->getItem(KvNInventoryIDs::HCN[57]));
    ASSERT_EQ(3u, boards.size());
    EXPECT_EQ(KvNInventoryManager::BoardFailed, boards[1].result);
    ASSERT_EQ(2u, errors.getErrorCount());
    EXPECT_EQ(0x1600804u, errors.getErrorCode(1));
}

TEST_F(Client, ofABoardWithoutTheProcedureSaysSo)
{
    ScriptedBoards::Board& board = add(58);
    board.lack(1);
    start();
    EXPECT_EQ(-1, manager.scan(errors, root, tree));
    ASSERT_EQ(2u, errors.getErrorCount());
    EXPECT_EQ(0x1600804u, errors.getErrorCode(1));
}

TEST_F(Client, asksAgainWhatMayBeAskedTwiceWhenTheConnectionEnds)
{
    ScriptedBoards::Board& board = add(59);
    board.hangUp(1);
    board.hangUp(16);
    start();
    EXPECT_EQ(-1, manager.scan(errors, root, tree));
    EXPECT_EQ(2u, board.calls().size());
    KVINVENTORYMANAGERRPCIF1Client* client = Probe::getRPCClient(errors, device(0));
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(-1, Probe::registerParent(errors, *client, KvUInt32{1}));
    EXPECT_EQ(3u, board.calls().size()) << "telling a parent is not repeated";
}

TEST_F(Client, ofABoardThatComesBackConnectsAnew)
{
    ScriptedBoards::Board& board = add(60);
    board.hangUp(6);
    start();
    EXPECT_EQ(0, manager.scan(errors, root, tree));
    void* lock = nullptr;
    ASSERT_EQ(0, KvDAL_adoptAccessRestriction(errors, device(0), 1, &lock));
    EXPECT_EQ(-1, manager.apply(errors, root, KvNInventoryIDs::HCN[60], lock));
    board.answer(6, Record().number(0).opaque({}));
    errors.clear();
    EXPECT_EQ(0, manager.apply(errors, root, KvNInventoryIDs::HCN[60], lock));
    EXPECT_EQ(Codes(), codesOf(errors));
    KvDAL_deleteAccessRestrictionHandle(errors, lock);
}

TEST_F(Client, writesAndReadsOverTheWire)
{
    ScriptedBoards::Board& board = add(61);
    board.answer(3, Record().number(0).opaque({}));
    start();
    void* lock = nullptr;
    ASSERT_EQ(0, KvDAL_adoptAccessRestriction(errors, device(0), 0xABCD, &lock));
    EXPECT_EQ(0, manager.writeParameterValue(errors, root, KvNInventoryIDs::HCN[61] / KvNInventoryIDs::NAME, lock,
                                             static_cast<unsigned short>(0x1234)));
    const auto calls = board.calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(hex("00000002 00000004 0000017C 0000003D 00000003 00000001  0000ABCD  00000122 00000002 12340000"),
              calls[0].arguments);
    EXPECT_EQ(Codes(), codesOf(errors));
    KvDAL_deleteAccessRestrictionHandle(errors, lock);
}

}  // namespace
