#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

/**
 * What a program needs of the host that it runs on: its terminal, interruptions by the user, and other programs.
 */
namespace KvNHost {

/** Whether the stream is shown to a person. */
bool isTerminal(std::FILE* stream);

/** How many characters a line of the stream's terminal takes; 80 when that is not known. */
unsigned terminalColumns(std::FILE* stream);

/** The value of an environment variable; null when there is none. */
const char* environment(const char* name);

/** Lets writing to a pipe that nobody reads, and beyond the limit of a file's size, fail with an error instead of
   ending the process. */
void surviveFailedWrites();

/** Whether the last failed write to a stream failed because nobody reads it any more (ask at once, errno is used). */
bool wasBrokenPipe();

/** Calls `function` when the user interrupts or ends the program (the first argument is the signal's number). It runs
    in the signal's context: it may set flags, call what says that it may be called there, and endNow(). */
void onInterrupt(void (*function)(int signal));

/** Ends the process at once, without clean-up. */
[[noreturn]] void endNow(int status) noexcept;

/** How a program that was run has ended. */
struct Ending
{
    bool started = false;
    int status = 0;       ///< its exit status; 128 and the signal's number when a signal ended it
    std::string problem;  ///< why it was not started
};

/** Runs `command` (found along PATH) with the variables `additions` added to the environment and waits for its end.
    Interruptions are the command's affair meanwhile: those of the terminal reach it anyway, those sent to this process
    are passed on, and the function of onInterrupt() is not called. */
Ending run(const std::vector<std::string>& command, const std::vector<std::pair<std::string, std::string>>& additions);

}  // namespace KvNHost
