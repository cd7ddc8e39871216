#include "inventory/KvCInventoryParameter.h"

#include <cstring>

#include "base/Report.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/ids/PredefinedNames.h"

using namespace KvNInventoryParameter;

struct KvCInventoryParameter::InventoryRare : KvCParam::Rare
{
    Hook onCheck = nullptr;
    Hook onWrite = nullptr;
    Hook onUpdate = nullptr;
    KvCInventoryParameter* designated = nullptr;  // deleted by the parameter
    void* auxPointer = nullptr;
    KvNAuxPointer::EType auxType = KvNAuxPointer::None;
};

namespace {

constexpr const char* adoption = "KvCInventoryParameter::adoptDesignatedValue";

/** The description as the base class takes it: the registered name itself where it equals that. */
KvSharedText describe(KvUInt32 id, const char* description)
{
    if (KvNInventoryIDs::isPredefinedName(id, description))
        return {KvNInventoryIDs::predefinedName(id), true};
    return {description, false};
}

bool isLost(const char* source, const KvCString& copy)
{
    return source != nullptr && *source != '\0' && copy.length() == 0;
}

/** What a text that cannot be copied is reported as: units are texts like any other. */
constexpr const char* copyOrigin = "KvCString::KvCString";

}  // namespace

template <class T>
KvCInventoryParameter::KvCInventoryParameter(KvNElement::Type<T>, KvCErrorListPool& errors,
                                             const KvCInventoryAddress& id, const char* description, const T& value,
                                             const char* unit, bool modifiable, KvUInt32 relevance)
    : KvCParam(errors, id.getCategoryAt(0), describe(id.getCategoryAt(0), description), KvNElement::CustomFlag, value,
               nullptr),
      m_relevance(relevance)
{
    setModifiableFlag(modifiable);
    init(errors, id, description);
    if (!storeUnit(unit, copyOrigin))
        KV_REPORT(errors, OutOfMemory, "KvCInventoryParameter::init");
}

KvCInventoryParameter::KvCInventoryParameter(KvCErrorListPool& errors, const KvCInventoryAddress& id,
                                             const char* description, const char* value, const char* unit,
                                             bool modifiable, KvUInt32 relevance)
    : KvCInventoryParameter(errors, id, description, KvCString(value), unit, modifiable, relevance)
{
    if (!isLost(value, *valueIf<KvCString>()))
        return;
    setStateBit(ConstructionFailedBit);
    KV_REPORT(errors, OutOfMemory, "KvCInventoryParameter::init");
}

KvCInventoryParameter::KvCInventoryParameter(KvCErrorListPool& errors, const KvCInventoryAddress& id,
                                             const char* description, KvUInt32 type)
    : KvCInventoryParameter(errors, id.getCategoryAt(0), description, TypeWord{type | KvNElement::CustomFlag})
{
    init(errors, id, description);
}

KvCInventoryParameter::KvCInventoryParameter(KvCErrorListPool& errors, KvUInt32 id, const char* description,
                                             TypeWord typeWord)
    : KvCParam(errors, id, describe(id, description), typeWord.value)
{
    setMarked();
}

KvCInventoryParameter::KvCInventoryParameter() : KvCParam(KvNReport::masterList(), 1, nullptr, KvNElement::CustomFlag)
{
    setMarked();
}

KvCInventoryParameter::KvCInventoryParameter(const KvCInventoryParameter& other)
    : KvCParam(other), m_relevance(other.m_relevance)
{
    setModifiableFlag(other.isModifiable());
    setMarked();
    if (!storeUnit(other.getUnit(), copyOrigin))
        setStateBit(ConstructionFailedBit);
    const InventoryRare* source = other.getRare<InventoryRare>();
    if (source == nullptr || (source->onCheck == nullptr && source->onWrite == nullptr && source->onUpdate == nullptr &&
                              source->auxPointer == nullptr && source->auxType == KvNAuxPointer::None))
        return;
    InventoryRare* rare = makeRare();
    if (rare == nullptr) {
        setStateBit(ConstructionFailedBit);
        KV_REPORT(KvNReport::masterList(), OutOfMemory, "KvCInventoryParameter::KvCInventoryParameter");
        return;
    }
    rare->onCheck = source->onCheck;
    rare->onWrite = source->onWrite;
    rare->onUpdate = source->onUpdate;
    rare->auxPointer = source->auxPointer;
    rare->auxType = source->auxType;
}

KvCInventoryParameter& KvCInventoryParameter::operator=(const KvCInventoryParameter& other)
{
    if (this == &other)
        return *this;
    KvCParam::operator=(other);
    setUnit(other.getUnit());
    setModifiableFlag(other.isModifiable());
    m_relevance = other.m_relevance;
    setCheckWriteUpdateFunction(other.getCheckFunction(), other.getWriteFunction(), other.getUpdateFunction());
    deleteDesignatedValue();
    if (InventoryRare* rare = getRare<InventoryRare>()) {
        rare->auxType = KvNAuxPointer::None;
        rare->auxPointer = nullptr;
    }
    return *this;
}

KvCInventoryParameter::~KvCInventoryParameter()
{
    deleteDesignatedValue();
    releaseUnit();
}

void KvCInventoryParameter::init(KvCErrorListPool& errors, const KvCInventoryAddress& id, const char* description)
{
    setMarked();
    if (!id.isSingleElement())
        KV_REPORT(errors, ParameterIdNotOneElement, "KvCInventoryParameter::init",
                  description == nullptr ? "not specified" : description);
}

/** Copies the unit (null: the empty text); false, reported and empty, when memory is out. */
bool KvCInventoryParameter::storeUnit(const char* unit, const char* origin)
{
    const std::size_t length = unit == nullptr ? 0 : std::strlen(unit);
    Unit stored;
    const bool isLong = length >= sizeof stored.text;
    if (isLong)
        stored.block = static_cast<char*>(KvNAllocation::allocate(length + 1));
    const bool isStored = !isLong || stored.block != nullptr;
    if (isStored && length != 0)
        std::memcpy(isLong ? stored.block : stored.text, unit, length + 1);
    releaseUnit();
    if (!isStored) {
        KV_REPORT(KvNReport::masterList(), StringBufferOutOfMemory, origin);
        return false;
    }
    m_unit = stored;
    setHoldsMore(isLong);
    if (!isLong)
        noteUnitLength(static_cast<KvUInt32>(length));
    return true;
}

void KvCInventoryParameter::releaseUnit()
{
    if (holdsMore())
        KvNAllocation::release(m_unit.block);
    m_unit = Unit();
    setHoldsMore(false);
}

KvCInventoryAddress KvCInventoryParameter::getAddress() const
{
    const KvCInventoryItem* parent = getParent();
    KvCInventoryAddress address = parent == nullptr ? KvCInventoryAddress() : parent->getAddress();
    if (!address.isEmpty())
        address.append(getID());
    return address;
}

KvCInventoryItem* KvCInventoryParameter::getParent() const
{
    return dynamic_cast<KvCInventoryItem*>(KvCParam::getParent());
}

/** What messages call the parameter: its address, or its ID while it has none. */
KvCString KvCInventoryParameter::getName() const
{
    const KvCInventoryAddress address = getAddress();
    return address.isEmpty() ? getID().toString() : address.toString();
}

KvCString KvCInventoryParameter::getTypeAsString() const
{
    return KvNElement::dispatch(
        getType(),
        [](auto type) {
            using T = typename decltype(type)::Value;
            return KvNElement::isArray<T> ? KvCString() : KvCString(KvNElement::Traits<T>::name);
        },
        [] { return KvCString(); });
}

/** The piece for hooks, designated value and auxiliary pointer, made when there is none; null when memory is out. */
KvCInventoryParameter::InventoryRare* KvCInventoryParameter::makeRare()
{
    InventoryRare* rare = getRare<InventoryRare>();
    if (rare == nullptr) {
        rare = new InventoryRare;
        if (rare != nullptr)
            installRare(rare);
    }
    return rare;
}

KvCInventoryParameter::Hook KvCInventoryParameter::getCheckFunction() const
{
    const InventoryRare* rare = getRare<InventoryRare>();
    return rare == nullptr ? nullptr : rare->onCheck;
}

KvCInventoryParameter::Hook KvCInventoryParameter::getWriteFunction() const
{
    const InventoryRare* rare = getRare<InventoryRare>();
    return rare == nullptr ? nullptr : rare->onWrite;
}

KvCInventoryParameter::Hook KvCInventoryParameter::getUpdateFunction() const
{
    const InventoryRare* rare = getRare<InventoryRare>();
    return rare == nullptr ? nullptr : rare->onUpdate;
}

void KvCInventoryParameter::setCheckWriteUpdateFunction(Hook checkHook, Hook writeHook, Hook updateHook)
{
    const bool isNone = checkHook == nullptr && writeHook == nullptr && updateHook == nullptr;
    InventoryRare* rare = isNone ? getRare<InventoryRare>() : makeRare();
    if (rare != nullptr) {
        rare->onCheck = checkHook;
        rare->onWrite = writeHook;
        rare->onUpdate = updateHook;
    } else if (!isNone) {
        KV_REPORT(KvNReport::masterList(), OutOfMemory, "KvCInventoryParameter::setCheckWriteUpdateFunction");
    }
}

void* KvCInventoryParameter::getAuxPointer(KvNAuxPointer::EType& type) const
{
    const InventoryRare* rare = getRare<InventoryRare>();
    type = rare == nullptr ? KvNAuxPointer::None : rare->auxType;
    return rare == nullptr ? nullptr : rare->auxPointer;
}

void KvCInventoryParameter::setAuxPointer(KvNAuxPointer::EType type, void* pointer)
{
    const bool isNone = type == KvNAuxPointer::None && pointer == nullptr;
    InventoryRare* rare = isNone ? getRare<InventoryRare>() : makeRare();
    if (rare != nullptr) {
        rare->auxType = type;
        rare->auxPointer = pointer;
    } else if (!isNone) {
        KV_REPORT(KvNReport::masterList(), OutOfMemory, "KvCInventoryParameter::setAuxPointer");
    }
}

const KvCInventoryParameter* KvCInventoryParameter::designated() const
{
    const InventoryRare* rare = getRare<InventoryRare>();
    return rare == nullptr ? nullptr : rare->designated;
}

template <class T>
T KvCInventoryParameter::readValue(KvCErrorListPool& errors) const
{
    const KvNReport::Watch watch(errors);
    T value{};
    KvCParam::getValue(errors, value);
    if (watch.grew())
        KV_REPORT(errors, ParameterValueNotRead, "KvCInventoryParameter::getValue", getName());
    return value;
}

template <class T>
void KvCInventoryParameter::writeValue(KvCErrorListPool& errors, const T& value)
{
    const KvNReport::Watch watch(errors);
    KvCParam::setValue(errors, value);
    if (watch.grew())
        KV_REPORT(errors, ParameterValueNotSet, "KvCInventoryParameter::setValue", getName());
}

template <class T>
T KvCInventoryParameter::readDesignated(KvCErrorListPool& errors) const
{
    if (const KvCInventoryParameter* proposal = designated())
        return proposal->readValue<T>(errors);
    KV_REPORT(errors, NoDesignatedValue, "KvCInventoryParameter::getDesignatedValue");
    return T();
}

template <class T>
void KvCInventoryParameter::proposeValue(KvCErrorListPool& errors, const T& value)
{
    const char* const origin = "KvCInventoryParameter::setDesignatedValue";
    InventoryRare* rare = getRare<InventoryRare>();
    if (rare != nullptr && rare->designated != nullptr)
        return rare->designated->writeValue<T>(errors, value);
    const KvNReport::Watch watch(errors);
    auto* proposal =
        new (errors) KvCInventoryParameter(errors, KvCInventoryAddress(0), nullptr, value, nullptr, true, 0);
    if (proposal != nullptr && !watch.grew() && proposal->getType() != getType()) {
        KV_REPORT(errors, DesignatedValueTypeMismatch, origin, getName());
        delete proposal;
        return;
    }
    rare = proposal == nullptr || watch.grew() ? nullptr : makeRare();
    if (rare == nullptr) {
        KV_REPORT(errors, DesignatedValueNotCreated, origin, getName());
        delete proposal;
        return;
    }
    rare->designated = proposal;
}

void KvCInventoryParameter::adoptDesignatedValue(KvCErrorListPool& errors)
{
    if (!isDesignatedValueValid()) {
        KV_REPORT(errors, DesignatedValueUndefined, adoption, getName());
        return;
    }
    const auto reportUnknown = [&] { KV_REPORT(errors, ParameterTypeUnknown, adoption, getName()); };
    KvNElement::dispatch(
        getType(),
        [&](auto type) {
            using T = typename decltype(type)::Value;
            if constexpr (KvNElement::isArray<T>)
                reportUnknown();
            else
                adopt<T>(errors);
        },
        reportUnknown);
}

template <class T>
void KvCInventoryParameter::adopt(KvCErrorListPool& errors)
{
    const KvNReport::Watch watch(errors);
    const T value = readDesignated<T>(errors);
    if (watch.grew()) {
        KV_REPORT(errors, DesignatedValueNotRead, adoption, getName());
        return;
    }
    writeValue<T>(errors, value);
    if (watch.grew())
        KV_REPORT(errors, ParameterValueNotSet, adoption, getName());
    else
        deleteDesignatedValue();
}

void KvCInventoryParameter::deleteDesignatedValue()
{
    if (InventoryRare* rare = getRare<InventoryRare>()) {
        delete rare->designated;
        rare->designated = nullptr;
    }
}

#define KV_ARRAY_ELEMENT_TYPE(code, type, suffix, name, format)
#define KV_ELEMENT_TYPE(code, type, suffix, name, format)                                                      \
    template KV_EXPORT KvCInventoryParameter::KvCInventoryParameter(KvNElement::Type<type>, KvCErrorListPool&, \
                                                                    const KvCInventoryAddress&, const char*,   \
                                                                    const type&, const char*, bool, KvUInt32); \
    template KV_EXPORT type KvCInventoryParameter::readValue<type>(KvCErrorListPool&) const;                   \
    template KV_EXPORT void KvCInventoryParameter::writeValue<type>(KvCErrorListPool&, const type&);           \
    template KV_EXPORT type KvCInventoryParameter::readDesignated<type>(KvCErrorListPool&) const;              \
    template KV_EXPORT void KvCInventoryParameter::proposeValue<type>(KvCErrorListPool&, const type&);
#include "composite/ElementTypes.def"
