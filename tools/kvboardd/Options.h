#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/KvTypes.h"

namespace KvNBoardService {

/** What the command line says. Times are in seconds, sizes in bytes. */
struct Options
{
    std::string boards;
    bool host = false;                ///< instead of `boards`: the machine itself
    std::optional<KvUInt32> serial;   ///< of the machine; null: its own
    KvUInt32 address = 0x7F000001;    ///< of the machine, IPv4, host order
    std::optional<std::string> user;  ///< whom to become; null: nobody when started by root, else none
    std::string state;                ///< empty: values and files last as long as the process
    std::uint16_t portMapper = 0;     ///< port of the port mapper of each board; 0: none
    bool rpcbind = false;
    std::uint16_t port = 0;  ///< of the services; 0: any
    bool allAddresses = false;

    unsigned leaseSeconds = 20;
    unsigned updateSeconds = 2;
    unsigned maximumLocks = 64;
    unsigned wrongIds = 10;
    unsigned wrongIdSeconds = 60;
    std::size_t textBytes = 65536;
    std::size_t chunkBytes = 1048576;
    KvUInt64 filesBytes = KvUInt64(1) << 30;
    std::size_t files = 256;  ///< whoever asks for the list has all of them looked at

    unsigned connections = 64;
    unsigned connectionsPerSource = 8;
    unsigned callsPerConnection = 16;
    unsigned firstRecordSeconds = 10;
    unsigned recordSeconds = 10;
    unsigned outputSeconds = 10;
    unsigned idleSeconds = 300;
    std::size_t requestBytes = 1048576 + 4096;
    std::size_t memoryBytes = std::size_t(64) << 20;
};

/** Whether the program goes on after its command line was read; else it ends with `status`. */
struct CommandLine
{
    bool proceed = false;
    int status = 0;
    /** For standard output with status 0, else for standard error. */
    std::string text;
    Options options;
};

/** Reads the command line: status 0 for help and version, 2 for a wrong one, with the reason in `text`. */
CommandLine readCommandLine(int count, const char* const* arguments);

/** What an option is to its readers. */
struct OptionRow
{
    std::string name;          ///< "--port"
    std::string value;         ///< "PORT"; empty for a flag
    std::string range;         ///< "0 - 65535"; empty when any value goes
    std::string defaultValue;  ///< empty when its help says it, or when there is none
    std::string help;
    std::string group;  ///< the heading that it stands under
};

/** All options in the order of the help, from which the manual page and the shells' completion are made. */
std::vector<OptionRow> optionRows();

}  // namespace KvNBoardService
