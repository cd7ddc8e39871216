#include "FailingNew.h"

#include <cstdlib>
#include <new>

namespace {

/** Which of the next calls of operator new fails: 0 none. */
std::size_t g_failing = 0;
bool g_lasting = false;
std::size_t g_count = 0;
bool g_hasFailed = false;

void* allocate(std::size_t bytes)
{
    if (g_failing != 0) {
        ++g_count;
        if (g_lasting ? g_count >= g_failing : g_count == g_failing) {
            g_hasFailed = true;
            return nullptr;
        }
    }
    return std::malloc(bytes == 0 ? 1 : bytes);
}

}  // namespace

FailingNew::FailingNew(std::size_t number, bool lasting)
{
    g_count = 0;
    g_hasFailed = false;
    g_lasting = lasting;
    g_failing = number;
}

FailingNew::~FailingNew()
{
    g_failing = 0;
}

bool FailingNew::hasFailed()
{
    return g_hasFailed;
}

void* operator new(std::size_t bytes)
{
    if (void* block = allocate(bytes))
        return block;
    throw std::bad_alloc();
}

void* operator new[](std::size_t bytes)
{
    return operator new(bytes);
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    return allocate(bytes);
}

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept
{
    return allocate(bytes);
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete[](void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}

void operator delete[](void* block, std::size_t) noexcept
{
    std::free(block);
}

void operator delete(void* block, const std::nothrow_t&) noexcept
{
    std::free(block);
}

void operator delete[](void* block, const std::nothrow_t&) noexcept
{
    std::free(block);
}
