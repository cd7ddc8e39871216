#include "inventory/KvCInventoryItemFactory.h"

#include "base/Report.h"
#include "inventory/InventoryStream.h"
#include "inventory/KvCInventoryItem.h"

namespace {

/** The serializer or deserializer of one call: made, installed in the factory, taken out and deleted at the end. */
template <class Worker>
class Installed
{
public:
    template <class Install>
    Installed(KvCErrorListPool& errors, Install&& install)
    {
        const KvNReport::Watch watch(errors);
        m_worker = new (errors) Worker(errors);
        m_isReady = m_worker != nullptr && !watch.grew();
        if (m_isReady)
            install(m_worker);
    }
    Installed(const Installed&) = delete;
    Installed& operator=(const Installed&) = delete;
    ~Installed() { delete m_worker; }

    bool isReady() const { return m_isReady; }
    Worker* operator->() const { return m_worker; }

private:
    Worker* m_worker = nullptr;
    bool m_isReady = false;
};

}  // namespace

KvCInventoryItemFactory::KvCInventoryItemFactory(KvCErrorListPool& errors) : KvCCompositeFactory(errors) {}

KvCInventoryItemFactory::~KvCInventoryItemFactory() = default;

KvCComposite* KvCInventoryItemFactory::createComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId,
                                                       const char* descr, KvCComposite* parent)
{
    const char* const origin = "KvCInventoryItemFactory::createComposite";
    const KvNReport::Watch watch(errors);
    auto* item = new (errors) KvCInventoryItem(errors, KvCInventoryAddress(classId, unitId), descr);
    if (item == nullptr || watch.grew()) {
        KV_REPORT(errors, ItemAllocationFailed, origin);
        delete item;
        return nullptr;
    }
    const long result = parent == nullptr ? 0 : parent->attach(item);
    if (result == 0)
        return item;
    if (result != KvCComposite::AttachMerged)
        delete item;
    KV_REPORT(errors, InventoryAttachFailed, origin, result);
    return nullptr;
}

void KvCInventoryItemFactory::serialize(KvCErrorListPool& errors, KvCBuffer* out, KvCInventoryItem* root)
{
    const char* const origin = "KvCInventoryItemFactory::serialize";
    const Installed<KvCInventoryBinSerializer> serializer(errors, [this](auto* made) { setBinarySerializer(made); });
    if (!serializer.isReady()) {
        KV_REPORT(errors, InventorySerializerNotCreated, origin);
        return;
    }
    const KvNReport::Watch watch(errors);
    KvCCompositeFactory::serialize(errors, root, 0, out);
    if (watch.grew())
        KV_REPORT(errors, InventoryTreeSerializeFailed, origin);
    setBinarySerializer(nullptr);
}

void KvCInventoryItemFactory::deserialize(KvCErrorListPool& errors, KvCInventoryItem*& root, KvCBuffer* in)
{
    const char* const origin = "KvCInventoryItemFactory::deserialize";
    root = nullptr;
    const Installed<KvCInventoryBinDeSerializer> deserializer(errors,
                                                              [this](auto* made) { setBinaryDeserializer(made); });
    if (!deserializer.isReady()) {
        // Kept: the serializer's message.
        KV_REPORT(errors, InventorySerializerNotCreated, origin);
        return;
    }
    const KvNReport::Watch watch(errors);
    root = static_cast<KvCInventoryItem*>(KvCCompositeFactory::deserialize(errors, nullptr, in));
    deserializer->dropFreeParameter();
    if (watch.grew()) {
        KV_REPORT(errors, InventoryTreeDeserializeFailed, origin);
        delete root;
        root = nullptr;
    }
    setBinaryDeserializer(nullptr);
}

void KvCInventoryItemFactory::serializeInventoryParameter(KvCErrorListPool& errors, KvCBuffer* out,
                                                          const KvCInventoryParameter* param)
{
    const char* const origin = "KvCInventoryItemFactory::serializeInventoryParameter";
    const Installed<KvCInventoryBinSerializer> serializer(errors, [this](auto* made) { setBinarySerializer(made); });
    if (!serializer.isReady()) {
        KV_REPORT(errors, InventorySerializerNotCreated, origin);
        return;
    }
    const KvNReport::Watch watch(errors);
    serializeParameter(errors, out, param);
    if (watch.grew())
        KV_REPORT(errors, InventoryParameterSerializeFailed, origin);
    setBinarySerializer(nullptr);
}

void KvCInventoryItemFactory::deserializeInventoryParameter(KvCErrorListPool& errors, KvCInventoryParameter*& param,
                                                            KvCBuffer* in)
{
    const char* const origin = "KvCInventoryItemFactory::deserializeInventoryParameter";
    param = nullptr;
    const Installed<KvCInventoryBinDeSerializer> deserializer(errors,
                                                              [this](auto* made) { setBinaryDeserializer(made); });
    if (!deserializer.isReady()) {
        KV_REPORT(errors, InventoryDeserializerNotCreated, origin);
        return;
    }
    const KvNReport::Watch watch(errors);
    KvCParam* read = nullptr;
    deserializeParameter(errors, read, in);
    // Only parameters of this class come from the deserializer installed here.
    param = static_cast<KvCInventoryParameter*>(read);
    if (watch.grew()) {
        KV_REPORT(errors, InventoryParameterDeserializeFailed, origin);
        delete param;
        param = nullptr;
    }
    setBinaryDeserializer(nullptr);
}
