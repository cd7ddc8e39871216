#include "tools/common/JsonEvents.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>

namespace KvNJson {

namespace {

/** The bytes of a source one by one, as the parser wants them. */
class ByteIterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    ByteIterator() = default;
    explicit ByteIterator(Source& source) : m_source(&source), m_piece(source.next()) { settle(); }

    reference operator*() const { return m_piece.front(); }
    ByteIterator& operator++()
    {
        m_piece.remove_prefix(1);
        if (m_piece.empty()) {
            m_piece = m_source->next();
            settle();
        }
        return *this;
    }
    bool operator==(const ByteIterator& other) const { return m_source == other.m_source; }
    bool operator!=(const ByteIterator& other) const { return m_source != other.m_source; }

private:
    void settle()
    {
        if (m_piece.empty())
            m_source = nullptr;
    }

    Source* m_source = nullptr;  // null at the end
    std::string_view m_piece;
};

/** Says what the parser says without its own name and number, and not at any length. */
std::string plainMessage(const char* message)
{
    constexpr std::size_t longest = 300;
    const char* text = std::strstr(message, "] ");
    std::string plain = text != nullptr ? text + 2 : message;
    if (plain.size() > longest)
        plain = plain.substr(0, longest) + "...";
    return plain;
}

/** Passes the parser's events on. */
class Adapter : public nlohmann::json_sax<nlohmann::json>
{
public:
    explicit Adapter(Handler& handler) : m_handler(handler) {}

    bool null() override { return m_handler.null(); }
    bool boolean(bool value) override { return m_handler.boolean(value); }
    bool number_integer(number_integer_t value) override
    {
        Number number;
        number.kind = Number::Kind::Signed;
        number.asSigned = value;
        number.asDouble = static_cast<double>(value);
        return m_handler.number(number);
    }
    bool number_unsigned(number_unsigned_t value) override
    {
        Number number;
        number.asUnsigned = value;
        number.asDouble = static_cast<double>(value);
        return m_handler.number(number);
    }
    bool number_float(number_float_t value, const string_t& text) override
    {
        Number number;
        number.kind = Number::Kind::Float;
        number.asDouble = value;
        number.text = text;
        return m_handler.number(number);
    }
    bool string(string_t& value) override { return m_handler.text(value); }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override { return m_handler.startObject(); }
    bool key(string_t& name) override { return m_handler.key(name); }
    bool end_object() override { return m_handler.endObject(); }
    bool start_array(std::size_t) override { return m_handler.startArray(); }
    bool end_array() override { return m_handler.endArray(); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& problem) override
    {
        m_handler.malformed(plainMessage(problem.what()));
        return false;
    }

private:
    Handler& m_handler;
};

constexpr char base64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void appendBase64(std::string& out, std::string_view bytes)
{
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t count = bytes.size() - i < 3 ? bytes.size() - i : 3;
        unsigned group = 0;
        for (std::size_t j = 0; j < 3; ++j)
            group = group << 8 | (j < count ? static_cast<unsigned char>(bytes[i + j]) : 0U);
        for (std::size_t j = 0; j < 4; ++j)
            out += j <= count ? base64Digits[group >> (18 - 6 * j) & 63] : '=';
    }
}

/** The length of the UTF-8 sequence at the start of `bytes`; 0 when there is none. */
std::size_t sequenceLength(std::string_view bytes)
{
    const auto at = [&](std::size_t i) { return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U; };
    const auto follows = [&](std::size_t i) { return (at(i) & 0xC0) == 0x80; };
    const unsigned first = at(0);
    if (first < 0x80)
        return 1;
    if (first >= 0xC2 && first <= 0xDF)
        return follows(1) ? 2 : 0;
    if (first >= 0xE0 && first <= 0xEF) {
        const bool overlong = first == 0xE0 && at(1) < 0xA0;
        const bool surrogate = first == 0xED && at(1) >= 0xA0;
        return follows(1) && follows(2) && !overlong && !surrogate ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const bool overlong = first == 0xF0 && at(1) < 0x90;
        const bool tooBig = first == 0xF4 && at(1) >= 0x90;
        return follows(1) && follows(2) && follows(3) && !overlong && !tooBig ? 4 : 0;
    }
    return 0;
}

void appendEscaped(std::string& out, unsigned code)
{
    constexpr char digits[] = "0123456789abcdef";
    out += "\\u";
    for (unsigned shift = 16; shift > 0;)
        out += digits[code >> (shift -= 4) & 15];
}

template <class T>
void appendShortest(std::string& out, T value)
{
    if (std::isnan(value)) {
        out += "\"NaN\"";
        return;
    }
    if (std::isinf(value)) {
        out += value < 0 ? "\"-Infinity\"" : "\"Infinity\"";
        return;
    }
    char digits[40];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out.append(digits, end);
    if (value == 0 && std::signbit(value))
        out += ".0";  // a reader takes -0 for an integer, which has no sign
}

}  // namespace

bool parse(Source& source, Handler& handler)
{
    Adapter adapter(handler);
    return nlohmann::json::sax_parse(ByteIterator(source), ByteIterator(), &adapter);
}

bool isDangerous(unsigned code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x200E || code == 0x200F || code == 0x061C ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069) || code == 0xFEFF;
}

std::pair<unsigned, std::size_t> firstCharacter(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text.front());
    const std::size_t length = first < 0x80 ? 1 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (length > text.size() || !isUtf8(text.substr(0, length)))
        return {first, 0};
    if (length == 1)
        return {first, 1};
    unsigned code = first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i)
        code = code << 6 | (static_cast<unsigned char>(text[i]) & 0x3FU);
    return {code, length};
}

void appendString(std::string& out, std::string_view bytes)
{
    out += '"';
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        switch (byte) {
            case '"':
            case '\\':
                out += '\\';
                out += bytes[i];
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default: {
                const auto [code, length] = firstCharacter(bytes.substr(i));
                const std::size_t taken = std::max<std::size_t>(length, 1);
                if (isDangerous(code))
                    appendEscaped(out, code);
                else
                    out += bytes.substr(i, taken);
                i += taken - 1;
            }
        }
    }
    out += '"';
}

void appendText(std::string& out, std::string_view bytes)
{
    if (isUtf8(bytes)) {
        appendString(out, bytes);
        return;
    }
    out += "{\"base64\": \"";
    appendBase64(out, bytes);
    out += "\"}";
}

void appendFloat(std::string& out, float value)
{
    appendShortest(out, value);
}

void appendFloat(std::string& out, double value)
{
    appendShortest(out, value);
}

bool isUtf8(std::string_view bytes)
{
    while (!bytes.empty()) {
        const std::size_t length = sequenceLength(bytes);
        if (length == 0)
            return false;
        bytes.remove_prefix(length);
    }
    return true;
}

bool decodeBase64(std::string_view text, std::string& out)
{
    if (text.size() % 4 != 0)
        return false;
    out.clear();
    for (std::size_t i = 0; i < text.size(); i += 4) {
        std::size_t count = 4;
        if (i + 4 == text.size() && text[i + 3] == '=')
            count = text[i + 2] == '=' ? 2 : 3;
        unsigned group = 0;
        for (std::size_t j = 0; j < count; ++j) {
            const char* digit = text[i + j] != '\0' ? std::strchr(base64Digits, text[i + j]) : nullptr;
            if (digit == nullptr)
                return false;
            group |= static_cast<unsigned>(digit - base64Digits) << (18 - 6 * j);
        }
        for (std::size_t j = 0; j + 1 < count; ++j)
            out += static_cast<char>(group >> (16 - 8 * j) & 0xFF);
        // What is left over of the last group stands for nothing and is zero.
        if (count < 4 && (group & (count == 2 ? 0xFFFFU : 0xFFU)) != 0)
            return false;
    }
    return true;
}

void Pointer::append(std::string_view piece)
{
    m_text += piece.substr(0, limit - m_text.size());
}

Pointer& Pointer::member(std::string_view name)
{
    append("/");
    for (const char c : name) {
        if (isFull())
            break;
        append(c == '~' ? "~0" : c == '/' ? "~1" : std::string_view(&c, 1));
    }
    return *this;
}

Pointer& Pointer::element(std::size_t index)
{
    append("/");
    append(std::to_string(index));
    return *this;
}

}  // namespace KvNJson
