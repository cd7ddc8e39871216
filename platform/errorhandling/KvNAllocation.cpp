#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "platform/errorhandling/KvCErrorList.h"

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace {

// A thread that serves the other side of a test may look while the hook is changed.
constinit std::atomic<KvNAllocation::Hook> installedHook{nullptr};
constinit std::atomic<void*> installedContext{nullptr};

/** Asks for large pages for what a large block has not used yet: page by page, getting the memory of a stream from the
    system costs more than writing it. */
void* inLargePages([[maybe_unused]] void* block, [[maybe_unused]] std::size_t bytes) noexcept
{
#if defined(__linux__)
    constexpr std::size_t large = 4u << 20;
    if (block != nullptr && bytes >= large) {
        const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
        const auto address = reinterpret_cast<std::uintptr_t>(block);
        const std::uintptr_t first = (address + page - 1) / page * page;
        // Where it is refused, the pages are small ones.
        madvise(reinterpret_cast<void*>(first), address + bytes - first, MADV_HUGEPAGE);
    }
#endif
    return block;
}

}  // namespace

void KvNAllocation::setHook(Hook function, void* context) noexcept
{
    installedHook.store(nullptr, std::memory_order_relaxed);
    installedContext.store(context, std::memory_order_relaxed);
    installedHook.store(function, std::memory_order_release);
}

bool KvNAllocation::mayAllocate(std::size_t bytes) noexcept
{
    const Hook hook = installedHook.load(std::memory_order_acquire);
    return hook == nullptr || hook(installedContext.load(std::memory_order_relaxed), bytes);
}

void* KvNAllocation::allocate(std::size_t bytes) noexcept
{
    return mayAllocate(bytes) ? inLargePages(std::malloc(bytes == 0 ? 1 : bytes), bytes) : nullptr;
}

void* KvNAllocation::reallocate(void* block, std::size_t bytes) noexcept
{
    return mayAllocate(bytes) ? inLargePages(std::realloc(block, bytes == 0 ? 1 : bytes), bytes) : nullptr;
}

void KvNAllocation::release(void* block) noexcept
{
    std::free(block);
}

void* operator new(std::size_t bytes, KvCErrorListPool&) noexcept
{
    return KvNAllocation::allocate(bytes);
}

void* operator new[](std::size_t bytes, KvCErrorListPool&) noexcept
{
    return KvNAllocation::allocate(bytes);
}

void operator delete(void* block, KvCErrorListPool&) noexcept
{
    KvNAllocation::release(block);
}

void operator delete[](void* block, KvCErrorListPool&) noexcept
{
    KvNAllocation::release(block);
}
