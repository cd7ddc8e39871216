#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "FailingMemory.h"
#include "Operations.h"
#include "TestBoards.h"

/*
 * Every operation of the table while the k-th allocation fails, and every one from the k-th on, for every k until it
 * needs no more: behind the library's hook, and behind malloc and operator new. Each time the failure is reported or
 * the result is the one that there is with memory, the same operation succeeds afterwards, and everything it took is
 * given back.
 */
namespace {

using Door = FailingMemory::Door;

/** Operations that take more allocations than this are sampled: the first ones all, then evenly. KV_TORTURE_FULL in the
    environment makes every sweep whole. */
constexpr std::size_t sampledBeyond = 200;
constexpr std::size_t wholeUntil = 60;

long openDescriptors()
{
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return std::distance(begin(entries), end(entries));
}

/** Whether an entry tells of memory or of something that cannot be allocated, or could not be kept. */
bool namesMemory(const KvCErrorListPool& list)
{
    for (KvUInt32 i = 0; i < list.getErrorCount(); ++i) {
        const std::string text = list.getErrorText(i);
        if (list.getErrorCode(i) == 0 || text.find("emory") != std::string::npos ||
            text.find("llocat") != std::string::npos || text.find("Cannot create") != std::string::npos)
            return true;
    }
    return false;
}

std::string textOf(const KvCErrorListPool& list)
{
    std::string text;
    for (KvUInt32 i = 0; i < list.getErrorCount(); ++i)
        text += std::string(list.getErrorOrigin(i)) + ": " + list.getErrorText(i) + "\n";
    return text;
}

/** What one attempt with failing memory has shown. */
struct Attempt
{
    bool hasFailed = false;  ///< an allocation has
    std::size_t count = 0;   ///< of allocations
    std::string finding;     ///< empty: nothing is wrong
};

/** Of all operations. */
std::size_t g_tried = 0;

class Torture : public testing::TestWithParam<std::size_t>
{
protected:
    Torture()
    {
        KvCErrorManager::setOutput([](void*, bool, KvUInt32, const char*, const char*) {}, nullptr);
    }
    ~Torture() override { KvCErrorManager::setOutput(nullptr, nullptr); }

    const Row& row() const { return operations()[GetParam()]; }

    /** One attempt, from setting up to giving back. */
    Attempt attempt(Door door, std::size_t number, bool lasting)
    {
        Attempt attempt;
        KvCErrorListPool& master = KvCErrorManager::getMasterErrorList();
        const std::unique_ptr<Operation> operation = row().make();
        master.clear();
        KvCErrorListPool errors;
        bool good = false;
        {
            const FailingMemory failing(door, number, lasting);
            good = operation->perform(errors);
            attempt.hasFailed = failing.hasFailed();
            attempt.count = failing.count();
        }
        const bool isReported = errors.getErrorCount() + master.getErrorCount() != 0;
        if (!attempt.hasFailed && !good)
            attempt.finding = "fails with memory: " + textOf(errors) + textOf(master);
        else if (good && operation->result() != m_expected)
            attempt.finding = "says success with another result: " + operation->result();
        else if (!good && row().says != Says::ByResult && !isReported)
            attempt.finding = "fails and reports nothing";
        else if (!good && row().says == Says::InAList && !namesMemory(errors) && !namesMemory(master))
            attempt.finding = "does not report want of memory but " + textOf(errors) + textOf(master);
        errors.clear();
        master.clear();
        if (attempt.finding.empty() && !good) {
            if (!operation->perform(errors))
                attempt.finding = "cannot be repeated: " + textOf(errors) + textOf(master);
            else if (operation->result() != m_expected)
                attempt.finding = "repeated has another result: " + operation->result();
        }
        master.clear();
        return attempt;
    }

    /** What is held after an attempt and was not before; what stays once is kept for later use, what grows again is
        lost. */
    std::string lost(Door door, std::size_t number, bool lasting)
    {
        long blocks = 0;
        long descriptors = 0;
        for (int round = 0; round < 3; ++round) {
            const long blocksBefore = FailingMemory::liveBlocks();
            const long descriptorsBefore = openDescriptors();
            attempt(door, number, lasting);
            blocks = FailingMemory::liveBlocks() - blocksBefore;
            descriptors = openDescriptors() - descriptorsBefore;
            if (blocks <= 0 && descriptors <= 0)
                return "";
        }
        return std::to_string(blocks) + " blocks and " + std::to_string(descriptors) + " descriptors are lost";
    }

    /** All k behind a door; how many were tried. */
    std::size_t sweep(Door door, bool lasting)
    {
        std::size_t tried = 0;
        for (std::size_t number = 1;;) {
            const long blocks = FailingMemory::liveBlocks();
            Attempt made = attempt(door, number, lasting);
            ++tried;
            if (made.finding.empty() && FailingMemory::liveBlocks() > blocks)
                made.finding = lost(door, number, lasting);
            EXPECT_EQ(made.finding, "") << (door == Door::Library ? "hook" : "malloc") << ", allocation " << number
                                        << (lasting ? " and all that follow" : "");
            if (!made.hasFailed || (!made.finding.empty() && ++m_findings == 5))
                return tried;
            const bool isWhole = std::getenv("KV_TORTURE_FULL") != nullptr || m_allocations <= sampledBeyond;
            number += isWhole || number < wholeUntil ? 1 : m_allocations / (sampledBeyond - wholeUntil) + 1;
        }
    }

    std::string m_expected;
    std::size_t m_allocations = 0;
    int m_findings = 0;
};

TEST_P(Torture, FailsSayingSoOrSucceedsAndGivesEverythingBack)
{
    {
        const std::unique_ptr<Operation> operation = row().make();
        KvCErrorListPool& master = KvCErrorManager::getMasterErrorList();
        EXPECT_EQ(textOf(master), "");
        KvCErrorListPool errors;
        ASSERT_TRUE(operation->perform(errors)) << textOf(errors) << textOf(master);
        m_expected = operation->result();
    }
    std::size_t tried = 0;
    for (const Door door : {Door::Library, Door::Runtime}) {
        m_allocations = attempt(door, 0, false).count;
        EXPECT_EQ(lost(door, 0, false), "") << "without a failure";
        for (const bool lasting : {false, true})
            tried += sweep(door, lasting);
        if (m_allocations > sampledBeyond)
            std::printf("%s: %zu allocations, sampled\n", row().names.c_str(), m_allocations);
    }
    g_tried += tried;
}

/** The service that the operations called has not ended. */
class ServiceStaysUp : public testing::Environment
{
    void TearDown() override
    {
        EXPECT_TRUE(TestBoards::stop());
        std::printf("%zu failures of memory tried\n", g_tried);
    }
};
const testing::Environment* const g_service = testing::AddGlobalTestEnvironment(new ServiceStaysUp);

/** "KvCString::split and more" as a name for a test. */
std::string testName(const testing::TestParamInfo<std::size_t>& info)
{
    const std::string& names = operations()[info.param].names;
    std::string name = names.substr(0, names.find(' '));
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)))
            c = '_';
    return name + "_" + std::to_string(info.param);
}

INSTANTIATE_TEST_SUITE_P(Of, Torture, testing::Range<std::size_t>(0, operations().size()), testName);

}  // namespace
