#include "base/Report.h"
#include "composite/CompositeWalk.h"
#include "inventory/KvCInventoryItem.h"

/*
 * The passes of KvCInventoryItem over the parameters of a subtree. All go the same way: children before their parent,
 * the parameters of an item in order; and all visit every parameter, whatever fails.
 */
namespace {

constexpr const char* applying = "KvCInventoryItem::apply";

template <class Visit>
void forEachParameterOfTree(const KvCInventoryItem& root, Visit&& visit)
{
    for (const KvCComposite* node = KvNCompositeWalk::firstInPostOrder(&root); node != nullptr;
         node = KvNCompositeWalk::nextInPostOrder(node, &root))
        static_cast<const KvCInventoryItem*>(node)->forEachParameter([&](KvCInventoryParameter& parameter) {
            visit(parameter);
            return true;
        });
}

KvCString nameOf(const KvCInventoryParameter& parameter)
{
    return parameter.getAddress().toString();
}

void applyTo(KvCErrorListPool& errors, KvCInventoryItem* context, KvCInventoryParameter& parameter)
{
    const KvCInventoryParameter::Hook write = parameter.getWriteFunction();
    if (write == nullptr) {
        KV_REPORT(errors, ParameterWriteNotImplemented, applying, nameOf(parameter));
        parameter.deleteDesignatedValue();
        return;
    }
    const KvNReport::Watch watch(errors);
    write(errors, context, &parameter);
    if (watch.grew()) {
        KV_REPORT(errors, ParameterWriteFailed, applying, nameOf(parameter));
        parameter.deleteDesignatedValue();
        return;
    }
    parameter.adoptDesignatedValue(errors);
    if (watch.grew())
        KV_REPORT(errors, ParameterAdoptFailed, applying, nameOf(parameter));
}

}  // namespace

void KvCInventoryItem::check(KvCErrorListPool& errors, KvCInventoryItem* context)
{
    forEachParameterOfTree(*this, [&](KvCInventoryParameter& parameter) {
        const KvCInventoryParameter::Hook hook = parameter.getCheckFunction();
        if (hook == nullptr || !parameter.isDesignatedValueValid() || hook(errors, context, &parameter))
            return;
        KV_REPORT(errors, ParameterCheckFailed, "KvCInventoryItem::check", nameOf(parameter));
        parameter.deleteDesignatedValue();
    });
}

void KvCInventoryItem::apply(KvCErrorListPool& errors, KvCInventoryItem* context)
{
    forEachParameterOfTree(*this, [&](KvCInventoryParameter& parameter) {
        if (parameter.isDesignatedValueValid())
            applyTo(errors, context, parameter);
    });
}

void KvCInventoryItem::update(KvCErrorListPool& errors, KvCInventoryItem* context)
{
    forEachParameterOfTree(*this, [&](KvCInventoryParameter& parameter) {
        const KvCInventoryParameter::Hook hook = parameter.getUpdateFunction();
        if (hook == nullptr)
            return;
        const KvNReport::Watch watch(errors);
        hook(errors, context, &parameter);
        if (watch.grew())
            KV_REPORT(errors, ParameterUpdateFailed, "KvCInventoryItem::update", nameOf(parameter));
    });
}

void KvCInventoryItem::deleteDesignatedValues()
{
    forEachParameterOfTree(*this, [](KvCInventoryParameter& parameter) { parameter.deleteDesignatedValue(); });
}
