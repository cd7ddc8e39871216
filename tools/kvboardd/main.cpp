#include <csignal>
#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/service/Descriptors.h"
#include "tools/kvboardd/Board.h"
#include "tools/kvboardd/BoardFile.h"
#include "tools/kvboardd/FileFolders.h"
#include "tools/kvboardd/HostInventory.h"
#include "tools/kvboardd/Log.h"
#include "tools/kvboardd/Manual.h"
#include "tools/kvboardd/Options.h"
#include "tools/kvboardd/Rights.h"
#include "tools/kvboardd/Service.h"
#include "tools/kvboardd/Store.h"

namespace {

using namespace KvNBoardService;

constexpr KvUInt32 allAddresses = 0;

/** Who the boards are that the command line names. */
bool describeBoards(const Options& options, std::vector<BoardDescription>& descriptions, std::string& problem)
{
    if (!options.host)
        return readBoardFile(options.boards, descriptions, problem);
    const KvNMachine::Machine machine = KvNMachine::readMachine("/", KvNMachine::interfaceAddresses());
    descriptions.emplace_back();
    descriptions.back().address = options.address;
    return describeHost(machine, options.serial, descriptions.back(), problem);
}

/** The boards that the command line names, with the values that were written to them before. */
bool loadBoards(const Options& options, const FileFolders& files, std::vector<ServedBoard>& boards,
                std::string& problem)
{
    std::vector<BoardDescription> descriptions;
    if (!describeBoards(options, descriptions, problem))
        return false;
    for (BoardDescription& description : descriptions) {
        const std::string who = "board " + std::to_string(description.serialNumber);
        if (description.address == allAddresses) {
            if (!options.allAddresses) {
                problem = who + ": address 0.0.0.0 is permitted with --all-addresses only";
                return false;
            }
            log("warning: " + who + " listens on all addresses: whoever reaches this machine can read and write it");
        }
        std::unique_ptr<Store> store;
        if (!options.state.empty()) {
            store = Store::open(options.state, description.serialNumber, problem);
            if (!store)
                return false;
        }
        Board::Limits limits;
        limits.textBytes = options.textBytes;
        ServedBoard served;
        served.board = std::make_unique<Board>(std::move(description), std::move(store), limits);
        served.files = files.folder(served.board->serialNumber(), problem);
        if (served.files == nullptr || !served.board->restore(problem))
            return false;
        boards.push_back(std::move(served));
    }
    return true;
}

/** For the build: what is made of the options' data; empty when the command line asks for nothing of it. */
std::string generated(int count, char** arguments)
{
    const std::string_view wanted = count == 2 ? arguments[1] : "";
    if (wanted == "--generate-manual")
        return manualText();
    if (wanted == "--generate-bash-completion")
        return bashCompletion();
    return wanted == "--generate-zsh-completion" ? zshCompletion() : "";
}

int serve(const Options& options)
{
    // Each board has several sockets and folders open.
    KvNService::allowAllDescriptors();
    std::string problem;
    Rights rights;
    FileFolders files;
    std::vector<ServedBoard> boards;
    if (!chooseRights(options, rights, problem) || !files.open(options.state, problem) ||
        !loadBoards(options, files, boards, problem)) {
        logEnd(problem);
        return 1;
    }
    const std::size_t count = boards.size();
    std::vector<std::string> folders;
    if (options.state.empty())
        folders.push_back(files.temporaryPath());
    else
        for (const ServedBoard& served : boards)
            folders.push_back(options.state + "/" + std::to_string(served.board->serialNumber()));
    Service service(options, std::move(boards));
    if (!service.start(problem) || !takeRights(rights, folders, problem)) {
        logEnd(problem);
        return 1;
    }
    service.run([count] {
        std::printf("ready: %zu boards\n", count);
        std::fflush(stdout);
    });
    log("ended");
    return 0;
}

}  // namespace

int main(int count, char** arguments)
{
    // A reader of standard output or of the log that goes away must not end the service, nor a file beyond the limit.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        if (const std::string text = generated(count, arguments); !text.empty())
            return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() ? 0 : 1;
        const CommandLine line = readCommandLine(count, arguments);
        if (!line.proceed) {
            std::fputs(line.text.c_str(), line.status == 0 ? stdout : stderr);
            return line.status;
        }
        return serve(line.options);
    } catch (const std::bad_alloc&) {
        log("out of memory");
        return 1;
    }
}
