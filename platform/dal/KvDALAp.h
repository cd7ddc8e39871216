#pragma once

#include "platform/dal/KvDALBase.h"

/*
 * What is done to a board beside its inventory: locks and files.
 *
 * Access restriction: locks on boards. A lock handle belongs to one device handle's board, holds at most one access
 * level there and is kept alive by a thread of the library while it does: every third of the lease, repeated until the
 * lease has ended. A lock whose lease has ended is lost: its access id cannot be read any more.
 *
 * File transfer: files that are put on a board under names it handed out, listed and deleted. The access id in force on
 * the board (KvNDeviceAccess::AccessId of a device handle) goes with each call that changes something.
 *
 * Handles and results are those of KvDALBase.h.
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

/** Makes a handle for putting files on the device's board and deleting them; nothing is sent. The caller deletes it
    with KvDAL_deleteFTClientHandle; it outlives the device handle. Results: InvalidHandle, InvalidArgument,
   OutOfMemory, TooManyHandles. */
KV_EXPORT KvInt32 KvDAL_createFTClientHandle(KvCErrorListPool& errors, void* device, void** transfer);

/** Deletes a transfer handle. A transfer that another thread makes through it goes on to its end.
    Result: InvalidHandle. */
KV_EXPORT KvInt32 KvDAL_deleteFTClientHandle(KvCErrorListPool& errors, void* transfer);

/**
 * Puts the local file on the board as `directory` + "/" + `fileName` (`fileName` alone when `directory` is empty),
 * whole or not at all. A call whose reply was lost is repeated; after any failure the board is told to drop what it
 * has.
 *
 * `reserved` is null. `localPath` ends with a NUL; where names of files are bytes, they are its UTF-8. Only a regular
 * file, or a link to one, can be put. `directory` and `fileName` (not empty) are as the board handed them out, together
 * with the "/" at most 255 bytes.
 *
 * `progress` may be null. It is called with `context` in the calling thread: after each chunk but the last with the
 * thousandths of the file that the board has (0 to 999, never less than before), and once with 1000 when the board has
 * checked the whole file. It must not throw, and must not itself put a file on this board: transfers to one board take
 * turns.
 *
 * Returns 0, or minus one of the results InvalidHandle, InvalidArgument, OutOfMemory, NoAccess (no access id is in
 * force), LocalFileFailed, LocalFileChanged, TransferCancelled, ConnectionFailed, InvalidReply, BoardRefused + status.
 * What the board reports comes before our own entry. When the result is ConnectionFailed or TransferCancelled and the
 * board could not be reached any more, or had not yet said that the transfer has begun, it drops the transfer as soon
 * as the lock has ended.
 */
KV_EXPORT KvInt32 KvDAL_putFileU(KvCErrorListPool& errors, void* reserved, void* transfer, const wchar_t* localPath,
                                 const char* directory, const char* fileName, void (*progress)(unsigned int, void*),
                                 void* context);

/** Deletes a file from the board; names as for KvDAL_putFileU, `reserved` is null. Results: InvalidHandle,
    InvalidArgument, OutOfMemory, NoAccess, ConnectionFailed, BoardRefused + status. */
KV_EXPORT KvInt32 KvDAL_deleteFile(KvCErrorListPool& errors, void* reserved, void* transfer, const char* directory,
                                   const char* fileName);

/** One file that was put on a board, as the board tells it. */
struct KvDALSFile
{
    char directory[256]; /**< ends with a NUL, as does `fileName` */
    char fileName[256];
    KvUInt64 size;     /**< bytes */
    KvUInt64 modified; /**< seconds since 1970-01-01 UTC */
};

/** Asks the device's board for the files put on it and copies them to `files`, which has room for `*count` records
    (4096 are always enough); `*count` becomes their number and `*freeBytes`, unless null, the room left on the board.
    Results: InvalidHandle, InvalidArgument, OutOfMemory, ConnectionFailed, BoardRefused + status, ListTooSmall (nothing
    is copied; `*count` is what is needed). */
KV_EXPORT KvInt32 KvDAL_listFiles(KvCErrorListPool& errors, void* device, KvDALSFile* files, KvUInt32* count,
                                  KvUInt64* freeBytes);
