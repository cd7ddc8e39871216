#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

/**
 * Reading JSON as a sequence of events: nothing is held but the token being read, and nothing recurses, so that depth
 * and size of a document are bounded by what the handler keeps.
 */
namespace KvNJson {

/** Bytes to parse, delivered piece by piece. */
class Source
{
public:
    virtual ~Source() = default;
    /** The next piece, valid until the next call; an empty one is the end. */
    virtual std::string_view next() = 0;
};

/** A text that is in memory already. */
class TextSource : public Source
{
public:
    explicit TextSource(std::string_view text) : m_text(text) {}
    std::string_view next() override
    {
        const std::string_view piece = m_text;
        m_text = {};
        return piece;
    }

private:
    std::string_view m_text;
};

/** A number as it stands in the document: integers of up to 64 bits exactly, everything else as a double and its text.
 */
struct Number
{
    enum class Kind
    {
        Signed,
        Unsigned,
        Float
    };
    Kind kind = Kind::Unsigned;
    std::int64_t asSigned = 0;     ///< negative integers (Kind::Signed)
    std::uint64_t asUnsigned = 0;  ///< other integers (Kind::Unsigned)
    double asDouble = 0;           ///< the nearest double, whatever the kind
    std::string_view text;         ///< the digits of a Kind::Float, valid during the event; empty otherwise
};

/**
 * Told about each token in the order of the document. Each event returns false to stop the parsing; the handler then
 * has its own problem to tell. Texts are valid UTF-8 and belong to the parser: they are valid during the call.
 */
class Handler
{
public:
    virtual ~Handler() = default;
    virtual bool null() = 0;
    virtual bool boolean(bool value) = 0;
    virtual bool number(const Number& value) = 0;
    virtual bool text(std::string_view value) = 0;
    virtual bool startObject() = 0;
    virtual bool key(std::string_view name) = 0;
    virtual bool endObject() = 0;
    virtual bool startArray() = 0;
    virtual bool endArray() = 0;
    /** The document is not JSON: `what` says where and why. Always ends the parsing. */
    virtual void malformed(const std::string& what) = 0;
};

/** Feeds the one value of `source` (blanks around it, nothing else) to `handler`; true when it was read to its end and
    no event stopped it. Throws std::bad_alloc when memory is out. */
bool parse(Source& source, Handler& handler);

/** Whether the character steers a terminal or the direction of writing. */
bool isDangerous(unsigned code);
/** Takes the character at the start of `text`, which is not empty: its code, and how many bytes it has (0: no UTF-8).
 */
std::pair<unsigned, std::size_t> firstCharacter(std::string_view text);
/** Appends `bytes`, which are valid UTF-8, as a JSON string with its quotes; dangerous characters are escaped. */
void appendString(std::string& out, std::string_view bytes);
/** Appends a text as docs/formats.md says: a JSON string, or {"base64": "..."} when its bytes are not valid UTF-8. */
void appendText(std::string& out, std::string_view bytes);
/** Appends the shortest number that reads back to the same bits, or "NaN", "Infinity", "-Infinity" as a string. */
void appendFloat(std::string& out, float value);
void appendFloat(std::string& out, double value);

/** Whether `bytes` are valid UTF-8 (no surrogates, no overlong forms, nothing above U+10FFFF). */
bool isUtf8(std::string_view bytes);
/** The bytes that a padded base64 text stands for; false, and `out` is undefined, when it is not base64. */
bool decodeBase64(std::string_view text, std::string& out);

/** A JSON pointer for messages: `prefix` and the escaped member names and indexes behind it, cut to 200 characters. */
class Pointer
{
public:
    explicit Pointer(std::string_view prefix) : m_text(prefix.substr(0, limit)) {}
    Pointer& member(std::string_view name);
    Pointer& element(std::size_t index);
    /** Whether nothing more will be taken. */
    bool isFull() const { return m_text.size() >= limit; }
    const std::string& text() const { return m_text; }

    static constexpr std::size_t limit = 200;

private:
    void append(std::string_view piece);
    std::string m_text;
};

}  // namespace KvNJson
