#pragma once

#include <memory>
#include <mutex>

#include "base/Report.h"
#include "platform/dal/Board.h"
#include "platform/dal/Discovery.h"
#include "platform/dal/HandleTable.h"
#include "platform/dal/Lease.h"

namespace KvNDeviceAccess {

/** A filter: what is to be found, and what was. */
struct FilterEntry : Entry
{
    static constexpr EntryKind entryKind = EntryKind::Filter;
    FilterEntry() noexcept : Entry(entryKind) {}

    std::mutex mutex;
    FilterSettings settings;
    bool applied = false;
    DeviceInfos found;
};

/** One of the handles of a board. */
struct DeviceEntry : Entry
{
    static constexpr EntryKind entryKind = EntryKind::Device;
    explicit DeviceEntry(const KvDALSDeviceInfo& deviceInfo)
        : Entry(entryKind), info(deviceInfo), board(deviceInfo.ipAddress, deviceInfo.serialNumber)
    {}

    const KvDALSDeviceInfo info;
    const AttachedBoard board;
};

/** A lock on a board, whose handle it is as well. */
struct LockEntry : Entry
{
    static constexpr EntryKind entryKind = EntryKind::Lock;
    explicit LockEntry(const Board& of)
        : Entry(entryKind), board(of.ipAddress(), of.serialNumber()), lease(makeShared<Lease>(board.shared()))
    {}

    const AttachedBoard board;
    const std::shared_ptr<Lease> lease;
    /** Held while the board is asked for something on behalf of this lock. */
    std::mutex requests;
};

/** The right to put files on a board and to delete them. */
struct TransferEntry : Entry
{
    static constexpr EntryKind entryKind = EntryKind::Transfer;
    explicit TransferEntry(const Board& of) : Entry(entryKind), board(of.ipAddress(), of.serialNumber()) {}

    const AttachedBoard board;
};

/** What every operation does with a handle that is none. */
inline KvInt32 reportInvalidHandle(KvCErrorListPool& errors, const char* origin)
{
    KV_REPORT(errors, DalInvalidHandle, origin);
    return InvalidHandle;
}

inline KvInt32 reportInvalidArgument(KvCErrorListPool& errors, const char* origin, const char* argument)
{
    KV_REPORT(errors, DalInvalidArgument, origin, argument);
    return InvalidArgument;
}

/** Runs an operation and makes what it throws a result. */
template <class Operation>
KvInt32 guarded(KvCErrorListPool& errors, const char* origin, Operation&& operation) noexcept
{
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        KV_REPORT(errors, DalOutOfMemory, origin);
        return OutOfMemory;
    } catch (const std::exception&) {
        KV_REPORT(errors, DalNetworkFailed, origin, "a resource of the operating system");
        return NetworkFailed;
    }
}

/** Enters `entry` in the table of handles. */
inline KvInt32 enter(KvCErrorListPool& errors, const char* origin, std::shared_ptr<Entry> entry, void** handle)
{
    *handle = handleTable().add(std::move(entry));
    if (*handle != nullptr)
        return Ok;
    KV_REPORT(errors, DalTooManyHandles, origin);
    return TooManyHandles;
}

}  // namespace KvNDeviceAccess
