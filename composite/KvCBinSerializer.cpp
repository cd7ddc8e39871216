#include "composite/KvCBinSerializer.h"

#include <cstring>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "composite/KvCComposite.h"
#include "composite/StreamFormat.h"
#include "composite/ValueCodec.h"

using namespace KvNStream;

namespace {

/** Writes a description with its length byte. Kept: the length is the low 8 bits of strlen + 1, so that a text of 255
    characters or more arrives cut and without its NUL; descriptions are limited to 254 characters by design. */
void writeDescription(KvCErrorListPool& errors, KvCBuffer& buffer, const char* descr)
{
    const char* const text = descr == nullptr ? "" : descr;
    const auto length = static_cast<unsigned char>((std::strlen(text) + 1) & DescriptionLengthMask);
    buffer.writeBuffer(errors, &length, sizeof length);
    if (length != 0)
        buffer.writeBuffer(errors, text, length, 1);
}

void writeNumber(KvCErrorListPool& errors, KvCBuffer& buffer, KvUInt32 number)
{
    buffer.writeBuffer(errors, &number, sizeof number);
}

void writeTag(KvCErrorListPool& errors, KvCBuffer& buffer, Tag tag)
{
    buffer.writeBuffer(errors, &tag, TagSize);
}

}  // namespace

KvCBinSerializer::KvCBinSerializer(KvCErrorListPool&) {}
KvCBinSerializer::~KvCBinSerializer() = default;
void KvCBinSerializer::handleCustomParameter(KvCErrorListPool&, const KvCParam*) {}

bool KvCBinSerializer::writeUsual(KvCErrorListPool&, KvCComposite*)
{
    return false;
}

void KvCBinSerializer::CompositeStart(KvCErrorListPool& errors, KvCComposite* composite)
{
    if (m_buffer == nullptr)
        return;
    writeTag(errors, *m_buffer, StartTag);
    writeNumber(errors, *m_buffer, composite->getClassId());
    writeNumber(errors, *m_buffer, composite->getUnitId());
    writeDescription(errors, *m_buffer, composite->getDescription());
}

void KvCBinSerializer::CompositeEnd(KvCErrorListPool& errors, KvCComposite*)
{
    if (m_buffer != nullptr)
        writeTag(errors, *m_buffer, EndTag);
}

void KvCBinSerializer::CompositeParameter(KvCErrorListPool& errors, const KvCParam* parameter)
{
    if (m_buffer == nullptr)
        return;
    KvCBuffer& buffer = *m_buffer;
    const KvUInt32 type = parameter->getType();
    writeTag(errors, buffer, ParameterTag);
    const KvUInt32 start = buffer.getOccupiedSize();
    writeNumber(errors, buffer, LengthPlaceholder);
    writeNumber(errors, buffer, parameter->getId());
    writeNumber(errors, buffer,
                (getTraversionMode() & Filter2Mode) != 0 ? type & ~KvNElement::DoubleBufferedFlag : type);
    writeDescription(errors, buffer, parameter->getDescr());
    if (!KvNValueCodec::write(errors, buffer, *parameter)) {
        KV_REPORT(errors, StreamUnexpectedType, "KvCBinSerializer::CompositeParameter", parameter->getId(), type);
        return;
    }
    if ((type & KvNElement::CustomFlag) != 0)
        handleCustomParameter(errors, parameter);
    const KvUInt32 length = buffer.getOccupiedSize() - start;
    buffer.writeBuffer(errors, &length, sizeof length, sizeof length, static_cast<KvInt32>(start));
}

void KvCBinSerializer::serialize(KvCErrorListPool& errors, KvCComposite* root)
{
    constexpr const char* origin = "KvCBinSerializer::serialize";
    const KvNReport::Watch watch(errors);
    if (m_buffer == nullptr) {
        m_buffer = new (errors) KvCBuffer(errors);
        if (m_buffer == nullptr)
            KV_REPORT(errors, OutOfMemory, origin);
    }
    if (!watch.grew() && !writeUsual(errors, root))
        traverse(errors, root);
    if (watch.grew())
        KV_REPORT(errors, StreamSerializeFailed, origin);
}
