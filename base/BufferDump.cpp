#include <cstdio>

#include "base/KvCBuffer.h"

namespace {

constexpr KvUInt32 rowLength = 16;

/** Prints one row of a dump: `count` bytes, and blanks up to a full row. */
void printRow(const char* bytes, KvUInt32 count, KvUInt32 offset, const char* end)
{
    char hex[3 * rowLength + 1];
    char text[rowLength + 1];
    for (KvUInt32 i = 0; i < rowLength; ++i) {
        if (i < count) {
            const auto byte = static_cast<unsigned char>(bytes[i]);
            std::snprintf(hex + 3 * i, 4, "%02x ", byte);
            text[i] = byte >= 0x20 && byte <= 0x7E ? bytes[i] : '.';
        } else {
            std::snprintf(hex + 3 * i, 4, "   ");
            text[i] = ' ';
        }
    }
    text[rowLength] = '\0';
    std::printf("%04x  %s  %s%s", static_cast<unsigned int>(offset), hex, text, end);
}

bool isLetter(unsigned char byte)
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

}  // namespace

void KvCBuffer::hexDumpBuffer() const
{
    if (m_start == nullptr)
        return;
    const KvUInt32 full = m_write - m_write % rowLength;
    for (KvUInt32 offset = 0; offset < full; offset += rowLength)
        printRow(m_start + offset, rowLength, offset, "\n");
    printRow(m_start + full, m_write - full, full, "\n\n");
}

void KvCBuffer::printAsciiBuffer() const
{
    std::printf("\nAsciiBuffer: \n'");
    if (m_write != 0)
        std::fwrite(m_start, 1, m_write, stdout);
    std::printf("'\nEnd of AsciiBuffer: \n");
    if (m_write != 0 && m_start[m_write - 1] != '\0')
        std::printf("         Warning: Ascii-Buffer is not 0-terminated!!! \n\n ");
}

void KvCBuffer::printBinaryBuffer() const
{
    if (m_start == nullptr)
        return;
    for (KvUInt32 i = 0; i < m_write; ++i) {
        const auto byte = static_cast<unsigned char>(m_start[i]);
        std::printf("0x%04x: 0x%02x", static_cast<unsigned int>(i), byte);
        if (isLetter(byte))
            std::printf(" ( %c )", byte);
        std::printf("\n");
    }
    std::printf("\n");
}
