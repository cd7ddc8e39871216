#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryData.h"
#include "tests/inventory/InventoryTest.h"

using namespace KvNInventoryIDs;
using Bytes = std::vector<unsigned char>;

namespace {

const std::filesystem::path samples = KV_SAMPLES_DIR;

Bytes contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

struct Extracted
{
    ItemOwner root;
    Codes codes;
    std::string firstText;
};

Extracted fromFile(const std::filesystem::path& path)
{
    KvCErrorListPool errors;
    KvCInventoryItem* root = nullptr;
    KvCInventoryData::extractInventoryTreeFromFile(errors, path.c_str(), root);
    return {ItemOwner(root), codesOf(errors), errors.getErrorText(0)};
}

Extracted fromMemory(const std::filesystem::path& path)
{
    const Bytes bytes = contentOf(path);
    KvCErrorListPool errors;
    KvCInventoryItem* root = nullptr;
    KvCInventoryData::extractInventoryTreeFromMem(errors, bytes.data(), bytes.size(), root);
    return {ItemOwner(root), codesOf(errors), errors.getErrorText(0)};
}

Bytes sectionOf(KvCInventoryItem& root)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    KvCInventoryData::generateInventorySection(errors, buffer, &root);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return Bytes(buffer.getStartPointer(), buffer.getStartPointer() + buffer.getOccupiedSize());
}

std::vector<std::filesystem::path> goodSections()
{
    std::vector<std::filesystem::path> paths = {samples / "single-board.inv", samples / "rack.inv"};
    for (const auto& entry : std::filesystem::directory_iterator(samples / "boards"))
        if (entry.path().extension() == ".inv")
            paths.push_back(entry.path());
    return paths;
}

/** A broken sample: the codes in order up to the last, which depends on where it was read from. */
struct Broken
{
    const char* name;
    Codes codes;
    KvUInt32 fromFile;
    KvUInt32 fromMemory;
    const char* shown;  // in the first message
};

const Codes damaged = {0xa02000, 0x1302801};

Codes chain(std::initializer_list<KvUInt32> first)
{
    Codes codes(first);
    codes.insert(codes.end(), damaged.begin(), damaged.end());
    return codes;
}

const Broken brokenSamples[] = {
    {"trailer-version-2.inv", {0x1300009}, 0x1300003, 0x130000d, "version 33554432 (expected 1)"},
    {"trailer-size-23.inv", {0x1300008}, 0x1300003, 0x130000d, "size 385875968 (expected 24)"},
    {"header-version-2.bin", {0x1300009}, 0x1300003, 0x130000d, "version 33554432 (expected 1)"},
    {"unit-101.inv", chain({0x1302000}), 0x1300000, 0x130000b, "limit of 100 bytes"},
    {"unknown-tag.inv", damaged, 0x1300000, 0x130000b, "Unknown tag 7 detected"},
    {"end-without-start.inv", chain({0xa01000}), 0x1300000, 0x130000b, "Unexpected tag found"},
    {"string-too-long.inv", chain({0xa01002}), 0x1300000, 0x130000b, "Parameter size is 500, it should be 32."},
    {"extra-129.inv", chain({0xa01002}), 0x1300000, 0x130000b, "Parameter size is 157, it should be 28."},
    {"other-type.inv", chain({0xa01001}), 0x1300000, 0x130000b, "type ID 10122 for parameter 62."},
    {"unknown-type.inv", chain({0x601001, 0xa01001}), 0x1300000, 0x130000b, "Parameter 'SIZE'"},
    {"same-item-twice.inv", chain({0x1302806}), 0x1300000, 0x130000b, "Error code: -3"},
};

}  // namespace

TEST(Samples, EverySectionIsReadAndWrittenBackByteForByte)
{
    for (const auto& path : goodSections()) {
        const Extracted file = fromFile(path);
        const Extracted memory = fromMemory(path);
        EXPECT_EQ(file.codes, Codes{}) << path;
        EXPECT_EQ(memory.codes, Codes{}) << path;
        ASSERT_NE(file.root, nullptr) << path;
        ASSERT_NE(memory.root, nullptr) << path;
        const Bytes bytes = contentOf(path);
        EXPECT_EQ(sectionOf(*file.root), bytes) << path;
        EXPECT_EQ(sectionOf(*memory.root), bytes) << path;
    }
}

TEST(Samples, EverySectionCanBeCopiedAndMerged)
{
    for (const auto& path : goodSections()) {
        KvCErrorListPool errors;
        const Extracted file = fromFile(path);
        KvCInventoryItem* copy = nullptr;
        file.root->copyTree(errors, copy);
        EXPECT_EQ(sectionOf(*copy), contentOf(path));
        KvCInventoryItem* target = file.root.get();
        KvCInventoryItem::mergeTree(errors, target, copy, KvNInventoryItem::MergeParameters);
        EXPECT_EQ(copy, nullptr);
        EXPECT_EQ(sectionOf(*file.root), contentOf(path));
        EXPECT_EQ(errors.getErrorCount(), 0u);
    }
}

TEST(Samples, SectionsInsideOtherFilesAreFound)
{
    const Bytes image = contentOf(samples / "firmware-image.bin");
    const Bytes section(image.begin() + 90000, image.end());
    const Bytes other = contentOf(samples / "section-then-junk.bin");
    EXPECT_EQ(Bytes(other.begin(), other.begin() + static_cast<std::ptrdiff_t>(section.size())), section);
    for (const char* name : {"firmware-image.bin", "section-then-junk.bin"}) {
        const Extracted file = fromFile(samples / name);
        const Extracted memory = fromMemory(samples / name);
        EXPECT_EQ(file.codes, Codes{});
        EXPECT_EQ(memory.codes, Codes{});
        ASSERT_NE(file.root, nullptr);
        ASSERT_NE(memory.root, nullptr);
        EXPECT_EQ(sectionOf(*file.root), section);
        EXPECT_EQ(sectionOf(*memory.root), section);
        KvCErrorListPool errors;
        EXPECT_EQ(file.root->getValue<KvCVersion>(errors, FIRMWARE / VERSION), KvCVersion(KvCString("4.0.1b2")));
        EXPECT_EQ(file.root->getValue<KvUInt32>(errors, FIRMWARE / SIZE), 90000u);
        EXPECT_EQ(errors.getErrorCount(), 0u);
    }
}

TEST(Samples, ABoardHasItsSerialNumberAndOneParameterOfEachType)
{
    KvCErrorListPool errors;
    const Extracted file = fromFile(samples / "single-board.inv");
    EXPECT_EQ(file.root->getID(), HCN[4711]);
    EXPECT_STREQ(file.root->getAddress().toString().c_str(), "HCN[4711]");
    const KvCInventoryItem* test = file.root->getItem(KvNInventoryIDs::TEST);
    ASSERT_NE(test, nullptr);
    std::vector<std::string> types;
    test->forEachParameter([&](const KvCInventoryParameter& parameter) {
        types.push_back(parameter.getTypeAsString().c_str());
        EXPECT_TRUE(parameter.isModifiable());
        return true;
    });
    std::sort(types.begin(), types.end());
    EXPECT_EQ(types, (std::vector<std::string>{"Float32", "Float64", "Int16", "Int32", "Int8", "Long64", "String",
                                               "UInt16", "UInt32", "UInt8", "ULong64", "Version"}));
}

TEST(Samples, BrokenSectionsAreReportedFromFileAndMemory)
{
    for (const Broken& broken : brokenSamples) {
        Codes codes = broken.codes;
        codes.push_back(broken.fromFile);
        const Extracted file = fromFile(samples / "broken" / broken.name);
        EXPECT_EQ(file.codes, codes) << broken.name;
        EXPECT_EQ(file.root, nullptr) << broken.name;
        EXPECT_NE(file.firstText.find(broken.shown), std::string::npos) << broken.name << ": " << file.firstText;
        codes.back() = broken.fromMemory;
        const Extracted memory = fromMemory(samples / "broken" / broken.name);
        EXPECT_EQ(memory.codes, codes) << broken.name;
        EXPECT_EQ(memory.root, nullptr) << broken.name;
        EXPECT_EQ(memory.firstText, file.firstText) << broken.name;
    }
}

TEST(Samples, AHeaderThatAnnouncesTooMuch)
{
    const auto path = samples / "broken" / "header-too-much.bin";
    EXPECT_EQ(fromFile(path).codes, (Codes{0x1300005, 0x1300003}));
    EXPECT_EQ(fromMemory(path).codes, (Codes{0x130000c, 0x130000d}));
    EXPECT_EQ(fromFile(path).root, nullptr);
    EXPECT_EQ(fromMemory(path).root, nullptr);
}

TEST(Samples, NoSectionAtAll)
{
    const auto path = samples / "broken" / "no-section.bin";
    EXPECT_EQ(fromFile(path).codes, Codes{});
    EXPECT_EQ(fromMemory(path).codes, Codes{});
    EXPECT_EQ(fromFile(path).root, nullptr);
    EXPECT_EQ(fromMemory(path).root, nullptr);
}

TEST(Samples, BytesThatAReaderDoesNotKnowAreSkipped)
{
    KvCErrorListPool errors;
    const Extracted file = fromFile(samples / "broken" / "extra-128.inv");
    EXPECT_EQ(file.codes, Codes{});
    ASSERT_NE(file.root, nullptr);
    EXPECT_EQ(file.root->getID(), ROOT);
    EXPECT_EQ(file.root->getValue<KvUInt32>(errors, SIZE), 7u);
    EXPECT_EQ(fromMemory(samples / "broken" / "extra-128.inv").codes, Codes{});
}

TEST(Samples, EveryTruncationOfABoardIsHandled)
{
    const Bytes bytes = contentOf(samples / "broken" / "extra-128.inv");
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        KvCErrorListPool errors;
        KvCInventoryItem* root = nullptr;
        KvCInventoryData::extractInventoryTreeFromMem(errors, bytes.data(), length, root);
        const ItemOwner owner(root);
        // Without the last byte of its trailer a section is still found through its header.
        const bool isWhole = length >= bytes.size() - 24;
        EXPECT_EQ(root != nullptr, isWhole) << length;
        EXPECT_EQ(errors.getErrorCount() > 0, length >= 24 && !isWhole) << length;
    }
}

TEST(Samples, EveryFlippedBitGivesATreeOrAnError)
{
    const Bytes file = contentOf(samples / "section-then-junk.bin");
    const Bytes bytes(file.begin(), file.begin() + 519);
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        Bytes flipped = bytes;
        flipped[bit / 8] = static_cast<unsigned char>(flipped[bit / 8] ^ (1u << (bit % 8)));
        KvCErrorListPool errors;
        KvCInventoryItem* root = nullptr;
        KvCInventoryData::extractInventoryTreeFromMem(errors, flipped.data(), flipped.size(), root);
        const ItemOwner owner(root);
        EXPECT_TRUE(root == nullptr || errors.getErrorCount() == 0) << bit;
    }
}
