#include "platform/oncrpc/KvXdr.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/errorhandling/KvCErrorList.h"

namespace KvNXdr {

namespace {

constexpr std::size_t unitBytes = 4;
constexpr std::size_t firstGrowth = 256;

constexpr std::size_t padding(std::size_t size)
{
    return (unitBytes - size % unitBytes) % unitBytes;
}

bool grow(XDR* xdrs, std::size_t bytes)
{
    const std::size_t used = xdrmem_used(xdrs);
    if (xdrs->x_limit < used || bytes > xdrs->x_limit - used)
        return false;
    const std::size_t wanted = std::min(std::max({firstGrowth, used + bytes, 2 * used}), xdrs->x_limit);
    void* block = KvNAllocation::reallocate(xdrs->x_base, wanted);
    if (block == nullptr) {
        xdrs->x_outOfMemory = true;
        return false;
    }
    xdrs->x_base = static_cast<unsigned char*>(block);
    xdrs->x_private = xdrs->x_base + used;
    xdrs->x_handy = wanted - used;
    return true;
}

/** The next `bytes` bytes of the stream, which moves behind them; false when there are fewer. */
bool advance(XDR* xdrs, std::size_t bytes, unsigned char** place)
{
    if (bytes > xdrs->x_handy && (xdrs->x_limit == 0 || !grow(xdrs, bytes)))
        return false;
    *place = xdrs->x_private;
    xdrs->x_private += bytes;
    xdrs->x_handy -= bytes;
    return true;
}

void* allocate(XDR* xdrs, std::size_t bytes)
{
    void* block = KvNAllocation::allocate(bytes);
    if (block == nullptr)
        xdrs->x_outOfMemory = true;
    return block;
}

bool_t putUnit(XDR* xdrs, KvUInt32 value)
{
    unsigned char* place = nullptr;
    if (!advance(xdrs, unitBytes, &place))
        return 0;
    for (unsigned i = 0; i < unitBytes; ++i)
        place[i] = static_cast<unsigned char>(value >> (24 - 8 * i));
    return 1;
}

bool_t getUnit(XDR* xdrs, KvUInt32* value)
{
    unsigned char* place = nullptr;
    if (!advance(xdrs, unitBytes, &place))
        return 0;
    KvUInt32 read = 0;
    for (unsigned i = 0; i < unitBytes; ++i)
        read = read << 8 | place[i];
    *value = read;
    return 1;
}

/** An integer of at most 32 bits as a unit; decoding takes what lies between `low` and `high`. */
template <class T>
bool_t smallInteger(XDR* xdrs, T* value, KvInt32 low, KvInt32 high)
{
    if (xdrs->x_op == XDR_ENCODE)
        return putUnit(xdrs, static_cast<KvUInt32>(static_cast<KvInt32>(*value)));
    if (xdrs->x_op == XDR_FREE)
        return 1;
    KvUInt32 unit = 0;
    if (!getUnit(xdrs, &unit))
        return 0;
    const KvInt32 read = static_cast<KvInt32>(unit);
    if (read < low || read > high)
        return 0;
    *value = static_cast<T>(read);
    return 1;
}

bool_t putPadded(XDR* xdrs, const char* bytes, std::size_t size)
{
    unsigned char* place = nullptr;
    if (!advance(xdrs, size, &place))
        return 0;
    // bytes may have been put where they belong before
    if (size != 0 && bytes != reinterpret_cast<const char*>(place))
        std::memcpy(place, bytes, size);
    const std::size_t rest = padding(size);
    if (rest == 0)
        return 1;
    if (!advance(xdrs, rest, &place))
        return 0;
    std::memset(place, 0, rest);
    return 1;
}

bool_t getPadded(XDR* xdrs, char* bytes, std::size_t size)
{
    unsigned char* place = nullptr;
    unsigned char* pad = nullptr;
    if (!advance(xdrs, size, &place) || !advance(xdrs, padding(size), &pad))
        return 0;
    if (size != 0)
        std::memcpy(bytes, place, size);
    return 1;
}

/** A length that is at most `maximum` and whose bytes and padding have all arrived. */
bool_t getLength(XDR* xdrs, KvUInt32* size, KvUInt32 maximum)
{
    if (!getUnit(xdrs, size) || *size > maximum)
        return 0;
    return *size <= xdrs->x_handy && padding(*size) <= xdrs->x_handy - *size;
}

}  // namespace

void xdrmem_create(XDR* xdrs, char* address, std::size_t size, xdr_op op) noexcept
{
    unsigned char* start = reinterpret_cast<unsigned char*>(address);
    *xdrs = {op, start, start, size, 0, false};
}

void xdrgrow_create(XDR* xdrs, std::size_t limit) noexcept
{
    *xdrs = {XDR_ENCODE, nullptr, nullptr, 0, limit, false};
}

void xdrgrow_destroy(XDR* xdrs) noexcept
{
    KvNAllocation::release(xdrs->x_base);
    *xdrs = {XDR_ENCODE, nullptr, nullptr, 0, 0, false};
}

bool_t xdr_void(XDR*, void*)
{
    return 1;
}

bool_t xdr_u_int(XDR* xdrs, KvUInt32* value)
{
    if (xdrs->x_op == XDR_ENCODE)
        return putUnit(xdrs, *value);
    return xdrs->x_op == XDR_FREE || getUnit(xdrs, value);
}

bool_t xdr_int(XDR* xdrs, KvInt32* value)
{
    KvUInt32 unit = xdrs->x_op == XDR_ENCODE ? static_cast<KvUInt32>(*value) : 0;
    if (!xdr_u_int(xdrs, &unit))
        return 0;
    if (xdrs->x_op == XDR_DECODE)
        *value = static_cast<KvInt32>(unit);
    return 1;
}

bool_t xdr_enum(XDR* xdrs, enum_t* value)
{
    return xdr_int(xdrs, value);
}

bool_t xdr_bool(XDR* xdrs, bool_t* value)
{
    if (xdrs->x_op == XDR_ENCODE)
        return putUnit(xdrs, *value != 0);
    return smallInteger(xdrs, value, 0, 1);
}

bool_t xdr_char(XDR* xdrs, char* value)
{
    if (xdrs->x_op != XDR_ENCODE)
        return smallInteger(xdrs, value, -128, 255);
    signed char number = static_cast<signed char>(*value);
    return smallInteger(xdrs, &number, -128, 127);
}

bool_t xdr_u_char(XDR* xdrs, unsigned char* value)
{
    return smallInteger(xdrs, value, 0, 255);
}

bool_t xdr_short(XDR* xdrs, short* value)
{
    return smallInteger(xdrs, value, -32768, 32767);
}

bool_t xdr_u_short(XDR* xdrs, unsigned short* value)
{
    return smallInteger(xdrs, value, 0, 65535);
}

bool_t xdr_u_quad_t(XDR* xdrs, KvUInt64* value)
{
    if (xdrs->x_op == XDR_ENCODE)
        return putUnit(xdrs, static_cast<KvUInt32>(*value >> 32)) && putUnit(xdrs, static_cast<KvUInt32>(*value));
    if (xdrs->x_op == XDR_FREE)
        return 1;
    KvUInt32 high = 0;
    KvUInt32 low = 0;
    if (!getUnit(xdrs, &high) || !getUnit(xdrs, &low))
        return 0;
    *value = static_cast<KvUInt64>(high) << 32 | low;
    return 1;
}

bool_t xdr_quad_t(XDR* xdrs, KvInt64* value)
{
    KvUInt64 bits = xdrs->x_op == XDR_ENCODE ? static_cast<KvUInt64>(*value) : 0;
    if (!xdr_u_quad_t(xdrs, &bits))
        return 0;
    if (xdrs->x_op == XDR_DECODE)
        *value = static_cast<KvInt64>(bits);
    return 1;
}

bool_t xdr_float(XDR* xdrs, float* value)
{
    KvUInt32 bits = xdrs->x_op == XDR_ENCODE ? std::bit_cast<KvUInt32>(*value) : 0;
    if (!xdr_u_int(xdrs, &bits))
        return 0;
    if (xdrs->x_op == XDR_DECODE)
        *value = std::bit_cast<float>(bits);
    return 1;
}

bool_t xdr_double(XDR* xdrs, double* value)
{
    KvUInt64 bits = xdrs->x_op == XDR_ENCODE ? std::bit_cast<KvUInt64>(*value) : 0;
    if (!xdr_u_quad_t(xdrs, &bits))
        return 0;
    if (xdrs->x_op == XDR_DECODE)
        *value = std::bit_cast<double>(bits);
    return 1;
}

bool_t xdr_opaque(XDR* xdrs, char* bytes, KvUInt32 size)
{
    if (xdrs->x_op == XDR_FREE)
        return 1;
    return xdrs->x_op == XDR_ENCODE ? putPadded(xdrs, bytes, size) : getPadded(xdrs, bytes, size);
}

bool_t xdr_bytes(XDR* xdrs, char** bytes, KvUInt32* size, KvUInt32 maximum)
{
    if (xdrs->x_op == XDR_FREE) {
        KvNAllocation::release(*bytes);
        *bytes = nullptr;
        return 1;
    }
    if (xdrs->x_op == XDR_ENCODE) {
        if (*size > maximum || (*bytes == nullptr && *size != 0))
            return 0;
        return putUnit(xdrs, *size) && putPadded(xdrs, *bytes, *size);
    }
    KvUInt32 length = 0;
    if (!getLength(xdrs, &length, maximum))
        return 0;
    if (length != 0 && *bytes == nullptr)
        *bytes = static_cast<char*>(allocate(xdrs, length));
    if (length != 0 && *bytes == nullptr)
        return 0;
    *size = length;
    return getPadded(xdrs, *bytes, length);
}

bool_t xdr_bytesInPlace(XDR* xdrs, const char** bytes, KvUInt32* size, KvUInt32 maximum)
{
    if (xdrs->x_op != XDR_DECODE)
        return xdrs->x_op == XDR_FREE;
    KvUInt32 length = 0;
    unsigned char* place = nullptr;
    unsigned char* pad = nullptr;
    if (!getLength(xdrs, &length, maximum) || !advance(xdrs, length, &place) || !advance(xdrs, padding(length), &pad))
        return 0;
    *bytes = reinterpret_cast<const char*>(place);
    *size = length;
    return 1;
}

bool_t xdr_string(XDR* xdrs, char** text, KvUInt32 maximum)
{
    if (xdrs->x_op == XDR_FREE) {
        KvNAllocation::release(*text);
        *text = nullptr;
        return 1;
    }
    if (xdrs->x_op == XDR_ENCODE) {
        const std::size_t length = *text != nullptr ? std::strlen(*text) : 0;
        if (*text == nullptr || length > maximum)
            return 0;
        return putUnit(xdrs, static_cast<KvUInt32>(length)) && putPadded(xdrs, *text, length);
    }
    KvUInt32 length = 0;
    if (!getLength(xdrs, &length, maximum))
        return 0;
    if (*text == nullptr)
        *text = static_cast<char*>(allocate(xdrs, static_cast<std::size_t>(length) + 1));
    if (*text == nullptr)
        return 0;
    (*text)[length] = '\0';
    return getPadded(xdrs, *text, length);
}

namespace {

/** Makes room for the elements that are about to be decoded. */
bool_t prepareArray(XDR* xdrs, char** elements, KvUInt32* count, KvUInt32 maximum, KvUInt32 elementSize,
                    KvUInt32 minimalBytes)
{
    KvUInt32 announced = 0;
    if (!getUnit(xdrs, &announced) || announced > maximum)
        return 0;
    if (announced > xdrs->x_handy / std::max<KvUInt32>(minimalBytes, 1))
        return 0;
    const KvUInt64 bytes = static_cast<KvUInt64>(announced) * elementSize;
    if (bytes > static_cast<std::size_t>(-1))
        return 0;
    if (announced != 0 && *elements == nullptr) {
        *elements = static_cast<char*>(allocate(xdrs, static_cast<std::size_t>(bytes)));
        if (*elements == nullptr)
            return 0;
        std::memset(*elements, 0, static_cast<std::size_t>(bytes));
    }
    *count = announced;
    return 1;
}

}  // namespace

bool_t xdr_array(XDR* xdrs, char** elements, KvUInt32* count, KvUInt32 maximum, KvUInt32 elementSize, xdrproc_t element,
                 KvUInt32 minimalBytes)
{
    if (xdrs->x_op == XDR_ENCODE) {
        if (*count > maximum || (*elements == nullptr && *count != 0) || !putUnit(xdrs, *count))
            return 0;
    } else if (xdrs->x_op == XDR_DECODE) {
        if (!prepareArray(xdrs, elements, count, maximum, elementSize, minimalBytes))
            return 0;
    } else if (*elements == nullptr) {
        return 1;
    }
    bool_t done = 1;
    for (std::size_t i = 0; done && i < *count; ++i)
        done = element(xdrs, *elements + i * elementSize);
    if (xdrs->x_op == XDR_FREE) {
        KvNAllocation::release(*elements);
        *elements = nullptr;
    }
    return done;
}

void xdr_free(xdrproc_t routine, void* object)
{
    XDR xdrs{XDR_FREE, nullptr, nullptr, 0, 0, false};
    routine(&xdrs, object);
}

}  // namespace KvNXdr
