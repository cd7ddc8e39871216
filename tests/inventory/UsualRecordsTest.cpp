#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <thread>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "inventory/InventoryStream.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "tests/inventory/InventoryTest.h"
#include "tests/support/FailingAllocation.h"

/*
 * Streams are read and written in one go where they are as usual, and record by record where they are not. Both ways
 * must give the same tree, the same bytes and the same reports.
 */

using namespace KvNInventoryIDs;
using Bytes = std::vector<unsigned char>;

namespace {

/** A factory of a user's own: its nodes are made by its operation, record by record. */
class OwnFactory : public KvCInventoryItemFactory
{
public:
    using KvCInventoryItemFactory::KvCInventoryItemFactory;
    KvCComposite* createComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId, const char* descr,
                                  KvCComposite* parent) override
    {
        ++made;
        return KvCInventoryItemFactory::createComposite(errors, classId, unitId, descr, parent);
    }

    int made = 0;
};

template <class T>
void add(KvCInventoryItem& item, KvUInt32 id, const char* description, const T& value, const char* unit,
         bool modifiable, KvUInt32 relevance)
{
    KvCErrorListPool errors;
    auto* parameter =
        new KvCInventoryParameter(errors, KvCInventoryAddress(id), description, value, unit, modifiable, relevance);
    ASSERT_NE(item.addParameter(errors, THIS_NODE, parameter), nullptr);
}

const char longText[] = "a text that is much too long to stand inside anything";

/** Each kind of value, of description and of unit. */
void addEachKind(KvCInventoryItem& item)
{
    add(item, 900, "Int8", static_cast<signed char>(-5), "", false, 0);
    add(item, 901, "UInt8", static_cast<unsigned char>(250), "V", true, 1);
    add(item, 910, "Int16", static_cast<short>(-3000), "seven77", false, 0xFFFFFFFF);
    add(item, 911, "UInt16", static_cast<unsigned short>(60000), "eight888", true, 2);
    add(item, 905, nullptr, -70000, nullptr, false, 3);
    add(item, 98, "SIZE", KvUInt32{4000000000}, "MB", true, 5);
    add(item, 912, "", KvInt64{-5000000000}, longText, false, 0);
    add(item, 913, "UInt64", KvUInt64{0xFEDCBA9876543210}, std::string(300, 'u').c_str(), true, 0);
    add(item, 914, "Float", 1.5F, "mA", false, 0);
    add(item, 915, "Double", -2.25, "mV", false, 0);
    add(item, 3, "another name", KvCString("fifteen bytes.."), "", true, 9);
    add(item, 916, "long", KvCString(longText), "", true, 9);
    add(item, 917, "empty", KvCString(""), "", true, 9);
    add(item, 918, "longer than any field", KvCString(std::string(700, 'x').c_str()), "", true, 9);
    add(item, 919, "version", KvCVersion("1.2.3b4p5"), "", true, 9);
    add(item, 920, std::string(254, 'd').c_str(), 1, "", true, 9);
    add(item, 921, std::string(255, 'd').c_str(), 1, "", true, 9);
    add(item, 922, std::string(300, 'd').c_str(), 1, "", true, 9);
}

ItemOwner makeTree()
{
    KvCErrorListPool errors;
    ItemOwner root(new KvCInventoryItem(errors, ROOT, "ROOT"));
    addEachKind(*root);
    for (const KvUInt32 index : {1U, 2U, 4U, 3U})
        addEachKind(*root->addPath(errors, CPU[index] / RAM));
    KvCInventoryItem* const wide = root->addPath(errors, BANK);
    for (KvUInt32 i = 0; i < 40; ++i)
        add(*wide, 1000 + i * 7 % 40, "many", i, "", false, i);
    wide->attach(new KvCInventoryItem(errors, KvCInventoryAddress(4711, 3), longText));
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return root;
}

Bytes bytesOf(const KvCBuffer& buffer)
{
    return Bytes(buffer.getStartPointer(), buffer.getStartPointer() + buffer.getOccupiedSize());
}

Bytes streamOf(KvCInventoryItem& root)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    KvCInventoryItemFactory(errors).serialize(errors, &buffer, &root);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return bytesOf(buffer);
}

/** All that reading a stream gives: the tree's text, the stream it is written as, and the reports. */
struct Outcome
{
    std::string tree;
    Bytes again;
    std::vector<std::string> reports;
    KvUInt32 position = 0;

    bool operator==(const Outcome&) const = default;
};

Outcome outcomeOf(KvCInventoryItemFactory& factory, const Bytes& bytes)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    buffer.writeBuffer(errors, bytes.data(), static_cast<KvUInt32>(bytes.size()), 1);
    KvCInventoryItem* read = nullptr;
    factory.deserialize(errors, read, &buffer);
    const ItemOwner root(read);
    Outcome outcome;
    for (KvUInt32 i = 0; i < errors.getErrorCount(); ++i)
        outcome.reports.push_back(entryOf(errors, i));
    outcome.position = buffer.getReadPosition();
    if (root != nullptr) {
        outcome.tree = root->toString(errors, 0, 0).c_str();
        outcome.again = streamOf(*root);
    }
    return outcome;
}

void expectSame(const Bytes& bytes, const std::string& what)
{
    KvCErrorListPool errors;
    KvCInventoryItemFactory factory(errors);
    OwnFactory own(errors);
    const Outcome atOnce = outcomeOf(factory, bytes);
    const Outcome byRecord = outcomeOf(own, bytes);
    EXPECT_EQ(atOnce, byRecord) << what << ": " << atOnce.reports.size() << " and " << byRecord.reports.size()
                                << " reports, read to " << atOnce.position << " and " << byRecord.position;
    KvNReport::masterList().clear();
}

}  // namespace

TEST(UsualRecords, AWholeTreeIsTheSameHoweverItIsRead)
{
    const ItemOwner root = makeTree();
    const Bytes bytes = streamOf(*root);
    KvCErrorListPool errors;
    KvCInventoryItemFactory factory(errors);
    const Outcome outcome = outcomeOf(factory, bytes);
    // Descriptions that are too long for a record arrive cut, so that only the tree that was read is the same again.
    EXPECT_EQ(outcomeOf(factory, outcome.again).tree, outcome.tree);
    EXPECT_TRUE(outcome.reports.empty());
    expectSame(bytes, "the whole stream");
}

TEST(UsualRecords, AFactoryOfAUsersOwnMakesEachNode)
{
    const ItemOwner root = makeTree();
    KvCErrorListPool errors;
    OwnFactory own(errors);
    outcomeOf(own, streamOf(*root));
    EXPECT_EQ(own.made, 11);
}

TEST(UsualRecords, EveryPrefixHasTheSameOutcomeHoweverItIsRead)
{
    const Bytes bytes = streamOf(*makeTree());
    for (std::size_t size = 0; size < bytes.size(); size += size < 1500 ? 1 : 13)
        expectSame(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)), std::to_string(size));
}

TEST(UsualRecords, EveryDamagedByteHasTheSameOutcomeHoweverItIsRead)
{
    const ItemOwner root = makeItem(ROOT);
    addEachKind(*root);
    KvCErrorListPool errors;
    add(*root->addPath(errors, CPU[2]), 98, "SIZE", 7, "MB", false, 0);
    const Bytes bytes = streamOf(*root);
    for (std::size_t place = 0; place < bytes.size(); ++place) {
        // Of the long texts a few bytes will do.
        if (place > 0 && bytes[place] == bytes[place - 1] && place % 16 != 0)
            continue;
        for (const int flip : {0x01, 0x04, 0x10, 0x80, 0xFF}) {
            Bytes damaged = bytes;
            damaged[place] = static_cast<unsigned char>(damaged[place] ^ flip);
            expectSame(damaged, std::to_string(place) + " flipped by " + std::to_string(flip));
        }
    }
}

TEST(UsualRecords, RandomDamageHasTheSameOutcomeHoweverItIsRead)
{
    const Bytes bytes = streamOf(*makeTree());
    std::mt19937 random(4711);
    for (int round = 0; round < 500; ++round) {
        Bytes damaged = bytes;
        for (unsigned count = random() % 4 + 1; count > 0; --count)
            damaged[random() % damaged.size()] = static_cast<unsigned char>(random());
        if (round % 2 == 0) {
            const auto from = static_cast<std::ptrdiff_t>(random() % damaged.size());
            damaged.erase(damaged.begin() + from,
                          damaged.begin() + std::min(from + static_cast<std::ptrdiff_t>(random() % 60),
                                                     static_cast<std::ptrdiff_t>(damaged.size())));
        }
        expectSame(damaged, "round " + std::to_string(round));
    }
}

TEST(UsualRecords, DoubledNodesAndParametersHaveTheSameOutcomeHoweverTheyAreRead)
{
    const auto start = [](unsigned char id, unsigned char unit) {
        return Bytes{1, 0, 0, 0, id, 0, 0, 0, unit, 2, 'n', 0};
    };
    const auto parameter = [](unsigned char id, unsigned char value) {
        return Bytes{3, 0, 0, 0, 24, 0, 0, 0, id, 0, 1, 1, 0x21, 4, 'p', 'a', 'r', 0, value, 0, 0, 0, 0, 0, 0};
    };
    const Bytes end{2};
    const std::vector<std::vector<Bytes>> streams{
        {start(1, 1), parameter(9, 1), parameter(9, 2), end},
        {start(1, 1), parameter(9, 1), parameter(8, 2), parameter(9, 3), parameter(8, 3), parameter(7, 7), end},
        {start(1, 1), start(2, 2), end, start(2, 2), end, end},
        {start(1, 1), start(2, 2), end, start(2, 1), end, start(2, 2), end, end},
        {start(1, 1), start(2, 2), parameter(9, 1), end, parameter(9, 2), start(2, 3), end, parameter(9, 3), end},
        {start(1, 1), end, start(1, 2), parameter(9, 1), end},
        {start(1, 1), end, end},
        {start(1, 1), end, parameter(9, 1)},
        {parameter(9, 1), start(1, 1), end},
        {start(1, 1), parameter(0, 0), parameter(0, 1), start(2, 0), parameter(0, 0), end, end},
    };
    for (std::size_t i = 0; i < streams.size(); ++i) {
        Bytes bytes;
        for (const Bytes& record : streams[i])
            bytes.insert(bytes.end(), record.begin(), record.end());
        expectSame(bytes, "stream " + std::to_string(i));
    }
}

TEST(UsualRecords, TheStreamAndTheBufferAreTheSameHoweverTheyAreWritten)
{
    const ItemOwner root = makeTree();
    for (KvUInt32 before = 0; before < 1600; before += 37) {
        KvCErrorListPool errors;
        KvCBuffer atOnce(errors);
        KvCBuffer byRecord(errors);
        for (KvUInt32 i = 0; i < before; ++i)
            for (KvCBuffer* buffer : {&atOnce, &byRecord})
                buffer->writeBuffer(errors, "x", 1);
        KvCInventoryItemFactory(errors).serialize(errors, &atOnce, root.get());
        KvCInventoryBinSerializer serializer(errors);
        serializer.setBuffer(&byRecord);
        serializer.traverse(errors, root.get());
        EXPECT_EQ(errors.getErrorCount(), 0u);
        EXPECT_EQ(bytesOf(atOnce), bytesOf(byRecord)) << before;
        EXPECT_EQ(atOnce.getSize(), byRecord.getSize()) << before;
    }
}

TEST(UsualRecords, ArraysAndParametersOfOtherClassesAreWrittenAsEver)
{
    KvCErrorListPool errors;
    const ItemOwner root = makeItem(ROOT);
    add(*root, 98, "SIZE", 7, "MB", false, 0);
    KvUInt32 data[] = {1, 2, 3};
    root->KvCComposite::createParameter(errors, 500, "array", 0, 3, data, nullptr);
    root->KvCComposite::createParameter(errors, 501, "plain", 0, KvUInt32{5});
    root->KvCComposite::addParameter(errors, new KvCParam(errors, 502, "custom", 0x10124));
    add(*root, 99, "last", 7, "MB", false, 0);
    KvCBuffer byRecord(errors);
    KvCInventoryBinSerializer serializer(errors);
    serializer.setBuffer(&byRecord);
    serializer.traverse(errors, root.get());
    EXPECT_EQ(errors.getErrorCount(), 0u);
    EXPECT_EQ(streamOf(*root), bytesOf(byRecord));
    expectSame(bytesOf(byRecord), "arrays");
}

TEST(UsualRecords, AReadTreeIsTakenApartInAnyOrder)
{
    const Bytes bytes = streamOf(*makeTree());
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    buffer.writeBuffer(errors, bytes.data(), static_cast<KvUInt32>(bytes.size()), 1);
    KvCInventoryItem* root = nullptr;
    KvCInventoryItemFactory(errors).deserialize(errors, root, &buffer);
    ASSERT_NE(root, nullptr);

    KvCInventoryItem* const kept = root->getItem(CPU[2]);
    kept->detach();
    KvCInventoryItem* const first = root->getItem(CPU[4]);
    first->detach();
    delete first;
    root->removeParameter(errors, 916);
    root->getParameter(911)->setUnit(longText);
    root->getParameter(98)->setDesignatedValue<KvUInt32>(errors, 5);
    *root->getParameter(914) = *root->getParameter(920);
    root->getItem(BANK)->setFriend(root->getItem(CPU));
    KvCParamList other(nullptr);
    KvCInventoryParameter* const shared = root->getParameter(915);
    other.pushBack(shared);
    delete root;

    EXPECT_EQ(shared->getValue<double>(errors), -2.25);
    EXPECT_EQ(kept->getItem(RAM)->getValue<KvCString>(errors, KvCInventoryAddress(916)), KvCString(longText));
    std::thread([kept] { delete kept; }).join();
    EXPECT_STREQ(shared->getDescription(), "Double");
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST(UsualRecords, AParameterThatMovedThroughTheListOfAnotherNodeLeavesNothingBehind)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    const Bytes bytes = streamOf(*makeTree());
    buffer.writeBuffer(errors, bytes.data(), static_cast<KvUInt32>(bytes.size()), 1);
    KvCInventoryItem* root = nullptr;
    KvCInventoryItemFactory(errors).deserialize(errors, root, &buffer);
    const ItemOwner owner(root);
    ASSERT_NE(root, nullptr);

    KvCInventoryParameter* const moved = root->getParameter(916);
    ItemOwner later = makeItem(CPU);
    later->KvCComposite::addParameter(errors, moved);
    root->removeParameter(errors, 916);
    EXPECT_EQ(moved->getAttachmentCounter(), 1);
    EXPECT_EQ(later->getParameter(916), moved);
    later.reset();
    EXPECT_EQ(root->getParameter(916), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST(UsualRecords, ASecondStreamBelowTheRootOfTheFirstStartsAtItsOwnFirstNode)
{
    const Bytes first{1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 0, 2};
    const Bytes second{1, 0, 0, 0, 2, 0, 0, 0, 1, 1, 0, 1, 0, 0, 0, 3, 0, 0, 0, 1, 1, 0, 2, 2};
    KvCErrorListPool errors;
    KvCInventoryItemFactory factory(errors);
    OwnFactory own(errors);
    for (KvCInventoryItemFactory* each : {&factory, static_cast<KvCInventoryItemFactory*>(&own)}) {
        KvCErrorListPool list;
        KvCBuffer buffer(list);
        KvCInventoryBinDeSerializer reader(list);
        reader.setBuffer(&buffer);
        // The base is not public: only this cast gets there.
        reader.setFactory((KvCCompositeFactory*)each);
        buffer.writeBuffer(list, first.data(), static_cast<KvUInt32>(first.size()), 1);
        reader.deserialize(list);
        KvCComposite* const root = reader.getRoot();
        ASSERT_NE(root, nullptr);
        buffer.setWritePointer(list, buffer.getStartPointer());
        buffer.writeBuffer(list, second.data(), static_cast<KvUInt32>(second.size()), 1);
        reader.deserialize(list);
        EXPECT_EQ(list.getErrorCount(), 0u);
        EXPECT_EQ(reader.getRoot(), root);
        ASSERT_NE(root->getChild(), nullptr);
        EXPECT_EQ(reader.getSerializationRoot(), root->getChild());
    }
}

TEST(UsualRecords, EveryAllocationThatFailsWhileReadingIsReportedOrMakesNoDifference)
{
    const Bytes bytes = streamOf(*makeTree());
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    buffer.writeBuffer(errors, bytes.data(), static_cast<KvUInt32>(bytes.size()), 1);
    KvCInventoryItemFactory factory(errors);
    KvCInventoryItem* first = nullptr;
    factory.deserialize(errors, first, &buffer);
    const ItemOwner firstOwner(first);
    ASSERT_NE(first, nullptr);
    const KvCString whole = first->toString(errors, 0, 0);
    int failures = 0;
    for (std::size_t n = 1;; ++n) {
        errors.clear();
        KvNReport::masterList().clear();
        KvCInventoryItem* root = nullptr;
        bool hasFailed;
        {
            const FailingAllocation one(n);
            factory.deserialize(errors, root, &buffer);
            hasFailed = one.hasFailed();
        }
        const ItemOwner owner(root);
        // Without memory for an index, which only saves time, the tree is whole all the same.
        EXPECT_EQ(root == nullptr, errors.getErrorCount() > 0) << n;
        if (root != nullptr) {
            EXPECT_EQ(root->toString(errors, 0, 0), whole) << n;
            EXPECT_EQ(errors.getErrorCount(), 0u) << n;
        }
        failures += root == nullptr ? 1 : 0;
        if (!hasFailed)
            break;
    }
    EXPECT_GT(failures, 100);
    KvNReport::masterList().clear();
}
