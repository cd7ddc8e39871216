#include <vector>

#include "inventory/ids/KvNInventoryIDs.h"
#include "tools/common/JsonEvents.h"
#include "tools/common/ParameterText.h"
#include "tools/common/Text.h"
#include "tools/kvinv/Commands.h"
#include "tools/kvinv/Scan.h"
#include "tools/kvinv/TreeFile.h"
#include "tools/kvinv/TreeWalk.h"

namespace {

/** The statuses of diff(1). */
enum DiffStatus
{
    DiffSame = 0,
    DiffDifferent = 1,
    DiffTrouble = 2
};

/** What a comparison finds, as lines or as the elements of a JSON array. */
class Findings
{
public:
    explicit Findings(bool asJson, Console& console) : m_json(asJson), m_console(console) {}

    /** An item that only one tree has. */
    void only(char side, const std::string& address, const KvCInventoryItem& item)
    {
        if (m_json)
            json(side == '-' ? "onlyA" : "onlyB", address, side == '-' ? asJson(item) : "null",
                 side == '-' ? "null" : asJson(item));
        else
            line(side, address + described(item));
    }
    void only(char side, const std::string& address, const KvCInventoryParameter& parameter)
    {
        if (m_json)
            json(side == '-' ? "onlyA" : "onlyB", address, side == '-' ? asJson(parameter) : "null",
                 side == '-' ? "null" : asJson(parameter));
        else
            line(side, address + ": " + valueOf(parameter));
    }
    void compare(const std::string& address, const KvCInventoryItem& a, const KvCInventoryItem& b);
    void compare(const std::string& address, const KvCInventoryParameter& a, const KvCInventoryParameter& b);

    /** The end of the list; whether nothing was found. */
    bool finish()
    {
        if (m_json)
            m_console.write(m_count > 0 ? "\n]\n" : "[]\n");
        return m_count == 0;
    }
    /** Whether nobody wants to know any more. */
    bool isOver() const { return m_console.isLeft(); }

private:
    static std::string asJson(const KvCInventoryItem& item)
    {
        std::string out = "{\"description\": ";
        KvNJson::appendText(out, item.getDescription());
        return out + "}";
    }
    static std::string asJson(const KvCInventoryParameter& parameter)
    {
        std::string out;
        KvNTreeJson::appendParameter(out, parameter);
        return out;
    }
    /** A description that says more than the ID. */
    static std::string described(const KvCInventoryItem& item)
    {
        const std::string description = item.getDescription();
        return description == item.getID().getCategoryName().c_str() ? "" : " (" + KvNText::escaped(description) + ")";
    }
    static std::string quoted(std::string_view text) { return '"' + KvNText::escaped(text) + '"'; }
    static std::string valueOf(const KvCInventoryParameter& parameter)
    {
        const std::string value = KvNParameterText::valueText(parameter);
        std::string text = parameter.getType() == KvNElement::KvCStringCode ? quoted(value) : KvNText::escaped(value);
        if (*parameter.getUnit() != '\0')
            text += " " + KvNText::escaped(parameter.getUnit());
        return text;
    }
    void json(const char* change, const std::string& address, const std::string& a, const std::string& b);
    void line(char sign, const std::string& text);

    bool m_json;
    Console& m_console;
    std::size_t m_count = 0;
};

void Findings::line(char sign, const std::string& text)
{
    ++m_count;
    std::string out(sign == '-' ? m_console.red() : sign == '+' ? m_console.green() : m_console.yellow());
    out += sign;
    m_console.write(out + " " + text + std::string(m_console.plain()) + "\n");
}

void Findings::json(const char* change, const std::string& address, const std::string& a, const std::string& b)
{
    m_console.write(m_count++ > 0 ? ",\n " : "[\n ");
    m_console.write(std::string("{\"change\": \"") + change + "\", \"address\": \"" + address + "\", \"a\": " + a +
                    ", \"b\": " + b + "}");
}

void Findings::compare(const std::string& address, const KvCInventoryItem& a, const KvCInventoryItem& b)
{
    if (KvCString::strcmp(a.getDescription(), b.getDescription()) == 0)
        return;
    if (m_json)
        json("changed", address, asJson(a), asJson(b));
    else
        line('~', address + ": description " + quoted(a.getDescription()) + " -> " + quoted(b.getDescription()));
}

void Findings::compare(const std::string& address, const KvCInventoryParameter& a, const KvCInventoryParameter& b)
{
    const std::string left = asJson(a);
    const std::string right = asJson(b);
    if (left == right)
        return;
    if (m_json) {
        json("changed", address, left, right);
        return;
    }
    std::string text;
    const auto add = [&](const char* what, const std::string& before, const std::string& after) {
        if (before != after)
            text += (text.empty() ? "" : ", ") + std::string(what) + before + " -> " + after;
    };
    const auto description = [](const KvCInventoryParameter& parameter) {
        return quoted(parameter.getDescription() != nullptr ? parameter.getDescription() : "");
    };
    add("type ", KvNParameterText::typeName(a), KvNParameterText::typeName(b));
    const bool unitsDiffer = KvCString::strcmp(a.getUnit(), b.getUnit()) != 0;
    std::string valueA;
    std::string valueB;
    KvNTreeJson::appendValue(valueA, a);
    KvNTreeJson::appendValue(valueB, b);
    if (valueA != valueB)
        add("", valueOf(a), valueOf(b));
    else if (unitsDiffer)
        add("unit ", quoted(a.getUnit()), quoted(b.getUnit()));
    add("modifiable ", a.isModifiable() ? "yes" : "no", b.isModifiable() ? "yes" : "no");
    add("relevance ", std::to_string(a.getRelevance()), std::to_string(b.getRelevance()));
    add("description ", description(a), description(b));
    line('~', address + ": " + text);
}

/** Everything of a subtree that only one tree has. */
void tellAll(char side, const KvCInventoryItem& item, const std::string& parent, Findings& findings)
{
    const std::string prefix = parent.empty() ? "" : parent + "/";
    walkTree(item, [&](const KvCInventoryItem& node, const PathText& path) {
        findings.only(side, prefix + path.text(), node);
        node.forEachParameter([&](const KvCInventoryParameter& parameter) {
            findings.only(side, prefix + path.of(parameter), parameter);
            return true;
        });
        return !findings.isOver();
    });
}

const KvCInventoryParameter* sameParameter(const KvCInventoryItem& item, const KvCInventoryParameter& parameter)
{
    return dynamic_cast<const KvCInventoryParameter*>(item.getParameterById(parameter.getId()));
}

const KvCInventoryItem* sameItem(const KvCInventoryItem& parent, const KvCInventoryItem& item)
{
    return static_cast<const KvCInventoryItem*>(parent.searchComposite(item.getClassId(), item.getUnitId()));
}

void compareParameters(const KvCInventoryItem& a, const KvCInventoryItem& b, const PathText& path, Findings& findings)
{
    a.forEachParameter([&](const KvCInventoryParameter& parameter) {
        if (const KvCInventoryParameter* other = sameParameter(b, parameter); other != nullptr)
            findings.compare(path.of(parameter), parameter, *other);
        else
            findings.only('-', path.of(parameter), parameter);
        return !findings.isOver();
    });
    b.forEachParameter([&](const KvCInventoryParameter& parameter) {
        if (sameParameter(a, parameter) == nullptr)
            findings.only('+', path.of(parameter), parameter);
        return !findings.isOver();
    });
}

/** A pair of items that correspond, and the child of `a` that comes next. */
struct Pair
{
    const KvCInventoryItem* a;
    const KvCInventoryItem* b;
    const KvCInventoryItem* next;
};

/** Compares two items that correspond, with everything below them. */
void compareTrees(const KvCInventoryItem& rootA, const KvCInventoryItem& rootB, Findings& findings)
{
    PathText path;
    std::vector<Pair> open;
    const auto enter = [&](const KvCInventoryItem& a, const KvCInventoryItem& b) {
        path.down(a);
        findings.compare(path.text(), a, b);
        compareParameters(a, b, path, findings);
        open.push_back({&a, &b, a.getFirstSubItem()});
    };
    enter(rootA, rootB);
    while (!open.empty() && !findings.isOver()) {
        if (const KvCInventoryItem* child = open.back().next; child != nullptr) {
            open.back().next = child->getNext();
            if (const KvCInventoryItem* other = sameItem(*open.back().b, *child); other != nullptr)
                enter(*child, *other);
            else
                tellAll('-', *child, path.text(), findings);
            continue;
        }
        for (const KvCInventoryItem* child = open.back().b->getFirstSubItem(); child != nullptr;
             child = child->getNext()) {
            if (sameItem(*open.back().a, *child) == nullptr)
                tellAll('+', *child, path.text(), findings);
        }
        open.pop_back();
        path.up();
    }
}

bool isRoot(const KvCInventoryItem& item)
{
    return item.getID() == KvNInventoryIDs::ROOT;
}

/** Compares a tree of boards under ROOT with one that is a board itself. */
void compareBoards(const KvCInventoryItem& a, const KvCInventoryItem& b, Findings& findings)
{
    const KvCInventoryItem& joined = isRoot(a) ? a : b;
    const KvCInventoryItem& single = isRoot(a) ? b : a;
    const char joinedSide = isRoot(a) ? '-' : '+';
    const KvCInventoryItem* same = sameItem(joined, single);
    for (const KvCInventoryItem* board = joined.getFirstSubItem(); board != nullptr; board = board->getNext()) {
        if (board != same)
            tellAll(joinedSide, *board, "", findings);
    }
    if (same == nullptr)
        tellAll(joinedSide == '-' ? '+' : '-', single, "", findings);
    else if (isRoot(a))
        compareTrees(*same, single, findings);
    else
        compareTrees(single, *same, findings);
}

/** The tree that an argument names; null, told, when it cannot be had whole. */
std::unique_ptr<KvCInventoryItem> treeOf(const std::string& argument, bool& isWrong, Console& console)
{
    Selection selection;
    bool isSelection = false;
    isWrong = !selectionOf(argument, selection, isSelection, console);
    if (isWrong)
        return nullptr;
    if (!isSelection)
        return TreeFile::readEither(argument, console);
    bool complete = false;
    std::unique_ptr<KvCInventoryItem> tree = scanBoards(selection, complete, console);
    return complete ? std::move(tree) : nullptr;
}

}  // namespace

int runDiff(const Options& options, Console& console)
{
    if (options.arguments[0] == "-" && options.arguments[1] == "-") {
        console.problem("only one of A and B can be standard input");
        return DiffTrouble;
    }
    bool isWrong = false;
    const std::unique_ptr<KvCInventoryItem> a = treeOf(options.arguments[0], isWrong, console);
    const std::unique_ptr<KvCInventoryItem> b = a != nullptr ? treeOf(options.arguments[1], isWrong, console) : nullptr;
    if (a == nullptr || b == nullptr)
        return DiffTrouble;
    Findings findings(options.json, console);
    if (a->getID() == b->getID()) {
        compareTrees(*a, *b, findings);
    } else if (isRoot(*a) || isRoot(*b)) {
        compareBoards(*a, *b, findings);
    } else {
        tellAll('-', *a, "", findings);
        tellAll('+', *b, "", findings);
    }
    return findings.finish() ? DiffSame : DiffDifferent;
}
