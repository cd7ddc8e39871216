#pragma once

#include "platform/KvTypes.h"

/** The code of each message of the library and of its platform, made from the message files. */
enum class KvNMessage : KvUInt32
{
#define KV_MESSAGE(range, index, name, argTypes, text) name = 0x000000 + 0x800 * range + index,
#include "platform/errorhandling/messages/ErrorHandling.def"
#undef KV_MESSAGE
#define KV_MESSAGE(range, index, name, argTypes, text) name = 0x100000 + 0x800 * range + index,
#include "platform/errorhandling/messages/RpcClient.def"
#undef KV_MESSAGE
#define KV_MESSAGE(range, index, name, argTypes, text) name = 0x200000 + 0x800 * range + index,
#include "platform/errorhandling/messages/DeviceAccess.def"
#undef KV_MESSAGE
#define KV_MESSAGE(range, index, name, argTypes, text) name = 0x300000 + 0x800 * range + index,
#include "platform/errorhandling/messages/BoardService.def"
#undef KV_MESSAGE
#define KV_MESSAGE(range, index, name, argTypes, text) name = 0x600000 + 0x800 * range + index,
#include "base/messages/Composite.def"
#undef KV_MESSAGE
#define KV_MESSAGE(range, index, name, argTypes, text) name = 0xa00000 + 0x800 * range + index,
#include "base/messages/Stream.def"
#undef KV_MESSAGE
#define KV_MESSAGE(range, index, name, argTypes, text) name = 0x1300000 + 0x800 * range + index,
#include "base/messages/Inventory.def"
#undef KV_MESSAGE
#define KV_MESSAGE(range, index, name, argTypes, text) name = 0x1600000 + 0x800 * range + index,
#include "base/messages/Manager.def"
#undef KV_MESSAGE
};

namespace KvNReport {

/** The conversions of a message's arguments, "" when it has none. */
constexpr const char* argTypesOf(KvNMessage message)
{
#define KV_MESSAGE(range, index, name, argTypes, text) \
    case KvNMessage::name:                             \
        return argTypes;
    switch (message) {
#include "base/messages/Composite.def"
#include "base/messages/Inventory.def"
#include "base/messages/Manager.def"
#include "base/messages/Stream.def"
#include "platform/errorhandling/messages/BoardService.def"
#include "platform/errorhandling/messages/DeviceAccess.def"
#include "platform/errorhandling/messages/ErrorHandling.def"
#include "platform/errorhandling/messages/RpcClient.def"
    }
#undef KV_MESSAGE
    return "";
}

}  // namespace KvNReport
