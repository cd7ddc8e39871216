#include "inventory/KvCInventoryTagMap.h"

#include <algorithm>
#include <cstring>

#include "base/Report.h"

namespace {

constexpr KvUInt32 firstCapacity = 1024;
/** Each name has this room in the block: its pointer, and two places in the hash table. */
constexpr std::size_t roomPerName = sizeof(const char*) + 2 * sizeof(KvUInt32);

KvUInt32 hashOf(const char* text, std::size_t length)
{
    KvUInt32 hash = 0x811C9DC5;
    for (std::size_t i = 0; i < length; ++i)
        hash = (hash ^ static_cast<unsigned char>(text[i])) * 0x01000193;
    return hash ^ (hash >> 15);
}

}  // namespace

KvCInventoryTagMap::~KvCInventoryTagMap()
{
    KvNAllocation::release(m_names);
}

KvUInt32 KvCInventoryTagMap::add(KvUInt32 category, const char* name)
{
    KvCErrorListPool& errors = KvNReport::masterList();
    const char* const origin = "KvCInventoryTagMap::add";
    if (m_capacity <= m_count && !grow()) {
        KV_REPORT(errors, InventoryIdOutOfMemory, origin, name);
        KvCErrorManager::sendErrorList(errors, 0);
        return category;
    }
    if (category != m_count)
        KV_REPORT(errors, InventoryIdWrongCategory, origin, name);
    m_names[m_count] = name;
    enter(m_count);
    ++m_count;
    KvCErrorManager::sendErrorList(errors, 0);
    return category;
}

/** Twice the capacity, or the first one; false, and nothing changed, when memory is out. */
bool KvCInventoryTagMap::grow()
{
    if (m_capacity > 0x40000000)
        return false;
    const KvUInt32 capacity = m_capacity == 0 ? firstCapacity : 2 * m_capacity;
    void* block = capacity > static_cast<std::size_t>(-1) / roomPerName
                      ? nullptr
                      : KvNAllocation::allocate(capacity * roomPerName);
    if (block == nullptr)
        return false;
    auto** names = static_cast<const char**>(block);
    std::copy(m_names, m_names + m_count, names);
    KvNAllocation::release(m_names);
    m_names = names;
    m_slots = reinterpret_cast<KvUInt32*>(names + capacity);
    m_capacity = capacity;
    std::fill(m_slots, m_slots + 2 * static_cast<std::size_t>(capacity), 0);
    for (KvUInt32 category = 1; category < m_count; ++category)
        enter(category);
    return true;
}

/** The slot that holds the name, or the free one where it belongs. */
KvUInt32* KvCInventoryTagMap::slotOf(const char* name, std::size_t length) const
{
    const KvUInt32 mask = 2 * m_capacity - 1;
    for (KvUInt32 i = hashOf(name, length) & mask;; i = (i + 1) & mask) {
        if (m_slots[i] == 0)
            return &m_slots[i];
        const char* const held = m_names[m_slots[i]];
        if (std::strlen(held) == length && std::memcmp(held, name, length) == 0)
            return &m_slots[i];
    }
}

/** Lets `find` know the name of `category`. Kept: category 0 is never found by name, and of equal names the first. */
void KvCInventoryTagMap::enter(KvUInt32 category)
{
    const char* const name = m_names[category];
    if (category == 0 || name == nullptr)
        return;
    KvUInt32* slot = slotOf(name, std::strlen(name));
    if (*slot == 0)
        *slot = category;
}

KvUInt32 KvCInventoryTagMap::find(const char* name, std::size_t length) const
{
    return m_capacity == 0 || name == nullptr ? 0 : *slotOf(name, length);
}
