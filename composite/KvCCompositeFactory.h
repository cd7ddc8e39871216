#pragma once

#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

class KvCBinDeserializer;
class KvCBinSerializer;
class KvCBuffer;
class KvCComposite;
class KvCParam;

/**
 * Turns trees into streams and back, over a buffer of its own or one of the caller's, and dumps trees as text. A
 * derived factory overrides createComposite to make nodes of its own class. Serializer and deserializer may be
 * supplied; they stay the caller's. The first factory of the process registers the message table 0xA00000.
 */
class KV_EXPORT KvCCompositeFactory : public KvNAllocation::Object
{
public:
    explicit KvCCompositeFactory(KvCErrorListPool& errors);
    KvCCompositeFactory(const KvCCompositeFactory&) = delete;
    KvCCompositeFactory& operator=(const KvCCompositeFactory&) = delete;

    // The order of the virtual operations is fixed.
    virtual ~KvCCompositeFactory();
    /** Makes a node and, with a parent, attaches it there; a result of attach other than 0 is reported as 0xA02806.
        After such an error the pointer must not be used: with result -3 the node no longer exists. */
    virtual KvCComposite* createComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId,
                                          const char* descr, KvCComposite* parent);

    /** Writes the tree below and including `root`, behind what `buffer` holds; with null into the factory's own buffer,
        whose earlier content is discarded. */
    void serialize(KvCErrorListPool& errors, KvCComposite* root, KvUInt32 traversionMode, KvCBuffer* buffer);
    /** Writes one parameter record. Only with a supplied serializer. */
    void serializeParameter(KvCErrorListPool& errors, KvCBuffer* buffer, const KvCParam* parameter);
    /** Reads `buffer` (null: the factory's own) below `root` (null: a new tree).
        @return the first node made; null when none was */
    KvCComposite* deserialize(KvCErrorListPool& errors, KvCComposite* root, KvCBuffer* buffer);
    /** Reads one parameter record into a new parameter, which the caller owns; null when the next tag is another one.
        Only with a supplied deserializer. */
    void deserializeParameter(KvCErrorListPool& errors, KvCParam*& parameter, KvCBuffer* buffer);

    KvCBuffer* getBuffer() const { return m_buffer; }
    /** Replaces the factory's own buffer, which becomes the caller's; the new one (may be null) is owned from here. */
    void setBuffer(KvCBuffer* buffer) { m_buffer = buffer; }
    KvCComposite* getRoot() const { return m_root; }
    void setRoot(KvCComposite* root) { m_root = root; }
    void setLibraryRoot(KvCComposite* root) { m_libraryRoot = root; }
    KvCComposite* getLibraryRoot() const { return m_libraryRoot; }
    void setBinarySerializer(KvCBinSerializer* serializer) { m_serializer = serializer; }
    void setBinaryDeserializer(KvCBinDeserializer* deserializer) { m_deserializer = deserializer; }
    /** The node that the supplied deserializer reads into; null without one. */
    KvCComposite* getParentNode(KvCErrorListPool& errors) const;

    /** Prints the subtree as a coloured tree to standard output, with its parameters on request. */
    static void printAsciiComposite(KvCErrorListPool& errors, KvCComposite* composite, unsigned char withParameters);
    /** Writes the subtree to the file "SystemManagerDump.xml"; the mode is that of KvCXmlSerializer. */
    static void printXmlComposite(KvCErrorListPool& errors, KvCComposite* composite, KvUInt32 mode);

private:
    KvCBuffer* m_buffer = nullptr;
    KvCComposite* m_root = nullptr;
    KvCComposite* m_libraryRoot = nullptr;
    KvCBinSerializer* m_serializer = nullptr;
    KvCBinDeserializer* m_deserializer = nullptr;
};
