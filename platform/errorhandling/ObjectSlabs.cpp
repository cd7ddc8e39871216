#include "platform/errorhandling/ObjectSlabs.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

#include "platform/errorhandling/KvCErrorList.h"

namespace {

constexpr std::size_t smallestSlab = 1024;

/** While a builder takes from a slab, this many objects seem to live there: only it can let the count come to 0. */
constexpr KvUInt32 builderShare = 0x40000000;

}  // namespace

struct ObjectSlabs::Slab
{
    std::atomic<KvUInt32> objects{builderShare};
};

ObjectSlabs::Room ObjectSlabs::take(std::size_t bytes, std::size_t expected) noexcept
{
    const std::size_t whole = (bytes + step - 1) / step * step;
    const bool isThere = whole <= m_size - m_used;
    if (!KvNAllocation::mayAllocate(bytes) || (!isThere && !makeSlab(whole, expected)))
        return {nullptr, 0};
    const KvUInt32 start = m_used;
    m_used += static_cast<KvUInt32>(whole);
    ++m_objects;
    void* const memory = reinterpret_cast<unsigned char*>(m_slab) + start;
    permit(memory, bytes);
    return {memory, static_cast<KvUInt32>(start / step)};
}

bool ObjectSlabs::makeSlab(std::size_t bytes, std::size_t expected) noexcept
{
    static_assert(sizeof(Slab) <= step && alignof(Slab) <= step && alignof(std::max_align_t) >= step);
    leaveSlab();
    const std::size_t size = std::clamp(expected + step, std::max(smallestSlab, bytes + step), largestSlab);
    void* const memory = std::malloc(size);
    if (memory == nullptr)
        return false;
    m_slab = new (memory) Slab;
    forbid(static_cast<unsigned char*>(memory) + step, size - step);
    m_size = static_cast<KvUInt32>(size);
    m_used = step;
    return true;
}

/** Takes nothing more from the slab, which lives as long as its objects from now on. */
void ObjectSlabs::leaveSlab() noexcept
{
    if (m_slab != nullptr)
        release(m_slab, builderShare - m_objects);
    m_slab = nullptr;
    m_size = 0;
    m_used = 0;
    m_objects = 0;
}

void ObjectSlabs::release(Slab* slab, KvUInt32 objects) noexcept
{
    if (slab->objects.fetch_sub(objects, std::memory_order_acq_rel) == objects)
        std::free(slab);
}

void ObjectSlabs::release(void* object, KvUInt32 place, std::size_t bytes) noexcept
{
    if (place == 0)
        return KvNAllocation::release(object);
    forbid(object, bytes);
    release(slabOf(object, place), 1);
}
