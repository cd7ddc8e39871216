#include "inventory/KvCInventoryData.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <dlfcn.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "inventory/SectionFormat.h"
#include "tests/inventory/InventoryTest.h"
#include "tests/support/FailingAllocation.h"

using namespace KvNInventoryIDs;
using Bytes = std::vector<unsigned char>;

namespace {

/** ROOT with SIZE = 7 MB, modifiable, relevance 5, between its frames. */
const Bytes goldenSection = {'I',  'N', 'V', 'E',  0x55, 0x4B, 0x56, 0xAA, 0,   0, 0,   1,    0,    0,   0,   24,
                             0,    0,   0,   47,   0,    0,    0,    24,                                     // header
                             0x01, 0,   0,   0,    1,    0,    0,    0,    1,   5, 'R', 'O',  'O',  'T', 0,  // ROOT[1]
                             0x03, 0,   0,   0,    0x1E, 0,    0,    0,    98,  0, 1,   0x01, 0x24, 5,   'S', 'I',
                             'Z',  'E', 0,   0,    0,    0,    7,        // SIZE = 7
                             2,    'M', 'B', 0xFF, 0,    0,    0,    5,  // MB, ...
                             0x02, 0,   0,   0,    24,   0,    0,    0,    47,  0, 0,   0,    24,   0,   0,   0,
                             1,    'I', 'N', 'V',  'E',  0x55, 0x4B, 0x56, 0xAA};  // trailer

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/** Makes the n-th call of a function of the C runtime fail; 0: none. */
struct FailingStream
{
    static inline int seeks = 0;
    static inline int tells = 0;
    static inline int reads = 0;

    static bool isDue(int& left) { return left > 0 && --left == 0; }
};

template <class Function>
Function* original(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The runtime's functions as the library's objects call them; each can be made to fail.
extern "C" int fseek(FILE* file, long offset, int origin)
{
    static auto* const real = original<int(FILE*, long, int)>("fseek");
    return FailingStream::isDue(FailingStream::seeks) ? -1 : real(file, offset, origin);
}
extern "C" long ftell(FILE* file)
{
    static auto* const real = original<long(FILE*)>("ftell");
    return FailingStream::isDue(FailingStream::tells) ? -1 : real(file);
}
extern "C" size_t fread(void* block, size_t size, size_t count, FILE* file)
{
    static auto* const real = original<size_t(void*, size_t, size_t, FILE*)>("fread");
    return FailingStream::isDue(FailingStream::reads) ? 0 : real(block, size, count, file);
}

namespace {

class InventoryData : public testing::Test
{
protected:
    InventoryData()
    {
        std::string name = (std::filesystem::temp_directory_path() / "kv-section-XXXXXX").string();
        folder = mkdtemp(name.data());
        path = folder + "/file";
    }
    ~InventoryData() override { std::filesystem::remove_all(folder); }

    void store(const Bytes& bytes)
    {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    /** What comes of the bytes in a file. */
    ItemOwner fromFile(const Bytes& bytes)
    {
        store(bytes);
        return fromPath();
    }
    ItemOwner fromPath()
    {
        errors.clear();
        KvCInventoryItem* root = reinterpret_cast<KvCInventoryItem*>(this);
        KvCInventoryData::extractInventoryTreeFromFile(errors, path.c_str(), root);
        return ItemOwner(root);
    }
    /** What comes of the bytes in memory. */
    ItemOwner fromMemory(const Bytes& bytes)
    {
        errors.clear();
        KvCInventoryItem* root = reinterpret_cast<KvCInventoryItem*>(this);
        KvCInventoryData::extractInventoryTreeFromMem(errors, bytes.data(), bytes.size(), root);
        return ItemOwner(root);
    }
    void expectTree(const ItemOwner& root)
    {
        EXPECT_EQ(codesOf(errors), Codes{});
        ASSERT_NE(root, nullptr);
        EXPECT_EQ(root->getValue<KvUInt32>(errors, SIZE), 7u);
    }
    void expectNothing(const Bytes& bytes, const Codes& file, const Codes& memory)
    {
        EXPECT_EQ(fromFile(bytes), nullptr);
        EXPECT_EQ(codesOf(errors), file);
        EXPECT_EQ(fromMemory(bytes), nullptr);
        EXPECT_EQ(codesOf(errors), memory);
    }
    std::string entry(KvUInt32 i) { return entryOf(errors, i); }

    KvCErrorListPool errors;
    std::string folder;
    std::string path;
};

Bytes with(std::size_t offset, KvUInt32 value)
{
    Bytes bytes = goldenSection;
    KvNBigEndian::store(bytes.data() + offset, value);
    return bytes;
}

constexpr std::size_t trailerAt = 24 + 47;

}  // namespace

TEST_F(InventoryData, WritesTheDocumentedBytesBehindWhatIsThere)
{
    const ItemOwner root = makeItem(ROOT);
    root->createParameter<KvUInt32>(errors, SIZE, 7, "MB", true, 5, nullptr, nullptr, nullptr);
    KvCBuffer buffer(errors);
    KvCInventoryData::generateInventorySection(errors, buffer, root.get());
    const auto written = [&] {
        return Bytes(buffer.getStartPointer(), buffer.getStartPointer() + buffer.getOccupiedSize());
    };
    EXPECT_EQ(written(), goldenSection);
    KvCInventoryData::generateInventorySection(errors, buffer, root.get());
    EXPECT_EQ(written(), goldenSection + goldenSection);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryData, ASectionAnnouncesItsSizeAtBothEnds)
{
    const auto sizes = [&](const Bytes& bytes) {
        KvUInt32 header = 1;
        KvUInt32 trailer = 2;
        errors.clear();
        KvCInventoryData::getInventorySectionSizeFromMem(errors, reinterpret_cast<const char*>(bytes.data()),
                                                         bytes.size(), header, trailer);
        return std::pair(header, trailer);
    };
    const Bytes junk(40, 0x11);
    EXPECT_EQ(sizes(goldenSection), std::pair(95u, 95u));
    EXPECT_EQ(sizes(goldenSection + junk), std::pair(95u, 0u));
    EXPECT_EQ(sizes(junk + goldenSection), std::pair(0u, 95u));
    EXPECT_EQ(sizes(junk), std::pair(0u, 0u));
    EXPECT_EQ(sizes(Bytes(23, 'I')), std::pair(0u, 0u));
    EXPECT_EQ(errors.getErrorCount(), 0u);
    EXPECT_EQ(sizes(with(16, 48)), std::pair(96u, 0u));
    EXPECT_EQ(codesOf(errors), Codes{0x130000c});
    EXPECT_EQ(entry(0), "KvCInventoryData::getInventorySectionSizeFromMem: Inventory section is corrupt.");
    EXPECT_EQ(sizes(with(trailerAt + 4, 0xFFFFFFFF)), std::pair(95u, 4294967295u));
    EXPECT_EQ(codesOf(errors), Codes{0x130000c});
    EXPECT_EQ(sizes(with(8, 3)), std::pair(0u, 95u));
    EXPECT_EQ(codesOf(errors), Codes{0x1300009});
    KvUInt32 header = 1;
    KvUInt32 trailer = 2;
    KvCInventoryData::getInventorySectionSizeFromMem(errors, nullptr, 100, header, trailer);
    EXPECT_EQ(header + trailer, 0u);
    unsigned long headerSize = 1;
    unsigned long trailerSize = 2;
    KvCInventoryData::getInventorySectionSizeFromMem(errors, reinterpret_cast<const char*>(goldenSection.data()),
                                                     static_cast<unsigned long>(goldenSection.size()), headerSize,
                                                     trailerSize);
    EXPECT_EQ(headerSize, 95u);
    EXPECT_EQ(trailerSize, 95u);
}

TEST_F(InventoryData, ASectionIsFoundFromEitherEnd)
{
    const Bytes junk(3000, 0x49);
    for (const Bytes& bytes : {goldenSection, junk + goldenSection, goldenSection + junk}) {
        expectTree(fromFile(bytes));
        expectTree(fromMemory(bytes));
    }
    expectNothing(junk + goldenSection + junk, {}, {});
}

TEST_F(InventoryData, OfTwoSectionsTheLastCounts)
{
    Bytes other = goldenSection;
    other[24 + 15 + 22] = 8;
    const ItemOwner root = fromFile(other + goldenSection);
    expectTree(root);
    expectTree(fromMemory(other + goldenSection));
}

TEST_F(InventoryData, WithoutSectionThereIsNoTreeAndNoError)
{
    for (const std::size_t length : {0u, 1u, 23u, 24u, 25u, 500u})
        expectNothing(Bytes(length, 'I'), {}, {});
    KvCInventoryItem* root = reinterpret_cast<KvCInventoryItem*>(this);
    KvCInventoryData::extractInventoryTreeFromMem(errors, nullptr, 100, root);
    EXPECT_EQ(root, nullptr);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(InventoryData, ASectionWithoutDataHasNoTree)
{
    const Bytes header(goldenSection.begin(), goldenSection.begin() + 24);
    const Bytes trailer(goldenSection.begin() + trailerAt, goldenSection.end());
    Bytes empty = header + trailer;
    empty[19] = 0;
    empty[24 + 7] = 0;
    expectNothing(empty, {}, {});
}

TEST_F(InventoryData, LargerFramesAreAcceptedWhereTheyStand)
{
    Bytes header(goldenSection.begin(), goldenSection.begin() + 24);
    header[15] = 28;
    Bytes trailer(goldenSection.begin() + trailerAt, goldenSection.end());
    trailer[11] = 30;
    const Bytes data(goldenSection.begin() + 24, goldenSection.begin() + trailerAt);
    const Bytes section = header + Bytes(4, 0x77) + data + Bytes(6, 0x88) + trailer;
    expectTree(fromFile(section));
    expectTree(fromMemory(section));
    expectTree(fromFile(section + Bytes(5, 0)));
    expectTree(fromMemory(section + Bytes(5, 0)));
}

TEST_F(InventoryData, AnotherVersionIsShownAsItsStoredBytesInReverseOrder)
{
    expectNothing(with(trailerAt + 12, 2), {0x1300009, 0x1300003}, {0x1300009, 0x130000d});
    EXPECT_EQ(entry(0),
              "KvCInventoryData::checkTrailer: Inventory data file is incompatible. Korvel Support information: "
              "Inventory section has incompatible version 33554432 (expected 1).");
    EXPECT_EQ(entry(1),
              "KvCInventoryData::readInventoryDataFromMem: Error while seeking inventory data in memory block.");
    fromFile(with(trailerAt + 12, 2));
    EXPECT_EQ(entry(1), "KvCInventoryData::readInventoryDataFromFile: Error while reading inventory data from file " +
                            path + ".");
    // The header is tried all the same.
    Bytes both = with(trailerAt + 12, 2);
    both[11] = 3;
    expectNothing(both, {0x1300009, 0x1300003, 0x1300009, 0x1300003}, {0x1300009, 0x130000d, 0x1300009, 0x130000d});
    expectNothing(with(8, 2) + Bytes(30, 0), {0x1300009, 0x1300003}, {0x1300009, 0x130000d});
    EXPECT_EQ(
        entry(0),
        "KvCInventoryData::checkHeader: Inventory data file is incompatible. Korvel Support information: Inventory "
        "section has incompatible version 33554432 (expected 1).");
}

TEST_F(InventoryData, FramesThatAreTooSmallAreIncompatible)
{
    expectNothing(with(trailerAt + 8, 23), {0x1300008, 0x1300003}, {0x1300008, 0x130000d});
    EXPECT_EQ(entry(0),
              "KvCInventoryData::checkTrailer: Inventory data file is incompatible. Korvel Support information: "
              "Inventory section trailer has incompatible size 385875968 (expected 24).");
    expectNothing(with(12, 0) + Bytes(30, 0), {0x1300007, 0x1300003}, {0x1300007, 0x130000d});
    EXPECT_EQ(
        entry(0),
        "KvCInventoryData::checkHeader: Inventory data file is incompatible. Korvel Support information: Inventory "
        "section header has incompatible size 0 (expected 24).");
}

TEST_F(InventoryData, SizesThatTheFileCannotHoldTakeNoMemory)
{
    for (const KvUInt32 size : {72u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        const Bytes trailer = with(trailerAt + 4, size);
        const Bytes header = with(16, size + 24) + Bytes(30, 0);
        std::size_t before;
        {
            const FailingAllocation counted(0);
            expectNothing(trailer, {0x1300002, 0x1300003}, {0x130000c, 0x130000d});
            before = counted.count();
        }
        EXPECT_LT(before, 30u);
        expectNothing(with(16, size == 0xFFFFFFFF ? size : size + 60) + Bytes(30, 0), {0x1300005, 0x1300003},
                      {0x130000c, 0x130000d});
    }
    expectNothing(with(12, 0xFFFFFFFF) + Bytes(30, 0), {0x1300005, 0x1300003}, {0x130000c, 0x130000d});
    EXPECT_EQ(entry(0), "KvCInventoryData::seekInventoryDataHeaderInMem: Inventory section is corrupt.");
    expectNothing(with(trailerAt + 8, 0xFFFFFFFF), {0x1300002, 0x1300003}, {0x130000c, 0x130000d});
    EXPECT_EQ(entry(0), "KvCInventoryData::seekInventoryDataTrailerInMem: Inventory section is corrupt.");
}

TEST_F(InventoryData, ADamagedTreeIsReportedWithItsSource)
{
    Bytes bytes = goldenSection;
    bytes[24] = 9;
    expectNothing(bytes, {0xa02000, 0x1302801, 0x1300000}, {0xa02000, 0x1302801, 0x130000b});
    EXPECT_EQ(entry(2),
              "KvCInventoryData::extractInventoryTreeFromMem: Internal error. Korvel Support information: Cannot "
              "deserialize inventory data from memory.");
    fromFile(bytes);
    EXPECT_EQ(entry(2), "KvCInventoryData::extractInventoryTreeFromFile: Cannot deserialize inventory data from file " +
                            path + ".");
}

TEST_F(InventoryData, WhatIsNoRegularFileCannotBeOpened)
{
    const auto expectNotOpened = [&] {
        EXPECT_EQ(fromPath(), nullptr);
        EXPECT_EQ(codesOf(errors), Codes{0x1300001});
        EXPECT_EQ(entry(0), "KvCInventoryData::readInventoryDataFromFile: Cannot open file " + path + ".");
    };
    expectNotOpened();
    path = folder;
    expectNotOpened();
    path = folder + "/pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    expectNotOpened();
    path = "/dev/zero";
    expectNotOpened();
    path = folder + "/loop";
    std::filesystem::create_symlink(path, path);
    expectNotOpened();
}

TEST_F(InventoryData, AFileOfMoreThan4GiBIsReadAtItsEnds)
{
    store(goldenSection);
    std::filesystem::resize_file(path, 5'000'000'000);
    expectTree(fromPath());
    {
        std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(6'000'000'000);
        file.write(reinterpret_cast<const char*>(goldenSection.data()),
                   static_cast<std::streamsize>(goldenSection.size()));
        file.seekp(0);
        file.put('x');
    }
    expectTree(fromPath());
}

TEST_F(InventoryData, EveryFailureOfTheFileIsReported)
{
    const auto expectCodes = [&](int& counter, int number, const Codes& codes) {
        store(goldenSection);
        counter = number;
        const ItemOwner root = fromPath();
        EXPECT_EQ(codesOf(errors), codes) << number;
        EXPECT_EQ(root, nullptr);
        EXPECT_EQ(counter, 0);
    };
    expectCodes(FailingStream::seeks, 1, {0x1300002, 0x1300003});
    EXPECT_EQ(entry(0), "KvCInventoryData::readInventoryDataTrailerFromFile: Cannot set file read position.");
    expectCodes(FailingStream::seeks, 2, {0x1300002, 0x1300003});
    expectCodes(FailingStream::seeks, 3, {0x1300002, 0x1300003});
    expectCodes(FailingStream::seeks, 4, {0x1300002, 0x1300003});
    expectCodes(FailingStream::tells, 1, {0x1300010, 0x1300003});
    EXPECT_EQ(entry(0), "KvCInventoryData::readInventoryDataTrailerFromFile: Cannot get file read position.");
    expectCodes(FailingStream::reads, 1, {0x1300005, 0x1300003});
    EXPECT_EQ(entry(0), "KvCInventoryData::readInventoryDataTrailerFromFile: Cannot read from file.");
    expectCodes(FailingStream::reads, 2, {0x1300005, 0x1300003});
}

TEST_F(InventoryData, OutOfMemoryIsReportedAndLeavesNoTree)
{
    store(goldenSection);
    for (std::size_t n = 1;; ++n) {
        errors.clear();
        KvCInventoryItem* root = nullptr;
        bool hasFailed;
        {
            const FailingAllocation one(n);
            KvCInventoryData::extractInventoryTreeFromFile(errors, path.c_str(), root);
            hasFailed = one.hasFailed();
        }
        const ItemOwner owner(root);
        if (!hasFailed)
            break;
        EXPECT_EQ(root, nullptr) << n;
        EXPECT_GT(errors.getErrorCount(), 0u) << n;
        const Codes codes = codesOf(errors);
        if (n == 1) {
            EXPECT_EQ(codes, (Codes{0x401, 0x130000e}));
        } else if (n == 2) {
            EXPECT_EQ(codes, (Codes{0x1300006, 0x1300003}));
        }
    }
    KvNReport::masterList().clear();
}

TEST_F(InventoryData, ASectionThatCannotBeWrittenIsReported)
{
    const ItemOwner root = makeItem(ROOT);
    addValue(*root, NAME, KvCString(std::string(2000, 'x').c_str()));
    Codes seen;
    for (std::size_t n = 1;; ++n) {
        KvCErrorListPool list;
        KvCBuffer buffer(list);
        bool hasFailed;
        {
            const FailingAllocation one(n);
            KvCInventoryData::generateInventorySection(list, buffer, root.get());
            hasFailed = one.hasFailed();
        }
        if (!hasFailed)
            break;
        ASSERT_GT(list.getErrorCount(), 0u) << n;
        seen.push_back(list.getErrorCode(list.getErrorCount() - 1));
    }
    EXPECT_EQ(seen.front(), 0x130000fu);
    EXPECT_EQ(seen.back(), 0x130000au);
    KvNReport::masterList().clear();

    errors.clear();
    KvCBuffer cleared(errors);
    cleared.clearBuffer();
    {
        // The factory, its buffer's block and its object come first.
        const FailingAllocation block(3);
        KvCInventoryData::generateInventorySection(errors, cleared, root.get());
    }
    EXPECT_EQ(codesOf(errors), (Codes{0x401, 0x1300004}));
    EXPECT_EQ(entry(1),
              "KvCInventoryData::writeHeader: Internal error. Korvel Support information: Cannot write to buffer "
              "object.");
}
