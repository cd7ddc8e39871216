#include "tools/kvinv/Scan.h"

#include <new>
#include <string>

#include "tools/kvinv/Commands.h"
#include "tools/kvinv/Interruption.h"
#include "tools/kvinv/Progress.h"
#include "tools/kvinv/TreeFile.h"

namespace {

/** Shows how many boards have answered while they are scanned, and nothing any more in the end. */
class Answers
{
public:
    Answers(std::size_t count, Console& console) : m_count(count), m_progress(console) { show(0, 0); }
    ~Answers() { m_progress.hide(); }
    Answers(const Answers&) = delete;
    Answers& operator=(const Answers&) = delete;

    /** What a scan tells, on a thread of its own. */
    static void take(KvUInt32 answered, KvUInt32 failed, void* context) noexcept
    {
        try {
            static_cast<Answers*>(context)->show(answered, failed);
        } catch (const std::bad_alloc&) {
            // The line stays as it was.
        }
    }

private:
    void show(KvUInt32 answered, KvUInt32 failed)
    {
        std::string text = std::to_string(answered) + " of " + std::to_string(m_count) +
                           (m_count == 1 ? " board answered" : " boards answered");
        if (failed != 0)
            text += ", " + std::to_string(failed) + " failed";
        m_progress.advance(text, static_cast<unsigned>(std::size_t{1000} * (answered + failed) / m_count));
    }

    const std::size_t m_count;
    Progress m_progress;
};

}  // namespace

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
    {
        Answers answers(count, console);
        KvCInventoryManager::getInstance().scanBoards(errors, boards.handle(), tree, results, Answers::take, &answers);
    }
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
