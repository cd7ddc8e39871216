#include "tools/kvinv/Commands.h"
#include "tools/kvinv/TreeFile.h"

int runImport(const Options& options, Console& console)
{
    if (!options.output) {
        console.problem("import needs -o FILE");
        return StatusUsage;
    }
    if (options.append && *options.output == "-") {
        console.problem("--append needs a file, not standard output");
        return StatusUsage;
    }
    const std::unique_ptr<KvCInventoryItem> tree = TreeFile::readJson(options.arguments[0], console);
    if (tree == nullptr)
        return StatusFailed;
    return TreeFile::writeSection(*options.output, options.append, *tree, console) ? StatusDone : StatusFailed;
}
