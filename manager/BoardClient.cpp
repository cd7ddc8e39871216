#include <cstdio>
#include <utility>

#include "base/Report.h"
#include "inventory/ids/LoadTime.h"
#include "manager/DeviceParameter.h"
#include "manager/KvCInventoryManager.h"
#include "manager/PrivateErrorList.h"
#include "manager/rpc/KVINVENTORYMANAGERRPCIF1Client.h"
#include "manager/rpc/Procedures.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"

/*
 * The client of each board: made by the first operation on the board, registered with the device access library, and
 * used by all that follow.
 */

using KvNInventoryManager::readNumber;

namespace {

/** Guards the registry of clients. Made by the last step of loading the library and kept until the process ends, since
    threads may still be at work while it does. */
constinit KvNRtosAbstraction::Mutex* clientMutex = nullptr;

struct LoadTimeStep
{
    LoadTimeStep()
    {
        KvNLoadTime::setLastStep([] { KvNRtosAbstraction::initMutex(&clientMutex, nullptr); });
    }
};
const LoadTimeStep loadTimeStep;

class ClientLock
{
public:
    ClientLock() : m_locked(KvNRtosAbstraction::lockMutex(clientMutex, -1)) {}
    ~ClientLock()
    {
        if (m_locked)
            KvNRtosAbstraction::unlockMutex(clientMutex);
    }
    ClientLock(const ClientLock&) = delete;
    ClientLock& operator=(const ClientLock&) = delete;

private:
    const bool m_locked;
};

constexpr KvUInt32 CallTimeout = 20000000;

}  // namespace

KVINVENTORYMANAGERRPCIF1Client* KvCInventoryManager::getRPCClient(KvCErrorListPool& errors, void* deviceHandle) const
{
    constexpr KvUInt32 key = KvNInventoryRpc::ProgramNumber;
    KvCRpcClient* registered = nullptr;
    {
        const ClientLock lock;
        if (KvDAL_getRPCClientReference(errors, deviceHandle, key, &registered) != KvNDeviceAccess::Ok)
            return nullptr;
    }
    // Connecting takes its time: whoever asks for this board waits for it in the claim, other boards are not held up.
    if (registered == nullptr && KvDAL_claimRPCClient(errors, deviceHandle, key, &registered) != KvNDeviceAccess::Ok)
        return nullptr;
    if (registered != nullptr)
        return dynamic_cast<KVINVENTORYMANAGERRPCIF1Client*>(registered);

    KVINVENTORYMANAGERRPCIF1Client* client = nullptr;
    if (const char* hostAddress = KvDAL_getAddressFromHandle(errors, deviceHandle)) {
        const KvNReport::Watch watch(errors);
        client = new (errors) KVINVENTORYMANAGERRPCIF1Client(errors, hostAddress);
        if (client == nullptr)
            KV_REPORT(errors, RemoteOutOfMemory, "KvCInventoryManager::getRPCClient");
        // One without its state would fail for as long as the board is in use.
        else if (watch.grew())
            delete std::exchange(client, nullptr);
    }
    if (client != nullptr)
        configureRPCClient(errors, *client, getHcnInfo(deviceHandle));
    const ClientLock lock;
    const KvInt32 result = KvDAL_registerRPCClient(errors, deviceHandle, key, client);
    return result == KvNDeviceAccess::Ok ? client : nullptr;
}

void KvCInventoryManager::configureRPCClient(KvCErrorListPool& errors, KvCRpcClient& client,
                                             const KvCString& boardDescription)
{
    client.setParameter(errors, KvCRpcClient::Program, KvNInventoryRpc::ProgramNumber);
    client.setParameter(errors, KvCRpcClient::Version, KvNInventoryRpc::ProgramVersion);
    client.setParameter(errors, KvCRpcClient::CallTimeout, CallTimeout);
#define KV_PROCEDURE(number, name, repeatable) \
    if (repeatable)                            \
        client.setRepeatable(number);
#include "manager/rpc/Procedures.def"
#undef KV_PROCEDURE
    connectRPCClient(errors, client, boardDescription);
}

void KvCInventoryManager::connectRPCClient(KvCErrorListPool& errors, KvCRpcClient& client,
                                           const KvCString& boardDescription)
{
    // Kept: the origin is that of the first connecting, as users know it.
    if (client.connect(errors) != 0)
        KV_REPORT(errors, BoardConnectFailed, "KvCInventoryManager::configureRPCClient", boardDescription);
}

KvCString KvCInventoryManager::getHcnInfo(void* deviceHandle)
{
    constexpr const char* origin = "KvCInventoryManager::getHcnInfo";
    PrivateErrorList privateErrors;
    KvCErrorListPool& errors = privateErrors.get();

    char serialText[40] = "unknown serial number";
    KvUInt32 serial = 0;
    if (readNumber(errors, deviceHandle, KvNDeviceAccess::DeviceSerialNumber, serial))
        std::snprintf(serialText, sizeof serialText, "serial number: %u", static_cast<unsigned int>(serial));
    else
        KV_REPORT(errors, HandleSerialNumberFailed, origin);

    char addressText[40] = "";
    KvUInt32 ipAddress = 0;
    if (readNumber(errors, deviceHandle, KvNDeviceAccess::DeviceIpAddress, ipAddress)) {
        char quad[KvNRtosAbstraction::ipTextSize];
        std::snprintf(addressText, sizeof addressText, ", IP address: %s",
                      KvNRtosAbstraction::ipToString(ipAddress, quad, sizeof quad));
    } else {
        KV_REPORT(errors, HandleIpAddressFailed, origin);
    }

    char text[100];
    std::snprintf(text, sizeof text, "HCN (%s%s)", serialText, addressText);
    return KvCString(text);
}
