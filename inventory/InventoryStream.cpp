#include "inventory/InventoryStream.h"

#include <algorithm>
#include <cstring>

#include "base/BigEndian.h"
#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "base/ShortCopy.h"
#include "composite/CompositeWalk.h"
#include "composite/RecordWriter.h"
#include "inventory/KvCInventoryItem.h"
#include "platform/KvPrefetch.h"

using namespace KvNInventoryStream;

namespace {

constexpr std::size_t customLimit = 1 + UnitLimit + 1 + RelevanceSize;

bool isCustom(const KvCParam* parameter)
{
    return (parameter->getType() & KvNElement::CustomFlag) != 0;
}

/** Puts what an inventory parameter adds to its record at `at`, at most customLimit bytes, and gives where that ends. A
    parameter of another class has nothing of this, but whoever reads the record expects it. */
inline char* putCustom(char* at, const KvCParam* parameter)
{
    const KvCInventoryParameter* const own = KvCInventoryParameter::from(parameter);
    const std::size_t size = own == nullptr ? 0 : own->getUnitLength();
    const std::size_t length = std::min<std::size_t>(size & UnitLengthMask, UnitLimit);
    *at++ = static_cast<char>(length);
    if (length != 0)
        copyShort(at, own->getUnit(), length);
    at += length;
    *at++ = own != nullptr && own->isModifiable() ? static_cast<char>(ModifiableByte) : '\0';
    KvNBigEndian::store(at, own == nullptr ? KvUInt32{0} : own->getRelevance());
    return at + RelevanceSize;
}

}  // namespace

void KvCInventoryBinSerializer::handleCustomParameter(KvCErrorListPool& errors, const KvCParam* parameter)
{
    if (getBuffer() == nullptr)
        return;
    char data[customLimit];
    const char* const end = putCustom(data, parameter);
    getBuffer()->writeBuffer(errors, data, static_cast<KvUInt32>(end - data), 1);
}

bool KvCInventoryBinSerializer::writeUsual(KvCErrorListPool& errors, KvCComposite* root)
{
    if (getTraversionMode() != 0)
        return false;
    RecordWriter writer(errors, *getBuffer());
    const auto enter = [&](KvCComposite* node) {
        KvNPrefetch::readAhead<sizeof(KvCInventoryItem)>(node);
        if (writer.hasRoom())
            writer.writeStart(*node);
        else
            CompositeStart(errors, node);
        const KvCParamList* const list = static_cast<const KvCComposite*>(node)->getParameterList();
        const auto* place = list == nullptr ? nullptr : list->getFront();
        for (; place != nullptr; place = place->getNext()) {
            const KvCParam* const parameter = place->getContent();
            KvNPrefetch::readAhead<sizeof(KvCInventoryParameter)>(place);
            const auto custom = [parameter](char* at) { return isCustom(parameter) ? putCustom(at, parameter) : at; };
            if (parameter == nullptr || (writer.hasRoom() && writer.writeParameter(*parameter, custom)))
                continue;
            writer.commit();
            CompositeParameter(errors, parameter);
        }
        return true;
    };
    const auto leave = [&](KvCComposite* node) {
        if (writer.hasRoom())
            writer.writeEnd();
        else
            CompositeEnd(errors, node);
        return true;
    };
    KvNCompositeWalk::walk(root, enter, leave);
    return true;
}

KvCInventoryBinDeSerializer::~KvCInventoryBinDeSerializer()
{
    if (getRoot() != getSerializationRoot())
        delete getRoot();
}

void KvCInventoryBinDeSerializer::CompositeStart(KvCErrorListPool& errors)
{
    KvCComposite* const before = getRoot();
    KvCBinDeserializer::CompositeStart(errors);
    // Of several trees the first is the one that is handed out.
    if (getRoot() != before && before != getSerializationRoot())
        delete before;
}

KvCParam* KvCInventoryBinDeSerializer::createCustomParameter(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 type,
                                                             const char* descr)
{
    return new (errors) KvCInventoryParameter(errors, KvCInventoryAddress(id), descr, type);
}

KvCParam* KvCInventoryBinDeSerializer::createPlainParameter(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 type,
                                                            const char* descr)
{
    return new (errors) KvCInventoryParameter(errors, id, descr, KvCInventoryParameter::TypeWord{type});
}

void KvCInventoryBinDeSerializer::handleCustomParameter(KvCErrorListPool& errors, KvCParam* parameter)
{
    KvCBuffer& buffer = *getBuffer();
    const KvNReport::Watch watch(errors);
    unsigned char length = 0;
    buffer.readBuffer(errors, &length, 1);
    if (length > UnitLimit) {
        KV_REPORT(errors, UnitTooLong, "KvCInventoryBinDeSerializer::handleCustomParameter", UnitLimit);
        return;
    }
    char unit[UnitLimit + 1] = {};
    unsigned char isModifiable = 0;
    KvUInt32 relevance = 0;
    buffer.readBuffer(errors, unit, length, 1);
    buffer.readBuffer(errors, &isModifiable, 1);
    buffer.readBuffer(errors, &relevance, RelevanceSize);
    KvCInventoryParameter* const inventoryParameter = KvCInventoryParameter::from(parameter);
    if (inventoryParameter == nullptr || watch.grew())
        return;
    inventoryParameter->setUnit(unit);
    inventoryParameter->setModifiableFlag(isModifiable != 0);
    inventoryParameter->setRelevance(relevance);
    if (*unit != '\0' && *inventoryParameter->getUnit() == '\0')
        KV_REPORT(errors, OutOfMemory, "KvCInventoryBinDeSerializer::handleCustomParameter");
}
