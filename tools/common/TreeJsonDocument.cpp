#include <new>

#include "inventory/KvCInventoryItem.h"
#include "tools/common/TreeJson.h"

namespace KvNTreeJson {

namespace {

/** Reads {"format": "korvel-inventory", "version": 1, "tree": ITEM}, whatever the order of its members. */
class DocumentReader : public KvNJson::Handler
{
public:
    bool null() override { return m_inTree ? forward(m_tree.null()) : wrongValue(); }
    bool boolean(bool value) override { return m_inTree ? forward(m_tree.boolean(value)) : wrongValue(); }
    bool number(const KvNJson::Number& value) override;
    bool text(std::string_view value) override;
    bool startObject() override;
    bool key(std::string_view name) override;
    bool endObject() override;
    bool startArray() override { return m_inTree ? forward(m_tree.startArray()) : wrongValue(); }
    bool endArray() override { return !m_inTree || forward(m_tree.endArray()); }
    void malformed(const std::string& what) override;

    const std::string& problem() const { return m_problem; }
    std::unique_ptr<KvCInventoryItem> take() { return m_tree.take(); }

private:
    bool fail(std::string_view place, std::string_view what)
    {
        KvNJson::Pointer pointer("");
        if (!place.empty())
            pointer.member(place);
        m_problem = "at \"" + pointer.text() + "\": ";
        m_problem += what;
        return false;
    }
    bool forward(bool good)
    {
        if (!good)
            m_problem = m_tree.problem();
        else if (m_tree.isDone())
            m_inTree = false;
        return good;
    }
    bool wrongValue();

    bool m_open = false;
    bool m_inTree = false;
    bool m_haveFormat = false;
    bool m_haveVersion = false;
    bool m_haveTree = false;
    std::string m_key;
    std::string m_problem;
    ItemReader m_tree{"/tree"};
};

bool DocumentReader::wrongValue()
{
    if (!m_open)
        return fail("", "must be an object with \"format\", \"version\" and \"tree\"");
    if (m_key == "format")
        return fail(m_key, "must be \"korvel-inventory\"");
    return fail(m_key, m_key == "version" ? "must be 1" : "must be an item");
}

bool DocumentReader::number(const KvNJson::Number& value)
{
    if (m_inTree)
        return forward(m_tree.number(value));
    const bool isOne = value.kind == KvNJson::Number::Kind::Unsigned && value.asUnsigned == 1;
    return (m_open && m_key == "version" && isOne) || wrongValue();
}

bool DocumentReader::text(std::string_view value)
{
    if (m_inTree)
        return forward(m_tree.text(value));
    return (m_open && m_key == "format" && value == "korvel-inventory") || wrongValue();
}

bool DocumentReader::startObject()
{
    if (m_inTree)
        return forward(m_tree.startObject());
    if (!m_open) {
        m_open = true;
        return true;
    }
    if (m_key != "tree")
        return wrongValue();
    m_inTree = true;
    return forward(m_tree.startObject());
}

bool DocumentReader::key(std::string_view name)
{
    if (m_inTree)
        return forward(m_tree.key(name));
    bool* seen = name == "format"    ? &m_haveFormat
                 : name == "version" ? &m_haveVersion
                 : name == "tree"    ? &m_haveTree
                                     : nullptr;
    if (seen == nullptr)
        return fail(name, "is no member of a tree document");
    if (*seen)
        return fail(name, "is given twice");
    *seen = true;
    m_key = name;
    return true;
}

bool DocumentReader::endObject()
{
    if (m_inTree)
        return forward(m_tree.endObject());
    if (!m_haveFormat)
        return fail("format", "is missing");
    if (!m_haveVersion)
        return fail("version", "is missing");
    return m_haveTree || fail("tree", "is missing");
}

void DocumentReader::malformed(const std::string& what)
{
    if (m_inTree) {
        m_tree.malformed(what);
        m_problem = m_tree.problem();
    } else {
        fail(m_key, what);
    }
}

template <class Reader>
std::unique_ptr<KvCInventoryItem> read(KvNJson::Source& source, std::string& problem, Reader& reader)
{
    try {
        if (KvNJson::parse(source, reader))
            return reader.take();
        problem = reader.problem();
    } catch (const std::bad_alloc&) {
        problem = "memory is out";
    }
    return nullptr;
}

}  // namespace

std::unique_ptr<KvCInventoryItem> readTree(KvNJson::Source& source, std::string& problem)
{
    DocumentReader reader;
    return read(source, problem, reader);
}

std::unique_ptr<KvCInventoryItem> readItem(KvNJson::Source& source, std::string& problem, std::string_view prefix)
{
    ItemReader reader(prefix);
    return read(source, problem, reader);
}

}  // namespace KvNTreeJson
