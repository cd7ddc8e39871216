#include <charconv>
#include <cstdio>
#include <cstring>

#include "base/Report.h"
#include "composite/KvCParam.h"

using namespace KvNElement;

namespace {

/** The area that a number's or an array's text is formatted into. */
constexpr std::size_t areaSize = 500;
constexpr char ellipsis[] = "... ";

/** The number as the print formats of the type table take it. */
template <class T>
auto printable(T value)
{
    if constexpr (std::is_floating_point_v<T>)
        return static_cast<double>(value);
    else if constexpr (std::is_same_v<T, char>)
        return static_cast<int>(static_cast<signed char>(value));
    else if constexpr (sizeof(T) == 8)
        return static_cast<std::conditional_t<std::is_signed_v<T>, long long, unsigned long long>>(value);
    else
        return static_cast<std::conditional_t<std::is_signed_v<T>, int, unsigned int>>(value);
}

/** The text as a string; a string that could not be had is reported. */
KvCString checked(KvCErrorListPool& errors, const char* text)
{
    KvCString string(text);
    if (string.length() == 0 && text[0] != '\0')
        KV_REPORT(errors, OutOfMemory, "KvCParam::getValueAsString");
    return string;
}

template <class T>
KvCString textOf(KvCErrorListPool& errors, const T& stored)
{
    T value;
    std::memcpy(&value, &stored, sizeof value);
    char area[areaSize];
    if constexpr (std::is_integral_v<T>)
        *std::to_chars(area, area + sizeof area, printable(value)).ptr = '\0';
    else
        std::snprintf(area, sizeof area, Traits<T>::format, printable(value));
    return checked(errors, area);
}

template <class T>
KvCString textOf(KvCErrorListPool& errors, const KvCArrayParam<T>& array)
{
    char area[areaSize + sizeof ellipsis];
    std::size_t used = 0;
    std::size_t cut = 0;  // where the text can end so that the ellipsis has room
    area[0] = '\0';
    for (KvUInt32 i = 0; i < array.getCount(); ++i) {
        const int length = std::snprintf(area + used, areaSize - used, Traits<KvCArrayParam<T>>::format,
                                         printable(array.getData()[i]));
        if (length < 0 || used + static_cast<std::size_t>(length) >= areaSize) {
            std::memcpy(area + cut, ellipsis, sizeof ellipsis);
            break;
        }
        used += static_cast<std::size_t>(length);
        if (used + sizeof ellipsis <= areaSize)
            cut = used;
    }
    return checked(errors, area);
}

KvCString textOf(KvCErrorListPool& errors, const KvCString& text)
{
    return checked(errors, text.c_str());
}

KvCString textOf(KvCErrorListPool& errors, const KvCVersion& version)
{
    KvCString text = version.getAsString();
    if (text.length() == 0)
        KV_REPORT(errors, OutOfMemory, "KvCParam::getValueAsString");
    return text;
}

}  // namespace

KvCString KvCParam::getValueAsString(KvCErrorListPool& errors) const
{
    return dispatch(
        m_type,
        [&](auto type) {
            const auto* const value = valueIf<typename decltype(type)::Value>();
            return value == nullptr ? KvCString() : textOf(errors, *value);
        },
        [] { return KvCString(); });
}
