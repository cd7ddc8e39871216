#pragma once

#include "platform/KvTypes.h"

/** The numbers of a board's device access service. */
namespace KvNDeviceAccess {

constexpr KvUInt32 deviceAccessProgram = 0x20004B56;
constexpr KvUInt32 deviceAccessVersion = 1;

enum Procedure : KvUInt32
{
#define KV_DEVICE_PROCEDURE(number, name) name = (number),
#include "platform/dal/Procedures.def"
#undef KV_DEVICE_PROCEDURE
};

/** The name of a procedure; null for a number that has none. */
constexpr const char* procedureName(KvUInt32 procedure)
{
    switch (procedure) {
#define KV_DEVICE_PROCEDURE(number, name) \
    case number:                          \
        return #name;
#include "platform/dal/Procedures.def"
#undef KV_DEVICE_PROCEDURE
        default:
            return nullptr;
    }
}

}  // namespace KvNDeviceAccess
