#include "tools/common/Text.h"
#include "tools/kvinv/CommandLine.h"

namespace {

constexpr const char* purpose = "the hardware and software inventory of real-time test systems";
constexpr const char* selection =
    "Boards are selected by --ip LIST, --subnet MASK or --system NAME; without one, the boards on this host's own "
    "networks are meant. KVDAL_PORTMAP_PORT in the environment names another port than 111 for their port mappers.";
constexpr const char* statuses =
    "0 done; 1 failed; 2 wrong usage; 3 a result was delivered but is incomplete, because some boards failed. diff: 0 "
    "the "
    "same, 1 different, 2 trouble. lock: that of COMMAND. A reader of the output that goes away early is no failure.";
constexpr std::size_t lineWidth = 100;

/** What the manual says beside the commands. */
struct Paragraph
{
    const char* title;
    const char* text;
};

constexpr Paragraph paragraphs[] = {
    {"UPDATES",
     "While a board is updated it is asked five times a second how far it is. A board that does not answer, or does "
     "not "
     "know, is asked again until 60 seconds have brought no better answer; a board that knows of no update has lost "
     "it. "
     "Either way the update has failed. Whatever has failed, the rest of the end is still done: the board's errors are "
     "fetched, the update is finished, the image is deleted from the board and the lock is given back. On a terminal a "
     "bar "
     "shows how far the update is, elsewhere each change of state is one line on standard error; -q and --json go "
     "without "
     "these lines."},
    {"INTERRUPTIONS",
     "An interruption (Ctrl-C, SIGTERM or SIGHUP) ends a command with status 128 and the signal's number; locks are "
     "given "
     "back, and neither a half-written file here nor a half-transferred one on a board is left. A board that is "
     "programming "
     "is not interrupted: update says so and goes on to the end. A second interruption leaves such an update to the "
     "board; "
     "the lock is given back, and the image stays on the board until rm deletes it. A third one ends the command at "
     "once; "
     "its lock then ends with its lease."},
    {"ENVIRONMENT",
     "KVDAL_PORTMAP_PORT: the port of the boards' port mappers, when it is not 111. KVINV_ACCESS=SERIAL:ID: the lock "
     "that "
     "commands use on that board, as lock sets it for its COMMAND. KVINV_TRACE=1: as -vv. NO_COLOR, when not empty: no "
     "colours. TERM=dumb: no bar."},
    {"CAVEATS",
     "The protocol has no authentication, no secrecy and no protection against changes on the way: whoever reaches a "
     "board's "
     "port can read and write it. A lock prevents accidents, not attacks."},
};

/** `text` in lines, with `column` blanks in front of all but the first. */
std::string wrapped(std::string_view text, std::size_t column)
{
    std::string out;
    std::size_t used = column;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        if (used + end + 1 > lineWidth && used > column) {
            out += '\n' + std::string(column, ' ');
            used = column;
        } else if (used > column) {
            out += ' ';
            ++used;
        }
        out += text.substr(0, end);
        used += end;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return out + '\n';
}

/** "-o, --output FILE" */
std::string optionTitle(const OptionRow& row)
{
    std::string title = row.names;
    if (const std::size_t comma = title.find(','); comma != std::string::npos)
        title.insert(comma + 1, " ");
    if (row.value != nullptr)
        title += std::string(" ") + row.value;
    return title;
}

std::string optionLines(const std::vector<const OptionRow*>& rows)
{
    constexpr std::size_t column = 24;
    std::string out;
    for (const OptionRow* row : rows) {
        std::string title = "  " + optionTitle(*row);
        title.resize(std::max(title.size() + 2, column), ' ');
        out += title + wrapped(row->help, column);
    }
    return out;
}

/** The options of a command that are its own. */
std::string commandHelp(const CommandRow& command)
{
    std::string out = "usage: " + usageText(command) + "\n\n" + wrapped(command.description, 0);
    if (!command.options.empty())
        out += "\noptions:\n" + optionLines(command.options);
    out += "\noptions of every command:\n" + optionLines(commonOptions());
    return out + "\nexample:\n  " + command.example + "\n  " + wrapped(std::string("    ") + command.exampleMeaning, 6);
}

std::string programHelp()
{
    std::string out = "usage: kvinv [OPTION ...] COMMAND [OPTION ...] [ARGUMENT ...]\n\n";
    out += wrapped(std::string("kvinv reads and changes ") + purpose + ".", 0) + "\ncommands:\n";
    for (const CommandRow& command : commands()) {
        std::string name = std::string("  ") + command.name;
        name.resize(12, ' ');
        out += name + command.summary + "\n";
    }
    out += "\noptions of every command:\n" + optionLines(commonOptions());
    out += "\n" + wrapped(selection, 0) + "\nexit status: " + wrapped(statuses, 2);
    out += "\nexample:\n  kvinv scan -o rack.inv && kvinv show rack.inv\n";
    return out + "\nkvinv COMMAND --help says more about a command.\n";
}

std::string manOptions(const std::vector<const OptionRow*>& rows)
{
    std::string out;
    for (const OptionRow* row : rows)
        out += ".TP\n.B " + KvNText::forManual(optionTitle(*row)) + "\n" + KvNText::forManual(row->help) + "\n";
    return out;
}

}  // namespace

std::string usageText(const CommandRow& command)
{
    std::string text = std::string("kvinv ") + command.name + " [OPTION ...]";
    return *command.arguments != '\0' ? text + " " + command.arguments : text;
}

std::string helpText(const CommandRow* command)
{
    return command != nullptr ? commandHelp(*command) : programHelp();
}

std::string manualText()
{
    std::string out = ".TH KVINV 1 \"\" \"Korvel Inventory\" \"User commands\"\n.SH NAME\nkvinv \\- ";
    out += KvNText::forManual(purpose) + "\n.SH SYNOPSIS\n.B kvinv\n[OPTION ...] COMMAND [OPTION ...] [ARGUMENT ...]\n";
    out += ".SH DESCRIPTION\n" + KvNText::forManual(selection) + "\n.SH COMMANDS\n";
    for (const CommandRow& command : commands()) {
        out += ".SS " + KvNText::forManual(usageText(command)) + "\n" + KvNText::forManual(command.description) + "\n" +
               manOptions(command.options);
        out += ".TP\nExample:\n.B " + KvNText::forManual(command.example) + "\n.br\n" +
               KvNText::forManual(command.exampleMeaning) + "\n";
    }
    out += ".SH OPTIONS\n" + manOptions(commonOptions());
    for (const Paragraph& paragraph : paragraphs)
        out += std::string(".SH ") + paragraph.title + "\n" + KvNText::forManual(paragraph.text) + "\n";
    return out + ".SH EXIT STATUS\n" + KvNText::forManual(statuses) + "\n.SH SEE ALSO\n.BR kvboardd (8)\n";
}
