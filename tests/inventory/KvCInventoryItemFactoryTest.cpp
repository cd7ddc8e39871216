#include "inventory/KvCInventoryItemFactory.h"

#include <gtest/gtest.h>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "composite/KvCBinDeserializer.h"
#include "tests/inventory/InventoryTest.h"
#include "tests/support/FailingAllocation.h"

using namespace KvNInventoryIDs;
using Bytes = std::vector<unsigned char>;

namespace {

/** ROOT with SIZE = 7 MB, modifiable, relevance 5. */
const Bytes goldenTree = {0x01, 0,   0,   0,    1,    0, 0, 0, 1,  5, 'R', 'O',  'O',  'T', 0,  // start ROOT[1]
                          0x03, 0,   0,   0,    0x1E, 0, 0, 0, 98, 0, 1,   0x01, 0x24, 5,   'S',
                          'I',  'Z', 'E', 0,                    // SIZE, UInt32
                          0,    0,   0,   7,                    // its value
                          2,    'M', 'B', 0xFF, 0,    0, 0, 5,  // what is added to it
                          0x02};

class InventoryItemFactory : public testing::Test
{
protected:
    void fill(const Bytes& bytes)
    {
        buffer.initBuffer(errors);
        buffer.writeBuffer(errors, bytes.data(), static_cast<KvUInt32>(bytes.size()), 1);
    }
    Bytes written() const
    {
        return Bytes(buffer.getStartPointer(), buffer.getStartPointer() + buffer.getOccupiedSize());
    }
    ItemOwner read(const Bytes& bytes)
    {
        fill(bytes);
        KvCInventoryItem* root = nullptr;
        factory.deserialize(errors, root, &buffer);
        return ItemOwner(root);
    }
    ParameterOwner readParameter(const Bytes& bytes)
    {
        fill(bytes);
        KvCInventoryParameter* parameter = nullptr;
        factory.deserializeInventoryParameter(errors, parameter, &buffer);
        return ParameterOwner(parameter);
    }
    Bytes write(KvCInventoryItem& root)
    {
        buffer.initBuffer(errors);
        factory.serialize(errors, &buffer, &root);
        return written();
    }

    KvCErrorListPool errors;
    KvCBuffer buffer{errors};
    KvCInventoryItemFactory factory{errors};
};

}  // namespace

TEST_F(InventoryItemFactory, WritesTheDocumentedBytes)
{
    const ItemOwner root = makeItem(ROOT);
    root->createParameter<KvUInt32>(errors, SIZE, 7, "MB", true, 5, nullptr, nullptr, nullptr)
        ->setDesignatedValue<KvUInt32>(errors, 9);
    EXPECT_EQ(write(*root), goldenTree);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryItemFactory, ReadsTheDocumentedBytes)
{
    const ItemOwner root = read(goldenTree);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getID(), ROOT);
    const KvCInventoryParameter* size = root->getParameter(SIZE);
    ASSERT_NE(size, nullptr);
    EXPECT_EQ(size->getValue<KvUInt32>(errors), 7u);
    EXPECT_STREQ(size->getUnit(), "MB");
    EXPECT_TRUE(size->isModifiable());
    EXPECT_EQ(size->getRelevance(), 5u);
    EXPECT_FALSE(size->isDesignatedValueValid());
    EXPECT_EQ(size->getDescription(), Map.get(98));
    EXPECT_EQ(size->getAddress(), ROOT / SIZE);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryItemFactory, AnEmptyUnitIsItsLengthAlone)
{
    const ItemOwner root = makeItem(ROOT);
    addValue(*root, SIZE, static_cast<unsigned char>(7));
    const Bytes bytes = write(*root);
    EXPECT_EQ(Bytes(bytes.end() - 8, bytes.end()), (Bytes{7, 0, 0, 0, 0, 0, 0, 0x02}));
}

TEST_F(InventoryItemFactory, UnitsAreWrittenWithAtMost100CharactersOfTheLow8BitsOfTheirLength)
{
    const struct
    {
        std::size_t length;
        std::size_t written;
    } rows[] = {{99, 99}, {100, 100}, {101, 100}, {150, 100}, {255, 100}, {256, 0}, {300, 44}, {600, 88}};
    for (const auto& row : rows) {
        const ItemOwner root = makeItem(ROOT);
        root->createParameter<int>(errors, SIZE, 7, std::string(row.length, 'u').c_str(), true, 5, nullptr, nullptr,
                                   nullptr);
        const ItemOwner back = read(write(*root));
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(back->getParameter(SIZE)->getUnit(), std::string(row.written, 'u')) << row.length;
        EXPECT_EQ(back->getParameter(SIZE)->getRelevance(), 5u);
    }
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryItemFactory, AUnitLengthAbove100IsAnError)
{
    Bytes bytes = goldenTree;
    bytes[38] = 101;
    EXPECT_EQ(read(bytes), nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0x1302000, 0xa02000, 0x1302801}));
    EXPECT_EQ(entryOf(errors, 0),
              "KvCInventoryBinDeSerializer::handleCustomParameter: Unit serialization length exceeds limit of 100 "
              "bytes.");
    EXPECT_EQ(entryOf(errors, 2), "KvCInventoryItemFactory::deserialize: Cannot deserialize inventory tree.");
}

TEST_F(InventoryItemFactory, AnyModifiableByteButZeroIsTrue)
{
    Bytes bytes = goldenTree;
    for (const unsigned char byte : Bytes{0, 1, 0x80}) {
        bytes[41] = byte;
        const ItemOwner root = read(bytes);
        ASSERT_NE(root, nullptr);
        EXPECT_EQ(root->getParameter(SIZE)->isModifiable(), byte != 0);
    }
}

TEST_F(InventoryItemFactory, ATreeOfEveryTypeComesBackAsItWas)
{
    const ItemOwner root = makeItem(ROOT);
    KvCInventoryItem& test = *root->addPath(errors, CPU[2] / KvNInventoryIDs::TEST);
    addValue(test, TEST_I8, static_cast<char>(-8));
    addValue(test, TEST_I16, static_cast<short>(-16));
    addValue(test, TEST_I32, static_cast<KvInt32>(-32));
    addValue(test, TEST_I64, static_cast<KvInt64>(-64));
    addValue(test, TEST_UI8, static_cast<unsigned char>(8));
    addValue(test, TEST_UI16, static_cast<unsigned short>(16));
    addValue(test, TEST_UI32, static_cast<KvUInt32>(32));
    addValue(test, TEST_UI64, static_cast<KvUInt64>(64));
    addValue(test, TEST_F32, 1.5f);
    addValue(test, TEST_F64, -2.5);
    addValue(test, TEST_V, KvCVersion(1, 2, 3, 1, 4, 5));
    addValue(test, TEST_S, KvCString("text"));
    const Bytes bytes = write(*root);
    const ItemOwner back = read(bytes);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->toString(errors, 0, 0), root->toString(errors, 0, 0));
    EXPECT_EQ(write(*back), bytes);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryItemFactory, AParameterWithoutWhatIsAddedIsReadAndWrittenAsSuch)
{
    Bytes bytes = goldenTree;
    bytes[25] = 0;                                     // no custom flag
    bytes.erase(bytes.begin() + 38, bytes.end() - 1);  // and no custom data
    bytes[19] = 0x16;
    const ItemOwner root = read(bytes);
    ASSERT_NE(root, nullptr);
    ASSERT_NE(root->getParameter(SIZE), nullptr);
    EXPECT_EQ(root->getValue<KvUInt32>(errors, SIZE), 7u);
    EXPECT_STREQ(root->getParameter(SIZE)->getUnit(), "");
    EXPECT_EQ(write(*root), bytes);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryItemFactory, EveryPrefixOfAStreamIsAnErrorOrAnUnfinishedTree)
{
    for (std::size_t length = 0; length < goldenTree.size(); ++length) {
        errors.clear();
        const ItemOwner root =
            read(Bytes(goldenTree.begin(), goldenTree.begin() + static_cast<std::ptrdiff_t>(length)));
        if (length == 0) {
            EXPECT_EQ(root, nullptr);
            EXPECT_EQ(errors.getErrorCount(), 0u);
        } else if (length == 15 || length == goldenTree.size() - 1) {
            EXPECT_NE(root, nullptr) << "cut between records";
            EXPECT_EQ(errors.getErrorCount(), 0u);
        } else {
            EXPECT_EQ(root, nullptr) << length;
            const Codes codes = codesOf(errors);
            ASSERT_GE(codes.size(), 2u) << length;
            EXPECT_EQ(codes[codes.size() - 2], 0xa02000u);
            EXPECT_EQ(codes.back(), 0x1302801u);
        }
    }
}

TEST_F(InventoryItemFactory, TheSameItemTwiceIsAnAttachError)
{
    const Bytes item = {0x01, 0, 0, 0, 2, 0, 0, 0, 1, 4, 'C', 'P', 'U', 0, 0x02};
    Bytes bytes(goldenTree.begin(), goldenTree.begin() + 15);
    bytes.insert(bytes.end(), item.begin(), item.end());
    bytes.insert(bytes.end(), item.begin(), item.end());
    bytes.push_back(0x02);
    EXPECT_EQ(read(bytes), nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0x1302806, 0xa02000, 0x1302801}));
    EXPECT_EQ(entryOf(errors, 0),
              "KvCInventoryItemFactory::createComposite: Internal error. Korvel Support information: Cannot attach "
              "KvCComposite object. Error code: -3");
}

TEST_F(InventoryItemFactory, AppendsToTheBufferAndReadsFromItsStart)
{
    const ItemOwner root = read(goldenTree);
    factory.serialize(errors, &buffer, root.get());
    Bytes twice = goldenTree;
    twice.insert(twice.end(), goldenTree.begin(), goldenTree.end());
    EXPECT_EQ(written(), twice);
}

TEST_F(InventoryItemFactory, SingleParametersTravelAlone)
{
    const Bytes record(goldenTree.begin() + 15, goldenTree.end() - 1);
    const ParameterOwner parameter = readParameter(record);
    ASSERT_NE(parameter, nullptr);
    EXPECT_EQ(parameter->getValue<KvUInt32>(errors), 7u);
    EXPECT_STREQ(parameter->getUnit(), "MB");
    EXPECT_EQ(parameter->getParent(), nullptr);
    buffer.initBuffer(errors);
    factory.serializeInventoryParameter(errors, &buffer, parameter.get());
    EXPECT_EQ(written(), record);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    EXPECT_EQ(readParameter({0x01, 0, 0, 0, 1}), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryItemFactory, ADamagedParameterRecordIsReported)
{
    Bytes record(goldenTree.begin() + 15, goldenTree.end() - 1);
    record[23] = 200;
    EXPECT_EQ(readParameter(record), nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0x1302000, 0x1302800}));
    EXPECT_EQ(entryOf(errors, 1),
              "KvCInventoryItemFactory::deserializeInventoryParameter: Cannot deserialize inventory parameter.");
    for (std::size_t length = 1; length < 31; ++length) {
        errors.clear();
        EXPECT_EQ(readParameter(
                      Bytes(goldenTree.begin() + 15, goldenTree.begin() + 15 + static_cast<std::ptrdiff_t>(length))),
                  nullptr);
        EXPECT_EQ(errors.getErrorCode(errors.getErrorCount() - 1), 0x1302800u) << length;
    }
}

TEST_F(InventoryItemFactory, ATypeThatDoesNotExistCannotBeWritten)
{
    const ItemOwner root = makeItem(ROOT);
    auto* odd = new KvCInventoryParameter(errors, SIZE, "SIZE", 0x999);
    errors.clear();
    root->addParameter(errors, THIS_NODE, odd);
    write(*root);
    EXPECT_EQ(codesOf(errors), (Codes{0xa01001, 0xa01800, 0x1302803}));
    EXPECT_EQ(entryOf(errors, 2), "KvCInventoryItemFactory::serialize: Cannot serialize inventory tree.");
    errors.clear();
    factory.serializeInventoryParameter(errors, &buffer, odd);
    EXPECT_EQ(codesOf(errors), (Codes{0xa01001, 0x1302804}));
    EXPECT_EQ(entryOf(errors, 1),
              "KvCInventoryItemFactory::serializeInventoryParameter: Cannot serialize inventory parameter.");
}

TEST_F(InventoryItemFactory, WithoutMemoryForTheReaderOrWriterNothingHappens)
{
    const ItemOwner root = read(goldenTree);
    const ParameterOwner parameter = readParameter(Bytes(goldenTree.begin() + 15, goldenTree.end() - 1));
    KvCInventoryItem* item = root.get();
    KvCInventoryParameter* made = parameter.get();
    const auto expectFailure = [&](KvUInt32 code, const char* entry, auto&& call) {
        errors.clear();
        {
            const FailingAllocation first(1);
            call();
        }
        ASSERT_EQ(codesOf(errors), Codes{code});
        EXPECT_EQ(entryOf(errors, 0), entry);
    };
    expectFailure(0x1302802,
                  "KvCInventoryItemFactory::serialize: Internal error. Korvel Support information: Cannot create "
                  "KvCInventoryBinSerializer object.",
                  [&] { factory.serialize(errors, &buffer, root.get()); });
    expectFailure(0x1302802,
                  "KvCInventoryItemFactory::serializeInventoryParameter: Internal error. Korvel Support information: "
                  "Cannot create KvCInventoryBinSerializer object.",
                  [&] { factory.serializeInventoryParameter(errors, &buffer, parameter.get()); });
    expectFailure(0x1302802,
                  "KvCInventoryItemFactory::deserialize: Internal error. Korvel Support information: Cannot create "
                  "KvCInventoryBinSerializer object.",
                  [&] { factory.deserialize(errors, item, &buffer); });
    EXPECT_EQ(item, nullptr);
    expectFailure(0x1302805,
                  "KvCInventoryItemFactory::deserializeInventoryParameter: Internal error. Korvel Support information: "
                  "Cannot create KvCInventoryBinDeSerializer object.",
                  [&] { factory.deserializeInventoryParameter(errors, made, &buffer); });
    EXPECT_EQ(made, nullptr);
    KvNReport::masterList().clear();
}

TEST_F(InventoryItemFactory, ATypicalParameterIsReadWithOneAllocation)
{
    const auto countFor = [&](KvUInt32 parameters) {
        const ItemOwner root = makeItem(ROOT);
        for (KvUInt32 i = 0; i < parameters; ++i)
            root->createParameter<KvCString>(errors, KvCInventoryAddress(100 + i), "a short text", "V", true, 1,
                                             nullptr, nullptr, nullptr);
        fill(write(*root));
        const FailingAllocation counted(0);
        KvCInventoryItem* made = nullptr;
        factory.deserialize(errors, made, &buffer);
        delete made;
        return counted.count();
    };
    EXPECT_EQ(countFor(14) - countFor(4), 10u);
}

TEST_F(InventoryItemFactory, OfSeveralTreesTheFirstIsHandedOut)
{
    const auto tree = [](unsigned char unit) { return Bytes{1, 0, 0, 0, 2, 0, 0, 0, unit, 1, 0, 2}; };
    Bytes bytes;
    for (unsigned char unit = 1; unit <= 4; ++unit) {
        const Bytes one = tree(unit);
        bytes.insert(bytes.end(), one.begin(), one.end());
    }
    fill(bytes);
    KvCInventoryItem* root = nullptr;
    factory.deserialize(errors, root, &buffer);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getID(), CPU[1]);
    EXPECT_EQ(root->getNext(), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    delete root;
    bytes.push_back(7);
    fill(bytes);
    factory.deserialize(errors, root, &buffer);
    EXPECT_EQ(root, nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0xa02000, 0x1302801}));
}

TEST_F(InventoryItemFactory, ACustomParameterOfAnotherClassIsWrittenSoThatItCanBeRead)
{
    const ItemOwner root = makeItem(ROOT);
    root->KvCComposite::createParameter(errors, SIZE.getCategory(), "SIZE", 0x10000, KvUInt32{7});
    addValue(*root, NAME, KvCString("n"));
    fill(write(*root));
    KvCInventoryItem* made = nullptr;
    factory.deserialize(errors, made, &buffer);
    const ItemOwner copy(made);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    EXPECT_EQ(copy->getValue<KvUInt32>(errors, SIZE), 7u);
    EXPECT_STREQ(copy->getParameter(SIZE)->getUnit(), "");
    EXPECT_FALSE(copy->getParameter(SIZE)->isModifiable());
    EXPECT_EQ(copy->getValue<KvCString>(errors, NAME), KvCString("n"));
}
