#include <thread>

#include "platform/oncrpc/KvCRpcClient.h"
#include "tests/platform/dal/DalTest.h"

using namespace KvNDeviceAccess;
using testing::ElementsAre;

namespace {

constexpr KvUInt32 address = ip(127, 0, 50, 20);

/* A client that says when it is deleted. */
class CountedClient : public KvCRpcClient
{
public:
    CountedClient(KvCErrorListPool& errors, std::atomic<int>& alive)
        : KvCRpcClient(errors, "127.0.50.20"), m_alive(alive)
    {
        ++m_alive;
    }
    ~CountedClient() override { --m_alive; }

private:
    std::atomic<int>& m_alive;
};

KvCRpcClient* registered(const Device& device, KvUInt32 key = 8)
{
    KvCErrorListPool errors;
    KvCRpcClient* client = nullptr;
    EXPECT_EQ(KvDAL_getRPCClientReference(errors, device.handle, key, &client), 0);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return client;
}

}  // namespace

TEST(ClientRegistry, hasNoClientAtFirst)
{
    Device device(address, 5);
    EXPECT_EQ(registered(device), nullptr);
}

TEST(ClientRegistry, sharesAClientBetweenTheHandlesOfOneBoard)
{
    std::atomic<int> alive{0};
    KvCErrorListPool errors;
    Device device(address, 5);
    auto* client = new CountedClient(errors, alive);
    ASSERT_EQ(KvDAL_registerRPCClient(errors, device.handle, 8, client), 0);
    Device same(address, 5);
    Device otherSerial(address, 6);
    Device otherAddress(address + 1, 5);
    EXPECT_EQ(registered(device), client);
    EXPECT_EQ(registered(same), client);
    EXPECT_EQ(registered(same, 9), nullptr);
    EXPECT_EQ(registered(otherSerial), nullptr);
    EXPECT_EQ(registered(otherAddress), nullptr);
}

TEST(ClientRegistry, deletesAClientWithTheLastHandleOfItsBoard)
{
    std::atomic<int> alive{0};
    KvCErrorListPool errors;
    void* lock = nullptr;
    {
        Device device(address, 5);
        Device same(address, 5);
        ASSERT_EQ(KvDAL_registerRPCClient(errors, device.handle, 8, new CountedClient(errors, alive)), 0);
        KvDAL_deleteDeviceHandle(errors, device.handle);
        EXPECT_EQ(alive, 1);
        ASSERT_EQ(KvDAL_createAccessRestrictionHandle(errors, same.handle, &lock), 0);
        KvDAL_deleteDeviceHandle(errors, same.handle);
        EXPECT_EQ(alive, 1);
        EXPECT_EQ(KvDAL_deleteAccessRestrictionHandle(errors, lock), 0);
        EXPECT_EQ(alive, 0);
    }
    Device again(address, 5);
    EXPECT_EQ(registered(again), nullptr);
}

TEST(ClientRegistry, deletesAClientThatItCannotRegister)
{
    std::atomic<int> alive{0};
    KvCErrorListPool errors;
    Device device(address, 5);
    auto* client = new CountedClient(errors, alive);
    ASSERT_EQ(KvDAL_registerRPCClient(errors, device.handle, 8, client), 0);
    EXPECT_EQ(KvDAL_registerRPCClient(errors, device.handle, 8, new CountedClient(errors, alive)), ClientExists);
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(registered(device), client);
    EXPECT_EQ(KvDAL_registerRPCClient(errors, nullptr, 8, new CountedClient(errors, alive)), InvalidHandle);
    EXPECT_EQ(alive, 1);
    EXPECT_THAT(codes(errors), ElementsAre(0x20000B, 0x200001));
    EXPECT_EQ(KvDAL_registerRPCClient(errors, device.handle, 9, new CountedClient(errors, alive)), Ok);
    EXPECT_EQ(alive, 2);
}

TEST(ClientRegistry, whoAsksMeanwhileWaitsForTheOneWhoMakesTheClient)
{
    std::atomic<int> alive{0};
    std::atomic<int> made{0};
    Device device(address, 5);
    std::vector<std::thread> askers;
    std::vector<KvCRpcClient*> clients(8);
    for (std::size_t i = 0; i < clients.size(); ++i)
        askers.emplace_back([&, i] {
            KvCErrorListPool errors;
            Device own(address, 5);
            ASSERT_EQ(KvDAL_claimRPCClient(errors, own.handle, 8, &clients[i]), 0);
            if (clients[i] != nullptr)
                return;
            ++made;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            clients[i] = new CountedClient(errors, alive);
            EXPECT_EQ(KvDAL_registerRPCClient(errors, own.handle, 8, clients[i]), 0);
        });
    for (std::thread& asker : askers)
        asker.join();
    EXPECT_EQ(made, 1);
    EXPECT_EQ(alive, 1);
    for (const KvCRpcClient* client : clients)
        EXPECT_EQ(client, clients[0]);
}

TEST(ClientRegistry, otherBoardsAndOtherKeysAreNotHeldUpByAClaim)
{
    KvCErrorListPool errors;
    Device device(address, 5);
    Device other(address + 1, 5);
    KvCRpcClient* client = nullptr;
    ASSERT_EQ(KvDAL_claimRPCClient(errors, device.handle, 8, &client), 0);
    EXPECT_EQ(registered(device), nullptr);
    std::thread([&] {
        KvCErrorListPool own;
        KvCRpcClient* none = nullptr;
        EXPECT_EQ(KvDAL_claimRPCClient(own, other.handle, 8, &none), 0);
        EXPECT_EQ(KvDAL_registerRPCClient(own, other.handle, 8, nullptr), 0);
        EXPECT_EQ(KvDAL_claimRPCClient(own, device.handle, 9, &none), 0);
        EXPECT_EQ(KvDAL_registerRPCClient(own, device.handle, 9, nullptr), 0);
    }).join();
    EXPECT_EQ(KvDAL_claimRPCClient(errors, device.handle, 8, &client), InvalidArgument);
    EXPECT_EQ(KvDAL_registerRPCClient(errors, device.handle, 8, nullptr), 0);
    EXPECT_EQ(KvDAL_claimRPCClient(errors, device.handle, 8, &client), 0);
    EXPECT_EQ(KvDAL_registerRPCClient(errors, device.handle, 8, nullptr), 0);
}

TEST(ClientRegistry, whoGivesUpMakingAClientLeavesItToTheNext)
{
    KvCErrorListPool errors;
    Device device(address, 5);
    KvCRpcClient* client = nullptr;
    ASSERT_EQ(KvDAL_claimRPCClient(errors, device.handle, 8, &client), 0);
    std::atomic<int> alive{0};
    std::thread next([&] {
        KvCErrorListPool own;
        KvCRpcClient* none = nullptr;
        EXPECT_EQ(KvDAL_claimRPCClient(own, device.handle, 8, &none), 0);
        EXPECT_EQ(none, nullptr);
        EXPECT_EQ(KvDAL_registerRPCClient(own, device.handle, 8, new CountedClient(own, alive)), 0);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(KvDAL_registerRPCClient(errors, device.handle, 8, nullptr), 0);
    next.join();
    EXPECT_EQ(alive, 1);
    EXPECT_NE(registered(device), nullptr);
}

TEST(ClientRegistry, deletingTheHandleEndsTheClaimMadeThroughIt)
{
    KvCErrorListPool errors;
    Device device(address, 5);
    Device same(address, 5);
    KvCRpcClient* client = nullptr;
    ASSERT_EQ(KvDAL_claimRPCClient(errors, device.handle, 8, &client), 0);
    std::thread next([&] {
        KvCErrorListPool own;
        KvCRpcClient* none = nullptr;
        EXPECT_EQ(KvDAL_claimRPCClient(own, same.handle, 8, &none), 0);
        EXPECT_EQ(KvDAL_registerRPCClient(own, same.handle, 8, nullptr), 0);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(KvDAL_deleteDeviceHandle(errors, device.handle), 0);
    next.join();
}

TEST(ClientRegistry, aHandleDeletedWhileItsCallerWaitsGetsNoClaim)
{
    KvCErrorListPool errors;
    Device device(address, 5);
    Device waiting(address, 5);
    KvCRpcClient* client = nullptr;
    ASSERT_EQ(KvDAL_claimRPCClient(errors, device.handle, 8, &client), 0);
    std::thread waiter([&] {
        KvCErrorListPool own;
        KvCRpcClient* none = nullptr;
        EXPECT_EQ(KvDAL_claimRPCClient(own, waiting.handle, 8, &none), InvalidHandle);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(KvDAL_deleteDeviceHandle(errors, waiting.handle), 0);
    EXPECT_EQ(KvDAL_registerRPCClient(errors, device.handle, 8, nullptr), 0);
    waiter.join();
    EXPECT_EQ(KvDAL_claimRPCClient(errors, device.handle, 8, &client), 0);
    EXPECT_EQ(client, nullptr);
}
