#include "tools/common/ParameterText.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "composite/ElementTypes.h"
#include "composite/KvCParam.h"
#include "tools/common/JsonEvents.h"

namespace KvNParameterText {

namespace {

/** Sizes of numbers that people read without an exponent: from the first, below the second. */
constexpr double smallestPlain = 1e-5;
constexpr double largestPlain = 1e16;

template <class T>
void appendFloat(std::string& out, T value)
{
    std::string text;
    KvNJson::appendFloat(text, value);
    if (!std::isfinite(value)) {
        out.append(text, 1, text.size() - 2);
        return;
    }
    // Through the text, so that a float of 32 bits has no digits but those that tell it from its neighbours.
    double plain = 0;
    std::from_chars(text.data(), text.data() + text.size(), plain);
    if (std::fabs(plain) < smallestPlain || std::fabs(plain) >= largestPlain) {
        out += text;
        return;
    }
    char digits[40];
    const auto end = std::to_chars(digits, digits + sizeof digits, plain, std::chars_format::fixed).ptr;
    out.append(digits, end);
}

template <class T>
void appendElement(std::string& out, T value)
{
    if constexpr (std::is_floating_point_v<T>) {
        appendFloat(out, value);
    } else if constexpr (std::is_same_v<T, char>) {
        out += std::to_string(static_cast<signed char>(value));
    } else {
        out += std::to_string(value);
    }
}

template <class T>
void appendValue(std::string& out, const T& value)
{
    if constexpr (KvNElement::isArray<T>) {
        for (KvUInt32 i = 0; i < value.getCount(); ++i) {
            if (i > 0)
                out += ' ';
            appendElement(out, value.getData()[i]);
        }
    } else if constexpr (KvNElement::isString<T>) {
        out += value.c_str();
    } else if constexpr (KvNElement::isVersion<T>) {
        out += value.getAsString().c_str();
    } else {
        appendElement(out, value);
    }
}

template <class T>
bool parseValue(std::string_view text, T& value)
{
    const bool negative = !text.empty() && text.front() == '-';
    std::string_view digits = negative ? text.substr(1) : text;
    int base = 10;
    if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
        digits.remove_prefix(2);
        base = 16;
    }
    KvUInt64 magnitude = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), magnitude, base);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size())
        return false;
    // `char` counts as signed 8 bits on every host.
    using Limits = std::numeric_limits<std::conditional_t<std::is_same_v<T, char>, signed char, T>>;
    const auto largest = static_cast<KvUInt64>(Limits::max());
    if (magnitude > (negative && Limits::is_signed ? largest + 1 : largest) ||
        (negative && !Limits::is_signed && magnitude != 0))
        return false;
    value = static_cast<T>(negative ? 0 - magnitude : magnitude);
    return true;
}

template <class T>
bool parseFloat(std::string_view text, T& value)
{
    if (text == "NaN" || text == "Infinity" || text == "-Infinity") {
        value = text == "NaN" ? std::numeric_limits<T>::quiet_NaN() : std::numeric_limits<T>::infinity();
        if (text.front() == '-')
            value = -value;
        return true;
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(value);
}

bool parseValue(std::string_view text, float& value)
{
    return parseFloat(text, value);
}

bool parseValue(std::string_view text, double& value)
{
    return parseFloat(text, value);
}

bool parseValue(std::string_view text, KvCString& value)
{
    value = KvCString(text.data(), static_cast<unsigned>(text.size()));
    return value.length() == text.size();
}

bool parseValue(std::string_view text, KvCVersion& value)
{
    return parseVersion(text, value);
}

/** What a value of type T looks like, for messages. */
template <class T>
std::string allowed()
{
    if constexpr (std::is_floating_point_v<T>)
        return "a number, NaN, Infinity or -Infinity";
    else if constexpr (KvNElement::isVersion<T>)
        return "a version, for example 3.1.2b4p7";
    else if constexpr (KvNElement::isString<T>)
        return "a text without NUL";
    else if constexpr (std::is_same_v<T, char>)
        return "an integer from -128 to 127";
    else
        return "an integer from " + std::to_string(std::numeric_limits<T>::min()) + " to " +
               std::to_string(std::numeric_limits<T>::max());
}

}  // namespace

std::string valueText(const KvCParam& parameter)
{
    std::string out;
    KvNElement::dispatch(
        parameter.getType(),
        [&](auto type) {
            if (const auto* value = parameter.valueIf<typename decltype(type)::Value>(); value != nullptr)
                appendValue(out, *value);
        },
        [] {});
    return out;
}

bool setValueText(KvCParam& parameter, std::string_view text, std::string& problem)
{
    return KvNElement::dispatch(
        parameter.getType(),
        [&](auto type) {
            using T = typename decltype(type)::Value;
            if constexpr (KvNElement::isArray<T>) {
                problem = "an array cannot be set";
                return false;
            } else {
                T value{};
                if (!parseValue(text, value)) {
                    problem = std::string(KvNElement::Traits<T>::name) + " takes " + allowed<T>();
                    return false;
                }
                KvCErrorListPool errors;
                parameter.setValue(errors, value);
                problem = errors.getErrorText(0);
                return errors.getErrorCount() == 0;
            }
        },
        [&] {
            problem = "its type is unknown";
            return false;
        });
}

bool parseVersion(std::string_view text, KvCVersion& version)
{
    // The version's own reader keeps the low bits of numbers that are too large for their fields.
    if (text.find('\0') != std::string_view::npos)
        return false;
    unsigned long limit = 255;
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] < '0' || text[i] > '9') {
            if (text[i] != '.')
                limit = 65535;
            ++i;
            continue;
        }
        unsigned long number = 0;
        const auto [end, error] = std::from_chars(text.data() + i, text.data() + text.size(), number);
        if (error != std::errc() || number > limit)
            return false;
        i = static_cast<std::size_t>(end - text.data());
    }
    return version.setByString(KvCString(text.data(), static_cast<unsigned>(text.size())));
}

std::string typeName(const KvCParam& parameter)
{
    const char* name = KvNElement::nameOf(parameter.getType());
    if (name != nullptr)
        return name;
    char digits[12];
    const auto end = std::to_chars(digits, digits + sizeof digits, parameter.getType() & KvNElement::CodeMask, 16).ptr;
    return "type 0x" + std::string(digits, end);
}

}  // namespace KvNParameterText
