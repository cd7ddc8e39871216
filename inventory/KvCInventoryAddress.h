#pragma once

#include "base/KvCString.h"
#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

/**
 * The name of an item or parameter of the inventory tree: a path of elements, each an inventory ID (its category) with
 * an instance index, 1 being the first or only instance. Its text is like "ROOT/CPU[2]/FIRMWARE".
 *
 * A plain value: copies share nothing, and up to four elements stand inside the object. When memory for more is out,
 * the result is the empty address, never a shorter one, and 0x601002 is on the master error list. One thread at a time.
 */
class KV_EXPORT KvCInventoryAddress : public KvNAllocation::ObjectOf<KvCInventoryAddress>
{
public:
    /** The empty address. */
    KvCInventoryAddress() noexcept : m_length(0), m_capacity(kInline) {}
    /** One element: `category` with index 1. */
    KvCInventoryAddress(KvUInt32 category) noexcept : KvCInventoryAddress(category, 1) {}
    /** One element: `category` with `index`. */
    KvCInventoryAddress(KvUInt32 category, KvUInt32 index) noexcept : m_length(1), m_capacity(kInline)
    {
        m_inline[0] = {category, index};
    }
    /** `count` elements, each two numbers of `pairs`: category and index. */
    static KvCInventoryAddress fromPairs(const KvUInt32* pairs, KvUInt32 count);
    KvCInventoryAddress(const KvCInventoryAddress& other);
    /** Takes the other's elements and leaves it empty. */
    KvCInventoryAddress(KvCInventoryAddress&& other) noexcept;
    ~KvCInventoryAddress()
    {
        if (m_capacity != kInline)
            release();
    }
    KvCInventoryAddress& operator=(const KvCInventoryAddress& other);
    KvCInventoryAddress& operator=(KvCInventoryAddress&& other) noexcept;

    /** Same length and, position by position, the same category and index. */
    bool operator==(const KvCInventoryAddress& other) const;
    bool operator!=(const KvCInventoryAddress& other) const { return !(*this == other); }

    /** A copy whose last element has the index `index`: CPU[2] is the second CPU. It selects no element. The empty
        address gives the empty address. */
    KvCInventoryAddress operator[](KvUInt32 index) const;
    /** This address's elements followed by those of `tail`. */
    KvCInventoryAddress operator/(const KvCInventoryAddress& tail) const;

    /** Number of elements. */
    KvUInt32 getLength() const { return m_length; }
    bool isEmpty() const { return m_length == 0; }
    bool isSingleElement() const { return m_length == 1; }

    /** Category of the last element; 0 for the empty address. */
    KvUInt32 getCategory() const { return m_length == 0 ? 0 : elements()[m_length - 1].category; }
    /** Index of the last element; 0 for the empty address. */
    KvUInt32 getIndex() const { return m_length == 0 ? 0 : elements()[m_length - 1].index; }
    /** Category of the element at `position`, counted from 0; 0 past the end. */
    KvUInt32 getCategoryAt(KvUInt32 position) const { return position < m_length ? elements()[position].category : 0; }
    /** Index of the element at `position`, counted from 0; 0 past the end. */
    KvUInt32 getIndexAt(KvUInt32 position) const { return position < m_length ? elements()[position].index : 0; }
    /** Registered name of the last element's category (of category 0 for the empty address); empty without one. */
    KvCString getCategoryName() const;

    /** One-element copy of the first element; empty for the empty address. */
    KvCInventoryAddress getFirstElement() const;
    /** One-element copy of the last element; empty for the empty address. */
    KvCInventoryAddress getLastElement() const;
    /** All elements but the last; empty when there are fewer than two. */
    KvCInventoryAddress getHeadAddress() const;
    /** All elements but the first; empty when there are fewer than two. */
    KvCInventoryAddress getSubAddress() const;

    /** True when every element of `prefix` equals the one at its position here and this address has more of them; so
        no address is a prefix of itself, and the empty one is a prefix of every other. */
    bool isPrefix(const KvCInventoryAddress& prefix) const;
    /** Removes the leading elements that match `prefix` element by element, up to the first that does not. What matched
        before a mismatch stays removed: ask isPrefix() first where all or nothing is meant. */
    void removePrefix(const KvCInventoryAddress& prefix);

    /** The elements separated by "/", each as its registered name, else its decimal number, with "[index]" behind it
        unless that is 1. */
    KvCString toString() const;
    /** Replaces this address by the one that `text` says; numbers (as strtoul reads them in base 0, at most 4294967295)
        stand for names too. A text with any unknown step, or with category 0, gives the empty address. */
    void readFromString(const KvCString& text);
    /** Writes toString() and a line break to standard output. */
    void print() const;

private:
    friend class KvCInventoryItem;
    friend class KvCInventoryParameter;

    struct Element
    {
        KvUInt32 category;
        KvUInt32 index;
    };
    static constexpr KvUInt32 kInline = 4;

    const Element* elements() const { return m_capacity == kInline ? m_inline : m_heap; }
    Element* elements() { return m_capacity == kInline ? m_inline : m_heap; }
    static KvCInventoryAddress of(const Element* first, KvUInt32 count);
    bool append(const Element* first, KvUInt32 count);
    void append(const KvCInventoryAddress& other) { append(other.elements(), other.m_length); }
    bool reserve(KvUInt32 length);
    void clear() { m_length = 0; }
    void release() noexcept;
    void take(KvCInventoryAddress& other) noexcept;

    KvUInt32 m_length;
    KvUInt32 m_capacity;
    union
    {
        Element m_inline[kInline];
        Element* m_heap;
    };
};
