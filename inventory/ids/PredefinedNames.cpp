#include "inventory/ids/PredefinedNames.h"

#include <cstring>

#include "inventory/ids/SystemMacros.h"

namespace {

struct Row
{
    KvUInt32 number;
    KvUInt32 size;  ///< of the name, its NUL included
    const char* name;
};

constexpr Row rows[] = {
#define KV_INVENTORY_ID(number, NAME) {number, sizeof #NAME, #NAME},
#include "inventory/ids/InventoryIDs.def"
#undef KV_INVENTORY_ID
};

constexpr std::size_t count = sizeof rows / sizeof *rows;

constexpr bool isDense()
{
    for (std::size_t i = 0; i < count; ++i)
        if (rows[i].number != i)
            return false;
    return true;
}

static_assert(count == 811, "the numbers of stored formats: rows are added at the end only, and this count with them");
static_assert(isDense(), "the numbers are dense and ascending from 0");

}  // namespace

const char* KvNInventoryIDs::predefinedName(KvUInt32 category)
{
    return category < count ? rows[category].name : nullptr;
}

const char* KvNInventoryIDs::predefinedName(KvUInt32 category, const char* bytes, std::size_t size)
{
    const bool isName =
        category < count && size == rows[category].size && std::memcmp(bytes, rows[category].name, size) == 0;
    return isName ? rows[category].name : nullptr;
}

bool KvNInventoryIDs::isPredefinedName(KvUInt32 category, const char* text)
{
    return text != nullptr && category < count && std::strcmp(text, rows[category].name) == 0;
}
