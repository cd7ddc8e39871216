#pragma once

#include <cstddef>

#include "platform/errorhandling/KvCErrorManager.h"

/**
 * Turns the rows of a `.def` file of messages into the record that KvCErrorManager::registerMessages takes; all of it
 * is done, and checked, by the compiler. A catalogue is a structure with `base`, the first code of its table, and
 * `rows`, which MessageRows.inc makes from a file:
 *
 *     constexpr KvResText record = KvNMessageTable::Table<CompositeRows>::record();
 */
namespace KvNMessageTable {

/** One message as it stands in its file. */
struct Row
{
    KvUInt32 range;
    KvUInt32 index;
    const char* argTypes;  ///< one conversion of %s %u %d %i %x for each argument
    const char* text;      ///< with the placeholders %1 to %5
};

constexpr KvUInt32 messagesPerRange = 0x800;
constexpr KvUInt32 codesPerTable = 0x100000;

/** Number of conversions in `argTypes`; -1 when it holds anything else. */
constexpr int countArguments(const char* argTypes)
{
    int count = 0;
    for (; *argTypes != '\0'; argTypes += 2) {
        const char kind = argTypes[0] == '%' ? argTypes[1] : '\0';
        if (kind != 's' && kind != 'u' && kind != 'd' && kind != 'i' && kind != 'x')
            return -1;
        ++count;
    }
    return count;
}

/** Whether the text's placeholders are exactly %1 to %n, n the number of conversions. */
constexpr bool placeholdersAgree(const char* argTypes, const char* text)
{
    const int count = countArguments(argTypes);
    if (count < 0 || count > 5)
        return false;
    unsigned found = 0;
    for (; *text != '\0'; ++text) {
        if (text[0] == '%' && text[1] >= '1' && text[1] <= '9')
            found |= 1U << (text[1] - '1');
    }
    return found == (1U << count) - 1U;
}

/** Whether the rows stand in the order of their codes, each code once, and agree with their arguments. */
template <std::size_t rowCount>
constexpr bool wellFormed(const Row (&rows)[rowCount])
{
    for (std::size_t i = 0; i < rowCount; ++i) {
        const Row& row = rows[i];
        if (row.index >= messagesPerRange || row.range >= codesPerTable / messagesPerRange ||
            !placeholdersAgree(row.argTypes, row.text))
            return false;
        if (i > 0 &&
            row.range * messagesPerRange + row.index <= rows[i - 1].range * messagesPerRange + rows[i - 1].index)
            return false;
    }
    return true;
}

/** The arrays of one catalogue, for as long as the program runs. Ranges without rows are empty ones; an index without a
    row is a code without a text. `trailingRanges` empty ranges follow the last one that has a row. */
template <class Catalogue, KvUInt32 trailingRanges = 0>
class Table
{
    static constexpr const auto& rows = Catalogue::rows;
    static constexpr std::size_t rowCount = sizeof(Catalogue::rows) / sizeof(Row);
    static_assert(wellFormed(Catalogue::rows), "messages out of order, or a text does not agree with its arguments");
    static_assert(Catalogue::base % codesPerTable == 0);

public:
    static constexpr KvUInt32 rangeCount = rows[rowCount - 1].range + 1 + trailingRanges;

    /** Messages of a range, the last index that has a row being the last message. */
    static constexpr KvUInt32 countOf(KvUInt32 range)
    {
        KvUInt32 count = 0;
        for (const Row& row : rows)
            count = row.range == range ? row.index + 1 : count;
        return count;
    }

    static constexpr KvUInt32 firstOf(KvUInt32 range)
    {
        KvUInt32 first = 0;
        for (KvUInt32 i = 0; i < range; ++i)
            first += countOf(i);
        return first;
    }

    static constexpr KvUInt32 textCount = firstOf(rangeCount);

    static constexpr KvResText record()
    {
        return {arrays.texts, textCount, arrays.ranges, rangeCount, Catalogue::base};
    }

    /** For the check that a catalogue has the shape it must have. */
    template <std::size_t count>
    static constexpr bool hasRanges(const KvResRange (&expected)[count])
    {
        bool same = count == rangeCount;
        for (std::size_t i = 0; same && i < count; ++i)
            same = arrays.ranges[i].first == expected[i].first && arrays.ranges[i].count == expected[i].count;
        return same;
    }

private:
    struct Arrays
    {
        const char* texts[textCount];
        KvResRange ranges[rangeCount + 1];
    };

    static constexpr Arrays fill()
    {
        Arrays made{};
        for (KvUInt32 i = 0; i < rangeCount; ++i)
            made.ranges[i] = {firstOf(i), countOf(i)};
        made.ranges[rangeCount] = {0xFFFFFFFF, 0};
        for (const Row& row : rows)
            made.texts[made.ranges[row.range].first + row.index] = row.text;
        return made;
    }

    static constexpr Arrays arrays = fill();
};

}  // namespace KvNMessageTable
