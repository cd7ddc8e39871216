#pragma once

#include <vector>

#include "tools/kvinv/Console.h"
#include "tools/kvinv/Options.h"

/** An option as data: parser, help, manual and completion are made from it. Exactly one of the targets is set. */
struct OptionRow
{
    const char* names;    ///< as "-o,--output"
    const char* value;    ///< what its value is called; null when it takes none
    const char* allowed;  ///< the values it takes, separated by blanks; null when the command checks
    const char* help;
    bool Options::*flag = nullptr;
    int Options::*count = nullptr;
    std::string Options::*text = nullptr;
    std::optional<std::string> Options::*optionalText = nullptr;
};

/** A command as data. */
struct CommandRow
{
    const char* name;
    const char* arguments;  ///< as in its usage line; "..." allows any number of the last one
    const char* summary;
    const char* description;
    const char* example;
    const char* exampleMeaning;
    unsigned fewest;  ///< arguments without a name
    unsigned most;
    bool takesCommand;  ///< "-- COMMAND ..." belongs to it
    std::vector<const OptionRow*> options;
    int (*run)(const Options& options, Console& console);
};

/** Options that every command has. */
const std::vector<const OptionRow*>& commonOptions();
const std::vector<CommandRow>& commands();

/** The commands, one source each. They return the exit status. */
int runShow(const Options& options, Console& console);
int runSection(const Options& options, Console& console);
int runImport(const Options& options, Console& console);
int runDiff(const Options& options, Console& console);
int runIds(const Options& options, Console& console);
int runExplain(const Options& options, Console& console);
int runDiscover(const Options& options, Console& console);
int runScan(const Options& options, Console& console);
int runGet(const Options& options, Console& console);
int runSet(const Options& options, Console& console);
int runPut(const Options& options, Console& console);
int runLs(const Options& options, Console& console);
int runRm(const Options& options, Console& console);
int runUpdate(const Options& options, Console& console);
int runLocks(const Options& options, Console& console);
int runLock(const Options& options, Console& console);
