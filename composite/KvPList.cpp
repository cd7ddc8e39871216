#include "composite/KvPList.h"

#include "base/Report.h"
#include "composite/KvCParam.h"
#include "composite/ParamIndex.h"

template <class T>
KvPList<T>::~KvPList()
{
    clear();
}

template <class T>
bool KvPList<T>::isEqual(T first, T second)
{
    return first == second;
}

template <class T>
void KvPList<T>::notifyElementAttachment(T*)
{}

template <class T>
void KvPList<T>::notifyElementDetachment(T*)
{}

template <class T>
T* KvPList<T>::pushBack(const T& element)
{
    KvPListNode<T>* const node = makeNode(element);
    if (node == nullptr)
        return nullptr;
    linkBack(node);
    return &node->m_content;
}

template <class T>
T* KvPList<T>::pushBack(KvCErrorListPool& errors, const T& element)
{
    T* const content = pushBack(element);
    if (content == nullptr)
        KV_REPORT(errors, ConfigurationInsertFailed, "KvPList<class KvCParam *>::pushBack");
    return content;
}

template <class T>
T* KvPList<T>::pushFront(const T& element)
{
    KvPListNode<T>* const node = makeNode(element);
    if (node == nullptr)
        return nullptr;
    linkFront(node);
    return &node->m_content;
}

template <class T>
T* KvPList<T>::pushFront(KvCErrorListPool& errors, const T& element)
{
    T* const content = pushFront(element);
    if (content == nullptr)
        KV_REPORT(errors, ConfigurationInsertFailed, "KvPList<class KvCParam *>::pushFront");
    return content;
}

template <class T>
void KvPList<T>::removeListNode(KvPListNode<T>* node)
{
    if (node == nullptr)
        return;
    if (node->m_prev != nullptr)
        node->m_prev->m_next = node->m_next;
    else
        m_front = node->m_next;
    if (node->m_next != nullptr)
        node->m_next->m_prev = node->m_prev;
    else
        m_back = node->m_prev;
    m_cursor = nullptr;
    --m_count;
    T content = node->m_content;
    Traits::removed(m_index, content);
    freeNode(node);
    // The node may stand inside its content, which the hook may destroy: it is told last.
    notifyElementDetachment(&content);
}

template <class T>
void KvPList<T>::clear()
{
    KvPListNode<T>* node = m_front;
    m_front = nullptr;
    m_back = nullptr;
    m_cursor = nullptr;
    m_count = 0;
    Traits::drop(m_index);
    while (node != nullptr) {
        KvPListNode<T>* const next = node->m_next;
        T content = node->m_content;
        freeNode(node);
        notifyElementDetachment(&content);
        node = next;
    }
}

template <class T>
KvPListNode<T>* KvPList<T>::find(const T& element)
{
    for (KvPListNode<T>* node = m_front; node != nullptr; node = node->m_next)
        if (isEqual(node->m_content, element))
            return node;
    return nullptr;
}

template <class T>
T* KvPList<T>::findContent(T& element)
{
    KvPListNode<T>* const node = find(element);
    return node == nullptr ? nullptr : &node->m_content;
}

/** A node that holds the element, which has been told; null when memory is out. */
template <class T>
KvPListNode<T>* KvPList<T>::makeNode(const T& element)
{
    KvPListNode<T>* node = m_keepsContent != 0 ? Traits::take(element) : nullptr;
    if (node == nullptr)
        node = new KvPListNode<T>;
    if (node == nullptr)
        return nullptr;
    node->m_content = element;
    notifyElementAttachment(&node->m_content);
    return node;
}

template <class T>
void KvPList<T>::linkBack(KvPListNode<T>* node)
{
    node->m_prev = m_back;
    node->m_next = nullptr;
    if (m_back != nullptr)
        m_back->m_next = node;
    else
        m_front = node;
    m_back = node;
    ++m_count;
    Traits::appended(m_index, node->m_content);
}

template <class T>
void KvPList<T>::linkFront(KvPListNode<T>* node)
{
    node->m_next = m_front;
    node->m_prev = nullptr;
    if (m_front != nullptr)
        m_front->m_prev = node;
    else
        m_back = node;
    m_front = node;
    m_cursor = nullptr;
    ++m_count;
    Traits::prepended(m_index, node->m_content);
}

template <class T>
void KvPList<T>::freeNode(KvPListNode<T>* node)
{
    if (!Traits::giveBack(node))
        delete node;
}

template class KvPListNode<KvCParam*>;
template class KvPList<KvCParam*>;
