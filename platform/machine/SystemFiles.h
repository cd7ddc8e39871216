#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/KvTypes.h"

namespace KvNMachine {

/**
 * The small files in which the system says what it is, below a root folder. Paths have no / in front. What cannot be
 * read is empty or null.
 */
class SystemFiles
{
public:
    explicit SystemFiles(std::string root) : m_root(std::move(root)) {}

    /** What is in the file, at most `maximum` bytes of it. */
    std::string content(const std::string& path, std::size_t maximum) const;
    /** The file as a text: up to the first NUL, without white space around it, at most longestText bytes. */
    std::string text(const std::string& path) const;
    /** The file as a decimal number. */
    std::optional<KvUInt64> number(const std::string& path) const;
    /** The names in a folder, sorted; those that begin with a dot are left out. */
    std::vector<std::string> names(const std::string& path) const;
    bool exists(const std::string& path) const;

private:
    std::string m_root;
};

/** A text without white space around it, up to its first NUL, at most longestText bytes. */
std::string tidied(std::string_view text);

/** A text that is a decimal number and nothing else. */
std::optional<KvUInt64> parseNumber(std::string_view text);

}  // namespace KvNMachine
