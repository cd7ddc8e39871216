#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "base/BigEndian.h"
#include "base/KvCBuffer.h"
#include "composite/ElementTypes.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "tests/inventory/InventoryTest.h"

/*
 * Trees of any shape, written and read back; and streams of them that end anywhere. The same trees in each run.
 */

using namespace KvNInventoryIDs;
using Bytes = std::vector<unsigned char>;

namespace {

#if defined(KV_PLAIN_OBJECTS)
constexpr unsigned usualTrees = 20000;  // with sanitizers
#else
constexpr unsigned usualTrees = 100000;
#endif
constexpr unsigned samples = 1000;

unsigned treeCount()
{
    const char* text = std::getenv("KV_FUZZ_TREES");
    return text == nullptr ? usualTrees : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

/** Makes trees up. */
class Generator
{
public:
    explicit Generator(unsigned seed) : m_random(seed) {}

    /** Up to `mostItems` items below the root, and on average as many parameters. */
    ItemOwner tree(unsigned mostItems)
    {
        KvCErrorListPool errors;
        ItemOwner root(new KvCInventoryItem(errors, KvCInventoryAddress(id(), below(4)), text(254).c_str()));
        std::vector<KvCInventoryItem*> items{root.get()};
        for (unsigned count = below(mostItems + 1); count > 0; --count) {
            const KvCInventoryAddress itemId(id(), below(3));
            ItemOwner item(new KvCInventoryItem(errors, itemId, text(254).c_str()));
            if (items[below(static_cast<unsigned>(items.size()))]->addItem(THIS_NODE, item.get()) != nullptr)
                items.push_back(item.release());
        }
        for (unsigned count = below(2 * mostItems + 1); count > 0; --count)
            addParameter(*items[below(static_cast<unsigned>(items.size()))]);
        return root;
    }

private:
    unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }
    /** Registered ones, and any other number. */
    KvUInt32 id() { return below(4) == 0 ? static_cast<KvUInt32>(m_random()) | 1 : 1 + below(810); }

    /** Mostly short and ordinary; any byte but NUL now and then. */
    std::string text(unsigned longest)
    {
        const unsigned kind = below(8);
        std::string result(kind == 0 ? longest - below(4) : kind == 1 ? below(longest) : below(20), 'x');
        for (char& character : result)
            character = kind == 2 ? static_cast<char>(1 + below(255)) : static_cast<char>('a' + below(26));
        return result;
    }

    template <class T>
    T value()
    {
        if constexpr (std::is_same_v<T, KvCString>) {
            return KvCString(text(600).c_str());
        } else if constexpr (std::is_same_v<T, KvCVersion>) {
            return KvCVersion(static_cast<unsigned long long>(m_random()));
        } else if constexpr (KvNElement::isArray<T>) {
            using Element = std::remove_cvref_t<decltype(*T().getData())>;
            std::vector<Element> elements;
            for (unsigned count = below(6); count > 0; --count)
                elements.push_back(value<Element>());
            return T(static_cast<KvUInt32>(elements.size()), elements.data(), nullptr);
        } else {
            const KvUInt64 bits = m_random();
            T result;
            std::memcpy(&result, &bits, sizeof result);
            return result;
        }
    }

    void addParameter(KvCInventoryItem& item)
    {
        static constexpr KvUInt32 types[] = {0x111, 0x112, 0x114, 0x118,  0x121,  0x122,  0x124,
                                             0x128, 0x214, 0x218, 0x1124, 0x1218, 0x2000, 0x4000};
        KvCErrorListPool errors;
        const KvUInt32 type = types[below(std::size(types))];
        ParameterOwner parameter(new KvCInventoryParameter(errors, KvCInventoryAddress(id()), text(254).c_str(), type));
        KvNElement::dispatch(
            type,
            [&](auto kind) {
                using T = typename decltype(kind)::Value;
                static_cast<KvCParam&>(*parameter).setValue(errors, value<T>());
            },
            [] {});
        parameter->setUnit(text(100).c_str());
        parameter->setModifiableFlag(below(2) != 0);
        parameter->setRelevance(static_cast<KvUInt32>(m_random()));
        if (item.addParameter(errors, THIS_NODE, parameter.get()) != nullptr)
            parameter.release();
    }

    std::mt19937_64 m_random;
};

Bytes streamOf(KvCInventoryItem& tree)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    KvCInventoryItemFactory(errors).serialize(errors, &buffer, &tree);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return Bytes(buffer.getStartPointer(), buffer.getStartPointer() + buffer.getOccupiedSize());
}

ItemOwner treeOf(KvCErrorListPool& errors, const unsigned char* bytes, std::size_t size)
{
    KvCBuffer buffer(errors);
    if (size != 0)
        buffer.writeBuffer(errors, bytes, static_cast<KvUInt32>(size), 1);
    KvCInventoryItem* tree = nullptr;
    KvCInventoryItemFactory(errors).deserialize(errors, tree, &buffer);
    return ItemOwner(tree);
}

/** Whether two values are the same, to the bit. */
bool isSameValue(const KvCInventoryParameter& left, const KvCInventoryParameter& right)
{
    bool isSame = left.getType() == right.getType();
    KvNElement::dispatch(
        left.getType(),
        [&](auto kind) {
            using T = typename decltype(kind)::Value;
            const T* const first = left.valueIf<T>();
            const T* const second = right.valueIf<T>();
            if (first == nullptr || second == nullptr)
                isSame = false;
            else if constexpr (KvNElement::isArray<T>)
                isSame = isSame && first->getCount() == second->getCount() &&
                         (first->getCount() == 0 || std::memcmp(first->getData(), second->getData(),
                                                                first->getCount() * sizeof *first->getData()) == 0);
            else if constexpr (std::is_same_v<T, KvCString> || std::is_same_v<T, KvCVersion>)
                isSame = isSame && *first == *second;
            else
                isSame = isSame && std::memcmp(first, second, sizeof(T)) == 0;
        },
        [&] { isSame = false; });
    return isSame;
}

bool isSameParameter(const KvCInventoryParameter& left, const KvCInventoryParameter& right)
{
    return left.getId() == right.getId() && std::string(left.getDescr()) == right.getDescr() &&
           std::string(left.getUnit()) == right.getUnit() && left.isModifiable() == right.isModifiable() &&
           left.getRelevance() == right.getRelevance() && isSameValue(left, right);
}

/** Whether two trees are the same: ids, texts, parameters and values, all in the same order. */
bool isSameTree(const KvCInventoryItem& left, const KvCInventoryItem& right)
{
    std::vector<std::pair<const KvCInventoryItem*, const KvCInventoryItem*>> open{{&left, &right}};
    while (!open.empty()) {
        const auto [first, second] = open.back();
        open.pop_back();
        if (first->getID() != second->getID() || std::string(first->getDescription()) != second->getDescription())
            return false;
        std::vector<const KvCInventoryParameter*> others;
        second->forEachParameter([&](const KvCInventoryParameter& parameter) {
            others.push_back(&parameter);
            return true;
        });
        std::size_t next = 0;
        const bool isSame = first->forEachParameter([&](const KvCInventoryParameter& parameter) {
            return next < others.size() && isSameParameter(parameter, *others[next++]);
        });
        if (!isSame || next != others.size())
            return false;
        const KvCInventoryItem* child = first->getFirstSubItem();
        const KvCInventoryItem* other = second->getFirstSubItem();
        for (; child != nullptr && other != nullptr; child = child->getNext(), other = other->getNext())
            open.emplace_back(child, other);
        if (child != other)
            return false;
    }
    return true;
}

/** After how many bytes a record ends, and how many nodes are open then. */
std::vector<int> openNodesAt(const Bytes& stream)
{
    constexpr int insideRecord = -1;
    std::vector<int> open(stream.size() + 1, insideRecord);
    int depth = 0;
    open[0] = 0;
    for (std::size_t at = 0; at < stream.size(); open[at] = depth) {
        const unsigned tag = stream[at];
        if (tag == 1)
            at += 10u + stream[at + 9];
        else if (tag == 3)
            at += 1 + KvNBigEndian::load<KvUInt32>(stream.data() + at + 1);
        else
            ++at;
        depth += tag == 1 ? 1 : tag == 2 ? -1 : 0;
    }
    return open;
}

}  // namespace

TEST(GeneratedTrees, ATreeReadsBackFromItsStreamAsItWas)
{
    Generator generator(4711);
    const unsigned count = treeCount();
    for (unsigned i = 0; i < count; ++i) {
        const ItemOwner tree = generator.tree(i % 50 == 0 ? 60 : 8);
        const Bytes stream = streamOf(*tree);
        KvCErrorListPool errors;
        const ItemOwner again = treeOf(errors, stream.data(), stream.size());
        ASSERT_EQ(errors.getErrorCount(), 0u) << "tree " << i << ": " << errors.getErrorText(0);
        ASSERT_NE(again, nullptr) << "tree " << i;
        ASSERT_TRUE(isSameTree(*tree, *again)) << "tree " << i;
        ASSERT_EQ(streamOf(*again), stream) << "tree " << i;
    }
}

TEST(GeneratedTrees, AStreamThatEndsInsideARecordIsAnErrorAndOneThatEndsBehindOneIsItsTreeSoFar)
{
    Generator generator(42);
    for (unsigned i = 0; i < samples; ++i) {
        const Bytes stream = streamOf(*generator.tree(3));
        const std::vector<int> open = openNodesAt(stream);
        for (std::size_t size = 0; size < stream.size(); ++size) {
            KvCErrorListPool errors;
            // A block of its own size, so that a sanitizer sees what is read behind it.
            const std::unique_ptr<unsigned char[]> prefix(new unsigned char[size]);
            std::copy_n(stream.begin(), size, prefix.get());
            const ItemOwner tree = treeOf(errors, prefix.get(), size);
            if (open[size] < 0) {
                ASSERT_EQ(tree, nullptr) << "sample " << i << " cut at " << size;
                // Behind what could not be read.
                const Codes codes = codesOf(errors);
                ASSERT_GE(codes.size(), 2u) << "sample " << i << " cut at " << size;
                ASSERT_EQ(Codes(codes.end() - 2, codes.end()), (Codes{0xA02000, 0x1302801}))
                    << "sample " << i << " cut at " << size;
                continue;
            }
            ASSERT_EQ(errors.getErrorCount(), 0u) << "sample " << i << " cut at " << size;
            ASSERT_EQ(tree == nullptr, size == 0) << "sample " << i << " cut at " << size;
            if (tree == nullptr)
                continue;
            Bytes closed(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(size));
            closed.insert(closed.end(), static_cast<std::size_t>(open[size]), 2);
            ASSERT_EQ(streamOf(*tree), closed) << "sample " << i << " cut at " << size;
        }
    }
}
