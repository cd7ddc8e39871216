#include "platform/dal/Board.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

#include "platform/oncrpc/KvCRpcClient.h"

namespace KvNDeviceAccess {

namespace {

using Boards = std::unordered_map<KvUInt64, std::shared_ptr<Board>, std::hash<KvUInt64>, std::equal_to<KvUInt64>,
                                  KvNAllocation::Allocator<std::pair<const KvUInt64, std::shared_ptr<Board>>>>;

struct Registry
{
    std::mutex mutex;
    std::condition_variable claimEnded;
    Boards boards;
};

/* Never destroyed, for the reason given at handleTable(). */
Registry& registry()
{
    alignas(Registry) static unsigned char storage[sizeof(Registry)];
    static Registry* const only = ::new (static_cast<void*>(storage)) Registry;
    return *only;
}

KvUInt64 keyOf(KvUInt32 ipAddress, KvUInt32 serialNumber)
{
    return (static_cast<KvUInt64>(ipAddress) << 32) | serialNumber;
}

}  // namespace

Board::Board(KvUInt32 ipAddress, KvUInt32 serialNumber) noexcept : m_ipAddress(ipAddress), m_serialNumber(serialNumber)
{
    std::snprintf(m_address, sizeof m_address, "%u.%u.%u.%u", static_cast<unsigned>(ipAddress >> 24 & 0xFF),
                  static_cast<unsigned>(ipAddress >> 16 & 0xFF), static_cast<unsigned>(ipAddress >> 8 & 0xFF),
                  static_cast<unsigned>(ipAddress & 0xFF));
}

Board::~Board() = default;

std::shared_ptr<Board> Board::attach(KvUInt32 ipAddress, KvUInt32 serialNumber)
{
    Registry& all = registry();
    const std::lock_guard<std::mutex> guard(all.mutex);
    const KvUInt64 key = keyOf(ipAddress, serialNumber);
    const auto known = all.boards.find(key);
    std::shared_ptr<Board> board = known != all.boards.end() ? known->second : nullptr;
    if (board == nullptr) {
        board = std::allocate_shared<Board>(KvNAllocation::Allocator<Board>(), ipAddress, serialNumber);
        all.boards.emplace(key, board);
    }
    ++board->m_handles;
    return board;
}

void Board::detach() noexcept
{
    Registry& all = registry();
    std::shared_ptr<Board> last;
    std::vector<Client, KvNAllocation::Allocator<Client>> clients;
    {
        const std::lock_guard<std::mutex> guard(all.mutex);
        if (--m_handles != 0)
            return;
        const auto place = all.boards.find(keyOf(m_ipAddress, m_serialNumber));
        last = std::move(place->second);
        all.boards.erase(place);
        clients.swap(m_clients);
    }
    all.claimEnded.notify_all();
    for (const Client& entry : clients)
        delete entry.client;
}

Board::Client* Board::entryOf(KvUInt32 key) noexcept
{
    const auto place =
        std::find_if(m_clients.begin(), m_clients.end(), [key](const Client& entry) { return entry.key == key; });
    return place == m_clients.end() ? nullptr : &*place;
}

KvCRpcClient* Board::client(KvUInt32 key) noexcept
{
    const std::lock_guard<std::mutex> guard(registry().mutex);
    const Client* entry = entryOf(key);
    return entry == nullptr ? nullptr : entry->client;
}

Board::Claim Board::claimClient(KvUInt32 key, const void* owner, KvCRpcClient*& client)
{
    Registry& all = registry();
    std::unique_lock<std::mutex> guard(all.mutex);
    const std::thread::id self = std::this_thread::get_id();
    for (;;) {
        Client* entry = entryOf(key);
        client = entry == nullptr ? nullptr : entry->client;
        if (client != nullptr)
            return Claim::Registered;
        if (entry == nullptr) {
            m_clients.push_back({key, nullptr, owner, self});
            return Claim::Granted;
        }
        if (entry->claimedThrough == nullptr) {
            entry->claimedThrough = owner;
            entry->claimedBy = self;
            return Claim::Granted;
        }
        if (entry->claimedBy == self)
            return Claim::HeldByCaller;
        all.claimEnded.wait(guard);
    }
}

bool Board::registerClient(KvUInt32 key, KvCRpcClient* client)
{
    Registry& all = registry();
    bool registered = false;
    {
        const std::lock_guard<std::mutex> guard(all.mutex);
        Client* entry = entryOf(key);
        if (entry == nullptr && client != nullptr) {
            m_clients.push_back({key, nullptr, nullptr, {}});
            entry = &m_clients.back();
        }
        if (entry != nullptr && client != nullptr && entry->client == nullptr) {
            entry->client = client;
            registered = true;
        }
        if (entry != nullptr && (entry->client != nullptr || entry->claimedBy == std::this_thread::get_id()))
            entry->claimedThrough = nullptr;
    }
    all.claimEnded.notify_all();
    return registered || client == nullptr;
}

void Board::endClaims(const void* owner) noexcept
{
    Registry& all = registry();
    {
        const std::lock_guard<std::mutex> guard(all.mutex);
        for (Client& entry : m_clients) {
            if (entry.claimedThrough == owner)
                entry.claimedThrough = nullptr;
        }
    }
    all.claimEnded.notify_all();
}

void Board::addAccess(const void* owner)
{
    const std::lock_guard<std::mutex> guard(registry().mutex);
    m_access.push_back({owner, 0, {}});
}

void Board::setAccess(const void* owner, KvUInt32 accessId, std::chrono::steady_clock::time_point until) noexcept
{
    const std::lock_guard<std::mutex> guard(registry().mutex);
    const auto known =
        std::find_if(m_access.begin(), m_access.end(), [owner](const Access& access) { return access.owner == owner; });
    if (known == m_access.end())
        return;
    const bool renewed = known->id == accessId;
    known->id = accessId;
    known->until = until;
    if (!renewed)
        std::rotate(known, known + 1, m_access.end());
}

void Board::removeAccess(const void* owner) noexcept
{
    const std::lock_guard<std::mutex> guard(registry().mutex);
    const auto known =
        std::find_if(m_access.begin(), m_access.end(), [owner](const Access& access) { return access.owner == owner; });
    if (known != m_access.end())
        m_access.erase(known);
}

KvUInt32 Board::accessInForce() const noexcept
{
    const std::lock_guard<std::mutex> guard(registry().mutex);
    const auto now = std::chrono::steady_clock::now();
    const auto last = std::find_if(m_access.rbegin(), m_access.rend(),
                                   [now](const Access& access) { return access.id != 0 && now < access.until; });
    return last == m_access.rend() ? 0 : last->id;
}

}  // namespace KvNDeviceAccess
