#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/KvTypes.h"

namespace KvNBoardService {

/** What is remembered of an update, so that a service that comes back knows how it stands (docs/formats.md). */
struct UpdateRecord
{
    enum class State
    {
        Idle,      ///< there is none
        Running,   ///< begun; the board has the former version
        Verified,  ///< the image is good; done when the board has the new version
        Failed
    };

    State state = State::Idle;
    std::string address;  ///< of the item
    KvUInt32 firmwareType = 0;
    KvUInt64 newVersion = 0;            ///< packed
    std::vector<unsigned char> errors;  ///< of a failed one: an error list block
};

/** The record as JSON. */
std::string updateRecordText(const UpdateRecord& record);

/** Reads such a JSON; false, and what is wrong and where in `problem`, when it is none. */
bool readUpdateRecord(std::string_view text, UpdateRecord& record, std::string& problem);

}  // namespace KvNBoardService
