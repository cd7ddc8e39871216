#include "tools/kvinv/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "tools/common/Text.h"

namespace {

/** In front of a negative number on its way through the parser, which takes it for an option otherwise. */
constexpr char numberMark = '\x01';

bool isNegativeNumber(const std::string& word)
{
    return word.size() > 1 && word[0] == '-' &&
           ((word[1] >= '0' && word[1] <= '9') || (word[1] == '.' && word.size() > 2) || word == "-Infinity");
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
        app.add_flag(row.names, options.*row.flag);
    } else if (row.count != nullptr) {
        app.add_flag(row.names, options.*row.count);
    } else {
        const auto store = [&options, &row](const std::string& given) {
            const std::string value = given[0] == numberMark ? given.substr(1) : given;
            if (row.text != nullptr)
                options.*row.text = value;
            else
                options.*row.optionalText = value;
        };
        app.add_option_function<std::string>(row.names, store)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    }
}

std::vector<std::string> optionNames(const CommandRow* command)
{
    std::vector<std::string> names;
    const auto add = [&](const std::vector<const OptionRow*>& rows) {
        for (const OptionRow* row : rows) {
            const std::string all = row->names;
            names.push_back(all.substr(all.find("--")));
        }
    };
    if (command != nullptr)
        add(command->options);
    add(commonOptions());
    return names;
}

std::string suggestion(const std::string& word, const std::vector<std::string>& candidates)
{
    const std::string near = KvNText::nearest(word, candidates);
    return near.empty() ? "" : "; did you mean " + near + "?";
}

/** What is wrong with the words that found no place; empty when there are none. */
std::string leftOver(const CommandLine& line, const std::vector<std::string>& remaining)
{
    if (remaining.empty())
        return "";
    const auto option = std::find_if(remaining.begin(), remaining.end(),
                                     [](const std::string& word) { return word.size() > 1 && word[0] == '-'; });
    if (option != remaining.end()) {
        const std::string name = option->substr(0, option->find('='));
        std::string problem = "unknown option " + name + suggestion(name, optionNames(line.command));
        if (line.command != nullptr && line.command->most > 0 && option->compare(0, 2, "--") != 0)
            problem += "; a value that begins with - and is no number stands after --";
        return problem;
    }
    if (line.command == nullptr) {
        std::vector<std::string> names;
        for (const CommandRow& row : commands())
            names.emplace_back(row.name);
        return "unknown command " + remaining.front() + suggestion(remaining.front(), names);
    }
    return "too many arguments, from " + remaining.front() + " on";
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
    const std::string usage = std::string("; usage: kvinv ") + command.name + " [OPTION ...] " + command.arguments;
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
            given.push_back(isNegativeNumber(word) ? numberMark + word : word);
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
        std::reverse(given.begin(), given.end());
        app.parse(given);
    } catch (const CLI::ParseError& error) {
        // The callback has not been called then; which command it was matters only for the text of the help.
        line.problem = error.what();
        return line;
    }
    for (std::size_t i = 0; i < commands().size(); ++i) {
        if (line.command == &commands()[i])
            options.arguments = positionals[i];
    }
    for (std::string& argument : options.arguments) {
        if (!argument.empty() && argument[0] == numberMark)
            argument.erase(0, 1);
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
