#pragma once

#include "platform/KvTypes.h"

/*
 * The registered names of the predefined IDs as static texts, which items and parameters share instead of copying them.
 */
namespace KvNInventoryIDs {

/** The name of a predefined ID; null for any other category. Unlike the tag map, never empty and never destroyed. */
const char* predefinedName(KvUInt32 category);

/** The name of the predefined ID `category` when it is the text in the `size` bytes at `bytes`, its NUL included; else
    null. */
const char* predefinedName(KvUInt32 category, const char* bytes, std::size_t size);

/** True when `text` is not null and equals the name of the predefined ID `category`. */
bool isPredefinedName(KvUInt32 category, const char* text);

}  // namespace KvNInventoryIDs
