#include "ManagerTest.h"

namespace {

class ReadOfAParameter : public OneBoard
{
protected:
    long readClient() { return Probe::readParameter(errors, *board.client, address, parameter); }
    static Bytes result(KvUInt32 status, const Bytes& stream, const Bytes& errorList = {})
    {
        return Record().number(status).opaque(stream).opaque(errorList);
    }

    KvCInventoryParameter parameter{errors, KvNInventoryIDs::NAME, "before", KvUInt32{1}, "", false, 0};
};

TEST_F(ReadOfAParameter, takesOverAllThatTheBoardSends)
{
    board.client->answer(2, result(0, parameterStream(12.5, "V")));
    EXPECT_EQ(0, readClient());
    EXPECT_EQ(158u, parameter.getId());
    EXPECT_STREQ("MIN_VOLTAGE", parameter.getDescription());
    EXPECT_EQ(0x218u, parameter.getType());
    EXPECT_EQ(12.5, parameter.getValue<double>(errors));
    EXPECT_STREQ("V", parameter.getUnit());
    EXPECT_TRUE(parameter.isModifiable());
    EXPECT_EQ(5u, parameter.getRelevance());
    EXPECT_EQ(Codes(), codesOf(errors));
    EXPECT_EQ(2u, board.client->calls().back().procedure);
    EXPECT_EQ(hex(AddressOnWire), sent());
}

TEST_F(ReadOfAParameter, withoutAnAnswerNamesTheProcedure)
{
    board.client->fail(2, 1);
    EXPECT_EQ(-1, readClient());
    EXPECT_EQ((Codes{RecordingClient::CallFailed, 0x1600804}), codesOf(errors));
    EXPECT_EQ("Communication error. Cannot call remote procedure readParameter().", lastText(errors));
}

TEST_F(ReadOfAParameter, thatIsNotSentNamesItsAddressBehindWhatTheBoardSays)
{
    board.client->answer(2, result(1, {}, errorBlock(0x1600807)));
    EXPECT_EQ(-1, readClient());
    EXPECT_EQ((Codes{0x1600807, 0x1600800}), codesOf(errors));
    EXPECT_EQ("Internal error. Korvel Support information: Cannot read parameter HCN[4711]/CPU[2].", lastText(errors));
    EXPECT_EQ(1u, parameter.getValue<KvUInt32>(errors)) << "the caller's parameter stays as it was";
}

TEST_F(ReadOfAParameter, ofWhatIsNoParameterFails)
{
    Bytes cut = parameterStream(12.5, "V");
    cut.pop_back();
    board.client->answer(2, result(0, cut));
    EXPECT_EQ(-1, readClient());
    ASSERT_LE(2u, errors.getErrorCount());
    EXPECT_EQ(0x1600818u, errors.getErrorCode(errors.getErrorCount() - 1));
    EXPECT_EQ(0x1302800u, errors.getErrorCode(errors.getErrorCount() - 2));
    EXPECT_EQ("Internal error. Korvel Support information: Cannot create KvCInventoryItemFactory.", lastText(errors));
}

TEST_F(ReadOfAParameter, ofAStreamThatHoldsNoneFails)
{
    board.client->answer(2, result(0, hex("DEADBEEF")));
    EXPECT_EQ(-1, readClient());
    EXPECT_EQ(Codes{0x160080C}, codesOf(errors));
    EXPECT_EQ("Internal error. Korvel Support information: Cannot deserialize inventory parameter.", lastText(errors));
}

TEST_F(ReadOfAParameter, onItsBoardFindsTheBoardByTheAddress)
{
    board.client->answer(2, result(0, parameterStream(KvCString("a text of more than fifteen characters"), "")));
    EXPECT_EQ(0, manager.readParameter(errors, root, address, parameter));
    EXPECT_STREQ("a text of more than fifteen characters", parameter.getValue<KvCString>(errors).c_str());
    EXPECT_EQ(hex(AddressOnWire), sent());
}

TEST_F(ReadOfAParameter, onItsBoardFailsWhenTheBoardReportsErrorsWithIt)
{
    board.client->answer(2, result(0, parameterStream(12.5, "V"), errorBlock(0x1600801)));
    EXPECT_EQ(-1, manager.readParameter(errors, root, address, parameter));
    EXPECT_EQ(Codes{0x1600801}, codesOf(errors));
}

TEST_F(ReadOfAParameter, onAnUnknownBoardIsRefusedBeforeAnythingIsSent)
{
    EXPECT_EQ(-1, manager.readParameter(errors, root, KvNInventoryIDs::HCN[99] / KvNInventoryIDs::CPU, parameter));
    EXPECT_EQ((Codes{0x1600001, 0x1600809, 0x1600805}), codesOf(errors));
    EXPECT_STREQ("Communication error. Cannot obtain communication handle for node HCN[99].", errors.getErrorText(1));
    EXPECT_EQ(
        "Requested Korvel hardware is not connected. Korvel Support information: Cannot find board with address "
        "HCN[99]/CPU.",
        lastText(errors));
    EXPECT_STREQ("KvCInventoryManager::readParameter", errors.getErrorOrigin(2));
    EXPECT_TRUE(board.client->calls().empty());
}

TEST_F(ReadOfAParameter, atAnAddressThatBeginsElsewhereIsRefused)
{
    EXPECT_EQ(-1, manager.readParameter(errors, root, KvNInventoryIDs::CPU[2], parameter));
    EXPECT_EQ((Codes{0x1600807, 0x1600805}), codesOf(errors));
    EXPECT_STREQ("Internal error. Korvel Support information: Invalid node identifier CPU[2].", errors.getErrorText(0));
    errors.clear();
    EXPECT_EQ(-1, manager.readParameter(errors, root, KvCInventoryAddress(), parameter));
    EXPECT_EQ((Codes{0x1600807, 0x1600805}), codesOf(errors));
}

TEST_F(ReadOfAParameter, acceptsCnAsTheNameOfABoard)
{
    board.client->answer(2, result(0, parameterStream(12.5, "V")));
    EXPECT_EQ(0, manager.readParameter(errors, root, KvNInventoryIDs::CN[Serial] / KvNInventoryIDs::CPU, parameter));
}

TEST_F(ReadOfAParameter, withoutARootHandleFails)
{
    EXPECT_EQ(-1, manager.readParameter(errors, nullptr, address, parameter));
    EXPECT_EQ(Codes{0x1600802}, codesOf(errors));
    EXPECT_EQ("Internal error. Korvel Support information: Invalid root handle.", lastText(errors));
}

class OwnAddress : public OneBoard
{
protected:
    static Bytes words(std::initializer_list<KvUInt32> numbers)
    {
        Record record;
        for (const KvUInt32 number : numbers)
            record.number(number);
        return record.opaque({});
    }
};

TEST_F(OwnAddress, isAppendedToTheAddressGiven)
{
    board.client->answer(4, words({2, 4, 380, 4711, 2, 2}));
    KvCInventoryAddress own;
    EXPECT_EQ(0, Probe::getLocalAddress(errors, *board.client, own));
    EXPECT_STREQ("HCN[4711]/CPU[2]", own.toString().c_str());
    EXPECT_EQ(0, Probe::getLocalAddress(errors, *board.client, own));
    EXPECT_STREQ("HCN[4711]/CPU[2]/HCN[4711]/CPU[2]", own.toString().c_str());
    EXPECT_EQ(Bytes(), sent());
}

TEST_F(OwnAddress, mayBeEmpty)
{
    board.client->answer(4, words({0, 0}));
    KvCInventoryAddress own = KvNInventoryIDs::CPU;
    EXPECT_EQ(0, Probe::getLocalAddress(errors, *board.client, own));
    EXPECT_STREQ("CPU", own.toString().c_str());
}

TEST_F(OwnAddress, whoseCountsDisagreeIsCorrupt)
{
    KvCInventoryAddress own = KvNInventoryIDs::CPU;
    for (const Bytes& reply : {words({2, 3, 380, 4711, 2}), words({1, 4, 380, 4711, 2, 2}), words({0, 1, 380}),
                               words({0x80000001, 2, 380, 4711})}) {
        errors.clear();
        board.client->answer(4, reply);
        EXPECT_EQ(-1, Probe::getLocalAddress(errors, *board.client, own));
        EXPECT_EQ(Codes{0x160081C}, codesOf(errors));
        EXPECT_EQ("Internal error. Korvel Support information: Inventory address is corrupt.", lastText(errors));
        EXPECT_STREQ("CPU", own.toString().c_str());
    }
}

TEST_F(OwnAddress, withoutAnAnswerNamesTheProcedure)
{
    board.client->fail(4, 1);
    KvCInventoryAddress own;
    EXPECT_EQ(-1, Probe::getLocalAddress(errors, *board.client, own));
    EXPECT_EQ((Codes{RecordingClient::CallFailed, 0x1600804}), codesOf(errors));
    EXPECT_EQ("Communication error. Cannot call remote procedure getLocalAddress().", lastText(errors));
}

using Parent = OneBoard;

TEST_F(Parent, isToldToTheBoard)
{
    board.client->answer(16, Record().number(0).opaque({}));
    EXPECT_EQ(0, Probe::registerParent(errors, *board.client, KvUInt32{0xCAFE}));
    EXPECT_EQ(hex("0000CAFE"), sent());
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(Parent, thatTheBoardRefusesIsReported)
{
    board.client->answer(16, Record().number(1).opaque(errorBlock(0x1600801)));
    EXPECT_EQ(-1, Probe::registerParent(errors, *board.client, KvUInt32{1}));
    EXPECT_EQ((Codes{0x1600801, 0x1600828}), codesOf(errors));
    EXPECT_EQ(
        "Internal error. Korvel Support information: Cannot register HCN inventory service at CN inventory service.",
        lastText(errors));
    errors.clear();
    board.client->fail(16, 1);
    EXPECT_EQ(-1, Probe::registerParent(errors, *board.client, KvUInt32{1}));
    EXPECT_EQ("Communication error. Cannot call remote procedure registerParent().", lastText(errors));
}

TEST(MarshalledAddress, holdsCategoryAndIndexOfEachElement)
{
    KvCErrorListPool errors;
    KvInventoryManagerRpcIFInventoryAddress wire{};
    const KvCInventoryAddress address = KvNInventoryIDs::HCN[7] / KvNInventoryIDs::CPU / KvNInventoryIDs::FIRMWARE[3];
    EXPECT_EQ(0, Probe::marshalInventoryAddress(errors, address, wire));
    EXPECT_EQ(3u, wire.elementCount);
    ASSERT_EQ(6u, wire.valueCount);
    EXPECT_EQ((std::vector<KvUInt32>{380, 7, 2, 1, 9, 3}), std::vector<KvUInt32>(wire.values, wire.values + 6));
    KvNAllocation::release(wire.values);

    EXPECT_EQ(0, Probe::marshalInventoryAddress(errors, KvCInventoryAddress(), wire));
    EXPECT_EQ(0u, wire.elementCount);
    EXPECT_EQ(0u, wire.valueCount);
    KvNAllocation::release(wire.values);
}

TEST(MarshalledAddress, withoutMemoryIsEmptyAndReported)
{
    KvCErrorListPool errors;
    KvInventoryManagerRpcIFInventoryAddress wire{9, 9, nullptr};
    const KvCInventoryAddress address = KvNInventoryIDs::HCN[7];
    KvNAllocation::setHook([](void*, std::size_t) { return false; }, nullptr);
    const long result = Probe::marshalInventoryAddress(errors, address, wire);
    KvNAllocation::setHook(nullptr, nullptr);
    EXPECT_EQ(-1, result);
    EXPECT_EQ(0u, wire.elementCount);
    EXPECT_EQ(0u, wire.valueCount);
    EXPECT_EQ(Codes{0x160081A}, codesOf(errors));
    EXPECT_EQ("Out of  memory. The requested operation cannot be completed.", lastText(errors));
    EXPECT_STREQ("KvCInventoryManager::marshalInventoryAddress", errors.getErrorOrigin(0));
}

}  // namespace
