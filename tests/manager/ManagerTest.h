#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "Bytes.h"
#include "RecordingClient.h"
#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "manager/KvCInventoryManager.h"
#include "manager/rpc/InventoryRecords.h"
#include "platform/dal/KvDALAp.h"
#include "platform/dal/KvDALBase.h"

/** The tests' door to the manager's private operations. */
class KvCInventoryManagerProbe
{
public:
    static const KvCInventoryManager& manager() { return KvCInventoryManager::getInstance(); }

    template <class... Arguments>
    static long scan(Arguments&&... arguments)
    {
        return manager().scan(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    static long readParameter(Arguments&&... arguments)
    {
        return manager().readParameter(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    static long writeParameterValue(Arguments&&... arguments)
    {
        return manager().writeParameterValue(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    static long apply(Arguments&&... arguments)
    {
        return manager().apply(std::forward<Arguments>(arguments)...);
    }
#define KV_PROBE(operation)                                                \
    template <class... Arguments>                                          \
    static auto operation(Arguments&&... arguments)                        \
    {                                                                      \
        return manager().operation(std::forward<Arguments>(arguments)...); \
    }
    KV_PROBE(getLocalAddress)
    KV_PROBE(registerParent)
    KV_PROBE(update)
    KV_PROBE(update2)
    KV_PROBE(updateStatus)
    KV_PROBE(updateStatus2)
    KV_PROBE(updateErrors)
    KV_PROBE(updateErrors2)
    KV_PROBE(updateFinish)
    KV_PROBE(marshalInventoryAddress)
    KV_PROBE(getHcnHandle)
    KV_PROBE(getRPCClient)
    KV_PROBE(checkAuthority)
#undef KV_PROBE
    static KvCString getHcnInfo(void* deviceHandle)
    {
        return KvCInventoryManager::getHcnInfo(deviceHandle);
    }
};

using Probe = KvCInventoryManagerProbe;

/** The codes of a list, the innermost first. */
inline std::vector<KvUInt32> codesOf(const KvCErrorList& errors)
{
    std::vector<KvUInt32> codes;
    for (KvUInt32 i = 0; i < errors.getErrorCount(); ++i)
        codes.push_back(errors.getErrorCode(i));
    return codes;
}

using Codes = std::vector<KvUInt32>;

inline std::string lastText(const KvCErrorList& errors)
{
    return errors.getErrorCount() == 0 ? "" : errors.getErrorText(errors.getErrorCount() - 1);
}

/** An error list block with one entry without arguments, as a service sends it. */
inline Bytes errorBlock(KvUInt32 code)
{
    KvCErrorListPool errors;
    errors.setError(code, 7, "Board::service", nullptr);
    return errors.serialize();
}

/** A record of device discovery for a board that need not exist. */
inline KvDALSDeviceInfo deviceInfo(KvUInt32 ipAddress, KvUInt32 serialNumber)
{
    KvDALSDeviceInfo info{};
    std::strcpy(info.systemName, "Rack A");
    std::strcpy(info.boardName, "IO-1");
    std::snprintf(info.hostAddress, sizeof info.hostAddress, "%u.%u.%u.%u", static_cast<unsigned>(ipAddress >> 24),
                  static_cast<unsigned>(ipAddress >> 16 & 255), static_cast<unsigned>(ipAddress >> 8 & 255),
                  static_cast<unsigned>(ipAddress & 255));
    info.serialNumber = serialNumber;
    info.boardType = 6001;
    info.ipAddress = ipAddress;
    return info;
}

/** The stream of a board's tree: HCN[serial] with its serial number and a text. */
inline Bytes treeStream(KvUInt32 serialNumber)
{
    KvCErrorListPool errors;
    KvCInventoryItem board(errors, KvNInventoryIDs::HCN[serialNumber], "HCN");
    board.createParameter(errors, KvNInventoryIDs::SERIAL_NUMBER, serialNumber, "", false, 0, nullptr, nullptr,
                          nullptr);
    board.createParameter(errors, KvNInventoryIDs::CPU / KvNInventoryIDs::NAME,
                          KvCString("Main processor of the board"), "", true, 3, nullptr, nullptr, nullptr);
    KvCBuffer buffer(errors);
    KvCInventoryItemFactory factory(errors);
    factory.serialize(errors, &buffer, &board);
    EXPECT_EQ(0u, errors.getErrorCount());
    return Bytes(buffer.getStartPointer(), buffer.getWritePointer());
}

/** The stream of one parameter. */
template <class T>
Bytes parameterStream(const T& value, const char* unit)
{
    KvCErrorListPool errors;
    const KvCInventoryParameter parameter(errors, KvNInventoryIDs::MIN_VOLTAGE, "MIN_VOLTAGE", value, unit, true, 5);
    KvCBuffer buffer(errors);
    KvCInventoryItemFactory factory(errors);
    factory.serializeInventoryParameter(errors, &buffer, &parameter);
    EXPECT_EQ(0u, errors.getErrorCount());
    return Bytes(buffer.getStartPointer(), buffer.getWritePointer());
}

/** A scan's result: status, tree, error list. */
inline Bytes scanResult(KvUInt32 status, const Bytes& tree, const Bytes& errorList = {})
{
    return Record().number(status).opaque(tree).opaque(errorList);
}

/** One board of the tests: its device handle, with a recording client registered for it. */
struct RecordedBoard
{
    RecordedBoard(KvUInt32 ipAddress, KvUInt32 serialNumber)
    {
        KvCErrorListPool errors;
        EXPECT_EQ(0, KvDAL_createDeviceHandle(errors, &device, deviceInfo(ipAddress, serialNumber)));
        client = new RecordingClient(errors);
        EXPECT_EQ(0, KvDAL_registerRPCClient(errors, device, 8, client));
        EXPECT_EQ(Codes(), codesOf(errors));
    }
    ~RecordedBoard()
    {
        KvCErrorListPool errors;
        EXPECT_LE(client->decoded(), client->released()) << "every result is given back";
        EXPECT_EQ(0, KvDAL_deleteDeviceHandle(errors, device));
    }
    RecordedBoard(const RecordedBoard&) = delete;
    RecordedBoard& operator=(const RecordedBoard&) = delete;

    void* device = nullptr;
    RecordingClient* client = nullptr;
};

/** A board with a recording client, and a root handle that holds it alone. */
class OneBoard : public ::testing::Test
{
protected:
    static constexpr KvUInt32 Serial = 4711;

    OneBoard() : address(KvNInventoryIDs::HCN[Serial] / KvNInventoryIDs::CPU[2]), board(0x7F420001, Serial)
    {
        EXPECT_EQ(0, manager.createRootHandleByDeviceHandleList(errors, &board.device, 1, root));
    }
    ~OneBoard() override
    {
        if (lock != nullptr) {
            KvCErrorListPool ignored;
            KvDAL_deleteAccessRestrictionHandle(ignored, lock);
        }
        manager.deleteRootHandle(errors, root);
    }

    /** A lock handle with this access id, without a board behind it. */
    void* lockWith(KvUInt32 accessId)
    {
        EXPECT_EQ(0, KvDAL_adoptAccessRestriction(errors, board.device, accessId, &lock));
        return lock;
    }

    const Bytes& sent() const { return board.client->calls().back().arguments; }

    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    KvCErrorListPool errors;
    /** HCN[4711]/CPU[2] */
    const KvCInventoryAddress address;
    RecordedBoard board;
    KvCInventoryRootHandle* root = nullptr;
    void* lock = nullptr;
};

/** HCN[4711]/CPU[2] on the wire: HCN is 380, CPU is 2. */
inline constexpr const char* AddressOnWire =
    "00 00 00 02  00 00 00 04  00 00 01 7C 00 00 12 67  00 00 00 02 00 00 00 02 ";

inline Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}
