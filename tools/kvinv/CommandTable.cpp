#include <string>

#include "manager/KvCInventoryManager.h"
#include "tools/kvinv/Commands.h"

namespace {

OptionRow flag(const char* names, const char* help, bool Options::*target)
{
    OptionRow row{names, nullptr, nullptr, help};
    row.flag = target;
    return row;
}

OptionRow value(const char* names, const char* name, const char* allowed, const char* help,
                std::optional<std::string> Options::*target)
{
    OptionRow row{names, name, allowed, help};
    row.optionalText = target;
    return row;
}

OptionRow colorRow()
{
    OptionRow row{"--color", "WHEN", "auto always never",
                  "colours: auto (on a terminal, unless NO_COLOR is set), always or never"};
    row.text = &Options::color;
    return row;
}

OptionRow verboseRow()
{
    OptionRow row{
        "-v,--verbose", nullptr, nullptr,
        "origin and line of each error; twice (or KVINV_TRACE=1 in the environment): each remote call with its "
        "time"};
    row.count = &Options::verbose;
    return row;
}

const OptionRow color = colorRow();
const OptionRow verbose = verboseRow();
const OptionRow quiet = flag("-q,--quiet", "no warnings and no progress", &Options::quiet);
const OptionRow json = flag("--json", "results as JSON, and failures as one JSON object a line", &Options::json);
const OptionRow timeout =
    value("--timeout", "SECONDS", nullptr, "how long one remote call may last; 20 unless told", &Options::timeout);
const OptionRow help = flag("-h,--help", "what the program or the command does", &Options::help);
const OptionRow version = flag("--version", "the version of the program", &Options::version);

const OptionRow format = value("--format", "FORMAT", "text json csv",
                               "text (the default), json (docs/formats.md) or csv: one line for each parameter with "
                               "address, type, value, unit, modifiable, relevance and description",
                               &Options::format);
const OptionRow flags =
    value("--flags", "N", nullptr,
          "format flags of the text form, decimal or 0x hexadecimal; 0x80 is the form without tags", &Options::flags);
const OptionRow level =
    value("--level", "N", nullptr, "indentation of the text form, in steps of four blanks", &Options::level);
const OptionRow importOutput =
    value("-o,--output", "FILE", nullptr, "where the section goes; - is standard output", &Options::output);
const OptionRow scanOutput =
    value("-o,--output", "FILE", nullptr,
          "store the tree as a section in FILE; it is printed only with --format or --json then", &Options::output);
const OptionRow append = flag("--append", "put the section at the end of the image that FILE holds", &Options::append);
const OptionRow ip =
    value("--ip", "LIST", nullptr, "the boards at these addresses: dotted quads and commas, at most 200", &Options::ip);
const OptionRow subnet =
    value("--subnet", "MASK", nullptr, "the boards on this host's networks under the mask", &Options::subnet);
const OptionRow system_ =
    value("--system", "NAME", nullptr, "the boards of the system with this name", &Options::system);

/** The names of the firmware types that there are. */
const char* firmwareTypes()
{
    static const std::string names = [] {
        std::string list;
#define KV_FIRMWARE_TYPE(number, wireNumber, name)                                 \
    if (KvNInventoryManager::FirmwareType{number} != KvNInventoryManager::Invalid) \
        list += (list.empty() ? "" : " ") + std::string(#name);
#include "manager/FirmwareTypes.def"
#undef KV_FIRMWARE_TYPE
        return list;
    }();
    return names.c_str();
}

const char* firmwareTypeHelp()
{
    static const std::string text =
        std::string("what the image replaces, when the last element of ADDRESS does not say it: ") + firmwareTypes();
    return text.c_str();
}

const OptionRow firmwareType = value("--type", "TYPE", firmwareTypes(), firmwareTypeHelp(), &Options::firmwareType);
const OptionRow kind =
    value("--kind", "N", nullptr, "the kind of update by a number that the board knows, decimal or 0x hexadecimal",
          &Options::kind);
const OptionRow force =
    flag("--force", "leave out this host's checks of section, item and version; the board's remain", &Options::force);
const OptionRow dryRun = flag("--dry-run", "show what would happen, and change nothing", &Options::dryRun);

}  // namespace

const std::vector<const OptionRow*>& commonOptions()
{
    static const std::vector<const OptionRow*> rows = {&json, &quiet, &verbose, &timeout, &color, &version, &help};
    return rows;
}

const std::vector<CommandRow>& commands()
{
    static const std::vector<CommandRow> rows = {
        {"show",
         "FILE",
         "print the tree of an inventory section",
         "Prints the tree of the inventory section in FILE: a section alone, or one at the end or at the start of an "
         "image. FILE - is standard input.",
         "kvinv show --flags 0x80 rack.inv",
         "the tree as indented lines",
         1,
         1,
         false,
         {&format, &flags, &level},
         runShow},
        {"section",
         "FILE",
         "say what the frame of an inventory section announces",
         "Prints what the header and the trailer of the inventory section in FILE announce: where the section begins, "
         "the sizes of header, data and trailer, and the version.",
         "kvinv section firmware.bin",
         "where in the image the section is",
         1,
         1,
         false,
         {},
         runSection},
        {"import",
         "TREE.json",
         "make an inventory section of a tree JSON file",
         "Reads a tree as JSON (docs/formats.md) and writes it as an inventory section to the file named with -o.",
         "kvinv import rack.json -o rack.inv",
         "rack.inv is the section of that tree",
         1,
         1,
         false,
         {&importOutput, &append},
         runImport},
        {"diff",
         "A B",
         "compare two trees",
         "Prints what is only in A (-), only in B (+) and changed (~), by address. A and B are section files, tree "
         "JSON "
         "files, or boards: ip:LIST, subnet:MASK, system:NAME. A tree under ROOT and one that is a single board are "
         "compared at the board. The exit status is 0 when they are the same, 1 when they differ, 2 in trouble.",
         "kvinv diff rack.inv system:'Rack A'",
         "what has changed since rack.inv was stored",
         2,
         2,
         false,
         {},
         runDiff},
        {"ids",
         "[PATTERN]",
         "list the catalogue of IDs",
         "Prints number and name of the IDs of items and parameters: all of them, those that have PATTERN in their "
         "name "
         "(with * and ?: whose name is like it), or the one whose number it is.",
         "kvinv ids 'TEST_*'",
         "the IDs whose names begin with TEST_",
         0,
         1,
         false,
         {},
         runIds},
        {"explain",
         "CODE",
         "say what a message code means",
         "Prints the text of a message code, as it stands in error messages. %1 to %5 stand for what a message fills "
         "in.",
         "kvinv explain 0x1600804",
         "Communication error. Cannot call remote procedure %1.",
         1,
         1,
         false,
         {},
         runExplain},
        {"discover",
         "",
         "find boards",
         "Prints the boards that are found: serial number, type, name, system and address.",
         "kvinv discover --ip 10.0.0.2,10.0.0.3",
         "the boards at two addresses",
         0,
         0,
         false,
         {&ip, &subnet, &system_},
         runDiscover},
        {"scan",
         "",
         "read the inventory of boards",
         "Reads the inventory of all boards as one tree and prints it; on a terminal a bar on standard error shows how "
         "many boards have answered. When some boards could not be read, or reported errors with their tree, they are "
         "named, and the exit status is 3.",
         "kvinv scan --system 'Rack A' -o rack.inv",
         "rack.inv holds the inventory of a whole rack",
         0,
         0,
         false,
         {&ip, &subnet, &system_, &scanOutput, &format, &flags, &level},
         runScan},
        {"get",
         "ADDRESS",
         "read one parameter",
         "Prints the value of one parameter, on a terminal with its unit; with --json the whole parameter. ADDRESS "
         "begins with the board: HCN[serial number].",
         "kvinv get 'HCN[4711]/FIRMWARE/VERSION'",
         "the version of a board's firmware",
         1,
         1,
         false,
         {&ip, &subnet, &system_},
         runGet},
        {"set",
         "ADDRESS VALUE",
         "change one parameter",
         "Locks the board, writes the value, applies it and unlocks. The type is taken from the board; a value that "
         "does "
         "not fit, or a parameter that is not modifiable, is refused before anything is sent. A number may begin with "
         "-, "
         "another value that does stands after --. With KVINV_ACCESS=SERIAL:ID in the environment (see lock) that lock "
         "is used.",
         "kvinv set 'HCN[4711]/UNITNAME' 'Unit 12'",
         "the board's unit has a new name",
         2,
         2,
         false,
         {&ip, &subnet, &system_},
         runSet},
        {"put",
         "ADDRESS LOCAL",
         "put a file on a board",
         "Locks the board that ADDRESS names, transfers the local file to it under a name that the board chooses, "
         "prints that name and unlocks. An interrupted transfer leaves nothing on the board.",
         "kvinv put 'HCN[4711]' firmware.bin",
         "the name of the file on the board, for example transfer/6838cc88390474ec",
         2,
         2,
         false,
         {&ip, &subnet, &system_},
         runPut},
        {"ls",
         "ADDRESS",
         "list the files on a board",
         "Prints the files that were put on the board that ADDRESS names, with size in bytes and time (UTC) of the "
         "last "
         "change, and the room that is left on it.",
         "kvinv ls 'HCN[4711]'",
         "the files on the board",
         1,
         1,
         false,
         {&ip, &subnet, &system_},
         runLs},
        {"rm",
         "ADDRESS REMOTE",
         "delete a file on a board",
         "Locks the board that ADDRESS names, deletes the file that put or ls called REMOTE, and unlocks.",
         "kvinv rm 'HCN[4711]' transfer/6838cc88390474ec",
         "the file is gone from the board",
         2,
         2,
         false,
         {&ip, &subnet, &system_},
         runRm},
        {"update",
         "ADDRESS IMAGE",
         "update the firmware of a board",
         "Shows the version of the item at ADDRESS and that of the firmware image, and refuses an image without "
         "inventory section, without an item that fits the firmware type, or whose version is not newer. Then locks "
         "the board, transfers the image, has the board updated with it and follows the update to its end; prints the "
         "board's errors, deletes the image from the board and unlocks. An interruption ends the transfer; once the "
         "board is programming it is not interrupted: a second interruption leaves it to itself. With --json the "
         "result is one object.",
         "kvinv update 'HCN[4711]/FIRMWARE' firmware.bin",
         "the board runs the firmware that the image holds",
         2,
         2,
         false,
         {&ip, &subnet, &system_, &firmwareType, &kind, &force, &dryRun},
         runUpdate},
        {"lock",
         "ADDRESS -- COMMAND ...",
         "run a command while a board is locked",
         "Locks the board that ADDRESS names, runs COMMAND, unlocks, and ends with COMMAND's exit status. COMMAND has "
         "KVINV_ACCESS=SERIAL:ID in its environment; kvinv commands in it use that lock.",
         "kvinv lock 'HCN[4711]' -- sh change.sh",
         "nobody else changes the board while change.sh runs",
         1,
         1,
         true,
         {&ip, &subnet, &system_},
         runLock},
        {"locks",
         "",
         "say who holds which board",
         "Prints for each board who holds a lock on it, at what level, from which address, for how long already, and "
         "how "
         "long the lock lasts when it is not kept alive.",
         "kvinv locks",
         "the locks on all boards",
         0,
         0,
         false,
         {&ip, &subnet, &system_},
         runLocks},
    };
    return rows;
}
