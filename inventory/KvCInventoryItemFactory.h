#pragma once

#include "composite/KvCCompositeFactory.h"
#include "platform/KvExport.h"

class KvCInventoryItem;
class KvCInventoryParameter;

/**
 * Writes inventory trees and parameters as the tagged binary stream, each parameter with its unit, modifiable flag and
 * relevance, and reads them back. Designated values, hooks and auxiliary pointers are not part of the stream. A factory
 * is used by one thread at a time.
 */
class KV_EXPORT KvCInventoryItemFactory : protected KvCCompositeFactory
{
public:
    using KvCCompositeFactory::operator new;
    using KvCCompositeFactory::operator delete;

    explicit KvCInventoryItemFactory(KvCErrorListPool& errors);
    ~KvCInventoryItemFactory() override;

    /** Makes an item and attaches it to `parent` (null: nowhere). A result of attach other than 0 is reported as
        0x1302806, memory that is out as 0x130080c; null then. */
    KvCComposite* createComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId, const char* descr,
                                  KvCComposite* parent) override;

    /** Appends the tree below and including `root` to `out`. 0x1302803 behind the cause of a failure. */
    void serialize(KvCErrorListPool& errors, KvCBuffer* out, KvCInventoryItem* root);
    /** Reads one tree from the start of `in` to its write position; `root` receives it, owned by the caller. Null, and
        0x1302801 behind the cause, when that fails; null and no error for an empty buffer. */
    void deserialize(KvCErrorListPool& errors, KvCInventoryItem*& root, KvCBuffer* in);

    /** Appends one parameter record to `out`. 0x1302804 behind the cause of a failure. */
    void serializeInventoryParameter(KvCErrorListPool& errors, KvCBuffer* out, const KvCInventoryParameter* param);
    /** Reads one parameter record from the read position of `in`; `param` receives it, owned by the caller. Null, and
        0x1302800 behind the cause, when that fails; null and no error when the next tag is another one. */
    void deserializeInventoryParameter(KvCErrorListPool& errors, KvCInventoryParameter*& param, KvCBuffer* in);
};
