#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cstring>

#include "tests/tools/common/TreeJsonTest.h"

namespace {

/** Any bytes but NUL, most of them ordinary. */
rc::Gen<std::string> anyText()
{
    return rc::gen::weightedOneOf<std::string>({{3, rc::gen::container<std::string>(rc::gen::inRange<char>('!', '~'))},
                                                {1, rc::gen::container<std::string>(rc::gen::nonZero<char>())}});
}

/** The bits of a float that is not one of the many NaNs. */
template <class T, class Bits>
T anyFloat()
{
    const Bits bits = *rc::gen::arbitrary<Bits>();
    T value;
    std::memcpy(&value, &bits, sizeof value);
    return value == value ? value : T(0);
}

template <class T>
T anyValue()
{
    if constexpr (std::is_same_v<T, float>)
        return anyFloat<float, std::uint32_t>();
    else if constexpr (std::is_same_v<T, double>)
        return anyFloat<double, std::uint64_t>();
    else if constexpr (std::is_same_v<T, KvCString>)
        return KvCString((*anyText()).c_str());
    else if constexpr (std::is_same_v<T, KvCVersion>)
        return KvCVersion(*rc::gen::arbitrary<unsigned long long>());
    else if constexpr (KvNElement::isArray<T>) {
        using Element = std::remove_cvref_t<decltype(*T().getData())>;
        std::vector<Element> elements;
        const auto count = *rc::gen::inRange<std::size_t>(0, 5);
        for (std::size_t i = 0; i < count; ++i)
            elements.push_back(anyValue<Element>());
        return T(static_cast<KvUInt32>(count), elements.data(), nullptr);
    } else
        return *rc::gen::arbitrary<T>();
}

void addParameter(KvCInventoryItem& item, KvUInt32 id)
{
    static const std::vector<KvUInt32> types = {0x111, 0x112, 0x114, 0x118,  0x121,  0x122,  0x124,
                                                0x128, 0x214, 0x218, 0x1124, 0x1218, 0x2000, 0x4000};
    KvCErrorListPool errors;
    const KvUInt32 type = *rc::gen::elementOf(types);
    // What a section can hold.
    const std::string description = (*anyText()).substr(0, 254);
    auto* parameter = new KvCInventoryParameter(errors, KvCInventoryAddress(id), description.c_str(), type);
    KvNElement::dispatch(
        type,
        [&](auto kind) {
            using T = typename decltype(kind)::Value;
            static_cast<KvCParam*>(parameter)->setValue(errors, anyValue<T>());
        },
        [] {});
    parameter->setUnit((*anyText()).substr(0, 100).c_str());
    parameter->setModifiableFlag(*rc::gen::arbitrary<bool>());
    parameter->setRelevance(*rc::gen::arbitrary<KvUInt32>());
    item.addParameter(errors, KvCInventoryAddress(), parameter);
}

void fill(KvCInventoryItem& item, int levels)
{
    KvCErrorListPool errors;
    const auto parameters = *rc::gen::inRange<KvUInt32>(0, 4);
    for (KvUInt32 i = 0; i < parameters; ++i)
        addParameter(item, *rc::gen::inRange<KvUInt32>(0, 900) * 4 + i);
    const auto items = levels > 0 ? *rc::gen::inRange<KvUInt32>(0, 4) : 0;
    for (KvUInt32 i = 0; i < items; ++i) {
        const KvCInventoryAddress id(*rc::gen::inRange<KvUInt32>(0, 900), i);
        auto* child = new KvCInventoryItem(errors, id, (*anyText()).substr(0, 254).c_str());
        fill(*child, levels - 1);
        item.addItem(KvCInventoryAddress(), child);
    }
}

}  // namespace

RC_GTEST_PROP(TreeJsonProperties, AnyTreeWrittenAndReadBackIsTheSame, ())
{
    KvCErrorListPool errors;
    KvCInventoryItem tree(errors, KvCInventoryAddress(*rc::gen::inRange<KvUInt32>(0, 900), 1), "root");
    fill(tree, 3);
    std::string problem;
    const auto again = jsonTree(jsonText(tree), problem);
    RC_ASSERT(problem == "");
    RC_ASSERT(sectionBytes(*again) == sectionBytes(tree));
}

RC_GTEST_PROP(TreeJsonProperties, AnyBytesEndInATreeOrInAProblem, ())
{
    const auto text = *rc::gen::container<std::string>(rc::gen::weightedOneOf<char>(
        {{3, rc::gen::elementOf(std::string("{}[]\",:0123456789.-+eEaiglnrtu\\ "))}, {1, rc::gen::arbitrary<char>()}}));
    std::string problem;
    const auto tree = jsonTree(text, problem);
    RC_ASSERT((tree == nullptr) == !problem.empty());
}

RC_GTEST_PROP(TreeJsonProperties, ADamagedDocumentEndsInATreeOrInAProblem, ())
{
    static const std::string sample = fileBytes(std::string(KV_SAMPLES_DIR) + "/single-board.json").substr(0, 6000);
    std::string text = sample + std::string(20, '}');
    const auto changes = *rc::gen::inRange(1, 5);
    for (int i = 0; i < changes; ++i) {
        const auto place = *rc::gen::inRange<std::size_t>(0, text.size());
        if (*rc::gen::arbitrary<bool>())
            text[place] = *rc::gen::elementOf(std::string("{}[]\",:0-1x"));
        else
            text.erase(place, *rc::gen::inRange<std::size_t>(1, 40));
    }
    std::string problem;
    const auto tree = jsonTree(text, problem);
    RC_ASSERT((tree == nullptr) == !problem.empty());
}
