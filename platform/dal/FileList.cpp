#include <algorithm>
#include <cstring>

#include "platform/dal/BoardCall.h"
#include "platform/dal/Entries.h"
#include "platform/dal/KvDALAp.h"

using namespace KvNDeviceAccess;

namespace {

template <std::size_t size>
void copyText(char (&target)[size], const char* text)
{
    if (text != nullptr)
        std::memcpy(target, text, std::min(std::strlen(text), size - 1));
}

KvDALSFile shown(const KvdaFile& file)
{
    KvDALSFile record = {};
    copyText(record.directory, file.directory);
    copyText(record.fileName, file.fileName);
    record.size = file.size;
    record.modified = file.modified;
    return record;
}

}  // namespace

KvInt32 KvDAL_listFiles(KvCErrorListPool& errors, void* device, KvDALSFile* files, KvUInt32* count, KvUInt64* freeBytes)
{
    constexpr const char* origin = "KvDAL_listFiles";
    if (count == nullptr || (files == nullptr && *count != 0))
        return reportInvalidArgument(errors, origin, count == nullptr ? "count" : "files");
    const auto entry = handleTable().find<DeviceEntry>(device);
    if (entry == nullptr)
        return reportInvalidHandle(errors, origin);
    return guarded(errors, origin, [&] {
        DecodedFileList list;
        BoardCall call{ListFiles, KvNXdr::xdr_void, nullptr, DecodedFileList::routine,
                       static_cast<KvdaFileList*>(&list)};
        const KvInt32 result = callBoard(errors, origin, *entry->board, call);
        if (result != Ok)
            return result;
        appendErrors(errors, list.errorList);
        if (list.status != 0)
            return reportRefusal(errors, origin, *entry->board, list.status, nullptr);
        if (freeBytes != nullptr)
            *freeBytes = list.freeBytes;
        const KvUInt32 room = *count;
        *count = list.fileCount;
        if (room < *count) {
            KV_REPORT(errors, DalListTooSmall, origin, room, *count);
            return static_cast<KvInt32>(ListTooSmall);
        }
        std::transform(list.files, list.files + list.fileCount, files, shown);
        return static_cast<KvInt32>(Ok);
    });
}
