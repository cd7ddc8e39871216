#include "ManagerTest.h"

using KvNInventoryManager::BoardComplete;
using KvNInventoryManager::BoardFailed;
using KvNInventoryManager::BoardIncomplete;
using KvNInventoryManager::KvTBoardScans;

namespace {

class ScanOfOneBoard : public OneBoard
{
protected:
    ~ScanOfOneBoard() override { manager.deleteInventoryTree(tree); }

    long scanClient(bool flag = false)
    {
        return Probe::scan(errors, *board.client, KvCString("HCN (test)"), tree, flag);
    }

    KvCInventoryItem* tree = nullptr;
};

TEST_F(ScanOfOneBoard, givesTheBoardsTree)
{
    board.client->answer(1, scanResult(0, treeStream(Serial)));
    EXPECT_EQ(0, scanClient(true));
    ASSERT_NE(nullptr, tree);
    EXPECT_STREQ("HCN[4711]", tree->getID().toString().c_str());
    EXPECT_EQ(Serial, tree->getValue<KvUInt32>(errors, KvNInventoryIDs::SERIAL_NUMBER));
    EXPECT_STREQ("Main processor of the board",
                 tree->getValue<KvCString>(errors, KvNInventoryIDs::CPU / KvNInventoryIDs::NAME).c_str());
    EXPECT_EQ(Codes(), codesOf(errors));
    EXPECT_EQ(hex("00000001"), sent());
}

TEST_F(ScanOfOneBoard, doesNotLookAtTheStatus)
{
    board.client->answer(1, scanResult(17, treeStream(Serial)));
    EXPECT_EQ(0, scanClient());
    EXPECT_NE(nullptr, tree);
    EXPECT_EQ(hex("00000000"), sent());
}

TEST_F(ScanOfOneBoard, keepsTheTreeWhenTheBoardReportsErrorsWithIt)
{
    board.client->answer(1, scanResult(0, treeStream(Serial), errorBlock(0x1600801)));
    EXPECT_EQ(0, scanClient());
    EXPECT_NE(nullptr, tree);
    EXPECT_EQ(Codes{0x1600801}, codesOf(errors));
}

TEST_F(ScanOfOneBoard, withoutAnAnswerNamesTheProcedure)
{
    board.client->fail(1, 2);
    tree = reinterpret_cast<KvCInventoryItem*>(this);
    EXPECT_EQ(-1, scanClient());
    EXPECT_EQ(nullptr, tree);
    EXPECT_EQ((Codes{RecordingClient::CallFailed, 0x1600804}), codesOf(errors));
    EXPECT_EQ("Communication error. Cannot call remote procedure scan().", lastText(errors));
    EXPECT_STREQ("KvCInventoryManager::scan", errors.getErrorOrigin(1));
}

TEST_F(ScanOfOneBoard, withoutATreeNamesTheBoard)
{
    board.client->answer(1, scanResult(0, {}));
    EXPECT_EQ(-1, scanClient());
    EXPECT_EQ(nullptr, tree);
    EXPECT_EQ(Codes{0x160080A}, codesOf(errors));
    EXPECT_EQ("Internal error. Korvel Support information: Scan result was empty for node HCN (test).",
              lastText(errors));
}

TEST_F(ScanOfOneBoard, ofWhatIsNoStreamNamesTheBoard)
{
    board.client->answer(1, scanResult(0, hex("DEADBEEF")));
    EXPECT_EQ(-1, scanClient());
    EXPECT_EQ(nullptr, tree);
    ASSERT_LE(2u, errors.getErrorCount());
    EXPECT_EQ(0x160080Bu, errors.getErrorCode(errors.getErrorCount() - 1));
    EXPECT_EQ(0x1302801u, errors.getErrorCode(errors.getErrorCount() - 2));
    EXPECT_EQ("Internal error. Korvel Support information: Cannot deserialize inventory data received from HCN (test).",
              lastText(errors));
}

TEST_F(ScanOfOneBoard, ofAStreamWithoutAnItemFails)
{
    board.client->answer(1, scanResult(0, parameterStream(12.5, "V")));
    EXPECT_EQ(-1, scanClient());
    EXPECT_EQ(nullptr, tree);
    EXPECT_EQ(Codes{0x1600819}, codesOf(errors));
    EXPECT_EQ("Internal error. Korvel Support information: Cannot deserialize inventory tree.", lastText(errors));
}

TEST_F(ScanOfOneBoard, ofATreeCutInsideARecordFails)
{
    // Between two records a cut cannot be told from an end.
    const Bytes whole = treeStream(Serial);
    std::size_t failed = 0;
    for (std::size_t length = 1; length < whole.size(); ++length) {
        board.client->answer(1, scanResult(0, Bytes(whole.begin(), whole.begin() + static_cast<long>(length))));
        errors.clear();
        const bool good = scanClient() == 0;
        EXPECT_EQ(good, tree != nullptr) << length;
        EXPECT_EQ(good, errors.getErrorCount() == 0) << length;
        failed += good ? 0 : 1;
        manager.deleteInventoryTree(tree);
        tree = nullptr;
    }
    EXPECT_EQ(whole.size() - 1 - 5, failed) << "behind each of the two start records, the two parameters and an end";
}

/** Several boards with recording clients, and a root handle that holds them. */
class ScanOfBoards : public ::testing::Test
{
protected:
    ~ScanOfBoards() override
    {
        manager.deleteInventoryTree(tree);
        manager.deleteRootHandle(errors, root);
    }

    RecordingClient& add(KvUInt32 serialNumber)
    {
        const auto address = static_cast<KvUInt32>(0x7F420100 + m_boards.size());
        m_boards.push_back(std::make_unique<RecordedBoard>(address, serialNumber));
        m_boards.back()->client->answer(1, scanResult(0, treeStream(serialNumber)));
        return *m_boards.back()->client;
    }

    /** A board of which the registered client is of another interface: there is no client for it. */
    void addWithoutClient(KvUInt32 serialNumber)
    {
        void* device = nullptr;
        const auto address = static_cast<KvUInt32>(0x7F420180 + m_others.size());
        ASSERT_EQ(0, KvDAL_createDeviceHandle(errors, &device, deviceInfo(address, serialNumber)));
        ASSERT_EQ(0, KvDAL_registerRPCClient(errors, device, 8, new KvCRpcClient(errors, "127.0.0.1")));
        m_others.push_back(device);
        m_boards.push_back(nullptr);
    }

    void makeRoot()
    {
        std::vector<void*> devices;
        auto other = m_others.begin();
        for (const auto& board : m_boards)
            devices.push_back(board != nullptr ? board->device : *other++);
        ASSERT_EQ(0, manager.createRootHandleByDeviceHandleList(errors, devices.data(),
                                                                static_cast<int>(devices.size()), root));
        ASSERT_EQ(Codes(), codesOf(errors));
    }

    std::string childrenOf(const KvCInventoryItem* item)
    {
        std::string names;
        for (const KvCInventoryItem* child = item->getFirstSubItem(); child != nullptr; child = child->getNext())
            names += std::string(names.empty() ? "" : " ") + child->getID().toString().c_str();
        return names;
    }

    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    KvCErrorListPool errors;
    KvCInventoryRootHandle* root = nullptr;
    KvCInventoryItem* tree = nullptr;
    KvTBoardScans boards;

private:
    struct Devices : std::vector<void*>
    {
        ~Devices()
        {
            KvCErrorListPool ignored;
            for (void* device : *this)
                KvDAL_deleteDeviceHandle(ignored, device);
        }
    };
    std::vector<std::unique_ptr<RecordedBoard>> m_boards;
    Devices m_others;
};

TEST_F(ScanOfBoards, hangsEachTreeUnderOneRoot)
{
    add(11);
    add(12);
    add(13);
    makeRoot();
    EXPECT_EQ(0, manager.scan(errors, root, tree));
    ASSERT_NE(nullptr, tree);
    EXPECT_STREQ("ROOT", tree->getID().toString().c_str());
    EXPECT_STREQ("ROOT", tree->getDescription());
    EXPECT_EQ("HCN[11] HCN[12] HCN[13]", childrenOf(tree));
    EXPECT_EQ(12u, tree->getValue<KvUInt32>(errors, KvNInventoryIDs::HCN[12] / KvNInventoryIDs::SERIAL_NUMBER));
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(ScanOfBoards, asksWithoutTheFlag)
{
    const RecordingClient& client = add(11);
    makeRoot();
    EXPECT_EQ(0, manager.scan(errors, root, tree));
    ASSERT_EQ(1u, client.calls().size());
    EXPECT_EQ(hex("00000000"), client.calls()[0].arguments);
}

TEST_F(ScanOfBoards, withoutARootHandleFails)
{
    tree = reinterpret_cast<KvCInventoryItem*>(this);
    EXPECT_EQ(-1, manager.scan(errors, nullptr, tree));
    EXPECT_EQ(nullptr, tree);
    EXPECT_EQ(Codes{0x1600802}, codesOf(errors));
    EXPECT_STREQ("KvCInventoryManager::scan", errors.getErrorOrigin(0));

    errors.clear();
    EXPECT_EQ(-1, manager.scanBoards(errors, nullptr, tree, boards));
    EXPECT_EQ(Codes{0x1600802}, codesOf(errors));
}

TEST_F(ScanOfBoards, ofNoBoardFailsWithoutAWord)
{
    makeRoot();
    EXPECT_EQ(-1, manager.scan(errors, root, tree));
    EXPECT_EQ(nullptr, tree);
    EXPECT_EQ(-1, manager.scanBoards(errors, root, tree, boards));
    EXPECT_EQ(nullptr, tree);
    EXPECT_TRUE(boards.empty());
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(ScanOfBoards, whereOneFailsStillGivesTheOthers)
{
    add(11);
    add(12).fail(1, 3);
    add(13);
    makeRoot();
    EXPECT_EQ(0, manager.scan(errors, root, tree));
    ASSERT_NE(nullptr, tree);
    EXPECT_EQ("HCN[11] HCN[13]", childrenOf(tree));
    EXPECT_EQ((Codes{RecordingClient::CallFailed, 0x1600804}), codesOf(errors));
}

TEST_F(ScanOfBoards, whereTheLastFailsStillSucceeds)
{
    add(11);
    add(12).fail(1, 3);
    makeRoot();
    EXPECT_EQ(0, manager.scan(errors, root, tree));
    EXPECT_EQ("HCN[11]", childrenOf(tree));
}

TEST_F(ScanOfBoards, whereTheLastHasNoClientFails)
{
    add(11);
    addWithoutClient(12);
    makeRoot();
    EXPECT_EQ(-1, manager.scan(errors, root, tree));
    EXPECT_EQ(nullptr, tree);
}

TEST_F(ScanOfBoards, whereAnEarlierHasNoClientSucceeds)
{
    addWithoutClient(12);
    add(11);
    makeRoot();
    EXPECT_EQ(0, manager.scan(errors, root, tree));
    EXPECT_EQ("HCN[11]", childrenOf(tree));
}

TEST_F(ScanOfBoards, whereEveryReplyCarriesErrorsFails)
{
    add(11).answer(1, scanResult(0, treeStream(11), errorBlock(0x1600801)));
    makeRoot();
    EXPECT_EQ(-1, manager.scan(errors, root, tree));
    EXPECT_EQ(nullptr, tree);
    EXPECT_EQ(Codes{0x1600801}, codesOf(errors));
}

TEST_F(ScanOfBoards, withOneAddressTwiceKeepsTheFirstAndNamesTheSecond)
{
    add(11);
    RecordingClient& second = add(12);
    second.answer(1, scanResult(0, treeStream(11)));
    add(13);
    makeRoot();
    EXPECT_EQ(0, manager.scan(errors, root, tree));
    EXPECT_EQ("HCN[11] HCN[13]", childrenOf(tree));
    EXPECT_EQ(Codes{0x1300816}, codesOf(errors));
    EXPECT_EQ("Internal error. Korvel Support information: Cannot add item HCN[11] to inventory tree below item ROOT.",
              lastText(errors));
}

TEST_F(ScanOfBoards, thatNamesItsBoardsGivesWhatCouldBeReadInAnyOrder)
{
    add(11);
    add(12).fail(1, 3);
    add(13).answer(1, scanResult(0, treeStream(13), errorBlock(0x1600801)));
    add(14).answer(1, scanResult(0, treeStream(11)));
    addWithoutClient(15);
    makeRoot();
    EXPECT_EQ(0, manager.scanBoards(errors, root, tree, boards));
    ASSERT_NE(nullptr, tree);
    EXPECT_EQ("HCN[11] HCN[13]", childrenOf(tree));
    EXPECT_EQ((Codes{RecordingClient::CallFailed, 0x1600804, 0x1600801, 0x1300816}), codesOf(errors));

    ASSERT_EQ(5u, boards.size());
    const KvNInventoryManager::EBoardScan expected[] = {BoardComplete, BoardFailed, BoardIncomplete, BoardFailed,
                                                        BoardFailed};
    for (KvUInt32 i = 0; i < 5; ++i) {
        EXPECT_EQ(i, boards[i].ordinal);
        EXPECT_EQ(11 + i, boards[i].serialNumber);
        EXPECT_EQ(expected[i], boards[i].result) << i;
    }
    EXPECT_STREQ("HCN (serial number: 12, IP address: 127.66.1.1)", boards[1].description.c_str());
}

TEST_F(ScanOfBoards, thatNamesItsBoardsSucceedsWhereTheOnlyTreeCameWithErrors)
{
    add(11).answer(1, scanResult(0, treeStream(11), errorBlock(0x1600801)));
    makeRoot();
    EXPECT_EQ(0, manager.scanBoards(errors, root, tree, boards));
    EXPECT_EQ("HCN[11]", childrenOf(tree));
    ASSERT_EQ(1u, boards.size());
    EXPECT_EQ(BoardIncomplete, boards[0].result);
}

TEST_F(ScanOfBoards, thatNamesItsBoardsFailsWhereNoneCouldBeRead)
{
    add(11).answer(1, scanResult(0, {}));
    makeRoot();
    EXPECT_EQ(-1, manager.scanBoards(errors, root, tree, boards));
    EXPECT_EQ(nullptr, tree);
    ASSERT_EQ(1u, boards.size());
    EXPECT_EQ(BoardFailed, boards[0].result);
    EXPECT_EQ(Codes{0x160080A}, codesOf(errors));
    EXPECT_EQ(
        "Internal error. Korvel Support information: Scan result was empty for node HCN (serial number: 11, IP "
        "address: 127.66.1.0).",
        lastText(errors));
}

TEST_F(ScanOfBoards, withABoardThatIsACnPutsItBesideTheOthers)
{
    KvCErrorListPool ignored;
    KvCInventoryItem cn(ignored, KvNInventoryIDs::CN[12], "CN");
    KvCBuffer buffer(ignored);
    KvCInventoryItemFactory factory(ignored);
    factory.serialize(ignored, &buffer, &cn);
    add(11);
    add(12).answer(1, scanResult(0, Bytes(buffer.getStartPointer(), buffer.getWritePointer())));
    makeRoot();
    EXPECT_EQ(0, manager.scan(errors, root, tree));
    EXPECT_EQ("HCN[11] CN[12]", childrenOf(tree));
}

}  // namespace
