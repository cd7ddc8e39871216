#include "platform/errorhandling/KvCErrorList.h"

#include <charconv>
#include <cstdio>
#include <iterator>

#include "platform/errorhandling/ErrorEntry.h"
#include "platform/errorhandling/KvCErrorManager.h"

namespace {

std::mutex masterMutex;

constexpr KvUInt32 maximalArguments = 8;
constexpr std::size_t longestText = 0x1FFFFFF;

KvSErrorText textOf(const char* text)
{
    if (text == nullptr)
        return {"", 0};
    const std::size_t length = std::strlen(text);
    return {text, static_cast<KvUInt32>(length < longestText ? length : longestText)};
}

/** What a caller of setError gave, arguments rendered. */
class GivenTexts
{
public:
    GivenTexts(const char* origin, const char* argTypes, std::va_list& arguments)
        : m_texts{textOf(origin), textOf(argTypes)}
    {
        if (argTypes == nullptr)
            return;
        for (; argTypes[0] == '%' && argTypes[1] != '\0' && m_arguments < maximalArguments; argTypes += 2) {
            if (!take(argTypes[1], arguments))
                return;
        }
    }
    GivenTexts(const GivenTexts&) = delete;
    GivenTexts& operator=(const GivenTexts&) = delete;

    /** Access to the texts in order, as KvCErrorList::append takes it. */
    class Walk
    {
    public:
        explicit Walk(const GivenTexts& texts) : m_given(texts) {}
        KvUInt32 arguments() const { return m_given.m_arguments; }
        void restart() { m_next = 0; }
        KvSErrorText next() { return m_given.m_texts[m_next++]; }

    private:
        const GivenTexts& m_given;
        KvUInt32 m_next = 0;
    };

private:
    bool take(char kind, std::va_list& arguments)
    {
        if (kind == 's')
            add(textOf(va_arg(arguments, const char*)));
        else if (kind == 'u')
            addNumber(va_arg(arguments, KvUInt32), 10);
        else if (kind == 'x')
            addNumber(va_arg(arguments, KvUInt32), 16);
        else if (kind == 'd' || kind == 'i')
            addNumber(va_arg(arguments, KvInt32), 10);
        else
            return false;
        return true;
    }

    template <class Number>
    void addNumber(Number number, int base)
    {
        char* digits = m_digits[m_arguments];
        const std::to_chars_result end = std::to_chars(digits, digits + sizeof m_digits[0], number, base);
        add({digits, static_cast<KvUInt32>(end.ptr - digits)});
    }

    void add(KvSErrorText text) { m_texts[2 + m_arguments++] = text; }

    KvUInt32 m_arguments = 0;
    KvSErrorText m_texts[2 + maximalArguments];
    char m_digits[maximalArguments][12];
};

/** A text of the master list that this thread has been given. */
class ThreadText
{
public:
    ~ThreadText()
    {
        KvNAllocation::release(m_block);
        m_block = nullptr;
        m_room = 0;
    }
    /** Room for `bytes` bytes, null when memory is out; small ones never fail. */
    char* get(std::size_t bytes)
    {
        if (bytes <= sizeof m_small)
            return m_small;
        if (bytes > m_room) {
            char* block = static_cast<char*>(KvNAllocation::reallocate(m_block, bytes));
            if (block == nullptr)
                return nullptr;
            m_block = block;
            m_room = bytes;
        }
        return m_block;
    }

private:
    char* m_block = nullptr;
    std::size_t m_room = 0;
    char m_small[128];
};

thread_local ThreadText threadOrigin;
thread_local ThreadText threadText;

/** Where a placeholder stands in a text: the argument's number from 0, or -1 where there is none. */
int placeholderAt(const char* text, KvUInt32 arguments)
{
    if (text[0] != '%' || text[1] < '1' || text[1] > '5')
        return -1;
    const int number = text[1] - '1';
    return static_cast<KvUInt32>(number) < arguments ? number : -1;
}

}  // namespace

KvCErrorList::Lock::Lock(const KvCErrorList& list)
{
    if (list.m_kind == Kind::Master)
        m_lock = std::unique_lock<std::mutex>(masterMutex);
}

KvCErrorList::Entry::Replacements KvCErrorList::Entry::replacements() const
{
    Replacements made;
    const char* place = texts();
    next(place);
    next(place);
    for (KvUInt32 i = 0; i < arguments && i < std::size(made.texts); ++i) {
        made.texts[i] = next(place);
        made.texts[i].length = static_cast<KvUInt32>(std::strlen(made.texts[i].data));
    }
    return made;
}

std::size_t KvCErrorList::Entry::renderedSize(const char* text) const
{
    const Replacements given = replacements();
    std::size_t size = 1;
    while (*text != '\0') {
        const int number = placeholderAt(text, arguments);
        size += number < 0 ? 1 : given.texts[number].length;
        text += number < 0 ? 1 : 2;
    }
    return size;
}

void KvCErrorList::Entry::render(const char* text, char* target) const
{
    const Replacements given = replacements();
    while (*text != '\0') {
        const int number = placeholderAt(text, arguments);
        if (number < 0) {
            *target++ = *text++;
            continue;
        }
        std::memcpy(target, given.texts[number].data, given.texts[number].length);
        target += given.texts[number].length;
        text += 2;
    }
    *target = '\0';
}

const char* KvCErrorList::Entry::unknown()
{
    static_assert(sizeof withoutText >= sizeof "Unknown message 0xffffffff.");
    std::snprintf(withoutText, sizeof withoutText, "Unknown message 0x%x.", static_cast<unsigned int>(code));
    return withoutText;
}

KvCErrorList::~KvCErrorList()
{
    drop();
}

void KvCErrorList::setError(KvUInt32 code, unsigned long line, const char* origin, const char* argTypes, ...)
{
    std::va_list arguments;
    va_start(arguments, argTypes);
    setErrorV(code, line, origin, argTypes, arguments);
    va_end(arguments);
}

void KvCErrorList::setErrorV(KvUInt32 code, unsigned long line, const char* origin, const char* argTypes,
                             std::va_list arguments)
{
    std::va_list own;
    va_copy(own, arguments);
    const GivenTexts texts(origin, argTypes, own);
    va_end(own);
    const Lock lock(*this);
    append(code, line, GivenTexts::Walk(texts));
}

KvUInt32 KvCErrorList::getErrorCode(KvUInt32 i) const
{
    const Lock lock(*this);
    const Entry* entry = find(i);
    return entry == nullptr ? 0 : entry->code;
}

unsigned long KvCErrorList::getErrorLine(KvUInt32 i) const
{
    const Lock lock(*this);
    const Entry* entry = find(i);
    return entry == nullptr ? 0 : entry->line;
}

const char* KvCErrorList::getErrorOrigin(KvUInt32 i) const
{
    const Lock lock(*this);
    const Entry* entry = find(i);
    if (entry == nullptr)
        return "";
    if (m_kind != Kind::Master)
        return entry->origin();
    const std::size_t bytes = std::strlen(entry->origin()) + 1;
    char* text = threadOrigin.get(bytes);
    return text == nullptr ? "" : static_cast<const char*>(std::memcpy(text, entry->origin(), bytes));
}

const char* KvCErrorList::getErrorText(KvUInt32 i) const
{
    const Lock lock(*this);
    Entry* entry = find(i);
    if (entry == nullptr)
        return "";
    if (m_kind != Kind::Master && entry->rendered != nullptr)
        return entry->rendered;
    const char* text = KvCErrorManager::getMessageText(entry->code);
    if (m_kind == Kind::Master) {
        if (text == nullptr) {
            text = entry->unknown();
            return std::strcpy(threadText.get(sizeof entry->withoutText), text);
        }
        char* target = threadText.get(entry->renderedSize(text));
        if (target == nullptr)
            return text;
        entry->render(text, target);
        return target;
    }
    if (text == nullptr)
        return entry->unknown();
    char* target = static_cast<char*>(KvNAllocation::allocate(entry->renderedSize(text)));
    if (target == nullptr)
        return text;
    entry->render(text, target);
    entry->rendered = target;
    return target;
}

void KvCErrorList::clear()
{
    const Lock lock(*this);
    drop();
}

void KvCErrorList::takeOver(KvCErrorList& other) noexcept
{
    const Lock lock(*this);
    const KvUInt32 before = getErrorCount();
    const KvUInt32 reported = other.getErrorCount();
    const auto numberOf = [before](KvUInt32 i) { return i > 0xFFFFFFFF - before ? 0xFFFFFFFF : before + i; };
    makeRoom(m_kept + other.m_kept < m_limit ? m_kept + other.m_kept : m_limit);
    KvUInt32 moved = 0;
    other.visit([&](Entry& entry) {
        const bool own = &entry != other.spare();
        moved += own ? 1 : 0;
        if (own && kept() < m_limit && makeRoom(m_kept + 1)) {
            entry.index = numberOf(entry.index);
            m_entries[m_kept++] = &entry;
            other.m_entries[moved - 1] = nullptr;
            return;
        }
        m_count.store(numberOf(entry.index), std::memory_order_relaxed);
        append(entry.code, entry.line, Entry::Walk(entry));
    });
    m_count.store(numberOf(reported), std::memory_order_relaxed);
    other.drop();
}

void KvCErrorList::reserve(KvUInt32 entries) noexcept
{
    const KvUInt32 most = m_limit < defaultLimit ? m_limit : defaultLimit;
    makeRoom(entries < most ? entries : most);
}

void KvCErrorList::moveTo(KvCErrorList& target) noexcept
{
    const Lock lock(*this);
    target.m_count.store(getErrorCount(), std::memory_order_relaxed);
    target.m_kept = m_kept;
    target.m_room = m_room;
    target.m_entries = m_entries;
    target.m_spareUsed = m_spareUsed;
    if (m_spareUsed)
        std::memcpy(target.m_spare, m_spare, spareBytes);
    m_entries = nullptr;
    m_kept = 0;
    m_room = 0;
    m_spareUsed = false;
    m_count.store(0, std::memory_order_relaxed);
}

KvCErrorList::Entry* KvCErrorList::find(KvUInt32 i) const noexcept
{
    if (m_spareUsed && spare()->index == i)
        return spare();
    // Without gaps, the usual case, the entry stands at its number; with gaps, before it.
    KvUInt32 low = 0;
    KvUInt32 high = m_kept;
    if (i < m_kept) {
        if (m_entries[i]->index == i)
            return m_entries[i];
        high = i;
    }
    while (low < high) {
        const KvUInt32 middle = low + (high - low) / 2;
        if (m_entries[middle]->index == i)
            return m_entries[middle];
        if (m_entries[middle]->index < i)
            low = middle + 1;
        else
            high = middle;
    }
    return nullptr;
}

bool KvCErrorList::makeRoom(KvUInt32 entries) noexcept
{
    if (entries <= m_room)
        return true;
    KvUInt32 room = m_growth != 0 ? m_growth : (m_room == 0 ? 8 : m_room);
    room = room > 0xFFFFFFFF - m_room ? 0xFFFFFFFF : m_room + room;
    room = room < entries ? entries : room;
    room = room > m_limit ? m_limit : room;
    if (room > static_cast<std::size_t>(-1) / sizeof(Entry*))
        return false;
    void* block = KvNAllocation::reallocate(m_entries, room * sizeof(Entry*));
    if (block == nullptr)
        return false;
    m_entries = static_cast<Entry**>(block);
    m_room = room;
    return true;
}

void KvCErrorList::drop() noexcept
{
    if (m_spareUsed)
        KvNAllocation::release(spare()->rendered);
    for (KvUInt32 i = 0; i < m_kept; ++i) {
        if (m_entries[i] != nullptr)  // null: another list has taken it over
            KvNAllocation::release(m_entries[i]->rendered);
        KvNAllocation::release(m_entries[i]);
    }
    KvNAllocation::release(m_entries);
    m_entries = nullptr;
    m_kept = 0;
    m_room = 0;
    m_spareUsed = false;
    m_count.store(0, std::memory_order_relaxed);
}
