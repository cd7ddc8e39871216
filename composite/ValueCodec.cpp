#include "composite/ValueCodec.h"

#include <cstring>

#include "base/Report.h"
#include "composite/StreamFormat.h"

using namespace KvNElement;

namespace {

constexpr KvUInt64 largestBlock = 0xFFFFFFFF;
constexpr const char* writeOrigin = "KvCBinSerializer::CompositeParameter";
constexpr const char* readOrigin = "KvCBinDeserializer::CompositeParameter";

// Writing

template <class T>
void writeValue(KvCErrorListPool& errors, KvCBuffer& buffer, const T& value)
{
    buffer.writeBuffer(errors, &value, sizeof value);
}

template <class T>
void writeValue(KvCErrorListPool& errors, KvCBuffer& buffer, const KvCArrayParam<T>& array)
{
    const KvUInt32 count = array.getCount();
    if (count > largestBlock / sizeof(T)) {
        KV_REPORT(errors, SerializeElementFailed, writeOrigin);
        return;
    }
    buffer.writeBuffer(errors, &count, KvNStream::CountSize);
    if (count != 0)
        buffer.writeBuffer(errors, array.getData(), static_cast<KvUInt32>(count * sizeof(T)), sizeof(T));
}

void writeValue(KvCErrorListPool& errors, KvCBuffer& buffer, const KvCString& text)
{
    const KvUInt32 length = text.length() + 1;
    buffer.writeBuffer(errors, &length, KvNStream::CountSize);
    buffer.writeBuffer(errors, text.c_str(), length, 1);
}

void writeValue(KvCErrorListPool& errors, KvCBuffer& buffer, const KvCVersion& version)
{
    const unsigned long long packed = version.getAsULong64();
    buffer.writeBuffer(errors, &packed, sizeof packed);
}

// Reading

/** Whether `size` bytes can be in a record of this length; 0xA01002 when they cannot. */
bool isInRecord(KvCErrorListPool& errors, KvUInt64 size, const KvNValueCodec::Expected& expected)
{
    if (size <= expected.recordLength)
        return true;
    KV_REPORT(errors, StreamWrongSize, readOrigin, expected.recordLength, size < largestBlock ? size : largestBlock);
    return false;
}

/** Whether a number in a parameter is another one; two NaNs of the same bits are the same. */
template <class T>
bool isOther(const void* stored, const T& value)
{
    T current;
    std::memcpy(&current, stored, sizeof current);
    return std::memcmp(&current, &value, sizeof value) != 0 && current != value;
}

template <class T>
bool readValue(KvCErrorListPool& errors, StreamReader& reader, KvCParam& parameter,
               const KvNValueCodec::Expected& expected, Type<T>)
{
    const char* const bytes = reader.take({sizeof(T)});
    if (bytes == nullptr)
        return false;
    const T value = KvNBigEndian::load<T>(bytes);
    if (expected.isNew) {
        parameter.setValue(errors, value);
        parameter.sync(DoubleBufferedFlag);
    } else if (isOther(parameter.getValuePointer(), value)) {
        parameter.setValue(errors, value);
        parameter.setStateBit(KvCParam::ChangedBit);
    }
    return true;
}

template <class T>
bool isOther(const KvCArrayParam<T>& array, KvUInt32 count, const char* bytes)
{
    if (array.getCount() != count)
        return true;
    for (KvUInt32 i = 0; i < count; ++i)
        if (isOther(&array.getData()[i], KvNBigEndian::load<T>(bytes + i * sizeof(T))))
            return true;
    return false;
}

template <class T>
bool readValue(KvCErrorListPool& errors, StreamReader& reader, KvCParam& parameter,
               const KvNValueCodec::Expected& expected, Type<KvCArrayParam<T>>)
{
    const char* const header = reader.take({KvNStream::CountSize});
    if (header == nullptr)
        return false;
    const auto count = KvNBigEndian::load<KvUInt32>(header);
    const KvUInt64 size = static_cast<KvUInt64>(count) * sizeof(T);
    if (!isInRecord(errors, size, expected))
        return false;
    const char* const bytes = reader.take({static_cast<KvUInt32>(size)});
    if (bytes == nullptr)
        return false;
    auto* const array = static_cast<KvCArrayParam<T>*>(parameter.getValuePointer());
    if (!expected.isNew && !isOther(*array, count, bytes))
        return true;
    array->setData(count, nullptr);
    if (array->getCount() != count) {
        KV_REPORT(errors, OutOfMemory, readOrigin);
        return false;
    }
    KvNBigEndian::copy(array->getData(), bytes, count, sizeof(T));
    if (!expected.isNew)
        parameter.setStateBit(KvCParam::ChangedBit);
    return true;
}

bool readValue(KvCErrorListPool& errors, StreamReader& reader, KvCParam& parameter,
               const KvNValueCodec::Expected& expected, Type<KvCString>)
{
    const char* const header = reader.take({KvNStream::CountSize});
    if (header == nullptr)
        return false;
    const auto length = KvNBigEndian::load<KvUInt32>(header);
    if (!isInRecord(errors, length, expected))
        return false;
    const char* const bytes = reader.take({length});
    if (bytes == nullptr)
        return false;
    KvCString text(bytes, static_cast<unsigned int>(length));
    if (text.length() == 0 && length != 0 && bytes[0] != '\0') {
        KV_REPORT(errors, OutOfMemory, readOrigin);
        return false;
    }
    *static_cast<KvCString*>(parameter.getValuePointer()) = std::move(text);
    return true;
}

bool readValue(KvCErrorListPool&, StreamReader& reader, KvCParam& parameter, const KvNValueCodec::Expected&,
               Type<KvCVersion>)
{
    const char* const bytes = reader.take({sizeof(KvUInt64)});
    if (bytes == nullptr)
        return false;
    static_cast<KvCVersion*>(parameter.getValuePointer())->setByULong64(KvNBigEndian::load<KvUInt64>(bytes));
    return true;
}

}  // namespace

bool KvNValueCodec::write(KvCErrorListPool& errors, KvCBuffer& buffer, const KvCParam& parameter)
{
    return dispatch(
        parameter.getType(),
        [&](auto type) {
            using T = typename decltype(type)::Value;
            if (const T* const value = parameter.valueIf<T>())
                writeValue(errors, buffer, *value);
            else
                KV_REPORT(errors, SerializeElementFailed, writeOrigin);
            return true;
        },
        [] { return false; });
}

bool KvNValueCodec::read(KvCErrorListPool& errors, StreamReader& reader, KvCParam& parameter, const Expected& expected)
{
    return dispatch(
        parameter.getType(),
        [&](auto type) {
            if (parameter.getValuePointer() != nullptr)
                return readValue(errors, reader, parameter, expected, type);
            KV_REPORT(errors, OutOfMemory, readOrigin);
            return false;
        },
        [] { return false; });
}
