#include <functional>

#include "EachAllocation.h"
#include "RecordedAccess.h"

/* The operations of an update over a root handle: what each asks for, in which order, and what it makes of every
   failure. */

using KvNInventoryManager::EUpdateStatus;
using KvNInventoryManager::FirmwareType;

namespace {

class UpdateOfABoard : public RecordedAccess
{
protected:
    struct Operation
    {
        const char* name;
        KvUInt32 procedure;
        bool locked;
        /** What the result has between its status and its error list. */
        Bytes fields;
        KvUInt32 refusal;
        const char* refusalText;
        std::function<long(KvCErrorListPool&, KvCInventoryRootHandle*, const KvCInventoryAddress&)> run;
    };

    std::vector<Operation> operations()
    {
        const char* updateText = "Update error. Could not update firmware or FPGA for node HCN[100]/CPU[2].";
        const char* statusText =
            "Communication error. Cannot obtain the status of the update operation for board HCN[100]/CPU[2]. The "
            "board may have stalled during the update.";
        const char* resultsText =
            "Communication error. Cannot obtain results of the update operation for board HCN[100]/CPU[2]. The board "
            "may have stalled during the update.";
        const char* finishText =
            "Communication error. Cannot close update state for board HCN[100]/CPU[2]. The board may have stalled "
            "during the update.";
        const Bytes words = Record().number(1).number(2).number(50).number(3);
        return {
            {"update",
             7,
             true,
             {},
             0x160080F,
             updateText,
             [this](auto& list, auto* boards, const auto& where) {
                 return manager.update(list, boards, where, lockHandle, file, KvNInventoryManager::UserFpga, size);
             }},
            {"update2",
             13,
             true,
             {},
             0x160080F,
             updateText,
             [this](auto& list, auto* boards, const auto& where) {
                 return manager.update2(list, boards, where, lockHandle, 5, file, size);
             }},
            {"updateStatus", 8, false, words, 0x1600810, statusText,
             [this](auto& list, auto* boards, const auto& where) {
                 return manager.updateStatus(list, boards, where, state, type, values[0], values[1]);
             }},
            {"updateStatus2", 14, false, words, 0x1600810, statusText,
             [this](auto& list, auto* boards, const auto& where) {
                 return manager.updateStatus2(list, boards, where, values[0], values[1], values[2], values[3]);
             }},
            {"updateErrors",
             9,
             true,
             {},
             0x1600811,
             resultsText,
             [this](auto& list, auto* boards, const auto& where) {
                 return manager.updateErrors(list, boards, where, lockHandle);
             }},
            {"updateErrors2", 15, true, Record().opaque({}), 0x1600811, resultsText,
             [this](auto& list, auto* boards, const auto& where) {
                 return manager.updateErrors2(list, boards, where, lockHandle, 6, updateErrors);
             }},
            {"updateFinish",
             12,
             true,
             {},
             0x1600826,
             finishText,
             [this](auto& list, auto* boards, const auto& where) {
                 return manager.updateFinish(list, boards, where, lockHandle);
             }},
        };
    }

    static Bytes result(KvUInt32 status, const Bytes& fields, const Bytes& errorList = {})
    {
        return Bytes(Record().number(status)) + fields + Record().opaque(errorList);
    }

    long run(const Operation& operation) { return operation.run(errors, root, address); }

    void expectOutputsUnchanged(const char* name)
    {
        EXPECT_EQ(KvNInventoryManager::Unknown, state) << name;
        EXPECT_EQ(KvNInventoryManager::IoFpga3, type) << name;
        EXPECT_EQ((std::vector<KvUInt32>{101, 102, 103, 104}), std::vector<KvUInt32>(values, values + 4)) << name;
        EXPECT_EQ(Chain(), chainOf(updateErrors)) << name;
    }

    KvNInventoryManager::KvSRemoteFileHandle file{"updates", "a.bin"};
    const KvUInt64 size = 0x100000002;
    EUpdateStatus state = KvNInventoryManager::Unknown;
    FirmwareType type = KvNInventoryManager::IoFpga3;
    KvUInt32 values[4] = {101, 102, 103, 104};
    KvCErrorListPool updateErrors;
};

TEST_F(UpdateOfABoard, asksForTheAccessIdThenForTheClientThenTheBoard)
{
    for (const Operation& operation : operations()) {
        client->answer(operation.procedure, result(0, operation.fields));
        EXPECT_EQ(0, run(operation)) << operation.name;
        EXPECT_EQ(Chain(), reported()) << operation.name;
        Calls expected = {"getRPCClientReference 8", "call " + std::to_string(operation.procedure), "freeResults"};
        if (operation.locked)
            expected.insert(expected.begin(), "getParam 12 0 4");
        EXPECT_EQ(expected, called()) << operation.name;
    }
}

TEST_F(UpdateOfABoard, sendsWhatItWasGiven)
{
    const Bytes fileName = Record().text("updates/a.bin");
    const Bytes expected[] = {hex("00ACCE55") + fileName + hex("00000002 00000001 00000002"),
                              hex("00ACCE55 00000005") + fileName + hex("00000001 00000002"),
                              {},
                              hex("00000065"),
                              hex("00ACCE55"),
                              hex("00ACCE55 00000006"),
                              hex("00ACCE55")};
    std::size_t i = 0;
    for (const Operation& operation : operations()) {
        values[0] = 101;
        client->answer(operation.procedure, result(0, operation.fields));
        EXPECT_EQ(0, run(operation));
        EXPECT_EQ(hex(OnWire) + expected[i++], client->calls().back().arguments) << operation.name;
    }
}

TEST_F(UpdateOfABoard, givesStatusTypeAndValues)
{
    client->answer(8, result(0, Record().number(1).number(2).number(50).number(3)));
    EXPECT_EQ(0, manager.updateStatus(errors, root, address, state, type, values[0], values[1]));
    EXPECT_EQ(KvNInventoryManager::Running, state);
    EXPECT_EQ(KvNInventoryManager::UserFpga, type);
    EXPECT_EQ(50u, values[0]);
    EXPECT_EQ(3u, values[1]);

    client->answer(14, result(0, Record().number(11).number(12).number(13).number(14)));
    EXPECT_EQ(0, manager.updateStatus2(errors, root, address, values[0], values[1], values[2], values[3]));
    EXPECT_EQ((std::vector<KvUInt32>{11, 12, 13, 14}), std::vector<KvUInt32>(values, values + 4));
}

TEST_F(UpdateOfABoard, passesOnStatusValuesOutOfRange)
{
    client->answer(8, result(0, Record().number(0x80000000).number(99).number(0xFFFFFFFF).number(101)));
    state = KvNInventoryManager::Idle;
    EXPECT_EQ(0, manager.updateStatus(errors, root, address, state, type, values[0], values[1]));
    EXPECT_EQ(KvNInventoryManager::Unknown, state);
    EXPECT_EQ(KvNInventoryManager::Invalid, type);
    EXPECT_EQ(0xFFFFFFFFu, values[0]);
    EXPECT_EQ(101u, values[1]);
    // Progress that goes backwards is the board's.
    for (const KvUInt32 percent : {70u, 30u}) {
        client->answer(8, result(0, Record().number(1).number(0).number(percent).number(0)));
        EXPECT_EQ(0, manager.updateStatus(errors, root, address, state, type, values[0], values[1]));
        EXPECT_EQ(percent, values[0]);
    }
}

TEST_F(UpdateOfABoard, withoutARootHandleOrItsBoardAsksNobody)
{
    for (const Operation& operation : operations()) {
        EXPECT_EQ(-1, operation.run(errors, nullptr, address));
        EXPECT_EQ(
            Chain{entry(0x1600802, operation.name, "Internal error. Korvel Support information: Invalid root handle.")},
            reported());
        EXPECT_EQ(-1, operation.run(errors, root, KvNInventoryIDs::HCN[42] / KvNInventoryIDs::CPU[2]));
        EXPECT_EQ((Chain{entry(0x1600001),
                         entry(0x1600809, "getHcnHandle",
                               "Communication error. Cannot obtain communication handle for node HCN[42]."),
                         entry(0x1600805, operation.name,
                               "Requested Korvel hardware is not connected. Korvel Support information: Cannot find "
                               "board with address HCN[42]/CPU[2].")}),
                  reported());
        EXPECT_EQ(-1, operation.run(errors, root, KvNInventoryIDs::CPU[2]));
        EXPECT_EQ((Chain{entry(0x1600807, "getHcnHandle",
                               "Internal error. Korvel Support information: Invalid node identifier CPU[2]."),
                         entry(0x1600805, operation.name,
                               "Requested Korvel hardware is not connected. Korvel Support information: Cannot find "
                               "board with address CPU[2].")}),
                  reported());
        EXPECT_EQ(Calls(), called()) << operation.name;
        expectOutputsUnchanged(operation.name);
    }
}

TEST_F(UpdateOfABoard, withoutAGoodLockFailsBeforeTheBoardIsContacted)
{
    fake.failures["getParam 12"] = 9;
    for (const Operation& operation : operations()) {
        client->answer(operation.procedure, result(0, operation.fields));
        EXPECT_EQ(operation.locked ? -1 : 0, run(operation)) << operation.name;
        if (!operation.locked) {
            called();
            continue;
        }
        EXPECT_EQ((Chain{entry(FakeDeviceAccess::Reported),
                         entry(0x1600822, operation.name,
                               "Internal error. Korvel Support information: Cannot get access ID of lock handle used "
                               "for HCN[100]/CPU[2].")}),
                  reported());
        EXPECT_EQ(Calls{"getParam 12 0 4"}, called()) << operation.name;
    }
}

TEST_F(UpdateOfABoard, withoutAClientSaysNothingOfItsOwn)
{
    fake.failures["getRPCClientReference"] = 9;
    for (const Operation& operation : operations()) {
        EXPECT_EQ(-1, run(operation)) << operation.name;
        EXPECT_EQ(Chain{entry(FakeDeviceAccess::Reported)}, reported());
        EXPECT_EQ("getRPCClientReference 8", called().back());
        expectOutputsUnchanged(operation.name);
    }
    fake.failures.clear();
    KvCRpcClient another(errors, "127.0.0.1");
    fake.client = &another;
    for (const Operation& operation : operations()) {
        EXPECT_EQ(-1, run(operation)) << "the client of another interface";
        EXPECT_EQ(Chain(), reported());
        expectOutputsUnchanged(operation.name);
    }
}

TEST_F(UpdateOfABoard, withoutAnAnswerNamesTheProcedureAndGivesTheResultBack)
{
    for (const Operation& operation : operations()) {
        // What had been decoded when the call failed is given back too.
        client->fail(operation.procedure, 2, result(0, operation.fields, errorBlock(0x1600807)));
        EXPECT_EQ(-1, run(operation)) << operation.name;
        EXPECT_EQ(
            (Chain{entry(RecordingClient::CallFailed),
                   entry(0x1600804, operation.name,
                         std::string("Communication error. Cannot call remote procedure ") + operation.name + "().")}),
            reported());
        EXPECT_EQ("freeResults", called().back()) << operation.name;
        expectOutputsUnchanged(operation.name);
    }
}

TEST_F(UpdateOfABoard, thatTheBoardRefusesIsReportedBehindWhatTheBoardSays)
{
    for (const Operation& operation : operations()) {
        client->answer(operation.procedure, result(1, operation.fields, errorBlock(0x1600807)));
        EXPECT_EQ(-1, run(operation)) << operation.name;
        EXPECT_EQ((Chain{entry(0x1600807), entry(operation.refusal, operation.name, operation.refusalText)}),
                  reported());
        EXPECT_EQ("freeResults", called().back());
        client->answer(operation.procedure, result(0xFFFFFFFF, operation.fields));
        EXPECT_EQ(-1, run(operation)) << operation.name;
        EXPECT_EQ(Chain{entry(operation.refusal, operation.name, operation.refusalText)}, reported());
        expectOutputsUnchanged(operation.name);
    }
}

TEST_F(UpdateOfABoard, withErrorsFromTheBoardFailsEvenWithStatus0)
{
    for (const Operation& operation : operations()) {
        client->answer(operation.procedure, result(0, operation.fields, errorBlock(0x1600807)));
        EXPECT_EQ(-1, run(operation)) << operation.name;
        EXPECT_EQ(Chain{entry(0x1600807)}, reported());
        expectOutputsUnchanged(operation.name);
    }
}

TEST_F(UpdateOfABoard, namesTheFileByItsDirectoryAndName)
{
    const auto sent = [this](const char* directory, const std::string& fileName) {
        file = {directory, fileName.c_str()};
        client->answer(13, result(0, {}));
        EXPECT_EQ(0, manager.update2(errors, root, address, lockHandle, 0, file, 0));
        EXPECT_EQ(0, std::strcmp(directory, file.directory.c_str())) << "the name stays the caller's";
        const Bytes& bytes = client->calls().back().arguments;
        const std::size_t at = hex(OnWire).size() + 8;
        return std::string(bytes.begin() + static_cast<long>(at) + 4,
                           bytes.begin() + static_cast<long>(at) + 4 + bytes[at + 3] + 256 * bytes[at + 2]);
    };
    EXPECT_EQ("updates/a.bin", sent("updates", "a.bin"));
    EXPECT_EQ("a.bin", sent("", "a.bin"));
    EXPECT_EQ("/a.bin", sent("", "/a.bin"));
    EXPECT_EQ("u/v/", sent("u/v", ""));
    EXPECT_EQ("", sent("", ""));
    EXPECT_EQ("d/" + std::string(509, 'x'), sent("d", std::string(600, 'x')));
}

TEST_F(UpdateOfABoard, cutsAPathThatItCannotCarry)
{
    client->answer(7, result(0, {}));
    file = {"d", std::string(302, 'x').c_str()};
    EXPECT_EQ(0, manager.update(errors, root, address, lockHandle, file, KvNInventoryManager::UserFirmware, 0));
    EXPECT_EQ(
        hex(OnWire) + hex("00ACCE55") + Record().text("d/" + std::string(301, 'x')) + hex("00000000 00000000 00000000"),
        client->calls().back().arguments);
    EXPECT_EQ(0, manager.update(errors, root, address, lockHandle, {"", "a"}, KvNInventoryManager::UserFirmware,
                                0xFFFFFFFFFFFFFFFF));
    EXPECT_EQ(hex(OnWire) + hex("00ACCE55") + Record().text("a") + hex("00000000 FFFFFFFF FFFFFFFF"),
              client->calls().back().arguments);
}

TEST_F(UpdateOfABoard, putsItsErrorsWhereTheyWereAskedFor)
{
    client->answer(9, result(0, {}, errorBlock(0x160080F)));
    EXPECT_EQ(-1, manager.updateErrors(errors, root, address, lockHandle));
    EXPECT_EQ(Chain{entry(0x160080F)}, reported());

    client->answer(15, result(0, Record().opaque(errorBlock(0x160080F))));
    EXPECT_EQ(0, manager.updateErrors2(errors, root, address, lockHandle, 6, updateErrors));
    EXPECT_EQ(Chain{entry(0x160080F)}, chainOf(updateErrors));
    EXPECT_EQ(Chain(), reported());
    // They stand in their list also when the board refuses what else it was to say.
    client->answer(15, result(1, Record().opaque(errorBlock(0x1600826))));
    EXPECT_EQ(-1, manager.updateErrors2(errors, root, address, lockHandle, 6, updateErrors));
    EXPECT_EQ((Chain{entry(0x160080F), entry(0x1600826)}), chainOf(updateErrors));
    EXPECT_EQ(1u, reported().size());
    // Asked for in the caller's own list they are its failure.
    client->answer(15, result(0, Record().opaque(errorBlock(0x160080F))));
    EXPECT_EQ(-1, manager.updateErrors2(errors, root, address, lockHandle, 6, errors));
    EXPECT_EQ(Chain{entry(0x160080F)}, reported());
}

TEST_F(UpdateOfABoard, withoutMemoryFailsOrSendsTheWholeName)
{
    file = {"a directory of some length", "a file name of some length"};
    const KvCInventoryAddress deep = address / address / address;  // longer than an address holds in itself
    std::set<KvUInt32> seen;
    for (const Operation& operation : operations()) {
        client->answer(operation.procedure, result(0, operation.fields));
        values[0] = 101;
        EXPECT_EQ(0, operation.run(errors, root, deep)) << operation.name;
        const Bytes whole = client->calls().back().arguments;
        std::size_t calls = client->calls().size();
        eachAllocationFails(
            [&](KvCErrorListPool& list) {
                values[0] = 101;
                const long outcome = operation.run(list, root, deep);
                const bool sent = client->calls().size() != std::exchange(calls, client->calls().size());
                EXPECT_TRUE(!sent || client->calls().back().arguments == whole) << operation.name;
                return outcome;
            },
            seen);
    }
    EXPECT_EQ(1u, seen.count(0x601002));
    EXPECT_EQ(1u, seen.count(0x1600804));
    EXPECT_EQ(1u, seen.count(0x160081A));
}

}  // namespace
