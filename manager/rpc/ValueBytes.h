#pragma once

#include <cstring>
#include <type_traits>

#include "base/BigEndian.h"
#include "base/Report.h"
#include "composite/ElementTypes.h"
#include "inventory/KvCInventoryParameter.h"
#include "manager/rpc/InventoryRecords.h"

namespace KvNInventoryRpc {

/** A value's wire record for the time of one call: its type code, and its bytes, the most significant first. */
class ValueBytes
{
public:
    ValueBytes() = default;
    ~ValueBytes() { KvNAllocation::release(m_record.data.data); }
    ValueBytes(const ValueBytes&) = delete;
    ValueBytes& operator=(const ValueBytes&) = delete;

    const KvInventoryManagerRpcIFParameterValue& record() const { return m_record; }

    /** Takes one of the twelve element types: numbers as they are, a text without its terminator, a version as its
        packed form. Codes 0x160081B and 0x160081A (no memory). */
    template <class T>
    bool set(KvCErrorListPool& errors, const char* origin, const T& value)
    {
        if constexpr (std::is_same_v<T, KvCString>)
            return set(errors, origin, KvNElement::KvCStringCode, value.c_str(), value.length());
        else if constexpr (std::is_same_v<T, KvCVersion>)
            return setNumber(errors, origin, KvNElement::KvCVersionCode, KvUInt64{value.getAsULong64()});
        else
            return typeOf(errors, origin, value) && setNumber(errors, origin, m_record.type, value);
    }

private:
    /** A parameter of the type says its code. */
    template <class T>
    bool typeOf(KvCErrorListPool& errors, const char* origin, const T& value)
    {
        const KvNReport::Watch creation(errors);
        const KvCInventoryParameter parameter(errors, KvCInventoryAddress(1), "", value, "", false, 0);
        if (creation.grew()) {
            KV_REPORT(errors, RemoteParameterNotCreated, origin);
            return false;
        }
        m_record.type = parameter.getType();
        return true;
    }

    template <class T>
    bool setNumber(KvCErrorListPool& errors, const char* origin, KvUInt32 type, T value)
    {
        char bytes[sizeof(T)];
        KvNBigEndian::store(bytes, value);
        return set(errors, origin, type, bytes, sizeof bytes);
    }

    bool set(KvCErrorListPool& errors, const char* origin, KvUInt32 type, const char* bytes, KvUInt32 length)
    {
        m_record.data.data = static_cast<char*>(KvNAllocation::allocate(length));
        if (m_record.data.data == nullptr) {
            KV_REPORT(errors, RemoteOutOfMemory, origin);
            return false;
        }
        std::memcpy(m_record.data.data, bytes, length);
        m_record.data.length = length;
        m_record.type = type;
        return true;
    }

    KvInventoryManagerRpcIFParameterValue m_record{};
};

}  // namespace KvNInventoryRpc
