#include "tools/kvinv/Progress.h"

#include <algorithm>
#include <cstdio>

#include "platform/host/KvNHost.h"
#include "tools/common/Text.h"
#include "tools/kvinv/Console.h"

namespace {

constexpr unsigned all = 1000;
constexpr std::size_t widestBar = 40;
constexpr std::size_t narrowestBar = 8;

Progress::Look lookOf(const Console& console)
{
    Progress::Look look;
    look.isShown = console.showsProgress();
    look.isColored = console.errorsHaveColor();
    look.columns = [] { return KvNHost::terminalColumns(stderr); };
    look.writing = [](std::string_view text) {
        std::fflush(stdout);
        std::fwrite(text.data(), 1, text.size(), stderr);
        std::fflush(stderr);
    };
    return look;
}

}  // namespace

Progress::Progress(Console& console) : Progress(lookOf(console))
{
    m_console = &console;
    console.setProgress(this);
}

Progress::~Progress()
{
    if (m_console != nullptr)
        m_console->setProgress(nullptr);
    if (!m_drawn.empty())
        m_look.writing("\n");
}

std::unique_lock<std::recursive_mutex> Progress::turn() const
{
    return m_console != nullptr ? m_console->turn() : std::unique_lock<std::recursive_mutex>();
}

void Progress::begin(std::string_view step)
{
    advance(step, 0);
}

void Progress::reach(unsigned thousandths)
{
    const auto held = turn();
    m_reached = std::max(m_reached, std::min(thousandths, all));
    draw();
}

void Progress::advance(std::string_view step, unsigned thousandths)
{
    const auto held = turn();
    m_begun = true;
    m_step = KvNText::escaped(step);
    reach(thousandths);
}

void Progress::hide()
{
    const auto held = turn();
    if (!m_drawn.empty())
        m_look.writing("\r\x1b[K");
    m_drawn.clear();
}

void Progress::show()
{
    const auto held = turn();
    draw();
}

void Progress::draw()
{
    if (!m_look.isShown || !m_begun)
        return;
    std::string now = line();
    if (now == m_drawn)
        return;
    m_look.writing("\r" + now + "\x1b[K");
    m_drawn = std::move(now);
}

std::string Progress::line() const
{
    // The last column stays free: some terminals begin a new line when it is taken.
    const std::size_t columns = std::max(m_look.columns(), 2U) - 1;
    const unsigned percent = m_reached / 10;
    std::string number = std::to_string(percent);
    number.insert(0, 3 - number.size(), ' ');
    number += " %";
    if (columns < number.size())
        return "";
    const std::size_t framed = number.size() + 3;  // with the bar's brackets and a blank
    std::string step = " " + m_step;
    if (columns < framed + narrowestBar + KvNText::width(step))
        step.clear();
    if (columns < framed + narrowestBar)
        return number;
    const std::size_t bar = std::min(widestBar, columns - framed - KvNText::width(step));
    const std::size_t full = bar * m_reached / all;
    return "[" + std::string(m_look.isColored ? "\x1b[32m" : "") + std::string(full, '#') +
           (m_look.isColored ? "\x1b[0m" : "") + std::string(bar - full, '.') + "] " + number + step;
}
