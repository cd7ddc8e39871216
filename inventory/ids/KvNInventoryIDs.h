#pragma once

// Some system macros have the name of an ID: they are done away with first.
#include "inventory/ids/SystemMacros.h"

#include "inventory/KvCInventoryAddress.h"
#include "inventory/KvCInventoryTagMap.h"
#include "platform/KvExport.h"

/**
 * The predefined inventory IDs: 811 one-element addresses with the numbers 0 to 810, each registered under its own name
 * (InventoryIDs.def lists them). A path is written ROOT / CPU[2] / FIRMWARE. All of it is ready as soon as the library
 * is loaded and read-only from then on, for any number of threads.
 */
namespace KvNInventoryIDs {

/** The names of all IDs. */
extern KV_EXPORT KvCInventoryTagMap Map;
/** The empty address: the item itself, where a relative address is expected. */
extern KV_EXPORT const KvCInventoryAddress THIS_NODE;

#define KV_INVENTORY_ID(number, NAME) extern KV_EXPORT const KvCInventoryAddress NAME;
#include "inventory/ids/InventoryIDs.def"
#undef KV_INVENTORY_ID

}  // namespace KvNInventoryIDs
