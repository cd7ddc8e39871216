#include "ManagerTest.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/ScriptedBoards.h"

namespace {

constexpr KvUInt32 Request = 2;
constexpr KvUInt32 Keep = 3;
constexpr KvUInt32 Release = 4;

/** A board that grants locks. */
class Lock : public ::testing::Test
{
protected:
    Lock()
    {
        board = &scripted.add(41);
        board->answerDeviceAccess(Request, grant(0, 0xACCE55));
        board->answerDeviceAccess(Keep, Record().number(0).opaque({}));
        board->answerDeviceAccess(Release, Record().number(0).opaque({}));
        board->answer(6, Record().number(0).opaque({}));
        scripted.start();
        const KvDALSDeviceInfo info = deviceInfo(board->address, 41);
        EXPECT_EQ(0, manager.createRootHandleByDeviceInfoList(errors, &info, 1, root));
    }
    ~Lock() override { manager.deleteRootHandle(errors, root); }

    static Bytes grant(KvUInt32 status, KvUInt32 accessId)
    {
        return Record().number(status).number(accessId).number(20).text("someone@elsewhere (kvinv)").opaque({});
    }

    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    KvCErrorListPool errors;
    ScriptedBoards scripted;
    ScriptedBoards::Board* board;
    KvCInventoryRootHandle* root = nullptr;
    void* lock = nullptr;
    const KvCInventoryAddress address = KvNInventoryIDs::HCN[41] / KvNInventoryIDs::CPU;
};

TEST_F(Lock, isTakenUsedAndGivenBack)
{
    ASSERT_EQ(0, manager.lock(errors, root, address, 2, lock));
    ASSERT_NE(nullptr, lock);
    EXPECT_EQ(0, manager.apply(errors, root, address, lock));
    const auto applied = board->calls();
    ASSERT_EQ(1u, applied.size());
    EXPECT_EQ(hex("00000002 00000004 0000017C 00000029 00000002 00000001 00ACCE55"), applied[0].arguments);
    EXPECT_EQ(0, manager.unlock(errors, lock));
    EXPECT_EQ(Codes(), codesOf(errors));

    const auto access = board->calls(ScriptedBoards::DeviceAccessProgram);
    ASSERT_LE(2u, access.size());
    EXPECT_EQ(Request, access.front().procedure);
    EXPECT_EQ(hex("00000002 00000000"), Bytes(access.front().arguments.begin(), access.front().arguments.begin() + 8));
    EXPECT_EQ(Release, access.back().procedure);
    EXPECT_EQ(hex("00ACCE55"), access.back().arguments);
}

TEST_F(Lock, givenBackTwiceIsReported)
{
    ASSERT_EQ(0, manager.lock(errors, root, address, 1, lock));
    EXPECT_EQ(0, manager.unlock(errors, lock));
    EXPECT_EQ(Codes(), codesOf(errors));
    EXPECT_EQ(-1, manager.unlock(errors, lock));
    ASSERT_LE(1u, errors.getErrorCount());
    EXPECT_EQ(0x1600821u, errors.getErrorCode(errors.getErrorCount() - 1));
    EXPECT_EQ(
        "Communication error. Cannot withdraw the access restriction. Perhaps the board has been disconnected or is "
        "still locked by another tool or user.",
        lastText(errors));
    EXPECT_STREQ("KvCInventoryManager::unlock", errors.getErrorOrigin(errors.getErrorCount() - 1));
    errors.clear();
    EXPECT_EQ(-1, manager.unlock(errors, nullptr));
    EXPECT_EQ(0x1600821u, errors.getErrorCode(errors.getErrorCount() - 1));
}

TEST_F(Lock, thatTheBoardHasWithdrawnCannotBeGivenBackOrUsed)
{
    ASSERT_EQ(0, manager.lock(errors, root, address, 2, lock));
    board->answerDeviceAccess(Release, Record().number(2).opaque({}));
    EXPECT_EQ(-1, manager.unlock(errors, lock));
    EXPECT_EQ(0x1600821u, errors.getErrorCode(errors.getErrorCount() - 1));
    errors.clear();
    // The handle is gone all the same.
    EXPECT_EQ(-1, manager.deleteRemoteFile(errors, root, address, lock, {"d", "f"}));
    EXPECT_EQ(0x1600822u, errors.getErrorCode(errors.getErrorCount() - 1));
    EXPECT_TRUE(board->calls().empty());
}

TEST_F(Lock, thatAnotherHoldsNamesLevelAndAddress)
{
    board->answerDeviceAccess(Request, grant(1, 0));
    EXPECT_EQ(-1, manager.lock(errors, root, address, 2, lock));
    EXPECT_EQ(nullptr, lock);
    ASSERT_LE(2u, errors.getErrorCount());
    EXPECT_EQ(0x160081Fu, errors.getErrorCode(errors.getErrorCount() - 1));
    EXPECT_EQ(
        "Access denied. The operation cannot be completed. Another tool or user might have locked the board. Korvel "
        "Support information: Cannot obtain access restriction level 2 for HCN[41]/CPU.",
        lastText(errors));
}

TEST_F(Lock, ofALevelThatIsNoneIsRefused)
{
    EXPECT_EQ(-1, manager.lock(errors, root, address, -3, lock));
    EXPECT_EQ(0x160081Fu, errors.getErrorCode(errors.getErrorCount() - 1));
    EXPECT_EQ(
        "Access denied. The operation cannot be completed. Another tool or user might have locked the board. Korvel "
        "Support information: Cannot obtain access restriction level -3 for HCN[41]/CPU.",
        lastText(errors));
    EXPECT_TRUE(board->calls(ScriptedBoards::DeviceAccessProgram).empty());
}

TEST_F(Lock, withoutMemoryIsReported)
{
    {
        const FailingAllocation failing(1);
        EXPECT_EQ(-1, manager.lock(errors, root, address, 2, lock));
    }
    EXPECT_EQ(nullptr, lock);
    EXPECT_EQ(0x160081Eu, errors.getErrorCode(errors.getErrorCount() - 1));
    EXPECT_EQ(
        "Access denied. The operation cannot be completed. Another tool or user might have locked the board. Korvel "
        "Support information: Cannot create access restriction handle for HCN[41]/CPU.",
        lastText(errors));
}

TEST_F(Lock, ofAnUnknownBoardOrWithoutARootHandleIsRefused)
{
    EXPECT_EQ(-1, manager.lock(errors, root, KvNInventoryIDs::HCN[42], 2, lock));
    EXPECT_EQ((Codes{0x1600001, 0x1600809, 0x1600805}), codesOf(errors));
    EXPECT_STREQ("KvCInventoryManager::lock", errors.getErrorOrigin(2));
    errors.clear();
    EXPECT_EQ(-1, manager.lock(errors, nullptr, address, 2, lock));
    EXPECT_EQ(Codes{0x1600802}, codesOf(errors));
    EXPECT_EQ(nullptr, lock);
}

}  // namespace
