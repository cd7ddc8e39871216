#pragma once

#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

struct KvDALSDeviceInfo;
namespace KvNInventoryManager {
class ScanOfBoards;
}

/**
 * The boards that one inventory operation covers: device handles of the device access library, each with its board's
 * serial number, in the order of the selection they came from.
 * A constructor never fails as such: what went wrong is in the error list, and the handle holds the boards found so
 * far. Device handles that the constructor made are deleted when the last root handle that shares them is gone; those
 * given by the caller stay his. Used by one thread at a time while it is created or deleted.
 */
class KV_EXPORT KvCInventoryRootHandle : public KvNAllocation::Object
{
public:
    /** The boards of the networks of this host's interfaces under `subnetMask` (host order: 255.255.255.0 is
        0xFFFFFF00). Codes 0x1600002 to 0x160000E. */
    KvCInventoryRootHandle(KvCErrorListPool& errors, KvUInt32 subnetMask);
    /** The boards at `count` IPv4 addresses (host order: 10.0.0.2 is 0x0A000002). Codes as above. */
    KvCInventoryRootHandle(KvCErrorListPool& errors, const KvUInt32* ipAddresses, KvUInt32 count);
    /** The boards of the system `systemName`. Codes as above. */
    KvCInventoryRootHandle(KvCErrorListPool& errors, const char* systemName);
    /** The boards that `count` records describe. A board of which no device handle can be made is left out; why goes to
        the error manager, not to `errors`. 0x160000A when memory is out. */
    KvCInventoryRootHandle(KvCErrorListPool& errors, const KvDALSDeviceInfo* infos, int count);
    /** The boards of `count` device handles, which stay the caller's and must outlive this object. A handle whose
       serial number cannot be read is left out: 0x160000E. 0x160000A when memory is out. */
    KvCInventoryRootHandle(KvCErrorListPool& errors, void* const* deviceHandles, int count);
    /** The boards that a filter of the device access library selects; the filter stays the caller's. */
    KvCInventoryRootHandle(KvCErrorListPool& errors, void* filter);
    /** Deletes the device handles that were made here; a failure goes to the error manager (0x1600008). */
    ~KvCInventoryRootHandle();

    /** Both objects stand for the same boards afterwards and share the same arrays and device handles. */
    KvCInventoryRootHandle(const KvCInventoryRootHandle& other) noexcept;
    KvCInventoryRootHandle& operator=(const KvCInventoryRootHandle& other) noexcept;

    KvUInt32 getBoardCount() const;
    /** The device handle at position `ordinal`, from 0; past the end 0x1600000 and null. It stays this object's. */
    void* getCnHandleByOrdinalNumber(KvCErrorListPool& errors, KvUInt32 ordinal) const;
    /** The device handle of the first board with this serial number; without one 0x1600001 and null. */
    void* getCnHandleBySerialNumber(KvCErrorListPool& errors, KvUInt32 serial) const;
    /** One line with the number of boards and one for each board, to standard output; what cannot be read is "???". */
    void print() const;

private:
    friend class KvCInventoryManager;
    friend class KvNInventoryManager::ScanOfBoards;

    struct Boards;

    void initByFilter(KvCErrorListPool& errors, void* filter);
    void initByDeviceList(KvCErrorListPool& errors, const KvDALSDeviceInfo* infos, int count);
    bool allocateBoards(KvCErrorListPool& errors, KvUInt32 count, bool ownsDeviceHandles);
    KvUInt32 serialNumber(KvUInt32 ordinal) const;

    Boards* m_boards = nullptr;
};
