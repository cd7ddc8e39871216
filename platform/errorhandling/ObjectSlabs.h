#pragma once

#include <cstddef>

#include "platform/KvTypes.h"

#if defined(__SANITIZE_ADDRESS__)
#define KV_WATCHES_MEMORY 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KV_WATCHES_MEMORY 1
#endif
#endif
#ifdef KV_WATCHES_MEMORY
#include <sanitizer/asan_interface.h>
#endif

/**
 * Memory for the many objects of a tree that is being built: taken from the C runtime slab by slab instead of object by
 * object. Each object keeps its `place` in the slab, by which it is given back alone, at any time and by any thread; a
 * slab is given back with its last object. What was given back before is not used again: an object that outlives its
 * tree keeps up to `largestSlab` bytes. The allocation hook is asked for each object, not for the slabs.
 * One thread at a time takes from a builder. Under AddressSanitizer what is in no object of a slab may not be touched.
 */
class ObjectSlabs
{
public:
    /** Bits that a place needs; 0 is the place of an object that is a block of its own. */
    static constexpr unsigned placeBits = 12;
    static constexpr KvUInt32 placeMask = (KvUInt32{1} << placeBits) - 1;
    static constexpr std::size_t largestSlab = 32 * 1024 - 64;
    /** What an object may need at most: bytes, and the alignment that numbers and pointers have. */
    static constexpr std::size_t largestObject = 1024;
    static constexpr std::size_t alignment = 8;

    struct Room
    {
        void* memory;  ///< aligned for every number and pointer; null when memory is out
        KvUInt32 place;
    };

    ObjectSlabs() = default;
    ObjectSlabs(const ObjectSlabs&) = delete;
    ObjectSlabs& operator=(const ObjectSlabs&) = delete;
    ~ObjectSlabs() { leaveSlab(); }

    /** Room for an object of at most `largestObject` bytes. `expected` is how many bytes this and all later objects may
       need: no slab is made larger than that. */
    Room take(std::size_t bytes, std::size_t expected) noexcept;

    /** Gives an object's memory back, after its destructor or instead of one that has nothing to do. `bytes`, of its
        size, are watched from now on where memory is watched. */
    static void release(void* object, KvUInt32 place, std::size_t bytes = 0) noexcept;

private:
    struct Slab;

    static void release(Slab* slab, KvUInt32 objects) noexcept;
    bool makeSlab(std::size_t bytes, std::size_t expected) noexcept;
    void leaveSlab() noexcept;

    Slab* m_slab = nullptr;
    KvUInt32 m_used = 0;  // bytes of the slab
    KvUInt32 m_size = 0;
    KvUInt32 m_objects = 0;

public:
    /** Gives many objects back and tells each slab only once for those that stand together; what was collected goes
        back when the collection ends. */
    class Releases
    {
    public:
        Releases() = default;
        Releases(const Releases&) = delete;
        Releases& operator=(const Releases&) = delete;
        ~Releases() { flush(); }

        /** The object is over; its place is not 0. `bytes` as for release. */
        void add(void* object, KvUInt32 place, std::size_t bytes = 0) noexcept
        {
            forbid(object, bytes);
            Slab* const slab = slabOf(object, place);
            if (slab != m_slab)
                flush();
            m_slab = slab;
            ++m_objects;
        }

    private:
        void flush() noexcept
        {
            if (m_slab != nullptr)
                release(m_slab, m_objects);
            m_slab = nullptr;
            m_objects = 0;
        }

        Slab* m_slab = nullptr;
        KvUInt32 m_objects = 0;
    };

private:
    /** Objects stand at multiples of this from the start of their slab, and the slab's own record before the first. */
    static constexpr std::size_t step = alignment;
    static_assert(largestSlab / step <= placeMask && largestObject <= largestSlab - step);

#ifdef KV_WATCHES_MEMORY
    static void forbid(const void* memory, std::size_t bytes) noexcept
    {
        __asan_poison_memory_region(memory, bytes);
    }
    static void permit(const void* memory, std::size_t bytes) noexcept
    {
        __asan_unpoison_memory_region(memory, bytes);
    }
#else
    static void forbid(const void*, std::size_t) noexcept {}
    static void permit(const void*, std::size_t) noexcept {}
#endif

    static Slab* slabOf(void* object, KvUInt32 place) noexcept
    {
        return reinterpret_cast<Slab*>(static_cast<unsigned char*>(object) - place * step);
    }
};
