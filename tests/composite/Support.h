#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/KvCBuffer.h"
#include "composite/KvCBinDeserializer.h"
#include "composite/KvCBinSerializer.h"
#include "composite/KvCComposite.h"
#include "composite/KvCCompositeFactory.h"

/** The codes of a list, in the order in which they were reported. */
inline std::vector<KvUInt32> codesOf(const KvCErrorList& errors)
{
    std::vector<KvUInt32> codes;
    for (KvUInt32 i = 0; i < errors.getErrorCount(); ++i)
        codes.push_back(errors.getErrorCode(i));
    return codes;
}

using Codes = std::vector<KvUInt32>;
using Bytes = std::vector<unsigned char>;

/** What a buffer holds. */
inline Bytes bytesOf(const KvCBuffer& buffer)
{
    const char* const start = buffer.getStartPointer();
    return start == nullptr ? Bytes() : Bytes(start, start + buffer.getOccupiedSize());
}

/** "1 Class::method: text" for each entry: readable in a failure, exact in a comparison. */
inline std::string originsOf(const KvCErrorList& errors)
{
    std::string all;
    for (KvUInt32 i = 0; i < errors.getErrorCount(); ++i)
        all += std::string(i == 0 ? "" : ",") + errors.getErrorOrigin(i);
    return all;
}

inline std::unique_ptr<KvCComposite> makeNode(KvUInt32 classId, KvUInt32 unitId, const char* descr = "node")
{
    KvCErrorListPool errors;
    return std::unique_ptr<KvCComposite>(new KvCComposite(errors, classId, unitId, descr));
}

/** Attaches a new node and gives it. */
inline KvCComposite* addNode(KvCComposite& parent, KvUInt32 classId, KvUInt32 unitId, const char* descr = "node")
{
    KvCComposite* const node = makeNode(classId, unitId, descr).release();
    return parent.attach(node) == 0 ? node : nullptr;
}

/** The tree below `node` in one line: "1.2(3.4 5.6(7.8))" of class and unit ids. */
inline std::string shapeOf(const KvCComposite& node)
{
    std::string shape = std::to_string(node.getClassId()) + "." + std::to_string(node.getUnitId());
    std::string children;
    for (const KvCComposite* child = node.getChild(); child != nullptr; child = child->getSibling())
        children += (children.empty() ? "" : " ") + shapeOf(*child);
    return children.empty() ? shape : shape + "(" + children + ")";
}
