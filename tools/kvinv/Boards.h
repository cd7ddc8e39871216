#pragma once

#include <memory>
#include <string>
#include <vector>

#include "manager/KvCInventoryManager.h"
#include "platform/dal/KvDALBase.h"
#include "tools/kvinv/Console.h"
#include "tools/kvinv/Options.h"

/** Which boards a command is about. Without anything, those on the host's own networks. */
struct Selection
{
    std::vector<KvUInt32> addresses;
    KvUInt32 mask = 0;
    std::string system;
};

/** The selection of --ip, --subnet and --system; false, told, when they are wrong. */
bool selectionOf(const Options& options, Selection& selection, Console& console);
/** The selection of `ip:LIST`, `subnet:MASK` or `system:NAME`. `isOne` says whether the text is one of these; false,
    told, when it is one and wrong. */
bool selectionOf(const std::string& text, Selection& selection, bool& isOne, Console& console);

/** The boards that were found, and the root handle that stands for them. */
class Boards
{
public:
    /** Looks for the boards; what went wrong, and addresses at which no board answers, is told. */
    Boards(const Selection& selection, Console& console);
    ~Boards();
    Boards(const Boards&) = delete;
    Boards& operator=(const Boards&) = delete;

    /** False, told, when the search failed or found nothing. */
    bool isGood() const { return m_good && !m_infos.empty(); }
    /** Whether every board that was named has answered. */
    bool isComplete() const { return m_complete; }
    const std::vector<KvDALSDeviceInfo>& infos() const { return m_infos; }
    KvCInventoryRootHandle* handle() const { return m_handle; }

private:
    void search(const Selection& selection);
    void nameMissing(const Selection& selection);

    Console& m_console;
    std::vector<KvDALSDeviceInfo> m_infos;
    KvCInventoryRootHandle* m_handle = nullptr;
    bool m_good = false;
    bool m_complete = true;
};

/** The dotted text of an IPv4 address. */
std::string dotted(KvUInt32 address);

/** The address of a parameter or item on a board, from its text; an element ROOT in front is left out. False, told,
   when it is none or does not begin with a board. */
bool boardAddress(const std::string& text, KvCInventoryAddress& address, Console& console);

/** A lock on one board: taken, or the one that KVINV_ACCESS names. Given back at the end. */
class BoardLock
{
public:
    explicit BoardLock(Console& console) : m_console(console) {}
    ~BoardLock() { release(); }
    BoardLock(const BoardLock&) = delete;
    BoardLock& operator=(const BoardLock&) = delete;

    /** Takes the lock to modify the board that `address` names; false, told, when that is not possible. */
    bool take(const Boards& boards, const KvCInventoryAddress& address);
    /** Gives the lock back; false, told, when the board did not take it, for example because it was lost. */
    bool release();
    void* handle() const { return m_lock; }
    /** The access id of the lock; 0, told, when the lock is lost. */
    KvUInt32 accessId();
    /** Whether the lock is the one of KVINV_ACCESS, which stays its owner's. */
    bool isAdopted() const { return m_adopted; }

private:
    bool adopt(const Boards& boards, KvUInt32 serial, KvUInt32 accessId);

    Console& m_console;
    void* m_lock = nullptr;
    bool m_adopted = false;
};
