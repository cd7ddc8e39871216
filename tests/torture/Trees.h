#pragma once

#include <string>

#include "base/KvCBuffer.h"
#include "composite/KvCComposite.h"

/* What the operations on trees are tried on. */

inline const char* const longText = "a text that is too long to stand inside a string object";

inline std::string bytesOf(const KvCBuffer& buffer)
{
    return {buffer.getStartPointer(), buffer.getOccupiedSize()};
}

/** A tree of three levels with values of every kind. */
struct Tree
{
    KvCErrorListPool setUp;
    KvCComposite root{setUp, 1, 1, "the root, with a description that is long enough"};
    KvCComposite* child = nullptr;
    KvCComposite* leaf = nullptr;
    KvUInt32* published = nullptr;

    Tree()
    {
        child = new KvCComposite(setUp, 2, 1, "child");
        leaf = new KvCComposite(setUp, 3, 4, "leaf");
        root.attach(child);
        child->attach(leaf);
        fill(root);
        fill(*leaf);
    }

    void fill(KvCComposite& node)
    {
        const KvUInt32 numbers[] = {1, 2, 3, 4, 5, 6, 7, 8};
        node.createParameter(setUp, 1, "a string's description", 0, KvCString(longText));
        node.createParameter<KvUInt32>(setUp, 2, "number", 0, 4711);
        node.createParameter(setUp, 3, "array", 0, 8, numbers, &published);
        node.createParameter<KvInt32>(setUp, 4, "double-buffered", KvNElement::DoubleBufferedFlag, -5);
    }

    /** The values of a node's parameters in their order. */
    static std::string valuesOf(const KvCComposite& node)
    {
        std::string all;
        KvCErrorListPool errors;
        for (KvUInt32 i = 0; KvCParam* const parameter = node.getParameterByIndex(i); ++i)
            all += std::to_string(parameter->getId()) + " " + parameter->getDescr() + "=" +
                   parameter->getValueAsString(errors).c_str() + "|";
        return all;
    }
};
