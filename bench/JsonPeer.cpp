#include <nlohmann/json.hpp>

#include "bench/Peers.h"

namespace {

using namespace KvNPeers;
using Json = nlohmann::json;

Json valueOf(const KvCInventoryParameter& parameter)
{
    if (const auto* number = parameter.valueIf<KvUInt32>())
        return *number;
    if (const auto* wide = parameter.valueIf<double>())
        return *wide;
    if (const auto* narrow = parameter.valueIf<float>())
        return *narrow;
    if (const auto* text = parameter.valueIf<KvCString>())
        return text->c_str();
    if (const auto* version = parameter.valueIf<KvCVersion>())
        return version->getAsULong64();
    return nullptr;
}

void copyItem(const KvCInventoryItem& from, Json* to)
{
    *to = {{"id", from.getClassId()}, {"index", from.getUnitId()}, {"description", from.getDescription()}};
    Json& parameters = (*to)["parameters"] = Json::array();
    from.forEachParameter([&parameters](const KvCInventoryParameter& parameter) {
        const char* description = parameter.getDescription();
        parameters.push_back({{"id", parameter.getId()},
                              {"type", parameter.getType()},
                              {"description", description == nullptr ? "" : description},
                              {"value", valueOf(parameter)},
                              {"unit", parameter.getUnit()},
                              {"modifiable", parameter.isModifiable()},
                              {"relevance", parameter.getRelevance()}});
        return true;
    });
    std::size_t children = 0;
    for (const KvCInventoryItem* child = from.getFirstSubItem(); child != nullptr; child = child->getNext())
        ++children;
    Json& items = (*to)["items"] = Json::array();
    items.get_ref<Json::array_t&>().reserve(children);
}

Json* addChild(Json* item)
{
    Json& items = (*item)["items"];
    items.push_back(nullptr);
    return &items.back();
}

template <class Sink>
void takeText(const Json& text, Sink& sink)
{
    const auto& content = text.get_ref<const std::string&>();
    sink.text(content.data(), content.size());
}

template <class Sink>
void takeValue(KvUInt32 type, const Json& value, Sink& sink)
{
    switch (type) {
        case KvNElement::KvCStringCode:
            return takeText(value, sink);
        case KvNElement::Float64Code:
            return sink.number(std::bit_cast<std::uint64_t>(value.get<double>()));
        case KvNElement::Float32Code:
            return sink.number(std::bit_cast<std::uint32_t>(value.get<float>()));
        default:
            return sink.number(value.get<std::uint64_t>());
    }
}

template <class Sink>
void takeItem(const Json& item, Sink& sink)
{
    sink.number(item.find("id")->get<KvUInt32>());
    sink.number(item.find("index")->get<KvUInt32>());
    takeText(*item.find("description"), sink);
    for (const Json& parameter : *item.find("parameters")) {
        sink.parameter();
        sink.number(parameter.find("id")->get<KvUInt32>());
        const KvUInt32 type = parameter.find("type")->get<KvUInt32>();
        sink.number(type);
        takeText(*parameter.find("description"), sink);
        takeValue(type, *parameter.find("value"), sink);
        takeText(*parameter.find("unit"), sink);
        sink.number(parameter.find("modifiable")->get<bool>());
        sink.number(parameter.find("relevance")->get<KvUInt32>());
    }
}

template <class Sink>
void walkItems(const Json& root, Sink& sink)
{
    struct Place
    {
        const Json::array_t* items;
        std::size_t next;
    };
    const auto itemsOf = [](const Json& item) { return &item.find("items")->get_ref<const Json::array_t&>(); };
    takeItem(root, sink);
    std::vector<Place> path{{itemsOf(root), 0}};
    while (!path.empty()) {
        Place& place = path.back();
        if (place.next == place.items->size()) {
            path.pop_back();
            continue;
        }
        const Json& child = (*place.items)[place.next++];
        takeItem(child, sink);
        path.push_back({itemsOf(child), 0});
    }
}

class JsonTree : public PeerTree
{
public:
    void fill(const KvCInventoryItem& root) override { copyItems(root, &m_root, copyItem, addChild); }
    bool parse(const std::string& bytes) override
    {
        m_root = Json::parse(bytes, nullptr, false);
        return !m_root.is_discarded();
    }
    std::string write() const override { return m_root.dump(); }
    void walk(KvNWalk::Sum& sum) const override { walkItems(m_root, sum); }
    void walk(KvNWalk::Digest& digest) const override { walkItems(m_root, digest); }

private:
    Json m_root;
};

}  // namespace

namespace KvNPeers {

std::unique_ptr<PeerTree> makeJson()
{
    return std::make_unique<JsonTree>();
}

}  // namespace KvNPeers
