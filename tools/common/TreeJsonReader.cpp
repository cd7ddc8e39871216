#include <vector>

#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryParameter.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "platform/errorhandling/KvCErrorList.h"
#include "tools/common/TreeJson.h"
#include "tools/common/TreeJsonValue.h"

namespace KvNTreeJson {

namespace {

using KvNJson::Number;

/** The members of ITEM and PARAMETER, as bits of what has been seen. */
enum Key : unsigned
{
    NoKey = 0,
    Id = 1,
    Index = 2,
    Description = 4,
    Parameters = 8,
    Items = 16,
    Type = 32,
    Value = 64,
    Unit = 128,
    Modifiable = 256,
    Relevance = 512,
};
constexpr unsigned itemKeys = Id | Index | Description | Parameters | Items;
constexpr unsigned parameterKeys = Id | Description | Type | Value | Unit | Modifiable | Relevance;

struct KeyRow
{
    Key key;
    const char* name;
    const char* expected;  ///< what stands there, for messages
};
constexpr KeyRow keyRows[] = {
    {Id, "id", "must be the name or the number of an ID"},
    {Index, "index", "must be an integer from 0 to 4294967295"},
    {Description, "description", "must be a text"},
    {Parameters, "parameters", "must be an array of parameters"},
    {Items, "items", "must be an array of items"},
    {Type, "type", "must be the name of a type"},
    {Value, "value", "must be a value"},
    {Unit, "unit", "must be a text"},
    {Modifiable, "modifiable", "must be true or false"},
    {Relevance, "relevance", "must be an integer from 0 to 4294967295"},
};

const KeyRow* rowOf(unsigned key)
{
    for (const KeyRow& row : keyRows) {
        if (row.key == key)
            return &row;
    }
    return nullptr;
}

const KeyRow* rowOf(std::string_view name, unsigned allowed)
{
    for (const KeyRow& row : keyRows) {
        if ((row.key & allowed) != 0 && name == row.name)
            return &row;
    }
    return nullptr;
}

/** An item while its object is open. Deep trees have many: what is rare stays small. */
struct ItemFrame
{
    unsigned seen = 0;
    Key key = NoKey;
    KvUInt32 id = 0;
    KvUInt32 index = 1;
    std::string description;
    std::vector<std::unique_ptr<KvCInventoryParameter>> parameters;
    std::vector<std::unique_ptr<KvCInventoryItem>> items;
};

struct ParameterFrame
{
    unsigned seen = 0;
    Key key = NoKey;
    KvUInt32 id = 0;
    KvUInt32 relevance = 0;
    KvUInt32 type = 0;
    bool modifiable = false;
    std::string description;
    std::string unit;
    HeldValue value;
};

bool isText(const char* text, const std::string& wanted)
{
    return wanted == (text != nullptr ? text : "");
}

/** Whether every text has found memory: one that has not is empty, which is said to nobody here. */
bool isWhole(const KvCInventoryParameter& parameter, const ParameterFrame& frame)
{
    const KvCString* value = parameter.valueIf<KvCString>();
    return isText(parameter.getDescription(), frame.description) && isText(parameter.getUnit(), frame.unit) &&
           (value == nullptr || isText(value->c_str(), frame.value.text));
}

std::string quoted(std::string_view text)
{
    constexpr std::size_t longest = 60;
    std::string out;
    KvNJson::appendString(out, text.substr(0, longest));
    if (text.size() > longest)
        out += "...";
    return out;
}

}  // namespace

/** The state between events: which object or array is open, and what has been read of it. */
class ItemReader::Impl
{
public:
    enum class State
    {
        Start,
        Item,
        Items,
        Parameters,
        Parameter,
        Values,
        Text,
        Done
    };

    explicit Impl(std::string_view prefix) : m_prefix(prefix) {}

    bool number(const Number& value);
    bool text(std::string_view value);
    bool boolean(bool value);
    bool startObject();
    bool key(std::string_view name);
    bool endObject();
    bool startArray();
    bool endArray();
    bool wrongKind();
    bool failAt(const KvNJson::Pointer& place, std::string_view what);
    KvNJson::Pointer place() const;

    State state = State::Start;
    std::string problem;
    std::unique_ptr<KvCInventoryItem> root;

private:
    KvNJson::Pointer object() const;
    bool fail(std::string_view what) { return failAt(place(), what); }
    bool setId(std::string_view name, KvUInt32& id);
    bool setNumberedId(const Number& value, KvUInt32& id);
    bool setText(std::string&& value, bool isBytes);
    bool element(double value, bool isWhole);
    bool finishItem();
    bool attachAll(KvCInventoryItem& item, ItemFrame& frame);
    bool finishParameter();
    bool describe(unsigned seen, KvUInt32 id, std::string& description);
    bool outOfMemory(KvCErrorListPool& errors);
    Key currentKey() const;

    std::string m_prefix;
    std::vector<ItemFrame> m_frames;
    ParameterFrame m_parameter;
    State m_before = State::Item;  // of State::Text: whose text it is
    bool m_haveText = false;       // of State::Text: "base64" has been read
    std::string m_bytes;
};

bool ItemReader::Impl::failAt(const KvNJson::Pointer& where, std::string_view what)
{
    problem = "at \"" + where.text() + "\": ";
    problem += what;
    return false;
}

/** The open object. */
KvNJson::Pointer ItemReader::Impl::object() const
{
    KvNJson::Pointer pointer(m_prefix);
    for (std::size_t i = 0; i + 1 < m_frames.size() && !pointer.isFull(); ++i)
        pointer.member("items").element(m_frames[i].items.size());
    const State inner = state == State::Text ? m_before : state;
    if (inner == State::Parameter || inner == State::Values)
        pointer.member("parameters").element(m_frames.back().parameters.size());
    return pointer;
}

/** Where the current event stands. */
KvNJson::Pointer ItemReader::Impl::place() const
{
    KvNJson::Pointer pointer = object();
    if (m_frames.empty())
        return pointer;
    if (state == State::Items)
        return pointer.member("items").element(m_frames.back().items.size());
    if (state == State::Parameters)
        return pointer.member("parameters").element(m_frames.back().parameters.size());
    if (const KeyRow* row = rowOf(currentKey()); row != nullptr)
        pointer.member(row->name);
    if (state == State::Values)
        pointer.element(m_parameter.value.elements.size());
    if (state == State::Text)
        pointer.member("base64");
    return pointer;
}

Key ItemReader::Impl::currentKey() const
{
    const State inner = state == State::Text ? m_before : state;
    return inner == State::Parameter || inner == State::Values ? m_parameter.key : m_frames.back().key;
}

bool ItemReader::Impl::wrongKind()
{
    switch (state) {
        case State::Start:
        case State::Items:
            return fail("must be an item");
        case State::Parameters:
            return fail("must be a parameter");
        case State::Values:
            return fail("must be a number");
        case State::Text:
            return fail("must be a string");
        case State::Done:
            return fail("has something behind its end");
        default:
            break;
    }
    const KeyRow* row = rowOf(currentKey());
    return fail(row != nullptr ? row->expected : "is out of place");
}

bool ItemReader::Impl::outOfMemory(KvCErrorListPool& errors)
{
    return fail(errors.getErrorCount() > 0 ? errors.getErrorText(0) : "memory is out");
}

bool ItemReader::Impl::setId(std::string_view name, KvUInt32& id)
{
    id = KvNInventoryIDs::Map.find(name.data(), name.size());
    const char* placeholder = KvNInventoryIDs::Map.get(0);
    if (id != 0 || (placeholder != nullptr && name == placeholder))
        return true;
    return fail(quoted(name) + " is not the name of an ID");
}

bool ItemReader::Impl::setNumberedId(const Number& value, KvUInt32& id)
{
    return asUInt32(value, id) || fail("must be the name of an ID or a number from 0 to 4294967295");
}

bool ItemReader::Impl::element(double value, bool isWhole)
{
    HeldValue& held = m_parameter.value;
    if (held.whole && !isWhole) {
        held.whole = false;
        held.firstNotWhole = held.elements.size();
    }
    held.elements.push_back(value);
    return true;
}

bool ItemReader::Impl::number(const Number& value)
{
    if (state == State::Values) {
        KvUInt32 whole = 0;
        return element(value.asDouble, asUInt32(value, whole));
    }
    if (state == State::Item) {
        ItemFrame& frame = m_frames.back();
        if (frame.key == Id)
            return setNumberedId(value, frame.id);
        return frame.key == Index && asUInt32(value, frame.index) ? true : wrongKind();
    }
    if (state != State::Parameter)
        return wrongKind();
    if (m_parameter.key == Id)
        return setNumberedId(value, m_parameter.id);
    if (m_parameter.key == Value) {
        m_parameter.value.kind = HeldValue::Kind::Number;
        m_parameter.value.number = value;
        m_parameter.value.text = value.text;
        m_parameter.value.number.text = {};
        return true;
    }
    return m_parameter.key == Relevance && asUInt32(value, m_parameter.relevance) ? true : wrongKind();
}

bool ItemReader::Impl::boolean(bool value)
{
    if (state != State::Parameter || m_parameter.key != Modifiable)
        return wrongKind();
    m_parameter.modifiable = value;
    return true;
}

/** A text or the bytes of one, for the current member. */
bool ItemReader::Impl::setText(std::string&& value, bool isBytes)
{
    const Key key = currentKey();
    const bool isTyped = key == Value && !isBytes;
    if (!isTyped && value.find('\0') != std::string::npos)
        return fail("contains a NUL");
    if (state == State::Parameter && key == Value) {
        m_parameter.value.kind = isBytes ? HeldValue::Kind::Bytes : HeldValue::Kind::Text;
        m_parameter.value.text = std::move(value);
        return true;
    }
    if (state == State::Item)
        m_frames.back().description = std::move(value);
    else
        (key == Unit ? m_parameter.unit : m_parameter.description) = std::move(value);
    return true;
}

bool ItemReader::Impl::text(std::string_view value)
{
    switch (state) {
        case State::Text:
            if (!KvNJson::decodeBase64(value, m_bytes))
                return fail("is not base64");
            m_haveText = true;
            return true;
        case State::Values: {
            double number = 0;
            return namedFloat(value, number) ? element(number, false) : wrongKind();
        }
        case State::Item:
            if (m_frames.back().key == Id)
                return setId(value, m_frames.back().id);
            return m_frames.back().key == Description ? setText(std::string(value), false) : wrongKind();
        case State::Parameter:
            if (m_parameter.key == Id)
                return setId(value, m_parameter.id);
            if (m_parameter.key == Type)
                return typeByName(value, m_parameter.type) || fail(quoted(value) + " is not a type");
            if ((m_parameter.key & (Description | Unit | Value)) != 0)
                return setText(std::string(value), false);
            return wrongKind();
        default:
            return wrongKind();
    }
}

bool ItemReader::Impl::startObject()
{
    switch (state) {
        case State::Start:
        case State::Items:
            m_frames.emplace_back();
            state = State::Item;
            return true;
        case State::Parameters:
            m_parameter = {};
            state = State::Parameter;
            return true;
        case State::Item:
        case State::Parameter:
            if ((currentKey() & (Description | Unit | Value)) == 0)
                return wrongKind();
            m_before = state;
            m_haveText = false;
            state = State::Text;
            return true;
        default:
            return wrongKind();
    }
}

bool ItemReader::Impl::key(std::string_view name)
{
    if (state == State::Text) {
        if (name == "base64" && !m_haveText)
            return true;
        return failAt(object().member(rowOf(currentKey())->name).member(name),
                      name == "base64" ? "is given twice" : "is unknown: a text is a string or {\"base64\": \"...\"}");
    }
    const bool isItem = state == State::Item;
    const KeyRow* row = rowOf(name, isItem ? itemKeys : parameterKeys);
    if (row == nullptr)
        return failAt(object().member(name), isItem ? "is no member of an item" : "is no member of a parameter");
    unsigned& seen = isItem ? m_frames.back().seen : m_parameter.seen;
    if ((seen & row->key) != 0)
        return failAt(object().member(name), "is given twice");
    seen |= row->key;
    (isItem ? m_frames.back().key : m_parameter.key) = row->key;
    return true;
}

bool ItemReader::Impl::startArray()
{
    if (state == State::Parameter && m_parameter.key == Value) {
        m_parameter.value.kind = HeldValue::Kind::Array;
        state = State::Values;
        return true;
    }
    if (state != State::Item || (m_frames.back().key & (Parameters | Items)) == 0)
        return wrongKind();
    state = m_frames.back().key == Items ? State::Items : State::Parameters;
    return true;
}

bool ItemReader::Impl::endArray()
{
    state = state == State::Values ? State::Parameter : State::Item;
    return true;
}

bool ItemReader::Impl::endObject()
{
    if (state == State::Item)
        return finishItem();
    if (state == State::Parameter)
        return finishParameter();
    if (!m_haveText)
        return fail("is missing");
    state = m_before;
    return setText(std::move(m_bytes), true);
}

/** Gives an ID's name to a node whose description was left out. */
bool ItemReader::Impl::describe(unsigned seen, KvUInt32 id, std::string& description)
{
    if ((seen & Description) != 0)
        return true;
    const char* name = KvNInventoryIDs::Map.get(id);
    if (name == nullptr)
        return failAt(object().member("description"), "is missing, and the ID has no registered name");
    description = name;
    return true;
}

bool ItemReader::Impl::finishParameter()
{
    ParameterFrame& frame = m_parameter;
    for (const Key key : {Id, Type, Value}) {
        if ((frame.seen & key) == 0)
            return failAt(object().member(rowOf(key)->name), "is missing");
    }
    if (!describe(frame.seen, frame.id, frame.description))
        return false;
    KvCErrorListPool errors;
    std::unique_ptr<KvCInventoryParameter> parameter(new (errors) KvCInventoryParameter(
        errors, KvCInventoryAddress(frame.id), frame.description.c_str(), frame.type));
    if (parameter == nullptr || errors.getErrorCount() > 0)
        return outOfMemory(errors);
    if (!store(frame.value, errors, *parameter)) {
        KvNJson::Pointer where = object().member("value");
        if (frame.value.kind == HeldValue::Kind::Array && expectsArray(frame.type))
            where.element(frame.value.firstNotWhole);
        return failAt(where, std::string(KvNElement::nameOf(frame.type)) + " takes " + expectedValue(frame.type));
    }
    if (frame.value.kind == HeldValue::Kind::Text && frame.value.text.find('\0') != std::string::npos)
        return failAt(object().member("value"), "contains a NUL");
    parameter->setUnit(frame.unit.c_str());
    parameter->setModifiableFlag(frame.modifiable);
    parameter->setRelevance(frame.relevance);
    if (errors.getErrorCount() > 0 || !isWhole(*parameter, frame))
        return outOfMemory(errors);
    m_frames.back().parameters.push_back(std::move(parameter));
    state = State::Parameters;
    return true;
}

/** Hangs what the frame has collected into the item. */
bool ItemReader::Impl::attachAll(KvCInventoryItem& item, ItemFrame& frame)
{
    KvCErrorListPool errors;
    for (std::size_t i = 0; i < frame.parameters.size(); ++i) {
        if (item.getParameterById(frame.parameters[i]->getId()) != nullptr)
            return failAt(object().member("parameters").element(i).member("id"), "is the ID of an earlier parameter");
        if (item.addParameter(errors, KvCInventoryAddress(), frame.parameters[i].get()) == nullptr)
            return outOfMemory(errors);
        frame.parameters[i].release();
    }
    for (std::size_t i = 0; i < frame.items.size(); ++i) {
        if (item.addItem(KvCInventoryAddress(), frame.items[i].get()) == nullptr)
            return failAt(object().member("items").element(i), "has the ID and the index of an earlier item");
        frame.items[i].release();
    }
    return true;
}

bool ItemReader::Impl::finishItem()
{
    ItemFrame& frame = m_frames.back();
    if ((frame.seen & Id) == 0)
        return failAt(object().member("id"), "is missing");
    if (!describe(frame.seen, frame.id, frame.description))
        return false;
    KvCErrorListPool errors;
    std::unique_ptr<KvCInventoryItem> item(
        new (errors) KvCInventoryItem(errors, KvCInventoryAddress(frame.id, frame.index), frame.description.c_str()));
    if (item == nullptr || errors.getErrorCount() > 0 || !isText(item->getDescription(), frame.description))
        return outOfMemory(errors);
    if (!attachAll(*item, frame))
        return false;
    m_frames.pop_back();
    if (m_frames.empty()) {
        root = std::move(item);
        state = State::Done;
        return true;
    }
    m_frames.back().items.push_back(std::move(item));
    state = State::Items;
    return true;
}

ItemReader::ItemReader(std::string_view prefix) : m_impl(std::make_unique<Impl>(prefix)) {}
ItemReader::~ItemReader() = default;

bool ItemReader::null()
{
    return m_impl->wrongKind();
}

bool ItemReader::boolean(bool value)
{
    return m_impl->boolean(value);
}

bool ItemReader::number(const Number& value)
{
    return m_impl->number(value);
}

bool ItemReader::text(std::string_view value)
{
    return m_impl->text(value);
}

bool ItemReader::startObject()
{
    return m_impl->startObject();
}

bool ItemReader::key(std::string_view name)
{
    return m_impl->key(name);
}

bool ItemReader::endObject()
{
    return m_impl->endObject();
}

bool ItemReader::startArray()
{
    return m_impl->startArray();
}

bool ItemReader::endArray()
{
    return m_impl->endArray();
}

void ItemReader::malformed(const std::string& what)
{
    m_impl->failAt(m_impl->place(), what);
}

bool ItemReader::isDone() const
{
    return m_impl->state == Impl::State::Done;
}

const std::string& ItemReader::problem() const
{
    return m_impl->problem;
}

std::unique_ptr<KvCInventoryItem> ItemReader::take()
{
    return std::move(m_impl->root);
}

}  // namespace KvNTreeJson
