#include <algorithm>

#include "EachAllocation.h"
#include "RecordedAccess.h"

/* Files on boards: what is asked for, in which order, what is made of every failure, and that no transfer handle is
   left behind. */

using KvNInventoryManager::KvSRemoteFileHandle;

namespace {

constexpr KvUInt32 Reported = FakeDeviceAccess::Reported;
constexpr const char* NoName =
    "Internal error. Korvel Support information: Cannot obtain remote file name from the hardware system.";
constexpr const char* NoTransfer =
    "Communication error. Korvel Support information: Cannot create file transfer handle for target HCN (serial "
    "number: 100, IP address: 10.0.0.1).";
constexpr const char* TransferNotDeleted =
    "Internal error. Korvel Support information: Cannot delete file transfer handle for target HCN (serial number: "
    "100, IP address: 10.0.0.1).";
constexpr const char* NotDownloaded =
    "Communication error. Cannot download file to target. Korvel Support information: Cannot download file to target "
    "HCN (serial number: 100, IP address: 10.0.0.1).";
constexpr const char* NoAccessId =
    "Internal error. Korvel Support information: Cannot get access ID of lock handle used for HCN[100]/CPU[2].";
constexpr const char* NotAllowed =
    "Access denied. The operation cannot be completed. Another tool or user might have locked the board. Korvel "
    "Support information: Access to target HCN[100]/CPU[2] is not allowed.";

const Calls description = {"getParam 4 0 4", "getParam 6 0 4"};

/** The progress that a caller was told, and the context that told it. */
std::vector<unsigned int> told;

void tell(unsigned int value, void* context)
{
    EXPECT_EQ(&told, context);
    told.push_back(value);
}

class FileTransfer : public RecordedAccess
{
protected:
    FileTransfer() { answerNames("updates", "kv-0001.bin"); }

    void answerNames(const std::string& directory, const std::string& fileName, KvUInt32 status = 0,
                     const Bytes& errorList = {})
    {
        client->answer(10, Record().number(status).characters(directory).characters(fileName).opaque(errorList));
    }

    long transfer()
    {
        told.clear();
        return manager.transferFile(errors, root, address, lockHandle, L"images/a.bin", tell, &told, file);
    }

    void expectFails(const Chain& chain, const Calls& calls)
    {
        EXPECT_EQ(-1, transfer());
        EXPECT_EQ(chain, reported());
        EXPECT_EQ(calls, called());
        EXPECT_STREQ("d", file.directory.c_str());
        EXPECT_STREQ("f", file.fileName.c_str());
        EXPECT_EQ(0, fake.openTransfers);
    }

    const Calls named = {"getParam 12 0 4", "getRPCClientReference 8", "call 10", "freeResults"};
    const Calls begun = named + Calls{"createFTClientHandle"};
    const Calls put = begun + Calls{"putFileU 0 3 images/a.bin 'updates' 'kv-0001.bin'"};
    KvSRemoteFileHandle file{"d", "f"};
};

TEST_F(FileTransfer, putsTheFileUnderTheNameThatTheBoardGives)
{
    EXPECT_EQ(0, transfer());
    EXPECT_EQ(Chain(), reported());
    EXPECT_STREQ("updates", file.directory.c_str());
    EXPECT_STREQ("kv-0001.bin", file.fileName.c_str());
    EXPECT_EQ(hex(OnWire) + hex("00ACCE55"), client->calls().back().arguments);
    EXPECT_EQ(put + Calls{"deleteFTClientHandle 3"}, called());
}

TEST_F(FileTransfer, takesANameWithoutADirectory)
{
    answerNames("", "kv-0001.bin");
    EXPECT_EQ(0, transfer());
    EXPECT_STREQ("", file.directory.c_str());
    EXPECT_STREQ("kv-0001.bin", file.fileName.c_str());
    EXPECT_EQ("putFileU 0 3 images/a.bin '' 'kv-0001.bin'", called()[5]);
}

TEST_F(FileTransfer, passesTheProgressThroughUntouched)
{
    fake.progress = {0, 1, 500, 499, 1000, 4294967295u};
    EXPECT_EQ(0, transfer());
    EXPECT_EQ(fake.progress, told);
    EXPECT_EQ(&tell, fake.progressFunction);
    EXPECT_EQ(static_cast<void*>(&told), fake.progressContext);
    // A transfer that fails has told how far it came.
    fake.progress = {0, 400};
    fake.failures["putFileU"] = -9;
    EXPECT_EQ(-1, transfer());
    EXPECT_EQ(fake.progress, told);
    // Nobody need be told.
    fake.progress.clear();
    fake.failures.clear();
    EXPECT_EQ(0, manager.transferFile(errors, root, address, lockHandle, L"a", nullptr, nullptr, file));
    EXPECT_EQ(nullptr, fake.progressFunction);
    EXPECT_EQ(nullptr, fake.progressContext);
}

TEST_F(FileTransfer, withoutARootHandleOrItsBoardAsksNobody)
{
    const auto transferTo = [this](KvCInventoryRootHandle* boards, const KvCInventoryAddress& where) {
        return manager.transferFile(errors, boards, where, lockHandle, L"a", nullptr, nullptr, file);
    };
    EXPECT_EQ(-1, transferTo(nullptr, address));
    EXPECT_EQ(
        Chain{entry(0x1600802, "transferFile", "Internal error. Korvel Support information: Invalid root handle.")},
        reported());
    EXPECT_EQ(-1, transferTo(root, KvNInventoryIDs::HCN[42]));
    EXPECT_EQ((Chain{entry(0x1600001),
                     entry(0x1600809, "getHcnHandle",
                           "Communication error. Cannot obtain communication handle for node HCN[42]."),
                     entry(0x1600805, "transferFile",
                           "Requested Korvel hardware is not connected. Korvel Support information: Cannot find board "
                           "with address HCN[42].")}),
              reported());
    EXPECT_EQ(Calls(), called());
}

TEST_F(FileTransfer, withoutAGoodLockFailsBeforeTheBoardIsContacted)
{
    fake.failures["getParam 12"] = 9;
    expectFails({entry(Reported), entry(0x1600822, "transferFile", NoAccessId)}, {"getParam 12 0 4"});
}

TEST_F(FileTransfer, withoutAClientSaysNothingOfItsOwn)
{
    fake.failures["getRPCClientReference"] = 9;
    expectFails({entry(Reported)}, {"getParam 12 0 4", "getRPCClientReference 8"});
    fake.failures.clear();
    KvCRpcClient another(errors, "127.0.0.1");
    fake.client = &another;
    expectFails({}, {"getParam 12 0 4", "getRPCClientReference 8"});
}

TEST_F(FileTransfer, withoutANameFromTheBoardPutsNothing)
{
    client->fail(10, 2, Record().number(0).characters("updates").characters("kv").opaque(errorBlock(0x1600807)));
    expectFails({entry(RecordingClient::CallFailed),
                 entry(0x1600804, "generateRemoteFilename",
                       "Communication error. Cannot call remote procedure generateRemoteFilename().")},
                named);
    answerNames("updates", "kv-0001.bin", 1, errorBlock(0x1600807));
    expectFails({entry(0x1600807), entry(0x1600823, "generateRemoteFilename", NoName)}, named);
    answerNames("updates", "kv-0001.bin", 0xFFFFFFFF);
    expectFails({entry(0x1600823, "generateRemoteFilename", NoName)}, named);
    answerNames("updates", "kv-0001.bin", 0, errorBlock(0x1600807));
    expectFails({entry(0x1600807)}, named);
}

TEST_F(FileTransfer, takesANameOfAnyLengthUpToItsFirstNul)
{
    using namespace std::string_literals;
    const auto takes = [this](const std::string& directory, const std::string& fileName) {
        answerNames(directory, fileName);
        EXPECT_EQ(0, transfer());
        EXPECT_EQ("putFileU 0 3 images/a.bin '"s + directory.c_str() + "' '" + fileName.c_str() + "'", called()[5]);
        EXPECT_STREQ(directory.c_str(), file.directory.c_str());
        EXPECT_STREQ(fileName.c_str(), file.fileName.c_str());
    };
    takes("updates\0\0"s, "kv.bin\0"s);
    takes("up\0dates"s, "\0kv.bin"s);
    takes("", "");
    takes(std::string(302, 'd'), "f");
    takes(std::string(100000, 'd'), std::string(100000, 'f'));
}

TEST_F(FileTransfer, keepsTheBytesOfAName)
{
    const std::string hostile = "..\\\x1B[2J\n\xFF\x80%s/..";
    answerNames(hostile, hostile);
    EXPECT_EQ(0, transfer());
    EXPECT_EQ(hostile, file.directory.c_str());
    EXPECT_EQ(hostile, file.fileName.c_str());
}

TEST_F(FileTransfer, withoutATransferHandleFails)
{
    fake.failures["createFTClientHandle"] = 9;
    expectFails({entry(Reported), entry(0x1600812, "putFile", NoTransfer)}, begun + description);
}

TEST_F(FileTransfer, thatTheLibraryFailsLeavesNoTransferHandle)
{
    fake.failures["putFileU"] = -9;
    expectFails({entry(Reported), entry(0x1600827, "putFile", NotDownloaded)},
                put + description + Calls{"deleteFTClientHandle 3"});
}

TEST_F(FileTransfer, ofWhichTheHandleCannotBeDeletedFails)
{
    fake.failures["deleteFTClientHandle"] = 9;
    expectFails({entry(Reported), entry(0x1600814, "putFile", TransferNotDeleted)},
                put + Calls{"deleteFTClientHandle 3"} + description);
    fake.failures["putFileU"] = -1;
    expectFails({entry(Reported), entry(0x1600827, "putFile", NotDownloaded), entry(Reported),
                 entry(0x1600814, "putFile", TransferNotDeleted)},
                put + description + Calls{"deleteFTClientHandle 3"} + description);
}

TEST_F(FileTransfer, namesABoardOfWhichNothingCanBeReadAllTheSame)
{
    fake.failures = {{"createFTClientHandle", 9}, {"getParam 4", 9}, {"getParam 6", 9}};
    EXPECT_EQ(-1, transfer());
    EXPECT_EQ((Chain{entry(Reported), entry(0x1600812, "putFile",
                                            "Communication error. Korvel Support information: Cannot create file "
                                            "transfer handle for target HCN (unknown serial number).")}),
              reported());
}

TEST_F(FileTransfer, withoutMemoryFailsOrGivesTheWholeName)
{
    const std::string directory = "a directory of some length";
    const std::string fileName = "a file name of some length";
    answerNames(directory, fileName);
    const KvCInventoryAddress deep = address / address / address;
    std::set<KvUInt32> seen;
    for (const char* failing : {"", "putFileU", "deleteFTClientHandle", "createFTClientHandle"}) {
        fake.failures.clear();
        const auto operation = [&](KvCErrorListPool& list) {
            if (*failing != '\0')
                fake.failures[failing] = -9;
            file = {"d", "f"};
            const long result = manager.transferFile(list, root, deep, lockHandle, L"a", nullptr, nullptr, file);
            EXPECT_STREQ(result == 0 ? directory.c_str() : "d", file.directory.c_str());
            EXPECT_STREQ(result == 0 ? fileName.c_str() : "f", file.fileName.c_str());
            EXPECT_EQ(0, fake.openTransfers);
            return result;
        };
        if (*failing == '\0') {
            eachAllocationFails(operation, seen);
            continue;
        }
        for (std::size_t number = 1; number < 30; ++number)
            for (const bool lasting : {false, true}) {
                KvCErrorListPool list;
                const FailingAllocation failingAllocation(number, lasting);
                EXPECT_EQ(-1, operation(list)) << failing << number;
                EXPECT_NE(0u, list.getErrorCount());
            }
    }
    EXPECT_EQ(1u, seen.count(0x601002)) << "a name without memory";
    EXPECT_EQ(1u, seen.count(0x1600804));
    EXPECT_EQ(1u, seen.count(0x160081A));
    KvCErrorManager::getMasterErrorList().clear();
}

class FileRemoval : public RecordedAccess
{
protected:
    FileRemoval() { answerAllowed(1); }

    void answerAllowed(KvUInt32 allowed, KvUInt32 status = 0, const Bytes& errorList = {})
    {
        client->answer(11, Record().number(status).number(allowed).opaque(errorList));
    }

    void expectFails(const Chain& chain, const Calls& calls)
    {
        EXPECT_EQ(-1, manager.deleteRemoteFile(errors, root, address, lockHandle, file));
        EXPECT_EQ(chain, reported());
        EXPECT_EQ(calls, called());
        EXPECT_EQ(0, fake.openTransfers);
    }

    const Calls checked = {"getParam 12 0 4", "getRPCClientReference 8", "call 11", "freeResults"};
    const Calls begun = checked + Calls{"createFTClientHandle"};
    const Calls deleted = begun + Calls{"deleteFile 0 3 'updates' 'kv-0001.bin'"};
    const KvSRemoteFileHandle file{"updates", "kv-0001.bin"};
    const std::string notRemoved =
        "Communication error. Cannot remove file updates/kv-0001.bin on target HCN (serial "
        "number: 100, IP address: 10.0.0.1).";
};

TEST_F(FileRemoval, asksForTheRightAndDeletes)
{
    EXPECT_EQ(0, manager.deleteRemoteFile(errors, root, address, lockHandle, file));
    EXPECT_EQ(Chain(), reported());
    EXPECT_EQ(hex(OnWire) + hex("00ACCE55 00010003"), client->calls().back().arguments);
    EXPECT_EQ(deleted + Calls{"deleteFTClientHandle 3"}, called());
    EXPECT_EQ(0, manager.deleteRemoteFile(errors, root, address, lockHandle, {"", "a"}));
    EXPECT_EQ("deleteFile 0 3 '' 'a'", called()[5]);
}

TEST_F(FileRemoval, withoutARootHandleOrItsBoardAsksNobody)
{
    EXPECT_EQ(-1, manager.deleteRemoteFile(errors, nullptr, address, lockHandle, file));
    EXPECT_EQ(
        Chain{entry(0x1600802, "deleteRemoteFile", "Internal error. Korvel Support information: Invalid root handle.")},
        reported());
    EXPECT_EQ(-1, manager.deleteRemoteFile(errors, root, KvNInventoryIDs::HCN[42], lockHandle, file));
    EXPECT_EQ((Chain{entry(0x1600001),
                     entry(0x1600809, "getHcnHandle",
                           "Communication error. Cannot obtain communication handle for node HCN[42]."),
                     entry(0x1600805, "deleteRemoteFile",
                           "Requested Korvel hardware is not connected. Korvel Support information: Cannot find board "
                           "with address HCN[42].")}),
              reported());
    EXPECT_EQ(Calls(), called());
}

TEST_F(FileRemoval, withoutAGoodLockFailsBeforeTheBoardIsContacted)
{
    fake.failures["getParam 12"] = 9;
    expectFails({entry(Reported), entry(0x1600822, "deleteRemoteFile", NoAccessId)}, {"getParam 12 0 4"});
}

TEST_F(FileRemoval, withoutAClientSaysNothingOfItsOwn)
{
    fake.failures["getRPCClientReference"] = 9;
    expectFails({entry(Reported)}, {"getParam 12 0 4", "getRPCClientReference 8"});
    fake.failures.clear();
    KvCRpcClient another(errors, "127.0.0.1");
    fake.client = &another;
    expectFails({}, {"getParam 12 0 4", "getRPCClientReference 8"});
}

TEST_F(FileRemoval, withoutAnAnswerToTheQuestionDeletesNothing)
{
    const char* unknown = "Internal error. Korvel Support information: Cannot check authority for hardware access.";
    client->fail(11, 2, Record().number(0).number(1).opaque(errorBlock(0x1600807)));
    expectFails(
        {entry(RecordingClient::CallFailed),
         entry(0x1600804, "checkAuthority", "Communication error. Cannot call remote procedure checkAuthority().")},
        checked);
    answerAllowed(1, 1, errorBlock(0x1600807));
    expectFails({entry(0x1600807), entry(0x1600825, "checkAuthority", unknown)}, checked);
    answerAllowed(1, 7);
    expectFails({entry(0x1600825, "checkAuthority", unknown)}, checked);
    answerAllowed(1, 0, errorBlock(0x1600807));
    expectFails({entry(0x1600807)}, checked);
}

TEST_F(FileRemoval, thatIsNotAllowedDeletesNothing)
{
    answerAllowed(0);
    expectFails({entry(0x1600824, "deleteRemoteFile", NotAllowed)}, checked);
}

TEST_F(FileRemoval, withoutATransferHandleFails)
{
    fake.failures["createFTClientHandle"] = 9;
    expectFails({entry(Reported), entry(0x1600812, "deleteRemoteFile", NoTransfer)}, begun + description);
}

TEST_F(FileRemoval, thatTheBoardRefusesLeavesNoTransferHandle)
{
    fake.failures["deleteFile"] = 9;
    expectFails({entry(Reported), entry(0x1600815, "deleteRemoteFile", notRemoved)},
                deleted + description + Calls{"deleteFTClientHandle 3"});
    fake.failures["deleteFile"] = -9;
    expectFails({entry(Reported), entry(0x1600815, "deleteRemoteFile", notRemoved)},
                deleted + description + Calls{"deleteFTClientHandle 3"});
}

TEST_F(FileRemoval, ofWhichTheHandleCannotBeDeletedFails)
{
    fake.failures["deleteFTClientHandle"] = 9;
    expectFails({entry(Reported), entry(0x1600814, "deleteRemoteFile", TransferNotDeleted)},
                deleted + Calls{"deleteFTClientHandle 3"} + description);
    fake.failures["deleteFile"] = 9;
    expectFails({entry(Reported), entry(0x1600815, "deleteRemoteFile", notRemoved), entry(Reported),
                 entry(0x1600814, "deleteRemoteFile", TransferNotDeleted)},
                deleted + description + Calls{"deleteFTClientHandle 3"} + description);
}

TEST_F(FileRemoval, withoutMemoryFailsOrDeletes)
{
    const KvCInventoryAddress deep = address / address / address;
    std::set<KvUInt32> seen;
    std::size_t runs = 0;
    const auto remove = [&](KvCErrorListPool& list) {
        fake.calls.clear();
        const long result = manager.deleteRemoteFile(list, root, deep, lockHandle, file);
        EXPECT_EQ(result == 0, std::count(fake.calls.begin(), fake.calls.end(), deleted.back()) == 1);
        EXPECT_EQ(0, fake.openTransfers);
        ++runs;
        return result;
    };
    eachAllocationFails(remove, seen);
    EXPECT_EQ(1u, seen.count(0x160081A));
    for (const char* failing : {"deleteFile", "deleteFTClientHandle", "createFTClientHandle"}) {
        fake.failures = {{failing, 9}};
        for (std::size_t number = 1; number <= runs; ++number) {
            KvCErrorListPool list;
            const FailingAllocation failingAllocation(number);
            EXPECT_EQ(-1, manager.deleteRemoteFile(list, root, deep, lockHandle, file)) << failing << number;
            EXPECT_NE(0u, list.getErrorCount());
            EXPECT_EQ(0, fake.openTransfers);
        }
    }
    KvCErrorManager::getMasterErrorList().clear();
}

using Authority = RecordedAccess;

TEST_F(Authority, isWhatTheBoardAnswersAndNoneWhenItFails)
{
    void* device = root->getCnHandleByOrdinalNumber(errors, 0);
    bool allowed = false;
    const auto ask = [&] { return Probe::checkAuthority(errors, device, address, KvUInt32{7}, KvUInt32{9}, allowed); };
    client->answer(11, Record().number(0).number(1).opaque({}));
    EXPECT_EQ(0, ask());
    EXPECT_TRUE(allowed);
    EXPECT_EQ(hex(OnWire) + hex("00000007 00000009"), client->calls().back().arguments);
    client->answer(11, Record().number(1).number(1).opaque({}));
    EXPECT_EQ(-1, ask());
    EXPECT_FALSE(allowed);
    allowed = true;
    client->fail(11, 2);
    EXPECT_EQ(-1, ask());
    EXPECT_FALSE(allowed);
    allowed = true;
    fake.failures["getRPCClientReference"] = 9;
    EXPECT_EQ(-1, ask());
    EXPECT_FALSE(allowed);
    fake.failures.clear();
    client->answer(11, Record().number(0).number(255).opaque({}));
    EXPECT_EQ(0, ask());
    EXPECT_TRUE(allowed);
    client->answer(11, Record().number(0).number(0).opaque({}));
    EXPECT_EQ(0, ask());
    EXPECT_FALSE(allowed);
}

}  // namespace
