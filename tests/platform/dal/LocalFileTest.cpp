#include "platform/dal/LocalFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "tests/platform/dal/LocalFiles.h"

using namespace KvNDeviceAccess;

namespace {

std::string utf8(const wchar_t* text, bool sound)
{
    Text made;
    EXPECT_EQ(toUtf8(text, made), sound);
    return std::string(made.data(), made.size());
}

std::string problemOf(const std::wstring& path)
{
    LocalFile file;
    EXPECT_FALSE(file.open(path.c_str()));
    return file.problem();
}

}  // namespace

TEST(LocalFile, hasAWideNameThatBecomesUtf8)
{
    EXPECT_EQ(utf8(L"", true), "");
    EXPECT_EQ(utf8(L"a\x7F", true), "a\x7F");
    EXPECT_EQ(utf8(L"\x80\x7FF", true), "\xC2\x80\xDF\xBF");
    EXPECT_EQ(utf8(L"\x800\xD7FF\xE000\xFFFF", true), "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF");
    EXPECT_EQ(utf8(L"\x10000\x10FFFF", true), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(LocalFile, nameWithWhatIsNoCharacterIsNone)
{
    const std::string replaced =
        "a\xEF\xBF\xBD"
        "b";
    for (const unsigned number :
         {0xD800u, 0xDBFFu, 0xDC00u, 0xDFFFu, 0x110000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        const wchar_t text[] = {L'a', static_cast<wchar_t>(number), L'b', 0};
        EXPECT_EQ(utf8(text, false), replaced) << number;
        EXPECT_EQ(problemOf(text), std::strerror(EILSEQ)) << number;
    }
    // a pair stands for a character only where wide characters have 16 bits
    const wchar_t pair[] = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00), 0};
    EXPECT_EQ(utf8(pair, false), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(LocalFile, isReadFromAnyPosition)
{
    Folder folder;
    LocalFile file;
    ASSERT_TRUE(file.open(folder.file("image", "0123456789").c_str()));
    EXPECT_EQ(file.size(), 10u);
    char block[16];
    std::size_t count = 0;
    ASSERT_TRUE(file.read(3, block, 4, count));
    EXPECT_EQ(std::string(block, count), "3456");
    ASSERT_TRUE(file.read(8, block, 4, count));
    EXPECT_EQ(std::string(block, count), "89");
    ASSERT_TRUE(file.read(0, block, 0, count));
    EXPECT_EQ(count, 0u);
    ASSERT_TRUE(file.read(10, block, 4, count));
    EXPECT_EQ(count, 0u);
}

TEST(LocalFile, mayBeLargerThanFourGibibytes)
{
    Folder folder;
    const std::wstring path = folder.file("large", "");
    constexpr off_t size = (off_t{5} << 30) + 3;
    ASSERT_EQ(::truncate(narrow(path).c_str(), size), 0);
    const int descriptor = ::open(narrow(path).c_str(), O_WRONLY);
    ASSERT_EQ(::pwrite(descriptor, "end", 3, size - 3), 3);
    ::close(descriptor);
    LocalFile file;
    ASSERT_TRUE(file.open(path.c_str()));
    EXPECT_EQ(file.size(), 5368709123u);
    char block[8];
    std::size_t count = 0;
    ASSERT_TRUE(file.read(5368709119u, block, sizeof block, count));
    EXPECT_EQ(std::string(block, count), std::string("\0end", 4));
}

TEST(LocalFile, isARegularOneOrALinkToOne)
{
    Folder folder;
    const std::wstring path = folder.file("image", "x");
    const std::wstring link = folder.path("link");
    ASSERT_EQ(::symlink("image", narrow(link).c_str()), 0);
    EXPECT_TRUE(LocalFile().open(link.c_str()));

    EXPECT_EQ(problemOf(folder.path("missing")), "No such file or directory");
    EXPECT_EQ(problemOf(L""), "No such file or directory");
    EXPECT_EQ(problemOf(folder.path("")), "Is a directory");
    EXPECT_EQ(problemOf(folder.path("image") + L"/x"), "Not a directory");
    const std::wstring loop = folder.path("loop");
    ASSERT_EQ(::symlink("loop", narrow(loop).c_str()), 0);
    EXPECT_EQ(problemOf(loop), "Too many levels of symbolic links");
    EXPECT_EQ(problemOf(std::wstring(300, L'n')), "File name too long");
}

TEST(LocalFile, whichIsAPipeOrADeviceIsRefusedAtOnce)
{
    Folder folder;
    const std::wstring pipe = folder.path("pipe");
    ASSERT_EQ(::mkfifo(narrow(pipe).c_str(), 0600), 0);
    EXPECT_EQ(problemOf(pipe), "Not a regular file");
    EXPECT_EQ(problemOf(L"/dev/null"), "Not a regular file");
    EXPECT_EQ(problemOf(L"/dev/tty"), "Not a regular file");
}

TEST(LocalFile, tellsWhetherItWasWrittenToSinceItWasOpened)
{
    Folder folder;
    const std::wstring path = folder.file("image", "0123456789");
    const std::string name = narrow(path);
    const auto sameAfter = [&](const std::function<void()>& change) {
        LocalFile file;
        EXPECT_TRUE(file.open(path.c_str()));
        change();
        bool same = false;
        EXPECT_TRUE(file.unchanged(same));
        return same;
    };
    EXPECT_TRUE(sameAfter([] {}));
    EXPECT_TRUE(sameAfter([&] { EXPECT_EQ(::chmod(name.c_str(), 0600), 0); }));
    EXPECT_FALSE(sameAfter([&] { EXPECT_EQ(::truncate(name.c_str(), 9), 0); }));
    EXPECT_FALSE(sameAfter([&] { EXPECT_EQ(::truncate(name.c_str(), 11), 0); }));
    EXPECT_FALSE(sameAfter([&] { setWritten(path, 1000); }));
    // replaced by another file: the one that was opened is the same
    EXPECT_TRUE(sameAfter([&] { EXPECT_EQ(::unlink(name.c_str()), 0); }));
}
