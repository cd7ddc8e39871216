#include "fuzz/Fuzz.h"

#include <cstdio>
#include <cstdlib>

#include "platform/errorhandling/KvCErrorList.h"

namespace {

/** Of this thread; counted where the compiler calls the function below, with -DKV_FUZZ=ON. */
thread_local std::size_t blocksRun = 0;

}  // namespace

extern "C" void __wrap___sanitizer_cov_trace_pc();
extern "C" void __wrap___sanitizer_cov_trace_pc()
{
    ++blocksRun;
}

namespace KvNFuzz {

void fail(const char* what, const char* file, int line)
{
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, what);
    std::abort();
}

Costs::Costs() : m_workBefore(blocksRun)
{
    KvNAllocation::setHook(count, this);
}

Costs::~Costs()
{
    KvNAllocation::setHook(nullptr, nullptr);
}

bool Costs::count(void* context, std::size_t bytes)
{
    static_cast<Costs*>(context)->m_memory += bytes;
    return true;
}

void Costs::check(std::size_t bytes, const Limits& limits) const
{
    const std::size_t work = blocksRun - m_workBefore;
    static const bool isShown = std::getenv("KV_FUZZ_COSTS") != nullptr;
    if (isShown) {
        std::printf("%zu bytes: %zu bytes of memory, %zu blocks run\n", bytes, m_memory, work);
        return;
    }
    if (m_memory > limits.memory + limits.memoryPerByte * bytes || work > limits.work + limits.workPerByte * bytes) {
        std::fprintf(stderr, "%zu bytes took %zu bytes of memory and ran %zu blocks\n", bytes, m_memory, work);
        fail("the costs are linear in the input", __FILE__, __LINE__);
    }
}

}  // namespace KvNFuzz
