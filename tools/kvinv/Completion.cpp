#include <set>
#include <sstream>

#include "tools/kvinv/CommandLine.h"

/* What bash and zsh share is written in the language that both of them understand; names of its own begin with kv_. */

namespace {

/** What completes an argument, by what the usage line calls it. */
std::string kindOf(const std::string& argument)
{
    static const std::set<std::string> files = {"FILE", "LOCAL", "IMAGE", "TREE.json", "A", "B"};
    if (files.count(argument) != 0)
        return "file";
    if (argument == "ADDRESS")
        return "address";
    if (argument == "REMOTE")
        return "remote";
    return argument == "[PATTERN]" ? "id" : "none";
}

/** Calls `take(name)` for "-o" and "--output". */
template <class Take>
void forEachName(const OptionRow& row, Take&& take)
{
    std::istringstream names(row.names);
    for (std::string name; std::getline(names, name, ',');)
        take(name);
}

std::string optionNames(const std::vector<const OptionRow*>& rows)
{
    std::string list;
    for (const OptionRow* row : rows)
        forEachName(*row, [&](const std::string& name) { list += (list.empty() ? "" : " ") + name; });
    return list;
}

/** The lines of `case` that say what completes the value of an option. */
void addValues(const std::vector<const OptionRow*>& rows, std::set<std::string>& known, std::string& names,
               std::string& lines)
{
    for (const OptionRow* row : rows) {
        if (row->value == nullptr || !known.insert(row->names).second)
            continue;
        std::string pattern;
        forEachName(*row, [&](const std::string& name) {
            names += " " + name;
            pattern += (pattern.empty() ? "" : " | ") + name;
        });
        std::string kind = kindOf(row->value);
        if (row->allowed != nullptr)
            kind = std::string("words\" kv_words=\"") + row->allowed;
        lines += "        " + pattern + ") kv_kind=\"" + kind + "\" ;;\n";
    }
}

/** What is known of commands and options, as functions. */
std::string tables()
{
    std::string names;
    std::string valued;
    std::string values;
    std::string cases;
    std::set<std::string> known;
    addValues(commonOptions(), known, valued, values);
    for (const CommandRow& command : commands()) {
        names += (names.empty() ? "" : " ") + std::string(command.name);
        addValues(command.options, known, valued, values);
        std::string kinds;
        std::istringstream arguments(command.arguments);
        for (std::string argument; arguments >> argument && argument != "--";)
            kinds += (kinds.empty() ? "" : " ") + kindOf(argument);
        cases += "        " + std::string(command.name) + ") kv_own=\"" + optionNames(command.options) +
                 "\" kv_kinds=\"" + kinds + "\" ;;\n";
    }
    return "kv_commands=\"" + names + "\"\nkv_common=\"" + optionNames(commonOptions()) + "\"\nkv_valued=\"" +
           valued.substr(1) +
           "\"\n\n# The options and the kinds of the arguments of a command.\n_kvinv_command()\n{\n    case \"$1\" "
           "in\n" +
           cases +
           "        *) kv_own=\"\" kv_kinds=\"\" ;;\n    esac\n}\n\n"
           "# What completes the value of an option.\n_kvinv_value()\n{\n    case \"$1\" in\n" +
           values + "        *) kv_kind=none ;;\n    esac\n}\n";
}

constexpr const char* shared = R"sh(
# What the words before the one to be completed say.
_kvinv_read()
{
    local w
    kv_command="" kv_number=0 kv_first="" kv_option="" kv_dashes="" kv_selection=()
    for w in "$@"; do
        if [[ -n "$kv_option" ]]; then
            case "$kv_option" in --ip | --subnet | --system) kv_selection+=("$kv_option" "$w") ;; esac
            kv_option=""
        elif [[ -n "$kv_dashes" ]]; then
            continue
        elif [[ "$w" == -- ]]; then
            kv_dashes=1
        elif [[ "$w" == --*=* ]]; then
            case "${w%%=*}" in --ip | --subnet | --system) kv_selection+=("$w") ;; esac
        elif [[ "$w" == -* ]]; then
            [[ " $kv_valued " == *" $w "* ]] && kv_option="$w"
        elif [[ -z "$kv_command" ]]; then
            [[ " $kv_commands " == *" $w "* ]] && kv_command="$w"
        else
            kv_number=$((kv_number + 1))
            [[ "$kv_number" == 1 ]] && kv_first="$w"
        fi
    done
    _kvinv_command "$kv_command"
}

# What kind of word comes next; $1 is what there is of it.
_kvinv_kind()
{
    local kinds="$kv_kinds" i
    kv_kind="none" kv_words=""
    if [[ -n "$kv_option" ]]; then
        _kvinv_value "$kv_option"
    elif [[ -n "$kv_dashes" ]]; then
        kv_kind="file"
    elif [[ "$1" == -* ]]; then
        kv_kind="words" kv_words="$kv_own $kv_common"
    elif [[ -z "$kv_command" ]]; then
        kv_kind="words" kv_words="$kv_commands"
    else
        for ((i = 0; i < kv_number; ++i)); do
            [[ "$kinds" == *" "* ]] && kinds="${kinds#* }" || kinds="none"
        done
        [[ -n "$kinds" ]] && kv_kind="${kinds%% *}"
    fi
}

# The names of the catalogue, behind $2.
_kvinv_ids()
{
    local number name
    "$1" ids 2>/dev/null </dev/null | while read -r number name; do printf '%s%s\n' "$2" "$name"; done
}

# The boards of the selection on the line; without one, nobody is asked.
_kvinv_boards()
{
    local serial rest
    if [[ ${#kv_selection[@]} -eq 0 ]]; then
        printf '%s\n' 'HCN[' 'CN['
        return
    fi
    "$1" discover --timeout 1 "${kv_selection[@]}" 2>/dev/null </dev/null | while read -r serial rest; do
        [[ "$serial" == [0-9]* ]] && printf 'HCN[%s]\n' "$serial"
    done
}

# The files on the board that the first argument names.
_kvinv_files()
{
    local size modified name
    [[ ${#kv_selection[@]} -eq 0 || -z "$kv_first" ]] && return
    "$1" ls --timeout 1 "${kv_selection[@]}" "$kv_first" 2>/dev/null </dev/null |
        while read -r size modified name; do
            [[ "$modified" == *Z && -n "$name" ]] && printf '%s\n' "$name"
        done
}

# What the word can be, a line each; $1 is the program, $2 what there is of the word.
_kvinv_candidates()
{
    case "$kv_kind" in
        words) printf '%s\n' "$kv_words" | tr -s ' ' '\n' ;;
        id) _kvinv_ids "$1" "" ;;
        remote) _kvinv_files "$1" ;;
        address)
            case "$2" in
                */*) _kvinv_ids "$1" "${2%/*}/" ;;
                *) _kvinv_boards "$1" ;;
            esac
            ;;
    esac
}
)sh";

constexpr const char* forBash = R"sh(
# A word as it was meant: without quotes.
_kvinv_plain()
{
    kv_plain="${1//[\"\']/}"
    kv_plain="${kv_plain//\\/}"
}

_kvinv()
{
    local kv_command kv_number kv_first kv_option kv_dashes kv_selection kv_own kv_kinds kv_kind kv_words kv_plain
    local program="${COMP_WORDS[0]/#\~/$HOME}" word i before=() line
    for ((i = 1; i < COMP_CWORD; ++i)); do
        # --ip=LIST comes as three words.
        [[ "${COMP_WORDS[i]}" == "=" ]] && continue
        _kvinv_plain "${COMP_WORDS[i]}"
        before+=("$kv_plain")
    done
    _kvinv_plain "${COMP_WORDS[COMP_CWORD]#=}"
    word="$kv_plain"
    _kvinv_read "${before[@]}"
    _kvinv_kind "$word"
    COMPREPLY=()
    if [[ "$kv_kind" == file ]]; then
        compopt -o filenames 2>/dev/null
        while IFS= read -r line; do COMPREPLY+=("$line"); done < <(compgen -f -- "$word")
        return
    fi
    [[ "$kv_kind" == address ]] && compopt -o nospace 2>/dev/null
    while IFS= read -r line; do
        [[ -n "$line" && "$line" == "$word"* ]] && COMPREPLY+=("$line")
    done < <(_kvinv_candidates "$program" "$word")
}
complete -F _kvinv kvinv
)sh";

constexpr const char* forZsh = R"sh(
_kvinv()
{
    local kv_command kv_number kv_first kv_option kv_dashes kv_own kv_kinds kv_kind kv_words word line
    local -a kv_selection before found
    local program="${words[1]/#\~/$HOME}"
    before=("${(@Q)words[2,CURRENT-1]}")
    word="${(Q)PREFIX}"
    _kvinv_read "${before[@]}"
    if [[ "$word" == --*=* ]]; then
        kv_option="${word%%=*}"
        word="${word#*=}"
        compset -P 1 '*='
    fi
    _kvinv_kind "$word"
    if [[ "$kv_kind" == file ]]; then
        _files
        return
    fi
    while IFS= read -r line; do
        [[ -n "$line" && "$line" == "$word"* ]] && found+=("$line")
    done < <(_kvinv_candidates "$program" "$word")
    if [[ "$kv_kind" == address ]]; then
        compadd -S '' -a found
    else
        compadd -a found
    fi
}
if [[ "${funcstack[1]}" == _kvinv ]]; then
    _kvinv "$@"
else
    compdef _kvinv kvinv
fi
)sh";

}  // namespace

std::string bashCompletion()
{
    return "# Completion of kvinv for bash.\n" + tables() + shared + forBash;
}

std::string zshCompletion()
{
    return "#compdef kvinv\n# Completion of kvinv for zsh.\n" + tables() + shared + forZsh;
}
