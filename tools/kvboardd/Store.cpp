#include "tools/kvboardd/Store.h"

#include <utility>

#include "platform/service/Directory.h"

namespace KvNBoardService {

namespace {

constexpr const char* inventoryFile = "inventory.inv";
constexpr const char* updateFile = "update.json";
constexpr std::size_t largestSection = std::size_t(1) << 30;
constexpr std::size_t largestRecord = std::size_t(16) << 20;

}  // namespace

Store::Store(std::unique_ptr<KvNService::Directory> directory, std::string path)
    : m_directory(std::move(directory)), m_path(std::move(path))
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
    return std::unique_ptr<Store>(new Store(std::move(own), directory + "/" + name + "/"));
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

bool Store::readUpdate(std::optional<std::string>& text, std::string& problem) const
{
    bool found = false;
    std::vector<unsigned char> bytes;
    if (!m_directory->read(updateFile, largestRecord, bytes, found, problem))
        return false;
    text.reset();
    if (found)
        text.emplace(bytes.begin(), bytes.end());
    return true;
}

bool Store::writeUpdate(std::string_view text, std::string& problem) const
{
    return m_directory->replace(updateFile, {reinterpret_cast<const unsigned char*>(text.data()), text.size()},
                                problem);
}

std::string Store::inventoryName() const
{
    return m_path + inventoryFile;
}

std::string Store::updateName() const
{
    return m_path + updateFile;
}

}  // namespace KvNBoardService
