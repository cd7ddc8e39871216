#include "tools/kvinv/Console.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <system_error>

#include "platform/errorhandling/KvCErrorList.h"
#include "platform/errorhandling/KvCErrorManager.h"
#include "platform/host/KvNHost.h"
#include "tools/common/JsonEvents.h"
#include "tools/common/Text.h"
#include "tools/kvinv/Options.h"
#include "tools/kvinv/Progress.h"
#include "tools/kvinv/Trace.h"

namespace {

bool wantsColor(const Options& options, std::FILE* stream)
{
    if (options.color != "auto")
        return options.color == "always";
    const char* refused = KvNHost::environment("NO_COLOR");
    return KvNHost::isTerminal(stream) && (refused == nullptr || *refused == '\0');
}

std::string hexadecimal(unsigned long code)
{
    char digits[20];
    const auto end = std::to_chars(digits, digits + sizeof digits, code, 16).ptr;
    return "0x" + std::string(digits, end);
}

/** A text from outside inside a JSON string: bytes that are not UTF-8 are escaped first. */
std::string jsonText(std::string_view text)
{
    std::string out;
    KvNJson::appendString(out, KvNJson::isUtf8(text) ? std::string(text) : KvNText::escaped(text));
    return out;
}

}  // namespace

Console::Console(const Options& options)
    : m_json(options.json),
      m_quiet(options.quiet),
      m_verbose(options.verbose > 0),
      m_traced(isTraced(options)),
      m_outputIsTerminal(KvNHost::isTerminal(stdout)),
      m_outputColor(wantsColor(options, stdout)),
      m_errorColor(wantsColor(options, stderr))
{
    KvCErrorManager::setOutput(
        [](void* context, bool warning, KvUInt32 code, const char* origin, const char* text) {
            sent(context, warning, static_cast<unsigned>(code), origin, text);
        },
        this);
}

Console::~Console()
{
    KvCErrorManager::setOutput(nullptr, nullptr);
}

bool Console::write(std::string_view piece)
{
    if (m_gone)
        return false;
    if (m_progress != nullptr && m_outputIsTerminal)
        m_progress->hide();
    if (!piece.empty() && std::fwrite(piece.data(), 1, piece.size(), stdout) != piece.size()) {
        m_gone = true;
        if (!KvNHost::wasBrokenPipe())
            m_outputProblem = std::generic_category().message(errno);
    }
    return !m_gone;
}

std::string Console::shown(std::string_view text, bool keepLines) const
{
    return m_outputIsTerminal ? KvNText::escaped(text, keepLines) : std::string(text);
}

bool Console::check()
{
    if (m_gone || std::ferror(stdout) == 0)
        return !m_gone;
    // Whoever wrote has not told why it failed; another byte fails for the same reason.
    std::clearerr(stdout);
    errno = EIO;
    if (std::fputc('\n', stdout) == EOF || std::fflush(stdout) != 0) {
        if (!KvNHost::wasBrokenPipe())
            m_outputProblem = std::generic_category().message(errno);
    } else {
        m_outputProblem = "cannot be written";
    }
    m_gone = true;
    return false;
}

int Console::finish(int status, int trouble)
{
    if (!m_gone && std::fflush(stdout) != 0) {
        m_gone = true;
        if (!KvNHost::wasBrokenPipe())
            m_outputProblem = std::generic_category().message(errno);
    }
    if (m_outputProblem.empty())
        return status;
    problem("standard output: " + m_outputProblem);
    return status == StatusDone || status < trouble ? trouble : status;
}

void Console::problem(std::string_view text)
{
    Entry told;
    told.hasCode = false;
    told.origin = "kvinv";
    told.text = text;
    entry(told);
}

void Console::warning(std::string_view text)
{
    Entry told;
    told.isWarning = true;
    told.hasCode = false;
    told.origin = "kvinv";
    told.text = text;
    entry(told);
}

void Console::report(const KvCErrorList& errors)
{
    for (KvUInt32 i = 0; i < errors.getErrorCount(); ++i) {
        Entry told;
        told.code = static_cast<unsigned>(errors.getErrorCode(i));
        told.line = errors.getErrorLine(i);
        told.origin = errors.getErrorOrigin(i);
        told.text = errors.getErrorText(i);
        if (told.code == 0) {
            problem("further entries, " + std::to_string(errors.getErrorCount() - i) + " in all, were not kept");
            return;
        }
        entry(told);
    }
}

void Console::note(std::string_view text)
{
    if (m_quiet || !KvNHost::isTerminal(stderr))
        return;
    tell("kvinv: " + KvNText::escaped(text) + "\n");
}

void Console::change(std::string_view text)
{
    if (m_quiet || m_json || showsProgress())
        return;
    tell("kvinv: " + KvNText::escaped(text) + "\n");
}

bool Console::showsProgress() const
{
    const char* terminal = KvNHost::environment("TERM");
    const bool isDumb = terminal != nullptr && std::string_view(terminal) == "dumb";
    return !m_quiet && !m_traced && !isDumb && KvNHost::isTerminal(stderr);
}

void Console::setProgress(Progress* progress)
{
    const auto held = turn();
    m_progress = progress;
}

void Console::tell(const std::string& line)
{
    const auto held = turn();
    if (m_progress != nullptr)
        m_progress->hide();
    // In order with what stands before it when both streams go to the same place.
    std::fflush(stdout);
    std::fwrite(line.data(), 1, line.size(), stderr);
    if (m_progress != nullptr)
        m_progress->show();
}

void Console::sent(void* context, bool warning, unsigned code, const char* origin, const char* text)
{
    Entry told;
    told.isWarning = warning;
    told.code = code;
    told.origin = origin;
    told.text = text;
    static_cast<Console*>(context)->entry(told);
}

void Console::entry(const Entry& entry)
{
    if (entry.isWarning && m_quiet)
        return;
    std::string line;
    if (m_json) {
        line = entry.isWarning ? "{\"warning\": true, \"code\": " : "{\"code\": ";
        line += entry.hasCode ? '"' + hexadecimal(entry.code) + '"' : "null";
        line += ", \"origin\": " + jsonText(entry.origin) + ", \"line\": " + std::to_string(entry.line) +
                ", \"message\": " + jsonText(entry.text) + "}\n";
    } else {
        line = "kvinv: ";
        std::string kind = entry.isWarning ? "warning" : entry.hasCode ? "error" : "";
        if (entry.hasCode)
            kind += " " + hexadecimal(entry.code);
        if (m_errorColor && !kind.empty())
            kind = (entry.isWarning ? "\x1b[33m" : "\x1b[31m") + kind + "\x1b[0m";
        if (!kind.empty())
            line += kind + ": ";
        line += KvNText::escaped(entry.text);
        if (m_verbose && entry.hasCode) {
            line += " [" + KvNText::escaped(entry.origin);
            line += entry.line != 0 ? ", line " + std::to_string(entry.line) + "]" : "]";
        }
        line += '\n';
    }
    tell(line);
}
