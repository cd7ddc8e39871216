#include "tools/common/ParameterText.h"

#include <gtest/gtest.h>

#include "composite/ElementTypes.h"
#include "composite/KvCParam.h"

using namespace KvNParameterText;

namespace {

/** What a text gives as the value of a type: the value's text, or "!" and why not. */
std::string through(KvUInt32 type, std::string_view text)
{
    KvCErrorListPool errors;
    KvCParam parameter(errors, 1, "p", type);
    std::string problem;
    return setValueText(parameter, text, problem) ? valueText(parameter) : "!" + problem;
}

}  // namespace

TEST(ParameterValues, TakeTheLimitsOfTheirTypes)
{
    EXPECT_EQ(through(0x111, "-128"), "-128");
    EXPECT_EQ(through(0x111, "127"), "127");
    EXPECT_EQ(through(0x112, "-32768"), "-32768");
    EXPECT_EQ(through(0x114, "-2147483648"), "-2147483648");
    EXPECT_EQ(through(0x118, "-9223372036854775808"), "-9223372036854775808");
    EXPECT_EQ(through(0x121, "255"), "255");
    EXPECT_EQ(through(0x122, "0xFFFF"), "65535");
    EXPECT_EQ(through(0x124, "4294967295"), "4294967295");
    EXPECT_EQ(through(0x128, "18446744073709551615"), "18446744073709551615");
    EXPECT_EQ(through(0x121, "-0"), "0");
}

TEST(ParameterValues, RefuseWhatDoesNotFit)
{
    EXPECT_EQ(through(0x111, "128"), "!Int8 takes an integer from -128 to 127");
    EXPECT_EQ(through(0x111, "-129"), "!Int8 takes an integer from -128 to 127");
    EXPECT_EQ(through(0x121, "-1"), "!UInt8 takes an integer from 0 to 255");
    EXPECT_EQ(through(0x122, "65536"), "!UInt16 takes an integer from 0 to 65535");
    EXPECT_EQ(through(0x118, "9223372036854775808"),
              "!Long64 takes an integer from -9223372036854775808 to 9223372036854775807");
    EXPECT_EQ(through(0x128, "18446744073709551616"), "!ULong64 takes an integer from 0 to 18446744073709551615");
    for (const char* text : {"", "-", "0x", "1.0", "1 ", " 1", "+1", "x", "1e3"})
        EXPECT_EQ(through(0x124, text), "!UInt32 takes an integer from 0 to 4294967295") << text;
    EXPECT_EQ(through(0x4000, "300.1"), "!Version takes a version, for example 3.1.2b4p7");
    EXPECT_EQ(through(0x4000, "1.2p65536"), "!Version takes a version, for example 3.1.2b4p7");
    EXPECT_EQ(through(0x4000, std::string_view("1.2\0", 4)), "!Version takes a version, for example 3.1.2b4p7");
    EXPECT_EQ(through(0x2000, std::string_view("a\0b", 3)), "!String takes a text without NUL");
    EXPECT_EQ(through(0x1124, "1 2"), "!an array cannot be set");
}

TEST(ParameterValues, FloatsKeepTheirBits)
{
    EXPECT_EQ(through(0x214, "0.1"), "0.1");
    EXPECT_EQ(through(0x218, "0.1"), "0.1");
    EXPECT_EQ(through(0x218, "1e22"), "1e+22");
    EXPECT_EQ(through(0x214, "-0.0"), "-0.0");
    EXPECT_EQ(through(0x214, "NaN"), "NaN");
    EXPECT_EQ(through(0x218, "-Infinity"), "-Infinity");
    for (const char* text : {"", "1e39", "inf", "nan", "1,5", "0x10", "1.0f", " 1"})
        EXPECT_EQ(through(0x214, text), "!Float32 takes a number, NaN, Infinity or -Infinity") << text;
}

TEST(ParameterValues, FloatsThatPeopleReadHaveNoExponent)
{
    const std::pair<const char*, const char*> rows[] = {
        {"2e9", "2000000000"},   {"-2.5e6", "-2500000"},       {"1e-5", "0.00001"},
        {"1e-4", "0.0001"},      {"-0.00012", "-0.00012"},     {"9.9e-6", "9.9e-06"},
        {"1e16", "1e+16"},       {"9e15", "9000000000000000"}, {"0", "0"},
        {"123456.5", "123456.5"}};
    for (const auto& [text, shown] : rows) {
        EXPECT_EQ(through(0x218, text), shown);
        EXPECT_EQ(through(0x214, text), shown);
    }
    EXPECT_EQ(through(0x218, "9999999999999998"), "9999999999999998");
    EXPECT_EQ(through(0x218, "1.2345678901234568e-5"), "0.000012345678901234568");
    EXPECT_EQ(through(0x214, "1e11"), "100000000000") << "its exact value is 99999997952";
    EXPECT_EQ(through(0x214, "3.4028235e38"), "3.4028235e+38");
}

TEST(ParameterValues, TextsAndVersionsAreTakenAsTheyAre)
{
    EXPECT_EQ(through(0x2000, ""), "");
    EXPECT_EQ(through(0x2000, "-x \xFF"), "-x \xFF");
    EXPECT_EQ(through(0x4000, "3.1.2b4p7"), "3.1.2b4p7");
    EXPECT_EQ(through(0x4000, "255.255.255a65535p65535"), "255.255.255a65535p65535");
}

TEST(ParameterValues, ArraysAreShownWhole)
{
    KvCErrorListPool errors;
    KvUInt32 data[300];
    for (KvUInt32 i = 0; i < 300; ++i)
        data[i] = i * 1000;
    const KvCParam parameter(errors, 1, "p", 0, KvCArrayParam<KvUInt32>(300, data, nullptr), nullptr);
    const std::string text = valueText(parameter);
    EXPECT_EQ(text.substr(0, 16), "0 1000 2000 3000");
    EXPECT_EQ(text.substr(text.size() - 6), "299000");
    const double floats[] = {0.5, -2};
    EXPECT_EQ(valueText(KvCParam(errors, 1, "p", 0, KvCArrayParam<double>(2, floats, nullptr), nullptr)), "0.5 -2");
}

TEST(ParameterValues, OfUnknownTypeHaveNoText)
{
    KvCErrorListPool errors;
    KvCParam parameter(errors, 1, "p", 0x777);
    std::string problem;
    EXPECT_EQ(valueText(parameter), "");
    EXPECT_EQ(typeName(parameter), "type 0x777");
    EXPECT_FALSE(setValueText(parameter, "1", problem));
    EXPECT_EQ(problem, "its type is unknown");
}
