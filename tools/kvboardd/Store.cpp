#include "tools/kvboardd/Store.h"

#include <utility>

#include "platform/service/Directory.h"

namespace KvNBoardService {

namespace {

constexpr const char* inventoryFile = "inventory.inv";
constexpr std::size_t largestSection = std::size_t(1) << 30;

}  // namespace

Store::Store(std::unique_ptr<KvNService::Directory> directory, std::string inventoryName)
    : m_directory(std::move(directory)), m_inventoryName(std::move(inventoryName))
{}

Store::~Store() = default;

std::unique_ptr<Store> Store::open(const std::string& directory, KvUInt32 serial, std::string& problem)
{
    const std::unique_ptr<KvNService::Directory> root = KvNService::Directory::open(directory, problem);
    if (!root)
        return nullptr;
    const std::string name = std::to_string(serial);
    std::unique_ptr<KvNService::Directory> own = root->sub(name, problem);
    if (!own || !own->lock(problem))
        return nullptr;
    return std::unique_ptr<Store>(new Store(std::move(own), directory + "/" + name + "/" + inventoryFile));
}

bool Store::readInventory(std::vector<unsigned char>& section, std::string& problem) const
{
    bool found = false;
    return m_directory->read(inventoryFile, largestSection, section, found, problem);
}

bool Store::writeInventory(std::span<const unsigned char> section, std::string& problem) const
{
    return m_directory->replace(inventoryFile, section, problem);
}

}  // namespace KvNBoardService
