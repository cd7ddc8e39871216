#include "inventory/KvCInventoryData.h"

#include <climits>
#include <cstring>
#include <memory>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/SectionFormat.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"

using namespace KvNSection;

namespace {

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/** Kept: sizes and versions that do not fit are shown as the four stored bytes in little-endian order; a stored 2 is
    33554432. */
KvInt32 asShown(KvUInt32 stored)
{
    return static_cast<KvInt32>(KvNBigEndian::reversed(static_cast<std::uint32_t>(stored)));
}

/** A frame of type `Frame` at `block`. */
template <class Frame>
Frame frameAt(const void* block)
{
    Frame frame;
    std::memcpy(frame.bytes, block, sizeof frame.bytes);
    return frame;
}

/** Sets the position, counted from the start; also where `long` has 32 bits and the file is larger. */
bool setPosition(std::FILE* file, KvUInt64 position)
{
    bool isSet = std::fseek(file, 0, SEEK_SET) == 0;
    while (isSet && position > 0) {
        const long step = position > LONG_MAX ? LONG_MAX : static_cast<long>(position);
        isSet = std::fseek(file, step, SEEK_CUR) == 0;
        position -= static_cast<KvUInt64>(step);
    }
    return isSet;
}

/** The length of a file whose status says `statusSize`; false, and reported, when it cannot be told. */
bool getLength(KvCErrorListPool& errors, const char* origin, std::FILE* file, KvUInt64 statusSize, KvUInt64& length)
{
    length = statusSize;
    if (std::fseek(file, 0, SEEK_END) != 0) {
        KV_REPORT(errors, FileSetPositionFailed, origin);
        return false;
    }
    const long position = std::ftell(file);
    // A position that `long` cannot hold is no failure.
    if (position < 0 && statusSize <= LONG_MAX) {
        KV_REPORT(errors, FileGetPositionFailed, origin);
        return false;
    }
    if (position >= 0)
        length = static_cast<KvUInt64>(position);
    return true;
}

/** Reads a frame at `position`. */
template <class Frame>
bool readFrame(KvCErrorListPool& errors, const char* origin, std::FILE* file, KvUInt64 position, Frame& frame)
{
    if (!setPosition(file, position))
        KV_REPORT(errors, FileSetPositionFailed, origin);
    else if (std::fread(frame.bytes, 1, sizeof frame.bytes, file) != sizeof frame.bytes)
        KV_REPORT(errors, FileReadFailed, origin);
    else
        return true;
    return false;
}

/** Reads `size` bytes at `position` of a file of `length` bytes into a new block; null when that fails. What the file
    cannot hold takes no memory. */
unsigned char* readBlock(KvCErrorListPool& errors, const char* origin, std::FILE* file, KvUInt64 length,
                         KvUInt64 position, KvUInt32 size)
{
    if (!setPosition(file, position)) {
        KV_REPORT(errors, FileSetPositionFailed, origin);
        return nullptr;
    }
    if (position > length || length - position < size) {
        KV_REPORT(errors, FileReadFailed, origin);
        return nullptr;
    }
    auto* block = static_cast<unsigned char*>(KvNAllocation::allocate(size));
    if (block == nullptr) {
        KV_REPORT(errors, SectionOutOfMemory, origin);
        return nullptr;
    }
    if (std::fread(block, 1, size, file) != size) {
        KV_REPORT(errors, FileReadFailed, origin);
        KvNAllocation::release(block);
        return nullptr;
    }
    return block;
}

/** Writes bytes at the write position, as often as the buffer's counts need. */
void writeBytes(KvCErrorListPool& errors, KvCBuffer& buffer, const unsigned char* data, KvUInt32 size,
                const char* origin)
{
    const KvNReport::Watch watch(errors);
    buffer.writeBuffer(errors, data, size, 1);
    if (watch.grew())
        KV_REPORT(errors, SectionBufferWriteFailed, origin);
}

/** Makes the tree from a section's data; null, and `reportFailure` called, when that fails. */
template <class ReportFailure>
KvCInventoryItem* readTree(KvCErrorListPool& errors, const char* origin, KvCBuffer& data, ReportFailure&& reportFailure)
{
    const KvNReport::Watch watch(errors);
    KvCInventoryItemFactory factory(errors);
    if (watch.grew()) {
        KV_REPORT(errors, SectionFactoryCreateFailed, origin);
        return nullptr;
    }
    KvCInventoryItem* root = nullptr;
    factory.deserialize(errors, root, &data);
    if (!watch.grew())
        return root;
    delete root;
    reportFailure();
    return nullptr;
}

}  // namespace

void KvCInventoryData::writeHeader(KvCErrorListPool& errors, KvCBuffer& buffer, KvUInt32 dataSize, KvInt32 position)
{
    KvInventorySectionHeader header;
    header.fill(dataSize);
    const KvNReport::Watch watch(errors);
    buffer.writeBuffer(errors, header.bytes, FrameSize, 1, position);
    if (watch.grew())
        KV_REPORT(errors, SectionBufferWriteFailed, "KvCInventoryData::writeHeader");
}

void KvCInventoryData::writeTrailer(KvCErrorListPool& errors, KvCBuffer& buffer, KvUInt32 dataSize)
{
    KvInventorySectionTrailer trailer;
    trailer.fill(dataSize);
    writeBytes(errors, buffer, trailer.bytes, FrameSize, "KvCInventoryData::writeTrailer");
}

void KvCInventoryData::generateInventorySection(KvCErrorListPool& errors, KvCBuffer& buffer, KvCInventoryItem* root)
{
    const char* const origin = "KvCInventoryData::generateInventorySection";
    constexpr KvInt32 atWritePosition = -1;
    const KvNReport::Watch watch(errors);
    KvCInventoryItemFactory factory(errors);
    if (watch.grew()) {
        KV_REPORT(errors, SectionFactoryCreateFailed, origin);
        return;
    }
    const KvUInt32 start = buffer.getWritePosition();
    writeHeader(errors, buffer, 0, atWritePosition);
    if (watch.grew())
        return;
    const KvUInt32 dataStart = buffer.getOccupiedSize();
    factory.serialize(errors, &buffer, root);
    if (watch.grew()) {
        KV_REPORT(errors, SectionSerializeFailed, origin);
        return;
    }
    const KvUInt32 dataSize = buffer.getOccupiedSize() - dataStart;
    writeHeader(errors, buffer, dataSize, static_cast<KvInt32>(start));
    writeTrailer(errors, buffer, dataSize);
}

bool KvCInventoryData::checkHeader(KvCErrorListPool& errors, const KvInventorySectionHeader& header)
{
    const char* const origin = "KvCInventoryData::checkHeader";
    if (!header.hasMagic())
        return false;
    if (header.ownSize() < FrameSize) {
        KV_REPORT(errors, SectionHeaderSizeIncompatible, origin, asShown(header.ownSize()), FrameSize);
        return false;
    }
    if (header.version() != Version) {
        KV_REPORT(errors, SectionVersionIncompatible, origin, asShown(header.version()), Version);
        return false;
    }
    return true;
}

bool KvCInventoryData::checkTrailer(KvCErrorListPool& errors, const KvInventorySectionTrailer& trailer)
{
    const char* const origin = "KvCInventoryData::checkTrailer";
    if (!trailer.hasMagic())
        return false;
    if (trailer.ownSize() < FrameSize) {
        KV_REPORT(errors, SectionTrailerSizeIncompatible, origin, asShown(trailer.ownSize()), FrameSize);
        return false;
    }
    if (trailer.version() != Version) {
        KV_REPORT(errors, SectionVersionIncompatible, origin, asShown(trailer.version()), Version);
        return false;
    }
    return true;
}

/** The data that the trailer at the end of the file leads to, in a new block; null when there is none. */
unsigned char* KvCInventoryData::readInventoryDataTrailerFromFile(KvCErrorListPool& errors, std::FILE* file,
                                                                  KvUInt64 fileSize, KvUInt32& size)
{
    const char* const origin = "KvCInventoryData::readInventoryDataTrailerFromFile";
    KvUInt64 length;
    KvInventorySectionTrailer trailer;
    if (!getLength(errors, origin, file, fileSize, length) || length < FrameSize ||
        !readFrame(errors, origin, file, length - FrameSize, trailer) || !checkTrailer(errors, trailer))
        return nullptr;
    size = trailer.dataSize();
    const KvUInt64 fromEnd = static_cast<KvUInt64>(trailer.trailerSize()) + size;
    if (fromEnd > length) {
        KV_REPORT(errors, FileSetPositionFailed, origin);
        return nullptr;
    }
    return readBlock(errors, origin, file, length, length - fromEnd, size);
}

/** The data behind the header at the start of the file, in a new block; null when there is none. */
unsigned char* KvCInventoryData::readInventoryDataHeaderFromFile(KvCErrorListPool& errors, std::FILE* file,
                                                                 KvUInt64 fileSize, KvUInt32& size)
{
    const char* const origin = "KvCInventoryData::readInventoryDataHeaderFromFile";
    KvUInt64 length;
    KvInventorySectionHeader header;
    if (!getLength(errors, origin, file, fileSize, length) || length < FrameSize ||
        !readFrame(errors, origin, file, 0, header) || !checkHeader(errors, header))
        return nullptr;
    size = header.dataSize();
    return readBlock(errors, origin, file, length, header.headerSize(), size);
}

void KvCInventoryData::readInventoryDataFromFile(KvCErrorListPool& errors, const char* path, KvCBuffer& buffer)
{
    const char* const origin = "KvCInventoryData::readInventoryDataFromFile";
    KvUInt64 fileSize = 0;
    KvNRtosAbstraction::FileKind kind;
    File file(KvNRtosAbstraction::openRegularFile(path, &fileSize, &kind));
    if (file == nullptr) {
        KV_REPORT(errors, FileOpenFailed, origin, path);
        return;
    }
    KvUInt32 size = 0;
    const KvNReport::Watch trailerWatch(errors);
    unsigned char* data = readInventoryDataTrailerFromFile(errors, file.get(), fileSize, size);
    if (trailerWatch.grew())
        KV_REPORT(errors, FileInventoryReadFailed, origin, path);
    if (data == nullptr) {
        const KvNReport::Watch headerWatch(errors);
        data = readInventoryDataHeaderFromFile(errors, file.get(), fileSize, size);
        if (headerWatch.grew())
            KV_REPORT(errors, FileInventoryReadFailed, origin, path);
    }
    file.reset();
    if (data != nullptr)
        writeBytes(errors, buffer, data, size, origin);
    KvNAllocation::release(data);
}

/** The data that the trailer at the end of the block leads to; null when there is none. */
const unsigned char* KvCInventoryData::seekInventoryDataTrailerInMem(KvCErrorListPool& errors,
                                                                     const unsigned char* data, unsigned long size,
                                                                     KvUInt32& dataSize)
{
    if (data == nullptr || size < FrameSize)
        return nullptr;
    const auto trailer = frameAt<KvInventorySectionTrailer>(data + (size - FrameSize));
    if (!checkTrailer(errors, trailer))
        return nullptr;
    dataSize = trailer.dataSize();
    const KvUInt64 fromEnd = static_cast<KvUInt64>(trailer.trailerSize()) + dataSize;
    if (fromEnd > size) {
        KV_REPORT(errors, SectionCorrupt, "KvCInventoryData::seekInventoryDataTrailerInMem");
        return nullptr;
    }
    return data + (size - static_cast<unsigned long>(fromEnd));
}

/** The data behind the header at the start of the block; null when there is none. */
const unsigned char* KvCInventoryData::seekInventoryDataHeaderInMem(KvCErrorListPool& errors, const unsigned char* data,
                                                                    unsigned long size, KvUInt32& dataSize)
{
    if (data == nullptr || size < FrameSize)
        return nullptr;
    const auto header = frameAt<KvInventorySectionHeader>(data);
    if (!checkHeader(errors, header))
        return nullptr;
    dataSize = header.dataSize();
    if (static_cast<KvUInt64>(header.headerSize()) + dataSize > size) {
        KV_REPORT(errors, SectionCorrupt, "KvCInventoryData::seekInventoryDataHeaderInMem");
        return nullptr;
    }
    return data + header.headerSize();
}

void KvCInventoryData::readInventoryDataFromMem(KvCErrorListPool& errors, const unsigned char* data, unsigned long size,
                                                KvCBuffer& buffer)
{
    const char* const origin = "KvCInventoryData::readInventoryDataFromMem";
    KvUInt32 dataSize = 0;
    const KvNReport::Watch trailerWatch(errors);
    const unsigned char* found = seekInventoryDataTrailerInMem(errors, data, size, dataSize);
    if (trailerWatch.grew())
        KV_REPORT(errors, MemorySeekFailed, origin);
    if (found == nullptr) {
        const KvNReport::Watch headerWatch(errors);
        found = seekInventoryDataHeaderInMem(errors, data, size, dataSize);
        if (headerWatch.grew())
            KV_REPORT(errors, MemorySeekFailed, origin);
    }
    if (found != nullptr)
        writeBytes(errors, buffer, found, dataSize, origin);
}

void KvCInventoryData::extractInventoryTreeFromFile(KvCErrorListPool& errors, const char* path, KvCInventoryItem*& root)
{
    const char* const origin = "KvCInventoryData::extractInventoryTreeFromFile";
    root = nullptr;
    const KvNReport::Watch watch(errors);
    KvCBuffer data(errors);
    if (watch.grew()) {
        KV_REPORT(errors, SectionBufferCreateFailed, origin);
        return;
    }
    readInventoryDataFromFile(errors, path, data);
    if (!watch.grew() && data.getOccupiedSize() != 0)
        root = readTree(errors, origin, data, [&] { KV_REPORT(errors, FileDeserializeFailed, origin, path); });
}

void KvCInventoryData::extractInventoryTreeFromMem(KvCErrorListPool& errors, const unsigned char* data,
                                                   unsigned long size, KvCInventoryItem*& root)
{
    const char* const origin = "KvCInventoryData::extractInventoryTreeFromMem";
    root = nullptr;
    const KvNReport::Watch watch(errors);
    KvCBuffer found(errors);
    if (watch.grew()) {
        KV_REPORT(errors, SectionBufferCreateFailed, origin);
        return;
    }
    readInventoryDataFromMem(errors, data, size, found);
    if (!watch.grew() && found.getOccupiedSize() != 0)
        root = readTree(errors, origin, found, [&] { KV_REPORT(errors, MemoryDeserializeFailed, origin); });
}

void KvCInventoryData::getInventorySectionSizeFromMem(KvCErrorListPool& errors, const char* data, unsigned long size,
                                                      KvUInt32& sizeByHeader, KvUInt32& sizeByTrailer)
{
    constexpr KvUInt64 largest = 0xFFFFFFFF;
    sizeByHeader = 0;
    sizeByTrailer = 0;
    if (data == nullptr || size < FrameSize)
        return;
    /** False when the section would not fit into the block. */
    const auto take = [&](KvUInt64 announced, KvUInt32& result) {
        result = static_cast<KvUInt32>(announced > largest ? largest : announced);
        if (announced <= size)
            return true;
        KV_REPORT(errors, SectionCorrupt, "KvCInventoryData::getInventorySectionSizeFromMem");
        return false;
    };
    const auto header = frameAt<KvInventorySectionHeader>(data);
    if (checkHeader(errors, header) && !take(header.sectionSize(), sizeByHeader))
        return;
    const auto trailer = frameAt<KvInventorySectionTrailer>(data + (size - FrameSize));
    if (checkTrailer(errors, trailer))
        take(trailer.sectionSize(), sizeByTrailer);
}
