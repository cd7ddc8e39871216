#pragma once

#include <climits>
#include <cstddef>
#include <cstring>

#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

/**
 * The library's narrow-character string: a value that is copied deep. It is 16 bytes; texts of up to 15 characters
 * stand inside it, longer ones in a block of their own. When that block cannot be had the string is empty and 0x603000
 * is on the master list. Bytes have no meaning here; a NUL ends the text. The static helpers are those of the C
 * library, but safe with null pointers (except strcmp).
 */
class KV_EXPORT KvCString : public KvNAllocation::ObjectOf<KvCString>
{
public:
    /** The empty text. */
    KvCString() noexcept = default;
    /** A copy of the text `s`; null is the empty text. */
    KvCString(const char* s);
    /** At most `n` bytes of `s`, fewer when a NUL stands among them; `s` needs no NUL within `n` bytes. */
    KvCString(const char* s, unsigned int n);
    /** The number in decimal. */
    KvCString(unsigned long value);
    KvCString(const KvCString& other) : m_bytes{}
    {
        if (other.isLong())
            copyLong(other, "KvCString::KvCString");
        else
            std::memcpy(m_bytes, other.m_bytes, sizeof m_bytes);
    }
    KvCString(KvCString&& other) noexcept
    {
        std::memcpy(m_bytes, other.m_bytes, sizeof m_bytes);
        std::memset(other.m_bytes, 0, sizeof other.m_bytes);
    }
    ~KvCString()
    {
        if (isLong())
            KvNAllocation::release(block());
    }

    /** The text of `length` bytes, none of them NUL, in a block of KvNAllocation with room for at least one byte more,
        which the string takes over. */
    static KvCString fromBlock(char* block, unsigned int length) noexcept;

    KvCString& operator=(const KvCString& other);
    /** Kept: the old text is released before `s` is read, so `s` must not point into this string. */
    KvCString& operator=(const char* s);
    KvCString& operator=(KvCString&& other) noexcept;

    bool operator==(const KvCString& other) const noexcept;
    bool operator!=(const KvCString& other) const noexcept { return !(*this == other); }

    /** This text followed by the other's. */
    KvCString operator+(const KvCString& other) const;
    KvCString operator+(const char* other) const;

    /** The text, never null; valid until the string changes. */
    const char* c_str() const noexcept { return isLong() ? block() : m_bytes; }
    /** Bytes before the NUL. */
    unsigned int length() const noexcept
    {
        if (!isLong())
            return static_cast<unsigned int>(std::strlen(m_bytes));
        unsigned int stored;
        std::memcpy(&stored, m_bytes + lengthAt, sizeof stored);
        return stored;
    }
    /** Bytes equal to `c`. */
    unsigned int countChar(char c) const noexcept;

    /** The pieces between the separators, empty ones included: always one more than there are separators, their number
        in `*count`. The caller releases the array with `delete[]`. Null and 0 when memory for the array is out. */
    KvCString* split(char sep, unsigned long* count) const;
#if ULONG_MAX != 0xFFFFFFFFUL
    /** The same for a count of 32 bits. */
    KvCString* split(char sep, KvUInt32* count) const
    {
        unsigned long pieces;
        KvCString* array = split(sep, &pieces);
        *count = static_cast<KvUInt32>(pieces);
        return array;
    }
#endif

    /** The difference of the first differing bytes, as signed 8-bit values on every host. Neither may be null. */
    static int strcmp(const char* a, const char* b) noexcept;
    /** Copies `src` with its NUL; null is the empty text. */
    static char* strcpy(char* dst, const char* src) noexcept;
    /** 0 for null. */
    static unsigned int strlen(const char* s) noexcept;
    /** Copies `src` up to its NUL or `n` bytes, and fills what is left of `n` bytes with zeros; null is the empty text.
        No NUL is written when `src` has `n` bytes or more. */
    static char* strncpy(char* dst, const char* src, unsigned int n) noexcept;
    /** The first place of `needle` in `hay`; null when there is none, when either is null, and when `hay` is empty,
       even for an empty needle. */
    static char* strstr(char* hay, const char* needle) noexcept;
    static const char* strstr(const char* hay, const char* needle) noexcept;

private:
    // A short text fills m_bytes from the start, all bytes behind it 0. Of a long one m_bytes holds the pointer to its
    // block, its length, and a last byte that is not 0.
    static constexpr std::size_t capacity = 15;
    static constexpr std::size_t lengthAt = 8;

    bool isLong() const noexcept
    {
        return m_bytes[capacity] != 0;
    }
    char* block() const noexcept
    {
        char* pointer;
        std::memcpy(&pointer, m_bytes, sizeof pointer);
        return pointer;
    }
    char* make(std::size_t length, const char* origin);
    void hold(char* pointer, std::size_t length) noexcept;
    void set(const char* s, std::size_t length, const char* origin);
    void copyLong(const KvCString& other, const char* origin);
    KvCString joined(const char* other, std::size_t otherLength) const;
    void clear() noexcept;

    alignas(void*) char m_bytes[capacity + 1] = {};
};

static_assert(sizeof(KvCString) == 16 && sizeof(void*) <= 8);
