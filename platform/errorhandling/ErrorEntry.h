#pragma once

#include <cstring>
#include <mutex>

#include "platform/errorhandling/KvCErrorList.h"

/** A text by place and length; it may hold NULs. */
struct KvSErrorText
{
    const char* data;
    KvUInt32 length;
};

/**
 * An entry as a list keeps it, in one piece of memory: this head, and behind it the origin, the argument types and the
 * arguments, already rendered, each as its length (32 bits), its bytes and a NUL.
 */
struct KvCErrorList::Entry
{
    KvUInt32 index;  ///< its number in the list
    KvUInt32 code;
    unsigned long line;
    KvUInt32 arguments;
    char* rendered;        ///< the whole message once it was asked for; owned
    char withoutText[32];  ///< what a code without a text is shown as

    /** Bytes that a text of this length takes in an entry. */
    static constexpr std::size_t bytesOf(std::size_t length) { return sizeof(KvUInt32) + length + 1; }

    char* texts() { return reinterpret_cast<char*>(this + 1); }
    const char* texts() const { return reinterpret_cast<const char*>(this + 1); }

    /** The text at `place`, which moves on to the next one. */
    static KvSErrorText next(const char*& place)
    {
        KvSErrorText text{};
        std::memcpy(&text.length, place, sizeof text.length);
        text.data = place + sizeof text.length;
        place += bytesOf(text.length);
        return text;
    }

    static void put(char*& place, KvSErrorText text)
    {
        std::memcpy(place, &text.length, sizeof text.length);
        if (text.length != 0)
            std::memcpy(place + sizeof text.length, text.data, text.length);
        place[sizeof text.length + text.length] = '\0';
        place += bytesOf(text.length);
    }

    /** Access to the texts in order, as KvCErrorList::append takes it. */
    class Walk
    {
    public:
        explicit Walk(const Entry& entry) : m_entry(entry), m_place(entry.texts()) {}
        KvUInt32 arguments() const { return m_entry.arguments; }
        void restart() { m_place = m_entry.texts(); }
        KvSErrorText next() { return Entry::next(m_place); }

    private:
        const Entry& m_entry;
        const char* m_place;
    };

    const char* origin() const { return texts() + sizeof(KvUInt32); }

    /** What the placeholders %1 to %5 stand for: the arguments up to their first NUL. */
    struct Replacements
    {
        KvSErrorText texts[5] = {};
    };
    Replacements replacements() const;

    /** Bytes of the message made of the text `text`, its NUL among them. */
    std::size_t renderedSize(const char* text) const;
    void render(const char* text, char* target) const;
    /** What stands for the message of a code without a text. */
    const char* unknown();
};

/** Held while a list is used: the master list's mutex, nothing for other lists. */
class KvCErrorList::Lock
{
public:
    explicit Lock(const KvCErrorList& list);

private:
    std::unique_lock<std::mutex> m_lock;
};

inline KvCErrorList::Entry* KvCErrorList::spare() const noexcept
{
    return reinterpret_cast<Entry*>(m_spare);
}

/** Calls `visitor(entry)` for each entry that was kept, in order. */
template <class Visitor>
void KvCErrorList::visit(Visitor&& visitor) const
{
    bool pending = m_spareUsed;
    for (KvUInt32 i = 0; i < m_kept; ++i) {
        if (pending && spare()->index < m_entries[i]->index) {
            visitor(*spare());
            pending = false;
        }
        visitor(*m_entries[i]);
    }
    if (pending)
        visitor(*spare());
}

/** Appends an entry. `texts` is asked twice: `restart()` begins with the origin, each `next()` gives one text more (the
    origin, the argument types, each argument), `arguments()` is the number of arguments. */
template <class Texts>
void KvCErrorList::append(KvUInt32 code, unsigned long line, Texts texts) noexcept
{
    const KvUInt32 index = m_count.load(std::memory_order_relaxed);
    if (index != 0xFFFFFFFF)
        m_count.store(index + 1, std::memory_order_relaxed);
    if (kept() >= m_limit)
        return;

    const KvUInt32 textCount = texts.arguments() + 2;
    std::size_t bytes = sizeof(Entry);
    texts.restart();
    for (KvUInt32 i = 0; i < textCount; ++i)
        bytes += Entry::bytesOf(texts.next().length);

    texts.restart();
    if (makeRoom(m_kept + 1)) {
        if (void* block = KvNAllocation::allocate(bytes)) {
            Entry* entry = new (block) Entry{index, code, line, textCount - 2, nullptr, {}};
            char* place = entry->texts();
            for (KvUInt32 i = 0; i < textCount; ++i)
                Entry::put(place, texts.next());
            m_entries[m_kept++] = entry;
            return;
        }
    }
    if (m_spareUsed)
        return;

    // Texts are cut here to what fits, arguments that do not fit at all are left out.
    m_spareUsed = true;
    Entry* entry = new (static_cast<void*>(m_spare)) Entry{index, code, line, 0, nullptr, {}};
    char* place = entry->texts();
    const char* const end = reinterpret_cast<const char*>(m_spare) + spareBytes;
    constexpr KvUInt32 longest[] = {79, 15, 63};
    for (KvUInt32 i = 0; i < textCount; ++i) {
        KvSErrorText text = texts.next();
        const KvUInt32 limit = longest[i < 2 ? i : 2];
        text.length = text.length < limit ? text.length : limit;
        if (Entry::bytesOf(text.length) > static_cast<std::size_t>(end - place))
            break;
        Entry::put(place, text);
        entry->arguments = i < 2 ? 0 : i - 1;
    }
}
