#pragma once

#include <cstddef>
#include <string>

#include "device_access.h"
#include "tools/kvboardd/LockTable.h"

namespace KvNBoardService {

/** Room for the fields of a result beside its counted bytes. */
constexpr std::size_t fieldRoom = 64;

/** A text as generated code takes it, which reads only when it encodes. */
inline char* encodable(const std::string& text)
{
    return const_cast<char*>(text.c_str());
}

/** What a lock table's outcome is called in device_access.x. */
inline KvdaStatus statusOf(LockTable::Outcome outcome)
{
    switch (outcome) {
        case LockTable::Outcome::Granted:
            return KVDA_OK;
        case LockTable::Outcome::Locked:
            return KVDA_LOCKED;
        case LockTable::Outcome::BadAccess:
            return KVDA_BAD_ACCESS;
        case LockTable::Outcome::BadArgument:
            return KVDA_BAD_ARGUMENT;
        case LockTable::Outcome::TooMany:
        case LockTable::Outcome::TooManyWrong:
            return KVDA_LIMIT;
        case LockTable::Outcome::NoRandom:
            return KVDA_IO;
    }
    return KVDA_IO;
}

}  // namespace KvNBoardService
