#include "manager/rpc/InventoryRecords.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Bytes.h"
#include "inventory_manager.h"
#include "platform/errorhandling/KvCErrorList.h"

/*
 * Every record of the service, its bytes worked out by hand, and the same bytes through the routines that the service
 * has generated from its own description.
 */

namespace {

Bytes encode(KvNXdr::xdrproc_t routine, void* record)
{
    KvNXdr::XDR xdrs;
    KvNXdr::xdrgrow_create(&xdrs, 1 << 20);
    Bytes bytes;
    if (routine(&xdrs, record) != 0)
        bytes.assign(xdrs.x_base, xdrs.x_base + KvNXdr::xdrmem_used(&xdrs));
    KvNXdr::xdrgrow_destroy(&xdrs);
    return bytes;
}

bool decode(KvNXdr::xdrproc_t routine, void* record, Bytes bytes)
{
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, reinterpret_cast<char*>(bytes.data()), bytes.size(), KvNXdr::XDR_DECODE);
    return routine(&xdrs, record) != 0 && KvNXdr::xdrmem_left(&xdrs) == 0;
}

/** The bytes, decoded and encoded again by the generated routine of a record; nothing when it refuses them. */
template <class Generated>
Bytes throughGenerated(bool_t (*routine)(::XDR*, Generated*), Bytes bytes)
{
    Generated record{};
    ::XDR xdrs;
    ::xdrmem_create(&xdrs, reinterpret_cast<char*>(bytes.data()), static_cast<u_int>(bytes.size()), ::XDR_DECODE);
    const bool whole = routine(&xdrs, &record) != 0 && xdr_getpos(&xdrs) == bytes.size();
    Bytes again(bytes.size() + 16);
    ::xdrmem_create(&xdrs, reinterpret_cast<char*>(again.data()), static_cast<u_int>(again.size()), ::XDR_ENCODE);
    const bool encoded = whole && routine(&xdrs, &record) != 0;
    again.resize(encoded ? xdr_getpos(&xdrs) : 0);
    ::xdrmem_create(&xdrs, nullptr, 0, ::XDR_FREE);
    routine(&xdrs, &record);
    return again;
}

/** The record gives these bytes, the generated routine agrees with them, they give the record back, and every cut of
    them is refused without a leak. */
template <class Record, class Generated>
void travels(Record record, const char* golden, bool_t (*generated)(::XDR*, Generated*))
{
    const KvNXdr::xdrproc_t routine = KvNInventoryRpc::routine<Record>;
    const Bytes bytes = hex(golden);
    EXPECT_EQ(bytes, encode(routine, &record));
    EXPECT_EQ(bytes, throughGenerated(generated, bytes));
    Record received{};
    EXPECT_TRUE(decode(routine, &received, bytes));
    EXPECT_EQ(bytes, encode(routine, &received));
    KvNXdr::xdr_free(routine, &received);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        Record cut{};
        EXPECT_FALSE(decode(routine, &cut, Bytes(bytes.begin(), bytes.begin() + static_cast<long>(length)))) << length;
        KvNXdr::xdr_free(routine, &cut);
    }
}

/** HCN[4711]/CPU[2]: category 380 is 17C, 4711 is 1267. */
KvUInt32 words[] = {380, 4711, 2, 2};
const KvInventoryManagerRpcIFInventoryAddress address{2, 4, words};
#define ADDRESS_BYTES "00000002 00000004 0000017C 00001267 00000002 00000002 "

char threeBytes[] = {1, 2, 3};
const KvNInventoryRpc::Opaque three{3, threeBytes};
#define THREE_BYTES "00000003 01020300 "
const KvNInventoryRpc::Opaque none{0, nullptr};
#define NO_BYTES "00000000 "

char fileName[] = "fw/a.bin";
#define FILE_NAME_BYTES "00000008 66772F61 2E62696E "

TEST(InventoryRecords, anAddressIsItsLengthAndTwoNumbersForEachElement)
{
    travels(address, ADDRESS_BYTES, xdr_KvimAddress);
}

TEST(InventoryRecords, anEmptyAddressTakesEightBytes)
{
    travels(KvInventoryManagerRpcIFInventoryAddress{0, 0, nullptr}, "00000000 00000000", xdr_KvimAddress);
}

TEST(InventoryRecords, aValueIsItsTypeAndItsBytes)
{
    travels(KvInventoryManagerRpcIFParameterValue{0x2000, three}, "00002000 " THREE_BYTES, xdr_KvimParameterValue);
    travels(KvInventoryManagerRpcIFParameterValue{0x2000, none}, "00002000 " NO_BYTES, xdr_KvimParameterValue);
}

TEST(InventoryRecords, numbersAndEnumerationsTakeFourBytes)
{
    travels(KvInventoryManagerRpcIFNumber{0x12345678}, "12345678", xdr_KvimRegisterParentArguments);
    travels(KvInventoryManagerRpcIFFirmwareType{13}, "0000000D", xdr_KvimFirmwareType);
    travels(KvInventoryManagerRpcIFUpdateState{3}, "00000003", xdr_KvimUpdateState);
    travels(KvInventoryManagerRpcIFUpdateState{-1}, "FFFFFFFF", xdr_KvimUpdateState);
}

TEST(InventoryRecords, theFlagOfAScanTakesFourBytes)
{
    travels(KvInventoryManagerRpcIFScanArguments{1}, "00000001", xdr_KvimScanArguments);
}

TEST(InventoryRecords, argumentsBeginWithTheAddress)
{
    travels(KvInventoryManagerRpcIFWriteParameterValueArguments{address, 0xA1B2C3D4, {0x111, three}},
            ADDRESS_BYTES "A1B2C3D4 00000111 " THREE_BYTES, xdr_KvimWriteParameterValueArguments);
    travels(KvInventoryManagerRpcIFAccessArguments{address, 7}, ADDRESS_BYTES "00000007", xdr_KvimAccessArguments);
    travels(KvInventoryManagerRpcIFCheckAuthorityArguments{address, 7, 0x10003}, ADDRESS_BYTES "00000007 00010003",
            xdr_KvimCheckAuthorityArguments);
    travels(KvInventoryManagerRpcIFUpdateStatus2Arguments{address, 9}, ADDRESS_BYTES "00000009",
            xdr_KvimUpdateStatus2Arguments);
    travels(KvInventoryManagerRpcIFUpdateErrors2Arguments{address, 7, 2}, ADDRESS_BYTES "00000007 00000002",
            xdr_KvimUpdateErrors2Arguments);
}

TEST(InventoryRecords, theArgumentsOfTheTwoUpdatesOrderTheirFieldsDifferently)
{
    travels(KvInventoryManagerRpcIFUpdateArguments{address, 7, fileName, KvInventoryManagerRpcIFFirmwareType{2},
                                                   0x100000002},
            ADDRESS_BYTES "00000007 " FILE_NAME_BYTES "00000002 00000001 00000002", xdr_KvimUpdateArguments);
    travels(KvInventoryManagerRpcIFUpdate2Arguments{address, 7, 5, fileName, 0x100000002},
            ADDRESS_BYTES "00000007 00000005 " FILE_NAME_BYTES "00000001 00000002", xdr_KvimUpdate2Arguments);
}

/** Keeps what it is told of a tree. */
struct TreeKeeper final : KvNInventoryRpc::TreeReceiver
{
    void onReply() override { told += "reply "; }
    void onTree(const char* bytes, KvUInt32 length) override
    {
        told += "tree";
        tree.assign(bytes, bytes + length);
    }
    std::string told;
    Bytes tree;
};

TEST(InventoryRecords, aScansTreeGoesToItsReceiverWhereItWasReceived)
{
    using Reply = KvInventoryManagerRpcIFScanReply;
    const KvNXdr::xdrproc_t routine = KvNInventoryRpc::routine<Reply>;
    const Bytes bytes = hex("00000005 " THREE_BYTES "00000001 09000000");
    TreeKeeper keeper;
    Reply reply{0, 0, none, &keeper};
    EXPECT_TRUE(decode(routine, &reply, bytes));
    EXPECT_EQ("reply tree", keeper.told);
    EXPECT_EQ((Bytes{1, 2, 3}), keeper.tree);
    EXPECT_EQ(5u, reply.status);
    EXPECT_EQ(3u, reply.treeLength);
    EXPECT_EQ(1u, reply.errorList.length);
    EXPECT_EQ(Bytes(), encode(routine, &reply)) << "it is for decoding only";
    KvNXdr::xdr_free(routine, &reply);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        TreeKeeper cutKeeper;
        Reply cut{0, 0, none, &cutKeeper};
        EXPECT_FALSE(decode(routine, &cut, Bytes(bytes.begin(), bytes.begin() + static_cast<long>(length)))) << length;
        EXPECT_EQ("reply ", cutKeeper.told) << length;
        KvNXdr::xdr_free(routine, &cut);
    }
}

TEST(InventoryRecords, aScanWithoutATreeHandsNoneOver)
{
    TreeKeeper keeper;
    KvInventoryManagerRpcIFScanReply reply{0, 0, none, &keeper};
    EXPECT_TRUE(
        decode(KvNInventoryRpc::routine<KvInventoryManagerRpcIFScanReply>, &reply, hex("00000000 " NO_BYTES NO_BYTES)));
    EXPECT_EQ("reply ", keeper.told);
}

TEST(InventoryRecords, resultsEndWithAnErrorList)
{
    travels(KvInventoryManagerRpcIFStatusResult{1, three}, "00000001 " THREE_BYTES, xdr_KvimResult);
    travels(KvInventoryManagerRpcIFStatusResult{0, none}, "00000000 " NO_BYTES, xdr_KvimResult);
    travels(KvInventoryManagerRpcIFScanResult{0, three, none}, "00000000 " THREE_BYTES NO_BYTES, xdr_KvimScanResult);
    travels(KvInventoryManagerRpcIFReadParameterResult{0, none, three}, "00000000 " NO_BYTES THREE_BYTES,
            xdr_KvimReadParameterResult);
    travels(KvInventoryManagerRpcIFCheckAuthorityResult{0, 1, three}, "00000000 00000001 " THREE_BYTES,
            xdr_KvimCheckAuthorityResult);
    travels(KvInventoryManagerRpcIFUpdateErrors2Result{4, three, none}, "00000004 " THREE_BYTES NO_BYTES,
            xdr_KvimUpdateErrors2Result);
    travels(KvInventoryManagerRpcIFUpdateStatusResult{0, KvInventoryManagerRpcIFUpdateState{1},
                                                      KvInventoryManagerRpcIFFirmwareType{4}, 50, 3, none},
            "00000000 00000001 00000004 00000032 00000003 " NO_BYTES, xdr_KvimUpdateStatusResult);
    travels(KvInventoryManagerRpcIFUpdateStatus2Result{0, 1, 2, 3, 4, none},
            "00000000 00000001 00000002 00000003 00000004 " NO_BYTES, xdr_KvimUpdateStatus2Result);
}

TEST(InventoryRecords, aBoardsOwnAddressHasNoStatusBeforeIt)
{
    travels(KvInventoryManagerRpcIFLocalAddressResult{address, three}, ADDRESS_BYTES THREE_BYTES,
            xdr_KvimLocalAddressResult);
}

TEST(InventoryRecords, namesOfRemoteFilesTakeFourBytesForEachCharacter)
{
    char directory[] = {'f', 's'};
    char name[] = {'a'};
    travels(KvInventoryManagerRpcIFRemoteFilenameResult{0, {2, directory}, {1, name}, none},
            "00000000  00000002 00000066 00000073  00000001 00000061 " NO_BYTES, xdr_KvimRemoteFilenameResult);
}

TEST(InventoryRecords, aLengthBeyondTheBytesThereAreIsRefusedAndTakesNoMemory)
{
    for (const char* bytes :
         {"00000000 FFFFFFFF 01020304", "00000000 80000000 01020304", "00000000 00000005 01020304"}) {
        KvInventoryManagerRpcIFScanResult result{};
        EXPECT_FALSE(decode(KvNInventoryRpc::routine<KvInventoryManagerRpcIFScanResult>, &result, hex(bytes)));
        EXPECT_EQ(nullptr, result.tree.data);
    }
}

}  // namespace
