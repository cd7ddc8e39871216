#include "tools/kvboardd/Log.h"

#include <chrono>

#include "platform/service/StandardError.h"
#include "tools/common/Text.h"

namespace KvNBoardService {

namespace {

/** Lines that a second may have: whoever makes the service log without end must not fill the disk. */
constexpr unsigned linesPerSecond = 100;
constexpr std::size_t longestLine = 2000;

struct Rate
{
    std::chrono::steady_clock::time_point second;
    unsigned lines = 0;
    unsigned leftOut = 0;
};

void write(std::string_view line)
{
    std::string text = "kvboardd: ";
    text += line.substr(0, longestLine);
    text += '\n';
    KvNService::writeStandardError(text);
}

}  // namespace

void log(std::string_view line) noexcept
{
    static Rate rate;
    try {
        const auto now = std::chrono::steady_clock::now();
        if (now - rate.second >= std::chrono::seconds(1)) {
            if (rate.leftOut != 0)
                write(std::to_string(rate.leftOut) + " lines left out");
            rate = {now, 0, 0};
        }
        if (rate.lines == linesPerSecond) {
            ++rate.leftOut;
            return;
        }
        ++rate.lines;
        write(line);
    } catch (...) {
        // Without memory there is nothing to say it with.
    }
}

void logEnd(std::string_view line) noexcept
{
    try {
        write(line);
    } catch (...) {
        // Without memory there is nothing to say it with.
    }
}

std::string shown(std::string_view text, std::size_t maximum)
{
    std::string result = KvNText::escaped(text.substr(0, maximum));
    if (text.size() > maximum)
        result += "...";
    return result;
}

std::string valueCount(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " value" : " values");
}

std::string addressText(KvUInt32 address)
{
    std::string result;
    for (unsigned shift = 32; shift != 0; shift -= 8) {
        if (shift != 32)
            result += '.';
        result += std::to_string((address >> (shift - 8)) & 0xFF);
    }
    return result;
}

}  // namespace KvNBoardService
