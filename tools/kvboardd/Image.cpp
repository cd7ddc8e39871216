#include "tools/kvboardd/Image.h"

#include <algorithm>
#include <type_traits>
#include <utility>

#include "base/Crc32.h"
#include "base/Report.h"
#include "composite/ElementTypes.h"
#include "inventory/KvCInventoryData.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryParameter.h"
#include "inventory/SectionFormat.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "tools/kvboardd/Board.h"

namespace KvNBoardService {

namespace {

namespace ID = KvNInventoryIDs;
using Number = std::optional<KvUInt64>;

/** The firmware types, numbered as on the wire. */
enum FirmwareType : KvUInt32
{
#define KV_FIRMWARE_TYPE(number, wireNumber, name) name = wireNumber,
#include "manager/FirmwareTypes.def"
#undef KV_FIRMWARE_TYPE
};

/** Whether an item of this category describes firmware of that type. */
bool suits(KvUInt32 firmwareType, KvUInt32 category)
{
#define KV_FIRMWARE_ITEM(name, index, type)                         \
    if (firmwareType == type && category == ID::name.getCategory()) \
        return true;
#include "tools/common/FirmwareItems.def"
#undef KV_FIRMWARE_ITEM
    return false;
}

/** The item behind `item` in the order of the tree that begins at `root`; null behind the last. */
const KvCInventoryItem* nextItem(const KvCInventoryItem* item, const KvCInventoryItem* root)
{
    if (item->getFirstSubItem() != nullptr)
        return item->getFirstSubItem();
    while (item != root && item->getNext() == nullptr)
        item = item->getParent();
    return item == root ? nullptr : item->getNext();
}

/** The item of an image that an update of this type is about. */
const KvCInventoryItem* findItem(const KvCInventoryItem& root, KvUInt32 firmwareType, const KvCInventoryAddress& likely)
{
    const KvCInventoryItem* first = nullptr;
    for (const KvCInventoryItem* item = &root; item != nullptr; item = nextItem(item, &root)) {
        if (!suits(firmwareType, item->getID().getCategory()))
            continue;
        if (item->getID() == likely)
            return item;
        if (first == nullptr)
            first = item;
    }
    return first;
}

/** The number that is the field `id` of an item, nothing when there is none; false, and reported, when it is something
    else. */
bool readNumber(KvCErrorListPool& errors, const KvCInventoryItem& item, const KvCInventoryAddress& id, Number& number)
{
    number.reset();
    const KvCInventoryParameter* parameter = item.getParameter(id);
    if (parameter == nullptr)
        return true;
    KvNElement::dispatch(
        parameter->getType(),
        [&](auto type) {
            using T = typename decltype(type)::Value;
            if constexpr (std::is_integral_v<T>) {
                const T* value = parameter->valueIf<T>();
                if (value != nullptr && !(std::is_signed_v<T> && *value < T(0)))
                    number = static_cast<KvUInt64>(*value);
            }
        },
        [] {});
    if (number)
        return true;
    KV_REPORT(errors, BoardImageNoNumber, "Image::open", shownAddress(parameter->getAddress()));
    return false;
}

/** "2 to 5 or 7": which hardware an image is for. */
std::string hardwareText(const Number& least, const Number& most, const Number& exact)
{
    std::string text;
    if (least && most)
        text = std::to_string(*least) + " to " + std::to_string(*most);
    else if (least)
        text = "from " + std::to_string(*least);
    else if (most)
        text = "up to " + std::to_string(*most);
    if (exact)
        text += (text.empty() ? "" : " or ") + std::to_string(*exact);
    return text;
}

bool fitsHardware(KvCErrorListPool& errors, const KvCInventoryItem& described, const KvCInventoryItem& board)
{
    Number least;
    Number most;
    Number exact;
    Number actual;
    if (!readNumber(errors, described, ID::MIN_HW_COMPATIBILITY_ID, least) ||
        !readNumber(errors, described, ID::MAX_HW_COMPATIBILITY_ID, most) ||
        !readNumber(errors, described, ID::HW_COMPATIBILITY_ID, exact) ||
        !readNumber(errors, board, ID::HW_COMPATIBILITY_ID, actual))
        return false;
    if (!actual || (!least && !most && !exact))
        return true;
    const bool isWithin = (least || most) && (!least || *actual >= *least) && (!most || *actual <= *most);
    if (isWithin || (exact && *actual == *exact))
        return true;
    KV_REPORT(errors, BoardImageForOtherHardware, "Image::open", hardwareText(least, most, exact),
              std::to_string(*actual));
    return false;
}

bool fitsFirmware(KvCErrorListPool& errors, const KvCInventoryItem& described, const KvCInventoryItem& item)
{
    Number least;
    Number actual;
    if (!readNumber(errors, described, ID::MIN_FW_COMPATIBILITY_ID, least) ||
        !readNumber(errors, item, ID::FW_COMPATIBILITY_ID, actual))
        return false;
    if (!least || !actual || *actual >= *least)
        return true;
    KV_REPORT(errors, BoardImageForOtherFirmware, "Image::open", std::to_string(*least), std::to_string(*actual));
    return false;
}

}  // namespace

const char* firmwareTypeName(KvUInt32 firmwareType)
{
    switch (firmwareType) {
#define KV_FIRMWARE_TYPE(number, wireNumber, name) \
    case wireNumber:                               \
        return name == Invalid ? nullptr : #name;
#include "manager/FirmwareTypes.def"
#undef KV_FIRMWARE_TYPE
        default:
            return nullptr;
    }
}

std::unique_ptr<Image> Image::open(KvCErrorListPool& errors, std::unique_ptr<ImageSource> source, KvUInt32 firmwareType,
                                   const KvCInventoryItem& board, const KvCInventoryItem& item)
{
    const char* const origin = "Image::open";
    const char* const typeName = firmwareTypeName(firmwareType);
    if (typeName == nullptr) {
        KV_REPORT(errors, BoardFirmwareTypeUnknown, origin, firmwareType);
        return nullptr;
    }
    std::unique_ptr<Image> image(new Image(std::move(source)));
    const std::unique_ptr<KvCInventoryItem> section = image->readSection(errors);
    if (!section)
        return nullptr;
    const KvCInventoryItem* described = findItem(*section, firmwareType, item.getID());
    if (described == nullptr) {
        KV_REPORT(errors, BoardImageNoItem, origin, typeName);
        return nullptr;
    }
    const KvCInventoryParameter* version = described->getParameter(ID::VERSION);
    const KvCVersion* value = version == nullptr ? nullptr : version->valueIf<KvCVersion>();
    if (value == nullptr) {
        KV_REPORT(errors, BoardImageNoVersion, origin, shownAddress(described->getAddress()));
        return nullptr;
    }
    image->m_version = *value;
    if (!fitsHardware(errors, *described, board) || !fitsFirmware(errors, *described, item) ||
        !image->takeContent(errors, *described))
        return nullptr;
    return image;
}

bool Image::read(KvCErrorListPool& errors, KvUInt64 offset, std::span<unsigned char> bytes) const
{
    std::string problem;
    if (m_source->read(offset, bytes, problem))
        return true;
    KV_REPORT(errors, BoardImageUnreadable, "Image::read", problem);
    return false;
}

/** Where the section begins and how long it is, as its trailer or else its header announces. */
bool Image::findSection(KvCErrorListPool& errors, KvUInt64& start, KvUInt64& size) const
{
    const KvUInt64 all = m_source->size();
    KvInventorySectionTrailer trailer{};
    KvInventorySectionHeader header{};
    if (all >= KvNSection::FrameSize &&
        (!read(errors, all - KvNSection::FrameSize, trailer.bytes) || !read(errors, 0, header.bytes)))
        return false;
    if (!trailer.hasMagic() && !header.hasMagic()) {
        KV_REPORT(errors, BoardImageNoSection, "Image::findSection");
        return false;
    }
    size = trailer.hasMagic() ? trailer.sectionSize() : header.sectionSize();
    if (size > all || size > largestSection) {
        KV_REPORT(errors, BoardImageSectionSize, "Image::findSection", std::to_string(size),
                  std::to_string(std::min<KvUInt64>(all, largestSection)));
        return false;
    }
    start = trailer.hasMagic() ? all - size : 0;
    return true;
}

std::unique_ptr<KvCInventoryItem> Image::readSection(KvCErrorListPool& errors)
{
    KvUInt64 size = 0;
    if (!findSection(errors, m_contentBytes, size))
        return nullptr;
    std::vector<unsigned char> section(static_cast<std::size_t>(size));
    if (!read(errors, m_contentBytes, section))
        return nullptr;
    KvCInventoryItem* root = nullptr;
    KvCInventoryData::extractInventoryTreeFromMem(errors, section.data(), section.size(), root);
    if (root == nullptr)
        KV_REPORT(errors, BoardImageSectionDamaged, "Image::readSection");
    return std::unique_ptr<KvCInventoryItem>(root);
}

/** Compares what the image says of its content with the content, as far as that can be done at once. */
bool Image::takeContent(KvCErrorListPool& errors, const KvCInventoryItem& described)
{
    Number size;
    if (!readNumber(errors, described, ID::SIZE, size) ||
        !readNumber(errors, described, ID::CHECKSUM_CRC32, m_checksum))
        return false;
    if (size && *size != m_contentBytes) {
        KV_REPORT(errors, BoardImageContentSize, "Image::open", std::to_string(*size), std::to_string(m_contentBytes));
        return false;
    }
    m_slice.resize(static_cast<std::size_t>(std::min<KvUInt64>(m_contentBytes, sliceBytes)));
    return true;
}

Image::Verification Image::verify(KvCErrorListPool& errors)
{
    const KvUInt64 left = m_contentBytes - m_verifiedBytes;
    const auto slice = std::span(m_slice).first(static_cast<std::size_t>(std::min<KvUInt64>(left, m_slice.size())));
    if (!slice.empty() && !read(errors, m_verifiedBytes, slice))
        return Verification::Failed;
    m_soFar = KvNCrc32::crc32(m_soFar, slice.data(), slice.size());
    m_verifiedBytes += slice.size();
    if (m_verifiedBytes != m_contentBytes)
        return Verification::Unfinished;
    if (!m_checksum || *m_checksum == m_soFar)
        return Verification::Good;
    KV_REPORT(errors, BoardImageChecksum, "Image::verify", *m_checksum, m_soFar);
    return Verification::Failed;
}

}  // namespace KvNBoardService
