#pragma once

#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"
#include "platform/oncrpc/KvXdr.h"

namespace KvNRpc {
class SentCall;
}

/**
 * One service of one board, called by ONC RPC over TCP.
 *
 * Configured with setParameter(), then called. Several threads may call through one client at once: they share one
 * connection, and each call gets its own reply. A connection that ended is made anew by the next call; a call within
 * one second after a failed connect fails at once with the same reason. Each failure is a non-zero Result and one entry
 * of table 0x100000 in the caller's list. No call outlasts its time-out, whatever the board does; no signal is raised
 * or blocked. The client must outlive the calls made through it.
 */
class KV_EXPORT KvCRpcClient : public KvNAllocation::Object
{
public:
    /** What a call or a connect comes to. */
    enum Result : long
    {
        /** The reply came and was decoded. */
        Success = 0,
        /** No connection: refused, unreachable, no port registered, the port mapper silent, or the connect time-out. */
        ConnectFailed = 1,
        /** The call time-out passed. */
        TimedOut = 2,
        /** The connection ended before the whole reply had come. */
        ConnectionLost = 3,
        /** The reply is none, has a result that cannot be decoded, or bytes behind it. */
        ReplyMalformed = 4,
        /** The reply is larger than parameter 7, or replies of the process together than 512 MiB. */
        ReplyTooLarge = 5,
        /** cancelAll() was called. */
        Cancelled = 6,
        /** Memory, a thread or a descriptor could not be had. */
        OutOfMemory = 7,
        /** The arguments could not be encoded: a null string, or more than a record holds. */
        ArgumentsInvalid = 8,
        /** Host address, parameter key or value is none. */
        ParameterInvalid = 9,
        /** The service does not have the program (RFC 5531 PROG_UNAVAIL). */
        ProgramUnavailable = 20,
        /** The service has other versions of the program (PROG_MISMATCH). */
        VersionMismatch = 21,
        /** The service does not have the procedure (PROC_UNAVAIL). */
        ProcedureUnavailable = 22,
        /** The service could not decode the arguments (GARBAGE_ARGS). */
        GarbageArguments = 23,
        /** The service failed, by its own account (SYSTEM_ERR). */
        SystemError = 24,
        /** The service speaks other versions of RPC (RPC_MISMATCH). */
        RpcVersionMismatch = 25,
        /** The service refused the credentials (AUTH_ERROR). */
        AuthenticationError = 26
    };

    /** Keys of setParameter(). */
    enum Parameter : KvUInt32
    {
        /** Program number. */
        Program = 1,
        /** Program version. */
        Version = 2,
        /** TCP port; 0 (default): ask the board's port mapper. */
        Port = 3,
        /** Port of the board's port mapper; default: environment KVDAL_PORTMAP_PORT, else 111. */
        PortMapperPort = 4,
        /** Time-out of asking the port mapper and connecting, in microseconds; default 5 s. */
        ConnectTimeout = 5,
        /** Time-out of a whole call, in microseconds; default 20 s. */
        CallTimeout = 6,
        /** Largest reply in bytes; default 64 MiB. */
        LargestReply = 7
    };

    /** A client of the service at `hostAddress`, an IPv4 address as text (dotted decimal). Nothing is sent yet. An
        address that is none, or no memory, is reported, and then each call fails. */
    KvCRpcClient(KvCErrorListPool& errors, const char* hostAddress);
    virtual ~KvCRpcClient();
    KvCRpcClient(const KvCRpcClient&) = delete;
    KvCRpcClient& operator=(const KvCRpcClient&) = delete;

    /** Makes the connection, unless there is one; a failed one is tried anew whatever the time since. Returns a Result,
        reported when it is not Success. */
    virtual long connect(KvCErrorListPool& errors);

    /** Calls `procedure` with `arguments` as `encoder` writes them, and decodes the reply with `decoder` into `result`,
        which the caller has zeroed and releases with freeResults() on every path. Returns a Result, reported when it is
        not Success; the result is then left as decoded so far. */
    virtual long clntCall(KvCErrorListPool& errors, KvUInt32 procedure, KvNXdr::xdrproc_t encoder, void* arguments,
                          KvNXdr::xdrproc_t decoder, void* result);

    /** Frees what decoding put into `result`. */
    virtual void freeResults(KvNXdr::xdrproc_t decoder, void* result);

    /** Begins a call as clntCall() does, in the room that `call` has for its arguments, and does not wait for its
       reply. Calls of one thread are sent in this order. False when memory is out, the arguments do not fit, or there
       is no address or program: nothing is sent then, and nothing reported. */
    bool sendCall(KvNRpc::SentCall& call, KvUInt32 procedure, KvNXdr::xdrproc_t encoder, void* arguments) noexcept;

    /** Waits for the reply of a call that was sent, from now on for the time of a call, and returns what clntCall()
        returns. */
    long takeReply(KvCErrorListPool& errors, KvNRpc::SentCall& call, KvUInt32 procedure, KvNXdr::xdrproc_t decoder,
                   void* result);

    /** Ends a call that was sent, whose reply is not wanted any more. Several are best abandoned one after the other
        before. */
    void dropCall(KvNRpc::SentCall& call, KvUInt32 procedure) noexcept;

    /** Sets a Parameter; not for use while calls are in progress. What has effect on a connection acts on the next one
        made. Returns Success, or ParameterInvalid and reports an unknown key or a value out of range. */
    long setParameter(KvCErrorListPool& errors, KvUInt32 key, KvUInt32 value);

    /** Declares that repeating `procedure` (0 to 63) does no harm: a call of it whose connection ended before one byte
        of the reply is tried once more. The null procedure always is repeatable. Numbers above 63 are ignored.
        Not for use while calls are in progress. */
    void setRepeatable(KvUInt32 procedure) noexcept;

    /** Ends every call, connect and search in progress in this process, each with Cancelled, within 50 ms. May be
        called from any thread and from a signal handler. */
    static void cancelAll() noexcept;

    /** From now on calls of all clients last at most `microseconds` instead of their parameter 6; 0 undoes that. */
    static void setDefaultTimeout(KvUInt32 microseconds) noexcept;

    /** A call that has come to its end. The text is valid during the call of the trace function only. */
    struct TracedCall
    {
        const char* hostAddress;
        KvUInt32 program;
        KvUInt32 procedure;
        long result;  ///< a Result
        KvUInt64 microseconds;
    };
    using Trace = void (*)(void* context, const TracedCall& call);
    /** Has every call of every client told to `function` (null: none) when it has ended, on the thread that made it:
        calls of several threads, among them those of a scan of several boards, are told at the same time. Must not
       throw. Not for use while calls are in progress. */
    static void setTrace(Trace function, void* context) noexcept;

private:
    struct State;
    long callOnce(KvCErrorListPool& errors, KvUInt32 procedure, KvNXdr::xdrproc_t encoder, void* arguments,
                  KvNXdr::xdrproc_t decoder, void* result);
    long usable(KvCErrorListPool& errors, const char* origin) const;

    State* m_state;
};
