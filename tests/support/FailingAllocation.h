#pragma once

#include <atomic>
#include <cstddef>

#include "platform/errorhandling/KvCErrorList.h"

/**
 * While it lives, an allocation of the library fails: the `number`-th (from 1) that is made since, and with `lasting`
 * all that follow. Number 0 lets everything through and counts. Threads that are spared are let through, uncounted.
 */
class FailingAllocation
{
public:
    explicit FailingAllocation(std::size_t number, bool lasting = false) : m_number(number), m_lasting(lasting)
    {
        KvNAllocation::setHook(ask, this);
    }
    ~FailingAllocation() { KvNAllocation::setHook(nullptr, nullptr); }
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /** For the thread that plays the other side of what is tested. */
    static void spareThisThread() { spared() = true; }

    /** Allocations that were asked for. */
    std::size_t count() const { return m_count; }
    /** Whether one has failed. */
    bool hasFailed() const { return m_hasFailed; }

private:
    static bool& spared()
    {
        static thread_local bool isSpared = false;
        return isSpared;
    }

    static bool ask(void* context, std::size_t)
    {
        if (spared())
            return true;
        auto* self = static_cast<FailingAllocation*>(context);
        const std::size_t count = ++self->m_count;
        const bool fails = self->m_number != 0 && (self->m_lasting ? count >= self->m_number : count == self->m_number);
        if (fails)
            self->m_hasFailed = true;
        return !fails;
    }

    const std::size_t m_number;
    const bool m_lasting;
    std::atomic<std::size_t> m_count{0};
    std::atomic<bool> m_hasFailed{false};
};
