#include <gtest/gtest.h>

#include "Support.h"
#include "base/Report.h"

namespace {

/** A node that notes its hooks and fails where it is told to. */
class Noting : public KvCComposite
{
public:
    Noting(KvCErrorListPool& errors, KvUInt32 unitId, std::string& notes)
        : KvCComposite(errors, 0xAB, unitId, "n"), m_notes(notes)
    {}

    void PreInit(KvCErrorListPool& errors) override { note(errors, "i"); }
    void PostInit(KvCErrorListPool& errors) override { note(errors, "I"); }
    void PreApply(KvCErrorListPool& errors) override { note(errors, "a"); }
    void PostApply(KvCErrorListPool& errors) override { note(errors, "A"); }
    void PreReset(KvCErrorListPool& errors) override { note(errors, "r"); }
    void PostReset(KvCErrorListPool& errors) override { note(errors, "R"); }
    void traverseHook(KvCErrorListPool&, KvUInt32 mode) override
    {
        char text[32];
        std::snprintf(text, sizeof text, "%x:%u ", static_cast<unsigned>(mode), static_cast<unsigned>(getUnitId()));
        m_notes += text;
    }

    std::string failingHook;

private:
    void note(KvCErrorListPool& errors, const char* hook)
    {
        m_notes += hook + std::to_string(getUnitId());
        if (failingHook == hook)
            KV_REPORT(errors, ParameterNotFound, "Noting::note", "x");
    }

    std::string& m_notes;
};

/** A node 1 with the children 2, which has a child 3, and 4. */
class CompositePhasesTest : public testing::Test
{
protected:
    void SetUp() override
    {
        node[1]->attach(node[2]);
        node[2]->attach(node[3]);
        node[1]->attach(node[4]);
    }
    void TearDown() override { delete node[1]; }

    /** The hooks that the phase runs; what it prints is in `printed`. */
    std::string run(void (KvCComposite::*phase)(KvCErrorListPool&), int from = 1)
    {
        notes.clear();
        testing::internal::CaptureStdout();
        (node[from]->*phase)(errors);
        printed = testing::internal::GetCapturedStdout();
        return notes;
    }
    std::string states(KvUInt32 mask) const
    {
        std::string all;
        for (int i = 1; i <= 4; ++i)
            all += node[i]->getStateBit(mask) != 0 ? "1" : "0";
        return all;
    }

    KvCErrorListPool errors;
    std::string notes;
    std::string printed;
    Noting* node[5] = {nullptr, new Noting(errors, 1, notes), new Noting(errors, 2, notes),
                       new Noting(errors, 3, notes), new Noting(errors, 4, notes)};
};

TEST_F(CompositePhasesTest, PreHooksRunBeforeAndPostHooksBehindTheChildren)
{
    EXPECT_EQ(run(&KvCComposite::init), "i1i2i3I3I2i4I4I1");
    EXPECT_EQ(states(0x1000000), "1111");
    EXPECT_EQ(run(&KvCComposite::apply), "a1a2a3A3A2a4A4A1");
    EXPECT_EQ(states(0x2000000), "1111");
    EXPECT_EQ(printed, "");
    EXPECT_EQ(run(&KvCComposite::reset), "r1r2r3R3R2r4R4R1");
    EXPECT_EQ(states(0xFFFFFFFF), "0000");
}

TEST_F(CompositePhasesTest, TheWalkStaysInTheSubtreeItStartsFrom)
{
    EXPECT_EQ(run(&KvCComposite::init, 2), "i2i3I3I2");
    EXPECT_EQ(states(0x1000000), "0110");
}

TEST_F(CompositePhasesTest, ASecondInitPrintsNoticesAndRunsNoHooks)
{
    run(&KvCComposite::init, 4);
    EXPECT_EQ(run(&KvCComposite::init, 4), "");
    EXPECT_EQ(printed,
              " Composite 0x000000ab 0x00000004 already initialized, skipping PreInit \n"
              " Composite 0x000000ab 0x00000004 already initialized, skipping PostInit \n");
    run(&KvCComposite::apply, 4);
    EXPECT_EQ(run(&KvCComposite::apply, 4), "");
    EXPECT_EQ(printed,
              " Composite 0x000000ab 0x00000004 already applied, skipping PreApply \n"
              " Composite 0x000000ab 0x00000004 already applied, skipping PostApply \n");
    EXPECT_EQ(run(&KvCComposite::init), "i1i2i3I3I2I1") << "only the node that has it behind it is passed over";
}

TEST_F(CompositePhasesTest, TheReapplyBitLetsApplyRunAgain)
{
    run(&KvCComposite::apply);
    node[3]->setStateBit(0x20000000);
    EXPECT_EQ(run(&KvCComposite::apply), "a3A3");
    EXPECT_EQ(node[3]->getState(), 0x22000000U);
}

TEST_F(CompositePhasesTest, AFailingPreInitStopsTheWalk)
{
    node[1]->failingHook = "i";
    EXPECT_EQ(run(&KvCComposite::init), "i1");
    EXPECT_EQ(states(0x1000000), "0000");
    EXPECT_EQ(codesOf(errors), (Codes{0x601003, 0x602004}));
    EXPECT_STREQ(errors.getErrorOrigin(1), "KvCComposite::init");
    EXPECT_STREQ(errors.getErrorText(1),
                 "Korvel Support information: Abort initialization phase due to errors in PreInit for element "
                 "\"::n[1] (ClassId: 0xab)\".");
}

TEST_F(CompositePhasesTest, AFailingPostInitLeavesTheCompletedNodesDone)
{
    node[2]->failingHook = "I";
    EXPECT_EQ(run(&KvCComposite::init), "i1i2i3I3I2");
    EXPECT_EQ(states(0x1000000), "0010");
    EXPECT_EQ(codesOf(errors), (Codes{0x601003, 0x602005}));
    EXPECT_STREQ(errors.getErrorText(1),
                 "Korvel Support information: Abort initialization phase due to errors in PostInit for element "
                 "\"::n[1]::n[2] (ClassId: 0xab)\".");
}

TEST_F(CompositePhasesTest, FailingApplyHooksHaveTheirOwnMessages)
{
    node[4]->failingHook = "a";
    EXPECT_EQ(run(&KvCComposite::apply), "a1a2a3A3A2a4");
    EXPECT_EQ(states(0x2000000), "0110");
    node[4]->failingHook = "A";
    run(&KvCComposite::apply);
    EXPECT_EQ(codesOf(errors), (Codes{0x601003, 0x602006, 0x601003, 0x602007}));
    EXPECT_STREQ(errors.getErrorOrigin(1), "KvCComposite::apply");
    EXPECT_NE(std::string(errors.getErrorText(1)).find("errors in PreApply for"), std::string::npos);
    EXPECT_NE(std::string(errors.getErrorText(3)).find("errors in PostApply for"), std::string::npos);
}

TEST_F(CompositePhasesTest, ResetGoesOnWhateverHooksReport)
{
    node[2]->failingHook = "r";
    node[3]->failingHook = "R";
    EXPECT_EQ(run(&KvCComposite::reset), "r1r2r3R3R2r4R4R1");
    EXPECT_EQ(codesOf(errors), (Codes{0x601003, 0x601003}));
}

TEST_F(CompositePhasesTest, TraverseCallsTheHookOnTheWayInAndOut)
{
    node[1]->traverse(errors, 0x5);
    EXPECT_EQ(notes, "5:1 5:2 5:3 80000005:3 80000005:2 5:4 80000005:4 80000005:1 ");
}

}  // namespace
