#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "platform/KvTypes.h"

namespace KvNBoardService {

/** A call of one of the service's procedures, without what carries it. */
struct Call
{
    KvUInt32 procedure = 0;
    KvUInt32 peer = 0;  ///< IPv4 address of the caller, host order
    bool datagram = false;
    bool broadcast = false;  ///< sent to a broadcast address
    std::span<const unsigned char> arguments;
};

class Later;

/** What a procedure answers. */
struct Answer
{
    enum class Kind
    {
        Success,
        ProcedureUnavailable,
        GarbageArguments,
        SystemError,
        None
    };

    static Answer of(Kind kind)
    {
        Answer answer;
        answer.kind = kind;
        return answer;
    }

    Kind kind = Kind::Success;
    std::vector<unsigned char> results;
    /** The valid access id that the call named or was given; 0: none. */
    KvUInt32 accessId = 0;
    /** The call is to be answered late: its peer has sent too many wrong access ids. */
    bool slow = false;
    /** Not null: this is no answer yet, it comes when something that takes time is done. */
    std::shared_ptr<Later> later;
};

/** An answer that comes later. Destroyed without having been given, it is none. */
class Later
{
public:
    /** Gives it, once. */
    void give(Answer answer)
    {
        if (m_taker)
            return m_taker(std::move(answer));
        m_answer = std::move(answer);
        m_isGiven = true;
    }
    /** Whether it was given before anyone asked for it. */
    bool isGiven() const { return m_isGiven; }
    Answer take() { return std::move(m_answer); }
    /** Has it passed on when it is given. */
    void then(std::function<void(Answer)> taker) { m_taker = std::move(taker); }

private:
    Answer m_answer;
    bool m_isGiven = false;
    std::function<void(Answer)> m_taker;
};

}  // namespace KvNBoardService
