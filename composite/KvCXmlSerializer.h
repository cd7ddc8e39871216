#pragma once

#include "composite/KvCCompositeTraverse.h"

class KvCBuffer;

/**
 * Writes a tree as lines of elements into a buffer of its own, for diagnosis: a line-oriented dump, not well-formed
 * XML.
 */
class KV_EXPORT KvCXmlSerializer : public KvCCompositeTraverse
{
public:
    static constexpr KvUInt32 GraphMode = 0x100;  ///< an edge for every node that has a parent, nothing else
    static constexpr KvUInt32 ItemMode = 0x200;   ///< ITEM and PARAM instead of COMPOSITE and PARAMETER

    KvCXmlSerializer(KvCErrorListPool& errors, KvUInt32 mode);
    KvCXmlSerializer(const KvCXmlSerializer&) = delete;
    KvCXmlSerializer& operator=(const KvCXmlSerializer&) = delete;
    ~KvCXmlSerializer() override;

    void CompositeStart(KvCErrorListPool& errors, KvCComposite* composite) override;
    void CompositeEnd(KvCErrorListPool& errors, KvCComposite* composite) override;
    void CompositeParameter(KvCErrorListPool& errors, const KvCParam* parameter) override;

    /** The text written so far; null when memory was out. */
    KvCBuffer* getBuffer() const { return m_buffer; }
    KvUInt32 getXmlMode() const { return m_xmlMode; }
    void setXmlMode(KvUInt32 mode) { m_xmlMode = mode; }

private:
    void indent(KvCErrorListPool& errors);
    void print(KvCErrorListPool& errors, int limit, const char* format, ...);

    KvCBuffer* m_buffer = nullptr;
    KvUInt32 m_xmlMode;
    KvUInt32 m_depth = 0;
};
