#include "platform/oncrpc/KvCRpcClient.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <new>

#include "base/Report.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"
#include "platform/oncrpc/RpcChannel.h"
#include "platform/oncrpc/RpcMessage.h"

using KvNRpc::CallOutcome;
using KvNRpc::CallRequest;
using KvNRpc::Failure;
using KvNRpc::recordMarkBytes;
using std::chrono::microseconds;

namespace {

constexpr std::size_t largestCall = 0x7FFFFFFF - recordMarkBytes;

std::atomic<KvUInt32> defaultTimeout{0};
std::atomic<KvCRpcClient::Trace> traceFunction{nullptr};
std::atomic<void*> traceContext{nullptr};

/** "address:port", or the address alone while the port is not known. */
struct Target
{
    Target(const char* host, unsigned port)
    {
        if (port != 0)
            std::snprintf(text, sizeof text, "%.64s:%u", host, port);
        else
            std::snprintf(text, sizeof text, "%.64s", host);
    }
    char text[80];
};

/** A call's header and, behind it, its arguments. */
struct WholeCall
{
    KvNRpc::CallHeader header;
    KvNXdr::xdrproc_t encoder;
    void* arguments;
};

KvNXdr::bool_t xdr_wholeCall(KvNXdr::XDR* xdrs, WholeCall* call)
{
    return KvNRpc::xdr_callHeader(xdrs, &call->header) && call->encoder(xdrs, call->arguments);
}

KvUInt32 inMilliseconds(microseconds time)
{
    return static_cast<KvUInt32>((time.count() + 999) / 1000);
}

}  // namespace

struct KvCRpcClient::State : public KvNAllocation::Object
{
    char host[64] = {};
    KvNRpc::ChannelLink link;
    microseconds callTimeout{20000000};
    KvUInt64 repeatable = 1;

    microseconds timeout() const
    {
        const KvUInt32 everyone = defaultTimeout.load(std::memory_order_relaxed);
        return everyone != 0 ? microseconds(everyone) : callTimeout;
    }
    bool mayRepeat(KvUInt32 procedure) const { return procedure < 64 && (repeatable >> procedure & 1) != 0; }

    long encode(KvCErrorListPool& errors, KvUInt32 procedure, KvNXdr::xdrproc_t encoder, void* arguments,
                CallRequest& request);
    long decode(KvCErrorListPool& errors, KvUInt32 procedure, KvNXdr::xdrproc_t decoder, void* result,
                CallOutcome& outcome);
    long refused(KvCErrorListPool& errors, KvUInt32 procedure, const char* target, const KvNRpc::ReplyHeader& header);
    long connectFailed(KvCErrorListPool& errors, const char* origin, const CallOutcome& outcome);
    long callFailed(KvCErrorListPool& errors, KvUInt32 procedure, microseconds time, const CallOutcome& outcome);
    WholeCall wholeCall(KvUInt32 procedure, KvNXdr::xdrproc_t encoder, void* arguments);
    void tell(KvUInt32 procedure, std::chrono::steady_clock::time_point began, long outcome) const;
};

namespace {
constexpr const char* connectOrigin = "KvCRpcClient::connect";
constexpr const char* callOrigin = "KvCRpcClient::clntCall";
}  // namespace

long KvCRpcClient::State::connectFailed(KvCErrorListPool& errors, const char* origin, const CallOutcome& outcome)
{
    const Target target(host, outcome.port);
    const KvNRpc::ChannelSettings& settings = link.settings;
    switch (outcome.failure) {
        case Failure::Connect:
            KV_REPORT(errors, RpcConnectFailed, origin, target.text, outcome.text);
            return ConnectFailed;
        case Failure::ConnectTimeout:
        case Failure::Timeout:
            KV_REPORT(errors, RpcConnectTimedOut, origin, target.text, inMilliseconds(settings.connectTimeout));
            return ConnectFailed;
        case Failure::PortMapperSilent:
            KV_REPORT(errors, RpcPortMapperSilent, origin, target.text);
            return ConnectFailed;
        case Failure::PortMapperMalformed:
            KV_REPORT(errors, RpcPortMapperMalformed, origin, target.text);
            return ConnectFailed;
        case Failure::PortMapperRefused:
            KV_REPORT(errors, RpcPortMapperRefused, origin, target.text);
            return ConnectFailed;
        case Failure::NotRegistered:
            KV_REPORT(errors, RpcPortNotRegistered, origin, target.text, settings.program, settings.version);
            return ConnectFailed;
        case Failure::Cancelled:
            KV_REPORT(errors, RpcConnectCancelled, origin, target.text);
            return Cancelled;
        default:
            KV_REPORT(errors, RpcOutOfMemory, origin, target.text);
            return OutOfMemory;
    }
}

long KvCRpcClient::State::callFailed(KvCErrorListPool& errors, KvUInt32 procedure, microseconds time,
                                     const CallOutcome& outcome)
{
    const Target target(host, outcome.port);
    switch (outcome.failure) {
        case Failure::Timeout:
            KV_REPORT(errors, RpcTimedOut, callOrigin, procedure, target.text, inMilliseconds(time));
            return TimedOut;
        case Failure::Lost:
            KV_REPORT(errors, RpcConnectionLost, callOrigin, procedure, target.text, outcome.text);
            return ConnectionLost;
        case Failure::Malformed:
            KV_REPORT(errors, RpcReplyMalformed, callOrigin, procedure, target.text);
            return ReplyMalformed;
        case Failure::TooLarge:
            KV_REPORT(errors, RpcReplyTooLarge, callOrigin, procedure, target.text, link.settings.largestReply);
            return ReplyTooLarge;
        case Failure::OutOfBudget:
            KV_REPORT(errors, RpcRepliesTooLarge, callOrigin, procedure, target.text, KvNRpc::repliesLimit);
            return ReplyTooLarge;
        case Failure::Cancelled:
            KV_REPORT(errors, RpcCancelled, callOrigin, procedure, target.text);
            return Cancelled;
        default:
            return connectFailed(errors, callOrigin, outcome);
    }
}

long KvCRpcClient::State::refused(KvCErrorListPool& errors, KvUInt32 procedure, const char* target,
                                  const KvNRpc::ReplyHeader& header)
{
    if (header.status == KvNRpc::Denied) {
        if (header.rejectStatus == KvNRpc::RpcMismatch) {
            KV_REPORT(errors, RpcVersionMismatch, callOrigin, target, header.low, header.high);
            return RpcVersionMismatch;
        }
        KV_REPORT(errors, RpcAuthenticationError, callOrigin, procedure, target, header.authStatus);
        return AuthenticationError;
    }
    switch (header.acceptStatus) {
        case KvNRpc::ProgramUnavailable:
            KV_REPORT(errors, RpcProgramUnavailable, callOrigin, target, link.settings.program);
            return ProgramUnavailable;
        case KvNRpc::ProgramMismatch:
            KV_REPORT(errors, RpcProgramMismatch, callOrigin, target, link.settings.program, link.settings.version,
                      header.low, header.high);
            return VersionMismatch;
        case KvNRpc::ProcedureUnavailable:
            KV_REPORT(errors, RpcProcedureUnavailable, callOrigin, procedure, target);
            return ProcedureUnavailable;
        case KvNRpc::GarbageArguments:
            KV_REPORT(errors, RpcGarbageArguments, callOrigin, procedure, target);
            return GarbageArguments;
        default:
            KV_REPORT(errors, RpcSystemError, callOrigin, procedure, target);
            return SystemError;
    }
}

WholeCall KvCRpcClient::State::wholeCall(KvUInt32 procedure, KvNXdr::xdrproc_t encoder, void* arguments)
{
    WholeCall call;
    call.header.xid = link.nextTransactionId();
    call.header.program = link.settings.program;
    call.header.version = link.settings.version;
    call.header.procedure = procedure;
    call.encoder = encoder != nullptr ? encoder : &KvNXdr::xdr_void;
    call.arguments = arguments;
    return call;
}

/** Has a call that has ended told to whoever asked for it. */
void KvCRpcClient::State::tell(KvUInt32 procedure, std::chrono::steady_clock::time_point began, long outcome) const
{
    const Trace trace = traceFunction.load(std::memory_order_relaxed);
    if (trace == nullptr)
        return;
    const auto lasted = std::chrono::duration_cast<microseconds>(std::chrono::steady_clock::now() - began);
    trace(traceContext.load(std::memory_order_relaxed),
          {host, link.settings.program, procedure, outcome, static_cast<KvUInt64>(lasted.count())});
}

long KvCRpcClient::State::encode(KvCErrorListPool& errors, KvUInt32 procedure, KvNXdr::xdrproc_t encoder,
                                 void* arguments, CallRequest& request)
{
    WholeCall call = wholeCall(procedure, encoder, arguments);
    request.transactionId = call.header.xid;
    const KvNRpc::EncodeStatus status =
        KvNRpc::encodeBytes(KvNXdr::proc<xdr_wholeCall>, &call, request.message, recordMarkBytes, largestCall);
    if (status == KvNRpc::EncodeStatus::Done) {
        KvNRpc::putRecordMark(request.message.data(), request.message.size() - recordMarkBytes);
        return Success;
    }
    if (status == KvNRpc::EncodeStatus::OutOfMemory) {
        KV_REPORT(errors, RpcOutOfMemory, callOrigin, host);
        return OutOfMemory;
    }
    KV_REPORT(errors, RpcArgumentsInvalid, callOrigin, procedure, host);
    return ArgumentsInvalid;
}

long KvCRpcClient::State::decode(KvCErrorListPool& errors, KvUInt32 procedure, KvNXdr::xdrproc_t decoder, void* result,
                                 CallOutcome& outcome)
{
    const Target target(host, outcome.port);
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, const_cast<char*>(reinterpret_cast<const char*>(outcome.reply.data())),
                          outcome.reply.size(), KvNXdr::XDR_DECODE);
    KvNRpc::ReplyHeader header;
    bool sound = KvNRpc::xdr_replyHeader(&xdrs, &header) != 0;
    const bool success = sound && header.status == KvNRpc::Accepted && header.acceptStatus == KvNRpc::Success;
    if (success)
        sound = (decoder != nullptr ? decoder : &KvNXdr::xdr_void)(&xdrs, result) != 0;
    if (xdrs.x_outOfMemory) {
        KV_REPORT(errors, RpcOutOfMemory, callOrigin, target.text);
        return OutOfMemory;
    }
    if (!sound || KvNXdr::xdrmem_left(&xdrs) != 0) {
        KV_REPORT(errors, RpcReplyMalformed, callOrigin, procedure, target.text);
        return ReplyMalformed;
    }
    return success ? static_cast<long>(Success) : refused(errors, procedure, target.text, header);
}

KvCRpcClient::KvCRpcClient(KvCErrorListPool& errors, const char* hostAddress) : m_state(new (errors) State)
{
    const char* address = hostAddress != nullptr ? hostAddress : "";
    if (m_state == nullptr) {
        KV_REPORT(errors, RpcOutOfMemory, "KvCRpcClient::KvCRpcClient", address);
        return;
    }
    std::snprintf(m_state->host, sizeof m_state->host, "%s", address);
    m_state->link.settings.address = KvNRtosAbstraction::stringToIpV4(address);
    m_state->link.settings.portMapperPort = KvNRpc::portMapperPort();
    if (m_state->link.settings.address == 0)
        KV_REPORT(errors, RpcAddressInvalid, "KvCRpcClient::KvCRpcClient", m_state->host);
}

KvCRpcClient::~KvCRpcClient()
{
    delete m_state;
}

long KvCRpcClient::usable(KvCErrorListPool& errors, const char* origin) const
{
    if (m_state == nullptr) {
        KV_REPORT(errors, RpcOutOfMemory, origin, "");
        return OutOfMemory;
    }
    if (m_state->link.settings.address == 0) {
        KV_REPORT(errors, RpcAddressInvalid, origin, m_state->host);
        return ParameterInvalid;
    }
    if (m_state->link.settings.program == 0) {
        KV_REPORT(errors, RpcNotConfigured, origin, m_state->host);
        return ParameterInvalid;
    }
    return Success;
}

long KvCRpcClient::connect(KvCErrorListPool& errors)
{
    if (const long failure = usable(errors, connectOrigin); failure != Success)
        return failure;
    CallRequest request;
    request.cancelCount = KvNRpc::cancelCount();
    // The connect time-out ends it; this is only the limit of both.
    request.deadline = std::chrono::steady_clock::now() + 2 * m_state->link.settings.connectTimeout;
    CallOutcome outcome;
    m_state->link.call(request, outcome);
    return outcome.failure == Failure::None ? static_cast<long>(Success)
                                            : m_state->connectFailed(errors, connectOrigin, outcome);
}

long KvCRpcClient::clntCall(KvCErrorListPool& errors, KvUInt32 procedure, KvNXdr::xdrproc_t encoder, void* arguments,
                            KvNXdr::xdrproc_t decoder, void* result)
{
    if (const long failure = usable(errors, callOrigin); failure != Success)
        return failure;
    const auto began = std::chrono::steady_clock::now();
    const long outcome = callOnce(errors, procedure, encoder, arguments, decoder, result);
    m_state->tell(procedure, began, outcome);
    return outcome;
}

bool KvCRpcClient::sendCall(KvNRpc::SentCall& call, KvUInt32 procedure, KvNXdr::xdrproc_t encoder,
                            void* arguments) noexcept
{
    if (m_state == nullptr || m_state->link.settings.address == 0 || m_state->link.settings.program == 0)
        return false;
    WholeCall whole = m_state->wholeCall(procedure, encoder, arguments);
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, reinterpret_cast<char*>(call.record() + recordMarkBytes),
                          call.room() - recordMarkBytes, KvNXdr::XDR_ENCODE);
    if (!xdr_wholeCall(&xdrs, &whole))
        return false;
    const std::size_t bytes = KvNXdr::xdrmem_used(&xdrs);
    KvNRpc::putRecordMark(call.record(), bytes);
    return m_state->link.send(call, whole.header.xid, recordMarkBytes + bytes);
}

long KvCRpcClient::takeReply(KvCErrorListPool& errors, KvNRpc::SentCall& call, KvUInt32 procedure,
                             KvNXdr::xdrproc_t decoder, void* result)
{
    const microseconds time = m_state->timeout();
    const auto began = call.sentAt();
    CallOutcome reply;
    m_state->link.finish(call, std::chrono::steady_clock::now() + time, reply);
    const long outcome = reply.failure != Failure::None ? m_state->callFailed(errors, procedure, time, reply)
                                                        : m_state->decode(errors, procedure, decoder, result, reply);
    m_state->tell(procedure, began, outcome);
    return outcome;
}

long KvCRpcClient::callOnce(KvCErrorListPool& errors, KvUInt32 procedure, KvNXdr::xdrproc_t encoder, void* arguments,
                            KvNXdr::xdrproc_t decoder, void* result)
{
    const microseconds time = m_state->timeout();
    CallRequest request;
    request.cancelCount = KvNRpc::cancelCount();
    request.deadline = std::chrono::steady_clock::now() + time;
    request.repeatable = m_state->mayRepeat(procedure);
    if (const long failure = m_state->encode(errors, procedure, encoder, arguments, request); failure != Success)
        return failure;
    CallOutcome outcome;
    m_state->link.call(request, outcome);
    if (outcome.failure != Failure::None)
        return m_state->callFailed(errors, procedure, time, outcome);
    return m_state->decode(errors, procedure, decoder, result, outcome);
}

void KvCRpcClient::dropCall(KvNRpc::SentCall& call, KvUInt32 procedure) noexcept
{
    const auto began = call.sentAt();
    CallOutcome reply;
    call.abandon();
    m_state->link.finish(call, std::chrono::steady_clock::time_point(), reply);
    m_state->tell(procedure, began, reply.failure == Failure::None ? static_cast<long>(Success) : Cancelled);
}

void KvCRpcClient::freeResults(KvNXdr::xdrproc_t decoder, void* result)
{
    KvNXdr::xdr_free(decoder, result);
}

long KvCRpcClient::setParameter(KvCErrorListPool& errors, KvUInt32 key, KvUInt32 value)
{
    constexpr KvUInt32 largestPort = 65535;
    if (m_state == nullptr) {
        KV_REPORT(errors, RpcOutOfMemory, "KvCRpcClient::setParameter", "");
        return OutOfMemory;
    }
    KvNRpc::ChannelSettings& settings = m_state->link.settings;
    const bool isPort = key == Port || key == PortMapperPort;
    const bool mayBeZero = key == Version || key == Port;
    if (key < Program || key > LargestReply || (isPort && value > largestPort) || (value == 0 && !mayBeZero)) {
        KV_REPORT(errors, RpcParameterInvalid, "KvCRpcClient::setParameter", key, value);
        return ParameterInvalid;
    }
    switch (key) {
        case Program:
            settings.program = value;
            break;
        case Version:
            settings.version = value;
            break;
        case Port:
            settings.port = static_cast<std::uint16_t>(value);
            break;
        case PortMapperPort:
            settings.portMapperPort = static_cast<std::uint16_t>(value);
            break;
        case ConnectTimeout:
            settings.connectTimeout = microseconds(value);
            break;
        case CallTimeout:
            m_state->callTimeout = microseconds(value);
            break;
        default:
            settings.largestReply = value;
            break;
    }
    return Success;
}

void KvCRpcClient::setRepeatable(KvUInt32 procedure) noexcept
{
    if (m_state != nullptr && procedure < 64)
        m_state->repeatable |= static_cast<KvUInt64>(1) << procedure;
}

void KvCRpcClient::cancelAll() noexcept
{
    KvNRpc::cancelEverything();
}

void KvCRpcClient::setDefaultTimeout(KvUInt32 time) noexcept
{
    defaultTimeout.store(time, std::memory_order_relaxed);
}

void KvCRpcClient::setTrace(Trace function, void* context) noexcept
{
    traceContext.store(context, std::memory_order_relaxed);
    traceFunction.store(function, std::memory_order_relaxed);
}
