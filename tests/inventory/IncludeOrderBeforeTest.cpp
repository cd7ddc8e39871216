// The IDs, and then every standard header and those of the system that define macros: none of them may take a name
// away.
#include "inventory/ids/KvNInventoryIDs.h"
// The order is the test.
#include "tests/inventory/SystemHeaders.h"

#include <gtest/gtest.h>

#include "tests/inventory/EveryID.h"

TEST(InventoryIDs, CanBeIncludedBeforeSystemHeaders)
{
    EXPECT_EQ(sumOfIDs(), 810u * 811u / 2);
}
