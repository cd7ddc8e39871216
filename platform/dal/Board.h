#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

class KvCRpcClient;

namespace KvNDeviceAccess {

/**
 * One board in use: what all its handles share, found by IP address and serial number. It counts the handles that
 * stand for it; with the last one its clients are deleted. All boards are guarded by one mutex, which is never held
 * while something is sent or deleted. "Owner" is the handle through which something was asked for.
 */
class Board
{
public:
    /** What claimClient() came to. */
    enum class Claim
    {
        Registered,   // there is a client
        Granted,      // there is none, and the caller is the one who makes it
        HeldByCaller  // this thread is making it already
    };

    /** The board with that address and serial number, one handle more (see AttachedBoard). Throws std::bad_alloc. */
    static std::shared_ptr<Board> attach(KvUInt32 ipAddress, KvUInt32 serialNumber);
    /** One handle less. */
    void detach() noexcept;

    explicit Board(KvUInt32 ipAddress, KvUInt32 serialNumber) noexcept;
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    KvUInt32 ipAddress() const { return m_ipAddress; }
    KvUInt32 serialNumber() const { return m_serialNumber; }
    /** The address as a dotted quad. */
    const char* address() const { return m_address; }

    /** The client registered under `key`, or null. */
    KvCRpcClient* client(KvUInt32 key) noexcept;
    /** Waits while another thread has the claim on `key`; then `client` is the registered one, or the caller has the
        claim. Throws std::bad_alloc. */
    Claim claimClient(KvUInt32 key, const void* owner, KvCRpcClient*& client);
    /** Registers `client` unless there is one; the claim on `key` ends when the calling thread has it, also when this
        fails or `client` is null. Throws std::bad_alloc. */
    bool registerClient(KvUInt32 key, KvCRpcClient* client);
    /** Ends the claims that were made through `owner`. */
    void endClaims(const void* owner) noexcept;

    /** Enters `owner` among those whose access id may be in force, until removeAccess(). Throws std::bad_alloc. */
    void addAccess(const void* owner);
    /** The access id of an owner that was entered, and how long it is good; 0: none. Of those that are good, the one
        that came last is in force. */
    void setAccess(const void* owner, KvUInt32 accessId, std::chrono::steady_clock::time_point until = {}) noexcept;
    void removeAccess(const void* owner) noexcept;
    /** The access id in force; 0: none. */
    KvUInt32 accessInForce() const noexcept;

    /** Held while a file is put on the board: a second one under the same access id would end the first. */
    std::mutex& transfers() noexcept { return m_transfers; }

private:
    struct Client
    {
        KvUInt32 key;
        KvCRpcClient* client;
        const void* claimedThrough;  // null: no claim
        std::thread::id claimedBy;
    };
    struct Access
    {
        const void* owner;
        KvUInt32 id;
        std::chrono::steady_clock::time_point until;
    };
    Client* entryOf(KvUInt32 key) noexcept;

    const KvUInt32 m_ipAddress;
    const KvUInt32 m_serialNumber;
    char m_address[16];
    std::size_t m_handles = 0;
    std::mutex m_transfers;
    std::vector<Client, KvNAllocation::Allocator<Client>> m_clients;
    std::vector<Access, KvNAllocation::Allocator<Access>> m_access;
};

/** A board for as long as a handle stands for it. */
class AttachedBoard
{
public:
    /** Throws std::bad_alloc. */
    AttachedBoard(KvUInt32 ipAddress, KvUInt32 serialNumber) : m_board(Board::attach(ipAddress, serialNumber)) {}
    ~AttachedBoard() { m_board->detach(); }
    AttachedBoard(const AttachedBoard&) = delete;
    AttachedBoard& operator=(const AttachedBoard&) = delete;

    Board& operator*() const { return *m_board; }
    Board* operator->() const { return m_board.get(); }
    /** For what lives longer than the handle, and does not count as one. */
    const std::shared_ptr<Board>& shared() const { return m_board; }

private:
    const std::shared_ptr<Board> m_board;
};

}  // namespace KvNDeviceAccess
