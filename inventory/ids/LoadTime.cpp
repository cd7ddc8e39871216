#include "inventory/ids/LoadTime.h"

#include "base/MessageTables.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "inventory/ids/PredefinedNames.h"

/*
 * All load-time work of the library, in the order in which it stands here; unloading takes it back in reverse order.
 * The composite table comes first because registering the IDs may report through it; it goes last.
 */
namespace {

struct FirstStep
{
    FirstStep() { KvNMessageTables::registerComposite(); }
};
const FirstStep firstStep;

}  // namespace

namespace KvNInventoryIDs {

KvCInventoryTagMap Map;
const KvCInventoryAddress THIS_NODE;

#define KV_INVENTORY_ID(number, NAME) \
    const KvCInventoryAddress NAME = KvCInventoryAddress(Map.add(number, predefinedName(number)));
#include "inventory/ids/InventoryIDs.def"
#undef KV_INVENTORY_ID

}  // namespace KvNInventoryIDs

namespace {

// Both are set before any load-time work: setLastStep may come from a unit that is initialised earlier than this one.
using Step = void (*)();
constinit Step lastStep = nullptr;
constinit bool isLoaded = false;

struct LastSteps
{
    LastSteps()
    {
        KvNMessageTables::registerInventory();
        KvNMessageTables::registerManager();
        isLoaded = true;
        if (lastStep != nullptr)
            lastStep();
    }
};
const LastSteps lastSteps;

}  // namespace

void KvNLoadTime::setLastStep(void (*step)())
{
    lastStep = step;
    if (isLoaded && step != nullptr)
        step();
}
