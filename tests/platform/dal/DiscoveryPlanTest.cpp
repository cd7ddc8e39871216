#include "platform/dal/DiscoveryPlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace KvNDeviceAccess;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr KvUInt32 ip(KvUInt32 a, KvUInt32 b, KvUInt32 c, KvUInt32 d)
{
    return a << 24 | b << 16 | c << 8 | d;
}

const HostInterface loopback{ip(127, 0, 0, 1), 0xFF000000, 0};
const HostInterface office{ip(10, 1, 2, 3), 0xFFFF0000, ip(10, 1, 255, 255)};
const HostInterface tunnel{ip(172, 16, 9, 1), 0xFFFFFFFC, 0};

DiscoveryPlan plan(const HostInterfaces& interfaces, KvUInt32 mask = 0, const Addresses& addresses = {})
{
    FilterSettings settings;
    settings.subnetMask = mask;
    settings.addresses = addresses;
    return planDiscovery(settings, interfaces);
}

}  // namespace

TEST(DiscoveryPlan, addressesAreExactlyTheHostsAskedOverUdpAndTcp)
{
    const DiscoveryPlan made = plan({loopback, office}, 0, {ip(10, 0, 0, 2), ip(10, 0, 0, 1), ip(10, 0, 0, 2)});
    EXPECT_THAT(made.hosts, ElementsAre(ip(10, 0, 0, 1), ip(10, 0, 0, 2)));
    EXPECT_THAT(made.broadcasts, IsEmpty());
    EXPECT_TRUE(made.overTcp);
    EXPECT_TRUE(made.accepts(ip(10, 0, 0, 2)));
}

TEST(DiscoveryPlan, addressesWithAMaskMustBelongToANetworkUnderThatMask)
{
    const DiscoveryPlan made = plan({loopback, office}, 0xFFFFFF00, {ip(10, 1, 2, 77), ip(10, 1, 3, 77)});
    EXPECT_THAT(made.hosts, ElementsAre(ip(10, 1, 2, 77), ip(10, 1, 3, 77)));
    EXPECT_TRUE(made.accepts(ip(10, 1, 2, 77)));
    EXPECT_FALSE(made.accepts(ip(10, 1, 3, 77)));
}

TEST(DiscoveryPlan, aMaskAsksTheBroadcastAddressAndFiltersTheAnswers)
{
    const DiscoveryPlan made = plan({office}, 0xFFFFFF00);
    EXPECT_THAT(made.broadcasts, ElementsAre(ip(10, 1, 255, 255)));
    EXPECT_THAT(made.hosts, IsEmpty());
    EXPECT_FALSE(made.overTcp);
    EXPECT_TRUE(made.accepts(ip(10, 1, 2, 9)));
    EXPECT_FALSE(made.accepts(ip(10, 1, 3, 9)));
}

TEST(DiscoveryPlan, theHostsOfALoopbackNetworkAreAskedOneByOne)
{
    const DiscoveryPlan made = plan({loopback}, 0xFF000000);
    ASSERT_EQ(made.hosts.size(), 254u);
    EXPECT_EQ(made.hosts.front(), ip(127, 0, 0, 1));
    EXPECT_EQ(made.hosts.back(), ip(127, 0, 0, 254));
    EXPECT_TRUE(made.accepts(ip(127, 0, 0, 11)));
    EXPECT_FALSE(made.accepts(ip(127, 0, 1, 11)));
}

TEST(DiscoveryPlan, severalLoopbackAddressesAreOneNetwork)
{
    const DiscoveryPlan made = plan({loopback, {ip(127, 0, 50, 1), 0xFF000000, 0}}, 0);
    ASSERT_EQ(made.hosts.size(), 254u);
    EXPECT_EQ(made.hosts.front(), ip(127, 0, 0, 1));
}

TEST(DiscoveryPlan, aMaskNarrowsALoopbackNetworkFurther)
{
    const DiscoveryPlan made = plan({loopback}, 0xFFFFFFF8);
    EXPECT_THAT(made.hosts, ElementsAre(ip(127, 0, 0, 1), ip(127, 0, 0, 2), ip(127, 0, 0, 3), ip(127, 0, 0, 4),
                                        ip(127, 0, 0, 5), ip(127, 0, 0, 6)));
}

TEST(DiscoveryPlan, withoutAMaskTheInterfacesOwnNetworksAreAsked)
{
    const DiscoveryPlan made = plan({office, tunnel});
    EXPECT_THAT(made.broadcasts, ElementsAre(ip(10, 1, 255, 255)));
    EXPECT_THAT(made.hosts, ElementsAre(ip(172, 16, 9, 1), ip(172, 16, 9, 2)));
    EXPECT_TRUE(made.accepts(ip(10, 1, 200, 1)));
    EXPECT_TRUE(made.accepts(ip(172, 16, 9, 2)));
    EXPECT_FALSE(made.accepts(ip(172, 16, 9, 4)));
    EXPECT_FALSE(made.accepts(ip(10, 2, 0, 1)));
}

TEST(DiscoveryPlan, aNetworkWithoutBroadcastIsAskedOnlyUpTo1024Hosts)
{
    EXPECT_EQ(plan({tunnel}, 0xFFFFFC00).hosts.size(), 1022u);
    EXPECT_THAT(plan({tunnel}, 0xFFFFF800).hosts, IsEmpty());
}

TEST(DiscoveryPlan, networksOfOneAndOfTwoAddressesHaveNoneToSpare)
{
    EXPECT_THAT(plan({{ip(10, 9, 9, 9), 0xFFFFFFFF, 0}}).hosts, ElementsAre(ip(10, 9, 9, 9)));
    EXPECT_THAT(plan({{ip(10, 9, 9, 9), 0xFFFFFFFE, 0}}).hosts, ElementsAre(ip(10, 9, 9, 8), ip(10, 9, 9, 9)));
}

TEST(DiscoveryPlan, twoInterfacesOnOneNetworkAskItOnce)
{
    const DiscoveryPlan made =
        plan({office, {ip(10, 1, 7, 7), 0xFFFF0000, ip(10, 1, 255, 255)}, tunnel, {ip(172, 16, 9, 2), 0xFFFFFFFC, 0}});
    EXPECT_EQ(made.broadcasts.size(), 1u);
    EXPECT_EQ(made.hosts.size(), 2u);
}

TEST(Host, knowsItsLoopbackInterface)
{
    HostInterfaces interfaces;
    ASSERT_TRUE(listInterfaces(interfaces));
    bool found = false;
    for (const HostInterface& own : interfaces)
        found = found || (own.address == ip(127, 0, 0, 1) && own.mask == 0xFF000000 && own.broadcast == 0);
    EXPECT_TRUE(found);
}

TEST(Host, namesItselfAsUserHostAndProgram)
{
    char text[256];
    ownerText(text);
    EXPECT_THAT(std::string(text), testing::MatchesRegex("[^@]+@[^ ]+ \\(test_dal[a-z_]*\\)"));
}

TEST(Host, givesEachRequestANumberOfItsOwn)
{
    EXPECT_NE(randomNonce(), randomNonce());
}
