#pragma once

#include <cstddef>

#include "platform/KvExport.h"
#include "platform/KvTypes.h"

/**
 * XDR (RFC 4506) on memory, with the names and argument orders that XDR code is used to.
 *
 * One routine serves encoding, decoding and freeing; the stream's `x_op` says which. A routine returns 1, or 0 as soon
 * as something does not fit; what was decoded until then stays in the object and is given back with xdr_free(). Every
 * length is compared with the bytes left before memory is taken for it, and memory comes from KvNAllocation. Decoding
 * into a pointer that is null allocates; a pointer that is not null must have room for the largest permitted length.
 *
 * The contents of padding bytes are ignored, as the decoders in use everywhere do; that they are there is checked.
 * Small integers travel as four bytes: a value outside the range of its type fails, but for `char`, which takes -128 to
 * 255, since hosts differ in whether a char is signed. A stream belongs to one thread.
 */
namespace KvNXdr {

using bool_t = int;
using enum_t = KvInt32;

enum xdr_op
{
    XDR_ENCODE = 0,
    XDR_DECODE = 1,
    XDR_FREE = 2
};

/** A stream over a block of memory. Its fields are for the primitives; others use the functions below. */
struct XDR
{
    xdr_op x_op;
    /** Start of the block, next byte, bytes left. */
    unsigned char* x_base;
    unsigned char* x_private;
    std::size_t x_handy;
    /** Largest size a growing stream may take; 0 for a stream on the caller's memory. */
    std::size_t x_limit;
    /** Whether a routine failed because memory was out, not because of the bytes. */
    bool x_outOfMemory;
};

/** The routine of some record, its type forgotten; made from a typed one with `proc<xdr_Record>`. */
using xdrproc_t = bool_t (*)(XDR* xdrs, void* object);

namespace Detail {
template <class T, bool_t (*Routine)(XDR*, T*)>
bool_t forgetType(XDR* xdrs, void* object)
{
    return Routine(xdrs, static_cast<T*>(object));
}
template <auto Routine>
struct Proc;
template <class T, bool_t (*Routine)(XDR*, T*)>
struct Proc<Routine>
{
    static constexpr xdrproc_t value = &forgetType<T, Routine>;
};
}  // namespace Detail

/** The typed routine `Routine`, `bool_t (XDR*, T*)`, as an xdrproc_t, without a cast between function types. */
template <auto Routine>
inline constexpr xdrproc_t proc = Detail::Proc<Routine>::value;

/** Opens a stream over `size` bytes at `address`, which stay the caller's. */
KV_EXPORT void xdrmem_create(XDR* xdrs, char* address, std::size_t size, xdr_op op) noexcept;

/** Opens an encoding stream that takes its memory as it grows, up to `limit` bytes; closed with xdrgrow_destroy(). */
KV_EXPORT void xdrgrow_create(XDR* xdrs, std::size_t limit) noexcept;
/** Frees a growing stream's memory. */
KV_EXPORT void xdrgrow_destroy(XDR* xdrs) noexcept;

/** Bytes written or read so far. */
inline std::size_t xdrmem_used(const XDR* xdrs)
{
    return static_cast<std::size_t>(xdrs->x_private - xdrs->x_base);
}
/** Bytes left: to read, or, on the caller's memory, to write. */
inline std::size_t xdrmem_left(const XDR* xdrs)
{
    return xdrs->x_handy;
}

/** Nothing on the wire; always 1. */
KV_EXPORT bool_t xdr_void(XDR* xdrs, void* object);
KV_EXPORT bool_t xdr_int(XDR* xdrs, KvInt32* value);
KV_EXPORT bool_t xdr_u_int(XDR* xdrs, KvUInt32* value);
/** As xdr_int; which values an enumeration knows is the caller's to judge. */
KV_EXPORT bool_t xdr_enum(XDR* xdrs, enum_t* value);
/** 0 or 1; decoding anything else fails, encoding takes anything but 0 for 1. */
KV_EXPORT bool_t xdr_bool(XDR* xdrs, bool_t* value);
KV_EXPORT bool_t xdr_char(XDR* xdrs, char* value);
KV_EXPORT bool_t xdr_u_char(XDR* xdrs, unsigned char* value);
KV_EXPORT bool_t xdr_short(XDR* xdrs, short* value);
KV_EXPORT bool_t xdr_u_short(XDR* xdrs, unsigned short* value);
KV_EXPORT bool_t xdr_quad_t(XDR* xdrs, KvInt64* value);
KV_EXPORT bool_t xdr_u_quad_t(XDR* xdrs, KvUInt64* value);
/** IEEE 754 single and double. */
KV_EXPORT bool_t xdr_float(XDR* xdrs, float* value);
KV_EXPORT bool_t xdr_double(XDR* xdrs, double* value);

/** `size` bytes and their padding, in memory that the caller owns. */
KV_EXPORT bool_t xdr_opaque(XDR* xdrs, char* bytes, KvUInt32 size);
/** Counted bytes, at most `maximum`. Decoding no bytes leaves `*bytes` as it is. */
KV_EXPORT bool_t xdr_bytes(XDR* xdrs, char** bytes, KvUInt32* size, KvUInt32 maximum);
/** Counted bytes, at most `maximum`, left where they are: decoding makes `*bytes` point into the stream's memory, and
    freeing does nothing. For decoding only. */
KV_EXPORT bool_t xdr_bytesInPlace(XDR* xdrs, const char** bytes, KvUInt32* size, KvUInt32 maximum);
/** A C string of at most `maximum` characters. Encoding null fails. */
KV_EXPORT bool_t xdr_string(XDR* xdrs, char** text, KvUInt32 maximum);
/** Counted elements of `elementSize` bytes of memory each, at most `maximum`; each takes at least `minimalBytes` on the
    wire, with which the count is checked before memory is taken. Decoding no elements leaves `*elements` as it is. */
KV_EXPORT bool_t xdr_array(XDR* xdrs, char** elements, KvUInt32* count, KvUInt32 maximum, KvUInt32 elementSize,
                           xdrproc_t element, KvUInt32 minimalBytes = 4);

/** Gives back what decoding with `routine` allocated inside `object`, and makes those pointers null. */
KV_EXPORT void xdr_free(xdrproc_t routine, void* object);

}  // namespace KvNXdr
