#include "platform/dal/HandleTable.h"

#include <algorithm>
#include <new>
#include <utility>

namespace KvNDeviceAccess {

namespace {

constexpr unsigned placeBits = sizeof(std::uintptr_t) == 8 ? 20 : 16;
constexpr std::uintptr_t placeMask = (std::uintptr_t{1} << placeBits) - 1;
constexpr std::uintptr_t generationMask = ~std::uintptr_t{0} >> placeBits;

}  // namespace

HandleTable::HandleTable(std::size_t maximum) noexcept : m_maximum(std::min(maximum, largestMaximum())) {}

std::size_t HandleTable::largestMaximum() noexcept
{
    return placeMask;
}

void* HandleTable::add(std::shared_ptr<Entry> entry)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::size_t place = m_firstFree;
    if (place == noSlot) {
        if (m_slots.size() >= m_maximum)
            return nullptr;
        place = m_slots.size();
        m_slots.emplace_back();
    } else {
        m_firstFree = m_slots[place].nextFree;
        if (m_firstFree == noSlot)
            m_lastFree = noSlot;
    }
    Slot& slot = m_slots[place];
    slot.nextFree = noSlot;
    slot.entry = std::move(entry);
    return reinterpret_cast<void*>((slot.generation << placeBits) | (place + 1));
}

HandleTable::Slot* HandleTable::slotOf(const void* handle, EntryKind kind) const noexcept
{
    const auto key = reinterpret_cast<std::uintptr_t>(handle);
    const std::size_t place = (key & placeMask) - 1;
    if (place >= m_slots.size())
        return nullptr;
    Slot& slot = m_slots[place];
    const bool matches = slot.entry != nullptr && slot.generation == key >> placeBits && slot.entry->kind() == kind;
    return matches ? &slot : nullptr;
}

std::shared_ptr<Entry> HandleTable::find(const void* handle, EntryKind kind) const noexcept
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    const Slot* slot = slotOf(handle, kind);
    return slot == nullptr ? nullptr : slot->entry;
}

std::shared_ptr<Entry> HandleTable::take(const void* handle, EntryKind kind) noexcept
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    Slot* slot = slotOf(handle, kind);
    if (slot == nullptr)
        return nullptr;
    std::shared_ptr<Entry> entry = std::move(slot->entry);
    slot->entry.reset();
    slot->generation = (slot->generation & generationMask) == generationMask ? 1 : slot->generation + 1;
    const auto place = static_cast<std::size_t>(slot - m_slots.data());
    if (m_lastFree == noSlot)
        m_firstFree = place;
    else
        m_slots[m_lastFree].nextFree = place;
    m_lastFree = place;
    return entry;
}

HandleTable& handleTable() noexcept
{
    alignas(HandleTable) static unsigned char storage[sizeof(HandleTable)];
    static HandleTable* const table = ::new (static_cast<void*>(storage)) HandleTable(HandleTable::largestMaximum());
    return *table;
}

}  // namespace KvNDeviceAccess
