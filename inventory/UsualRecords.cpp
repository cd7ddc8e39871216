#include <cstring>
#include <new>
#include <typeinfo>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "base/ShortCopy.h"
#include "composite/EncodedValue.h"
#include "inventory/InventoryStream.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/ids/PredefinedNames.h"

/*
 * The records of which nearly every stream consists, read without a step in between: items and inventory parameters
 * that are not there yet, each looked at whole, checked once, and made in one piece of memory with its description.
 * Everything else is left to the record by record reading of the base class, and so are all reports but those of memory
 * that is out, which are the same here as there.
 */

using namespace KvNStream;
using namespace KvNInventoryStream;

namespace {

/** The memory of the nodes of a stream is some four times the stream. */
constexpr std::size_t memoryPerByte = 4;

KvUInt32 numberAt(const char* bytes)
{
    return KvNBigEndian::load<KvUInt32>(bytes);
}

/** Bytes of a text before its NUL, of `size` at most. */
KvUInt32 lengthWithin(const char* text, KvUInt32 size)
{
    const void* const end = size == 0 ? nullptr : std::memchr(text, '\0', size);
    return end == nullptr ? size : static_cast<KvUInt32>(static_cast<const char*>(end) - text);
}

/** The description of a record: a registered name, or a text to be copied behind the object that it describes. */
class Description
{
public:
    /** `size` bytes at `bytes`, with or without a NUL. */
    Description(KvUInt32 id, const char* bytes, KvUInt32 size)
        : m_shared(size == 0 ? "" : KvNInventoryIDs::predefinedName(id, bytes, size)), m_bytes(bytes)
    {
        m_length = size == 0 ? 0 : size - 1;
        if (m_shared != nullptr)
            return;
        m_length = lengthWithin(bytes, size);
    }

    bool isShared() const { return m_shared != nullptr; }
    /** With its NUL. */
    KvUInt32 size() const { return m_length + 1; }
    /** Bytes needed behind the object. */
    std::size_t room() const { return isShared() ? 0 : size(); }
    /** The text, copied to `behind` unless it is shared. */
    const char* text(char* behind) const
    {
        if (isShared())
            return m_shared;
        copyShort(behind, m_bytes, m_length);
        behind[m_length] = '\0';
        return behind;
    }

private:
    const char* m_shared;
    const char* m_bytes;
    KvUInt32 m_length = 0;
};

}  // namespace

// Inline, as every parameter of a stream is made here and nowhere else.
inline KvCInventoryParameter::KvCInventoryParameter(const Fresh& fresh, const CustomData& data) noexcept
    : KvCParam(fresh), m_relevance(data.relevance)
{
    setMarked();
    setModifiableFlag(data.isModifiable);
    copyShort(m_unit.text, data.unit, data.unitLength);
    noteUnitLength(data.unitLength);
}

/** An inventory parameter whose memory holds its description too. */
class KvCInventoryBinDeSerializer::StreamParameter final : public KvCInventoryParameter
{
public:
    StreamParameter(const Fresh& fresh, const CustomData& data) noexcept : KvCInventoryParameter(fresh, data) {}
    using KvCInventoryParameter::Fresh;
    using KvCParam::valueRoom;

    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(StreamParameter* parameter, std::destroying_delete_t)
    {
        const KvUInt32 place = parameter->getPlace();
        parameter->~StreamParameter();
        ObjectSlabs::release(parameter, place, sizeof(StreamParameter));
    }
};

/** An item whose memory holds its description too. */
class KvCInventoryBinDeSerializer::StreamItem final : public KvCInventoryItem
{
public:
    explicit StreamItem(const Fresh& fresh) noexcept : KvCInventoryItem(fresh) {}
    using KvCInventoryItem::Fresh;

    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(StreamItem* item, std::destroying_delete_t)
    {
        const KvUInt32 place = item->getPlace();
        item->~StreamItem();
        ObjectSlabs::release(item, place, sizeof(StreamItem));
    }
};

// What takeRoom is asked for: an object and, at most, a description behind it.
static_assert(sizeof(KvCInventoryItem) + DescriptionArea <= ObjectSlabs::largestObject &&
              sizeof(KvCInventoryParameter) + DescriptionArea <= ObjectSlabs::largestObject);
static_assert(alignof(KvCInventoryItem) <= ObjectSlabs::alignment &&
              alignof(KvCInventoryParameter) <= ObjectSlabs::alignment);

/** Reads from the bytes between `at` and `end`; `at` moves behind each record that was read. */
struct KvCInventoryBinDeSerializer::UsualReader
{
    enum class Result
    {
        Read,     ///< the record is read
        Left,     ///< the record is not as usual, or not whole
        Stopped,  ///< memory is out: `at` is where reading stopped, and it was reported
    };

    Result readNext()
    {
        switch (static_cast<unsigned char>(*at)) {
            case ParameterTag:
                return readParameter();
            case StartTag:
                return readStart();
            case EndTag:
                ++at;
                reader.leaveElement();
                return Result::Read;
            default:
                return Result::Left;
        }
    }

    Result readParameter();
    Result readStart();
    ObjectSlabs::Room takeRoom(ObjectSlabs& slabs, std::size_t bytes)
    {
        return slabs.take(bytes, memoryPerByte * static_cast<std::size_t>(end - at));
    }
    KvUInt32 available() const { return static_cast<KvUInt32>(end - at - TagSize); }

    KvCErrorListPool& errors;
    KvCInventoryBinDeSerializer& reader;
    const char* at;
    const char* end;
};

KvCInventoryBinDeSerializer::UsualReader::Result KvCInventoryBinDeSerializer::UsualReader::readParameter()
{
    constexpr const char* origin = "KvCBinDeserializer::CompositeParameter";
    constexpr KvUInt32 customSize = 1 + 1 + RelevanceSize;
    if (available() < ParameterFieldsSize)
        return Result::Left;
    const char* const record = at + TagSize;
    const KvUInt32 length = numberAt(record);
    const KvUInt32 id = numberAt(record + 4);
    const KvUInt32 type = numberAt(record + 8);
    const auto descrSize = static_cast<unsigned char>(record[12]);
    KvUInt32 used = ParameterFieldsSize + descrSize;
    constexpr KvUInt32 decisive = KvNElement::CustomFlag | KvNElement::DoubleBufferedFlag;
    if (length > available() || used > length || (type & decisive) != KvNElement::CustomFlag)
        return Result::Left;
    EncodedValue value;
    if (!value.find(type, record + used, length - used))
        return Result::Left;
    used += value.size();
    const KvUInt32 valueEnd = used;
    const char* const custom = record + used;
    if (length - used < customSize)
        return Result::Left;
    const auto unitLength = static_cast<unsigned char>(*custom);
    used += customSize + unitLength;
    if (unitLength > KvCInventoryParameter::shortUnit || used > length || length - used > SkipLimit ||
        !reader.isNewParameter(id))
        return Result::Left;

    const Description description(id, record + ParameterFieldsSize, descrSize);
    const ObjectSlabs::Room room = takeRoom(reader.m_parameterSlabs, sizeof(StreamParameter) + description.room());
    if (room.memory == nullptr) {
        at = record + ParameterFieldsSize + descrSize;
        KV_REPORT(errors, OutOfMemory, origin);
        return Result::Stopped;
    }
    const char* const text = description.text(static_cast<char*>(room.memory) + sizeof(StreamParameter));
    const KvCInventoryParameter::CustomData data{custom + 1, lengthWithin(custom + 1, unitLength),
                                                 custom[1 + unitLength] != 0, numberAt(custom + 1 + unitLength + 1)};
    auto* const parameter = new (room.memory)
        StreamParameter({id, type, text, description.size(), description.isShared(), room.place}, data);
    if (!value.makeAt(parameter->valueRoom())) {
        at = record + valueEnd;
        delete parameter;
        KV_REPORT(errors, OutOfMemory, origin);
        return Result::Stopped;
    }
    reader.addNewParameter(parameter);
    at = record + length;
    return Result::Read;
}

KvCInventoryBinDeSerializer::UsualReader::Result KvCInventoryBinDeSerializer::UsualReader::readStart()
{
    if (available() < StartFieldsSize)
        return Result::Left;
    const char* const record = at + TagSize;
    const KvUInt32 classId = numberAt(record);
    const KvUInt32 unitId = numberAt(record + 4);
    const auto descrSize = static_cast<unsigned char>(record[8]);
    if (descrSize > available() - StartFieldsSize ||
        reader.getActElement()->searchComposite(classId, unitId) != nullptr)
        return Result::Left;

    const char* const recordEnd = record + StartFieldsSize + descrSize;
    const Description description(classId, record + StartFieldsSize, descrSize);
    const ObjectSlabs::Room room = takeRoom(reader.m_itemSlabs, sizeof(StreamItem) + description.room());
    at = recordEnd;
    if (room.memory == nullptr) {
        KV_REPORT(errors, ItemAllocationFailed, "KvCInventoryItemFactory::createComposite");
        return Result::Stopped;
    }
    const char* const text = description.text(static_cast<char*>(room.memory) + sizeof(StreamItem));
    reader.enterNewChild(
        new (room.memory) StreamItem({classId, unitId, text, description.size(), description.isShared(), room.place}));
    return Result::Read;
}

KvCBinDeserializer::UsualRecords KvCInventoryBinDeSerializer::readUsual(KvCErrorListPool& errors)
{
    // Nodes of another class are the business of the factory that makes them.
    const KvCCompositeFactory* const factory = getFactory();
    if (isBelowGivenRoot() || getActElement() == nullptr || typeid(*factory) != typeid(KvCInventoryItemFactory))
        return {};
    KvCBuffer& buffer = *getBuffer();
    const char* const start = buffer.getStartPointer();
    UsualReader usual{errors, *this, buffer.getReadPointer(), buffer.getWritePointer()};
    using Result = UsualReader::Result;
    auto result = Result::Read;
    unsigned char tag = 0;
    while (result == Result::Read && usual.at != usual.end && getActElement() != nullptr) {
        tag = static_cast<unsigned char>(*usual.at);
        result = usual.readNext();
    }
    buffer.setReadPosition(errors, static_cast<KvUInt32>(usual.at - start));
    return {result == Result::Stopped, tag};
}
