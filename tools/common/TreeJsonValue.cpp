#include "tools/common/TreeJsonValue.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "composite/ElementTypes.h"
#include "composite/KvCParam.h"
#include "tools/common/ParameterText.h"

namespace KvNTreeJson {

using KvNJson::Number;

bool asUInt32(const Number& number, KvUInt32& value)
{
    if (number.kind != Number::Kind::Unsigned || number.asUnsigned > 0xFFFFFFFFU)
        return false;
    value = static_cast<KvUInt32>(number.asUnsigned);
    return true;
}
bool namedFloat(std::string_view text, double& value)
{
    if (text == "NaN")
        value = std::numeric_limits<double>::quiet_NaN();
    else if (text == "Infinity" || text == "-Infinity")
        value =
            text.front() == '-' ? -std::numeric_limits<double>::infinity() : std::numeric_limits<double>::infinity();
    else
        return false;
    return true;
}

namespace {

template <class T>
bool convertInteger(const HeldValue& held, T& value)
{
    if constexpr (sizeof(T) == 8) {
        if (held.kind != HeldValue::Kind::Text)
            return false;
        const char* end = held.text.data() + held.text.size();
        const auto [stop, error] = std::from_chars(held.text.data(), end, value);
        return error == std::errc() && stop == end;
    } else {
        // `char` counts as signed 8 bits on every host.
        using Limits = std::numeric_limits<std::conditional_t<std::is_same_v<T, char>, signed char, T>>;
        if (held.kind != HeldValue::Kind::Number || held.number.kind == Number::Kind::Float)
            return false;
        if (held.number.kind == Number::Kind::Unsigned) {
            if (held.number.asUnsigned > static_cast<std::uint64_t>(Limits::max()))
                return false;
            value = static_cast<T>(held.number.asUnsigned);
            return true;
        }
        if (held.number.asSigned < static_cast<std::int64_t>(Limits::min()))
            return false;
        value = static_cast<T>(held.number.asSigned);
        return true;
    }
}

template <class T>
bool convertFloat(const HeldValue& held, T& value)
{
    double number = 0;
    if (held.kind == HeldValue::Kind::Text) {
        if (!namedFloat(held.text, number))
            return false;
        value = static_cast<T>(number);
        return true;
    }
    if (held.kind != HeldValue::Kind::Number)
        return false;
    switch (held.number.kind) {
        case Number::Kind::Signed:
            value = static_cast<T>(held.number.asSigned);
            return true;
        case Number::Kind::Unsigned:
            value = static_cast<T>(held.number.asUnsigned);
            return true;
        default:
            break;
    }
    // From the digits, not from the double: rounding twice could end in another float.
    const auto error = std::from_chars(held.text.data(), held.text.data() + held.text.size(), value).ec;
    if (error == std::errc::result_out_of_range && std::abs(held.number.asDouble) < 1)
        value = std::copysign(T{0}, static_cast<T>(held.number.asDouble));
    else if (error != std::errc())
        return false;
    return std::isfinite(value);
}

bool convertVersion(const HeldValue& held, KvCVersion& value)
{
    if (held.kind != HeldValue::Kind::Text)
        return false;
    if (held.text.size() == 18 && held.text.compare(0, 2, "0x") == 0) {
        KvUInt64 packed = 0;
        const char* end = held.text.data() + held.text.size();
        const auto [stop, error] = std::from_chars(held.text.data() + 2, end, packed, 16);
        value.setByULong64(packed);
        return error == std::errc() && stop == end;
    }
    return KvNParameterText::parseVersion(held.text, value);
}

template <class T>
bool convert(const HeldValue& held, T& value)
{
    if constexpr (KvNElement::isArray<T>) {
        if (held.kind != HeldValue::Kind::Array)
            return false;
        using Element = std::remove_cvref_t<decltype(*value.getData())>;
        if (std::is_same_v<Element, KvUInt32> && !held.whole)
            return false;
        const std::vector<Element> elements(held.elements.begin(), held.elements.end());
        value.setData(static_cast<KvUInt32>(elements.size()), elements.data());
        return value.getCount() == elements.size();
    } else if constexpr (KvNElement::isString<T>) {
        if (held.kind != HeldValue::Kind::Text && held.kind != HeldValue::Kind::Bytes)
            return false;
        value = KvCString(held.text.c_str());
        return true;
    } else if constexpr (KvNElement::isVersion<T>) {
        return convertVersion(held, value);
    } else if constexpr (std::is_floating_point_v<T>) {
        return convertFloat(held, value);
    } else {
        return convertInteger(held, value);
    }
}

/** What a value of the type looks like in JSON, for messages. */
template <class T>
std::string expected()
{
    if constexpr (std::is_same_v<T, KvCArrayParam<KvUInt32>>)
        return "an array of integers from 0 to 4294967295";
    else if constexpr (KvNElement::isArray<T>)
        return "an array of numbers";
    else if constexpr (KvNElement::isString<T>)
        return "a text";
    else if constexpr (KvNElement::isVersion<T>)
        return "a version such as \"3.1.2b4p7\", or \"0x\" and 16 hexadecimal digits";
    else if constexpr (std::is_floating_point_v<T>)
        return "a number, \"NaN\", \"Infinity\" or \"-Infinity\"";
    else if constexpr (sizeof(T) == 8)
        return "an integer from " + std::to_string(std::numeric_limits<T>::min()) + " to " +
               std::to_string(std::numeric_limits<T>::max()) + " as a string";
    else if constexpr (std::is_same_v<T, char>)
        return "an integer from -128 to 127";
    else
        return "an integer from " + std::to_string(std::numeric_limits<T>::min()) + " to " +
               std::to_string(std::numeric_limits<T>::max());
}

}  // namespace

bool typeByName(std::string_view name, KvUInt32& type)
{
#define KV_ELEMENT_TYPE(code, cppType, suffix, typeName, format) \
    if (name == typeName) {                                      \
        type = code;                                             \
        return true;                                             \
    }
#include "composite/ElementTypes.def"
    return false;
}

bool store(const HeldValue& held, KvCErrorListPool& errors, KvCParam& parameter)
{
    return KvNElement::dispatch(
        parameter.getType(),
        [&](auto type) {
            typename decltype(type)::Value value{};
            if (!convert(held, value))
                return false;
            parameter.setValue(errors, value);
            return true;
        },
        [] { return false; });
}

std::string expectedValue(KvUInt32 type)
{
    return KvNElement::dispatch(
        type, [](auto known) { return expected<typename decltype(known)::Value>(); }, [] { return std::string(); });
}

bool expectsArray(KvUInt32 type)
{
    return KvNElement::dispatch(
        type, [](auto known) { return KvNElement::isArray<typename decltype(known)::Value>; }, [] { return false; });
}

}  // namespace KvNTreeJson
