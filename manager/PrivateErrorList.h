#pragma once

#include "platform/errorhandling/KvCErrorManager.h"

/**
 * An error list for what must not reach a caller's: delivered to the error manager's output, and given back, at the end
 * of its scope.
 */
class PrivateErrorList
{
public:
    PrivateErrorList() : m_list(KvCErrorManager::createErrorList(0, 1, 20, 5, 300)) {}
    ~PrivateErrorList()
    {
        KvCErrorManager::sendErrorList(m_list, 0);
        KvCErrorManager::deleteErrorList(m_list);
    }
    PrivateErrorList(const PrivateErrorList&) = delete;
    PrivateErrorList& operator=(const PrivateErrorList&) = delete;

    KvCErrorListPool& get() { return m_list; }

private:
    KvCErrorListPool& m_list;
};
