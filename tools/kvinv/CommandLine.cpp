#include "tools/kvinv/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "tools/common/Text.h"

namespace {

/** In front of a word on its way through the parser that is meant as it is: the parser takes a negative number for an
    option, [a,b] for two words, and leaves out empty ones. */
constexpr char mark = '\x01';

bool isNegativeNumber(const std::string& word)
{
    return word.size() > 1 && word[0] == '-' &&
           ((word[1] >= '0' && word[1] <= '9') || (word[1] == '.' && word.size() > 2) || word == "-Infinity");
}

bool isCommand(const std::string& word)
{
    return std::any_of(commands().begin(), commands().end(), [&](const CommandRow& row) { return word == row.name; });
}

/** The word as the parser leaves it alone: commands and options as they are, the value of --option=value marked. */
std::string marked(const std::string& word)
{
    if (word.compare(0, 2, "--") == 0) {
        const std::size_t equals = word.find('=');
        return equals == std::string::npos ? word : word.substr(0, equals + 1) + mark + word.substr(equals + 1);
    }
    const bool isOption = word.size() > 1 && word[0] == '-' && !isNegativeNumber(word);
    return isOption || isCommand(word) ? word : mark + word;
}

std::string unmarked(const std::string& word)
{
    return !word.empty() && word[0] == mark ? word.substr(1) : word;
}

std::vector<std::string> words(std::string_view text)
{
    std::vector<std::string> list;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        if (end > 0)
            list.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return list;
}

void addOption(CLI::App& app, Options& options, const OptionRow& row)
{
    if (row.flag != nullptr) {
        app.add_flag(row.names, options.*row.flag)->disable_flag_override();
    } else if (row.count != nullptr) {
        app.add_flag(row.names, options.*row.count)->disable_flag_override();
    } else {
        const auto store = [&options, &row](const std::string& given) {
            if (row.text != nullptr)
                options.*row.text = unmarked(given);
            else
                options.*row.optionalText = unmarked(given);
        };
        app.add_option_function<std::string>(row.names, store)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    }
}

/** The long names, without their dashes, of the options that may stand there. */
std::vector<std::string> optionNames(const CommandRow* command)
{
    std::vector<std::string> names;
    const auto add = [&](const std::vector<const OptionRow*>& rows) {
        for (const OptionRow* row : rows) {
            const std::string all = row->names;
            names.push_back(all.substr(all.find("--") + 2));
        }
    };
    if (command != nullptr)
        add(command->options);
    add(commonOptions());
    return names;
}

std::string suggestion(const std::string& word, const std::vector<std::string>& candidates, const char* dashes = "")
{
    const std::string near = KvNText::nearest(word, candidates);
    return near.empty() ? "" : std::string("; did you mean ") + dashes + near + "?";
}

/** What is wrong with the words that found no place; empty when there are none. */
std::string leftOver(const CommandLine& line, const std::vector<std::string>& remaining)
{
    if (remaining.empty())
        return "";
    const auto option = std::find_if(remaining.begin(), remaining.end(),
                                     [](const std::string& word) { return word.size() > 1 && word[0] == '-'; });
    if (option != remaining.end()) {
        const std::string name = option->substr(0, option->find('=', 2));
        const std::string near = suggestion(name.substr(name.find_first_not_of('-')), optionNames(line.command), "--");
        std::string problem = "unknown option " + name + near;
        // An argument is missing: perhaps it is this one.
        if (line.command != nullptr && line.options.arguments.size() < line.command->most)
            problem += "; a value that begins with - and is no number stands after --";
        return problem;
    }
    if (line.command == nullptr) {
        std::vector<std::string> names;
        for (const CommandRow& row : commands())
            names.emplace_back(row.name);
        const std::string word = unmarked(remaining.front());
        return "unknown command " + word + suggestion(word, names);
    }
    return "too many arguments, from " + unmarked(remaining.front()) + " on";
}

/** What is wrong with an option that the parser stumbled over. */
std::string misused(const std::string& complaint, const std::vector<std::string>& given)
{
    // The last word is an option without its value, or a flag somewhere has one.
    const std::string name = given.empty() ? "" : given.back();
    if (complaint.find("required") != std::string::npos)
        return name + " needs a value";
    for (const std::string& word : given) {
        if (word.compare(0, 2, "--") == 0 && word.find('=') != std::string::npos &&
            complaint.find(word.substr(2, word.find('=') - 2)) != std::string::npos)
            return word.substr(0, word.find('=')) + " takes no value";
    }
    return complaint;
}

/** Checks the values of options that take certain ones only. */
std::string unfit(const Options& options, const std::vector<const OptionRow*>& rows)
{
    for (const OptionRow* row : rows) {
        if (row->allowed == nullptr)
            continue;
        std::optional<std::string> value;
        if (row->text != nullptr)
            value = options.*row->text;
        else if (row->optionalText != nullptr)
            value = options.*row->optionalText;
        const std::vector<std::string> allowed = words(row->allowed);
        if (!value || std::find(allowed.begin(), allowed.end(), *value) != allowed.end())
            continue;
        std::string problem = std::string(row->names) + " takes ";
        for (const std::string& word : allowed)
            problem += &word == &allowed.front() ? word : (&word == &allowed.back() ? " or " : ", ") + word;
        return problem + ", not " + *value + suggestion(*value, allowed);
    }
    return "";
}

/** Checks the number of arguments, with those behind "--" in their place. */
std::string miscounted(CommandLine& line, bool hasDashes)
{
    const CommandRow& command = *line.command;
    Options& options = line.options;
    if (!command.takesCommand) {
        options.arguments.insert(options.arguments.end(), options.command.begin(), options.command.end());
        options.command.clear();
    }
    const std::string usage = "; usage: " + usageText(command);
    if (options.arguments.size() > command.most)
        return "too many arguments, from " + options.arguments[command.most] + " on" + usage;
    if (options.arguments.size() < command.fewest)
        return "too few arguments" + usage;
    if (command.takesCommand && (!hasDashes || options.command.empty()))
        return "no COMMAND after --" + usage;
    return "";
}

}  // namespace

CommandLine parseCommandLine(int count, char** arguments)
{
    CommandLine line;
    Options& options = line.options;
    std::vector<std::string> given;
    bool hasDashes = false;
    for (int i = 1; i < count; ++i) {
        const std::string word = arguments[i];
        if (hasDashes)
            options.command.push_back(word);
        else if (word == "--")
            hasDashes = true;
        else
            given.push_back(marked(word));
    }

    CLI::App app;
    app.set_help_flag();
    app.allow_extras();
    app.require_subcommand(0, 1);
    for (const OptionRow* row : commonOptions())
        addOption(app, options, *row);
    std::vector<std::vector<std::string>> positionals(commands().size());
    for (std::size_t i = 0; i < commands().size(); ++i) {
        const CommandRow& row = commands()[i];
        CLI::App* command = app.add_subcommand(row.name);
        command->set_help_flag();
        command->allow_extras();
        command->fallthrough();
        command->add_option("arguments", positionals[i])->expected(0, -1);
        for (const OptionRow* option : row.options)
            addOption(*command, options, *option);
        command->callback([&line, &row] { line.command = &row; });
    }
    try {
        std::vector<std::string> reversed(given.rbegin(), given.rend());
        app.parse(reversed);
    } catch (const CLI::ParseError& error) {
        // Nothing has been stored then; how to say what is wrong is to be known all the same.
        options.json = std::find(given.begin(), given.end(), "--json") != given.end();
        for (const CommandRow& row : commands()) {
            if (app.got_subcommand(row.name))
                line.command = &row;
        }
        line.problem = misused(error.what(), given);
        return line;
    }
    for (std::size_t i = 0; i < commands().size(); ++i) {
        if (line.command == &commands()[i])
            std::transform(positionals[i].begin(), positionals[i].end(), std::back_inserter(options.arguments),
                           unmarked);
    }
    line.problem = leftOver(line, app.remaining(true));
    if (line.problem.empty())
        line.problem = unfit(options, commonOptions());
    if (line.problem.empty() && line.command != nullptr)
        line.problem = unfit(options, line.command->options);
    if (line.problem.empty() && line.command != nullptr && !options.help && !options.version)
        line.problem = miscounted(line, hasDashes);
    return line;
}
