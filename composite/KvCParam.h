#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "composite/ElementTypes.h"
#include "composite/KvCArrayParam.h"
#include "composite/KvPList.h"
#include "composite/SharedText.h"
#include "platform/KvExport.h"

class KvCComposite;

/** Bits of an object's place in the slab in which it was made with others; place 0: the object is a block of its own.
 */
inline constexpr unsigned KvSlabPlaceBits = 12;
inline constexpr KvUInt32 KvSlabPlaceMask = (KvUInt32{1} << KvSlabPlaceBits) - 1;

/**
 * A named, typed value with a numeric id, hanging off a composite. Its type is fixed at construction and every typed
 * accessor checks it. The value stands inside the parameter (arrays on the heap) or in storage of the caller's, which
 * is never freed here. With flag 0x80000 a scalar is double-buffered: writes go to a shadow that `sync` publishes.
 * Parameters belong to the lists that hold them: the last one that lets go destroys the parameter (KvCParamList).
 * Used by one thread at a time. A copy of a text or an array that cannot be had is reported to the master error list.
 */
class KV_EXPORT KvCParam : public KvNAllocation::Object, private KvPListNode<KvCParam*>
{
public:
    // The private base is the node for the first list: it brings no operators of its own.
    using KvNAllocation::Object::operator new;
    using KvNAllocation::Object::operator new[];
    using KvNAllocation::Object::operator delete;
    using KvNAllocation::Object::operator delete[];

    /** State bits. */
    static constexpr KvUInt32 ChangedBit = 0x400000;  ///< the value was changed by deserialization or setParameter
    static constexpr KvUInt32 ConstructionFailedBit = 0x80000000;

    /** A parameter of the type code in `type` with value zero. An unknown code is reported as 0x601001 and makes a
        parameter of 4 bytes with value 0 that keeps the type word. `descr` may be null. */
    KvCParam(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type);
    /** A parameter of the type of T with the flags of `type`. With `external` the value lives there, and `initial` is
        stored there at once; the caller keeps that storage alive. */
    template <KvNElement::Element T>
    KvCParam(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type, const T& initial,
             std::type_identity_t<T>* external)
        : KvCParam(errors, id, descr, type, canonicalAddress(&initial), canonicalAddress(external),
                   KvNElement::Type<KvNElement::Canonical<T>>())
    {}
    /** The same with an initial number of another type than the caller's storage, such as a literal. */
    template <KvNElement::Scalar T, KvNElement::Scalar Number>
    requires(!std::is_same_v<T, Number>) KvCParam(KvCErrorListPool& errors, KvUInt32 id, const char* descr,
                                                  KvUInt32 type, const Number& initial, T* external)
        : KvCParam(errors, id, descr, type, static_cast<T>(initial), external)
    {}
    /** The same for a string parameter. */
    KvCParam(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type, const char* initial,
             KvCString* external);
    /** Takes id, description, type word and value. A copy of an external parameter names the same storage, any other
        copy has its own; a double-buffered one has a shadow of its own with the source's shadow value. State 1, no
        parent, held by no list. A source of unknown type yields state 0x80000000 without value and description. */
    KvCParam(const KvCParam& other);
    /** The same for an existing parameter, which keeps its parent, its lists and its state. */
    KvCParam& operator=(const KvCParam& other);
    virtual ~KvCParam();

    KvUInt32 getId() const { return m_id; }
    /** The description; null when there is none. */
    const char* getDescr() const { return m_descr; }
    /** The size of the description with its NUL, as far as one byte holds it; 1 when there is none. */
    unsigned char getDescrSize() const
    {
        if (m_descr == nullptr)
            return 1;
        return static_cast<unsigned char>(m_descrSize != 0 ? m_descrSize : (std::strlen(m_descr) + 1) & 0xFF);
    }
    /** The type word: type code and flags. */
    KvUInt32 getType() const { return m_type; }
    /** The composite that the parameter was added to, as long as that holds it; else null. */
    KvCComposite* getParent() const { return m_parent; }
    void setParent(KvCComposite* parent) { m_parent = parent; }
    /** Where the value is stored; null only after a failed construction. */
    void* getValuePointer() const
    {
        if (m_storage == Storage::Inside)
            return const_cast<unsigned char*>(m_value);
        return m_storage == Storage::None ? nullptr : storedPointer();
    }
    /** Whether the value lives in the caller's storage. */
    bool isExternal() const { return m_storage == Storage::External; }

    /** How many lists hold the parameter. */
    KvInt32 getAttachmentCounter() const { return m_attachments; }
    bool isDeletable() const { return m_attachments <= 0; }
    void notifyListAttachment() { ++m_attachments; }
    void notifyListDetachment() { --m_attachments; }

    KvUInt32 getState() const { return m_state; }
    KvUInt32 getStateBit(KvUInt32 mask) const { return m_state & mask; }
    void setStateBit(KvUInt32 mask) { m_state |= mask; }
    void clearStateBit(KvUInt32 mask) { m_state &= ~mask; }

    /** Reads the value. Another type is reported as 0x601001 and gives zero (an empty value). */
    template <KvNElement::Element T>
    void getValue(KvCErrorListPool& errors, T& value) const
    {
        value = static_cast<T>(read<KvNElement::Canonical<T>>(errors));
    }
    /** Writes the value: a double-buffered scalar into its shadow. Another type is reported as 0x601001 and changes
        nothing. An array given without a publish slot keeps the parameter's. */
    template <KvNElement::Element T>
    void setValue(KvCErrorListPool& errors, const T& value)
    {
        using Value = KvNElement::Canonical<T>;
        if constexpr (std::is_same_v<T, Value>)
            write<Value>(errors, value);
        else
            write<Value>(errors, static_cast<Value>(value));
    }
    void setValue(KvCErrorListPool& errors, const char* value);
    /** getValueInt8 … getValueKvCVersion and setValueInt8 …: the same for one type each. */
#define KV_ELEMENT_TYPE(code, type, suffix, name, format)              \
    type getValue##suffix(KvCErrorListPool& errors) const              \
    {                                                                  \
        return read<type>(errors);                                     \
    }                                                                  \
    void setValue##suffix(KvCErrorListPool& errors, const type& value) \
    {                                                                  \
        write<type>(errors, value);                                    \
    }
#include "composite/ElementTypes.def"

    /** The stored value when T is its type, else null; reports nothing. */
    template <KvNElement::Listed T>
    const T* valueIf() const
    {
        return (m_type & KvNElement::CodeMask) == KvNElement::Traits<T>::code ? static_cast<const T*>(getValuePointer())
                                                                              : nullptr;
    }

    /** Publishes the shadow of a double-buffered scalar when (mask & type word) is not 0. */
    void sync(KvUInt32 mask);

    /** The value's text, at most 499 characters but for strings; empty for an unknown type. */
    KvCString getValueAsString(KvCErrorListPool& errors) const;

protected:
    /** What few parameters have, on the heap. A derived class that has more derives its own and installs it. */
    struct Rare : KvNAllocation::Object
    {
        virtual ~Rare() = default;
        /** The double-buffered value that `sync` publishes. */
        alignas(8) unsigned char shadow[8] = {};
        bool hasShadow = false;
    };

    /** As the public constructors, with a description that outlives the parameter and is not copied. */
    KvCParam(KvCErrorListPool& errors, KvUInt32 id, KvSharedText descr, KvUInt32 type);
    template <KvNElement::Element T>
    KvCParam(KvCErrorListPool& errors, KvUInt32 id, KvSharedText descr, KvUInt32 type, const T& initial,
             std::type_identity_t<T>* external)
        : KvCParam(errors, id, descr, type, canonicalAddress(&initial), canonicalAddress(external),
                   KvNElement::Type<KvNElement::Canonical<T>>())
    {}

    /** The derived class's rare piece when installRare was called, else null. */
    template <class Derived>
    Derived* getRare() const
    {
        return m_rareIsDerived ? static_cast<Derived*>(m_rare) : nullptr;
    }
    /** What a reader of records has at hand of a parameter whose value it puts into valueRoom() itself. */
    struct Fresh
    {
        KvUInt32 id;
        KvUInt32 type;       ///< of a type that stands inside, and not double-buffered
        const char* descr;   ///< lives as long as the parameter; not null
        KvUInt32 descrSize;  ///< with its NUL, at most 256
        bool descrIsShared;  ///< and longer than any copy of it; else it stands behind the parameter in its memory
        KvUInt32 place;      ///< of the parameter's memory in a slab; 0: a block of its own
    };
    explicit KvCParam(const Fresh& fresh) noexcept
        : m_id(fresh.id),
          m_type(fresh.type),
          m_descrSize(fresh.descrSize & 0xFF),
          m_place(fresh.place & KvSlabPlaceMask),
          m_storage(Storage::Inside),
          m_descrIsShared(fresh.descrIsShared),
          m_descrIsBehind(!fresh.descrIsShared),
          m_descr(fresh.descr)
    {}
    void* valueRoom()
    {
        return m_value;
    }
    KvUInt32 getPlace() const
    {
        return m_place;
    }
    /** A derived class notes whether it holds something that only its destructor gives back. */
    void setHoldsMore(bool holdsMore)
    {
        m_holdsMore = holdsMore;
    }
    bool holdsMore() const
    {
        return m_holdsMore;
    }

    /** A flag for a derived class, which stands where there is room for it. */
    void setDerivedFlag(bool flag)
    {
        m_derivedFlag = flag;
    }
    bool getDerivedFlag() const
    {
        return m_derivedFlag;
    }

    /** Makes `rare` (not null, from plain `new`) the parameter's piece and takes over the shadow; owned from here. */
    void installRare(Rare* rare);
    /** Said by the constructors of one derived class, the one that the trees of the layer above hold. */
    void setMarked()
    {
        m_isMarked = true;
    }
    /** Whether the parameter is of that class: a cast needs no look at its type then. */
    static bool isMarked(const KvCParam& parameter)
    {
        return parameter.m_isMarked;
    }
    /** Whether the description is shared, not a copy. */
    bool isDescrShared() const
    {
        return m_descrIsShared;
    }

private:
    friend struct KvPListTraits<KvCParam*>;
    friend struct KvNFreshTree;
    friend class KvCParamList;

    enum class Storage : unsigned int
    {
        None,      ///< no value: construction failed
        Inside,    ///< in m_value
        Heap,      ///< an array; m_value holds the pointer
        External,  ///< the caller's; m_value holds the pointer
    };

    template <class T>
    static const KvNElement::Canonical<T>* canonicalAddress(const T* value)
    {
        return reinterpret_cast<const KvNElement::Canonical<T>*>(value);
    }
    template <class T>
    static KvNElement::Canonical<T>* canonicalAddress(T* value)
    {
        return reinterpret_cast<KvNElement::Canonical<T>*>(value);
    }

    template <class T, class Text>
    KvCParam(KvCErrorListPool& errors, KvUInt32 id, Text descr, KvUInt32 type, const T* initial, T* external,
             KvNElement::Type<T>);

    template <class T>
    T read(KvCErrorListPool& errors) const;
    template <class T>
    void write(KvCErrorListPool& errors, const T& value);

    void setDescr(const char* descr);
    void setDescr(KvSharedText descr);
    void releaseDescr();
    void reportMismatch(KvCErrorListPool& errors, const char* origin) const;
    void reportLost(KvCErrorListPool& errors);
    void makeZero(KvCErrorListPool& errors);
    template <class T>
    void makeValue(KvCErrorListPool& errors, const T* initial, T* external);
    void makeShadow(KvCErrorListPool& errors, const void* initial, std::size_t size);
    void copyFrom(const KvCParam& other);
    void releaseValue();
    void* storedPointer() const
    {
        void* pointer;
        std::memcpy(&pointer, m_value, sizeof pointer);
        return pointer;
    }
    void storePointer(void* pointer);
    bool hasShadow() const
    {
        return m_rare != nullptr && m_rare->hasShadow;
    }

    // First, behind the links, what every walk, every search and the end of a tree need, in one cache line with them.
    KvUInt32 m_id;
    KvUInt32 m_type;
    KvUInt32 m_descrSize : 8 = 0;            ///< low bits of the description's size; 0: not known
    KvUInt32 m_place : KvSlabPlaceBits = 0;  ///< in a slab; 0: a block of its own
    Storage m_storage : 2 = Storage::None;
    bool m_descrIsShared : 1 = false;
    bool m_descrIsBehind : 1 = false;  ///< in the parameter's own memory, behind the object
    bool m_rareIsDerived : 1 = false;
    bool m_nodeIsTaken : 1 = false;
    bool m_isIndexed : 1 = false;
    bool m_isMarked : 1 = false;
    bool m_holdsMore : 1 = false;
    bool m_derivedFlag : 1 = false;
    KvInt32 m_attachments = 0;
    Rare* m_rare = nullptr;
    const char* m_descr = nullptr;
    alignas(8) unsigned char m_value[16];
    KvCComposite* m_parent = nullptr;
    KvUInt32 m_state = 1;
};
