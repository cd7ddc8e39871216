#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "TestMessages.h"
#include "platform/errorhandling/KvCErrorManager.h"
#include "tests/support/FailingAllocation.h"

namespace {

const TestMessages testMessages;

class MasterList : public testing::Test
{
protected:
    MasterList() { master.clear(); }
    ~MasterList() override { master.clear(); }
    KvCErrorListPool& master = KvCErrorManager::getMasterErrorList();
};

TEST_F(MasterList, KeepsThreeHundredEntries)
{
    for (KvUInt32 i = 1; i <= 302; ++i)
        master.setError(i, i, "T::t", nullptr);
    EXPECT_EQ(master.getErrorCount(), 302U);
    EXPECT_EQ(master.getErrorCode(299), 300U);
    EXPECT_EQ(master.getErrorLine(299), 300U);
    EXPECT_EQ(master.getErrorCode(300), 0U);
}

TEST_F(MasterList, GivesTextsOfTheThread)
{
    master.setError(TestMessages::withText, 1, "Long::origin", "%s", "x");
    EXPECT_STREQ(master.getErrorText(0), "Cannot open x.");
    EXPECT_STREQ(master.getErrorOrigin(0), "Long::origin");
    EXPECT_STREQ(master.getErrorText(1), "");
    EXPECT_STREQ(master.getErrorOrigin(1), "");
    const char* text = master.getErrorText(0);
    master.clear();
    EXPECT_STREQ(text, "Cannot open x.") << "valid until this thread asks again";
    master.setError(0x99, 1, "", nullptr);
    EXPECT_STREQ(master.getErrorText(0), "Unknown message 0x99.");
}

TEST_F(MasterList, GivesOriginAndTextSideBySide)
{
    master.setError(TestMessages::withText, 1, "Short::origin", "%s", "x");
    const char* origin = master.getErrorOrigin(0);
    const char* text = master.getErrorText(0);
    EXPECT_STREQ(origin, "Short::origin");
    EXPECT_STREQ(text, "Cannot open x.");
}

TEST_F(MasterList, GivesLongTexts)
{
    const std::string name(3000, 'n');
    master.setError(TestMessages::withText, 1, name.c_str(), "%s", name.c_str());
    const FailingAllocation counting(0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(master.getErrorText(0), "Cannot open " + name + ".");
        EXPECT_EQ(master.getErrorOrigin(0), name);
    }
    EXPECT_LE(counting.count(), 2U) << "the thread keeps its room";
}

TEST_F(MasterList, GivesTheUnfilledTextWithoutMemory)
{
    const std::string name(100000, 'n');
    master.setError(TestMessages::withText, 1, name.c_str(), "%s", name.c_str());
    const FailingAllocation none(1, true);
    EXPECT_STREQ(master.getErrorText(0), "Cannot open %1.");
    EXPECT_STREQ(master.getErrorOrigin(0), "");
}

TEST_F(MasterList, IsMovedByBlocks)
{
    master.setError(TestMessages::withText, 1, "A::b", "%s", "x");
    const std::vector<unsigned char> block = master.serialize();
    EXPECT_TRUE(master.deSerialize(block.data(), static_cast<unsigned long>(block.size())));
    EXPECT_EQ(master.getErrorCount(), 2U);
    EXPECT_STREQ(master.getErrorText(1), "Cannot open x.");
}

TEST_F(MasterList, IsSharedByThreads)
{
    constexpr KvUInt32 threads = 8;
    constexpr KvUInt32 reports = 500;
    std::vector<std::thread> running;
    std::vector<int> wrong(threads, 0);
    for (KvUInt32 t = 0; t < threads; ++t) {
        running.emplace_back([&, t] {
            const std::string own = "thread " + std::to_string(t);
            for (KvUInt32 i = 0; i < reports; ++i) {
                master.setError(TestMessages::withText, t, own.c_str(), "%s", own.c_str());
                const std::string text = master.getErrorText(i % 300);
                wrong[t] += text.rfind("Cannot open thread ", 0) == 0 ? 0 : 1;
                wrong[t] += master.getErrorCount() == 0 ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : running)
        thread.join();
    EXPECT_EQ(master.getErrorCount(), threads * reports);
    EXPECT_EQ(wrong, std::vector<int>(threads, 0));
}

TEST_F(MasterList, IsSentWhileOthersReport)
{
    struct Delivered
    {
        KvUInt32 entries = 0;
        KvUInt32 dropped = 0;
    } delivered;
    KvCErrorManager::setOutput(
        [](void* context, bool, KvUInt32 code, const char*, const char* text) {
            auto* counts = static_cast<Delivered*>(context);
            if (code == 1)
                ++counts->entries;
            else
                counts->dropped += static_cast<KvUInt32>(std::stoul(
                    std::string(text).substr(std::string("Internal error. Korvel Support information: ").size())));
        },
        &delivered);
    std::thread reporter([this] {
        for (int i = 0; i < 2000; ++i)
            master.setError(1, 1, "T::t", nullptr);
    });
    for (int i = 0; i < 50; ++i)
        KvCErrorManager::sendErrorList(master, 0);
    reporter.join();
    KvCErrorManager::sendErrorList(master, 0);
    KvCErrorManager::setOutput(nullptr, nullptr);
    EXPECT_EQ(delivered.entries + delivered.dropped, 2000U);
}

}  // namespace
