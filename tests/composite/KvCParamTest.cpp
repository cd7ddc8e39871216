#include "composite/KvCParam.h"

#include <gtest/gtest.h>

#include <cmath>

#include "Support.h"
#include "base/Report.h"
#include "tests/support/FailingAllocation.h"

namespace {

constexpr KvUInt32 doubleBuffered = 0x80000;

class KvCParamTest : public testing::Test
{
protected:
    /** The value's text; nothing may be reported. */
    template <class T>
    std::string textOf(const T& value)
    {
        const KvCParam parameter(errors, 1, "p", 0, value, nullptr);
        const std::string text = parameter.getValueAsString(errors).c_str();
        EXPECT_EQ(errors.getErrorCount(), 0U);
        return text;
    }

    KvCErrorListPool errors;
};

TEST_F(KvCParamTest, TypedConstructorForcesTheCodeAndKeepsTheFlags)
{
    const KvCParam parameter(errors, 7, "count", 0x80124, KvInt32(-3), nullptr);
    EXPECT_EQ(parameter.getType(), 0x80114U);
    EXPECT_EQ(parameter.getId(), 7U);
    EXPECT_STREQ(parameter.getDescr(), "count");
    EXPECT_EQ(parameter.getState(), 1U);
    EXPECT_EQ(parameter.getParent(), nullptr);
    EXPECT_EQ(parameter.getAttachmentCounter(), 0);
    EXPECT_TRUE(parameter.isDeletable());
    EXPECT_EQ(parameter.getValueInt32(errors), -3);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCParamTest, EveryTypeStoresAndReturnsItsValue)
{
    const auto check = [&](auto first, auto second, KvUInt32 code) {
        KvCParam parameter(errors, 1, "p", 0, first, nullptr);
        EXPECT_EQ(parameter.getType(), code);
        decltype(first) value{};
        parameter.getValue(errors, value);
        EXPECT_TRUE(value == first) << std::hex << code;
        parameter.setValue(errors, second);
        parameter.getValue(errors, value);
        EXPECT_TRUE(value == second) << std::hex << code;
    };
    check(char(-128), char(127), 0x111);
    check(short(-32768), short(32767), 0x112);
    check(-2147483647 - 1, 2147483647, 0x114);
    check(-9223372036854775807LL - 1, 9223372036854775807LL, 0x118);
    check(static_cast<unsigned char>(0), static_cast<unsigned char>(255), 0x121);
    check(static_cast<unsigned short>(0), static_cast<unsigned short>(65535), 0x122);
    check(0U, 4294967295U, 0x124);
    check(0ULL, 18446744073709551615ULL, 0x128);
    check(1.5F, -2.25F, 0x214);
    check(0.1, -1e300, 0x218);
    const KvUInt32 integers[] = {1, 2, 3};
    const double doubles[] = {0.5, -1};
    check(KvCArrayParam<KvUInt32>(3, integers, nullptr), KvCArrayParam<KvUInt32>(1, integers, nullptr), 0x1124);
    check(KvCArrayParam<double>(2, doubles, nullptr), KvCArrayParam<double>(), 0x1218);
    check(KvCString("text"), KvCString("a text that is too long to stand inside"), 0x2000);
    check(KvCVersion(3, 1, 2, 2, 4, 7), KvCVersion(1, 0, 0, 0, 0, 0), 0x4000);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCParamTest, TypeOnlyConstructorStartsAtZero)
{
    for (const KvUInt32 code : {0x111, 0x112, 0x114, 0x118, 0x121, 0x122, 0x124, 0x128, 0x214, 0x218}) {
        const KvCParam parameter(errors, 1, nullptr, code);
        EXPECT_TRUE(parameter.getValueAsString(errors) == KvCString("0")) << std::hex << code;
        EXPECT_EQ(parameter.getDescr(), nullptr);
    }
    EXPECT_EQ(KvCParam(errors, 1, "a", 0x1124).getValueUInt32Arr(errors).getCount(), 0U);
    EXPECT_EQ(KvCParam(errors, 1, "a", 0x1218).getValueKvFloatArr(errors).getCount(), 0U);
    EXPECT_EQ(KvCParam(errors, 1, "a", 0x2000).getValueKvCString(errors).length(), 0U);
    EXPECT_TRUE(KvCParam(errors, 1, "a", 0x4000).getValueKvCVersion(errors) == KvCVersion());
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCParamTest, AnUnknownTypeIsReportedAndKeepsFourBytesOfZero)
{
    const KvCParam parameter(errors, 9, nullptr, 0x10113);
    ASSERT_EQ(codesOf(errors), Codes{0x601001});
    EXPECT_STREQ(errors.getErrorOrigin(0), "KvCParam::KvCParam");
    EXPECT_NE(std::string(errors.getErrorText(0)).find("Parameter 'noDescr' (ID 65811)"), std::string::npos)
        << errors.getErrorText(0);
    EXPECT_EQ(parameter.getType(), 0x10113U);
    ASSERT_NE(parameter.getValuePointer(), nullptr);
    EXPECT_EQ(*static_cast<const std::uint32_t*>(parameter.getValuePointer()), 0U);
    EXPECT_EQ(parameter.getValueAsString(errors).length(), 0U);
    EXPECT_EQ(parameter.getState(), 1U);
}

TEST_F(KvCParamTest, ExternalStorageIsWrittenAtOnceAndShared)
{
    KvInt32 outside = 1;
    {
        KvCParam parameter(errors, 1, "p", 0, KvInt32(5), &outside);
        EXPECT_EQ(outside, 5);
        EXPECT_EQ(parameter.getValuePointer(), &outside);
        EXPECT_TRUE(parameter.isExternal());
        parameter.setValueInt32(errors, 6);
        EXPECT_EQ(outside, 6);
        outside = 7;
        EXPECT_EQ(parameter.getValueInt32(errors), 7);
        const KvCParam copy(parameter);
        EXPECT_EQ(copy.getValuePointer(), &outside);
    }
    EXPECT_EQ(outside, 7);

    KvCString text("old");
    KvCArrayParam<double> array;
    {
        const double numbers[] = {1, 2};
        const KvCParam textParameter(errors, 1, "p", 0, KvCString("a text that is longer than fifteen"), &text);
        const KvCParam arrayParameter(errors, 2, "p", 0, KvCArrayParam<double>(2, numbers, nullptr), &array);
    }
    EXPECT_STREQ(text.c_str(), "a text that is longer than fifteen");
    EXPECT_EQ(array.getCount(), 2U);
}

TEST_F(KvCParamTest, ADoubleBufferedScalarIsPublishedBySync)
{
    KvCParam parameter(errors, 1, "p", doubleBuffered, KvInt32(1), nullptr);
    parameter.setValueInt32(errors, 7);
    EXPECT_EQ(parameter.getValueInt32(errors), 1);
    parameter.sync(0x200);
    EXPECT_EQ(parameter.getValueInt32(errors), 1) << "no bit of the mask is in the type word";
    parameter.sync(doubleBuffered);
    EXPECT_EQ(parameter.getValueInt32(errors), 7);
    parameter.setValueInt32(errors, 8);
    parameter.sync(0x100);
    EXPECT_EQ(parameter.getValueInt32(errors), 8) << "the mask is tested against the whole type word";
}

TEST_F(KvCParamTest, SyncCopiesExactlyTheBytesOfTheType)
{
    unsigned char outside[2] = {0, 0xEE};
    KvCParam parameter(errors, 1, "p", doubleBuffered, static_cast<unsigned char>(3), &outside[0]);
    parameter.setValueUInt8(errors, 200);
    parameter.sync(doubleBuffered);
    EXPECT_EQ(outside[0], 200);
    EXPECT_EQ(outside[1], 0xEE);
}

TEST_F(KvCParamTest, TheDoubleBufferFlagMeansNothingOnOtherTypes)
{
    KvCParam text(errors, 1, "p", doubleBuffered, KvCString("a"), nullptr);
    text.setValueKvCString(errors, KvCString("b"));
    EXPECT_STREQ(text.getValueKvCString(errors).c_str(), "b");
    text.sync(doubleBuffered);
    EXPECT_STREQ(text.getValueKvCString(errors).c_str(), "b");
    KvCParam unknown(errors, 1, "p", doubleBuffered | 0x99F);
    unknown.sync(doubleBuffered);
    EXPECT_EQ(*static_cast<const std::uint32_t*>(unknown.getValuePointer()), 0U);
}

TEST_F(KvCParamTest, AnotherTypeIsReportedByGettersAndSetters)
{
    KvCParam parameter(errors, 1, "voltage", 0x10000, 2.5, nullptr);
    EXPECT_EQ(parameter.getValueFloat32(errors), 0.0F);
    parameter.setValueUInt8(errors, 3);
    EXPECT_EQ(codesOf(errors), (Codes{0x601001, 0x601001}));
    EXPECT_EQ(originsOf(errors), "KvCParam::getValueFloat32,KvCParam::setValueUInt8");
    EXPECT_NE(std::string(errors.getErrorText(0)).find("Parameter 'voltage' (ID 66072) has mismatching type."),
              std::string::npos)
        << errors.getErrorText(0);
    errors.clear();
    EXPECT_EQ(parameter.getValueFloat64(errors), 2.5);
    EXPECT_EQ(parameter.getValueKvCString(errors).length(), 0U);
    EXPECT_EQ(parameter.getValueUInt32Arr(errors).getCount(), 0U);
    EXPECT_EQ(errors.getErrorCount(), 2U);
}

TEST_F(KvCParamTest, TextsOfNumbersHaveTheirFormats)
{
    EXPECT_EQ(textOf(char(-5)), "-5");
    EXPECT_EQ(textOf(static_cast<signed char>(-128)), "-128");
    EXPECT_EQ(textOf(static_cast<unsigned char>(200)), "200");
    EXPECT_EQ(textOf(short(-32768)), "-32768");
    EXPECT_EQ(textOf(static_cast<unsigned short>(65535)), "65535");
    EXPECT_EQ(textOf(-2), "-2");
    EXPECT_EQ(textOf(4294967295U), "4294967295");
    EXPECT_EQ(textOf(-9223372036854775807LL - 1), "-9223372036854775808");
    EXPECT_EQ(textOf(18446744073709551615ULL), "18446744073709551615");
    EXPECT_EQ(textOf(0.1F), "0.1");
    EXPECT_EQ(textOf(0.1), "0.10000000000000001");
    EXPECT_EQ(textOf(1e300), "1.0000000000000001E+300");
    EXPECT_EQ(textOf(KvCString("a text")), "a text");
    EXPECT_EQ(textOf(KvCString(std::string(1000, 'x').c_str())), std::string(1000, 'x'));
    EXPECT_EQ(textOf(KvCVersion(3, 1, 2, 2, 4, 7)), "3.1.2b4p7");
}

TEST_F(KvCParamTest, TextsOfArraysAreCutBelowFiveHundredCharacters)
{
    const KvUInt32 few[] = {1, 22, 4294967295};
    EXPECT_EQ(textOf(KvCArrayParam<KvUInt32>(3, few, nullptr)), "1 22 4294967295 ");
    const double doubles[] = {0.5, -2};
    EXPECT_EQ(textOf(KvCArrayParam<double>(2, doubles, nullptr)), "0.500000 -2.000000 ");
    EXPECT_EQ(textOf(KvCArrayParam<double>()), "");

    // 249 elements of two characters are 498 characters; one more would reach 500.
    std::string whole;
    for (int i = 0; i < 249; ++i)
        whole += "0 ";
    EXPECT_EQ(textOf(KvCArrayParam<KvUInt32>(249, nullptr, nullptr)), whole);
    EXPECT_EQ(textOf(KvCArrayParam<KvUInt32>(250, nullptr, nullptr)), whole.substr(0, 494) + "... ");
    EXPECT_EQ(textOf(KvCArrayParam<KvUInt32>(100000, nullptr, nullptr)), whole.substr(0, 494) + "... ");
    const double huge[] = {1e308, 1e308};
    EXPECT_EQ(textOf(KvCArrayParam<double>(2, huge, nullptr)).size(), 309U + 8U + 4U);
}

TEST_F(KvCParamTest, ACopyHasItsOwnValueAndFreshLinks)
{
    KvCParam source(errors, 3, "name", doubleBuffered, KvInt32(1), nullptr);
    source.setValueInt32(errors, 9);
    source.setStateBit(0x40);
    source.notifyListAttachment();
    KvCParam copy(source);
    EXPECT_EQ(copy.getId(), 3U);
    EXPECT_STREQ(copy.getDescr(), "name");
    EXPECT_NE(copy.getDescr(), source.getDescr());
    EXPECT_EQ(copy.getType(), 0x80114U);
    EXPECT_EQ(copy.getState(), 1U);
    EXPECT_EQ(copy.getParent(), nullptr);
    EXPECT_EQ(copy.getAttachmentCounter(), 0);
    EXPECT_EQ(copy.getValueInt32(errors), 1);
    copy.sync(doubleBuffered);
    EXPECT_EQ(copy.getValueInt32(errors), 9) << "the copy has a shadow of its own with the source's shadow value";
    EXPECT_EQ(source.getValueInt32(errors), 1);
}

TEST_F(KvCParamTest, AssignmentReplacesValueTypeAndDescription)
{
    KvCParam target(errors, 1, "old", 0, KvCString("a text that is longer than fifteen"), nullptr);
    const KvUInt32 numbers[] = {4, 5};
    const KvCParam array(errors, 2, "array", 0x20000, KvCArrayParam<KvUInt32>(2, numbers, nullptr), nullptr);
    target = array;
    EXPECT_EQ(target.getId(), 2U);
    EXPECT_STREQ(target.getDescr(), "array");
    EXPECT_EQ(target.getType(), 0x21124U);
    EXPECT_EQ(target.getValueUInt32Arr(errors).getData()[1], 5U);
    target = KvCParam(errors, 3, nullptr, 0, 2.5, nullptr);
    EXPECT_EQ(target.getDescr(), nullptr);
    EXPECT_EQ(target.getValueFloat64(errors), 2.5);
    KvCParam& self = target;
    target = self;
    EXPECT_EQ(target.getValueFloat64(errors), 2.5);
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

TEST_F(KvCParamTest, CopyingAnUnknownTypeFails)
{
    const KvCParam unknown(errors, 4, "odd", 0x113);
    const KvCParam copy(unknown);
    EXPECT_EQ(copy.getState(), 0x80000000U);
    EXPECT_EQ(copy.getDescr(), nullptr);
    EXPECT_EQ(copy.getValuePointer(), nullptr);
    KvCParam assigned(errors, 5, "five", 0, KvInt32(5), nullptr);
    assigned = unknown;
    EXPECT_EQ(assigned.getState(), 0x80000000U);
    EXPECT_EQ(assigned.getDescr(), nullptr);
    EXPECT_EQ(assigned.getValuePointer(), nullptr);
    EXPECT_EQ(assigned.getValueInt32(errors), 0);
}

TEST_F(KvCParamTest, AFailedDescriptionCopyLeavesNoDescription)
{
    const FailingAllocation failing(1);
    const KvCParam parameter(errors, 1, "name", 0, KvInt32(5), nullptr);
    EXPECT_EQ(parameter.getStateBit(0x80000000), 0x80000000U);
    EXPECT_EQ(parameter.getDescr(), nullptr);
    EXPECT_EQ(parameter.getValueInt32(errors), 5);
}

TEST_F(KvCParamTest, StateBitsAreSetAndCleared)
{
    KvCParam parameter(errors, 1, "p", 0x124);
    parameter.setStateBit(0x400010);
    EXPECT_EQ(parameter.getState(), 0x400011U);
    EXPECT_EQ(parameter.getStateBit(0x400000), 0x400000U);
    parameter.clearStateBit(0x11);
    EXPECT_EQ(parameter.getState(), 0x400000U);
}

class SharedDescription : public KvCParam
{
public:
    struct Marks : Rare
    {
        int mark = 0;
    };
    SharedDescription(KvCErrorListPool& errors, const char* registered, KvUInt32 type)
        : KvCParam(errors, 1, KvSharedText{registered}, type)
    {}
    void mark(int value)
    {
        if (getRare<Marks>() == nullptr)
            installRare(new Marks);
        getRare<Marks>()->mark = value;
    }
    int marked() const { return getRare<Marks>() == nullptr ? -1 : getRare<Marks>()->mark; }
};

TEST_F(KvCParamTest, ADerivedParameterSharesItsDescriptionAndExtendsTheRarePiece)
{
    static const char name[] = "REGISTERED_NAME";
    SharedDescription parameter(errors, name, doubleBuffered | 0x114);
    EXPECT_EQ(parameter.getDescr(), name);
    const KvCParam copy(parameter);
    EXPECT_EQ(copy.getDescr(), name);
    parameter.setValueInt32(errors, 5);
    EXPECT_EQ(parameter.marked(), -1);
    parameter.mark(3);
    EXPECT_EQ(parameter.marked(), 3);
    parameter.sync(doubleBuffered);
    EXPECT_EQ(parameter.getValueInt32(errors), 5) << "the shadow moved to the new piece";
    FailingAllocation counting(0);
    const SharedDescription cheap(errors, name, 0x2000);
    EXPECT_EQ(counting.count(), 0U) << "neither description nor a short value allocate";
}

TEST(KvCArrayParamTest, TheSlotFollowsTheElements)
{
    const KvUInt32 numbers[] = {1, 2, 3};
    KvUInt32* slot = nullptr;
    KvCArrayParam<KvUInt32> array(3, numbers, &slot);
    EXPECT_EQ(slot, array.getData());
    array.setData(2, numbers + 1);
    EXPECT_EQ(slot, array.getData());
    EXPECT_EQ(slot[0], 2U);
    array.setData(2, nullptr);
    EXPECT_EQ(slot[1], 0U);
    const KvCArrayParam<KvUInt32> copy(array);
    EXPECT_EQ(slot, array.getData()) << "a copy publishes nothing";
    KvUInt32* otherSlot = nullptr;
    KvCArrayParam<KvUInt32> other(1, numbers, &otherSlot);
    other = array;
    EXPECT_EQ(other.getPublishSlot(), &slot);
    EXPECT_EQ(slot, other.getData());
    array.setData(0, numbers);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(array.getCount(), 0U);
}

TEST(KvCArrayParamTest, ElementsMayComeFromTheArrayItself)
{
    const double numbers[] = {1, 2, 3, 4};
    KvCArrayParam<double> array(4, numbers, nullptr);
    array.setData(2, array.getData() + 2);
    EXPECT_EQ(array.getCount(), 2U);
    EXPECT_EQ(array.getData()[0], 3);
    EXPECT_EQ(array.getData()[1], 4);
}

TEST(KvCArrayParamTest, EqualityGoesByCountAndElements)
{
    const double nan = std::nan("");
    const double numbers[] = {1, nan};
    const KvCArrayParam<double> array(2, numbers, nullptr);
    EXPECT_TRUE(array.equals(2, numbers)) << "a NaN equals one of the same bits";
    EXPECT_FALSE(array.equals(1, numbers));
    EXPECT_FALSE(array.equals(2, nullptr));
    EXPECT_TRUE(KvCArrayParam<double>().equals(0, nullptr));
}

TEST(KvCArrayParamTest, MemoryThatIsOutLeavesAnEmptyArrayAndAReportPerOperation)
{
    KvCErrorListPool& master = KvNReport::masterList();
    master.clear();
    const KvUInt32 integers[] = {1};
    const double doubles[] = {1};
    KvUInt32* slot = nullptr;
    KvCArrayParam<KvUInt32> array(1, integers, &slot);
    KvCArrayParam<double> doubleArray(1, doubles, nullptr);
    const KvCArrayParam<KvUInt32> source(1, integers, nullptr);
    const KvCArrayParam<double> doubleSource(1, doubles, nullptr);
    const auto failing = [](auto&& operation) {
        const FailingAllocation allocation(1);
        operation();
    };
    failing([&] { EXPECT_EQ(KvCArrayParam<KvUInt32>(1, integers, nullptr).getCount(), 0U); });
    failing([&] { array.setData(1, integers); });
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(array.getCount(), 0U);
    failing([&] { array = source; });
    failing([&] { EXPECT_EQ(KvCArrayParam<double>(1, doubles, nullptr).getCount(), 0U); });
    failing([&] { doubleArray.setData(1, doubles); });
    failing([&] { doubleArray = doubleSource; });
    EXPECT_EQ(codesOf(master), Codes(6, 0x601002));
    EXPECT_EQ(originsOf(master),
              "KvCArrayParam<unsigned long>::KvCArrayParam,KvCArrayParam<unsigned long>::setData,"
              "KvCArrayParam<unsigned long>::operator =,KvCArrayParam<double>::KvCArrayParam,"
              "KvCArrayParam<double>::setData,KvCArrayParam<double>::operator =");
    master.clear();
}

TEST(KvCParamLiteralTest, LiteralsTakeTheTypeOfTheirStorage)
{
    KvCErrorListPool errors;
    KvUInt32 number = 0;
    const KvCParam numeric(errors, 1, "n", 0, 7, &number);
    EXPECT_EQ(numeric.getType(), 0x124U);
    EXPECT_EQ(number, 7U);
    float fraction = 0;
    const KvCParam real(errors, 2, "r", 0, 0.5, &fraction);
    EXPECT_EQ(real.getType(), 0x214U);
    EXPECT_EQ(fraction, 0.5F);
    KvCParam text(errors, 3, "t", 0, "first", nullptr);
    EXPECT_EQ(text.getType(), 0x2000U);
    EXPECT_EQ(text.getValueKvCString(errors), KvCString("first"));
    text.setValue(errors, "second");
    EXPECT_EQ(text.getValueKvCString(errors), KvCString("second"));
    EXPECT_EQ(errors.getErrorCount(), 0U);
}

}  // namespace
