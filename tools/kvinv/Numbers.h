#pragma once

#include <string_view>

#include "platform/KvTypes.h"

/** The number that `text` is, decimal or 0x hexadecimal and nothing else; false when it is none or above `largest`. */
bool parseNumber(std::string_view text, KvUInt64 largest, KvUInt64& value);
