#include <cstdio>
#include <string>

#include "EachAllocation.h"
#include "ManagerTest.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/ScriptedBoards.h"

/* A whole update of a board behind real sockets, from the lock to the unlock. */

namespace {

using KvNInventoryManager::EUpdateStatus;
using KvNInventoryManager::FirmwareType;

enum DeviceAccess : KvUInt32
{
    Identify = 1,
    RequestAccess = 2,
    KeepAccess = 3,
    ReleaseAccess = 4,
    PutBegin = 5,
    PutData = 6,
    PutEnd = 7,
    PutAbort = 8,
    Delete = 9
};

const Bytes done = Record().number(0).opaque({});
const Bytes refused = Record().number(1).opaque({});

class WholeUpdate : public ::testing::Test
{
protected:
    WholeUpdate() : path(::testing::TempDir() + "whole-update.bin")
    {
        std::FILE* image = std::fopen(path.c_str(), "wb");
        EXPECT_EQ(5u, std::fwrite("image", 1, 5, image));
        std::fclose(image);
        board = &scripted.add(51);
        board->answerDeviceAccess(RequestAccess, Record().number(0).number(0xACCE55).number(20).text("").opaque({}));
        board->answerDeviceAccess(PutBegin, Record().number(0).number(3).opaque({}));
        board->answerDeviceAccess(PutData, Record().number(0).number(0).number(5).opaque({}));
        for (const KvUInt32 procedure : {KeepAccess, ReleaseAccess, PutEnd, PutAbort, Delete})
            board->answerDeviceAccess(procedure, done);
        board->answer(10, Record().number(0).characters("updates").characters("kv-1").opaque({}));
        board->answer(11, Record().number(0).number(1).opaque({}));
        board->answer(8, Record().number(0).number(2).number(0).number(100).number(4).opaque({}));
        board->answer(15, Record().number(0).opaque({}).opaque({}));
        for (const KvUInt32 procedure : {7u, 9u, 12u, 13u})
            board->answer(procedure, done);
        scripted.start();
        const KvDALSDeviceInfo info = deviceInfo(board->address, 51);
        EXPECT_EQ(0, manager.createRootHandleByDeviceInfoList(errors, &info, 1, root));
    }
    ~WholeUpdate() override
    {
        KvCErrorListPool ignored;
        manager.deleteRootHandle(ignored, root);
        std::remove(path.c_str());
    }

    /** Calls of a program, without those that change nothing and come when they come. */
    std::vector<KvUInt32> called(KvUInt32 program = ScriptedBoards::InventoryProgram) const
    {
        std::vector<KvUInt32> procedures;
        for (const ScriptedBoards::Call& call : board->calls(program))
            if (program == ScriptedBoards::InventoryProgram ||
                (call.procedure != KeepAccess && call.procedure != Identify))
                procedures.push_back(call.procedure);
        return procedures;
    }
    std::vector<KvUInt32> accessed() const { return called(ScriptedBoards::DeviceAccessProgram); }

    long transfer()
    {
        return manager.transferFile(
            errors, root, address, lock, std::wstring(path.begin(), path.end()).c_str(),
            [](unsigned int value, void* told) { static_cast<std::vector<unsigned int>*>(told)->push_back(value); },
            &progress, file);
    }

    KvUInt32 lastCode() const { return errors.getErrorCode(errors.getErrorCount() - 1); }

    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    KvCErrorListPool errors;
    CapturedOutput output;
    ScriptedBoards scripted;
    const std::string path;
    ScriptedBoards::Board* board;
    KvCInventoryRootHandle* root = nullptr;
    void* lock = nullptr;
    const KvCInventoryAddress address = KvNInventoryIDs::HCN[51] / KvNInventoryIDs::FIRMWARE;
    KvNInventoryManager::KvSRemoteFileHandle file{"d", "f"};
    std::vector<unsigned int> progress;
};

TEST_F(WholeUpdate, runsFromTheLockToTheUnlock)
{
    EUpdateStatus state = KvNInventoryManager::Unknown;
    FirmwareType type = KvNInventoryManager::Invalid;
    KvUInt32 percent = 0;
    KvUInt32 step = 0;
    ASSERT_EQ(0, manager.lock(errors, root, address, 2, lock));
    ASSERT_EQ(0, transfer());
    EXPECT_STREQ("updates", file.directory.c_str());
    EXPECT_STREQ("kv-1", file.fileName.c_str());
    EXPECT_EQ(std::vector<unsigned int>{1000}, progress);
    ASSERT_EQ(0, manager.update(errors, root, address, lock, file, KvNInventoryManager::UserFirmware, 5));
    ASSERT_EQ(0, manager.updateStatus(errors, root, address, state, type, percent, step));
    EXPECT_EQ(KvNInventoryManager::Finished, state);
    EXPECT_EQ(KvNInventoryManager::UserFirmware, type);
    EXPECT_EQ(100u, percent);
    EXPECT_EQ(4u, step);
    ASSERT_EQ(0, manager.updateErrors(errors, root, address, lock));
    ASSERT_EQ(0, manager.updateFinish(errors, root, address, lock));
    ASSERT_EQ(0, manager.deleteRemoteFile(errors, root, address, lock, file));
    ASSERT_EQ(0, manager.unlock(errors, lock));
    EXPECT_EQ(Codes(), codesOf(errors));
    EXPECT_EQ((std::vector<KvUInt32>{10, 7, 8, 9, 12, 11}), called());
    EXPECT_EQ((std::vector<KvUInt32>{RequestAccess, PutBegin, PutData, PutEnd, Delete, ReleaseAccess}), accessed());
    const Bytes inventory = hex("00000002 00000004 0000017C 00000033");
    for (const ScriptedBoards::Call& call : board->calls())
        EXPECT_EQ(inventory, Bytes(call.arguments.begin(), call.arguments.begin() + 16));
}

TEST_F(WholeUpdate, withoutALockContactsNoBoard)
{
    EXPECT_EQ(-1, manager.deleteRemoteFile(errors, root, address, nullptr, file));
    EXPECT_EQ(0x1600822u, lastCode());
    EXPECT_EQ(-1, transfer());
    EXPECT_EQ(0x1600822u, lastCode());
    ASSERT_EQ(0, manager.lock(errors, root, address, 2, lock));
    ASSERT_EQ(0, manager.unlock(errors, lock));
    EXPECT_EQ(-1, manager.deleteRemoteFile(errors, root, address, lock, file)) << "a lock that was given back";
    EXPECT_EQ(0x1600822u, lastCode());
    EXPECT_TRUE(called().empty());
    EXPECT_EQ((std::vector<KvUInt32>{RequestAccess, ReleaseAccess}), accessed());
}

TEST_F(WholeUpdate, ofWhichTheBoardRefusesTheFileCanBeGivenUp)
{
    ASSERT_EQ(0, manager.lock(errors, root, address, 2, lock));
    for (const KvUInt32 procedure : {PutBegin, PutEnd}) {
        board->answerDeviceAccess(procedure, procedure == PutBegin ? Record().number(9).number(0).opaque({}) : refused);
        EXPECT_EQ(-1, transfer());
        EXPECT_EQ(0x1600827u, lastCode());
        EXPECT_STREQ("f", file.fileName.c_str());
        errors.clear();
        board->answerDeviceAccess(PutBegin, Record().number(0).number(3).opaque({}));
    }
    board->answerDeviceAccess(Delete, Record().number(5).opaque({}));
    EXPECT_EQ(-1, manager.deleteRemoteFile(errors, root, address, lock, file));
    EXPECT_EQ(0x1600815u, lastCode());
    EXPECT_EQ("Communication error. Cannot remove file d/f on target HCN (serial number: 51, IP address: " +
                  ScriptedBoards::quad(board->address) + ").",
              lastText(errors));
    errors.clear();
    EXPECT_EQ(0, manager.unlock(errors, lock));
    EXPECT_EQ(
        (std::vector<KvUInt32>{RequestAccess, PutBegin, PutBegin, PutData, PutEnd, PutAbort, Delete, ReleaseAccess}),
        accessed());
}

TEST_F(WholeUpdate, ofWhichTheNameCannotBeUsedPutsNothing)
{
    ASSERT_EQ(0, manager.lock(errors, root, address, 2, lock));
    const std::pair<std::string, std::string> names[] = {
        {"updates", ""}, {"", std::string("\0kv", 3)}, {std::string(254, 'd'), "f"}, {"", std::string(304, 'f')}};
    for (const auto& [directory, fileName] : names) {
        board->answer(10, Record().number(0).characters(directory).characters(fileName).opaque({}));
        EXPECT_EQ(-1, transfer());
        EXPECT_EQ(0x1600827u, lastCode());
        EXPECT_STREQ("f", file.fileName.c_str());
    }
    errors.clear();
    EXPECT_EQ(0, manager.unlock(errors, lock));
    EXPECT_EQ((std::vector<KvUInt32>{RequestAccess, ReleaseAccess}), accessed());
}

TEST_F(WholeUpdate, ofAFileThatIsNotThereLeavesTheBoardAlone)
{
    ASSERT_EQ(0, manager.lock(errors, root, address, 2, lock));
    std::remove(path.c_str());
    EXPECT_EQ(-1, transfer());
    EXPECT_EQ(0x1600827u, lastCode());
    EXPECT_EQ(-1, manager.transferFile(errors, root, address, lock, nullptr, nullptr, nullptr, file));
    EXPECT_EQ(0x1600827u, lastCode());
    errors.clear();
    EXPECT_EQ(0, manager.unlock(errors, lock));
    EXPECT_EQ((std::vector<KvUInt32>{RequestAccess, ReleaseAccess}), accessed());
}

TEST_F(WholeUpdate, withoutMemoryIsReportedStepByStep)
{
    ASSERT_EQ(0, manager.lock(errors, root, address, 2, lock));
    std::set<KvUInt32> seen;
    const std::wstring local(path.begin(), path.end());
    eachAllocationFails(
        [&](KvCErrorListPool& list) {
            KvNInventoryManager::KvSRemoteFileHandle put{"d", "f"};
            const long result = manager.transferFile(list, root, address, lock, local.c_str(), nullptr, nullptr, put);
            EXPECT_STREQ(result == 0 ? "kv-1" : "f", put.fileName.c_str());
            return result;
        },
        seen);
    eachAllocationFails(
        [&](KvCErrorListPool& list) { return manager.deleteRemoteFile(list, root, address, lock, file); }, seen);
    for (const KvUInt32 code : {0x1600804u, 0x1600812u, 0x1600827u})
        EXPECT_EQ(1u, seen.count(code)) << std::hex << code;
    EXPECT_EQ(0, manager.unlock(errors, lock));
    EXPECT_EQ(Codes(), codesOf(errors));
}

}  // namespace
