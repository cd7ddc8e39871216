#include "manager/KvCInventoryRootHandle.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include "base/Report.h"
#include "manager/DeviceParameter.h"
#include "manager/PrivateErrorList.h"
#include "platform/dal/KvDALBase.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"

using namespace KvNDeviceAccess;
using KvNInventoryManager::DeviceTextSize;
using KvNInventoryManager::readNumber;
using KvNInventoryManager::readText;

/** The arrays of the handle, shared by its copies. */
struct KvCInventoryRootHandle::Boards : KvNAllocation::Object
{
    Boards(KvUInt32* serials, void** handles, bool owned)
        : serialNumbers(serials), deviceHandles(handles), ownsDeviceHandles(owned)
    {}
    ~Boards();
    Boards(const Boards&) = delete;
    Boards& operator=(const Boards&) = delete;

    void append(void* deviceHandle, KvUInt32 serial)
    {
        deviceHandles[boardCount] = deviceHandle;
        serialNumbers[boardCount] = serial;
        ++boardCount;
    }

    static void release(Boards* boards)
    {
        if (boards != nullptr && boards->references.fetch_sub(1) == 1)
            delete boards;
    }

    std::atomic<KvUInt32> references = 1;
    KvUInt32 boardCount = 0;
    KvUInt32* serialNumbers;
    void** deviceHandles;
    bool ownsDeviceHandles;
};

KvCInventoryRootHandle::Boards::~Boards()
{
    KvNAllocation::release(serialNumbers);
    if (ownsDeviceHandles && boardCount != 0) {
        PrivateErrorList errors;
        for (KvUInt32 i = 0; i < boardCount; ++i) {
            const KvInt32 result = KvDAL_deleteDeviceHandle(errors.get(), deviceHandles[i]);
            if (result != Ok)
                KV_REPORT(errors.get(), DeviceHandleNotDeleted, "KvCInventoryRootHandle::~KvCInventoryRootHandle",
                          result);
        }
    }
    KvNAllocation::release(deviceHandles);
}

namespace {

constexpr const char* Constructor = "KvCInventoryRootHandle::KvCInventoryRootHandle";

/** A filter of our own: made, given its parameters one after the other as long as none fails, and deleted. */
class BoardFilter
{
public:
    explicit BoardFilter(KvCErrorListPool& errors) : m_errors(errors)
    {
        const KvInt32 result = KvDAL_createFilter(errors, &m_filter, DeviceFilter);
        m_good = result == Ok;
        if (!m_good) {
            m_filter = nullptr;
            KV_REPORT(errors, FilterNotCreated, Constructor, result);
        }
    }

    ~BoardFilter()
    {
        if (m_filter == nullptr)
            return;
        const KvInt32 result = KvDAL_deleteFilter(m_errors, m_filter);
        if (result == Ok)
            return;
        std::printf("Info: Error 0x%08X from KvDAL_deleteFilter().\n", static_cast<unsigned int>(result));
        KV_REPORT(m_errors, FilterNotDeleted, Constructor, result);
    }

    BoardFilter(const BoardFilter&) = delete;
    BoardFilter& operator=(const BoardFilter&) = delete;

    template <KvNMessage message>
    BoardFilter& set(FilterParameter id, KvUInt32 size, const void* value)
    {
        if (!m_good)
            return *this;
        const KvInt32 result = KvDAL_setFilterParameter(m_errors, m_filter, id, size, value);
        m_good = result == Ok;
        if (!m_good)
            KvNReport::report<message>(m_errors, __LINE__, Constructor, result);
        return *this;
    }

    template <KvNMessage message>
    BoardFilter& set(FilterParameter id, KvUInt32 value)
    {
        return set<message>(id, sizeof value, &value);
    }

    BoardFilter& setTransport()
    {
        set<KvNMessage::FilterInterfaceTypeRefused>(FilterInterfaceType, 1);
        return set<KvNMessage::FilterProtocolTypeRefused>(FilterProtocolType, 0);
    }

    /** The filter with all its parameters, else null. */
    void* complete() const { return m_good ? m_filter : nullptr; }

private:
    KvCErrorListPool& m_errors;
    void* m_filter = nullptr;
    bool m_good = false;
};

}  // namespace

KvCInventoryRootHandle::KvCInventoryRootHandle(KvCErrorListPool& errors, KvUInt32 subnetMask)
{
    BoardFilter filter(errors);
    filter.setTransport().set<KvNMessage::FilterSubnetMaskRefused>(FilterSubnetMask, subnetMask);
    if (filter.complete() != nullptr)
        initByFilter(errors, filter.complete());
}

KvCInventoryRootHandle::KvCInventoryRootHandle(KvCErrorListPool& errors, const KvUInt32* ipAddresses, KvUInt32 count)
{
    if (ipAddresses == nullptr)
        return;
    BoardFilter filter(errors);
    filter.setTransport();
    for (KvUInt32 i = 0; i < count; ++i)
        filter.set<KvNMessage::FilterIpAddressRefused>(FilterIpAddress, ipAddresses[i]);
    if (filter.complete() != nullptr)
        initByFilter(errors, filter.complete());
}

KvCInventoryRootHandle::KvCInventoryRootHandle(KvCErrorListPool& errors, const char* systemName)
{
    const char* name = systemName != nullptr ? systemName : "";
    BoardFilter filter(errors);
    filter.set<KvNMessage::FilterSystemNameRefused>(FilterSystemName, static_cast<KvUInt32>(std::strlen(name)) + 1,
                                                    name);
    if (filter.complete() != nullptr)
        initByFilter(errors, filter.complete());
}

KvCInventoryRootHandle::KvCInventoryRootHandle(KvCErrorListPool& errors, const KvDALSDeviceInfo* infos, int count)
{
    initByDeviceList(errors, infos, count);
}

KvCInventoryRootHandle::KvCInventoryRootHandle(KvCErrorListPool& errors, void* const* deviceHandles, int count)
{
    if (count <= 0 || deviceHandles == nullptr || !allocateBoards(errors, static_cast<KvUInt32>(count), false))
        return;
    for (int i = 0; i < count; ++i) {
        KvUInt32 serial = 0;
        if (readNumber(errors, deviceHandles[i], DeviceSerialNumber, serial))
            m_boards->append(deviceHandles[i], serial);
        else
            KV_REPORT(errors, DeviceParameterNotRead, Constructor, "serial number");
    }
}

KvCInventoryRootHandle::KvCInventoryRootHandle(KvCErrorListPool& errors, void* filter)
{
    initByFilter(errors, filter);
}

KvCInventoryRootHandle::~KvCInventoryRootHandle()
{
    Boards::release(m_boards);
}

KvCInventoryRootHandle::KvCInventoryRootHandle(const KvCInventoryRootHandle& other) noexcept : m_boards(other.m_boards)
{
    if (m_boards != nullptr)
        m_boards->references.fetch_add(1);
}

KvCInventoryRootHandle& KvCInventoryRootHandle::operator=(const KvCInventoryRootHandle& other) noexcept
{
    if (other.m_boards != nullptr)
        other.m_boards->references.fetch_add(1);
    Boards::release(m_boards);
    m_boards = other.m_boards;
    return *this;
}

bool KvCInventoryRootHandle::allocateBoards(KvCErrorListPool& errors, KvUInt32 count, bool ownsDeviceHandles)
{
    auto* serials = static_cast<KvUInt32*>(KvNAllocation::allocate(count * sizeof(KvUInt32)));
    auto* handles = static_cast<void**>(KvNAllocation::allocate(count * sizeof(void*)));
    if (serials != nullptr && handles != nullptr)
        m_boards = new (errors) Boards(serials, handles, ownsDeviceHandles);
    if (m_boards != nullptr)
        return true;
    KvNAllocation::release(serials);
    KvNAllocation::release(handles);
    // Kept: the code of "cannot apply filter", as the callers know it.
    KV_REPORT(errors, FilterNotAppliedAgain, Constructor, KvNDeviceAccess::OutOfMemory);
    return false;
}

void KvCInventoryRootHandle::initByFilter(KvCErrorListPool& errors, void* filter)
{
    constexpr const char* origin = "KvCInventoryRootHandle::initByFilter";
    KvInt32 result = KvDAL_applyFilter(errors, filter);
    if (result != Ok) {
        KV_REPORT(errors, FilterNotApplied, origin, result);
        return;
    }
    KvUInt32 count = 0;
    {
        PrivateErrorList sizeErrors;
        result = KvDAL_getDeviceList(sizeErrors.get(), filter, nullptr, &count);
        if (result == ListTooSmall)
            sizeErrors.get().clear();  // that is the answer, and no failure
    }
    if (result == Ok)
        return;
    if (result != ListTooSmall) {
        KV_REPORT(errors, DeviceListFailed, origin, result);
        return;
    }
    auto* infos = static_cast<KvDALSDeviceInfo*>(KvNAllocation::allocate(count * sizeof(KvDALSDeviceInfo)));
    if (infos == nullptr) {
        // Kept: the code of "cannot apply filter", as the callers know it.
        KV_REPORT(errors, FilterNotAppliedAgain, origin, KvNDeviceAccess::OutOfMemory);
        return;
    }
    result = KvDAL_getDeviceList(errors, filter, infos, &count);
    if (result != Ok)
        KV_REPORT(errors, DeviceListFailed, origin, result);
    else if (count != 0)
        initByDeviceList(errors, infos, static_cast<int>(count));
    KvNAllocation::release(infos);
}

void KvCInventoryRootHandle::initByDeviceList(KvCErrorListPool& errors, const KvDALSDeviceInfo* infos, int count)
{
    constexpr const char* origin = "KvCInventoryRootHandle::initByDeviceList";
    if (count <= 0 || infos == nullptr || !allocateBoards(errors, static_cast<KvUInt32>(count), true))
        return;
    PrivateErrorList privateErrors;
    for (int i = 0; i < count; ++i) {
        void* deviceHandle = nullptr;
        const KvInt32 result = KvDAL_createDeviceHandle(privateErrors.get(), &deviceHandle, infos[i]);
        if (result != Ok) {
            KV_REPORT(privateErrors.get(), DeviceHandleNotCreated, origin, result);
            // A board that is there, and left out for want of memory, is the caller's to know.
            if (result == KvNDeviceAccess::OutOfMemory)
                KV_REPORT(errors, RemoteOutOfMemory, origin);
            continue;
        }
        // Kept: a board whose serial number cannot be read stays in the list, with 0; only the error manager is told.
        KvUInt32 serial = 0;
        readNumber(privateErrors.get(), deviceHandle, DeviceSerialNumber, serial);
        m_boards->append(deviceHandle, serial);
    }
}

KvUInt32 KvCInventoryRootHandle::getBoardCount() const
{
    return m_boards != nullptr ? m_boards->boardCount : 0;
}

void* KvCInventoryRootHandle::getCnHandleByOrdinalNumber(KvCErrorListPool& errors, KvUInt32 ordinal) const
{
    if (ordinal < getBoardCount())
        return m_boards->deviceHandles[ordinal];
    KV_REPORT(errors, IndexOutOfRange, "KvCInventoryRootHandle::getCnHandleByOrdinalNumber");
    return nullptr;
}

void* KvCInventoryRootHandle::getCnHandleBySerialNumber(KvCErrorListPool& errors, KvUInt32 serial) const
{
    for (KvUInt32 i = 0; i < getBoardCount(); ++i)
        if (m_boards->serialNumbers[i] == serial)
            return m_boards->deviceHandles[i];
    KV_REPORT(errors, SerialNumberNotAvailable, "KvCInventoryRootHandle::getCnHandleBySerialNumber");
    return nullptr;
}

KvUInt32 KvCInventoryRootHandle::serialNumber(KvUInt32 ordinal) const
{
    return ordinal < getBoardCount() ? m_boards->serialNumbers[ordinal] : 0;
}

void KvCInventoryRootHandle::print() const
{
    PrivateErrorList privateErrors;
    KvCErrorListPool& errors = privateErrors.get();
    std::printf("Inventory handle subsumes %d device(s):\n", static_cast<int>(getBoardCount()));
    for (KvUInt32 i = 0; i < getBoardCount(); ++i) {
        void* deviceHandle = m_boards->deviceHandles[i];
        KvUInt32 boardType = 0;
        readNumber(errors, deviceHandle, DeviceBoardType, boardType);
        char name[DeviceTextSize] = "???";
        readText(errors, deviceHandle, DeviceBoardName, name);
        char systemName[DeviceTextSize] = "???";
        readText(errors, deviceHandle, DeviceSystemName, systemName);
        char address[DeviceTextSize] = "";
        KvUInt32 ipAddress = 0;
        if (readNumber(errors, deviceHandle, DeviceIpAddress, ipAddress))
            KvNRtosAbstraction::ipToString(ipAddress, address, sizeof address);
        std::printf("Device %2d: serial no. %u, KV%u, name %s, system name %s, IP %s\n", static_cast<int>(i),
                    static_cast<unsigned int>(m_boards->serialNumbers[i]), static_cast<unsigned int>(boardType), name,
                    systemName, address[0] != '\0' ? address : "???");
    }
}
