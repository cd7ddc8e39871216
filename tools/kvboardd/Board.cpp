#include "tools/kvboardd/Board.h"

#include <algorithm>
#include <bit>
#include <new>
#include <type_traits>
#include <unordered_map>
#include <utility>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "composite/ElementTypes.h"
#include "inventory/KvCInventoryData.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/KvCInventoryParameter.h"
#include "tools/kvboardd/Store.h"

namespace KvNBoardService {

namespace {

constexpr std::size_t shownAddressBytes = 200;
constexpr KvUInt32 textCode = KvNElement::Traits<KvCString>::code;

/** The number whose bytes these are, the most significant first. */
KvUInt64 fromBytes(std::span<const unsigned char> bytes)
{
    KvUInt64 number = 0;
    for (const unsigned char byte : bytes)
        number = number << 8 | byte;
    return number;
}

/** The value of type T that `bytes` stand for; they have the size that T needs. */
template <class T>
T decodeValue(std::span<const unsigned char> bytes)
{
    if constexpr (KvNElement::isString<T>) {
        const std::string text(bytes.begin(), bytes.end());
        return KvCString(text.c_str());
    } else if constexpr (KvNElement::isVersion<T>) {
        return KvCVersion(fromBytes(bytes));
    } else if constexpr (std::is_same_v<T, float>) {
        return std::bit_cast<float>(static_cast<KvUInt32>(fromBytes(bytes)));
    } else if constexpr (std::is_same_v<T, double>) {
        return std::bit_cast<double>(fromBytes(bytes));
    } else {
        return static_cast<T>(fromBytes(bytes));
    }
}

/** Bytes that a value of the type with this code has when transmitted; 0 for texts and for what cannot be written. */
std::size_t transmittedSize(KvUInt32 code)
{
    return KvNElement::dispatch(
        code,
        [](auto type) -> std::size_t {
            using T = typename decltype(type)::Value;
            if constexpr (std::is_arithmetic_v<T>)
                return sizeof(T);
            else
                return KvNElement::isVersion<T> ? 8 : 0;
        },
        [] { return std::size_t(0); });
}

/** Whether nothing has failed since it was made: neither in the caller's list, nor, where values are copied, for want
   of memory, which the master list is told. */
class Success
{
public:
    explicit Success(KvCErrorListPool& errors) : m_watch(errors), m_memory(KvNReport::masterList()), m_errors(errors) {}

    /** Makes sure that a failure is in the caller's list. */
    bool check(const char* origin) const
    {
        if (m_memory.grew() && !m_watch.grew())
            KV_REPORT(m_errors, BoardOutOfMemory, origin);
        return !m_watch.grew();
    }

private:
    KvNReport::Watch m_watch;
    KvNReport::Watch m_memory;
    KvCErrorListPool& m_errors;
};

/** Calls `action.operator()<T>()` with the type of this code, one of the twelve that can be written; whether nothing
    failed meanwhile. */
template <class Action>
bool withType(KvCErrorListPool& errors, KvUInt32 code, const Action& action)
{
    const Success success(errors);
    KvNElement::dispatch(
        code,
        [&](auto type) {
            using T = typename decltype(type)::Value;
            if constexpr (!KvNElement::isArray<T>)
                action.template operator()<T>();
        },
        [] {});
    return success.check("Board::withType");
}

/** Tells which parameters stand at or below an item; looks at each item above them once. */
class Below
{
public:
    explicit Below(const KvCInventoryItem* top) { m_known.emplace(top, true); }

    bool contains(const KvCInventoryParameter& parameter)
    {
        bool isBelow = false;
        const KvCInventoryItem* above = parameter.getParent();
        for (; above != nullptr; above = above->getParent()) {
            const auto known = m_known.find(above);
            if (known == m_known.end())
                continue;
            isBelow = known->second;
            break;
        }
        for (const KvCInventoryItem* item = parameter.getParent(); item != above; item = item->getParent())
            m_known.emplace(item, isBelow);
        return isBelow;
    }

private:
    std::unordered_map<const KvCInventoryItem*, bool> m_known;
};

}  // namespace

std::string shownAddress(const KvCInventoryAddress& address)
{
    std::string text = address.toString().c_str();
    if (text.size() > shownAddressBytes)
        text = text.substr(0, shownAddressBytes) + "...";
    return text;
}

BoardDescription::BoardDescription() = default;
BoardDescription::BoardDescription(BoardDescription&&) noexcept = default;
BoardDescription& BoardDescription::operator=(BoardDescription&&) noexcept = default;
BoardDescription::~BoardDescription() = default;

Board::Board(BoardDescription description, std::unique_ptr<Store> store, const Limits& limits)
    : m_description(std::move(description)), m_store(std::move(store)), m_limits(limits)
{}

Board::~Board() = default;

bool Board::restore(std::string& problem)
{
    std::vector<unsigned char> section;
    if (!m_store || m_description.isMachine)
        return true;
    if (!m_store->readInventory(section, problem))
        return false;
    if (section.empty())
        return true;
    KvCErrorListPool errors;
    KvCInventoryItem* root = nullptr;
    KvCInventoryData::extractInventoryTreeFromMem(errors, section.data(), section.size(), root);
    std::unique_ptr<KvCInventoryItem> tree(root);
    if (!tree) {
        problem = m_store->inventoryName() + ": ";
        problem += errors.getErrorCount() == 0 ? "no inventory section" : errors.getErrorText(0);
        return false;
    }
    if (tree->getID() != localAddress()) {
        problem = m_store->inventoryName() + ": it holds " + shownAddress(tree->getID()) + ", not " +
                  shownAddress(localAddress());
        return false;
    }
    m_description.tree = std::move(tree);
    m_stream.reset();
    return true;
}

KvCInventoryAddress Board::localAddress() const
{
    return m_description.tree->getID();
}

const KvCBuffer* Board::scan(KvCErrorListPool& errors)
{
    if (m_stream)
        return m_stream.get();
    const KvNReport::Watch watch(errors);
    std::unique_ptr<KvCBuffer> stream(new (errors) KvCBuffer(errors));
    if (stream && !watch.grew()) {
        KvCInventoryItemFactory factory(errors);
        factory.serialize(errors, stream.get(), m_description.tree.get());
    }
    if (!stream || watch.grew()) {
        KV_REPORT(errors, BoardCannotSerialize, "Board::scan");
        return nullptr;
    }
    m_stream = std::move(stream);
    return m_stream.get();
}

bool Board::find(KvCErrorListPool& errors, const KvCInventoryAddress& address, Place& place, const char* origin) const
{
    if (address.getFirstElement() != localAddress()) {
        KV_REPORT(errors, BoardOtherBoard, origin, shownAddress(address), shownAddress(localAddress()));
        return false;
    }
    const KvCInventoryAddress below = address.getSubAddress();
    if (below.getLength() != address.getLength() - 1) {
        KV_REPORT(errors, BoardOutOfMemory, origin);
        return false;
    }
    place.item = m_description.tree->getItem(below);
    place.parameter = m_description.tree->getParameter(below);
    if (place.item == nullptr && place.parameter == nullptr) {
        KV_REPORT(errors, BoardUnknownAddress, origin, shownAddress(address));
        return false;
    }
    return true;
}

bool Board::contains(KvCErrorListPool& errors, const KvCInventoryAddress& address) const
{
    Place place;
    return find(errors, address, place, "Board::contains");
}

bool Board::read(KvCErrorListPool& errors, const KvCInventoryAddress& address, KvCBuffer& out) const
{
    Place place;
    if (!find(errors, address, place, "Board::read"))
        return false;
    if (place.parameter == nullptr) {
        KV_REPORT(errors, BoardNoParameter, "Board::read", shownAddress(address));
        return false;
    }
    const Success success(errors);
    KvCInventoryItemFactory factory(errors);
    factory.serializeInventoryParameter(errors, &out, place.parameter);
    return success.check("Board::read");
}

bool Board::write(KvCErrorListPool& errors, KvUInt32 accessId, const KvCInventoryAddress& address,
                  const WireValue& value)
{
    Place place;
    if (!find(errors, address, place, "Board::write"))
        return false;
    const std::string name = shownAddress(address);
    if (place.parameter == nullptr) {
        KV_REPORT(errors, BoardNoParameter, "Board::write", name);
        return false;
    }
    if (!check(errors, *place.parameter, name, value))
        return false;
    if (m_writer != accessId)
        dropWritten(m_writer);
    m_writer = accessId;
    const bool isNew = !place.parameter->isDesignatedValueValid();
    if (isNew)
        m_written.push_back(place.parameter);
    if (!designate(errors, *place.parameter, value)) {
        // Neither what there is of the value nor one written before is to be applied, and the next one is a new one.
        place.parameter->deleteDesignatedValue();
        std::erase(m_written, place.parameter);
        KV_REPORT(errors, BoardCannotWrite, "Board::write", name);
        return false;
    }
    return true;
}

bool Board::check(KvCErrorListPool& errors, const KvCInventoryParameter& parameter, const std::string& name,
                  const WireValue& value) const
{
    const char* const origin = "Board::write";
    if (!parameter.isModifiable()) {
        KV_REPORT(errors, BoardNotModifiable, origin, name);
        return false;
    }
    const std::size_t size = transmittedSize(value.type);
    if (value.type != parameter.getType() || (size == 0 && value.type != textCode)) {
        KV_REPORT(errors, BoardWrongType, origin, name, parameter.getTypeAsString(), value.type);
        return false;
    }
    if (value.type != textCode) {
        if (value.bytes.size() != size) {
            KV_REPORT(errors, BoardWrongSize, origin, name, size, value.bytes.size());
            return false;
        }
        return true;
    }
    if (value.bytes.size() > m_limits.textBytes) {
        KV_REPORT(errors, BoardTextTooLong, origin, name, m_limits.textBytes, value.bytes.size());
        return false;
    }
    if (std::find(value.bytes.begin(), value.bytes.end(), 0) != value.bytes.end()) {
        KV_REPORT(errors, BoardTextWithNul, origin, name);
        return false;
    }
    return true;
}

bool Board::designate(KvCErrorListPool& errors, KvCInventoryParameter& parameter, const WireValue& value) const
{
    return withType(errors, value.type,
                    [&]<class T>() { parameter.setDesignatedValue<T>(errors, decodeValue<T>(value.bytes)); });
}

/** Values on their way from designated to current: what they were, so that all of it can be undone. */
class Board::Change
{
public:
    explicit Change(std::vector<KvCInventoryParameter*> parameters) : m_parameters(std::move(parameters)) {}

    /** Copies current and designated values. */
    bool prepare(KvCErrorListPool& errors)
    {
        const Success success(errors);
        m_before.reserve(m_parameters.size());
        m_after.reserve(m_parameters.size());
        for (const KvCInventoryParameter* parameter : m_parameters) {
            m_before.emplace_back(new (errors) KvCInventoryParameter(*parameter));
            m_after.emplace_back(new (errors) KvCInventoryParameter(*parameter));
            if (!m_before.back() || !m_after.back()) {
                KV_REPORT(errors, BoardOutOfMemory, "Board::apply");
                return false;
            }
            KvCInventoryParameter& after = *m_after.back();
            if (!withType(errors, parameter->getType(),
                          [&]<class T>() { after.setValue<T>(errors, parameter->getDesignatedValue<T>(errors)); }))
                return false;
        }
        return success.check("Board::apply");
    }

    bool perform(KvCErrorListPool& errors)
    {
        for (KvCInventoryParameter* parameter : m_parameters) {
            const Success success(errors);
            parameter->adoptDesignatedValue(errors);
            if (!success.check("Board::apply"))
                return false;
        }
        return true;
    }

    /** Gives every parameter the value back that it had, and makes the other one designated again. */
    void undo(KvCErrorListPool& errors)
    {
        for (std::size_t i = 0; i < m_parameters.size(); ++i) {
            KvCInventoryParameter& parameter = *m_parameters[i];
            withType(errors, parameter.getType(), [&]<class T>() {
                parameter.setValue<T>(errors, m_before[i]->getValue<T>(errors));
                if (!parameter.isDesignatedValueValid())
                    parameter.setDesignatedValue<T>(errors, m_after[i]->getValue<T>(errors));
            });
        }
    }

private:
    std::vector<KvCInventoryParameter*> m_parameters;
    std::vector<std::unique_ptr<KvCInventoryParameter>> m_before;
    std::vector<std::unique_ptr<KvCInventoryParameter>> m_after;
};

/** The written values at an address and below it. */
std::vector<KvCInventoryParameter*> Board::writtenAt(const Place& place) const
{
    std::vector<KvCInventoryParameter*> result;
    Below below(place.item);
    for (KvCInventoryParameter* parameter : m_written)
        if (parameter == place.parameter || (place.item != nullptr && below.contains(*parameter)))
            result.push_back(parameter);
    return result;
}

bool Board::apply(KvCErrorListPool& errors, KvUInt32 accessId, const KvCInventoryAddress& address, std::size_t& applied)
{
    applied = 0;
    Place place;
    if (!find(errors, address, place, "Board::apply"))
        return false;
    const std::vector<KvCInventoryParameter*> chosen =
        m_writer == accessId ? writtenAt(place) : std::vector<KvCInventoryParameter*>();
    if (chosen.empty())
        return true;
    Change change(chosen);
    bool good = change.prepare(errors);
    if (good && (!change.perform(errors) || !store(errors))) {
        change.undo(errors);
        // What is stored may be new all the same, when its folder could not be synced.
        KvCErrorListPool ignored;
        store(ignored);
        good = false;
    }
    std::erase_if(m_written,
                  [](const KvCInventoryParameter* parameter) { return !parameter->isDesignatedValueValid(); });
    if (!good) {
        KV_REPORT(errors, BoardCannotApply, "Board::apply", shownAddress(address));
        return false;
    }
    m_stream.reset();
    applied = chosen.size();
    return true;
}

bool Board::store(KvCErrorListPool& errors) const
{
    if (!m_store)
        return true;
    try {
        return storeTree(errors);
    } catch (const std::bad_alloc&) {
        KV_REPORT(errors, BoardOutOfMemory, "Board::store");
        return false;
    }
}

bool Board::storeTree(KvCErrorListPool& errors) const
{
    const KvNReport::Watch watch(errors);
    KvCBuffer section(errors);
    KvCInventoryData::generateInventorySection(errors, section, m_description.tree.get());
    if (watch.grew()) {
        KV_REPORT(errors, BoardCannotSerialize, "Board::storeTree");
        return false;
    }
    std::string problem;
    const auto* bytes = reinterpret_cast<const unsigned char*>(section.getStartPointer());
    if (m_store->writeInventory({bytes, section.getOccupiedSize()}, problem))
        return true;
    KV_REPORT(errors, BoardCannotStore, "Board::storeTree", problem);
    return false;
}

std::size_t Board::dropWritten(KvUInt32 accessId)
{
    if (m_writer != accessId)
        return 0;
    for (KvCInventoryParameter* parameter : m_written)
        parameter->deleteDesignatedValue();
    m_writer = 0;
    return std::exchange(m_written, {}).size();
}

}  // namespace KvNBoardService
