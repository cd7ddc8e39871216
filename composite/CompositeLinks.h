#pragma once

#include "composite/FirstMatchIndex.h"
#include "composite/KvCComposite.h"

struct ClassAndUnitKey
{
    static KvUInt64 of(KvUInt32 classId, KvUInt32 unitId) { return static_cast<KvUInt64>(classId) << 32 | unitId; }
    static KvUInt64 of(const KvCComposite* node) { return of(node->getClassId(), node->getUnitId()); }
};

/** Whether `first` stands before `second` in ascending order. */
inline bool isBelow(const KvCComposite* first, KvUInt32 classId, KvUInt32 unitId)
{
    return ClassAndUnitKey::of(first) < ClassAndUnitKey::of(classId, unitId);
}

struct UnitKey
{
    static KvUInt64 of(const KvCComposite* node) { return node->getUnitId(); }
};

/** What few nodes have. */
struct KvCComposite::Extra : KvNAllocation::Object
{
    /** A link from a node to one that may die before it: `target` knows all links that point at it. */
    struct BackLink
    {
        KvCComposite* target = nullptr;
        KvCComposite* next = nullptr;
        KvCComposite* previous = nullptr;
    };

    FirstMatchIndex<KvCComposite, ClassAndUnitKey> children;  ///< by class and unit, of a wide node
    FirstMatchIndex<KvCComposite, UnitKey> units;             ///< by unit, of a wide node
    void* rtData = nullptr;
    BackLink friendLink;                ///< this node's friend
    KvCComposite* friendOf = nullptr;   ///< first of the nodes whose friend is this one
    BackLink strayLink;                 ///< the parent that this node names without being in its chain
    KvCComposite* strays = nullptr;     ///< first of the nodes that name this parent without being in its chain
    BackLink siblingLink;               ///< the sibling that follows another node by rights
    KvCComposite* siblingOf = nullptr;  ///< first of the nodes with such a link to this one
    KvCComposite* holder = nullptr;     ///< the node in whose chain this one is, when it is not the parent
};

/**
 * The links between nodes, and what keeps them true: nothing ever points at a node that died.
 *
 * A node is in the chain of one holder at most, normally of its parent, and follows one node at most (m_previous),
 * whose sibling link leads to it. replaceChild and setSibling can leave others: a node that names a parent without
 * being in its chain (a stray), one in the chain of a node that is not its parent, and sibling links to a node that
 * follows another one. These are noted in the optional pieces of both ends.
 */
struct KvNCompositeAccess
{
    using Node = KvCComposite;
    using Extra = Node::Extra;
    using BackLink = Extra::BackLink;

    /** The node in whose chain `node` is; null when it is in none. */
    static Node* holder(const Node* node)
    {
        if (node->m_isLinked)
            return node->m_parent;
        return node->m_extra == nullptr ? nullptr : node->m_extra->holder;
    }

    /** The node's optional piece, made when there was none; null, without a report, when memory is out. */
    static Extra* extra(Node* node);

    /** Makes `from` point at `to` (null: nowhere). False, and no link, when memory is out. */
    static bool point(Node* from, Node* to, BackLink Extra::*link, Node* Extra::*head);
    static void unpoint(Node* from, BackLink Extra::*link, Node* Extra::*head);

    /** The last node of the chain, whatever the last-child link says. */
    static Node* tail(const Node* parent);
    static Node* findChild(const Node* parent, KvUInt32 classId, KvUInt32 unitId);
    static Node* findUnit(const Node* parent, KvUInt32 unitId);
    static void dropIndexes(Node* parent);
    /** The children are no longer where the indexes have them, nor perhaps in ascending order. */
    static void loseOrder(Node* parent);

    /** Takes the node out of the chain that it is in, which closes behind it; parent and sibling link stay. */
    static void takeOut(Node* node);
    /** Takes the node out and makes it a node without parent and siblings. */
    static void setFree(Node* node);
    /** Appends a free node. */
    static void append(Node* parent, Node* child);
    /** Merges the children of `source`, which stays without any, into `target`. */
    static void mergeChildren(Node* target, Node* source);
    /** Whether `node` is `of` or one of its ancestors, by the parents that are named or by the holders. */
    static bool isAncestor(const Node* node, const Node* of);

    /** Sets a sibling link; the sibling follows `node` when it is free to, else the link is only noted. */
    static void link(Node* node, Node* sibling);
    /** The node no longer follows the one whose sibling link leads to it: that link is only noted from now on. */
    static void loosen(Node* node);
    /** Takes memory for everything that noting the chain from `first` on can need. */
    static bool reserveChain(Node* first);
    /** Cuts the chain before `first`: it and what is behind it become strays of their parents. */
    static void leaveChain(Node* first);
    /** The free chain from `first` on is in the chain of `newHolder` now, as far as it is free. */
    static void joinChain(Node* first, Node* newHolder);

    /** Whether `node` is in the chain from `first` on. */
    static bool isInChain(const Node* node, const Node* first);
    /** Whether the new holder of the chain from `first` on is below a node of that chain, or one itself. */
    static bool closesRing(const Node* first, const Node* newHolder);

    static long attachOne(Node* parent, Node* child);
    /** setSibling; false when memory is out and nothing was changed. */
    static bool changeSibling(Node* node, Node* sibling);
    /** replaceChild for a child of `parent`; false when memory is out and nothing was changed. */
    static bool replace(Node* parent, Node* fresh, Node* old);
    /** Destroys all children, children of children first. */
    static void destroyChildren(Node* root);
    /** A parent's last-child link leads to `node`, which is not in its chain: it leads to the last child again. */
    static void mendLastChild(Node* node);
    /** Clears every link that points at a dying node. */
    static void forget(Node* node);
};
