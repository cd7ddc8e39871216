#include "FailingMemory.h"

#include <atomic>
#include <cerrno>

#include "tests/support/FailingAllocation.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KV_SANITIZER_OWNS_MALLOC 1
#endif

#ifdef KV_SANITIZER_OWNS_MALLOC

#include "tests/tools/kvboardd/FailingNew.h"

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*given)(const volatile void*, std::size_t),
                                                         void (*taken)(const volatile void*));

namespace {

std::atomic<long> g_live{0};

void given(const volatile void* block, std::size_t)
{
    if (block != nullptr)
        ++g_live;
}

void taken(const volatile void* block)
{
    if (block != nullptr)
        --g_live;
}

const int g_installed = __sanitizer_install_malloc_and_free_hooks(given, taken);

}  // namespace

#else

extern "C" {
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);
void __libc_free(void* block);
}

namespace {

std::atomic<long> g_live{0};
std::atomic<std::size_t> g_failing{0};  // 0: none
std::atomic<bool> g_lasting{false};
std::atomic<bool> g_counting{false};
std::atomic<std::size_t> g_count{0};
std::atomic<bool> g_hasFailed{false};

/** Whether the allocation that is asked for may be made. */
bool mayTake()
{
    if (!g_counting)
        return true;
    const std::size_t count = ++g_count;
    const std::size_t failing = g_failing;
    if (failing == 0 || (g_lasting ? count < failing : count != failing))
        return true;
    g_hasFailed = true;
    errno = ENOMEM;
    return false;
}

void* given(void* block)
{
    if (block != nullptr)
        ++g_live;
    return block;
}

/** Stands for the one that FailingNew is where a sanitizer owns malloc. */
struct FailingNew
{
    FailingNew(std::size_t number, bool lasting)
    {
        g_count = 0;
        g_hasFailed = false;
        g_lasting = lasting;
        g_failing = number;
        g_counting = true;
    }
    ~FailingNew() { g_counting = false; }
    static std::size_t count() { return g_count; }
    static bool hasFailed() { return g_hasFailed; }
};

}  // namespace

extern "C" {

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
        --g_live;
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
        --g_live;
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

FailingMemory::FailingMemory(Door door, std::size_t number, bool lasting)
    : m_door(door),
      m_failing(door == Door::Library ? static_cast<void*>(new FailingAllocation(number, lasting))
                                      : static_cast<void*>(new FailingNew(number, lasting)))
{}

FailingMemory::~FailingMemory()
{
    if (m_door == Door::Library)
        delete static_cast<FailingAllocation*>(m_failing);
    else
        delete static_cast<FailingNew*>(m_failing);
}

std::size_t FailingMemory::count() const
{
    return m_door == Door::Library ? static_cast<FailingAllocation*>(m_failing)->count() : FailingNew::count();
}

bool FailingMemory::hasFailed() const
{
    return m_door == Door::Library ? static_cast<FailingAllocation*>(m_failing)->hasFailed() : FailingNew::hasFailed();
}

long FailingMemory::liveBlocks()
{
    return g_live;
}
