#include <gtest/gtest.h>

#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "tests/inventory/InventoryTest.h"

/* What inputs in fuzz/corpus have shown, where no other test says it. The tests have the names of the inputs. */

using Bytes = std::vector<unsigned char>;

namespace {

ItemOwner treeOf(const Bytes& stream)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    buffer.writeBuffer(errors, stream.data(), static_cast<KvUInt32>(stream.size()), 1);
    KvCInventoryItem* tree = nullptr;
    KvCInventoryItemFactory(errors).deserialize(errors, tree, &buffer);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return ItemOwner(tree);
}

ItemOwner writtenAndRead(KvCInventoryItem& tree)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    KvCInventoryItemFactory(errors).serialize(errors, &buffer, &tree);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return treeOf(Bytes(buffer.getStartPointer(), buffer.getStartPointer() + buffer.getOccupiedSize()));
}

}  // namespace

TEST(FoundInputs, UnitOfAPlainParameterThatCameAgainIsNotWritten)
{
    // ROOT, and in it parameter 900 first as a plain UInt32 of 7, then as one of 8 with a unit of "V".
    const ItemOwner tree = treeOf({1, 0,   0,    0, 1,  0, 0, 0, 1,    1, 0,                             //
                                   3, 0,   0,    0, 18, 0, 0, 3, 0x84, 0, 0, 1, 0x24, 1, 0, 0, 0, 0, 7,  //
                                   3, 0,   0,    0, 25, 0, 0, 3, 0x84, 0, 1, 1, 0x24, 1, 0, 0, 0, 0, 8,  //
                                   1, 'V', 0xFF, 0, 0,  0, 5, 2});
    ASSERT_NE(tree, nullptr);
    const KvCInventoryParameter* const read = tree->getParameterByOrdinalNumber(0);
    ASSERT_NE(read, nullptr);
    EXPECT_STREQ(read->getUnit(), "V");
    EXPECT_TRUE(read->isModifiable());
    EXPECT_EQ(read->getRelevance(), 5u);

    const ItemOwner again = writtenAndRead(*tree);
    ASSERT_NE(again, nullptr);
    const KvCInventoryParameter* const written = again->getParameterByOrdinalNumber(0);
    ASSERT_NE(written, nullptr);
    EXPECT_EQ(*written->valueIf<KvUInt32>(), 8u);
    EXPECT_STREQ(written->getUnit(), "");
    EXPECT_FALSE(written->isModifiable());
    EXPECT_EQ(written->getRelevance(), 0u);
}
