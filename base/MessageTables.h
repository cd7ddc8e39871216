#pragma once

#include "platform/KvExport.h"
#include "platform/errorhandling/KvCErrorManager.h"

/**
 * The library's four message tables, and when they become known to the error manager. Each register function acts once,
 * whoever calls it how often; only the composite table is ever unregistered, when the process unloads the library and
 * after everything that was made later than its registration is gone.
 */
namespace KvNMessageTables {

KV_EXPORT const KvResText& composite();
KV_EXPORT const KvResText& stream();
KV_EXPORT const KvResText& inventory();
KV_EXPORT const KvResText& manager();

/** Table 0x600000: the first of all load-time work. */
void registerComposite();
/** Table 0xa00000: by the first composite factory. */
void registerStream();
/** Table 0x1300000: at load, after the IDs. */
void registerInventory();
/** Table 0x1600000: at load, right after the inventory's. */
void registerManager();

}  // namespace KvNMessageTables
