#include "tools/kvboardd/Manual.h"

#include "tools/common/Text.h"
#include "tools/kvboardd/Options.h"

namespace KvNBoardService {

namespace {

constexpr const char* opening = R"(.TH KVBOARDD 8 "" "Korvel Inventory" "System administration"
.SH NAME
kvboardd \- the inventory service of a board
.SH SYNOPSIS
.B kvboardd
.B \-\-boards
.I FILE
[OPTION ...]
.br
.B kvboardd
.B \-\-host
[\fB\-\-serial\fR \fIN\fR] [\fB\-\-address\fR \fIIP\fR] [OPTION ...]
.SH DESCRIPTION
.B kvboardd
answers the inventory manager's calls (ONC RPC program 8, version 1) and those of device access (program 536890198,
version 1) for one board or for several, each on an address of its own: what a board is, its values, who may change
them, files that are put on it, and updates of its firmware. A board is described by a file, or is the machine itself.
.PP
When all boards answer, one line is written to standard output: \(lqready: N boards\(rq. The log goes to standard error.
.SH SECURITY
The protocol has no authentication, no secrecy and no integrity.
Whoever reaches a board's port can read the board, write it, and have it update its firmware; whoever is on the way can
see and change what is said.
Therefore the service listens on loopback unless an address is named, and on all addresses only with
.BR \-\-all\-addresses .
Give boards a management network that nobody else is on, or a tunnel.
.PP
The lock of a board prevents accidents, not attacks: its access ID goes over the network for all to read.
The format of trees has no checksum, so that a flipped bit can be another valid tree.
.PP
The programming of an update is simulated: an image is checked and takes the time that a real one would, and then its
version stands in the tree. Nothing else of the machine is changed.
.PP
Started by root, the service becomes another user when everything is open, see
.BR \-\-user .
)";

constexpr const char* closing = R"(.SH THE MACHINE ITSELF
With
.B \-\-host
the board is the machine: its processors with their caches, memory, mainboard, BIOS, disks, Ethernet interfaces and
kernel, as they are when the service starts. What cannot be read is left out; some serial numbers only root can read.
Nothing of it can be written or updated. The serial number is made from
.I /etc/machine\-id
(FNV\-1a, 32 bits, of its digits; 1 when that is 0), or from the first hardware address where there is none, so that it
stays the same; copies of a machine need
.BR \-\-serial .
The board type is 0. Board name and system name are the host name.
.SH FILES
.TP
.I FILE
The board file, a JSON text: {"format": "korvel\-board", "version": 1, "boards": [...]}. Each board has a serialNumber
and a tree (the name of a file, or the tree itself), and may have a boardType, boardName, systemName and address.
The project's documentation describes it (docs/formats.md, \(lqThe board file\(rq). An inventory section does too: it is
one board on 127.0.0.1.
.TP
.I DIR/SERIAL/inventory.inv
The tree of board SERIAL with the values that were written to it, as an inventory section. It replaces the tree of the
board file.
.TP
.I DIR/SERIAL/update.json
How the board's update stands.
.TP
.I DIR/SERIAL/files/
The files that were put on the board.
.PP
DIR is the folder of
.BR \-\-state .
Each of these files is replaced as a whole: it is the old or the new one, whenever the service is ended. Without
.B \-\-state
all of it is in a temporary folder that goes with the service. Access IDs of locks are never stored.
.PP
DIR/SERIAL, with what is in it, is handed over to the user that the service becomes.
.SH EXIT STATUS
.TP
.B 0
Ended by a signal, or help was asked for.
.TP
.B 1
The service cannot be given, or not as it was asked for; the last line of the log says why.
.TP
.B 2
Wrong usage.
.SH SIGNALS
.TP
.BR SIGTERM ", " SIGINT
End the service: answers that are already given are still sent, for at most a second.
.TP
.B SIGPIPE
Ignored.
.SH EXAMPLES
.TP
.B kvboardd \-\-boards samples/rack\-boards.json \-\-portmap 10111
The boards of a sample rack on this machine, with a port mapper that needs no root.
.TP
.B kvboardd \-\-host \-\-portmap 111 \-\-state /var/lib/kvboardd
The machine itself, for programs that run on it.
.TP
.B kvboardd \-\-host \-\-address 10.0.1.212 \-\-rpcbind \-\-user inventory
The machine itself on a management network, registered with its rpcbind, run as the user \(lqinventory\(rq.
.SH NOTES
The unit
.I kvboardd.service
runs the service for systemd, as a user of its own and shut off from most of the machine; its options are in
.IR /etc/default/kvboardd .
.SH SEE ALSO
.BR kvinv (1),
.BR rpcbind (8),
.BR systemd.service (5)
)";

constexpr const char* limitsNote =
    "Limits hold for each board; what goes beyond one is refused, dropped or answered late, and the log says so. A "
    "connection whose peer holds a lock never makes place for a new one.";

std::string optionEntry(const OptionRow& row)
{
    std::string entry = ".TP\n.B " + KvNText::forManual(row.name);
    if (!row.value.empty())
        entry += " " + KvNText::forManual(row.value);
    entry += "\n" + KvNText::forManual(row.help);
    const std::string byDefault = row.defaultValue.empty() ? "" : "default " + row.defaultValue;
    const std::string facts = row.range + (row.range.empty() || byDefault.empty() ? "" : "; ") + byDefault;
    if (!facts.empty())
        entry += " (" + KvNText::forManual(facts) + ")";
    return entry + ".\n";
}

/** A text between the single quotes of a shell. */
std::string quoted(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        if (c == '\'')
            result += "'\\''";
        else if (c == '[' || c == ']' || c == ':')
            result += std::string("\\") + c;
        else
            result += c;
    }
    return result;
}

}  // namespace

std::string manualText()
{
    std::string out = opening;
    std::string group;
    for (const OptionRow& row : optionRows()) {
        if (row.group != group) {
            const bool isFirst = group.empty();
            group = row.group;
            out += isFirst ? ".SH OPTIONS\n" : ".SS " + group + "\n" + KvNText::forManual(limitsNote) + "\n";
        }
        out += optionEntry(row);
    }
    return out + closing;
}

std::string bashCompletion()
{
    std::string names;
    std::string files;
    std::string values;
    for (const OptionRow& row : optionRows()) {
        names += (names.empty() ? "" : " ") + row.name;
        if (row.value == "FILE" || row.value == "DIR")
            files += (files.empty() ? "" : "|") + row.name;
        else if (!row.value.empty() && row.value != "NAME")
            values += (values.empty() ? "" : "|") + row.name;
    }
    return "# Completion of kvboardd for bash.\n_kvboardd()\n{\n    local word=\"${COMP_WORDS[COMP_CWORD]}\"\n"
           "    case \"${COMP_WORDS[COMP_CWORD-1]}\" in\n        " +
           files +
           ") COMPREPLY=($(compgen -f -- \"$word\")) ;;\n        --user) COMPREPLY=($(compgen -u -- \"$word\")) ;;\n   "
           "     " +
           values + ") COMPREPLY=() ;;\n        *) COMPREPLY=($(compgen -W \"" + names +
           "\" -- \"$word\")) ;;\n    esac\n}\ncomplete -o filenames -F _kvboardd kvboardd\n";
}

std::string zshCompletion()
{
    std::string out = "#compdef kvboardd\n_arguments";
    for (const OptionRow& row : optionRows()) {
        out += " \\\n    '" + row.name + "[" + quoted(row.help) + "]";
        if (row.value == "FILE")
            out += ":FILE:_files";
        else if (row.value == "DIR")
            out += ":DIR:_files -/";
        else if (row.value == "NAME")
            out += ":NAME:_users";
        else if (!row.value.empty())
            out += ":" + row.value + ": ";
        out += "'";
    }
    return out + "\n";
}

}  // namespace KvNBoardService
