// Every standard header and those of the system that define macros, and then the IDs.
#include "tests/inventory/SystemHeaders.h"
// The order is the test.
#include "inventory/ids/KvNInventoryIDs.h"

#include <gtest/gtest.h>

#include "tests/inventory/EveryID.h"

TEST(InventoryIDs, CanBeIncludedBehindSystemHeaders)
{
    EXPECT_EQ(sumOfIDs(), 810u * 811u / 2);
}
