#include "inventory/KvCInventoryItem.h"

#include "base/Report.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "inventory/ids/PredefinedNames.h"

namespace {

/** The description as the base class takes it: the registered name itself where it equals that. */
KvSharedText describe(KvUInt32 category, const char* description)
{
    if (description == nullptr)
        return {"", true};
    if (KvNInventoryIDs::isPredefinedName(category, description))
        return {KvNInventoryIDs::predefinedName(category), true};
    return {description, false};
}

/** The registered name of a category; null when it has none, or an empty one. */
const char* registeredName(KvUInt32 category)
{
    const char* name = KvNInventoryIDs::Map.get(category);
    return name == nullptr || *name == '\0' ? nullptr : name;
}

/** Follows friend links and tells when they go round in a circle. */
class FriendWalk
{
public:
    explicit FriendWalk(const KvCComposite* start) : m_mark(start) {}
    const KvCComposite* next(const KvCComposite* node)
    {
        const KvCComposite* other = node->getFriend();
        if (other == m_mark)
            return nullptr;
        if (++m_steps == m_limit) {
            m_mark = other;
            m_steps = 0;
            m_limit *= 2;
        }
        return other;
    }

private:
    const KvCComposite* m_mark;
    KvUInt32 m_steps = 0;
    KvUInt32 m_limit = 1;
};

}  // namespace

KvCInventoryItem::KvCInventoryItem(KvCErrorListPool& errors, const KvCInventoryAddress& id, const char* description)
    : KvCComposite(errors, id.getCategory(), id.getIndex(), describe(id.getCategory(), description))
{
    if (!id.isSingleElement())
        KV_REPORT(errors, ItemIdNotOneElement, "KvCInventoryItem::KvCInventoryItem", description);
}

KvCInventoryItem::~KvCInventoryItem() = default;

KvCInventoryAddress KvCInventoryItem::getAddress() const
{
    KvUInt32 length = 0;
    for (const KvCComposite* node = this; node != nullptr; node = node->getParent())
        ++length;
    KvCInventoryAddress address;
    if (!address.reserve(length))
        return address;
    address.m_length = length;
    for (const KvCComposite* node = this; node != nullptr; node = node->getParent())
        address.elements()[--length] = {node->getClassId(), node->getUnitId()};
    return address;
}

const char* KvCInventoryItem::getDescription() const
{
    const char* description = KvCComposite::getDescription();
    return description == nullptr ? "" : description;
}

void KvCInventoryItem::detach()
{
    if (KvCComposite* parent = KvCComposite::getParent())
        parent->detachChild(this);
}

/** Goes along the first `length` elements of the address; where an item lacks a child, its friend is asked. */
KvCInventoryItem* KvCInventoryItem::findItem(const KvCInventoryAddress& address, KvUInt32 length) const
{
    const KvCInventoryItem* item = this;
    const KvCInventoryAddress::Element* const steps = address.elements();
    for (KvUInt32 i = 0; i < length; ++i) {
        FriendWalk friends(item);
        const KvCInventoryItem* child;
        while ((child = item->findChild(steps[i].category, steps[i].index)) == nullptr) {
            item = static_cast<const KvCInventoryItem*>(friends.next(item));
            if (item == nullptr)
                return nullptr;
        }
        item = child;
    }
    return const_cast<KvCInventoryItem*>(item);
}

/** Goes along the whole address without asking friends. */
KvCInventoryItem* KvCInventoryItem::findOwnItem(const KvCInventoryAddress& address) const
{
    const KvCInventoryItem* item = this;
    for (KvUInt32 i = 0; i < address.getLength() && item != nullptr; ++i)
        item = item->findChild(address.getCategoryAt(i), address.getIndexAt(i));
    return const_cast<KvCInventoryItem*>(item);
}

KvCInventoryItem* KvCInventoryItem::getItem(const KvCInventoryAddress& address) const
{
    return findItem(address, address.getLength());
}

KvCInventoryParameter* KvCInventoryItem::getOwnParameter(KvUInt32 category) const
{
    return KvCInventoryParameter::from(getParameterById(category));
}

/** This item's parameter, else the friend's. */
KvCInventoryParameter* KvCInventoryItem::getLinkedParameter(KvUInt32 category) const
{
    KvCInventoryParameter* parameter = getOwnParameter(category);
    if (parameter == nullptr && getFriend() != nullptr)
        parameter = KvCInventoryParameter::from(getFriend()->getParameterById(category));
    return parameter;
}

KvCInventoryParameter* KvCInventoryItem::getParameter(const KvCInventoryAddress& address) const
{
    if (address.isEmpty())
        return nullptr;
    const KvCInventoryItem* item = findItem(address, address.getLength() - 1);
    return item == nullptr ? nullptr : item->getLinkedParameter(address.getCategory());
}

KvCInventoryParameter* KvCInventoryItem::getParameterByOrdinalNumber(KvUInt32 n) const
{
    const KvCParamList* list = getParameterList();
    if (list == nullptr)
        return nullptr;
    return KvCInventoryParameter::from(list->getElementbyIndex(
        n, [](KvCParam* parameter) { return KvCInventoryParameter::from(parameter) != nullptr; }));
}

KvCInventoryItem* KvCInventoryItem::addItem(const KvCInventoryAddress& where, KvCInventoryItem* item)
{
    KvCInventoryItem* parent = findOwnItem(where);
    if (parent == nullptr || item == nullptr)
        return parent;
    if (parent->findChild(item->getClassId(), item->getUnitId()) != nullptr)
        return nullptr;
    return parent->attach(item) == 0 ? parent : nullptr;
}

KvCInventoryItem* KvCInventoryItem::addParameter(KvCErrorListPool& errors, const KvCInventoryAddress& where,
                                                 KvCInventoryParameter* param)
{
    KvCInventoryItem* item = findOwnItem(where);
    if (item == nullptr || param == nullptr)
        return item;
    const KvNReport::Watch watch(errors);
    item->KvCComposite::addParameter(errors, param);
    if (!watch.grew())
        return item;
    KV_REPORT(errors, ItemParameterNotAdded, "KvCInventoryItem::addParameter", item->getAddress().toString());
    return nullptr;
}

KvCInventoryItem* KvCInventoryItem::addPath(KvCErrorListPool& errors, const KvCInventoryAddress& path)
{
    return addPathPart(errors, path, path.getLength());
}

/** addPath for the first `length` elements of the path. */
KvCInventoryItem* KvCInventoryItem::addPathPart(KvCErrorListPool& errors, const KvCInventoryAddress& path,
                                                KvUInt32 length)
{
    const char* const origin = "KvCInventoryItem::addPath";
    KvCInventoryItem* item = this;
    for (KvUInt32 i = 0; i < length; ++i) {
        const KvCInventoryAddress id(path.getCategoryAt(i), path.getIndexAt(i));
        KvCInventoryItem* child = item->findChild(id.getCategory(), id.getIndex());
        if (child == nullptr) {
            const char* const name = registeredName(id.getCategory());
            if (name == nullptr) {
                KV_REPORT(errors, IdNotPredefined, origin, id.toString());
                return nullptr;
            }
            child = makeItem(errors, id, name, origin);
            if (child == nullptr)
                return nullptr;
            item->attachDetached(child);
        }
        item = child;
    }
    return item;
}

/** A new item that stands alone; null when it cannot be made, which is reported. */
KvCInventoryItem* KvCInventoryItem::makeItem(KvCErrorListPool& errors, const KvCInventoryAddress& id,
                                             const char* description, const char* origin)
{
    const KvNReport::Watch watch(errors);
    auto* item = new (errors) KvCInventoryItem(errors, id, description);
    const bool isComplete = item != nullptr && (*description == '\0' || *item->getDescription() != '\0');
    if (isComplete && !watch.grew())
        return item;
    delete item;
    if (!watch.grew())
        KV_REPORT(errors, ItemAllocationFailed, origin);
    return nullptr;
}

/** The parameter at `path`; null and 0x1300801 when there is none. */
KvCInventoryParameter* KvCInventoryItem::findParameter(KvCErrorListPool& errors, const KvCInventoryAddress& path,
                                                       const char* origin) const
{
    KvCInventoryParameter* parameter = getParameter(path);
    if (parameter == nullptr)
        KV_REPORT(errors, ItemParameterNotFound, origin, path.toString(), getAddress().toString());
    return parameter;
}

template <class T>
KvCInventoryParameter* KvCInventoryItem::makeParameter(KvCErrorListPool& errors, const KvCInventoryAddress& path,
                                                       const T& value, const char* unit, bool modifiable,
                                                       KvUInt32 relevance, const Hooks& hooks)
{
    const char* const origin = "KvCInventoryItem::createParameter";
    if (path.isEmpty()) {
        KV_REPORT(errors, EmptyAddress, origin);
        return nullptr;
    }
    KvCInventoryItem* item = addPathPart(errors, path, path.getLength() - 1);
    if (item == nullptr) {
        KV_REPORT(errors, PathNotCreated, origin);
        return nullptr;
    }
    const char* const name = registeredName(path.getCategory());
    if (name == nullptr) {
        KV_REPORT(errors, IdNotPredefined, origin, path.getLastElement().toString());
        return nullptr;
    }
    const KvNReport::Watch watch(errors);
    auto* parameter =
        new (errors) KvCInventoryParameter(errors, path.getLastElement(), name, value, unit, modifiable, relevance);
    if (parameter != nullptr && !watch.grew() && parameter->getStateBit(KvCParam::ConstructionFailedBit) == 0) {
        parameter->setCheckWriteUpdateFunction(hooks.onCheck, hooks.onWrite, hooks.onUpdate);
        if (parameter->getCheckFunction() == hooks.onCheck && parameter->getWriteFunction() == hooks.onWrite &&
            parameter->getUpdateFunction() == hooks.onUpdate) {
            item->addParameter(errors, KvCInventoryAddress(), parameter);
            if (!watch.grew())
                return parameter;
        }
    }
    KV_REPORT(errors, ParameterNotCreated, origin, name);
    delete parameter;
    return nullptr;
}

#define KV_ARRAY_ELEMENT_TYPE(code, type, suffix, name, format)
#define KV_ELEMENT_TYPE(code, type, suffix, name, format)                            \
    template KV_EXPORT KvCInventoryParameter* KvCInventoryItem::makeParameter<type>( \
        KvCErrorListPool&, const KvCInventoryAddress&, const type&, const char*, bool, KvUInt32, const Hooks&);
#include "composite/ElementTypes.def"
