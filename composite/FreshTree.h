#pragma once

#include "composite/KvCComposite.h"
#include "platform/errorhandling/ObjectSlabs.h"

static_assert(KvSlabPlaceBits == ObjectSlabs::placeBits);

/**
 * The two ends of a tree's life, done in bulk: nodes and parameters that a reader has just made, and has found to be
 * new, are put at their place without asking again; and what a dying tree holds is given back slab by slab.
 */
struct KvNFreshTree
{
    /** Appends a parameter that is in no list and whose id the node does not have; the node owns it from now on. */
    static void append(KvCComposite& node, KvCParam& parameter)
    {
        KvCParamList& list = node.m_list;
        node.m_hasList = true;
        parameter.m_parent = &node;
        parameter.m_attachments = 1;
        parameter.m_nodeIsTaken = true;
        KvPListNode<KvCParam*>& place = parameter;
        place.m_content = &parameter;
        place.m_prev = list.m_back;
        (list.m_back == nullptr ? list.m_front : list.m_back->m_next) = &place;
        list.m_back = &place;
        ++list.m_count;
        if (list.m_index != nullptr)
            KvPListTraits<KvCParam*>::appended(list.m_index, &parameter);
    }

    /** Appends a node that stands alone to the children of `parent`, which has none with its ids. */
    static void append(KvCComposite& parent, KvCComposite& node);

    /** What a dying tree gives back: its nodes stand in other slabs than its parameters. */
    struct Releases
    {
        ObjectSlabs::Releases nodes;
        ObjectSlabs::Releases parameters;
    };

    /** Empties the list: of each parameter that no other list holds nothing is left. */
    static void clear(KvCParamList& list, ObjectSlabs::Releases& releases);

    /** Destroys a node without children, which is the first child of `parent`. */
    static void destroyFirstChild(KvCComposite& parent, KvCComposite& node, Releases& releases);

private:
    /** Gives back what an object in a slab holds, by its destructor when there is more than a value inside. */
    static void empty(KvCParam& parameter)
    {
        const bool isAlone = parameter.m_rare == nullptr && !parameter.m_holdsMore &&
                             parameter.m_storage != KvCParam::Storage::Heap &&
                             (parameter.m_descrIsShared || parameter.m_descrIsBehind);
        if (!isAlone)
            parameter.~KvCParam();
        else if ((parameter.m_type & KvNElement::CodeMask) == KvNElement::KvCStringCode &&
                 parameter.m_storage == KvCParam::Storage::Inside)
            static_cast<KvCString*>(parameter.valueRoom())->~KvCString();
    }
};
