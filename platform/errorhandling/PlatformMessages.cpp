#include "platform/errorhandling/PlatformMessages.h"

#include "platform/errorhandling/MessageTable.h"

namespace {

#define KV_ROWS ErrorHandlingRows
#define KV_ROWS_BASE 0x000000
#define KV_ROWS_FILE "platform/errorhandling/messages/ErrorHandling.def"
#include "platform/errorhandling/MessageRows.inc"

#define KV_ROWS RpcClientRows
#define KV_ROWS_BASE 0x100000
#define KV_ROWS_FILE "platform/errorhandling/messages/RpcClient.def"
#include "platform/errorhandling/MessageRows.inc"

#define KV_ROWS DeviceAccessRows
#define KV_ROWS_BASE 0x200000
#define KV_ROWS_FILE "platform/errorhandling/messages/DeviceAccess.def"
#include "platform/errorhandling/MessageRows.inc"

#define KV_ROWS BoardServiceRows
#define KV_ROWS_BASE 0x300000
#define KV_ROWS_FILE "platform/errorhandling/messages/BoardService.def"
#include "platform/errorhandling/MessageRows.inc"

}  // namespace

constinit const KvResText KvNPlatformMessages::tables[tableCount] = {
    KvNMessageTable::Table<ErrorHandlingRows>::record(), KvNMessageTable::Table<RpcClientRows>::record(),
    KvNMessageTable::Table<DeviceAccessRows>::record(), KvNMessageTable::Table<BoardServiceRows>::record()};
