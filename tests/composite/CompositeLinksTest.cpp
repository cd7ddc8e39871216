#include <gtest/gtest.h>

#include "Support.h"
#include "base/Report.h"
#include "tests/support/FailingAllocation.h"

namespace {

class CompositeLinksTest : public testing::Test
{
protected:
    /** P with children 1, 2, 3. */
    void SetUp() override
    {
        for (KvUInt32 unit = 1; unit <= 3; ++unit)
            child[unit] = addNode(*parent, 2, unit);
    }
    std::string shape() const { return shapeOf(*parent); }

    KvCErrorListPool errors;
    std::unique_ptr<KvCComposite> parent = makeNode(1, 0, "P");
    KvCComposite* child[4] = {};
};

TEST_F(CompositeLinksTest, AttachAppendsAndSetsTheLinks)
{
    EXPECT_EQ(shape(), "1.0(2.1 2.2 2.3)");
    EXPECT_EQ(child[1]->getParent(), parent.get());
    EXPECT_EQ(child[1]->getSibling(), child[2]);
    EXPECT_EQ(child[3]->getSibling(), nullptr);
    EXPECT_EQ(parent->getLastChild(), child[3]);
    EXPECT_EQ(parent->getChildCount(), 3U);
}

TEST_F(CompositeLinksTest, AttachRefusesNullItselfAncestorsAndWhatIsThere)
{
    EXPECT_EQ(parent->attach(nullptr), -1);
    EXPECT_EQ(parent->attach(parent.get()), -4);
    EXPECT_EQ(child[1]->attach(parent.get()), -4);
    KvCComposite* const leaf = addNode(*child[1], 5, 5);
    EXPECT_EQ(leaf->attach(parent.get()), -4);
    EXPECT_EQ(leaf->attach(child[1]), -4);
    EXPECT_EQ(parent->attach(child[2]), -2);
    EXPECT_EQ(shape(), "1.0(2.1(5.5) 2.2 2.3)");
}

TEST_F(CompositeLinksTest, AttachingATwinDestroysItAndKeepsItsChildren)
{
    addNode(*child[1], 4, 1);
    EXPECT_EQ(parent->attach(makeNode(2, 1).release()), -3);
    EXPECT_EQ(shape(), "1.0(2.1(4.1) 2.2 2.3)");
    KvCComposite* const twin = makeNode(2, 1).release();
    addNode(*twin, 4, 2);
    KvCComposite* const nestedTwin = addNode(*twin, 4, 1);
    addNode(*nestedTwin, 5, 1);
    KvCComposite* const moved = addNode(*twin, 4, 3);
    addNode(*moved, 6, 6);
    EXPECT_EQ(parent->attach(twin), -3);
    EXPECT_EQ(shape(), "1.0(2.1(4.1(5.1) 4.2 4.3(6.6)) 2.2 2.3)");
    EXPECT_EQ(moved->getParent(), child[1]);
    EXPECT_EQ(child[1]->getChildCount(), 3U);
}

TEST_F(CompositeLinksTest, AChildOfAnotherNodeIsDetachedFirstAndComesAlone)
{
    const auto other = makeNode(1, 9);
    EXPECT_EQ(other->attach(child[1]), 0);
    EXPECT_EQ(shape(), "1.0(2.2 2.3)");
    EXPECT_EQ(shapeOf(*other), "1.9(2.1)");
    EXPECT_EQ(child[1]->getSibling(), nullptr);
    EXPECT_EQ(child[1]->getParent(), other.get());
    KvCComposite* const leaf = addNode(*child[2], 7, 7);
    EXPECT_EQ(parent->attach(leaf), 0);
    EXPECT_EQ(shape(), "1.0(2.2 2.3 7.7)");
}

TEST_F(CompositeLinksTest, AFreeChildBringsItsSiblingsByTheSameRule)
{
    KvCComposite* const first = makeNode(8, 1).release();
    KvCComposite* const twin = makeNode(2, 2).release();
    KvCComposite* const last = makeNode(8, 2).release();
    first->setSibling(twin);
    twin->setSibling(last);
    EXPECT_EQ(parent->attach(first), 0);
    EXPECT_EQ(shape(), "1.0(2.1 2.2 2.3 8.1 8.2)");
    EXPECT_EQ(parent->getLastChild(), last);
    EXPECT_EQ(last->getParent(), parent.get());

    KvCComposite* const mergedFirst = makeNode(2, 1).release();
    mergedFirst->setSibling(makeNode(8, 3).release());
    EXPECT_EQ(parent->attach(mergedFirst), -3);
    EXPECT_EQ(shape(), "1.0(2.1 2.2 2.3 8.1 8.2 8.3)");
}

TEST_F(CompositeLinksTest, DetachingFixesFirstAndLast)
{
    const auto other = makeNode(3, 3);
    parent->detachChild(other.get());
    parent->detachChild(nullptr);
    parent->detachChild(child[3]);
    EXPECT_EQ(parent->getLastChild(), child[2]);
    EXPECT_EQ(child[3]->getParent(), nullptr);
    parent->detachChild(child[1]);
    EXPECT_EQ(parent->getChild(), child[2]);
    EXPECT_EQ(child[1]->getSibling(), nullptr);
    parent->detachChild(child[2]);
    EXPECT_EQ(parent->getChild(), nullptr);
    EXPECT_EQ(parent->getLastChild(), nullptr);
    for (int i = 1; i <= 3; ++i)
        delete child[i];
}

TEST_F(CompositeLinksTest, ReplacingInTheMiddleTakesTheOldSibling)
{
    KvCComposite* const fresh = makeNode(9, 9).release();
    parent->replaceChild(errors, fresh, child[2]);
    EXPECT_EQ(shape(), "1.0(2.1 9.9 2.3)");
    EXPECT_EQ(fresh->getParent(), nullptr) << "parent links stay as they were";
    EXPECT_EQ(child[2]->getParent(), parent.get());
    EXPECT_EQ(child[2]->getSibling(), child[3]);
    EXPECT_EQ(parent->getLastChild(), child[3]);
    EXPECT_EQ(parent->searchComposite(9, 9), fresh);
    EXPECT_EQ(parent->searchComposite(2, 2), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    delete child[2];
    EXPECT_EQ(shape(), "1.0(2.1 9.9 2.3)");
    delete fresh;
    EXPECT_EQ(shape(), "1.0(2.1 2.3)");
}

TEST_F(CompositeLinksTest, ReplacingTheFirstKeepsTheNewNodesOwnSibling)
{
    KvCComposite* const fresh = makeNode(9, 9).release();
    parent->replaceChild(errors, fresh, child[1]);
    EXPECT_EQ(parent->getChild(), fresh);
    EXPECT_EQ(fresh->getSibling(), nullptr) << "the caller chains it";
    EXPECT_EQ(child[1]->getSibling(), child[2]);
    EXPECT_EQ(child[2]->getParent(), parent.get());
    fresh->setSibling(child[1]->getSibling());
    EXPECT_EQ(shape(), "1.0(9.9 2.2 2.3)");
    EXPECT_EQ(parent->getLastChild(), child[3]);
    EXPECT_EQ(parent->getChildCount(), 3U);
    delete child[1];
    parent.reset();
}

TEST_F(CompositeLinksTest, ANodeChainedBeforeItReplacesTheFirstWorksToo)
{
    KvCComposite* const fresh = makeNode(9, 9).release();
    fresh->setSibling(child[2]);
    EXPECT_EQ(shape(), "1.0(2.1 2.2 2.3)");
    parent->replaceChild(errors, fresh, child[1]);
    EXPECT_EQ(shape(), "1.0(9.9 2.2 2.3)");
    delete child[2];
    EXPECT_EQ(shape(), "1.0(9.9 2.3)");
    EXPECT_EQ(child[1]->getSibling(), nullptr) << "the old node's link to a node that died";
    delete child[1];
}

TEST_F(CompositeLinksTest, ANodeThatFollowsAFreeOneCanReplaceTheFirst)
{
    const auto free = makeNode(5, 1);
    KvCComposite* const fresh = makeNode(9, 9).release();
    free->setSibling(fresh);
    parent->replaceChild(errors, fresh, child[1]);
    EXPECT_EQ(free->getSibling(), fresh);
    delete fresh;
    EXPECT_EQ(parent->getChild(), nullptr);
    EXPECT_EQ(free->getSibling(), nullptr);
    EXPECT_EQ(parent->attach(child[1]), 0);
    EXPECT_EQ(shape(), "1.0(2.1)");
    delete child[2];
    delete child[3];
}

TEST_F(CompositeLinksTest, AParentThatAStrayNamesIsItsAncestor)
{
    parent->replaceChild(errors, makeNode(9, 9).release(), child[3]);
    EXPECT_EQ(child[3]->attach(parent.get()), -4) << "by the parents that are named";
    delete child[3];
}

TEST_F(CompositeLinksTest, ReplacingTheLastLeavesTheLastChildLink)
{
    KvCComposite* const fresh = makeNode(9, 9).release();
    parent->replaceChild(errors, fresh, child[3]);
    EXPECT_EQ(parent->getLastChild(), child[3]);
    EXPECT_EQ(shape(), "1.0(2.1 2.2 9.9)");
    EXPECT_EQ(parent->attach(makeNode(7, 7).release()), 0);
    EXPECT_EQ(shape(), "1.0(2.1 2.2 9.9 7.7)");
    delete child[3];
    EXPECT_EQ(parent->getLastChild()->getClassId(), 7U);
}

TEST_F(CompositeLinksTest, AReplacedLastChildMayDieFirst)
{
    KvCComposite* const fresh = makeNode(9, 9).release();
    parent->replaceChild(errors, fresh, child[3]);
    delete child[3];
    EXPECT_EQ(parent->getLastChild(), fresh);
    addNode(*parent, 7, 7);
    EXPECT_EQ(shape(), "1.0(2.1 2.2 9.9 7.7)");
}

TEST_F(CompositeLinksTest, ReplacedNodesMayOutliveTheParent)
{
    for (int place = 1; place <= 3; ++place) {
        auto other = makeNode(1, 0);
        KvCComposite* nodes[3];
        for (KvUInt32 i = 0; i < 3; ++i)
            nodes[i] = addNode(*other, 2, i);
        KvCComposite* const old = nodes[place - 1];
        other->replaceChild(errors, makeNode(9, 9).release(), old);
        other.reset();
        EXPECT_EQ(old->getParent(), nullptr);
        EXPECT_EQ(old->getSibling(), nullptr);
        delete old;
        for (int i = 1; i < 3 && place == 1; ++i)
            delete nodes[i];
    }
}

TEST_F(CompositeLinksTest, AReplacedNodeCanBeAttachedElsewhere)
{
    KvCComposite* const fresh = makeNode(9, 9).release();
    parent->replaceChild(errors, fresh, child[3]);
    const auto other = makeNode(1, 5);
    EXPECT_EQ(other->attach(child[3]), 0);
    EXPECT_EQ(parent->getLastChild(), fresh);
    EXPECT_EQ(shapeOf(*other), "1.5(2.3)");
    EXPECT_EQ(other->attach(fresh), 0);
    EXPECT_EQ(shape(), "1.0(2.1 2.2)");
    EXPECT_EQ(shapeOf(*other), "1.5(2.3 9.9)");
}

TEST_F(CompositeLinksTest, ReplacingWithANodeOfTheSameOrAnotherChainIsSafe)
{
    parent->replaceChild(errors, child[3], child[2]);
    EXPECT_EQ(shape(), "1.0(2.1 2.3)");
    EXPECT_EQ(child[3]->getParent(), parent.get());
    delete child[2];
    const auto other = makeNode(1, 5);
    KvCComposite* const borrowed = addNode(*other, 6, 1);
    addNode(*other, 6, 2);
    parent->replaceChild(errors, borrowed, child[1]);
    EXPECT_EQ(parent->getChild(), borrowed);
    EXPECT_EQ(shapeOf(*other), "1.5(6.2)");
    EXPECT_EQ(borrowed->getParent(), other.get());
    delete child[1];
    delete child[3];
}

TEST_F(CompositeLinksTest, ReplacingWhatIsNoChildIsReported)
{
    const auto stranger = makeNode(6, 7);
    const auto fresh = makeNode(9, 9);
    parent->replaceChild(errors, fresh.get(), stranger.get());
    parent->replaceChild(errors, fresh.get(), nullptr);
    ASSERT_EQ(codesOf(errors), (Codes{0x602000, 0x602000}));
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Cannot find data element (composite class 6, unit 7).");
    EXPECT_STREQ(errors.getErrorText(1),
                 "Internal error. Korvel Support information: Cannot find data element (composite class 0, unit 0).");
    EXPECT_STREQ(errors.getErrorOrigin(0), "KvCComposite::replaceChild");
    errors.clear();
    child[1]->replaceChild(errors, parent.get(), child[2]);
    parent->replaceChild(errors, nullptr, child[2]);
    KvCComposite* const leaf = addNode(*child[2], 4, 4);
    child[2]->replaceChild(errors, parent.get(), leaf);
    EXPECT_EQ(codesOf(errors), Codes(3, 0x602000));
    parent->replaceChild(errors, child[2], child[2]);
    EXPECT_EQ(shape(), "1.0(2.1 2.2(4.4) 2.3)");
}

TEST_F(CompositeLinksTest, ReplacingWithoutMemoryChangesNothing)
{
    const auto fresh = makeNode(9, 9);
    for (std::size_t number = 1;; ++number) {
        errors.clear();
        FailingAllocation failing(number);
        parent->replaceChild(errors, fresh.get(), child[1]);
        if (!failing.hasFailed())
            break;
        EXPECT_EQ(codesOf(errors), Codes{0x601002});
        EXPECT_EQ(shape(), "1.0(2.1 2.2 2.3)");
    }
    EXPECT_EQ(parent->getChild(), fresh.get());
    for (int i = 1; i <= 3; ++i)
        delete child[i];
}

TEST_F(CompositeLinksTest, SettingASiblingNeverClosesARing)
{
    child[3]->setSibling(child[1]);
    child[2]->setSibling(child[2]);
    EXPECT_EQ(shape(), "1.0(2.1 2.2 2.3)");
    const auto first = makeNode(5, 1);
    const auto second = makeNode(5, 2);
    first->setSibling(second.get());
    second->setSibling(first.get());
    EXPECT_EQ(second->getSibling(), nullptr);
}

TEST_F(CompositeLinksTest, NodesCutOffByASiblingLinkStaySafe)
{
    child[1]->setSibling(nullptr);
    EXPECT_EQ(shape(), "1.0(2.1)");
    EXPECT_EQ(parent->getLastChild(), child[1]);
    EXPECT_EQ(child[2]->getSibling(), child[3]);
    EXPECT_EQ(child[2]->getParent(), parent.get());
    child[1]->setSibling(child[3]);
    EXPECT_EQ(shape(), "1.0(2.1 2.3)");
    EXPECT_EQ(parent->attach(child[2]), 0);
    EXPECT_EQ(shape(), "1.0(2.1 2.3 2.2)");
    auto other = makeNode(1, 5);
    KvCComposite* const foreign = addNode(*other, 6, 1);
    addNode(*other, 6, 2);
    child[2]->setSibling(foreign);
    EXPECT_EQ(shape(), "1.0(2.1 2.3 2.2 6.1 6.2)");
    EXPECT_EQ(other->getChild(), nullptr);
    EXPECT_EQ(foreign->getParent(), other.get());
    other.reset();
    EXPECT_EQ(foreign->getParent(), nullptr);
    EXPECT_EQ(shape(), "1.0(2.1 2.3 2.2 6.1 6.2)") << "the chain belongs to the node that it hangs on";
}

TEST_F(CompositeLinksTest, AFreeNodesLinkIntoAChainEndsWithTheNodeItLeadsTo)
{
    const auto free = makeNode(5, 1);
    free->setSibling(child[2]);
    EXPECT_EQ(free->getSibling(), child[2]);
    delete child[2];
    EXPECT_EQ(free->getSibling(), nullptr);
    free->setSibling(child[3]);
    const auto other = makeNode(1, 5);
    EXPECT_EQ(other->attach(free.get()), 0);
    EXPECT_EQ(shapeOf(*other), "1.5(5.1 2.3)");
    EXPECT_EQ(shape(), "1.0(2.1)");
    other->detachChild(free.get());
}

TEST_F(CompositeLinksTest, ASiblingLinkWithoutMemoryIsNotChanged)
{
    KvNReport::masterList().clear();
    {
        const FailingAllocation failing(1);
        child[1]->setSibling(nullptr);
    }
    EXPECT_EQ(shape(), "1.0(2.1 2.2 2.3)");
    EXPECT_EQ(codesOf(KvNReport::masterList()), Codes{0x601002});
    KvNReport::masterList().clear();
}

}  // namespace
