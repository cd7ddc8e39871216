#pragma once

#include <cstddef>

#include "platform/errorhandling/KvCErrorList.h"

/**
 * While it lives, an allocation of the library fails: the `number`-th (from 1) that is made since, and with `lasting`
 * all that follow. Number 0 lets everything through and counts.
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

    /** Allocations that were asked for. */
    std::size_t count() const { return m_count; }
    /** Whether one has failed. */
    bool hasFailed() const { return m_hasFailed; }

private:
    static bool ask(void* context, std::size_t)
    {
        auto* self = static_cast<FailingAllocation*>(context);
        ++self->m_count;
        const bool fails = self->m_number != 0 &&
                           (self->m_lasting ? self->m_count >= self->m_number : self->m_count == self->m_number);
        self->m_hasFailed = self->m_hasFailed || fails;
        return !fails;
    }

    const std::size_t m_number;
    const bool m_lasting;
    std::size_t m_count = 0;
    bool m_hasFailed = false;
};
