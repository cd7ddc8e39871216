#pragma once

#include "composite/KvCParam.h"
#include "composite/KvCParamList.h"
#include "composite/SharedText.h"
#include "platform/KvExport.h"

namespace KvNReport {
class Watch;
}
struct KvNCompositeAccess;

/**
 * The node of every tree: a class id and a unit id that name it among its siblings, a description, a parameter list and
 * links to parent, children, next sibling and one friend. A node owns its children and its parameters; destroying it
 * destroys its subtree, at any depth on a normal stack, and clears every friend link that points into it.
 * Nodes and parameters that a stream was read into share memory with their neighbours (ObjectSlabs): each may still be
 * detached and destroyed alone, and what a dying tree holds of them is given back in bulk.
 * Looking up a child or a parameter takes the same time in nodes of any width and gives the first match in order.
 * A tree is used by one thread at a time.
 */
class KV_EXPORT KvCComposite : public KvNAllocation::Object
{
public:
    /** State bits. */
    static constexpr KvUInt32 VisibleBits = 0x3;       ///< read by traversion mode 0x1
    static constexpr KvUInt32 ModifiedBit = 0x400000;  ///< setParameter changed a value
    static constexpr KvUInt32 InitializedBit = 0x1000000;
    static constexpr KvUInt32 AppliedBit = 0x2000000;
    static constexpr KvUInt32 ReapplyBit = 0x20000000;  ///< while set, the applied bit does not skip apply

    /** Results of attach. */
    static constexpr long AttachNull = -1;
    static constexpr long AttachPresent = -2;  ///< the child is already there
    static constexpr long AttachMerged = -3;   ///< merged into a child with the same ids and destroyed
    static constexpr long AttachCycle = -4;    ///< the child is this node or one of its ancestors

    /** `descr` is copied; with null the node has no description and, until it is asked for, no parameter list. */
    KvCComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId, const char* descr);
    KvCComposite(const KvCComposite&) = delete;
    KvCComposite& operator=(const KvCComposite&) = delete;

    // The order of the virtual operations is fixed.
    virtual ~KvCComposite();
    virtual void update(KvCErrorListPool& errors);
    virtual void PreInit(KvCErrorListPool& errors);
    virtual void PostInit(KvCErrorListPool& errors);
    virtual void PreApply(KvCErrorListPool& errors);
    virtual void PostApply(KvCErrorListPool& errors);
    virtual void PreReset(KvCErrorListPool& errors);
    virtual void PostReset(KvCErrorListPool& errors);
    virtual bool markForSerialization(KvCErrorListPool& errors, KvCComposite* composite);
    virtual void traverseHook(KvCErrorListPool& errors, KvUInt32 mode);
    virtual void virtualDummyFunction3();
    virtual void virtualDummyFunction2();
    virtual void virtualDummyFunction1();

    KvUInt32 getClassId() const { return m_classId; }
    KvUInt32 getUnitId() const { return m_unitId; }
    /** The description; null when there is none. */
    const char* getDescription() const { return m_descr; }
    /** The size of the description with its NUL, as far as one byte holds it; 1 when there is none. */
    unsigned char getDescriptionSize() const
    {
        if (m_descr == nullptr)
            return 1;
        return static_cast<unsigned char>(m_descrSize != 0 ? m_descrSize : (std::strlen(m_descr) + 1) & 0xFF);
    }
    KvCComposite* getParent() const { return m_parent; }
    /** The first child; null when there is none. */
    KvCComposite* getChild() const { return m_firstChild; }
    /** The first child with this unit id, whatever its class; null when there is none. */
    KvCComposite* getChild(KvUInt32 unitId) const;
    KvCComposite* getLastChild() const { return m_lastChild; }
    KvCComposite* getSibling() const { return m_sibling; }
    /** Makes `sibling` (may be null) the node behind this one. What stood there falls out of the chain. A link that
        would close a ring is not made. */
    void setSibling(KvCComposite* sibling);
    KvCComposite* getFriend() const;
    /** Points this node's friend link at `other` (null: nowhere); one way. The link becomes null when `other` dies.
       When memory is out the link is null and 0x601002 is on the master error list. */
    void setFriend(KvCComposite* other);
    KvUInt32 getChildCount() const { return m_childCount; }
    /** Adds 1 to the node's counter and gives it: 1, 2, 3, … */
    KvUInt32 getUniqueChildIndex() { return ++m_uniqueChildIndex; }
    /** A pointer for the node's users; not owned. */
    void* getRtDataPointer() const;
    /** When memory is out nothing is stored and 0x601002 is on the master error list. */
    void setRtDataPointer(void* data);

    /**
     * Puts `child` at the end of this node's children, which own it from then on. A child that has a parent is detached
     * from it first; one without brings the siblings chained behind it, each by the same rule.
     * @return for `child` itself 0, or AttachNull, AttachPresent, AttachCycle, or AttachMerged: there was a child with
     *         the same ids, which took over the children of `child`, and `child` is destroyed
     */
    long attach(KvCComposite* child);
    /** Takes a direct child out, with its subtree; the caller owns it then. Does nothing for any other node. */
    void detachChild(const KvCComposite* child);
    /** Puts `newChild` in the place of `oldChild` in the chain of children. In first place the new node keeps its own
        sibling link, so the caller chains it; elsewhere it takes the old one's. Parent links and the last-child link
        stay as they were and the old child is not destroyed. A node that is not a child is reported as 0x602000. */
    void replaceChild(KvCErrorListPool& errors, KvCComposite* newChild, const KvCComposite* oldChild);
    /** The first direct child with both ids; null and 0x602000 when there is none. */
    KvCComposite* searchComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId);
    KvCComposite* searchComposite(KvUInt32 classId, KvUInt32 unitId) const;
    /** The first node with both ids in this node's subtree, itself included, in pre-order; null and 0x602000 when there
        is none. */
    KvCComposite* searchCompositeNested(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId);
    KvCComposite* searchCompositeNested(KvUInt32 classId, KvUInt32 unitId);

    KvUInt32 getState() const { return m_state; }
    KvUInt32 getStateBit(KvUInt32 mask) const { return m_state & mask; }
    void setStateBit(KvUInt32 mask) { m_state |= mask; }
    void clearStateBit(KvUInt32 mask) { m_state &= ~mask; }
    /** `direction` 1: this node and every ancestor; 2: this node and every descendant; else this node only. */
    void setStateBitNested(KvUInt32 mask, KvUInt32 direction);
    void clearStateBitNested(KvUInt32 mask, KvUInt32 direction);

    /** Whether the parameter with this id has state bit 0x400000. */
    bool isModified(KvUInt32 id) const;
    /** Clears that bit on the parameter with this id; with id 0 on every parameter of the node first. */
    void clearModified(KvUInt32 id);

    /** Appends `parameter`, which the node owns from then on, and makes this node its parent. An id that is present is
        reported as 0x601802, and the parameter stays the caller's. A node without a parameter list ignores the call. */
    void addParameter(KvCErrorListPool& errors, KvCParam* parameter);
    /** Removes and releases the parameter with this id; 0x601801 when there is none. */
    void removeParameter(KvCErrorListPool& errors, KvUInt32 id);
    KvCParam* getParameterById(KvUInt32 id) const { return hasParameterList() ? m_list.getElementbyId(id) : nullptr; }
    KvCParam* getParameterByDescr(const char* descr) const;
    KvCParam* getParameterByIndex(KvUInt32 index) const;
    /** The parameter list, made when there was none. */
    KvCParamList* getParameterList();
    /** The parameter list; null when the node has none. */
    const KvCParamList* getParameterList() const { return hasParameterList() ? &m_list : nullptr; }

    /**
     * Makes a parameter with the value `initial` (for numbers with `external` in the caller's storage) and appends it,
     * without a parent link. An id that is present is reported as 0x601802.
     * @return the parameter, owned by this node; null when an error was reported
     */
    template <KvNElement::Scalar T>
    KvCParam* createParameter(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type, T initial,
                              std::type_identity_t<T>* external = nullptr)
    {
        using Value = KvNElement::Canonical<T>;
        const Value value = static_cast<Value>(initial);
        return makeParameter<Value>(errors, id, descr, type, value, reinterpret_cast<Value*>(external));
    }
    /** The same with an initial number of another type than the caller's storage, such as a literal. */
    template <KvNElement::Scalar T, KvNElement::Scalar Number>
    requires(!std::is_same_v<T, Number>) KvCParam* createParameter(KvCErrorListPool& errors, KvUInt32 id,
                                                                   const char* descr, KvUInt32 type, Number initial,
                                                                   T* external)
    {
        return createParameter(errors, id, descr, type, static_cast<T>(initial), external);
    }
    KvCParam* createParameter(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type,
                              const char* initial);
    template <class T>
    requires KvNElement::isString<T> || KvNElement::isVersion<T> KvCParam* createParameter(
        KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type, const T& initial)
    {
        return makeParameter<T>(errors, id, descr, type, initial, nullptr);
    }
    /** The same for an array of `count` elements copied from `data` (null: zeros); the address of the elements is kept
        in `publishSlot` (null: nowhere). */
    template <KvNElement::ArrayItem T>
    KvCParam* createParameter(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type, KvUInt32 count,
                              T* data, std::type_identity_t<std::remove_const_t<T>>** publishSlot)
    {
        using Value = KvNElement::Canonical<T>;
        return makeArray<Value>(errors, id, descr, type, count, reinterpret_cast<const Value*>(data),
                                reinterpret_cast<Value**>(publishSlot));
    }
    template <KvNElement::ArrayItem T>
    KvCParam* createParameter(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type, KvUInt32 count,
                              std::nullptr_t, T** publishSlot)
    {
        return createParameter(errors, id, descr, type, count, static_cast<T*>(nullptr), publishSlot);
    }

    /** Reads a value. 0, also when the type is another one (0x601001, a zero value); -1 and 0x601801 when the node has
        no such parameter, and `value` is unchanged. */
    template <KvNElement::Element T>
    long getParameter(KvCErrorListPool& errors, KvUInt32 id, T& value)
    {
        const KvCParam* parameter = findParameter(errors, id, "KvCComposite::getParameter");
        if (parameter == nullptr)
            return -1;
        parameter->getValue(errors, value);
        return 0;
    }
    /** The same for an array: its elements (the parameter's own) and their number. */
    template <KvNElement::ArrayItem T>
    long getParameter(KvCErrorListPool& errors, KvUInt32 id, KvUInt32* count, T** data)
    {
        return getArray<KvNElement::Canonical<T>>(errors, id, count,
                                                  reinterpret_cast<KvNElement::Canonical<T>**>(data));
    }

    /** Writes a value (a double-buffered one into its shadow) and, when it differs from the current one, marks
        parameter and node as modified. 0, also when the type is another one (0x601001, nothing changed); -1 and
       0x601801 when the node has no such parameter. */
    template <KvNElement::Element T>
    long setParameter(KvCErrorListPool& errors, KvUInt32 id, const T& value)
    {
        using Value = KvNElement::Canonical<T>;
        if constexpr (std::is_same_v<T, Value>)
            return changeParameter<Value>(errors, id, value);
        else
            return changeParameter<Value>(errors, id, static_cast<Value>(value));
    }
    long setParameter(KvCErrorListPool& errors, KvUInt32 id, const char* value);
    /** The same for an array of `count` elements copied from `data` (null: zeros). */
    template <KvNElement::ArrayItem T>
    long setParameter(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 count, T* data)
    {
        return changeArray<KvNElement::Canonical<T>>(errors, id, count,
                                                     reinterpret_cast<const KvNElement::Canonical<T>*>(data));
    }

    /** Hands out where the value is stored. 0; with another type null and 0x601001; -1 and 0x601801 when the node has
       no such parameter. */
    template <KvNElement::Element T>
    long getParameterPointer(KvCErrorListPool& errors, KvUInt32 id, T** pointer)
    {
        void* address = nullptr;
        const long result = findPointer(errors, id, KvNElement::Traits<KvNElement::Canonical<T>>::code, &address,
                                        "KvCComposite::getParameterPointer");
        *pointer = static_cast<T*>(address);
        return result;
    }
    /** The unsigned 32-bit value; 0 when absent (0x601801) or of another type (0x601001). */
    KvUInt32 getParam_UInt32(KvCErrorListPool& errors, KvUInt32 id);

    /** Calls sync(mask) on every parameter. */
    void syncParameters(KvCErrorListPool& errors, KvUInt32 mask);
    /** Prints the node's name and its parameters to standard output. */
    void showParameters(int indent);
    /** The descriptions from the root to this node, as in "::A::B[2]". */
    KvCString getElementPath() const;

    /** Runs a phase over the subtree: Pre hooks before, Post hooks behind the children. A node that has the phase
       behind it is passed over with a notice. The first hook that reports an error ends the walk with 0x602004 …
       0x602007. */
    void init(KvCErrorListPool& errors);
    void apply(KvCErrorListPool& errors);
    /** PreReset and PostReset on every node, whatever they report; each node's state becomes 0. */
    void reset(KvCErrorListPool& errors);
    /** Calls traverseHook(mode) on entering and traverseHook(mode | 0x80000000) on leaving each node of the subtree. */
    void traverse(KvCErrorListPool& errors, KvUInt32 mode);

protected:
    /** As the public constructor, with a description that outlives the node and is not copied. */
    KvCComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId, KvSharedText descr);

    /** What a reader of records has at hand of a node. */
    struct Fresh
    {
        KvUInt32 classId;
        KvUInt32 unitId;
        const char* descr;   ///< lives as long as the node; not null
        KvUInt32 descrSize;  ///< with its NUL, at most 256
        bool descrIsShared;  ///< false: it stands behind the node in its memory
        KvUInt32 place;      ///< of the node's memory in a slab; 0: a block of its own
    };
    explicit KvCComposite(const Fresh& fresh) noexcept
        : m_classId(fresh.classId),
          m_unitId(fresh.unitId),
          m_descrSize(fresh.descrSize & 0xFF),
          m_place(fresh.place & KvSlabPlaceMask),
          m_hasList(true),
          m_descrIsShared(fresh.descrIsShared),
          m_descrIsBehind(!fresh.descrIsShared),
          m_list(this),
          m_descr(fresh.descr)
    {}
    KvUInt32 getPlace() const { return m_place; }

    /** attach for a node that stands alone (new, or just detached): results AttachMerged and 0 only; no ancestors are
        looked at. */
    long attachDetached(KvCComposite* child);
    /** Appends a parameter whose id is known to be absent; its parent becomes this node. False and 0x600800 when memory
        is out; the parameter is the caller's then. Makes the list when there was none. */
    bool appendParameter(KvCErrorListPool& errors, KvCParam* parameter);
    /** Changes both ids; lookups under the parent follow. */
    void setIds(KvUInt32 classId, KvUInt32 unitId);

private:
    friend struct KvNCompositeAccess;
    friend struct KvNFreshTree;
    friend class KvCBinDeserializer;

    struct Extra;

    bool hasParameterList() const { return m_hasList; }
    bool isNewId(KvCErrorListPool& errors, KvUInt32 id, const char* descr);
    KvCParam* keepMade(KvCErrorListPool& errors, const KvNReport::Watch& watch, KvCParam* parameter);
    void markModified(KvCParam* parameter);
    KvCParam* findParameter(KvCErrorListPool& errors, KvUInt32 id, const char* origin) const;
    long findPointer(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 code, void** pointer, const char* origin);
    template <class T>
    KvCParam* makeParameter(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type, const T& initial,
                            T* external);
    template <class T>
    KvCParam* makeArray(KvCErrorListPool& errors, KvUInt32 id, const char* descr, KvUInt32 type, KvUInt32 count,
                        const T* data, T** publishSlot);
    template <class T>
    long getArray(KvCErrorListPool& errors, KvUInt32 id, KvUInt32* count, T** data);
    template <class T>
    long changeParameter(KvCErrorListPool& errors, KvUInt32 id, const T& value);
    template <class T>
    long changeArray(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 count, const T* data);

    // What a search looks at stands first, in as few cache lines as it fits, the list's part of it included; then what
    // a walk takes, which reads everything before long.
    KvUInt32 m_classId;
    KvUInt32 m_unitId;
    Extra* m_extra = nullptr;
    KvUInt32 m_childCount = 0;
    KvUInt32 m_descrSize : 8 = 0;            ///< low bits of the description's size; 0: not known
    KvUInt32 m_place : KvSlabPlaceBits = 0;  ///< in a slab; 0: a block of its own
    bool m_hasList : 1 = false;
    bool m_descrIsShared : 1 = false;
    bool m_descrIsBehind : 1 = false;   ///< in the node's own memory, behind the object
    bool m_isLinked : 1 = false;        ///< in the chain of its parent
    bool m_childrenAscend : 1 = false;  ///< each child's class and unit are above those of the one before it
    KvCParamList m_list;
    KvCComposite* m_sibling = nullptr;
    KvCComposite* m_parent = nullptr;
    KvCComposite* m_firstChild = nullptr;
    const char* m_descr = nullptr;
    KvCComposite* m_lastChild = nullptr;
    KvCComposite* m_previous = nullptr;  ///< the node whose sibling link leads here
    KvUInt32 m_state = 0;
    KvUInt32 m_uniqueChildIndex = 0;
};
