#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/errorhandling/KvCErrorList.h"

namespace KvNDeviceAccess {

/** What the entries of the table are; a handle of one kind is no handle of another. */
enum class EntryKind : unsigned char
{
    Filter,
    Device,
    Lock,
    Transfer
};

/** Base of everything that a handle stands for. */
class Entry
{
public:
    explicit Entry(EntryKind kind) noexcept : m_kind(kind) {}
    virtual ~Entry() = default;
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    EntryKind kind() const { return m_kind; }

private:
    const EntryKind m_kind;
};

/** An object from the library's memory; throws std::bad_alloc. */
template <class T, class... Arguments>
std::shared_ptr<T> makeShared(Arguments&&... arguments)
{
    return std::allocate_shared<T>(KvNAllocation::Allocator<T>(), std::forward<Arguments>(arguments)...);
}

/**
 * The handles that callers hold. A handle is a number in the shape of a pointer: the entry's place in its low bits, and
 * above them the generation of that place, which changes with each removal, so that a deleted handle is recognised. A
 * freed place is used again as late as possible. Safe to use from several threads; an entry that is found stays alive
 * for whoever found it, although it is removed meanwhile.
 */
class HandleTable
{
public:
    /** A table of at most `maximum` entries. */
    explicit HandleTable(std::size_t maximum) noexcept;

    /** The largest possible maximum. */
    static std::size_t largestMaximum() noexcept;

    /** The handle of a new entry; null when the table is full. Throws std::bad_alloc. */
    void* add(std::shared_ptr<Entry> entry);

    /** The entry, or null when there is none of that kind. */
    std::shared_ptr<Entry> find(const void* handle, EntryKind kind) const noexcept;
    /** The same, and the handle ends. */
    std::shared_ptr<Entry> take(const void* handle, EntryKind kind) noexcept;

    template <class T>
    std::shared_ptr<T> find(const void* handle) const noexcept
    {
        return std::static_pointer_cast<T>(find(handle, T::entryKind));
    }
    template <class T>
    std::shared_ptr<T> take(const void* handle) noexcept
    {
        return std::static_pointer_cast<T>(take(handle, T::entryKind));
    }

private:
    struct Slot
    {
        std::shared_ptr<Entry> entry;
        std::uintptr_t generation = 1;
        std::size_t nextFree = noSlot;
    };

    static constexpr std::size_t noSlot = static_cast<std::size_t>(-1);
    Slot* slotOf(const void* handle, EntryKind kind) const noexcept;

    const std::size_t m_maximum;
    mutable std::mutex m_mutex;
    mutable std::vector<Slot, KvNAllocation::Allocator<Slot>> m_slots;
    std::size_t m_firstFree = noSlot;
    std::size_t m_lastFree = noSlot;
};

/** The process's handles. Never destroyed: what a program leaves behind at its end is not taken down in the midst of
    other libraries' ends. */
HandleTable& handleTable() noexcept;

}  // namespace KvNDeviceAccess
