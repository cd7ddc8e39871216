#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/KvTypes.h"

namespace KvNService {
class Directory;
}

namespace KvNBoardService {

/**
 * Where one board's state lasts: the folder SERIAL in the folder given with --state, and in it `inventory.inv`, the
 * board's tree with the values written as an inventory section, and `update.json`, how its update stands. One service
 * at a time uses it.
 */
class Store
{
public:
    /** Opens the store of board `serial` in the folder `directory`, made when it is not there; null, and why in
        `problem`. */
    static std::unique_ptr<Store> open(const std::string& directory, KvUInt32 serial, std::string& problem);
    ~Store();

    /** The section last written; no bytes when none has been. False, and why in `problem`, when it cannot be read. */
    bool readInventory(std::vector<unsigned char>& section, std::string& problem) const;

    /** Replaces the section as a whole: it is the old or the new one at any instant. */
    bool writeInventory(std::span<const unsigned char> section, std::string& problem) const;

    /** The record of the board's update last written; null when none has been. False, and why in `problem`, when it
        cannot be read. */
    bool readUpdate(std::optional<std::string>& text, std::string& problem) const;

    /** Replaces that record as a whole: it is the old or the new one at any instant. */
    bool writeUpdate(std::string_view text, std::string& problem) const;

    /** The name of the section's file, for messages. */
    std::string inventoryName() const;
    /** The name of the record's file, for messages. */
    std::string updateName() const;

private:
    Store(std::unique_ptr<KvNService::Directory> directory, std::string path);

    std::unique_ptr<KvNService::Directory> m_directory;
    std::string m_path;
};

}  // namespace KvNBoardService
