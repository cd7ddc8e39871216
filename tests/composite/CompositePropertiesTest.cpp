#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>

#include "StreamBuilder.h"
#include "composite/CompositeWalk.h"

namespace {

std::string anyText()
{
    auto text = *rc::gen::container<std::string>(rc::gen::inRange('\1', '\x7F'));
    return text.substr(0, 200);
}

template <class T>
T any()
{
    return *rc::gen::arbitrary<T>();
}

/** Gives the node a parameter of any type and value. */
void addParameter(KvCErrorListPool& errors, KvCComposite& node, KvUInt32 id)
{
    const std::string name = anyText();
    const char* const descr = name.c_str();
    const KvUInt32 flags = *rc::gen::element<KvUInt32>(0, 0x20000, 0x40000, 0x80000);
    switch (*rc::gen::inRange(0, 14)) {
        case 0:
            node.createParameter(errors, id, descr, flags, any<char>());
            break;
        case 1:
            node.createParameter(errors, id, descr, flags, any<short>());
            break;
        case 2:
            node.createParameter(errors, id, descr, flags, any<std::int32_t>());
            break;
        case 3:
            node.createParameter(errors, id, descr, flags, any<std::int64_t>());
            break;
        case 4:
            node.createParameter(errors, id, descr, flags, any<unsigned char>());
            break;
        case 5:
            node.createParameter(errors, id, descr, flags, any<unsigned short>());
            break;
        case 6:
            node.createParameter(errors, id, descr, flags, any<std::uint32_t>());
            break;
        case 7:
            node.createParameter(errors, id, descr, flags, any<std::uint64_t>());
            break;
        case 8:
            node.createParameter(errors, id, descr, flags, any<float>());
            break;
        case 9:
            node.createParameter(errors, id, descr, flags, any<double>());
            break;
        case 10: {
            const auto numbers = any<std::vector<std::uint32_t>>();
            node.createParameter(errors, id, descr, flags, static_cast<KvUInt32>(numbers.size()), numbers.data(),
                                 nullptr);
            break;
        }
        case 11: {
            const auto numbers = any<std::vector<double>>();
            node.createParameter(errors, id, descr, flags, static_cast<KvUInt32>(numbers.size()), numbers.data(),
                                 nullptr);
            break;
        }
        case 12:
            node.createParameter(errors, id, descr, flags, KvCString(anyText().c_str()));
            break;
        default:
            node.createParameter(errors, id, descr, flags, KvCVersion(any<unsigned long long>()));
    }
}

/** A tree of up to 30 nodes in any shape. */
std::unique_ptr<KvCComposite> anyTree(KvCErrorListPool& errors)
{
    auto root = makeNode(any<std::uint32_t>(), any<std::uint32_t>(), anyText().c_str());
    std::vector<KvCComposite*> nodes{root.get()};
    const int count = *rc::gen::inRange(0, 30);
    for (int i = 0; i < count; ++i) {
        KvCComposite* const parent = nodes[*rc::gen::inRange<std::size_t>(0, nodes.size())];
        KvCComposite* const node =
            addNode(*parent, *rc::gen::inRange(0U, 50U), static_cast<KvUInt32>(i), anyText().c_str());
        nodes.push_back(node);
    }
    for (KvCComposite* const node : nodes) {
        const int parameters = *rc::gen::inRange(0, 5);
        for (int i = 0; i < parameters; ++i)
            addParameter(errors, *node, static_cast<KvUInt32>(i));
    }
    return root;
}

TEST(CompositeProperties, AnyTreeWrittenAndReadBackIsTheSame)
{
    EXPECT_TRUE(rc::check([] {
        KvCErrorListPool errors;
        KvCCompositeFactory factory(errors);
        const auto tree = anyTree(errors);
        factory.serialize(errors, tree.get(), 0, nullptr);
        const std::unique_ptr<KvCComposite> copy(factory.deserialize(errors, nullptr, nullptr));
        RC_ASSERT(errors.getErrorCount() == 0U);
        RC_ASSERT(shapeOf(*copy) == shapeOf(*tree));
        KvCBuffer again(errors);
        factory.serialize(errors, copy.get(), 0, &again);
        RC_ASSERT(bytesOf(again) == bytesOf(*factory.getBuffer()));
        // Read once more into the copy: nothing is made and nothing has changed.
        KvCComposite top(errors, 0, 0, "top");
        top.attach(factory.deserialize(errors, nullptr, nullptr));
        RC_ASSERT(factory.deserialize(errors, &top, nullptr) == nullptr);
        RC_ASSERT(errors.getErrorCount() == 0U);
        factory.serialize(errors, top.getChild(), 0, &again);
        RC_ASSERT(again.getOccupiedSize() == 2 * factory.getBuffer()->getOccupiedSize());
    }));
}

/** Keeps every tree of a stream: the deserializer itself owns none. */
class ReaderOfTrees : public KvCBinDeserializer
{
public:
    using KvCBinDeserializer::KvCBinDeserializer;

    void CompositeStart(KvCErrorListPool& errors) override
    {
        const KvCComposite* const before = getRoot();
        KvCBinDeserializer::CompositeStart(errors);
        if (getRoot() != before)
            m_trees.emplace_back(getRoot());
    }

private:
    std::vector<std::unique_ptr<KvCComposite>> m_trees;
};

/** Reads the bytes; whatever they are, it ends in trees or in errors. */
void readAny(const Bytes& bytes)
{
    KvCErrorListPool errors;
    KvCCompositeFactory factory(errors);
    const auto buffer = bufferOf(bytes);
    ReaderOfTrees deserializer(errors);
    factory.setBinaryDeserializer(&deserializer);
    factory.deserialize(errors, nullptr, buffer.get());
    if (deserializer.getActParameter() != nullptr && deserializer.getActParameter()->isDeletable())
        delete deserializer.getActParameter();
    RC_ASSERT(errors.getErrorCount() != 0U || buffer->getReadPosition() == buffer->getWritePosition());
}

TEST(CompositeProperties, AnyBytesEndInATreeOrInErrors)
{
    EXPECT_TRUE(rc::check([](const Bytes& bytes) { readAny(bytes); }));
}

TEST(CompositeProperties, AnyBrokenStreamEndsInATreeOrInErrors)
{
    EXPECT_TRUE(rc::check([] {
        KvCErrorListPool errors;
        KvCCompositeFactory factory(errors);
        factory.serialize(errors, anyTree(errors).get(), 0, nullptr);
        Bytes bytes = bytesOf(*factory.getBuffer());
        const int changes = *rc::gen::inRange(1, 5);
        for (int i = 0; i < changes && !bytes.empty(); ++i) {
            const auto at = *rc::gen::inRange<std::size_t>(0, bytes.size());
            switch (*rc::gen::inRange(0, 4)) {
                case 0:
                    bytes[at] = any<unsigned char>();
                    break;
                case 1:
                    bytes.resize(at);
                    break;
                case 2:
                    bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(at));
                    break;
                default:
                    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), any<unsigned char>());
            }
        }
        readAny(bytes);
    }));
}

/** Any sequence of chain operations leaves links that lead only to living nodes; sanitizers see the rest. */
TEST(CompositeProperties, AnyChangesOfChainsKeepTheLinksTrue)
{
    EXPECT_TRUE(rc::check([] {
        KvCErrorListPool errors;
        std::vector<KvCComposite*> alive;
        for (KvUInt32 i = 0; i < 12; ++i)
            alive.push_back(makeNode(i % 3, i).release());
        const auto pick = [&] { return alive[*rc::gen::inRange<std::size_t>(0, alive.size())]; };
        // Destroying a node destroys what is in its chains: whoever died says so.
        const auto forgetDead = [&](KvCComposite* dying) {
            std::vector<const KvCComposite*> dead;
            for (const KvCComposite* node = dying; node != nullptr;
                 node = KvNCompositeWalk::nextInPreOrder(node, dying))
                dead.push_back(node);
            std::erase_if(alive, [&](const KvCComposite* node) {
                return std::find(dead.begin(), dead.end(), node) != dead.end();
            });
        };
        const int steps = *rc::gen::inRange(1, 200);
        for (int i = 0; i < steps && alive.size() > 1; ++i) {
            KvCComposite* const node = pick();
            KvCComposite* const other = pick();
            switch (*rc::gen::inRange(0, 6)) {
                case 0:
                case 1:
                    if (node->searchComposite(other->getClassId(), other->getUnitId()) == nullptr)
                        node->attach(other);
                    break;
                case 2:
                    node->detachChild(other);
                    break;
                case 3:
                    node->replaceChild(errors, other, node->getChild());
                    break;
                case 4:
                    node->setSibling(*rc::gen::inRange(0, 3) == 0 ? nullptr : other);
                    break;
                default:
                    node->setFriend(other);
                    if (*rc::gen::inRange(0, 8) == 0) {
                        forgetDead(node);
                        delete node;
                    }
            }
            for (const KvCComposite* const each : alive) {
                KvUInt32 children = 0;
                const KvCComposite* last = nullptr;
                for (const KvCComposite* child = each->getChild(); child != nullptr; child = child->getSibling()) {
                    RC_ASSERT(++children < 100U);
                    RC_ASSERT(std::find(alive.begin(), alive.end(), child) != alive.end());
                    last = child;
                }
                RC_ASSERT(children == each->getChildCount());
                RC_ASSERT((last == nullptr) == (each->getChild() == nullptr));
                for (const KvCComposite* const target :
                     {each->getParent(), each->getSibling(), each->getFriend(), each->getLastChild()})
                    RC_ASSERT(target == nullptr || std::find(alive.begin(), alive.end(), target) != alive.end());
            }
        }
        while (!alive.empty()) {
            KvCComposite* const node = alive.front();
            forgetDead(node);
            delete node;
        }
    }));
}

}  // namespace
