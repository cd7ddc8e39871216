#pragma once

#include <memory>

#include "inventory/KvCInventoryItem.h"
#include "tools/kvinv/Boards.h"

/** Scans the boards of a selection; failures are told. Null when there is no board; `complete` says whether every board
    named has delivered its tree without an error. */
std::unique_ptr<KvCInventoryItem> scanBoards(const Selection& selection, bool& complete, Console& console);
