#include "composite/ParamIndex.h"

using Traits = KvPListTraits<KvCParam*>;

std::atomic<KvUInt32> Traits::Index::s_idChanges{0};

Traits::Index* Traits::Index::make(const KvPListNode<KvCParam*>* front)
{
    auto* index = new Index;
    if (index == nullptr)
        return nullptr;
    for (const auto* node = front; index != nullptr && node != nullptr; node = node->getNext())
        appended(index, node->getContent());
    return index;
}

void Traits::Index::noteIdChange()
{
    s_idChanges.fetch_add(1, std::memory_order_relaxed);
}

KvPListNode<KvCParam*>* Traits::take(KvCParam* content)
{
    if (content == nullptr || content->m_nodeIsTaken)
        return nullptr;
    content->m_nodeIsTaken = true;
    return content;
}

bool Traits::giveBack(KvPListNode<KvCParam*>* node)
{
    KvCParam* const content = node->m_content;
    if (content == nullptr || node != static_cast<const KvPListNode<KvCParam*>*>(content))
        return false;
    node->m_content = nullptr;
    node->m_next = nullptr;
    node->m_prev = nullptr;
    content->m_nodeIsTaken = false;
    return true;
}

void Traits::appended(Index*& index, KvCParam* content)
{
    if (index == nullptr || content == nullptr)
        return;
    content->m_isIndexed = true;
    if (!index->isCurrent() || !index->append(content))
        drop(index);
}

void Traits::prepended(Index*& index, KvCParam* content)
{
    if (index == nullptr || content == nullptr)
        return;
    content->m_isIndexed = true;
    if (!index->isCurrent() || !index->prepend(content))
        drop(index);
}

void Traits::removed(Index*& index, KvCParam* content)
{
    if (index == nullptr || content == nullptr)
        return;
    if (!index->isCurrent() || !index->remove(content))
        drop(index);
}

void Traits::drop(Index*& index)
{
    delete index;
    index = nullptr;
}
