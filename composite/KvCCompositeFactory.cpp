#include "composite/KvCCompositeFactory.h"

#include "base/KvCBuffer.h"
#include "base/MessageTables.h"
#include "base/Report.h"
#include "composite/KvCBinDeserializer.h"
#include "composite/KvCBinSerializer.h"
#include "composite/KvCComposite.h"
#include "composite/StreamFormat.h"

namespace {

/** Gives a reader or writer its buffer for the length of a call and takes it back at the end. */
template <class User>
class BufferLoan
{
public:
    BufferLoan(User& user, KvCBuffer* buffer) : m_user(user) { user.setBuffer(buffer); }
    ~BufferLoan() { m_user.setBuffer(nullptr); }
    BufferLoan(const BufferLoan&) = delete;
    BufferLoan& operator=(const BufferLoan&) = delete;

private:
    User& m_user;
};

}  // namespace

KvCCompositeFactory::KvCCompositeFactory(KvCErrorListPool& errors)
{
    KvNMessageTables::registerStream();
    m_buffer = new (errors) KvCBuffer(errors);
    if (m_buffer == nullptr)
        KV_REPORT(errors, OutOfMemory, "KvCCompositeFactory::KvCCompositeFactory");
}

KvCCompositeFactory::~KvCCompositeFactory()
{
    delete m_buffer;
}

KvCComposite* KvCCompositeFactory::createComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId,
                                                   const char* descr, KvCComposite* parent)
{
    constexpr const char* origin = "KvCCompositeFactory::createComposite";
    auto* const composite = new (errors) KvCComposite(errors, classId, unitId, descr);
    if (composite == nullptr) {
        KV_REPORT(errors, OutOfMemory, origin);
        KV_REPORT(errors, CompositeCreateFailed, origin, classId);
        return nullptr;
    }
    const long result = parent == nullptr ? 0 : parent->attach(composite);
    if (result != 0)
        KV_REPORT(errors, CompositeAttachFailed, origin, classId, unitId, parent->getClassId(), parent->getUnitId(),
                  result);
    return composite;
}

void KvCCompositeFactory::serialize(KvCErrorListPool& errors, KvCComposite* root, KvUInt32 traversionMode,
                                    KvCBuffer* buffer)
{
    constexpr const char* origin = "KvCCompositeFactory::serialize";
    const KvNReport::Watch watch(errors);
    KvCBuffer* const target = buffer != nullptr ? buffer : m_buffer;
    if (target == nullptr) {
        KV_REPORT(errors, StreamNoBuffer, origin);
        return;
    }
    if (buffer == nullptr)
        target->initBuffer(errors);
    if (watch.grew())
        return;
    KvCBinSerializer temporary(errors);
    KvCBinSerializer& serializer = m_serializer != nullptr ? *m_serializer : temporary;
    const BufferLoan loan(serializer, target);
    serializer.setTraversionMode(traversionMode);
    serializer.serialize(errors, root);
}

void KvCCompositeFactory::serializeParameter(KvCErrorListPool& errors, KvCBuffer* buffer, const KvCParam* parameter)
{
    if (m_serializer == nullptr || buffer == nullptr || parameter == nullptr)
        return;
    const BufferLoan loan(*m_serializer, buffer);
    m_serializer->CompositeParameter(errors, parameter);
}

KvCComposite* KvCCompositeFactory::deserialize(KvCErrorListPool& errors, KvCComposite* root, KvCBuffer* buffer)
{
    KvCBinDeserializer temporary(errors);
    KvCBinDeserializer& deserializer = m_deserializer != nullptr ? *m_deserializer : temporary;
    const BufferLoan loan(deserializer, buffer != nullptr ? buffer : m_buffer);
    deserializer.setRoot(root);
    deserializer.setFactory(this);
    deserializer.deserialize(errors);
    temporary.dropFreeParameter();
    return deserializer.getSerializationRoot();
}

void KvCCompositeFactory::deserializeParameter(KvCErrorListPool& errors, KvCParam*& parameter, KvCBuffer* buffer)
{
    parameter = nullptr;
    if (m_deserializer == nullptr || buffer == nullptr)
        return;
    KvCBinDeserializer& reader = *m_deserializer;
    const BufferLoan loan(reader, buffer);
    KvCComposite* const active = reader.getActElement();
    reader.setActElement(nullptr);
    unsigned char tag = 0;
    buffer->readBuffer(errors, &tag, KvNStream::TagSize);
    const bool isThere = buffer->getReadPosition() <= buffer->getWritePosition();
    if (isThere && tag == KvNStream::ParameterTag) {
        reader.CompositeParameter(errors);
        parameter = reader.getActParameter();
    }
    if (buffer->getReadPosition() > buffer->getWritePosition())
        reader.reportStop(errors, isThere ? tag : static_cast<unsigned char>(0));
    reader.setActElement(active);
}

KvCComposite* KvCCompositeFactory::getParentNode(KvCErrorListPool&) const
{
    return m_deserializer == nullptr ? nullptr : m_deserializer->getActElement();
}
