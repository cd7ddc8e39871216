#pragma once

#include "platform/dal/KvDALBase.h"

/*
 * Access restriction: locks on boards. A lock handle belongs to one device handle's board, holds at most one access
 * level there and is kept alive by a thread of the library while it does: every third of the lease, repeated until the
 * lease has ended. A lock whose lease has ended is lost: its access id cannot be read any more. Handles and results are
 * those of KvDALBase.h.
 */
namespace KvNDeviceAccess {

/** Access levels. */
enum AccessLevel : KvInt32
{
    Observe = 1, /**< any number of holders */
    Modify = 2   /**< one holder, no observers */
};

}  // namespace KvNDeviceAccess

/** Makes a lock handle for the device's board, without an access level; nothing is sent. The caller deletes it with
    KvDAL_deleteAccessRestrictionHandle; it outlives the device handle. Results: InvalidHandle, InvalidArgument,
    OutOfMemory, TooManyHandles. */
KV_EXPORT KvInt32 KvDAL_createAccessRestrictionHandle(KvCErrorListPool& errors, void* device, void** lock);

/** Withdraws the lock from the board, when one was granted, and deletes the handle, whatever the result. An adopted
    lock is left as it is. Results: InvalidHandle (deleted before), AccessLost (it was gone already), ConnectionFailed,
    OutOfMemory, BoardRefused + status. */
KV_EXPORT KvInt32 KvDAL_deleteAccessRestrictionHandle(KvCErrorListPool& errors, void* lock);

/** Asks the board for `level` (KvNDeviceAccess::AccessLevel), or changes the level of the lock held; answers at once. A
    refused change leaves the former level. `index` is 0. What the board reports comes before our own entry.
    Results: InvalidHandle, InvalidArgument, AccessAdopted, OutOfMemory, NetworkFailed (no thread to keep it),
    ConnectionFailed, InvalidReply, BoardLocked (the text says who holds it), other BoardRefused + status. */
KV_EXPORT KvInt32 KvDAL_requestAccessRestrictionLevel(KvCErrorListPool& errors, void* lock, KvUInt32 index,
                                                      KvInt32 level);

/** Makes a lock handle from an access id (not 0) that someone else holds and keeps: it serves as a lock, is neither
   kept alive nor released by us, and is the access id in force on the board until it is deleted. Results: as
    KvDAL_createAccessRestrictionHandle. */
KV_EXPORT KvInt32 KvDAL_adoptAccessRestriction(KvCErrorListPool& errors, void* device, KvUInt32 accessId, void** lock);

/** One lock on a board, as the board tells it. */
struct KvDALSHolder
{
    KvInt32 level; /**< KvNDeviceAccess::AccessLevel */
    KvUInt32 ipAddress;
    KvUInt32 secondsHeld;
    KvUInt32 secondsLeft; /**< until the lock is dropped when it is not kept alive */
    char owner[256];      /**< what the holder calls itself; ends with a NUL */
};

/** Asks the device's board who holds locks on it and copies them to `holders`, which has room for `*count` records (64
    are always enough); `*count` becomes their number. Results: InvalidHandle, InvalidArgument, OutOfMemory,
    ConnectionFailed, BoardRefused + status, ListTooSmall (nothing is copied; `*count` is what is needed).
 */
KV_EXPORT KvInt32 KvDAL_getAccessState(KvCErrorListPool& errors, void* device, KvDALSHolder* holders, KvUInt32* count);
