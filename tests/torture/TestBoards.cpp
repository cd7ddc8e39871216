#include "TestBoards.h"

#include <cstring>
#include <memory>

#include "tests/tools/kvboardd/BoardProcess.h"

namespace {

std::unique_ptr<BoardProcess> g_process;
std::unique_ptr<TemporaryFolder> g_folder;

std::string boards()
{
    const auto board = [](const char* serialNumber, const char* last, const char* tree) {
        return std::string(R"({"serialNumber": )") + serialNumber + R"(, "boardType": 6003, "boardName": "IO-)" + last +
               R"(", "systemName": "Rack A", "address": "127.0.80.)" + last + R"(", "tree": ")" KV_SAMPLES_DIR "/" +
               tree + "\"}";
    };
    return R"({"format": "korvel-board", "version": 1, "boards": [)" + board("4711", "1", "single-board.json") + "," +
           board("4712", "2", "boards/io-2.inv") + "]}";
}

}  // namespace

bool TestBoards::start()
{
    if (g_process != nullptr)
        return true;
    g_folder = std::make_unique<TemporaryFolder>();
    g_folder->write("boards.json", boards());
    g_process = std::make_unique<BoardProcess>();
    g_process->start({"--boards", g_folder->path("boards.json"), "--portmap", std::to_string(mapperPort),
                      "--lease-seconds", "1", "--update-seconds", "0", "--max-wrong-ids", "10000", "--max-connections",
                      "1000", "--max-connections-per-source", "1000", "--max-files", "4096"});
    setenv("KVDAL_PORTMAP_PORT", std::to_string(mapperPort).c_str(), 1);
    return g_process->output() == "ready: 2 boards\n";
}

bool TestBoards::stop()
{
    if (g_process == nullptr)
        return true;
    const bool good = g_process->stop() == 0;
    g_process.reset();
    g_folder.reset();
    return good;
}

KvDALSDeviceInfo TestBoards::info()
{
    KvDALSDeviceInfo info = {};
    std::strcpy(info.hostAddress, "127.0.80.1");
    info.serialNumber = serial;
    info.ipAddress = address;
    return info;
}

const wchar_t* TestBoards::imagePath()
{
    static const std::string path = KV_SAMPLES_DIR "/firmware-image.bin";
    static const std::wstring wide(path.begin(), path.end());
    return wide.c_str();
}
