#pragma once

#include "composite/KvCBinDeserializer.h"
#include "composite/KvCBinSerializer.h"
#include "platform/errorhandling/ObjectSlabs.h"

/**
 * What an inventory parameter adds to its record in the tagged binary stream, behind the value: the length of the unit
 * (1 byte, at most 100), the unit without terminator, the modifiable flag (1 byte) and the relevance (4 bytes).
 * docs/formats.md describes it with an example. Part of stored and transmitted formats: nothing here may ever change.
 */
namespace KvNInventoryStream {

inline constexpr KvUInt32 UnitLimit = 100;
/** Kept: a unit's length is reduced to its low 8 bits before it is limited, so that a unit of 300 characters is written
    with its first 44. */
inline constexpr KvUInt32 UnitLengthMask = 0xFF;
inline constexpr unsigned char ModifiableByte = 0xFF;  ///< any value but 0 is read as true
inline constexpr KvUInt32 RelevanceSize = 4;

}  // namespace KvNInventoryStream

/** Writes inventory trees: the stream of its base class with the custom data of KvNInventoryStream. */
class KvCInventoryBinSerializer final : public KvCBinSerializer
{
public:
    using KvCBinSerializer::KvCBinSerializer;
    void handleCustomParameter(KvCErrorListPool& errors, const KvCParam* parameter) override;

protected:
    bool writeUsual(KvCErrorListPool& errors, KvCComposite* root) override;
};

/** Reads inventory trees into new ones: every parameter is an inventory parameter, also one whose record has no custom
    data. The first tree of the stream is the caller's; what follows it is checked and destroyed. */
class KvCInventoryBinDeSerializer final : public KvCBinDeserializer
{
public:
    using KvCBinDeserializer::KvCBinDeserializer;
    ~KvCInventoryBinDeSerializer() override;
    void CompositeStart(KvCErrorListPool& errors) override;
    KvCParam* createCustomParameter(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 type, const char* descr) override;
    /** 0x1302000 for a unit length above 100; nothing more of the record is read then. */
    void handleCustomParameter(KvCErrorListPool& errors, KvCParam* parameter) override;
    KvCParam* createPlainParameter(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 type, const char* descr) override;

protected:
    UsualRecords readUsual(KvCErrorListPool& errors) override;

private:
    class StreamItem;
    class StreamParameter;
    struct UsualReader;

    // Apart, so that a walk over items alone finds them side by side.
    ObjectSlabs m_itemSlabs;
    ObjectSlabs m_parameterSlabs;
};
