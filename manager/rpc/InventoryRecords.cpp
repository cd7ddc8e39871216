#include "manager/rpc/InventoryRecords.h"

using KvNInventoryRpc::Characters;
using KvNInventoryRpc::Opaque;
using KvNXdr::bool_t;
using KvNXdr::XDR;

namespace {

constexpr KvUInt32 Unbounded = 0xFFFFFFFF;

bool_t field(XDR* xdrs, KvUInt32& value)
{
    return KvNXdr::xdr_u_int(xdrs, &value);
}

bool_t field(XDR* xdrs, KvUInt64& value)
{
    return KvNXdr::xdr_u_quad_t(xdrs, &value);
}

bool_t field(XDR* xdrs, unsigned char& value)
{
    return KvNXdr::xdr_u_char(xdrs, &value);
}

bool_t field(XDR* xdrs, char*& text)
{
    return KvNXdr::xdr_string(xdrs, &text, Unbounded);
}

bool_t field(XDR* xdrs, Opaque& bytes)
{
    return KvNXdr::xdr_bytes(xdrs, &bytes.data, &bytes.length, Unbounded);
}

bool_t field(XDR* xdrs, Characters& text)
{
    return KvNXdr::xdr_array(xdrs, &text.data, &text.length, Unbounded, sizeof(char), KvNXdr::proc<KvNXdr::xdr_char>);
}

bool_t field(XDR* xdrs, KvInventoryManagerRpcIFUpdateState& state)
{
    return xdr_KvInventoryManagerRpcIFUpdateState(xdrs, &state);
}

bool_t field(XDR* xdrs, KvInventoryManagerRpcIFFirmwareType& type)
{
    return xdr_KvInventoryManagerRpcIFFirmwareType(xdrs, &type);
}

bool_t field(XDR* xdrs, KvInventoryManagerRpcIFInventoryAddress& address)
{
    return xdr_KvInventoryManagerRpcIFInventoryAddress(xdrs, &address);
}

bool_t field(XDR* xdrs, KvInventoryManagerRpcIFParameterValue& value)
{
    return xdr_KvInventoryManagerRpcIFParameterValue(xdrs, &value);
}

/** The fields in order, up to the first that fails. Freeing never fails, and so reaches all of them. */
template <class... Fields>
bool_t fieldsOf(XDR* xdrs, Fields&... each)
{
    return (field(xdrs, each) && ...) ? 1 : 0;
}

template <class Enumeration>
bool_t enumeration(XDR* xdrs, Enumeration& value)
{
    KvNXdr::enum_t number = value;
    const bool_t done = KvNXdr::xdr_enum(xdrs, &number);
    value = static_cast<Enumeration>(number);
    return done;
}

}  // namespace

bool_t xdr_KvInventoryManagerRpcIFNumber(XDR* xdrs, KvInventoryManagerRpcIFNumber* record)
{
    return field(xdrs, *record);
}

bool_t xdr_KvInventoryManagerRpcIFUpdateState(XDR* xdrs, KvInventoryManagerRpcIFUpdateState* record)
{
    return enumeration(xdrs, *record);
}

bool_t xdr_KvInventoryManagerRpcIFFirmwareType(XDR* xdrs, KvInventoryManagerRpcIFFirmwareType* record)
{
    return enumeration(xdrs, *record);
}

bool_t xdr_KvInventoryManagerRpcIFInventoryAddress(XDR* xdrs, KvInventoryManagerRpcIFInventoryAddress* record)
{
    char* values = reinterpret_cast<char*>(record->values);
    const bool_t done =
        field(xdrs, record->elementCount) && KvNXdr::xdr_array(xdrs, &values, &record->valueCount, Unbounded,
                                                               sizeof(KvUInt32), KvNXdr::proc<KvNXdr::xdr_u_int>);
    record->values = reinterpret_cast<KvUInt32*>(values);
    return done;
}

bool_t xdr_KvInventoryManagerRpcIFParameterValue(XDR* xdrs, KvInventoryManagerRpcIFParameterValue* record)
{
    return fieldsOf(xdrs, record->type, record->data);
}

bool_t xdr_KvInventoryManagerRpcIFScanArguments(XDR* xdrs, KvInventoryManagerRpcIFScanArguments* record)
{
    return fieldsOf(xdrs, record->flag);
}

bool_t xdr_KvInventoryManagerRpcIFWriteParameterValueArguments(
    XDR* xdrs, KvInventoryManagerRpcIFWriteParameterValueArguments* record)
{
    return fieldsOf(xdrs, record->address, record->accessId, record->value);
}

bool_t xdr_KvInventoryManagerRpcIFAccessArguments(XDR* xdrs, KvInventoryManagerRpcIFAccessArguments* record)
{
    return fieldsOf(xdrs, record->address, record->accessId);
}

bool_t xdr_KvInventoryManagerRpcIFUpdateArguments(XDR* xdrs, KvInventoryManagerRpcIFUpdateArguments* record)
{
    return fieldsOf(xdrs, record->address, record->accessId, record->fileName, record->firmwareType, record->size);
}

bool_t xdr_KvInventoryManagerRpcIFCheckAuthorityArguments(XDR* xdrs,
                                                          KvInventoryManagerRpcIFCheckAuthorityArguments* record)
{
    return fieldsOf(xdrs, record->address, record->accessId, record->right);
}

bool_t xdr_KvInventoryManagerRpcIFUpdate2Arguments(XDR* xdrs, KvInventoryManagerRpcIFUpdate2Arguments* record)
{
    return fieldsOf(xdrs, record->address, record->accessId, record->kind, record->fileName, record->size);
}

bool_t xdr_KvInventoryManagerRpcIFUpdateStatus2Arguments(XDR* xdrs,
                                                         KvInventoryManagerRpcIFUpdateStatus2Arguments* record)
{
    return fieldsOf(xdrs, record->address, record->selector);
}

bool_t xdr_KvInventoryManagerRpcIFUpdateErrors2Arguments(XDR* xdrs,
                                                         KvInventoryManagerRpcIFUpdateErrors2Arguments* record)
{
    return fieldsOf(xdrs, record->address, record->accessId, record->index);
}

bool_t xdr_KvInventoryManagerRpcIFStatusResult(XDR* xdrs, KvInventoryManagerRpcIFStatusResult* record)
{
    return fieldsOf(xdrs, record->status, record->errorList);
}

bool_t xdr_KvInventoryManagerRpcIFScanResult(XDR* xdrs, KvInventoryManagerRpcIFScanResult* record)
{
    return fieldsOf(xdrs, record->status, record->tree, record->errorList);
}

bool_t xdr_KvInventoryManagerRpcIFScanReply(XDR* xdrs, KvInventoryManagerRpcIFScanReply* record)
{
    if (xdrs->x_op == KvNXdr::XDR_FREE)
        return field(xdrs, record->errorList);
    if (xdrs->x_op != KvNXdr::XDR_DECODE)
        return 0;
    record->receiver->onReply();
    const char* tree = nullptr;
    if (!field(xdrs, record->status) || !KvNXdr::xdr_bytesInPlace(xdrs, &tree, &record->treeLength, Unbounded) ||
        !field(xdrs, record->errorList))
        return 0;
    if (record->treeLength != 0)
        record->receiver->onTree(tree, record->treeLength);
    return 1;
}

bool_t xdr_KvInventoryManagerRpcIFReadParameterResult(XDR* xdrs, KvInventoryManagerRpcIFReadParameterResult* record)
{
    return fieldsOf(xdrs, record->status, record->parameter, record->errorList);
}

bool_t xdr_KvInventoryManagerRpcIFLocalAddressResult(XDR* xdrs, KvInventoryManagerRpcIFLocalAddressResult* record)
{
    return fieldsOf(xdrs, record->address, record->errorList);
}

bool_t xdr_KvInventoryManagerRpcIFUpdateStatusResult(XDR* xdrs, KvInventoryManagerRpcIFUpdateStatusResult* record)
{
    return fieldsOf(xdrs, record->status, record->updateState, record->firmwareType, record->value1, record->value2,
                    record->errorList);
}

bool_t xdr_KvInventoryManagerRpcIFRemoteFilenameResult(XDR* xdrs, KvInventoryManagerRpcIFRemoteFilenameResult* record)
{
    return fieldsOf(xdrs, record->status, record->directory, record->fileName, record->errorList);
}

bool_t xdr_KvInventoryManagerRpcIFCheckAuthorityResult(XDR* xdrs, KvInventoryManagerRpcIFCheckAuthorityResult* record)
{
    return fieldsOf(xdrs, record->status, record->allowed, record->errorList);
}

bool_t xdr_KvInventoryManagerRpcIFUpdateStatus2Result(XDR* xdrs, KvInventoryManagerRpcIFUpdateStatus2Result* record)
{
    return fieldsOf(xdrs, record->status, record->value1, record->value2, record->value3, record->value4,
                    record->errorList);
}

bool_t xdr_KvInventoryManagerRpcIFUpdateErrors2Result(XDR* xdrs, KvInventoryManagerRpcIFUpdateErrors2Result* record)
{
    return fieldsOf(xdrs, record->status, record->errors, record->errorList);
}
