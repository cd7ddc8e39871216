#pragma once

#include <string>
#include <string_view>

class KvCParam;
class KvCVersion;

/** The values of parameters as texts for people and scripts, and back. */
namespace KvNParameterText {

/** The value's text: numbers in decimal, floats with the fewest digits that read back to the same bits (or NaN,
    Infinity, -Infinity) and an exponent only when they are below 1e-5 or from 1e16 on, strings as they are, versions as
   "3.1.2b4p7", arrays as their elements with blanks between them. */
std::string valueText(const KvCParam& parameter);

/** Gives `parameter` the value that `text` says for its type: integers in decimal or 0x hexadecimal, floats as numbers
   or NaN, Infinity, -Infinity, strings as they are, versions. False when it does not fit; `problem` then says why. */
bool setValueText(KvCParam& parameter, std::string_view text, std::string& problem);

/** The version that `text` says; false when it is none or a number in it is too large for its field. */
bool parseVersion(std::string_view text, KvCVersion& version);

/** The type's name; "type 0x…" for a code that has none. */
std::string typeName(const KvCParam& parameter);

}  // namespace KvNParameterText
