#include "composite/KvCCompositeFactory.h"

#include <gtest/gtest.h>

#include "StreamBuilder.h"
#include "tests/support/FailingAllocation.h"

namespace {

class KvCCompositeFactoryTest : public testing::Test
{
protected:
    KvCErrorListPool errors;
    KvCCompositeFactory factory{errors};
};

TEST_F(KvCCompositeFactoryTest, CreatedNodesAreAttachedToTheirParent)
{
    const std::unique_ptr<KvCComposite> root(factory.createComposite(errors, 1, 2, "root", nullptr));
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getParent(), nullptr);
    KvCComposite* const child = factory.createComposite(errors, 3, 4, "child", root.get());
    EXPECT_EQ(root->getChild(), child);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    factory.createComposite(errors, 3, 4, "child", root.get());
    ASSERT_EQ(codesOf(errors), Codes{0xA02806});
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Cannot attach composite (3 4) to its parent (1 2). "
                 "Internal error code: fffffffd.");
    EXPECT_EQ(root->getChildCount(), 1U);
}

TEST_F(KvCCompositeFactoryTest, ANodeThatCannotBeMadeIsReported)
{
    const FailingAllocation failing(1);
    EXPECT_EQ(factory.createComposite(errors, 3, 4, "child", nullptr), nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0x601002, 0x602001}));
}

TEST_F(KvCCompositeFactoryTest, SerializingWithoutABufferUsesTheOwnOneFromItsStart)
{
    const auto first = makeNode(1, 1, "first");
    const auto second = makeNode(2, 2, "2nd");
    factory.serialize(errors, first.get(), 0, nullptr);
    factory.serialize(errors, second.get(), 0, nullptr);
    EXPECT_EQ(bytesOf(*factory.getBuffer()), StreamBuilder().start(2, 2, "2nd").end().bytes());
    KvCBuffer other(errors);
    factory.serialize(errors, first.get(), 0, &other);
    factory.serialize(errors, second.get(), 0, &other);
    EXPECT_EQ(bytesOf(other), StreamBuilder().start(1, 1, "first").end().start(2, 2, "2nd").end().bytes());
    EXPECT_EQ(factory.getBuffer()->getOccupiedSize(), 15U);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCCompositeFactoryTest, TheTraversionModeIsHandedOn)
{
    const auto root = makeNode(1, 1, "r");
    root->createParameter(errors, 1, "p", 0x20000, 1U);
    factory.serialize(errors, root.get(), 0x4, nullptr);
    EXPECT_EQ(bytesOf(*factory.getBuffer()), StreamBuilder().start(1, 1, "r").end().bytes());
}

TEST_F(KvCCompositeFactoryTest, ATreeIsReadFromTheOwnBufferOrAnother)
{
    const auto root = makeNode(1, 1, "root");
    addNode(*root, 2, 2)->createParameter(errors, 5, "p", 0, KvCString("text"));
    factory.serialize(errors, root.get(), 0, nullptr);
    const std::unique_ptr<KvCComposite> copy(factory.deserialize(errors, nullptr, nullptr));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(shapeOf(*copy), "1.1(2.2)");
    EXPECT_STREQ(copy->getChild()->getParameterById(5)->getValueKvCString(errors).c_str(), "text");
    const auto buffer = bufferOf(bytesOf(*factory.getBuffer()));
    const std::unique_ptr<KvCComposite> again(factory.deserialize(errors, nullptr, buffer.get()));
    EXPECT_EQ(shapeOf(*again), "1.1(2.2)");
    KvCComposite top(errors, 9, 9, "top");
    KvCComposite* const made = factory.deserialize(errors, &top, buffer.get());
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->getParent(), &top);
    EXPECT_EQ(factory.deserialize(errors, &top, buffer.get()), nullptr) << "everything is there already";
    EXPECT_EQ(shapeOf(top), "9.9(1.1(2.2))");
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCCompositeFactoryTest, SuppliedSerializersAreUsedAndGivenBackWithoutABuffer)
{
    KvCBinSerializer serializer(errors);
    KvCBinDeserializer deserializer(errors);
    factory.setBinarySerializer(&serializer);
    factory.setBinaryDeserializer(&deserializer);
    const auto root = makeNode(1, 1, "r");
    factory.serialize(errors, root.get(), 0x5, nullptr);
    EXPECT_EQ(serializer.getBuffer(), nullptr);
    EXPECT_EQ(serializer.getTraversionMode(), 0x5U);
    root->setStateBit(0x1);
    factory.serialize(errors, root.get(), 0x5, nullptr);
    EXPECT_EQ(factory.getBuffer()->getOccupiedSize(), 13U);
    const std::unique_ptr<KvCComposite> copy(factory.deserialize(errors, nullptr, nullptr));
    EXPECT_EQ(deserializer.getSerializationRoot(), copy.get());
    EXPECT_EQ(deserializer.getBuffer(), nullptr);
    EXPECT_EQ(factory.getParentNode(errors), nullptr);
    deserializer.setActElement(copy.get());
    EXPECT_EQ(factory.getParentNode(errors), copy.get());
    factory.setBinaryDeserializer(nullptr);
    EXPECT_EQ(factory.getParentNode(errors), nullptr);
}

TEST_F(KvCCompositeFactoryTest, SingleParametersAreWrittenAndRead)
{
    KvCBuffer buffer(errors);
    const KvCParam source(errors, 5, "p", 0, KvInt32(-2), nullptr);
    factory.serializeParameter(errors, &buffer, &source);
    EXPECT_EQ(buffer.getOccupiedSize(), 0U) << "only with a supplied serializer";
    KvCParam* parameter = nullptr;
    factory.deserializeParameter(errors, parameter, &buffer);
    EXPECT_EQ(parameter, nullptr) << "only with a supplied deserializer";

    KvCBinSerializer serializer(errors);
    KvCBinDeserializer deserializer(errors);
    factory.setBinarySerializer(&serializer);
    factory.setBinaryDeserializer(&deserializer);
    const auto active = makeNode(1, 1);
    deserializer.setActElement(active.get());
    factory.serializeParameter(errors, &buffer, &source);
    factory.serializeParameter(errors, &buffer, &source);
    EXPECT_EQ(bytesOf(buffer).size(), 40U);
    for (int i = 0; i < 2; ++i) {
        factory.deserializeParameter(errors, parameter, &buffer);
        ASSERT_NE(parameter, nullptr);
        EXPECT_EQ(parameter->getValueInt32(errors), -2);
        delete parameter;
    }
    EXPECT_EQ(active->getParameterById(5), nullptr);
    EXPECT_EQ(deserializer.getActElement(), active.get());
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCCompositeFactoryTest, AnotherRecordThanAParameterGivesNull)
{
    KvCBinDeserializer deserializer(errors);
    factory.setBinaryDeserializer(&deserializer);
    for (const unsigned tag : {1U, 2U, 7U}) {
        const auto buffer = bufferOf(StreamBuilder().byte(tag).number(1).bytes());
        KvCParam* parameter = nullptr;
        factory.deserializeParameter(errors, parameter, buffer.get());
        EXPECT_EQ(parameter, nullptr);
        EXPECT_EQ(errors.getErrorCount(), 0U);
        EXPECT_EQ(buffer->getReadPosition(), 1U);
    }
}

TEST_F(KvCCompositeFactoryTest, ACutParameterIsReportedAndGivesNull)
{
    KvCBinDeserializer deserializer(errors);
    factory.setBinaryDeserializer(&deserializer);
    StreamBuilder whole;
    whole.parameter(5, 0x114, StreamBuilder().number(7));
    for (std::size_t size = 0; size < whole.size(); ++size) {
        StreamBuilder stream = whole;
        const auto buffer = bufferOf(stream.cut(size).bytes());
        KvCParam* parameter = nullptr;
        errors.clear();
        factory.deserializeParameter(errors, parameter, buffer.get());
        EXPECT_EQ(parameter, nullptr) << size;
        ASSERT_GT(errors.getErrorCount(), 0U) << size;
        EXPECT_EQ(errors.getErrorCode(errors.getErrorCount() - 1), 0xA02000U) << size;
    }
}

TEST_F(KvCCompositeFactoryTest, AccessorsKeepWhatTheyAreGiven)
{
    const auto root = makeNode(1, 1);
    EXPECT_EQ(factory.getRoot(), nullptr);
    factory.setRoot(root.get());
    factory.setLibraryRoot(root.get());
    EXPECT_EQ(factory.getRoot(), root.get());
    EXPECT_EQ(factory.getLibraryRoot(), root.get());
    KvCBuffer* const own = factory.getBuffer();
    factory.setBuffer(nullptr);
    factory.serialize(errors, root.get(), 0, nullptr);
    EXPECT_EQ(codesOf(errors), Codes{0xA01003});
    errors.clear();
    EXPECT_EQ(factory.deserialize(errors, nullptr, nullptr), nullptr);
    EXPECT_EQ(codesOf(errors), Codes{0xA01003});
    factory.setBuffer(own);
}

/** Makes nodes of its own class. */
class OwnNode : public KvCComposite
{
public:
    using KvCComposite::KvCComposite;
};

class OwnFactory : public KvCCompositeFactory
{
public:
    using KvCCompositeFactory::KvCCompositeFactory;
    KvCComposite* createComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId, const char* descr,
                                  KvCComposite* parent) override
    {
        if (refuse)
            return nullptr;
        auto* const node = new OwnNode(errors, classId, unitId, descr);
        if (parent != nullptr)
            parent->attach(node);
        return node;
    }
    bool refuse = false;
};

TEST_F(KvCCompositeFactoryTest, DerivedFactoriesMakeTheirOwnNodes)
{
    OwnFactory own(errors);
    const auto buffer = bufferOf(StreamBuilder().start(1, 1).start(2, 2).end().end().bytes());
    const std::unique_ptr<KvCComposite> root(own.deserialize(errors, nullptr, buffer.get()));
    ASSERT_NE(dynamic_cast<OwnNode*>(root.get()), nullptr);
    EXPECT_NE(dynamic_cast<OwnNode*>(root->getChild()), nullptr);
    own.refuse = true;
    EXPECT_EQ(own.deserialize(errors, nullptr, buffer.get()), nullptr);
    EXPECT_EQ(codesOf(errors), (Codes{0x602001, 0xA02000}));
}

}  // namespace
