#include <exception>

#include "platform/errorhandling/ErrorEntry.h"

/*
 * The serialized form of an error list: version 1, number of entries, and for each entry code, line, origin, argument
 * types, number of arguments, arguments. Numbers have 32 bits, most significant byte first; a text is its length and
 * its bytes.
 */
namespace {

constexpr KvUInt32 blockVersion = 1;
/* No message comes near so many. An entry of nothing but empty arguments would take more memory than its block. */
constexpr KvUInt32 mostArguments = 64;

class BlockWriter
{
public:
    explicit BlockWriter(unsigned char* place) : m_place(place) {}
    void number(KvUInt32 value)
    {
        for (int shift = 24; shift >= 0; shift -= 8)
            *m_place++ = static_cast<unsigned char>(value >> shift);
    }
    void text(KvSErrorText text)
    {
        number(text.length);
        if (text.length != 0)
            std::memcpy(m_place, text.data, text.length);
        m_place += text.length;
    }

private:
    unsigned char* m_place;
};

/** Reads a block; what lies past its end reads as 0 and marks the block as malformed. */
class BlockReader
{
public:
    BlockReader(const unsigned char* data, std::size_t size) : m_place(data), m_left(size) {}

    KvUInt32 number()
    {
        if (!has(4))
            return 0;
        KvUInt32 value = 0;
        for (int i = 0; i < 4; ++i)
            value = value << 8 | m_place[i];
        skip(4);
        return value;
    }
    KvSErrorText text()
    {
        const KvUInt32 length = number();
        if (!has(length))
            return {"", 0};
        const KvSErrorText text{reinterpret_cast<const char*>(m_place), length};
        skip(length);
        return text;
    }

    bool malformed() const { return m_malformed; }
    void refuse()
    {
        m_malformed = true;
        m_left = 0;
    }
    bool atEnd() const { return m_left == 0; }

private:
    bool has(std::size_t bytes)
    {
        if (bytes > m_left)
            refuse();
        return !m_malformed;
    }
    void skip(std::size_t bytes)
    {
        m_place += bytes;
        m_left -= bytes;
    }

    const unsigned char* m_place;
    std::size_t m_left;
    bool m_malformed = false;
};

/** Reads past one entry; returns its number of arguments. */
KvUInt32 skipEntry(BlockReader& reader)
{
    reader.number();
    reader.number();
    reader.text();
    reader.text();
    const KvUInt32 arguments = reader.number();
    if (arguments > mostArguments)
        reader.refuse();
    for (KvUInt32 i = 0; i < arguments && !reader.malformed(); ++i)
        reader.text();
    return arguments;
}

bool wellFormed(const unsigned char* data, std::size_t size)
{
    BlockReader reader(data, size);
    if (reader.number() != blockVersion)
        return false;
    const KvUInt32 count = reader.number();
    for (KvUInt32 i = 0; i < count && !reader.malformed(); ++i)
        skipEntry(reader);
    return !reader.malformed() && reader.atEnd();
}

/** The texts of an entry of a well-formed block, as KvCErrorList::append takes them. */
class BlockTexts
{
public:
    BlockTexts(const BlockReader& origin, KvUInt32 arguments)
        : m_origin(origin), m_reader(origin), m_arguments(arguments)
    {}
    KvUInt32 arguments() const { return m_arguments; }
    void restart()
    {
        m_reader = m_origin;
        m_given = 0;
    }
    KvSErrorText next()
    {
        if (m_given++ == 2)
            m_reader.number();
        return m_reader.text();
    }

private:
    BlockReader m_origin;
    BlockReader m_reader;
    KvUInt32 m_arguments;
    KvUInt32 m_given = 0;
};

}  // namespace

std::vector<unsigned char> KvCErrorList::serialize() const
{
    const Lock lock(*this);
    std::size_t size = 8;
    visit([&size](const Entry& entry) {
        size += 12;
        const char* place = entry.texts();
        for (KvUInt32 i = 0; i < entry.arguments + 2; ++i)
            size += 4 + Entry::next(place).length;
    });

    std::vector<unsigned char> block;
    if (!KvNAllocation::mayAllocate(size))
        return block;
    try {
        block.resize(size);
    } catch (const std::exception&) {
        return block;
    }

    BlockWriter writer(block.data());
    writer.number(blockVersion);
    writer.number(kept());
    visit([&writer](const Entry& entry) {
        writer.number(entry.code);
        writer.number(static_cast<KvUInt32>(entry.line));
        const char* place = entry.texts();
        writer.text(Entry::next(place));
        writer.text(Entry::next(place));
        writer.number(entry.arguments);
        for (KvUInt32 i = 0; i < entry.arguments; ++i)
            writer.text(Entry::next(place));
    });
    return block;
}

bool KvCErrorList::deSerialize(const unsigned char* data, unsigned long size)
{
    if (size == 0)
        return true;
    if (data == nullptr || !wellFormed(data, size))
        return false;

    const Lock lock(*this);
    BlockReader reader(data, size);
    reader.number();
    const KvUInt32 count = reader.number();
    for (KvUInt32 i = 0; i < count; ++i) {
        BlockReader entry = reader;
        const KvUInt32 arguments = skipEntry(reader);
        const KvUInt32 code = entry.number();
        const KvUInt32 line = entry.number();
        append(code, line, BlockTexts(entry, arguments));
    }
    return true;
}
