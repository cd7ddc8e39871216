#pragma once

#include <cstddef>
#include <memory>

class FailingAllocation;

/**
 * While it lives, this process's memory fails behind one of two doors: the `number`-th allocation (from 1) that is made
 * since, and with `lasting` all that follow. Number 0 lets everything through and counts. Threads that are spared
 * (FailingAllocation::spareThisThread) are let through the library's door, uncounted.
 * One of these at a time. For programs that link Interposed.cpp too.
 */
class FailingMemory
{
public:
    enum class Door
    {
        Library,  ///< the library's own hook
        Runtime   ///< malloc, and with it operator new, of everything in the process; operator new where a sanitizer
                  ///< owns malloc
    };

    FailingMemory(Door door, std::size_t number, bool lasting);
    ~FailingMemory();
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;

    /** Allocations that were asked for. */
    std::size_t count() const;
    /** Whether one has failed. */
    bool hasFailed() const;

    /** Blocks that the process holds now. */
    static long liveBlocks();

private:
    const std::unique_ptr<FailingAllocation> m_library;
};
