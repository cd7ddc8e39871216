#pragma once

#include <memory>
#include <string>
#include <vector>

#include "inventory/KvCInventoryItem.h"
#include "inventory/ids/KvNInventoryIDs.h"

/** The codes of a list in order. */
inline std::vector<KvUInt32> codesOf(const KvCErrorList& errors)
{
    std::vector<KvUInt32> codes;
    for (KvUInt32 i = 0; i < errors.getErrorCount(); ++i)
        codes.push_back(errors.getErrorCode(i));
    return codes;
}

/** An entry as "origin: text". */
inline std::string entryOf(const KvCErrorList& errors, KvUInt32 i)
{
    return std::string(errors.getErrorOrigin(i)) + ": " + errors.getErrorText(i);
}

using Codes = std::vector<KvUInt32>;
using ItemOwner = std::unique_ptr<KvCInventoryItem>;
using ParameterOwner = std::unique_ptr<KvCInventoryParameter>;

/** An item that stands alone, under its registered name. */
inline ItemOwner makeItem(const KvCInventoryAddress& id)
{
    KvCErrorListPool errors;
    return ItemOwner(new (errors) KvCInventoryItem(errors, id, id.getCategoryName().c_str()));
}

/** A parameter of `item`, under its registered name and without unit. */
template <class T>
KvCInventoryParameter* addValue(KvCInventoryItem& item, const KvCInventoryAddress& path, const T& value)
{
    KvCErrorListPool errors;
    return item.createParameter<T>(errors, path, value, "", false, 0, nullptr, nullptr, nullptr);
}
