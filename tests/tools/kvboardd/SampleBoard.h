#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#include "inventory/KvCInventoryData.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "platform/errorhandling/KvCErrorList.h"
#include "tools/kvboardd/Board.h"
#include "tools/kvboardd/Store.h"

/** The board of samples/single-board.inv. */
inline std::unique_ptr<KvNBoardService::Board> sampleBoard(std::unique_ptr<KvNBoardService::Store> store = nullptr,
                                                           KvNBoardService::Board::Limits limits = {})
{
    KvNBoardService::BoardDescription description;
    description.serialNumber = 4711;
    description.boardType = 6003;
    description.boardName = "IO-1";
    description.systemName = "Rack A";
    description.address = 0x7F00003C;
    KvCErrorListPool errors;
    KvCInventoryItem* root = nullptr;
    KvCInventoryData::extractInventoryTreeFromFile(errors, KV_SAMPLES_DIR "/single-board.inv", root);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    description.tree.reset(root);
    return std::make_unique<KvNBoardService::Board>(std::move(description), std::move(store), limits);
}

/** The address that a text names. */
inline KvCInventoryAddress at(const char* text)
{
    KvCInventoryAddress address;
    address.readFromString(text);
    return address;
}

/** The codes of a list, the innermost first. */
inline std::vector<KvUInt32> codes(const KvCErrorListPool& errors)
{
    std::vector<KvUInt32> result;
    for (KvUInt32 i = 0; i < errors.getErrorCount(); ++i)
        result.push_back(errors.getErrorCode(i));
    return result;
}
