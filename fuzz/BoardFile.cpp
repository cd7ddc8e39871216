#include <filesystem>
#include <set>

#include "base/Report.h"
#include "fuzz/Trees.h"
#include "tools/kvboardd/BoardFile.h"
#include "tools/kvboardd/UpdateRecord.h"

/*
 * The JSON files of the board's service: the board file, whose boards are good as a whole or none, and the record of an
 * update, which writes itself as a text that reads back to the same.
 */

using namespace KvNFuzz;
using namespace KvNBoardService;

namespace {

void readBoards(std::string_view text)
{
    // Trees in files are looked for where nothing is.
    static const std::string nowhere = "/nowhere/at-all";
    std::vector<BoardDescription> boards;
    std::string problem;
    if (!parseBoardFile(text, "boards.json", nowhere, boards, problem)) {
        KV_FUZZ_CHECK(problem.starts_with("boards.json"));
        return;
    }
    KV_FUZZ_CHECK(problem.empty());
    std::set<KvUInt32> serials;
    std::set<KvUInt32> addresses;
    for (const BoardDescription& board : boards) {
        KV_FUZZ_CHECK(board.tree != nullptr);
        KV_FUZZ_CHECK(serials.insert(board.serialNumber).second);
        KV_FUZZ_CHECK(addresses.insert(board.address).second);
        KV_FUZZ_CHECK(board.tree->getID().getIndex() == board.serialNumber);
    }
}

void readRecord(std::string_view text)
{
    UpdateRecord record;
    std::string problem;
    if (!readUpdateRecord(text, record, problem)) {
        KV_FUZZ_CHECK(!problem.empty());
        return;
    }
    const std::string written = updateRecordText(record);
    UpdateRecord again;
    KV_FUZZ_CHECK(readUpdateRecord(written, again, problem));
    KV_FUZZ_CHECK(updateRecordText(again) == written);
    KV_FUZZ_CHECK(again.address == record.address && again.newVersion == record.newVersion &&
                  again.errors == record.errors);
}

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::string_view text = textOf(data, size);
    // Names that lead out of the folder could be anything on this machine.
    const bool isOutside = text.find("\"/") != std::string_view::npos || text.find("..") != std::string_view::npos ||
                           text.find("\\") != std::string_view::npos;
    const Costs costs;
    if (!isOutside)
        readBoards(text);
    readRecord(text);
    costs.check(size, {65536, 80, 60000, 400});
    KvNReport::masterList().clear();
    return 0;
}
