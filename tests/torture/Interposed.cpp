#include <cerrno>
#include <cstdlib>
#include <new>

#include "MemoryControl.h"

/*
 * malloc and its family, for whole processes: part of the test program, or loaded before another program's own. Where a
 * sanitizer owns malloc, operator new instead.
 */

namespace {

MemoryControl g_control;

}  // namespace

MemoryControl* MemoryControl::ours = &g_control;

#ifdef KV_SANITIZER_OWNS_MALLOC

namespace {

void* take(std::size_t bytes)
{
    void* const block = MemoryControl::ours->mayTake() ? std::malloc(bytes == 0 ? 1 : bytes) : nullptr;
    if (block != nullptr)
        ++MemoryControl::ours->live;
    return block;
}

void give(void* block)
{
    if (block != nullptr)
        --MemoryControl::ours->live;
    std::free(block);
}

}  // namespace

void* operator new(std::size_t bytes)
{
    if (void* const block = take(bytes))
        return block;
    throw std::bad_alloc();
}

void* operator new[](std::size_t bytes)
{
    return operator new(bytes);
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    return take(bytes);
}

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept
{
    return take(bytes);
}

void operator delete(void* block) noexcept
{
    give(block);
}

void operator delete[](void* block) noexcept
{
    give(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    give(block);
}

void operator delete[](void* block, std::size_t) noexcept
{
    give(block);
}

void operator delete(void* block, const std::nothrow_t&) noexcept
{
    give(block);
}

void operator delete[](void* block, const std::nothrow_t&) noexcept
{
    give(block);
}

#else

extern "C" {

void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);
void __libc_free(void* block);

static bool mayTake()
{
    if (MemoryControl::ours->mayTake())
        return true;
    errno = ENOMEM;
    return false;
}

static void* given(void* block)
{
    if (block != nullptr)
        ++MemoryControl::ours->live;
    return block;
}

void* malloc(std::size_t bytes)
{
    return mayTake() ? given(__libc_malloc(bytes)) : nullptr;
}

void* calloc(std::size_t count, std::size_t bytes)
{
    return mayTake() ? given(__libc_calloc(count, bytes)) : nullptr;
}

void free(void* block)
{
    if (block != nullptr)
        --MemoryControl::ours->live;
    __libc_free(block);
}

void* realloc(void* block, std::size_t bytes)
{
    if (!mayTake())
        return nullptr;
    void* const moved = __libc_realloc(block, bytes);
    if (block == nullptr)
        given(moved);
    else if (moved == nullptr && bytes == 0)
        --MemoryControl::ours->live;
    return moved;
}

void* memalign(std::size_t alignment, std::size_t bytes)
{
    return mayTake() ? given(__libc_memalign(alignment, bytes)) : nullptr;
}

void* aligned_alloc(std::size_t alignment, std::size_t bytes)
{
    return memalign(alignment, bytes);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t bytes)
{
    void* const taken = memalign(alignment, bytes);
    if (taken == nullptr)
        return ENOMEM;
    *block = taken;
    return 0;
}

}  // extern "C"

#endif
