#include "RecordedAccess.h"
#include "tests/support/FailingAllocation.h"

/* Taking a lock, call by call: what was made for it does not outlive a failure. */

namespace {

constexpr KvUInt32 Reported = FakeDeviceAccess::Reported;

using LockOfABoard = RecordedAccess;

constexpr const char* NoLockHandle =
    "Access denied. The operation cannot be completed. Another tool or user might have locked the board. Korvel "
    "Support information: Cannot create access restriction handle for HCN[100]/CPU[2].";
constexpr const char* NoLevel =
    "Access denied. The operation cannot be completed. Another tool or user might have locked the board. Korvel "
    "Support information: Cannot obtain access restriction level 2 for HCN[100]/CPU[2].";
constexpr const char* NotWithdrawn =
    "Communication error. Cannot withdraw the access restriction. Perhaps the board has been disconnected or is still "
    "locked by another tool or user.";

TEST_F(LockOfABoard, isHandedOutOnlyWithItsLevel)
{
    void* lock = nullptr;
    const auto take = [&] { return manager.lock(errors, root, address, 2, lock); };
    const Calls created = {"createAccessRestrictionHandle"};
    const Calls requested = created + Calls{"requestAccessRestrictionLevel 0 2"};
    fake.failures["createAccessRestrictionHandle"] = 9;
    EXPECT_EQ(-1, take());
    EXPECT_EQ((Chain{entry(Reported), entry(0x160081E, "lock", NoLockHandle)}), reported());
    EXPECT_EQ(created, called());

    fake.failures = {{"requestAccessRestrictionLevel", 9}};
    EXPECT_EQ(-1, take());
    EXPECT_EQ((Chain{entry(Reported), entry(0x160081F, "lock", NoLevel)}), reported());
    EXPECT_EQ(requested + Calls{"deleteAccessRestrictionHandle 2"}, called());
    EXPECT_EQ(0, fake.openLocks);

    // What the library says when it cannot delete the handle stands behind the reason.
    fake.failures["deleteAccessRestrictionHandle"] = 9;
    EXPECT_EQ(-1, take());
    EXPECT_EQ((Chain{entry(Reported), entry(0x160081F, "lock", NoLevel), entry(Reported)}), reported());
    EXPECT_EQ(requested + Calls{"deleteAccessRestrictionHandle 2"}, called());
    EXPECT_EQ(nullptr, lock);
    EXPECT_EQ(0, fake.openLocks);

    fake.failures.erase("requestAccessRestrictionLevel");
    EXPECT_EQ(0, take());
    EXPECT_EQ(lockHandle, lock);
    EXPECT_EQ(1, fake.openLocks);
    EXPECT_EQ(requested, called());
    EXPECT_EQ(-1, manager.unlock(errors, lock));
    EXPECT_EQ((Chain{entry(Reported), entry(0x1600821, "unlock", NotWithdrawn)}), reported());
}

TEST_F(LockOfABoard, withoutMemoryLeavesNoHandleBehind)
{
    const KvCInventoryAddress deep = address / address / address;
    for (const char* failing : {"", "createAccessRestrictionHandle", "requestAccessRestrictionLevel"}) {
        fake.failures.clear();
        if (*failing != '\0')
            fake.failures[failing] = 9;
        for (std::size_t number = 1; number < 20; ++number)
            for (const bool lasting : {false, true}) {
                KvCErrorListPool list;
                void* lock = nullptr;
                const FailingAllocation failingAllocation(number, lasting);
                const long result = manager.lock(list, root, deep, 2, lock);
                EXPECT_EQ(result == 0, lock != nullptr);
                EXPECT_EQ(result == 0, list.getErrorCount() == 0);
                EXPECT_EQ(result == 0 ? 1 : 0, fake.openLocks) << failing << number;
                if (lock != nullptr) {
                    EXPECT_EQ(0, manager.unlock(list, lock));
                }
                EXPECT_EQ(0, fake.openLocks);
            }
    }
    KvCErrorManager::getMasterErrorList().clear();
}

}  // namespace
