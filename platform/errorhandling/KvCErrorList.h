#pragma once

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <new>
#include <vector>

#include "platform/KvExport.h"
#include "platform/KvTypes.h"

class KvCErrorListPool;

/**
 * Where the library's memory comes from: the C runtime's allocator behind one hook, so that a test can make any single
 * allocation fail. Everything taken here is given back with release() or the C runtime's free().
 */
namespace KvNAllocation {

/** Asked before each allocation with its size in bytes; false makes that allocation fail. */
using Hook = bool (*)(void* context, std::size_t bytes);

/** Installs `function` (null: none), called with `context` on whichever thread allocates. Not for use while other
    threads allocate. */
KV_EXPORT void setHook(Hook function, void* context) noexcept;

/** Asks the hook on behalf of a container that has an allocator of its own; false: its allocation shall fail. */
KV_EXPORT bool mayAllocate(std::size_t bytes) noexcept;

/** `bytes` bytes of uninitialised memory, or null when there is none. A size of 0 gives a valid block. */
KV_EXPORT void* allocate(std::size_t bytes) noexcept;

/** Grows or shrinks a block as the C runtime's realloc does; null when that fails (the block then stays as it was). */
KV_EXPORT void* reallocate(void* block, std::size_t bytes) noexcept;

/** Gives a block back; null is ignored. */
KV_EXPORT void release(void* block) noexcept;

/** Base of the library's classes: their objects come from allocate(), whether made with plain `new`, `new (errors)` or
    `new (std::nothrow)`; each gives null, and no constructor runs, when memory is out. Adds no data. Small values that
    are members of other classes use a base of their own, ObjectOf<Value>: two bases of one type cannot share an
    address. */
template <class Tag>
struct ObjectOf
{
    static void* operator new(std::size_t bytes) noexcept { return allocate(bytes); }
    static void* operator new[](std::size_t bytes) noexcept { return allocate(bytes); }
    static void* operator new(std::size_t bytes, KvCErrorListPool&) noexcept { return allocate(bytes); }
    static void* operator new[](std::size_t bytes, KvCErrorListPool&) noexcept { return allocate(bytes); }
    static void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return allocate(bytes); }
    static void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return allocate(bytes); }
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void* block) noexcept { release(block); }
    static void operator delete[](void* block) noexcept { release(block); }
    static void operator delete(void* block, KvCErrorListPool&) noexcept { release(block); }
    static void operator delete[](void* block, KvCErrorListPool&) noexcept { release(block); }
    static void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
    static void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }
    static void operator delete(void*, void*) noexcept {}
};
using Object = ObjectOf<void>;

/** Allocator for standard containers inside the library; throws std::bad_alloc, which its user catches. */
template <class T>
struct Allocator
{
    using value_type = T;
    Allocator() noexcept = default;
    template <class U>
    Allocator(const Allocator<U>&) noexcept
    {}
    T* allocate(std::size_t count)
    {
        if (count > static_cast<std::size_t>(-1) / sizeof(T))
            throw std::bad_alloc();
        void* block = KvNAllocation::allocate(count * sizeof(T));
        if (block == nullptr)
            throw std::bad_alloc();
        return static_cast<T*>(block);
    }
    void deallocate(T* block, std::size_t) noexcept { release(block); }
    template <class U>
    bool operator==(const Allocator<U>&) const noexcept
    {
        return true;
    }
};

}  // namespace KvNAllocation

/**
 * An ordered list of reported failures: code, line, origin and arguments, the innermost first. A list belongs to one
 * thread, but for the error manager's master list, which is safe to use from several.
 * It keeps what it is given up to a limit (65536 entries) and as memory lasts, and counts the rest; one entry it keeps
 * without taking memory, so that a report made when memory is out is not lost.
 * Entry numbers count from 0; what is asked past the end is 0 or "".
 */
class KV_EXPORT KvCErrorList : public KvNAllocation::Object
{
public:
    /** Appends an entry. `origin` is "Class::method"; `argTypes` holds one conversion of %s %u %d %i %x for each
        placeholder of the code's text, in order (null: none), and the arguments follow: `const char*` for %s (null is
        taken as ""), `KvUInt32` for %u and %x, `KvInt32` for %d and %i. Never fails: what cannot be kept is counted. */
    void setError(KvUInt32 code, unsigned long line, const char* origin, const char* argTypes, ...);
    void setErrorV(KvUInt32 code, unsigned long line, const char* origin, const char* argTypes, std::va_list arguments);

    /** Entries reported so far, kept or not, so that it grows with every failure. Constant time. */
    KvUInt32 getErrorCount() const { return m_count.load(std::memory_order_relaxed); }
    /** The entry's code; 0 past the end and for an entry that was not kept. */
    KvUInt32 getErrorCode(KvUInt32 i) const;
    /** "Class::method"; valid until the list changes (master list: until this thread asks for the next origin). */
    const char* getErrorOrigin(KvUInt32 i) const;
    unsigned long getErrorLine(KvUInt32 i) const;
    /** The registered text with its placeholders filled, rendered now; valid until the list changes (master list: until
        this thread asks for the next text). A code without text gives "Unknown message 0x%x." */
    const char* getErrorText(KvUInt32 i) const;

    /** Empties the list. */
    void clear();

    /** Appends what was reported to `other`, as if it had been reported here, and empties `other`, which is no master
        list and not this one. */
    void takeOver(KvCErrorList& other) noexcept;

    /** The entries as the block of docs/formats.md; no bytes mean out of memory. */
    std::vector<unsigned char> serialize() const;
    /** Appends the entries of such a block of `size` bytes; false, and nothing appended, when it is malformed. No bytes
        are an empty list. */
    bool deSerialize(const unsigned char* data, unsigned long size);

    KvCErrorList(const KvCErrorList&) = delete;
    KvCErrorList& operator=(const KvCErrorList&) = delete;

protected:
    /** Which list this is, and so who may use it and who destroys it. */
    enum class Kind : unsigned char
    {
        Plain,
        Private,  ///< made by KvCErrorManager::createErrorList
        Master    ///< shared by all threads
    };

    static constexpr KvUInt32 defaultLimit = 65536;

    /** `limit` entries at most; the room for them grows by `growth` entries (0: geometrically). */
    KvCErrorList(Kind kind, KvUInt32 growth, KvUInt32 limit) noexcept
        : m_limit(limit), m_growth(growth < defaultLimit ? growth : defaultLimit), m_kind(kind)
    {}
    ~KvCErrorList();

    /** Room for `entries` entries; nothing happens when memory is out. */
    void reserve(KvUInt32 entries) noexcept;

    /** Moves the entries into `target`, which is empty, and leaves this list empty. */
    void moveTo(KvCErrorList& target) noexcept;

private:
    friend class KvCErrorManager;
    struct Entry;
    class Lock;

    static constexpr std::size_t spareBytes = 320;

    template <class Texts>
    void append(KvUInt32 code, unsigned long line, Texts texts) noexcept;
    template <class Visitor>
    void visit(Visitor&& visitor) const;
    Entry* spare() const noexcept;
    Entry* find(KvUInt32 i) const noexcept;
    KvUInt32 kept() const noexcept { return m_kept + (m_spareUsed ? 1 : 0); }
    bool makeRoom(KvUInt32 entries) noexcept;
    void drop() noexcept;

    std::atomic<KvUInt32> m_count{0};  // reported
    KvUInt32 m_kept = 0;               // in m_entries
    KvUInt32 m_room = 0;               // of m_entries
    KvUInt32 m_limit;
    KvUInt32 m_growth;
    Kind m_kind;
    bool m_spareUsed = false;
    Entry** m_entries = nullptr;                                          // in the order of their numbers
    alignas(std::max_align_t) mutable unsigned char m_spare[spareBytes];  // the entry that needs no memory
};

/**
 * The error list that callers own, on the stack or as a member, and pass as the first argument of every operation that
 * can fail.
 */
class KV_EXPORT KvCErrorListPool : public KvCErrorList
{
public:
    KvCErrorListPool() noexcept : KvCErrorList(Kind::Plain, 0, defaultLimit) {}

private:
    friend class KvCErrorManager;
    KvCErrorListPool(Kind kind, KvUInt32 growth, KvUInt32 limit) noexcept : KvCErrorList(kind, growth, limit) {}
};

/** Memory of the library's allocator; null, and no constructor runs, when there is none. It is given back with the
    matching operator delete or with the C runtime's free(). Nothing is reported: the caller reports in its own words.
 */
KV_EXPORT void* operator new(std::size_t bytes, KvCErrorListPool& errors) noexcept;
KV_EXPORT void* operator new[](std::size_t bytes, KvCErrorListPool& errors) noexcept;
KV_EXPORT void operator delete(void* block, KvCErrorListPool& errors) noexcept;
KV_EXPORT void operator delete[](void* block, KvCErrorListPool& errors) noexcept;
