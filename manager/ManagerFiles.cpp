#include <cstring>
#include <utility>

#include "manager/BoardCall.h"
#include "platform/dal/KvDALAp.h"

/* Files on boards: names for them, putting them there and removing them. */

using KvNInventoryManager::BoardCall;
using KvNInventoryManager::KvSRemoteFileHandle;
using KvNInventoryManager::RemoteCall;
using KvNInventoryRpc::Characters;
namespace Procedure = KvNInventoryRpc::Procedure;

namespace {

/** The right to delete files, as boards number it. */
constexpr KvUInt32 DeleteFiles = 0x10003;

/** A file transfer handle for the time of one operation; the handle is deleted on every path. `description` gives the
    board's name for messages. */
template <class Description>
class TransferHandle
{
public:
    /** 0x1600812 when there is no handle. */
    TransferHandle(KvCErrorListPool& errors, const char* origin, void* deviceHandle, Description description)
        : m_errors(errors),
          m_origin(origin),
          m_description(description),
          m_exists(KvDAL_createFTClientHandle(errors, deviceHandle, &m_handle) == KvNDeviceAccess::Ok)
    {
        if (!m_exists)
            KV_REPORT(errors, TransferHandleNotCreated, origin, description());
    }
    /** 0x1600814. */
    ~TransferHandle()
    {
        if (m_exists && KvDAL_deleteFTClientHandle(m_errors, m_handle) != KvNDeviceAccess::Ok)
            KV_REPORT(m_errors, TransferHandleNotDeleted, m_origin, m_description());
    }
    TransferHandle(const TransferHandle&) = delete;
    TransferHandle& operator=(const TransferHandle&) = delete;

    bool exists() const { return m_exists; }
    void* get() const { return m_handle; }

private:
    KvCErrorListPool& m_errors;
    const char* m_origin;
    const Description m_description;
    void* m_handle = nullptr;
    const bool m_exists;
};

/** Makes a text of characters; what stands behind a NUL is no part of it. False when there is no memory for it. */
bool toText(const Characters& received, KvCString& text)
{
    if (received.length == 0)
        return true;
    const void* end = std::memchr(received.data, '\0', received.length);
    const auto length =
        end != nullptr ? static_cast<KvUInt32>(static_cast<const char*>(end) - received.data) : received.length;
    text = KvCString(received.data, length);
    return text.length() == length;
}

}  // namespace

long KvCInventoryManager::checkAuthority(KvCErrorListPool& errors, void* deviceHandle,
                                         const KvCInventoryAddress& address, KvUInt32 accessId, KvUInt32 right,
                                         bool& allowed) const
{
    constexpr const char* origin = "KvCInventoryManager::checkAuthority";
    allowed = false;
    KVINVENTORYMANAGERRPCIF1Client* client = getRPCClient(errors, deviceHandle);
    if (client == nullptr)
        return -1;
    RemoteCall<KvInventoryManagerRpcIFCheckAuthorityResult> remote(errors, *client, origin, Procedure::checkAuthority);
    if (!remote.callAt(address, KvNInventoryRpc::checkAuthority, accessId, right))
        return -1;
    if (remote.result().status != 0) {
        KV_REPORT(errors, AuthorityCheckFailed, origin);
        return -1;
    }
    allowed = remote.result().allowed != 0;
    return 0;
}

long KvCInventoryManager::generateRemoteFilename(KvCErrorListPool& errors, void* deviceHandle,
                                                 const KvCInventoryAddress& address, KvUInt32 accessId,
                                                 KvCString& directory, KvCString& fileName) const
{
    constexpr const char* origin = "KvCInventoryManager::generateRemoteFilename";
    KVINVENTORYMANAGERRPCIF1Client* client = getRPCClient(errors, deviceHandle);
    if (client == nullptr)
        return -1;
    RemoteCall<KvInventoryManagerRpcIFRemoteFilenameResult> remote(errors, *client, origin,
                                                                   Procedure::generateRemoteFilename);
    if (!remote.callAt(address, KvNInventoryRpc::generateRemoteFilename, accessId))
        return -1;
    const KvInventoryManagerRpcIFRemoteFilenameResult& result = remote.result();
    if (result.status != 0) {
        KV_REPORT(errors, RemoteFileNameFailed, origin);
        return -1;
    }
    KvCString newDirectory;
    KvCString newFileName;
    if (!toText(result.directory, newDirectory) || !toText(result.fileName, newFileName)) {
        KV_REPORT(errors, OutOfMemory, origin);
        return -1;
    }
    directory = std::move(newDirectory);
    fileName = std::move(newFileName);
    return 0;
}

void KvCInventoryManager::putFile(KvCErrorListPool& errors, void* deviceHandle, const wchar_t* localPath,
                                  const char* directory, const char* fileName, void (*progress)(unsigned int, void*),
                                  void* context) const
{
    constexpr const char* origin = "KvCInventoryManager::putFile";
    const TransferHandle transfer(errors, origin, deviceHandle, [=] { return getHcnInfo(deviceHandle); });
    if (!transfer.exists())
        return;
    if (KvDAL_putFileU(errors, nullptr, transfer.get(), localPath, directory, fileName, progress, context) < 0)
        KV_REPORT(errors, DownloadFailed, origin, getHcnInfo(deviceHandle));
}

long KvCInventoryManager::transferFile(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                       const KvCInventoryAddress& address, void* lockHandle, const wchar_t* localPath,
                                       void (*progress)(unsigned int, void*), void* context,
                                       KvSRemoteFileHandle& file) const
{
    KvSRemoteFileHandle named;
    const BoardCall board(errors, "KvCInventoryManager::transferFile", rootHandle, address);
    const long result = board.runOnDevice(lockHandle, [&](void* deviceHandle, KvUInt32 accessId) {
        const KvNReport::Watch naming(errors);
        if (generateRemoteFilename(errors, deviceHandle, address, accessId, named.directory, named.fileName) != 0 ||
            naming.grew())
            return -1L;
        putFile(errors, deviceHandle, localPath, named.directory.c_str(), named.fileName.c_str(), progress, context);
        return 0L;
    });
    if (result == 0)
        file = std::move(named);
    return result;
}

long KvCInventoryManager::deleteRemoteFile(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                           const KvCInventoryAddress& address, void* lockHandle,
                                           const KvSRemoteFileHandle& file) const
{
    constexpr const char* origin = "KvCInventoryManager::deleteRemoteFile";
    const BoardCall board(errors, origin, rootHandle, address);
    return board.runOnDevice(lockHandle, [&](void* deviceHandle, KvUInt32 accessId) {
        const KvNReport::Watch checking(errors);
        bool allowed = false;
        if (checkAuthority(errors, deviceHandle, address, accessId, DeleteFiles, allowed) != 0 || checking.grew())
            return -1L;
        if (!allowed) {
            KV_REPORT(errors, AccessDenied, origin, address.toString());
            return -1L;
        }
        const TransferHandle transfer(errors, origin, deviceHandle, [=] { return getHcnInfo(deviceHandle); });
        const char* directory = file.directory.c_str();
        const char* fileName = file.fileName.c_str();
        if (transfer.exists() &&
            KvDAL_deleteFile(errors, nullptr, transfer.get(), directory, fileName) != KvNDeviceAccess::Ok)
            KV_REPORT(errors, RemoteFileNotRemoved, origin, directory, fileName, getHcnInfo(deviceHandle));
        return 0L;
    });
}
