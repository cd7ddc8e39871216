#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

namespace KvNDeviceAccess {

/** A text in the library's memory. */
using Text = std::basic_string<char, std::char_traits<char>, KvNAllocation::Allocator<char>>;

/** Makes UTF-8 of wide characters (UTF-16 where they have 16 bits). False when one of them is no character: a surrogate
    of its own or beyond U+10FFFF; in `utf8` U+FFFD stands for it. Throws std::bad_alloc. */
bool toUtf8(const wchar_t* text, Text& utf8);

/**
 * A regular file of this host, or one behind a link, opened for reading. Anything else is refused without touching it,
 * so that opening neither waits for the other end of a pipe nor wakes a device. On false, problem() says why in words.
 */
class LocalFile
{
public:
    LocalFile() noexcept = default;
    ~LocalFile();
    LocalFile(const LocalFile&) = delete;
    LocalFile& operator=(const LocalFile&) = delete;

    /** Opens `path`, once. Where names of files are bytes, they are the path's UTF-8. Throws std::bad_alloc. */
    bool open(const wchar_t* path);

    /** Bytes that the file had when it was opened. */
    KvUInt64 size() const { return m_state.size; }

    /** Reads `bytes` bytes from `position` on; `count` becomes less only at the end of the file. */
    bool read(KvUInt64 position, void* block, std::size_t bytes, std::size_t& count);

    /** Whether the file ends where it did when it was opened, and has not been written to since. */
    bool unchanged(bool& same);

    const char* problem() const { return m_problem; }

private:
    struct State
    {
        KvUInt64 size = 0;
        std::int64_t seconds = 0;  // when it was last written to
        std::int64_t fraction = 0;
    };
    bool look(State& state);
    bool fail();
    bool fail(int error);

#if defined(_WIN32)
    void* m_handle = nullptr;
#else
    int m_descriptor = -1;
#endif
    State m_state;
    char m_problem[128] = {};
};

}  // namespace KvNDeviceAccess
