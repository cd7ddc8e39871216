#include "base/KvCBuffer.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include "BufferFixture.h"
#include "tests/support/FailingAllocation.h"

namespace {

TEST_F(Buffer, HasAFreshBlockOfZeros)
{
    EXPECT_EQ(buffer.getSize(), 1024U);
    EXPECT_EQ(buffer.getOccupiedSize(), 0U);
    EXPECT_EQ(buffer.getFreeSize(), 1024U);
    EXPECT_EQ(buffer.getReadPosition(), 0U);
    EXPECT_EQ(buffer.getWritePosition(), 0U);
    EXPECT_EQ(buffer.getReadPointer(), buffer.getStartPointer());
    EXPECT_EQ(buffer.getWritePointer(), buffer.getStartPointer());
    EXPECT_EQ(buffer.getEndPointer(), buffer.getStartPointer() + 1024);
    for (int i = 0; i < 1024; ++i)
        ASSERT_EQ(buffer.getStartPointer()[i], 0);
    expectNoError();
}

TEST_F(Buffer, StartsOverWhenInitialised)
{
    fill(2000);
    buffer.initBuffer(errors);
    EXPECT_EQ(buffer.getSize(), 1024U);
    EXPECT_EQ(buffer.getOccupiedSize(), 0U);
    EXPECT_EQ(buffer.getStartPointer()[0], 0);
}

TEST_F(Buffer, HasNothingWhenCleared)
{
    fill(10);
    buffer.clearBuffer();
    EXPECT_EQ(buffer.getStartPointer(), nullptr);
    EXPECT_EQ(buffer.getReadPointer(), nullptr);
    EXPECT_EQ(buffer.getWritePointer(), nullptr);
    EXPECT_EQ(buffer.getEndPointer(), nullptr);
    EXPECT_EQ(buffer.getSize(), 0U);
    EXPECT_EQ(buffer.getReadPosition(), 0U);
    EXPECT_EQ(buffer.getWritePosition(), 0U);
    buffer.clearBuffer();
}

TEST_F(Buffer, ReportsThatItHasNoBlock)
{
    buffer.clearBuffer();
    int value = 7;
    buffer.readBuffer(errors, &value, 4);
    expectReported(0xA00002, "KvCBuffer::readBuffer");
    EXPECT_EQ(value, 7);
    buffer.readBuffer(errors, &value, 0);
    expectNoError();
    buffer.incrementReadPointer(errors, 0);
    expectReported(0xA00002, "KvCBuffer::incrementReadPointer");
    buffer.incrementWritePointer(errors, 0);
    expectReported(0xA00002, "KvCBuffer::setWritePointer");
    buffer.setWritePointer(errors, nullptr);
    expectReported(0xA00002, "KvCBuffer::setWritePointer");
    buffer.setReadPointer(errors, nullptr);
    expectNoError();
    buffer.setReadPosition(errors, 5);
    EXPECT_EQ(buffer.getReadPointer(), nullptr);
    buffer.WriteToFile(errors, "unused");
    expectReported(0xA00002, "KvCBuffer::WriteToFile");
    buffer.writeBuffer(errors, &value, 0, 1);
    expectReported(0xA00002, "KvCBuffer::setWritePointer");
}

TEST_F(Buffer, IsGrownAgainAfterItWasCleared)
{
    buffer.clearBuffer();
    buffer.allocateBuffer(errors, 100);
    EXPECT_EQ(buffer.getSize(), 100U);
    ASSERT_NE(buffer.getStartPointer(), nullptr);
    EXPECT_EQ(buffer.getReadPointer(), buffer.getStartPointer());
    EXPECT_EQ(buffer.getWritePointer(), buffer.getStartPointer());
    buffer.clearBuffer();
    const std::uint32_t value = 0x01020304;
    buffer.writeBuffer(errors, &value, 4);
    EXPECT_EQ(occupied(), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(buffer.getSize(), 4U + 512U);
    expectNoError();
}

TEST_F(Buffer, GrowsByTheIncrement)
{
    buffer.allocateBuffer(errors, 10);
    EXPECT_EQ(buffer.getSize(), 1034U);
    buffer.allocateBuffer(errors, -1);
    EXPECT_EQ(buffer.getSize(), 1546U);
    buffer.allocateBuffer(errors, 0);
    EXPECT_EQ(buffer.getSize(), 1546U);
    fill(100);
    buffer.setReadPosition(errors, 40);
    buffer.allocateBuffer(errors, 100000);
    EXPECT_EQ(buffer.getSize(), 101546U);
    EXPECT_EQ(buffer.getWritePosition(), 100U);
    EXPECT_EQ(buffer.getReadPosition(), 40U);
    EXPECT_EQ(buffer.getStartPointer()[99], 0x55);
    for (int i = 100; i < 101546; ++i)
        ASSERT_EQ(buffer.getStartPointer()[i], 0) << i;
    expectNoError();
}

TEST_F(Buffer, StoresNumbersMostSignificantByteFirst)
{
    const std::uint8_t one = 0x01;
    const std::uint16_t two = 0x0203;
    const std::uint32_t four = 0x04050607;
    const std::uint64_t eight = 0x08090A0B0C0D0E0F;
    buffer.writeBuffer(errors, &one, 1);
    buffer.writeBuffer(errors, &two, 2);
    buffer.writeBuffer(errors, &four, 4);
    buffer.writeBuffer(errors, &eight, 8);
    EXPECT_EQ(occupied(), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));

    std::uint8_t readOne = 0;
    std::uint16_t readTwo = 0;
    std::uint32_t readFour = 0;
    std::uint64_t readEight = 0;
    buffer.readBuffer(errors, &readOne, 1);
    buffer.readBuffer(errors, &readTwo, 2);
    buffer.readBuffer(errors, &readFour, 4);
    buffer.readBuffer(errors, &readEight, 8);
    EXPECT_EQ(readOne, one);
    EXPECT_EQ(readTwo, two);
    EXPECT_EQ(readFour, four);
    EXPECT_EQ(readEight, eight);
    EXPECT_EQ(buffer.getReadPosition(), 15U);
    expectNoError();
}

TEST_F(Buffer, StoresArraysElementByElement)
{
    const std::uint32_t numbers[] = {0x01020304, 0x05060708};
    buffer.writeBuffer(errors, numbers, 8, 4);
    EXPECT_EQ(occupied(), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    std::uint32_t read[2] = {};
    buffer.readBuffer(errors, read, 8, 4);
    EXPECT_EQ(read[0], numbers[0]);
    EXPECT_EQ(read[1], numbers[1]);
    const std::uint16_t shorts[] = {0x0102, 0x0304, 0x0506};
    buffer.writeBuffer(errors, shorts, 6, 2);
    EXPECT_EQ(occupied(), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 1, 2, 3, 4, 5, 6}));
}

TEST_F(Buffer, StoresBytesAsTheyAre)
{
    buffer.writeBuffer(errors, "Korvel", 6, 1);
    EXPECT_EQ(occupied(), (Bytes{'K', 'o', 'r', 'v', 'e', 'l'}));
    char read[6];
    buffer.readBuffer(errors, read, 6, 1);
    EXPECT_EQ(std::string(read, 6), "Korvel");
}

TEST_F(Buffer, ConvertsWholeElements)
{
    const std::uint32_t numbers[] = {0x01020304, 0x05060708};
    buffer.writeBuffer(errors, numbers, 6, 4);
    EXPECT_EQ(buffer.getWritePosition(), 6U);
    const auto* start = reinterpret_cast<const unsigned char*>(buffer.getStartPointer());
    EXPECT_EQ(Bytes(start, start + 10), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 0, 0}));
    std::uint32_t read[2] = {};
    buffer.readBuffer(errors, read, 5, 4);
    EXPECT_EQ(read[1], 0x05060708U);
    EXPECT_EQ(buffer.getReadPosition(), 5U);
}

TEST_F(Buffer, WritesNothingInElementsOfOddSizes)
{
    const char bytes[16] = "abcdefghijklmno";
    for (const KvInt32 size : {0, 3, 5, 16, -2}) {
        buffer.writeBuffer(errors, bytes, 8, size);
        EXPECT_EQ(buffer.getWritePosition(), 0U);
    }
    buffer.writeBuffer(errors, bytes, 3);
    buffer.writeBuffer(errors, bytes, 0);
    EXPECT_EQ(buffer.getWritePosition(), 0U);
    EXPECT_EQ(buffer.getStartPointer()[0], 0);
    EXPECT_EQ(buffer.getSize(), 1024U);
    expectNoError();
}

TEST_F(Buffer, RefusesToReadElementsOfOddSizes)
{
    fill(20);
    char read[20] = "untouched";
    for (const KvInt32 size : {0, 3, 5, 16, -2}) {
        buffer.readBuffer(errors, read, 8, size);
        expectReported(0xA00001, "KvCBuffer::readBuffer");
    }
    buffer.readBuffer(errors, read, 3);
    expectReported(0xA00001, "KvCBuffer::readBuffer");
    EXPECT_STREQ(read, "untouched");
    EXPECT_EQ(buffer.getReadPosition(), 0U);
}

TEST_F(Buffer, PatchesEarlierBytes)
{
    fill(12);
    const std::uint32_t length = 0x01020304;
    buffer.writeBuffer(errors, &length, 4, 4, 2);
    EXPECT_EQ(buffer.getWritePosition(), 12U);
    EXPECT_EQ(occupied(), (Bytes{0x55, 0x55, 1, 2, 3, 4, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}));
    buffer.writeBuffer(errors, &length, 4, -1, 0);
    EXPECT_EQ(occupied()[0], 1);
    std::uint32_t read = 0;
    buffer.readBuffer(errors, &read, 4, 4, 2);
    EXPECT_EQ(read, 0x03040304U);
    EXPECT_EQ(buffer.getReadPosition(), 0U);
}

TEST_F(Buffer, GrowsByFiveHundredAndTwelveWhenItsHeadroomIsUsed)
{
    fill(767);
    EXPECT_EQ(buffer.getSize(), 1024U) << "257 bytes are free";
    fill(1);
    EXPECT_EQ(buffer.getSize(), 1536U) << "exactly 256 bytes were free";
    expectNoError();
}

TEST_F(Buffer, GrowsInTheSameStepsForEveryWayOfWriting)
{
    const std::uint32_t number = 1;
    KvCBuffer scalars(errors);
    KvCBuffer elements(errors);
    KvUInt32 size = 1024;
    for (KvUInt32 position = 4; position < 100000; position += 4) {
        if (size - position <= 256)
            size += 512;
        scalars.writeBuffer(errors, &number, 4);
        elements.writeBuffer(errors, &number, 4, 2);
        ASSERT_EQ(scalars.getSize(), size);
        ASSERT_EQ(elements.getSize(), size);
    }
    expectNoError();
}

TEST_F(Buffer, GrowsInTheSameStepsForBytesThatAreCommitted)
{
    rc::check("committed bytes leave the buffer as small writes do", [] {
        KvCErrorListPool reports;
        KvCBuffer written(reports);
        KvCBuffer committed(reports);
        for (int round = *rc::gen::inRange(0, 8); round > 0; --round) {
            const auto fields = *rc::gen::container<std::vector<std::string>>(rc::gen::container<std::string>(
                static_cast<std::size_t>(*rc::gen::inRange(1, 257)), rc::gen::just('f')));
            KvUInt32 total = 0;
            for (const std::string& field : fields)
                total += static_cast<KvUInt32>(field.size());
            char* at = committed.reserve(reports, total);
            RC_ASSERT(at != nullptr);
            RC_ASSERT(committed.getReserve() >= total);
            for (const std::string& field : fields) {
                written.writeBuffer(reports, field.data(), static_cast<KvUInt32>(field.size()), 1);
                at += field.copy(at, field.size());
            }
            committed.commit(at);
            RC_ASSERT(committed.getOccupiedSize() == written.getOccupiedSize());
            RC_ASSERT(committed.getSize() == written.getSize());
            RC_ASSERT(std::string(committed.getStartPointer(), committed.getSize()) ==
                      std::string(written.getStartPointer(), written.getSize()));
        }
        RC_ASSERT(reports.getErrorCount() == 0U);
    });
}

TEST_F(Buffer, KeepsWhatStandsBehindCommittedBytes)
{
    fill(700);
    buffer.setWritePointer(errors, buffer.getStartPointer() + 10);
    char* const at = buffer.reserve(errors, 5);
    ASSERT_NE(at, nullptr);
    *at = 'c';
    buffer.commit(at + 1);
    EXPECT_EQ(buffer.getOccupiedSize(), 11U);
    EXPECT_EQ(buffer.getSize(), 1024U);
    EXPECT_EQ(buffer.getStartPointer()[10], 'c');
    EXPECT_EQ(buffer.getStartPointer()[11], buffer.getStartPointer()[699]);
    expectNoError();
}

TEST_F(Buffer, ReservesNothingWithoutABlockAndWhenMemoryIsOut)
{
    {
        const FailingAllocation first(1);
        EXPECT_EQ(buffer.reserve(errors, 100000), nullptr);
    }
    EXPECT_EQ(errors.getErrorCode(0), 0x401U);
    errors.clear();
    EXPECT_EQ(buffer.getSize(), 1024U);
    buffer.clearBuffer();
    EXPECT_EQ(buffer.reserve(errors, 1), nullptr);
    expectNoError();
}

TEST_F(Buffer, GrowsByWhatIsWrittenWhenItDoesNotFit)
{
    fill(2000);
    EXPECT_EQ(buffer.getSize(), 3024U);
    fill(1024);
    EXPECT_EQ(buffer.getSize(), 3024U + 512U) << "it fitted exactly and used the headroom";
    fill(400);
    EXPECT_EQ(buffer.getSize(), 3024U + 1024U) << "112 bytes were left";
    fill(600);
    fill(1);
    expectNoError();
    EXPECT_EQ(buffer.getOccupiedSize(), 4025U);
}

TEST_F(Buffer, GrowsWhenThereIsNoRoomBehindTheWritePositionEvenForPatches)
{
    fill(700);
    const Bytes patch(400, 0x66);
    buffer.writeBuffer(errors, patch.data(), 400, 1, 0);
    EXPECT_EQ(buffer.getSize(), 1424U);
    EXPECT_EQ(buffer.getWritePosition(), 700U);
    EXPECT_EQ(occupied()[399], 0x66);
    EXPECT_EQ(occupied()[400], 0x55);
}

TEST_F(Buffer, WritesNothingOutsideTheBlock)
{
    const std::uint32_t numbers[] = {0x01020304, 0x05060708};
    buffer.writeBuffer(errors, numbers, 8, 4, 1018);
    const auto* start = reinterpret_cast<const unsigned char*>(buffer.getStartPointer());
    EXPECT_EQ(Bytes(start + 1016, start + 1024), (Bytes{0, 0, 1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(buffer.getSize(), 1024U);
    buffer.writeBuffer(errors, numbers, 8, 4, 1024);
    buffer.writeBuffer(errors, numbers, 8, 4, 0x7FFFFFFF);
    buffer.writeBuffer(errors, numbers, 8, 4, -5);
    EXPECT_EQ(buffer.getWritePosition(), 0U);
    expectNoError();
}

TEST_F(Buffer, WritesPartlyConvertedElementsAtItsEnd)
{
    buffer.clearBuffer();
    buffer.allocateBuffer(errors, 9);
    const std::uint64_t numbers[] = {0x0102030405060708, 0x090A0B0C0D0E0F10};
    buffer.writeBuffer(errors, numbers, 9, 8);
    EXPECT_EQ(occupied(), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    expectNoError();
}

TEST_F(Buffer, ReadsBehindTheWrittenBytesInsideTheBlock)
{
    const std::uint16_t written = 0x0102;
    buffer.writeBuffer(errors, &written, 2);
    buffer.setReadPosition(errors, 2);
    std::uint32_t read = 7;
    buffer.readBuffer(errors, &read, 4);
    EXPECT_EQ(read, 0U) << "the read position may be the write position";
    EXPECT_EQ(buffer.getReadPosition(), 6U);
    expectNoError();
    buffer.readBuffer(errors, &read, 4);
    expectReported(0xA00000, "KvCBuffer::readBuffer");
    EXPECT_EQ(buffer.getReadPosition(), 6U);
}

TEST_F(Buffer, ReadsZerosForWhatLiesOutsideTheBlock)
{
    fill(1000);
    const std::uint32_t last = 0x01020304;
    buffer.clearBuffer();
    buffer.allocateBuffer(errors, 6);
    buffer.writeBuffer(errors, &last, 4, 4, 2);
    Bytes read(16, 0xEE);
    buffer.readBuffer(errors, read.data(), 8, 1);
    EXPECT_EQ(read, (Bytes{0, 0, 1, 2, 3, 4, 0, 0, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
    expectReported(0xA00000, "KvCBuffer::incrementReadPointer");
    EXPECT_EQ(buffer.getReadPosition(), 0U);

    std::uint32_t numbers[2] = {9, 9};
    buffer.readBuffer(errors, numbers, 8, 4, 0);
    EXPECT_EQ(numbers[0], 0x00000102U);
    EXPECT_EQ(numbers[1], 0x03040000U);
    expectNoError();
}

TEST_F(Buffer, ReportsPositionsOutsideTheBlock)
{
    char* const start = buffer.getStartPointer();
    char* const end = buffer.getEndPointer();
    buffer.setReadPointer(errors, end);
    expectNoError();
    EXPECT_EQ(buffer.getReadPosition(), 1024U);
    buffer.setReadPointer(errors, end + 1);
    expectReported(0xA00000, "KvCBuffer::setReadPointer");
    buffer.setReadPointer(errors, start - 1);
    expectReported(0xA00000, "KvCBuffer::setReadPointer");
    EXPECT_EQ(buffer.getReadPosition(), 1024U);
    buffer.incrementReadPointer(errors, 1);
    expectReported(0xA00000, "KvCBuffer::incrementReadPointer");
    buffer.incrementReadPointer(errors, -24);
    EXPECT_EQ(buffer.getReadPosition(), 1000U);
    buffer.incrementReadPointer(errors, -1001);
    expectReported(0xA00000, "KvCBuffer::incrementReadPointer");
    EXPECT_EQ(buffer.getReadPosition(), 1000U);
    buffer.setWritePointer(errors, end + 1);
    expectReported(0xA00000, "KvCBuffer::setWritePointer");
    buffer.setWritePointer(errors, start - 1);
    expectReported(0xA00000, "KvCBuffer::setWritePointer");
    buffer.incrementWritePointer(errors, -1);
    expectReported(0xA00000, "KvCBuffer::setWritePointer");
    buffer.incrementWritePointer(errors, 1025);
    expectReported(0xA00000, "KvCBuffer::setWritePointer");
    EXPECT_EQ(buffer.getWritePosition(), 0U);
    EXPECT_EQ(buffer.getSize(), 1024U);
}

TEST_F(Buffer, GrowsWhenItsWritePositionIsSet)
{
    buffer.setWritePointer(errors, buffer.getStartPointer() + 767);
    EXPECT_EQ(buffer.getSize(), 1024U);
    buffer.incrementWritePointer(errors, 1);
    EXPECT_EQ(buffer.getWritePosition(), 768U);
    EXPECT_EQ(buffer.getSize(), 1536U);
    buffer.setWritePointer(errors, buffer.getStartPointer());
    EXPECT_EQ(buffer.getSize(), 1536U);
    EXPECT_EQ(buffer.getWritePosition(), 0U);
    expectNoError();
}

TEST_F(Buffer, SetsItsReadPositionUnchecked)
{
    buffer.setReadPosition(errors, 5000);
    EXPECT_EQ(buffer.getReadPosition(), 5000U);
    char read = 'x';
    buffer.readBuffer(errors, &read, 1);
    expectReported(0xA00000, "KvCBuffer::readBuffer");
    EXPECT_EQ(read, 'x');
    buffer.readBuffer(errors, &read, 1, 1, 1);
    expectReported(0xA00000, "KvCBuffer::readBuffer");
}

TEST_F(Buffer, KeepsWhatWasWrittenWhateverTheSteps)
{
    EXPECT_TRUE(rc::check([] {
        KvCErrorListPool list;
        KvCBuffer written(list);
        Bytes expected;
        const auto steps = *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 3000));
        for (const int step : steps) {
            const Bytes bytes(static_cast<std::size_t>(step), static_cast<unsigned char>(step));
            written.writeBuffer(list, bytes.data(), static_cast<KvUInt32>(step), 1);
            expected.insert(expected.end(), bytes.begin(), bytes.end());
        }
        RC_ASSERT(list.getErrorCount() == 0U);
        RC_ASSERT(written.getOccupiedSize() == expected.size());
        RC_ASSERT(written.getFreeSize() > 256U);
        Bytes read(expected.size());
        written.readBuffer(list, read.data(), static_cast<KvUInt32>(read.size()), 1);
        RC_ASSERT(read == expected);
    }));
}

TEST_F(Buffer, AsksForMemoryRarelyWhenItIsWrittenInSmallPieces)
{
    FailingAllocation counting(0);
    for (std::uint32_t i = 0; i < 1000000; ++i)
        buffer.writeBuffer(errors, &i, 4);
    EXPECT_EQ(buffer.getOccupiedSize(), 4000000U);
    EXPECT_LT(counting.count(), 40U);
    expectNoError();
}

TEST(BufferWithoutMemory, HasNoBlock)
{
    KvCErrorListPool errors;
    const FailingAllocation none(1, true);
    const KvCBuffer buffer(errors);
    EXPECT_EQ(errors.getErrorCount(), 1U);
    EXPECT_EQ(errors.getErrorCode(0), 0x401U);
    EXPECT_STREQ(errors.getErrorOrigin(0), "KvCBuffer::initBuffer");
    EXPECT_EQ(buffer.getStartPointer(), nullptr);
    EXPECT_EQ(buffer.getReadPointer(), nullptr);
    EXPECT_EQ(buffer.getEndPointer(), nullptr);
    EXPECT_EQ(buffer.getSize(), 0U);
}

TEST_F(Buffer, StaysAsItWasWhenItCannotGrow)
{
    fill(700);
    const Bytes before = occupied();
    {
        const FailingAllocation none(1, true);
        buffer.allocateBuffer(errors, 100000);
        expectReported(0x401, "KvCBuffer::allocateBuffer");
        const Bytes bytes(100000, 1);
        buffer.writeBuffer(errors, bytes.data(), 100000, 1);
        expectReported(0x401, "KvCBuffer::allocateBuffer");
        buffer.writeBuffer(errors, bytes.data(), 100000, 1, 0);
        expectReported(0x401, "KvCBuffer::allocateBuffer");
        buffer.allocateBuffer(errors, -1);
        expectReported(0x401, "KvCBuffer::allocateBuffer");
        EXPECT_EQ(buffer.getSize(), 1024U);
        EXPECT_EQ(buffer.getWritePosition(), 700U);
        EXPECT_EQ(occupied(), before);
    }
    fill(1000);
    expectNoError();
}

TEST_F(Buffer, DoesNotGrowBeyondThirtyTwoBits)
{
    const FailingAllocation counting(0);
    buffer.allocateBuffer(errors, -1024);  // 0xFFFFFC00, which would make 2 to the power of 32
    expectReported(0x401, "KvCBuffer::allocateBuffer");
    buffer.writeBuffer(errors, "", 0xFFFFFFFF, 1);
    expectReported(0x401, "KvCBuffer::allocateBuffer");
    EXPECT_EQ(counting.count(), 4U) << "only the two reports have asked for memory, for their entry and its list";
    EXPECT_EQ(buffer.getSize(), 1024U);
}

}  // namespace
