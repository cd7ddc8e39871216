#include "platform/machine/SystemFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>

#include "platform/machine/Machine.h"

namespace KvNMachine {

namespace {

constexpr std::string_view whiteSpace = " \t\r\n\v\f";

}  // namespace

std::string tidied(std::string_view text)
{
    text = text.substr(0, text.find('\0'));
    const std::size_t begin = text.find_first_not_of(whiteSpace);
    if (begin == std::string_view::npos)
        return "";
    text = text.substr(begin, longestText);
    return std::string(text.substr(0, text.find_last_not_of(whiteSpace) + 1));
}

std::optional<KvUInt64> parseNumber(std::string_view text)
{
    KvUInt64 value = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (text.empty() || result.ec != std::errc() || result.ptr != end)
        return std::nullopt;
    return value;
}

std::string SystemFiles::content(const std::string& path, std::size_t maximum) const
{
    const int file = ::open((m_root + "/" + path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file < 0)
        return "";
    std::string bytes;
    char block[4096];
    while (bytes.size() < maximum) {
        const ssize_t got = ::read(file, block, std::min(sizeof block, maximum - bytes.size()));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        bytes.append(block, static_cast<std::size_t>(got));
    }
    ::close(file);
    return bytes;
}

std::string SystemFiles::text(const std::string& path) const
{
    return tidied(content(path, 4096));
}

std::optional<KvUInt64> SystemFiles::number(const std::string& path) const
{
    return parseNumber(text(path));
}

std::vector<std::string> SystemFiles::names(const std::string& path) const
{
    std::vector<std::string> result;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(m_root + "/" + path, error), end; !error && entry != end;
         entry.increment(error))
        if (std::string name = entry->path().filename().string(); name.front() != '.')
            result.push_back(std::move(name));
    std::sort(result.begin(), result.end());
    return result;
}

bool SystemFiles::exists(const std::string& path) const
{
    return ::access((m_root + "/" + path).c_str(), F_OK) == 0;
}

}  // namespace KvNMachine
