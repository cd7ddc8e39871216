#pragma once

#include "base/KvCString.h"
#include "composite/KvCComposite.h"
#include "inventory/KvCInventoryAddress.h"
#include "inventory/KvCInventoryParameter.h"
#include "platform/KvExport.h"

namespace KvNInventoryItem {

/** Format flags of the text form; 0 is the full markup. */
enum TextFlag : int
{
    TextFlat = 0x1,                       ///< every line at the level given, nothing further in
    TextEmptyUnit = 0x2,                  ///< the unit line even when the unit is empty
    TextIndexAlways = 0x4,                ///< the index even when it is 1
    TextNoParameters = 0x8,               ///< items only
    TextNoItemLines = 0x10,               ///< neither header nor closing line of items
    TextDottedIndex = 0x20,               ///< ".2" instead of "[2]"
    TextNumericIds = 0x40,                ///< IDs as numbers, never as names
    TextPlain = 0x80,                     ///< no tags, attribute names, quotes and closing lines
    TextNoLineSplit = 0x100,              ///< strings of several lines are not split
    TextNoItemId = 0x200,                 ///< items without their ID
    TextNoItemDescription = 0x400,        ///< items without their description
    TextItemDescription = 0x800,          ///< also when the ID has a name
    TextNoParameterId = 0x1000,           ///< parameters without their ID
    TextNoParameterDescription = 0x2000,  ///< parameters without their description
    TextParameterDescription = 0x4000,    ///< also when the ID has a name
    TextNoType = 0x8000,                  ///< no type
    TextNoValue = 0x10000,                ///< no value line
    TextNoUnit = 0x20000,                 ///< no unit line
    TextNoModifiable = 0x40000,           ///< no modifiable line
    TextNoRelevance = 0x80000,            ///< no relevance line
    TextRaw = 0x100000,                   ///< strings are not escaped
    TextUnnamedAsNumber = 0x200000,       ///< an ID without name as its number, not as the description
};

/** Mode bit of mergeTree: parameters that the target lacks are taken over where an item is in both trees. */
inline constexpr KvUInt32 MergeParameters = 0x1;

}  // namespace KvNInventoryItem

/**
 * The node of the inventory tree: its children are items, its parameters KvCInventoryParameter objects, everything is
 * named by addresses relative to the item asked. Lookups that fail here go on in the friend, the shared-data item that
 * linkSharedData set. Items and parameters are created under registered IDs only, whose name is their description.
 * An item owns its children and parameters: whoever holds the root deletes the tree. Parameters of other classes that
 * were put here through the base class are passed over. A tree is used by one thread at a time.
 */
class KV_EXPORT KvCInventoryItem : public KvCComposite
{
public:
    /** @param errors       where failures are reported
        @param id           one element; else 0x1300800 is reported and the object exists all the same
        @param description  copied, unless it is the registered name of the ID; null is the empty text */
    KvCInventoryItem(KvCErrorListPool& errors, const KvCInventoryAddress& id, const char* description);
    ~KvCInventoryItem() override;

    /** Class id and unit as an address of one element. */
    KvCInventoryAddress getID() const { return KvCInventoryAddress(getClassId(), getUnitId()); }
    /** Takes category and index of the address (its last element) as class id and unit; not checked. */
    void setID(const KvCInventoryAddress& id) { setIds(id.getCategory(), id.getIndex()); }
    /** The IDs from the root down to this item. */
    KvCInventoryAddress getAddress() const;
    /** The description, never null. */
    const char* getDescription() const;

    KvCInventoryItem* getParent() const { return static_cast<KvCInventoryItem*>(KvCComposite::getParent()); }
    /** The first child; null when there is none. */
    KvCInventoryItem* getFirstSubItem() const { return static_cast<KvCInventoryItem*>(getChild()); }
    /** The next sibling; null behind the last. */
    KvCInventoryItem* getNext() const { return static_cast<KvCInventoryItem*>(getSibling()); }
    /** Takes the item, with its subtree, out of its parent; the caller owns it then. */
    void detach();

    /** The item at `address`, this one for the empty address; null when there is none. */
    KvCInventoryItem* getItem(const KvCInventoryAddress& address) const;
    /** The parameter at `address`: the last element is its ID, those before it name the item; else null. */
    KvCInventoryParameter* getParameter(const KvCInventoryAddress& address) const;
    /** The n-th parameter of this item in order, from 0; null past the end. Going through them one by one takes
        linear time. */
    KvCInventoryParameter* getParameterByOrdinalNumber(KvUInt32 n) const;
    /** Calls `visit(KvCInventoryParameter&)` for each parameter of this item in order, until it returns false. `visit`
        may remove the parameter that it is given. False when it was stopped. */
    template <class Visit>
    bool forEachParameter(Visit&& visit) const
    {
        const KvCParamList* list = getParameterList();
        for (KvPListNode<KvCParam*>* node = list == nullptr ? nullptr : list->getFront(); node != nullptr;) {
            KvCInventoryParameter* parameter = KvCInventoryParameter::from(node->getContent());
            node = node->getNext();
            if (parameter != nullptr && !visit(*parameter))
                return false;
        }
        return true;
    }

    /** Finds or creates the items along `path` and gives the last one. 0x130080a for an ID without registered name, and
        null; the items made before it stay. */
    KvCInventoryItem* addPath(KvCErrorListPool& errors, const KvCInventoryAddress& path);
    /** Attaches `item` below the item at `where` and gives that item, which owns it then. Null, and nothing attached,
        when there is no item at `where`, or one with the ID of `item` below it already. */
    KvCInventoryItem* addItem(const KvCInventoryAddress& where, KvCInventoryItem* item);
    /** Adds `param` to the item at `where` and gives that item, which owns it then. Null when there is no item there,
        and, with 0x1300812, when it cannot be added. */
    KvCInventoryItem* addParameter(KvCErrorListPool& errors, const KvCInventoryAddress& where,
                                   KvCInventoryParameter* param);

    /**
     * Makes a parameter at `path`, and the items before it that are missing. Argument meanings as in the parameter's
     * constructor. 0x1300808 empty path, 0x1300809 an item cannot be made, 0x130080a no registered name, 0x130080b.
     * @return the parameter, owned by its item; null when an error was reported
     */
    template <KvNElement::Single T>
    KvCInventoryParameter* createParameter(KvCErrorListPool& errors, const KvCInventoryAddress& path, const T& value,
                                           const char* unit, bool modifiable, KvUInt32 relevance,
                                           KvCInventoryParameter::Hook checkHook, KvCInventoryParameter::Hook writeHook,
                                           KvCInventoryParameter::Hook updateHook)
    {
        using Value = KvNElement::Canonical<T>;
        return makeParameter<Value>(errors, path, static_cast<const Value&>(value), unit, modifiable, relevance,
                                    {checkHook, writeHook, updateHook});
    }
    /** The value of the parameter at `path`. 0x1300801 when there is none, and zero; else as the parameter's. */
    template <KvNElement::Single T>
    T getValue(KvCErrorListPool& errors, const KvCInventoryAddress& path) const
    {
        const KvCInventoryParameter* parameter = findParameter(errors, path, "KvCInventoryItem::getValue");
        return parameter == nullptr ? T() : parameter->getValue<T>(errors);
    }
    /** Sets the value of the parameter at `path` and gives the parameter, also when setting failed. 0x1300801 when
       there is none, and null. */
    template <KvNElement::Single T>
    KvCInventoryParameter* setValue(KvCErrorListPool& errors, const KvCInventoryAddress& path, const T& value)
    {
        KvCInventoryParameter* parameter = findParameter(errors, path, "KvCInventoryItem::setValue");
        if (parameter != nullptr)
            parameter->setValue<T>(errors, value);
        return parameter;
    }

    /** A deep copy in `copy`, owned by the caller: everything but designated values and links to shared data. What
        cannot be copied is reported (0x130080c to 0x130080f, 0x1300816) and left out; null when not even the root can.
     */
    void copyTree(KvCErrorListPool& errors, KvCInventoryItem*& copy) const;
    /**
     * Moves the content of `source` into `target`; `source` is consumed and null afterwards. Items that only the source
     * has are moved whole; of items in both, the target's parameters win, and with mode bit 0x1 those that it lacks are
     * copied. A null target takes the source as it is. 0x1300803 a part cannot be merged, 0x1300802 attached; a target
     * inside the source is reported so too, and nothing is destroyed.
     */
    static void mergeTree(KvCErrorListPool& errors, KvCInventoryItem*& target, KvCInventoryItem*& source,
                          KvUInt32 mode);
    /** Links the items below this one (the root, with null) to the shared-data items that their SHARED_DATA_INDEX
        parameters name. What does not fit together is sent as warnings 0x1300813 to 0x1300815. */
    void linkSharedData(KvCInventoryItem* shared);

    using KvCComposite::apply;
    using KvCComposite::update;
    // The three passes over this item's subtree: children before their parent, parameters in order; each visits all,
    // whatever fails. `context` is handed to every hook.
    /** Lets the check hooks judge the designated values: a rejected one is dropped with 0x1300811. */
    void check(KvCErrorListPool& errors, KvCInventoryItem* context);
    /** Writes the designated values by the write hooks and adopts them. 0x1300806 no hook, 0x1300804 the hook reported
        an error: the designated value is dropped. 0x1300805 it cannot be adopted. */
    void apply(KvCErrorListPool& errors, KvCInventoryItem* context);
    /** Calls the update hooks; 0x1300807 when one reported an error. */
    void update(KvCErrorListPool& errors, KvCInventoryItem* context);
    /** Drops the designated values of the subtree. */
    void deleteDesignatedValues();

    /** The subtree as text: markup, or plain lines. `flags` are those of KvNInventoryItem::TextFlag, `level` is the
        indentation of the first line in steps of four blanks. 0x1300810 when memory is out, and the empty text. */
    KvCString toString(KvCErrorListPool& errors, int flags, int level) const;
    /** Writes that text to standard output. */
    void printTree(KvCErrorListPool& errors, int flags, int level) const;

private:
    friend class KvCInventoryBinDeSerializer;
    class MyStream;
    class TextWriter;

    explicit KvCInventoryItem(const Fresh& fresh) noexcept : KvCComposite(fresh) {}

    struct Hooks
    {
        KvCInventoryParameter::Hook onCheck;
        KvCInventoryParameter::Hook onWrite;
        KvCInventoryParameter::Hook onUpdate;
    };

    template <class T>
    KvCInventoryParameter* makeParameter(KvCErrorListPool& errors, const KvCInventoryAddress& path, const T& value,
                                         const char* unit, bool modifiable, KvUInt32 relevance, const Hooks& hooks);
    KvCInventoryParameter* findParameter(KvCErrorListPool& errors, const KvCInventoryAddress& path,
                                         const char* origin) const;
    KvCInventoryItem* findItem(const KvCInventoryAddress& address, KvUInt32 length) const;
    KvCInventoryItem* findChild(KvUInt32 category, KvUInt32 index) const
    {
        return static_cast<KvCInventoryItem*>(searchComposite(category, index));
    }
    KvCInventoryItem* findOwnItem(const KvCInventoryAddress& address) const;
    KvCInventoryItem* addPathPart(KvCErrorListPool& errors, const KvCInventoryAddress& path, KvUInt32 length);
    static KvCInventoryItem* makeItem(KvCErrorListPool& errors, const KvCInventoryAddress& id, const char* description,
                                      const char* origin);
    KvCInventoryParameter* getOwnParameter(KvUInt32 category) const;
    KvCInventoryParameter* getLinkedParameter(KvUInt32 category) const;

    KvCInventoryItem* copyNode(KvCErrorListPool& errors) const;
    void mergeParameters(KvCErrorListPool& errors, const KvCInventoryItem& source);
    static void mergeSource(KvCErrorListPool& errors, KvCInventoryItem* target, KvCInventoryItem* source,
                            KvUInt32 mode);
    bool isSharedData() const;
    KvCInventoryItem* sharedDataForChild(KvCErrorListPool& errors, const KvCInventoryItem& child,
                                         bool& isEntered) const;
    KvCInventoryItem* counterpartOfChild(const KvCInventoryItem& child) const;

    bool writeToStream(KvCErrorListPool& errors, int flags, int level, MyStream& stream) const;
};
