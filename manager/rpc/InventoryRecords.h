#pragma once

#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/oncrpc/KvXdr.h"

/*
 * The wire records of the inventory manager service: what they hold in memory, and one XDR routine for each. Fields
 * travel in the order in which they stand here. Lengths have no bound of the protocol's own.
 * What decoding allocated is given back by the routine with XDR_FREE (KvCRpcClient::freeResults); the pointers in an
 * argument record stay their owner's.
 */

namespace KvNInventoryRpc {

/** The XDR routine of a record, of which the type says enough. */
template <class Record>
inline constexpr KvNXdr::xdrproc_t routine = nullptr;

/** Counted bytes, `opaque<>`. */
struct Opaque
{
    KvUInt32 length;
    char* data;
};

/** Counted characters of which each travels in four bytes, `char<>`; no terminator. */
struct Characters
{
    KvUInt32 length;
    char* data;
};

}  // namespace KvNInventoryRpc

#define KV_WIRE_ROUTINE(Record)                                               \
    KV_EXPORT KvNXdr::bool_t xdr_##Record(KvNXdr::XDR* xdrs, Record* record); \
    template <>                                                               \
    inline constexpr KvNXdr::xdrproc_t KvNInventoryRpc::routine<Record> = KvNXdr::proc<xdr_##Record>;

/** A plain number. */
using KvInventoryManagerRpcIFNumber = KvUInt32;
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFNumber)

/** How far an update is, in the service's numbering. */
enum KvInventoryManagerRpcIFUpdateState : KvInt32
{
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFUpdateState)

/** What an update replaces, in the service's numbering (the second column of manager/FirmwareTypes.def). */
enum KvInventoryManagerRpcIFFirmwareType : KvInt32
{
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFFirmwareType)

/** An inventory address: category and index of each element, the outermost first. A good one has exactly two values for
    each element. */
struct KvInventoryManagerRpcIFInventoryAddress
{
    KvUInt32 elementCount;
    KvUInt32 valueCount;
    KvUInt32* values;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFInventoryAddress)

/** A typed value: type code and bytes, the most significant first. */
struct KvInventoryManagerRpcIFParameterValue
{
    KvUInt32 type;
    KvNInventoryRpc::Opaque data;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFParameterValue)

struct KvInventoryManagerRpcIFScanArguments
{
    unsigned char flag;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFScanArguments)

struct KvInventoryManagerRpcIFWriteParameterValueArguments
{
    KvInventoryManagerRpcIFInventoryAddress address;
    KvUInt32 accessId;
    KvInventoryManagerRpcIFParameterValue value;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFWriteParameterValueArguments)

/** What every procedure takes that needs an address and a lock, and nothing else. */
struct KvInventoryManagerRpcIFAccessArguments
{
    KvInventoryManagerRpcIFInventoryAddress address;
    KvUInt32 accessId;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFAccessArguments)

struct KvInventoryManagerRpcIFUpdateArguments
{
    KvInventoryManagerRpcIFInventoryAddress address;
    KvUInt32 accessId;
    char* fileName;
    KvInventoryManagerRpcIFFirmwareType firmwareType;
    KvUInt64 size;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFUpdateArguments)

struct KvInventoryManagerRpcIFCheckAuthorityArguments
{
    KvInventoryManagerRpcIFInventoryAddress address;
    KvUInt32 accessId;
    KvUInt32 right;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFCheckAuthorityArguments)

struct KvInventoryManagerRpcIFUpdate2Arguments
{
    KvInventoryManagerRpcIFInventoryAddress address;
    KvUInt32 accessId;
    KvUInt32 kind;
    char* fileName;
    KvUInt64 size;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFUpdate2Arguments)

struct KvInventoryManagerRpcIFUpdateStatus2Arguments
{
    KvInventoryManagerRpcIFInventoryAddress address;
    KvUInt32 selector;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFUpdateStatus2Arguments)

struct KvInventoryManagerRpcIFUpdateErrors2Arguments
{
    KvInventoryManagerRpcIFInventoryAddress address;
    KvUInt32 accessId;
    KvUInt32 index;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFUpdateErrors2Arguments)

/** The result of every procedure that says no more than whether it was done: 0. */
struct KvInventoryManagerRpcIFStatusResult
{
    KvUInt32 status;
    KvNInventoryRpc::Opaque errorList;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFStatusResult)

struct KvInventoryManagerRpcIFScanResult
{
    KvUInt32 status;
    KvNInventoryRpc::Opaque tree;
    KvNInventoryRpc::Opaque errorList;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFScanResult)

namespace KvNInventoryRpc {

/** Takes a board's tree where it was received, on the thread that called. */
class TreeReceiver
{
public:
    /** A reply has come; called before memory is taken for what it holds. */
    virtual void onReply() = 0;
    /** The bytes of the tree, of a reply that has all its fields, when there are any; valid during this call only. */
    virtual void onTree(const char* bytes, KvUInt32 length) = 0;

protected:
    ~TreeReceiver() = default;
};

}  // namespace KvNInventoryRpc

/** A scan's result of which the tree goes to a receiver, so that it is not copied. For decoding only. */
struct KvInventoryManagerRpcIFScanReply
{
    KvUInt32 status;
    KvUInt32 treeLength;
    KvNInventoryRpc::Opaque errorList;
    KvNInventoryRpc::TreeReceiver* receiver;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFScanReply)

struct KvInventoryManagerRpcIFReadParameterResult
{
    KvUInt32 status;
    KvNInventoryRpc::Opaque parameter;
    KvNInventoryRpc::Opaque errorList;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFReadParameterResult)

struct KvInventoryManagerRpcIFLocalAddressResult
{
    KvInventoryManagerRpcIFInventoryAddress address;
    KvNInventoryRpc::Opaque errorList;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFLocalAddressResult)

struct KvInventoryManagerRpcIFUpdateStatusResult
{
    KvUInt32 status;
    KvInventoryManagerRpcIFUpdateState updateState;
    KvInventoryManagerRpcIFFirmwareType firmwareType;
    KvUInt32 value1;
    KvUInt32 value2;
    KvNInventoryRpc::Opaque errorList;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFUpdateStatusResult)

struct KvInventoryManagerRpcIFRemoteFilenameResult
{
    KvUInt32 status;
    KvNInventoryRpc::Characters directory;
    KvNInventoryRpc::Characters fileName;
    KvNInventoryRpc::Opaque errorList;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFRemoteFilenameResult)

struct KvInventoryManagerRpcIFCheckAuthorityResult
{
    KvUInt32 status;
    unsigned char allowed;
    KvNInventoryRpc::Opaque errorList;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFCheckAuthorityResult)

struct KvInventoryManagerRpcIFUpdateStatus2Result
{
    KvUInt32 status;
    KvUInt32 value1;
    KvUInt32 value2;
    KvUInt32 value3;
    KvUInt32 value4;
    KvNInventoryRpc::Opaque errorList;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFUpdateStatus2Result)

struct KvInventoryManagerRpcIFUpdateErrors2Result
{
    KvUInt32 status;
    KvNInventoryRpc::Opaque errors;
    KvNInventoryRpc::Opaque errorList;
};
KV_WIRE_ROUTINE(KvInventoryManagerRpcIFUpdateErrors2Result)

#undef KV_WIRE_ROUTINE
