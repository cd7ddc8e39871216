#include "platform/errorhandling/PlatformMessages.h"

#include "platform/errorhandling/MessageTable.h"

namespace {

#define KV_MESSAGE(range, index, name, argTypes, text) {range, index, argTypes, text},
struct ErrorHandlingRows
{
    static constexpr KvUInt32 base = 0x000000;
    static constexpr KvNMessageTable::Row rows[] = {
#include "platform/errorhandling/messages/ErrorHandling.def"
    };
};

struct RpcClientRows
{
    static constexpr KvUInt32 base = 0x100000;
    static constexpr KvNMessageTable::Row rows[] = {
#include "platform/errorhandling/messages/RpcClient.def"
    };
};

struct DeviceAccessRows
{
    static constexpr KvUInt32 base = 0x200000;
    static constexpr KvNMessageTable::Row rows[] = {
#include "platform/errorhandling/messages/DeviceAccess.def"
    };
};

struct BoardServiceRows
{
    static constexpr KvUInt32 base = 0x300000;
    static constexpr KvNMessageTable::Row rows[] = {
#include "platform/errorhandling/messages/BoardService.def"
    };
};
#undef KV_MESSAGE

}  // namespace

constinit const KvResText KvNPlatformMessages::tables[tableCount] = {
    KvNMessageTable::Table<ErrorHandlingRows>::record(), KvNMessageTable::Table<RpcClientRows>::record(),
    KvNMessageTable::Table<DeviceAccessRows>::record(), KvNMessageTable::Table<BoardServiceRows>::record()};
