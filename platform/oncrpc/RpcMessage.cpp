#include "platform/oncrpc/RpcMessage.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <random>

#include "platform/errorhandling/KvCErrorList.h"

namespace KvNRpc {

using KvNXdr::bool_t;
using KvNXdr::XDR;
using KvNXdr::xdr_u_int;

namespace {

bool_t fixedUnit(XDR* xdrs, KvUInt32 expected)
{
    KvUInt32 unit = expected;
    return xdr_u_int(xdrs, &unit) && unit == expected;
}

bool_t xdr_auth(XDR* xdrs, Auth* auth)
{
    return xdr_u_int(xdrs, &auth->flavor) && xdr_u_int(xdrs, &auth->size) && auth->size <= maximalAuthBytes &&
           KvNXdr::xdr_opaque(xdrs, reinterpret_cast<char*>(auth->body), auth->size);
}

bool_t xdr_range(XDR* xdrs, ReplyHeader* header)
{
    return xdr_u_int(xdrs, &header->low) && xdr_u_int(xdrs, &header->high);
}

bool_t xdr_accepted(XDR* xdrs, ReplyHeader* header)
{
    if (!xdr_auth(xdrs, &header->verifier) || !xdr_u_int(xdrs, &header->acceptStatus))
        return 0;
    if (header->acceptStatus == ProgramMismatch)
        return xdr_range(xdrs, header);
    return header->acceptStatus <= SystemError;
}

bool_t xdr_denied(XDR* xdrs, ReplyHeader* header)
{
    if (!xdr_u_int(xdrs, &header->rejectStatus))
        return 0;
    if (header->rejectStatus == RpcMismatch)
        return xdr_range(xdrs, header);
    return header->rejectStatus == AuthError && xdr_u_int(xdrs, &header->authStatus);
}

}  // namespace

bool_t xdr_callHeader(XDR* xdrs, CallHeader* header)
{
    if (!xdr_u_int(xdrs, &header->xid) || !fixedUnit(xdrs, Call) || !xdr_u_int(xdrs, &header->rpcVersion))
        return 0;
    if (xdrs->x_op == KvNXdr::XDR_DECODE && header->rpcVersion != rpcVersion)
        return 0;
    return xdr_u_int(xdrs, &header->program) && xdr_u_int(xdrs, &header->version) &&
           xdr_u_int(xdrs, &header->procedure) && xdr_auth(xdrs, &header->credential) &&
           xdr_auth(xdrs, &header->verifier);
}

bool_t xdr_replyHeader(XDR* xdrs, ReplyHeader* header)
{
    if (!xdr_u_int(xdrs, &header->xid) || !fixedUnit(xdrs, Reply) || !xdr_u_int(xdrs, &header->status))
        return 0;
    if (header->status == Accepted)
        return xdr_accepted(xdrs, header);
    return header->status == Denied && xdr_denied(xdrs, header);
}

CallVerdict decodeCall(XDR* xdrs, CallHeader& header)
{
    header.rpcVersion = rpcVersion;
    if (xdr_callHeader(xdrs, &header))
        return CallVerdict::Serve;
    if (header.rpcVersion != rpcVersion)
        return CallVerdict::WrongRpcVersion;
    if (header.credential.size > maximalAuthBytes || header.verifier.size > maximalAuthBytes)
        return CallVerdict::BadAuth;
    return CallVerdict::Drop;
}

std::uint16_t portMapperPort() noexcept
{
    constexpr std::uint16_t wellKnown = 111;
    const char* text = std::getenv("KVDAL_PORTMAP_PORT");
    if (text == nullptr || *text < '0' || *text > '9')
        return wellKnown;
    char* end = nullptr;
    const unsigned long number = std::strtoul(text, &end, 10);
    return *end == '\0' && number >= 1 && number <= 65535 ? static_cast<std::uint16_t>(number) : wellKnown;
}

bool_t xdr_portMapping(XDR* xdrs, PortMapping* mapping)
{
    return xdr_u_int(xdrs, &mapping->program) && xdr_u_int(xdrs, &mapping->version) &&
           xdr_u_int(xdrs, &mapping->protocol) && xdr_u_int(xdrs, &mapping->port);
}

KvUInt32 firstTransactionId() noexcept
{
    // Opening the system's source takes longer than a null call, so that one is kept; who finds it in use, perhaps by a
    // thread that a fork has left behind, opens another. Never destroyed: clients may outlive static objects.
    alignas(std::random_device) static unsigned char storage[sizeof(std::random_device)];
    static std::mutex mutex;
    try {
        static std::random_device* const source = new (static_cast<void*>(storage)) std::random_device;
        const std::unique_lock lock(mutex, std::try_to_lock);
        return static_cast<KvUInt32>(lock.owns_lock() ? (*source)() : std::random_device()());
    } catch (...) {
        return 1;
    }
}

Bytes& Bytes::operator=(Bytes&& other) noexcept
{
    if (this != &other) {
        adopt(other.m_data, other.m_size);
        other.m_data = nullptr;
        other.m_size = 0;
    }
    return *this;
}

Bytes::~Bytes()
{
    KvNAllocation::release(m_data);
}

void Bytes::adopt(unsigned char* data, std::size_t size) noexcept
{
    KvNAllocation::release(m_data);
    m_data = data;
    m_size = size;
}

bool Bytes::assign(const void* data, std::size_t size) noexcept
{
    unsigned char* copy = static_cast<unsigned char*>(KvNAllocation::allocate(size));
    if (copy == nullptr)
        return false;
    if (size != 0)
        std::memcpy(copy, data, size);
    adopt(copy, size);
    return true;
}

EncodeStatus encodeBytes(KvNXdr::xdrproc_t routine, void* object, Bytes& bytes, std::size_t reserved,
                         std::size_t limit) noexcept
{
    XDR xdrs;
    KvNXdr::xdrgrow_create(&xdrs, limit);
    bool done = true;
    for (std::size_t left = reserved; done && left != 0; left -= 4)
        done = fixedUnit(&xdrs, 0) != 0;
    done = done && routine(&xdrs, object) != 0;
    if (!done) {
        const bool memory = xdrs.x_outOfMemory;
        KvNXdr::xdrgrow_destroy(&xdrs);
        return memory ? EncodeStatus::OutOfMemory : EncodeStatus::Failed;
    }
    bytes.adopt(xdrs.x_base, KvNXdr::xdrmem_used(&xdrs));
    return EncodeStatus::Done;
}

}  // namespace KvNRpc
