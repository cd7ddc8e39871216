#include <string>

#include <gtest/gtest.h>

#include "base/KvCBuffer.h"

namespace {

class BufferDump : public testing::Test
{
protected:
    void write(const std::string& bytes)
    {
        buffer.writeBuffer(errors, bytes.data(), static_cast<KvUInt32>(bytes.size()), 1);
        ASSERT_EQ(errors.getErrorCount(), 0U);
    }
    std::string printed(void (KvCBuffer::*print)() const)
    {
        testing::internal::CaptureStdout();
        (buffer.*print)();
        return testing::internal::GetCapturedStdout();
    }

    KvCErrorListPool errors;
    KvCBuffer buffer{errors};
};

TEST_F(BufferDump, InHexOfAFullRowEndsWithARowOfBlanks)
{
    write("0123456789ABCDEF");
    EXPECT_EQ(printed(&KvCBuffer::hexDumpBuffer),
              std::string("0000  30 31 32 33 34 35 36 37 38 39 41 42 43 44 45 46   0123456789ABCDEF\n0010") +
                  std::string(68, ' ') + "\n\n");
}

TEST_F(BufferDump, InHexShowsDotsForWhatCannotBePrinted)
{
    write(std::string("\x00\x1f ~\x7f\x80\xff", 7) + "abcdefghijk");
    EXPECT_EQ(printed(&KvCBuffer::hexDumpBuffer),
              "0000  00 1f 20 7e 7f 80 ff 61 62 63 64 65 66 67 68 69   .. ~...abcdefghi\n"
              "0010  6a 6b                                             jk              \n\n");
}

TEST_F(BufferDump, InHexOfNothingIsARowOfBlanks)
{
    EXPECT_EQ(printed(&KvCBuffer::hexDumpBuffer),
              "0000  " + std::string(48, ' ') + "  " + std::string(16, ' ') + "\n\n");
}

TEST_F(BufferDump, AsTextWarnsWithoutTerminator)
{
    write("abc");
    EXPECT_EQ(
        printed(&KvCBuffer::printAsciiBuffer),
        "\nAsciiBuffer: \n'abc'\nEnd of AsciiBuffer: \n         Warning: Ascii-Buffer is not 0-terminated!!! \n\n ");
}

TEST_F(BufferDump, AsTextDoesNotWarnWithTerminator)
{
    write(std::string("a\0b\0", 4));
    EXPECT_EQ(printed(&KvCBuffer::printAsciiBuffer),
              std::string("\nAsciiBuffer: \n'a\0b\0'\nEnd of AsciiBuffer: \n", 43));
}

TEST_F(BufferDump, AsTextOfNothingDoesNotWarn)
{
    EXPECT_EQ(printed(&KvCBuffer::printAsciiBuffer), "\nAsciiBuffer: \n''\nEnd of AsciiBuffer: \n");
}

TEST_F(BufferDump, InBinaryShowsLetters)
{
    write("aZ5\xc4");
    EXPECT_EQ(printed(&KvCBuffer::printBinaryBuffer),
              "0x0000: 0x61 ( a )\n0x0001: 0x5a ( Z )\n0x0002: 0x35\n0x0003: 0xc4\n\n");
}

TEST_F(BufferDump, OfAClearedBufferIsEmpty)
{
    buffer.clearBuffer();
    EXPECT_EQ(printed(&KvCBuffer::hexDumpBuffer), "");
    EXPECT_EQ(printed(&KvCBuffer::printBinaryBuffer), "");
    EXPECT_EQ(printed(&KvCBuffer::printAsciiBuffer), "\nAsciiBuffer: \n''\nEnd of AsciiBuffer: \n");
}

}  // namespace
