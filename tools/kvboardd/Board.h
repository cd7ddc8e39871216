#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "inventory/KvCInventoryAddress.h"
#include "platform/KvTypes.h"
#include "tools/kvboardd/Update.h"

class KvCBuffer;
class KvCErrorListPool;
class KvCInventoryItem;
class KvCInventoryParameter;

namespace KvNBoardService {

class Store;

/** Who a board is, where it listens, and its tree as its user described it. */
struct BoardDescription
{
    BoardDescription();
    BoardDescription(BoardDescription&&) noexcept;
    BoardDescription& operator=(BoardDescription&&) noexcept;
    ~BoardDescription();

    KvUInt32 serialNumber = 0;
    KvUInt32 boardType = 0;
    std::string boardName;
    std::string systemName;
    KvUInt32 address = 0x7F000001;  ///< IPv4, host order
    bool isMachine = false;  ///< it is the machine itself: always as it is now, whatever was stored or is to be updated
    std::unique_ptr<KvCInventoryItem> tree;
};

/** A value as it was transmitted: its type code and its bytes, the most significant first. */
struct WireValue
{
    KvUInt32 type = 0;
    std::span<const unsigned char> bytes;
};

/**
 * One board: its identity, its inventory tree, and the values that were written to it but not applied yet. Such a value
 * is the parameter's designated value; all of them belong to one access id. Who may write is not decided here.
 * Addresses begin with the root's element, as in HCN[4711]/FIRMWARE/VERSION. Operations return false when they failed,
 * and then have reported why; nothing has changed then.
 */
class Board : public UpdateTarget
{
public:
    struct Limits
    {
        std::size_t textBytes = 65536;  ///< of a text that is written
    };

    /** Owns what it is given. `store` may be null: then values last as long as the object. */
    Board(BoardDescription description, std::unique_ptr<Store> store, const Limits& limits);
    ~Board() override;

    /** Takes the tree that the store holds, if it holds one, instead of the described one. False, and why in `problem`,
        when it cannot be read or is another board's. */
    bool restore(std::string& problem);

    KvUInt32 serialNumber() const { return m_description.serialNumber; }
    KvUInt32 boardType() const { return m_description.boardType; }
    const std::string& boardName() const { return m_description.boardName; }
    bool isMachine() const { return m_description.isMachine; }
    const std::string& systemName() const { return m_description.systemName; }
    KvUInt32 address() const { return m_description.address; }
    /** The address of the tree's root. */
    KvCInventoryAddress localAddress() const;
    const KvCInventoryItem& tree() const override { return *m_description.tree; }

    /** The tree as a stream; null when it failed. Valid until the board changes or is asked for a parameter. */
    const KvCBuffer* scan(KvCErrorListPool& errors);

    /** Whether there is an item or a parameter at `address`; reports when not. */
    bool contains(KvCErrorListPool& errors, const KvCInventoryAddress& address) const;

    /** One parameter with its current value as a stream, into `out`. */
    bool read(KvCErrorListPool& errors, const KvCInventoryAddress& address, KvCBuffer& out) const;

    /** Makes `value` the designated value of the parameter at `address`, on behalf of `accessId`; values that another
        id has written are dropped. When it fails for want of memory, no value of the parameter is left to apply. */
    bool write(KvCErrorListPool& errors, KvUInt32 accessId, const KvCInventoryAddress& address, const WireValue& value);

    /** Makes every value that `accessId` has written at `address` or below it current, and stores the tree. All of them
        or none; `applied` says how many. */
    bool apply(KvCErrorListPool& errors, KvUInt32 accessId, const KvCInventoryAddress& address, std::size_t& applied);

    /** Drops the values that `accessId` has written and not applied; gives back how many. */
    std::size_t dropWritten(KvUInt32 accessId);

    /** How many values are written and not applied. */
    std::size_t writtenCount() const { return m_written.size(); }

    // For the board's update.
    const KvCInventoryItem* item(KvCErrorListPool& errors, const KvCInventoryAddress& address) const override;
    /** A value for that version that was written and not applied is dropped: it was meant for the former one. */
    bool setVersion(KvCErrorListPool& errors, const KvCInventoryAddress& address, const KvCVersion& version) override;
    bool remember(KvCErrorListPool& errors, const UpdateRecord& record) override;
    bool recall(UpdateRecord& record, std::string& problem) const override;

private:
    struct Place
    {
        KvCInventoryItem* item = nullptr;
        KvCInventoryParameter* parameter = nullptr;
    };
    class Change;

    bool find(KvCErrorListPool& errors, const KvCInventoryAddress& address, Place& place, const char* origin) const;
    bool check(KvCErrorListPool& errors, const KvCInventoryParameter& parameter, const std::string& name,
               const WireValue& value) const;
    bool designate(KvCErrorListPool& errors, KvCInventoryParameter& parameter, const WireValue& value) const;
    std::vector<KvCInventoryParameter*> writtenAt(const Place& place) const;
    bool store(KvCErrorListPool& errors) const;
    bool storeTree(KvCErrorListPool& errors) const;

    BoardDescription m_description;
    std::unique_ptr<Store> m_store;
    Limits m_limits;
    std::vector<KvCInventoryParameter*> m_written;
    KvUInt32 m_writer = 0;
    std::unique_ptr<KvCBuffer> m_stream;  ///< the tree as it is now; null when it must be made anew
};

/** An address as text for messages, at most 200 characters of it. */
std::string shownAddress(const KvCInventoryAddress& address);

}  // namespace KvNBoardService
