#include "tools/kvboardd/Options.h"

#include <CLI/CLI.hpp>

#include <sstream>
#include <utility>

#include "tools/kvboardd/BoardFile.h"

namespace KvNBoardService {

namespace {

constexpr int wrongUsage = 2;
constexpr unsigned longestSeconds = 86400;
constexpr unsigned mostConnections = 10000;
constexpr std::size_t mostBytes = std::size_t(1) << 30;
constexpr KvUInt64 mostFilesBytes = KvUInt64(1) << 50;

/** Reads an IPv4 address as the board file has it. */
std::string readAddress(const std::string& text, KvUInt32& address)
{
    return parseAddress(text, address) ? "" : "is not an IPv4 address such as 127.0.0.11";
}

void addBoards(CLI::App& app, Options& options)
{
    auto* boards =
        app.add_option("--boards", options.boards,
                       "The boards: a board file (JSON), or an inventory section, whose one board listens on 127.0.0.1")
            ->type_name("FILE");
    auto* host = app.add_flag("--host", options.host,
                              "The board is the machine that this runs on, as it is when the service starts")
                     ->excludes(boards);
    app.add_option("--serial", options.serial, "Serial number of the machine (default: made from its /etc/machine-id)")
        ->type_name("N")
        ->check(CLI::Range(KvUInt64(0), KvUInt64(0xFFFFFFFF)))
        ->needs(host);
    app.add_option_function<std::string>(
           "--address", [&options](const std::string& text) { readAddress(text, options.address); },
           "Address that the machine's service listens on")
        ->type_name("IP")
        ->default_str("127.0.0.1")
        ->check(CLI::Validator(
            [](const std::string& text) {
                KvUInt32 address = 0;
                return readAddress(text, address);
            },
            ""))
        ->needs(host);
    app.final_callback([boards, host] {
        if (boards->empty() && host->empty())
            throw CLI::RequiredError("--boards FILE or --host");
    });
}

void addService(CLI::App& app, Options& options)
{
    addBoards(app, options);
    app.add_option("--state", options.state,
                   "Where written values last, in DIR/SERIAL/inventory.inv, and files, in DIR/SERIAL/files; what is "
                   "there replaces the board file's tree (default: they last as long as the service)")
        ->type_name("DIR");
    app.add_option("--user", options.user,
                   "Become this user, with its group alone, when everything is open (default: nobody when started by "
                   "root)")
        ->type_name("NAME");
    auto* mapper = app.add_option("--portmap", options.portMapper,
                                  "Answer port mapper requests on this port of each board's address")
                       ->type_name("PORT")
                       ->check(CLI::Range(1, 65535));
    app.add_flag("--rpcbind", options.rpcbind,
                 "Register with the rpcbind of this machine; all boards then use one port")
        ->excludes(mapper);
    app.add_option("--port", options.port, "Port of the boards' services; 0: any that is free")
        ->type_name("PORT")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_flag("--all-addresses", options.allAddresses,
                 "Permit a board with the address 0.0.0.0, which everyone who reaches the machine can read and write");
}

void addLimits(CLI::App& app, Options& options)
{
    const auto limit = [&](const char* name, auto& value, auto low, auto high, const char* type, const char* what) {
        app.add_option(name, value, what)
            ->type_name(type)
            ->check(CLI::Range(low, high))
            ->capture_default_str()
            ->group("Limits of each board");
    };
    limit("--lease-seconds", options.leaseSeconds, 1u, longestSeconds, "N",
          "A lock ends when it is not kept for so long");
    limit("--update-seconds", options.updateSeconds, 0u, longestSeconds, "N",
          "How long a simulated update takes before the image is verified");
    limit("--max-locks", options.maximumLocks, 1u, 64u, "N", "Locks at a time");
    limit("--max-wrong-ids", options.wrongIds, 0u, mostConnections, "N",
          "Wrong access IDs of one host, in the time below, before it is answered late");
    limit("--wrong-id-seconds", options.wrongIdSeconds, 1u, longestSeconds, "N", "How long they count");
    limit("--max-text", options.textBytes, std::size_t(1), std::size_t(1048576), "BYTES",
          "Longest text that is written");
    limit("--max-chunk", options.chunkBytes, std::size_t(1024), std::size_t(1048576), "BYTES",
          "Largest part of a file in one call");
    limit("--max-files-bytes", options.filesBytes, KvUInt64(0), mostFilesBytes, "BYTES", "All files together");
    limit("--max-files", options.files, std::size_t(0), std::size_t(4096), "N", "Files");
    limit("--max-connections", options.connections, 1u, mostConnections, "N", "Connections at a time");
    limit("--max-connections-per-source", options.connectionsPerSource, 1u, mostConnections, "N",
          "Connections at a time from one address");
    limit("--max-calls", options.callsPerConnection, 1u, mostConnections, "N", "Unanswered calls of a connection");
    limit("--first-record-seconds", options.firstRecordSeconds, 1u, longestSeconds, "N",
          "Time of a new connection for its first call");
    limit("--record-seconds", options.recordSeconds, 1u, longestSeconds, "N", "Time for a call from its first byte");
    limit("--output-seconds", options.outputSeconds, 1u, longestSeconds, "N", "Time for reading an answer");
    limit("--idle-seconds", options.idleSeconds, 1u, longestSeconds, "N",
          "A connection without calls ends after so long");
    limit("--max-request", options.requestBytes, std::size_t(1024), mostBytes, "BYTES", "Largest call");
    limit("--max-memory", options.memoryBytes, std::size_t(65536), mostBytes, "BYTES",
          "Memory for calls and answers, of all boards together");
}

void fill(CLI::App& app, Options& options)
{
    app.description(
        "The inventory service of one board or of several: what they are, their values, and who may change "
        "them. Listens on loopback unless an address is named. Whoever reaches a board's port can read and write it.");
    app.footer(
        "Examples:\n  kvboardd --boards samples/rack-boards.json --portmap 10111 --state /var/lib/kvboardd\n"
        "  kvboardd --host --portmap 111");
    app.set_version_flag("--version", "kvboardd " KV_VERSION);
    addService(app, options);
    addLimits(app, options);
}

}  // namespace

std::vector<OptionRow> optionRows()
{
    Options options;
    CLI::App app("", "kvboardd");
    fill(app, options);
    std::vector<OptionRow> rows;
    for (const CLI::Option* option : app.get_options()) {
        OptionRow row;
        row.name = "--" + option->get_lnames().front();
        row.defaultValue = option->get_default_str();
        row.help = option->get_description();
        row.group = option->get_group();
        // "PORT:INT in [1 - 65535]"; flags have a type too.
        const std::string type = option->get_type_name();
        if (option->get_items_expected_max() != 0)
            row.value = type.substr(0, type.find(':'));
        if (const std::size_t range = type.find('['); range != std::string::npos)
            row.range = type.substr(range + 1, type.find(']') - range - 1);
        rows.push_back(std::move(row));
    }
    return rows;
}

CommandLine readCommandLine(int count, const char* const* arguments)
{
    CommandLine result;
    CLI::App app("", "kvboardd");
    fill(app, result.options);
    try {
        app.parse(count, arguments);
        result.proceed = true;
    } catch (const CLI::ParseError& problem) {
        std::ostringstream out;
        std::ostringstream errors;
        result.status = app.exit(problem, out, errors) == 0 ? 0 : wrongUsage;
        result.text = result.status == 0 ? out.str() : "kvboardd: " + errors.str();
    }
    return result;
}

}  // namespace KvNBoardService
