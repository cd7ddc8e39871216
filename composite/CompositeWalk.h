#pragma once

#include "composite/KvCComposite.h"

/**
 * Walks over a subtree that need no stack, however deep it is. They follow the chains of children and never leave the
 * subtree of the node that they start from.
 */
namespace KvNCompositeWalk {

/** The node in whose chain of children `node` stands: its parent, but for nodes put there by replaceChild. */
KV_EXPORT KvCComposite* holderOf(const KvCComposite* node);

/** The node behind `node` in pre-order within the subtree of `root`; null behind the last. */
KV_EXPORT KvCComposite* nextInPreOrder(const KvCComposite* node, const KvCComposite* root);
/** The first node of the subtree in post-order (children before their parent): the leftmost leaf. */
KV_EXPORT KvCComposite* firstInPostOrder(const KvCComposite* root);
/** The node behind `node` in post-order; null behind `root`. */
KV_EXPORT KvCComposite* nextInPostOrder(const KvCComposite* node, const KvCComposite* root);

/**
 * Calls `enter(node)` before and `leave(node)` behind the children of each node of the subtree. Either gives false to
 * end the walk. A Node type derived from KvCComposite may be named: all nodes of the tree are of that type then.
 * @return false when the walk was ended; true for a null root
 */
template <class Node, class Enter, class Leave>
bool walk(Node* root, Enter&& enter, Leave&& leave)
{
    for (Node* node = root; node != nullptr;) {
        if (!enter(node))
            return false;
        if (node->getChild() != nullptr) {
            node = static_cast<Node*>(node->KvCComposite::getChild());
            continue;
        }
        for (;;) {
            if (!leave(node))
                return false;
            if (node == root)
                return true;
            if (KvCComposite* sibling = node->getSibling()) {
                node = static_cast<Node*>(sibling);
                break;
            }
            node = static_cast<Node*>(holderOf(node));
            if (node == nullptr)
                return true;
        }
    }
    return true;
}

}  // namespace KvNCompositeWalk
