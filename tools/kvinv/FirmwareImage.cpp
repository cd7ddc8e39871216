#include "tools/kvinv/FirmwareImage.h"

#include <vector>

#include "inventory/KvCInventoryData.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "tools/common/ParameterText.h"
#include "tools/kvinv/Numbers.h"
#include "tools/kvinv/TreeWalk.h"

namespace FirmwareImage {

namespace {

/** An item that describes firmware of a type; index 0 is any. */
struct Row
{
    KvUInt32 category;
    KvUInt32 index;
    Type type;
    const char* name;

    bool isOf(const KvCInventoryAddress& id) const
    {
        return category == id.getCategoryAt(0) && (index == 0 || index == id.getIndexAt(0));
    }
};

const std::vector<Row>& rows()
{
    static const std::vector<Row> list = {
#define KV_FIRMWARE_ITEM(category, index, type) \
    {KvNInventoryIDs::category.getCategory(), index, KvNInventoryManager::type, #category},
#include "tools/common/FirmwareItems.def"
#undef KV_FIRMWARE_ITEM
    };
    return list;
}

Type byName(const std::string& name)
{
#define KV_FIRMWARE_TYPE(number, wireNumber, typeName) \
    if (name == #typeName)                             \
        return KvNInventoryManager::typeName;
#include "manager/FirmwareTypes.def"
#undef KV_FIRMWARE_TYPE
    return KvNInventoryManager::Invalid;
}

/** The type that the services number so. */
Type byWireNumber(KvUInt32 number)
{
    switch (number) {
#define KV_FIRMWARE_TYPE(libraryNumber, wireNumber, typeName) \
    case wireNumber:                                          \
        return KvNInventoryManager::typeName;
#include "manager/FirmwareTypes.def"
#undef KV_FIRMWARE_TYPE
        default:
            return KvNInventoryManager::Invalid;
    }
}

Type byAddress(const KvCInventoryAddress& address)
{
    for (const Row& row : rows()) {
        if (row.isOf(address))
            return row.type;
    }
    return KvNInventoryManager::Invalid;
}

std::optional<KvCVersion> versionOf(const KvCInventoryParameter& parameter)
{
    if (const KvCVersion* value = parameter.valueIf<KvCVersion>(); value != nullptr)
        return *value;
    KvCVersion version;
    if (KvNParameterText::parseVersion(KvNParameterText::valueText(parameter), version))
        return version;
    return std::nullopt;
}

/** The item that describes firmware of the type: the one with the ID `wanted`, else the first. */
const KvCInventoryItem* fittingItem(const KvCInventoryItem& root, Type type, const KvCInventoryAddress& wanted)
{
    const KvCInventoryItem* found = nullptr;
    walkTree(root, [&](const KvCInventoryItem& item, const PathText&) {
        bool fits = false;
        for (const Row& row : rows())
            fits = fits || (row.type == type && row.category == item.getClassId());
        const bool isWanted = fits && item.getID() == wanted;
        if (fits && (found == nullptr || isWanted))
            found = &item;
        return !isWanted;
    });
    return found;
}

}  // namespace

bool typeOf(const Options& options, const KvCInventoryAddress& address, Type& type, std::optional<KvUInt32>& kind,
            Console& console)
{
    if (options.kind) {
        KvUInt64 number = 0;
        if (!parseNumber(*options.kind, 0xFFFFFFFF, number)) {
            console.problem("--kind takes a number from 0 to 4294967295, not " + *options.kind);
            return false;
        }
        kind = static_cast<KvUInt32>(number);
    }
    type = options.firmwareType ? byName(*options.firmwareType) : byAddress(address.getLastElement());
    if (type == KvNInventoryManager::Invalid && kind)
        type = byWireNumber(*kind);
    if (type != KvNInventoryManager::Invalid)
        return true;
    console.problem(options.arguments[0] + " does not say which firmware is meant; --type does");
    return false;
}

std::string itemNames(Type type)
{
    std::vector<const char*> names;
    for (const Row& row : rows()) {
        if (row.type == type)
            names.push_back(row.name);
    }
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        text += std::string(i == 0 ? "" : i + 1 == names.size() ? " or " : ", ") + names[i];
    return text;
}

Content read(const std::string& path, Type type, const KvCInventoryAddress& item, Console& console)
{
    Content content;
    KvCErrorListPool errors;
    KvCInventoryItem* extracted = nullptr;
    KvCInventoryData::extractInventoryTreeFromFile(errors, path.c_str(), extracted);
    const std::unique_ptr<KvCInventoryItem> tree(extracted);
    console.report(errors);
    content.isBroken = tree == nullptr && errors.getErrorCount() > 0;
    if (tree == nullptr)
        return content;
    content.hasSection = true;
    const KvCInventoryItem* found = fittingItem(*tree, type, item.getLastElement());
    if (found == nullptr)
        return content;
    content.hasItem = true;
    if (const KvCInventoryParameter* version = found->getParameter(KvNInventoryIDs::VERSION); version != nullptr)
        content.version = versionOf(*version);
    return content;
}

std::optional<KvCVersion> versionOnBoard(const Boards& boards, const KvCInventoryAddress& address, Console& console)
{
    KvCErrorListPool errors;
    KvCInventoryParameter parameter;
    const long result = KvCInventoryManager::getInstance().readParameter(errors, boards.handle(),
                                                                         address / KvNInventoryIDs::VERSION, parameter);
    console.report(errors);
    return result == 0 ? versionOf(parameter) : std::nullopt;
}

}  // namespace FirmwareImage
