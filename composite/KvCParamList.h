#pragma once

#include "composite/KvPList.h"

class KvCComposite;

/**
 * The parameters of one composite, in order. The list counts itself on each parameter that it holds and destroys a
 * parameter when the last list lets go of it; with its composite it ends in bulk (KvNFreshTree). Looking up an id takes
 * the same time in lists of any length and gives the first match in order.
 */
class KV_EXPORT KvCParamList : public KvPList<KvCParam*>
{
public:
    /** `owner` (may be null) is the composite that the parameters belong to; not owned. */
    explicit KvCParamList(KvCComposite* owner) : m_owner(owner) { m_keepsContent = 1; }
    ~KvCParamList() override;

    void notifyElementAttachment(KvCParam** element) override;
    void notifyElementDetachment(KvCParam** element) override;

    KvCComposite* getOwner() const { return m_owner; }

    /** The first parameter with this id; else null, reported as 0x601801. */
    KvCParam* getElementbyId(KvCErrorListPool& errors, KvUInt32 id) const;
    /** The first parameter with this id, or null. */
    KvCParam* getElementbyId(KvUInt32 id) const;
    /** The first parameter with exactly this description, or null; parameters without one never match. */
    KvCParam* getElementbyDescr(const char* descr) const;
    /** The parameter at this place, from 0; null past the end. Going through a list place by place takes linear time.
     */
    KvCParam* getElementbyIndex(KvUInt32 index) const;
    using Filter = bool (*)(KvCParam*);
    /** The same, counting only the parameters for which `filter` is true; the same one each time for one list. */
    KvCParam* getElementbyIndex(KvUInt32 index, Filter filter) const;

    /** Takes the parameter out, which may destroy it; does nothing for a parameter that the list does not hold. */
    void removeElement(KvCParam* parameter);

    /** Calls sync(mask) on each parameter in order. */
    void syncParameters(KvCErrorListPool& errors, KvUInt32 mask);
    /** Prints id and state of each parameter to standard output, indented by `indent` + 2 blanks. */
    void showParameters(int indent) const;

private:
    friend struct KvNFreshTree;

    KvCComposite* m_owner;
};
