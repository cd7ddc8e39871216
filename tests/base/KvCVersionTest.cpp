#include "base/KvCVersion.h"

#include <cstdint>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include "base/Report.h"
#include "tests/support/FailingAllocation.h"

namespace {

std::string textOf(const KvCVersion& version)
{
    return version.getAsString().c_str();
}

TEST(Version, IsZeroAtFirst)
{
    const KvCVersion version;
    EXPECT_EQ(version.getAsULong64(), 0U);
    EXPECT_EQ(textOf(version), "0.0");
}

TEST(Version, HoldsNothingButItsRecord)
{
    static_assert(sizeof(KvCVersion) == sizeof(KvNVersion::KvTVersion));
    static_assert(std::is_trivially_copyable_v<KvCVersion> && !std::is_polymorphic_v<KvCVersion>);
}

TEST(Version, IsPackedFromTheMajorNumberDown)
{
    const KvCVersion version(3, 1, 2, 2, 4, 7);
    EXPECT_EQ(version.getAsULong64(), 0x0301020200040007U);
    EXPECT_EQ(KvCVersion(0x0301020200040007ULL), version);
    const KvCVersion different(0x0102030405060708ULL);
    EXPECT_EQ(different.getMar(), 1);
    EXPECT_EQ(different.getMir(), 2);
    EXPECT_EQ(different.getMai(), 3);
    EXPECT_EQ(different.getSpb(), 4);
    EXPECT_EQ(different.getSpn(), 0x0506);
    EXPECT_EQ(different.getPlv(), 0x0708);
}

TEST(Version, CanBeSetNumberByNumber)
{
    KvCVersion version;
    version.setMar(255);
    version.setMir(254);
    version.setMai(253);
    version.setSpb(252);
    version.setSpn(65535);
    version.setPlv(65534);
    EXPECT_EQ(version.getAsULong64(), 0xFFFEFDFCFFFFFFFEU);
    EXPECT_EQ(KvCVersion(version.getAsVersion()), version);
    KvCVersion copy;
    copy = version;
    EXPECT_EQ(copy, version);
    copy = *&copy;
    EXPECT_EQ(copy, version);
}

TEST(VersionText, HasOnlyTheNumbersThatAreThere)
{
    EXPECT_EQ(textOf(KvCVersion(3, 1, 2, 2, 4, 7)), "3.1.2b4p7");
    EXPECT_EQ(textOf(KvCVersion(1, 0, 0, 1, 0, 0)), "1.0a0");
    EXPECT_EQ(textOf(KvCVersion(5, 4, 0, 0, 0, 3)), "5.4p3");
    EXPECT_EQ(textOf(KvCVersion(1, 2, 0, 0, 0, 0)), "1.2");
    EXPECT_EQ(textOf(KvCVersion(1, 2, 0, 0, 9, 0)), "1.2") << "a release has no build number";
    EXPECT_EQ(textOf(KvCVersion(1, 2, 0, 3, 9, 0)), "1.2a9") << "every kind but 2 is written as alpha";
    EXPECT_EQ(textOf(KvCVersion(255, 255, 255, 255, 65535, 65535)), "255.255.255a65535p65535");
}

TEST(VersionText, IsReadWholeOrNotAtAll)
{
    for (const char* text : {"1.2", "1.2.3", "1.2a5", "1.2.3b4p7", "1.2p1", "0.0", "1.2a0"}) {
        KvCVersion version;
        EXPECT_TRUE(version.setByString(text)) << text;
        EXPECT_EQ(textOf(version), text);
    }
    for (const char* text : {"", "1", "1.", "1.2.", "1.2x", "1.2.3 ", " 1.2", "x1.2", "1.2a", "1.2.3b", "1.2p",
                             "1.2a1b2", "1.2p1a1", "1.2.3.4", "-1.2", "1.-2", "1,2", "1.2A5", "1.2.a1"}) {
        KvCVersion version(9, 9, 9, 9, 9, 9);
        EXPECT_FALSE(version.setByString(text)) << text;
        EXPECT_EQ(version.getAsULong64(), 0U) << text;
    }
}

TEST(VersionText, NumbersAreCutToTheirWidth)
{
    const KvCVersion version(KvCString("300.1"));
    EXPECT_EQ(version.getMar(), 44);
    EXPECT_EQ(version.getMir(), 1);
    EXPECT_EQ(KvCVersion(KvCString("1.2a65537p131074")).getSpn(), 1);
    EXPECT_EQ(KvCVersion(KvCString("1.2a65537p131074")).getPlv(), 2);
    EXPECT_EQ(KvCVersion(KvCString("1.18446744073709551618")).getMir(), 2) << "2 to the power of 64, and 2";
}

TEST(VersionText, OfAPrereleaseWithoutMaintenanceNumberReadsBack)
{
    KvCVersion version(1, 2, 0, 1, 3, 0);
    EXPECT_EQ(textOf(version), "1.2a3");
    EXPECT_EQ(KvCVersion(version.getAsString()), version);
}

TEST(VersionText, ThatIsNoneGivesZero)
{
    EXPECT_EQ(KvCVersion(KvCString("next")).getAsULong64(), 0U);
}

TEST(VersionText, OfAnyVersionReadsBack)
{
    EXPECT_TRUE(
        rc::check([](std::uint8_t mar, std::uint8_t mir, std::uint8_t mai, std::uint16_t spn, std::uint16_t plv) {
            const auto spb = *rc::gen::inRange<int>(0, 3);
            const KvCVersion version(mar, mir, mai, static_cast<unsigned char>(spb), spb == 0 ? std::uint16_t{0} : spn,
                                     plv);
            KvCVersion read;
            RC_ASSERT(read.setByString(version.getAsString()));
            RC_ASSERT(read == version);
            RC_ASSERT(KvCVersion(version.getAsULong64()) == version);
        }));
}

TEST(VersionText, OfAnyKindIsReadOrLeavesZero)
{
    EXPECT_TRUE(rc::check([] {
        const auto text = *rc::gen::container<std::string>(rc::gen::element('0', '1', '9', '.', 'a', 'b', 'p', ' '));
        KvCVersion version(1, 2, 3, 1, 4, 5);
        if (version.setByString(KvCString(text.c_str()))) {
            KvCVersion again;
            RC_ASSERT(again.setByString(version.getAsString()));
            RC_ASSERT(again == version || version.getSpb() == 0);
        } else {
            RC_ASSERT(version.getAsULong64() == 0U);
        }
    }));
}

TEST(VersionOrder, PutsAlphasBeforeBetasBeforeTheRelease)
{
    const char* const ascending[] = {"1.9.9p9", "2.0a1",   "2.0a12", "2.0a12p1", "2.0b0", "2.0b9", "2.0",
                                     "2.0p1",   "2.0.1a1", "2.0.1",  "2.1",      "2.1.1", "10.0"};
    for (std::size_t i = 0; i < std::size(ascending); ++i) {
        for (std::size_t j = 0; j < std::size(ascending); ++j) {
            const KvCVersion a{KvCString(ascending[i])};
            const KvCVersion b{KvCString(ascending[j])};
            EXPECT_EQ(a < b, i < j) << ascending[i] << " and " << ascending[j];
            EXPECT_EQ(a <= b, i <= j);
            EXPECT_EQ(a > b, i > j);
            EXPECT_EQ(a >= b, i >= j);
            EXPECT_EQ(a == b, i == j);
            EXPECT_EQ(a != b, i != j);
        }
    }
}

TEST(VersionOrder, RanksUnknownKindsByTheArithmetic)
{
    const KvCVersion release(1, 0, 0, 0, 5, 5);
    const KvCVersion three(1, 0, 0, 3, 5, 5);
    EXPECT_FALSE(three < release);
    EXPECT_FALSE(release < three);
    EXPECT_TRUE(three >= release);
    EXPECT_FALSE(three <= release) << "neither less nor equal";
    EXPECT_TRUE(three > release) << "neither less nor equal, in both directions";
    EXPECT_TRUE(release > three);
    EXPECT_TRUE(three != release);
    EXPECT_TRUE(KvCVersion(1, 0, 0, 4, 0, 0) < KvCVersion(1, 0, 0, 5, 0, 0));
    EXPECT_TRUE(KvCVersion(1, 0, 0, 5, 0, 0) < KvCVersion(1, 0, 0, 3, 0, 0));
}

TEST(VersionText, WithoutMemoryIsEmptyAndReported)
{
    KvNReport::masterList().clear();
    const KvCVersion version(255, 255, 255, 1, 65535, 65535);
    {
        const FailingAllocation none(1, true);
        EXPECT_EQ(textOf(version), "");
    }
    EXPECT_EQ(KvNReport::masterList().getErrorCode(0), 0x603000U);
    KvNReport::masterList().clear();
}

}  // namespace
