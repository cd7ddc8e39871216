#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

/*
 * What the shared library exports and which of it is an operation.
 *
 * The rule: an operation is a function that a public header declares outside the private and protected sections of its
 * class. Overloads, and what a template is made for, are one operation, under the name without arguments. Destructors,
 * vtables, type information and data are none: destroying is a part of every operation that makes something. Functions
 * that no public header declares are parts of those that it does.
 */
namespace Exported {

/** The names of functions in the output of `nm -D --defined-only --demangle`, as "Class::name". */
std::set<std::string> functions(const std::string& symbols);

enum class Access
{
    Public,
    Inner  ///< private or protected, or of a class that is
};

/** What the header's text declares, by name: Public when any declaration of the name is. */
std::map<std::string, Access> declarations(const std::string& header);

}  // namespace Exported
