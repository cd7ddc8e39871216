#pragma once

#include "platform/KvTypes.h"

/**
 * The tagged binary stream of a tree, for writer, reader, tests and fuzzers; docs/formats.md describes it with an
 * example. All integers are big-endian; records follow each other without header, alignment or padding. Part of stored
 * and transmitted formats: nothing here may ever change.
 *
 *     start      tag, class id u32, unit id u32, n u8, n bytes of description (with its NUL)
 *     end        tag
 *     parameter  tag, L u32, id u32, type word u32, n u8, n bytes of description, value, custom data
 *
 * L counts from its own first byte to the end of the record.
 */
namespace KvNStream {

enum Tag : unsigned char
{
    StartTag = 1,
    EndTag = 2,
    ParameterTag = 3,
};

inline constexpr KvUInt32 TagSize = 1;
/** Class id, unit id and description length of a start record. */
inline constexpr KvUInt32 StartFieldsSize = 9;
/** Length, id, type word and description length of a parameter record. */
inline constexpr KvUInt32 ParameterFieldsSize = 13;
/** What stands in a record's length until the record is complete. */
inline constexpr KvUInt32 LengthPlaceholder = 0xFFFFFFFF;
/** The length of a description is one byte: strlen + 1, its low 8 bits. */
inline constexpr KvUInt32 DescriptionLengthMask = 0xFF;
/** Room for any description that a record can hold, and a NUL. */
inline constexpr KvUInt32 DescriptionArea = 256;
/** Count of an array, length of a string. */
inline constexpr KvUInt32 CountSize = 4;
/** Unread bytes at the end of a parameter record that a reader passes over; more are an error. */
inline constexpr KvUInt32 SkipLimit = 128;

/** Bits of the traversion mode. */
inline constexpr KvUInt32 VisibleOnlyMode = 0x1;  ///< nodes without a visibility bit are passed over
inline constexpr KvUInt32 Filter1Mode = 0x4;      ///< parameters with flag 0x20000 are skipped (not with 0x8)
inline constexpr KvUInt32 Filter2Mode = 0x8;      ///< parameters with flag 0x40000 are skipped
inline constexpr KvUInt32 IdClassMode = 0x20;     ///< only ids with (id & 0xF00) of 0x200 or 0x600

}  // namespace KvNStream
