#pragma once

#include <utility>

#include "base/Report.h"
#include "manager/KvCInventoryManager.h"
#include "manager/rpc/KVINVENTORYMANAGERRPCIF1Client.h"
#include "manager/rpc/Procedures.h"

namespace KvNInventoryManager {

/** The wire record of an address for the time of one call; gives its values back. */
class WireAddress
{
public:
    WireAddress() = default;
    ~WireAddress() { KvNAllocation::release(m_record.values); }
    WireAddress(const WireAddress&) = delete;
    WireAddress& operator=(const WireAddress&) = delete;

    KvInventoryManagerRpcIFInventoryAddress& record() { return m_record; }

private:
    KvInventoryManagerRpcIFInventoryAddress m_record{};
};

/**
 * What an operation over a root handle does before it speaks to the board: it finds the board that the address names,
 * reads the access id of the lock, and gets the board's client. And what it does behind: it says whether the list grew.
 */
class BoardCall
{
public:
    BoardCall(KvCErrorListPool& errors, const char* origin, const KvCInventoryRootHandle* rootHandle,
              const KvCInventoryAddress& address)
        : m_errors(errors), m_watch(errors), m_origin(origin), m_rootHandle(rootHandle), m_address(address)
    {}

    /** The device handle of the board, or null: 0x1600802, 0x1600805. */
    void* findBoard() const;

    /** Runs `operation(client)`. */
    template <class Operation>
    long run(Operation operation) const
    {
        void* deviceHandle = findBoard();
        return deviceHandle != nullptr ? outcome(runOn(deviceHandle, operation)) : -1;
    }

    /** Runs `operation(client, accessId)` under a lock: 0x1600822. */
    template <class Operation>
    long runLocked(void* lockHandle, Operation operation) const
    {
        return runOnDevice(lockHandle, [&](void* deviceHandle, KvUInt32 accessId) {
            return runOn(deviceHandle,
                         [&](KVINVENTORYMANAGERRPCIF1Client& client) { return operation(client, accessId); });
        });
    }

    /** Runs `operation(deviceHandle, accessId)` under a lock: 0x1600822. It gets the client itself, if at all. */
    template <class Operation>
    long runOnDevice(void* lockHandle, Operation operation) const
    {
        void* deviceHandle = findBoard();
        KvUInt32 accessId = 0;
        if (deviceHandle == nullptr || !readAccessId(lockHandle, accessId))
            return -1;
        return outcome(operation(deviceHandle, accessId));
    }

    /** marshalInventoryAddress for what stands outside the manager. An address that ran out of memory on the way is
        0x601002, and never sent as another one. */
    static bool marshal(KvCErrorListPool& errors, const char* origin, const KvCInventoryAddress& address,
                        WireAddress& wire);

private:
    bool readAccessId(void* lockHandle, KvUInt32& accessId) const;
    static KVINVENTORYMANAGERRPCIF1Client* clientOf(KvCErrorListPool& errors, void* deviceHandle);

    long outcome(long result) const { return result != 0 || m_watch.grew() ? -1 : 0; }

    template <class Operation>
    long runOn(void* deviceHandle, Operation operation) const
    {
        KVINVENTORYMANAGERRPCIF1Client* client = clientOf(m_errors, deviceHandle);
        return client != nullptr ? operation(*client) : -1;
    }

    KvCErrorListPool& m_errors;
    const KvNReport::Watch m_watch;
    const char* m_origin;
    const KvCInventoryRootHandle* m_rootHandle;
    const KvCInventoryAddress& m_address;
};

/** One remote call of an operation: its frame from the address to the release of the result. */
template <class Result>
class RemoteCall
{
public:
    RemoteCall(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client, const char* origin,
               KvNInventoryRpc::Procedure::Number procedure)
        : m_errors(errors), m_client(client), m_origin(origin), m_procedure(procedure)
    {}
    ~RemoteCall() { release(); }
    RemoteCall(const RemoteCall&) = delete;
    RemoteCall& operator=(const RemoteCall&) = delete;

    /** Calls a procedure that takes no address. False when the call failed: 0x1600804. */
    template <class Stub, class... Arguments>
    bool call(Stub stub, const Arguments&... arguments)
    {
        m_called = true;
        if (stub(m_client, m_errors, arguments..., m_result) == 0)
            return true;
        KV_REPORT(m_errors, RemoteCallFailed, m_origin, KvNInventoryRpc::procedureText(m_procedure));
        return false;
    }

    /** Calls a procedure at `address`; 0x160081A when there is no memory for the address. */
    template <class Stub, class... Arguments>
    bool callAt(const KvCInventoryAddress& address, Stub stub, const Arguments&... arguments)
    {
        WireAddress wire;
        return BoardCall::marshal(m_errors, m_origin, address, wire) && call(stub, wire.record(), arguments...);
    }

    const Result& result() const { return m_result; }

    /** Gives the result back before the end of the scope. */
    void release()
    {
        if (std::exchange(m_called, false))
            m_client.freeResults(KvNInventoryRpc::routine<Result>, &m_result);
    }

private:
    KvCErrorListPool& m_errors;
    KVINVENTORYMANAGERRPCIF1Client& m_client;
    const char* m_origin;
    const KvNInventoryRpc::Procedure::Number m_procedure;
    Result m_result{};
    bool m_called = false;
};

/** The result of every procedure that says no more than whether it was done. */
using StatusCall = RemoteCall<KvInventoryManagerRpcIFStatusResult>;

}  // namespace KvNInventoryManager
