#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/** Texts for people and for other programs. */
namespace KvNText {

/** `text` with everything escaped that could steer a terminal or fake a line: control characters, line breaks (kept
   with `keepLines`), the marks that turn the direction of writing, and bytes that are not UTF-8. */
std::string escaped(std::string_view text, bool keepLines = false);

/** The number of characters that a UTF-8 text takes on a terminal line. */
std::size_t width(std::string_view text);

/** A field of a CSV line (RFC 4180): quoted when it holds a comma, a quote or a line break. */
std::string csvField(std::string_view text);
/** A line of CSV with its line break. */
std::string csvLine(const std::vector<std::string>& fields);

/** A text as man takes it: hyphens that stay hyphens, no line that looks like a request. */
std::string forManual(std::string_view text);

/** Which of `candidates` is likely meant by `word`; empty when none is near. */
std::string nearest(std::string_view word, const std::vector<std::string>& candidates);

/** Whether `text` is `pattern`, in which * stands for any characters and ? for one; upper and lower case are the same.
    A pattern without either is looked for anywhere in the text. */
bool matches(std::string_view text, std::string_view pattern);

/**
 * Lines of columns for people: each as wide as its widest text, numbers (columns marked so) to the right. The texts are
 * escaped.
 */
class Table
{
public:
    struct Column
    {
        const char* title;
        bool isNumber = false;
    };

    explicit Table(std::vector<Column> columns) : m_columns(std::move(columns)) {}
    void add(std::vector<std::string> row);
    /** The lines; `bold` and `plain` stand around the line of titles. */
    std::string text(std::string_view bold = "", std::string_view plain = "") const;

private:
    std::string line(const std::vector<std::string>& row, const std::vector<std::size_t>& widths) const;

    std::vector<Column> m_columns;
    std::vector<std::vector<std::string>> m_rows;
};

}  // namespace KvNText
