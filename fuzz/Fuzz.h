#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/KvTypes.h"

/**
 * What every target shares. A target is one source with the function below; libFuzzer calls it with inputs that it
 * makes up (-DKV_FUZZ=ON), or Replay.cpp with those kept in corpus/. It must be the same for the same input, and what
 * it promises is checked with KV_FUZZ_CHECK, which ends the program.
 */
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

namespace KvNFuzz {

using Bytes = std::vector<unsigned char>;

/** Says what did not hold, and ends the program. */
[[noreturn]] void fail(const char* what, const char* file, int line);

#define KV_FUZZ_CHECK(condition)                           \
    do {                                                   \
        if (!(condition))                                  \
            KvNFuzz::fail(#condition, __FILE__, __LINE__); \
    } while (false)

/**
 * What an input may cost: memory that the library takes in all, in bytes, and basic blocks that this thread runs, where
 * those are counted (-DKV_FUZZ=ON). Both are linear in the bytes that came, so that no input costs more than its size
 * explains. Made before the input is used, checked behind.
 */
class Costs
{
public:
    struct Limits
    {
        std::size_t memory = 0;  ///< whatever the size
        std::size_t memoryPerByte = 0;
        std::size_t work = 0;
        std::size_t workPerByte = 0;
    };

    Costs();
    ~Costs();
    Costs(const Costs&) = delete;
    Costs& operator=(const Costs&) = delete;

    /** Ends the program when more was used than `bytes` bytes may cost. With KV_FUZZ_COSTS in the environment what was
        used is printed instead. */
    void check(std::size_t bytes, const Limits& limits) const;

private:
    static bool count(void* context, std::size_t bytes);

    std::size_t m_memory = 0;
    std::size_t m_workBefore = 0;
};

/** Takes an input apart from its start; what is not there reads as 0. */
class Input
{
public:
    Input(const unsigned char* data, std::size_t size) : m_next(data), m_left(size) {}

    bool isEmpty() const { return m_left == 0; }
    std::size_t left() const { return m_left; }
    const unsigned char* rest() const { return m_next; }

    unsigned char byte()
    {
        if (m_left == 0)
            return 0;
        --m_left;
        return *m_next++;
    }
    /** Most significant byte first. */
    KvUInt32 number(int bytes)
    {
        KvUInt32 value = 0;
        for (int i = 0; i < bytes; ++i)
            value = value << 8 | byte();
        return value;
    }
    /** As many as there are, at most `count`. */
    Bytes bytes(std::size_t count)
    {
        count = count < m_left ? count : m_left;
        const Bytes taken(m_next, m_next + count);
        m_next += count;
        m_left -= count;
        return taken;
    }
    Bytes all() { return bytes(m_left); }
    std::string text(std::size_t count)
    {
        const Bytes taken = bytes(count);
        return std::string(taken.begin(), taken.end());
    }

private:
    const unsigned char* m_next;
    std::size_t m_left;
};

inline std::string_view textOf(const unsigned char* data, std::size_t size)
{
    return std::string_view(reinterpret_cast<const char*>(data), size);
}

}  // namespace KvNFuzz
