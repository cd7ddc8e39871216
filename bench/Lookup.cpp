#include "bench/Lookup.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>

#include "base/KvCBuffer.h"
#include "bench/Walk.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/ids/KvNInventoryIDs.h"

namespace {

using namespace KvNLookup;

constexpr std::size_t lots = 4096;

PlainParameter plainOf(const KvCInventoryParameter& parameter)
{
    PlainParameter plain;
    plain.type = parameter.getType();
    if (parameter.getDescription() != nullptr)
        plain.description = parameter.getDescription();
    if (const auto* number = parameter.valueIf<KvUInt32>())
        plain.value = *number;
    else if (const auto* wide = parameter.valueIf<double>())
        plain.value = *wide;
    else if (const auto* narrow = parameter.valueIf<float>())
        plain.value = *narrow;
    else if (const auto* text = parameter.valueIf<KvCString>())
        plain.value = std::string(text->c_str());
    else if (const auto* version = parameter.valueIf<KvCVersion>())
        plain.value = std::uint64_t{version->getAsULong64()};
    plain.unit = parameter.getUnit();
    plain.isModifiable = parameter.isModifiable();
    plain.relevance = parameter.getRelevance();
    return plain;
}

std::unique_ptr<PlainItem> plainOf(const KvCInventoryItem& root)
{
    auto top = std::make_unique<PlainItem>();
    std::unordered_map<const KvCInventoryItem*, PlainItem*> known{{&root, top.get()}};
    for (const KvCInventoryItem* item = &root; item != nullptr; item = KvNWalk::next(item, &root)) {
        PlainItem* plain = known[item];
        if (item != &root) {
            auto& place = known.at(item->getParent())->children[keyOf(item->getClassId(), item->getUnitId())];
            place = std::make_unique<PlainItem>();
            plain = known[item] = place.get();
        }
        plain->description = item->getDescription();
        item->forEachParameter([plain](const KvCInventoryParameter& parameter) {
            plain->parameters[parameter.getId()] = plainOf(parameter);
            return true;
        });
    }
    return top;
}

KvNTrees::Tree makeTree(KvCErrorListPool& errors, const KvNTrees::Shape& shape, KvUInt32 parameters)
{
    KvNTrees::Tree made;
    if (std::strcmp(shape.name, "wide") == 0) {
        made.reset(new KvCInventoryItem(errors, KvNInventoryIDs::ROOT, "ROOT"));
        KvNTrees::fillWide(errors, *made->addPath(errors, KvNInventoryIDs::HCN / KvNInventoryIDs::MODULE), parameters);
    } else {
        made = shape.make(errors, parameters);
    }
    KvCBuffer stream(errors);
    KvCInventoryItemFactory factory(errors);
    factory.serialize(errors, &stream, made.get());
    KvCInventoryItem* read = nullptr;
    factory.deserialize(errors, read, &stream);
    return KvNTrees::Tree(read);
}

void drawPaths(Paths& paths)
{
    std::vector<const KvCInventoryParameter*> all;
    for (const KvCInventoryItem* item = paths.tree.get(); item != nullptr; item = KvNWalk::next(item, paths.tree.get()))
        item->forEachParameter([&all](const KvCInventoryParameter& parameter) {
            all.push_back(&parameter);
            return true;
        });
    std::mt19937 lot(1);
    for (std::size_t i = 0; i < lots; ++i)
        paths.addresses.push_back(all[lot() % all.size()]->getAddress().getSubAddress());
}

void verify(const Paths& paths, const KvCErrorListPool& errors)
{
    bool good = errors.getErrorCount() == 0;
    for (const KvCInventoryAddress& address : paths.addresses) {
        const KvCInventoryParameter* own = paths.tree->getParameter(address);
        const PlainParameter* found = find(*paths.plain, address);
        good = good && own != nullptr && found != nullptr && address.getLength() == 4;
        if (!good)
            break;
        const PlainParameter expected = plainOf(*own);
        good = expected.type == found->type && expected.description == found->description &&
               expected.value == found->value && expected.unit == found->unit &&
               expected.isModifiable == found->isModifiable && expected.relevance == found->relevance;
    }
    if (good)
        return;
    std::fprintf(stderr, "a path of four steps leads to another parameter through the maps\n");
    std::exit(1);
}

}  // namespace

namespace KvNLookup {

bool isMadeFor(const KvNTrees::Shape& shape)
{
    return std::strcmp(shape.name, "realistic") == 0 || std::strcmp(shape.name, "wide") == 0;
}

const Paths& of(const KvNTrees::Shape& shape, KvUInt32 parameters)
{
    static std::map<std::pair<std::string, KvUInt32>, Paths> all;
    Paths& paths = all[{shape.name, parameters}];
    if (paths.tree != nullptr)
        return paths;
    KvCErrorListPool errors;
    paths.tree = makeTree(errors, shape, parameters);
    paths.plain = plainOf(*paths.tree);
    drawPaths(paths);
    verify(paths, errors);
    return paths;
}

}  // namespace KvNLookup
