#include "Exported.h"

#include <regex>
#include <sstream>

namespace {

/** Without what stands in angle brackets; the operators that are spelled with them are kept. */
std::string withoutTemplateArguments(const std::string& name)
{
    std::string result;
    int depth = 0;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool isOperator =
            depth == 0 && result.size() >= 8 && result.compare(result.size() - 8, 8, "operator") == 0;
        if (name[i] == '<' && !isOperator)
            ++depth;
        else if (name[i] == '>' && depth > 0)
            --depth;
        else if (depth == 0)
            result += name[i];
    }
    return result;
}

/** The qualified name in front of the arguments; empty when the text is no function. */
std::string nameBeforeArguments(const std::string& text)
{
    static const std::regex pattern(R"(([\w:~]*(?:operator(?: new| delete)?(?:\[\]|\(\)|[^\w\s(]+)?|[\w~]+))\s*\()");
    std::smatch found;
    return std::regex_search(text, found, pattern) ? found[1].str() : "";
}

/** Comments, directives, texts and characters become blanks; what is behind a backslash at a line's end belongs to its
    directive. */
std::string code(const std::string& header)
{
    static const std::regex noise(
        R"(/\*[\s\S]*?\*/|//[^\n]*|"(?:\\.|[^"\\])*"|'(?:\\.|[^'\\])*'|(?:^|\n)[ \t]*#(?:[^\n\\]|\\\n|\\.)*)",
        std::regex::ECMAScript | std::regex::optimize);
    return std::regex_replace(header, noise, "\n");
}

struct Scope
{
    std::string name;  ///< with "::" behind it; empty for what does not name
    bool isClass;
    bool isInner;  ///< what is declared now
    bool isBody;   ///< of a function or an initialiser: nothing in it is declared
};

class Reader
{
public:
    std::map<std::string, Exported::Access> read(const std::string& text)
    {
        for (const char c : text)
            take(c);
        return std::move(m_names);
    }

private:
    void take(char c)
    {
        if (c == '(' || c == ')')
            m_parentheses += c == '(' ? 1 : -1;
        if (m_parentheses == 0 && c == '{')
            open();
        else if (m_parentheses == 0 && c == '}')
            close();
        else if (m_parentheses == 0 && c == ';')
            declare();
        else
            m_text += c == '\n' ? ' ' : c;
        if (c == ':' && m_parentheses == 0)
            label();
    }
    bool isInBody() const { return !m_scopes.empty() && m_scopes.back().isBody; }
    bool isInner() const
    {
        for (const Scope& scope : m_scopes)
            if (scope.isInner)
                return true;
        return false;
    }
    void label()
    {
        static const std::regex access(R"(^\s*(public|protected|private)\s*:$)");
        std::smatch found;
        if (m_scopes.empty() || !m_scopes.back().isClass || !std::regex_search(m_text, found, access))
            return;
        m_scopes.back().isInner = found[1] != "public";
        m_text.clear();
    }
    void open()
    {
        static const std::regex space(R"(^\s*(?:inline\s+)?namespace\s+(\w+)\s*$)");
        static const std::regex type(
            R"(^\s*(?:template\s*<.*>\s*)?(class|struct|union)\s+(?:KV_EXPORT\s+)?(\w+)(?:<[^{]*>)?(?:\s+final)?\s*(?::[^:].*)?$)");
        std::smatch found;
        if (isInBody())
            m_scopes.push_back({"", false, false, true});
        else if (std::regex_match(m_text, found, space))
            m_scopes.push_back({found[1].str() + "::", false, false, false});
        else if (std::regex_match(m_text, found, type))
            m_scopes.push_back({found[2].str() + "::", true, isInner() || found[1] == "class", false});
        else {
            declare();
            m_scopes.push_back({"", false, false, true});
        }
        if (m_scopes.back().isClass && m_scopes.size() > 1 && isOuterInner())
            m_scopes.back().isInner = true;
        m_text.clear();
    }
    bool isOuterInner() const
    {
        for (std::size_t i = 0; i + 1 < m_scopes.size(); ++i)
            if (m_scopes[i].isInner)
                return true;
        return false;
    }
    void close()
    {
        if (!m_scopes.empty())
            m_scopes.pop_back();
        m_text.clear();
    }
    void declare()
    {
        static const std::regex aside(R"(^\s*(?:friend|using|typedef|extern template|static_assert)\b)");
        const std::string text = withoutTemplateArguments(m_text);
        m_text.clear();
        if (isInBody() || std::regex_search(text, aside))
            return;
        const std::string name = nameBeforeArguments(text);
        if (name.empty())
            return;
        std::string whole;
        for (const Scope& scope : m_scopes)
            whole += scope.name;
        whole += name;
        const auto access = isInner() ? Exported::Access::Inner : Exported::Access::Public;
        const auto [place, isNew] = m_names.emplace(whole, access);
        if (!isNew && access == Exported::Access::Public)
            place->second = access;
    }

    std::map<std::string, Exported::Access> m_names;
    std::vector<Scope> m_scopes;
    std::string m_text;
    int m_parentheses = 0;
};

}  // namespace

std::set<std::string> Exported::functions(const std::string& symbols)
{
    std::set<std::string> names;
    std::istringstream lines(symbols);
    for (std::string line; std::getline(lines, line);) {
        // "0000000000012345 T Class::name(arguments) const"
        if (line.size() < 20 || (line[17] != 'T' && line[17] != 'W'))
            continue;
        const std::string name = nameBeforeArguments(withoutTemplateArguments(line.substr(19)));
        if (!name.empty() && name.find('~') == std::string::npos)
            names.insert(name);
    }
    return names;
}

std::map<std::string, Exported::Access> Exported::declarations(const std::string& header)
{
    return Reader().read(code(header));
}
