#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

/**
 * Copies a short text: names, units and the like, of a few bytes whose number only the run knows. In pieces that
 * overlap instead of byte by byte or by a call; the blocks themselves do not overlap.
 */
inline void copyShort(char* to, const char* from, std::size_t size)
{
    // Of each size the first and the last piece, which cover everything that is shorter than two of them.
    const auto copyEnds = [&]<std::size_t piece>(std::integral_constant<std::size_t, piece>) {
        std::memcpy(to, from, piece);
        std::memcpy(to + size - piece, from + size - piece, piece);
    };
    if (size >= 16) {
        for (std::size_t i = 0; i + 16 < size; i += 16)
            std::memcpy(to + i, from + i, 16);
        std::memcpy(to + size - 16, from + size - 16, 16);
    } else if (size >= 8) {
        copyEnds(std::integral_constant<std::size_t, 8>());
    } else if (size >= 4) {
        copyEnds(std::integral_constant<std::size_t, 4>());
    } else if (size >= 2) {
        copyEnds(std::integral_constant<std::size_t, 2>());
    } else if (size == 1) {
        *to = *from;
    }
}
