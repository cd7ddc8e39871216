#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include "base/KvCVersion.h"
#include "bench/Trees.h"

/** Lookups by addresses of four steps, and the same paths through a tree of std::unordered_map. */
namespace KvNLookup {

struct PlainParameter
{
    KvUInt32 type = 0;
    std::string description;
    std::variant<KvUInt32, double, float, std::string, std::uint64_t> value;
    std::string unit;
    bool isModifiable = false;
    KvUInt32 relevance = 0;
};

struct PlainItem
{
    std::string description;
    std::unordered_map<KvUInt32, PlainParameter> parameters;                 ///< by ID
    std::unordered_map<std::uint64_t, std::unique_ptr<PlainItem>> children;  ///< by category and index
};

/** Parameters of a tree drawn by lot, the same ones for both. */
struct Paths
{
    KvNTrees::Tree tree;
    std::unique_ptr<PlainItem> plain;
    std::vector<KvCInventoryAddress> addresses;
};

/** Whether the shape has parameters four steps below some root: realistic has, wide is put below two items. */
bool isMadeFor(const KvNTrees::Shape& shape);

/** Made once; ends the program when the maps give another parameter than the tree for any path. */
const Paths& of(const KvNTrees::Shape& shape, KvUInt32 parameters);

inline std::uint64_t keyOf(KvUInt32 category, KvUInt32 index)
{
    return std::uint64_t{category} << 32 | index;
}

/** Null when there is none. */
inline const PlainParameter* find(const PlainItem& root, const KvCInventoryAddress& address)
{
    const PlainItem* item = &root;
    for (KvUInt32 step = 0; step + 1 < address.getLength(); ++step) {
        const auto found = item->children.find(keyOf(address.getCategoryAt(step), address.getIndexAt(step)));
        if (found == item->children.end())
            return nullptr;
        item = found->second.get();
    }
    const auto found = item->parameters.find(address.getCategory());
    return found == item->parameters.end() ? nullptr : &found->second;
}

}  // namespace KvNLookup
