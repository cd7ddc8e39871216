#pragma once

#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

/**
 * The value of an array parameter: `count` elements of T (KvUInt32 or double) on the heap, owned.
 * A caller may name a publish slot: whenever the elements are allocated anew, the new address is stored there. The slot
 * is never touched at destruction, so it may end before the array does. When memory is out the array is empty and
 * 0x601002 is on the master error list.
 */
template <class T>
class KV_EXPORT KvCArrayParam : public KvNAllocation::Object
{
public:
    /** An empty array without a slot. */
    KvCArrayParam() noexcept = default;
    /** Copies `count` elements from `data` (null: zeros) and publishes them in `slot` (null: nowhere). */
    KvCArrayParam(KvUInt32 count, const T* data, T** slot);
    /** Copies the elements; a copy publishes nothing. */
    KvCArrayParam(const KvCArrayParam& other);
    /** Copies count, publish slot and elements. */
    KvCArrayParam& operator=(const KvCArrayParam& other);
    ~KvCArrayParam();

    /** Replaces the elements by `count` ones copied from `data` (null: zeros), which may be elements of this array. */
    void setData(KvUInt32 count, const T* data);

    /** The elements; null when there are none. */
    T* getData() { return m_data; }
    const T* getData() const { return m_data; }
    /** The number of elements. */
    KvUInt32 getCount() const { return m_count; }
    T** getPublishSlot() const { return m_slot; }
    void setPublishSlot(T** slot) { m_slot = slot; }

    /** Equal count and equal elements; two NaNs of the same bits are equal. */
    bool operator==(const KvCArrayParam& other) const { return equals(other.m_count, other.m_data); }
    bool equals(KvUInt32 count, const T* data) const;

private:
    bool store(KvUInt32 count, const T* data);

    T* m_data = nullptr;
    T** m_slot = nullptr;
    KvUInt32 m_count = 0;
};

extern template class KvCArrayParam<KvUInt32>;
extern template class KvCArrayParam<double>;
