#include <cstdio>
#include <exception>
#include <new>

#include "platform/host/KvNHost.h"
#include "tools/kvinv/CommandLine.h"
#include "tools/kvinv/Interruption.h"
#include "tools/kvinv/Trace.h"

namespace {

/** Trouble has another number for diff. */
int troubleStatus(const CommandLine& line)
{
    return line.command != nullptr && line.command->run == runDiff ? 2 : static_cast<int>(StatusFailed);
}

int run(const CommandLine& line, Console& console)
{
    try {
        return line.command->run(line.options, console);
    } catch (const std::bad_alloc&) {
        console.problem("memory is out");
    } catch (const std::exception& failure) {
        console.problem(failure.what());
    }
    return troubleStatus(line);
}

int answer(const CommandLine& line, Console& console)
{
    const Options& options = line.options;
    if (!line.problem.empty()) {
        const std::string help =
            line.command != nullptr ? std::string("kvinv ") + line.command->name + " --help" : "kvinv --help";
        console.problem(line.problem + " (" + help + " says more)");
        return StatusUsage;
    }
    if (options.version) {
        console.write("kvinv " KVINV_VERSION "\n");
        return StatusDone;
    }
    if (options.help) {
        console.write(helpText(line.command));
        return StatusDone;
    }
    if (line.command == nullptr) {
        console.problem("no command (kvinv --help lists them)");
        return StatusUsage;
    }
    if (!Interruption::begin(options, console))
        return StatusUsage;
    traceCalls(options);
    return run(line, console);
}

}  // namespace

int main(int count, char** arguments)
{
    KvNHost::surviveFailedWrites();
    // For the build: what is made of the tables of commands and options.
    constexpr struct
    {
        const char* option;
        std::string (*text)();
    } documents[] = {{"--generate-manual", manualText},
                     {"--generate-bash-completion", bashCompletion},
                     {"--generate-zsh-completion", zshCompletion}};
    for (const auto& document : documents) {
        if (count != 2 || std::string_view(arguments[1]) != document.option)
            continue;
        const std::string text = document.text();
        const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
        return isWritten && std::fflush(stdout) == 0 ? StatusDone : StatusFailed;
    }
    const CommandLine line = parseCommandLine(count, arguments);
    Console console(line.options);
    const int status = Interruption::status(answer(line, console), console);
    return console.finish(status, troubleStatus(line));
}
