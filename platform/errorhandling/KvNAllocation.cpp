#include <atomic>
#include <cstdlib>

#include "platform/errorhandling/KvCErrorList.h"

namespace {

// A thread that serves the other side of a test may look while the hook is changed.
constinit std::atomic<KvNAllocation::Hook> installedHook{nullptr};
constinit std::atomic<void*> installedContext{nullptr};

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
    return mayAllocate(bytes) ? std::malloc(bytes == 0 ? 1 : bytes) : nullptr;
}

void* KvNAllocation::reallocate(void* block, std::size_t bytes) noexcept
{
    return mayAllocate(bytes) ? std::realloc(block, bytes == 0 ? 1 : bytes) : nullptr;
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
