#pragma once

#include <cstdint>
#include <type_traits>
#include <vector>

#include "base/KvCString.h"
#include "composite/ElementTypes.h"
#include "inventory/KvCInventoryAddress.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryParameter.h"
#include "manager/KvCInventoryRootHandle.h"
#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

class KVINVENTORYMANAGERRPCIF1Client;
class KvCRpcClient;
struct KvDALSDeviceInfo;
struct KvInventoryManagerRpcIFInventoryAddress;

/** What the manager's operations take and give beside trees and parameters. */
namespace KvNInventoryManager {

/** What a firmware update replaces. */
enum FirmwareType : std::uint32_t
{
#define KV_FIRMWARE_TYPE(number, wireNumber, name) name = number,
#include "manager/FirmwareTypes.def"
#undef KV_FIRMWARE_TYPE
};

/** How far an update is. */
enum EUpdateStatus : std::uint32_t
{
    Idle = 0,      ///< no update
    Running = 1,   ///< under way: its first value is the percentage of the whole, its second the step
    Finished = 2,  ///< over; its errors say how
    Unknown = 3
};

/** How one board came out of scanBoards(). */
enum EBoardScan : std::uint32_t
{
    BoardComplete = 0,    ///< its tree is in the result
    BoardIncomplete = 1,  ///< its tree is in the result, but it reported errors with it
    BoardFailed = 2       ///< it has no tree in the result
};

struct KvSBoardScan
{
    KvUInt32 ordinal;       ///< the board's position in the root handle
    KvUInt32 serialNumber;  ///< 0 when it could not be read
    EBoardScan result;
    KvCString description;  ///< for messages, for example "HCN (serial number: 4711, IP address: 10.0.0.2)"
};

using KvTBoardScans = std::vector<KvSBoardScan, KvNAllocation::Allocator<KvSBoardScan>>;

/** The name on the board of a file that was transferred there; its path is `directory`, "/" and `fileName`, or
    `fileName` alone when `directory` is empty. Both come from the board: they are printed escaped, and never used as
    names on this host. */
struct KvSRemoteFileHandle
{
    KvCString directory;
    KvCString fileName;
};

class BoardCall;
class ScanOfBoards;
class ScanTurn;

}  // namespace KvNInventoryManager

/**
 * The facade for inventory work on boards: finds them, scans, reads, writes, applies, locks and updates. One object
 * without state, usable from several threads at once; each error list, tree and root handle belongs to one thread at a
 * time. Operations return 0 when they succeeded and -1 otherwise, and report into the error list passed first; a null
 * root handle is 0x1600802. Operations on one board take the board's address first: HCN or CN with the serial number as
 * index. Their common codes: 0x1600807 (the address begins with something else), 0x1600001 and 0x1600809 (no such
 * board), then 0x1600805; 0x1600822 (a lock handle without access id); 0x1600803 (cannot connect), 0x1600804 (the call
 * failed); 0x160081A (out of memory).
 */
class KV_EXPORT KvCInventoryManager
{
public:
    static KvCInventoryManager& getInstance();

    KvCInventoryManager(const KvCInventoryManager&) = delete;
    /** Copies nothing: there is nothing to copy. */
    KvCInventoryManager& operator=(const KvCInventoryManager&) noexcept { return *this; }

    /** The type's name; "Invalid" for any value of 14 or more. */
    static const char* getFirmwareTypeString(KvNInventoryManager::FirmwareType type);

    /** Deletes a tree that an operation of this class handed out; null is ignored. */
    void deleteInventoryTree(KvCInventoryItem* tree) const;

    /** Reads the tree of the inventory section in the file `fileName`; `tree` becomes the caller's, null when there is
        none. Codes of KvCInventoryData. */
    long extractInventoryTreeFromFile(KvCErrorListPool& errors, const char* fileName, KvCInventoryItem*& tree) const;

    /** @name Root handles
        Each makes a root handle, which the caller gives back with deleteRootHandle(). A handle that found no board is
        success. When none can be made the pointer is null: 0x160081D. @{ */

    /** The boards at the addresses in `list`: dotted quads, separated by anything else, at most 200. 0x1600806 when
       there is none in it, or no memory. */
    long createRootHandleByIpAddressList(KvCErrorListPool& errors, const char* list,
                                         KvCInventoryRootHandle*& rootHandle) const;
    /** The boards on this host's networks under `mask`, a dotted quad. */
    long createRootHandleByIpSubnetMask(KvCErrorListPool& errors, const char* mask,
                                        KvCInventoryRootHandle*& rootHandle) const;
    long createRootHandleBySystemName(KvCErrorListPool& errors, const char* name,
                                      KvCInventoryRootHandle*& rootHandle) const;
    long createRootHandleByDeviceInfoList(KvCErrorListPool& errors, const KvDALSDeviceInfo* infos, int count,
                                          KvCInventoryRootHandle*& rootHandle) const;
    /** The device handles stay the caller's and must outlive the root handle. */
    long createRootHandleByDeviceHandleList(KvCErrorListPool& errors, void* const* deviceHandles, int count,
                                            KvCInventoryRootHandle*& rootHandle) const;
    /** The filter stays the caller's. */
    long createRootHandleByFilter(KvCErrorListPool& errors, void* filter, KvCInventoryRootHandle*& rootHandle) const;
    /** Deletes a root handle; null gives -1 without a message. */
    long deleteRootHandle(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle) const;
    long getRootHandleCount(KvCErrorListPool& errors, const KvCInventoryRootHandle* rootHandle, KvUInt32& count) const;
    long printRootHandle(KvCErrorListPool& errors, const KvCInventoryRootHandle* rootHandle) const;
    /** @} */

    /** The inventory of all boards as one tree under one ROOT item; the caller's, null on failure.
        The boards are called side by side, on up to 255 threads that end with the scan; trees, errors and result are
        those of a scan one after the other. Traces, the error manager's output and allocation hooks may be called on
        those threads, which have stacks of 256 KiB.
        Kept: a board without a client makes the result a failure, unless a later board scans without an error. Use
        scanBoards() to have what could be read.
        A second board with the address of an earlier one is left out and reported as 0x1300816. Codes 0x160080A,
        0x160080B, 0x1600816 to 0x1600819, 0x160081D. */
    long scan(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, KvCInventoryItem*& tree) const;

    /** As scan(), but delivers every board that could be read, whichever others failed and in whatever order.
        @param[in] errors,rootHandle as of scan()
        @param[out] tree the caller's; null when no board could be read
        @param[out] boards how each board came out, in the order of the root handle
        @param progress called once for each board, when its answer has come or its call has failed, with how many
               boards have answered and how many have failed so far (together 1, 2 and so on up to the number of boards)
               and `context`; on this thread or on one that the scan has started, one call at a time, and not any more
               after the return. It holds up the scan, must not throw and makes no use of the root handle or its boards;
               may be null. Whether an answer was good is seen in `boards` only
        @param context handed to `progress` untouched
        @return 0 when `tree` holds at least one board, complete or not, else -1 */
    long scanBoards(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, KvCInventoryItem*& tree,
                    KvNInventoryManager::KvTBoardScans& boards, void (*progress)(KvUInt32, KvUInt32, void*) = nullptr,
                    void* context = nullptr) const;

    /** Reads the parameter at `address` from its board into `parameter`. Codes 0x1600800, 0x160080C, 0x1600816 to
        0x1600818. */
    long readParameter(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, const KvCInventoryAddress& address,
                       KvCInventoryParameter& parameter) const;

    /** Sends a value for the parameter at `address`, which its board keeps as the designated value of the lock's holder
        until apply(). T is one of the twelve element types; another spelling of an integer counts as the one of its
       width and signedness. Codes 0x1600801, 0x160081B. */
    template <KvNElement::Single T>
    long writeParameterValue(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                             const KvCInventoryAddress& address, void* lockHandle, const T& value) const
    {
        if constexpr (std::is_same_v<T, KvNElement::Canonical<T>>)
            return writeOnBoard(errors, rootHandle, address, lockHandle, value);
        else
            return writeOnBoard(errors, rootHandle, address, lockHandle, static_cast<KvNElement::Canonical<T>>(value));
    }

    /** Makes the board adopt the values written at and below `address` under this lock. What the board refuses is
        reported by the board's own entries. */
    long apply(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, const KvCInventoryAddress& address,
               void* lockHandle) const;

    /** Takes a lock of `level` on the board: 1 observes (any number of holders), 2 modifies (one holder, no observers).
        The lock handle is the caller's, who gives it to unlock(); it is set on success only. 0x160081E, 0x160081F. */
    long lock(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, const KvCInventoryAddress& address,
              int level, void*& lockHandle) const;
    /** Gives a lock back; the handle is gone afterwards. 0x1600821, also for null. */
    long unlock(KvCErrorListPool& errors, void* lockHandle) const;

    /** @name Firmware updates and files on boards
        The order of an update: lock() with level 2, transferFile(), update() or update2(), updateStatus() or
        updateStatus2() until it is over, updateErrors() or updateErrors2(), updateFinish(), deleteRemoteFile(),
        unlock(). Nothing here waits for a board beyond one call's time-out; the caller decides how often to ask. Each
        fails also when the board sends an error entry with its answer, and leaves its output arguments as they were
        whenever it fails. Lock handles stay the caller's. 0x601002: out of memory for a name or an address. @{ */

    /** Starts an update from a file on the board.
        @param[in] errors,rootHandle,address as of every operation on a board
        @param lockHandle of lock()
        @param file as transferFile() gave it; its path is cut to 303 characters
        @param type what the update replaces
        @param size of the file in bytes
        Codes 0x1600822, 0x160080F (the board refused; its own entries, which say why, come before). */
    long update(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, const KvCInventoryAddress& address,
                void* lockHandle, const KvNInventoryManager::KvSRemoteFileHandle& file,
                KvNInventoryManager::FirmwareType type, KvUInt64 size) const;

    /** As update(), for a `kind` of update that the board knows by number; the path is cut to 511 characters. */
    long update2(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, const KvCInventoryAddress& address,
                 void* lockHandle, KvUInt32 kind, const KvNInventoryManager::KvSRemoteFileHandle& file,
                 KvUInt64 size) const;

    /** How far the board's update is.
        @param[in] errors,rootHandle,address as of every operation on a board
        @param[out] state the board's states "done" and "failed" are both Finished; the errors tell which
        @param[out] type what is being updated; Invalid when the board names nothing known
        @param[out] value1 percent of the whole, as the board says it: it may be any number
        @param[out] value2 the step, as the board says it
        Code 0x1600810. */
    long updateStatus(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, const KvCInventoryAddress& address,
                      KvNInventoryManager::EUpdateStatus& state, KvNInventoryManager::FirmwareType& type,
                      KvUInt32& value1, KvUInt32& value2) const;

    /** The board's four words about an update, passed on as they are.
        @param[in] errors,rootHandle,address as of every operation on a board
        @param[in,out] value1 says what is asked, and becomes the first word
        @param[out] value2,value3,value4 the other words
        Code 0x1600810. */
    long updateStatus2(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, const KvCInventoryAddress& address,
                       KvUInt32& value1, KvUInt32& value2, KvUInt32& value3, KvUInt32& value4) const;

    /** Appends the errors of the board's update to `errors`, and so fails when there are any. Code 0x1600811 (they
        could not be had), 0x1600822. */
    long updateErrors(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, const KvCInventoryAddress& address,
                      void* lockHandle) const;

    /** Appends the errors of the board's update at `index` to `updateErrorList`; succeeds when they could be had,
        however many they are. What fails otherwise is in `errors`. Codes as updateErrors(). */
    long updateErrors2(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, const KvCInventoryAddress& address,
                       void* lockHandle, KvUInt32 index, KvCErrorListPool& updateErrorList) const;

    /** Closes an update that is over: the board is idle again and forgets its errors. Codes 0x1600822, 0x1600826. */
    long updateFinish(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, const KvCInventoryAddress& address,
                      void* lockHandle) const;

    /** Puts a local file on the board, under a name that the board chooses.
        @param[in] errors,rootHandle,address,lockHandle as of update()
        @param localPath where the file is on this host
        @param progress called on this thread while the file is sent, with thousandths of the file (0 to 1000) and
               `context`; must not throw, nor put another file on this board; may be null
        @param context handed to `progress` untouched
        @param[out] file the name on the board, set on success only; the caller removes the file with
               deleteRemoteFile()
        Codes 0x1600822, 0x1600823 (the board gives no name), 0x1600812 and 0x1600814 (no transfer handle), 0x1600827
        (not transferred; what the device access library says comes before). */
    long transferFile(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, const KvCInventoryAddress& address,
                      void* lockHandle, const wchar_t* localPath, void (*progress)(unsigned int, void*), void* context,
                      KvNInventoryManager::KvSRemoteFileHandle& file) const;

    /** Removes a transferred file from the board, after asking it whether the lock allows that. Codes 0x1600822 (found
        before the board is contacted), 0x1600825 (the board does not say), 0x1600824 (not allowed), 0x1600812 and
        0x1600814 (no transfer handle), 0x1600815. */
    long deleteRemoteFile(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle,
                          const KvCInventoryAddress& address, void* lockHandle,
                          const KvNInventoryManager::KvSRemoteFileHandle& file) const;
    /** @} */

private:
    friend class KvNInventoryManager::BoardCall;
    friend class KvNInventoryManager::ScanOfBoards;
    friend class KvCInventoryManagerProbe;  // the tests' door to the private operations

    KvCInventoryManager() = default;
    ~KvCInventoryManager() = default;

    /** Choosing the board: the device handle that the address names, or null (0x1600807, 0x1600001 and 0x1600809). */
    void* getHcnHandle(KvCErrorListPool& errors, const KvCInventoryRootHandle& rootHandle,
                       const KvCInventoryAddress& address) const;
    /** The board as messages name it: "HCN (serial number: 4711, IP address: 10.0.0.2)". What goes wrong (0x160080D,
        0x160080E) goes to the error manager. */
    static KvCString getHcnInfo(void* deviceHandle);
    /** The board's client, made and registered by the first call for the board; null when there is none. */
    KVINVENTORYMANAGERRPCIF1Client* getRPCClient(KvCErrorListPool& errors, void* deviceHandle) const;
    /** Tells a new client which service it calls and how, and connects it (0x1600803). */
    static void configureRPCClient(KvCErrorListPool& errors, KvCRpcClient& client, const KvCString& boardDescription);
    /** Connects a client that knows its service (0x1600803). */
    static void connectRPCClient(KvCErrorListPool& errors, KvCRpcClient& client, const KvCString& boardDescription);

    /** The address as its wire record, of which the values are the caller's (KvNAllocation::release). 0x160081A. */
    long marshalInventoryAddress(KvCErrorListPool& errors, KvCInventoryAddress address,
                                 KvInventoryManagerRpcIFInventoryAddress& out) const;

    /* The operations on one board, through its client. */

    /** The board's tree, the caller's; null on failure. The board's status word is not looked at: the tree decides. */
    long scan(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client, const KvCString& boardDescription,
              KvCInventoryItem*& tree, bool flag) const;
    /** The same, of which the work behind the reply's coming waits for its turn (null: begins at once). */
    long scan(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client, const KvCString& boardDescription,
              KvCInventoryItem*& tree, bool flag, KvNInventoryManager::ScanTurn* turn) const;
    long readParameter(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                       const KvCInventoryAddress& address, KvCInventoryParameter& parameter) const;
    template <class T>
    long writeParameterValue(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                             const KvCInventoryAddress& address, KvUInt32 accessId, const T& value) const;
    template <class T>
    long writeOnBoard(KvCErrorListPool& errors, KvCInventoryRootHandle* rootHandle, const KvCInventoryAddress& address,
                      void* lockHandle, const T& value) const;
    long apply(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client, const KvCInventoryAddress& address,
               KvUInt32 accessId) const;
    /** Appends the board's own address to `address`. 0x160081C for an address record that is corrupt. */
    long getLocalAddress(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                         KvCInventoryAddress& address) const;
    /** Tells the board which board is its parent. 0x1600828. */
    long registerParent(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client, KvUInt32 parent) const;
    /** Starts an update from a file on the board, of which the name is cut to 303 characters. 0x160080F. */
    long update(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client, const KvCInventoryAddress& address,
                KvUInt32 accessId, const char* fileName, KvNInventoryManager::FirmwareType type, KvUInt64 size) const;
    /** The same with a `kind` that the board knows; the name is cut to 511 characters. 0x160080F. */
    long update2(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client, const KvCInventoryAddress& address,
                 KvUInt32 accessId, KvUInt32 kind, const char* fileName, KvUInt64 size) const;
    /** 0x1600810. */
    long updateStatus(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                      const KvCInventoryAddress& address, KvNInventoryManager::EUpdateStatus& state,
                      KvNInventoryManager::FirmwareType& type, KvUInt32& value1, KvUInt32& value2) const;
    /** `value1` says what is asked; all four are the answer, on success only. 0x1600810. */
    long updateStatus2(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                       const KvCInventoryAddress& address, KvUInt32& value1, KvUInt32& value2, KvUInt32& value3,
                       KvUInt32& value4) const;
    /** Appends the update's errors to `errors`. 0x1600811. */
    long updateErrors(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                      const KvCInventoryAddress& address, KvUInt32 accessId) const;
    /** Appends the update's errors at `index` to `updateErrorList`. 0x1600811. */
    long updateErrors2(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                       const KvCInventoryAddress& address, KvUInt32 accessId, KvUInt32 index,
                       KvCErrorListPool& updateErrorList) const;
    /** 0x1600826. */
    long updateFinish(KvCErrorListPool& errors, KVINVENTORYMANAGERRPCIF1Client& client,
                      const KvCInventoryAddress& address, KvUInt32 accessId) const;

    /* The steps of operations on files, each on one board. */

    /** Whether the lock has a right on the board; `allowed` is false on every failure. 0x1600825. */
    long checkAuthority(KvCErrorListPool& errors, void* deviceHandle, const KvCInventoryAddress& address,
                        KvUInt32 accessId, KvUInt32 right, bool& allowed) const;
    /** Asks the board for the name of a new file; a name ends at its first NUL, if any. The names are set on success
        only. 0x1600823. */
    long generateRemoteFilename(KvCErrorListPool& errors, void* deviceHandle, const KvCInventoryAddress& address,
                                KvUInt32 accessId, KvCString& directory, KvCString& fileName) const;
    /** Puts a local file on the board under a name that the board gave. 0x1600812, 0x1600827, 0x1600814. */
    void putFile(KvCErrorListPool& errors, void* deviceHandle, const wchar_t* localPath, const char* directory,
                 const char* fileName, void (*progress)(unsigned int, void*), void* context) const;
};
