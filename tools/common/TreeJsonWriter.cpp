#include <charconv>

#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryParameter.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "tools/common/ParameterText.h"
#include "tools/common/TreeJson.h"

namespace KvNTreeJson {

namespace {

constexpr std::size_t pieceSize = 65536;
/** Nobody reads what is deeper; without a limit the blanks of a deep tree would outgrow everything else. */
constexpr std::size_t widestIndentation = 64;

void appendId(std::string& out, KvUInt32 id)
{
    const char* name = KvNInventoryIDs::Map.get(id);
    if (name != nullptr)
        KvNJson::appendString(out, name);
    else
        out += std::to_string(id);
}

void appendVersion(std::string& out, const KvCVersion& version)
{
    const KvCString text = version.getAsString();
    KvCVersion again;
    if (again.setByString(text) && again == version) {
        KvNJson::appendString(out, text.c_str());
        return;
    }
    char digits[16];
    const auto end = std::to_chars(digits, digits + sizeof digits, version.getAsULong64(), 16).ptr;
    out += "\"0x";
    out.append(static_cast<std::size_t>(digits + sizeof digits - end), '0');
    out.append(digits, end);
    out += '"';
}

template <class T>
void appendTyped(std::string& out, const T& value)
{
    if constexpr (KvNElement::isArray<T>) {
        out += '[';
        for (KvUInt32 i = 0; i < value.getCount(); ++i) {
            if (i > 0)
                out += ", ";
            appendTyped(out, value.getData()[i]);
        }
        out += ']';
    } else if constexpr (KvNElement::isString<T>) {
        KvNJson::appendText(out, value.c_str());
    } else if constexpr (KvNElement::isVersion<T>) {
        appendVersion(out, value);
    } else if constexpr (std::is_floating_point_v<T>) {
        KvNJson::appendFloat(out, value);
    } else if constexpr (sizeof(T) == 8) {
        out += '"' + std::to_string(value) + '"';
    } else if constexpr (std::is_same_v<T, char>) {
        out += std::to_string(static_cast<signed char>(value));
    } else {
        out += std::to_string(value);
    }
}

/** Collects the text of a tree and passes it on in pieces. */
class TreeWriter
{
public:
    explicit TreeWriter(Sink& sink) : m_sink(sink) {}

    bool item(const KvCInventoryItem& root);
    void text(std::string_view piece) { m_text += piece; }
    bool flush()
    {
        m_good = m_good && m_sink.write(m_text);
        m_text.clear();
        return m_good;
    }

private:
    void newLine(std::size_t column);
    void start(const KvCInventoryItem& item, std::size_t column);

    Sink& m_sink;
    std::string m_text;
    bool m_good = true;
};

void TreeWriter::newLine(std::size_t column)
{
    m_text += '\n';
    m_text.append(column <= widestIndentation ? column : 0, ' ');
    if (m_text.size() >= pieceSize)
        flush();
}

/** An item up to the bracket that opens its items. */
void TreeWriter::start(const KvCInventoryItem& item, std::size_t column)
{
    m_text += "{\"id\": ";
    appendId(m_text, item.getClassId());
    m_text += ", \"index\": " + std::to_string(item.getUnitId()) + ", \"description\": ";
    const char* description = item.getDescription();
    KvNJson::appendText(m_text, description != nullptr ? description : "");
    m_text += ',';
    newLine(column + 1);
    m_text += "\"parameters\": [";
    bool first = true;
    item.forEachParameter([&](const KvCInventoryParameter& parameter) {
        if (!first)
            m_text += ',';
        first = false;
        newLine(column + 2);
        appendParameter(m_text, parameter);
        return m_good;
    });
    m_text += "],";
    newLine(column + 1);
    m_text += "\"items\": [";
}

bool TreeWriter::item(const KvCInventoryItem& root)
{
    const KvCInventoryItem* item = &root;
    std::size_t column = 0;
    start(*item, column);
    while (m_good) {
        if (const KvCInventoryItem* child = item->getFirstSubItem(); child != nullptr) {
            item = child;
        } else {
            m_text += "]}";
            while (item != &root && item->getNext() == nullptr) {
                item = item->getParent();
                column -= 2;
                m_text += "]}";
            }
            if (item == &root)
                break;
            item = item->getNext();
            column -= 2;
            m_text += ',';
        }
        column += 2;
        newLine(column);
        start(*item, column);
    }
    return m_good;
}

}  // namespace

void appendValue(std::string& out, const KvCInventoryParameter& parameter)
{
    KvNElement::dispatch(
        parameter.KvCParam::getType(),
        [&](auto type) {
            if (const auto* value = parameter.valueIf<typename decltype(type)::Value>(); value != nullptr)
                appendTyped(out, *value);
            else
                out += "null";
        },
        [&] { out += "null"; });
}

void appendParameter(std::string& out, const KvCInventoryParameter& parameter)
{
    out += "{\"id\": ";
    appendId(out, parameter.getId());
    out += ", \"description\": ";
    const char* description = parameter.getDescription();
    KvNJson::appendText(out, description != nullptr ? description : "");
    out += ", \"type\": ";
    KvNJson::appendString(out, KvNParameterText::typeName(parameter));
    out += ", \"value\": ";
    appendValue(out, parameter);
    out += ", \"unit\": ";
    KvNJson::appendText(out, parameter.getUnit());
    out += parameter.isModifiable() ? ", \"modifiable\": true" : ", \"modifiable\": false";
    out += ", \"relevance\": " + std::to_string(parameter.getRelevance()) + "}";
}

bool writeItem(Sink& sink, const KvCInventoryItem& root)
{
    TreeWriter writer(sink);
    return writer.item(root) && writer.flush();
}

bool writeTree(Sink& sink, const KvCInventoryItem& root)
{
    TreeWriter writer(sink);
    writer.text("{\"format\": \"korvel-inventory\", \"version\": 1, \"tree\":\n");
    if (!writer.item(root))
        return false;
    writer.text("}\n");
    return writer.flush();
}

}  // namespace KvNTreeJson
