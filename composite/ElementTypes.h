#pragma once

#include <array>
#include <cstddef>
#include <type_traits>

#include "base/KvCString.h"
#include "base/KvCVersion.h"
#include "composite/KvCArrayParam.h"
#include "platform/KvTypes.h"

/**
 * The value types of parameters, made from ElementTypes.def: their codes, the traits of each C++ type, the mapping from
 * any spelling of a type to the one of the table, and the one dispatch from a type code to its type.
 */
namespace KvNElement {

/** The type codes by accessor suffix: KvNElement::Int8Code is 0x111. */
enum Code : KvUInt32
{
#define KV_ELEMENT_TYPE(code, type, suffix, name, format) suffix##Code = code,
#include "composite/ElementTypes.def"
};

/** The type code in a type word; the bits above are flags. */
inline constexpr KvUInt32 CodeMask = 0xFFFF;
/** Flags of the type word. */
inline constexpr KvUInt32 CustomFlag = 0x10000;          ///< carries extra serialized data
inline constexpr KvUInt32 FilterFlag1 = 0x20000;         ///< skipped by traversion mode 0x4
inline constexpr KvUInt32 FilterFlag2 = 0x40000;         ///< skipped by traversion mode 0x8
inline constexpr KvUInt32 DoubleBufferedFlag = 0x80000;  ///< writes go to a shadow that `sync` publishes

/** Traits of the types in the table: `code`, `name`, `format`, `suffix`; what is not in it has none. */
template <class T>
struct Traits;

#define KV_ELEMENT_TYPE(typeCode, type, suffixText, typeName, printFormat)      \
    template <>                                                                 \
    struct Traits<type>                                                         \
    {                                                                           \
        static constexpr KvUInt32 code = typeCode;                              \
        static constexpr const char* suffix = #suffixText;                      \
        static constexpr const char* name = typeName;                           \
        static constexpr const char* format = printFormat;                      \
        static constexpr const char* getter = "KvCParam::getValue" #suffixText; \
        static constexpr const char* setter = "KvCParam::setValue" #suffixText; \
    };
#include "composite/ElementTypes.def"

/** Whether T is, as written, one of the C++ types of the table. */
template <class T>
concept Listed = requires
{
    Traits<T>::code;
};

/** Integers that are numbers: neither `bool` nor a character type but `char`, `signed char` and `unsigned char`. */
template <class T>
concept Integer =
    std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, wchar_t> && !std::is_same_v<T, char8_t> &&
    !std::is_same_v<T, char16_t> && !std::is_same_v<T, char32_t> && sizeof(T) <= 8;

template <std::size_t Size, bool Signed>
struct IntegerOf;
template <>
struct IntegerOf<1, true>
{
    using Type = char;
};
template <>
struct IntegerOf<1, false>
{
    using Type = unsigned char;
};
template <>
struct IntegerOf<2, true>
{
    using Type = short;
};
template <>
struct IntegerOf<2, false>
{
    using Type = unsigned short;
};
template <>
struct IntegerOf<4, true>
{
    using Type = KvInt32;
};
template <>
struct IntegerOf<4, false>
{
    using Type = KvUInt32;
};
template <>
struct IntegerOf<8, true>
{
    using Type = KvInt64;
};
template <>
struct IntegerOf<8, false>
{
    using Type = KvUInt64;
};

template <class T>
struct CanonicalOf
{
    using Type = T;
};
template <Integer T>
struct CanonicalOf<T>
{
    using Type = typename IntegerOf<sizeof(T), std::is_signed_v<T>>::Type;
};
/** `char` is signed 8 bits on every host, whatever the host's `char` is. */
template <>
struct CanonicalOf<char>
{
    using Type = char;
};

/** The type of the table that T stands for: by size and signedness for integers, T itself for the others. */
template <class T>
using Canonical = typename CanonicalOf<std::remove_cv_t<T>>::Type;

/** Any spelling of a type of the table; `bool`, the other character types, pointers and the rest do not compile. */
template <class T>
concept Element = Listed<Canonical<T>>;

template <class T>
inline constexpr bool isArray = false;
template <class T>
inline constexpr bool isArray<KvCArrayParam<T>> = true;
template <class T>
inline constexpr bool isString = std::is_same_v<T, KvCString>;
template <class T>
inline constexpr bool isVersion = std::is_same_v<T, KvCVersion>;

/** An integer or floating-point value of the table. */
template <class T>
concept Scalar = Element<T> && std::is_arithmetic_v<T>;
/** What an array parameter may hold: 32-bit unsigned integers and doubles. */
template <class T>
concept ArrayItem = Listed<KvCArrayParam<Canonical<T>>>;
/** One of the twelve types that are not arrays, in any spelling. */
template <class T>
concept Single = Element<T> && !isArray<Canonical<T>>;

/** Stands for a type in a call: `visitor(Type<KvInt32>())`. */
template <class T>
struct Type
{
    using Value = T;
};

/**
 * Calls `known(Type<T>())` with the type of the code in the low 16 bits of `typeWord`, or `unknown()` when there is no
 * such type; gives back what was returned. The only run-time step from codes to types.
 */
template <class Known, class Unknown>
decltype(auto) dispatch(KvUInt32 typeWord, Known&& known, Unknown&& unknown)
{
    switch (typeWord & CodeMask) {
#define KV_ELEMENT_TYPE(code, type, suffix, name, format) \
    case code:                                            \
        return known(Type<type>());
#include "composite/ElementTypes.def"
        default:
            return unknown();
    }
}

/** The bytes that the stream has for a number of each type code; 0 for the other types. */
inline constexpr auto scalarSizes = [] {
    std::array<unsigned char, 0x300> sizes{};
    const auto note = [&]<class T>(KvUInt32 code, Type<T>) {
        if constexpr (std::is_arithmetic_v<T>)
            sizes[code] = sizeof(T);
    };
#define KV_ELEMENT_TYPE(code, type, suffix, name, format) note(code, Type<type>());
#include "composite/ElementTypes.def"
    return sizes;
}();
/** The size of a number of this type code, without flags; 0 for any other code. */
constexpr KvUInt32 scalarSize(KvUInt32 code)
{
    return code < scalarSizes.size() ? scalarSizes[code] : 0U;
}

/** Whether the code in `typeWord` is a type of the table. */
inline bool isKnown(KvUInt32 typeWord)
{
    return dispatch(
        typeWord, [](auto) { return true; }, [] { return false; });
}

/** The type name of the code in `typeWord` ("Int8", ..., also for arrays); null for an unknown code. */
inline const char* nameOf(KvUInt32 typeWord)
{
    return dispatch(
        typeWord, [](auto type) -> const char* { return Traits<typename decltype(type)::Value>::name; },
        []() -> const char* { return nullptr; });
}

/** Whether the code in `typeWord` is an integer or floating-point type. */
inline bool isScalar(KvUInt32 typeWord)
{
    return dispatch(
        typeWord, [](auto type) { return std::is_arithmetic_v<typename decltype(type)::Value>; }, [] { return false; });
}

}  // namespace KvNElement
