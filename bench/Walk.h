#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "composite/ElementTypes.h"
#include "inventory/KvCInventoryItem.h"

/**
 * What every reader does with a tree, ours and each peer's: it takes every field of every item and parameter, items
 * before what is below them, parameters before items. A sink takes the fields: Sum as cheaply as can be while time is
 * taken, Digest so that two trees with the same digest hold the same.
 */
namespace KvNWalk {

/** A field more or less is seen, at the price of an addition. */
struct Sum
{
    void number(std::uint64_t value) { total += value; }
    void text(const char* text, std::size_t length)
    {
        total += length;
        if (length != 0)
            total += static_cast<unsigned char>(text[length - 1]);
    }
    void parameter() { ++parameters; }

    std::uint64_t total = 0;
    std::uint64_t parameters = 0;
};

/** Every bit of every field and their order count. */
struct Digest
{
    void number(std::uint64_t value)
    {
        for (int shift = 0; shift < 64; shift += 8)
            byte(static_cast<unsigned char>(value >> shift));
    }
    void text(const char* text, std::size_t length)
    {
        number(length);
        for (std::size_t i = 0; i < length; ++i)
            byte(static_cast<unsigned char>(text[i]));
    }
    void parameter() { ++parameters; }
    bool operator==(const Digest&) const = default;

    std::uint64_t hash = 0xCBF29CE484222325;
    std::uint64_t parameters = 0;

private:
    void byte(unsigned char value) { hash = (hash ^ value) * 0x100000001B3; }
};

template <class Sink>
void take(const KvCInventoryParameter& parameter, Sink& sink)
{
    sink.parameter();
    sink.number(parameter.getId());
    sink.number(parameter.getType());
    const char* description = parameter.getDescription();
    sink.text(description, description == nullptr ? 0 : std::strlen(description));
    if (const auto* number = parameter.valueIf<KvUInt32>())
        sink.number(*number);
    else if (const auto* wide = parameter.valueIf<double>())
        sink.number(std::bit_cast<std::uint64_t>(*wide));
    else if (const auto* narrow = parameter.valueIf<float>())
        sink.number(std::bit_cast<std::uint32_t>(*narrow));
    else if (const auto* text = parameter.valueIf<KvCString>())
        sink.text(text->c_str(), text->length());
    else if (const auto* version = parameter.valueIf<KvCVersion>())
        sink.number(version->getAsULong64());
    sink.text(parameter.getUnit(), parameter.getUnitLength());
    sink.number(parameter.isModifiable());
    sink.number(parameter.getRelevance());
}

/** The item after `at` in the tree below `root`, each before what is below it; null behind the last. */
inline const KvCInventoryItem* next(const KvCInventoryItem* at, const KvCInventoryItem* root)
{
    if (const KvCInventoryItem* child = at->getFirstSubItem())
        return child;
    while (at != root) {
        if (const KvCInventoryItem* sibling = at->getNext())
            return sibling;
        at = at->getParent();
    }
    return nullptr;
}

template <class Sink>
void walk(const KvCInventoryItem& root, Sink& sink)
{
    for (const KvCInventoryItem* item = &root; item != nullptr; item = next(item, &root)) {
        sink.number(item->getClassId());
        sink.number(item->getUnitId());
        const char* description = item->getDescription();
        sink.text(description, std::strlen(description));
        item->forEachParameter([&sink](const KvCInventoryParameter& parameter) {
            take(parameter, sink);
            return true;
        });
    }
}

}  // namespace KvNWalk
