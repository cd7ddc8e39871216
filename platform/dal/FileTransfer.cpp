#include <cstring>

#include "platform/dal/BoardCall.h"
#include "platform/dal/Entries.h"
#include "platform/dal/KvDALAp.h"
#include "platform/dal/Upload.h"
#include "platform/oncrpc/RpcChannel.h"

using namespace KvNDeviceAccess;

namespace {

/* Length of a name, of which no more is looked at than a name may have. */
std::size_t lengthOf(const char* name)
{
    const void* end = std::memchr(name, 0, mostText + 1);
    return end == nullptr ? mostText + 1 : static_cast<std::size_t>(static_cast<const char*>(end) - name);
}

/* The argument that makes no name of a file on a board; null when they do. */
const char* wrongArgument(const void* reserved, const char* directory, const char* fileName)
{
    if (reserved != nullptr)
        return "reserved";
    if (directory == nullptr)
        return "directory";
    if (fileName == nullptr || fileName[0] == 0)
        return "fileName";
    const std::size_t folder = lengthOf(directory);
    return folder + (folder != 0 ? 1 : 0) + lengthOf(fileName) > mostText ? "fileName" : nullptr;
}

/* The access id in force on the board; 0, reported, when there is none. */
KvUInt32 accessOf(KvCErrorListPool& errors, const char* origin, const Board& board)
{
    const KvUInt32 accessId = board.accessInForce();
    if (accessId == 0)
        KV_REPORT(errors, DalNoAccess, origin);
    return accessId;
}

KvInt32 putFile(KvCErrorListPool& errors, const char* origin, void* transfer, const wchar_t* localPath,
                const char* directory, const char* fileName, Upload::Progress progress, void* context)
{
    const KvUInt32 cancelCount = KvNRpc::cancelCount();
    const auto entry = handleTable().find<TransferEntry>(transfer);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    if (localPath == nullptr)
        return reportInvalidArgument(errors, origin, "localPath");
    if (const char* wrong = wrongArgument(nullptr, directory, fileName); wrong != nullptr)
        return reportInvalidArgument(errors, origin, wrong);
    return guarded(errors, origin, [&] {
        const std::lock_guard<std::mutex> turn(entry->board->transfers());
        const KvUInt32 accessId = accessOf(errors, origin, *entry->board);
        if (accessId == 0)
            return static_cast<KvInt32>(NoAccess);
        Upload upload(errors, origin, *entry->board, accessId, cancelCount);
        return upload.run(localPath, directory, fileName, progress, context);
    });
}

KvInt32 deleteFile(KvCErrorListPool& errors, const char* origin, Board& board, const char* directory,
                   const char* fileName)
{
    KvdaFileName name;
    name.accessId = accessOf(errors, origin, board);
    if (name.accessId == 0)
        return NoAccess;
    // encoding only reads
    name.directory = const_cast<char*>(directory);
    name.fileName = const_cast<char*>(fileName);
    DecodedResult reply;
    BoardCall call{Delete, KvNXdr::proc<xdr_KvdaFileName>, &name, DecodedResult::routine,
                   static_cast<KvdaResult*>(&reply)};
    const KvInt32 result = callBoard(errors, origin, board, call);
    if (result != Ok)
        return result;
    // deleted by the first request, whose reply was lost
    if (call.repeated && reply.status == BoardNotFound - BoardRefused)
        return Ok;
    appendErrors(errors, reply.errorList);
    return reply.status == 0 ? static_cast<KvInt32>(Ok) : reportRefusal(errors, origin, board, reply.status, nullptr);
}

}  // namespace

KvInt32 KvDAL_createFTClientHandle(KvCErrorListPool& errors, void* device, void** transfer)
{
    constexpr const char* origin = "KvDAL_createFTClientHandle";
    if (transfer == nullptr)
        return reportInvalidArgument(errors, origin, "transfer");
    *transfer = nullptr;
    const auto entry = handleTable().find<DeviceEntry>(device);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    return guarded(errors, origin,
                   [&] { return enter(errors, origin, makeShared<TransferEntry>(*entry->board), transfer); });
}

KvInt32 KvDAL_deleteFTClientHandle(KvCErrorListPool& errors, void* transfer)
{
    if (handleTable().take<TransferEntry>(transfer) == nullptr)
        return reportInvalidHandle(errors, "KvDAL_deleteFTClientHandle");
    return Ok;
}

KvInt32 KvDAL_putFileU(KvCErrorListPool& errors, void* reserved, void* transfer, const wchar_t* localPath,
                       const char* directory, const char* fileName, void (*progress)(unsigned int, void*),
                       void* context)
{
    constexpr const char* origin = "KvDAL_putFileU";
    // whoever calls this takes only what is negative for a failure
    return reserved != nullptr ? -reportInvalidArgument(errors, origin, "reserved")
                               : -putFile(errors, origin, transfer, localPath, directory, fileName, progress, context);
}

KvInt32 KvDAL_deleteFile(KvCErrorListPool& errors, void* reserved, void* transfer, const char* directory,
                         const char* fileName)
{
    constexpr const char* origin = "KvDAL_deleteFile";
    const auto entry = handleTable().find<TransferEntry>(transfer);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    if (const char* wrong = wrongArgument(reserved, directory, fileName); wrong != nullptr)
        return reportInvalidArgument(errors, origin, wrong);
    return guarded(errors, origin, [&] { return deleteFile(errors, origin, *entry->board, directory, fileName); });
}
