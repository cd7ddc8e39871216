#include <charconv>
#include <cstdio>
#include <limits>

#include "tools/common/ParameterText.h"
#include "tools/common/Text.h"
#include "tools/kvinv/Numbers.h"
#include "tools/kvinv/Options.h"
#include "tools/kvinv/TreeFile.h"
#include "tools/kvinv/TreeWalk.h"

namespace TreeFile {

namespace {

bool printText(const KvCInventoryItem& tree, const Form& form, Console& console)
{
    KvCErrorListPool errors;
    if (console.outputIsTerminal()) {
        const KvCString text = tree.toString(errors, form.flags, form.level);
        console.write(KvNText::escaped(text.c_str(), true));
    } else {
        tree.printTree(errors, form.flags, form.level);
    }
    console.report(errors);
    return console.check() && errors.getErrorCount() == 0;
}

bool printCsv(const KvCInventoryItem& tree, Console& console)
{
    console.write(KvNText::csvLine({"address", "type", "value", "unit", "modifiable", "relevance", "description"}));
    const auto text = [](const char* given) { return std::string(given != nullptr ? given : ""); };
    return walkTree(tree, [&](const KvCInventoryItem& item, const PathText& path) {
        return item.forEachParameter([&](const KvCInventoryParameter& parameter) {
            return console.write(KvNText::csvLine(
                {path.of(parameter), KvNParameterText::typeName(parameter),
                 console.shown(KvNParameterText::valueText(parameter)), console.shown(parameter.getUnit()),
                 parameter.isModifiable() ? "true" : "false", std::to_string(parameter.getRelevance()),
                 console.shown(text(parameter.getDescription()))}));
        });
    });
}

}  // namespace

bool formOf(const Options& options, Form& form, Console& console)
{
    const std::string kind = options.format.value_or(options.json ? "json" : "text");
    form.kind = kind == "json" ? Form::Kind::Json : kind == "csv" ? Form::Kind::Csv : Form::Kind::Text;
    KvUInt64 flags = 0;
    KvUInt64 level = 0;
    if (options.flags && !parseNumber(*options.flags, 0x7FFFFFFF, flags)) {
        console.problem("--flags takes a number from 0 to 0x7fffffff, not " + *options.flags);
        return false;
    }
    if (options.level && !parseNumber(*options.level, 1000, level)) {
        console.problem("--level takes a number from 0 to 1000, not " + *options.level);
        return false;
    }
    if ((options.flags || options.level) && form.kind != Form::Kind::Text) {
        console.problem("--flags and --level belong to the text form");
        return false;
    }
    form.flags = static_cast<int>(flags);
    form.level = static_cast<int>(level);
    return true;
}

bool print(const KvCInventoryItem& tree, const Form& form, Console& console)
{
    if (form.kind == Form::Kind::Text)
        return printText(tree, form, console);
    if (form.kind == Form::Kind::Csv)
        return printCsv(tree, console);
    ConsoleSink sink(console);
    return KvNTreeJson::writeTree(sink, tree);
}

}  // namespace TreeFile
