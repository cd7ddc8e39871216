#include <google/protobuf/arena.h>
#include <google/protobuf/io/coded_stream.h>

#include <limits>

#include "bench/Peers.h"
#include "bench/Tree.pb.h"

namespace {

using namespace KvNPeers;

void copyParameter(const KvCInventoryParameter& from, kvbench::Parameter* to)
{
    to->set_id(from.getId());
    to->set_type(from.getType());
    if (from.getDescription() != nullptr)
        to->set_description(from.getDescription());
    if (const auto* number = from.valueIf<KvUInt32>())
        to->set_number(*number);
    else if (const auto* wide = from.valueIf<double>())
        to->set_wide(*wide);
    else if (const auto* narrow = from.valueIf<float>())
        to->set_narrow(*narrow);
    else if (const auto* text = from.valueIf<KvCString>())
        to->set_text(text->c_str(), text->length());
    else if (const auto* version = from.valueIf<KvCVersion>())
        to->set_version(version->getAsULong64());
    to->set_unit(from.getUnit(), from.getUnitLength());
    to->set_modifiable(from.isModifiable());
    to->set_relevance(from.getRelevance());
}

void copyItem(const KvCInventoryItem& from, kvbench::Item* to)
{
    to->set_id(from.getClassId());
    to->set_index(from.getUnitId());
    to->set_description(from.getDescription());
    from.forEachParameter([to](const KvCInventoryParameter& parameter) {
        copyParameter(parameter, to->add_parameters());
        return true;
    });
}

template <class Sink>
void takeText(const std::string& text, Sink& sink)
{
    sink.text(text.data(), text.size());
}

template <class Sink>
void takeValue(const kvbench::Parameter& parameter, Sink& sink)
{
    switch (parameter.value_case()) {
        case kvbench::Parameter::kNumber:
            return sink.number(parameter.number());
        case kvbench::Parameter::kWide:
            return sink.number(std::bit_cast<std::uint64_t>(parameter.wide()));
        case kvbench::Parameter::kNarrow:
            return sink.number(std::bit_cast<std::uint32_t>(parameter.narrow()));
        case kvbench::Parameter::kText:
            return takeText(parameter.text(), sink);
        case kvbench::Parameter::kVersion:
            return sink.number(parameter.version());
        case kvbench::Parameter::VALUE_NOT_SET:
            return;
    }
}

template <class Sink>
void takeItem(const kvbench::Item& item, Sink& sink)
{
    sink.number(item.id());
    sink.number(item.index());
    takeText(item.description(), sink);
    for (const kvbench::Parameter& parameter : item.parameters()) {
        sink.parameter();
        sink.number(parameter.id());
        sink.number(parameter.type());
        takeText(parameter.description(), sink);
        takeValue(parameter, sink);
        takeText(parameter.unit(), sink);
        sink.number(parameter.modifiable());
        sink.number(parameter.relevance());
    }
}

template <class Sink>
void walkItems(const kvbench::Item& root, Sink& sink)
{
    struct Place
    {
        const kvbench::Item* item;
        int next;
    };
    takeItem(root, sink);
    std::vector<Place> path{{&root, 0}};
    while (!path.empty()) {
        Place& place = path.back();
        if (place.next == place.item->items_size()) {
            path.pop_back();
            continue;
        }
        const kvbench::Item& child = place.item->items(place.next++);
        takeItem(child, sink);
        if (child.items_size() != 0)
            path.push_back({&child, 0});
    }
}

class ProtobufTree : public PeerTree
{
public:
    explicit ProtobufTree(kvbench::Item& root) : m_root(root) {}

    void fill(const KvCInventoryItem& root) override
    {
        copyItems(root, &m_root, copyItem, [](kvbench::Item* item) { return item->add_items(); });
    }
    bool parse(const std::string& bytes) override
    {
        google::protobuf::io::CodedInputStream in(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                                  static_cast<int>(bytes.size()));
        in.SetRecursionLimit(std::numeric_limits<int>::max());
        return m_root.ParseFromCodedStream(&in) && in.ConsumedEntireMessage();
    }
    std::string write() const override { return m_root.SerializeAsString(); }
    void walk(KvNWalk::Sum& sum) const override { walkItems(m_root, sum); }
    void walk(KvNWalk::Digest& digest) const override { walkItems(m_root, digest); }

private:
    kvbench::Item& m_root;
};

template <class Owner>
class OwningTree : private Owner, public ProtobufTree
{
public:
    OwningTree() : ProtobufTree(Owner::root()) {}
};

struct OnArena
{
    kvbench::Item& root() { return *google::protobuf::Arena::CreateMessage<kvbench::Item>(&arena); }
    google::protobuf::Arena arena;
};

struct OnHeap
{
    kvbench::Item& root() { return item; }
    kvbench::Item item;
};

}  // namespace

namespace KvNPeers {

std::unique_ptr<PeerTree> makeProtobufArena()
{
    return std::make_unique<OwningTree<OnArena>>();
}

std::unique_ptr<PeerTree> makeProtobufHeap()
{
    return std::make_unique<OwningTree<OnHeap>>();
}

}  // namespace KvNPeers
