#include "base/MessageTables.h"

#include "platform/errorhandling/MessageTable.h"

namespace {

#define KV_ROWS CompositeRows
#define KV_ROWS_BASE 0x600000
#define KV_ROWS_FILE "base/messages/Composite.def"
#include "platform/errorhandling/MessageRows.inc"

#define KV_ROWS StreamRows
#define KV_ROWS_BASE 0xa00000
#define KV_ROWS_FILE "base/messages/Stream.def"
#include "platform/errorhandling/MessageRows.inc"

#define KV_ROWS InventoryRows
#define KV_ROWS_BASE 0x1300000
#define KV_ROWS_FILE "base/messages/Inventory.def"
#include "platform/errorhandling/MessageRows.inc"

#define KV_ROWS ManagerRows
#define KV_ROWS_BASE 0x1600000
#define KV_ROWS_FILE "base/messages/Manager.def"
#include "platform/errorhandling/MessageRows.inc"

using Composite = KvNMessageTable::Table<CompositeRows, 1>;
using Stream = KvNMessageTable::Table<StreamRows>;
using Inventory = KvNMessageTable::Table<InventoryRows>;
using Manager = KvNMessageTable::Table<ManagerRows>;

// The shape of the tables is part of the codes: it may grow at the ends of ranges that are the last with messages.
constexpr KvResRange compositeRanges[] = {{0, 0}, {0, 1}, {1, 4}, {5, 3}, {8, 8}, {16, 0}, {16, 1}, {17, 0}};
constexpr KvResRange streamRanges[] = {{0, 6}, {6, 0}, {6, 5}, {11, 1}, {12, 1}, {13, 7}, {20, 10}};
constexpr KvResRange inventoryRanges[] = {{0, 17}, {17, 23}, {40, 9}, {49, 2}, {51, 1}, {52, 7}};
constexpr KvResRange managerRanges[] = {{0, 18}, {18, 41}};
static_assert(Composite::hasRanges(compositeRanges) && Composite::textCount == 17);
static_assert(Stream::hasRanges(streamRanges) && Stream::textCount == 30);
static_assert(Inventory::hasRanges(inventoryRanges) && Inventory::textCount == 59);
static_assert(Manager::hasRanges(managerRanges) && Manager::textCount == 59);

constexpr KvResText compositeTable = Composite::record();
constexpr KvResText streamTable = Stream::record();
constexpr KvResText inventoryTable = Inventory::record();
constexpr KvResText managerTable = Manager::record();

struct CompositeRegistration
{
    CompositeRegistration() { KvCErrorManager::registerMessages(&compositeTable); }
    ~CompositeRegistration() { KvCErrorManager::unregisterMessages(&compositeTable); }
};

}  // namespace

const KvResText& KvNMessageTables::composite()
{
    return compositeTable;
}

const KvResText& KvNMessageTables::stream()
{
    return streamTable;
}

const KvResText& KvNMessageTables::inventory()
{
    return inventoryTable;
}

const KvResText& KvNMessageTables::manager()
{
    return managerTable;
}

void KvNMessageTables::registerComposite()
{
    static const CompositeRegistration registration;
}

void KvNMessageTables::registerStream()
{
    [[maybe_unused]] static const bool registered = KvCErrorManager::registerMessages(&streamTable);
}

void KvNMessageTables::registerInventory()
{
    [[maybe_unused]] static const bool registered = KvCErrorManager::registerMessages(&inventoryTable);
}

void KvNMessageTables::registerManager()
{
    [[maybe_unused]] static const bool registered = KvCErrorManager::registerMessages(&managerTable);
}
