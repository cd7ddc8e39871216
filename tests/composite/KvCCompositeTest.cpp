#include "composite/KvCComposite.h"

#include <gtest/gtest.h>

#include "Support.h"
#include "base/Report.h"
#include "composite/CompositeWalk.h"
#include "tests/support/FailingAllocation.h"

namespace {

class KvCCompositeTest : public testing::Test
{
protected:
    KvCErrorListPool errors;
};

TEST_F(KvCCompositeTest, ANewNodeStandsAlone)
{
    const KvCComposite node(errors, 0x10, 2, "name");
    EXPECT_EQ(node.getClassId(), 0x10U);
    EXPECT_EQ(node.getUnitId(), 2U);
    EXPECT_STREQ(node.getDescription(), "name");
    EXPECT_EQ(node.getState(), 0U);
    EXPECT_EQ(node.getParent(), nullptr);
    EXPECT_EQ(node.getChild(), nullptr);
    EXPECT_EQ(node.getLastChild(), nullptr);
    EXPECT_EQ(node.getSibling(), nullptr);
    EXPECT_EQ(node.getFriend(), nullptr);
    EXPECT_EQ(node.getChildCount(), 0U);
    EXPECT_NE(node.getParameterList(), nullptr) << "a described node has a parameter list";
}

TEST_F(KvCCompositeTest, ANodeWithoutDescriptionMakesItsParameterListOnDemand)
{
    KvCComposite node(errors, 1, 1, nullptr);
    EXPECT_EQ(node.getDescription(), nullptr);
    EXPECT_EQ(static_cast<const KvCComposite&>(node).getParameterList(), nullptr);
    EXPECT_NE(node.getParameterList(), nullptr);
    EXPECT_NE(static_cast<const KvCComposite&>(node).getParameterList(), nullptr);
    EXPECT_EQ(node.getParameterList()->getOwner(), &node);
}

TEST_F(KvCCompositeTest, AFailedDescriptionCopyIsReported)
{
    const FailingAllocation failing(1);
    const KvCComposite node(errors, 1, 1, "name");
    EXPECT_EQ(codesOf(errors), Codes{0x601002});
    EXPECT_EQ(node.getDescription(), nullptr);
}

TEST_F(KvCCompositeTest, TheUniqueChildIndexCountsFromOne)
{
    KvCComposite node(errors, 1, 1, "a");
    EXPECT_EQ(node.getUniqueChildIndex(), 1U);
    EXPECT_EQ(node.getUniqueChildIndex(), 2U);
}

TEST_F(KvCCompositeTest, TheRunTimePointerIsKept)
{
    KvCComposite node(errors, 1, 1, "a");
    EXPECT_EQ(node.getRtDataPointer(), nullptr);
    node.setRtDataPointer(this);
    EXPECT_EQ(node.getRtDataPointer(), this);
}

TEST_F(KvCCompositeTest, ChildrenAreFoundByTheirIds)
{
    KvCComposite root(errors, 1, 1, "root");
    KvCComposite* const first = addNode(root, 5, 1);
    KvCComposite* const second = addNode(root, 5, 2);
    KvCComposite* const other = addNode(root, 6, 2);
    EXPECT_EQ(root.getChild(), first);
    EXPECT_EQ(root.getLastChild(), other);
    EXPECT_EQ(root.getChildCount(), 3U);
    EXPECT_EQ(root.getChild(2), second) << "the first with this unit, whatever its class";
    EXPECT_EQ(root.getChild(3), nullptr);
    EXPECT_EQ(root.searchComposite(6, 2), other);
    EXPECT_EQ(root.searchComposite(errors, 5, 2), second);
    EXPECT_EQ(root.searchComposite(6, 1), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(root.searchComposite(errors, 6, 1), nullptr);
    ASSERT_EQ(codesOf(errors), Codes{0x602000});
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Cannot find data element (composite class 6, unit 1).");
    EXPECT_STREQ(errors.getErrorOrigin(0), "KvCComposite::searchComposite");
}

TEST_F(KvCCompositeTest, NestedSearchGoesThroughTheSubtreeInPreOrder)
{
    KvCComposite root(errors, 1, 1, "root");
    KvCComposite* const left = addNode(root, 2, 1);
    KvCComposite* const deep = addNode(*left, 3, 1);
    KvCComposite* const right = addNode(root, 4, 1);
    addNode(*right, 3, 1);
    EXPECT_EQ(root.searchCompositeNested(1, 1), &root);
    EXPECT_EQ(root.searchCompositeNested(3, 1), deep);
    EXPECT_EQ(root.searchCompositeNested(errors, 4, 1), right);
    EXPECT_EQ(left->searchCompositeNested(4, 1), nullptr) << "never outside the subtree";
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(left->searchCompositeNested(errors, 4, 1), nullptr);
    EXPECT_EQ(codesOf(errors), Codes{0x602000});
    EXPECT_STREQ(errors.getErrorOrigin(0), "KvCComposite::searchCompositeNested");
}

TEST_F(KvCCompositeTest, StateBitsSpreadUpwardsAndDownwards)
{
    KvCComposite root(errors, 1, 1, "root");
    KvCComposite* const middle = addNode(root, 2, 1);
    KvCComposite* const leaf = addNode(*middle, 3, 1);
    KvCComposite* const aside = addNode(root, 4, 1);
    middle->setStateBitNested(0x10, 1);
    middle->setStateBitNested(0x20, 2);
    middle->setStateBitNested(0x40, 0);
    EXPECT_EQ(root.getState(), 0x10U);
    EXPECT_EQ(middle->getState(), 0x70U);
    EXPECT_EQ(leaf->getState(), 0x20U);
    EXPECT_EQ(aside->getState(), 0U);
    root.setStateBitNested(0xF, 2);
    leaf->clearStateBitNested(0x3, 1);
    EXPECT_EQ(root.getState(), 0x1CU);
    EXPECT_EQ(leaf->getState(), 0x2CU);
    EXPECT_EQ(aside->getStateBit(0xFF), 0xFU);
    middle->clearStateBitNested(0xFFFF, 2);
    EXPECT_EQ(middle->getState(), 0U);
    EXPECT_EQ(leaf->getState(), 0U);
    root.clearStateBitNested(0x4, 7);
    EXPECT_EQ(root.getState(), 0x18U);
}

TEST_F(KvCCompositeTest, TheElementPathListsTheRootFirst)
{
    KvCComposite root(errors, 1, 3, "R");
    KvCComposite* const child = addNode(root, 2, 0, "child");
    KvCComposite* const leaf = makeNode(3, 4294967295U, nullptr).release();
    child->attach(leaf);
    EXPECT_STREQ(root.getElementPath().c_str(), "::R[3]");
    EXPECT_STREQ(child->getElementPath().c_str(), "::R[3]::child");
    EXPECT_STREQ(leaf->getElementPath().c_str(), "::R[3]::child::<unknown>[-1]");
}

TEST_F(KvCCompositeTest, AnElementPathWithoutMemoryIsEmptyAndReported)
{
    KvNReport::masterList().clear();
    const KvCComposite root(errors, 1, 3, "R");
    {
        const FailingAllocation failing(1);
        EXPECT_EQ(root.getElementPath().length(), 0U);
    }
    EXPECT_EQ(codesOf(KvNReport::masterList()), Codes{0x601002});
    KvNReport::masterList().clear();
}

/** A node that says when it dies. */
class Mortal : public KvCComposite
{
public:
    Mortal(KvCErrorListPool& errors, KvUInt32 unitId, std::string& deaths)
        : KvCComposite(errors, 1, unitId, "m"), m_deaths(deaths)
    {}
    ~Mortal() override { m_deaths += std::to_string(getUnitId()); }

private:
    std::string& m_deaths;
};

TEST_F(KvCCompositeTest, DestroyingANodeDestroysItsChildrenInSiblingOrder)
{
    std::string deaths;
    {
        KvCComposite root(errors, 1, 0, "root");
        auto* const first = new Mortal(errors, 1, deaths);
        root.attach(first);
        root.attach(new Mortal(errors, 2, deaths));
        first->attach(new Mortal(errors, 3, deaths));
        first->attach(new Mortal(errors, 4, deaths));
    }
    EXPECT_EQ(deaths, "3412");
}

TEST_F(KvCCompositeTest, DestroyingAChildMendsTheChain)
{
    KvCComposite root(errors, 1, 1, "root");
    for (KvUInt32 unit = 1; unit <= 3; ++unit)
        addNode(root, 2, unit);
    delete root.getChild()->getSibling();
    EXPECT_EQ(shapeOf(root), "1.1(2.1 2.3)");
    delete root.getLastChild();
    EXPECT_EQ(root.getLastChild(), root.getChild());
    delete root.getChild();
    EXPECT_EQ(root.getChild(), nullptr);
    EXPECT_EQ(root.getLastChild(), nullptr);
    EXPECT_EQ(root.getChildCount(), 0U);
}

TEST_F(KvCCompositeTest, AFriendLinkIsOneWayAndNeverDangles)
{
    KvCComposite node(errors, 1, 1, "a");
    KvCComposite other(errors, 1, 2, "b");
    {
        KvCComposite target(errors, 1, 3, "c");
        node.setFriend(&target);
        other.setFriend(&target);
        EXPECT_EQ(node.getFriend(), &target);
        EXPECT_EQ(target.getFriend(), nullptr);
        node.setFriend(&other);
        node.setFriend(&target);
    }
    EXPECT_EQ(node.getFriend(), nullptr);
    EXPECT_EQ(other.getFriend(), nullptr);
    node.setFriend(&node);
    EXPECT_EQ(node.getFriend(), &node);
    node.setFriend(nullptr);
    EXPECT_EQ(node.getFriend(), nullptr);
}

TEST_F(KvCCompositeTest, ADyingNodeClearsItsFriendsFriendLink)
{
    KvCComposite target(errors, 1, 1, "a");
    KvCComposite third(errors, 1, 2, "b");
    target.setFriend(&third);
    {
        KvCComposite node(errors, 1, 3, "c");
        node.setFriend(&target);
    }
    EXPECT_EQ(target.getFriend(), nullptr);
}

TEST_F(KvCCompositeTest, AFriendLinkWithoutMemoryIsNullAndReported)
{
    KvNReport::masterList().clear();
    KvCComposite node(errors, 1, 1, "a");
    KvCComposite target(errors, 1, 2, "b");
    for (std::size_t number = 1; number <= 2; ++number) {
        const FailingAllocation failing(number);
        node.setFriend(&target);
        EXPECT_EQ(node.getFriend(), nullptr);
    }
    EXPECT_EQ(codesOf(KvNReport::masterList()), (Codes{0x601002, 0x601002}));
    KvNReport::masterList().clear();
    node.setFriend(&target);
    EXPECT_EQ(node.getFriend(), &target);
}

TEST_F(KvCCompositeTest, BaseHooksDoNothing)
{
    KvCComposite node(errors, 1, 1, "a");
    node.update(errors);
    node.traverseHook(errors, 3);
    EXPECT_FALSE(node.markForSerialization(errors, &node));
    node.virtualDummyFunction1();
    node.virtualDummyFunction2();
    node.virtualDummyFunction3();
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCCompositeTest, WalksVisitTheSubtreeInBothOrders)
{
    KvCComposite root(errors, 1, 0, "root");
    KvCComposite* const first = addNode(root, 1, 1);
    addNode(*first, 1, 2);
    addNode(*first, 1, 3);
    addNode(root, 1, 4);
    std::string pre;
    for (const KvCComposite* node = &root; node != nullptr; node = KvNCompositeWalk::nextInPreOrder(node, &root))
        pre += std::to_string(node->getUnitId());
    EXPECT_EQ(pre, "01234");
    std::string post;
    for (const KvCComposite* node = KvNCompositeWalk::firstInPostOrder(&root); node != nullptr;
         node = KvNCompositeWalk::nextInPostOrder(node, &root))
        post += std::to_string(node->getUnitId());
    EXPECT_EQ(post, "23140");
    std::string both;
    const auto enter = [&](const KvCComposite* node) {
        both += "+" + std::to_string(node->getUnitId());
        return true;
    };
    const auto leave = [&](const KvCComposite* node) {
        both += "-" + std::to_string(node->getUnitId());
        return node->getUnitId() != 3;
    };
    EXPECT_TRUE(KvNCompositeWalk::walk(root.getLastChild(), enter, leave));
    EXPECT_FALSE(KvNCompositeWalk::walk(&root, enter, leave));
    EXPECT_EQ(both, "+4-4+0+1+2-2+3-3");
    EXPECT_TRUE(KvNCompositeWalk::walk(static_cast<KvCComposite*>(nullptr), enter, leave));
}

/** A node with a registered name, whose ids can change. */
class Registered : public KvCComposite
{
public:
    Registered(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId, const char* name)
        : KvCComposite(errors, classId, unitId, KvSharedText{name})
    {}
    using KvCComposite::attachDetached;
    using KvCComposite::setIds;
};

TEST_F(KvCCompositeTest, ADerivedNodeSharesItsDescription)
{
    static const char name[] = "REGISTERED";
    const FailingAllocation failing(1, true);
    const Registered node(errors, 1, 1, name);
    EXPECT_EQ(node.getDescription(), name);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCCompositeTest, LookupsAmongManyChildrenFollowEveryChange)
{
    KvCComposite root(errors, 1, 1, "root");
    for (KvUInt32 unit = 0; unit < 100; ++unit)
        root.attach(new Registered(errors, 2, unit, "r"));
    EXPECT_EQ(root.searchComposite(2, 77)->getUnitId(), 77U);
    EXPECT_EQ(root.getChild(77)->getUnitId(), 77U);
    auto* const changed = static_cast<Registered*>(root.searchComposite(2, 50));
    changed->setIds(3, 50);
    EXPECT_EQ(root.searchComposite(2, 50), nullptr);
    EXPECT_EQ(root.searchComposite(3, 50), changed);
    changed->setIds(2, 10);
    EXPECT_NE(root.searchComposite(2, 10), changed) << "the first match in order";
    delete root.searchComposite(2, 10);
    EXPECT_EQ(root.searchComposite(2, 10), changed);
    EXPECT_EQ(root.getChild(10), changed);
    root.detachChild(changed);
    EXPECT_EQ(root.searchComposite(2, 10), nullptr);
    EXPECT_EQ(root.getChild(10), nullptr);
    delete changed;
    addNode(root, 9, 9);
    EXPECT_EQ(root.searchComposite(9, 9), root.getLastChild());
    EXPECT_EQ(root.getChild(9)->getClassId(), 2U);
    EXPECT_EQ(root.getChildCount(), 99U);
}

TEST_F(KvCCompositeTest, LookupsAmongManyChildrenWorkWithoutMemoryForAnIndex)
{
    KvCComposite root(errors, 1, 1, "root");
    for (KvUInt32 unit = 0; unit < 40; ++unit)
        addNode(root, 2, unit);
    for (std::size_t number = 1; number <= 3; ++number) {
        const FailingAllocation failing(number, true);
        EXPECT_EQ(root.searchComposite(2, 39), root.getLastChild());
        EXPECT_EQ(root.searchComposite(2, 40), nullptr);
        EXPECT_EQ(root.getChild(39), root.getLastChild());
    }
}

}  // namespace
