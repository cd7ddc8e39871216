#include <cstdlib>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "platform/errorhandling/KvCErrorList.h"
#include "tests/support/FailingAllocation.h"

namespace {

int constructions = 0;

struct Thing : KvNAllocation::Object
{
    Thing() { ++constructions; }
    int value = 5;
};

TEST(Allocation, GivesMemory)
{
    void* block = KvNAllocation::allocate(10);
    ASSERT_NE(block, nullptr);
    std::memset(block, 1, 10);
    block = KvNAllocation::reallocate(block, 20);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(static_cast<char*>(block)[9], 1);
    KvNAllocation::release(block);
    KvNAllocation::release(nullptr);
}

TEST(Allocation, OfNothingIsABlock)
{
    void* block = KvNAllocation::allocate(0);
    EXPECT_NE(block, nullptr);
    block = KvNAllocation::reallocate(block, 0);
    EXPECT_NE(block, nullptr);
    KvNAllocation::release(block);
}

TEST(Allocation, AsksTheHookForItsBytes)
{
    static std::size_t asked = 0;
    KvNAllocation::setHook(
        [](void* context, std::size_t bytes) {
            asked = bytes;
            return context != nullptr;
        },
        nullptr);
    EXPECT_EQ(KvNAllocation::allocate(123), nullptr);
    EXPECT_EQ(asked, 123U);
    EXPECT_EQ(KvNAllocation::reallocate(nullptr, 45), nullptr);
    EXPECT_EQ(asked, 45U);
    EXPECT_FALSE(KvNAllocation::mayAllocate(6));
    EXPECT_EQ(asked, 6U);
    KvNAllocation::setHook(nullptr, nullptr);
    EXPECT_TRUE(KvNAllocation::mayAllocate(6));
}

TEST(Allocation, ThatFailsLeavesTheBlockWhenItCannotGrow)
{
    char* block = static_cast<char*>(KvNAllocation::allocate(4));
    std::memcpy(block, "abc", 4);
    {
        const FailingAllocation none(1, true);
        EXPECT_EQ(KvNAllocation::reallocate(block, 400), nullptr);
    }
    EXPECT_STREQ(block, "abc");
    KvNAllocation::release(block);
}

TEST(AllocationOperators, GiveNullWithoutMemoryAndConstructNothing)
{
    KvCErrorListPool errors;
    constructions = 0;
    {
        const FailingAllocation none(1, true);
        EXPECT_EQ(new (errors) Thing, nullptr);
        EXPECT_EQ(new (errors) Thing[3], nullptr);
        EXPECT_EQ(new Thing, nullptr);
        EXPECT_EQ(new Thing[3], nullptr);
        EXPECT_EQ(new (std::nothrow) Thing, nullptr);
        EXPECT_EQ(new (std::nothrow) Thing[3], nullptr);
        EXPECT_EQ(new (errors) std::vector<int>(3), nullptr);
        EXPECT_EQ(new (errors) char[3], nullptr);
    }
    EXPECT_EQ(constructions, 0);
    EXPECT_EQ(errors.getErrorCount(), 0U) << "the caller reports in its own words";
}

TEST(AllocationOperators, MakeObjectsThatPlainDeleteFrees)
{
    KvCErrorListPool errors;
    constructions = 0;
    Thing* one = new (errors) Thing;
    ASSERT_NE(one, nullptr);
    EXPECT_EQ(one->value, 5);
    delete one;
    Thing* many = new (errors) Thing[3];
    ASSERT_NE(many, nullptr);
    delete[] many;
    one = new Thing;
    delete one;
    EXPECT_EQ(constructions, 5);
}

TEST(AllocationOperators, MakeArraysThatFreeReleases)
{
    KvCErrorListPool errors;
    char* text = new (errors) char[4];
    ASSERT_NE(text, nullptr);
    std::free(text);
    int* number = new (errors) int(7);
    EXPECT_EQ(*number, 7);
    ::operator delete(number, errors);
    text = new (errors) char[4];
    ::operator delete[](text, errors);
}

TEST(AllocationOfContainers, ThrowsWithoutMemory)
{
    std::vector<int, KvNAllocation::Allocator<int>> numbers;
    {
        const FailingAllocation none(1, true);
        EXPECT_THROW(numbers.push_back(1), std::bad_alloc);
    }
    numbers.push_back(2);
    EXPECT_EQ(numbers.front(), 2);
    EXPECT_THROW(KvNAllocation::Allocator<int>().allocate(static_cast<std::size_t>(-1) / 2), std::bad_alloc);
}

}  // namespace
