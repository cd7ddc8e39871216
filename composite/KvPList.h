#pragma once

#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

class KV_EXPORT KvCParam;
template <class T>
class KvPList;

/** What a list does for a kind of content: where its nodes come from, and the index that it keeps of them. */
template <class T>
struct KvPListTraits;

/** One place in a KvPList: its content and its neighbours. Belongs to the list, or is a part of its content. */
template <class T>
class KV_EXPORT KvPListNode : public KvNAllocation::ObjectOf<KvPListNode<T>>
{
public:
    KvPListNode() = default;
    KvPListNode(const KvPListNode&) = delete;
    KvPListNode& operator=(const KvPListNode&) = delete;
    virtual ~KvPListNode() = default;

    const T& getContent() const { return m_content; }
    /** The node behind this one; null at the end. */
    KvPListNode* getNext() const { return m_next; }
    /** The node before this one; null at the front. */
    KvPListNode* getPrev() const { return m_prev; }

private:
    friend class KvPList<T>;
    friend struct KvPListTraits<T>;
    friend struct KvNFreshTree;

    T m_content{};
    KvPListNode* m_next = nullptr;
    KvPListNode* m_prev = nullptr;
};

/** Parameters bring the node for their first list along, and long lists are indexed by id. */
template <>
struct KvPListTraits<KvCParam*>
{
    struct Index;
    /** The node that is a part of `content`, ready to be linked; null when another list uses it or there is no content.
     */
    static KvPListNode<KvCParam*>* take(KvCParam* content);
    /** Whether the node is a part of its content, which it is given back to; any other is the list's to delete. */
    static bool giveBack(KvPListNode<KvCParam*>* node);
    /** The index (null: none yet) follows the list, or is dropped when it cannot. */
    static void appended(Index*& index, KvCParam* content);
    static void prepended(Index*& index, KvCParam* content);
    static void removed(Index*& index, KvCParam* content);
    static void drop(Index*& index);
};

/**
 * A doubly linked list, instantiated for `KvCParam*`. It does not own what it holds; a derived class learns by the two
 * notify hooks when an element joins or leaves. No operation but find, findContent and clear depends on the length.
 * Elements may end before the list does, unless a derived class keeps them and says so (m_keepsContent).
 */
template <class T>
class KV_EXPORT KvPList : public KvNAllocation::Object
{
public:
    KvPList() = default;
    KvPList(const KvPList&) = delete;
    KvPList& operator=(const KvPList&) = delete;
    /** Clears the list. The hooks of a derived class are no longer called by then: it clears in its own destructor. */
    virtual ~KvPList();

    /** Whether two elements are the same; find asks this. Here: identity. */
    virtual bool isEqual(T first, T second);
    /** An element is about to be linked. Here: nothing. */
    virtual void notifyElementAttachment(T* element);
    /** An element has just left its place and may be destroyed by this call. Here: nothing. */
    virtual void notifyElementDetachment(T* element);

    /** Adds at the back and gives a pointer to the stored content; null when there is no memory for the node. */
    T* pushBack(const T& element);
    /** The same; a missing node is reported as 0x600800. */
    T* pushBack(KvCErrorListPool& errors, const T& element);
    /** Adds at the front and gives a pointer to the stored content; null when there is no memory for the node. */
    T* pushFront(const T& element);
    /** The same; a missing node is reported as 0x600800. */
    T* pushFront(KvCErrorListPool& errors, const T& element);

    /** Takes a node of this list out and frees it; null is ignored. */
    void removeListNode(KvPListNode<T>* node);
    /** Empties the list, then tells of each element from front to back. */
    void clear();

    /** The first node whose content isEqual to `element`; null when there is none. */
    KvPListNode<T>* find(const T& element);
    /** The same by content: a pointer to the stored content, or null. */
    T* findContent(T& element);
    KvPListNode<T>* getFront() const { return m_front; }
    KvPListNode<T>* getBack() const { return m_back; }
    bool isEmpty() const { return m_front == nullptr; }
    /** The number of elements. */
    KvUInt32 getCount() const { return m_count; }

protected:
    using Traits = KvPListTraits<T>;

    KvPListNode<T>* m_front = nullptr;
    mutable typename Traits::Index* m_index = nullptr;  ///< made when a lookup pays for it
    KvUInt32 m_count : 30 = 0;
    KvUInt32 m_keepsContent : 1 = 0;              ///< no element ends while the list holds it, so its node may be used
    mutable KvUInt32 m_cursorIsFiltered : 1 = 0;  ///< the place counts only the elements that a filter lets pass
    mutable KvUInt32 m_cursorPlace = 0;           ///< the place of the last node that was asked for by it …
    mutable KvPListNode<T>* m_cursor = nullptr;   ///< … and that node
    KvPListNode<T>* m_back = nullptr;

private:
    friend struct KvNFreshTree;

    KvPListNode<T>* makeNode(const T& element);
    void linkBack(KvPListNode<T>* node);
    void linkFront(KvPListNode<T>* node);
    void freeNode(KvPListNode<T>* node);
};

extern template class KvPListNode<KvCParam*>;
extern template class KvPList<KvCParam*>;
