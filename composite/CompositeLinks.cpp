#include "composite/CompositeLinks.h"

#include "composite/FreshTree.h"
#include "platform/KvPrefetch.h"

using Access = KvNCompositeAccess;

KvNCompositeAccess::Extra* Access::extra(Node* node)
{
    if (node->m_extra == nullptr)
        node->m_extra = new Extra;
    return node->m_extra;
}

bool Access::point(Node* from, Node* to, BackLink Extra::*link, Node* Extra::*head)
{
    if (from->m_extra != nullptr && (from->m_extra->*link).target == to)
        return true;
    unpoint(from, link, head);
    if (to == nullptr)
        return true;
    if (extra(from) == nullptr || extra(to) == nullptr)
        return false;
    BackLink& made = from->m_extra->*link;
    Node*& first = to->m_extra->*head;
    made = {to, first, nullptr};
    if (first != nullptr)
        (first->m_extra->*link).previous = from;
    first = from;
    return true;
}

void Access::unpoint(Node* from, BackLink Extra::*link, Node* Extra::*head)
{
    if (from->m_extra == nullptr || (from->m_extra->*link).target == nullptr)
        return;
    BackLink& old = from->m_extra->*link;
    if (old.previous != nullptr)
        (old.previous->m_extra->*link).next = old.next;
    else
        old.target->m_extra->*head = old.next;
    if (old.next != nullptr)
        (old.next->m_extra->*link).previous = old.previous;
    old = {};
}

KvCComposite* Access::tail(const Node* parent)
{
    Node* last = parent->m_lastChild;
    if (last != nullptr && holder(last) == parent && last->m_sibling == nullptr)
        return last;
    last = parent->m_firstChild;
    while (last != nullptr && last->m_sibling != nullptr)
        last = last->m_sibling;
    return last;
}

namespace {

/** Makes the index of the chain from `first` on when there is none; false when memory is out. */
template <class Index>
bool isMade(Index& index, const KvCComposite* first)
{
    if (index.isMade())
        return true;
    for (const KvCComposite* node = first; node != nullptr; node = node->getSibling()) {
        if (!index.append(const_cast<KvCComposite*>(node))) {
            index.drop();
            return false;
        }
    }
    return true;
}

template <class Index>
void keepAppended(Index& index, KvCComposite* node)
{
    if (index.isMade() && !index.append(node))
        index.drop();
}

template <class Index>
void keepRemoved(Index& index, KvCComposite* node)
{
    if (!index.remove(node))
        index.drop();
}

}  // namespace

KvCComposite* Access::findChild(const Node* parent, KvUInt32 classId, KvUInt32 unitId)
{
    if (parent->m_extra != nullptr && parent->m_extra->children.isMade())
        return parent->m_extra->children.find(ClassAndUnitKey::of(classId, unitId));
    // Most trees are built in ascending order: what comes behind the last child is not there.
    if (parent->m_childrenAscend && parent->m_lastChild != nullptr && isBelow(parent->m_lastChild, classId, unitId))
        return nullptr;
    if (parent->m_childCount > IndexThreshold)
        if (Extra* const piece = extra(const_cast<Node*>(parent)))
            if (isMade(piece->children, parent->m_firstChild))
                return piece->children.find(ClassAndUnitKey::of(classId, unitId));
    for (Node* node = parent->m_firstChild; node != nullptr; node = node->m_sibling)
        if (node->m_classId == classId && node->m_unitId == unitId)
            return node;
    return nullptr;
}

KvCComposite* Access::findUnit(const Node* parent, KvUInt32 unitId)
{
    if (parent->m_childCount > IndexThreshold)
        if (Extra* const piece = extra(const_cast<Node*>(parent)))
            if (isMade(piece->units, parent->m_firstChild))
                return piece->units.find(unitId);
    for (Node* node = parent->m_firstChild; node != nullptr; node = node->m_sibling)
        if (node->m_unitId == unitId)
            return node;
    return nullptr;
}

void Access::dropIndexes(Node* parent)
{
    if (parent->m_extra == nullptr)
        return;
    parent->m_extra->children.drop();
    parent->m_extra->units.drop();
}

void Access::loseOrder(Node* parent)
{
    dropIndexes(parent);
    parent->m_childrenAscend = false;
}

void Access::takeOut(Node* node)
{
    Node* const from = holder(node);
    Node* const previous = node->m_previous;
    Node* const next = node->m_sibling;
    if (from != nullptr) {
        if (from->m_extra != nullptr) {
            keepRemoved(from->m_extra->children, node);
            keepRemoved(from->m_extra->units, node);
        }
        --from->m_childCount;
        if (from->m_firstChild == node)
            from->m_firstChild = next;
        if (from->m_lastChild == node)
            from->m_lastChild = previous;
    }
    const bool isFollowed = next != nullptr && next->m_previous == node;
    if (previous != nullptr)
        previous->m_sibling = isFollowed ? next : nullptr;
    if (isFollowed)
        next->m_previous = previous;
    node->m_previous = nullptr;
    node->m_isLinked = false;
    if (node->m_extra != nullptr)
        node->m_extra->holder = nullptr;
}

void Access::setFree(Node* node)
{
    takeOut(node);
    mendLastChild(node);
    unpoint(node, &Extra::strayLink, &Extra::strays);
    unpoint(node, &Extra::siblingLink, &Extra::siblingOf);
    node->m_parent = nullptr;
    node->m_sibling = nullptr;
}

void Access::append(Node* parent, Node* child)
{
    Node* const last = tail(parent);
    if (last != nullptr)
        last->m_sibling = child;
    else
        parent->m_firstChild = child;
    parent->m_childrenAscend =
        last == nullptr || (parent->m_childrenAscend && isBelow(last, child->m_classId, child->m_unitId));
    child->m_previous = last;
    child->m_parent = parent;
    child->m_isLinked = true;
    parent->m_lastChild = child;
    ++parent->m_childCount;
    if (parent->m_extra != nullptr) {
        keepAppended(parent->m_extra->children, child);
        keepAppended(parent->m_extra->units, child);
    }
}

void Access::mergeChildren(Node* target, Node* source)
{
    Node* const top = source;
    dropIndexes(source);
    for (;;) {
        Node* const child = source->m_firstChild;
        if (child == nullptr) {
            if (source == top)
                return;
            Node* const done = source;
            source = holder(done);
            target = holder(target);
            delete done;
            continue;
        }
        Node* const existing = findChild(target, child->m_classId, child->m_unitId);
        if (existing == nullptr) {
            setFree(child);
            append(target, child);
        } else if (child->m_firstChild == nullptr) {
            delete child;
        } else {
            target = existing;
            source = child;
            dropIndexes(source);
        }
    }
}

bool Access::isAncestor(const Node* node, const Node* of)
{
    // Normally both ways up are the same; neither may ever lead in a ring.
    const Node* named = of;
    while (named != nullptr && named != node)
        named = named->m_parent;
    const Node* holding = of;
    while (named == nullptr && holding != nullptr && holding != node)
        holding = holder(holding);
    return named != nullptr || holding != nullptr;
}

long Access::attachOne(Node* parent, Node* child)
{
    // A node that has no children, and that none names as its parent, cannot be an ancestor: nothing is walked for it.
    const bool isNamed = child->m_extra != nullptr && child->m_extra->strays != nullptr;
    if (child == parent || ((child->m_firstChild != nullptr || isNamed) && isAncestor(child, parent)))
        return Node::AttachCycle;
    if (findChild(parent, child->m_classId, child->m_unitId) == child)
        return Node::AttachPresent;
    setFree(child);
    return parent->attachDetached(child);
}

void Access::link(Node* node, Node* sibling)
{
    if (node->m_sibling != nullptr && node->m_sibling->m_previous == node)
        node->m_sibling->m_previous = nullptr;
    unpoint(node, &Extra::siblingLink, &Extra::siblingOf);
    node->m_sibling = sibling;
    if (sibling == nullptr)
        return;
    if (sibling->m_previous == nullptr && holder(sibling) == nullptr)
        sibling->m_previous = node;
    else if (!point(node, sibling, &Extra::siblingLink, &Extra::siblingOf))
        node->m_sibling = nullptr;
}

void Access::loosen(Node* node)
{
    Node* const previous = node->m_previous;
    node->m_previous = nullptr;
    if (previous != nullptr && !point(previous, node, &Extra::siblingLink, &Extra::siblingOf))
        previous->m_sibling = nullptr;
}

bool Access::reserveChain(Node* first)
{
    for (Node* node = first; node != nullptr; node = node->m_sibling)
        if (extra(node) == nullptr || (node->m_parent != nullptr && extra(node->m_parent) == nullptr))
            return false;
    return true;
}

void Access::leaveChain(Node* first)
{
    Node* const from = first == nullptr ? nullptr : holder(first);
    if (from == nullptr)
        return;
    dropIndexes(from);
    if (first->m_previous != nullptr)
        first->m_previous->m_sibling = nullptr;
    else
        from->m_firstChild = nullptr;
    from->m_lastChild = first->m_previous;
    first->m_previous = nullptr;
    for (Node* node = first; node != nullptr; node = node->m_sibling) {
        --from->m_childCount;
        node->m_isLinked = false;
        if (node->m_extra != nullptr)
            node->m_extra->holder = nullptr;
        if (!point(node, node->m_parent, &Extra::strayLink, &Extra::strays))
            node->m_parent = nullptr;
    }
}

void Access::joinChain(Node* first, Node* newHolder)
{
    loseOrder(newHolder);
    for (Node* node = first; node != nullptr; node = node->m_sibling) {
        ++newHolder->m_childCount;
        node->m_isLinked = node->m_parent == newHolder;
        if (node->m_isLinked)
            unpoint(node, &Extra::strayLink, &Extra::strays);
        else
            node->m_extra->holder = newHolder;
        Node* const next = node->m_sibling;
        if (next == nullptr || next->m_previous == node)
            continue;
        // The next node follows another one: it follows this one from now on, unless it stands in a chain.
        const bool isFree = holder(next) == nullptr;
        if (isFree)
            loosen(next);
        link(node, isFree ? next : nullptr);
    }
}

bool Access::closesRing(const Node* first, const Node* newHolder)
{
    // Of the new holder and its ancestors only one can be in the chain: the one that is held like the chain's first.
    const Node* above = newHolder;
    while (above != nullptr && holder(above) != holder(first))
        above = holder(above);
    return above != nullptr && isInChain(above, first);
}

bool Access::isInChain(const Node* node, const Node* first)
{
    while (first != nullptr && first != node)
        first = first->m_sibling;
    return first != nullptr;
}

bool Access::changeSibling(Node* node, Node* sibling)
{
    Node* const newHolder = holder(node);
    if (sibling != nullptr && (isInChain(node, sibling) || closesRing(sibling, newHolder)))
        return true;
    if (newHolder == nullptr) {
        link(node, sibling);
        return true;
    }
    if (!reserveChain(node->m_sibling) || !reserveChain(sibling))
        return false;
    leaveChain(node->m_sibling);
    leaveChain(sibling);
    if (sibling != nullptr)
        loosen(sibling);
    link(node, sibling);
    joinChain(sibling, newHolder);
    newHolder->m_lastChild = nullptr;
    newHolder->m_lastChild = tail(newHolder);
    return true;
}

bool Access::replace(Node* parent, Node* fresh, Node* old)
{
    if (extra(parent) == nullptr || !reserveChain(fresh) || !reserveChain(old))
        return false;
    if (holder(fresh) != nullptr) {
        takeOut(fresh);
        fresh->m_sibling = nullptr;
        point(fresh, fresh->m_parent, &Extra::strayLink, &Extra::strays);
    }
    Node* const last = parent->m_lastChild;
    Node* const previous = old->m_previous;
    Node* const next = old->m_sibling;
    leaveChain(old);
    loosen(fresh);
    if (previous == nullptr) {
        parent->m_firstChild = fresh;
    } else {
        link(previous, fresh);
        link(fresh, next);
    }
    joinChain(fresh, parent);
    // Kept: the last-child link stays as it was, even when that node has left the chain.
    parent->m_lastChild = last != nullptr && last->m_parent == parent ? last : nullptr;
    if (parent->m_lastChild == nullptr)
        parent->m_lastChild = tail(parent);
    return true;
}

void Access::destroyChildren(Node* root)
{
    KvNFreshTree::Releases releases;
    Node* node = root;
    for (;;) {
        dropIndexes(node);
        while (node->m_firstChild != nullptr) {
            node = node->m_firstChild;
            KvNPrefetch::readAhead<sizeof(Node)>(node);
            dropIndexes(node);
        }
        if (node == root)
            return;
        KvNPrefetch::readBack<sizeof(Node)>(node);
        KvNPrefetch::readBack<sizeof(KvCParam)>(node->m_list.getFront());
        Node* const above = holder(node);
        KvNFreshTree::destroyFirstChild(*above, *node, releases);
        node = above;
    }
}

void Access::mendLastChild(Node* node)
{
    Node* const parent = node->m_parent;
    if (parent == nullptr || parent->m_lastChild != node)
        return;
    parent->m_lastChild = nullptr;
    parent->m_lastChild = tail(parent);
}

void Access::forget(Node* node)
{
    setFree(node);
    if (node->m_extra == nullptr)
        return;
    unpoint(node, &Extra::friendLink, &Extra::friendOf);
    while (Node* const other = node->m_extra->friendOf)
        unpoint(other, &Extra::friendLink, &Extra::friendOf);
    while (Node* const other = node->m_extra->siblingOf) {
        unpoint(other, &Extra::siblingLink, &Extra::siblingOf);
        other->m_sibling = nullptr;
    }
    while (Node* const stray = node->m_extra->strays) {
        unpoint(stray, &Extra::strayLink, &Extra::strays);
        if (holder(stray) == nullptr)
            link(stray, nullptr);
        stray->m_parent = nullptr;
    }
}
