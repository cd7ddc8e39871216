#include <cstdio>
#include <cstdlib>
#include <pugixml.hpp>

#include "bench/Peers.h"

namespace {

using namespace KvNPeers;

void copyValue(const KvCInventoryParameter& from, pugi::xml_attribute to)
{
    if (const auto* number = from.valueIf<KvUInt32>())
        to = *number;
    else if (const auto* wide = from.valueIf<double>())
        to = *wide;
    else if (const auto* narrow = from.valueIf<float>())
        to = *narrow;
    else if (const auto* text = from.valueIf<KvCString>())
        to = text->c_str();
    else if (const auto* version = from.valueIf<KvCVersion>())
        to = version->getAsULong64();
}

void copyItem(const KvCInventoryItem& from, pugi::xml_node to)
{
    to.append_attribute("id") = from.getClassId();
    to.append_attribute("index") = from.getUnitId();
    to.append_attribute("description") = from.getDescription();
    from.forEachParameter([to](const KvCInventoryParameter& parameter) mutable {
        pugi::xml_node node = to.append_child("parameter");
        const char* description = parameter.getDescription();
        node.append_attribute("id") = parameter.getId();
        node.append_attribute("type") = parameter.getType();
        node.append_attribute("description") = description == nullptr ? "" : description;
        copyValue(parameter, node.append_attribute("value"));
        node.append_attribute("unit") = parameter.getUnit();
        node.append_attribute("modifiable") = parameter.isModifiable();
        node.append_attribute("relevance") = parameter.getRelevance();
        return true;
    });
}

template <class Sink>
void takeText(pugi::xml_attribute attribute, Sink& sink)
{
    const char* text = attribute.value();
    sink.text(text, std::strlen(text));
}

template <class Sink>
void takeValue(KvUInt32 type, pugi::xml_attribute value, Sink& sink)
{
    switch (type) {
        case KvNElement::KvCStringCode:
            return takeText(value, sink);
        case KvNElement::Float64Code:
            return sink.number(std::bit_cast<std::uint64_t>(value.as_double()));
        case KvNElement::Float32Code:
            return sink.number(std::bit_cast<std::uint32_t>(value.as_float()));
        default:
            return sink.number(value.as_ullong());
    }
}

/** Attributes are taken in their order, as who reads quickly does. */
template <class Sink>
void takeNode(pugi::xml_node node, Sink& sink)
{
    pugi::xml_attribute at = node.first_attribute();
    const auto next = [&at] { return at = at.next_attribute(); };
    const bool isParameter = node.name()[0] == 'p';
    if (isParameter)
        sink.parameter();
    sink.number(at.as_uint());
    const KvUInt32 second = next().as_uint();
    sink.number(second);
    takeText(next(), sink);
    if (!isParameter)
        return;
    takeValue(second, next(), sink);
    takeText(next(), sink);
    sink.number(next().as_bool());
    sink.number(next().as_uint());
}

template <class Sink>
void walkNodes(pugi::xml_node root, Sink& sink)
{
    for (pugi::xml_node node = root; node;) {
        takeNode(node, sink);
        if (node.first_child()) {
            node = node.first_child();
            continue;
        }
        while (node != root && !node.next_sibling())
            node = node.parent();
        if (node == root)
            return;
        node = node.next_sibling();
    }
}

struct StringWriter : pugi::xml_writer
{
    void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }
    std::string text;
};

class XmlTree : public PeerTree
{
public:
    void fill(const KvCInventoryItem& root) override
    {
        copyItems(root, m_document.append_child("item"), copyItem,
                  [](pugi::xml_node item) { return item.append_child("item"); });
    }
    bool parse(const std::string& bytes) override { return m_document.load_buffer(bytes.data(), bytes.size()); }
    std::string write() const override
    {
        StringWriter writer;
        m_document.save(writer, "", pugi::format_raw | pugi::format_no_declaration);
        return std::move(writer.text);
    }
    void walk(KvNWalk::Sum& sum) const override { walkNodes(m_document.first_child(), sum); }
    void walk(KvNWalk::Digest& digest) const override { walkNodes(m_document.first_child(), digest); }

private:
    pugi::xml_document m_document;
};

}  // namespace

namespace KvNPeers {

std::function<std::string()> savedDocument(const char* text)
{
    const auto document = std::make_shared<pugi::xml_document>();
    const bool good = document->load_string(text);
    const auto save = [document] {
        StringWriter writer;
        document->save(writer, "    ", pugi::format_indent | pugi::format_no_declaration);
        return std::move(writer.text);
    };
    if (good && save() == text)
        return save;
    std::fprintf(stderr, "pugixml saves another text\n");
    std::exit(1);
}

std::unique_ptr<PeerTree> makeXml()
{
    return std::make_unique<XmlTree>();
}

}  // namespace KvNPeers
