#include "tools/kvinv/Commands.h"
#include "tools/kvinv/TreeFile.h"

int runShow(const Options& options, Console& console)
{
    TreeFile::Form form;
    if (!TreeFile::formOf(options, form, console))
        return StatusUsage;
    const std::unique_ptr<KvCInventoryItem> tree = TreeFile::readSection(options.arguments[0], console);
    if (tree == nullptr)
        return StatusFailed;
    return TreeFile::print(*tree, form, console) || console.isLeft() ? StatusDone : StatusFailed;
}
