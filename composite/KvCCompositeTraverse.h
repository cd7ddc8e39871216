#pragma once

#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

class KvCComposite;
class KvCParam;

/**
 * Walks a tree depth first, at any depth on a normal stack, and calls three hooks: at a node, at each of its parameters
 * and behind its children. The traversion mode filters nodes and parameters (StreamFormat.h has the bits).
 */
class KV_EXPORT KvCCompositeTraverse : public KvNAllocation::Object
{
public:
    KvCCompositeTraverse() = default;
    KvCCompositeTraverse(const KvCCompositeTraverse&) = default;
    KvCCompositeTraverse& operator=(const KvCCompositeTraverse&) = default;

    // The order of the virtual operations is fixed. The hooks do nothing here.
    virtual ~KvCCompositeTraverse();
    virtual void CompositeStart(KvCErrorListPool& errors, KvCComposite* composite);
    virtual void CompositeEnd(KvCErrorListPool& errors, KvCComposite* composite);
    virtual void CompositeParameter(KvCErrorListPool& errors, const KvCParam* parameter);

    /** Visits `root` (null: nothing) and everything below it. */
    void traverse(KvCErrorListPool& errors, KvCComposite* root);
    /** Calls CompositeParameter for each parameter of the node that passes the mode's filters. */
    void handleParameter(KvCErrorListPool& errors, KvCComposite* composite);

    KvUInt32 getTraversionMode() const { return m_mode; }
    void setTraversionMode(KvUInt32 mode) { m_mode = mode; }

private:
    KvUInt32 m_mode = 0;
};
