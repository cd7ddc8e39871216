#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "tests/platform/dal/DalTest.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int notAllowed = 77;

/* This program again, for one test, in a network namespace with one interface that knows broadcast and has the boards'
   addresses; its status, or `notAllowed` when there is no such namespace to be had. */
int runInOwnNetwork(const std::string& test)
{
    char self[PATH_MAX] = "";
    if (readlink("/proc/self/exe", self, sizeof self - 1) < 0)
        return notAllowed;
    const std::string command =
        "unshare -rn sh -c '"
        "ip link set lo up && ip link add kv0 type veth peer name kv1 && ip link set kv0 up && ip link set kv1 up && "
        "ip addr add 10.77.0.1/16 brd + dev kv0 && ip addr add 10.77.0.2/16 brd + dev kv0 || exit 77; "
        "exec \"$0\" --gtest_also_run_disabled_tests --gtest_filter=" +
        test + "' '" + self + "' 2>&1 || exit $?";
    const int status = std::system(command.c_str());
    // 1 is also what unshare itself ends with when it is not allowed: then a trial of it alone fails, too
    if (WEXITSTATUS(status) == 1 && std::system("unshare -rn true 2>/dev/null") != 0)
        return notAllowed;
    return WEXITSTATUS(status);
}

ScriptedBoard hearingBroadcast(KvUInt32 address, KvUInt32 serialNumber)
{
    ScriptedBoard board = boardAt(address, serialNumber);
    board.broadcast = ip(10, 77, 255, 255);
    return board;
}

}  // namespace

TEST(Broadcast, findsTheBoardsOfANetworkThatKnowsBroadcast)
{
    const int status = runInOwnNetwork("BroadcastNetwork.*");
    if (status == notAllowed)
        GTEST_SKIP() << "no network namespace of its own with a veth interface to be had here";
    EXPECT_EQ(status, 0);
}

/* Run by the test above, in the network that it makes. */
TEST(BroadcastNetwork, DISABLED_isAskedByBroadcast)
{
    ScriptedRack rack({hearingBroadcast(ip(10, 77, 0, 2), 32), hearingBroadcast(ip(10, 77, 0, 1), 31)});
    Warnings warnings;
    EXPECT_THAT(Filter().with(8, 1).with(9, 0).with(7, 0xFFFF0000).serials(), ElementsAre(31, 32));
    EXPECT_EQ(rack.look(0).datagrams, 3u);
    EXPECT_EQ(rack.look(0).streams, 0u);
    EXPECT_EQ(rack.look(0).identified, 1u);
    EXPECT_THAT(warnings.all, IsEmpty());
    EXPECT_THAT(Filter().named("rack").serials(), ElementsAre(31, 32));
    EXPECT_THAT(Filter().named("other").serials(), IsEmpty());
}
