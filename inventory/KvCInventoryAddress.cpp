#include "inventory/KvCInventoryAddress.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/Report.h"
#include "inventory/KvCInventoryTagMap.h"
#include "inventory/ids/KvNInventoryIDs.h"

namespace {

constexpr KvUInt32 largestNumber = 0xFFFFFFFF;
/** Ten digits of an unnamed category, "[", ten digits, "]", "/" and a NUL. */
constexpr unsigned int numbersRoom = 24;

/** Value of a digit in any base up to 36; 36 for anything else. */
unsigned int digitValue(char c)
{
    if (c >= '0' && c <= '9')
        return static_cast<unsigned int>(c - '0');
    if (c >= 'a' && c <= 'z')
        return static_cast<unsigned int>(c - 'a') + 10;
    if (c >= 'A' && c <= 'Z')
        return static_cast<unsigned int>(c - 'A') + 10;
    return 36;
}

bool isBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/** What strtoul makes of the text in [text, end) in automatic base, with the same result on every host: a number beyond
    32 bits is 4294967295, a negative one is counted back from 2^32. */
KvUInt32 readNumber(const char* text, const char* end)
{
    while (text < end && isBlank(*text))
        ++text;
    bool negative = false;
    if (text < end && (*text == '+' || *text == '-'))
        negative = *text++ == '-';
    unsigned int base = 10;
    if (text < end && *text == '0') {
        base = 8;
        if (end - text > 2 && (text[1] == 'x' || text[1] == 'X') && digitValue(text[2]) < 16) {
            base = 16;
            text += 2;
        }
    }
    KvUInt64 value = 0;
    for (; text < end && digitValue(*text) < base; ++text) {
        value = value * base + digitValue(*text);
        if (value > largestNumber)
            return largestNumber;
    }
    return static_cast<KvUInt32>(negative ? 0 - value : value);
}

/** The first place in [text, end) of either character; `end` when there is none. */
const char* findEither(const char* text, const char* end, char one, char other)
{
    return std::find_if(text, end, [=](char c) { return c == one || c == other; });
}

/** Writes one element and gives the number of characters. The first call without `target` tells the room. */
std::size_t writeElement(char* target, KvUInt32 category, KvUInt32 index)
{
    char numbers[numbersRoom];
    const char* name = KvNInventoryIDs::Map.get(category);
    if (name == nullptr) {
        std::snprintf(numbers, sizeof numbers, "%lu", static_cast<unsigned long>(category));
        name = numbers;
    }
    const std::size_t nameLength = std::strlen(name);
    if (target != nullptr)
        std::memcpy(target, name, nameLength);
    if (index == 1)
        return nameLength;
    char indexText[numbersRoom];
    const int indexLength = std::snprintf(indexText, sizeof indexText, "[%lu]", static_cast<unsigned long>(index));
    if (target != nullptr)
        std::memcpy(target + nameLength, indexText, static_cast<std::size_t>(indexLength));
    return nameLength + static_cast<std::size_t>(indexLength);
}

}  // namespace

KvCInventoryAddress::KvCInventoryAddress(const KvCInventoryAddress& other) : KvCInventoryAddress()
{
    append(other);
}

KvCInventoryAddress::KvCInventoryAddress(KvCInventoryAddress&& other) noexcept : KvCInventoryAddress()
{
    take(other);
}

KvCInventoryAddress KvCInventoryAddress::of(const Element* first, KvUInt32 count)
{
    KvCInventoryAddress address;
    address.append(first, count);
    return address;
}

KvCInventoryAddress KvCInventoryAddress::fromPairs(const KvUInt32* pairs, KvUInt32 count)
{
    KvCInventoryAddress address;
    if (!address.reserve(count))
        return address;
    for (KvUInt32 i = 0; i < count; ++i)
        address.elements()[i] = {pairs[2 * std::size_t{i}], pairs[2 * std::size_t{i} + 1]};
    address.m_length = count;
    return address;
}

KvCInventoryAddress& KvCInventoryAddress::operator=(const KvCInventoryAddress& other)
{
    if (this == &other)
        return *this;
    clear();
    append(other);
    return *this;
}

KvCInventoryAddress& KvCInventoryAddress::operator=(KvCInventoryAddress&& other) noexcept
{
    if (this == &other)
        return *this;
    if (m_capacity != kInline)
        release();
    take(other);
    return *this;
}

/** For an address that owns no block. */
void KvCInventoryAddress::take(KvCInventoryAddress& other) noexcept
{
    m_length = other.m_length;
    m_capacity = other.m_capacity;
    if (m_capacity == kInline)
        std::copy(other.m_inline, other.m_inline + kInline, m_inline);
    else
        m_heap = other.m_heap;
    other.m_length = 0;
    other.m_capacity = kInline;
}

void KvCInventoryAddress::release() noexcept
{
    KvNAllocation::release(m_heap);
    m_capacity = kInline;
    m_length = 0;
}

/** Makes room for `length` elements; empties the address when there is none. */
bool KvCInventoryAddress::reserve(KvUInt32 length)
{
    if (length <= m_capacity)
        return true;
    const KvUInt32 capacity = length < largestNumber / 2 ? std::max(length, 2 * m_capacity) : length;
    const std::size_t limit = static_cast<std::size_t>(-1) / sizeof(Element);
    auto* block =
        capacity > limit ? nullptr : static_cast<Element*>(KvNAllocation::allocate(capacity * sizeof(Element)));
    if (block == nullptr) {
        clear();
        KV_REPORT(KvNReport::masterList(), OutOfMemory, "KvCInventoryAddress::append");
        return false;
    }
    std::copy(elements(), elements() + m_length, block);
    if (m_capacity != kInline)
        KvNAllocation::release(m_heap);
    m_heap = block;
    m_capacity = capacity;
    return true;
}

bool KvCInventoryAddress::append(const Element* first, KvUInt32 count)
{
    if (count > largestNumber - m_length || !reserve(m_length + count)) {
        clear();
        return false;
    }
    std::copy(first, first + count, elements() + m_length);
    m_length += count;
    return true;
}

bool KvCInventoryAddress::operator==(const KvCInventoryAddress& other) const
{
    return m_length == other.m_length &&
           (m_length == 0 || std::memcmp(elements(), other.elements(), m_length * sizeof(Element)) == 0);
}

KvCInventoryAddress KvCInventoryAddress::operator[](KvUInt32 index) const
{
    KvCInventoryAddress result(*this);
    if (!result.isEmpty())
        result.elements()[result.m_length - 1].index = index;
    return result;
}

KvCInventoryAddress KvCInventoryAddress::operator/(const KvCInventoryAddress& tail) const
{
    KvCInventoryAddress result;
    if (tail.m_length > largestNumber - m_length || !result.reserve(m_length + tail.m_length))
        return result;
    result.append(*this);
    result.append(tail);
    return result;
}

KvCString KvCInventoryAddress::getCategoryName() const
{
    return KvCString(KvNInventoryIDs::Map.get(getCategory()));
}

KvCInventoryAddress KvCInventoryAddress::getFirstElement() const
{
    return of(elements(), std::min<KvUInt32>(m_length, 1));
}

KvCInventoryAddress KvCInventoryAddress::getLastElement() const
{
    return isEmpty() ? KvCInventoryAddress() : KvCInventoryAddress(getCategory(), getIndex());
}

KvCInventoryAddress KvCInventoryAddress::getHeadAddress() const
{
    return m_length < 2 ? KvCInventoryAddress() : of(elements(), m_length - 1);
}

KvCInventoryAddress KvCInventoryAddress::getSubAddress() const
{
    return m_length < 2 ? KvCInventoryAddress() : of(elements() + 1, m_length - 1);
}

bool KvCInventoryAddress::isPrefix(const KvCInventoryAddress& prefix) const
{
    return m_length > prefix.m_length &&
           (prefix.isEmpty() || std::memcmp(elements(), prefix.elements(), prefix.m_length * sizeof(Element)) == 0);
}

void KvCInventoryAddress::removePrefix(const KvCInventoryAddress& prefix)
{
    Element* own = elements();
    const Element* other = prefix.elements();
    const KvUInt32 limit = std::min(m_length, prefix.m_length);
    KvUInt32 matched = 0;
    while (matched < limit && own[matched].category == other[matched].category &&
           own[matched].index == other[matched].index)
        ++matched;
    std::copy(own + matched, own + m_length, own);
    m_length -= matched;
}

KvCString KvCInventoryAddress::toString() const
{
    if (isEmpty())
        return KvCString();
    const Element* all = elements();
    std::size_t room = m_length;
    for (KvUInt32 i = 0; i < m_length; ++i)
        room += writeElement(nullptr, all[i].category, all[i].index);
    char area[256];
    const bool isLong = room > sizeof area;
    char* text = isLong ? static_cast<char*>(KvNAllocation::allocate(room)) : area;
    if (text == nullptr || room > largestNumber) {
        KvNAllocation::release(text);
        KV_REPORT(KvNReport::masterList(), OutOfMemory, "KvCInventoryAddress::toString");
        return KvCString();
    }
    char* end = text;
    for (KvUInt32 i = 0; i < m_length; ++i) {
        end += writeElement(end, all[i].category, all[i].index);
        *end++ = '/';
    }
    KvCString result(text, static_cast<unsigned int>(end - text - 1));
    if (isLong)
        KvNAllocation::release(text);
    return result;
}

void KvCInventoryAddress::readFromString(const KvCString& text)
{
    clear();
    const char* next = text.c_str();
    const char* const end = next + text.length();
    while (next < end) {
        const char* const token = next;
        next = findEither(token, end, '/', '[');
        const std::size_t length = static_cast<std::size_t>(next - token);
        Element element = {0, 1};
        if (length > 0 && *token >= '0' && *token <= '9')
            element.category = readNumber(token, next);
        else
            element.category = KvNInventoryIDs::Map.find(token, length);
        if (next < end && *next == '[') {
            const char* const number = ++next;
            next = std::find(number, end, ']');
            element.index = readNumber(number, next);
            next += next < end ? 1 : 0;
        }
        if (next < end && *next == '/')
            ++next;
        if (element.category == 0) {
            clear();
            return;
        }
        if (!append(&element, 1))
            return;
    }
}

void KvCInventoryAddress::print() const
{
    std::printf("%s\n", toString().c_str());
}
