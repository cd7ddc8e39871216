#pragma once

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "SampleBoard.h"
#include "base/Crc32.h"
#include "base/KvCBuffer.h"
#include "tools/kvboardd/Image.h"

/** An image in memory; reading fails from `failAt` on. */
class MemoryImage : public KvNBoardService::ImageSource
{
public:
    static constexpr KvUInt64 never = ~KvUInt64(0);

    explicit MemoryImage(std::vector<unsigned char> bytes, KvUInt64 failAt = never)
        : m_bytes(std::move(bytes)), m_failAt(failAt)
    {}
    KvUInt64 size() const override { return m_bytes.size(); }
    bool read(KvUInt64 offset, std::span<unsigned char> bytes, std::string& problem) const override
    {
        problem = "the disk is gone";
        if (offset + bytes.size() > m_bytes.size() || offset >= m_failAt)
            return false;
        std::copy_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(offset), bytes.size(), bytes.begin());
        return true;
    }

private:
    std::vector<unsigned char> m_bytes;
    KvUInt64 m_failAt;
};

/** Puts an image together: content, and a section with the fields that are named. */
class ImageMaker
{
public:
    ImageMaker()
    {
        KvCErrorListPool errors;
        m_root.reset(new KvCInventoryItem(errors, KvNInventoryIDs::ROOT, nullptr));
    }
    template <class T>
    ImageMaker& with(const char* address, const T& value)
    {
        KvCErrorListPool errors;
        m_root->createParameter<T>(errors, at(address), value, "", false, 0, nullptr, nullptr, nullptr);
        EXPECT_EQ(errors.getErrorCount(), 0u);
        return *this;
    }
    ImageMaker& withVersion(const char* address, const char* version)
    {
        return with(address, KvCVersion(KvCString(version)));
    }
    std::vector<unsigned char> section() const
    {
        KvCErrorListPool errors;
        KvCBuffer buffer(errors);
        KvCInventoryData::generateInventorySection(errors, buffer, m_root.get());
        EXPECT_EQ(errors.getErrorCount(), 0u);
        const auto* bytes = reinterpret_cast<const unsigned char*>(buffer.getStartPointer());
        return {bytes, bytes + buffer.getOccupiedSize()};
    }
    std::vector<unsigned char> image(std::vector<unsigned char> content = {}) const
    {
        const std::vector<unsigned char> behind = section();
        content.insert(content.end(), behind.begin(), behind.end());
        return content;
    }

private:
    std::unique_ptr<KvCInventoryItem> m_root;
};

/** An image for the sample board's FIRMWARE: version 4.0, `bytes` bytes of content whose checksum is right. */
inline std::vector<unsigned char> goodImage(std::size_t bytes, KvUInt32 wrong = 0)
{
    std::vector<unsigned char> content(bytes);
    for (std::size_t i = 0; i < bytes; ++i)
        content[i] = static_cast<unsigned char>(i * 7);
    ImageMaker maker;
    maker.withVersion("FIRMWARE/VERSION", "4.0");
    maker.with<KvUInt32>("FIRMWARE/CHECKSUM_CRC32", KvNCrc32::crc32(0, content.data(), bytes) ^ wrong);
    return maker.image(std::move(content));
}
