#include "ManagerTest.h"

namespace {

using Write = OneBoard;

const Bytes done = Record().number(0).opaque({});

/** What a write of this value at HCN[4711]/CPU[2] with access id A1B2C3D4 sends behind the address. */
template <class T>
Bytes bytesOf(RecordingClient& client, const KvCInventoryAddress& address, const T& value)
{
    KvCErrorListPool errors;
    client.answer(3, done);
    EXPECT_EQ(0, Probe::writeParameterValue(errors, client, address, KvUInt32{0xA1B2C3D4}, value));
    EXPECT_EQ(Codes(), codesOf(errors));
    EXPECT_EQ(3u, client.calls().back().procedure);
    const Bytes& sent = client.calls().back().arguments;
    const Bytes head = hex(AddressOnWire) + hex("A1B2C3D4");
    EXPECT_EQ(head, Bytes(sent.begin(), sent.begin() + static_cast<long>(head.size())));
    return Bytes(sent.begin() + static_cast<long>(head.size()), sent.end());
}

TEST_F(Write, sendsEachTypeWithItsCodeMostSignificantByteFirst)
{
    const auto sends = [&](const auto& value) { return bytesOf(*board.client, address, value); };
    EXPECT_EQ(hex("00000111 00000001 FE000000"), sends(static_cast<char>(-2)));
    EXPECT_EQ(hex("00000121 00000001 FE000000"), sends(static_cast<unsigned char>(254)));
    EXPECT_EQ(hex("00000112 00000002 FFFE0000"), sends(static_cast<short>(-2)));
    EXPECT_EQ(hex("00000122 00000002 12340000"), sends(static_cast<unsigned short>(0x1234)));
    EXPECT_EQ(hex("00000114 00000004 FFFFFFFE"), sends(KvInt32{-2}));
    EXPECT_EQ(hex("00000124 00000004 12345678"), sends(KvUInt32{0x12345678}));
    EXPECT_EQ(hex("00000118 00000008 FFFFFFFF FFFFFFFE"), sends(KvInt64{-2}));
    EXPECT_EQ(hex("00000128 00000008 01234567 89ABCDEF"), sends(KvUInt64{0x0123456789ABCDEF}));
    // 1.5 is 1.1 binary: exponent 127 and 1023, first bit of the fraction.
    EXPECT_EQ(hex("00000214 00000004 3FC00000"), sends(1.5f));
    EXPECT_EQ(hex("00000218 00000008 3FF80000 00000000"), sends(1.5));
    EXPECT_EQ(hex("00002000 00000005 48656C6C 6F000000"), sends(KvCString("Hello")));
    EXPECT_EQ(hex("00004000 00000008 03010202 00040007"), sends(KvCVersion(3, 1, 2, 2, 4, 7)));
}

TEST_F(Write, sendsAnEmptyTextAsNoBytes)
{
    EXPECT_EQ(hex("00002000 00000000"), bytesOf(*board.client, address, KvCString()));
}

TEST_F(Write, ofAnEmptyAddressSendsNoElements)
{
    board.client->answer(3, done);
    EXPECT_EQ(0, Probe::writeParameterValue(errors, *board.client, KvCInventoryAddress(), KvUInt32{1},
                                            static_cast<unsigned char>(7)));
    EXPECT_EQ(hex("00000000 00000000 00000001 00000121 00000001 07000000"), sent());
}

TEST_F(Write, thatTheBoardRefusesNamesTheParameterBehindWhatTheBoardSays)
{
    board.client->answer(3, Record().number(2).opaque(errorBlock(0x1600807)));
    EXPECT_EQ(-1, Probe::writeParameterValue(errors, *board.client, address, KvUInt32{1}, KvUInt32{5}));
    EXPECT_EQ((Codes{0x1600807, 0x1600801}), codesOf(errors));
    EXPECT_EQ("Internal error. Korvel Support information: Cannot write parameter HCN[4711]/CPU[2].", lastText(errors));
    EXPECT_STREQ("KvCInventoryManager::writeParameterValue", errors.getErrorOrigin(1));
}

TEST_F(Write, withoutAnAnswerNamesTheProcedure)
{
    board.client->fail(3, 2);
    EXPECT_EQ(-1, Probe::writeParameterValue(errors, *board.client, address, KvUInt32{1}, 1.5));
    EXPECT_EQ((Codes{RecordingClient::CallFailed, 0x1600804}), codesOf(errors));
    EXPECT_EQ("Communication error. Cannot call remote procedure writeParameterValue().", lastText(errors));
}

TEST_F(Write, onItsBoardUsesTheAccessIdOfTheLock)
{
    board.client->answer(3, done);
    EXPECT_EQ(0, manager.writeParameterValue(errors, root, address, lockWith(0x5EC2E7), KvUInt32{9}));
    EXPECT_EQ(hex(AddressOnWire) + hex("005EC2E7 00000124 00000004 00000009"), sent());
    EXPECT_EQ(0, manager.writeParameterValue(errors, root, address, lock, KvCString("x")));
    EXPECT_EQ(hex(AddressOnWire) + hex("005EC2E7 00002000 00000001 78000000"), sent());
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(Write, takesEverySpellingOfAnIntegerAsTheOneOfItsWidth)
{
    board.client->answer(3, done);
    lockWith(1);
    const auto typeOf = [&](const auto& value) {
        EXPECT_EQ(0, manager.writeParameterValue(errors, root, address, lock, value));
        return Bytes(sent().begin() + 28, sent().begin() + 36);
    };
    EXPECT_EQ(hex("00000114 00000004"), typeOf(-1));
    EXPECT_EQ(hex("00000124 00000004"), typeOf(1u));
    EXPECT_EQ(hex("00000118 00000008"), typeOf(-1ll));
    EXPECT_EQ(hex("00000128 00000008"), typeOf(1ull));
    EXPECT_EQ(sizeof(long) == 8 ? hex("00000118 00000008") : hex("00000114 00000004"), typeOf(1l));
    EXPECT_EQ(hex("00000111 00000001"), typeOf(static_cast<signed char>(1)));
}

TEST_F(Write, withoutAGoodLockHandleFailsBeforeAnythingIsSent)
{
    EXPECT_EQ(-1, manager.writeParameterValue(errors, root, address, nullptr, KvUInt32{9}));
    ASSERT_LE(1u, errors.getErrorCount());
    EXPECT_EQ(0x1600822u, errors.getErrorCode(errors.getErrorCount() - 1));
    EXPECT_EQ(
        "Internal error. Korvel Support information: Cannot get access ID of lock handle used for HCN[4711]/CPU[2].",
        lastText(errors));
    EXPECT_STREQ("KvCInventoryManager::writeParameterValue", errors.getErrorOrigin(errors.getErrorCount() - 1));
    EXPECT_TRUE(board.client->calls().empty());
}

TEST_F(Write, withoutARootHandleOrItsBoardFails)
{
    EXPECT_EQ(-1, manager.writeParameterValue(errors, nullptr, address, lockWith(1), KvUInt32{9}));
    EXPECT_EQ(Codes{0x1600802}, codesOf(errors));
    errors.clear();
    EXPECT_EQ(-1, manager.writeParameterValue(errors, root, KvNInventoryIDs::HCN[99], lock, KvUInt32{9}));
    EXPECT_EQ((Codes{0x1600001, 0x1600809, 0x1600805}), codesOf(errors));
    EXPECT_TRUE(board.client->calls().empty());
}

using Apply = OneBoard;

TEST_F(Apply, sendsAddressAndAccessId)
{
    board.client->answer(6, done);
    EXPECT_EQ(0, manager.apply(errors, root, address, lockWith(0x5EC2E7)));
    EXPECT_EQ(6u, board.client->calls().back().procedure);
    EXPECT_EQ(hex(AddressOnWire) + hex("005EC2E7"), sent());
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(Apply, thatTheBoardRefusesSaysOnlyWhatTheBoardSays)
{
    board.client->answer(6, Record().number(1).opaque(errorBlock(0x1600807)));
    EXPECT_EQ(-1, Probe::apply(errors, *board.client, address, KvUInt32{1}));
    EXPECT_EQ(Codes{0x1600807}, codesOf(errors));
    errors.clear();
    board.client->answer(6, Record().number(1).opaque({}));
    EXPECT_EQ(-1, manager.apply(errors, root, address, lockWith(1)));
    EXPECT_EQ(Codes(), codesOf(errors));
}

TEST_F(Apply, withErrorsFromTheBoardFailsEvenWithStatus0)
{
    board.client->answer(6, Record().number(0).opaque(errorBlock(0x1600807)));
    EXPECT_EQ(-1, manager.apply(errors, root, address, lockWith(1)));
    EXPECT_EQ(Codes{0x1600807}, codesOf(errors));
}

TEST_F(Apply, withoutAnAnswerNamesTheProcedure)
{
    board.client->fail(6, 2);
    EXPECT_EQ(-1, manager.apply(errors, root, address, lockWith(1)));
    EXPECT_EQ((Codes{RecordingClient::CallFailed, 0x1600804}), codesOf(errors));
    EXPECT_EQ("Communication error. Cannot call remote procedure apply().", lastText(errors));
}

TEST_F(Apply, withoutAGoodLockHandleFailsBeforeAnythingIsSent)
{
    EXPECT_EQ(-1, manager.apply(errors, root, address, nullptr));
    EXPECT_EQ(0x1600822u, errors.getErrorCode(errors.getErrorCount() - 1));
    EXPECT_TRUE(board.client->calls().empty());
}

}  // namespace
