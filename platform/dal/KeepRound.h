#pragma once

#include <chrono>
#include <vector>

#include "platform/dal/Lease.h"
#include "platform/oncrpc/RpcDatagram.h"

namespace KvNDeviceAccess {

/** One round of asking boards, side by side, to keep the access ids of leases. */
class KeepRound
{
public:
    /** Adds a lease, which must outlive the round. When memory is out it is postponed. */
    void add(Lease& lease) noexcept;
    /** Asks and waits at most so long; each lease has then been kept, refused or postponed. */
    void run(std::chrono::milliseconds time) noexcept;

private:
    struct Item
    {
        Lease* lease;
        KvUInt32 accessId;
        Lease::Clock::time_point asked;
        bool settled;
    };

    bool askPort(std::size_t place) noexcept;
    bool askToKeep(std::size_t place) noexcept;
    void answered(const KvNRpc::RpcDatagram::Reply& reply) noexcept;
    static void handle(void* context, KvNRpc::RpcDatagram& exchange, const KvNRpc::RpcDatagram::Reply& reply) noexcept;

    KvNRpc::RpcDatagram m_exchange;
    std::vector<Item, KvNAllocation::Allocator<Item>> m_items;
};

}  // namespace KvNDeviceAccess
