#include "ManagerTest.h"

using KvNInventoryManager::EUpdateStatus;
using KvNInventoryManager::FirmwareType;

namespace {

const Bytes done = Record().number(0).opaque({});
const Bytes refused = Record().number(1).opaque(errorBlock(0x1600807));

class Update : public OneBoard
{
protected:
    long start(const char* fileName, FirmwareType type)
    {
        return Probe::update(errors, *board.client, address, KvUInt32{7}, fileName, type, KvUInt64{0x100000002});
    }
    long start2(const char* fileName)
    {
        return Probe::update2(errors, *board.client, address, KvUInt32{7}, KvUInt32{5}, fileName,
                              KvUInt64{0x100000002});
    }

    /** The call fails first without an answer and then by the board's refusal; both are reported as they should. */
    template <class Operation>
    void failures(KvUInt32 procedure, const char* name, const Bytes& refusal, KvUInt32 code, const std::string& text,
                  Operation operation)
    {
        const std::string origin = std::string("KvCInventoryManager::") + name;
        board.client->fail(procedure, 2);
        EXPECT_EQ(-1, operation());
        EXPECT_EQ((Codes{RecordingClient::CallFailed, 0x1600804}), codesOf(errors));
        EXPECT_EQ(std::string("Communication error. Cannot call remote procedure ") + name + "().", lastText(errors));
        EXPECT_EQ(origin, errors.getErrorOrigin(1));
        errors.clear();
        board.client->answer(procedure, refusal);
        EXPECT_EQ(-1, operation());
        EXPECT_EQ((Codes{0x1600807, code}), codesOf(errors));
        EXPECT_EQ(text, lastText(errors));
        EXPECT_EQ(origin, errors.getErrorOrigin(1));
        errors.clear();
    }
};

TEST_F(Update, sendsTheServicesNumberOfTheFirmwareType)
{
    board.client->answer(7, done);
    EXPECT_EQ(0, start("fw/a.bin", KvNInventoryManager::UserFpga));
    EXPECT_EQ(7u, board.client->calls().back().procedure);
    EXPECT_EQ(hex(AddressOnWire) + hex("00000007 00000008 66772F61 2E62696E 00000002 00000001 00000002"), sent());
    const KvUInt32 wire[] = {4, 0, 1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 4, 4};
    for (KvUInt32 type = 0; type < 16; ++type) {
        EXPECT_EQ(0, start("fw/a.bin", static_cast<FirmwareType>(type)));
        EXPECT_EQ(wire[type], sent()[sent().size() - 9]) << type;
    }
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(Update, cutsALongFileName)
{
    board.client->answer(7, done);
    const std::string longName(400, 'x');
    EXPECT_EQ(0, start(longName.c_str(), KvNInventoryManager::UserFirmware));
    EXPECT_EQ(
        hex(AddressOnWire) + hex("00000007") + Record().text(std::string(303, 'x')) + hex("00000000 00000001 00000002"),
        sent());
    EXPECT_EQ(0, start(nullptr, KvNInventoryManager::UserFirmware));
    EXPECT_EQ(hex(AddressOnWire) + hex("00000007 00000000 00000000 00000001 00000002"), sent());
}

TEST_F(Update, reportsItsFailures)
{
    failures(7, "update", refused, 0x160080F,
             "Update error. Could not update firmware or FPGA for node HCN[4711]/CPU[2].",
             [this] { return start("a", KvNInventoryManager::UserFirmware); });
}

TEST_F(Update, ofTheSecondKindSendsItsKindUnchanged)
{
    board.client->answer(13, done);
    EXPECT_EQ(0, start2("fw/a.bin"));
    EXPECT_EQ(13u, board.client->calls().back().procedure);
    EXPECT_EQ(hex(AddressOnWire) + hex("00000007 00000005 00000008 66772F61 2E62696E 00000001 00000002"), sent());
    EXPECT_EQ(0, start2(std::string(600, 'x').c_str()));
    EXPECT_EQ(
        hex(AddressOnWire) + hex("00000007 00000005") + Record().text(std::string(511, 'x')) + hex("00000001 00000002"),
        sent());
    failures(13, "update2", refused, 0x160080F,
             "Update error. Could not update firmware or FPGA for node HCN[4711]/CPU[2].",
             [this] { return start2("a"); });
}

class UpdateStatus : public Update
{
protected:
    long ask() { return Probe::updateStatus(errors, *board.client, address, state, type, value1, value2); }
    static Bytes result(KvUInt32 status, KvUInt32 updateState, KvUInt32 firmwareType)
    {
        return Record().number(status).number(updateState).number(firmwareType).number(50).number(3).opaque({});
    }

    EUpdateStatus state = KvNInventoryManager::Unknown;
    FirmwareType type = KvNInventoryManager::IoFpga3;
    KvUInt32 value1 = 101;
    KvUInt32 value2 = 102;
};

TEST_F(UpdateStatus, givesStateTypeAndTwoValues)
{
    board.client->answer(8, result(0, 1, 2));
    EXPECT_EQ(0, ask());
    EXPECT_EQ(KvNInventoryManager::Running, state);
    EXPECT_EQ(KvNInventoryManager::UserFpga, type);
    EXPECT_EQ(50u, value1);
    EXPECT_EQ(3u, value2);
    EXPECT_EQ(8u, board.client->calls().back().procedure);
    EXPECT_EQ(hex(AddressOnWire), sent());
}

TEST_F(UpdateStatus, knowsTheServicesStates)
{
    const std::pair<KvUInt32, KvUInt32> states[] = {{0, 0}, {1, 1}, {2, 2}, {3, 2}, {4, 3}, {0xFFFFFFFF, 3}};
    for (const auto& [wire, expected] : states) {
        board.client->answer(8, result(0, wire, 0));
        EXPECT_EQ(0, ask());
        EXPECT_EQ(expected, state) << wire;
    }
}

TEST_F(UpdateStatus, knowsTheServicesFirmwareTypes)
{
    const KvUInt32 library[] = {1, 2, 3, 4, 0, 5, 6, 7, 8, 9, 10, 11, 12, 13, 0};
    for (KvUInt32 wire = 0; wire < 15; ++wire) {
        board.client->answer(8, result(0, 1, wire));
        EXPECT_EQ(0, ask());
        EXPECT_EQ(library[wire], type) << wire;
    }
    board.client->answer(8, result(0, 1, 0xFFFFFFFF));
    EXPECT_EQ(0, ask());
    EXPECT_EQ(KvNInventoryManager::Invalid, type);
}

TEST_F(UpdateStatus, thatFailsLeavesTheOutputsAlone)
{
    const Bytes refusal = Record().number(1).number(1).number(1).number(1).number(1).opaque(errorBlock(0x1600807));
    failures(8, "updateStatus", refusal, 0x1600810,
             "Communication error. Cannot obtain the status of the update operation for board HCN[4711]/CPU[2]. The "
             "board may have stalled during the update.",
             [this] { return ask(); });
    EXPECT_EQ(KvNInventoryManager::Unknown, state);
    EXPECT_EQ(KvNInventoryManager::IoFpga3, type);
    EXPECT_EQ(101u, value1);
    EXPECT_EQ(102u, value2);
}

TEST_F(UpdateStatus, ofTheSecondKindSendsItsFirstValueAsTheQuestion)
{
    KvUInt32 values[] = {9, 102, 103, 104};
    const auto ask2 = [&] {
        return Probe::updateStatus2(errors, *board.client, address, values[0], values[1], values[2], values[3]);
    };
    const Bytes refusal = Record().number(1).number(1).number(2).number(3).number(4).opaque(errorBlock(0x1600807));
    failures(14, "updateStatus2", refusal, 0x1600810,
             "Communication error. Cannot obtain the status of the update operation for board HCN[4711]/CPU[2]. The "
             "board may have stalled during the update.",
             ask2);
    EXPECT_EQ(std::vector<KvUInt32>({9, 102, 103, 104}), std::vector<KvUInt32>(values, values + 4));

    board.client->answer(14, Record().number(0).number(1).number(2).number(3).number(4).opaque({}));
    EXPECT_EQ(0, ask2());
    EXPECT_EQ(hex(AddressOnWire) + hex("00000009"), sent());
    EXPECT_EQ(std::vector<KvUInt32>({1, 2, 3, 4}), std::vector<KvUInt32>(values, values + 4));
}

using UpdateErrors = Update;

TEST_F(UpdateErrors, arriveInTheCallersList)
{
    board.client->answer(9, Record().number(0).opaque(errorBlock(0x1600807)));
    EXPECT_EQ(0, Probe::updateErrors(errors, *board.client, address, KvUInt32{7}));
    EXPECT_EQ(hex(AddressOnWire) + hex("00000007"), sent());
    EXPECT_EQ(Codes{0x1600807}, codesOf(errors));
    errors.clear();
    failures(9, "updateErrors", refused, 0x1600811,
             "Communication error. Cannot obtain results of the update operation for board HCN[4711]/CPU[2]. The "
             "board may have stalled during the update.",
             [this] { return Probe::updateErrors(errors, *board.client, address, KvUInt32{7}); });
}

TEST_F(UpdateErrors, ofTheSecondKindArriveInAListOfTheirOwnEvenWhenTheBoardRefuses)
{
    KvCErrorListPool updateErrors;
    const auto ask = [&] {
        return Probe::updateErrors2(errors, *board.client, address, KvUInt32{7}, KvUInt32{2}, updateErrors);
    };
    board.client->answer(15, Record().number(0).opaque(errorBlock(0x160080F)).opaque({}));
    EXPECT_EQ(0, ask());
    EXPECT_EQ(hex(AddressOnWire) + hex("00000007 00000002"), sent());
    EXPECT_EQ(Codes{0x160080F}, codesOf(updateErrors));
    EXPECT_EQ(Codes(), codesOf(errors));

    failures(15, "updateErrors2", Record().number(1).opaque(errorBlock(0x1600826)).opaque(errorBlock(0x1600807)),
             0x1600811,
             "Communication error. Cannot obtain results of the update operation for board HCN[4711]/CPU[2]. The "
             "board may have stalled during the update.",
             ask);
    EXPECT_EQ((Codes{0x160080F, 0x1600826}), codesOf(updateErrors));
}

TEST_F(UpdateErrors, thatAreMalformedAddNothing)
{
    KvCErrorListPool updateErrors;
    board.client->answer(15, Record().number(0).opaque(hex("00000001 00000001")).opaque({}));
    EXPECT_EQ(0, Probe::updateErrors2(errors, *board.client, address, KvUInt32{7}, KvUInt32{2}, updateErrors));
    EXPECT_EQ(Codes(), codesOf(updateErrors));
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(Update, isFinishedWithTheAccessId)
{
    board.client->answer(12, done);
    EXPECT_EQ(0, Probe::updateFinish(errors, *board.client, address, KvUInt32{7}));
    EXPECT_EQ(12u, board.client->calls().back().procedure);
    EXPECT_EQ(hex(AddressOnWire) + hex("00000007"), sent());
    failures(12, "updateFinish", refused, 0x1600826,
             "Communication error. Cannot close update state for board HCN[4711]/CPU[2]. The board may have stalled "
             "during the update.",
             [this] { return Probe::updateFinish(errors, *board.client, address, KvUInt32{7}); });
}

}  // namespace
