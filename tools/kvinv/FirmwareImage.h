#pragma once

#include <optional>
#include <string>

#include "base/KvCVersion.h"
#include "manager/KvCInventoryManager.h"
#include "tools/kvinv/Boards.h"
#include "tools/kvinv/Console.h"

/** What can be known of an update before it: its type, and the versions on the board and in the image. */
namespace FirmwareImage {

using Type = KvNInventoryManager::FirmwareType;

/** The firmware type that the options name or the last element of the address says; false, told, when none does. `kind`
    is the number of --kind, nothing without one. */
bool typeOf(const Options& options, const KvCInventoryAddress& address, Type& type, std::optional<KvUInt32>& kind,
            Console& console);

/** The names of the items that describe firmware of the type: "FPGA, FPGAFIRMWARE or USERFPGA". */
std::string itemNames(Type type);

/** What the section of an image says. */
struct Content
{
    bool hasSection = false;  ///< one that can be read
    bool isBroken = false;    ///< there is one that cannot
    bool hasItem = false;     ///< one that fits the type
    std::optional<KvCVersion> version;
};
/** Of several items that fit the type the one with the ID of `item` counts, else the first. Errors of the section are
    told. */
Content read(const std::string& path, Type type, const KvCInventoryAddress& item, Console& console);

/** The version of the item at `address` on its board; nothing, told, when it cannot be read. */
std::optional<KvCVersion> versionOnBoard(const Boards& boards, const KvCInventoryAddress& address, Console& console);

}  // namespace FirmwareImage
