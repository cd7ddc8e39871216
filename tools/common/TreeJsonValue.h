#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/KvTypes.h"
#include "tools/common/JsonEvents.h"

class KvCErrorListPool;
class KvCParam;

/** What tree JSON says of values and their types: for its reader. */
namespace KvNTreeJson {

/** A value until its type is known. */
struct HeldValue
{
    enum class Kind
    {
        None,
        Number,
        Text,
        Bytes,
        Array
    };
    Kind kind = Kind::None;
    KvNJson::Number number;
    std::string text;              ///< a text, decoded bytes, or the digits of a number
    std::vector<double> elements;  ///< of an array: every one a double holds exactly what was written, see `whole`
    bool whole = true;             ///< of an array: no element but integers from 0 to 4294967295
    std::size_t firstNotWhole = 0;
};

/** The number, when it is an integer from 0 to 4294967295. */
bool asUInt32(const KvNJson::Number& number, KvUInt32& value);
/** The number that "NaN", "Infinity" and "-Infinity" stand for; false for any other text. */
bool namedFloat(std::string_view text, double& value);
/** The code of the type with this name; false when there is none. */
bool typeByName(std::string_view name, KvUInt32& type);

/** Gives the parameter the value; false when it does not fit the parameter's type. Memory that is out is in `errors`.
 */
bool store(const HeldValue& held, KvCErrorListPool& errors, KvCParam& parameter);
/** What a value of the type looks like in JSON, for messages. */
std::string expectedValue(KvUInt32 type);
bool expectsArray(KvUInt32 type);

}  // namespace KvNTreeJson
