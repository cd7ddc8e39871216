#include <cstring>

#include "Operation.h"
#include "manager/rpc/InventoryRecords.h"
#include "platform/oncrpc/KvXdr.h"

/* The primitives of the wire and the records made of them: what is encoded comes back the same, or the routine says
   that it failed and that memory was the reason, and what was decoded until then can be freed. */

namespace {

using namespace KvNXdr;

/** Encodes with `routine` into a block that grows, decodes that into another object, and encodes this one too. */
struct Encoded
{
    std::string bytes;
    bool hasFailed = false;

    /** False when memory was out. */
    template <class Record>
    bool both(xdrproc_t routine, Record& record)
    {
        XDR out;
        xdrgrow_create(&out, 1 << 20);
        const bool encoded = routine(&out, &record) != 0;
        bool good = encoded || out.x_outOfMemory;
        bool whole = false;
        if (encoded) {
            Record back{};
            XDR in;
            const std::size_t size = xdrmem_used(&out);
            xdrmem_create(&in, reinterpret_cast<char*>(out.x_base), size, XDR_DECODE);
            whole = routine(&in, &back) != 0;
            good = whole ? xdrmem_left(&in) == 0 && isSame(routine, back, out, size) : in.x_outOfMemory;
            xdr_free(routine, &back);
        }
        xdrgrow_destroy(&out);
        if (!good)
            hasFailed = true;
        return encoded && whole;
    }
    template <class Record>
    bool isSame(xdrproc_t routine, Record& back, const XDR& out, std::size_t size)
    {
        char room[1024];
        XDR again;
        xdrmem_create(&again, room, sizeof room, XDR_ENCODE);
        return routine(&again, &back) != 0 && xdrmem_used(&again) == size && std::memcmp(room, out.x_base, size) == 0;
    }
};

std::string told(Encoded& encoded)
{
    return encoded.hasFailed ? "wrong" : "right";
}

/** One of each primitive. */
struct Everything
{
    KvInt32 number;
    KvUInt32 counted;
    enum_t kind;
    bool_t flag;
    char character;
    unsigned char byte;
    short small;
    unsigned short port;
    KvInt64 wide;
    KvUInt64 size;
    float single;
    double real;
    char opaque[5];
    char* bytes;
    KvUInt32 byteCount;
    char* text;
    char* elements;
    KvUInt32 elementCount;
};

bool_t xdr_everything(XDR* xdrs, Everything* all)
{
    return xdr_void(xdrs, nullptr) && xdr_int(xdrs, &all->number) && xdr_u_int(xdrs, &all->counted) &&
           xdr_enum(xdrs, &all->kind) && xdr_bool(xdrs, &all->flag) && xdr_char(xdrs, &all->character) &&
           xdr_u_char(xdrs, &all->byte) && xdr_short(xdrs, &all->small) && xdr_u_short(xdrs, &all->port) &&
           xdr_quad_t(xdrs, &all->wide) && xdr_u_quad_t(xdrs, &all->size) && xdr_float(xdrs, &all->single) &&
           xdr_double(xdrs, &all->real) && xdr_opaque(xdrs, all->opaque, 5) &&
           xdr_bytes(xdrs, &all->bytes, &all->byteCount, 1000) && xdr_string(xdrs, &all->text, 1000) &&
           xdr_array(xdrs, &all->elements, &all->elementCount, 100, sizeof(KvUInt32), proc<xdr_u_int>);
}

char g_text[] = "a text that travels";
KvUInt32 g_numbers[] = {1, 2, 3, 4, 5, 6};
const KvInventoryManagerRpcIFInventoryAddress g_address = {3, 6, g_numbers};
const KvNInventoryRpc::Opaque g_opaque = {19, g_text};
const KvNInventoryRpc::Characters g_characters = {19, g_text};

/** A record of one kind, both ways. */
#define KV_RECORD_ROW(Record, ...)                                         \
    table.add<Encoded>(                                                    \
        "xdr_" #Record,                                                    \
        [](Encoded& encoded, KvCErrorListPool&) {                          \
            Record record __VA_ARGS__;                                     \
            return encoded.both(KvNInventoryRpc::routine<Record>, record); \
        },                                                                 \
        told, Says::ByResult)

void addArgumentRows(Table& table)
{
    KV_RECORD_ROW(KvInventoryManagerRpcIFInventoryAddress, (g_address));
    KV_RECORD_ROW(KvInventoryManagerRpcIFParameterValue, {0x2000, g_opaque});
    KV_RECORD_ROW(KvInventoryManagerRpcIFScanArguments, {1});
    KV_RECORD_ROW(KvInventoryManagerRpcIFWriteParameterValueArguments, {g_address, 7, {0x2000, g_opaque}});
    KV_RECORD_ROW(KvInventoryManagerRpcIFAccessArguments, {g_address, 7});
    KV_RECORD_ROW(KvInventoryManagerRpcIFUpdateArguments,
                  {g_address, 7, g_text, KvInventoryManagerRpcIFFirmwareType{}, 12});
    KV_RECORD_ROW(KvInventoryManagerRpcIFCheckAuthorityArguments, {g_address, 7, 8});
    KV_RECORD_ROW(KvInventoryManagerRpcIFUpdate2Arguments, {g_address, 7, 8, g_text, 12});
    KV_RECORD_ROW(KvInventoryManagerRpcIFUpdateStatus2Arguments, {g_address, 7});
    KV_RECORD_ROW(KvInventoryManagerRpcIFUpdateErrors2Arguments, {g_address, 7, 8});
}

void addResultRows(Table& table)
{
    KV_RECORD_ROW(KvInventoryManagerRpcIFStatusResult, {0, g_opaque});
    KV_RECORD_ROW(KvInventoryManagerRpcIFScanResult, {0, g_opaque, g_opaque});
    KV_RECORD_ROW(KvInventoryManagerRpcIFReadParameterResult, {0, g_opaque, g_opaque});
    KV_RECORD_ROW(KvInventoryManagerRpcIFLocalAddressResult, {g_address, g_opaque});
    KV_RECORD_ROW(KvInventoryManagerRpcIFUpdateStatusResult,
                  {0, KvInventoryManagerRpcIFUpdateState{}, KvInventoryManagerRpcIFFirmwareType{}, 1, 2, g_opaque});
    KV_RECORD_ROW(KvInventoryManagerRpcIFRemoteFilenameResult, {0, g_characters, g_characters, g_opaque});
    KV_RECORD_ROW(KvInventoryManagerRpcIFCheckAuthorityResult, {0, 1, g_opaque});
    KV_RECORD_ROW(KvInventoryManagerRpcIFUpdateStatus2Result, {0, 1, 2, 3, 4, g_opaque});
    KV_RECORD_ROW(KvInventoryManagerRpcIFUpdateErrors2Result, {0, g_opaque, g_opaque});
}

}  // namespace

void addXdrRows(Table& table)
{
    table.add<Encoded>(
        "KvNXdr::xdr_void KvNXdr::xdr_int KvNXdr::xdr_u_int KvNXdr::xdr_enum KvNXdr::xdr_bool KvNXdr::xdr_char "
        "KvNXdr::xdr_u_char KvNXdr::xdr_short KvNXdr::xdr_u_short KvNXdr::xdr_quad_t KvNXdr::xdr_u_quad_t "
        "KvNXdr::xdr_float KvNXdr::xdr_double KvNXdr::xdr_opaque KvNXdr::xdr_bytes KvNXdr::xdr_string "
        "KvNXdr::xdr_array KvNXdr::xdr_free KvNXdr::xdrmem_create KvNXdr::xdrgrow_create KvNXdr::xdrgrow_destroy",
        [](Encoded& encoded, KvCErrorListPool&) {
            Everything all = {-1,
                              2,
                              3,
                              1,
                              'c',
                              4,
                              -5,
                              6,
                              -7,
                              8,
                              1.5F,
                              2.5,
                              {1, 2, 3, 4, 5},
                              g_text,
                              19,
                              g_text,
                              reinterpret_cast<char*>(g_numbers),
                              6};
            return encoded.both(proc<xdr_everything>, all);
        },
        told, Says::ByResult);
    table.add<Encoded>(
        "KvNXdr::xdr_bytesInPlace xdr_KvInventoryManagerRpcIFNumber xdr_KvInventoryManagerRpcIFUpdateState "
        "xdr_KvInventoryManagerRpcIFFirmwareType",
        [](Encoded&, KvCErrorListPool&) {
            char bytes[] = {0, 0, 0, 4, 'a', 'b', 'c', 'd', 0, 0, 0, 7, 0, 0, 0, 8, 0, 0, 0, 9};
            XDR in;
            xdrmem_create(&in, bytes, sizeof bytes, XDR_DECODE);
            const char* place = nullptr;
            KvUInt32 size = 0;
            KvUInt32 number = 0;
            KvInventoryManagerRpcIFUpdateState state{};
            KvInventoryManagerRpcIFFirmwareType type{};
            return xdr_bytesInPlace(&in, &place, &size, 100) && place == bytes + 4 && size == 4 &&
                   xdr_KvInventoryManagerRpcIFNumber(&in, &number) && number == 7 &&
                   xdr_KvInventoryManagerRpcIFUpdateState(&in, &state) &&
                   xdr_KvInventoryManagerRpcIFFirmwareType(&in, &type) && type == 9;
        },
        told);
    addArgumentRows(table);
    addResultRows(table);
}
