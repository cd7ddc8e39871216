#include <set>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryData.h"
#include "tests/inventory/InventoryTest.h"

using namespace KvNInventoryIDs;

namespace {

/** An address of up to eight elements, with and without registered names; category 0 only where `hasZero`. */
KvCInventoryAddress anyAddress(bool hasZero)
{
    KvCInventoryAddress address;
    const auto length = *rc::gen::inRange<int>(0, 9);
    for (int i = 0; i < length; ++i) {
        const KvUInt32 category = *rc::gen::oneOf(rc::gen::inRange<KvUInt32>(hasZero ? 0 : 1, 811),
                                                  rc::gen::inRange<KvUInt32>(811, 4294967295u));
        const KvUInt32 index = *rc::gen::oneOf(rc::gen::just<KvUInt32>(1), rc::gen::arbitrary<KvUInt32>());
        address = address / KvCInventoryAddress(category, index);
    }
    return address;
}

/** A text without NUL, of any other bytes. */
std::string anyText(int longest)
{
    std::string text = *rc::gen::container<std::string>(rc::gen::inRange<char>(1, 127));
    return text.substr(0, static_cast<std::size_t>(longest));
}

void addAnyParameter(KvCErrorListPool& errors, KvCInventoryItem& item, KvUInt32 category)
{
    const std::string unit = anyText(100);
    const auto add = [&](const auto& value) {
        auto* parameter =
            new KvCInventoryParameter(errors, KvCInventoryAddress(category), anyText(200).c_str(), value, unit.c_str(),
                                      *rc::gen::arbitrary<bool>(), *rc::gen::arbitrary<KvUInt32>());
        if (item.addParameter(errors, THIS_NODE, parameter) == nullptr)
            delete parameter;
    };
    switch (*rc::gen::inRange(0, 6)) {
        case 0:
            return add(*rc::gen::arbitrary<char>());
        case 1:
            return add(*rc::gen::arbitrary<KvUInt32>());
        case 2:
            return add(*rc::gen::arbitrary<KvInt64>());
        case 3:
            return add(*rc::gen::arbitrary<double>());
        case 4:
            return add(KvCString(anyText(300).c_str()));
        default:
            return add(KvCVersion(*rc::gen::arbitrary<unsigned long long>()));
    }
}

/** A tree of up to thirty items of any shape. */
ItemOwner anyTree(KvCErrorListPool& errors)
{
    ItemOwner root(new KvCInventoryItem(errors, KvCInventoryAddress(1), anyText(200).c_str()));
    std::vector<KvCInventoryItem*> items = {root.get()};
    const auto count = *rc::gen::inRange<std::size_t>(0, 30);
    for (std::size_t i = 0; i < count; ++i) {
        const KvCInventoryAddress id(*rc::gen::arbitrary<KvUInt32>(), *rc::gen::inRange<KvUInt32>(0, 4));
        KvCInventoryItem* parent = items[*rc::gen::inRange<std::size_t>(0, items.size())];
        ItemOwner item(new KvCInventoryItem(errors, id, anyText(200).c_str()));
        if (parent->addItem(THIS_NODE, item.get()) != nullptr)
            items.push_back(item.release());
    }
    std::set<KvUInt32> ids;
    const auto parameters = *rc::gen::inRange<std::size_t>(0, 40);
    for (std::size_t i = 0; i < parameters; ++i) {
        KvCInventoryItem* item = items[*rc::gen::inRange<std::size_t>(0, items.size())];
        if (ids.insert(static_cast<KvUInt32>(i)).second)
            addAnyParameter(errors, *item, static_cast<KvUInt32>(i * 40));
    }
    return root;
}

std::string sectionOf(KvCInventoryItem& root)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    KvCInventoryData::generateInventorySection(errors, buffer, &root);
    RC_ASSERT(errors.getErrorCount() == 0u);
    return std::string(buffer.getStartPointer(), buffer.getOccupiedSize());
}

ItemOwner extract(KvCErrorListPool& errors, const std::string& section)
{
    KvCInventoryItem* root = nullptr;
    KvCInventoryData::extractInventoryTreeFromMem(errors, reinterpret_cast<const unsigned char*>(section.data()),
                                                  section.size(), root);
    return ItemOwner(root);
}

}  // namespace

RC_GTEST_PROP(InventoryProperties, AddressTextsReadBack, ())
{
    const KvCInventoryAddress address = anyAddress(false);
    KvCInventoryAddress back;
    back.readFromString(address.toString());
    RC_ASSERT(back == address);
}

RC_GTEST_PROP(InventoryProperties, PartsOfAddressesJoinToTheWhole, ())
{
    const KvCInventoryAddress head = anyAddress(true);
    const KvCInventoryAddress tail = anyAddress(true);
    const KvCInventoryAddress whole = head / tail;
    RC_ASSERT(whole.getLength() == head.getLength() + tail.getLength());
    RC_ASSERT(whole.isPrefix(head) == !tail.isEmpty());
    KvCInventoryAddress rest = whole;
    rest.removePrefix(head);
    RC_ASSERT(rest == tail);
    if (whole.getLength() > 1) {
        RC_ASSERT(whole.getHeadAddress() / whole.getLastElement() == whole);
        RC_ASSERT(whole.getFirstElement() / whole.getSubAddress() == whole);
    }
}

RC_GTEST_PROP(InventoryProperties, AnyTextIsReadWithoutHarm, ())
{
    const std::string text = *rc::gen::container<std::string>(
        rc::gen::oneOf(rc::gen::elementOf(std::string("/[]0129xXCPUROOT -+")), rc::gen::inRange<char>(1, 127)));
    KvCInventoryAddress address;
    address.readFromString(KvCString(text.c_str()));
    KvCInventoryAddress back;
    back.readFromString(address.toString());
    RC_ASSERT(back == address);
}

RC_GTEST_PROP(InventoryProperties, TreesComeBackFromTheirSections, ())
{
    KvCErrorListPool errors;
    const ItemOwner tree = anyTree(errors);
    const std::string section = sectionOf(*tree);
    const ItemOwner back = extract(errors, section);
    RC_ASSERT(errors.getErrorCount() == 0u);
    RC_ASSERT(back != nullptr);
    RC_ASSERT(back->toString(errors, 0, 0) == tree->toString(errors, 0, 0));
    RC_ASSERT(sectionOf(*back) == section);
    KvCInventoryItem* copy = nullptr;
    back->copyTree(errors, copy);
    const ItemOwner owner(copy);
    RC_ASSERT(sectionOf(*copy) == section);
}

RC_GTEST_PROP(InventoryProperties, DamagedSectionsGiveATreeOrErrors, ())
{
    KvCErrorListPool errors;
    std::string section = sectionOf(*anyTree(errors));
    const auto changes = *rc::gen::inRange(1, 6);
    for (int i = 0; i < changes; ++i) {
        const auto place = *rc::gen::inRange<std::size_t>(0, section.size());
        section[place] = *rc::gen::arbitrary<char>();
    }
    if (*rc::gen::arbitrary<bool>())
        section.resize(*rc::gen::inRange<std::size_t>(0, section.size()));
    const ItemOwner back = extract(errors, section);
    RC_ASSERT(back == nullptr || errors.getErrorCount() == 0u);
    if (back != nullptr)
        back->toString(errors, 0, 0);
}

RC_GTEST_PROP(InventoryProperties, MergingTakesEveryItemOfBothTrees, ())
{
    KvCErrorListPool errors;
    const ItemOwner target = anyTree(errors);
    const ItemOwner source = anyTree(errors);
    std::vector<KvCInventoryAddress> addresses;
    const auto collect = [&](const KvCInventoryItem& root) {
        std::vector<const KvCInventoryItem*> open = {&root};
        while (!open.empty()) {
            const KvCInventoryItem* item = open.back();
            open.pop_back();
            addresses.push_back(item->getAddress().getSubAddress());
            for (const KvCInventoryItem* child = item->getFirstSubItem(); child != nullptr; child = child->getNext())
                open.push_back(child);
        }
    };
    collect(*target);
    collect(*source);
    KvCInventoryItem* into = target.get();
    KvCInventoryItem* copy = nullptr;
    source->copyTree(errors, copy);
    KvCInventoryItem::mergeTree(errors, into, copy, *rc::gen::inRange<KvUInt32>(0, 2));
    RC_ASSERT(errors.getErrorCount() == 0u);
    for (const KvCInventoryAddress& address : addresses)
        RC_ASSERT(target->getItem(address) != nullptr);
}
