#include "inventory/InventoryStream.h"

#include <algorithm>
#include <cstring>

#include "base/BigEndian.h"
#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "composite/KvCComposite.h"
#include "inventory/KvCInventoryParameter.h"

using namespace KvNInventoryStream;

void KvCInventoryBinSerializer::handleCustomParameter(KvCErrorListPool& errors, const KvCParam* parameter)
{
    if (getBuffer() == nullptr)
        return;
    // A parameter of another class has nothing of this, but whoever reads the record expects it.
    const auto* inventoryParameter = dynamic_cast<const KvCInventoryParameter*>(parameter);
    const char* unit = inventoryParameter == nullptr ? "" : inventoryParameter->getUnit();
    const auto length = static_cast<KvUInt32>(std::min<std::size_t>(std::strlen(unit) & UnitLengthMask, UnitLimit));
    unsigned char data[1 + UnitLimit + 1 + RelevanceSize];
    unsigned char* end = data;
    *end++ = static_cast<unsigned char>(length);
    std::memcpy(end, unit, length);
    end += length;
    *end++ = inventoryParameter != nullptr && inventoryParameter->isModifiable() ? ModifiableByte : 0;
    KvNBigEndian::store(end, inventoryParameter == nullptr ? KvUInt32{0} : inventoryParameter->getRelevance());
    end += RelevanceSize;
    getBuffer()->writeBuffer(errors, data, static_cast<KvUInt32>(end - data), 1);
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
    auto* inventoryParameter = dynamic_cast<KvCInventoryParameter*>(parameter);
    if (inventoryParameter == nullptr || watch.grew())
        return;
    inventoryParameter->setUnit(unit);
    inventoryParameter->setModifiableFlag(isModifiable != 0);
    inventoryParameter->setRelevance(relevance);
    if (*unit != '\0' && *inventoryParameter->getUnit() == '\0')
        KV_REPORT(errors, OutOfMemory, "KvCInventoryBinDeSerializer::handleCustomParameter");
}
