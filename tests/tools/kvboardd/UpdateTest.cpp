#include "tools/kvboardd/Update.h"

#include <gtest/gtest.h>

#include <optional>

#include "UpdateSupport.h"
#include "base/Report.h"

namespace {

using namespace KvNBoardService;
using namespace std::chrono_literals;
using Bytes = std::vector<unsigned char>;
using Codes = std::vector<KvUInt32>;
using State = Update::State;
using Step = Update::Step;
using Remembered = UpdateRecord::State;

constexpr const char* firmware = "HCN[4711]/FIRMWARE";

/** The sample board's tree, and a record of everything that an update does to it. Each kind of change can be made to
    fail, from a number of changes on. */
class FakeTarget : public UpdateTarget
{
public:
    const KvCInventoryItem& tree() const override { return m_board->tree(); }
    const KvCInventoryItem* item(KvCErrorListPool& errors, const KvCInventoryAddress& address) const override
    {
        return m_board->item(errors, address);
    }
    bool setVersion(KvCErrorListPool& errors, const KvCInventoryAddress& address, const KvCVersion& version) override
    {
        if (failSetVersion) {
            KV_REPORT(errors, BoardCannotStore, "FakeTarget", "the disk is full");
            return false;
        }
        did.push_back("version " + std::string(version.getAsString().c_str()));
        return m_board->setVersion(errors, address, version);
    }
    bool remember(KvCErrorListPool& errors, const UpdateRecord& record) override
    {
        const bool isNext = failNext > 0 && failRemember != record.state;
        failNext -= isNext;
        if (failRemember == record.state || isNext) {
            if (storesAllTheSame && !isNext)
                stored = record;
            KV_REPORT(errors, BoardCannotStore, "FakeTarget", "the disk is full");
            return false;
        }
        if (throwAt == record.state)
            throw std::bad_alloc();
        const char* const names[] = {"idle", "running", "verified", "failed"};
        did.push_back(names[static_cast<int>(record.state)]);
        stored = record;
        return true;
    }
    bool recall(UpdateRecord& record, std::string& problem) const override
    {
        problem = "it is damaged";
        record = stored;
        return !failRecall;
    }
    std::string version(const char* address = firmware) const
    {
        KvCErrorListPool errors;
        return item(errors, at(address))->getParameter(at("VERSION"))->valueIf<KvCVersion>()->getAsString().c_str();
    }

    std::vector<std::string> did;
    UpdateRecord stored;
    std::optional<Remembered> failRemember;
    std::optional<Remembered> throwAt;
    bool storesAllTheSame = false;  ///< what fails to be remembered
    int failNext = 0;               ///< so many others fail too
    bool failSetVersion = false;
    bool failRecall = false;

private:
    std::unique_ptr<Board> m_board = sampleBoard();
};

/** An update of ten seconds, looked after by hand. */
class UpdateTest : public testing::Test
{
protected:
    using Did = std::vector<std::string>;

    bool begin(const Bytes& image, const char* address = firmware, KvUInt32 type = 0,
               std::optional<KvUInt64> size = std::nullopt)
    {
        m_errors.clear();
        Update::Order order;
        order.address = at(address);
        order.firmwareType = type;
        order.size = size.value_or(image.size());
        return m_update.begin(m_errors, m_now, order, [&](KvCErrorListPool&) {
            ++m_opened;
            return std::make_unique<MemoryImage>(image);
        });
    }
    /** Goes on until the update is over. */
    void complete()
    {
        for (int i = 0; i < 1000 && m_update.status().state == State::Running; ++i)
            m_now += m_update.advance(m_now);
        ASSERT_NE(m_update.status().state, State::Running);
    }
    void expectStatus(State state, KvUInt32 percent, Step step, KvUInt32 errors = 0)
    {
        const Update::Status status = m_update.status();
        EXPECT_EQ(status.state, state);
        EXPECT_EQ(status.percent, percent);
        EXPECT_EQ(status.step, step);
        EXPECT_EQ(status.errors, errors);
    }
    /** Where the update is so long after its beginning, and when it wants to be looked after again. */
    void expectAt(Update::Milliseconds after, KvUInt32 percent, Step step, Update::Milliseconds pause)
    {
        EXPECT_EQ(m_update.advance(m_begun + after), pause) << after.count();
        EXPECT_EQ(m_update.status().percent, percent) << after.count();
        EXPECT_EQ(m_update.status().step, step) << after.count();
    }
    void expectRefused(KvUInt32 code, const char* text)
    {
        ASSERT_EQ(m_errors.getErrorCount(), 2u);
        EXPECT_EQ(m_errors.getErrorCode(0), code);
        EXPECT_STREQ(m_errors.getErrorText(0), text);
        EXPECT_EQ(m_errors.getErrorCode(1), 0x302000u);
    }
    /** An update as the next start of the service takes it up. */
    std::unique_ptr<Update> restarted()
    {
        auto update = std::make_unique<Update>(m_target, 10s);
        std::string problem;
        EXPECT_TRUE(update->restore(problem)) << problem;
        return update;
    }

    const Update::Time m_begun{1000s};
    Update::Time m_now = m_begun;
    FakeTarget m_target;
    Update m_update{m_target, 10s};
    KvCErrorListPool m_errors;
    int m_opened = 0;
};

TEST_F(UpdateTest, ANewBoardIsIdle)
{
    expectStatus(State::Idle, 0, Step::None);
    EXPECT_EQ(m_update.advance(m_now), 0ms);
    EXPECT_TRUE(m_update.finish(m_errors));
    EXPECT_TRUE(m_target.did.empty()) << "closing nothing changes nothing";
}

TEST_F(UpdateTest, AnUpdateGoesThroughItsSteps)
{
    ASSERT_TRUE(begin(goodImage(2 * Image::sliceBytes + 1)));
    expectStatus(State::Running, 0, Step::Check);
    EXPECT_STREQ(m_update.address().c_str(), firmware);
    EXPECT_EQ(m_update.status().firmwareType, 0u);
    expectAt(0ms, 0, Step::Check, 100ms);
    expectAt(124ms, 0, Step::Check, 100ms);
    expectAt(125ms, 1, Step::Check, 100ms);
    expectAt(999ms, 7, Step::Check, 100ms);
    expectAt(1000ms, 8, Step::Erase, 100ms);
    expectAt(2999ms, 23, Step::Erase, 100ms);
    expectAt(3000ms, 24, Step::Program, 100ms);
    expectAt(9950ms, 79, Step::Program, 50ms);
    expectAt(9999ms, 79, Step::Program, 1ms);
    EXPECT_EQ(m_target.version(), "3.1.2b4p7");
    expectAt(10000ms, 89, Step::Verify, 1ms);
    expectAt(10001ms, 98, Step::Verify, 1ms);
    EXPECT_EQ(m_target.version(), "3.1.2b4p7");
    expectAt(10002ms, 100, Step::Verify, 0ms);
    expectStatus(State::Done, 100, Step::Verify);
    EXPECT_EQ(m_target.version(), "4.0");
    EXPECT_EQ(m_target.did, (Did{"running", "verified", "version 4.0"}));
}

TEST_F(UpdateTest, TimeThatIsMissedIsCaughtUp)
{
    ASSERT_TRUE(begin(goodImage(5)));
    expectAt(1h, 100, Step::Verify, 0ms);
    expectStatus(State::Done, 100, Step::Verify);
}

TEST_F(UpdateTest, TheSimulatedStepsMayTakeNoTime)
{
    Update update(m_target, 0s);
    Update::Order order;
    order.address = at(firmware);
    const Bytes image = goodImage(0);
    order.size = image.size();
    ASSERT_TRUE(
        update.begin(m_errors, m_now, order, [&](KvCErrorListPool&) { return std::make_unique<MemoryImage>(image); }));
    EXPECT_EQ(update.advance(m_now), 0ms);
    EXPECT_EQ(update.status().state, State::Done);
}

TEST_F(UpdateTest, PercentagesOnlyGrow)
{
    ASSERT_TRUE(begin(goodImage(10 * Image::sliceBytes)));
    KvUInt32 last = 0;
    int steps = 0;
    while (m_update.status().state == State::Running && ++steps < 1000) {
        m_now += m_update.advance(m_now);
        EXPECT_GE(m_update.status().percent, last);
        last = m_update.status().percent;
    }
    EXPECT_EQ(steps, 100 + 10);
    expectStatus(State::Done, 100, Step::Verify);
}

TEST_F(UpdateTest, ADoneUpdateStaysUntilItIsClosed)
{
    ASSERT_TRUE(begin(goodImage(5)));
    complete();
    m_now += 1h;
    EXPECT_EQ(m_update.advance(m_now), 0ms);
    expectStatus(State::Done, 100, Step::Verify);
    EXPECT_TRUE(m_update.finish(m_errors));
    expectStatus(State::Idle, 0, Step::None);
    EXPECT_EQ(m_update.address(), "");
    EXPECT_EQ(m_target.stored.state, Remembered::Idle);
    EXPECT_TRUE(m_update.finish(m_errors)) << "again";
    EXPECT_EQ(m_target.version(), "4.0");
}

TEST_F(UpdateTest, AnUpdateThatIsNotClosedMakesPlaceForAnother)
{
    ASSERT_TRUE(begin(goodImage(5, 1)));
    complete();
    expectStatus(State::Failed, 80, Step::Verify, 2);
    ASSERT_TRUE(begin(goodImage(5), "HCN[4711]/FIRMWARE"));
    expectStatus(State::Running, 0, Step::Check);
    complete();
    expectStatus(State::Done, 100, Step::Verify);
}

TEST_F(UpdateTest, ASecondUpdateIsRefusedWhileOneIsRunning)
{
    ASSERT_TRUE(begin(goodImage(5)));
    m_update.advance(m_begun + 5s);
    EXPECT_FALSE(begin(goodImage(5), "HCN[4711]/BOOTLOADER", 10));
    EXPECT_EQ(codes(m_errors), Codes{0x302001});
    EXPECT_STREQ(m_errors.getErrorText(0),
                 "Update error. An update of HCN[4711]/FIRMWARE is running, 40 percent of it are done.");
    EXPECT_EQ(m_opened, 1) << "the second image is not looked at";
    expectStatus(State::Running, 40, Step::Program);
    m_errors.clear();
    EXPECT_FALSE(m_update.finish(m_errors));
    EXPECT_EQ(codes(m_errors), Codes{0x302001});
    complete();
    expectStatus(State::Done, 100, Step::Verify);
}

TEST_F(UpdateTest, AWrongChecksumFailsInTheVerification)
{
    ASSERT_TRUE(begin(goodImage(2 * Image::sliceBytes, 1)));
    complete();
    expectStatus(State::Failed, 89, Step::Verify, 2);
    EXPECT_EQ(codes(m_update.errors()), (Codes{0x302010, 0x302011}));
    EXPECT_STREQ(m_update.errors().getErrorText(1),
                 "Update error. The update of HCN[4711]/FIRMWARE to version 4.0 has failed.");
    EXPECT_EQ(m_target.version(), "3.1.2b4p7");
    EXPECT_EQ(m_target.did, (Did{"running", "failed"}));
    EXPECT_EQ(m_update.advance(m_now + 1h), 0ms);
    expectStatus(State::Failed, 89, Step::Verify, 2);
    EXPECT_TRUE(m_update.finish(m_errors));
    expectStatus(State::Idle, 0, Step::None);
}

TEST_F(UpdateTest, WhatDoesNotFitIsRefusedAtOnce)
{
    const Bytes image = goodImage(5);
    EXPECT_FALSE(begin(image, firmware, 0, image.size() + 1));
    expectRefused(0x302006, ("Update error. The image has " + std::to_string(image.size()) + " bytes, not " +
                             std::to_string(image.size() + 1) + " as announced.")
                                .c_str());
    EXPECT_STREQ(m_errors.getErrorText(1), "Update error. The update of HCN[4711]/FIRMWARE has not been begun.");
    EXPECT_FALSE(begin(image, "HCN[4711]/FIRMWARE", 14));
    expectRefused(0x302002, "Configuration error. There is no firmware type with the number 14.");
    EXPECT_FALSE(begin(image, "HCN[4711]/NOSUCHID"));
    EXPECT_EQ(m_errors.getErrorCode(0), 0x300802u) << "an address that cannot be read is empty";
    EXPECT_FALSE(begin(image, "HCN[4711]/FIRMWARE[2]"));
    expectRefused(0x300801, "Configuration error. The board has nothing at the address HCN[4711]/FIRMWARE[2].");
    EXPECT_FALSE(begin(image, "HCN[4711]/FIRMWARE/VERSION"));
    expectRefused(0x302003,
                  "Configuration error. The board has a parameter at the address HCN[4711]/FIRMWARE/VERSION, not an "
                  "item.");
    EXPECT_FALSE(begin(image, "HCN[4711]/CPU"));
    expectRefused(0x302004, "Configuration error. The item HCN[4711]/CPU has no VERSION that an update could replace.");
    EXPECT_FALSE(begin(Bytes(100, 'x')));
    expectRefused(0x302007, "Update error. The image has no inventory section.");
    expectStatus(State::Idle, 0, Step::None);
    EXPECT_TRUE(m_target.did.empty());
}

TEST_F(UpdateTest, ARefusedUpdateLeavesTheErrorsOfTheLastOne)
{
    ASSERT_TRUE(begin(goodImage(5, 1)));
    complete();
    EXPECT_FALSE(begin(Bytes(100, 'x')));
    expectStatus(State::Failed, 80, Step::Verify, 2);
    m_target.failRemember = Remembered::Running;
    EXPECT_FALSE(begin(goodImage(5)));
    expectRefused(0x301001, "OS error. The board cannot store its values: the disk is full.");
    expectStatus(State::Failed, 80, Step::Verify, 2);
}

TEST_F(UpdateTest, AnImageThatCannotBeOpenedIsRefused)
{
    Update::Order order;
    order.address = at(firmware);
    EXPECT_FALSE(m_update.begin(m_errors, m_now, order, [](KvCErrorListPool& errors) {
        KV_REPORT(errors, BoardNoFile, "test", "transfer/0");
        return nullptr;
    }));
    EXPECT_EQ(codes(m_errors), (Codes{0x301801, 0x302000}));
    expectStatus(State::Idle, 0, Step::None);
}

TEST_F(UpdateTest, WhatCannotBeStoredIsNeverDone)
{
    m_target.failSetVersion = true;
    ASSERT_TRUE(begin(goodImage(5)));
    complete();
    expectStatus(State::Failed, 99, Step::Verify, 2);
    EXPECT_EQ(codes(m_update.errors()), (Codes{0x301001, 0x302011}));
    EXPECT_EQ(m_target.version(), "3.1.2b4p7");
    EXPECT_EQ(m_target.stored.state, Remembered::Failed);

    m_target.failSetVersion = false;
    m_target.failRemember = Remembered::Verified;
    ASSERT_TRUE(begin(goodImage(5)));
    complete();
    expectStatus(State::Failed, 99, Step::Verify, 2);
    EXPECT_EQ(m_target.version(), "3.1.2b4p7");
}

TEST_F(UpdateTest, AnUpdateThatCannotBeForgottenIsNotClosed)
{
    ASSERT_TRUE(begin(goodImage(5, 1)));
    complete();
    m_target.failRemember = Remembered::Idle;
    EXPECT_FALSE(m_update.finish(m_errors));
    EXPECT_EQ(codes(m_errors), Codes{0x301001});
    expectStatus(State::Failed, 80, Step::Verify, 2);
}

TEST_F(UpdateTest, WhatWasNotStoredForCertainIsTakenBack)
{
    m_target.storesAllTheSame = true;
    m_target.failRemember = Remembered::Running;
    EXPECT_FALSE(begin(goodImage(5)));
    EXPECT_EQ(m_target.stored.state, Remembered::Idle) << "no update that never began";
    m_target.failRemember.reset();
    ASSERT_TRUE(begin(goodImage(5, 1)));
    complete();
    m_target.failRemember = Remembered::Idle;
    EXPECT_FALSE(m_update.finish(m_errors));
    EXPECT_EQ(m_target.stored.state, Remembered::Failed);
    EXPECT_EQ(codes(restarted()->errors()), (Codes{0x302010, 0x302011}));
}

TEST_F(UpdateTest, WhatCouldNotBeStoredIsStoredWhenTheDiskIsWellAgain)
{
    m_target.storesAllTheSame = true;
    m_target.failRemember = Remembered::Running;
    m_target.failNext = 1;  // the taking back, too
    EXPECT_FALSE(begin(goodImage(5)));
    EXPECT_EQ(m_target.stored.state, Remembered::Running);
    EXPECT_EQ(m_update.advance(m_now), Update::Milliseconds(0));
    EXPECT_EQ(m_target.stored.state, Remembered::Idle) << "no update that never began";
    m_target.failRemember.reset();
    m_target.did.clear();
    EXPECT_EQ(m_update.advance(m_now), Update::Milliseconds(0));
    EXPECT_EQ(m_target.did, Did{}) << "it is stored";
    ASSERT_TRUE(begin(goodImage(5, 1)));
    m_target.storesAllTheSame = false;
    m_target.failRemember = Remembered::Failed;
    complete();
    EXPECT_EQ(m_target.stored.state, Remembered::Running);
    m_target.failRemember.reset();
    EXPECT_EQ(m_update.advance(m_now), Update::Milliseconds(0));
    EXPECT_EQ(m_target.stored.state, Remembered::Failed);
    EXPECT_EQ(codes(restarted()->errors()), (Codes{0x302010, 0x302011}));
}

TEST_F(UpdateTest, NoMemoryForTheEndIsAFailure)
{
    m_target.throwAt = Remembered::Verified;
    ASSERT_TRUE(begin(goodImage(5)));
    complete();
    expectStatus(State::Failed, 99, Step::Verify, 2);
    EXPECT_EQ(codes(m_update.errors()), (Codes{0x301004, 0x302011}));
    m_target.throwAt = Remembered::Failed;
    ASSERT_TRUE(begin(goodImage(5, 1)));
    complete();
    expectStatus(State::Failed, 80, Step::Verify, 2);
    EXPECT_EQ(m_target.stored.state, Remembered::Running) << "which the next start takes for a failure too";
}

TEST_F(UpdateTest, NoMemoryForTheBeginningChangesNothing)
{
    m_target.throwAt = Remembered::Running;
    EXPECT_THROW(begin(goodImage(5)), std::bad_alloc);
    expectStatus(State::Idle, 0, Step::None);
    m_target.throwAt.reset();
    EXPECT_TRUE(begin(goodImage(5)));
}

TEST_F(UpdateTest, AServiceThatIsKilledInTheMiddleComesBackWithTheFormerVersionAndAnError)
{
    ASSERT_TRUE(begin(goodImage(5)));
    m_update.advance(m_begun + 5s);
    const auto update = restarted();
    EXPECT_EQ(update->status().state, State::Failed);
    EXPECT_EQ(codes(update->errors()), Codes{0x302012});
    EXPECT_STREQ(update->errors().getErrorText(0),
                 "Update error. The service of the board ended during the update of HCN[4711]/FIRMWARE to version 4.0; "
                 "the board has 3.1.2b4p7.");
    EXPECT_EQ(m_target.version(), "3.1.2b4p7");
    EXPECT_EQ(m_target.stored.state, Remembered::Failed);
    EXPECT_EQ(update->advance(m_now + 1h), 0ms);

    const auto again = restarted();
    EXPECT_EQ(codes(again->errors()), Codes{0x302012}) << "the error lasts until it is closed";
    EXPECT_TRUE(again->finish(m_errors));
    EXPECT_EQ(restarted()->status().state, State::Idle);
}

TEST_F(UpdateTest, KilledBetweenVerificationAndStoringItHasFailed)
{
    m_target.failSetVersion = true;
    m_target.failRemember = Remembered::Failed;
    ASSERT_TRUE(begin(goodImage(5)));
    complete();
    ASSERT_EQ(m_target.stored.state, Remembered::Verified);
    m_target.failRemember.reset();
    const auto update = restarted();
    EXPECT_EQ(update->status().state, State::Failed);
    EXPECT_EQ(codes(update->errors()), Codes{0x302012});
}

TEST_F(UpdateTest, KilledAfterStoringItIsDone)
{
    ASSERT_TRUE(begin(goodImage(5)));
    complete();
    const auto update = restarted();
    EXPECT_EQ(update->status().state, State::Done);
    EXPECT_EQ(update->status().percent, 100u);
    EXPECT_EQ(update->status().step, Step::Verify);
    EXPECT_EQ(update->status().errors, 0u);
    EXPECT_STREQ(update->newVersion().getAsString().c_str(), "4.0");
}

TEST_F(UpdateTest, AFailedUpdateComesBackWithItsErrors)
{
    ASSERT_TRUE(begin(goodImage(5, 1)));
    complete();
    const auto update = restarted();
    EXPECT_EQ(update->status().state, State::Failed);
    EXPECT_EQ(codes(update->errors()), (Codes{0x302010, 0x302011}));
    EXPECT_STREQ(update->errors().getErrorText(0), m_update.errors().getErrorText(0));
}

TEST_F(UpdateTest, AnUpdateOfAnItemThatIsGoneHasFailed)
{
    m_target.stored = {Remembered::Verified, "HCN[4711]/FIRMWARE[9]", 0, 0x0400000000000000u, {}};
    const auto update = restarted();
    EXPECT_EQ(update->status().state, State::Failed);
    EXPECT_STREQ(update->errors().getErrorText(0),
                 "Update error. The service of the board ended during the update of HCN[4711]/FIRMWARE[9] to version "
                 "4.0; the board has no version.");
}

TEST_F(UpdateTest, WhatCannotBeRecalledIsAProblemAtTheStart)
{
    m_target.failRecall = true;
    std::string problem;
    EXPECT_FALSE(m_update.restore(problem));
    EXPECT_EQ(problem, "it is damaged");
}

}  // namespace
