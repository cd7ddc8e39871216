#include "composite/KvCParamList.h"

#include <gtest/gtest.h>

#include "Support.h"
#include "tests/support/FailingAllocation.h"

namespace {

/** A parameter that says when it dies. */
class Mortal : public KvCParam
{
public:
    Mortal(KvCErrorListPool& errors, KvUInt32 id, const char* descr, std::vector<KvUInt32>& deaths)
        : KvCParam(errors, id, descr, 0x124), m_deaths(deaths)
    {}
    ~Mortal() override { m_deaths.push_back(getId()); }

private:
    std::vector<KvUInt32>& m_deaths;
};

class KvCParamListTest : public testing::Test
{
protected:
    KvCParam* make(KvUInt32 id, const char* descr = "p") { return new Mortal(errors, id, descr, deaths); }
    static std::vector<KvUInt32> idsOf(const KvCParamList& list)
    {
        std::vector<KvUInt32> ids;
        for (const auto* node = list.getFront(); node != nullptr; node = node->getNext())
            ids.push_back(node->getContent()->getId());
        std::vector<KvUInt32> backwards;
        for (const auto* node = list.getBack(); node != nullptr; node = node->getPrev())
            backwards.insert(backwards.begin(), node->getContent()->getId());
        EXPECT_EQ(ids, backwards);
        EXPECT_EQ(ids.size(), list.getCount());
        return ids;
    }

    KvCErrorListPool errors;
    std::vector<KvUInt32> deaths;
};

using Ids = std::vector<KvUInt32>;

TEST_F(KvCParamListTest, ElementsAreAddedAtBothEndsAndTakenOut)
{
    KvCParamList list(nullptr);
    EXPECT_TRUE(list.isEmpty());
    KvCParam* const two = make(2);
    KvCParam** const stored = list.pushBack(two);
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(*stored, two);
    list.pushBack(errors, make(3));
    list.pushFront(make(1));
    list.pushFront(errors, make(0));
    EXPECT_EQ(idsOf(list), (Ids{0, 1, 2, 3}));
    EXPECT_EQ(two->getAttachmentCounter(), 1);
    list.removeListNode(list.find(two));
    EXPECT_EQ(deaths, Ids{2});
    EXPECT_EQ(idsOf(list), (Ids{0, 1, 3}));
    list.removeListNode(list.getBack());
    list.removeListNode(list.getFront());
    list.removeListNode(nullptr);
    EXPECT_EQ(idsOf(list), Ids{1});
    list.clear();
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(deaths, (Ids{2, 3, 0, 1}));
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCParamListTest, AParameterLivesAsLongAsOneListHoldsIt)
{
    KvCParam* const shared = make(5);
    KvCParamList first(nullptr);
    {
        KvCParamList second(nullptr);
        first.pushBack(shared);
        second.pushBack(shared);
        EXPECT_EQ(shared->getAttachmentCounter(), 2);
        first.removeListNode(first.find(shared));
        EXPECT_TRUE(deaths.empty());
        EXPECT_FALSE(shared->isDeletable());
        EXPECT_EQ(idsOf(second), Ids{5});
        first.pushFront(shared);
    }
    EXPECT_TRUE(deaths.empty());
    EXPECT_EQ(idsOf(first), Ids{5});
    first.clear();
    EXPECT_EQ(deaths, Ids{5});
}

TEST_F(KvCParamListTest, DestroyingTheListDestroysFromFrontToBack)
{
    {
        KvCParamList list(nullptr);
        for (const KvUInt32 id : {4, 2, 9})
            list.pushBack(make(id));
    }
    EXPECT_EQ(deaths, (Ids{4, 2, 9}));
}

TEST_F(KvCParamListTest, TheSecondListsNodeIsAllocatedAndItsFailureReported)
{
    KvCParamList first(nullptr);
    KvCParamList second(nullptr);
    KvCParam* const parameter = make(1);
    {
        const FailingAllocation failing(1);
        EXPECT_NE(first.pushBack(errors, parameter), nullptr);
        EXPECT_EQ(failing.count(), 0U) << "the first list uses the node inside the parameter";
        EXPECT_EQ(second.pushBack(errors, parameter), nullptr);
    }
    {
        const FailingAllocation failing(1);
        EXPECT_EQ(second.pushFront(errors, parameter), nullptr);
    }
    {
        const FailingAllocation failing(1);
        EXPECT_EQ(second.pushBack(parameter), nullptr);
    }
    EXPECT_EQ(codesOf(errors), (Codes{0x600800, 0x600800}));
    EXPECT_EQ(originsOf(errors), "KvPList<class KvCParam *>::pushBack,KvPList<class KvCParam *>::pushFront");
    EXPECT_EQ(parameter->getAttachmentCounter(), 1);
    EXPECT_TRUE(second.isEmpty());
}

TEST_F(KvCParamListTest, LookupsFindTheFirstMatchOrNothing)
{
    KvCParamList list(nullptr);
    EXPECT_EQ(list.getElementbyIndex(0), nullptr);
    KvCParam* const first = make(7, "Name");
    list.pushBack(make(3, nullptr));
    list.pushBack(first);
    list.pushBack(make(7, "Name"));
    EXPECT_EQ(list.getElementbyId(7), first);
    EXPECT_EQ(list.getElementbyId(errors, 7), first);
    EXPECT_EQ(list.getElementbyDescr("Name"), first);
    EXPECT_EQ(list.getElementbyDescr("name"), nullptr);
    EXPECT_EQ(list.getElementbyDescr(nullptr), nullptr);
    EXPECT_EQ(list.getElementbyIndex(1), first);
    EXPECT_EQ(list.getElementbyIndex(3), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(list.getElementbyId(8), nullptr);
    EXPECT_EQ(list.getElementbyId(errors, 8), nullptr);
    ASSERT_EQ(codesOf(errors), Codes{0x601801});
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Cannot find list element (ID 8).");
    EXPECT_STREQ(errors.getErrorOrigin(0), "KvCParamList::getElementbyId");
}

TEST_F(KvCParamListTest, LookupsInLongListsFollowEveryChange)
{
    KvCParamList list(nullptr);
    for (KvUInt32 id = 0; id < 100; ++id)
        list.pushBack(make(id));
    EXPECT_EQ(list.getElementbyId(99)->getId(), 99U);
    KvCParam* const added = make(1000);
    list.pushBack(added);
    EXPECT_EQ(list.getElementbyId(1000), added);
    list.removeElement(list.getElementbyId(50));
    EXPECT_EQ(list.getElementbyId(50), nullptr);
    EXPECT_NE(list.getElementbyId(51), nullptr);
    KvCParam* const front = make(20);
    list.pushFront(front);
    EXPECT_EQ(list.getElementbyId(20), front) << "the first match in order";
    list.removeElement(front);
    ASSERT_NE(list.getElementbyId(20), nullptr);
    EXPECT_EQ(list.getElementbyId(20)->getId(), 20U);
    KvCParam* const second = make(30);
    list.pushBack(second);
    list.removeElement(list.getElementbyId(30));
    EXPECT_EQ(list.getElementbyId(30), second);
    list.clear();
    EXPECT_EQ(list.getElementbyId(30), nullptr);
}

TEST_F(KvCParamListTest, LookupsGiveTheFirstMatchInListsOfAnyLength)
{
    const auto expectFirstMatches = [](const KvCParamList& list) {
        for (KvUInt32 id = 0; id < 60; ++id) {
            const KvCParam* first = nullptr;
            for (const auto* node = list.getFront(); node != nullptr && first == nullptr; node = node->getNext())
                first = node->getContent()->getId() == id ? node->getContent() : nullptr;
            EXPECT_EQ(list.getElementbyId(id), first) << id << " of " << list.getCount();
        }
    };
    for (const KvUInt32 repeated : {60U, 7U}) {
        KvCParamList list(nullptr);
        for (KvUInt32 i = 0; i < 40; ++i) {
            if (i % 3 == 0)
                list.pushFront(make(i % repeated));
            else
                list.pushBack(make(i % repeated));
            expectFirstMatches(list);
        }
        for (KvUInt32 i = 0; !list.isEmpty(); ++i) {
            list.removeListNode(i % 2 == 0 ? list.getFront()->getNext() : list.getBack());
            if (list.getCount() == 1)
                list.removeListNode(list.getFront());
            expectFirstMatches(list);
        }
        for (KvUInt32 id = 16; id > 0; --id)
            list.pushBack(make(id));
        expectFirstMatches(list);
    }
}

TEST_F(KvCParamListTest, AssigningAnotherIdIsFollowedByLookups)
{
    KvCParamList list(nullptr);
    for (KvUInt32 id = 0; id < 40; ++id)
        list.pushBack(make(id));
    KvCParam* const changed = list.getElementbyId(5);
    const KvCParam source(errors, 500, "new", 0, KvUInt32(1), nullptr);
    *changed = source;
    EXPECT_EQ(list.getElementbyId(5), nullptr);
    EXPECT_EQ(list.getElementbyId(500), changed);
    *changed = KvCParam(errors, 501, "new", 0, KvUInt32(1), nullptr);
    list.removeListNode(list.find(changed));
    EXPECT_EQ(list.getElementbyId(500), nullptr);
    EXPECT_EQ(list.getElementbyId(501), nullptr);
}

TEST_F(KvCParamListTest, LookupsInLongListsWorkWithoutMemoryForAnIndex)
{
    KvCParamList list(nullptr);
    for (KvUInt32 id = 0; id < 40; ++id)
        list.pushBack(make(id));
    const FailingAllocation failing(1, true);
    EXPECT_EQ(list.getElementbyId(39)->getId(), 39U);
    EXPECT_EQ(list.getElementbyId(40), nullptr);
}

TEST_F(KvCParamListTest, PlacesAreCountedFromAnywhere)
{
    KvCParamList list(nullptr);
    for (KvUInt32 id = 0; id < 50; ++id)
        list.pushBack(make(id));
    for (const KvUInt32 place : {49, 0, 25, 24, 26, 3, 48})
        EXPECT_EQ(list.getElementbyIndex(place)->getId(), place);
    list.removeElement(list.getElementbyIndex(10));
    EXPECT_EQ(list.getElementbyIndex(10)->getId(), 11U);
    list.pushFront(make(99));
    EXPECT_EQ(list.getElementbyIndex(0)->getId(), 99U);
    EXPECT_EQ(list.getElementbyIndex(11)->getId(), 11U);
    EXPECT_EQ(list.getElementbyIndex(50), nullptr);
}

TEST_F(KvCParamListTest, ParametersAreShownWithIdAndState)
{
    KvCParamList list(nullptr);
    list.pushBack(make(12));
    list.getFront()->getContent()->setStateBit(0x400000);
    list.pushBack(nullptr);
    testing::internal::CaptureStdout();
    list.showParameters(3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "     parameter 12 (state: 400001)\n     parameter -1 (state: 0)\n");
}

TEST_F(KvCParamListTest, SyncReachesEveryParameter)
{
    KvCParamList list(nullptr);
    for (KvUInt32 id = 0; id < 3; ++id) {
        list.pushBack(new KvCParam(errors, id, "p", 0x80000, KvInt32(1), nullptr));
        list.getBack()->getContent()->setValueInt32(errors, 2);
    }
    list.syncParameters(errors, 0x80000);
    for (KvUInt32 id = 0; id < 3; ++id)
        EXPECT_EQ(list.getElementbyId(id)->getValueInt32(errors), 2);
}

/** A list that notes what its hooks are told. */
class NotingList : public KvPList<KvCParam*>
{
public:
    ~NotingList() override { clear(); }
    void notifyElementAttachment(KvCParam** element) override { told += "+" + std::to_string((*element)->getId()); }
    void notifyElementDetachment(KvCParam** element) override { told += "-" + std::to_string((*element)->getId()); }
    bool isEqual(KvCParam* first, KvCParam* second) override { return first->getId() == second->getId(); }
    std::string told;
};

TEST_F(KvCParamListTest, DerivedListsAreToldAndCompareInTheirWay)
{
    KvCParam one(errors, 1, "p", 0x124);
    KvCParam two(errors, 2, "p", 0x124);
    KvCParam* likeTwo = &two;
    KvCParam other(errors, 2, "q", 0x124);
    KvCParam* probe = &other;
    NotingList list;
    list.pushBack(&one);
    list.pushFront(likeTwo);
    ASSERT_NE(list.find(probe), nullptr);
    EXPECT_EQ(list.find(probe)->getContent(), &two);
    EXPECT_EQ(*list.findContent(probe), &two);
    list.removeListNode(list.getFront());
    EXPECT_EQ(list.findContent(probe), nullptr);
    list.clear();
    EXPECT_EQ(list.told, "+1+2-2-1");
}

TEST_F(KvCParamListTest, AListThatKeepsNothingMayOutliveItsElements)
{
    KvPList<KvCParam*> list;
    for (KvUInt32 id = 0; id < 3; ++id) {
        KvCParam* const parameter = make(id);
        list.pushBack(errors, parameter);
        delete parameter;
    }
    EXPECT_EQ(list.getCount(), 3U);
    list.removeListNode(list.getFront());
    list.clear();
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(deaths, (Ids{0, 1, 2}));
}

TEST_F(KvCParamListTest, OnlyAnElementOfTheListIsTakenOut)
{
    KvCParamList holding(nullptr);
    KvCParamList other(nullptr);
    KvCParam* const parameter = make(1);
    holding.pushBack(parameter);
    other.pushBack(make(1));
    other.removeElement(parameter);
    other.removeElement(nullptr);
    EXPECT_EQ(idsOf(holding), Ids{1});
    EXPECT_EQ(idsOf(other), Ids{1});
    EXPECT_TRUE(deaths.empty());
    holding.removeElement(parameter);
    EXPECT_TRUE(holding.isEmpty());
    EXPECT_EQ(deaths, Ids{1});
}

TEST_F(KvCParamListTest, PlacesMayCountSomeElementsOnly)
{
    KvCParamList list(nullptr);
    for (const KvUInt32 id : {1U, 2U, 3U, 4U, 6U, 7U})
        list.pushBack(make(id));
    const KvCParamList::Filter isEven = [](KvCParam* parameter) { return parameter->getId() % 2 == 0; };
    const auto idAt = [&](KvUInt32 place, KvCParamList::Filter filter) {
        const KvCParam* const parameter = list.getElementbyIndex(place, filter);
        return parameter == nullptr ? 0 : parameter->getId();
    };
    for (const KvUInt32 place : {0U, 1U, 2U, 1U, 0U, 2U})
        EXPECT_EQ(idAt(place, isEven), Ids({2, 4, 6})[place]);
    EXPECT_EQ(idAt(2, nullptr), 3U);
    EXPECT_EQ(idAt(2, isEven), 6U);
    EXPECT_EQ(idAt(3, isEven), 0U);
    EXPECT_EQ(idAt(5, isEven), 0U);
    EXPECT_EQ(idAt(1, isEven), 4U);
    list.pushFront(make(8));
    EXPECT_EQ(idAt(0, isEven), 8U);
    EXPECT_EQ(idAt(6, nullptr), 7U);
}

}  // namespace
