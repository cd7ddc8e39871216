#include <algorithm>
#include <thread>

#include "platform/oncrpc/KvCRpcClient.h"
#include "tests/platform/dal/DalTest.h"

using namespace KvNDeviceAccess;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

namespace {

constexpr KvUInt32 first = ip(127, 0, 50, 1);
constexpr KvUInt32 second = ip(127, 0, 50, 2);
constexpr KvUInt32 third = ip(127, 0, 50, 3);
constexpr KvUInt32 classB = 0xFFFF0000;
constexpr KvUInt32 classC = 0xFFFFFF00;

std::vector<unsigned char> word(KvUInt32 value)
{
    return {static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
            static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
}

/* An identity as bytes, with names of those lengths. */
std::vector<unsigned char> identity(std::size_t boardName, std::size_t systemName)
{
    std::vector<unsigned char> bytes(8, 0);
    for (const std::size_t length : {boardName, systemName}) {
        for (const unsigned char byte : word(static_cast<KvUInt32>(length)))
            bytes.push_back(byte);
        bytes.insert(bytes.end(), length, 'n');
        bytes.resize((bytes.size() + 3) / 4 * 4);
    }
    bytes.insert(bytes.end(), 20, 0);
    return bytes;
}

}  // namespace

TEST(Discovery, asksExactlyTheAddressesOfTheFilterAndKeepsTheirOrder)
{
    ScriptedRack rack({boardAt(first, 11), boardAt(second, 12), boardAt(third, 13)});
    EXPECT_THAT(Filter().with(6, third).with(6, first).serials(), ElementsAre(13, 11));
    EXPECT_EQ(rack.look(1).datagrams, 0u);
    EXPECT_EQ(rack.look(1).streams, 0u);
}

TEST(Discovery, saysWhatTheBoardsSayOfThemselves)
{
    ScriptedBoard board = boardAt(second, 4711);
    board.boardType = 1234;
    board.boardName = std::string(255, 'b');
    board.systemName = "left rack";
    ScriptedRack rack({board});
    const std::vector<KvDALSDeviceInfo> infos = Filter().with(8, 1).with(9, 0).with(6, second).apply();
    ASSERT_EQ(infos.size(), 1u);
    EXPECT_STREQ(infos[0].systemName, "left rack");
    EXPECT_EQ(std::string(infos[0].boardName), std::string(255, 'b'));
    EXPECT_STREQ(infos[0].hostAddress, "127.0.50.2");
    EXPECT_EQ(infos[0].serialNumber, 4711u);
    EXPECT_EQ(infos[0].boardType, 1234u);
    EXPECT_EQ(infos[0].ipAddress, second);
    const ScriptedBoard now = rack.look(0);
    EXPECT_TRUE(infos[0].deviceAccessUdpPort == now.udpPort || infos[0].deviceAccessTcpPort == now.tcpPort);
    for (const KvUInt32 reserved : infos[0].reserved)
        EXPECT_EQ(reserved, 0u);
}

TEST(Discovery, listsAnAddressThatIsGivenTwiceOnce)
{
    ScriptedRack rack({boardAt(first, 11), boardAt(second, 12)});
    EXPECT_THAT(Filter().with(6, second).with(6, first).with(6, second).serials(), ElementsAre(12, 11));
}

TEST(Discovery, findsTheOthersWhenAHostIsSilentOrAbsent)
{
    ScriptedBoard silent = boardAt(second, 12);
    silent.mapsByTcp = false;
    silent.datagramsLost = 1000;
    ScriptedRack rack({boardAt(first, 11), silent, boardAt(third, 13)});
    Warnings warnings;
    EXPECT_THAT(Filter().with(6, first).with(6, second).with(6, ip(127, 0, 50, 99)).with(6, third).serials(),
                ElementsAre(11, 13));
    EXPECT_THAT(warnings.all, IsEmpty());
    EXPECT_EQ(rack.look(1).datagrams, 3u);
}

TEST(Discovery, asksAgainWhatGetsLost)
{
    ScriptedBoard lossy = boardAt(first, 11);
    lossy.mapsByTcp = false;
    lossy.datagramsLost = 2;
    ScriptedRack rack({lossy});
    EXPECT_THAT(Filter().with(6, first).serials(), ElementsAre(11));
    EXPECT_EQ(rack.look(0).datagrams, 3u);
}

TEST(Discovery, findsAHostGivenByAddressThatOnlyTcpReaches)
{
    ScriptedBoard board = boardAt(first, 11);
    board.mapsByUdp = false;
    ScriptedRack rack({board});
    const std::vector<KvDALSDeviceInfo> infos = Filter().with(6, first).apply();
    ASSERT_EQ(infos.size(), 1u);
    EXPECT_EQ(infos[0].deviceAccessTcpPort, rack.look(0).tcpPort);
    EXPECT_EQ(infos[0].deviceAccessUdpPort, 0u);
}

TEST(Discovery, leavesOutAndWarnsOfABoardThatDoesNotSayWhoItIs)
{
    ScriptedBoard silent = boardAt(first, 11);
    silent.silent = true;
    ScriptedBoard refusing = boardAt(second, 12);
    refusing.refuses = true;
    ScriptedRack rack({silent, refusing, boardAt(third, 13)});
    Warnings warnings;
    EXPECT_THAT(Filter().with(6, first).with(6, second).with(6, third).serials(), ElementsAre(13));
    const std::string rest = " did not say who it is and is left out.";
    EXPECT_THAT(warnings.all, ElementsAre(Pair(0x201000u, "Communication error. The board at 127.0.50.1" + rest),
                                          Pair(0x201000u, "Communication error. The board at 127.0.50.2" + rest)));
}

TEST(Discovery, leavesOutAndWarnsOfABoardWhoseIdentityMakesNoSense)
{
    const std::vector<std::vector<unsigned char>> wrong = {
        word(1),                                           // cut
        identity(256, 4),                                  // a name beyond its bound
        identity(4, 256),                                  // the same
        {0, 0, 0, 1, 0, 0, 0, 2, 0xFF, 0xFF, 0xFF, 0xFF},  // a length beyond everything
    };
    std::vector<unsigned char> trailing = identity(4, 4);
    trailing.resize(trailing.size() + 4);
    for (const std::vector<unsigned char>& reply : wrong) {
        ScriptedBoard board = boardAt(first, 11);
        board.identityReply = reply;
        ScriptedRack rack({board, boardAt(second, 12)});
        Warnings warnings;
        EXPECT_THAT(Filter().with(6, first).with(6, second).serials(), ElementsAre(12));
        EXPECT_THAT(warnings.all, ElementsAre(Pair(0x201001u, StartsWith("Communication error. The board at "
                                                                         "127.0.50.1 said in a way"))));
    }
    ScriptedBoard board = boardAt(first, 11);
    board.identityReply = trailing;
    ScriptedRack rack({board});
    Warnings warnings;
    EXPECT_THAT(Filter().with(6, first).serials(), IsEmpty());
    EXPECT_EQ(warnings.all.size(), 1u);
}

TEST(Discovery, aHostWithoutTheServiceIsNoBoardAndNoWarning)
{
    ScriptedBoard other = boardAt(first, 11);
    other.portReply = word(0);
    ScriptedRack rack({other, boardAt(second, 12)});
    Warnings warnings;
    EXPECT_THAT(Filter().with(6, first).with(6, second).serials(), ElementsAre(12));
    EXPECT_THAT(warnings.all, IsEmpty());
}

TEST(Discovery, warnsOfAPortThatIsNone)
{
    for (const std::vector<unsigned char>& reply : {word(65536), word(0xFFFFFFFF), std::vector<unsigned char>(8, 0)}) {
        ScriptedBoard board = boardAt(first, 11);
        board.portReply = reply;
        ScriptedRack rack({board});
        Warnings warnings;
        EXPECT_THAT(Filter().with(6, first).serials(), IsEmpty());
        EXPECT_THAT(warnings.all, ElementsAre(Pair(0x201001u, testing::_)));
    }
}

TEST(Discovery, warnsOfAPortBehindWhichNobodyAnswers)
{
    ScriptedBoard board = boardAt(first, 11);
    board.portReply = word(9);
    ScriptedRack rack({board});
    Warnings warnings;
    EXPECT_THAT(Filter().with(6, first).serials(), IsEmpty());
    EXPECT_THAT(warnings.all, ElementsAre(Pair(0x201000u, testing::_)));
}

TEST(Discovery, ofAddressesKeepsThoseWithTheSystemName)
{
    ScriptedBoard other = boardAt(second, 12);
    other.systemName = "other";
    ScriptedRack rack({boardAt(first, 11), other, boardAt(third, 13)});
    Filter filter;
    filter.with(6, third).with(6, second).with(6, first).named("rack");
    EXPECT_THAT(filter.serials(), ElementsAre(13, 11));
}

TEST(Discovery, ofAddressesKeepsThoseInANetworkUnderTheMask)
{
    ScriptedRack rack({boardAt(first, 11), boardAt(ip(127, 0, 0, 50), 12)});
    EXPECT_THAT(Filter().with(6, first).with(6, ip(127, 0, 0, 50)).with(7, classC).serials(), ElementsAre(12));
    EXPECT_THAT(Filter().with(6, first).with(6, ip(127, 0, 0, 50)).with(7, classB).serials(), ElementsAre(11, 12));
}

TEST(Discovery, byMaskFindsTheLoopbackNetworkInTheOrderOfAddresses)
{
    ScriptedRack rack({boardAt(ip(127, 0, 0, 61), 21), boardAt(first, 11), boardAt(ip(127, 0, 0, 60), 22)});
    Filter filter;
    filter.with(8, 1).with(9, 0).with(7, classC);
    EXPECT_THAT(filter.serials(), ElementsAre(22, 21));
}

TEST(Discovery, bySystemNameAsksTheOwnNetworksAndKeepsTheBoardsOfThatSystem)
{
    ScriptedBoard other = boardAt(ip(127, 0, 0, 61), 21);
    other.systemName = "Rack";
    ScriptedRack rack({other, boardAt(ip(127, 0, 0, 60), 22), boardAt(ip(127, 0, 0, 62), 23)});
    EXPECT_THAT(Filter().named("rack").serials(), ElementsAre(22, 23));
}

TEST(Discovery, withoutParametersFindsEveryBoardOfTheOwnNetworks)
{
    ScriptedBoard other = boardAt(ip(127, 0, 0, 61), 21);
    other.systemName = "other";
    ScriptedRack rack({other, boardAt(ip(127, 0, 0, 60), 22)});
    EXPECT_THAT(Filter().serials(), ElementsAre(22, 21));
}

TEST(Discovery, boardsThatSayTheSameSerialNumberAreAllListed)
{
    ScriptedRack rack({boardAt(first, 11), boardAt(second, 11)});
    EXPECT_THAT(Filter().with(6, first).with(6, second).serials(), ElementsAre(11, 11));
}

TEST(Discovery, canBeDoneAgainAndForgetsWhatWasFoundBefore)
{
    Filter filter;
    filter.with(6, first).with(6, second);
    {
        ScriptedRack rack({boardAt(first, 11), boardAt(second, 12)});
        EXPECT_THAT(filter.serials(), ElementsAre(11, 12));
    }
    ScriptedRack rack({boardAt(second, 12)});
    EXPECT_THAT(filter.serials(), ElementsAre(12));
}

TEST(Discovery, isEndedByCancellingAllCalls)
{
    ScriptedRack rack({boardAt(first, 11)});
    Filter filter;
    filter.with(6, ip(127, 0, 50, 99)).with(6, first);
    std::atomic<bool> done{false};
    std::thread canceller([&done] {
        while (!done) {
            KvCRpcClient::cancelAll();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    EXPECT_EQ(KvDAL_applyFilter(filter.errors, filter.handle), Cancelled);
    done = true;
    canceller.join();
    EXPECT_THAT(codes(filter.errors), ElementsAre(0x200011));
    KvUInt32 count = 5;
    EXPECT_EQ(KvDAL_getDeviceList(filter.errors, filter.handle, nullptr, &count), FilterNotApplied);
}

TEST(Discovery, severalAtOnceDoNotDisturbEachOther)
{
    ScriptedRack rack({boardAt(first, 11), boardAt(second, 12), boardAt(third, 13)});
    std::vector<std::thread> searchers;
    for (int i = 0; i < 8; ++i)
        searchers.emplace_back([] {
            EXPECT_THAT(Filter().with(6, first).with(6, second).with(6, third).serials(), ElementsAre(11, 12, 13));
        });
    for (std::thread& searcher : searchers)
        searcher.join();
}
