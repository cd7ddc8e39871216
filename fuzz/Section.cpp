#include <algorithm>
#include <memory>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "fuzz/Trees.h"
#include "inventory/KvCInventoryData.h"
#include "inventory/SectionFormat.h"
#include "tools/kvboardd/Image.h"

/*
 * Sections in images of files: a tree or an error, never both, and none of either where there is no section; what the
 * frames say of its size lies inside the image. The board's reader of firmware images finds no section where the
 * library finds none.
 */

using namespace KvNFuzz;

namespace {

constexpr Costs::Limits limits{65536, 80, 20000, 80};

class MemoryImage : public KvNBoardService::ImageSource
{
public:
    explicit MemoryImage(std::span<const unsigned char> bytes) : m_bytes(bytes) {}
    KvUInt64 size() const override { return m_bytes.size(); }
    bool read(KvUInt64 offset, std::span<unsigned char> bytes, std::string&) const override
    {
        // Whoever reads asks for what there is.
        KV_FUZZ_CHECK(offset <= m_bytes.size() && bytes.size() <= m_bytes.size() - offset);
        const auto part = m_bytes.subspan(static_cast<std::size_t>(offset), bytes.size());
        std::copy(part.begin(), part.end(), bytes.begin());
        return true;
    }

private:
    std::span<const unsigned char> m_bytes;
};

/** A board that any image fits: it has nothing to compare. */
const KvCInventoryItem& board()
{
    static KvCErrorListPool errors;
    static const KvCInventoryItem item(errors, KvCInventoryAddress(380, 1), "HCN");
    return item;
}

void readImage(std::span<const unsigned char> bytes, bool hasSection)
{
    KvCErrorListPool errors;
    const KvCInventoryItem& item = board();
    const auto image = KvNBoardService::Image::open(errors, std::make_unique<MemoryImage>(bytes), 0, item, item);
    KV_FUZZ_CHECK((image == nullptr) == (errors.getErrorCount() != 0));
    KV_FUZZ_CHECK(hasSection || image == nullptr);
    if (image == nullptr)
        return;
    KV_FUZZ_CHECK(image->contentBytes() <= bytes.size());
    using Verification = KvNBoardService::Image::Verification;
    Verification verification = Verification::Unfinished;
    while (verification == Verification::Unfinished)
        verification = image->verify(errors);
    KV_FUZZ_CHECK((verification == Verification::Failed) == (errors.getErrorCount() != 0));
    KV_FUZZ_CHECK(image->verifiedBytes() <= image->contentBytes());
}

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    KvCErrorListPool errors;
    KvCInventoryItem* made = nullptr;
    {
        const Costs costs;
        KvCInventoryData::extractInventoryTreeFromMem(errors, data, size, made);
        costs.check(size, limits);
    }
    const ItemOwner tree(made);
    KV_FUZZ_CHECK(tree == nullptr || errors.getErrorCount() == 0);

    KvUInt32 byHeader = 0;
    KvUInt32 byTrailer = 0;
    KvCErrorListPool sizeErrors;
    KvCInventoryData::getInventorySectionSizeFromMem(sizeErrors, reinterpret_cast<const char*>(data), size, byHeader,
                                                     byTrailer);
    if (sizeErrors.getErrorCount() == 0) {
        KV_FUZZ_CHECK(byHeader <= size && byTrailer <= size);
        KV_FUZZ_CHECK(tree == nullptr || byHeader != 0 || byTrailer != 0);
    }
    if (tree != nullptr) {
        KvCBuffer section(errors);
        KvCInventoryData::generateInventorySection(errors, section, tree.get());
        KvCInventoryItem* again = nullptr;
        const auto* bytes = reinterpret_cast<const unsigned char*>(section.getStartPointer());
        KvCInventoryData::extractInventoryTreeFromMem(errors, bytes, section.getOccupiedSize(), again);
        const ItemOwner owner(again);
        KV_FUZZ_CHECK(errors.getErrorCount() == 0 && owner != nullptr);
        KV_FUZZ_CHECK(streamOf(*owner) == streamOf(*tree));
    }
    readImage({data, size}, tree != nullptr || errors.getErrorCount() != 0);
    KvNReport::masterList().clear();
    return 0;
}
