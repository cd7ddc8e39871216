#include <gtest/gtest.h>

#include "Support.h"
#include "platform/errorhandling/KvCErrorManager.h"
#include "tests/support/FailingAllocation.h"

namespace {

constexpr KvUInt32 modified = 0x400000;

class CompositeParametersTest : public testing::Test
{
protected:
    KvCErrorListPool errors;
    KvCComposite node{errors, 0x20, 3, "node"};
};

TEST_F(CompositeParametersTest, AddedParametersKnowTheirParentAndDuplicatesAreRefused)
{
    auto* const parameter = new KvCParam(errors, 5, "five", 0x124);
    node.addParameter(errors, parameter);
    EXPECT_EQ(parameter->getParent(), &node);
    EXPECT_EQ(node.getParameterById(5), parameter);
    EXPECT_EQ(node.getParameterByDescr("five"), parameter);
    EXPECT_EQ(node.getParameterByIndex(0), parameter);
    KvCParam twin(errors, 5, nullptr, 0x124);
    node.addParameter(errors, &twin);
    node.addParameter(errors, parameter);
    node.addParameter(errors, nullptr);
    ASSERT_EQ(codesOf(errors), (Codes{0x601802, 0x601802}));
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Duplicate list element (Descr: noDescr, ID: 5).");
    EXPECT_STREQ(errors.getErrorText(1),
                 "Internal error. Korvel Support information: Duplicate list element (Descr: five, ID: 5).");
    EXPECT_STREQ(errors.getErrorOrigin(0), "KvCComposite::addParameter");
    EXPECT_EQ(twin.getParent(), nullptr);
    EXPECT_EQ(node.getParameterList()->getCount(), 1U);
}

TEST_F(CompositeParametersTest, ANodeWithoutAListIgnoresAddedParameters)
{
    KvCComposite bare(errors, 1, 1, nullptr);
    KvCParam parameter(errors, 5, "five", 0x124);
    bare.addParameter(errors, &parameter);
    EXPECT_EQ(parameter.getParent(), nullptr);
    EXPECT_EQ(bare.getParameterById(5), nullptr);
    EXPECT_EQ(bare.getParameterByDescr("five"), nullptr);
    EXPECT_EQ(bare.getParameterByIndex(0), nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(CompositeParametersTest, RemovedParametersAreReleased)
{
    node.createParameter(errors, 1, "a", 0, 1U);
    KvCParam* const kept = node.createParameter(errors, 2, "b", 0, 2U);
    KvCParamList other(nullptr);
    other.pushBack(kept);
    node.removeParameter(errors, 1);
    node.removeParameter(errors, 2);
    EXPECT_TRUE(node.getParameterList()->isEmpty());
    EXPECT_EQ(kept->getValueUInt32(errors), 2U) << "another list still holds it";
    EXPECT_EQ(errors.getErrorCount(), 0U);
    node.removeParameter(errors, 2);
    EXPECT_EQ(codesOf(errors), Codes{0x601801});
}

TEST_F(CompositeParametersTest, EveryTypeIsCreatedReadAndChanged)
{
    const auto check = [&](KvUInt32 id, auto first, auto second) {
        using T = decltype(first);
        KvCParam* made;
        if constexpr (std::is_arithmetic_v<T>)
            made = node.createParameter(errors, id, "p", 0x20000, first, nullptr);
        else
            made = node.createParameter(errors, id, "p", 0x20000, first);
        ASSERT_NE(made, nullptr);
        EXPECT_EQ(made->getParent(), nullptr) << "parameters made this way have no parent link";
        EXPECT_EQ(made->getType() & 0xFFFF0000, 0x20000U);
        T value{};
        EXPECT_EQ(node.getParameter(errors, id, value), 0);
        EXPECT_TRUE(value == first);
        EXPECT_EQ(node.setParameter(errors, id, first), 0);
        EXPECT_FALSE(node.isModified(id)) << "the value that is stored already";
        EXPECT_EQ(node.setParameter(errors, id, second), 0);
        EXPECT_TRUE(node.isModified(id));
        EXPECT_EQ(node.getParameter(errors, id, value), 0);
        EXPECT_TRUE(value == second);
        T* pointer = nullptr;
        EXPECT_EQ(node.getParameterPointer(errors, id, &pointer), 0);
        EXPECT_EQ(static_cast<void*>(pointer), made->getValuePointer());
    };
    check(1, char(-1), char(1));
    check(2, static_cast<unsigned char>(1), static_cast<unsigned char>(2));
    check(3, short(-1), short(1));
    check(4, static_cast<unsigned short>(1), static_cast<unsigned short>(2));
    check(5, -1, 1);
    check(6, 1U, 2U);
    check(7, -1LL, 1LL);
    check(8, 1ULL, 2ULL);
    check(9, 1.5F, 2.5F);
    check(10, 1.5, 2.5);
    check(11, KvCString("a"), KvCString("b"));
    check(12, KvCVersion(1, 0, 0, 0, 0, 0), KvCVersion(2, 0, 0, 0, 0, 0));
    EXPECT_EQ(node.getStateBit(modified), modified);
    EXPECT_EQ(node.getParam_UInt32(errors, 6), 2U);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(CompositeParametersTest, OtherSpellingsOfAnIntegerWork)
{
    node.createParameter(errors, 1, "p", 0, 5L);
    long value = 0;
    EXPECT_EQ(node.getParameter(errors, 1, value), 0);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(node.setParameter(errors, 1, 6L), 0);
    EXPECT_EQ(node.getParameter(errors, 1, value), 0);
    EXPECT_EQ(value, 6);
    signed char small = 0;
    node.createParameter(errors, 2, "p", 0, static_cast<signed char>(-7));
    EXPECT_EQ(node.getParameter(errors, 2, small), 0);
    EXPECT_EQ(small, -7);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(CompositeParametersTest, ExternalStorageCanBeGiven)
{
    KvUInt32 outside = 0;
    node.createParameter(errors, 1, "p", 0, 5U, &outside);
    EXPECT_EQ(outside, 5U);
    node.setParameter(errors, 1, 6U);
    EXPECT_EQ(outside, 6U);
}

TEST_F(CompositeParametersTest, ArraysAreCreatedReadAndChanged)
{
    KvUInt32 integers[] = {1, 2, 3};
    KvUInt32* slot = nullptr;
    ASSERT_NE(node.createParameter(errors, 1, "p", 0, 3, integers, &slot), nullptr);
    ASSERT_NE(slot, nullptr);
    EXPECT_EQ(slot[2], 3U);
    KvUInt32 count = 0;
    KvUInt32* data = nullptr;
    EXPECT_EQ(node.getParameter(errors, 1, &count, &data), 0);
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(data, slot);
    EXPECT_EQ(node.setParameter(errors, 1, 3, integers), 0);
    EXPECT_FALSE(node.isModified(1));
    EXPECT_EQ(node.setParameter(errors, 1, 2, integers + 1), 0);
    EXPECT_TRUE(node.isModified(1));
    EXPECT_EQ(slot[0], 2U) << "the slot follows the parameter";
    KvCArrayParam<KvUInt32>* array = nullptr;
    EXPECT_EQ(node.getParameterPointer(errors, 1, &array), 0);
    EXPECT_EQ(array->getCount(), 2U);
    node.getParameterById(1)->setValueUInt32Arr(errors, KvCArrayParam<KvUInt32>(1, integers, nullptr));
    EXPECT_EQ(slot[0], 1U) << "a value without a slot leaves the parameter its own";

    double doubles[] = {0.5, 1.5};
    EXPECT_NE(node.createParameter(errors, 2, "p", 0x20000, 2, doubles, nullptr), nullptr);
    EXPECT_EQ(node.getParameterById(2)->getType(), 0x21218U);
    double* values = nullptr;
    EXPECT_EQ(node.getParameter(errors, 2, &count, &values), 0);
    EXPECT_EQ(values[1], 1.5);
    EXPECT_EQ(node.setParameter(errors, 2, 0, values), 0);
    EXPECT_EQ(node.getParameter(errors, 2, &count, &values), 0);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(CompositeParametersTest, AnIdThatIsPresentIsNotCreatedAgain)
{
    node.createParameter(errors, 1, "first", 0, 1U);
    EXPECT_EQ(node.createParameter(errors, 1, "second", 0, KvCString("x")), nullptr);
    KvUInt32 numbers[] = {1};
    EXPECT_EQ(node.createParameter(errors, 1, nullptr, 0, 1, numbers, nullptr), nullptr);
    ASSERT_EQ(codesOf(errors), (Codes{0x601802, 0x601802}));
    EXPECT_EQ(originsOf(errors), "KvCParamList::createParameter,KvCParamList::createParameter");
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Duplicate list element (Descr: second, ID: 1).");
    EXPECT_STREQ(errors.getErrorText(1),
                 "Internal error. Korvel Support information: Duplicate list element (Descr: noDescr, ID: 1).");
    EXPECT_EQ(node.getParam_UInt32(errors, 1), 1U);
}

TEST_F(CompositeParametersTest, AMissingListOrIdIsReportedByEveryAccess)
{
    KvCComposite bare(errors, 1, 1, nullptr);
    for (KvCComposite* const target : {&bare, &node}) {
        errors.clear();
        KvUInt32 value = 77;
        EXPECT_EQ(target->getParameter(errors, 9, value), -1);
        EXPECT_EQ(value, 77U);
        EXPECT_EQ(target->setParameter(errors, 9, value), -1);
        KvUInt32* pointer = &value;
        EXPECT_EQ(target->getParameterPointer(errors, 9, &pointer), -1);
        EXPECT_EQ(pointer, nullptr);
        EXPECT_EQ(target->getParam_UInt32(errors, 9), 0U);
        KvUInt32 count = 0;
        EXPECT_EQ(target->getParameter(errors, 9, &count, &pointer), -1);
        EXPECT_EQ(target->setParameter(errors, 9, 1, &value), -1);
        EXPECT_EQ(codesOf(errors), Codes(6, 0x601801));
        EXPECT_STREQ(errors.getErrorText(0),
                     "Internal error. Korvel Support information: Cannot find list element (ID 9).");
    }
}

TEST_F(CompositeParametersTest, AnotherTypeIsReportedAndChangesNothing)
{
    node.createParameter(errors, 1, "u", 0, 5U);
    float value = 1;
    EXPECT_EQ(node.getParameter(errors, 1, value), 0);
    EXPECT_EQ(value, 0.0F);
    EXPECT_EQ(node.setParameter(errors, 1, 2.5F), 0);
    KvUInt32 count = 9;
    KvUInt32* data = &count;
    EXPECT_EQ(node.getParameter(errors, 1, &count, &data), 0);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(data, nullptr);
    KvUInt32 numbers[] = {1};
    EXPECT_EQ(node.setParameter(errors, 1, 1, numbers), 0);
    double* pointer = nullptr;
    EXPECT_EQ(node.getParameterPointer(errors, 1, &pointer), 0);
    EXPECT_EQ(pointer, nullptr);
    EXPECT_EQ(codesOf(errors), Codes(5, 0x601001));
    EXPECT_EQ(node.getParam_UInt32(errors, 1), 5U);
    EXPECT_FALSE(node.isModified(1));
    EXPECT_EQ(node.getState(), 0U);
    node.createParameter(errors, 2, "f", 0, 1.0F);
    errors.clear();
    EXPECT_EQ(node.getParam_UInt32(errors, 2), 0U);
    EXPECT_EQ(codesOf(errors), Codes{0x601001});
}

TEST_F(CompositeParametersTest, ADoubleBufferedParameterReceivesTheValueInItsShadow)
{
    node.createParameter(errors, 1, "p", 0x80000, KvInt32(1));
    node.setParameter(errors, 1, 5);
    KvInt32 value = 0;
    node.getParameter(errors, 1, value);
    EXPECT_EQ(value, 1);
    EXPECT_TRUE(node.isModified(1));
    node.syncParameters(errors, 0x80000);
    node.getParameter(errors, 1, value);
    EXPECT_EQ(value, 5);
}

TEST_F(CompositeParametersTest, ModificationMarksAreClearedOneByOneOrAltogether)
{
    for (const KvUInt32 id : {0U, 1U, 2U}) {
        node.createParameter(errors, id, "p", 0, 1U);
        node.setParameter(errors, id, 2U);
    }
    node.clearModified(1);
    EXPECT_TRUE(node.isModified(0));
    EXPECT_FALSE(node.isModified(1));
    EXPECT_TRUE(node.isModified(2));
    node.clearModified(0);
    EXPECT_FALSE(node.isModified(0));
    EXPECT_FALSE(node.isModified(2));
    EXPECT_FALSE(node.isModified(77));
}

TEST_F(CompositeParametersTest, ParametersAreShownUnderTheNodesName)
{
    node.createParameter(errors, 7, "p", 0, 1U);
    testing::internal::CaptureStdout();
    node.showParameters(2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "  Parameter list of node (0x20/0x3):\n    parameter 7 (state: 1)\n\n");
}

TEST_F(CompositeParametersTest, CreatingWithoutMemoryReportsAndLeavesNothing)
{
    KvUInt32 numbers[] = {1, 2};
    KvUInt32* slot = nullptr;
    const KvCString text("a text that is longer than fifteen");
    const auto create = [&](int kind) {
        switch (kind) {
            case 0:
                return node.createParameter(errors, 1, "name", 0x80000, 1U);
            case 1:
                return node.createParameter(errors, 1, "name", 0, text);
            default:
                return node.createParameter(errors, 1, "name", 0, 2, numbers, &slot);
        }
    };
    for (int kind = 0; kind < 3; ++kind) {
        for (std::size_t number = 1;; ++number) {
            errors.clear();
            FailingAllocation failing(number);
            KvCParam* const made = create(kind);
            if (!failing.hasFailed()) {
                EXPECT_NE(made, nullptr);
                break;
            }
            EXPECT_GT(number, 0U);
            if (made == nullptr) {
                EXPECT_GT(errors.getErrorCount(), 0U) << kind << " " << number;
                EXPECT_EQ(node.getParameterById(1), nullptr);
            } else {
                ADD_FAILURE() << "made without the memory it asked for: " << kind << " " << number;
                break;
            }
        }
        node.removeParameter(errors, 1);
    }
}

TEST_F(CompositeParametersTest, LiteralsTakeTheTypeOfTheirStorage)
{
    double storage = 0;
    ASSERT_NE(node.createParameter(errors, 1, "number", 0, 2, &storage), nullptr);
    EXPECT_EQ(storage, 2.0);
    ASSERT_NE(node.createParameter(errors, 2, "text", 0, "first"), nullptr);
    EXPECT_EQ(node.setParameter(errors, 2, "second"), 0);
    EXPECT_TRUE(node.isModified(2));
    KvCString text;
    EXPECT_EQ(node.getParameter(errors, 2, text), 0);
    EXPECT_EQ(text, KvCString("second"));
    double* slot = nullptr;
    ASSERT_NE(node.createParameter(errors, 3, "zeros", 0, 2, nullptr, &slot), nullptr);
    ASSERT_NE(slot, nullptr);
    EXPECT_EQ(slot[1], 0.0);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(CompositeParametersTest, ALiteralThatFindsNoMemoryIsReported)
{
    constexpr const char* text = "a text of more than fifteen characters";
    node.createParameter(errors, 1, "t", 0, "short");
    KvCParam parameter(errors, 3, nullptr, 0, "short", nullptr);
    for (std::size_t number = 1; number <= 3; ++number) {
        const FailingAllocation failing(number);
        EXPECT_EQ(node.createParameter(errors, 2, "u", 0, text), nullptr);
        EXPECT_GT(errors.getErrorCount(), 0U);
        errors.clear();
    }
    {
        const FailingAllocation failing(1);
        EXPECT_EQ(node.setParameter(errors, 1, text), 0);
    }
    {
        const FailingAllocation failing(1);
        parameter.setValue(errors, text);
    }
    {
        const FailingAllocation failing(1);
        const KvCParam failed(errors, 3, nullptr, 0, text, nullptr);
        EXPECT_NE(failed.getStateBit(KvCParam::ConstructionFailedBit), 0U);
    }
    EXPECT_EQ(codesOf(errors), Codes(3, 0x601002));
    EXPECT_FALSE(node.isModified(1));
    EXPECT_EQ(parameter.getValueKvCString(errors), KvCString("short"));
    KvCErrorManager::getMasterErrorList().clear();
}

TEST_F(CompositeParametersTest, EachAccessReportsUnderItsOwnName)
{
    KvCComposite bare(errors, 1, 1, nullptr);
    KvUInt32 count = 0;
    double* data = nullptr;
    EXPECT_EQ(bare.getParameter(errors, 9, &count, &data), -1);
    EXPECT_EQ(bare.getParameterPointer(errors, 9, &data), -1);
    node.createParameter(errors, 1, "n", 0, 5);
    EXPECT_EQ(node.getParameter(errors, 1, &count, &data), 0);
    EXPECT_EQ(codesOf(errors), (Codes{0x601801, 0x601801, 0x601001}));
    EXPECT_EQ(originsOf(errors),
              "KvCComposite::getParameter,KvCComposite::getParameterPointer,KvCComposite::getParameter");
}

}  // namespace
