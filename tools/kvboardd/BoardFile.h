#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/kvboardd/Board.h"

namespace KvNBoardService {

/**
 * Reads what `path` says about boards (docs/formats.md, "Board file"): a board file, or an inventory section, which
 * stands for one board on 127.0.0.1 whose serial number, type and names are those of its tree. Left out, `address` is
 * 127.0.0.1, `boardType` 0, and `boardName` and `systemName` are empty. False, and in `problem` the file, the place in
 * it and what is wrong there, when it cannot be read whole: unknown members, and a serial number or address used twice,
 * are refused.
 */
bool readBoardFile(const std::string& path, std::vector<BoardDescription>& boards, std::string& problem);

/** Reads the board file `text`; trees that it names are looked for in the folder `folder`. `name` stands for the file
   in messages. */
bool parseBoardFile(std::string_view text, const std::string& name, const std::string& folder,
                    std::vector<BoardDescription>& boards, std::string& problem);

/** The host-order number of an IPv4 address in dotted form, four decimal numbers up to 255; false for anything else. */
bool parseAddress(std::string_view text, KvUInt32& address);

}  // namespace KvNBoardService
