#include "FailingMemory.h"

#include "MemoryControl.h"
#include "tests/support/FailingAllocation.h"

#ifdef KV_SANITIZER_OWNS_MALLOC

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*given)(const volatile void*, std::size_t),
                                                         void (*taken)(const volatile void*));

namespace {

/** The sanitizer's count: what is taken past operator new counts too. */
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

long FailingMemory::liveBlocks()
{
    return g_live;
}

#else

long FailingMemory::liveBlocks()
{
    return MemoryControl::ours->live;
}

#endif

FailingMemory::FailingMemory(Door door, std::size_t number, bool lasting)
    : m_library(door == Door::Library ? std::make_unique<FailingAllocation>(number, lasting) : nullptr)
{
    if (m_library == nullptr)
        MemoryControl::ours->arm(number, lasting);
}

FailingMemory::~FailingMemory()
{
    MemoryControl::ours->disarm();
}

std::size_t FailingMemory::count() const
{
    return m_library != nullptr ? m_library->count() : MemoryControl::ours->count.load();
}

bool FailingMemory::hasFailed() const
{
    return m_library != nullptr ? m_library->hasFailed() : MemoryControl::ours->hasFailed.load();
}
