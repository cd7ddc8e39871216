#include "composite/FreshTree.h"

#include "composite/CompositeLinks.h"
#include "platform/KvPrefetch.h"

void KvNFreshTree::append(KvCComposite& parent, KvCComposite& node)
{
    KvNCompositeAccess::append(&parent, &node);
}

void KvNFreshTree::clear(KvCParamList& list, ObjectSlabs::Releases& releases)
{
    KvPListNode<KvCParam*>* node = list.m_front;
    list.m_front = nullptr;
    list.m_back = nullptr;
    list.m_cursor = nullptr;
    list.m_count = 0;
    if (list.m_index != nullptr)
        KvPListTraits<KvCParam*>::drop(list.m_index);
    while (node != nullptr) {
        KvPListNode<KvCParam*>* const next = node->m_next;
        KvCParam* parameter = node->m_content;
        KvNPrefetch::readAhead<sizeof(KvCParam)>(node);
        // A parameter that was in another list before may stand here with a node of the list's own.
        const bool isOwnNode = parameter != nullptr && node == static_cast<KvPListNode<KvCParam*>*>(parameter);
        if (isOwnNode && parameter->m_place != 0 && parameter->m_attachments == 1) {
            const KvUInt32 place = parameter->m_place;
            empty(*parameter);
            releases.add(parameter, place, sizeof *parameter);
        } else {
            list.freeNode(node);
            list.notifyElementDetachment(&parameter);
        }
        node = next;
    }
}

void KvNFreshTree::destroyFirstChild(KvCComposite& parent, KvCComposite& node, Releases& releases)
{
    KvCComposite* const next = node.m_sibling;
    const bool isSimple = node.m_place != 0 && node.m_extra == nullptr && node.m_isLinked &&
                          (next == nullptr || next->m_previous == &node);
    if (!isSimple) {
        delete &node;
        return;
    }
    clear(node.m_list, releases.parameters);
    parent.m_firstChild = next;
    --parent.m_childCount;
    if (parent.m_lastChild == &node)
        parent.m_lastChild = nullptr;
    if (next != nullptr)
        next->m_previous = nullptr;
    releases.nodes.add(&node, node.m_place, sizeof node);
}
