#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "ManagerTest.h"
#include "platform/errorhandling/KvCErrorManager.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/ScriptedBoards.h"

/* Boards that are scanned side by side: what comes of it is what a scan one after the other gives. */

namespace {

/** Has boards answer in an order of the test's own. */
class Order
{
public:
    void waitFor(int turn)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_turn == turn; });
        ++m_turn;
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_turn = 0;
};

/** A client whose board answers when it is its turn. */
class OrderedClient : public RecordingClient
{
public:
    OrderedClient(KvCErrorListPool& errors, Order& order, int turn)
        : RecordingClient(errors), m_order(order), m_turn(turn)
    {}
    long clntCall(KvCErrorListPool& errors, KvUInt32 procedure, KvNXdr::xdrproc_t encoder, void* arguments,
                  KvNXdr::xdrproc_t decoder, void* result) override
    {
        m_order.waitFor(m_turn);
        return RecordingClient::clntCall(errors, procedure, encoder, arguments, decoder, result);
    }

private:
    Order& m_order;
    const int m_turn;
};

/** What a scan tells of its progress, one call at a time. */
class Told
{
public:
    static void take(KvUInt32 answered, KvUInt32 failed, void* context)
    {
        auto* self = static_cast<Told*>(context);
        if (self->m_busy.exchange(true))
            self->m_atOnce = true;
        {
            const std::lock_guard lock(self->m_mutex);
            self->m_numbers.push_back(answered + failed);
            self->m_failed.push_back(failed);
            self->m_changed.notify_all();
        }
        std::this_thread::yield();
        self->m_busy = false;
    }
    /** Waits until so many boards were told of; false after 10 s. */
    bool waitFor(std::size_t count)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(10), [&] { return m_numbers.size() >= count; });
    }
    std::vector<KvUInt32> numbers() const { return m_numbers; }
    std::vector<KvUInt32> failed() const { return m_failed; }
    bool wasAtOnce() const { return m_atOnce; }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<KvUInt32> m_numbers;
    std::vector<KvUInt32> m_failed;
    std::atomic<bool> m_busy{false};
    std::atomic<bool> m_atOnce{false};
};

/** A client whose board answers when so many others were told of. */
class TellingClient : public RecordingClient
{
public:
    TellingClient(KvCErrorListPool& errors, Told& told, std::size_t others)
        : RecordingClient(errors), m_told(told), m_others(others)
    {}
    long clntCall(KvCErrorListPool& errors, KvUInt32 procedure, KvNXdr::xdrproc_t encoder, void* arguments,
                  KvNXdr::xdrproc_t decoder, void* result) override
    {
        EXPECT_TRUE(m_told.waitFor(m_others)) << m_others;
        if (isDown)
            return TimedOut;
        return RecordingClient::clntCall(errors, procedure, encoder, arguments, decoder, result);
    }

    bool isDown = false;

private:
    Told& m_told;
    const std::size_t m_others;
};

class ScanSideBySide : public ::testing::Test
{
protected:
    ~ScanSideBySide() override
    {
        KvCRpcClient::setDefaultTimeout(0);
        manager.deleteInventoryTree(tree);
        manager.deleteRootHandle(errors, root);
        KvCErrorListPool ignored;
        for (void* device : devices)
            KvDAL_deleteDeviceHandle(ignored, device);
    }

    /** A board behind a client that the device access library owns from now on. */
    template <class Client>
    Client& add(KvUInt32 serialNumber, Client* client)
    {
        void* device = nullptr;
        const auto address = static_cast<KvUInt32>(0x7F430100 + devices.size());
        EXPECT_EQ(0, KvDAL_createDeviceHandle(errors, &device, deviceInfo(address, serialNumber)));
        EXPECT_EQ(0, KvDAL_registerRPCClient(errors, device, 8, client));
        devices.push_back(device);
        client->answer(1, scanResult(0, treeStream(serialNumber)));
        return *client;
    }

    void makeRoot()
    {
        ASSERT_EQ(0, manager.createRootHandleByDeviceHandleList(errors, devices.data(),
                                                                static_cast<int>(devices.size()), root));
        ASSERT_EQ(Codes(), codesOf(errors));
    }

    void addScripted(KvUInt32 serialNumber)
    {
        ScriptedBoards::Board& board = scripted.add(serialNumber);
        board.answer(1, scanResult(0, treeStream(serialNumber)));
        infos.push_back(deviceInfo(board.address, serialNumber));
        scriptedBoards.push_back(&board);
    }

    void start()
    {
        scripted.start();
        ASSERT_EQ(0,
                  manager.createRootHandleByDeviceInfoList(errors, infos.data(), static_cast<int>(infos.size()), root));
    }

    std::vector<KvUInt32> serialsOf(const KvCInventoryItem* item) const
    {
        std::vector<KvUInt32> serials;
        for (const KvCInventoryItem* child = item->getFirstSubItem(); child != nullptr; child = child->getNext())
            serials.push_back(child->getID().getIndex());
        return serials;
    }

    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    CapturedOutput output;
    KvCErrorListPool errors;
    ScriptedBoards scripted;
    std::vector<ScriptedBoards::Board*> scriptedBoards;
    std::vector<KvDALSDeviceInfo> infos;
    std::vector<void*> devices;
    KvCInventoryRootHandle* root = nullptr;
    KvCInventoryItem* tree = nullptr;
};

TEST_F(ScanSideBySide, CallsBoardsAtOnceAndPutsThemTogetherInTheirOrder)
{
    constexpr int count = 6;
    Order order;
    for (int i = 0; i < count; ++i) {
        auto& client = add(static_cast<KvUInt32>(20 + i), new OrderedClient(errors, order, count - 1 - i));
        if (i == 1)
            client.fail(1, 3);
        if (i == 3)
            client.answer(1, scanResult(0, treeStream(23), errorBlock(0x1600801)));
        if (i == 4)
            client.answer(1, scanResult(0, {}));
    }
    makeRoot();
    KvNInventoryManager::KvTBoardScans boards;
    EXPECT_EQ(0, manager.scanBoards(errors, root, tree, boards));
    ASSERT_NE(nullptr, tree);
    EXPECT_EQ((std::vector<KvUInt32>{20, 22, 23, 25}), serialsOf(tree));
    EXPECT_EQ((Codes{RecordingClient::CallFailed, 0x1600804, 0x1600801, 0x160080A}), codesOf(errors));
    EXPECT_EQ(
        "Internal error. Korvel Support information: Scan result was empty for node HCN (serial number: 24, IP "
        "address: 127.67.1.4).",
        lastText(errors));
    using namespace KvNInventoryManager;
    const EBoardScan expected[] = {BoardComplete,   BoardFailed, BoardComplete,
                                   BoardIncomplete, BoardFailed, BoardComplete};
    for (KvUInt32 i = 0; i < count; ++i)
        EXPECT_EQ(expected[i], boards[i].result) << i;
}

TEST_F(ScanSideBySide, AsksABoardThatIsThereTwiceOneAfterTheOther)
{
    RecordingClient& client = add(30, new RecordingClient(errors));
    add(31, new RecordingClient(errors));
    void* again = nullptr;
    ASSERT_EQ(0, KvDAL_createDeviceHandle(errors, &again, deviceInfo(0x7F430100, 30)));
    devices.push_back(again);
    makeRoot();
    EXPECT_EQ(0, manager.scan(errors, root, tree));
    EXPECT_EQ(2u, client.calls().size());
    EXPECT_EQ((std::vector<KvUInt32>{30, 31}), serialsOf(tree));
    EXPECT_EQ(Codes{0x1300816}, codesOf(errors));
}

TEST_F(ScanSideBySide, DoesNotAskAgainForWhatABoardItselfReports)
{
    RecordingClient& withTree = add(32, new RecordingClient(errors));
    withTree.answer(1, scanResult(0, treeStream(32), errorBlock(0x401)));
    RecordingClient& without = add(33, new RecordingClient(errors));
    without.answer(1, scanResult(0, {}, errorBlock(0x401)));
    makeRoot();
    KvNInventoryManager::KvTBoardScans boards;
    EXPECT_EQ(0, manager.scanBoards(errors, root, tree, boards));
    EXPECT_EQ(1u, withTree.calls().size());
    EXPECT_EQ(1u, without.calls().size());
    EXPECT_EQ((Codes{0x401, 0x401, 0x160080A}), codesOf(errors));
}

TEST_F(ScanSideBySide, DoesNotAskABoardAgainWhoseReportGoesWithABadTree)
{
    Bytes bad = treeStream(34);
    bad.resize(bad.size() / 2);
    RecordingClient& client = add(34, new RecordingClient(errors));
    client.answer(1, scanResult(0, bad, errorBlock(0x401)));
    add(35, new RecordingClient(errors));
    makeRoot();
    KvNInventoryManager::KvTBoardScans boards;
    EXPECT_EQ(0, manager.scanBoards(errors, root, tree, boards));
    EXPECT_EQ(1u, client.calls().size());
    ASSERT_LT(2u, errors.getErrorCount());
    EXPECT_EQ(0x401u, errors.getErrorCode(0));
    EXPECT_EQ(0x160080Bu, errors.getErrorCode(errors.getErrorCount() - 1));
}

TEST_F(ScanSideBySide, TellsOfEachBoardAsItsAnswerComesOrFails)
{
    constexpr std::size_t count = 6;
    Told told;
    for (std::size_t i = 0; i < count; ++i) {
        auto& client = add(static_cast<KvUInt32>(20 + i), new TellingClient(errors, told, count - 1 - i));
        client.isDown = i == 2;
        if (i == 4)
            client.answer(1, scanResult(0, {}));
    }
    makeRoot();
    KvNInventoryManager::KvTBoardScans boards;
    EXPECT_EQ(0, manager.scanBoards(errors, root, tree, boards, Told::take, &told));
    EXPECT_EQ((std::vector<KvUInt32>{0, 0, 0, 1, 1, 1}), told.failed());
    EXPECT_EQ((std::vector<KvUInt32>{1, 2, 3, 4, 5, 6}), told.numbers());
    EXPECT_EQ((std::vector<KvUInt32>{20, 21, 23, 25}), serialsOf(tree));
}

TEST_F(ScanSideBySide, TellsOfEachOfManyBoardsOnceAndOneAfterTheOther)
{
    for (KvUInt32 i = 0; i < 40; ++i)
        addScripted(200 + i);
    for (const std::size_t down : {3u, 17u, 39u})
        scriptedBoards[down]->hangUp(1);
    start();
    Told told;
    KvNInventoryManager::KvTBoardScans boards;
    EXPECT_EQ(0, manager.scanBoards(errors, root, tree, boards, Told::take, &told));
    std::vector<KvUInt32> expected(40);
    for (KvUInt32 i = 0; i < 40; ++i)
        expected[i] = i + 1;
    EXPECT_EQ(expected, told.numbers());
    EXPECT_FALSE(told.wasAtOnce());
    const std::vector<KvUInt32> failed = told.failed();
    EXPECT_TRUE(std::is_sorted(failed.begin(), failed.end()));
    EXPECT_EQ(3u, failed.back());
    EXPECT_EQ(37u, serialsOf(tree).size());
}

TEST_F(ScanSideBySide, TellsOfAnOnlyBoard)
{
    add(36, new RecordingClient(errors));
    makeRoot();
    Told told;
    KvNInventoryManager::KvTBoardScans boards;
    EXPECT_EQ(0, manager.scanBoards(errors, root, tree, boards, Told::take, &told));
    EXPECT_EQ(std::vector<KvUInt32>{1}, told.numbers());
}

TEST_F(ScanSideBySide, ReportsBoardsThatCannotBeReachedAsEverWhicheverAllocationFails)
{
    infos.push_back(deviceInfo(ScriptedBoards::unusedAddress(), 90));
    infos.push_back(deviceInfo(ScriptedBoards::unusedAddress(), 91));
    bool failed = true;
    for (std::size_t number = 1; failed; ++number) {
        ASSERT_EQ(0, manager.createRootHandleByDeviceInfoList(errors, infos.data(), 2, root));
        KvCErrorListPool reported;
        {
            const FailingAllocation failing(number);
            EXPECT_EQ(-1, manager.scan(reported, root, tree));
            failed = failing.hasFailed();
        }
        const Codes codes = codesOf(reported);
        EXPECT_EQ(std::count(codes.begin(), codes.end(), 0x1600803u),
                  std::count(codes.begin(), codes.end(), 0x1600804u))
            << number;
        manager.deleteRootHandle(errors, root);
        root = nullptr;
    }
    KvCErrorManager::getMasterErrorList().clear();
}

TEST_F(ScanSideBySide, TellsTheErrorManagerOfBadHandlesOnceWhicheverAllocationFails)
{
    add(92, new RecordingClient(errors));
    add(93, new RecordingClient(errors));
    makeRoot();
    for (void* device : std::exchange(devices, {}))
        ASSERT_EQ(0, KvDAL_deleteDeviceHandle(errors, device));
    bool failed = true;
    for (std::size_t number = 1; failed; ++number) {
        output.messages.clear();
        KvCErrorListPool reported;
        {
            const FailingAllocation failing(number);
            EXPECT_EQ(-1, manager.scan(reported, root, tree));
            failed = failing.hasFailed();
        }
        const auto told =
            std::count_if(output.messages.begin(), output.messages.end(),
                          [](const CapturedOutput::Message& message) { return message.code == 0x160080E; });
        EXPECT_LE(told, 2) << number;
        EXPECT_TRUE(failed || told == 2);
    }
    KvCErrorManager::getMasterErrorList().clear();
}

TEST_F(ScanSideBySide, ReadsTwoHundredBoardsOverAndOver)
{
    for (KvUInt32 i = 0; i < 200; ++i)
        addScripted(1000 + i);
    start();
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(0, manager.scan(errors, root, tree));
        EXPECT_EQ(Codes(), codesOf(errors));
        const std::vector<KvUInt32> serials = serialsOf(tree);
        ASSERT_EQ(200u, serials.size());
        for (KvUInt32 i = 0; i < 200; ++i)
            EXPECT_EQ(1000 + i, serials[i]);
        manager.deleteInventoryTree(tree);
        tree = nullptr;
    }
    for (const ScriptedBoards::Board* board : scriptedBoards)
        EXPECT_EQ(1u, board->connections());
}

TEST_F(ScanSideBySide, LetsSilentBoardsCostTheirOwnTimeOnly)
{
    for (KvUInt32 i = 0; i < 12; ++i)
        addScripted(40 + i);
    for (const std::size_t silent : {2u, 5u, 6u, 9u})
        scriptedBoards[silent]->stall(1);
    start();
    KvCRpcClient::setDefaultTimeout(1000000);
    std::atomic<bool> othersCame{true};
    std::thread watcher([&] {
        for (std::size_t i = 0; i < 12; ++i)
            if (!scriptedBoards[i]->waitForCalls(ScriptedBoards::InventoryProgram, 1, 1))
                othersCame = false;
    });
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(0, manager.scan(errors, root, tree));
    const auto lasted = std::chrono::steady_clock::now() - began;
    watcher.join();
    EXPECT_TRUE(othersCame);
    EXPECT_LE(std::chrono::milliseconds(1000), lasted);
    EXPECT_EQ((std::vector<KvUInt32>{40, 41, 43, 44, 47, 48, 50, 51}), serialsOf(tree));
    ASSERT_EQ(8u, errors.getErrorCount());
    for (KvUInt32 i = 0; i < 8; i += 2) {
        EXPECT_EQ(static_cast<KvUInt32>(KvNMessage::RpcTimedOut), errors.getErrorCode(i));
        EXPECT_EQ(0x1600804u, errors.getErrorCode(i + 1));
        const std::size_t silent[] = {2, 5, 6, 9};
        EXPECT_NE(std::string::npos, std::string(errors.getErrorText(i))
                                         .find(ScriptedBoards::quad(scriptedBoards[silent[i / 2]]->address) + ":"));
    }
}

TEST_F(ScanSideBySide, EndsAtOnceWhenItIsCancelled)
{
    for (KvUInt32 i = 0; i < 5; ++i)
        addScripted(60 + i);
    for (const std::size_t silent : {0u, 3u})
        scriptedBoards[silent]->stall(1);
    start();
    std::thread canceller([&] {
        for (const ScriptedBoards::Board* board : scriptedBoards)
            EXPECT_TRUE(board->waitForCalls(ScriptedBoards::InventoryProgram, 1, 1));
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        KvCRpcClient::cancelAll();
    });
    EXPECT_EQ(0, manager.scan(errors, root, tree));
    canceller.join();
    EXPECT_EQ((std::vector<KvUInt32>{61, 62, 64}), serialsOf(tree));
    const auto cancelled = static_cast<KvUInt32>(KvNMessage::RpcCancelled);
    EXPECT_EQ((Codes{cancelled, 0x1600804, cancelled, 0x1600804}), codesOf(errors));
}

TEST_F(ScanSideBySide, ReportsOrDeliversEachBoardWhicheverAllocationFails)
{
    for (KvUInt32 i = 0; i < 3; ++i)
        add(70 + i, new RecordingClient(errors));
    makeRoot();
    for (const bool lasting : {false, true}) {
        bool failed = true;
        for (std::size_t number = 1; failed; ++number) {
            KvCErrorListPool reported;
            KvCInventoryItem* scanned = nullptr;
            KvNInventoryManager::KvTBoardScans boards;
            Told told;
            long result = 0;
            {
                const FailingAllocation failing(number, lasting);
                result = manager.scanBoards(reported, root, scanned, boards, Told::take, &told);
                failed = failing.hasFailed();
            }
            EXPECT_TRUE(told.numbers().empty() || told.numbers() == (std::vector<KvUInt32>{1, 2, 3})) << number;
            EXPECT_EQ(result == 0, scanned != nullptr) << number;
            const std::size_t delivered = scanned != nullptr ? serialsOf(scanned).size() : 0;
            EXPECT_TRUE(reported.getErrorCount() != 0 || delivered == 3) << number;
            std::size_t complete = 0;
            for (const KvNInventoryManager::KvSBoardScan& board : boards)
                complete += board.result != KvNInventoryManager::BoardFailed ? 1 : 0;
            if (scanned != nullptr) {
                EXPECT_EQ(delivered, complete) << number;
            }
            manager.deleteInventoryTree(scanned);
        }
    }
    KvCErrorManager::getMasterErrorList().clear();
}

TEST_F(ScanSideBySide, IsDoneByManyThreadsAtOnce)
{
    for (KvUInt32 i = 0; i < 10; ++i)
        addScripted(80 + i);
    start();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([this] {
            for (int round = 0; round < 5; ++round) {
                KvCErrorListPool own;
                KvCInventoryItem* scanned = nullptr;
                EXPECT_EQ(0, manager.scan(own, root, scanned));
                EXPECT_EQ(Codes(), codesOf(own));
                ASSERT_NE(nullptr, scanned);
                EXPECT_EQ(10u, serialsOf(scanned).size());
                manager.deleteInventoryTree(scanned);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
