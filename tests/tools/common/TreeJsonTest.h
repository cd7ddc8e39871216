#pragma once

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryData.h"
#include "inventory/KvCInventoryItem.h"
#include "tools/common/TreeJson.h"

/** What the tests of tree JSON share. */

inline std::string fileBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline std::string sectionBytes(KvCInventoryItem& tree)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    KvCInventoryData::generateInventorySection(errors, buffer, &tree);
    return errors.getErrorCount() > 0 ? errors.getErrorText(0)
                                      : std::string(buffer.getStartPointer(), buffer.getOccupiedSize());
}

inline std::unique_ptr<KvCInventoryItem> sectionTree(const std::string& bytes)
{
    KvCErrorListPool errors;
    KvCInventoryItem* tree = nullptr;
    KvCInventoryData::extractInventoryTreeFromMem(errors, reinterpret_cast<const unsigned char*>(bytes.data()),
                                                  static_cast<unsigned long>(bytes.size()), tree);
    return std::unique_ptr<KvCInventoryItem>(tree);
}

inline std::string jsonText(const KvCInventoryItem& tree)
{
    KvNTreeJson::TextSink sink;
    KvNTreeJson::writeTree(sink, tree);
    return sink.text();
}

inline std::unique_ptr<KvCInventoryItem> jsonTree(const std::string& text, std::string& problem)
{
    KvNJson::TextSource source(text);
    return KvNTreeJson::readTree(source, problem);
}
