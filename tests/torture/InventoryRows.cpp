#include <fstream>
#include <iterator>
#include <memory>

#include "Operation.h"
#include "PrintedText.h"
#include "Trees.h"
#include "inventory/KvCInventoryAddress.h"
#include "inventory/KvCInventoryData.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/KvCInventoryParameter.h"
#include "inventory/KvCInventoryTagMap.h"
#include "inventory/ids/KvNInventoryIDs.h"

/* Addresses, items with their parameters, and inventory sections. */

using namespace KvNInventoryIDs;

namespace {

/** More elements than an address holds in itself. */
struct Addresses
{
    KvCInventoryAddress head = CPU / RAM / BANK;
    KvCInventoryAddress tail = FPGA[2] / MODULE / SIZE;
    KvCInventoryAddress whole = head / tail;
    KvCInventoryAddress seen;
    KvCString text{"CPU/RAM/BANK/FPGA[2]/MODULE/SIZE"};
    KvCString shown;
};

std::string seen(Addresses& addresses)
{
    return addresses.seen.toString().c_str();
}

struct PrintedAddress : Addresses
{
    PrintedText printed;
};

void addAddressRows(Table& table)
{
    table.add<Addresses>(
        "KvCInventoryAddress::operator/",
        [](Addresses& addresses, KvCErrorListPool& errors) {
            addresses.seen = addresses.head / addresses.tail;
            return isQuiet(errors);
        },
        seen);
    table.add<Addresses>(
        "KvCInventoryAddress::fromPairs",
        [](Addresses& addresses, KvCErrorListPool& errors) {
            const KvUInt32 pairs[] = {5, 1, 6, 2, 7, 3, 8, 4, 9, 5, 10, 6};
            addresses.seen = KvCInventoryAddress::fromPairs(pairs, 6);
            return isQuiet(errors);
        },
        seen);
    table.add<Addresses>(
        "KvCInventoryAddress::KvCInventoryAddress KvCInventoryAddress::operator= KvCInventoryAddress::operator==",
        [](Addresses& addresses, KvCErrorListPool& errors) {
            const KvCInventoryAddress copy(addresses.whole);
            if (isQuiet(errors) && !(copy == addresses.whole))
                return false;
            addresses.seen = copy;
            addresses.seen = KvCInventoryAddress(addresses.seen);
            return isQuiet(errors);
        },
        seen);
    table.add<Addresses>(
        "KvCInventoryAddress::operator[]",
        [](Addresses& addresses, KvCErrorListPool& errors) {
            addresses.seen = addresses.whole[7];
            return isQuiet(errors);
        },
        seen);
    table.add<Addresses>(
        "KvCInventoryAddress::getFirstElement KvCInventoryAddress::getLastElement KvCInventoryAddress::getHeadAddress "
        "KvCInventoryAddress::getSubAddress",
        [](Addresses& addresses, KvCErrorListPool& errors) {
            addresses.seen = addresses.whole.getHeadAddress();
            if (!isQuiet(errors))
                return false;
            const KvCInventoryAddress rest = addresses.whole.getSubAddress();
            return isQuiet(errors) && rest.getLength() == 5 &&
                   addresses.whole.getFirstElement() == KvCInventoryAddress(CPU) &&
                   addresses.whole.getLastElement() == KvCInventoryAddress(SIZE);
        },
        seen);
    table.add<Addresses>(
        "KvCInventoryAddress::isPrefix KvCInventoryAddress::removePrefix",
        [](Addresses& addresses, KvCErrorListPool& errors) {
            addresses.seen = addresses.whole;
            if (!isQuiet(errors) || !addresses.seen.isPrefix(addresses.head))
                return false;
            addresses.seen.removePrefix(addresses.head);
            return isQuiet(errors);
        },
        seen);
    table.add<Addresses>(
        "KvCInventoryAddress::readFromString",
        [](Addresses& addresses, KvCErrorListPool& errors) {
            addresses.seen.readFromString(addresses.text);
            return isQuiet(errors);
        },
        seen);
    table.add<Addresses>(
        "KvCInventoryAddress::toString",
        [](Addresses& addresses, KvCErrorListPool& errors) {
            addresses.shown = addresses.whole.toString();
            return isQuiet(errors);
        },
        [](Addresses& addresses) { return std::string(addresses.shown.c_str()); });
    table.add<Addresses>(
        "KvCInventoryAddress::getCategoryName",
        [](Addresses& addresses, KvCErrorListPool& errors) {
            addresses.shown = KvCInventoryAddress(MCM_TIME_PER_TIC_GLOBAL).getCategoryName();
            return isQuiet(errors);
        },
        [](Addresses& addresses) { return std::string(addresses.shown.c_str()); });
    table.add<PrintedAddress>(
        "KvCInventoryAddress::print",
        [](PrintedAddress& addresses, KvCErrorListPool& errors) {
            addresses.printed.clear();
            addresses.whole.print();
            return isQuiet(errors);
        },
        [](PrintedAddress& addresses) { return addresses.printed.text(); });
    table.add<std::unique_ptr<KvCInventoryTagMap>>(
        "KvCInventoryTagMap::add KvCInventoryTagMap::find",
        [](std::unique_ptr<KvCInventoryTagMap>& map, KvCErrorListPool&) {
            if (map == nullptr)
                map = std::unique_ptr<KvCInventoryTagMap>(new (std::nothrow) KvCInventoryTagMap);
            if (map == nullptr)
                return false;
            map->add(map->getCount(), "A_NAME");
            return map->getCount() != 0;
        },
        [](std::unique_ptr<KvCInventoryTagMap>& map) { return std::to_string(map->find("A_NAME", 6)); },
        Says::ByResult);
}

bool hook(KvCErrorListPool&, KvCInventoryItem*, KvCInventoryParameter*)
{
    return true;
}

/** An inventory tree with everything that needs memory. */
struct Inventory
{
    KvCErrorListPool setUp;
    const KvCString text{longText};
    const KvCInventoryAddress deep = CPU[2] / RAM / BANK / FPGA / MODULE / NAME;
    KvCInventoryItem* root = made();
    KvCInventoryItem* other = nullptr;
    KvCInventoryParameter* name = root->getParameter(deep);
    KvCBuffer buffer{setUp};
    KvCInventoryItemFactory factory{setUp};
    KvCInventoryParameter* read = nullptr;
    KvCInventoryParameter assigned{setUp, NAME, nullptr, KvCString(), "", false, 0};
    KvCString shown;

    ~Inventory()
    {
        delete root;
        delete other;
        delete read;
    }
    KvCInventoryItem* made()
    {
        auto* const item = new KvCInventoryItem(setUp, ROOT, "a description of its own, and long");
        item->createParameter<KvCString>(setUp, deep, text, longText, true, 1, hook, hook, hook);
        item->createParameter<KvUInt32>(setUp, CPU[2] / SIZE, 5, "MHz", true, 2, nullptr, nullptr, nullptr);
        item->createParameter<KvCVersion>(setUp, CPU[2] / RAM / VERSION, KvCVersion(1, 2, 3, 0, 0, 0), "", false, 3,
                                          nullptr, nullptr, nullptr);
        return item;
    }
};

std::string textOf(const KvCInventoryItem* item)
{
    KvCErrorListPool errors;
    return item == nullptr ? "none" : item->toString(errors, 0, 0).c_str();
}

std::string rootText(Inventory& inventory)
{
    return textOf(inventory.root);
}

std::string otherText(Inventory& inventory)
{
    return textOf(inventory.other);
}

void addItemRows(Table& table)
{
    table.add<Inventory>(
        "KvCInventoryItem::KvCInventoryItem KvCInventoryItem::getDescription",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            delete inventory.other;
            inventory.other = new (errors) KvCInventoryItem(errors, CPU, longText);
            if (inventory.other == nullptr)
                errors.setError(0x401, 1, "test", nullptr);
            return isQuiet(errors);
        },
        otherText);
    table.add<Inventory>(
        "KvCInventoryItem::addPath",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            return inventory.root->addPath(errors, FPGA[3] / MODULE / CPU / RAM / BANK) != nullptr && isQuiet(errors);
        },
        rootText);
    table.add<Inventory>(
        "KvCInventoryItem::addItem KvCInventoryItem::detach KvCInventoryItem::getItem KvCInventoryItem::getParameter "
        "KvCInventoryItem::getParameterByOrdinalNumber",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            KvCInventoryItem* const item = inventory.root->getItem(CPU[2] / RAM);
            item->detach();
            if (inventory.root->addItem(CPU[2], item) == nullptr)
                return false;
            return isQuiet(errors) && inventory.root->getParameter(inventory.deep) == inventory.name &&
                   item->getParameterByOrdinalNumber(0) != nullptr;
        },
        rootText);
    table.add<Inventory>(
        "KvCInventoryItem::addParameter",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            delete inventory.read;
            inventory.read = new (errors)
                KvCInventoryParameter(errors, KvCInventoryAddress(4711), longText, inventory.text, longText, false, 0);
            if (inventory.read == nullptr)
                errors.setError(0x401, 1, "test", nullptr);
            if (!isQuiet(errors) || inventory.read->getStateBit(KvCParam::ConstructionFailedBit) != 0)
                return false;
            if (inventory.root->addParameter(errors, CPU[2], inventory.read) == nullptr)
                return false;
            inventory.read = nullptr;
            return isQuiet(errors);
        },
        rootText, Says::ByResult);
    table.add<Inventory>(
        "KvCInventoryItem::getAddress KvCInventoryParameter::getAddress KvCInventoryParameter::getParent",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            inventory.shown = "";
            const KvCInventoryAddress address = inventory.name->getParent()->getAddress();
            const KvCInventoryAddress whole = inventory.name->getAddress();
            if (!isQuiet(errors))
                return false;
            inventory.shown = address.toString() + whole.toString();
            return isQuiet(errors);
        },
        [](Inventory& inventory) { return std::string(inventory.shown.c_str()); });
    table.add<Inventory>(
        "KvCInventoryItem::copyTree",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            delete inventory.other;
            inventory.other = nullptr;
            inventory.root->copyTree(errors, inventory.other);
            return isQuiet(errors);
        },
        otherText);
    table.add<Inventory>(
        "KvCInventoryItem::toString",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            inventory.shown = inventory.root->toString(errors, 0, 0);
            return isQuiet(errors);
        },
        [](Inventory& inventory) { return std::string(inventory.shown.c_str()); }, Says::InItsWords);
}

struct Merged : Inventory
{
    Merged() { renew(); }
    void renew()
    {
        delete root;
        delete other;
        root = new KvCInventoryItem(setUp, ROOT, "ROOT");
        root->createParameter<int>(setUp, CPU[2] / RAM / SIZE, 1, "", false, 0, nullptr, nullptr, nullptr);
        other = made();
    }
};

struct PrintedInventory : Inventory
{
    PrintedText printed;
};

void addPassRows(Table& table)
{
    table.add<Merged>(
        "KvCInventoryItem::mergeTree",
        [](Merged& state, KvCErrorListPool& errors) {
            if (state.other == nullptr)
                state.renew();
            KvCInventoryItem::mergeTree(errors, state.root, state.other, KvNInventoryItem::MergeParameters);
            return isQuiet(errors);
        },
        [](Merged& state) { return textOf(state.root); }, Says::InItsWords);
    table.add<Inventory>(
        "KvCInventoryItem::linkSharedData",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            inventory.root->linkSharedData(inventory.root);
            return isQuiet(errors);
        },
        rootText);
    table.add<Inventory>(
        "KvCInventoryItem::check KvCInventoryItem::apply KvCInventoryItem::update "
        "KvCInventoryItem::deleteDesignatedValues KvCInventoryParameter::setDesignatedValue "
        "KvCInventoryParameter::adoptDesignatedValue KvCInventoryParameter::deleteDesignatedValue",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            inventory.name->deleteDesignatedValue();
            inventory.name->setDesignatedValue(errors, KvCVersion(1, 2, 3, 0, 0, 0));
            errors.clear();
            KvCErrorManager::getMasterErrorList().clear();
            inventory.root->deleteDesignatedValues();
            inventory.name->setDesignatedValue(errors, inventory.text);
            if (!isQuiet(errors))
                return false;
            inventory.root->check(errors, nullptr);
            inventory.root->apply(errors, nullptr);
            inventory.root->update(errors, nullptr);
            return isQuiet(errors);
        },
        rootText, Says::InItsWords);
    table.add<PrintedInventory>(
        "KvCInventoryItem::printTree",
        [](PrintedInventory& inventory, KvCErrorListPool& errors) {
            inventory.printed.clear();
            inventory.root->printTree(errors, 0, 0);
            return isQuiet(errors);
        },
        [](PrintedInventory& inventory) { return inventory.printed.text(); });
}

std::string readText(Inventory& inventory)
{
    KvCErrorListPool errors;
    return std::string(inventory.read->getValueAsString(errors).c_str()) + inventory.read->getUnit() +
           inventory.read->getDescription();
}

void addParameterRows(Table& table)
{
    table.add<Inventory>(
        "KvCInventoryParameter::KvCInventoryParameter KvCInventoryParameter::operator=",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            delete inventory.read;
            inventory.read = new KvCInventoryParameter(*inventory.name);
            if (inventory.read == nullptr)
                errors.setError(0x401, 1, "test", nullptr);
            if (!isQuiet(errors) || inventory.read->getStateBit(KvCParam::ConstructionFailedBit) != 0)
                return false;
            inventory.assigned.clearStateBit(KvCParam::ConstructionFailedBit);
            inventory.assigned = *inventory.read;
            return isQuiet(errors) && inventory.assigned.getStateBit(KvCParam::ConstructionFailedBit) == 0;
        },
        readText, Says::ByResult);
    table.add<Inventory>(
        "KvCInventoryParameter::setCheckWriteUpdateFunction KvCInventoryParameter::getCheckFunction "
        "KvCInventoryParameter::getWriteFunction KvCInventoryParameter::getUpdateFunction "
        "KvCInventoryParameter::setAuxPointer KvCInventoryParameter::getAuxPointer",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            KvCInventoryParameter* const size = inventory.root->getParameter(CPU[2] / SIZE);
            size->setCheckWriteUpdateFunction(hook, hook, hook);
            size->setAuxPointer(KvNInventoryParameter::KvNAuxPointer::None, nullptr);
            KvNInventoryParameter::KvNAuxPointer::EType type{};
            size->getAuxPointer(type);
            return isQuiet(errors) && size->getCheckFunction() == hook && size->getWriteFunction() == hook &&
                   size->getUpdateFunction() == hook;
        },
        rootText);
    table.add<Inventory>(
        "KvCInventoryParameter::getTypeAsString",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            inventory.shown = inventory.name->getTypeAsString();
            return isQuiet(errors);
        },
        [](Inventory& inventory) { return std::string(inventory.shown.c_str()); });
}

void addFactoryRows(Table& table)
{
    table.add<Inventory>(
        "KvCInventoryItemFactory::KvCInventoryItemFactory KvCInventoryItemFactory::serialize",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            inventory.buffer.setWritePointer(errors, inventory.buffer.getStartPointer());
            KvCInventoryItemFactory factory(errors);
            for (int i = 0; i < 6 && isQuiet(errors); ++i)
                factory.serialize(errors, &inventory.buffer, inventory.root);
            return isQuiet(errors);
        },
        [](Inventory& inventory) { return bytesOf(inventory.buffer); });
    table.add<Inventory>(
        "KvCInventoryItemFactory::deserialize KvCInventoryItemFactory::createComposite",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            delete inventory.other;
            inventory.other = nullptr;
            inventory.buffer.setWritePointer(errors, inventory.buffer.getStartPointer());
            inventory.factory.serialize(errors, &inventory.buffer, inventory.root);
            inventory.factory.deserialize(errors, inventory.other, &inventory.buffer);
            return inventory.other != nullptr && isQuiet(errors);
        },
        otherText);
    table.add<Inventory>(
        "KvCInventoryItemFactory::serializeInventoryParameter KvCInventoryItemFactory::deserializeInventoryParameter",
        [](Inventory& inventory, KvCErrorListPool& errors) {
            delete inventory.read;
            inventory.read = nullptr;
            inventory.buffer.setWritePointer(errors, inventory.buffer.getStartPointer());
            inventory.buffer.setReadPosition(errors, 0);
            inventory.factory.serializeInventoryParameter(errors, &inventory.buffer, inventory.name);
            inventory.factory.deserializeInventoryParameter(errors, inventory.read, &inventory.buffer);
            return inventory.read != nullptr && isQuiet(errors);
        },
        readText);
}

struct Section : Inventory
{
    std::string bytes;
    Section()
    {
        std::ifstream file(KV_SAMPLES_DIR "/single-board.inv", std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(file), {});
    }
};

void addSectionRows(Table& table)
{
    table.add<Section>(
        "KvCInventoryData::generateInventorySection",
        [](Section& section, KvCErrorListPool& errors) {
            section.buffer.setWritePointer(errors, section.buffer.getStartPointer());
            KvCInventoryData::generateInventorySection(errors, section.buffer, section.root);
            return isQuiet(errors);
        },
        [](Section& section) { return bytesOf(section.buffer); });
    table.add<Section>(
        "KvCInventoryData::extractInventoryTreeFromMem KvCInventoryData::getInventorySectionSizeFromMem",
        [](Section& section, KvCErrorListPool& errors) {
            delete section.other;
            section.other = nullptr;
            KvUInt32 byHeader = 0;
            KvUInt32 byTrailer = 0;
            KvCInventoryData::getInventorySectionSizeFromMem(errors, section.bytes.data(), section.bytes.size(),
                                                             byHeader, byTrailer);
            if (!isQuiet(errors) || byHeader != byTrailer)
                return false;
            KvCInventoryData::extractInventoryTreeFromMem(errors,
                                                          reinterpret_cast<const unsigned char*>(section.bytes.data()),
                                                          section.bytes.size(), section.other);
            return section.other != nullptr && isQuiet(errors);
        },
        [](Section& section) { return textOf(section.other); });
    table.add<Section>(
        "KvCInventoryData::extractInventoryTreeFromFile",
        [](Section& section, KvCErrorListPool& errors) {
            delete section.other;
            section.other = nullptr;
            KvCInventoryData::extractInventoryTreeFromFile(errors, KV_SAMPLES_DIR "/single-board.inv", section.other);
            return section.other != nullptr && isQuiet(errors);
        },
        [](Section& section) { return textOf(section.other); }, Says::InItsWords);
}

}  // namespace

void addInventoryRows(Table& table)
{
    addAddressRows(table);
    addItemRows(table);
    addPassRows(table);
    addParameterRows(table);
    addFactoryRows(table);
    addSectionRows(table);
}
