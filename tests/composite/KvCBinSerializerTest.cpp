#include "composite/KvCBinSerializer.h"

#include <gtest/gtest.h>

#include "StreamBuilder.h"
#include "base/Report.h"
#include "tests/support/FailingAllocation.h"

namespace {

class KvCBinSerializerTest : public testing::Test
{
protected:
    Bytes serialized(KvCComposite& root, KvUInt32 mode = 0)
    {
        KvCBuffer buffer(errors);
        serializer.setBuffer(&buffer);
        serializer.setTraversionMode(mode);
        serializer.serialize(errors, &root);
        serializer.setBuffer(nullptr);
        return bytesOf(buffer);
    }
    /** The record of one parameter of the node, without start and end record. */
    Bytes record(KvUInt32 mode = 0)
    {
        const Bytes all = serialized(node, mode);
        return Bytes(all.begin() + 12, all.end() - 1);
    }
    static Bytes hex(const char* digits) { return StreamBuilder().hex(digits).bytes(); }

    KvCErrorListPool errors;
    KvCBinSerializer serializer{errors};
    KvCComposite node{errors, 0x11, 2, "n"};
};

TEST_F(KvCBinSerializerTest, ANodeAloneIsItsStartRecordAndOneByte)
{
    KvCComposite root(errors, 0x01020304, 0xA0B0C0D0, "ab");
    EXPECT_EQ(serialized(root), hex("01 01 02 03 04 A0 B0 C0 D0 03 61 62 00 02"));
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCBinSerializerTest, ASignedNumberHasItsRecord)
{
    node.createParameter(errors, 5, "ab", 0, KvInt32(-2));
    EXPECT_EQ(record(), hex("03 00 00 00 14 00 00 00 05 00 00 01 14 03 61 62 00 FF FF FF FE"));
}

TEST_F(KvCBinSerializerTest, EveryValueTypeHasItsBytes)
{
    const auto check = [&](auto value, const char* digits) {
        KvCComposite owner(errors, 1, 1, "");
        owner.createParameter(errors, 1, "", 0, value);
        const Bytes all = serialized(owner);
        // Start record 11, tag, length, id, type and description 15 bytes in front; one end record behind.
        EXPECT_EQ(Bytes(all.begin() + 11 + 15, all.end() - 1), hex(digits));
    };
    check(char(-1), "FF");
    check(static_cast<unsigned char>(0x80), "80");
    check(short(-2), "FF FE");
    check(static_cast<unsigned short>(0x1234), "12 34");
    check(KvInt32(-2147483647), "80 00 00 01");
    check(KvUInt32(0x12345678), "12 34 56 78");
    check(-2LL, "FF FF FF FF FF FF FF FE");
    check(0x123456789ABCDEF0ULL, "12 34 56 78 9A BC DE F0");
    check(1.0F, "3F 80 00 00");
    check(-2.0, "C0 00 00 00 00 00 00 00");
    check(KvCString("ab"), "00 00 00 03 61 62 00");
    check(KvCString(), "00 00 00 01 00");
    check(KvCVersion(3, 1, 2, 2, 4, 7), "03 01 02 02 00 04 00 07");
}

TEST_F(KvCBinSerializerTest, ArraysHaveTheirCountInFront)
{
    KvUInt32 integers[] = {1, 0xA0B0C0D0};
    double doubles[] = {1.5};
    node.createParameter(errors, 1, "", 0, 2, integers, nullptr);
    EXPECT_EQ(record(), hex("03 00 00 00 1A 00 00 00 01 00 00 11 24 01 00 00 00 00 02 00 00 00 01 A0 B0 C0 D0"));
    node.removeParameter(errors, 1);
    node.createParameter(errors, 1, "", 0, 1, doubles, nullptr);
    EXPECT_EQ(record(), hex("03 00 00 00 1A 00 00 00 01 00 00 12 18 01 00 00 00 00 01 3F F8 00 00 00 00 00 00"));
    node.removeParameter(errors, 1);
    node.createParameter(errors, 1, "", 0, 0, doubles, nullptr);
    EXPECT_EQ(record(), hex("03 00 00 00 12 00 00 00 01 00 00 12 18 01 00 00 00 00 00"));
}

TEST_F(KvCBinSerializerTest, ATreeIsWrittenParametersFirstThenChildrenInOrder)
{
    node.createParameter(errors, 7, "p", 0, static_cast<unsigned char>(9));
    addNode(*addNode(node, 2, 1, "a"), 3, 1, "b");
    addNode(node, 4, 1, "c");
    StreamBuilder expected;
    expected.start(0x11, 2).parameter(7, 0x121, StreamBuilder().byte(9));
    expected.start(2, 1, "a").start(3, 1, "b").end().end().start(4, 1, "c").end().end();
    EXPECT_EQ(serialized(node), expected.bytes());
}

TEST_F(KvCBinSerializerTest, ANullDescriptionIsWrittenAsAnEmptyText)
{
    KvCComposite bare(errors, 1, 1, nullptr);
    EXPECT_EQ(serialized(bare), hex("01 00 00 00 01 00 00 00 01 01 00 02"));
    bare.createParameter(errors, 1, nullptr, 0, static_cast<unsigned char>(9));
    EXPECT_EQ(serialized(bare),
              hex("01 00 00 00 01 00 00 00 01 01 00 03 00 00 00 0F 00 00 00 01 00 00 01 21 01 00 09 02"));
}

TEST_F(KvCBinSerializerTest, DescriptionsFrom255CharactersOnAreCutToTheLow8Bits)
{
    for (const unsigned length : {254U, 255U, 256U, 300U}) {
        KvCComposite root(errors, 1, 1, std::string(length, 'x').c_str());
        const unsigned written = (length + 1) & 0xFF;
        StreamBuilder expected;
        expected.byte(1).number(1).number(1).byte(written);
        expected.text(length == 254 ? std::string(254, 'x') + '\0' : std::string(written, 'x')).end();
        EXPECT_EQ(serialized(root), expected.bytes()) << length;
    }
}

TEST_F(KvCBinSerializerTest, AnUnknownTypeIsReportedAndItsRecordLeftUnfinished)
{
    node.addParameter(errors, new KvCParam(errors, 0x2A, "p", 0x113));
    node.createParameter(errors, 2, "q", 0, static_cast<unsigned char>(1));
    errors.clear();
    const Bytes bytes = record();
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 16), hex("03 FF FF FF FF 00 00 00 2A 00 00 01 13 02 70 00"));
    EXPECT_EQ(bytes[16], 3) << "the walk goes on";
    EXPECT_EQ(codesOf(errors), (Codes{0xA01001, 0xA01800}));
    EXPECT_EQ(originsOf(errors), "KvCBinSerializer::CompositeParameter,KvCBinSerializer::serialize");
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Unexpected parameter type ID 113 for parameter 2a.");
}

TEST_F(KvCBinSerializerTest, Mode8ClearsTheDoubleBufferFlag)
{
    node.createParameter(errors, 1, "p", 0x80000, KvUInt32(1));
    EXPECT_EQ(record()[10], 8);
    EXPECT_EQ(record(0x8)[10], 0);
    EXPECT_EQ(record(0x8).size(), record().size());
}

TEST_F(KvCBinSerializerTest, TheSerializerMakesABufferAndGoesOnInIt)
{
    EXPECT_EQ(serializer.getBuffer(), nullptr);
    serializer.serialize(errors, &node);
    KvCBuffer* const buffer = serializer.getBuffer();
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->getOccupiedSize(), 13U);
    serializer.serialize(errors, &node);
    EXPECT_EQ(serializer.getBuffer(), buffer);
    EXPECT_EQ(buffer->getOccupiedSize(), 26U);
    serializer.serialize(errors, nullptr);
    EXPECT_EQ(buffer->getOccupiedSize(), 26U);
    delete buffer;
}

TEST_F(KvCBinSerializerTest, ABufferThatCannotBeMadeFailsTheSerialization)
{
    {
        const FailingAllocation failing(1);
        serializer.serialize(errors, &node);
        EXPECT_EQ(codesOf(errors), (Codes{0x601002, 0xA01800}));
        EXPECT_EQ(serializer.getBuffer(), nullptr);
    }
    errors.clear();
    const FailingAllocation failing(2);
    serializer.serialize(errors, &node);
    EXPECT_EQ(codesOf(errors), (Codes{0x401, 0xA01800}));
    delete serializer.getBuffer();
}

TEST_F(KvCBinSerializerTest, WithoutABufferTheHooksDoNothing)
{
    const KvCParam parameter(errors, 1, "p", 0x124);
    serializer.CompositeStart(errors, &node);
    serializer.CompositeParameter(errors, &parameter);
    serializer.CompositeEnd(errors, &node);
    EXPECT_EQ(serializer.getBuffer(), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCBinSerializerTest, AStringOfExactlyTheLargestReadyRoomIsWritten)
{
    for (const std::size_t length : {100U, 255U, 256U, 1000U, 70000U}) {
        KvCComposite owner(errors, 1, 1, "n");
        const std::string text(length, 't');
        owner.createParameter(errors, 1, "p", 0, KvCString(text.c_str()));
        StreamBuilder expected;
        expected.start(1, 1).parameter(1, 0x2000, StreamBuilder().number(length + 1).text(text).byte(0)).end();
        EXPECT_EQ(serialized(owner), expected.bytes());
    }
}

/** Writes three bytes of custom data. */
class CustomSerializer : public KvCBinSerializer
{
public:
    using KvCBinSerializer::KvCBinSerializer;
    void handleCustomParameter(KvCErrorListPool& errors, const KvCParam*) override
    {
        getBuffer()->writeBuffer(errors, "\x0A\x0B\x0C", 3, 1);
    }
};

TEST_F(KvCBinSerializerTest, CustomDataStandsBehindTheValueAndCounts)
{
    CustomSerializer custom(errors);
    KvCBuffer buffer(errors);
    custom.setBuffer(&buffer);
    const KvCParam parameter(errors, 1, "p", 0x10000, static_cast<unsigned char>(9), nullptr);
    custom.CompositeParameter(errors, &parameter);
    EXPECT_EQ(bytesOf(buffer), hex("03 00 00 00 13 00 00 00 01 00 01 01 21 02 70 00 09 0A 0B 0C"));
    buffer.initBuffer(errors);
    const KvCParam plain(errors, 1, "p", 0, static_cast<unsigned char>(9), nullptr);
    custom.CompositeParameter(errors, &plain);
    EXPECT_EQ(bytesOf(buffer), hex("03 00 00 00 10 00 00 00 01 00 00 01 21 02 70 00 09"));
}

/** Notes what it is shown. */
class NotingTraverse : public KvCCompositeTraverse
{
public:
    void CompositeStart(KvCErrorListPool&, KvCComposite* composite) override { note("+", composite->getUnitId()); }
    void CompositeEnd(KvCErrorListPool&, KvCComposite* composite) override { note("-", composite->getUnitId()); }
    void CompositeParameter(KvCErrorListPool&, const KvCParam* parameter) override { note("p", parameter->getId()); }
    std::string notes;

private:
    void note(const char* what, KvUInt32 id)
    {
        char text[16];
        std::snprintf(text, sizeof text, "%s%x ", what, static_cast<unsigned>(id));
        notes += text;
    }
};

class KvCCompositeTraverseTest : public testing::Test
{
protected:
    std::string visited(KvCComposite* start, KvUInt32 mode)
    {
        NotingTraverse traverse;
        traverse.setTraversionMode(mode);
        traverse.traverse(errors, start);
        return traverse.notes;
    }

    KvCErrorListPool errors;
    KvCComposite root{errors, 1, 1, "root"};
};

TEST_F(KvCCompositeTraverseTest, NodesAndParametersAreVisitedInOrder)
{
    root.createParameter(errors, 0x20, "p", 0, 1U);
    KvCComposite* const child = addNode(root, 1, 2);
    child->createParameter(errors, 0x21, "p", 0, 1U);
    addNode(*child, 1, 3);
    addNode(root, 1, 4);
    EXPECT_EQ(visited(&root, 0), "+1 p20 +2 p21 +3 -3 -2 +4 -4 -1 ");
    EXPECT_EQ(visited(child, 0), "+2 p21 +3 -3 -2 ") << "never beyond the subtree";
    EXPECT_EQ(visited(nullptr, 0), "");
    KvCComposite bare(errors, 1, 9, nullptr);
    EXPECT_EQ(visited(&bare, 0), "+9 -9 ");
}

TEST_F(KvCCompositeTraverseTest, Mode1PassesOverInvisibleNodesButNotTheirChildren)
{
    KvCComposite* const hidden = addNode(root, 1, 2);
    hidden->createParameter(errors, 0x21, "p", 0, 1U);
    addNode(*hidden, 1, 3)->setStateBit(0x2);
    root.setStateBit(0x1);
    EXPECT_EQ(visited(&root, 0x1), "+1 +3 -3 -1 ");
}

TEST_F(KvCCompositeTraverseTest, Modes4And8FilterByTheirFlags)
{
    root.createParameter(errors, 1, "p", 0, 1U);
    root.createParameter(errors, 2, "p", 0x20000, 1U);
    root.createParameter(errors, 3, "p", 0x40000, 1U);
    EXPECT_EQ(visited(&root, 0x0), "+1 p1 p2 p3 -1 ");
    EXPECT_EQ(visited(&root, 0x4), "+1 p1 p3 -1 ");
    EXPECT_EQ(visited(&root, 0x8), "+1 p1 p2 -1 ");
    EXPECT_EQ(visited(&root, 0xC), "+1 p1 p2 -1 ") << "0x4 is ignored when 0x8 is set";
}

TEST_F(KvCCompositeTraverseTest, Mode20GoesByTheClassOfTheId)
{
    for (const KvUInt32 id : {0x3612U, 0x3512U, 0x200U, 0x2FFU, 0x100U, 0x600U, 0x700U})
        root.createParameter(errors, id, "p", 0, 1U);
    EXPECT_EQ(visited(&root, 0x20), "+1 p3612 p200 p2ff p600 -1 ");
}

TEST_F(KvCCompositeTraverseTest, CopiesKeepTheMode)
{
    KvCCompositeTraverse traverse;
    EXPECT_EQ(traverse.getTraversionMode(), 0U);
    traverse.setTraversionMode(0x2C);
    const KvCCompositeTraverse copy(traverse);
    KvCCompositeTraverse assigned;
    assigned = traverse;
    EXPECT_EQ(copy.getTraversionMode(), 0x2CU);
    EXPECT_EQ(assigned.getTraversionMode(), 0x2CU);
    traverse.traverse(errors, &root);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

}  // namespace
