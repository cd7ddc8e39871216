#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "fuzz/Fuzz.h"
#include "platform/service/TemporaryFolder.h"
#include "tools/kvboardd/DeviceAccessService.h"
#include "tools/kvboardd/InventoryService.h"
#include "tools/kvboardd/PortMapper.h"

namespace KvNFuzz {

/**
 * A board's services without sockets: a small tree, a clock of the target's, access ids from 100 on, file names from
 * 00000000000000a0 on, and a folder for files that is empty at first. Whatever the services log must be fit for a
 * terminal.
 */
class BoardOnMemory
{
public:
    enum class Program
    {
        DeviceAccess,
        Inventory,
        PortMapper
    };

    static constexpr KvUInt32 firstAccessId = 100;
    static constexpr KvUInt64 firstName = 0xA0;
    static constexpr KvUInt32 serialNumber = 4711;
    static constexpr std::chrono::seconds updateTime{10};

    explicit BoardOnMemory(const KvNBoardService::Files::Limits& limits = {});

    /** Calls a procedure; the answer is there, and of a bounded size. */
    KvNBoardService::Answer call(Program program, KvUInt32 procedure, const Bytes& arguments, KvUInt32 peer,
                                 bool isDatagram = false);

    /** Time passes; the locks that have ended are gone, and the update has gone on. */
    void pass(std::chrono::milliseconds time);

    KvNBoardService::LockTable::Time now{std::chrono::seconds(1000)};

private:
    std::unique_ptr<KvNBoardService::Board> m_board;
    KvUInt32 m_nextId = firstAccessId;
    KvUInt64 m_nextName = firstName;
    KvNBoardService::Files m_files;
    KvNBoardService::Transfers m_transfers;
    KvNBoardService::LockTable m_locks;
    KvNBoardService::Update m_update;
    KvNBoardService::InventoryService m_inventory;
    KvNBoardService::DeviceAccessService m_access;
    KvNBoardService::PortMapper m_mapper;
};

/** An image for the board's FIRMWARE: version 4.0, `bytes` bytes of content, whose checksum may be wrong. */
Bytes firmwareImage(std::size_t bytes, bool isChecksumWrong);

/** Arguments as they are transmitted. */
class Arguments
{
public:
    Arguments& number(KvUInt32 value)
    {
        for (const unsigned shift : {24u, 16u, 8u, 0u})
            m_bytes.push_back(static_cast<unsigned char>(value >> shift));
        return *this;
    }
    Arguments& longNumber(KvUInt64 value)
    {
        return number(static_cast<KvUInt32>(value >> 32)).number(static_cast<KvUInt32>(value));
    }
    Arguments& counted(std::span<const unsigned char> bytes)
    {
        number(static_cast<KvUInt32>(bytes.size()));
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
        m_bytes.resize((m_bytes.size() + 3) / 4 * 4, 0);
        return *this;
    }
    Arguments& text(std::string_view text)
    {
        return counted({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
    }
    /** The address of an item or parameter. */
    Arguments& address(const char* text);

    const Bytes& bytes() const { return m_bytes; }

private:
    Bytes m_bytes;
};

}  // namespace KvNFuzz
