#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/KvCVersion.h"
#include "platform/KvTypes.h"

class KvCErrorListPool;
class KvCInventoryItem;

namespace KvNBoardService {

/** Where the bytes of an image come from. Whoever holds one keeps the image from being replaced or deleted. */
class ImageSource
{
public:
    virtual ~ImageSource() = default;
    virtual KvUInt64 size() const = 0;
    /** Fills `bytes` from `offset`; false, and why in `problem`, when that fails. */
    virtual bool read(KvUInt64 offset, std::span<unsigned char> bytes, std::string& problem) const = 0;
};

/** The name of a firmware type in the numbering of the wire, such as "UserFirmware"; null when it is none. */
const char* firmwareTypeName(KvUInt32 firmwareType);

/**
 * A firmware image: content, and an inventory section that says what the content is and for which boards. The section
 * stands at the end of the image, or at its start, and then there is no content in front of it. Only the section is
 * held in memory; the content is read slice by slice, when it is verified.
 */
class Image
{
public:
    static constexpr KvUInt32 largestSection = 1 << 20;
    static constexpr std::size_t sliceBytes = std::size_t(512) << 10;

    enum class Verification
    {
        Unfinished,
        Good,
        Failed
    };

    /**
     * Reads the section, and checks whether the image is one of `firmwareType` (as on the wire) that fits `item` of the
     * board with the root `board`. Where a field of the image or of the board is absent, it is not compared. Of several
     * items that suit the firmware type the one with the ID of `item` counts, else the first.
     * @return null, and reported, when the image cannot be read or does not fit. May throw std::bad_alloc.
     */
    static std::unique_ptr<Image> open(KvCErrorListPool& errors, std::unique_ptr<ImageSource> source,
                                       KvUInt32 firmwareType, const KvCInventoryItem& board,
                                       const KvCInventoryItem& item);

    /** The version that the item has after the update. */
    const KvCVersion& version() const { return m_version; }

    /** Bytes in front of the section, and how many of them have been verified. */
    KvUInt64 contentBytes() const { return m_contentBytes; }
    KvUInt64 verifiedBytes() const { return m_verifiedBytes; }

    /** Verifies the next slice of the content: Good with the last one, when the checksum agrees; reports a failure. */
    Verification verify(KvCErrorListPool& errors);

private:
    explicit Image(std::unique_ptr<ImageSource> source) : m_source(std::move(source)) {}

    std::unique_ptr<KvCInventoryItem> readSection(KvCErrorListPool& errors);
    bool findSection(KvCErrorListPool& errors, KvUInt64& start, KvUInt64& size) const;
    bool read(KvCErrorListPool& errors, KvUInt64 offset, std::span<unsigned char> bytes) const;
    bool takeContent(KvCErrorListPool& errors, const KvCInventoryItem& described);

    std::unique_ptr<ImageSource> m_source;
    KvCVersion m_version;
    KvUInt64 m_contentBytes = 0;
    KvUInt64 m_verifiedBytes = 0;
    std::optional<KvUInt64> m_checksum;  ///< what the content should have
    KvUInt32 m_soFar = 0;                ///< checksum of what has been verified
    std::vector<unsigned char> m_slice;
};

}  // namespace KvNBoardService
