#include "base/Crc32.h"

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

using KvNCrc32::crc32;

namespace {

KvUInt32 of(std::string_view text)
{
    return crc32(0, text.data(), text.size());
}

/* The definition, bit by bit. */
KvUInt32 bitByBit(const unsigned char* bytes, std::size_t count)
{
    KvUInt32 remainder = 0xFFFFFFFF;
    for (std::size_t i = 0; i < count; ++i) {
        for (int bit = 0; bit < 8; ++bit) {
            const bool one = ((remainder ^ (static_cast<KvUInt32>(bytes[i]) >> bit)) & 1) != 0;
            remainder = (remainder >> 1) ^ (one ? 0xEDB88320U : 0U);
        }
    }
    return remainder ^ 0xFFFFFFFF;
}

}  // namespace

TEST(Crc32, hasThePublishedCheckValues)
{
    EXPECT_EQ(of("123456789"), 0xCBF43926U);
    EXPECT_EQ(of(""), 0U);
    EXPECT_EQ(crc32(0, nullptr, 0), 0U);
    EXPECT_EQ(of("a"), 0xE8B7BE43U);
    EXPECT_EQ(of("abc"), 0x352441C2U);
    EXPECT_EQ(of("message digest"), 0x20159D7FU);
    EXPECT_EQ(of("abcdefghijklmnopqrstuvwxyz"), 0x4C2750BDU);
    EXPECT_EQ(of("The quick brown fox jumps over the lazy dog"), 0x414FA339U);
    EXPECT_EQ(of(std::string(32, '\0')), 0x190A55ADU);
    EXPECT_EQ(of(std::string(32, '\xFF')), 0xFF6CAB0BU);
    std::string counted;
    for (char byte = 0; byte < 32; ++byte)
        counted += byte;
    EXPECT_EQ(of(counted), 0x91267E8AU);
}

TEST(Crc32, isThatOfTheWholeWhereverTheBytesAreCut)
{
    constexpr std::string_view text = "The quick brown fox jumps over the lazy dog";
    for (std::size_t cut = 0; cut <= text.size(); ++cut)
        EXPECT_EQ(crc32(of(text.substr(0, cut)), text.data() + cut, text.size() - cut), 0x414FA339U) << cut;
}

TEST(Crc32, agreesWithTheDefinitionForEachLengthAndAlignment)
{
    std::vector<unsigned char> bytes(80);
    unsigned value = 1;
    for (unsigned char& byte : bytes) {
        value = value * 1103515245U + 12345U;
        byte = static_cast<unsigned char>(value >> 16);
    }
    for (std::size_t start = 0; start < 9; ++start) {
        for (std::size_t count = 0; start + count <= bytes.size(); ++count)
            ASSERT_EQ(crc32(0, &bytes[start], count), bitByBit(&bytes[start], count)) << start << ' ' << count;
    }
}
