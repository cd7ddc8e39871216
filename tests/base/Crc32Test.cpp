#include "base/Crc32.h"

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "base/Crc32Ways.h"

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

TEST(Crc32, isTheSameInEachOfItsWays)
{
    // several steps of folding and each length of what is left, from every alignment and with something in front
    std::vector<unsigned char> bytes(64 + 3 * 64 + 64);
    unsigned value = 7;
    for (unsigned char& byte : bytes) {
        value = value * 1103515245U + 12345U;
        byte = static_cast<unsigned char>(value >> 16);
    }
    for (const KvUInt32 soFar : {0U, 1U, 0x80000000U, 0xCBF43926U, 0xFFFFFFFFU}) {
        for (std::size_t start = 0; start < 64; start += start < 17 ? 1 : 23) {
            for (std::size_t count = 0; start + count <= bytes.size(); ++count) {
                const KvUInt32 wanted = KvNCrc32::crc32ByTables(soFar, &bytes[start], count);
                ASSERT_EQ(crc32(soFar, &bytes[start], count), wanted) << soFar << ' ' << start << ' ' << count;
                if (KvNCrc32::canFold()) {
                    ASSERT_EQ(KvNCrc32::crc32ByFolding(soFar, &bytes[start], count), wanted) << start << ' ' << count;
                }
            }
        }
    }
    EXPECT_EQ(KvNCrc32::crc32ByTables(0, "123456789", 9), 0xCBF43926U);
    EXPECT_EQ(KvNCrc32::crc32ByTables(0, nullptr, 0), 0U);
}

TEST(Crc32, ofLongBytesHasKnownValues)
{
    // as other programs give them
    EXPECT_EQ(of(std::string(64, 'a')), 0x89B46555U);
    EXPECT_EQ(of(std::string(1000, '\0')), 0x060B1780U);
    EXPECT_EQ(of(std::string(1048576, '\xFF')), 0x956BAC74U);
    std::string counted;
    for (int i = 0; i < 100000; ++i)
        counted += static_cast<char>(i * 7 >> 3);
    EXPECT_EQ(of(counted), 0x9F029C4EU);
}
