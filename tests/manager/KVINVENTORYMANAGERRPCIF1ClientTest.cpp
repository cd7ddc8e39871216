#include "manager/rpc/KVINVENTORYMANAGERRPCIF1Client.h"

#include <gtest/gtest.h>

#include "ManagerTest.h"
#include "manager/rpc/Procedures.h"

namespace {

/** A client alone, and an address of one element on its way to it. */
class Stubs : public ::testing::Test
{
protected:
    static constexpr const char* Address = "00000001 00000002 0000017C 00000007 ";

    /** The call is this one and gives this result, and a call that fails is handed on as it failed. */
    template <class Result, class Call>
    void check(KvUInt32 procedure, const char* arguments, const Bytes& results, Call call)
    {
        client.answer(procedure, results);
        Result result;
        std::memset(static_cast<void*>(&result), 0xEE, sizeof result);
        EXPECT_EQ(0, call(result));
        ASSERT_FALSE(client.calls().empty());
        EXPECT_EQ(procedure, client.calls().back().procedure);
        EXPECT_EQ(hex(arguments), client.calls().back().arguments);
        EXPECT_EQ(results, RecordingClient::encoded(KvNInventoryRpc::routine<Result>, &result));
        client.freeResults(KvNInventoryRpc::routine<Result>, &result);
        EXPECT_EQ(Codes(), codesOf(errors));

        client.fail(procedure, 2, hex("00000005"));
        std::memset(static_cast<void*>(&result), 0xEE, sizeof result);
        EXPECT_EQ(2, call(result)) << "a failed call is returned as it is";
        client.freeResults(KvNInventoryRpc::routine<Result>, &result);
        EXPECT_EQ(Codes{RecordingClient::CallFailed}, codesOf(errors));
        errors.clear();
    }

    KvCErrorListPool errors;
    RecordingClient client{errors};
    KvUInt32 words[2] = {380, 7};
    const KvInventoryManagerRpcIFInventoryAddress address{1, 2, words};
    const Bytes done = Record().number(0).opaque({});
};

using StatusResult = KvInventoryManagerRpcIFStatusResult;

TEST_F(Stubs, scanIsProcedure1)
{
    check<KvInventoryManagerRpcIFScanResult>(
        1, "00000001", Record().number(0).opaque({1, 2, 3}).opaque({}),
        [this](auto& result) { return KvNInventoryRpc::scan(client, errors, true, result); });
    check<KvInventoryManagerRpcIFScanResult>(
        1, "00000000", Record().number(9).opaque({}).opaque({}),
        [this](auto& result) { return KvNInventoryRpc::scan(client, errors, false, result); });
}

TEST_F(Stubs, readParameterIsProcedure2)
{
    check<KvInventoryManagerRpcIFReadParameterResult>(
        2, Address, Record().number(0).opaque({1, 2, 3, 4, 5}).opaque({}),
        [this](auto& result) { return KvNInventoryRpc::readParameter(client, errors, address, result); });
}

TEST_F(Stubs, writeParameterValueIsProcedure3)
{
    char bytes[] = {0x12, 0x34};
    check<StatusResult>(
        3, "00000001 00000002 0000017C 00000007  0000ABCD  00000122 00000002 12340000", done, [&](auto& result) {
            return KvNInventoryRpc::writeParameterValue(client, errors, address, 0xABCD, {0x122, {2, bytes}}, result);
        });
}

TEST_F(Stubs, getLocalAddressIsProcedure4AndTakesNothing)
{
    check<KvInventoryManagerRpcIFLocalAddressResult>(
        4, "", Record().number(1).number(2).number(380).number(7).opaque({}),
        [this](auto& result) { return KvNInventoryRpc::getLocalAddress(client, errors, result); });
}

TEST_F(Stubs, applyIsProcedure6)
{
    check<StatusResult>(6, "00000001 00000002 0000017C 00000007 00000009", done,
                        [this](auto& result) { return KvNInventoryRpc::apply(client, errors, address, 9, result); });
}

TEST_F(Stubs, updateIsProcedure7)
{
    check<StatusResult>(7,
                        "00000001 00000002 0000017C 00000007  00000009  00000001 61000000  00000002  00000000 00000100",
                        done, [this](auto& result) {
                            return KvNInventoryRpc::update(client, errors, address, 9, "a",
                                                           KvInventoryManagerRpcIFFirmwareType{2}, 256, result);
                        });
}

TEST_F(Stubs, updateStatusIsProcedure8)
{
    check<KvInventoryManagerRpcIFUpdateStatusResult>(
        8, Address, Record().number(0).number(1).number(2).number(3).number(4).opaque({}),
        [this](auto& result) { return KvNInventoryRpc::updateStatus(client, errors, address, result); });
}

TEST_F(Stubs, updateErrorsIsProcedure9)
{
    check<StatusResult>(9, "00000001 00000002 0000017C 00000007 00000009", done, [this](auto& result) {
        return KvNInventoryRpc::updateErrors(client, errors, address, 9, result);
    });
}

TEST_F(Stubs, generateRemoteFilenameIsProcedure10)
{
    check<KvInventoryManagerRpcIFRemoteFilenameResult>(
        10, "00000001 00000002 0000017C 00000007 00000009",
        Record().number(0).characters("dir").characters("name").opaque({}),
        [this](auto& result) { return KvNInventoryRpc::generateRemoteFilename(client, errors, address, 9, result); });
}

TEST_F(Stubs, checkAuthorityIsProcedure11)
{
    check<KvInventoryManagerRpcIFCheckAuthorityResult>(
        11, "00000001 00000002 0000017C 00000007 00000009 00010003", Record().number(0).number(1).opaque({}),
        [this](auto& result) { return KvNInventoryRpc::checkAuthority(client, errors, address, 9, 0x10003, result); });
}

TEST_F(Stubs, updateFinishIsProcedure12)
{
    check<StatusResult>(12, "00000001 00000002 0000017C 00000007 00000009", done, [this](auto& result) {
        return KvNInventoryRpc::updateFinish(client, errors, address, 9, result);
    });
}

TEST_F(Stubs, update2IsProcedure13)
{
    check<StatusResult>(
        13, "00000001 00000002 0000017C 00000007  00000009  00000005  00000001 61000000  00000001 00000000", done,
        [this](auto& result) {
            return KvNInventoryRpc::update2(client, errors, address, 9, 5, "a", KvUInt64{1} << 32, result);
        });
}

TEST_F(Stubs, updateStatus2IsProcedure14)
{
    check<KvInventoryManagerRpcIFUpdateStatus2Result>(
        14, "00000001 00000002 0000017C 00000007 00000003",
        Record().number(0).number(1).number(2).number(3).number(4).opaque({}),
        [this](auto& result) { return KvNInventoryRpc::updateStatus2(client, errors, address, 3, result); });
}

TEST_F(Stubs, updateErrors2IsProcedure15)
{
    check<KvInventoryManagerRpcIFUpdateErrors2Result>(
        15, "00000001 00000002 0000017C 00000007 00000009 00000004", Record().number(0).opaque({1}).opaque({}),
        [this](auto& result) { return KvNInventoryRpc::updateErrors2(client, errors, address, 9, 4, result); });
}

TEST_F(Stubs, registerParentIsProcedure16)
{
    check<StatusResult>(16, "0000002A", done,
                        [this](auto& result) { return KvNInventoryRpc::registerParent(client, errors, 42, result); });
}

TEST_F(Stubs, whatTheServiceReportsIsAppendedEvenWithStatus0)
{
    errors.setError(0x1600802, 1, "Before", nullptr);
    client.answer(16, Record().number(0).opaque(errorBlock(0x1600801)));
    StatusResult result;
    EXPECT_EQ(0, KvNInventoryRpc::registerParent(client, errors, 42, result));
    EXPECT_EQ((Codes{0x1600802, 0x1600801}), codesOf(errors));
    EXPECT_STREQ("Board::service", errors.getErrorOrigin(1));
    client.freeResults(KvNInventoryRpc::routine<StatusResult>, &result);
}

TEST_F(Stubs, anEmptyErrorListLeavesTheCallersListAlone)
{
    KvCErrorListPool empty;
    client.answer(16, Record().number(0).opaque(empty.serialize()));
    StatusResult result;
    EXPECT_EQ(0, KvNInventoryRpc::registerParent(client, errors, 42, result));
    EXPECT_EQ(Codes(), codesOf(errors));
    client.freeResults(KvNInventoryRpc::routine<StatusResult>, &result);
}

TEST_F(Stubs, aMalformedErrorListAddsNothingAndFailsNothing)
{
    Bytes cut = errorBlock(0x1600801);
    cut.pop_back();
    client.answer(16, Record().number(0).opaque(cut));
    StatusResult result;
    EXPECT_EQ(0, KvNInventoryRpc::registerParent(client, errors, 42, result));
    EXPECT_EQ(Codes(), codesOf(errors));
    client.freeResults(KvNInventoryRpc::routine<StatusResult>, &result);
}

TEST(Procedures, haveTheTextsThatMessagesNameThemBy)
{
    EXPECT_STREQ("scan()", KvNInventoryRpc::procedureText(KvNInventoryRpc::Procedure::scan));
    EXPECT_STREQ("getLocalAddress()", KvNInventoryRpc::procedureText(KvNInventoryRpc::Procedure::getLocalAddress));
    EXPECT_STREQ("updateErrors2()", KvNInventoryRpc::procedureText(KvNInventoryRpc::Procedure::updateErrors2));
    EXPECT_STREQ("", KvNInventoryRpc::procedureText(static_cast<KvNInventoryRpc::Procedure::Number>(5)));
}

TEST(Procedures, areRepeatedOnlyWhenThatDoesNoHarm)
{
    using namespace KvNInventoryRpc::Procedure;
    for (const auto number : {scan, readParameter, getLocalAddress, updateStatus, updateStatus2})
        EXPECT_TRUE(KvNInventoryRpc::isRepeatable(number)) << number;
    for (const auto number : {writeParameterValue, apply, update, updateErrors, generateRemoteFilename, checkAuthority,
                              updateFinish, update2, updateErrors2, registerParent})
        EXPECT_FALSE(KvNInventoryRpc::isRepeatable(number)) << number;
}

}  // namespace
