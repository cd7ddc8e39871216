#include "composite/KvCParamList.h"

#include <cstdio>
#include <cstring>

#include "base/Report.h"
#include "composite/KvCParam.h"
#include "composite/ParamIndex.h"

KvCParamList::~KvCParamList()
{
    clear();
}

void KvCParamList::notifyElementAttachment(KvCParam** element)
{
    if (*element != nullptr)
        (*element)->notifyListAttachment();
}

void KvCParamList::notifyElementDetachment(KvCParam** element)
{
    KvCParam* const parameter = *element;
    if (parameter == nullptr)
        return;
    parameter->notifyListDetachment();
    if (parameter->isDeletable())
        delete parameter;
    else if (m_owner != nullptr && parameter->getParent() == m_owner)
        parameter->setParent(nullptr);  // it may outlive the owner
}

KvCParam* KvCParamList::getElementbyId(KvCErrorListPool& errors, KvUInt32 id) const
{
    KvCParam* const parameter = getElementbyId(id);
    if (parameter == nullptr)
        KV_REPORT(errors, ListElementNotFound, "KvCParamList::getElementbyId", id);
    return parameter;
}

KvCParam* KvCParamList::getElementbyId(KvUInt32 id) const
{
    if (m_index != nullptr && m_index->isCurrent())
        return m_index->find(id);
    if (m_count > IndexThreshold) {
        Traits::drop(m_index);
        m_index = Traits::Index::make(m_front);
        if (m_index != nullptr)
            return m_index->find(id);
    }
    for (const auto* node = m_front; node != nullptr; node = node->getNext())
        if (node->getContent() != nullptr && node->getContent()->getId() == id)
            return node->getContent();
    return nullptr;
}

KvCParam* KvCParamList::getElementbyDescr(const char* descr) const
{
    if (descr == nullptr)
        return nullptr;
    for (const auto* node = m_front; node != nullptr; node = node->getNext()) {
        KvCParam* const parameter = node->getContent();
        if (parameter != nullptr && parameter->getDescr() != nullptr && std::strcmp(parameter->getDescr(), descr) == 0)
            return parameter;
    }
    return nullptr;
}

KvCParam* KvCParamList::getElementbyIndex(KvUInt32 index) const
{
    return getElementbyIndex(index, nullptr);
}

KvCParam* KvCParamList::getElementbyIndex(KvUInt32 index, Filter filter) const
{
    if (index >= m_count)
        return nullptr;
    const auto isPassed = [filter](const KvPListNode<KvCParam*>* node) {
        return filter != nullptr && !filter(node->getContent());
    };
    const bool isFiltered = filter != nullptr;
    if (m_cursor == nullptr || (m_cursorIsFiltered != 0) != isFiltered || index < m_cursorPlace / 2) {
        m_cursor = m_front;
        while (m_cursor != nullptr && isPassed(m_cursor))
            m_cursor = m_cursor->getNext();
        m_cursorPlace = 0;
        m_cursorIsFiltered = isFiltered ? 1 : 0;
    }
    while (m_cursor != nullptr && m_cursorPlace != index) {
        const bool isForward = m_cursorPlace < index;
        do
            m_cursor = isForward ? m_cursor->getNext() : m_cursor->getPrev();
        while (m_cursor != nullptr && isPassed(m_cursor));
        m_cursorPlace += isForward ? 1U : static_cast<KvUInt32>(-1);
    }
    return m_cursor == nullptr ? nullptr : m_cursor->getContent();
}

void KvCParamList::removeElement(KvCParam* parameter)
{
    if (parameter == nullptr)
        return;
    // A parameter in this list only stands there with its own node: no need to search for it.
    const bool isOwnNode =
        parameter->m_attachments == 1 && parameter->m_nodeIsTaken && getElementbyId(parameter->getId()) == parameter;
    removeListNode(isOwnNode ? parameter : find(parameter));
}

void KvCParamList::syncParameters(KvCErrorListPool&, KvUInt32 mask)
{
    for (const auto* node = m_front; node != nullptr; node = node->getNext())
        if (node->getContent() != nullptr)
            node->getContent()->sync(mask);
}

void KvCParamList::showParameters(int indent) const
{
    for (const auto* node = m_front; node != nullptr; node = node->getNext()) {
        const KvCParam* const parameter = node->getContent();
        std::printf("%*sparameter %i (state: %x)\n", indent + 2, "",
                    parameter == nullptr ? -1 : static_cast<int>(parameter->getId()),
                    parameter == nullptr ? 0U : static_cast<unsigned int>(parameter->getState()));
    }
}
