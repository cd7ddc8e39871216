#pragma once

#include "platform/KvTypes.h"

/** The service's identity and its procedures, made from Procedures.def. */
namespace KvNInventoryRpc {

/** Program number, and the key under which a board's client is registered with the device access library. */
inline constexpr KvUInt32 ProgramNumber = 8;
inline constexpr KvUInt32 ProgramVersion = 1;

namespace Procedure {

enum Number : KvUInt32
{
#define KV_PROCEDURE(number, name, repeatable) name = number,
#include "manager/rpc/Procedures.def"
#undef KV_PROCEDURE
};

}  // namespace Procedure

/** The procedure as messages name it, for example "scan()"; "" for a number without a procedure. */
constexpr const char* procedureText(Procedure::Number number)
{
    switch (number) {
#define KV_PROCEDURE(procedureNumber, name, repeatable) \
    case procedureNumber:                               \
        return #name "()";
#include "manager/rpc/Procedures.def"
#undef KV_PROCEDURE
    }
    return "";
}

/** Whether the procedure may be sent once more when its connection ended before a byte of the reply. */
constexpr bool isRepeatable(Procedure::Number number)
{
    switch (number) {
#define KV_PROCEDURE(procedureNumber, name, repeatable) \
    case procedureNumber:                               \
        return repeatable;
#include "manager/rpc/Procedures.def"
#undef KV_PROCEDURE
    }
    return false;
}

}  // namespace KvNInventoryRpc
