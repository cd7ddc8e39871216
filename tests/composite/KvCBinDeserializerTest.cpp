#include "composite/KvCBinDeserializer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "StreamBuilder.h"
#include "base/Report.h"

namespace {

constexpr KvUInt32 changed = 0x400000;

class KvCBinDeserializerTest : public testing::Test
{
protected:
    /** Reads a stream; with `root` beneath it. The tree made is owned by `made`. */
    KvCComposite* read(const StreamBuilder& stream, KvCComposite* root = nullptr)
    {
        errors.clear();
        buffer = bufferOf(stream.bytes());
        KvCBinDeserializer deserializer(errors);
        deserializer.setBuffer(buffer.get());
        deserializer.setFactory(&factory);
        deserializer.setRoot(root);
        deserializer.deserialize(errors);
        KvCComposite* const first = deserializer.getSerializationRoot();
        if (root == nullptr)
            made.reset(first);
        return first;
    }
    /** The arguments of the last message, as its text shows them: tag, read position, write position. */
    void expectStop(unsigned tag, unsigned position, unsigned end)
    {
        const KvUInt32 last = errors.getErrorCount() - 1;
        ASSERT_GT(errors.getErrorCount(), 0U);
        EXPECT_EQ(errors.getErrorCode(last), 0xA02000U);
        EXPECT_STREQ(errors.getErrorOrigin(last), "KvCBinDeserializer::deserialize");
        char text[200];
        std::snprintf(text, sizeof text,
                      "Internal error. Korvel Support information: Unable to deserialize data stream. Unknown tag %u "
                      "detected at position %x - %x",
                      tag, position, end);
        EXPECT_STREQ(errors.getErrorText(last), text);
    }
    static StreamBuilder value() { return StreamBuilder(); }

    KvCErrorListPool errors;
    KvCCompositeFactory factory{errors};
    std::unique_ptr<KvCBuffer> buffer;
    std::unique_ptr<KvCComposite> made;
};

TEST_F(KvCBinDeserializerTest, ATreeIsBuiltFromItsRecords)
{
    StreamBuilder stream;
    stream.start(1, 7, "root").parameter(5, 0x20114, value().number(0xFFFFFFFE), "ab");
    stream.start(2, 1, "a").start(3, 1, "").end().end().start(2, 2, "c").end().end();
    KvCComposite* const root = read(stream);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(shapeOf(*root), "1.7(2.1(3.1) 2.2)");
    EXPECT_STREQ(root->getDescription(), "root");
    EXPECT_STREQ(root->getChild()->getChild()->getDescription(), "");
    const KvCParam* const parameter = root->getParameterById(5);
    ASSERT_NE(parameter, nullptr);
    EXPECT_STREQ(parameter->getDescr(), "ab");
    EXPECT_EQ(parameter->getType(), 0x20114U);
    EXPECT_EQ(parameter->getValueInt32(errors), -2);
    EXPECT_EQ(parameter->getState(), 1U);
    EXPECT_EQ(parameter->getParent(), root);
}

TEST_F(KvCBinDeserializerTest, EveryValueTypeIsReadFromItsBytes)
{
    const auto check = [&](KvUInt32 type, const StreamBuilder& bytes, const char* text) {
        const KvCComposite* const root = read(StreamBuilder().start(1, 1).parameter(9, type, bytes).end());
        EXPECT_EQ(errors.getErrorCount(), 0U) << std::hex << type;
        ASSERT_NE(root->getParameterById(9), nullptr);
        EXPECT_STREQ(root->getParameterById(9)->getValueAsString(errors).c_str(), text) << std::hex << type;
    };
    check(0x111, value().hex("FF"), "-1");
    check(0x112, value().hex("FF FE"), "-2");
    check(0x114, value().hex("80 00 00 00"), "-2147483648");
    check(0x118, value().hex("FF FF FF FF FF FF FF FD"), "-3");
    check(0x121, value().hex("FF"), "255");
    check(0x122, value().hex("12 34"), "4660");
    check(0x124, value().hex("12 34 56 78"), "305419896");
    check(0x128, value().hex("12 34 56 78 9A BC DE F0"), "1311768467463790320");
    check(0x214, value().hex("3F C0 00 00"), "1.5");
    check(0x218, value().hex("C0 00 00 00 00 00 00 00"), "-2");
    check(0x1124, value().hex("00 00 00 02 00 00 00 01 00 00 00 02"), "1 2 ");
    check(0x1218, value().hex("00 00 00 01 3F F0 00 00 00 00 00 00"), "1.000000 ");
    check(0x1124, value().hex("00 00 00 00"), "");
    check(0x2000, value().hex("00 00 00 03 61 62 00"), "ab");
    check(0x2000, value().hex("00 00 00 00"), "");
    check(0x2000, value().hex("00 00 00 02 61 62"), "ab");
    check(0x2000, value().hex("00 00 00 04 61 00 62 00"), "a");
    check(0x4000, value().hex("03 01 02 02 00 04 00 07"), "3.1.2b4p7");
}

TEST_F(KvCBinDeserializerTest, ReadingTwiceIntoTheSameTreeAddsAndMarksNothing)
{
    StreamBuilder stream;
    stream.start(1, 1)
        .parameter(1, 0x114, value().number(7))
        .parameter(2, 0x218, value().number(0x7FF8000000000001, 8));
    stream.parameter(3, 0x1124, value().number(1).number(5)).parameter(4, 0x2000, value().number(2).text("a").byte(0));
    stream.parameter(5, 0x80122, value().number(9, 2));
    stream.start(2, 2).end().end();
    KvCComposite top(errors, 99, 99, "top");
    KvCComposite* const first = read(stream, &top);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->getParent(), &top);
    EXPECT_EQ(read(stream, &top), nullptr) << "the second time nothing is made";
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(shapeOf(top), "99.99(1.1(2.2))");
    EXPECT_EQ(first->getParameterList()->getCount(), 5U);
    for (const KvUInt32 id : {1U, 2U, 3U, 4U, 5U})
        EXPECT_EQ(first->getParameterById(id)->getState(), 1U) << id;
    EXPECT_EQ(first->getParameterById(5)->getValueUInt16(errors), 9);
}

TEST_F(KvCBinDeserializerTest, MergingMarksExactlyWhatChangedAndNeverRemoves)
{
    KvCComposite top(errors, 99, 99, "top");
    StreamBuilder before;
    before.start(1, 1).parameter(1, 0x114, value().number(7)).parameter(2, 0x1124, value().number(1).number(5));
    before.parameter(3, 0x2000, value().number(2).text("a").byte(0)).parameter(4, 0x4000, value().number(1, 8));
    before.parameter(5, 0x121, value().byte(1)).start(2, 1).end().end();
    KvCComposite* const node = read(before, &top);
    StreamBuilder after;
    after.start(1, 1).parameter(1, 0x114, value().number(8)).parameter(2, 0x1124, value().number(1).number(6));
    after.parameter(3, 0x2000, value().number(2).text("b").byte(0)).parameter(4, 0x4000, value().number(2, 8));
    after.parameter(6, 0x121, value().byte(3)).start(2, 2).end().end();
    KvCComposite* const added = read(after, &top);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(shapeOf(top), "99.99(1.1(2.1 2.2))");
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(added->getUnitId(), 2U) << "the first node made is the serialization root";
    EXPECT_EQ(node->getParameterById(1)->getValueInt32(errors), 8);
    EXPECT_EQ(node->getParameterById(1)->getStateBit(changed), changed);
    EXPECT_EQ(node->getParameterById(2)->getValueUInt32Arr(errors).getData()[0], 6U);
    EXPECT_EQ(node->getParameterById(2)->getStateBit(changed), changed);
    EXPECT_STREQ(node->getParameterById(3)->getValueKvCString(errors).c_str(), "b");
    EXPECT_EQ(node->getParameterById(3)->getStateBit(changed), 0U) << "texts are set and never marked";
    EXPECT_EQ(node->getParameterById(4)->getValueKvCVersion(errors).getAsULong64(), 2U);
    EXPECT_EQ(node->getParameterById(4)->getStateBit(changed), 0U);
    EXPECT_EQ(node->getParameterById(5)->getStateBit(changed), 0U);
    EXPECT_EQ(node->getParameterById(6)->getStateBit(changed), 0U) << "a new parameter has not changed";
}

TEST_F(KvCBinDeserializerTest, AnArrayThatDiffersInCountOrElementIsSet)
{
    KvCComposite top(errors, 99, 99, "top");
    const auto stream = [](std::initializer_list<KvUInt32> numbers) {
        StreamBuilder bytes;
        bytes.number(static_cast<KvUInt32>(numbers.size()));
        for (const KvUInt32 number : numbers)
            bytes.number(number);
        return StreamBuilder().start(1, 1).parameter(1, 0x1124, bytes).end();
    };
    KvCComposite* const node = read(stream({1, 2}), &top);
    KvCParam* const parameter = node->getParameterById(1);
    read(stream({1, 2, 3}), &top);
    EXPECT_EQ(parameter->getStateBit(changed), changed);
    EXPECT_EQ(parameter->getValueUInt32Arr(errors).getCount(), 3U);
    parameter->clearStateBit(changed);
    read(stream({1, 2, 3}), &top);
    EXPECT_EQ(parameter->getStateBit(changed), 0U);
    read(stream({}), &top);
    EXPECT_EQ(parameter->getStateBit(changed), changed);
    EXPECT_EQ(parameter->getValueUInt32Arr(errors).getCount(), 0U);
}

TEST_F(KvCBinDeserializerTest, ADoubleBufferedParameterIsChangedInItsShadow)
{
    KvCComposite top(errors, 99, 99, "top");
    KvCComposite* const node = read(StreamBuilder().start(1, 1).parameter(1, 0x80114, value().number(7)).end(), &top);
    KvCParam* const parameter = node->getParameterById(1);
    EXPECT_EQ(parameter->getValueInt32(errors), 7);
    read(StreamBuilder().start(1, 1).parameter(1, 0x80114, value().number(8)).end(), &top);
    EXPECT_EQ(parameter->getValueInt32(errors), 7);
    EXPECT_EQ(parameter->getStateBit(changed), changed);
    parameter->sync(0x80000);
    EXPECT_EQ(parameter->getValueInt32(errors), 8);
}

TEST_F(KvCBinDeserializerTest, ExistingExternalStorageReceivesTheValue)
{
    KvCComposite top(errors, 99, 99, "top");
    KvInt32 outside = 0;
    addNode(top, 1, 1)->createParameter(errors, 1, "p", 0, KvInt32(1), &outside);
    read(StreamBuilder().start(1, 1).parameter(1, 0x114, value().number(8)).end(), &top);
    EXPECT_EQ(outside, 8);
}

TEST_F(KvCBinDeserializerTest, WithoutARootTheSameNodeTwiceIsTheFactorysError)
{
    read(StreamBuilder().start(1, 1).start(2, 2).end().start(2, 2).end().end());
    EXPECT_EQ(codesOf(errors), (Codes{0xA02806, 0xA02000}));
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Cannot attach composite (2 2) to its parent (1 1). "
                 "Internal error code: fffffffd.");
    EXPECT_STREQ(errors.getErrorOrigin(0), "KvCCompositeFactory::createComposite");
    EXPECT_EQ(shapeOf(*made), "1.1(2.2)");
}

TEST_F(KvCBinDeserializerTest, WithARootTheSameNodeTwiceIsContinued)
{
    KvCComposite top(errors, 99, 99, "top");
    read(StreamBuilder().start(2, 2).end().start(2, 2).start(3, 3).end().end(), &top);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(shapeOf(top), "99.99(2.2(3.3))");
}

TEST_F(KvCBinDeserializerTest, EachRunStartsWithoutASerializationRoot)
{
    KvCComposite top(errors, 99, 99, "top");
    buffer = bufferOf(StreamBuilder().start(2, 2).end().bytes());
    KvCBinDeserializer deserializer(errors);
    deserializer.setBuffer(buffer.get());
    deserializer.setFactory(&factory);
    deserializer.setRoot(&top);
    deserializer.deserialize(errors);
    EXPECT_EQ(deserializer.getSerializationRoot(), top.getChild());
    EXPECT_EQ(deserializer.getActElement(), &top);
    EXPECT_EQ(deserializer.getRoot(), &top);
    deserializer.deserialize(errors);
    EXPECT_EQ(deserializer.getSerializationRoot(), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCBinDeserializerTest, WithoutBufferOrFactoryNothingIsRead)
{
    KvCBinDeserializer deserializer(errors);
    deserializer.deserialize(errors);
    deserializer.CompositeStart(errors);
    deserializer.CompositeParameter(errors);
    EXPECT_EQ(codesOf(errors), (Codes{0xA01003, 0xA01003}));
    EXPECT_EQ(originsOf(errors), "KvCBinDeserializer::deserialize,KvCBinDeserializer::CompositeParameter");
    errors.clear();
    deserializer.createBuffer(errors);
    ASSERT_NE(deserializer.getBuffer(), nullptr);
    deserializer.deserialize(errors);
    EXPECT_EQ(codesOf(errors), Codes{0xA01004});
    errors.clear();
    deserializer.CompositeEnd(errors);
    EXPECT_EQ(codesOf(errors), Codes{0xA01000});
    delete deserializer.getBuffer();
}

TEST_F(KvCBinDeserializerTest, AnEmptyStreamIsNoTree)
{
    EXPECT_EQ(read(StreamBuilder()), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCBinDeserializerTest, AnUnknownTagStopsReading)
{
    StreamBuilder stream;
    stream.start(1, 1).byte(7).end();
    ASSERT_NE(read(stream), nullptr);
    EXPECT_EQ(codesOf(errors), Codes{0xA02000});
    expectStop(7, 13, 14);
}

TEST_F(KvCBinDeserializerTest, AnEndTooManyIsReported)
{
    read(StreamBuilder().start(1, 1).end().end());
    EXPECT_EQ(codesOf(errors), (Codes{0xA01000, 0xA02000}));
    EXPECT_EQ(originsOf(errors), "KvCBinDeserializer::CompositeEnd,KvCBinDeserializer::deserialize");
    expectStop(2, 14, 14);
}

TEST_F(KvCBinDeserializerTest, TrailingBytesOfANewerWriterAreSkippedUpTo128)
{
    for (const int extra : {1, 128}) {
        StreamBuilder stream;
        stream.start(1, 1).parameter(5, 0x114, value().number(7), "p", extra);
        stream.insert(stream.size(), 0xEE, static_cast<std::size_t>(extra)).start(2, 2).end().end();
        KvCComposite* const root = read(stream);
        EXPECT_EQ(errors.getErrorCount(), 0U) << extra;
        EXPECT_EQ(shapeOf(*root), "1.1(2.2)");
        EXPECT_EQ(root->getParameterById(5)->getValueInt32(errors), 7);
    }
    StreamBuilder stream;
    stream.start(1, 1).parameter(5, 0x114, value().number(7), "p", 129);
    stream.insert(stream.size(), 0xEE, 129).end();
    read(stream);
    EXPECT_EQ(codesOf(errors), (Codes{0xA01002, 0xA02000}));
    // Consumed 19 of 148 bytes.
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Parameter size is 148, it should be 19.");
    EXPECT_EQ(made->getParameterById(5), nullptr) << "the new parameter is destroyed";
    expectStop(3, 12 + 1 + 19, static_cast<unsigned>(stream.size()));
}

TEST_F(KvCBinDeserializerTest, ARecordThatIsLongerThanItSaysIsReported)
{
    read(StreamBuilder().start(1, 1).parameter(5, 0x114, value().number(7), "p", -1).end());
    EXPECT_EQ(codesOf(errors), (Codes{0xA01002, 0xA02000}));
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Parameter size is 18, it should be 19.");
    EXPECT_EQ(made->getParameterById(5), nullptr);
}

TEST_F(KvCBinDeserializerTest, ACountBeyondTheRecordIsReportedBeforeMemoryIsTaken)
{
    const auto check = [&](KvUInt32 type, KvUInt32 count, const char* text) {
        read(StreamBuilder().start(1, 1).parameter(5, type, value().number(count).byte(0)).end());
        EXPECT_EQ(codesOf(errors), (Codes{0xA01002, 0xA02000})) << std::hex << type;
        EXPECT_STREQ(errors.getErrorText(0), text);
        EXPECT_STREQ(errors.getErrorOrigin(0), "KvCBinDeserializer::CompositeParameter");
        EXPECT_EQ(made->getParameterById(5), nullptr);
    };
    // The record is 20 bytes long.
    check(0x2000, 21, "Internal error. Korvel Support information: Parameter size is 21, it should be 20.");
    check(0x2000, 0xFFFFFFFF,
          "Internal error. Korvel Support information: Parameter size is 4294967295, it should be 20.");
    check(0x1124, 6, "Internal error. Korvel Support information: Parameter size is 24, it should be 20.");
    check(0x1218, 3, "Internal error. Korvel Support information: Parameter size is 24, it should be 20.");
    check(0x1218, 0x20000001,
          "Internal error. Korvel Support information: Parameter size is 4294967295, it should be 20.");
}

TEST_F(KvCBinDeserializerTest, AnUnknownTypeIsReportedByMakerAndReader)
{
    read(StreamBuilder().start(1, 1).parameter(0x2A, 0x20113, value().number(0)).end());
    EXPECT_EQ(codesOf(errors), (Codes{0x601001, 0xA01001, 0xA02000}));
    EXPECT_STREQ(errors.getErrorText(1),
                 "Internal error. Korvel Support information: Unexpected parameter type ID 20113 for parameter 2a.");
    EXPECT_EQ(made->getParameterById(0x2A), nullptr);
}

TEST_F(KvCBinDeserializerTest, AnotherTypeThanTheExistingOnesStopsInsideTheRecord)
{
    read(StreamBuilder()
             .start(1, 1)
             .parameter(5, 0x114, value().number(7))
             .parameter(5, 0x124, value().number(8))
             .end());
    EXPECT_EQ(codesOf(errors), (Codes{0xA01001, 0xA02000}));
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Unexpected parameter type ID 124 for parameter 5.");
    EXPECT_EQ(made->getParameterById(5)->getValueInt32(errors), 7);
    // Start record 12, first record 20, tag 1, header and description 15 bytes.
    expectStop(3, 12 + 20 + 1 + 15, 12 + 20 + 20 + 1);
}

TEST_F(KvCBinDeserializerTest, TheSameParameterTwiceIsMerged)
{
    KvCComposite* const root = read(StreamBuilder()
                                        .start(1, 1)
                                        .parameter(5, 0x114, value().number(7))
                                        .parameter(5, 0x20114, value().number(8))
                                        .end());
    EXPECT_EQ(errors.getErrorCount(), 0U) << "only the type code must agree";
    EXPECT_EQ(root->getParameterById(5)->getValueInt32(errors), 8);
    EXPECT_EQ(root->getParameterById(5)->getType(), 0x114U);
}

TEST_F(KvCBinDeserializerTest, AStreamCutAnywhereEndsInAnErrorOrAtARecord)
{
    StreamBuilder whole;
    whole.start(1, 1, "root")
        .parameter(1, 0x114, value().number(7))
        .parameter(2, 0x2000, value().number(3).text("ab").byte(0));
    whole.parameter(3, 0x1124, value().number(2).number(1).number(2)).parameter(4, 0x218, value().number(1, 8));
    whole.start(2, 2, "child").end().end();
    // Where a record ends, counted by hand: 15, +20, +23, +28, +24, +16, +1, +1.
    const std::vector<std::size_t> ends = {0, 15, 35, 58, 86, 110, 126, 127, 128};
    ASSERT_EQ(whole.size(), ends.back());
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        StreamBuilder stream = whole;
        read(stream.cut(size));
        const bool isWhole = std::find(ends.begin(), ends.end(), size) != ends.end();
        const KvUInt32 count = errors.getErrorCount();
        EXPECT_EQ(count == 0 ? 0 : errors.getErrorCode(count - 1), isWhole ? 0U : 0xA02000U) << size;
        EXPECT_EQ(made == nullptr, size < 15) << size;
        EXPECT_EQ(made != nullptr && made->getParameterById(2) != nullptr, size >= 58)
            << "half a value is no value: " << size;
    }
}

TEST_F(KvCBinDeserializerTest, AStreamCutInsideAFieldNamesTheTagAndBothPositions)
{
    StreamBuilder stream;
    stream.start(1, 1).parameter(5, 0x114, value().number(7));
    read(stream.cut(stream.size() - 2));
    EXPECT_EQ(codesOf(errors), Codes{0xA02000});
    expectStop(3, 32, 30);
    EXPECT_EQ(made->getParameterById(5), nullptr);
}

TEST_F(KvCBinDeserializerTest, BytesBehindTheWritePositionAreNeverTaken)
{
    // The block holds a whole stream, of which only a part counts.
    StreamBuilder stream;
    stream.start(1, 1).parameter(5, 0x2000, value().number(8).text("secret!").byte(0)).end();
    buffer = bufferOf(stream.bytes());
    buffer->setWritePointer(errors, buffer->getStartPointer() + stream.size() - 4);
    KvCBinDeserializer deserializer(errors);
    deserializer.setBuffer(buffer.get());
    deserializer.setFactory(&factory);
    deserializer.deserialize(errors);
    made.reset(deserializer.getSerializationRoot());
    EXPECT_EQ(codesOf(errors), Codes{0xA02000});
    EXPECT_EQ(made->getParameterById(5), nullptr);
}

TEST_F(KvCBinDeserializerTest, ALengthThatReachesBeyondTheStreamIsReported)
{
    StreamBuilder stream;
    stream.start(1, 1).parameter(5, 0x114, value().number(7), "p", 100).end();
    read(stream);
    EXPECT_EQ(errors.getErrorCode(errors.getErrorCount() - 1), 0xA02000U);
    EXPECT_EQ(made->getParameterById(5), nullptr);
}

TEST_F(KvCBinDeserializerTest, AParameterWithoutANodeIsOnlyReachableAsTheActiveOne)
{
    buffer = bufferOf(StreamBuilder().parameter(5, 0x114, value().number(7)).bytes());
    KvCBinDeserializer deserializer(errors);
    deserializer.setBuffer(buffer.get());
    deserializer.setFactory(&factory);
    deserializer.deserialize(errors);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    const std::unique_ptr<KvCParam> parameter(deserializer.getActParameter());
    ASSERT_NE(parameter, nullptr);
    EXPECT_EQ(parameter->getValueInt32(errors), 7);
    EXPECT_TRUE(parameter->isDeletable());
    EXPECT_EQ(deserializer.getSerializationRoot(), nullptr);
}

TEST_F(KvCBinDeserializerTest, DescriptionsOfAnyBytesAreTerminated)
{
    StreamBuilder stream;
    stream.byte(1).number(1).number(1).byte(255).text(std::string(255, 'x'));
    stream.byte(3).number(17).number(5).number(0x114).byte(0).number(7).end();
    KvCComposite* const root = read(stream);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(std::string(root->getDescription()), std::string(255, 'x'));
    EXPECT_STREQ(root->getParameterById(5)->getDescr(), "");
}

/** Reads three bytes of custom data and makes parameters of its own. */
class CustomDeserializer : public KvCBinDeserializer
{
public:
    using KvCBinDeserializer::KvCBinDeserializer;
    KvCParam* createCustomParameter(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 type, const char* descr) override
    {
        notes += "create:" + std::to_string(id) + ":" + descr + " ";
        return refuse ? nullptr : KvCBinDeserializer::createCustomParameter(errors, id, type, descr);
    }
    void handleCustomParameter(KvCErrorListPool& errors, KvCParam* parameter) override
    {
        char data[4] = {};
        getBuffer()->readBuffer(errors, data, 3, 1);
        notes += "handle:" + std::to_string(parameter->getId()) + ":" + data + " ";
        if (std::strcmp(data, "BAD") == 0)
            KV_REPORT(errors, ParameterNotFound, "CustomDeserializer", "x");
    }
    std::string notes;
    bool refuse = false;
};

TEST_F(KvCBinDeserializerTest, CustomParametersGoThroughTheHooks)
{
    StreamBuilder stream;
    stream.start(1, 1).parameter(1, 0x121, value().byte(1)).parameter(2, 0x10121, value().byte(2).text("abc"), "two");
    stream.parameter(2, 0x10121, value().byte(3).text("def"), "two").end();
    buffer = bufferOf(stream.bytes());
    CustomDeserializer deserializer(errors);
    deserializer.setBuffer(buffer.get());
    deserializer.setFactory(&factory);
    deserializer.deserialize(errors);
    made.reset(deserializer.getSerializationRoot());
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(deserializer.notes, "create:2:two handle:2:abc handle:2:def ");
    EXPECT_EQ(made->getParameterById(2)->getValueUInt8(errors), 3);
}

/** Makes parameters with an id of its own. */
class RenumberingDeserializer : public KvCBinDeserializer
{
public:
    using KvCBinDeserializer::KvCBinDeserializer;
    KvCParam* createCustomParameter(KvCErrorListPool& errors, KvUInt32 id, KvUInt32 type, const char* descr) override
    {
        return KvCBinDeserializer::createCustomParameter(errors, id + 100, type, descr);
    }
};

TEST_F(KvCBinDeserializerTest, AParameterMadeWithAnotherIdIsFoundAndRefusedByThatId)
{
    const auto reading = [&](const StreamBuilder& stream) {
        errors.clear();
        buffer = bufferOf(stream.bytes());
        RenumberingDeserializer deserializer(errors);
        deserializer.setBuffer(buffer.get());
        deserializer.setFactory(&factory);
        deserializer.deserialize(errors);
        made.reset(deserializer.getSerializationRoot());
        return made->getParameterList()->getCount();
    };
    StreamBuilder merged;
    merged.start(1, 1).parameter(5, 0x10121, value().byte(1)).parameter(105, 0x121, value().byte(2)).end();
    EXPECT_EQ(reading(merged), 1U);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    EXPECT_EQ(made->getParameterById(105)->getValueUInt8(errors), 2);

    StreamBuilder doubled;
    doubled.start(1, 1).parameter(105, 0x121, value().byte(1)).parameter(5, 0x10121, value().byte(2), "five").end();
    EXPECT_EQ(reading(doubled), 1U);
    EXPECT_EQ(codesOf(errors), (Codes{0x601802, 0xA02000}));
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Duplicate list element (Descr: five, ID: 105).");
    EXPECT_EQ(made->getParameterById(105)->getValueUInt8(errors), 1);
}

TEST_F(KvCBinDeserializerTest, AFailingCustomHookStopsReadingButKeepsTheParameter)
{
    StreamBuilder stream;
    stream.start(1, 1).parameter(2, 0x10121, value().byte(2).text("BAD")).parameter(3, 0x121, value().byte(1)).end();
    buffer = bufferOf(stream.bytes());
    CustomDeserializer deserializer(errors);
    deserializer.setBuffer(buffer.get());
    deserializer.setFactory(&factory);
    deserializer.deserialize(errors);
    made.reset(deserializer.getSerializationRoot());
    EXPECT_EQ(codesOf(errors), (Codes{0x601003, 0xA02000}));
    EXPECT_NE(made->getParameterById(2), nullptr);
    EXPECT_EQ(made->getParameterById(3), nullptr);
}

TEST_F(KvCBinDeserializerTest, ACustomParameterThatCannotBeMadeIsReported)
{
    buffer = bufferOf(StreamBuilder().parameter(2, 0x10121, value().byte(2).text("abc")).bytes());
    CustomDeserializer deserializer(errors);
    deserializer.refuse = true;
    deserializer.setBuffer(buffer.get());
    deserializer.setFactory(&factory);
    deserializer.deserialize(errors);
    EXPECT_EQ(codesOf(errors), (Codes{0x601002, 0xA02000}));
    EXPECT_EQ(deserializer.getActParameter(), nullptr);
}

TEST_F(KvCBinDeserializerTest, ReadingGoesOnInTheBytesOfAnExistingNodeWithoutAList)
{
    KvCComposite top(errors, 99, 99, "top");
    KvCComposite* const bare = new KvCComposite(errors, 1, 1, nullptr);
    top.attach(bare);
    read(StreamBuilder().start(1, 1).parameter(5, 0x114, value().number(7)).end(), &top);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    ASSERT_NE(bare->getParameterById(5), nullptr);
}

}  // namespace
