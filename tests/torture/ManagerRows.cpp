#include <unistd.h>

#include <utility>

#include "Operation.h"
#include "PrintedText.h"
#include "TestBoards.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "manager/KvCInventoryManager.h"
#include "manager/KvCInventoryRootHandle.h"

/* What is done to boards through the manager. */

using namespace KvNInventoryIDs;
using namespace KvNInventoryManager;

namespace {

const char* const longText = "a text that is too long to stand inside a string object";

/** "The update has no error with the index ..." */
constexpr KvUInt32 NoSuchUpdateError = 0x302013;

/** The two boards, found by their addresses. */
struct Boards
{
    KvCErrorListPool setUp;
    KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    KvCInventoryRootHandle* root = nullptr;
    KvCInventoryRootHandle* made = nullptr;
    KvCInventoryItem* tree = nullptr;
    KvNInventoryManager::KvTBoardScans scans;
    KvUInt32 seen = 0;
    const KvCInventoryAddress board = HCN[TestBoards::serial];

    Boards()
    {
        TestBoards::start();
        manager.createRootHandleByIpAddressList(setUp, TestBoards::both, root);
    }
    ~Boards()
    {
        manager.deleteInventoryTree(tree);
        manager.deleteRootHandle(setUp, made);
        manager.deleteRootHandle(setUp, root);
    }
    void drop()
    {
        manager.deleteRootHandle(setUp, made);
        made = nullptr;
        manager.deleteInventoryTree(tree);
        tree = nullptr;
    }
};

std::string serials(Boards& boards)
{
    if (boards.made == nullptr)
        return "none";
    std::string all;
    for (KvUInt32 i = 0; i < boards.made->getBoardCount(); ++i) {
        void* const device = boards.made->getCnHandleByOrdinalNumber(boards.setUp, i);
        KvUInt32 serial = 0;
        KvUInt32 size = sizeof serial;
        KvDAL_getParam(boards.setUp, device, KvNDeviceAccess::DeviceSerialNumber, 0, &size, &serial);
        all += std::to_string(serial) + " ";
    }
    return all;
}

std::string treeText(Boards& boards)
{
    KvCErrorListPool errors;
    return boards.tree == nullptr ? "none" : boards.tree->toString(errors, 0, 0).c_str();
}

std::string seenThere(Boards& boards)
{
    return std::to_string(boards.seen);
}

struct Selection : Boards
{
    const KvDALSDeviceInfo infos[1] = {TestBoards::info()};
    void* device = nullptr;
    void* filter = nullptr;
    Selection()
    {
        KvUInt32 address = TestBoards::address;
        KvDAL_createDeviceHandle(setUp, &device, infos[0]);
        KvDAL_createFilter(setUp, &filter, KvNDeviceAccess::DeviceFilter);
        KvDAL_setFilterParameter(setUp, filter, KvNDeviceAccess::FilterIpAddress, 4, &address);
    }
    ~Selection()
    {
        drop();
        KvDAL_deleteFilter(setUp, filter);
        KvDAL_deleteDeviceHandle(setUp, device);
    }
};

std::string selected(Selection& state)
{
    return serials(state);
}

struct PrintedBoards : Boards
{
    PrintedText printed;
};

void addRootRows(Table& table)
{
    table.add<Selection>(
        "KvCInventoryManager::createRootHandleByIpAddressList",
        [](Selection& state, KvCErrorListPool& errors) {
            state.drop();
            return state.manager.createRootHandleByIpAddressList(errors, TestBoards::both, state.made) == 0 &&
                   isQuiet(errors);
        },
        selected, Says::InItsWords);
    table.add<Selection>(
        "KvCInventoryManager::createRootHandleByDeviceInfoList KvCInventoryManager::getInstance",
        [](Selection& state, KvCErrorListPool& errors) {
            state.drop();
            return KvCInventoryManager::getInstance().createRootHandleByDeviceInfoList(errors, state.infos, 1,
                                                                                       state.made) == 0 &&
                   isQuiet(errors);
        },
        selected, Says::InItsWords);
    table.add<Selection>(
        "KvCInventoryManager::createRootHandleByDeviceHandleList",
        [](Selection& state, KvCErrorListPool& errors) {
            state.drop();
            return state.manager.createRootHandleByDeviceHandleList(errors, &state.device, 1, state.made) == 0 &&
                   isQuiet(errors);
        },
        selected, Says::InItsWords);
    table.add<Selection>(
        "KvCInventoryManager::createRootHandleByFilter",
        [](Selection& state, KvCErrorListPool& errors) {
            state.drop();
            return state.manager.createRootHandleByFilter(errors, state.filter, state.made) == 0 && isQuiet(errors);
        },
        selected, Says::InItsWords);
    table.add<Selection>(
        "KvCInventoryRootHandle::KvCInventoryRootHandle KvCInventoryRootHandle::operator= "
        "KvCInventoryRootHandle::getBoardCount KvCInventoryRootHandle::getCnHandleByOrdinalNumber "
        "KvCInventoryRootHandle::getCnHandleBySerialNumber",
        [](Selection& state, KvCErrorListPool& errors) {
            const KvCInventoryRootHandle handle(errors, state.infos, 1);
            if (!isQuiet(errors))
                return false;
            const KvCInventoryRootHandle copy(handle);
            KvCInventoryRootHandle assigned(copy);
            assigned = handle;
            state.seen = assigned.getBoardCount();
            return assigned.getCnHandleByOrdinalNumber(errors, 0) ==
                       assigned.getCnHandleBySerialNumber(errors, TestBoards::serial) &&
                   isQuiet(errors);
        },
        [](Selection& state) { return std::to_string(state.seen); }, Says::InItsWords);
    table.add<PrintedBoards>(
        "KvCInventoryManager::printRootHandle KvCInventoryManager::getRootHandleCount KvCInventoryRootHandle::print "
        "KvCInventoryManager::deleteRootHandle",
        [](PrintedBoards& boards, KvCErrorListPool& errors) {
            boards.printed.clear();
            boards.root->print();
            return boards.manager.printRootHandle(errors, boards.root) == 0 &&
                   boards.manager.getRootHandleCount(errors, boards.root, boards.seen) == 0;
        },
        [](PrintedBoards& boards) { return boards.printed.text(); });
}

struct Read : Boards
{
    KvCInventoryAddress deep = board / TEST / TEST_S;
    KvCInventoryParameter parameter{setUp, NAME, nullptr, KvCString(), "", false, 0};
};

void addReadRows(Table& table)
{
    table.add<Boards>(
        "KvCInventoryManager::scan KvCInventoryManager::deleteInventoryTree",
        [](Boards& boards, KvCErrorListPool& errors) {
            boards.drop();
            // Kept by the operation: 0 as long as a later board is well. That one was left out is in the list.
            return boards.manager.scan(errors, boards.root, boards.tree) == 0 && isQuiet(errors);
        },
        treeText);
    table.add<Boards>(
        "KvCInventoryManager::scanBoards",
        [](Boards& boards, KvCErrorListPool& errors) {
            boards.drop();
            if (boards.manager.scanBoards(errors, boards.root, boards.tree, boards.scans) != 0)
                return false;
            // A board that failed is named as that, and the others are delivered: complete only when it says so.
            for (const KvSBoardScan& scan : boards.scans)
                if (scan.result != BoardComplete)
                    return false;
            return boards.scans.size() == 2;
        },
        treeText);
    table.add<Read>(
        "KvCInventoryManager::readParameter",
        [](Read& read, KvCErrorListPool& errors) {
            return read.manager.readParameter(errors, read.root, read.deep, read.parameter) == 0;
        },
        [](Read& read) {
            return std::string(read.parameter.getValueAsString(read.setUp).c_str()) + read.parameter.getUnit() +
                   read.parameter.getDescription();
        });
    table.add<Boards>(
        "KvCInventoryManager::extractInventoryTreeFromFile KvCInventoryManager::getFirmwareTypeString",
        [](Boards& boards, KvCErrorListPool& errors) {
            boards.drop();
            return boards.manager.extractInventoryTreeFromFile(errors, KV_SAMPLES_DIR "/boards/io-2.inv",
                                                               boards.tree) == 0 &&
                   *KvCInventoryManager::getFirmwareTypeString(FirmwareType{}) != '\0';
        },
        treeText, Says::InItsWords);
}

/** With a lock of level 2 on the first board. One that an attempt has left there is free when its lease has ended. */
struct Locked : Boards
{
    void* lock = nullptr;
    const KvCString text{longText};
    KvSRemoteFileHandle file;
    FirmwareType type = static_cast<FirmwareType>(1);
    KvCErrorListPool updateErrors;

    Locked() { take(2); }
    ~Locked()
    {
        if (lock != nullptr)
            manager.unlock(setUp, lock);
    }
    void take(int level)
    {
        for (int i = 0; i < 600 && manager.lock(setUp, root, board, level, lock) != 0; ++i)
            usleep(10000);
    }
};

struct ForLock : Boards
{
    void* lock = nullptr;
    ~ForLock()
    {
        if (lock != nullptr)
            manager.unlock(setUp, lock);
    }
};

void addWriteRows(Table& table)
{
    table.add<ForLock>(
        "KvCInventoryManager::lock KvCInventoryManager::unlock",
        [](ForLock& state, KvCErrorListPool& errors) {
            if (state.lock == nullptr && state.manager.lock(errors, state.root, state.board, 1, state.lock) != 0)
                return false;
            return state.manager.unlock(errors, std::exchange(state.lock, nullptr)) == 0;
        },
        [](ForLock& state) { return std::string(state.lock == nullptr ? "given back" : "kept"); });
    table.add<Locked>(
        "KvCInventoryManager::writeParameterValue KvCInventoryManager::apply",
        [](Locked& state, KvCErrorListPool& errors) {
            return state.manager.writeParameterValue(errors, state.root, state.board / TEST / TEST_S, state.lock,
                                                     state.text) == 0 &&
                   state.manager.apply(errors, state.root, state.board, state.lock) == 0;
        },
        [](Locked& state) {
            KvCInventoryParameter parameter(state.setUp, NAME, nullptr, KvCString(), "", false, 0);
            state.manager.readParameter(state.setUp, state.root, state.board / TEST / TEST_S, parameter);
            return std::string(parameter.getValueAsString(state.setUp).c_str());
        });
}

struct WithFile : Locked
{
    WithFile() { put(); }
    ~WithFile()
    {
        KvCErrorListPool unused;
        manager.deleteRemoteFile(unused, root, board, lock, file);
    }
    void put() { manager.transferFile(setUp, root, board, lock, TestBoards::imagePath(), nullptr, nullptr, file); }
    /** Waits for an update that has begun, and closes it. */
    void finish()
    {
        KvCErrorListPool unused;
        EUpdateStatus state = Running;
        KvUInt32 value = 0;
        for (int i = 0; i < 600 && state == Running; ++i) {
            if (manager.updateStatus(unused, root, board / FIRMWARE, state, type, value, value) != 0)
                break;
            if (state == Running)
                usleep(10000);
        }
        manager.updateFinish(unused, root, board / FIRMWARE, lock);
        type = static_cast<FirmwareType>(1);
    }
};

struct Updated : WithFile
{
    bool isAgain = false;
    ~Updated() { finish(); }
    bool begins()
    {
        if (std::exchange(isAgain, true))
            finish();
        return true;
    }
};

struct Ended : WithFile
{
    EUpdateStatus state = Unknown;
    KvUInt32 values[4] = {};
    bool isFinished = false;

    Ended() { begin(); }
    ~Ended() { finish(); }
    void begin()
    {
        isFinished = false;
        manager.update(setUp, root, board / FIRMWARE, lock, file, type, TestBoards::imageSize);
        state = Running;
        for (int i = 0; i < 600 && state == Running; ++i) {
            usleep(5000);
            manager.updateStatus(setUp, root, board / FIRMWARE, state, type, values[0], values[1]);
        }
    }
};

void addFileRows(Table& table)
{
    table.add<Locked>(
        "KvCInventoryManager::transferFile KvCInventoryManager::deleteRemoteFile",
        [](Locked& state, KvCErrorListPool& errors) {
            state.seen = 0;
            if (state.manager.transferFile(errors, state.root, state.board, state.lock, TestBoards::imagePath(),
                                           nullptr, nullptr, state.file) != 0)
                return false;
            state.seen = 1;
            return state.manager.deleteRemoteFile(errors, state.root, state.board, state.lock, state.file) == 0;
        },
        [](Locked& state) { return seenThere(state); });
    table.add<Updated>(
        "KvCInventoryManager::update",
        [](Updated& state, KvCErrorListPool& errors) {
            return state.begins() && state.manager.update(errors, state.root, state.board / FIRMWARE, state.lock,
                                                          state.file, state.type, TestBoards::imageSize) == 0;
        },
        [](Updated&) { return std::string(); });
    table.add<Updated>(
        "KvCInventoryManager::update2",
        [](Updated& state, KvCErrorListPool& errors) {
            return state.begins() && state.manager.update2(errors, state.root, state.board / FIRMWARE, state.lock, 0,
                                                           state.file, TestBoards::imageSize) == 0;
        },
        [](Updated&) { return std::string(); });
    table.add<Ended>(
        "KvCInventoryManager::updateStatus KvCInventoryManager::updateStatus2",
        [](Ended& state, KvCErrorListPool& errors) {
            state.values[0] = 0;
            return state.manager.updateStatus2(errors, state.root, state.board / FIRMWARE, state.values[0],
                                               state.values[1], state.values[2], state.values[3]) == 0 &&
                   state.manager.updateStatus(errors, state.root, state.board / FIRMWARE, state.state, state.type,
                                              state.values[2], state.values[3]) == 0;
        },
        [](Ended& state) {
            return std::to_string(state.state) + " " + std::to_string(state.values[0]) + " " +
                   std::to_string(state.values[1]) + " " + std::to_string(state.values[2]);
        });
    table.add<Ended>(
        "KvCInventoryManager::updateErrors",
        [](Ended& state, KvCErrorListPool& errors) {
            return state.manager.updateErrors(errors, state.root, state.board / FIRMWARE, state.lock) == 0;
        },
        [](Ended&) { return std::string(); });
    table.add<Ended>(
        "KvCInventoryManager::updateErrors2",
        [](Ended& state, KvCErrorListPool& errors) {
            // The update has no errors, and that is what the board answers.
            state.updateErrors.clear();
            state.manager.updateErrors2(errors, state.root, state.board / FIRMWARE, state.lock, 0, state.updateErrors);
            return errors.getErrorCode(0) == NoSuchUpdateError;
        },
        [](Ended& state) { return std::to_string(state.updateErrors.getErrorCount()); });
    table.add<Ended>(
        "KvCInventoryManager::updateFinish",
        [](Ended& state, KvCErrorListPool& errors) {
            if (state.isFinished)
                state.begin();
            state.isFinished = true;
            return state.manager.updateFinish(errors, state.root, state.board / FIRMWARE, state.lock) == 0;
        },
        [](Ended&) { return std::string(); });
}

}  // namespace

void addManagerRows(Table& table)
{
    addRootRows(table);
    addReadRows(table);
    addWriteRows(table);
    addFileRows(table);
}
