#pragma once

#include "composite/KvCParam.h"
#include "composite/StreamReader.h"

/** The value of a parameter record, both directions side by side. */
namespace KvNValueCodec {

/** Writes the value by its type. False for a type that does not exist; nothing is written then. */
bool write(KvCErrorListPool& errors, KvCBuffer& buffer, const KvCParam& parameter);

/** What a record says about the value that follows. */
struct Expected
{
    KvUInt32 recordLength;
    bool isNew;  ///< the parameter was made for this record
};

/** Reads a value of the parameter's type into it. A number or an array is only set when it is new or differs, which
    marks an existing parameter as changed; texts and versions are always set and never marked. False when the value
    cannot be had: a count beyond the record (0xA01002), a cut stream, no memory, a type that does not exist (nothing is
    reported for that). */
bool read(KvCErrorListPool& errors, StreamReader& reader, KvCParam& parameter, const Expected& expected);

}  // namespace KvNValueCodec
