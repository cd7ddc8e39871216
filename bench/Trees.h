#pragma once

#include <array>
#include <memory>

#include "inventory/KvCInventoryItem.h"

/** The trees that are measured, and the boards that they are made of. Every benchmark takes them from here. */
namespace KvNTrees {

using Tree = std::unique_ptr<KvCInventoryItem>;

/** A shape of tree; `usual` is the number of parameters it is measured with. */
struct Shape
{
    const char* name;
    KvUInt32 usual;
    Tree (*make)(KvCErrorListPool& errors, KvUInt32 parameters);
};

/** realistic: a root with 8 boards of modules of 16 channels of 12 parameters each (40 modules a board at 61440).
    wide: a root with so many children of one parameter each. fat: one item with all the parameters.
    deep: a chain of so many items of one parameter each. */
extern const std::array<Shape, 4> shapes;

/** Gives `board` modules of 16 channels of 12 parameters until it has `parameters`. */
void fillBoard(KvCErrorListPool& errors, KvCInventoryItem& board, KvUInt32 parameters);

/** Gives `item` so many children of one parameter each. */
void fillWide(KvCErrorListPool& errors, KvCInventoryItem& item, KvUInt32 children);

}  // namespace KvNTrees
