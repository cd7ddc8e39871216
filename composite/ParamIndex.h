#pragma once

#include <atomic>

#include "composite/FirstMatchIndex.h"
#include "composite/KvCParam.h"
#include "composite/KvPList.h"

struct ParamIdKey
{
    static KvUInt32 of(const KvCParam* parameter) { return parameter->getId(); }
};

/** The index of a long parameter list by id. It is out of date as soon as any parameter that stands in an index is
    given another id. */
struct KvPListTraits<KvCParam*>::Index : FirstMatchIndex<KvCParam, ParamIdKey, 16>
{
    /** An index of the list that starts with `front`; null when memory is out. */
    static Index* make(const KvPListNode<KvCParam*>* front);
    bool isCurrent() const { return idChanges == s_idChanges.load(std::memory_order_relaxed); }
    /** Notes that an indexed parameter has another id now. */
    static void noteIdChange();

    KvUInt32 idChanges = s_idChanges.load(std::memory_order_relaxed);

private:
    /** How often an indexed parameter was given another id, in any tree of the process. */
    static std::atomic<KvUInt32> s_idChanges;
};
