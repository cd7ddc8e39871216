#include "tools/common/Text.h"

#include <algorithm>

#include "tools/common/JsonEvents.h"

namespace KvNText {

namespace {

void appendHex(std::string& out, unsigned value, unsigned digits)
{
    for (unsigned i = digits; i-- > 0;)
        out += "0123456789abcdef"[value >> (4 * i) & 15];
}

void appendEscape(std::string& out, unsigned code, bool isByte)
{
    if (!isByte && code == '\n') {
        out += "\\n";
    } else if (!isByte && code == '\r') {
        out += "\\r";
    } else if (!isByte && code == '\t') {
        out += "\\t";
    } else if (isByte || code < 0x80) {
        out += "\\x";
        appendHex(out, code, 2);
    } else {
        out += "\\u";
        appendHex(out, code, 4);
    }
}

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/** How many insertions, removals, replacements and swaps of neighbours lead from one word to the other. */
std::size_t distance(std::string_view a, std::string_view b)
{
    std::vector<std::vector<std::size_t>> rows(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                rows[i][j] = i + j;
                continue;
            }
            const std::size_t replaced = rows[i - 1][j - 1] + (lower(a[i - 1]) == lower(b[j - 1]) ? 0 : 1);
            rows[i][j] = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
        }
    }
    return rows[a.size()][b.size()];
}

}  // namespace

std::string escaped(std::string_view text, bool keepLines)
{
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const auto [code, length] = KvNJson::firstCharacter(text);
        const bool keep = keepLines && (code == '\n' || code == '\t');
        if (length == 0 || (KvNJson::isDangerous(code) && !keep))
            appendEscape(out, code, length == 0);
        else
            out += text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return out;
}

std::size_t width(std::string_view text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string csvField(std::string_view text)
{
    if (text.find_first_of(",\"\r\n") == std::string_view::npos)
        return std::string(text);
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"')
            out += '"';
        out += c;
    }
    out += '"';
    return out;
}

std::string csvLine(const std::vector<std::string>& fields)
{
    std::string out;
    for (const std::string& field : fields) {
        if (&field != &fields.front())
            out += ',';
        out += csvField(field);
    }
    out += "\r\n";
    return out;
}

std::string forManual(std::string_view text)
{
    std::string out;
    for (const char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
    }
    if (!out.empty() && (out[0] == '.' || out[0] == '\''))
        out.insert(0, "\\&");
    return out;
}

std::string nearest(std::string_view word, const std::vector<std::string>& candidates)
{
    constexpr std::size_t longest = 64;
    if (word.empty() || word.size() > longest)
        return "";
    std::string best;
    std::size_t least = std::max<std::size_t>(2, word.size() / 3) + 1;
    for (const std::string& candidate : candidates) {
        const bool begins = candidate.size() > word.size() && candidate.compare(0, word.size(), word) == 0;
        const std::size_t far = begins ? 1 : distance(word, candidate);
        // A word of which nothing is left is no suggestion.
        if (far < least && far < std::max(word.size(), candidate.size())) {
            least = far;
            best = candidate;
        }
    }
    return best;
}

bool matches(std::string_view text, std::string_view pattern)
{
    const bool anywhere = pattern.find_first_of("*?") == std::string_view::npos;
    if (anywhere) {
        return std::search(text.begin(), text.end(), pattern.begin(), pattern.end(),
                           [](char a, char b) { return lower(a) == lower(b); }) != text.end() ||
               pattern.empty();
    }
    std::size_t t = 0;
    std::size_t p = 0;
    std::size_t star = std::string_view::npos;
    std::size_t mark = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            mark = t;
        } else if (p < pattern.size() && (pattern[p] == '?' || lower(pattern[p]) == lower(text[t]))) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++mark;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

void Table::add(std::vector<std::string> row)
{
    row.resize(m_columns.size());
    for (std::string& cell : row)
        cell = escaped(cell);
    m_rows.push_back(std::move(row));
}

std::string Table::line(const std::vector<std::string>& row, const std::vector<std::size_t>& widths) const
{
    std::string out;
    for (std::size_t i = 0; i < row.size(); ++i) {
        const std::size_t used = width(row[i]);
        const std::size_t blanks = widths[i] > used ? widths[i] - used : 0;
        if (i > 0)
            out += "  ";
        if (m_columns[i].isNumber)
            out.append(blanks, ' ');
        out += row[i];
        if (!m_columns[i].isNumber && i + 1 < row.size())
            out.append(blanks, ' ');
    }
    return out;
}

std::string Table::text(std::string_view bold, std::string_view plain) const
{
    std::vector<std::string> titles;
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        titles.emplace_back(m_columns[i].title);
        widths.push_back(width(titles.back()));
        for (const std::vector<std::string>& row : m_rows)
            widths.back() = std::max(widths.back(), width(row[i]));
    }
    std::string out(bold);
    out += line(titles, widths);
    out += plain;
    out += '\n';
    for (const std::vector<std::string>& row : m_rows)
        out += line(row, widths) + '\n';
    return out;
}

}  // namespace KvNText
