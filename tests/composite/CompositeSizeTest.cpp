#include <gtest/gtest.h>

#include "StreamBuilder.h"
#include "composite/CompositeWalk.h"
#include "composite/KvCXmlSerializer.h"
#include "tests/support/FailingAllocation.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
constexpr KvUInt32 many = 200000;
#else
constexpr KvUInt32 many = 1000000;
#endif

/** Trees as large as the system promises to handle, in linear time and on a normal stack. */
class CompositeSizeTest : public testing::Test
{
protected:
    /** Writes the tree, reads it back, and writes that again: the same bytes. */
    std::unique_ptr<KvCComposite> roundTrip(KvCComposite& root)
    {
        factory.serialize(errors, &root, 0, nullptr);
        std::unique_ptr<KvCComposite> copy(factory.deserialize(errors, nullptr, nullptr));
        EXPECT_EQ(errors.getErrorCount(), 0U);
        KvCBuffer again(errors);
        factory.serialize(errors, copy.get(), 0, &again);
        EXPECT_TRUE(bytesOf(again) == bytesOf(*factory.getBuffer()));
        return copy;
    }

    KvCErrorListPool errors;
    KvCCompositeFactory factory{errors};
};

TEST_F(CompositeSizeTest, OneNodeWithManyParameters)
{
    KvCComposite root(errors, 1, 1, "root");
    for (KvUInt32 id = 0; id < many; ++id)
        ASSERT_NE(root.createParameter(errors, id, "p", 0, id), nullptr);
    const auto copy = roundTrip(root);
    EXPECT_EQ(copy->getParameterList()->getCount(), many);
    KvUInt64 sum = 0;
    for (KvUInt32 place = 0; place < many; ++place)
        sum += copy->getParameterByIndex(place)->getValueUInt32(errors);
    EXPECT_EQ(sum, static_cast<KvUInt64>(many) * (many - 1) / 2);
    for (KvUInt32 id = 0; id < many; ++id)
        ASSERT_EQ(copy->setParameter(errors, id, id + 1), 0);
    for (KvUInt32 id = 0; id < many; ++id)
        copy->removeParameter(errors, id);
    EXPECT_TRUE(copy->getParameterList()->isEmpty());
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(CompositeSizeTest, OneNodeWithManyChildren)
{
    KvCComposite root(errors, 1, 1, "root");
    for (KvUInt32 unit = 0; unit < many; ++unit)
        ASSERT_EQ(root.attach(new KvCComposite(errors, 2, unit, "c")), 0);
    auto copy = roundTrip(root);
    EXPECT_EQ(copy->getChildCount(), many);
    for (KvUInt32 unit = 0; unit < many; ++unit) {
        ASSERT_NE(copy->searchComposite(2, unit), nullptr);
        ASSERT_NE(copy->getChild(unit), nullptr);
    }
    KvCComposite merged(errors, 9, 9, "merged");
    merged.attach(new KvCComposite(errors, 1, 1, "root"));
    EXPECT_EQ(merged.attach(copy.release()), -3);
    EXPECT_EQ(merged.getChild()->getChildCount(), many);
    for (KvUInt32 unit = 0; unit < many; ++unit)
        delete merged.getChild()->getChild();
    EXPECT_EQ(merged.getChild()->getChildCount(), 0U);
}

TEST_F(CompositeSizeTest, ANestOfManyNodes)
{
    auto root = makeNode(1, 0, "r");
    KvCComposite* last = root.get();
    for (KvUInt32 depth = 1; depth < many; ++depth) {
        auto* const node = new KvCComposite(errors, 1, depth, "n");
        ASSERT_EQ(last->attach(node), 0);
        last = node;
    }
    auto copy = roundTrip(*root);
    KvUInt32 count = 0;
    for (const KvCComposite* node = copy.get(); node != nullptr;
         node = KvNCompositeWalk::nextInPreOrder(node, copy.get()))
        ++count;
    EXPECT_EQ(count, many);
    testing::internal::CaptureStdout();
    copy->init(errors);
    copy->apply(errors);
    copy->reset(errors);
    copy->traverse(errors, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_NE(copy->searchCompositeNested(1, many - 1), nullptr);
    EXPECT_GT(last->getElementPath().length(), many * 4);
    copy->setStateBitNested(0x10, 2);
    EXPECT_EQ(copy->searchCompositeNested(1, many - 1)->getState(), 0x10U);
    KvCComposite top(errors, 9, 9, "top");
    EXPECT_EQ(top.attach(root.release()), 0);
    EXPECT_EQ(top.attach(copy.release()), -3) << "merged from end to end";
    EXPECT_EQ(last->attach(&top), -4);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(CompositeSizeTest, ManyNodesWithOneFriend)
{
    KvCComposite root(errors, 1, 1, "root");
    auto shared = makeNode(7, 7);
    for (KvUInt32 unit = 0; unit < many / 10; ++unit) {
        root.attach(new KvCComposite(errors, 2, unit, "c"));
        root.getLastChild()->setFriend(shared.get());
    }
    EXPECT_EQ(root.getChild(5)->getFriend(), shared.get());
    shared.reset();
    for (const KvCComposite* node = root.getChild(); node != nullptr; node = node->getSibling())
        ASSERT_EQ(node->getFriend(), nullptr);
}

TEST_F(CompositeSizeTest, OneAllocationForATypicalParameterWithSharedDescription)
{
    StreamBuilder stream;
    stream.start(1, 1);
    for (KvUInt32 id = 0; id < 10; ++id)
        stream.parameter(id, 0x2000, StreamBuilder().number(6).text("short").byte(0), "name");
    stream.end();
    const auto buffer = bufferOf(stream.bytes());
    FailingAllocation counting(0);
    const std::unique_ptr<KvCComposite> root(factory.deserialize(errors, nullptr, buffer.get()));
    // The node and its description, then each parameter and its description.
    EXPECT_EQ(counting.count(), 2U + 10U * 2U);
}

}  // namespace
