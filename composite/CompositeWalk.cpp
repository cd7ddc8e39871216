#include "composite/CompositeWalk.h"

#include "composite/CompositeLinks.h"

KvCComposite* KvNCompositeWalk::holderOf(const KvCComposite* node)
{
    return KvNCompositeAccess::holder(node);
}

KvCComposite* KvNCompositeWalk::nextInPreOrder(const KvCComposite* node, const KvCComposite* root)
{
    if (node->getChild() != nullptr)
        return node->getChild();
    for (; node != nullptr && node != root; node = holderOf(node))
        if (node->getSibling() != nullptr)
            return node->getSibling();
    return nullptr;
}

KvCComposite* KvNCompositeWalk::firstInPostOrder(const KvCComposite* root)
{
    while (root != nullptr && root->getChild() != nullptr)
        root = root->getChild();
    return const_cast<KvCComposite*>(root);
}

KvCComposite* KvNCompositeWalk::nextInPostOrder(const KvCComposite* node, const KvCComposite* root)
{
    if (node == root)
        return nullptr;
    return node->getSibling() != nullptr ? firstInPostOrder(node->getSibling()) : holderOf(node);
}
