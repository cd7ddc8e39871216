#include "platform/dal/DeviceAccessRecords.h"

namespace KvNDeviceAccess {

using KvNXdr::bool_t;
using KvNXdr::XDR;
using KvNXdr::xdr_enum;
using KvNXdr::xdr_u_int;
using KvNXdr::xdr_u_quad_t;

namespace {

/* Bytes that the smallest holder and the smallest file take. */
constexpr KvUInt32 leastHolder = 20;
constexpr KvUInt32 leastFile = 24;

bool_t xdrText(XDR* xdrs, char** text)
{
    return KvNXdr::xdr_string(xdrs, text, mostText);
}

bool_t xdrBytes(XDR* xdrs, KvdaBytes* bytes, KvUInt32 most)
{
    return KvNXdr::xdr_bytes(xdrs, &bytes->data, &bytes->size, most);
}

template <class T, bool_t (*Routine)(XDR*, T*)>
bool_t xdrList(XDR* xdrs, T** elements, KvUInt32* count, KvUInt32 most, KvUInt32 least)
{
    // kept as bytes for the primitive, which counts in them
    auto* bytes = reinterpret_cast<char*>(*elements);
    const bool_t done = KvNXdr::xdr_array(xdrs, &bytes, count, most, sizeof(T), KvNXdr::proc<Routine>, least);
    *elements = reinterpret_cast<T*>(bytes);
    return done;
}

}  // namespace

bool_t xdr_KvdaIdentity(XDR* xdrs, KvdaIdentity* record)
{
    return xdr_u_int(xdrs, &record->serialNumber) && xdr_u_int(xdrs, &record->boardType) &&
           xdrText(xdrs, &record->boardName) && xdrText(xdrs, &record->systemName) &&
           xdr_u_quad_t(xdrs, &record->bootId) && xdr_u_int(xdrs, &record->maxChunk) &&
           xdr_u_int(xdrs, &record->features) && xdrBytes(xdrs, &record->errorList, mostErrors);
}

bool_t xdr_KvdaAccessRequest(XDR* xdrs, KvdaAccessRequest* record)
{
    return xdr_enum(xdrs, &record->level) && xdr_u_int(xdrs, &record->accessId) && xdr_u_quad_t(xdrs, &record->nonce) &&
           xdrText(xdrs, &record->owner);
}

bool_t xdr_KvdaAccess(XDR* xdrs, KvdaAccess* record)
{
    return xdr_enum(xdrs, &record->status) && xdr_u_int(xdrs, &record->accessId) &&
           xdr_u_int(xdrs, &record->leaseSeconds) && xdrText(xdrs, &record->owner) &&
           xdrBytes(xdrs, &record->errorList, mostErrors);
}

bool_t xdr_KvdaResult(XDR* xdrs, KvdaResult* record)
{
    return xdr_enum(xdrs, &record->status) && xdrBytes(xdrs, &record->errorList, mostErrors);
}

bool_t xdr_KvdaHolder(XDR* xdrs, KvdaHolder* record)
{
    return xdr_enum(xdrs, &record->level) && xdrText(xdrs, &record->owner) && xdr_u_int(xdrs, &record->address) &&
           xdr_u_int(xdrs, &record->secondsHeld) && xdr_u_int(xdrs, &record->secondsLeft);
}

bool_t xdr_KvdaAccessState(XDR* xdrs, KvdaAccessState* record)
{
    return xdr_enum(xdrs, &record->status) &&
           xdrList<KvdaHolder, xdr_KvdaHolder>(xdrs, &record->holders, &record->holderCount, mostHolders,
                                               leastHolder) &&
           xdrBytes(xdrs, &record->errorList, mostErrors);
}

bool_t xdr_KvdaPutBegin(XDR* xdrs, KvdaPutBegin* record)
{
    return xdr_u_int(xdrs, &record->accessId) && xdrText(xdrs, &record->directory) &&
           xdrText(xdrs, &record->fileName) && xdr_u_quad_t(xdrs, &record->size);
}

bool_t xdr_KvdaTransfer(XDR* xdrs, KvdaTransfer* record)
{
    return xdr_enum(xdrs, &record->status) && xdr_u_int(xdrs, &record->transferId) &&
           xdrBytes(xdrs, &record->errorList, mostErrors);
}

bool_t xdr_KvdaPutData(XDR* xdrs, KvdaPutData* record)
{
    return xdr_u_int(xdrs, &record->accessId) && xdr_u_int(xdrs, &record->transferId) &&
           xdr_u_quad_t(xdrs, &record->offset) && xdrBytes(xdrs, &record->data, mostChunk);
}

bool_t xdr_KvdaReceived(XDR* xdrs, KvdaReceived* record)
{
    return xdr_enum(xdrs, &record->status) && xdr_u_quad_t(xdrs, &record->received) &&
           xdrBytes(xdrs, &record->errorList, mostErrors);
}

bool_t xdr_KvdaPutEnd(XDR* xdrs, KvdaPutEnd* record)
{
    return xdr_u_int(xdrs, &record->accessId) && xdr_u_int(xdrs, &record->transferId) &&
           xdr_u_int(xdrs, &record->crc32);
}

bool_t xdr_KvdaPutAbort(XDR* xdrs, KvdaPutAbort* record)
{
    return xdr_u_int(xdrs, &record->accessId) && xdr_u_int(xdrs, &record->transferId);
}

bool_t xdr_KvdaFileName(XDR* xdrs, KvdaFileName* record)
{
    return xdr_u_int(xdrs, &record->accessId) && xdrText(xdrs, &record->directory) && xdrText(xdrs, &record->fileName);
}

bool_t xdr_KvdaFile(XDR* xdrs, KvdaFile* record)
{
    return xdrText(xdrs, &record->directory) && xdrText(xdrs, &record->fileName) && xdr_u_quad_t(xdrs, &record->size) &&
           xdr_u_quad_t(xdrs, &record->modified);
}

bool_t xdr_KvdaFileList(XDR* xdrs, KvdaFileList* record)
{
    return xdr_enum(xdrs, &record->status) &&
           xdrList<KvdaFile, xdr_KvdaFile>(xdrs, &record->files, &record->fileCount, mostFiles, leastFile) &&
           xdr_u_quad_t(xdrs, &record->freeBytes) && xdrBytes(xdrs, &record->errorList, mostErrors);
}

}  // namespace KvNDeviceAccess
