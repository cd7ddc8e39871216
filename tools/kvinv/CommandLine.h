#pragma once

#include <string>

#include "tools/kvinv/Commands.h"

/** What was understood of a command line. */
struct CommandLine
{
    Options options;
    const CommandRow* command = nullptr;  ///< null when none was named
    std::string problem;                  ///< why the command line is wrong; empty when it is not
};

CommandLine parseCommandLine(int count, char** arguments);

/** How a command is called: "kvinv get [OPTION ...] ADDRESS". */
std::string usageText(const CommandRow& command);
/** The help for one command, or for the program when null. */
std::string helpText(const CommandRow* command);
/** The manual page, in the language of man. */
std::string manualText();
/** What makes bash complete commands, options and arguments. */
std::string bashCompletion();
/** The same for zsh. */
std::string zshCompletion();
