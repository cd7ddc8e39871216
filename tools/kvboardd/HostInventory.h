#pragma once

#include <optional>
#include <string>

#include "platform/machine/Machine.h"
#include "tools/kvboardd/Board.h"

namespace KvNBoardService {

/** The board type of a machine that describes itself: none of a rack's. */
inline constexpr KvUInt32 hostBoardType = 0;

/** The serial number that a machine has by itself: made from its identity, so that it stays the same, and never 0.
    Null when the machine has no identity. */
std::optional<KvUInt32> hostSerialNumber(const KvNMachine::Machine& machine);

/**
 * A machine as a board: its tree under HCN[serialNumber], with what is known of it under the catalogue's IDs, nothing
 * modifiable (docs/formats.md, "The inventory of a machine"). Board name and system name are its host name. Without
 * `serialNumber` it has its own. False, and why in `problem`, when there is no serial number or the tree cannot be
 * made.
 */
bool describeHost(const KvNMachine::Machine& machine, std::optional<KvUInt32> serialNumber, BoardDescription& board,
                  std::string& problem);

}  // namespace KvNBoardService
