#pragma once

#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

class KvCRpcClient;

/*
 * Device access: which boards there are (filters and device lists), a handle for each board in use, what is known about
 * it, and the remote-procedure clients that all handles of one board share.
 *
 * Every handle (`void*`) is the key of one entry of a table and is never dereferenced: a null, deleted or foreign
 * handle, or one of another kind, is answered with InvalidHandle. Every operation returns a result (0: done) and
 * reports each failure to `errors` as one entry of table 0x200000. All of them may be called from any thread. IPv4
 * values are numbers in host order: 10.0.0.2 is 0x0A000002.
 */
namespace KvNDeviceAccess {

/** Results of the operations; numbers never change. */
enum Result : KvInt32
{
    Ok = 0,
    InvalidHandle = 1,   /**< null, deleted, or not a handle of the kind that the operation takes */
    InvalidArgument = 2, /**< a pointer that is needed is null, or a value is out of its range */
    OutOfMemory = 3,
    TooManyHandles = 4,     /**< the table of handles is full */
    UnknownFilterKind = 5,  /**< createFilter knows DeviceFilter only */
    UnknownParameter = 6,   /**< the handle has no parameter of that number (or the index is not 0) */
    WrongSize = 7,          /**< the size given does not fit the parameter */
    WrongValue = 8,         /**< the parameter takes other values only */
    FilterNotApplied = 9,   /**< applyFilter has not been called since the last change of the filter */
    NetworkFailed = 10,     /**< no request could be sent: no socket, no thread, no list of interfaces */
    ClientExists = 11,      /**< a client is registered under that key already */
    ConnectionFailed = 12,  /**< the board's device access service could not be called; the reason stands before it */
    InvalidReply = 13,      /**< the board's reply makes no sense */
    NoAccess = 14,          /**< no access level has been granted to that lock, or none is in force */
    AccessLost = 15,        /**< the lease has ended, or the board has forgotten the lock */
    AccessAdopted = 16,     /**< the lock belongs to someone else, who keeps it: its level cannot be changed here */
    Cancelled = 17,         /**< KvCRpcClient::cancelAll ended the search */
    LocalFileFailed = 18,   /**< the local file cannot be opened or read, or is no regular file */
    LocalFileChanged = 19,  /**< the local file shrank or grew while it was read */
    TransferCancelled = 20, /**< KvCRpcClient::cancelAll ended the transfer */
    ListTooSmall = 21,      /**< the list given has fewer entries than there are boards */
    BoardRefused = 100 /**< 100 + the status by which the board refused: BoardLocked and the following */,
    BoardLocked = 101,    /**< someone else holds the board */
    BoardBadAccess = 102, /**< no such access id, or its lease has ended */
    BoardBadArgument = 103,
    BoardBadName = 104,
    BoardNotFound = 105,
    BoardNoTransfer = 106,
    BoardOutOfOrder = 107,
    BoardCorrupt = 108,
    BoardNoSpace = 109,
    BoardIo = 110,
    BoardBusy = 111,
    BoardLimit = 112
};

/** The one kind of filter: it selects boards. */
constexpr KvUInt32 DeviceFilter = 1;

/** Parameters of filters. */
enum FilterParameter : KvUInt32
{
    FilterSystemName = 1,    /**< text with its NUL, 2 to 256 bytes */
    FilterIpAddress = 6,     /**< 4 bytes, not 0; set once for each address */
    FilterSubnetMask = 7,    /**< 4 bytes: ones followed by zeros, not 0 */
    FilterInterfaceType = 8, /**< 4 bytes, 1 */
    FilterProtocolType = 9   /**< 4 bytes, 0 */
};

/** Parameters of device and lock handles. */
enum HandleParameter : KvUInt32
{
    DeviceSystemName = 1,   /**< text of at most 256 bytes with its NUL */
    DeviceBoardName = 3,    /**< text of at most 256 bytes with its NUL */
    DeviceSerialNumber = 4, /**< 4 bytes */
    DeviceBoardType = 5,    /**< 4 bytes */
    DeviceIpAddress = 6,    /**< 4 bytes */
    AccessId = 12           /**< 4 bytes: of a lock its access id; of a device the access id in force on its board */
};

}  // namespace KvNDeviceAccess

/**
 * What discovery found out about one board, 824 bytes. The texts end with a NUL. A record made by hand needs
 * `ipAddress` or `hostAddress` and the serial number. Ports are told for information; calls ask the board's port
 * mapper.
 */
struct KvDALSDeviceInfo
{
    char systemName[256];
    char boardName[256];
    char hostAddress[256]; /**< dotted quad */
    KvUInt32 serialNumber;
    KvUInt32 boardType; /**< shown as "KV%u" */
    KvUInt32 ipAddress;
    KvUInt32 deviceAccessUdpPort; /**< of the device access service; 0: not known */
    KvUInt32 deviceAccessTcpPort;
    KvUInt32 reserved[9]; /**< 0 */
};
static_assert(sizeof(KvDALSDeviceInfo) == 824, "device-info records have a fixed size");

/** Makes an empty filter of `kind` DeviceFilter; the caller deletes it with KvDAL_deleteFilter.
    Results: InvalidArgument, UnknownFilterKind, OutOfMemory, TooManyHandles. */
KV_EXPORT KvInt32 KvDAL_createFilter(KvCErrorListPool& errors, void** filter, KvUInt32 kind);

/** Sets parameter `id` (KvNDeviceAccess::FilterParameter) from `size` bytes at `value`, which are copied. A board is
    selected when all parameters hold; of several addresses one must. A filter without parameters selects every board
    of the host's own networks. Results: InvalidHandle, InvalidArgument, UnknownParameter, WrongSize, WrongValue,
    OutOfMemory. */
KV_EXPORT KvInt32 KvDAL_setFilterParameter(KvCErrorListPool& errors, void* filter, KvUInt32 id, KvUInt32 size,
                                           const void* value);

/**
 * Searches the network for the boards that the filter selects and keeps them in the filter; takes at most 1.5 s.
 *
 * Each asked host's port mapper (port 111, or that of the environment's KVDAL_PORTMAP_PORT) is asked for the device
 * access service at 0, 250 and 700 ms, and the service for its identity as soon as the port is known. Addresses of the
 * filter are exactly the hosts asked, over UDP and TCP. A mask asks the hosts of each IPv4 network of this host under
 * that mask: by the interface's broadcast address, of which the first 4096 hosts that answer count, or one by one where
 * there is none and the network has at most 1024 hosts; of loopback, 127.0.0.0/24. Otherwise the interfaces' own
 * networks are asked. A board that answers its port mapper but not the question for its identity, or not rightly, is
 * left out and warned of (KvCErrorManager::sendWarning). The boards come in the order of the filter's addresses, else
 * by IP address. Results: InvalidHandle, NetworkFailed, OutOfMemory, Cancelled; finding no board is no failure.
 */
KV_EXPORT KvInt32 KvDAL_applyFilter(KvCErrorListPool& errors, void* filter);

/** Copies the boards found to `infos`, which has room for `*count` records (null: none), and sets `*count` to their
    number. Results: InvalidHandle, InvalidArgument, FilterNotApplied, ListTooSmall (nothing is copied; `*count` is what
    is needed). */
KV_EXPORT KvInt32 KvDAL_getDeviceList(KvCErrorListPool& errors, void* filter, KvDALSDeviceInfo* infos, KvUInt32* count);

/** Deletes a filter with what it found. Result: InvalidHandle. */
KV_EXPORT KvInt32 KvDAL_deleteFilter(KvCErrorListPool& errors, void* filter);

/** Makes a handle for the board that `info` describes; nothing is sent. Handles with the same address and serial number
    stand for the same board. The caller deletes it with KvDAL_deleteDeviceHandle. Results: InvalidArgument (no address,
    or a text without end), OutOfMemory, TooManyHandles. */
KV_EXPORT KvInt32 KvDAL_createDeviceHandle(KvCErrorListPool& errors, void** device, const KvDALSDeviceInfo& info);

/** Deletes a device handle. With the last handle of a board (locks count) its registered clients are deleted.
    Result: InvalidHandle. */
KV_EXPORT KvInt32 KvDAL_deleteDeviceHandle(KvCErrorListPool& errors, void* device);

/** Reads parameter `id` (KvNDeviceAccess::HandleParameter) of a device or lock handle; `index` is 0. `*size` says how
    many bytes `value` has (numbers: exactly 4; texts: at least the text's length + 1) and receives how many were
    written. Results: InvalidHandle, InvalidArgument, UnknownParameter, WrongSize; for AccessId also NoAccess and
    AccessLost. */
KV_EXPORT KvInt32 KvDAL_getParam(KvCErrorListPool& errors, void* handle, KvUInt32 id, KvUInt32 index, KvUInt32* size,
                                 void* value);

/** The board's host address text, valid until the handle is deleted; null (InvalidHandle reported) without a board. */
KV_EXPORT const char* KvDAL_getAddressFromHandle(KvCErrorListPool& errors, void* device);

/*
 * The client registry: at most one client a key for each board, shared by all handles of the board and owned by the
 * registry. How to get a board's client so that it is made once, whoever asks at the same time waits for that one, and
 * other boards are not held up:
 *
 *   1. with the process-wide client mutex locked: KvDAL_getRPCClientReference. A client: unlock and use it.
 *   2. mutex unlocked: KvDAL_claimRPCClient. It returns at once unless somebody is making this board's client; then it
 *      waits for that to end. A client: use it. No client (result 0): this thread is now the one who makes it.
 *   3. mutex unlocked: create, configure and connect the client.
 *   4. with the mutex locked: KvDAL_registerRPCClient with the client, or with null when none could be made. Either
 *      ends the claim and wakes those who wait; with null the next of them becomes the maker.
 */

/** The client registered for the board under `key`, null (with result 0) when there is none. Never waits.
    Results: InvalidHandle, InvalidArgument. */
KV_EXPORT KvInt32 KvDAL_getRPCClientReference(KvCErrorListPool& errors, void* device, KvUInt32 key,
                                              KvCRpcClient** client);

/** As KvDAL_getRPCClientReference, but waits while another thread has claimed the making of that client, and without
    one the caller has the claim on return and must call KvDAL_registerRPCClient. Deleting the device handle that a
    claim was made through ends the claim. Results: InvalidHandle, InvalidArgument (also: this thread has the claim
    already), OutOfMemory. */
KV_EXPORT KvInt32 KvDAL_claimRPCClient(KvCErrorListPool& errors, void* device, KvUInt32 key, KvCRpcClient** client);

/** Registers `client` (made with `new`) under `key` and takes it over in every case: a client that cannot be registered
    is deleted. Null only ends the caller's claim. Results: InvalidHandle, ClientExists, OutOfMemory. */
KV_EXPORT KvInt32 KvDAL_registerRPCClient(KvCErrorListPool& errors, void* device, KvUInt32 key, KvCRpcClient* client);
