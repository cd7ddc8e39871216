#include "base/KvCString.h"

#include <charconv>
#include <cstdint>

#include "base/Report.h"

namespace {

/** Lengths are 32 bits wide; a longer text is one that there is no memory for. */
constexpr std::size_t longestText = 0xFFFFFFFE;

/** Bytes of `s` before its NUL, at most `n`. */
std::size_t lengthWithin(const char* s, std::size_t n)
{
    const void* end = std::memchr(s, '\0', n);
    return end == nullptr ? n : static_cast<std::size_t>(static_cast<const char*>(end) - s);
}

}  // namespace

/** Makes this string, which has no block, one of `length` characters and returns the place for them; the NUL is there
    already. Null, and reported, when memory is out. */
char* KvCString::make(std::size_t length, const char* origin)
{
    std::memset(m_bytes, 0, sizeof m_bytes);
    if (length <= capacity)
        return m_bytes;
    char* pointer = length > longestText ? nullptr : static_cast<char*>(KvNAllocation::allocate(length + 1));
    if (pointer == nullptr) {
        KV_REPORT(KvNReport::masterList(), StringBufferOutOfMemory, origin);
        return nullptr;
    }
    hold(pointer, length);
    return pointer;
}

/** Becomes the long text in a block of its own, and ends it with a NUL. */
void KvCString::hold(char* pointer, std::size_t length) noexcept
{
    pointer[length] = '\0';
    const auto stored = static_cast<unsigned int>(length);
    std::memcpy(m_bytes, &pointer, sizeof pointer);
    std::memcpy(m_bytes + lengthAt, &stored, sizeof stored);
    m_bytes[capacity] = 1;
}

KvCString KvCString::fromBlock(char* block, unsigned int length) noexcept
{
    KvCString text;
    if (length > capacity) {
        text.hold(block, length);
        return text;
    }
    std::memcpy(text.m_bytes, block, length);
    KvNAllocation::release(block);
    return text;
}

void KvCString::set(const char* s, std::size_t length, const char* origin)
{
    char* place = make(length, origin);
    if (place != nullptr && length != 0)
        std::memcpy(place, s, length);
}

void KvCString::copyLong(const KvCString& other, const char* origin)
{
    set(other.block(), other.length(), origin);
}

void KvCString::clear() noexcept
{
    if (isLong())
        KvNAllocation::release(block());
    std::memset(m_bytes, 0, sizeof m_bytes);
}

KvCString::KvCString(const char* s)
{
    if (s != nullptr)
        set(s, std::strlen(s), "KvCString::KvCString");
}

KvCString::KvCString(const char* s, unsigned int n)
{
    if (s != nullptr && n != 0)
        set(s, lengthWithin(s, n), "KvCString::KvCString");
}

KvCString::KvCString(unsigned long value)
{
    char digits[24];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value);
    set(digits, static_cast<std::size_t>(end.ptr - digits), "KvCString::KvCString");
}

KvCString& KvCString::operator=(const KvCString& other)
{
    if (this == &other)
        return *this;
    clear();
    if (other.isLong())
        copyLong(other, "KvCString::operator =");
    else
        std::memcpy(m_bytes, other.m_bytes, sizeof m_bytes);
    return *this;
}

KvCString& KvCString::operator=(const char* s)
{
    clear();
    if (s != nullptr)
        set(s, std::strlen(s), "KvCString::operator =");
    return *this;
}

KvCString& KvCString::operator=(KvCString&& other) noexcept
{
    if (this != &other) {
        clear();
        std::memcpy(m_bytes, other.m_bytes, sizeof m_bytes);
        std::memset(other.m_bytes, 0, sizeof other.m_bytes);
    }
    return *this;
}

bool KvCString::operator==(const KvCString& other) const noexcept
{
    if (isLong() != other.isLong())
        return false;
    if (!isLong())
        return std::memcmp(m_bytes, other.m_bytes, sizeof m_bytes) == 0;
    return length() == other.length() && std::memcmp(block(), other.block(), length()) == 0;
}

KvCString KvCString::joined(const char* other, std::size_t otherLength) const
{
    KvCString sum;
    const std::size_t own = length();
    if (char* place = sum.make(own + otherLength, "KvCString::operator +")) {
        std::memcpy(place, c_str(), own);
        std::memcpy(place + own, other, otherLength);
    }
    return sum;
}

KvCString KvCString::operator+(const KvCString& other) const
{
    return joined(other.c_str(), other.length());
}

KvCString KvCString::operator+(const char* other) const
{
    return other == nullptr ? joined("", 0) : joined(other, std::strlen(other));
}

unsigned int KvCString::countChar(char c) const noexcept
{
    unsigned int count = 0;
    for (const char* place = c_str(); *place != '\0'; ++place)
        count += *place == c ? 1 : 0;
    return count;
}

KvCString* KvCString::split(char sep, unsigned long* count) const
{
    *count = 0;
    const std::size_t pieces = static_cast<std::size_t>(countChar(sep)) + 1;
    if (pieces > static_cast<std::size_t>(-1) / 2 / sizeof(KvCString))
        return nullptr;
    auto* array = new KvCString[pieces];
    if (array == nullptr)
        return nullptr;
    const char* start = c_str();
    std::size_t piece = 0;
    for (const char* place = start; *place != '\0'; ++place) {
        if (*place != sep)
            continue;
        array[piece++] = KvCString(start, static_cast<unsigned int>(place - start));
        start = place + 1;
    }
    array[piece] = KvCString(start);
    *count = static_cast<unsigned long>(pieces);
    return array;
}

int KvCString::strcmp(const char* a, const char* b) noexcept
{
    while (*a == *b && *a != '\0') {
        ++a;
        ++b;
    }
    return static_cast<std::int8_t>(*a) - static_cast<std::int8_t>(*b);
}

char* KvCString::strcpy(char* dst, const char* src) noexcept
{
    const std::size_t length = src == nullptr ? 0 : std::strlen(src);
    if (length != 0)
        std::memcpy(dst, src, length);
    dst[length] = '\0';
    return dst;
}

unsigned int KvCString::strlen(const char* s) noexcept
{
    return s == nullptr ? 0 : static_cast<unsigned int>(std::strlen(s));
}

char* KvCString::strncpy(char* dst, const char* src, unsigned int n) noexcept
{
    const std::size_t length = src == nullptr ? 0 : lengthWithin(src, n);
    if (length != 0)
        std::memcpy(dst, src, length);
    if (n != length)
        std::memset(dst + length, 0, n - length);
    return dst;
}

const char* KvCString::strstr(const char* hay, const char* needle) noexcept
{
    if (hay == nullptr || needle == nullptr || *hay == '\0')
        return nullptr;
    return std::strstr(hay, needle);
}

char* KvCString::strstr(char* hay, const char* needle) noexcept
{
    return const_cast<char*>(strstr(static_cast<const char*>(hay), needle));
}
