#include "base/Report.h"
#include "composite/CompositeWalk.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/ids/KvNInventoryIDs.h"

/*
 * Whole-tree operations of KvCInventoryItem that build or join trees: copyTree, mergeTree, linkSharedData. None of them
 * recurses: a tree may be as deep as it is wide.
 */
namespace {

constexpr const char* copying = "KvCInventoryItem::copyTree";
constexpr const char* merging = "KvCInventoryItem::mergeTree";
constexpr const char* linking = "KvCInventoryItem::linkSharedData";

/** A copy of a parameter; null when memory for any part of it is out. */
KvCInventoryParameter* copyOf(KvCErrorListPool& errors, const KvCInventoryParameter& parameter)
{
    auto* copy = new (errors) KvCInventoryParameter(parameter);
    if (copy == nullptr || copy->getStateBit(KvCParam::ConstructionFailedBit) == 0)
        return copy;
    if (!KvNElement::isKnown(parameter.getType()))
        return copy;
    delete copy;
    return nullptr;
}

bool isInside(const KvCComposite* node, const KvCComposite* tree)
{
    while (node != nullptr && node != tree)
        node = node->getParent();
    return node != nullptr;
}

/** The pairs of items whose merge is under way, the innermost last. */
class MergeStack
{
public:
    struct Pair
    {
        KvCInventoryItem* target;
        KvCInventoryItem* source;
        KvUInt32 errorsBefore;
    };

    MergeStack() = default;
    MergeStack(const MergeStack&) = delete;
    MergeStack& operator=(const MergeStack&) = delete;
    ~MergeStack() { KvNAllocation::release(m_pairs); }

    bool isEmpty() const { return m_count == 0; }
    Pair& top() { return m_pairs[m_count - 1]; }
    void pop() { --m_count; }
    bool push(const Pair& pair)
    {
        if (m_count == m_capacity) {
            const std::size_t capacity = m_capacity == 0 ? 64 : 2 * m_capacity;
            void* block = capacity > static_cast<std::size_t>(-1) / sizeof(Pair)
                              ? nullptr
                              : KvNAllocation::reallocate(m_pairs, capacity * sizeof(Pair));
            if (block == nullptr)
                return false;
            m_pairs = static_cast<Pair*>(block);
            m_capacity = capacity;
        }
        m_pairs[m_count++] = pair;
        return true;
    }

private:
    Pair* m_pairs = nullptr;
    std::size_t m_count = 0;
    std::size_t m_capacity = 0;
};

}  // namespace

/** A copy of this item and its parameters that stands alone; null and 0x130080c when it cannot be made. */
KvCInventoryItem* KvCInventoryItem::copyNode(KvCErrorListPool& errors) const
{
    const KvNReport::Watch watch(errors);
    auto* copy = new (errors) KvCInventoryItem(errors, getID(), getDescription());
    if (copy == nullptr || watch.grew() || (*getDescription() != '\0' && *copy->getDescription() == '\0')) {
        KV_REPORT(errors, ItemAllocationFailed, copying);
        delete copy;
        return nullptr;
    }
    forEachParameter([&](const KvCInventoryParameter& parameter) {
        KvCInventoryParameter* added = copyOf(errors, parameter);
        if (added == nullptr) {
            KV_REPORT(errors, ParameterAllocationFailed, copying);
        } else if (copy->addParameter(errors, KvCInventoryAddress(), added) == nullptr) {
            KV_REPORT(errors, ParameterHookFailed, copying);
            delete added;
        }
        return true;
    });
    return copy;
}

void KvCInventoryItem::copyTree(KvCErrorListPool& errors, KvCInventoryItem*& copy) const
{
    copy = copyNode(errors);
    if (copy == nullptr)
        return;
    // The item whose children are being copied, its copy, and the levels from the root down to it. An error in a
    // subtree is one in everything above it, so the number of levels that have seen one says it all.
    const KvCInventoryItem* source = this;
    KvCInventoryItem* target = copy;
    KvUInt32 level = 1;
    KvUInt32 failedLevels = 0;
    const auto closeLevel = [&](KvUInt32 closed) {
        if (failedLevels < closed)
            return;
        KV_REPORT(errors, SubtreeCopyFailed, copying);
        failedLevels = closed - 1;
    };
    const KvCInventoryItem* child = getFirstSubItem();
    for (;;) {
        if (child == nullptr) {
            if (source == this)
                return;
            closeLevel(level--);
            child = source->getNext();
            source = static_cast<const KvCInventoryItem*>(KvNCompositeWalk::holderOf(source));
            target = target->getParent();
            continue;
        }
        const KvNReport::Watch watch(errors);
        KvCInventoryItem* added = child->copyNode(errors);
        if (watch.grew())
            failedLevels = level + 1;
        const bool isPresent =
            added != nullptr && target->findChild(added->getClassId(), added->getUnitId()) != nullptr;
        if (added != nullptr && !isPresent) {
            target->attachDetached(added);
            source = child;
            target = added;
            ++level;
            child = source->getFirstSubItem();
            continue;
        }
        closeLevel(level + 1);
        if (isPresent) {
            KV_REPORT(errors, ItemNotAdded, copying, added->getID().toString(), target->getID().toString());
            failedLevels = level;
            delete added;
        }
        child = child->getNext();
    }
}

/** Copies the parameters of `source` that this item, or the item it is linked to, does not have. */
void KvCInventoryItem::mergeParameters(KvCErrorListPool& errors, const KvCInventoryItem& source)
{
    source.forEachParameter([&](const KvCInventoryParameter& parameter) {
        if (getLinkedParameter(parameter.getId()) != nullptr)
            return true;
        KvCInventoryParameter* copy = copyOf(errors, parameter);
        if (copy == nullptr || addParameter(errors, KvCInventoryAddress(), copy) == nullptr) {
            KV_REPORT(errors, ItemMergeFailed, merging);
            delete copy;
        }
        return true;
    });
}

void KvCInventoryItem::mergeTree(KvCErrorListPool& errors, KvCInventoryItem*& target, KvCInventoryItem*& source,
                                 KvUInt32 mode)
{
    // Both may be one and the same pointer.
    KvCInventoryItem* const into = target;
    KvCInventoryItem* const consumed = source;
    source = nullptr;
    if (into == nullptr)
        target = consumed;
    else if (consumed == nullptr || into == consumed)
        return;
    else if (isInside(into, consumed))
        KV_REPORT(errors, ItemAttachFailed, merging);
    else
        mergeSource(errors, into, consumed, mode);
}

/** Merges `source`, which does not contain `target`, and destroys it. */
void KvCInventoryItem::mergeSource(KvCErrorListPool& errors, KvCInventoryItem* target, KvCInventoryItem* source,
                                   KvUInt32 mode)
{
    MergeStack stack;
    bool isFailed = false;
    const auto begin = [&](KvCInventoryItem* into, KvCInventoryItem* from) {
        // An item found through shared data may be a part of what is merged into it.
        const bool isLoop = !stack.isEmpty() && into->getParent() != stack.top().target && isInside(into, from);
        if (isLoop || !stack.push({into, from, errors.getErrorCount()})) {
            if (isLoop)
                KV_REPORT(errors, ItemAttachFailed, merging);
            delete from;
            isFailed = true;
        } else if ((mode & KvNInventoryItem::MergeParameters) != 0) {
            into->mergeParameters(errors, *from);
        }
    };
    begin(target, source);
    if (stack.isEmpty())
        KV_REPORT(errors, ItemMergeFailed, merging);
    while (!stack.isEmpty()) {
        const MergeStack::Pair pair = stack.top();
        KvCInventoryItem* child = isFailed ? nullptr : pair.source->getFirstSubItem();
        if (child == nullptr) {
            if (isFailed)
                KV_REPORT(errors, ItemMergeFailed, merging);
            delete pair.source;
            stack.pop();
            isFailed = !stack.isEmpty() && errors.getErrorCount() != pair.errorsBefore;
            continue;
        }
        pair.source->detachChild(child);
        const KvCInventoryAddress id = child->getID();
        if (KvCInventoryItem* present = pair.target->findItem(id, 1))
            begin(present, child);
        else
            pair.target->attachDetached(child);
    }
}

bool KvCInventoryItem::isSharedData() const
{
    return getClassId() == KvNInventoryIDs::SHARED_DATA.getCategory();
}

/** What `child` is to be linked to by its SHARED_DATA_INDEX parameter, if it has one; `isEntered` tells whether the
    linking goes on in the child at all. */
KvCInventoryItem* KvCInventoryItem::sharedDataForChild(KvCErrorListPool& errors, const KvCInventoryItem& child,
                                                       bool& isEntered) const
{
    isEntered = true;
    const KvCInventoryParameter* index = child.getOwnParameter(KvNInventoryIDs::SHARED_DATA_INDEX.getCategory());
    if (index == nullptr)
        return nullptr;
    const KvCInventoryAddress id = KvNInventoryIDs::SHARED_DATA[index->getValue<KvUInt32>(errors)];
    KvCInventoryItem* shared = findItem(id, 1);
    isEntered = shared != nullptr;
    if (!isEntered)
        KV_WARN(SharedDataMissing, linking, child.getAddress().toString(), id.toString());
    return shared;
}

/** The counterpart of `child` below the item that this one is linked to; null when the child is not to be linked. */
KvCInventoryItem* KvCInventoryItem::counterpartOfChild(const KvCInventoryItem& child) const
{
    const KvCInventoryAddress& index = KvNInventoryIDs::SHARED_DATA_INDEX;
    if (child.getOwnParameter(index.getCategory()) != nullptr) {
        KV_WARN(SharedDataNested, linking, child.getAddress().toString(), index.toString());
        return nullptr;
    }
    return static_cast<const KvCInventoryItem*>(getFriend())->findItem(child.getID(), 1);
}

void KvCInventoryItem::linkSharedData(KvCInventoryItem* shared)
{
    KvCErrorListPool& errors = KvCErrorManager::createErrorList(0, 1, 20, 5, 300);
    // Above `linkedTop` shared data is searched for; from there down each item is linked to its counterpart.
    KvCInventoryItem* linkedTop = nullptr;
    KvCInventoryItem* node = this;
    for (bool isEntered = true;;) {
        if (isEntered && node->isSharedData()) {
            if (shared != nullptr)
                KV_WARN(SharedDataInSharedData, linking, node->getAddress().toString(),
                        KvNInventoryIDs::SHARED_DATA_INDEX.toString());
            isEntered = false;
        } else if (isEntered && shared != nullptr) {
            linkedTop = linkedTop == nullptr ? node : linkedTop;
            node->setFriend(shared);
            isEntered = node->getFriend() != nullptr;
        }
        KvCInventoryItem* next = isEntered ? node->getFirstSubItem() : nullptr;
        while (next == nullptr && node != this) {
            next = node->getNext();
            linkedTop = linkedTop == node ? nullptr : linkedTop;
            if (next == nullptr)
                node = static_cast<KvCInventoryItem*>(KvNCompositeWalk::holderOf(node));
        }
        if (next == nullptr)
            break;
        const auto* parent = static_cast<const KvCInventoryItem*>(KvNCompositeWalk::holderOf(next));
        node = next;
        if (linkedTop == nullptr) {
            shared = parent->sharedDataForChild(errors, *node, isEntered);
        } else {
            shared = parent->counterpartOfChild(*node);
            isEntered = shared != nullptr;
        }
    }
    KvCErrorManager::deleteErrorList(errors);
}
