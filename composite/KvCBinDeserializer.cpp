#include "composite/KvCBinDeserializer.h"

#include <cstring>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "composite/FreshTree.h"
#include "composite/KvCComposite.h"
#include "composite/KvCCompositeFactory.h"
#include "composite/StreamFormat.h"
#include "composite/StreamReader.h"
#include "composite/ValueCodec.h"
#include "platform/KvPrefetch.h"

using namespace KvNStream;

namespace {

constexpr const char* parameterOrigin = "KvCBinDeserializer::CompositeParameter";

KvUInt32 numberAt(const char* bytes)
{
    return KvNBigEndian::load<KvUInt32>(bytes);
}

/** The description behind its length byte, with a NUL in any case. */
struct Description
{
    bool read(StreamReader& reader, unsigned char length)
    {
        const char* const bytes = reader.take({length});
        if (bytes == nullptr)
            return false;
        std::memcpy(text, bytes, length);
        text[length] = '\0';
        return true;
    }

    char text[DescriptionArea];
};

}  // namespace

/** The fields of a parameter record in front of its value. */
struct KvCBinDeserializer::Record
{
    bool read(StreamReader& reader)
    {
        const char* const fields = reader.take({4, 4, 4, 1});
        if (fields == nullptr)
            return false;
        length = numberAt(fields);
        id = numberAt(fields + 4);
        type = numberAt(fields + 8);
        return description.read(reader, static_cast<unsigned char>(fields[12]));
    }
    bool isCustom() const { return (type & KvNElement::CustomFlag) != 0; }

    KvUInt32 length = 0;
    KvUInt32 id = 0;
    KvUInt32 type = 0;
    Description description;
};

KvCBinDeserializer::KvCBinDeserializer(KvCErrorListPool&) {}
KvCBinDeserializer::~KvCBinDeserializer() = default;
void KvCBinDeserializer::handleCustomParameter(KvCErrorListPool&, KvCParam*) {}

KvCParam* KvCBinDeserializer::createCustomParameter(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 type,
                                                    const char* descr)
{
    return new (errors) KvCParam(errors, id, descr, type);
}

KvCParam* KvCBinDeserializer::createPlainParameter(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 type,
                                                   const char* descr)
{
    return new (errors) KvCParam(errors, id, descr, type);
}

void KvCBinDeserializer::createBuffer(KvCErrorListPool& errors)
{
    m_buffer = new (errors) KvCBuffer(errors);
    if (m_buffer == nullptr)
        KV_REPORT(errors, OutOfMemory, "KvCBinDeserializer::createBuffer");
}

void KvCBinDeserializer::setRoot(KvCComposite* root)
{
    m_root = root;
    m_rootIsGiven = root != nullptr;
}

void KvCBinDeserializer::deserialize(KvCErrorListPool& errors)
{
    constexpr const char* origin = "KvCBinDeserializer::deserialize";
    if (m_buffer == nullptr) {
        KV_REPORT(errors, StreamNoBuffer, origin);
        return;
    }
    if (m_factory == nullptr) {
        KV_REPORT(errors, StreamNoFactory, origin);
        return;
    }
    KvCBuffer& buffer = *m_buffer;
    buffer.setReadPosition(errors, 0);
    m_actElement = m_root;
    m_serializationRoot = nullptr;
    m_actParameter = nullptr;
    m_actParameterIsFree = false;
    m_fresh.element = nullptr;
    while (buffer.getReadPosition() < buffer.getWritePosition()) {
        dropFreeParameter();
        const UsualRecords usual = readUsual(errors);
        if (usual.isStopped) {
            if (usual.tag == ParameterTag)
                m_actParameter = nullptr;
            reportStop(errors, usual.tag);
            return;
        }
        if (buffer.getReadPosition() == buffer.getWritePosition())
            return;
        const KvNReport::Watch watch(errors);
        const auto tag = static_cast<unsigned char>(*buffer.getReadPointer());
        buffer.setReadPosition(errors, buffer.getReadPosition() + TagSize);
        if (!readRecord(errors, tag) || watch.grew() || buffer.getReadPosition() > buffer.getWritePosition()) {
            reportStop(errors, tag);
            return;
        }
    }
}

/** Reads the record behind its tag; false for a tag that does not exist. */
bool KvCBinDeserializer::readRecord(KvCErrorListPool& errors, unsigned char tag)
{
    switch (tag) {
        case StartTag:
            CompositeStart(errors);
            return true;
        case EndTag:
            CompositeEnd(errors);
            return true;
        case ParameterTag:
            CompositeParameter(errors);
            return true;
        default:
            return false;
    }
}

void KvCBinDeserializer::reportStop(KvCErrorListPool& errors, unsigned char tag) const
{
    KV_REPORT(errors, StreamUnknownTag, "KvCBinDeserializer::deserialize", tag, m_buffer->getReadPosition(),
              m_buffer->getWritePosition());
}

KvCBinDeserializer::UsualRecords KvCBinDeserializer::readUsual(KvCErrorListPool&)
{
    return {};
}

bool KvCBinDeserializer::isNewParameter(KvUInt32 id) const
{
    const KvCParamList& list = m_actElement->m_list;
    if (list.isEmpty())
        m_fresh = {m_actElement};
    const bool isFresh = m_fresh.element == m_actElement && m_fresh.count == list.getCount();
    return (isFresh && m_fresh.lacks(id)) || m_actElement->getParameterById(id) == nullptr;
}

void KvCBinDeserializer::addNewParameter(KvCParam* parameter)
{
    KvNFreshTree::append(*m_actElement, *parameter);
    m_fresh.note(parameter->getId());
    m_actParameter = parameter;
    m_actParameterIsFree = false;
}

void KvCBinDeserializer::enterNewChild(KvCComposite* child)
{
    KvNFreshTree::append(*m_actElement, *child);
    // A stream read below the root of an earlier one starts here.
    if (m_serializationRoot == nullptr)
        m_serializationRoot = child;
    m_actElement = child;
    m_fresh.element = nullptr;
}

void KvCBinDeserializer::CompositeStart(KvCErrorListPool& errors)
{
    m_fresh.element = nullptr;
    if (m_buffer == nullptr || m_factory == nullptr)
        return;
    StreamReader reader(errors, *m_buffer);
    const char* const fields = reader.take({4, 4, 1});
    if (fields == nullptr)
        return;
    const KvUInt32 classId = numberAt(fields);
    const KvUInt32 unitId = numberAt(fields + 4);
    Description description;
    if (!description.read(reader, static_cast<unsigned char>(fields[8])))
        return;

    KvCComposite* const parent = m_actElement;
    if (m_rootIsGiven && parent != nullptr) {
        if (KvCComposite* const existing = parent->searchComposite(classId, unitId)) {
            m_actElement = existing;
            return;
        }
    }
    const KvNReport::Watch watch(errors);
    KvCComposite* const node = m_factory->createComposite(errors, classId, unitId, description.text, parent);
    if (node == nullptr && !watch.grew())
        KV_REPORT(errors, CompositeCreateFailed, "KvCBinDeserializer::CompositeStart", classId);
    // A node that could not be attached may no longer exist.
    if (node == nullptr || (watch.grew() && parent != nullptr))
        return;
    if (parent == nullptr)
        m_root = node;
    if (m_serializationRoot == nullptr)
        m_serializationRoot = node;
    m_actElement = node;
}

void KvCBinDeserializer::leaveElement()
{
    KvNPrefetch::readBack<KvNPrefetch::cacheLine>(m_actElement);
    m_actElement = m_actElement->getParent();
    m_fresh.element = nullptr;
}

void KvCBinDeserializer::CompositeEnd(KvCErrorListPool& errors)
{
    if (m_actElement == nullptr)
        KV_REPORT(errors, StreamUnexpectedTag, "KvCBinDeserializer::CompositeEnd");
    else
        leaveElement();
}

void KvCBinDeserializer::CompositeParameter(KvCErrorListPool& errors)
{
    m_actParameter = nullptr;
    m_actParameterIsFree = false;
    if (m_buffer == nullptr) {
        KV_REPORT(errors, StreamNoBuffer, parameterOrigin);
        return;
    }
    StreamReader reader(errors, *m_buffer);
    const KvUInt32 start = m_buffer->getReadPosition();
    Record record;
    if (!record.read(reader))
        return;

    const bool isAbsent = m_actElement == nullptr || isNewParameter(record.id);
    KvCParam* const existing = isAbsent ? nullptr : m_actElement->getParameterById(record.id);
    if (existing != nullptr && ((existing->getType() ^ record.type) & KvNElement::CodeMask) != 0) {
        KV_REPORT(errors, StreamUnexpectedType, parameterOrigin, record.id, record.type);
        return;
    }
    KvCParam* const parameter = existing != nullptr ? existing : makeParameter(errors, record);
    if (parameter == nullptr)
        return;
    const bool isNew = existing == nullptr;
    const bool isRead = readBody(errors, reader, record, *parameter, isNew, start);
    if (isNew && (!isRead || (m_actElement != nullptr && !keepParameter(errors, record.id, parameter)))) {
        delete parameter;
        return;
    }
    if (isRead) {
        m_actParameter = parameter;
        m_actParameterIsFree = m_actElement == nullptr;
    }
}

/** Gives the active element a new parameter; false, and reported, when that fails. A derived class may have made it
    with another id than that of its record, which the element was searched for. */
bool KvCBinDeserializer::keepParameter(KvCErrorListPool& errors, KvUInt32 searchedId, KvCParam* parameter)
{
    const KvUInt32 id = parameter->getId();
    if (id != searchedId && !isNewParameter(id)) {
        m_actElement->addParameter(errors, parameter);  // which says so
        return false;
    }
    if (!m_actElement->appendParameter(errors, parameter))
        return false;
    m_fresh.note(id);
    return true;
}

void KvCBinDeserializer::dropFreeParameter()
{
    if (!m_actParameterIsFree)
        return;
    delete m_actParameter;
    m_actParameter = nullptr;
    m_actParameterIsFree = false;
}

KvCParam* KvCBinDeserializer::makeParameter(KvCErrorListPool& errors, const Record& record)
{
    const KvNReport::Watch watch(errors);
    KvCParam* const parameter = record.isCustom()
                                    ? createCustomParameter(errors, record.id, record.type, record.description.text)
                                    : createPlainParameter(errors, record.id, record.type, record.description.text);
    const bool isWhole = parameter != nullptr && parameter->getStateBit(KvCParam::ConstructionFailedBit) == 0;
    if (isWhole)
        return parameter;
    if (!watch.grew())
        KV_REPORT(errors, OutOfMemory, parameterOrigin);
    delete parameter;
    return nullptr;
}

/** Reads value and custom data and checks them against the record's length; false when the record is abandoned. */
bool KvCBinDeserializer::readBody(KvCErrorListPool& errors, StreamReader& reader, const Record& record,
                                  KvCParam& parameter, bool isNew, KvUInt32 start)
{
    if (!KvNElement::isKnown(record.type)) {
        KV_REPORT(errors, StreamUnexpectedType, parameterOrigin, record.id, record.type);
        return false;
    }
    if (!KvNValueCodec::read(errors, reader, parameter, {record.length, isNew}))
        return false;
    if (record.isCustom())
        handleCustomParameter(errors, &parameter);
    if (reader.isPast())
        return false;
    const KvUInt32 consumed = m_buffer->getReadPosition() - start;
    if (consumed > record.length || record.length - consumed > SkipLimit) {
        KV_REPORT(errors, StreamWrongSize, parameterOrigin, consumed, record.length);
        return false;
    }
    return consumed == record.length || reader.take({record.length - consumed}) != nullptr;
}
