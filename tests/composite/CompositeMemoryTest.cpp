#include <gtest/gtest.h>

#include "StreamBuilder.h"
#include "base/Report.h"
#include "composite/KvCXmlSerializer.h"
#include "tests/support/FailingAllocation.h"

namespace {

const char* const longText = "a text that is longer than fifteen characters";

/** Each operation with its 1st, 2nd, … allocation failing until it needs no more. */
class CompositeMemoryTest : public testing::TestWithParam<bool>
{
protected:
    ~CompositeMemoryTest() override { KvNReport::masterList().clear(); }

    /** Calls `operation(errors)` for each allocation that may fail; each failure must be reported there or on the
       master list, then `check` is called. The last run, in which nothing fails, reports nothing. */
    template <class Operation>
    void failEach(Operation&& operation)
    {
        for (std::size_t number = 1;; ++number) {
            KvCErrorListPool errors;
            KvNReport::masterList().clear();
            bool hasFailed;
            {
                const FailingAllocation failing(number, GetParam());
                operation(errors);
                hasFailed = failing.hasFailed();
            }
            const KvUInt32 reports = errors.getErrorCount() + KvNReport::masterList().getErrorCount();
            if (!hasFailed) {
                EXPECT_EQ(reports, 0U);
                EXPECT_GT(number, 1U) << "the operation needs no memory";
                return;
            }
            EXPECT_GT(reports, 0U) << "allocation " << number;
            ASSERT_LT(number, 10000U);
        }
    }
};

std::unique_ptr<KvCComposite> sampleTree(KvCErrorListPool& errors)
{
    KvUInt32 integers[] = {1, 2, 3};
    double doubles[] = {1, 2, 3};
    std::unique_ptr<KvCComposite> root(new KvCComposite(errors, 1, 1, "root"));
    root->createParameter(errors, 1, "number", 0, 5U);
    root->createParameter(errors, 2, "text", 0, KvCString(longText));
    root->createParameter(errors, 3, "integers", 0, 3, integers, nullptr);
    root->createParameter(errors, 4, "doubles", 0, 3, doubles, nullptr);
    root->createParameter(errors, 5, "buffered", 0x80000, 5U);
    addNode(*addNode(*root, 2, 2, "child"), 3, 3, "leaf")->createParameter(errors, 6, "byte", 0, char(1));
    return root;
}

TEST_P(CompositeMemoryTest, Building)
{
    KvUInt32 integers[] = {1, 2, 3};
    const KvCString text(longText);
    failEach([&](KvCErrorListPool& errors) {
        const std::unique_ptr<KvCComposite> root(new KvCComposite(errors, 1, 1, "root"));
        if (root == nullptr) {
            KV_REPORT(errors, OutOfMemory, "test");
            return;
        }
        root->createParameter(errors, 1, "number", 0x80000, 5U);
        root->createParameter(errors, 2, "text", 0, text);
        root->createParameter(errors, 3, "integers", 0, 3, integers, nullptr);
        if (root->getParameterById(3) != nullptr)
            root->setParameter(errors, 3, 2, integers);
        if (root->getParameterById(2) != nullptr)
            root->setParameter(errors, 2, KvCString("b"));
    });
}

TEST_P(CompositeMemoryTest, Serializing)
{
    KvCErrorListPool setUp;
    const auto root = sampleTree(setUp);
    failEach([&](KvCErrorListPool& errors) {
        KvCCompositeFactory factory(errors);
        factory.serialize(errors, root.get(), 0, nullptr);
    });
}

TEST_P(CompositeMemoryTest, Deserializing)
{
    KvCErrorListPool setUp;
    KvCCompositeFactory factory(setUp);
    factory.serialize(setUp, sampleTree(setUp).get(), 0, nullptr);
    failEach([&](KvCErrorListPool& errors) {
        const std::unique_ptr<KvCComposite> tree(factory.deserialize(errors, nullptr, nullptr));
        // Whatever was read before the failure is whole.
        const KvCParam* const text = tree == nullptr ? nullptr : tree->getParameterById(2);
        EXPECT_STREQ(text == nullptr ? longText : text->valueIf<KvCString>()->c_str(), longText);
    });
}

TEST_P(CompositeMemoryTest, DeserializingIntoAnExistingTree)
{
    KvCErrorListPool setUp;
    KvCCompositeFactory factory(setUp);
    factory.serialize(setUp, sampleTree(setUp).get(), 0, nullptr);
    KvUInt32 integers[] = {9};
    const KvCString text("other");
    failEach([&](KvCErrorListPool& errors) {
        const std::unique_ptr<KvCComposite> top(new KvCComposite(errors, 9, 9, nullptr));
        if (top == nullptr) {
            KV_REPORT(errors, OutOfMemory, "test");
            return;
        }
        KvCComposite* const node = factory.createComposite(errors, 1, 1, "root", top.get());
        if (node == nullptr)
            return;
        node->createParameter(errors, 3, "integers", 0, 1, integers, nullptr);
        node->createParameter(errors, 2, "text", 0, text);
        factory.deserialize(errors, top.get(), nullptr);
    });
}

TEST_P(CompositeMemoryTest, CopyingParameters)
{
    KvCErrorListPool setUp;
    const auto root = sampleTree(setUp);
    for (const KvUInt32 id : {2U, 3U, 5U})
        failEach([&](KvCErrorListPool& errors) {
            const KvCParam& source = *root->getParameterById(id);
            const KvCParam copy(source);
            if (copy.getStateBit(0x80000000) != 0)
                KV_REPORT(errors, OutOfMemory, "test");
        });
}

TEST_P(CompositeMemoryTest, TextsAndPaths)
{
    KvCErrorListPool setUp;
    const auto root = sampleTree(setUp);
    failEach([&](KvCErrorListPool& errors) {
        for (const KvUInt32 id : {2U, 3U, 4U})
            root->getParameterById(id)->getValueAsString(errors);
        KvCString value;
        root->getParameter(errors, 2, value);
        root->getParameterById(3)->getValueUInt32Arr(errors);
        root->getChild()->getChild()->getElementPath();
    });
}

TEST_P(CompositeMemoryTest, Dumps)
{
    KvCErrorListPool setUp;
    const auto root = sampleTree(setUp);
    failEach([&](KvCErrorListPool& errors) {
        KvCXmlSerializer printer(errors, 0);
        printer.traverse(errors, root.get());
    });
}

INSTANTIATE_TEST_SUITE_P(OneOrAllFrom, CompositeMemoryTest, testing::Bool());

}  // namespace
