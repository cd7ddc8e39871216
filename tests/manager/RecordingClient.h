#pragma once

#include <map>
#include <string>
#include <vector>

#include "Bytes.h"
#include "base/Report.h"
#include "manager/rpc/KVINVENTORYMANAGERRPCIF1Client.h"

/**
 * A client without a board behind it: it records each call with the bytes of its arguments and answers with the bytes
 * that the test has set for the procedure.
 */
class RecordingClient : public KVINVENTORYMANAGERRPCIF1Client
{
public:
    struct Call
    {
        KvUInt32 procedure;
        Bytes arguments;
    };

    explicit RecordingClient(KvCErrorListPool& errors) : KVINVENTORYMANAGERRPCIF1Client(errors, "127.0.0.1") {}

    void answer(KvUInt32 procedure, const Bytes& results) { m_answers[procedure] = {Success, results}; }
    /** The call fails as `outcome` says, after the bytes given have been decoded. */
    void fail(KvUInt32 procedure, long outcome, const Bytes& results = {})
    {
        m_answers[procedure] = {outcome, results};
    }

    const std::vector<Call>& calls() const { return m_calls; }
    /** Where else calls and releases are noted, as "call 10" and "freeResults", between what others note there. */
    std::vector<std::string>* journal = nullptr;
    /** Calls that could leave something in a result, and results given back. */
    int decoded() const { return m_decoded; }
    int released() const { return m_released; }

    long connect(KvCErrorListPool&) override { return Success; }

    long clntCall(KvCErrorListPool& errors, KvUInt32 procedure, KvNXdr::xdrproc_t encoder, void* arguments,
                  KvNXdr::xdrproc_t decoder, void* result) override
    {
        Bytes sent;
        if (!encode(encoder, arguments, sent)) {
            errors.setError(CallFailed, __LINE__, "RecordingClient::clntCall", nullptr);
            return OutOfMemory;
        }
        m_calls.push_back({procedure, sent});
        if (journal != nullptr)
            journal->push_back("call " + std::to_string(procedure));
        ++m_decoded;
        const Answer& answer = m_answers[procedure];
        KvNXdr::XDR xdrs;
        Bytes results = answer.results;
        KvNXdr::xdrmem_create(&xdrs, reinterpret_cast<char*>(results.data()), results.size(), KvNXdr::XDR_DECODE);
        const bool whole = decoder(&xdrs, result) != 0 && KvNXdr::xdrmem_left(&xdrs) == 0;
        const long outcome = answer.outcome != Success ? answer.outcome : whole ? long{Success} : long{ReplyMalformed};
        if (outcome != Success)
            errors.setError(CallFailed, __LINE__, "RecordingClient::clntCall", nullptr);
        return outcome;
    }

    void freeResults(KvNXdr::xdrproc_t decoder, void* result) override
    {
        ++m_released;
        if (journal != nullptr)
            journal->push_back("freeResults");
        KVINVENTORYMANAGERRPCIF1Client::freeResults(decoder, result);
    }

    /** What this client reports of a call that failed, as the real one does with codes of its table. */
    static constexpr KvUInt32 CallFailed = 0x10F800;

    static Bytes encoded(KvNXdr::xdrproc_t encoder, void* object)
    {
        Bytes bytes;
        encode(encoder, object, bytes);
        return bytes;
    }

private:
    static bool encode(KvNXdr::xdrproc_t encoder, void* object, Bytes& bytes)
    {
        KvNXdr::XDR xdrs;
        KvNXdr::xdrgrow_create(&xdrs, 1 << 26);
        const bool done = encoder(&xdrs, object) != 0;
        if (done)
            bytes.assign(xdrs.x_base, xdrs.x_base + KvNXdr::xdrmem_used(&xdrs));
        KvNXdr::xdrgrow_destroy(&xdrs);
        return done;
    }

    struct Answer
    {
        long outcome = Success;
        Bytes results;
    };

    std::map<KvUInt32, Answer> m_answers;
    std::vector<Call> m_calls;
    int m_decoded = 0;
    int m_released = 0;
};
