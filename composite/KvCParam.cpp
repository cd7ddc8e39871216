#include "composite/KvCParam.h"

#include <cstring>

#include "base/Report.h"
#include "composite/ParamIndex.h"

using namespace KvNElement;

namespace {

constexpr const char* constructor = "KvCParam::KvCParam";

/** A value that could not be copied for want of memory: the copy is empty, the source is not. */
bool isLost(const KvCString& source, const KvCString& copy)
{
    return copy.length() != source.length();
}
template <class T>
bool isLost(const KvCArrayParam<T>& source, const KvCArrayParam<T>& copy)
{
    return copy.getCount() != source.getCount();
}
bool isLost(const char* source, const KvCString& copy)
{
    return source != nullptr && *source != '\0' && copy.length() == 0;
}
bool isLost(const KvCVersion&, const KvCVersion&)
{
    return false;
}

/** Gives an array a value; one without a publish slot leaves the array its own, so that the address that a caller
    follows is never a stale one. */
template <class T>
void assign(KvCArrayParam<T>& array, const KvCArrayParam<T>& value)
{
    if (value.getPublishSlot() != nullptr)
        array = value;
    else
        array.setData(value.getCount(), value.getData());
}
template <class T>
void assign(T& stored, const T& value)
{
    stored = value;
}

}  // namespace

KvCParam::KvCParam(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type) : m_id(id), m_type(type)
{
    setDescr(descr);
    makeZero(errors);
}

KvCParam::KvCParam(KvCErrorListPool& errors, KvUInt32 id, KvSharedText descr, KvUInt32 type) : m_id(id), m_type(type)
{
    setDescr(descr);
    makeZero(errors);
}

template <class T, class Text>
KvCParam::KvCParam(KvCErrorListPool& errors, KvUInt32 id, Text descr, KvUInt32 type, const T* initial, T* external,
                   Type<T>)
    : m_id(id), m_type((type & ~CodeMask) | Traits<T>::code)
{
    setDescr(descr);
    makeValue(errors, initial, external);
}

KvCParam::KvCParam(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type, const char* initial,
                   KvCString* external)
    : KvCParam(errors, id, descr, type, KvCString(initial), external)
{
    if (isLost(initial, *valueIf<KvCString>()))
        reportLost(errors);
}

KvCParam::KvCParam(const KvCParam& other)
    : KvNAllocation::Object(other), KvPListNode<KvCParam*>(), m_id(other.m_id), m_type(other.m_type)
{
    copyFrom(other);
}

KvCParam& KvCParam::operator=(const KvCParam& other)
{
    if (this == &other)
        return *this;
    releaseValue();
    releaseDescr();
    if (m_isIndexed && m_id != other.m_id)
        KvPListTraits<KvCParam*>::Index::noteIdChange();
    m_id = other.m_id;
    m_type = other.m_type;
    copyFrom(other);
    return *this;
}

KvCParam::~KvCParam()
{
    releaseValue();
    releaseDescr();
    delete m_rare;
}

void KvCParam::installRare(Rare* rare)
{
    if (m_rare != nullptr) {
        std::memcpy(rare->shadow, m_rare->shadow, sizeof rare->shadow);
        rare->hasShadow = m_rare->hasShadow;
    }
    delete m_rare;
    m_rare = rare;
    m_rareIsDerived = true;
}

void KvCParam::storePointer(void* pointer)
{
    std::memcpy(m_value, &pointer, sizeof pointer);
}

void KvCParam::setDescr(const char* descr)
{
    if (descr == nullptr)
        return;
    const std::size_t size = std::strlen(descr) + 1;
    auto* const copy = static_cast<char*>(KvNAllocation::allocate(size));
    if (copy == nullptr) {
        m_state |= ConstructionFailedBit;
        return;
    }
    std::memcpy(copy, descr, size);
    m_descr = copy;
    m_descrSize = size & 0xFF;
}

void KvCParam::setDescr(KvSharedText descr)
{
    if (!descr.isShared)
        return setDescr(descr.text);
    m_descr = descr.text;
    m_descrSize = descr.text == nullptr ? 0 : (std::strlen(descr.text) + 1) & 0xFF;
    m_descrIsShared = true;
}

void KvCParam::releaseDescr()
{
    if (!m_descrIsShared && !m_descrIsBehind)
        KvNAllocation::release(const_cast<char*>(m_descr));
    m_descr = nullptr;
    m_descrSize = 0;
    m_descrIsShared = false;
    m_descrIsBehind = false;
}

void KvCParam::makeZero(KvCErrorListPool& errors)
{
    dispatch(
        m_type, [&](auto type) { makeValue<typename decltype(type)::Value>(errors, nullptr, nullptr); },
        [&] {
            std::memset(m_value, 0, sizeof m_value);
            m_storage = Storage::Inside;
            reportMismatch(errors, constructor);
        });
}

template <class T>
void KvCParam::makeValue(KvCErrorListPool& errors, const T* initial, T* external)
{
    if (external != nullptr) {
        m_storage = Storage::External;
        storePointer(external);
        if constexpr (std::is_arithmetic_v<T>)
            std::memcpy(external, initial, sizeof(T));
        else
            assign(*external, *initial);
    } else if constexpr (isArray<T>) {
        auto* const array = new T;
        if (array == nullptr)
            return reportLost(errors);
        m_storage = Storage::Heap;
        storePointer(array);
        if (initial != nullptr)
            *array = *initial;
        if (initial != nullptr && isLost(*initial, *array))
            reportLost(errors);
    } else {
        m_storage = Storage::Inside;
        T* const value = initial == nullptr ? new (m_value) T() : new (m_value) T(*initial);
        if constexpr (!std::is_arithmetic_v<T>)
            if (initial != nullptr && isLost(*initial, *value))
                reportLost(errors);
    }
    if constexpr (std::is_arithmetic_v<T>) {
        const T zero{};
        if ((m_type & DoubleBufferedFlag) != 0)
            makeShadow(errors, initial == nullptr ? &zero : initial, sizeof(T));
    }
}

void KvCParam::makeShadow(KvCErrorListPool& errors, const void* initial, std::size_t size)
{
    if (m_rare == nullptr)
        m_rare = new Rare;
    if (m_rare == nullptr)
        return reportLost(errors);
    std::memcpy(m_rare->shadow, initial, size);
    m_rare->hasShadow = true;
}

/** Takes description, value and shadow of another parameter whose id and type this one has already. */
void KvCParam::copyFrom(const KvCParam& other)
{
    if (!isKnown(m_type) || other.m_storage == Storage::None) {
        m_state = ConstructionFailedBit;
        return;
    }
    if (other.m_descrIsShared)
        setDescr(KvSharedText{other.m_descr});
    else
        setDescr(other.m_descr);
    KvCErrorListPool& errors = KvNReport::masterList();
    if (other.m_storage == Storage::External) {
        m_storage = Storage::External;
        storePointer(other.storedPointer());
    }
    dispatch(
        m_type,
        [&](auto type) {
            using T = typename decltype(type)::Value;
            if (isExternal())
                return;
            if constexpr (isArray<T>) {
                // A copy publishes nothing: the slot is the source's.
                const T copy(*other.valueIf<T>());
                makeValue<T>(errors, &copy, nullptr);
            } else {
                makeValue<T>(errors, other.valueIf<T>(), nullptr);
            }
        },
        [] {});
    if (other.hasShadow())
        makeShadow(errors, other.m_rare->shadow, sizeof other.m_rare->shadow);
}

void KvCParam::releaseValue()
{
    const Storage storage = m_storage;
    m_storage = Storage::None;
    if (m_rare != nullptr)
        m_rare->hasShadow = false;
    dispatch(
        m_type,
        [&](auto type) {
            using T = typename decltype(type)::Value;
            if constexpr (isArray<T>) {
                if (storage == Storage::Heap)
                    delete static_cast<T*>(storedPointer());
            } else if constexpr (!std::is_arithmetic_v<T>) {
                if (storage == Storage::Inside)
                    reinterpret_cast<T*>(m_value)->~T();
            }
        },
        [] {});
}

void KvCParam::reportMismatch(KvCErrorListPool& errors, const char* origin) const
{
    KV_REPORT(errors, TypeMismatch, origin, m_descr == nullptr ? "noDescr" : m_descr, m_type);
}

void KvCParam::reportLost(KvCErrorListPool& errors)
{
    m_state |= ConstructionFailedBit;
    KV_REPORT(errors, OutOfMemory, constructor);
}

template <class T>
T KvCParam::read(KvCErrorListPool& errors) const
{
    const T* const value = valueIf<T>();
    if (value == nullptr) {
        reportMismatch(errors, Traits<T>::getter);
        return T();
    }
    if constexpr (std::is_arithmetic_v<T>) {
        T copy;
        std::memcpy(&copy, value, sizeof copy);
        return copy;
    } else {
        T copy(*value);
        if (isLost(*value, copy))
            KV_REPORT(errors, OutOfMemory, Traits<T>::getter);
        return copy;
    }
}

template <class T>
void KvCParam::write(KvCErrorListPool& errors, const T& value)
{
    T* const stored = const_cast<T*>(valueIf<T>());
    if (stored == nullptr) {
        reportMismatch(errors, Traits<T>::setter);
    } else if constexpr (std::is_arithmetic_v<T>) {
        std::memcpy(hasShadow() ? static_cast<void*>(m_rare->shadow) : stored, &value, sizeof value);
    } else {
        assign(*stored, value);
        if (isLost(value, *stored))
            KV_REPORT(errors, OutOfMemory, Traits<T>::setter);
    }
}

void KvCParam::setValue(KvCErrorListPool& errors, const char* value)
{
    const KvCString text(value);
    if (isLost(value, text))
        KV_REPORT(errors, OutOfMemory, Traits<KvCString>::setter);
    else
        write<KvCString>(errors, text);
}

void KvCParam::sync(KvUInt32 mask)
{
    if (hasShadow() && (mask & m_type) != 0)
        std::memcpy(getValuePointer(), m_rare->shadow, m_type & 0xF);
}

#define KV_ELEMENT_TYPE(code, type, suffix, name, format)                                                          \
    template KV_EXPORT KvCParam::KvCParam(KvCErrorListPool&, KvUInt32, const char*, KvUInt32, const type*, type*,  \
                                          Type<type>);                                                             \
    template KV_EXPORT KvCParam::KvCParam(KvCErrorListPool&, KvUInt32, KvSharedText, KvUInt32, const type*, type*, \
                                          Type<type>);                                                             \
    template KV_EXPORT type KvCParam::read<type>(KvCErrorListPool&) const;                                         \
    template KV_EXPORT void KvCParam::write<type>(KvCErrorListPool&, const type&);
#include "composite/ElementTypes.def"
