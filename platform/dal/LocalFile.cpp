#if !defined(_WIN32)
#define _FILE_OFFSET_BITS 64  // files beyond 2 GiB where addresses have 32 bits
#endif

#include "platform/dal/LocalFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

#if defined(_WIN32)
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace KvNDeviceAccess {

namespace {

constexpr KvUInt32 replacement = 0xFFFD;

bool isSurrogate(KvUInt32 unit)
{
    return unit >= 0xD800 && unit <= 0xDFFF;
}

/* The next character of a text that has not ended. */
KvUInt32 nextCharacter(const wchar_t*& text)
{
    // wide characters of 16 bits are not to be widened by their sign
    const auto unitAt = [](const wchar_t* place) {
        return static_cast<KvUInt32>(*place) & (sizeof(wchar_t) == 2 ? 0xFFFF : 0xFFFFFFFF);
    };
    const KvUInt32 first = unitAt(text++);
    if (sizeof(wchar_t) == 2 && first >= 0xD800 && first <= 0xDBFF) {
        const KvUInt32 second = unitAt(text);
        if (second >= 0xDC00 && second <= 0xDFFF) {
            ++text;
            return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
        }
    }
    return first;
}

void appendUtf8(Text& utf8, KvUInt32 character)
{
    const auto put = [&utf8](KvUInt32 byte) { utf8.push_back(static_cast<char>(byte)); };
    const auto follow = [&](unsigned shift) { put(0x80 | (character >> shift & 0x3F)); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | character >> 6);
        follow(0);
    } else if (character < 0x10000) {
        put(0xE0 | character >> 12);
        follow(6);
        follow(0);
    } else {
        put(0xF0 | character >> 18);
        follow(12);
        follow(6);
        follow(0);
    }
}

}  // namespace

bool toUtf8(const wchar_t* text, Text& utf8)
{
    bool sound = true;
    while (*text != 0) {
        KvUInt32 character = nextCharacter(text);
        if (isSurrogate(character) || character > 0x10FFFF) {
            character = replacement;
            sound = false;
        }
        appendUtf8(utf8, character);
    }
    return sound;
}

#if defined(_WIN32)

LocalFile::~LocalFile()
{
    if (m_handle != nullptr)
        CloseHandle(m_handle);
}

bool LocalFile::fail(int error)
{
    std::snprintf(m_problem, sizeof m_problem, "%s", std::system_category().message(error).c_str());
    return false;
}

bool LocalFile::fail()
{
    return fail(static_cast<int>(GetLastError()));
}

bool LocalFile::open(const wchar_t* path)
{
    const HANDLE handle = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return fail();
    m_handle = handle;
    if (GetFileType(handle) != FILE_TYPE_DISK)
        return fail(ERROR_BAD_FILE_TYPE);
    return look(m_state);
}

bool LocalFile::look(State& state)
{
    LARGE_INTEGER size;
    FILETIME written;
    if (GetFileSizeEx(m_handle, &size) == 0 || GetFileTime(m_handle, nullptr, nullptr, &written) == 0)
        return fail();
    state.size = static_cast<KvUInt64>(size.QuadPart);
    state.seconds = static_cast<std::int64_t>(written.dwHighDateTime);
    state.fraction = static_cast<std::int64_t>(written.dwLowDateTime);
    return true;
}

bool LocalFile::read(KvUInt64 position, void* block, std::size_t bytes, std::size_t& count)
{
    constexpr std::size_t most = 1u << 30;
    auto* place = static_cast<char*>(block);
    for (count = 0; count < bytes;) {
        const KvUInt64 from = position + count;
        OVERLAPPED where = {};
        where.Offset = static_cast<DWORD>(from);
        where.OffsetHigh = static_cast<DWORD>(from >> 32);
        DWORD got = 0;
        if (ReadFile(m_handle, place + count, static_cast<DWORD>(std::min(bytes - count, most)), &got, &where) == 0) {
            if (GetLastError() == ERROR_HANDLE_EOF)
                return true;
            return fail();
        }
        if (got == 0)
            return true;
        count += got;
    }
    return true;
}

#else

static_assert(sizeof(off_t) == 8);

LocalFile::~LocalFile()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

bool LocalFile::fail(int error)
{
    std::snprintf(m_problem, sizeof m_problem, "%s", std::generic_category().message(error).c_str());
    return false;
}

bool LocalFile::fail()
{
    return fail(errno);
}

bool LocalFile::open(const wchar_t* path)
{
    Text name;
    if (!toUtf8(path, name))
        return fail(EILSEQ);
    struct stat found;
    if (::stat(name.c_str(), &found) != 0)
        return fail();
    if (S_ISREG(found.st_mode)) {
        // what took the file's place meanwhile must not make us wait either
        m_descriptor = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (m_descriptor < 0 || ::fstat(m_descriptor, &found) != 0)
            return fail();
    }
    if (S_ISDIR(found.st_mode))
        return fail(EISDIR);
    if (!S_ISREG(found.st_mode)) {
        std::snprintf(m_problem, sizeof m_problem, "Not a regular file");
        return false;
    }
    return look(m_state);
}

bool LocalFile::look(State& state)
{
    struct stat now;
    if (::fstat(m_descriptor, &now) != 0)
        return fail();
    state.size = static_cast<KvUInt64>(now.st_size);
    state.seconds = now.st_mtim.tv_sec;
    state.fraction = now.st_mtim.tv_nsec;
    return true;
}

bool LocalFile::read(KvUInt64 position, void* block, std::size_t bytes, std::size_t& count)
{
    auto* place = static_cast<char*>(block);
    for (count = 0; count < bytes;) {
        const ssize_t got = ::pread(m_descriptor, place + count, bytes - count, static_cast<off_t>(position + count));
        if (got == 0)
            return true;
        if (got > 0)
            count += static_cast<std::size_t>(got);
        else if (errno != EINTR)
            return fail();
    }
    return true;
}

#endif

bool LocalFile::unchanged(bool& same)
{
    State now;
    char next = 0;
    std::size_t more = 0;
    // files that the system makes up have more than they say
    if (!look(now) || !read(m_state.size, &next, 1, more))
        return false;
    same = more == 0 && now.size == m_state.size && now.seconds == m_state.seconds && now.fraction == m_state.fraction;
    return true;
}

}  // namespace KvNDeviceAccess
