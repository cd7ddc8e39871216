#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fuzz/Fuzz.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryItemFactory.h"

namespace KvNFuzz {

using ItemOwner = std::unique_ptr<KvCInventoryItem>;

/** All that reading a stream gives. */
struct Reading
{
    ItemOwner tree;
    std::vector<std::string> reports;  ///< as "code: text"
    KvUInt32 position = 0;             ///< read up to here
    unsigned nodes = 0;                ///< made, by a factory that counts them
};

/** Reads a stream in one go where its records are as usual. */
Reading readTree(std::span<const unsigned char> stream);
/** Reads it record by record, as for a factory that makes nodes of a class of its own. */
Reading readTreeByRecord(std::span<const unsigned char> stream);

/** The stream of a tree, which can always be written. */
Bytes streamOf(KvCInventoryItem& tree);

/** The entries of a list as "code: text". */
std::vector<std::string> reportsOf(const KvCErrorListPool& errors);

}  // namespace KvNFuzz
