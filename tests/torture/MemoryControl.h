#pragma once

#include <atomic>
#include <cstddef>

/**
 * What decides about each allocation of a process whose malloc, or operator new, is this folder's: which one fails, and
 * the counts. It stands in the process itself or in memory that a test shares with the process it looks at.
 */
struct MemoryControl
{
    std::atomic<std::size_t> failing{0};  ///< from 1, counted from when isCounting was set; 0: none
    std::atomic<bool> lasting{false};     ///< and all that follow
    std::atomic<bool> isCounting{false};
    std::atomic<std::size_t> count{0};
    std::atomic<bool> hasFailed{false};
    std::atomic<long> live{0};  ///< blocks held

    /** Counts from now on, and lets the `number`-th fail. */
    void arm(std::size_t number, bool forGood)
    {
        count = 0;
        hasFailed = false;
        lasting = forGood;
        failing = number;
        isCounting = true;
    }
    void disarm() { isCounting = false; }

    /** Whether the allocation that is asked for may be made. */
    bool mayTake()
    {
        if (!isCounting)
            return true;
        const std::size_t number = ++count;
        const std::size_t chosen = failing;
        if (chosen == 0 || (lasting ? number < chosen : number != chosen))
            return true;
        hasFailed = true;
        return false;
    }

    /** This process's. */
    static MemoryControl* ours;
};
