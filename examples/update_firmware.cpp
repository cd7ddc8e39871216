// Updates the firmware of one board from an image file.
//
//     update_firmware 10.0.0.2 4711 firmware-image.bin
//
// Whatever was begun is ended, whether what came after it worked or not; all that went wrong is in one list, the cause
// first.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "inventory/ids/KvNInventoryIDs.h"
#include "manager/KvCInventoryManager.h"
#include "platform/dal/KvDALAp.h"
#include "platform/errorhandling/KvCErrorManager.h"

namespace {

KvCInventoryManager& manager = KvCInventoryManager::getInstance();

void showTransfer(unsigned int thousandths, void*)
{
    std::fprintf(stderr, "\rtransfer %3u %%", thousandths / 10);
}

/** Waits until the update is over. */
void follow(KvCErrorListPool& errors, KvCInventoryRootHandle* boards, const KvCInventoryAddress& firmware)
{
    KvNInventoryManager::EUpdateStatus state = KvNInventoryManager::Running;
    KvNInventoryManager::FirmwareType type;
    KvUInt32 percent = 0;
    KvUInt32 step = 0;
    while (manager.updateStatus(errors, boards, firmware, state, type, percent, step) == 0) {
        std::fprintf(stderr, "\rupdate   %3u %%", static_cast<unsigned int>(percent));
        if (state != KvNInventoryManager::Running)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    std::fprintf(stderr, "\n");
}

void update(KvCErrorListPool& errors, KvCInventoryRootHandle* boards, const KvCInventoryAddress& firmware,
            const std::filesystem::path& image, KvUInt64 size)
{
    void* lock = nullptr;
    KvNInventoryManager::KvSRemoteFileHandle file;
    if (manager.lock(errors, boards, firmware, KvNDeviceAccess::Modify, lock) != 0)
        return;
    if (manager.transferFile(errors, boards, firmware, lock, image.wstring().c_str(), showTransfer, nullptr, file) ==
        0) {
        if (manager.update(errors, boards, firmware, lock, file, KvNInventoryManager::UserFirmware, size) == 0) {
            follow(errors, boards, firmware);
            manager.updateErrors(errors, boards, firmware, lock);
            manager.updateFinish(errors, boards, firmware, lock);
        }
        manager.deleteRemoteFile(errors, boards, firmware, lock, file);
    }
    manager.unlock(errors, lock);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s ADDRESS SERIAL-NUMBER IMAGE\n", argv[0]);
        return 2;
    }
    std::error_code unreadable;
    const auto size = std::filesystem::file_size(argv[3], unreadable);
    if (unreadable) {
        std::fprintf(stderr, "%s: %s\n", argv[3], unreadable.message().c_str());
        return 1;
    }
    const auto serialNumber = static_cast<KvUInt32>(std::strtoul(argv[2], nullptr, 10));
    const KvCInventoryAddress firmware = KvNInventoryIDs::HCN[serialNumber] / KvNInventoryIDs::FIRMWARE;
    KvCErrorListPool errors;
    KvCInventoryRootHandle* boards = nullptr;
    if (manager.createRootHandleByIpAddressList(errors, argv[1], boards) == 0) {
        update(errors, boards, firmware, argv[3], size);
        KvCInventoryParameter version(errors, KvNInventoryIDs::VERSION, nullptr, KvCVersion(), "", false, 0);
        if (errors.getErrorCount() == 0 &&
            manager.readParameter(errors, boards, firmware / KvNInventoryIDs::VERSION, version) == 0)
            std::printf("%u  firmware %s\n", static_cast<unsigned int>(serialNumber),
                        version.getValue<KvCVersion>(errors).getAsString().c_str());
        manager.deleteRootHandle(errors, boards);
    }
    const bool failed = errors.getErrorCount() != 0;
    KvCErrorManager::getSingleton()->sendErrorList(errors, 0);
    return failed ? 1 : 0;
}
