#include <cstdlib>

#include "platform/errorhandling/KvCErrorList.h"

namespace {

KvNAllocation::Hook installedHook = nullptr;
void* installedContext = nullptr;

}  // namespace

void KvNAllocation::setHook(Hook function, void* context) noexcept
{
    installedHook = function;
    installedContext = context;
}

bool KvNAllocation::mayAllocate(std::size_t bytes) noexcept
{
    return installedHook == nullptr || installedHook(installedContext, bytes);
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
