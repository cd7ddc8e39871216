#include "composite/ElementTypes.h"

#include <gtest/gtest.h>

#include <cstring>

#include "composite/KvCComposite.h"

using namespace KvNElement;

namespace {

template <class T>
constexpr KvUInt32 codeOf()
{
    return Traits<Canonical<T>>::code;
}

TEST(ElementTypes, EverySpellingOfAnIntegerGoesBySizeAndSignedness)
{
    EXPECT_EQ(codeOf<char>(), 0x111U);
    EXPECT_EQ(codeOf<signed char>(), 0x111U);
    EXPECT_EQ(codeOf<unsigned char>(), 0x121U);
    EXPECT_EQ(codeOf<short>(), 0x112U);
    EXPECT_EQ(codeOf<unsigned short>(), 0x122U);
    EXPECT_EQ(codeOf<int>(), 0x114U);
    EXPECT_EQ(codeOf<unsigned int>(), 0x124U);
    EXPECT_EQ(codeOf<long>(), sizeof(long) == 4 ? 0x114U : 0x118U);
    EXPECT_EQ(codeOf<unsigned long>(), sizeof(long) == 4 ? 0x124U : 0x128U);
    EXPECT_EQ(codeOf<long long>(), 0x118U);
    EXPECT_EQ(codeOf<unsigned long long>(), 0x128U);
    EXPECT_EQ(codeOf<KvInt32>(), 0x114U);
    EXPECT_EQ(codeOf<KvUInt64>(), 0x128U);
    EXPECT_EQ(codeOf<const KvUInt32>(), 0x124U);
}

TEST(ElementTypes, TheOtherValueTypesHaveTheirCodes)
{
    EXPECT_EQ(codeOf<float>(), 0x214U);
    EXPECT_EQ(codeOf<double>(), 0x218U);
    EXPECT_EQ(codeOf<KvCArrayParam<KvUInt32>>(), 0x1124U);
    EXPECT_EQ(codeOf<KvCArrayParam<double>>(), 0x1218U);
    EXPECT_EQ(codeOf<KvCString>(), 0x2000U);
    EXPECT_EQ(codeOf<KvCVersion>(), 0x4000U);
}

TEST(ElementTypes, BoolAndWideCharactersAreNoValueTypes)
{
    static_assert(!Element<bool>);
    static_assert(!Element<wchar_t>);
    static_assert(!Element<char8_t>);
    static_assert(!Element<char16_t>);
    static_assert(!Element<char32_t>);
    static_assert(!Element<long double>);
    static_assert(!Element<const char*>);
    static_assert(Element<char> && Element<double> && Element<KvCString>);
    static_assert(Single<int> && !Single<KvCArrayParam<double>>);
    static_assert(ArrayItem<unsigned int> && ArrayItem<double> && !ArrayItem<float>);
}

TEST(ElementTypes, FourteenCodesAreKnownAndNoOther)
{
    int known = 0;
    for (KvUInt32 code = 0; code <= 0xFFFF; ++code)
        known += isKnown(code) ? 1 : 0;
    EXPECT_EQ(known, 14);
    EXPECT_TRUE(isKnown(0xF0000 | 0x114)) << "flags are not part of the code";
    EXPECT_STREQ(nameOf(0x10121), "UInt8");
    EXPECT_STREQ(nameOf(0x118), "Long64");
    EXPECT_STREQ(nameOf(0x218), "Float64");
    EXPECT_STREQ(nameOf(0x2000), "String");
    EXPECT_EQ(nameOf(0x113), nullptr);
    EXPECT_TRUE(isScalar(0x214));
    EXPECT_FALSE(isScalar(0x2000));
    EXPECT_FALSE(isScalar(0x1124));
}

TEST(ElementTypes, TheLowNibbleOfAScalarCodeIsItsSize)
{
    for (KvUInt32 code = 0; code <= 0xFFFF; ++code)
        dispatch(
            code,
            [code](auto type) {
                using T = typename decltype(type)::Value;
                if constexpr (std::is_arithmetic_v<T>) {
                    EXPECT_EQ(code & 0xF, sizeof(T));
                }
            },
            [] {});
}

/** The slot of a virtual operation in its class's table (Itanium layout). */
template <class Member>
std::ptrdiff_t slotOf(Member member)
{
    std::ptrdiff_t words[2];
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof member);
    return (words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

#if defined(__x86_64__) && !defined(_WIN32)
TEST(ElementTypes, VirtualOperationsOfNodesAndListsKeepTheirSlots)
{
    // The destructor has the first two entries of each table.
    EXPECT_EQ(slotOf(&KvCComposite::update), 2);
    EXPECT_EQ(slotOf(&KvCComposite::PreInit), 3);
    EXPECT_EQ(slotOf(&KvCComposite::PostInit), 4);
    EXPECT_EQ(slotOf(&KvCComposite::PreApply), 5);
    EXPECT_EQ(slotOf(&KvCComposite::PostApply), 6);
    EXPECT_EQ(slotOf(&KvCComposite::PreReset), 7);
    EXPECT_EQ(slotOf(&KvCComposite::PostReset), 8);
    EXPECT_EQ(slotOf(&KvCComposite::markForSerialization), 9);
    EXPECT_EQ(slotOf(&KvCComposite::traverseHook), 10);
    EXPECT_EQ(slotOf(&KvCComposite::virtualDummyFunction3), 11);
    EXPECT_EQ(slotOf(&KvCComposite::virtualDummyFunction2), 12);
    EXPECT_EQ(slotOf(&KvCComposite::virtualDummyFunction1), 13);
    using List = KvPList<KvCParam*>;
    EXPECT_EQ(slotOf(&List::isEqual), 2);
    EXPECT_EQ(slotOf(&List::notifyElementAttachment), 3);
    EXPECT_EQ(slotOf(&List::notifyElementDetachment), 4);
}
#endif

TEST(ElementTypes, ParametersAndNodesAreSmall)
{
    EXPECT_LE(sizeof(KvCParam), 104U);
    EXPECT_LE(sizeof(KvCComposite), 152U);
}

}  // namespace
