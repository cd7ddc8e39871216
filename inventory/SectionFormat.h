#pragma once

#include <cstddef>

#include "base/BigEndian.h"
#include "platform/KvTypes.h"

/**
 * The frame of an inventory section, for writer, checker, size query, tests and fuzzers; docs/formats.md describes it
 * with an example. A section is a header, the serialized tree, and a trailer that mirrors the header, so that it is
 * found from either end. All fields are unsigned 32-bit big-endian numbers (the two magic words are eight fixed bytes).
 * Part of stored formats: nothing here may ever change.
 */
namespace KvNSection {

inline constexpr KvUInt32 Magic1 = 0x494E5645;  // "INVE"
inline constexpr KvUInt32 Magic2 = 0x554B56AA;
inline constexpr KvUInt32 Version = 1;
/** Size of header and of trailer. Stored sizes above it are accepted: positions are computed from what is stored. */
inline constexpr KvUInt32 FrameSize = 24;

/** Where the fields stand in a frame. */
struct Layout
{
    std::size_t magic1;
    std::size_t magic2;
    std::size_t version;
    std::size_t headerSize;
    std::size_t dataSize;
    std::size_t trailerSize;
    std::size_t ownSize;  ///< the field that holds the size of the frame itself
};
inline constexpr Layout Header = {0, 4, 8, 12, 16, 20, 12};
inline constexpr Layout Trailer = {16, 20, 12, 0, 4, 8, 8};

}  // namespace KvNSection

/** The bytes of a frame, with its fields as numbers. */
template <const KvNSection::Layout& layout>
struct KvPInventorySectionFrame
{
    unsigned char bytes[KvNSection::FrameSize];

    bool hasMagic() const
    {
        return get(layout.magic1) == KvNSection::Magic1 && get(layout.magic2) == KvNSection::Magic2;
    }
    KvUInt32 version() const { return get(layout.version); }
    KvUInt32 headerSize() const { return get(layout.headerSize); }
    KvUInt32 dataSize() const { return get(layout.dataSize); }
    KvUInt32 trailerSize() const { return get(layout.trailerSize); }
    /** The size of this frame, as stored in it. */
    KvUInt32 ownSize() const { return get(layout.ownSize); }
    KvUInt64 sectionSize() const { return static_cast<KvUInt64>(headerSize()) + dataSize() + trailerSize(); }

    /** Makes this the frame as it is written around `size` bytes of data. */
    void fill(KvUInt32 size)
    {
        set(layout.magic1, KvNSection::Magic1);
        set(layout.magic2, KvNSection::Magic2);
        set(layout.version, KvNSection::Version);
        set(layout.headerSize, KvNSection::FrameSize);
        set(layout.dataSize, size);
        set(layout.trailerSize, KvNSection::FrameSize);
    }

private:
    KvUInt32 get(std::size_t offset) const { return KvNBigEndian::load<KvUInt32>(bytes + offset); }
    void set(std::size_t offset, KvUInt32 value) { KvNBigEndian::store(bytes + offset, value); }
};

struct KvInventorySectionHeader : KvPInventorySectionFrame<KvNSection::Header>
{};
struct KvInventorySectionTrailer : KvPInventorySectionFrame<KvNSection::Trailer>
{};

static_assert(sizeof(KvInventorySectionHeader) == KvNSection::FrameSize);
static_assert(sizeof(KvInventorySectionTrailer) == KvNSection::FrameSize);
