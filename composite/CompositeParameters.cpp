#include <cstdio>
#include <cstring>

#include "base/Report.h"
#include "composite/KvCComposite.h"

using namespace KvNElement;

namespace {

const char* nameOf(const char* descr)
{
    return descr == nullptr ? "noDescr" : descr;
}

/** Whether two values of a type differ; two NaNs of the same bits do not. */
template <class T>
bool differ(const T& first, const T& second)
{
    if constexpr (std::is_floating_point_v<T>)
        return first != second && std::memcmp(&first, &second, sizeof(T)) != 0;
    else
        return !(first == second);
}

}  // namespace

KvCParamList* KvCComposite::getParameterList()
{
    m_hasList = true;
    return &m_list;
}

void KvCComposite::addParameter(KvCErrorListPool& errors, KvCParam* parameter)
{
    if (!m_hasList || parameter == nullptr)
        return;
    if (m_list.getElementbyId(parameter->getId()) != nullptr)
        KV_REPORT(errors, DuplicateListElement, "KvCComposite::addParameter", nameOf(parameter->getDescr()),
                  parameter->getId());
    else
        appendParameter(errors, parameter);
}

bool KvCComposite::appendParameter(KvCErrorListPool& errors, KvCParam* parameter)
{
    if (getParameterList()->pushBack(errors, parameter) == nullptr)
        return false;
    parameter->setParent(this);
    return true;
}

void KvCComposite::removeParameter(KvCErrorListPool& errors, KvUInt32 id)
{
    m_list.removeElement(findParameter(errors, id, "KvCComposite::removeParameter"));
}

KvCParam* KvCComposite::getParameterByDescr(const char* descr) const
{
    return m_list.getElementbyDescr(descr);
}

KvCParam* KvCComposite::getParameterByIndex(KvUInt32 index) const
{
    return m_list.getElementbyIndex(index);
}

bool KvCComposite::isModified(KvUInt32 id) const
{
    const KvCParam* const parameter = getParameterById(id);
    return parameter != nullptr && parameter->getStateBit(ModifiedBit) != 0;
}

void KvCComposite::clearModified(KvUInt32 id)
{
    if (id == 0)
        for (const auto* node = m_list.getFront(); node != nullptr; node = node->getNext())
            if (node->getContent() != nullptr)
                node->getContent()->clearStateBit(ModifiedBit);
    if (KvCParam* const parameter = getParameterById(id))
        parameter->clearStateBit(ModifiedBit);
}

KvCParam* KvCComposite::findParameter(KvCErrorListPool& errors, KvUInt32 id, const char* origin) const
{
    if (m_hasList)
        return m_list.getElementbyId(errors, id);
    KV_REPORT(errors, ListElementNotFound, origin, id);
    return nullptr;
}

long KvCComposite::findPointer(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 code, void** pointer, const char* origin)
{
    const KvCParam* const parameter = findParameter(errors, id, origin);
    *pointer = nullptr;
    if (parameter == nullptr)
        return -1;
    if ((parameter->getType() & CodeMask) == code)
        *pointer = parameter->getValuePointer();
    if (*pointer == nullptr)
        KV_REPORT(errors, TypeMismatch, origin, nameOf(parameter->getDescr()), parameter->getType());
    return 0;
}

KvUInt32 KvCComposite::getParam_UInt32(KvCErrorListPool& errors, KvUInt32 id)
{
    const KvCParam* const parameter = findParameter(errors, id, "KvCComposite::getParam_UInt32");
    return parameter == nullptr ? 0 : parameter->getValueUInt32(errors);
}

bool KvCComposite::isNewId(KvCErrorListPool& errors, KvUInt32 id, const char* descr)
{
    if (getParameterList()->getElementbyId(id) == nullptr)
        return true;
    KV_REPORT(errors, DuplicateListElement, "KvCParamList::createParameter", nameOf(descr), id);
    return false;
}

/** Appends a parameter just made (null: memory was out) unless an error was reported since `watch`; else destroys it.
 */
KvCParam* KvCComposite::keepMade(KvCErrorListPool& errors, const KvNReport::Watch& watch, KvCParam* parameter)
{
    if (parameter == nullptr || parameter->getStateBit(KvCParam::ConstructionFailedBit) != 0)
        KV_REPORT(errors, OutOfMemory, "KvCParamList::createParameter");
    if (!watch.grew() && m_list.pushBack(errors, parameter) != nullptr)
        return parameter;
    delete parameter;
    return nullptr;
}

template <class T>
KvCParam* KvCComposite::makeParameter(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type,
                                      const T& initial, T* external)
{
    if (!isNewId(errors, id, descr))
        return nullptr;
    const KvNReport::Watch watch(errors);
    return keepMade(errors, watch, new (errors) KvCParam(errors, id, descr, type, initial, external));
}

KvCParam* KvCComposite::createParameter(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type,
                                        const char* initial)
{
    if (!isNewId(errors, id, descr))
        return nullptr;
    const KvNReport::Watch watch(errors);
    return keepMade(errors, watch, new (errors) KvCParam(errors, id, descr, type, initial, nullptr));
}

template <class T>
KvCParam* KvCComposite::makeArray(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type,
                                  KvUInt32 count, const T* data, T** publishSlot)
{
    if (!isNewId(errors, id, descr))
        return nullptr;
    using Array = KvCArrayParam<T>;
    const KvNReport::Watch watch(errors);
    auto* const parameter = new (errors) KvCParam(errors, id, descr, (type & ~CodeMask) | Traits<Array>::code);
    auto* const array = parameter == nullptr ? nullptr : static_cast<Array*>(parameter->getValuePointer());
    if (array != nullptr) {
        array->setPublishSlot(publishSlot);
        array->setData(count, data);
        if (array->getCount() != count)
            KV_REPORT(errors, OutOfMemory, "KvCParamList::createParameter");
    }
    return keepMade(errors, watch, parameter);
}

template <class T>
long KvCComposite::getArray(KvCErrorListPool& errors, KvUInt32 id, KvUInt32* count, T** data)
{
    void* pointer = nullptr;
    const long result = findPointer(errors, id, Traits<KvCArrayParam<T>>::code, &pointer, "KvCComposite::getParameter");
    if (result != 0)
        return result;
    auto* const array = static_cast<KvCArrayParam<T>*>(pointer);
    *count = array == nullptr ? 0 : array->getCount();
    *data = array == nullptr ? nullptr : array->getData();
    return 0;
}

template <class T>
long KvCComposite::changeParameter(KvCErrorListPool& errors, KvUInt32 id, const T& value)
{
    KvCParam* const parameter = findParameter(errors, id, "KvCComposite::setParameter");
    if (parameter == nullptr)
        return -1;
    const T* const current = parameter->valueIf<T>();
    if (current != nullptr && differ(*current, value))
        markModified(parameter);
    parameter->setValue(errors, value);
    return 0;
}

long KvCComposite::setParameter(KvCErrorListPool& errors, KvUInt32 id, const char* value)
{
    const KvCString text(value);
    if (value == nullptr || *value == '\0' || text.length() != 0)
        return changeParameter<KvCString>(errors, id, text);
    KV_REPORT(errors, OutOfMemory, Traits<KvCString>::setter);
    return findParameter(errors, id, "KvCComposite::setParameter") == nullptr ? -1 : 0;
}

template <class T>
long KvCComposite::changeArray(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 count, const T* data)
{
    using Array = KvCArrayParam<T>;
    KvCParam* const parameter = findParameter(errors, id, "KvCComposite::setParameter");
    if (parameter == nullptr)
        return -1;
    auto* const array = const_cast<Array*>(parameter->valueIf<Array>());
    if (array == nullptr) {
        KV_REPORT(errors, TypeMismatch, Traits<Array>::setter, nameOf(parameter->getDescr()), parameter->getType());
        return 0;
    }
    if (data == nullptr || !array->equals(count, data))
        markModified(parameter);
    array->setData(count, data);
    if (array->getCount() != count)
        KV_REPORT(errors, OutOfMemory, Traits<Array>::setter);
    return 0;
}

void KvCComposite::markModified(KvCParam* parameter)
{
    parameter->setStateBit(ModifiedBit);
    setStateBit(ModifiedBit);
}

void KvCComposite::syncParameters(KvCErrorListPool& errors, KvUInt32 mask)
{
    m_list.syncParameters(errors, mask);
}

void KvCComposite::showParameters(int indent)
{
    std::printf("%*sParameter list of %s (%#x/%#x):\n", indent, "", m_descr == nullptr ? "" : m_descr,
                static_cast<unsigned int>(m_classId), static_cast<unsigned int>(m_unitId));
    getParameterList()->showParameters(indent);
    std::printf("\n");
}

#define KV_ARRAY_ELEMENT_TYPE(code, type, suffix, name, format)
#define KV_ELEMENT_TYPE(code, type, suffix, name, format)                                                        \
    template KV_EXPORT KvCParam* KvCComposite::makeParameter(KvCErrorListPool&, KvUInt32, const char*, KvUInt32, \
                                                             const type&, type*);
#include "composite/ElementTypes.def"

#define KV_ELEMENT_TYPE(code, type, suffix, name, format) \
    template KV_EXPORT long KvCComposite::changeParameter(KvCErrorListPool&, KvUInt32, const type&);
#include "composite/ElementTypes.def"

#define INSTANTIATE_ARRAY(item)                                                                                        \
    template KV_EXPORT KvCParam* KvCComposite::makeArray(KvCErrorListPool&, KvUInt32, const char*, KvUInt32, KvUInt32, \
                                                         const item*, item**);                                         \
    template KV_EXPORT long KvCComposite::getArray(KvCErrorListPool&, KvUInt32, KvUInt32*, item**);                    \
    template KV_EXPORT long KvCComposite::changeArray(KvCErrorListPool&, KvUInt32, KvUInt32, const item*);
INSTANTIATE_ARRAY(KvUInt32)
INSTANTIATE_ARRAY(double)
