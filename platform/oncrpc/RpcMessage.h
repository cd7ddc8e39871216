#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/KvTypes.h"
#include "platform/oncrpc/KvXdr.h"

/**
 * The messages of ONC RPC version 2 (RFC 5531) on memory, in both directions, and the port mapper's numbers (RFC 1833).
 */
namespace KvNRpc {

constexpr KvUInt32 rpcVersion = 2;
/** Largest body of a credential or verifier. */
constexpr KvUInt32 maximalAuthBytes = 400;
/** Size of a call's header with empty credential and verifier, and of the header of an accepted reply with success. */
constexpr std::size_t plainCallHeaderBytes = 40;
constexpr std::size_t plainReplyHeaderBytes = 24;

enum MessageType : KvUInt32
{
    Call = 0,
    Reply = 1
};

enum ReplyStatus : KvUInt32
{
    Accepted = 0,
    Denied = 1
};

enum AcceptStatus : KvUInt32
{
    Success = 0,
    ProgramUnavailable = 1,
    ProgramMismatch = 2,
    ProcedureUnavailable = 3,
    GarbageArguments = 4,
    SystemError = 5
};

enum RejectStatus : KvUInt32
{
    RpcMismatch = 0,
    AuthError = 1
};

/** Reasons of AuthError; 1 to 13 are defined, others are passed on as they are. */
enum AuthStatus : KvUInt32
{
    AuthBadCredential = 1,
    AuthTooWeak = 5
};

/** A credential or verifier. */
struct Auth
{
    KvUInt32 flavor = 0;
    KvUInt32 size = 0;
    unsigned char body[maximalAuthBytes] = {};
};

struct CallHeader
{
    KvUInt32 xid = 0;
    KvUInt32 rpcVersion = KvNRpc::rpcVersion;
    KvUInt32 program = 0;
    KvUInt32 version = 0;
    KvUInt32 procedure = 0;
    Auth credential;
    Auth verifier;
};

/** `low` and `high` belong to ProgramMismatch and RpcMismatch, `authStatus` to AuthError. */
struct ReplyHeader
{
    KvUInt32 xid = 0;
    KvUInt32 status = Accepted;
    Auth verifier;
    KvUInt32 acceptStatus = Success;
    KvUInt32 rejectStatus = RpcMismatch;
    KvUInt32 low = 0;
    KvUInt32 high = 0;
    KvUInt32 authStatus = 0;
};

/** Whole call header. Decoding fails on a message that is no call, on an RPC version other than 2 (then `rpcVersion`
    holds it and nothing behind it is read) and on a credential or verifier beyond 400 bytes. */
KvNXdr::bool_t xdr_callHeader(KvNXdr::XDR* xdrs, CallHeader* header);

/** Whole reply header, up to where the results begin. Decoding fails on a message that is no reply, on states out of
    range and on a verifier beyond 400 bytes. */
KvNXdr::bool_t xdr_replyHeader(KvNXdr::XDR* xdrs, ReplyHeader* header);

/** What a server has to do with bytes that came as a call. */
enum class CallVerdict
{
    Serve,            // the header is whole; the arguments follow
    WrongRpcVersion,  // answer RpcMismatch(2, 2)
    BadAuth,          // credential or verifier beyond 400 bytes: answer AuthError(AuthBadCredential)
    Drop              // no call at all, or cut: nothing that could be answered
};

/** Decodes a call's header; on Serve `xdrs` stands at the arguments. */
CallVerdict decodeCall(KvNXdr::XDR* xdrs, CallHeader& header);

/** The port mapper, version 2. */
constexpr KvUInt32 portMapperProgram = 100000;
constexpr KvUInt32 portMapperVersion = 2;
constexpr KvUInt32 portMapperGetPort = 3;
constexpr KvUInt32 portMapperDump = 4;
constexpr KvUInt32 protocolTcp = 6;
constexpr KvUInt32 protocolUdp = 17;
/** 111, or what the environment's KVDAL_PORTMAP_PORT (1 to 65535) says. */
std::uint16_t portMapperPort() noexcept;

struct PortMapping
{
    KvUInt32 program = 0;
    KvUInt32 version = 0;
    KvUInt32 protocol = 0;
    KvUInt32 port = 0;
};

KvNXdr::bool_t xdr_portMapping(KvNXdr::XDR* xdrs, PortMapping* mapping);

/** A random transaction id to start counting from. */
KvUInt32 firstTransactionId() noexcept;

/** The bytes that encoding gave; memory from KvNAllocation. */
class Bytes
{
public:
    Bytes() noexcept = default;
    Bytes(Bytes&& other) noexcept : m_data(other.m_data), m_size(other.m_size)
    {
        other.m_data = nullptr, other.m_size = 0;
    }
    Bytes& operator=(Bytes&& other) noexcept;
    ~Bytes();

    const unsigned char* data() const { return m_data; }
    unsigned char* data() { return m_data; }
    std::size_t size() const { return m_size; }

    /** Takes over a block of KvNAllocation. */
    void adopt(unsigned char* data, std::size_t size) noexcept;
    /** A copy of `size` bytes; false when memory is out. */
    bool assign(const void* data, std::size_t size) noexcept;
    void clear() noexcept { adopt(nullptr, 0); }
    /** Counts no more than the first `size` bytes of the block, or again more of it; never more than it has. */
    void setSize(std::size_t size) noexcept { m_size = size; }

private:
    unsigned char* m_data = nullptr;
    std::size_t m_size = 0;
};

enum class EncodeStatus
{
    Done,
    Failed,  // the routine failed, or more than `limit` bytes
    OutOfMemory
};

/** Encodes `object` with `routine` into new memory, behind `reserved` bytes left for a header. */
EncodeStatus encodeBytes(KvNXdr::xdrproc_t routine, void* object, Bytes& bytes, std::size_t reserved = 0,
                         std::size_t limit = 0x7FFFFFFF) noexcept;

}  // namespace KvNRpc
