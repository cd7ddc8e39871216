#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/Report.h"
#include "base/ShortCopy.h"
#include "composite/CompositeWalk.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/ids/KvNInventoryIDs.h"

/*
 * The text form of a tree. One writer for both forms: markup, and plain lines.
 */
using namespace KvNInventoryItem;

namespace {

constexpr std::size_t firstBlock = 1024;
constexpr std::size_t largestText = 0xFFFFFFFE;
constexpr int blanksPerLevel = 4;

}  // namespace

/** Where the text goes: standard output, or a block that grows. After a failure every write fails. */
class KvCInventoryItem::MyStream
{
public:
    enum class Mode : KvUInt32
    {
        Collect = 0,
        Print = 1,
    };

    explicit MyStream(Mode mode) : m_mode(mode)
    {
        if (m_mode == Mode::Collect) {
            m_buffer = static_cast<char*>(KvNAllocation::allocate(firstBlock));
            m_capacity = m_buffer == nullptr ? 0 : firstBlock;
        }
    }
    MyStream(const MyStream&) = delete;
    MyStream& operator=(const MyStream&) = delete;
    ~MyStream() { KvNAllocation::release(m_buffer); }

    bool write(const char* text, std::size_t length) { return put(text, length, copyShort); }
    bool write(std::string_view text) { return write(text.data(), text.size()); }
    /** For a text of few bytes whose number the compiler may know. */
    bool literal(std::string_view text) { return put(text.data(), text.size(), std::memcpy); }
    bool number(KvUInt32 value)
    {
        char digits[16];  // a whole piece of copyShort
        const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value);
        return write(digits, static_cast<std::size_t>(end.ptr - digits));
    }

    std::size_t size() const { return m_used; }
    /** The block that holds the text and has room for its NUL; the caller's from now on, null after a failure. */
    char* takeBlock() { return std::exchange(m_buffer, nullptr); }

private:
    template <class Copy>
    bool put(const char* text, std::size_t length, Copy copy)
    {
        if (m_mode == Mode::Print)
            return std::fwrite(text, 1, length, stdout) == length;
        if (m_buffer == nullptr || (m_capacity - m_used <= length && !grow(length)))
            return false;
        copy(m_buffer + m_used, text, length);
        m_used += length;
        return true;
    }
    /** Makes room for `length` more bytes, and for half of what there is so that a long text costs linear time. */
    bool grow(std::size_t length)
    {
        const std::size_t capacity = m_capacity + std::max(m_capacity / 2, firstBlock + length);
        void* block = m_used + length > largestText ? nullptr : KvNAllocation::reallocate(m_buffer, capacity);
        if (block == nullptr) {
            KvNAllocation::release(m_buffer);
            m_buffer = nullptr;
            m_capacity = 0;
            m_used = 0;
            return false;
        }
        m_buffer = static_cast<char*>(block);
        m_capacity = capacity;
        return true;
    }

    const Mode m_mode;
    char* m_buffer = nullptr;
    std::size_t m_capacity = 0;
    std::size_t m_used = 0;
};

/** Writes one tree with one set of flags; each operation is false as soon as a write fails. */
class KvCInventoryItem::TextWriter
{
public:
    TextWriter(KvCErrorListPool& errors, int flags, MyStream& stream)
        : m_errors(errors), m_stream(stream), m_flags(flags), m_step(has(TextFlat) ? 0 : 1), m_isPlain(has(TextPlain))
    {}

    bool tree(const KvCInventoryItem& root, int level)
    {
        return KvNCompositeWalk::walk(
            &root,
            [&](const KvCInventoryItem* item) {
                if (!start(*item, level))
                    return false;
                level += m_step;
                return true;
            },
            [&](const KvCInventoryItem* item) {
                level -= m_step;
                return end(*item, level);
            });
    }

private:
    bool has(int flag) const { return (m_flags & flag) != 0; }
    bool hasAll(int flags) const { return (m_flags & flags) == flags; }
    bool text(std::string_view piece) { return m_stream.write(piece); }
    /** A piece of the markup, left out in the plain form. */
    bool tag(std::string_view piece) { return m_isPlain || text(piece); }

    bool indent(int level)
    {
        static constexpr char blanks[] = "                                                                ";
        constexpr KvInt64 most = sizeof blanks - 1;
        for (KvInt64 left = static_cast<KvInt64>(level) * blanksPerLevel; left > 0; left -= most)
            if (!m_stream.write(blanks, static_cast<std::size_t>(std::min(left, most))))
                return false;
        return true;
    }

    /** The name of an ID: number, registered name, or what stands in for a missing name. */
    bool name(KvUInt32 category, const char* description)
    {
        const char* registered = KvNInventoryIDs::Map.get(category);
        if (!has(TextNumericIds)) {
            if (registered != nullptr && *registered != '\0')
                return text(registered);
            if (!has(TextUnnamedAsNumber))
                return text(description);
        }
        return m_stream.number(category);
    }

    bool isDescribed(KvUInt32 category, int suppress, int always) const
    {
        if (has(suppress))
            return false;
        const char* registered = KvNInventoryIDs::Map.get(category);
        return has(always) || registered == nullptr || *registered == '\0';
    }

    /** ` ATTRIBUTE="`; in the plain form a blank when something stands before it. */
    bool openAttribute(std::string_view opening, bool isBehindText)
    {
        return m_isPlain ? !isBehindText || text(" ") : text(opening);
    }

    bool start(const KvCInventoryItem& item, int level)
    {
        if (!itemHeader(item, level))
            return false;
        if (has(TextNoParameters))
            return true;
        return item.forEachParameter([&](const KvCInventoryParameter& one) { return parameter(one, level); });
    }

    bool itemHeader(const KvCInventoryItem& item, int level)
    {
        if (has(TextNoItemLines) || hasAll(TextPlain | TextNoItemId | TextNoItemDescription))
            return true;
        const bool isDescriptionShown = isDescribed(item.getClassId(), TextNoItemDescription, TextItemDescription);
        return indent(level) && tag("<ITEM") && (has(TextNoItemId) || itemId(item)) &&
               (!isDescriptionShown ||
                (openAttribute(" Descr=\"", !has(TextNoItemId)) && text(item.getDescription()) && tag("\""))) &&
               tag(">") && text("\n");
    }

    bool itemId(const KvCInventoryItem& item)
    {
        if (!openAttribute(" ID=\"", false) || !name(item.getClassId(), item.getDescription()))
            return false;
        const KvUInt32 index = item.getUnitId();
        if ((index != 1 || has(TextIndexAlways)) && !(text(has(TextDottedIndex) ? "." : "[") &&
                                                      m_stream.number(index) && text(has(TextDottedIndex) ? "" : "]")))
            return false;
        return tag("\"");
    }

    bool end(const KvCInventoryItem&, int level)
    {
        return has(TextNoItemLines) || m_isPlain || (indent(level) && text("</ITEM>\n"));
    }

    bool parameter(const KvCInventoryParameter& one, int level)
    {
        const int outer = level + m_step;
        const int inner = level + 2 * m_step;
        return parameterHeader(one, outer) && (has(TextNoValue) || valueLine(one, level)) &&
               (has(TextNoUnit) || (*one.getUnit() == '\0' && !has(TextEmptyUnit)) ||
                line(inner, "<UNIT>", one.getUnit(), "</UNIT>")) &&
               (has(TextNoModifiable) ||
                line(inner, "<ISMODIFIABLE>", one.isModifiable() ? "Yes" : "No", "</ISMODIFIABLE>")) &&
               (has(TextNoRelevance) || relevanceLine(one, inner)) &&
               (m_isPlain || (indent(outer) && text("</PARAM>\n")));
    }

    bool parameterHeader(const KvCInventoryParameter& one, int level)
    {
        if (hasAll(TextPlain | TextNoParameterId | TextNoParameterDescription | TextNoType))
            return true;
        const char* description = one.getDescription() == nullptr ? "" : one.getDescription();
        const bool isIdShown = !has(TextNoParameterId);
        const bool isDescriptionShown = isDescribed(one.getId(), TextNoParameterDescription, TextParameterDescription);
        return indent(level) && tag("<PARAM") &&
               (!isIdShown || (openAttribute(" ID=\"", false) && name(one.getId(), description) && tag("\""))) &&
               (!isDescriptionShown || (openAttribute(" Descr=\"", isIdShown) && text(description) && tag("\""))) &&
               (has(TextNoType) ||
                (openAttribute(" Type=\"", !hasAll(TextNoParameterId | TextNoParameterDescription)) &&
                 text(one.getTypeAsString().c_str()) && tag("\""))) &&
               tag(">") && text("\n");
    }

    bool line(int level, std::string_view opening, std::string_view content, std::string_view closing)
    {
        return indent(level) && tag(opening) && text(content) && tag(closing) && text("\n");
    }

    bool relevanceLine(const KvCInventoryParameter& one, int level)
    {
        return indent(level) && tag("<RELEVANCE>") && m_stream.number(one.getRelevance()) && tag("</RELEVANCE>") &&
               text("\n");
    }

    bool valueLine(const KvCInventoryParameter& one, int level)
    {
        const int inner = level + 2 * m_step;
        if (!indent(inner) || !tag("<VALUE>"))
            return false;
        if (const KvCString* value = one.valueIf<KvCString>()) {
            if (!stringValue(value->c_str(), value->length(), level))
                return false;
        } else {
            const KvCString number = one.getValueAsString(m_errors);
            const bool isLost = number.length() == 0 &&
                                (KvNElement::isScalar(one.getType()) || one.getType() == KvNElement::KvCVersionCode);
            if (isLost || !text(number.c_str()))
                return false;
        }
        return tag("</VALUE>") && text("\n");
    }

    bool stringValue(const char* value, std::size_t length, int level)
    {
        const char* const end = value + length;
        if (has(TextNoLineSplit) || std::memchr(value, '\n', length) == nullptr)
            return escaped(value, end, end);
        const int deepest = level + 3 * m_step;
        if (!text("\n"))
            return false;
        while (const void* found = std::memchr(value, '\n', static_cast<std::size_t>(end - value))) {
            const char* const behind = static_cast<const char*>(found) + 1;
            if (!indent(deepest) || !escaped(value, behind, end))
                return false;
            value = behind;
        }
        if (value != end && !(indent(deepest) && escaped(value, end, end) && text("\n")))
            return false;
        return m_isPlain || indent(level + 2 * m_step);
    }

    /** The bytes of [first, last), a part of the value that ends at `end`, with what markup cannot hold replaced. */
    bool escaped(const char* first, const char* last, const char* end)
    {
        if (has(TextRaw))
            return m_stream.write(first, static_cast<std::size_t>(last - first));
        const char* written = first;
        for (const char* next = first; next < last; ++next) {
            const char* const replacement = replacementOf(next, end);
            if (replacement == nullptr)
                continue;
            if (!m_stream.write(written, static_cast<std::size_t>(next - written)) || !m_stream.literal(replacement))
                return false;
            written = next + 1;
        }
        return m_stream.write(written, static_cast<std::size_t>(last - written));
    }

    /** What stands for the byte at `next`; null for the byte itself. */
    static const char* replacementOf(const char* next, const char* end)
    {
        const auto code = static_cast<signed char>(*next);
        if (code < 9 || code == 11 || code == 12 || (code >= 14 && code < 32))
            return ".";
        if (code == '&')
            return "&amp;";
        if (code == '<')
            return "&lt;";
        // Kept: only at the very end of the value, and the two bytes behind the bracket follow as they are.
        if (code == ']' && end - next == 3 && next[1] == ']' && next[2] == '>')
            return "]]&gt;";
        return nullptr;
    }

    KvCErrorListPool& m_errors;
    MyStream& m_stream;
    const int m_flags;
    const int m_step;
    const bool m_isPlain;
};

bool KvCInventoryItem::writeToStream(KvCErrorListPool& errors, int flags, int level, MyStream& stream) const
{
    return TextWriter(errors, flags, stream).tree(*this, level);
}

KvCString KvCInventoryItem::toString(KvCErrorListPool& errors, int flags, int level) const
{
    MyStream stream(MyStream::Mode::Collect);
    if (writeToStream(errors, flags, level, stream)) {
        const auto length = static_cast<unsigned int>(stream.size());
        if (char* const block = stream.takeBlock())
            return KvCString::fromBlock(block, length);
    }
    KV_REPORT(errors, TreeTextFailed, "KvCInventoryItem::toString");
    return KvCString();
}

void KvCInventoryItem::printTree(KvCErrorListPool& errors, int flags, int level) const
{
    MyStream stream(MyStream::Mode::Print);
    writeToStream(errors, flags, level, stream);
}
