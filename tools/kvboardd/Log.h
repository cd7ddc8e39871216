#pragma once

#include <cstddef>
#include <new>
#include <string>
#include <string_view>

#include "platform/KvTypes.h"

namespace KvNBoardService {

/** One line on standard error, "kvboardd: " before it; `line` is written as it is. Never throws and never waits: lines
    that nobody reads, or that are too many for a second, are left out. One thread. */
void log(std::string_view line) noexcept;

/** One line that `make` gives; `instead` when there is no memory for it, so that what is told of has been done all the
    same. */
template <class Make>
void logMade(const char* instead, const Make& make) noexcept
{
    try {
        log(make());
    } catch (const std::bad_alloc&) {
        log(instead);
    }
}

/** The same for what ends the program, which is not left out. */
void logEnd(std::string_view line) noexcept;

/** A text from outside as it may be shown: escaped, and at most `maximum` bytes of it. */
std::string shown(std::string_view text, std::size_t maximum = 255);

/** "1 value", "2 values". */
std::string valueCount(std::size_t count);

/** An IPv4 address, a host-order number, in dotted form. */
std::string addressText(KvUInt32 address);

}  // namespace KvNBoardService
