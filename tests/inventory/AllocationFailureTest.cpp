#include <functional>

#include <gtest/gtest.h>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "inventory/KvCInventoryData.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "tests/inventory/InventoryTest.h"
#include "tests/support/FailingAllocation.h"

/*
 * The n-th allocation fails, for every n until the operation goes through, once alone and once with all that follow.
 * Each time something is reported, nothing leaks (the sanitizers watch), and what the operation leaves behind is whole.
 */
using namespace KvNInventoryIDs;

namespace {

const char* const longText = "a text that is too long to stand inside a string object";

bool hook(KvCErrorListPool&, KvCInventoryItem*, KvCInventoryParameter*)
{
    return true;
}

/** A small tree with everything that needs memory. */
ItemOwner makeTree()
{
    KvCErrorListPool errors;
    ItemOwner root(new KvCInventoryItem(errors, ROOT, "a description of its own"));
    root->createParameter<KvCString>(errors, CPU[2] / NAME, longText, longText, true, 1, hook, hook, hook);
    addValue(*root, CPU[2] / SIZE, 5);
    addValue(*root, CPU[2] / RAM / VERSION, KvCVersion(1, 2, 3, 0, 0, 0));
    root->addParameter(errors, THIS_NODE,
                       new KvCInventoryParameter(errors, KvCInventoryAddress(4711), longText, 1.5, "V", false, 0));
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return root;
}

std::string textOf(const KvCInventoryItem& root)
{
    KvCErrorListPool errors;
    return root.toString(errors, 0, 0).c_str();
}

/** Runs `operation(errors)` with failing allocations; `check(errors, hasFailed)` looks at each outcome. */
void failEach(const std::function<void(KvCErrorListPool&)>& operation,
              const std::function<void(KvCErrorListPool&, bool)>& check)
{
    KvCErrorListPool& master = KvNReport::masterList();
    for (const bool lasting : {false, true}) {
        std::size_t failures = 0;
        for (std::size_t n = 1;; ++n) {
            master.clear();
            KvCErrorListPool errors;
            bool hasFailed;
            {
                const FailingAllocation failing(n, lasting);
                operation(errors);
                hasFailed = failing.hasFailed();
            }
            const bool isReported = errors.getErrorCount() + master.getErrorCount() > 0;
            EXPECT_EQ(isReported, hasFailed) << n << (lasting ? " and all that follow" : "");
            check(errors, hasFailed);
            if (!hasFailed)
                break;
            ++failures;
            ASSERT_LT(n, 10000u);
        }
        EXPECT_GT(failures, 0u);
    }
    master.clear();
}

}  // namespace

TEST(InventoryAllocationFailure, BuildingATree)
{
    const KvCString value(longText);
    ItemOwner root;
    failEach(
        [&](KvCErrorListPool& errors) {
            root.reset(new (errors) KvCInventoryItem(errors, ROOT, "a description of its own"));
            if (root == nullptr) {
                KV_REPORT(errors, ItemAllocationFailed, "test");
                return;
            }
            root->createParameter<KvCString>(errors, CPU[2] / RAM / NAME, value, longText, true, 1, hook, hook, hook);
            if (root->getItem(CPU[2] / RAM) != nullptr)
                root->createParameter<int>(errors, CPU[2] / RAM / BANK / SIZE, 1, "V", false, 0, nullptr, nullptr,
                                           nullptr);
        },
        [&](KvCErrorListPool&, bool hasFailed) {
            if (!hasFailed) {
                EXPECT_NE(root->getParameter(CPU[2] / RAM / NAME), nullptr);
            }
            if (root != nullptr && root->getParameter(CPU[2] / RAM / NAME) != nullptr) {
                KvCErrorListPool errors;
                EXPECT_STREQ(root->getValue<KvCString>(errors, CPU[2] / RAM / NAME).c_str(), longText);
                EXPECT_EQ(root->getParameter(CPU[2] / RAM / NAME)->getWriteFunction(), hook);
            }
        });
}

TEST(InventoryAllocationFailure, CopyingATree)
{
    const ItemOwner tree = makeTree();
    const std::string before = textOf(*tree);
    ItemOwner copy;
    failEach(
        [&](KvCErrorListPool& errors) {
            KvCInventoryItem* made = nullptr;
            tree->copyTree(errors, made);
            copy.reset(made);
        },
        [&](KvCErrorListPool& errors, bool hasFailed) {
            EXPECT_EQ(textOf(*tree), before);
            EXPECT_EQ(errors.getErrorCount() > 0, hasFailed);
            if (!hasFailed) {
                EXPECT_EQ(textOf(*copy), before);
            } else if (copy != nullptr) {
                EXPECT_NE(textOf(*copy), before);
            }
        });
}

TEST(InventoryAllocationFailure, MergingTrees)
{
    ItemOwner target;
    KvCInventoryItem* source = nullptr;
    const auto prepare = [&] {
        KvCErrorListPool errors;
        target = makeItem(ROOT);
        addValue(*target, CPU[2] / RAM / SIZE, 1);
        source = makeTree().release();
    };
    prepare();
    failEach(
        [&](KvCErrorListPool& errors) {
            KvCInventoryItem* into = target.get();
            KvCInventoryItem::mergeTree(errors, into, source, KvNInventoryItem::MergeParameters);
        },
        [&](KvCErrorListPool& errors, bool hasFailed) {
            EXPECT_EQ(source, nullptr);
            EXPECT_EQ(errors.getErrorCount() > 0, hasFailed);
            KvCErrorListPool list;
            EXPECT_EQ(target->getValue<int>(list, CPU[2] / RAM / SIZE), 1);
            if (!hasFailed) {
                EXPECT_STREQ(target->getValue<KvCString>(list, CPU[2] / NAME).c_str(), longText);
                EXPECT_NE(target->getParameter(KvCInventoryAddress(4711)), nullptr);
            }
            prepare();
        });
    delete source;
}

TEST(InventoryAllocationFailure, WritingAndReadingASection)
{
    const ItemOwner tree = makeTree();
    const std::string before = textOf(*tree);
    failEach(
        [&](KvCErrorListPool& errors) {
            KvCBuffer buffer(errors);
            if (errors.getErrorCount() == 0)
                KvCInventoryData::generateInventorySection(errors, buffer, tree.get());
        },
        [&](KvCErrorListPool& errors, bool hasFailed) {
            EXPECT_EQ(errors.getErrorCount() > 0, hasFailed);
            EXPECT_EQ(textOf(*tree), before);
        });
    KvCErrorListPool list;
    KvCBuffer section(list);
    KvCInventoryData::generateInventorySection(list, section, tree.get());
    ItemOwner back;
    failEach(
        [&](KvCErrorListPool& errors) {
            KvCInventoryItem* root = nullptr;
            KvCInventoryData::extractInventoryTreeFromMem(
                errors, reinterpret_cast<const unsigned char*>(section.getStartPointer()), section.getOccupiedSize(),
                root);
            back.reset(root);
        },
        [&](KvCErrorListPool& errors, bool hasFailed) {
            EXPECT_EQ(errors.getErrorCount() > 0, hasFailed);
            EXPECT_EQ(back == nullptr, hasFailed);
            if (!hasFailed) {
                EXPECT_EQ(textOf(*back), before);
            }
        });
}

TEST(InventoryAllocationFailure, ReadingAndWritingOneParameter)
{
    const ItemOwner tree = makeTree();
    const KvCInventoryParameter* name = tree->getParameter(CPU[2] / NAME);
    KvCErrorListPool list;
    KvCBuffer record(list);
    KvCInventoryItemFactory writer(list);
    writer.serializeInventoryParameter(list, &record, name);
    ParameterOwner back;
    failEach(
        [&](KvCErrorListPool& errors) {
            KvCInventoryItemFactory factory(errors);
            KvCInventoryParameter* made = nullptr;
            record.setReadPosition(errors, 0);
            factory.deserializeInventoryParameter(errors, made, &record);
            back.reset(made);
        },
        [&](KvCErrorListPool&, bool hasFailed) {
            if (!hasFailed) {
                ASSERT_NE(back, nullptr);
                EXPECT_STREQ(back->getUnit(), longText);
            }
        });
}

TEST(InventoryAllocationFailure, ProposingAndAdopting)
{
    const KvCString value("another text that is too long to stand inside");
    const ItemOwner tree = makeTree();
    failEach(
        [&](KvCErrorListPool& errors) {
            KvCInventoryParameter* name = tree->getParameter(CPU[2] / NAME);
            name->deleteDesignatedValue();
            name->setDesignatedValue<KvCString>(errors, value);
            if (name->isDesignatedValueValid() && errors.getErrorCount() == 0)
                tree->apply(errors, nullptr);
        },
        [&](KvCErrorListPool& errors, bool hasFailed) { EXPECT_EQ(errors.getErrorCount() > 0, hasFailed); });
    KvCErrorListPool errors;
    EXPECT_EQ(tree->getValue<KvCString>(errors, CPU[2] / NAME), value);
}
