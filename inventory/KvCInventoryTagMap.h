#pragma once

#include <cstddef>

#include "platform/KvExport.h"
#include "platform/KvTypes.h"

/**
 * The registry of names: maps each category of an inventory address to its text and back. There is one instance,
 * KvNInventoryIDs::Map, filled while the library is loaded; afterwards any number of threads may read it.
 *
 * Names are kept as the caller's pointers, never copied and never freed: they must outlive the map. Load-time failures
 * go to the master error list, which is sent at once.
 */
class KV_EXPORT KvCInventoryTagMap
{
public:
    KvCInventoryTagMap() noexcept = default;
    ~KvCInventoryTagMap();
    KvCInventoryTagMap(const KvCInventoryTagMap&) = delete;
    KvCInventoryTagMap& operator=(const KvCInventoryTagMap&) = delete;

    /** Registers `name` as the next entry and returns `category`. The name is always stored at the next free position;
        a `category` that is not that position is reported as 0x1301801, and a map that cannot grow as 0x1301800
       (nothing is stored then). The master error list is sent each time, so that load-time problems show immediately.
     */
    KvUInt32 add(KvUInt32 category, const char* name);

    /** The name of `category`; null when it has none. */
    const char* get(KvUInt32 category) const { return category < m_count ? m_names[category] : nullptr; }

    /** Number of registered names; the categories 0 to one less are valid. */
    KvUInt32 getCount() const { return m_count; }

    /** The first category from 1 on whose name is exactly the `length` bytes at `name`; 0 when there is none. */
    KvUInt32 find(const char* name, std::size_t length) const;

private:
    bool grow();
    KvUInt32* slotOf(const char* name, std::size_t length) const;
    void enter(KvUInt32 category);

    const char** m_names = nullptr;  // the block of both arrays
    KvUInt32* m_slots = nullptr;     // hash table of categories, twice as long as m_names; 0 is a free slot
    KvUInt32 m_capacity = 0;
    KvUInt32 m_count = 0;
};
