#include <cstring>

#include "manager/BoardCall.h"

/* Firmware updates of one board: starting them, following them, and closing them. */

using KvNInventoryManager::BoardCall;
using KvNInventoryManager::EUpdateStatus;
using KvNInventoryManager::FirmwareType;
using KvNInventoryManager::KvSRemoteFileHandle;
using KvNInventoryManager::RemoteCall;
using KvNInventoryManager::StatusCall;
namespace Procedure = KvNInventoryRpc::Procedure;

namespace {

using WireFirmwareType = KvInventoryManagerRpcIFFirmwareType;

/** The service's number of a firmware type; a value that is none is the service's "invalid". */
WireFirmwareType toWire(FirmwareType type)
{
    switch (type) {
#define KV_FIRMWARE_TYPE(number, wireNumber, name) \
    case number:                                   \
        return WireFirmwareType{wireNumber};
#include "manager/FirmwareTypes.def"
#undef KV_FIRMWARE_TYPE
    }
    return toWire(KvNInventoryManager::Invalid);
}

FirmwareType fromWire(WireFirmwareType type)
{
    switch (static_cast<KvInt32>(type)) {
#define KV_FIRMWARE_TYPE(number, wireNumber, name) \
    case wireNumber:                               \
        return KvNInventoryManager::name;
#include "manager/FirmwareTypes.def"
#undef KV_FIRMWARE_TYPE
        default:
            return KvNInventoryManager::Invalid;
    }
}

EUpdateStatus fromWire(KvInventoryManagerRpcIFUpdateState state)
{
    switch (static_cast<KvInt32>(state)) {
        case 0:
            return KvNInventoryManager::Idle;
        case 1:
            return KvNInventoryManager::Running;
        case 2:
        case 3:
            return KvNInventoryManager::Finished;
        default:
            return KvNInventoryManager::Unknown;
    }
}

/** Characters that an update carries of a file's path; what is behind them is cut off. */
constexpr std::size_t updatePathLength = 303;
constexpr std::size_t update2PathLength = 511;

/** A copy of a file name that is cut where its room ends; null is the empty name. */
template <std::size_t Size>
struct FileName
{
    explicit FileName(const char* name)
    {
        std::size_t length = 0;
        while (name != nullptr && length + 1 < Size && name[length] != '\0')
            ++length;
        if (length != 0)
            std::memcpy(text, name, length);
        text[length] = '\0';
    }
    char text[Size];
};

/** The path of a transferred file on its board. Without memory for it there is none: 0x601002. */
class RemotePath
{
public:
    RemotePath(KvCErrorListPool& errors, const char* origin, const KvSRemoteFileHandle& file)
        : m_path(file.directory.length() != 0 ? file.directory + "/" + file.fileName : file.fileName),
          m_isWhole(m_path.length() == lengthOf(file))
    {
        if (!m_isWhole)
            KV_REPORT(errors, OutOfMemory, origin);
    }

    bool isWhole() const { return m_isWhole; }
    const char* c_str() const { return m_path.c_str(); }

private:
    static KvUInt64 lengthOf(const KvSRemoteFileHandle& file)
    {
        const KvUInt64 directory = file.directory.length();
        return (directory != 0 ? directory + 1 : 0) + file.fileName.length();
    }

    const KvCString m_path;
    const bool m_isWhole;
};

}  // namespace

long KvCInventoryManager::update(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                                 const KvCInventoryAddress& address, KvUInt32 accessId, const char* fileName,
                                 FirmwareType type, KvUInt64 size) const
{
    constexpr const char* origin = "KvCInventoryManager::update";
    const FileName<updatePathLength + 1> name(fileName);
    StatusCall remote(errors, client, origin, Procedure::update);
    if (!remote.callAt(address, KvNInventoryRpc::update, accessId, name.text, toWire(type), size))
        return -1;
    if (remote.result().status == 0)
        return 0;
    KV_REPORT(errors, UpdateFailed, origin, address.toString());
    return -1;
}

long KvCInventoryManager::update2(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                                  const KvCInventoryAddress& address, KvUInt32 accessId, KvUInt32 kind,
                                  const char* fileName, KvUInt64 size) const
{
    constexpr const char* origin = "KvCInventoryManager::update2";
    const FileName<update2PathLength + 1> name(fileName);
    StatusCall remote(errors, client, origin, Procedure::update2);
    if (!remote.callAt(address, KvNInventoryRpc::update2, accessId, kind, name.text, size))
        return -1;
    if (remote.result().status == 0)
        return 0;
    KV_REPORT(errors, UpdateFailed, origin, address.toString());
    return -1;
}

long KvCInventoryManager::updateStatus(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                                       const KvCInventoryAddress& address, EUpdateStatus& state, FirmwareType& type,
                                       KvUInt32& value1, KvUInt32& value2) const
{
    constexpr const char* origin = "KvCInventoryManager::updateStatus";
    RemoteCall<KvInventoryManagerRpcIFUpdateStatusResult> remote(errors, client, origin, Procedure::updateStatus);
    if (!remote.callAt(address, KvNInventoryRpc::updateStatus))
        return -1;
    const KvInventoryManagerRpcIFUpdateStatusResult& result = remote.result();
    if (result.status != 0) {
        KV_REPORT(errors, UpdateStatusFailed, origin, address.toString());
        return -1;
    }
    type = fromWire(result.firmwareType);
    state = fromWire(result.updateState);
    value1 = result.value1;
    value2 = result.value2;
    return 0;
}

long KvCInventoryManager::updateStatus2(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                                        const KvCInventoryAddress& address, KvUInt32& value1, KvUInt32& value2,
                                        KvUInt32& value3, KvUInt32& value4) const
{
    constexpr const char* origin = "KvCInventoryManager::updateStatus2";
    RemoteCall<KvInventoryManagerRpcIFUpdateStatus2Result> remote(errors, client, origin, Procedure::updateStatus2);
    if (!remote.callAt(address, KvNInventoryRpc::updateStatus2, value1))
        return -1;
    const KvInventoryManagerRpcIFUpdateStatus2Result& result = remote.result();
    if (result.status != 0) {
        KV_REPORT(errors, UpdateStatusFailed, origin, address.toString());
        return -1;
    }
    value1 = result.value1;
    value2 = result.value2;
    value3 = result.value3;
    value4 = result.value4;
    return 0;
}

long KvCInventoryManager::updateErrors(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                                       const KvCInventoryAddress& address, KvUInt32 accessId) const
{
    constexpr const char* origin = "KvCInventoryManager::updateErrors";
    StatusCall remote(errors, client, origin, Procedure::updateErrors);
    if (!remote.callAt(address, KvNInventoryRpc::updateErrors, accessId))
        return -1;
    if (remote.result().status == 0)
        return 0;
    KV_REPORT(errors, UpdateResultsFailed, origin, address.toString());
    return -1;
}

long KvCInventoryManager::updateErrors2(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                                        const KvCInventoryAddress& address, KvUInt32 accessId, KvUInt32 index,
                                        KvCErrorListPool& updateErrorList) const
{
    constexpr const char* origin = "KvCInventoryManager::updateErrors2";
    RemoteCall<KvInventoryManagerRpcIFUpdateErrors2Result> remote(errors, client, origin, Procedure::updateErrors2);
    if (!remote.callAt(address, KvNInventoryRpc::updateErrors2, accessId, index))
        return -1;
    const KvNInventoryRpc::Opaque& received = remote.result().errors;
    if (received.length != 0)
        updateErrorList.deSerialize(reinterpret_cast<const unsigned char*>(received.data), received.length);
    if (remote.result().status == 0)
        return 0;
    KV_REPORT(errors, UpdateResultsFailed, origin, address.toString());
    return -1;
}

long KvCInventoryManager::updateFinish(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                                       const KvCInventoryAddress& address, KvUInt32 accessId) const
{
    constexpr const char* origin = "KvCInventoryManager::updateFinish";
    StatusCall remote(errors, client, origin, Procedure::updateFinish);
    if (!remote.callAt(address, KvNInventoryRpc::updateFinish, accessId))
        return -1;
    if (remote.result().status == 0)
        return 0;
    KV_REPORT(errors, UpdateFinishFailed, origin, address.toString());
    return -1;
}

long KvCInventoryManager::update(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                 const KvCInventoryAddress& address, void* lockHandle, const KvSRemoteFileHandle& file,
                                 FirmwareType type, KvUInt64 size) const
{
    constexpr const char* origin = "KvCInventoryManager::update";
    const RemotePath path(errors, origin, file);
    if (!path.isWhole())
        return -1;
    const BoardCall board(errors, origin, rootHandle, address);
    return board.runLocked(lockHandle, [&](KVINVENTORYMANAGERRPCIF1Client& client, KvUInt32 accessId) {
        return update(errors, client, address, accessId, path.c_str(), type, size);
    });
}

long KvCInventoryManager::update2(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                  const KvCInventoryAddress& address, void* lockHandle, KvUInt32 kind,
                                  const KvSRemoteFileHandle& file, KvUInt64 size) const
{
    constexpr const char* origin = "KvCInventoryManager::update2";
    const RemotePath path(errors, origin, file);
    if (!path.isWhole())
        return -1;
    const BoardCall board(errors, origin, rootHandle, address);
    return board.runLocked(lockHandle, [&](KVINVENTORYMANAGERRPCIF1Client& client, KvUInt32 accessId) {
        return update2(errors, client, address, accessId, kind, path.c_str(), size);
    });
}

/* An answer with an error entry is a failure, which the frame finds after the answer has been taken: outputs over a
   root handle are therefore set by copies. */

long KvCInventoryManager::updateStatus(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                       const KvCInventoryAddress& address, EUpdateStatus& state, FirmwareType& type,
                                       KvUInt32& value1, KvUInt32& value2) const
{
    EUpdateStatus newState{};
    FirmwareType newType{};
    KvUInt32 values[2] = {};
    const BoardCall board(errors, "KvCInventoryManager::updateStatus", rootHandle, address);
    const long result = board.run([&](KVINVENTORYMANAGERRPCIF1Client& client) {
        return updateStatus(errors, client, address, newState, newType, values[0], values[1]);
    });
    if (result != 0)
        return result;
    state = newState;
    type = newType;
    value1 = values[0];
    value2 = values[1];
    return 0;
}

long KvCInventoryManager::updateStatus2(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                        const KvCInventoryAddress& address, KvUInt32& value1, KvUInt32& value2,
                                        KvUInt32& value3, KvUInt32& value4) const
{
    KvUInt32 values[4] = {value1};
    const BoardCall board(errors, "KvCInventoryManager::updateStatus2", rootHandle, address);
    const long result = board.run([&](KVINVENTORYMANAGERRPCIF1Client& client) {
        return updateStatus2(errors, client, address, values[0], values[1], values[2], values[3]);
    });
    if (result != 0)
        return result;
    value1 = values[0];
    value2 = values[1];
    value3 = values[2];
    value4 = values[3];
    return 0;
}

long KvCInventoryManager::updateErrors(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                       const KvCInventoryAddress& address, void* lockHandle) const
{
    const BoardCall board(errors, "KvCInventoryManager::updateErrors", rootHandle, address);
    return board.runLocked(lockHandle, [&](KVINVENTORYMANAGERRPCIF1Client& client, KvUInt32 accessId) {
        return updateErrors(errors, client, address, accessId);
    });
}

long KvCInventoryManager::updateErrors2(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                        const KvCInventoryAddress& address, void* lockHandle, KvUInt32 index,
                                        KvCErrorListPool& updateErrorList) const
{
    const BoardCall board(errors, "KvCInventoryManager::updateErrors2", rootHandle, address);
    return board.runLocked(lockHandle, [&](KVINVENTORYMANAGERRPCIF1Client& client, KvUInt32 accessId) {
        return updateErrors2(errors, client, address, accessId, index, updateErrorList);
    });
}

long KvCInventoryManager::updateFinish(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                                       const KvCInventoryAddress& address, void* lockHandle) const
{
    const BoardCall board(errors, "KvCInventoryManager::updateFinish", rootHandle, address);
    return board.runLocked(lockHandle, [&](KVINVENTORYMANAGERRPCIF1Client& client, KvUInt32 accessId) {
        return updateFinish(errors, client, address, accessId);
    });
}
