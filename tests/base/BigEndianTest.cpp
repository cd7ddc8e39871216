#include "base/BigEndian.h"

#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<unsigned char>;
using std::endian;

template <endian host, class T>
Bytes stored(T value)
{
    Bytes bytes(sizeof(T) + 1, 0xEE);
    KvNBigEndian::store<host>(bytes.data() + 1, value);
    EXPECT_EQ(bytes[0], 0xEE);
    bytes.erase(bytes.begin());
    return bytes;
}

TEST(BigEndian, StoresTheMostSignificantByteFirst)
{
    EXPECT_EQ(stored<endian::native>(std::uint8_t{0x01}), (Bytes{1}));
    EXPECT_EQ(stored<endian::native>(std::uint16_t{0x0102}), (Bytes{1, 2}));
    EXPECT_EQ(stored<endian::native>(std::uint32_t{0x01020304}), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(stored<endian::native>(std::uint64_t{0x0102030405060708}), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(stored<endian::native>(std::int16_t{-2}), (Bytes{0xFF, 0xFE}));
    EXPECT_EQ(stored<endian::native>(1.0F), (Bytes{0x3F, 0x80, 0, 0}));
    EXPECT_EQ(stored<endian::native>(-2.0), (Bytes{0xC0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(BigEndian, LoadsWhatItStored)
{
    const Bytes bytes = {0xFF, 0x80, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07};
    EXPECT_EQ(KvNBigEndian::load<std::int8_t>(bytes.data() + 1), -128);
    EXPECT_EQ(KvNBigEndian::load<std::uint16_t>(bytes.data() + 1), 0x8001);
    EXPECT_EQ(KvNBigEndian::load<std::int16_t>(bytes.data() + 1), -32767);
    EXPECT_EQ(KvNBigEndian::load<std::uint32_t>(bytes.data() + 1), 0x80010203U);
    EXPECT_EQ(KvNBigEndian::load<std::uint64_t>(bytes.data() + 1), 0x8001020304050607U);
    EXPECT_EQ(KvNBigEndian::load<double>(stored<endian::native>(-0.125).data()), -0.125);
}

// What one host does to its bytes: on a little-endian host they are turned around, on a big-endian host they are not.
// The number whose bytes lie in memory as 1, 2, 3, 4 stands for what a host of either order would hold.
TEST(BigEndian, TurnsTheBytesOfLittleEndianHostsOnly)
{
    const Bytes memory = {1, 2, 3, 4, 5, 6, 7, 8};
    const auto copied = [&memory](auto host, std::size_t count, std::size_t elementSize) {
        Bytes target(memory.size(), 0);
        KvNBigEndian::copy<decltype(host)::value>(target.data(), memory.data(), count, elementSize);
        return target;
    };
    constexpr std::integral_constant<endian, endian::little> little;
    constexpr std::integral_constant<endian, endian::big> big;
    EXPECT_EQ(copied(little, 8, 1), memory);
    EXPECT_EQ(copied(little, 4, 2), (Bytes{2, 1, 4, 3, 6, 5, 8, 7}));
    EXPECT_EQ(copied(little, 2, 4), (Bytes{4, 3, 2, 1, 8, 7, 6, 5}));
    EXPECT_EQ(copied(little, 1, 8), (Bytes{8, 7, 6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(copied(little, 1, 4), (Bytes{4, 3, 2, 1, 0, 0, 0, 0}));
    EXPECT_EQ(copied(little, 0, 8), (Bytes{0, 0, 0, 0, 0, 0, 0, 0}));
    for (const std::size_t elementSize : {1U, 2U, 4U, 8U})
        EXPECT_EQ(copied(big, 8 / elementSize, elementSize), memory);
    EXPECT_EQ(copied(big, 1, 2), (Bytes{1, 2, 0, 0, 0, 0, 0, 0}));
}

TEST(BigEndian, KeepsTheBytesOfBigEndianHosts)
{
    std::uint32_t number = 0;
    const Bytes memory = {1, 2, 3, 4};
    std::memcpy(&number, memory.data(), sizeof number);
    EXPECT_EQ(stored<endian::big>(number), memory);
    EXPECT_EQ(stored<endian::little>(number), (Bytes{4, 3, 2, 1}));
    EXPECT_EQ((KvNBigEndian::load<std::uint32_t, endian::big>(memory.data())), number);
    EXPECT_EQ((KvNBigEndian::load<std::uint32_t, endian::little>(memory.data())), KvNBigEndian::reversed(number));
}

TEST(BigEndian, ReversesNumbers)
{
    static_assert(KvNBigEndian::reversed(std::uint8_t{0x12}) == 0x12);
    static_assert(KvNBigEndian::reversed(std::uint16_t{0x1234}) == 0x3412);
    static_assert(KvNBigEndian::reversed(std::uint32_t{0x12345678}) == 0x78563412);
    static_assert(KvNBigEndian::reversed(std::uint64_t{0x0123456789ABCDEF}) == 0xEFCDAB8967452301);
}

}  // namespace
