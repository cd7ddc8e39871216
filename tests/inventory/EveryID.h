#pragma once

#include "platform/KvTypes.h"

/** Names every ID in an expression, and adds up their numbers. */
static inline KvUInt32 sumOfIDs()
{
    KvUInt32 sum = 0;
#define KV_INVENTORY_ID(number, NAME) sum += KvNInventoryIDs::NAME.getCategory();
#include "inventory/ids/InventoryIDs.def"
#undef KV_INVENTORY_ID
    return sum;
}
