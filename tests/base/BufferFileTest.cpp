#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "BufferFixture.h"
#include "tests/support/FailingAllocation.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

class BufferFile : public Buffer
{
protected:
    BufferFile()
        : folder(std::filesystem::temp_directory_path() / ("kv-buffer-" + std::to_string(std::random_device()())))
    {
        std::filesystem::create_directories(folder);
    }
    ~BufferFile() override { std::filesystem::remove_all(folder); }

    std::string path(const char* name) const { return (folder / name).string(); }
    void write(const char* name, const std::string& content) { std::ofstream(path(name), std::ios::binary) << content; }
    std::string content(const char* name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    std::filesystem::path folder;
};

TEST_F(BufferFile, IsReadWhole)
{
    const std::string bytes(5000, 'b');
    write("big", bytes);
    buffer.ReadFromFile(errors, path("big").c_str());
    EXPECT_EQ(buffer.getOccupiedSize(), 5000U);
    EXPECT_EQ(buffer.getSize(), 6024U);
    EXPECT_EQ(std::string(buffer.getStartPointer(), 5000), bytes);
    expectNoError();
}

TEST_F(BufferFile, OfNoBytesIsRead)
{
    write("empty", "");
    buffer.ReadFromFile(errors, path("empty").c_str());
    EXPECT_EQ(buffer.getOccupiedSize(), 0U);
    EXPECT_EQ(buffer.getSize(), 1024U);
    buffer.clearBuffer();
    buffer.ReadFromFile(errors, path("empty").c_str());
    expectNoError();
}

TEST_F(BufferFile, OverwritesTheFrontOfAWrittenBuffer)
{
    fill(8);
    write("small", "abc");
    buffer.ReadFromFile(errors, path("small").c_str());
    EXPECT_EQ(occupied(), (Bytes{'a', 'b', 'c', 0x55, 0x55, 0x55, 0x55, 0x55, 0, 0, 0}));
    expectNoError();
}

TEST_F(BufferFile, ThatIsMissingIsSilentlyNotRead)
{
    buffer.ReadFromFile(errors, path("missing").c_str());
    buffer.ReadFromFile(errors, nullptr);
    EXPECT_EQ(buffer.getOccupiedSize(), 0U);
    EXPECT_EQ(buffer.getSize(), 1024U);
    expectNoError();
}

TEST_F(BufferFile, ThatIsNoRegularFileIsReported)
{
    buffer.ReadFromFile(errors, folder.string().c_str());
    expectReported(0xA00004, "KvCBuffer::ReadFromFile");
#ifndef _WIN32
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    buffer.ReadFromFile(errors, path("pipe").c_str());
    expectReported(0xA00004, "KvCBuffer::ReadFromFile");
    buffer.ReadFromFile(errors, "/dev/zero");
    expectReported(0xA00004, "KvCBuffer::ReadFromFile");
#endif
    EXPECT_EQ(buffer.getOccupiedSize(), 0U);
}

#ifdef __linux__
TEST_F(BufferFile, ThatIsShorterThanItsSizeIsReported)
{
    // A file of the system whose status says 4096 bytes and that has fewer.
    const char* shorter = "/sys/kernel/mm/transparent_hugepage/enabled";
    if (!std::filesystem::exists(shorter))
        GTEST_SKIP() << "the host has no file that is shorter than its size";
    buffer.ReadFromFile(errors, shorter);
    expectReported(0xA00004, "KvCBuffer::ReadFromFile");
    EXPECT_EQ(buffer.getOccupiedSize(), 0U);
}
#endif

TEST_F(BufferFile, ThatIsTooLargeForTheMemoryIsReported)
{
    write("big", std::string(5000, 'b'));
    {
        const FailingAllocation none(1, true);
        buffer.ReadFromFile(errors, path("big").c_str());
    }
    expectReported(0x401, "KvCBuffer::allocateBuffer");
    EXPECT_EQ(buffer.getSize(), 1024U);
    write("sparse", "");
    std::filesystem::resize_file(path("sparse"), 0x100000400);
    buffer.ReadFromFile(errors, path("sparse").c_str());
    expectReported(0x401, "KvCBuffer::allocateBuffer");
    EXPECT_EQ(buffer.getSize(), 1024U);
    EXPECT_EQ(buffer.getOccupiedSize(), 0U);
}

TEST_F(BufferFile, IsWritten)
{
    buffer.writeBuffer(errors, "abc", 3, 1);
    buffer.setReadPosition(errors, 2);
    buffer.WriteToFile(errors, path("out").c_str());
    EXPECT_EQ(content("out"), "abc");
    buffer.initBuffer(errors);
    buffer.WriteToFile(errors, path("out").c_str());
    EXPECT_EQ(content("out"), "");
    expectNoError();
}

TEST_F(BufferFile, ThatCannotBeWrittenIsReportedByItsPath)
{
    buffer.writeBuffer(errors, "abc", 3, 1);
    buffer.WriteToFile(errors, path("no/such/folder").c_str());
    EXPECT_EQ(errors.getErrorText(0),
              "Internal error. Korvel Support information: Cannot write to file " + path("no/such/folder") + ".");
    expectReported(0xA00005, "KvCBuffer::WriteToFile");
    buffer.WriteToFile(errors, nullptr);
    expectReported(0xA00005, "KvCBuffer::WriteToFile");
#ifdef __linux__
    buffer.WriteToFile(errors, "/dev/full");
    expectReported(0xA00005, "KvCBuffer::WriteToFile");
#endif
}

}  // namespace
