#pragma once

#include <cstdint>
#include <span>
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
};

}  // namespace KvNBoardService
