#pragma once

#include <optional>
#include <string>
#include <vector>

/** What stands on the command line, as it was given. Which option goes where is said by the tables of CommandTable.cpp.
 */
struct Options
{
    // for every command
    std::string color = "auto";
    int verbose = 0;
    bool quiet = false;
    bool json = false;
    bool help = false;
    bool version = false;
    std::optional<std::string> timeout;

    // how a tree is shown
    std::optional<std::string> format;
    std::optional<std::string> flags;
    std::optional<std::string> level;

    // what is written
    std::optional<std::string> output;
    bool append = false;

    // which boards
    std::optional<std::string> ip;
    std::optional<std::string> subnet;
    std::optional<std::string> system;

    // how a board is updated
    std::optional<std::string> firmwareType;
    std::optional<std::string> kind;
    bool force = false;
    bool dryRun = false;

    // what has no name
    std::vector<std::string> arguments;
    /** What stands behind "--"; a command that takes none finds it at the end of `arguments`. */
    std::vector<std::string> command;
};
