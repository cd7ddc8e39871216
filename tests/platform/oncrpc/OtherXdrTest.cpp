/* Every primitive and every message, encoded by us and decoded by libtirpc, and the other way round. */
#include <gtest/gtest.h>
// GoogleTest's header has to come first.
#include <rapidcheck/gtest.h>
#include <rpc/rpc.h>

#include <cstring>
#include <string>

#include "RpcBytes.h"
#include "platform/errorhandling/KvCErrorList.h"
#include "platform/oncrpc/KvXdr.h"
#include "platform/oncrpc/RpcMessage.h"

using RpcBytes::Bytes;

namespace {

constexpr std::size_t room = 4096;

template <class Function>
Bytes encodedByUs(Function function)
{
    char block[room];
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, block, sizeof block, KvNXdr::XDR_ENCODE);
    RC_ASSERT(function(&xdrs) != 0);
    return Bytes(block, block + KvNXdr::xdrmem_used(&xdrs));
}

template <class Function>
Bytes encodedByThem(Function function)
{
    // Its call messages leave the padding of a verifier as the memory was.
    char block[room] = {};
    ::XDR xdrs;
    ::xdrmem_create(&xdrs, block, sizeof block, ::XDR_ENCODE);
    RC_ASSERT(function(&xdrs) != 0);
    const Bytes bytes(block, block + xdr_getpos(&xdrs));
    xdr_destroy(&xdrs);
    return bytes;
}

template <class Function>
void decodeByUs(Bytes& bytes, Function function)
{
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, reinterpret_cast<char*>(bytes.data()), bytes.size(), KvNXdr::XDR_DECODE);
    RC_ASSERT(function(&xdrs) != 0);
    RC_ASSERT(KvNXdr::xdrmem_left(&xdrs) == 0u);
}

template <class Function>
void decodeByThem(Bytes& bytes, Function function)
{
    ::XDR xdrs;
    ::xdrmem_create(&xdrs, reinterpret_cast<char*>(bytes.data()), static_cast<u_int>(bytes.size()), ::XDR_DECODE);
    RC_ASSERT(function(&xdrs) != 0);
    RC_ASSERT(xdr_getpos(&xdrs) == bytes.size());
    xdr_destroy(&xdrs);
}

/** The same bytes from both, and the value again from both. */
template <class Ours, class Theirs>
void compare(KvNXdr::bool_t (*ourRoutine)(KvNXdr::XDR*, Ours*), bool_t (*theirRoutine)(::XDR*, Theirs*), Ours value)
{
    static_assert(sizeof(Ours) == sizeof(Theirs));
    Ours ours = value;
    Theirs theirs = static_cast<Theirs>(value);
    Bytes bytes = encodedByUs([&](KvNXdr::XDR* xdrs) { return ourRoutine(xdrs, &ours); });
    RC_ASSERT(bytes == encodedByThem([&](::XDR* xdrs) { return theirRoutine(xdrs, &theirs); }));
    ours = Ours();
    theirs = Theirs();
    decodeByUs(bytes, [&](KvNXdr::XDR* xdrs) { return ourRoutine(xdrs, &ours); });
    decodeByThem(bytes, [&](::XDR* xdrs) { return theirRoutine(xdrs, &theirs); });
    RC_ASSERT(std::memcmp(&ours, &value, sizeof value) == 0);
    RC_ASSERT(std::memcmp(&theirs, &value, sizeof value) == 0);
}

RC_GTEST_PROP(OtherXdr, IntegersAgree, ())
{
    compare<KvInt32, int>(KvNXdr::xdr_int, ::xdr_int, *rc::gen::arbitrary<int>());
    compare<KvUInt32, u_int>(KvNXdr::xdr_u_int, ::xdr_u_int, *rc::gen::arbitrary<unsigned>());
    compare<KvInt32, enum_t>(KvNXdr::xdr_enum, ::xdr_enum, *rc::gen::arbitrary<int>());
    compare<KvNXdr::bool_t, ::bool_t>(KvNXdr::xdr_bool, ::xdr_bool, *rc::gen::inRange(0, 2));
    compare<char, char>(KvNXdr::xdr_char, ::xdr_char, *rc::gen::arbitrary<char>());
    compare<unsigned char, u_char>(KvNXdr::xdr_u_char, ::xdr_u_char, *rc::gen::arbitrary<unsigned char>());
    compare<short, short>(KvNXdr::xdr_short, ::xdr_short, *rc::gen::arbitrary<short>());
    compare<unsigned short, u_short>(KvNXdr::xdr_u_short, ::xdr_u_short, *rc::gen::arbitrary<unsigned short>());
    compare<KvInt64, quad_t>(KvNXdr::xdr_quad_t, ::xdr_quad_t, *rc::gen::arbitrary<std::int64_t>());
    compare<KvUInt64, u_quad_t>(KvNXdr::xdr_u_quad_t, ::xdr_u_quad_t, *rc::gen::arbitrary<std::uint64_t>());
}

RC_GTEST_PROP(OtherXdr, FloatingPointAgrees, ())
{
    compare<float, float>(KvNXdr::xdr_float, ::xdr_float, *rc::gen::arbitrary<float>());
    compare<double, double>(KvNXdr::xdr_double, ::xdr_double, *rc::gen::arbitrary<double>());
}

/** The bytes at a pointer that is null when there are none. */
std::string textOf(const char* bytes, std::size_t size)
{
    return size != 0 ? std::string(bytes, size) : std::string();
}

RC_GTEST_PROP(OtherXdr, OpaqueBytesAgree, (const std::vector<char>& value))
{
    std::vector<char> source = value;
    source.resize(std::min<std::size_t>(source.size(), 1000));
    char dummy = 0;
    char* pointer = source.empty() ? &dummy : source.data();
    u_int size = static_cast<u_int>(source.size());
    KvUInt32 ourSize = size;

    Bytes fixed = encodedByUs([&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_opaque(xdrs, pointer, ourSize); });
    RC_ASSERT(fixed == encodedByThem([&](::XDR* xdrs) { return ::xdr_opaque(xdrs, pointer, size); }));
    Bytes counted = encodedByUs([&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_bytes(xdrs, &pointer, &ourSize, 1000); });
    RC_ASSERT(counted == encodedByThem([&](::XDR* xdrs) { return ::xdr_bytes(xdrs, &pointer, &size, 1000); }));

    char* ours = nullptr;
    char* theirs = nullptr;
    decodeByUs(counted, [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_bytes(xdrs, &ours, &ourSize, 1000); });
    decodeByThem(counted, [&](::XDR* xdrs) { return ::xdr_bytes(xdrs, &theirs, &size, 1000); });
    RC_ASSERT(ourSize == size);
    RC_ASSERT(textOf(ours, size) == std::string(source.begin(), source.end()));
    RC_ASSERT(textOf(theirs, size) == textOf(ours, size));
    KvNAllocation::release(ours);
    std::free(theirs);
}

RC_GTEST_PROP(OtherXdr, StringsAndArraysAgree, (const std::vector<std::uint32_t>& value))
{
    std::vector<std::uint32_t> source = value;
    source.resize(std::min<std::size_t>(source.size(), 200));
    std::string text(source.size(), 'a');
    for (std::size_t i = 0; i < source.size(); ++i)
        text[i] = static_cast<char>('a' + source[i] % 26);
    char* characters = text.data();
    Bytes string = encodedByUs([&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_string(xdrs, &characters, 1000); });
    RC_ASSERT(string == encodedByThem([&](::XDR* xdrs) { return ::xdr_string(xdrs, &characters, 1000); }));
    char* ours = nullptr;
    char* theirs = nullptr;
    decodeByUs(string, [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_string(xdrs, &ours, 1000); });
    decodeByThem(string, [&](::XDR* xdrs) { return ::xdr_string(xdrs, &theirs, 1000); });
    RC_ASSERT(std::string(ours) == text);
    RC_ASSERT(std::string(theirs) == text);
    KvNAllocation::release(ours);
    std::free(theirs);

    source.reserve(1);
    char* elements = reinterpret_cast<char*>(source.data());
    KvUInt32 ourCount = static_cast<KvUInt32>(source.size());
    u_int count = ourCount;
    Bytes array = encodedByUs([&](KvNXdr::XDR* xdrs) {
        return KvNXdr::xdr_array(xdrs, &elements, &ourCount, 1000, 4, KvNXdr::proc<KvNXdr::xdr_u_int>);
    });
    const auto element = reinterpret_cast<::xdrproc_t>(::xdr_u_int);
    RC_ASSERT(array ==
              encodedByThem([&](::XDR* xdrs) { return ::xdr_array(xdrs, &elements, &count, 1000, 4, element); }));
    char* ourElements = nullptr;
    decodeByUs(array, [&](KvNXdr::XDR* xdrs) {
        return KvNXdr::xdr_array(xdrs, &ourElements, &ourCount, 1000, 4, KvNXdr::proc<KvNXdr::xdr_u_int>);
    });
    RC_ASSERT(ourCount == source.size());
    RC_ASSERT(textOf(ourElements, 4 * source.size()) == textOf(elements, 4 * source.size()));
    KvNAllocation::release(ourElements);
}

/** A credential or verifier for both. */
void fill(KvNRpc::Auth& ours, opaque_auth& theirs, const std::string& body, KvUInt32 flavor)
{
    ours.flavor = flavor;
    ours.size = static_cast<KvUInt32>(body.size());
    std::memcpy(ours.body, body.data(), body.size());
    theirs.oa_flavor = static_cast<enum_t>(flavor);
    theirs.oa_base = const_cast<char*>(body.data());
    theirs.oa_length = static_cast<u_int>(body.size());
}

RC_GTEST_PROP(OtherXdr, CallsAgree, ())
{
    const auto numbers = *rc::gen::container<std::vector<std::uint32_t>>(5, rc::gen::arbitrary<std::uint32_t>());
    const std::string first(*rc::gen::inRange<std::size_t>(0, 401), 'c');
    const std::string second(*rc::gen::inRange<std::size_t>(0, 401), 'v');
    KvNRpc::CallHeader ours;
    rpc_msg theirs{};
    ours.xid = theirs.rm_xid = numbers[0];
    theirs.rm_direction = CALL;
    theirs.rm_call.cb_rpcvers = RPC_MSG_VERSION;
    theirs.rm_call.cb_prog = ours.program = numbers[1];
    theirs.rm_call.cb_vers = ours.version = numbers[2];
    theirs.rm_call.cb_proc = ours.procedure = numbers[3];
    fill(ours.credential, theirs.rm_call.cb_cred, first, 1);
    fill(ours.verifier, theirs.rm_call.cb_verf, second, numbers[4]);
    Bytes bytes = encodedByUs([&](KvNXdr::XDR* xdrs) { return KvNRpc::xdr_callHeader(xdrs, &ours); });
    RC_ASSERT(bytes == encodedByThem([&](::XDR* xdrs) { return ::xdr_callmsg(xdrs, &theirs); }));

    KvNRpc::CallHeader read;
    decodeByUs(bytes, [&](KvNXdr::XDR* xdrs) { return KvNRpc::xdr_callHeader(xdrs, &read); });
    RC_ASSERT(bytes == encodedByUs([&](KvNXdr::XDR* xdrs) { return KvNRpc::xdr_callHeader(xdrs, &read); }));
    char room1[MAX_AUTH_BYTES];
    char room2[MAX_AUTH_BYTES];
    rpc_msg other{};
    other.rm_call.cb_cred.oa_base = room1;
    other.rm_call.cb_verf.oa_base = room2;
    decodeByThem(bytes, [&](::XDR* xdrs) { return ::xdr_callmsg(xdrs, &other); });
    RC_ASSERT(other.rm_xid == numbers[0]);
    RC_ASSERT(other.rm_call.cb_proc == numbers[3]);
    RC_ASSERT(other.rm_call.cb_verf.oa_length == second.size());
}

/** The results of a reply that has none. */
::bool_t noResults(::XDR*, ...)
{
    return 1;
}

/** A reply with `numbers` in whatever fields it has. */
void makeReply(int kind, const std::vector<std::uint32_t>& numbers, const std::string& verifier,
               KvNRpc::ReplyHeader& ours, rpc_msg& theirs)
{
    ours.xid = theirs.rm_xid = numbers[0];
    theirs.rm_direction = REPLY;
    if (kind < 6) {
        theirs.rm_reply.rp_stat = MSG_ACCEPTED;
        theirs.acpted_rply.ar_stat = static_cast<accept_stat>(kind);
        theirs.acpted_rply.ar_results.proc = noResults;
        if (kind == PROG_MISMATCH) {
            theirs.acpted_rply.ar_vers.low = numbers[1];
            theirs.acpted_rply.ar_vers.high = numbers[2];
        }
        ours.acceptStatus = static_cast<KvUInt32>(kind);
        fill(ours.verifier, theirs.acpted_rply.ar_verf, verifier, 2);
    } else {
        theirs.rm_reply.rp_stat = MSG_DENIED;
        ours.status = KvNRpc::Denied;
        if (kind == 6) {
            theirs.rjcted_rply.rj_stat = RPC_MISMATCH;
            theirs.rjcted_rply.rj_vers.low = numbers[1];
            theirs.rjcted_rply.rj_vers.high = numbers[2];
        } else {
            theirs.rjcted_rply.rj_stat = AUTH_ERROR;
            theirs.rjcted_rply.rj_why = static_cast<auth_stat>(numbers[1] % 14);
            ours.rejectStatus = KvNRpc::AuthError;
            ours.authStatus = numbers[1] % 14;
        }
    }
    ours.low = numbers[1];
    ours.high = numbers[2];
}

RC_GTEST_PROP(OtherXdr, RepliesAgree, ())
{
    const auto numbers = *rc::gen::container<std::vector<std::uint32_t>>(3, rc::gen::arbitrary<std::uint32_t>());
    const std::string verifier(*rc::gen::inRange<std::size_t>(0, 401), 'v');
    for (int kind = 0; kind < 8; ++kind) {
        KvNRpc::ReplyHeader ours;
        rpc_msg theirs{};
        makeReply(kind, numbers, verifier, ours, theirs);
        Bytes bytes = encodedByUs([&](KvNXdr::XDR* xdrs) { return KvNRpc::xdr_replyHeader(xdrs, &ours); });
        RC_ASSERT(bytes == encodedByThem([&](::XDR* xdrs) { return ::xdr_replymsg(xdrs, &theirs); }));
        KvNRpc::ReplyHeader read;
        decodeByUs(bytes, [&](KvNXdr::XDR* xdrs) { return KvNRpc::xdr_replyHeader(xdrs, &read); });
        RC_ASSERT(bytes == encodedByUs([&](KvNXdr::XDR* xdrs) { return KvNRpc::xdr_replyHeader(xdrs, &read); }));
        char block[MAX_AUTH_BYTES];
        rpc_msg other{};
        other.acpted_rply.ar_verf.oa_base = block;
        other.acpted_rply.ar_results.proc = noResults;
        decodeByThem(bytes, [&](::XDR* xdrs) { return ::xdr_replymsg(xdrs, &other); });
        RC_ASSERT(other.rm_xid == numbers[0]);
        RC_ASSERT(other.rm_reply.rp_stat == theirs.rm_reply.rp_stat);
    }
}

}  // namespace
