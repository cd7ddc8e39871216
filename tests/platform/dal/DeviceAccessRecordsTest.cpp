#include "platform/dal/DeviceAccessRecords.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

extern "C" {
#include "device_access.h"
}

namespace Ours = KvNDeviceAccess;

namespace {

using Bytes = std::vector<unsigned char>;

template <class Record>
using OurRoutine = KvNXdr::bool_t (*)(KvNXdr::XDR*, Record*);
template <class Record>
using GeneratedRoutine = bool_t (*)(XDR*, Record*);

template <class Record>
Bytes encodeOurs(OurRoutine<Record> routine, Record& record)
{
    Bytes bytes(2u << 20);
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, reinterpret_cast<char*>(bytes.data()), bytes.size(), KvNXdr::XDR_ENCODE);
    const bool done = routine(&xdrs, &record) != 0;
    bytes.resize(done ? KvNXdr::xdrmem_used(&xdrs) : 0);
    return bytes;
}

template <class Record>
Bytes encodeGenerated(GeneratedRoutine<Record> routine, Record& record)
{
    Bytes bytes(2u << 20);
    XDR xdrs;
    ::xdrmem_create(&xdrs, reinterpret_cast<char*>(bytes.data()), static_cast<u_int>(bytes.size()), ::XDR_ENCODE);
    const bool done = routine(&xdrs, &record) != 0;
    bytes.resize(done ? xdr_getpos(&xdrs) : 0);
    return bytes;
}

/* Whether our routine and the generated one make the same bytes of the same record, and each reads what the other
   wrote: the generated code's bytes are decoded by ours and encoded again by ours, and the other way round. */
template <class Our, class Generated>
void expectSameWire(OurRoutine<Our> ours, Our& our, GeneratedRoutine<Generated> theirs, Generated& generated)
{
    const Bytes ourBytes = encodeOurs(ours, our);
    const Bytes theirBytes = encodeGenerated(theirs, generated);
    ASSERT_FALSE(ourBytes.empty());
    EXPECT_EQ(ourBytes, theirBytes);

    Our decoded;
    KvNXdr::XDR xdrs;
    Bytes input = theirBytes;
    KvNXdr::xdrmem_create(&xdrs, reinterpret_cast<char*>(input.data()), input.size(), KvNXdr::XDR_DECODE);
    ASSERT_TRUE(ours(&xdrs, &decoded));
    EXPECT_EQ(KvNXdr::xdrmem_left(&xdrs), 0u);
    EXPECT_EQ(encodeOurs(ours, decoded), ourBytes);
    KvNXdr::XDR freeing;
    freeing.x_op = KvNXdr::XDR_FREE;
    ours(&freeing, &decoded);

    Generated back;
    std::memset(static_cast<void*>(&back), 0, sizeof back);
    XDR reading;
    input = ourBytes;
    ::xdrmem_create(&reading, reinterpret_cast<char*>(input.data()), static_cast<u_int>(input.size()), ::XDR_DECODE);
    ASSERT_TRUE(theirs(&reading, &back));
    EXPECT_EQ(encodeGenerated(theirs, back), theirBytes);
    ::xdr_free(reinterpret_cast<xdrproc_t>(reinterpret_cast<void*>(theirs)), reinterpret_cast<char*>(&back));

    // cut after any byte it is refused
    for (std::size_t size = 0; size < theirBytes.size() && size < 4096; ++size) {
        Our cut;
        input.assign(theirBytes.begin(), theirBytes.begin() + static_cast<std::ptrdiff_t>(size));
        input.push_back(0);
        KvNXdr::xdrmem_create(&xdrs, reinterpret_cast<char*>(input.data()), size, KvNXdr::XDR_DECODE);
        EXPECT_FALSE(ours(&xdrs, &cut)) << size;
        ours(&freeing, &cut);
    }
}

char* text(const char* literal)
{
    return const_cast<char*>(literal);
}

char errorBytes[] = "\x01\x02\x03\x04\x05";

template <class Our, class Generated>
void setErrors(Our& our, Generated& generated)
{
    our.errorList = {errorBytes, 5};
    generated.errorList.errorList_val = errorBytes;
    generated.errorList.errorList_len = 5;
}

}  // namespace

TEST(DeviceAccessRecords, identity)
{
    Ours::KvdaIdentity our;
    our.serialNumber = 4711;
    our.boardType = 2211;
    our.boardName = text("bench-left");
    our.systemName = text("rack");
    our.bootId = 0x0123456789ABCDEF;
    our.maxChunk = 65536;
    our.features = 1;
    KvdaIdentity generated{4711, 2211, text("bench-left"), text("rack"), 0x0123456789ABCDEF, 65536, 1, {}};
    setErrors(our, generated);
    expectSameWire(Ours::xdr_KvdaIdentity, our, xdr_KvdaIdentity, generated);
}

TEST(DeviceAccessRecords, identityByHand)
{
    Ours::KvdaIdentity record;
    record.serialNumber = 7;
    record.boardType = 0x102;
    record.boardName = text("ab");
    record.systemName = text("");
    record.bootId = 0x100000002;
    record.maxChunk = 3;
    const Bytes expected = {0, 0, 0, 7, 0, 0, 1, 2, 0, 0, 0, 2, 'a', 'b', 0, 0, 0, 0, 0, 0,
                            0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0,   0,   0, 0, 0, 0, 0, 0};
    EXPECT_EQ(encodeOurs(Ours::xdr_KvdaIdentity, record), expected);
}

TEST(DeviceAccessRecords, accessRequest)
{
    Ours::KvdaAccessRequest our;
    our.level = 2;
    our.accessId = 99;
    our.nonce = 0xFFFFFFFF00000001;
    our.owner = text("user@host (program)");
    KvdaAccessRequest generated{KVDA_MODIFY, 99, 0xFFFFFFFF00000001, text("user@host (program)")};
    expectSameWire(Ours::xdr_KvdaAccessRequest, our, xdr_KvdaAccessRequest, generated);
}

TEST(DeviceAccessRecords, access)
{
    Ours::KvdaAccess our;
    our.status = 1;
    our.accessId = 5;
    our.leaseSeconds = 20;
    our.owner = text("someone");
    KvdaAccess generated{KVDA_LOCKED, 5, 20, text("someone"), {}};
    setErrors(our, generated);
    expectSameWire(Ours::xdr_KvdaAccess, our, xdr_KvdaAccess, generated);
}

TEST(DeviceAccessRecords, result)
{
    Ours::KvdaResult our;
    our.status = 12;
    KvdaResult generated{KVDA_LIMIT, {}};
    setErrors(our, generated);
    expectSameWire(Ours::xdr_KvdaResult, our, xdr_KvdaResult, generated);
}

TEST(DeviceAccessRecords, accessState)
{
    Ours::KvdaHolder ourHolders[2] = {{1, text("a"), 0x0A000002, 3, 4}, {2, text(""), 1, 2, 3}};
    Ours::KvdaAccessState our;
    our.holders = ourHolders;
    our.holderCount = 2;
    KvdaHolder holders[2] = {{KVDA_OBSERVE, text("a"), 0x0A000002, 3, 4}, {KVDA_MODIFY, text(""), 1, 2, 3}};
    KvdaAccessState generated{KVDA_OK, {2, holders}, {}};
    setErrors(our, generated);
    expectSameWire(Ours::xdr_KvdaAccessState, our, xdr_KvdaAccessState, generated);
    expectSameWire(Ours::xdr_KvdaHolder, ourHolders[0], xdr_KvdaHolder, holders[0]);
}

TEST(DeviceAccessRecords, putBegin)
{
    Ours::KvdaPutBegin our;
    our.accessId = 1;
    our.directory = text("files");
    our.fileName = text("image.bin");
    our.size = 1ull << 40;
    KvdaPutBegin generated{1, text("files"), text("image.bin"), 1ull << 40};
    expectSameWire(Ours::xdr_KvdaPutBegin, our, xdr_KvdaPutBegin, generated);
}

TEST(DeviceAccessRecords, transfer)
{
    Ours::KvdaTransfer our;
    our.status = 9;
    our.transferId = 17;
    KvdaTransfer generated{KVDA_NO_SPACE, 17, {}};
    setErrors(our, generated);
    expectSameWire(Ours::xdr_KvdaTransfer, our, xdr_KvdaTransfer, generated);
}

TEST(DeviceAccessRecords, putData)
{
    std::vector<char> data(1048576, 'x');
    Ours::KvdaPutData our;
    our.accessId = 1;
    our.transferId = 2;
    our.offset = 3;
    our.data = {data.data(), 1048576};
    KvdaPutData generated{1, 2, 3, {1048576, data.data()}};
    expectSameWire(Ours::xdr_KvdaPutData, our, xdr_KvdaPutData, generated);
}

TEST(DeviceAccessRecords, received)
{
    Ours::KvdaReceived our;
    our.status = 7;
    our.received = 1048577;
    KvdaReceived generated{KVDA_OUT_OF_ORDER, 1048577, {}};
    setErrors(our, generated);
    expectSameWire(Ours::xdr_KvdaReceived, our, xdr_KvdaReceived, generated);
}

TEST(DeviceAccessRecords, putEndAndAbort)
{
    Ours::KvdaPutEnd ourEnd{1, 2, 0xCBF43926};
    KvdaPutEnd end{1, 2, 0xCBF43926};
    expectSameWire(Ours::xdr_KvdaPutEnd, ourEnd, xdr_KvdaPutEnd, end);
    Ours::KvdaPutAbort ourAbort{3, 4};
    KvdaPutAbort abort{3, 4};
    expectSameWire(Ours::xdr_KvdaPutAbort, ourAbort, xdr_KvdaPutAbort, abort);
}

TEST(DeviceAccessRecords, fileNameAndFileList)
{
    Ours::KvdaFileName ourName{1, text("d"), text("f")};
    KvdaFileName name{1, text("d"), text("f")};
    expectSameWire(Ours::xdr_KvdaFileName, ourName, xdr_KvdaFileName, name);

    Ours::KvdaFile ourFile{text("d"), text("f"), 10, 1700000000};
    KvdaFile file{text("d"), text("f"), 10, 1700000000};
    expectSameWire(Ours::xdr_KvdaFile, ourFile, xdr_KvdaFile, file);

    Ours::KvdaFileList our;
    our.files = &ourFile;
    our.fileCount = 1;
    our.freeBytes = 1ull << 33;
    KvdaFileList generated{KVDA_OK, {1, &file}, 1ull << 33, {}};
    setErrors(our, generated);
    expectSameWire(Ours::xdr_KvdaFileList, our, xdr_KvdaFileList, generated);
}

TEST(DeviceAccessRecords, numbersAreThoseOfTheDescription)
{
    EXPECT_EQ(Ours::deviceAccessProgram, static_cast<KvUInt32>(KV_DEVICE_ACCESS));
    EXPECT_EQ(Ours::deviceAccessVersion, static_cast<KvUInt32>(KV_DEVICE_ACCESS_V1));
    const std::vector<unsigned> generated = {KVDA_IDENTIFY,  KVDA_REQUEST_ACCESS, KVDA_KEEP_ACCESS, KVDA_RELEASE_ACCESS,
                                             KVDA_PUT_BEGIN, KVDA_PUT_DATA,       KVDA_PUT_END,     KVDA_PUT_ABORT,
                                             KVDA_DELETE,    KVDA_ACCESS_STATE,   KVDA_LIST_FILES};
    const std::vector<unsigned> ours = {Ours::Identify, Ours::RequestAccess, Ours::KeepAccess, Ours::ReleaseAccess,
                                        Ours::PutBegin, Ours::PutData,       Ours::PutEnd,     Ours::PutAbort,
                                        Ours::Delete,   Ours::AccessState,   Ours::ListFiles};
    EXPECT_EQ(ours, generated);
    EXPECT_EQ(Ours::mostText, static_cast<KvUInt32>(KVDA_MAX_TEXT));
    EXPECT_EQ(Ours::mostChunk, static_cast<KvUInt32>(KVDA_MAX_CHUNK));
    EXPECT_EQ(Ours::mostErrors, static_cast<KvUInt32>(KVDA_MAX_ERRORS));
    EXPECT_EQ(Ours::mostFiles, static_cast<KvUInt32>(KVDA_MAX_FILES));
}

/* One more than each bound: ours refuses to write it, and to read it from bytes that claim it. */
TEST(DeviceAccessRecords, boundsAreKept)
{
    const std::string tooLong(256, 'x');
    Ours::KvdaFileName name{1, text("d"), text(tooLong.c_str())};
    EXPECT_TRUE(encodeOurs(Ours::xdr_KvdaFileName, name).empty());
    const std::string longest(255, 'x');
    name.fileName = text(longest.c_str());
    EXPECT_FALSE(encodeOurs(Ours::xdr_KvdaFileName, name).empty());

    std::vector<char> bytes(1048577, 'e');
    Ours::KvdaResult result;
    result.errorList = {bytes.data(), 65537};
    EXPECT_TRUE(encodeOurs(Ours::xdr_KvdaResult, result).empty());
    Ours::KvdaPutData data;
    data.data = {bytes.data(), 1048577};
    EXPECT_TRUE(encodeOurs(Ours::xdr_KvdaPutData, data).empty());

    std::vector<Ours::KvdaHolder> holders(65, Ours::KvdaHolder{1, text(""), 0, 0, 0});
    Ours::KvdaAccessState state;
    state.holders = holders.data();
    state.holderCount = 65;
    EXPECT_TRUE(encodeOurs(Ours::xdr_KvdaAccessState, state).empty());
    state.holderCount = 64;
    EXPECT_FALSE(encodeOurs(Ours::xdr_KvdaAccessState, state).empty());

    std::vector<Ours::KvdaFile> files(4097, Ours::KvdaFile{text(""), text(""), 0, 0});
    Ours::KvdaFileList list;
    list.files = files.data();
    list.fileCount = 4097;
    EXPECT_TRUE(encodeOurs(Ours::xdr_KvdaFileList, list).empty());
}

TEST(DeviceAccessRecords, aDecodedRecordMustUseAllItsBytes)
{
    Ours::KvdaResult record;
    Bytes bytes = encodeOurs(Ours::xdr_KvdaResult, record);
    EXPECT_TRUE(Ours::DecodedResult().from(bytes.data(), bytes.size()));
    bytes.resize(bytes.size() + 4);
    EXPECT_FALSE(Ours::DecodedResult().from(bytes.data(), bytes.size()));
}
