#pragma once

#include "composite/KvCCompositeTraverse.h"

class KvCBuffer;

/**
 * Writes a tree as the tagged binary stream of StreamFormat.h into a buffer, which the caller owns (also one that
 * `serialize` had to make). May be used again: the buffer then goes on growing.
 */
class KV_EXPORT KvCBinSerializer : public KvCCompositeTraverse
{
public:
    explicit KvCBinSerializer(KvCErrorListPool& errors);
    ~KvCBinSerializer() override;

    void CompositeStart(KvCErrorListPool& errors, KvCComposite* composite) override;
    void CompositeEnd(KvCErrorListPool& errors, KvCComposite* composite) override;
    /** Writes one parameter record; nothing without a buffer. A type that does not exist is reported as 0xA01001 and
        leaves the record unfinished. */
    void CompositeParameter(KvCErrorListPool& errors, const KvCParam* parameter) override;
    /** Writes the custom data of a parameter with flag 0x10000 behind its value. Here: nothing. */
    virtual void handleCustomParameter(KvCErrorListPool& errors, const KvCParam* parameter);

    /** Writes the tree below and including `root`. Makes a buffer when there is none. A failure ends with 0xA01800. */
    void serialize(KvCErrorListPool& errors, KvCComposite* root);

    KvCBuffer* getBuffer() const { return m_buffer; }
    void setBuffer(KvCBuffer* buffer) { m_buffer = buffer; }

protected:
    /** Writes the tree below and including `root` in one go, or gives false and leaves it to the operations above,
       which a derived class may have overridden. Here: false. There is a buffer. */
    virtual bool writeUsual(KvCErrorListPool& errors, KvCComposite* root);

private:
    KvCBuffer* m_buffer = nullptr;
};
