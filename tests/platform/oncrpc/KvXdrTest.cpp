#include "platform/oncrpc/KvXdr.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "FailingAllocation.h"
#include "RpcBytes.h"

using RpcBytes::Bytes;
using RpcBytes::units;
using RpcBytes::operator+;

namespace {

/** What encoding gives, or nothing when it fails. */
template <class Function>
Bytes encoded(Function function)
{
    KvNXdr::XDR xdrs;
    KvNXdr::xdrgrow_create(&xdrs, 1 << 20);
    Bytes bytes;
    if (function(&xdrs))
        bytes.assign(xdrs.x_base, xdrs.x_base + KvNXdr::xdrmem_used(&xdrs));
    KvNXdr::xdrgrow_destroy(&xdrs);
    return bytes;
}

/** Whether decoding succeeds and uses all the bytes. */
template <class Function>
bool decodes(Bytes bytes, Function function)
{
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, reinterpret_cast<char*>(bytes.data()), bytes.size(), KvNXdr::XDR_DECODE);
    return function(&xdrs) && KvNXdr::xdrmem_left(&xdrs) == 0;
}

/** The value gives these bytes and comes back from them; any shorter bytes fail. */
template <class T>
void expectBothWays(KvNXdr::bool_t (*routine)(KvNXdr::XDR*, T*), T value, const Bytes& bytes)
{
    T original = value;
    EXPECT_EQ(encoded([&](KvNXdr::XDR* xdrs) { return routine(xdrs, &original); }), bytes);
    T read{};
    EXPECT_TRUE(decodes(bytes, [&](KvNXdr::XDR* xdrs) { return routine(xdrs, &read); }));
    EXPECT_EQ(read, value);
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_FALSE(decodes(Bytes(bytes.begin(), bytes.begin() + static_cast<long>(size)), [&](KvNXdr::XDR* xdrs) {
            return routine(xdrs, &read);
        })) << size;
    KvNXdr::XDR narrow;
    char room[8];
    KvNXdr::xdrmem_create(&narrow, room, bytes.size() - 1, KvNXdr::XDR_ENCODE);
    EXPECT_FALSE(routine(&narrow, &original));
    KvNXdr::XDR freeing{KvNXdr::XDR_FREE, nullptr, nullptr, 0, 0, false};
    EXPECT_TRUE(routine(&freeing, &original));
}

TEST(KvXdr, IntegersAreFourOrEightBytesMostSignificantFirst)
{
    expectBothWays<KvUInt32>(KvNXdr::xdr_u_int, 0x01020304, {1, 2, 3, 4});
    expectBothWays<KvUInt32>(KvNXdr::xdr_u_int, 0xFFFFFFFF, {255, 255, 255, 255});
    expectBothWays<KvInt32>(KvNXdr::xdr_int, -2, {255, 255, 255, 254});
    expectBothWays<KvInt32>(KvNXdr::xdr_int, std::numeric_limits<std::int32_t>::min(), {0x80, 0, 0, 0});
    expectBothWays<KvInt32>(KvNXdr::xdr_enum, 13, {0, 0, 0, 13});
    expectBothWays<KvUInt64>(KvNXdr::xdr_u_quad_t, 0x0102030405060708, {1, 2, 3, 4, 5, 6, 7, 8});
    expectBothWays<KvInt64>(KvNXdr::xdr_quad_t, -1, {255, 255, 255, 255, 255, 255, 255, 255});
}

TEST(KvXdr, SmallIntegersTravelAsAUnitWithTheirSign)
{
    expectBothWays<unsigned char>(KvNXdr::xdr_u_char, 200, {0, 0, 0, 200});
    expectBothWays<char>(KvNXdr::xdr_char, 'A', {0, 0, 0, 65});
    expectBothWays<char>(KvNXdr::xdr_char, static_cast<char>(-1), {255, 255, 255, 255});
    expectBothWays<short>(KvNXdr::xdr_short, -300, {255, 255, 254, 212});
    expectBothWays<unsigned short>(KvNXdr::xdr_u_short, 65535, {0, 0, 255, 255});
    expectBothWays<KvNXdr::bool_t>(KvNXdr::xdr_bool, 1, {0, 0, 0, 1});
    expectBothWays<KvNXdr::bool_t>(KvNXdr::xdr_bool, 0, {0, 0, 0, 0});
}

TEST(KvXdr, ABooleanOtherThanZeroIsEncodedAsOne)
{
    KvNXdr::bool_t yes = 7;
    EXPECT_EQ(encoded([&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_bool(xdrs, &yes); }), units({1}));
}

TEST(KvXdr, SmallIntegersOutsideTheirRangeFail)
{
    char character;
    unsigned char byte;
    short number;
    unsigned short positive;
    KvNXdr::bool_t truth;
    const auto fails = [](std::uint32_t unit, auto routine, auto* value) {
        return !decodes(units({unit}), [&](KvNXdr::XDR* xdrs) { return routine(xdrs, value); });
    };
    EXPECT_TRUE(fails(256, KvNXdr::xdr_char, &character));
    EXPECT_TRUE(fails(0xFFFFFF7F, KvNXdr::xdr_char, &character));
    EXPECT_TRUE(fails(256, KvNXdr::xdr_u_char, &byte));
    EXPECT_TRUE(fails(0xFFFFFFFF, KvNXdr::xdr_u_char, &byte));
    EXPECT_TRUE(fails(32768, KvNXdr::xdr_short, &number));
    EXPECT_TRUE(fails(0xFFFF7FFF, KvNXdr::xdr_short, &number));
    EXPECT_TRUE(fails(65536, KvNXdr::xdr_u_short, &positive));
    EXPECT_TRUE(fails(2, KvNXdr::xdr_bool, &truth));
}

TEST(KvXdr, ACharFromAHostOfUnsignedCharsIsTaken)
{
    char character = 0;
    EXPECT_TRUE(decodes(units({255}), [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_char(xdrs, &character); }));
    EXPECT_EQ(static_cast<signed char>(character), -1);
}

TEST(KvXdr, FloatingPointIsIeee754)
{
    expectBothWays<float>(KvNXdr::xdr_float, 1.0f, {0x3F, 0x80, 0, 0});
    expectBothWays<float>(KvNXdr::xdr_float, -0.15625f, {0xBE, 0x20, 0, 0});
    expectBothWays<double>(KvNXdr::xdr_double, 1.0, {0x3F, 0xF0, 0, 0, 0, 0, 0, 0});
    expectBothWays<double>(KvNXdr::xdr_double, -2.5, {0xC0, 0x04, 0, 0, 0, 0, 0, 0});
    expectBothWays<double>(KvNXdr::xdr_double, HUGE_VAL, {0x7F, 0xF0, 0, 0, 0, 0, 0, 0});
    double nan = 0;
    EXPECT_TRUE(decodes(units({0x7FF80000, 1}), [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_double(xdrs, &nan); }));
    EXPECT_TRUE(std::isnan(nan));
}

TEST(KvXdr, OpaqueBytesArePaddedToFour)
{
    char bytes[] = {'a', 'b', 'c', 'd', 'e'};
    const Bytes expected{'a', 'b', 'c', 'd', 'e', 0, 0, 0};
    EXPECT_EQ(encoded([&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_opaque(xdrs, bytes, 5); }), expected);
    char read[5];
    EXPECT_TRUE(decodes(expected, [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_opaque(xdrs, read, 5); }));
    EXPECT_EQ(std::string(read, 5), "abcde");
    for (std::size_t size = 0; size < 8; ++size)
        EXPECT_FALSE(decodes(Bytes(expected.begin(), expected.begin() + static_cast<long>(size)),
                             [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_opaque(xdrs, read, 5); }));
    EXPECT_TRUE(decodes({}, [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_opaque(xdrs, read, 0); }));
}

TEST(KvXdr, TheStringOfRfc4506IsLengthBytesAndPadding)
{
    // RFC 4506, 7: "sillyprog" as the first string of its example file record.
    const Bytes expected{0, 0, 0, 9, 's', 'i', 'l', 'l', 'y', 'p', 'r', 'o', 'g', 0, 0, 0};
    char text[] = "sillyprog";
    char* pointer = text;
    EXPECT_EQ(encoded([&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_string(xdrs, &pointer, 255); }), expected);
    char* read = nullptr;
    EXPECT_TRUE(decodes(expected, [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_string(xdrs, &read, 255); }));
    EXPECT_STREQ(read, "sillyprog");
    KvNXdr::XDR freeing{KvNXdr::XDR_FREE, nullptr, nullptr, 0, 0, false};
    EXPECT_TRUE(KvNXdr::xdr_string(&freeing, &read, 255));
    EXPECT_EQ(read, nullptr);
}

TEST(KvXdr, AStringBeyondItsBoundOrNullFails)
{
    char text[] = "four";
    char* pointer = text;
    EXPECT_TRUE(encoded([&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_string(xdrs, &pointer, 3); }).empty());
    char* null = nullptr;
    EXPECT_TRUE(encoded([&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_string(xdrs, &null, 3); }).empty());
    char* read = nullptr;
    EXPECT_FALSE(
        decodes(units({4, 0x41424344}), [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_string(xdrs, &read, 3); }));
    EXPECT_EQ(read, nullptr);
}

TEST(KvXdr, AnEmptyStringIsOneTerminator)
{
    char* read = nullptr;
    EXPECT_TRUE(decodes(units({0}), [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_string(xdrs, &read, 0xFFFFFFFF); }));
    ASSERT_NE(read, nullptr);
    EXPECT_STREQ(read, "");
    KvNAllocation::release(read);
}

TEST(KvXdr, NoBytesLeaveThePointerNull)
{
    char* bytes = nullptr;
    KvUInt32 size = 7;
    EXPECT_TRUE(decodes(units({0}), [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_bytes(xdrs, &bytes, &size, 9); }));
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(encoded([&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_bytes(xdrs, &bytes, &size, 9); }), units({0}));
}

TEST(KvXdr, ALengthBeyondWhatHasArrivedFailsWithoutMemoryBeingTaken)
{
    for (const std::uint32_t length : {0xFFFFFFFFu, 0xFFFFFFF0u, 0x80000000u, 0x7FFFFFFFu, 9u, 6u, 5u}) {
        FailingAllocation allocations(0);
        const Bytes bytes = units({length, 0x01020304});
        char* read = nullptr;
        KvUInt32 size = 0;
        EXPECT_FALSE(
            decodes(bytes, [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_bytes(xdrs, &read, &size, 0xFFFFFFFF); }));
        EXPECT_FALSE(decodes(bytes, [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_string(xdrs, &read, 0xFFFFFFFF); }));
        EXPECT_FALSE(decodes(bytes, [&](KvNXdr::XDR* xdrs) {
            return KvNXdr::xdr_array(xdrs, &read, &size, 0xFFFFFFFF, 4, KvNXdr::proc<KvNXdr::xdr_u_int>);
        }));
        EXPECT_EQ(read, nullptr);
        EXPECT_EQ(allocations.count(), 0u) << length;
    }
}

TEST(KvXdr, PaddingHasToBeThereButMayHoldAnything)
{
    char* read = nullptr;
    KvUInt32 size = 0;
    Bytes bytes = units({1, 0x41FFFFFF});
    EXPECT_TRUE(decodes(bytes, [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_bytes(xdrs, &read, &size, 9); }));
    ASSERT_EQ(size, 1u);
    EXPECT_EQ(*read, 'A');
    KvNAllocation::release(read);
    read = nullptr;
    bytes.pop_back();
    EXPECT_FALSE(decodes(bytes, [&](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_bytes(xdrs, &read, &size, 9); }));
}

TEST(KvXdr, ArraysAreACountAndTheElements)
{
    KvUInt32 values[] = {1, 0x10203, 0xFFFFFFFF};
    char* pointer = reinterpret_cast<char*>(values);
    KvUInt32 count = 3;
    const Bytes expected = units({3, 1, 0x10203, 0xFFFFFFFF});
    const auto routine = [&](KvNXdr::XDR* xdrs, char** elements, KvUInt32* number) {
        return KvNXdr::xdr_array(xdrs, elements, number, 3, sizeof(KvUInt32), KvNXdr::proc<KvNXdr::xdr_u_int>);
    };
    EXPECT_EQ(encoded([&](KvNXdr::XDR* xdrs) { return routine(xdrs, &pointer, &count); }), expected);
    char* read = nullptr;
    KvUInt32 number = 0;
    ASSERT_TRUE(decodes(expected, [&](KvNXdr::XDR* xdrs) { return routine(xdrs, &read, &number); }));
    EXPECT_EQ(number, 3u);
    EXPECT_EQ(reinterpret_cast<KvUInt32*>(read)[2], 0xFFFFFFFFu);
    KvNXdr::XDR freeing{KvNXdr::XDR_FREE, nullptr, nullptr, 0, 0, false};
    EXPECT_TRUE(routine(&freeing, &read, &number));
    EXPECT_EQ(read, nullptr);
    EXPECT_FALSE(decodes(units({4, 1, 2, 3, 4}), [&](KvNXdr::XDR* xdrs) { return routine(xdrs, &read, &number); }));
    count = 4;
    EXPECT_TRUE(encoded([&](KvNXdr::XDR* xdrs) { return routine(xdrs, &pointer, &count); }).empty());
}

TEST(KvXdr, AnArrayOfCharsHasAUnitForEachCharacter)
{
    char text[] = "abc";
    char* pointer = text;
    KvUInt32 count = 3;
    EXPECT_EQ(encoded([&](KvNXdr::XDR* xdrs) {
                  return KvNXdr::xdr_array(xdrs, &pointer, &count, 0xFFFFFFFF, 1, KvNXdr::proc<KvNXdr::xdr_char>);
              }),
              units({3, 'a', 'b', 'c'}));
}

TEST(KvXdr, AnArrayOfLargeElementsChecksTheirSmallestSizeOnTheWire)
{
    FailingAllocation allocations(0);
    char* read = nullptr;
    KvUInt32 count = 0;
    EXPECT_FALSE(decodes(units({3, 0, 0, 0, 0, 0}), [&](KvNXdr::XDR* xdrs) {
        return KvNXdr::xdr_array(xdrs, &read, &count, 0xFFFFFFFF, 1000, KvNXdr::proc<KvNXdr::xdr_u_int>, 8);
    }));
    EXPECT_EQ(allocations.count(), 0u);
}

struct Named
{
    char* name;
    KvUInt32 number;
};

KvNXdr::bool_t xdr_Named(KvNXdr::XDR* xdrs, Named* named)
{
    return KvNXdr::xdr_string(xdrs, &named->name, 100) && KvNXdr::xdr_u_int(xdrs, &named->number);
}

struct NamedList
{
    char* elements = nullptr;
    KvUInt32 count = 0;
};

KvNXdr::bool_t xdr_NamedList(KvNXdr::XDR* xdrs, NamedList* list)
{
    return KvNXdr::xdr_array(xdrs, &list->elements, &list->count, 0xFFFFFFFF, sizeof(Named), KvNXdr::proc<xdr_Named>,
                             8);
}

TEST(KvXdr, WhatWasDecodedBeforeAFailureIsFreedByXdrFree)
{
    const Bytes bytes = units({3, 3, 0x61626300, 1, 2, 0x64650000, 2, 77, 0x66666666});
    NamedList list;
    EXPECT_FALSE(decodes(bytes, [&](KvNXdr::XDR* xdrs) { return xdr_NamedList(xdrs, &list); }));
    ASSERT_EQ(list.count, 3u);
    EXPECT_STREQ(reinterpret_cast<Named*>(list.elements)[1].name, "de");
    KvNXdr::xdr_free(KvNXdr::proc<xdr_NamedList>, &list);
    EXPECT_EQ(list.elements, nullptr);
    KvNXdr::xdr_free(KvNXdr::proc<xdr_NamedList>, &list);
}

TEST(KvXdr, EachFailingAllocationFailsTheDecodingAndIsTold)
{
    const Bytes bytes = units({2, 3, 0x61626300, 1, 2, 0x64650000, 2});
    bool done = false;
    std::size_t number = 0;
    while (!done) {
        const FailingAllocation failing(++number);
        KvNXdr::XDR xdrs;
        Bytes copy = bytes;
        KvNXdr::xdrmem_create(&xdrs, reinterpret_cast<char*>(copy.data()), copy.size(), KvNXdr::XDR_DECODE);
        NamedList list;
        done = xdr_NamedList(&xdrs, &list) != 0;
        EXPECT_EQ(xdrs.x_outOfMemory, failing.hasFailed());
        EXPECT_EQ(done, !failing.hasFailed());
        KvNXdr::xdr_free(KvNXdr::proc<xdr_NamedList>, &list);
    }
    EXPECT_EQ(number, 4u);
}

TEST(KvXdr, AGrowingStreamStopsAtItsLimitAndTellsWhenMemoryIsOut)
{
    char bytes[100] = {};
    KvNXdr::XDR xdrs;
    KvNXdr::xdrgrow_create(&xdrs, 150);
    EXPECT_TRUE(KvNXdr::xdr_opaque(&xdrs, bytes, 100));
    EXPECT_FALSE(KvNXdr::xdr_opaque(&xdrs, bytes, 100));
    EXPECT_FALSE(xdrs.x_outOfMemory);
    KvNXdr::xdrgrow_destroy(&xdrs);

    const FailingAllocation failing(1);
    KvNXdr::xdrgrow_create(&xdrs, 150);
    EXPECT_FALSE(KvNXdr::xdr_opaque(&xdrs, bytes, 100));
    EXPECT_TRUE(xdrs.x_outOfMemory);
    KvNXdr::xdrgrow_destroy(&xdrs);
}

TEST(KvXdr, VoidIsNothing)
{
    EXPECT_TRUE(decodes({}, [](KvNXdr::XDR* xdrs) { return KvNXdr::xdr_void(xdrs, nullptr); }));
}

TEST(KvXdr, CountedBytesCanStayWhereTheyAre)
{
    char stream[] = "\0\0\0\5hello\0\0\0\0\0\0\0";
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, stream, 16, KvNXdr::XDR_DECODE);
    const char* bytes = nullptr;
    KvUInt32 size = 0;
    EXPECT_EQ(KvNXdr::xdr_bytesInPlace(&xdrs, &bytes, &size, 5), 1);
    EXPECT_EQ(bytes, stream + 4);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(KvNXdr::xdr_bytesInPlace(&xdrs, &bytes, &size, 5), 1) << "no bytes";
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(KvNXdr::xdrmem_left(&xdrs), 0u);
    EXPECT_EQ(KvNXdr::xdr_bytesInPlace(&xdrs, &bytes, &size, 5), 0);

    for (std::size_t length = 0; length < 12; ++length) {
        KvNXdr::xdrmem_create(&xdrs, stream, length, KvNXdr::XDR_DECODE);
        EXPECT_EQ(KvNXdr::xdr_bytesInPlace(&xdrs, &bytes, &size, 5), 0) << length;
    }
    KvNXdr::xdrmem_create(&xdrs, stream, 16, KvNXdr::XDR_DECODE);
    EXPECT_EQ(KvNXdr::xdr_bytesInPlace(&xdrs, &bytes, &size, 4), 0) << "more than permitted";
    KvNXdr::xdrmem_create(&xdrs, stream, 16, KvNXdr::XDR_ENCODE);
    EXPECT_EQ(KvNXdr::xdr_bytesInPlace(&xdrs, &bytes, &size, 5), 0) << "decoding only";
    KvNXdr::xdrmem_create(&xdrs, stream, 16, KvNXdr::XDR_FREE);
    EXPECT_EQ(KvNXdr::xdr_bytesInPlace(&xdrs, &bytes, &size, 5), 1) << "nothing is to be freed";
}

}  // namespace
