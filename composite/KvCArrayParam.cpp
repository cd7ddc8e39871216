#include "composite/KvCArrayParam.h"

#include <cstring>
#include <type_traits>

#include "base/Report.h"

namespace {

enum Operation
{
    Construction,
    Setting,
    Assignment,
};

/** The names under which an operation reports; they are those of the interface where `long` has 32 bits. */
template <class T>
const char* originOf(Operation operation)
{
    static constexpr const char* integers[] = {"KvCArrayParam<unsigned long>::KvCArrayParam",
                                               "KvCArrayParam<unsigned long>::setData",
                                               "KvCArrayParam<unsigned long>::operator ="};
    static constexpr const char* doubles[] = {"KvCArrayParam<double>::KvCArrayParam", "KvCArrayParam<double>::setData",
                                              "KvCArrayParam<double>::operator ="};
    return std::is_same_v<T, double> ? doubles[operation] : integers[operation];
}

}  // namespace

template <class T>
KvCArrayParam<T>::KvCArrayParam(KvUInt32 count, const T* data, T** slot) : m_slot(slot)
{
    if (!store(count, data))
        KV_REPORT(KvNReport::masterList(), OutOfMemory, originOf<T>(Construction));
}

template <class T>
KvCArrayParam<T>::KvCArrayParam(const KvCArrayParam& other) : KvNAllocation::Object(other)
{
    if (!store(other.m_count, other.m_data))
        KV_REPORT(KvNReport::masterList(), OutOfMemory, originOf<T>(Construction));
}

template <class T>
KvCArrayParam<T>& KvCArrayParam<T>::operator=(const KvCArrayParam& other)
{
    if (this != &other) {
        m_slot = other.m_slot;
        if (!store(other.m_count, other.m_data))
            KV_REPORT(KvNReport::masterList(), OutOfMemory, originOf<T>(Assignment));
    }
    return *this;
}

template <class T>
KvCArrayParam<T>::~KvCArrayParam()
{
    KvNAllocation::release(m_data);
}

template <class T>
void KvCArrayParam<T>::setData(KvUInt32 count, const T* data)
{
    if (!store(count, data))
        KV_REPORT(KvNReport::masterList(), OutOfMemory, originOf<T>(Setting));
}

/** Replaces the elements; false and an empty array when memory is out. */
template <class T>
bool KvCArrayParam<T>::store(KvUInt32 count, const T* data)
{
    T* fresh = nullptr;
    const bool fits = count <= static_cast<std::size_t>(-1) / sizeof(T);
    if (count != 0 && fits)
        fresh = static_cast<T*>(KvNAllocation::allocate(count * sizeof(T)));
    if (fresh != nullptr && data != nullptr)
        std::memcpy(fresh, data, count * sizeof(T));
    else if (fresh != nullptr)
        std::memset(static_cast<void*>(fresh), 0, count * sizeof(T));
    KvNAllocation::release(m_data);
    m_data = fresh;
    m_count = fresh != nullptr ? count : 0;
    if (m_slot != nullptr)
        *m_slot = m_data;
    return m_count == count;
}

template <class T>
bool KvCArrayParam<T>::equals(KvUInt32 count, const T* data) const
{
    if (count != m_count)
        return false;
    if (data == nullptr)
        return count == 0;
    for (KvUInt32 i = 0; i < count; ++i)
        if (m_data[i] != data[i] && std::memcmp(&m_data[i], &data[i], sizeof(T)) != 0)
            return false;
    return true;
}

template class KvCArrayParam<KvUInt32>;
template class KvCArrayParam<double>;
