#include "inventory/KvCInventoryAddress.h"

#include <gtest/gtest.h>

#include "base/Report.h"
#include "tests/inventory/InventoryTest.h"
#include "tests/support/FailingAllocation.h"

namespace {

const KvCInventoryAddress A(1);
const KvCInventoryAddress B(2);
const KvCInventoryAddress C(5);
const KvCInventoryAddress X(9);

KvCInventoryAddress parsed(const char* text)
{
    KvCInventoryAddress address(4711);
    address.readFromString(KvCString(text));
    return address;
}

std::string textOf(const KvCInventoryAddress& address)
{
    return address.toString().c_str();
}

/** More elements than stand inside the object. */
KvCInventoryAddress makeLong(KvUInt32 length)
{
    KvCInventoryAddress address;
    for (KvUInt32 i = 1; i <= length; ++i)
        address = address / KvCInventoryAddress(i, i + 1);
    return address;
}

}  // namespace

TEST(InventoryAddress, TheIndexOfAnElementIsOneUnlessGiven)
{
    EXPECT_EQ(KvCInventoryAddress(5), KvCInventoryAddress(5, 1));
    EXPECT_NE(KvCInventoryAddress(5), KvCInventoryAddress(5, 2));
    EXPECT_EQ(KvCInventoryAddress(5, 2).getCategory(), 5u);
    EXPECT_EQ(KvCInventoryAddress(5, 2).getIndex(), 2u);
}

TEST(InventoryAddress, AnEmptyAddressHasNoElementsAndEqualsAnother)
{
    const KvCInventoryAddress empty;
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_FALSE(empty.isSingleElement());
    EXPECT_EQ(empty.getLength(), 0u);
    EXPECT_EQ(empty.getCategory(), 0u);
    EXPECT_EQ(empty.getIndex(), 0u);
    EXPECT_EQ(empty.getCategoryAt(0), 0u);
    EXPECT_EQ(empty.getIndexAt(0), 0u);
    EXPECT_STREQ(empty.getCategoryName().c_str(), "DUMMY");
    EXPECT_EQ(empty, KvCInventoryAddress());
    EXPECT_NE(empty, A);
    EXPECT_TRUE(empty[3].isEmpty());
    EXPECT_TRUE(empty.getFirstElement().isEmpty());
    EXPECT_TRUE(empty.getLastElement().isEmpty());
}

TEST(InventoryAddress, TheSubscriptReplacesTheLastIndexAndSelectsNothing)
{
    EXPECT_EQ(KvNInventoryIDs::CPU[2], KvCInventoryAddress(2, 2));
    EXPECT_EQ((KvNInventoryIDs::ROOT / KvNInventoryIDs::CPU)[3], A / KvCInventoryAddress(2, 3));
    EXPECT_EQ(KvNInventoryIDs::CPU, KvCInventoryAddress(2, 1));
}

TEST(InventoryAddress, PathsAreJoinedWithoutChangingTheOperands)
{
    const KvCInventoryAddress path = A / B[4] / C;
    EXPECT_EQ(path.getLength(), 3u);
    EXPECT_EQ(path.getCategoryAt(1), 2u);
    EXPECT_EQ(path.getIndexAt(1), 4u);
    EXPECT_EQ(path.getIndexAt(2), 1u);
    EXPECT_EQ(A.getLength(), 1u);
    EXPECT_EQ(path / KvCInventoryAddress(), path);
    EXPECT_EQ(KvCInventoryAddress() / path, path);
}

TEST(InventoryAddress, CopiesShareNothing)
{
    for (const KvUInt32 length : {1u, 4u, 5u, 9u}) {
        KvCInventoryAddress original = makeLong(length);
        const KvCInventoryAddress copy(original);
        KvCInventoryAddress assigned(77);
        assigned = original;
        original.removePrefix(KvCInventoryAddress(1, 2));
        EXPECT_EQ(copy.getLength(), length);
        EXPECT_EQ(assigned, copy);
        EXPECT_EQ(original.getLength(), length - 1);
        const KvCInventoryAddress& self = assigned;
        assigned = self;
        EXPECT_EQ(assigned, copy);
        KvCInventoryAddress moved(std::move(assigned));
        EXPECT_EQ(moved, copy);
        KvCInventoryAddress target = makeLong(7);
        target = std::move(moved);
        EXPECT_EQ(target, copy);
    }
}

TEST(InventoryAddress, PartsOfAnAddress)
{
    const KvCInventoryAddress path = makeLong(6);
    EXPECT_EQ(path.getFirstElement(), KvCInventoryAddress(1, 2));
    EXPECT_EQ(path.getLastElement(), KvCInventoryAddress(6, 7));
    EXPECT_EQ(path.getHeadAddress(), makeLong(5));
    EXPECT_EQ(path.getFirstElement() / path.getSubAddress(), path);
    EXPECT_TRUE(A.getHeadAddress().isEmpty());
    EXPECT_TRUE(A.getSubAddress().isEmpty());
    EXPECT_TRUE(KvCInventoryAddress().getSubAddress().isEmpty());
}

TEST(InventoryAddress, APrefixIsAlwaysShorter)
{
    EXPECT_TRUE((A / B).isPrefix(A));
    EXPECT_FALSE(A.isPrefix(A));
    EXPECT_FALSE(A.isPrefix(A / B));
    EXPECT_FALSE((A / B).isPrefix(A[2]));
    EXPECT_FALSE((A / B).isPrefix(B));
    EXPECT_TRUE(A.isPrefix(KvCInventoryAddress()));
    EXPECT_FALSE(KvCInventoryAddress().isPrefix(KvCInventoryAddress()));
    EXPECT_FALSE(KvCInventoryAddress().isPrefix(A));
}

TEST(InventoryAddress, RemovingAPrefixKeepsWhatMatchedRemoved)
{
    KvCInventoryAddress address = A / B / C;
    address.removePrefix(A / B / X);
    EXPECT_EQ(address, C);
    address.removePrefix(X);
    EXPECT_EQ(address, C);
    address.removePrefix(KvCInventoryAddress());
    EXPECT_EQ(address, C);
    address.removePrefix(C / X);
    EXPECT_TRUE(address.isEmpty());
    address = A / B;
    address.removePrefix(A / B[2]);
    EXPECT_EQ(address, B);
    address.removePrefix(address);
    EXPECT_TRUE(address.isEmpty());
}

TEST(InventoryAddress, TextOfAnAddress)
{
    EXPECT_EQ(textOf(KvCInventoryAddress()), "");
    EXPECT_EQ(textOf(A / B[2] / X), "ROOT/CPU[2]/FIRMWARE");
    EXPECT_EQ(textOf(KvCInventoryAddress(4711, 3)), "4711[3]");
    EXPECT_EQ(textOf(KvCInventoryAddress(2, 0)), "CPU[0]");
    EXPECT_EQ(textOf(KvCInventoryAddress(4294967295u, 4294967295u)), "4294967295[4294967295]");
    EXPECT_EQ(textOf(KvCInventoryAddress(0)), "DUMMY");
    EXPECT_STREQ((A / B).getCategoryName().c_str(), "CPU");
    EXPECT_STREQ(KvCInventoryAddress(4711).getCategoryName().c_str(), "");
}

TEST(InventoryAddress, ALongPathHasItsWholeText)
{
    std::string expected;
    KvCInventoryAddress path;
    for (int i = 0; i < 60; ++i) {
        path = path / KvNInventoryIDs::LED_CONTROL_UNIT_BASE_ADDRESS[7];
        expected += std::string(i == 0 ? "" : "/") + "LED_CONTROL_UNIT_BASE_ADDRESS[7]";
    }
    EXPECT_EQ(textOf(path), expected);
    EXPECT_EQ(parsed(expected.c_str()), path);
}

TEST(InventoryAddress, TextsOfAddresses)
{
    const struct
    {
        const char* text;
        KvCInventoryAddress address;
    } rows[] = {
        {"", KvCInventoryAddress()},
        {"CPU[2]/FIRMWARE", B[2] / X},
        {"2/9", B / X},
        {"CPU[1]", B},
        {"0x2", B},
        {"0X2", B},
        {"02", B},
        {"010", KvCInventoryAddress(8)},
        {"2x", B},
        {"0x", KvCInventoryAddress()},
        {"0xg", KvCInventoryAddress()},
        {"CPU[", B[0]},
        {"CPU[7", B[7]},
        {"CPU[]", B[0]},
        {"CPU[x]", B[0]},
        {"CPU[0x10]", B[16]},
        {"CPU[ 010]", B[8]},
        {"CPU[+3]", B[3]},
        {"CPU[-1]", B[4294967295u]},
        {"CPU[2]FIRMWARE", B[2] / X},
        {"CPU[a/b]/FIRMWARE", B[0] / X},
        {"CPU/", B},
        {"CPU/NOSUCHNAME/FIRMWARE", KvCInventoryAddress()},
        {"CPU//FIRMWARE", KvCInventoryAddress()},
        {"/CPU", KvCInventoryAddress()},
        {"/", KvCInventoryAddress()},
        {"DUMMY", KvCInventoryAddress()},
        {"0", KvCInventoryAddress()},
        {"[2]", KvCInventoryAddress()},
        {"cpu", KvCInventoryAddress()},
        {"CPU ", KvCInventoryAddress()},
        {"CP", KvCInventoryAddress()},
        {"CPUS", KvCInventoryAddress()},
        {"4711[3]", KvCInventoryAddress(4711, 3)},
        {"INTERFACE", KvCInventoryAddress(631)},
    };
    for (const auto& row : rows)
        EXPECT_EQ(parsed(row.text), row.address) << row.text;
    EXPECT_EQ(textOf(parsed("CPU[2]/FIRMWARE")), "CPU[2]/FIRMWARE");
    EXPECT_EQ(textOf(parsed("CPU[1]")), "CPU");
}

TEST(InventoryAddress, NumbersBeyond32BitsBecomeTheLargest)
{
    EXPECT_EQ(parsed("4294967295"), KvCInventoryAddress(4294967295u));
    EXPECT_EQ(parsed("4294967296"), KvCInventoryAddress(4294967295u));
    EXPECT_EQ(parsed("18446744073709551617"), KvCInventoryAddress(4294967295u));
    EXPECT_EQ(parsed("0x100000000"), KvCInventoryAddress(4294967295u));
    EXPECT_EQ(parsed("CPU[4294967297]"), B[4294967295u]);
    EXPECT_EQ(parsed("CPU[99999999999999999999999999]"), B[4294967295u]);
}

TEST(InventoryAddress, PrintsItsTextAndALineBreak)
{
    testing::internal::CaptureStdout();
    (A / B[2]).print();
    KvCInventoryAddress().print();
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ROOT/CPU[2]\n\n");
}

TEST(InventoryAddress, FourElementsNeedNoMemory)
{
    const FailingAllocation none(1, true);
    const KvCInventoryAddress path = A / B / C / X;
    const KvCInventoryAddress copy(path);
    EXPECT_EQ(copy.getLength(), 4u);
    EXPECT_FALSE(none.hasFailed());
}

TEST(InventoryAddress, OutOfMemoryGivesTheEmptyAddressAndAnEntryInTheMasterList)
{
    const KvCInventoryAddress five = makeLong(5);
    KvCErrorListPool& master = KvNReport::masterList();
    const auto expectEmpty = [&](auto&& make) {
        master.clear();
        KvCInventoryAddress result;
        {
            const FailingAllocation all(1, true);
            result = make();
        }
        EXPECT_TRUE(result.isEmpty());
        EXPECT_EQ(codesOf(master), Codes{0x601002});
        EXPECT_STREQ(master.getErrorOrigin(0), "KvCInventoryAddress::append");
        master.clear();
    };
    expectEmpty([&] { return KvCInventoryAddress(five); });
    expectEmpty([&] { return makeLong(4) / A; });
    expectEmpty([&] { return five.getSubAddress() / A; });
    expectEmpty([&] { return parsed("1/2/3/4/5"); });
    expectEmpty([&] {
        KvCInventoryAddress target = A;
        target = five;
        return target;
    });
}

TEST(InventoryAddress, ATextThatCannotBeHadIsEmpty)
{
    const KvCInventoryAddress path = makeLong(60);
    KvCErrorListPool& master = KvNReport::masterList();
    for (std::size_t n = 1;; ++n) {
        master.clear();
        KvCString text;
        bool hasFailed;
        {
            const FailingAllocation one(n);
            text = path.toString();
            hasFailed = one.hasFailed();
        }
        if (!hasFailed)
            break;
        EXPECT_EQ(text.length(), 0u);
        EXPECT_EQ(master.getErrorCount(), 1u);
    }
    master.clear();
}
