#pragma once

#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

class KvCBuffer;
class KvCComposite;
class KvCCompositeFactory;
class KvCParam;
class StreamReader;

/**
 * Reads the tagged binary stream of StreamFormat.h: makes nodes through a factory and merges values into what exists.
 * Below a root that the caller set, nodes and parameters that are there are continued in, and exactly the parameters
 * whose value changed get state bit 0x400000 (texts and versions are always set and never marked). Nothing is ever
 * removed. Owns neither the tree nor the buffer. What was read before a failure stays.
 */
class KV_EXPORT KvCBinDeserializer : public KvNAllocation::Object
{
public:
    explicit KvCBinDeserializer(KvCErrorListPool& errors);
    KvCBinDeserializer(const KvCBinDeserializer&) = delete;
    KvCBinDeserializer& operator=(const KvCBinDeserializer&) = delete;

    // The order of the virtual operations is fixed.
    virtual ~KvCBinDeserializer();
    /** Reads a start record behind its tag. */
    virtual void CompositeStart(KvCErrorListPool& errors);
    /** Acts on an end record: the active element's parent becomes active. 0xA01000 when there is no active element. */
    virtual void CompositeEnd(KvCErrorListPool& errors);
    /** Reads a parameter record behind its tag. 0xA01001 type, 0xA01002 size, 0xA01003 no buffer. */
    virtual void CompositeParameter(KvCErrorListPool& errors);
    /** Makes the parameter for a record with flag 0x10000; `descr` is only valid during the call. Null when memory is
        out. */
    virtual KvCParam* createCustomParameter(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 type, const char* descr);
    /** Reads the custom data behind the value of a record with flag 0x10000. The parameter may be one that was there
        before and need not have the flag itself. Here: nothing. */
    virtual void handleCustomParameter(KvCErrorListPool& errors, KvCParam* parameter);
    /** Makes the parameter for a record without flag 0x10000, as createCustomParameter does for one with it. Here: a
        KvCParam. */
    virtual KvCParam* createPlainParameter(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 type, const char* descr);

    /** Reads the whole buffer from its start. 0xA01003 no buffer, 0xA01004 no factory, 0xA02000 (tag, read position,
        write position) behind every other failure. */
    void deserialize(KvCErrorListPool& errors);

    /** Makes an empty buffer and uses it as source; the caller owns it (getBuffer). */
    void createBuffer(KvCErrorListPool& errors);
    KvCBuffer* getBuffer() const { return m_buffer; }
    void setBuffer(KvCBuffer* buffer) { m_buffer = buffer; }
    void setFactory(KvCCompositeFactory* factory) { m_factory = factory; }
    /** Reading goes on below this node; null: the first start record makes the root. */
    void setRoot(KvCComposite* root);
    KvCComposite* getRoot() const { return m_root; }
    /** The first node made by the last deserialize; null when it made none. */
    KvCComposite* getSerializationRoot() const { return m_serializationRoot; }
    /** The node that records are read into. */
    KvCComposite* getActElement() const { return m_actElement; }
    void setActElement(KvCComposite* element)
    {
        m_actElement = element;
        m_fresh.element = nullptr;
    }
    /** The parameter of the last parameter record. One that was read without an active element is nobody's: the caller
        takes it over, or has it destroyed with dropFreeParameter(). */
    KvCParam* getActParameter() const { return m_actParameter; }
    /** Destroys the parameter of the last parameter record when it was read without an active element. */
    void dropFreeParameter();

protected:
    /** What became of the records that readUsual was offered. */
    struct UsualRecords
    {
        bool isStopped = false;  ///< a record was abandoned, which was reported
        unsigned char tag = 0;   ///< of that record
    };
    /** Reads as many records as a derived class can take at once, from the read position, which stands at a tag, and
        moves it behind them. Whatever is not as usual, or not whole, is left to the operations above. Here: none. */
    virtual UsualRecords readUsual(KvCErrorListPool& errors);

    // What readUsual may use. There is an active element for all but isBelowGivenRoot and getFactory.
    KvCCompositeFactory* getFactory() const { return m_factory; }
    /** Whether nodes and parameters may be there already. */
    bool isBelowGivenRoot() const { return m_rootIsGiven; }
    /** Whether the active element has no parameter with this id. */
    bool isNewParameter(KvUInt32 id) const;
    /** Gives the active element a parameter that isNewParameter. */
    void addNewParameter(KvCParam* parameter);
    /** Gives the active element a child, whose ids no other child of it has, and makes that the active element. */
    void enterNewChild(KvCComposite* child);
    /** The active element's parent becomes the active element. */
    void leaveElement();

private:
    friend class KvCCompositeFactory;
    struct Record;

    /** Knows of most ids that the active element does not have them, as long as nothing but this reader adds any. */
    struct FreshIds
    {
        static KvUInt64 bitOf(KvUInt32 id) { return KvUInt64{1} << (id * 0x9E3779B1U >> 26); }
        void note(KvUInt32 id)
        {
            ++count;
            largest = id > largest ? id : largest;
            bits |= bitOf(id);
        }
        bool lacks(KvUInt32 id) const { return count == 0 || id > largest || (bits & bitOf(id)) == 0; }

        const KvCComposite* element = nullptr;
        KvUInt32 count = 0;
        KvUInt32 largest = 0;
        KvUInt64 bits = 0;
    };

    bool readRecord(KvCErrorListPool& errors, unsigned char tag);
    void reportStop(KvCErrorListPool& errors, unsigned char tag) const;
    KvCParam* makeParameter(KvCErrorListPool& errors, const Record& record);
    bool keepParameter(KvCErrorListPool& errors, KvUInt32 searchedId, KvCParam* parameter);
    bool readBody(KvCErrorListPool& errors, StreamReader& reader, const Record& record, KvCParam& parameter, bool isNew,
                  KvUInt32 start);

    KvCBuffer* m_buffer = nullptr;
    KvCComposite* m_root = nullptr;
    KvCComposite* m_serializationRoot = nullptr;
    KvCComposite* m_actElement = nullptr;
    KvCCompositeFactory* m_factory = nullptr;
    KvCParam* m_actParameter = nullptr;
    mutable FreshIds m_fresh;
    bool m_actParameterIsFree = false;
    bool m_rootIsGiven = false;
};
