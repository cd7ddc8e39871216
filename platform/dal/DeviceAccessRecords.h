#pragma once

#include "platform/KvTypes.h"
#include "platform/dal/DeviceAccessProgram.h"
#include "platform/oncrpc/KvXdr.h"

/**
 * The wire of a board's device access service, program 0x20004B56 version 1, as its client sees it: one record and
 * one XDR routine for each record. Fields travel in the order in which they stand here. Records never
 * change within a version. Pointers of decoded records are given back with xdr_free().
 */
namespace KvNDeviceAccess {

constexpr KvUInt32 mostText = 255;
constexpr KvUInt32 mostChunk = 1048576;
constexpr KvUInt32 mostErrors = 65536;
constexpr KvUInt32 mostFiles = 4096;
constexpr KvUInt32 mostHolders = 64;

/** Bytes with their count. */
struct KvdaBytes
{
    char* data = nullptr;
    KvUInt32 size = 0;
};

struct KvdaIdentity
{
    KvUInt32 serialNumber = 0;
    KvUInt32 boardType = 0;
    char* boardName = nullptr;
    char* systemName = nullptr;
    KvUInt64 bootId = 0;    // new at each start of the service
    KvUInt32 maxChunk = 0;  // largest data of one PutData
    KvUInt32 features = 0;
    KvdaBytes errorList;
};

struct KvdaAccessRequest
{
    KvInt32 level = 0;
    KvUInt32 accessId = 0;  // 0: a new lock
    KvUInt64 nonce = 0;
    char* owner = nullptr;
};

struct KvdaAccess
{
    KvInt32 status = 0;
    KvUInt32 accessId = 0;
    KvUInt32 leaseSeconds = 0;
    char* owner = nullptr;  // of a refusal: who holds the board
    KvdaBytes errorList;
};

struct KvdaResult
{
    KvInt32 status = 0;
    KvdaBytes errorList;
};

struct KvdaHolder
{
    KvInt32 level = 0;
    char* owner = nullptr;
    KvUInt32 address = 0;
    KvUInt32 secondsHeld = 0;
    KvUInt32 secondsLeft = 0;
};

struct KvdaAccessState
{
    KvInt32 status = 0;
    KvdaHolder* holders = nullptr;
    KvUInt32 holderCount = 0;
    KvdaBytes errorList;
};

struct KvdaPutBegin
{
    KvUInt32 accessId = 0;
    char* directory = nullptr;
    char* fileName = nullptr;
    KvUInt64 size = 0;
};

struct KvdaTransfer
{
    KvInt32 status = 0;
    KvUInt32 transferId = 0;
    KvdaBytes errorList;
};

struct KvdaPutData
{
    KvUInt32 accessId = 0;
    KvUInt32 transferId = 0;
    KvUInt64 offset = 0;
    KvdaBytes data;
};

struct KvdaReceived
{
    KvInt32 status = 0;
    KvUInt64 received = 0;
    KvdaBytes errorList;
};

struct KvdaPutEnd
{
    KvUInt32 accessId = 0;
    KvUInt32 transferId = 0;
    KvUInt32 crc32 = 0;
};

struct KvdaPutAbort
{
    KvUInt32 accessId = 0;
    KvUInt32 transferId = 0;
};

struct KvdaFileName
{
    KvUInt32 accessId = 0;
    char* directory = nullptr;
    char* fileName = nullptr;
};

struct KvdaFile
{
    char* directory = nullptr;
    char* fileName = nullptr;
    KvUInt64 size = 0;
    KvUInt64 modified = 0;
};

struct KvdaFileList
{
    KvInt32 status = 0;
    KvdaFile* files = nullptr;
    KvUInt32 fileCount = 0;
    KvUInt64 freeBytes = 0;
    KvdaBytes errorList;
};

KvNXdr::bool_t xdr_KvdaIdentity(KvNXdr::XDR* xdrs, KvdaIdentity* record);
KvNXdr::bool_t xdr_KvdaAccessRequest(KvNXdr::XDR* xdrs, KvdaAccessRequest* record);
KvNXdr::bool_t xdr_KvdaAccess(KvNXdr::XDR* xdrs, KvdaAccess* record);
KvNXdr::bool_t xdr_KvdaResult(KvNXdr::XDR* xdrs, KvdaResult* record);
KvNXdr::bool_t xdr_KvdaHolder(KvNXdr::XDR* xdrs, KvdaHolder* record);
KvNXdr::bool_t xdr_KvdaAccessState(KvNXdr::XDR* xdrs, KvdaAccessState* record);
KvNXdr::bool_t xdr_KvdaPutBegin(KvNXdr::XDR* xdrs, KvdaPutBegin* record);
KvNXdr::bool_t xdr_KvdaTransfer(KvNXdr::XDR* xdrs, KvdaTransfer* record);
KvNXdr::bool_t xdr_KvdaPutData(KvNXdr::XDR* xdrs, KvdaPutData* record);
KvNXdr::bool_t xdr_KvdaReceived(KvNXdr::XDR* xdrs, KvdaReceived* record);
KvNXdr::bool_t xdr_KvdaPutEnd(KvNXdr::XDR* xdrs, KvdaPutEnd* record);
KvNXdr::bool_t xdr_KvdaPutAbort(KvNXdr::XDR* xdrs, KvdaPutAbort* record);
KvNXdr::bool_t xdr_KvdaFileName(KvNXdr::XDR* xdrs, KvdaFileName* record);
KvNXdr::bool_t xdr_KvdaFile(KvNXdr::XDR* xdrs, KvdaFile* record);
KvNXdr::bool_t xdr_KvdaFileList(KvNXdr::XDR* xdrs, KvdaFileList* record);

/** A record whose decoded parts are given back at the end of its scope. */
template <class Record, KvNXdr::bool_t (*Routine)(KvNXdr::XDR*, Record*)>
struct Decoded : Record
{
    static constexpr KvNXdr::xdrproc_t routine = KvNXdr::proc<Routine>;

    Decoded() = default;
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;
    ~Decoded() { KvNXdr::xdr_free(routine, static_cast<Record*>(this)); }

    /** From all of `count` bytes; false when they are no such record or more follows. */
    bool from(const unsigned char* bytes, std::size_t count)
    {
        KvNXdr::XDR xdrs;
        // a decoding stream only reads
        auto* start = const_cast<char*>(reinterpret_cast<const char*>(bytes));
        KvNXdr::xdrmem_create(&xdrs, start, count, KvNXdr::XDR_DECODE);
        return Routine(&xdrs, this) && KvNXdr::xdrmem_left(&xdrs) == 0;
    }
};

using DecodedIdentity = Decoded<KvdaIdentity, xdr_KvdaIdentity>;
using DecodedAccess = Decoded<KvdaAccess, xdr_KvdaAccess>;
using DecodedResult = Decoded<KvdaResult, xdr_KvdaResult>;
using DecodedTransfer = Decoded<KvdaTransfer, xdr_KvdaTransfer>;
using DecodedReceived = Decoded<KvdaReceived, xdr_KvdaReceived>;
using DecodedFileList = Decoded<KvdaFileList, xdr_KvdaFileList>;

}  // namespace KvNDeviceAccess
