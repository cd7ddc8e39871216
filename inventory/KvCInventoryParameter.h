#pragma once

#include <cstring>

#include "base/KvCString.h"
#include "composite/KvCParam.h"
#include "inventory/KvCInventoryAddress.h"
#include "platform/KvExport.h"

class KvCInventoryItem;

namespace KvNInventoryParameter {
namespace KvNAuxPointer {

/** What the auxiliary pointer of a parameter points at; the values are its owner's, 0 is none. */
enum EType : KvUInt32
{
    None = 0,
};

}  // namespace KvNAuxPointer
}  // namespace KvNInventoryParameter

/**
 * The typed leaf of the inventory tree: a value with an ID, a unit, a modifiable flag and a relevance, under an item
 * that owns it. A client proposes a new value as the designated value; the tree's check, apply and update call the
 * three hooks and adopt it. Types are the twelve of composite/ElementTypes.def that are not arrays, in any spelling;
 * another type than the parameter's own is reported as 0x601001. A description that is the registered name of the ID is
 * not copied. Used by one thread at a time.
 */
class KV_EXPORT KvCInventoryParameter : public KvCParam
{
public:
    /** Called by the tree with the context item of the pass (not necessarily the owner) and the parameter. Only the
        result of a check counts: false rejects the designated value. */
    using Hook = bool (*)(KvCErrorListPool&, KvCInventoryItem*, KvCInventoryParameter*);

    /** @param errors       where failures are reported
        @param id           one element; else 0x1301000 is reported and the object exists all the same
        @param description  copied; may be null
        @param value        the current value; its type is the parameter's for good
        @param unit         copied; null is the empty text
        @param modifiable   whether a client may change the value
        @param relevance    a number for the owner's use */
    template <KvNElement::Single T>
    KvCInventoryParameter(KvCErrorListPool& errors, const KvCInventoryAddress& id, const char* description,
                          const T& value, const char* unit, bool modifiable, KvUInt32 relevance)
        : KvCInventoryParameter(KvNElement::Type<KvNElement::Canonical<T>>(), errors, id, description,
                                static_cast<const KvNElement::Canonical<T>&>(value), unit, modifiable, relevance)
    {}
    KvCInventoryParameter(KvCErrorListPool& errors, const KvCInventoryAddress& id, const char* description,
                          const char* value, const char* unit, bool modifiable, KvUInt32 relevance);
    /** Of the type code `type`, with value zero and no unit, not modifiable, relevance 0. */
    KvCInventoryParameter(KvCErrorListPool& errors, const KvCInventoryAddress& id, const char* description,
                          KvUInt32 type);
    /** ID 1, no description and no type (0x601001 on the master error list). */
    KvCInventoryParameter();
    /** A copy without the designated value, in no item. When memory for hooks and auxiliary pointer is out, the copy
       has state bit 0x80000000 and 0x601002 is on the master error list. */
    KvCInventoryParameter(const KvCInventoryParameter& other);
    /** Takes value and properties; the designated value is dropped.
        Kept: the auxiliary pointer is cleared here, although a copy made by construction has it. */
    KvCInventoryParameter& operator=(const KvCInventoryParameter& other);
    ~KvCInventoryParameter() override;

    /** The same object as a parameter of this class; null for one of another class, and for null. */
    static KvCInventoryParameter* from(KvCParam* parameter)
    {
        return parameter != nullptr && isMarked(*parameter) ? static_cast<KvCInventoryParameter*>(parameter) : nullptr;
    }
    static const KvCInventoryParameter* from(const KvCParam* parameter)
    {
        return from(const_cast<KvCParam*>(parameter));
    }

    /** The ID as an address of one element. */
    KvCInventoryAddress getID() const { return KvCInventoryAddress(getId()); }
    /** The parent's address and the ID; empty without a parent. */
    KvCInventoryAddress getAddress() const;
    /** The item that owns the parameter; null while there is none. */
    KvCInventoryItem* getParent() const;
    /** The description; null when there is none. */
    const char* getDescription() const { return getDescr(); }

    /** The unit, never null; valid until it changes. */
    const char* getUnit() const { return holdsMore() ? m_unit.block : m_unit.text; }
    /** The unit's length in bytes. */
    std::size_t getUnitLength() const
    {
        return holdsMore() ? std::strlen(m_unit.block) : shortUnit - static_cast<unsigned char>(m_unit.text[shortUnit]);
    }
    /** `unit` is copied; null is the empty text. When memory is out the unit is empty and 0x603000 is on the master
        error list. */
    void setUnit(const char* unit) { storeUnit(unit, "KvCString::operator ="); }
    bool isModifiable() const { return getDerivedFlag(); }
    void setModifiableFlag(bool modifiable) { setDerivedFlag(modifiable); }
    KvUInt32 getRelevance() const { return m_relevance; }
    void setRelevance(KvUInt32 relevance) { m_relevance = relevance; }

    /** The type code, without flags. */
    KvUInt32 getType() const { return KvCParam::getType() & KvNElement::CodeMask; }
    /** "UInt8", "UInt16", "UInt32", "ULong64", "Int8", "Int16", "Int32", "Long64", "Float32", "Float64", "String" or
        "Version"; empty for any other type. */
    KvCString getTypeAsString() const;

    Hook getCheckFunction() const;
    Hook getWriteFunction() const;
    Hook getUpdateFunction() const;
    /** Sets all three hooks; null is none. When memory is out they stay as they were and 0x601002 is on the master
       error list. */
    void setCheckWriteUpdateFunction(Hook checkHook, Hook writeHook, Hook updateHook);

    /** The auxiliary pointer, and its type in `type`. */
    void* getAuxPointer(KvNInventoryParameter::KvNAuxPointer::EType& type) const;
    /** Stores a pointer for the owner's use; not owned. When memory is out it stays as it was and 0x601002 is on the
        master error list. */
    void setAuxPointer(KvNInventoryParameter::KvNAuxPointer::EType type, void* pointer);

    using KvCParam::getValue;
    /** The value. Another type: 0x601001, 0x1301008, and zero. */
    template <KvNElement::Single T>
    T getValue(KvCErrorListPool& errors) const
    {
        return static_cast<T>(readValue<KvNElement::Canonical<T>>(errors));
    }
    /** Sets the value. Another type: 0x601001, 0x1301007, and nothing changes. */
    template <KvNElement::Single T>
    void setValue(KvCErrorListPool& errors, const T& value)
    {
        writeValue<KvNElement::Canonical<T>>(errors, static_cast<const KvNElement::Canonical<T>&>(value));
    }

    /** Whether a new value is proposed. */
    bool isDesignatedValueValid() const { return designated() != nullptr; }
    /** The proposed value. 0x1301001 and zero when there is none; another type as with getValue. */
    template <KvNElement::Single T>
    T getDesignatedValue(KvCErrorListPool& errors) const
    {
        return static_cast<T>(readDesignated<KvNElement::Canonical<T>>(errors));
    }
    /** Proposes a value. Another type: 0x1301003, and there is none then (0x1301007 when there was one, which stays);
        0x1301002 when memory is out. */
    template <KvNElement::Single T>
    void setDesignatedValue(KvCErrorListPool& errors, const T& value)
    {
        proposeValue<KvNElement::Canonical<T>>(errors, static_cast<const KvNElement::Canonical<T>&>(value));
    }
    /** Makes the proposed value the current one. 0x1301004 there is none, 0x1301005 the type is unknown, 0x1301006 and
        0x1301007 reading or setting failed: the proposed value is kept then. */
    void adoptDesignatedValue(KvCErrorListPool& errors);
    void deleteDesignatedValue();

private:
    friend class KvCInventoryBinDeSerializer;

    struct InventoryRare;

    template <class T>
    KvCInventoryParameter(KvNElement::Type<T>, KvCErrorListPool& errors, const KvCInventoryAddress& id,
                          const char* description, const T& value, const char* unit, bool modifiable,
                          KvUInt32 relevance);
    struct TypeWord
    {
        KvUInt32 value;
    };
    KvCInventoryParameter(KvCErrorListPool& errors, KvUInt32 id, const char* description, TypeWord typeWord);
    /** What a record adds behind the value; a unit of at most shortUnit characters, without a NUL. */
    struct CustomData
    {
        const char* unit;
        KvUInt32 unitLength;
        bool isModifiable;
        KvUInt32 relevance;
    };
    /** Without a value yet. Stands with the reader that uses it. */
    KvCInventoryParameter(const Fresh& fresh, const CustomData& data) noexcept;
    void init(KvCErrorListPool& errors, const KvCInventoryAddress& id, const char* description);

    template <class T>
    T readValue(KvCErrorListPool& errors) const;
    template <class T>
    void writeValue(KvCErrorListPool& errors, const T& value);
    template <class T>
    T readDesignated(KvCErrorListPool& errors) const;
    template <class T>
    void proposeValue(KvCErrorListPool& errors, const T& value);
    template <class T>
    void adopt(KvCErrorListPool& errors);

    bool storeUnit(const char* unit, const char* origin);
    void releaseUnit();
    const KvCInventoryParameter* designated() const;
    InventoryRare* makeRare();
    KvCString getName() const;

    static constexpr KvUInt32 shortUnit = 7;
    /** A unit of up to 7 characters stands inside the parameter, a longer one in a block of its own (holdsMore). The
        last byte of `text` is how many characters it lacks, which is the NUL of one that is full. */
    union Unit
    {
        char text[shortUnit + 1] = {0, 0, 0, 0, 0, 0, 0, shortUnit};
        char* block;
    };

    void noteUnitLength(KvUInt32 length) { m_unit.text[shortUnit] = static_cast<char>(shortUnit - length); }

    KvUInt32 m_relevance = 0;
    Unit m_unit;
};
