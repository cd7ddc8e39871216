#include "tools/kvinv/Scan.h"

#include "tools/kvinv/Commands.h"
#include "tools/kvinv/Interruption.h"
#include "tools/kvinv/TreeFile.h"

std::unique_ptr<KvCInventoryItem> scanBoards(const Selection& selection, bool& complete, Console& console)
{
    const Boards boards(selection, console);
    complete = boards.isComplete();
    if (!boards.isGood())
        return nullptr;
    const std::size_t count = boards.infos().size();
    console.note("reading " + std::to_string(count) + (count == 1 ? " board" : " boards"));
    KvCErrorListPool errors;
    KvCInventoryItem* tree = nullptr;
    KvNInventoryManager::KvTBoardScans results;
    KvCInventoryManager::getInstance().scanBoards(errors, boards.handle(), tree, results);
    console.report(errors);
    for (const KvNInventoryManager::KvSBoardScan& result : results) {
        if (result.result == KvNInventoryManager::BoardComplete)
            continue;
        complete = false;
        console.problem(std::string(result.description.c_str()) + (result.result == KvNInventoryManager::BoardFailed
                                                                       ? " could not be read"
                                                                       : " reported errors with its tree"));
    }
    // A board of which no handle could be made is in no result.
    complete = complete && results.size() == count;
    return std::unique_ptr<KvCInventoryItem>(tree);
}

int runScan(const Options& options, Console& console)
{
    Selection selection;
    TreeFile::Form form;
    if (!selectionOf(options, selection, console) || !TreeFile::formOf(options, form, console))
        return StatusUsage;
    if (options.output == "-" && (options.format || options.json)) {
        console.problem("-o - and --format or --json cannot both have standard output");
        return StatusUsage;
    }
    bool complete = false;
    const std::unique_ptr<KvCInventoryItem> tree = scanBoards(selection, complete, console);
    // What an interruption has left of the boards is not what was asked for.
    if (tree == nullptr || Interruption::happened())
        return StatusFailed;
    if (options.output && !TreeFile::writeSection(*options.output, false, *tree, console))
        return StatusFailed;
    const bool isPrinted = !options.output || options.format || options.json;
    if (isPrinted && !TreeFile::print(*tree, form, console) && !console.isLeft())
        return StatusFailed;
    return complete ? StatusDone : StatusIncomplete;
}
