#include <algorithm>

#include "base/Report.h"
#include "fuzz/Trees.h"
#include "tools/common/TreeJson.h"

/*
 * Trees as JSON: a tree or a problem, the same however the text is delivered; what was read writes a text that reads
 * back to the same tree and writes the same text.
 */

using namespace KvNFuzz;

namespace {

class Pieces : public KvNJson::Source
{
public:
    Pieces(std::string_view text, std::size_t size) : m_text(text), m_size(size) {}
    std::string_view next() override
    {
        const std::string_view piece = m_text.substr(0, m_size);
        m_text.remove_prefix(piece.size());
        return piece;
    }

private:
    std::string_view m_text;
    std::size_t m_size;
};

std::string textOfTree(const KvCInventoryItem& tree)
{
    KvNTreeJson::TextSink sink;
    KV_FUZZ_CHECK(KvNTreeJson::writeTree(sink, tree));
    return sink.text();
}

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::string_view text = textOf(data, size);
    std::string problem;
    ItemOwner tree;
    {
        const Costs costs;
        KvNJson::TextSource source(text);
        tree = KvNTreeJson::readTree(source, problem);
        costs.check(size, {65536, 80, 40000, 200});
    }
    KV_FUZZ_CHECK((tree == nullptr) == !problem.empty());
    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}}) {
        Pieces pieces(text, piece);
        std::string other;
        const ItemOwner same = KvNTreeJson::readTree(pieces, other);
        KV_FUZZ_CHECK(other == problem);
        if (tree != nullptr)
            KV_FUZZ_CHECK(streamOf(*same) == streamOf(*tree));
    }
    if (tree != nullptr) {
        const std::string written = textOfTree(*tree);
        KvNJson::TextSource source(written);
        const ItemOwner again = KvNTreeJson::readTree(source, problem);
        KV_FUZZ_CHECK(again != nullptr);
        KV_FUZZ_CHECK(textOfTree(*again) == written);
        KV_FUZZ_CHECK(streamOf(*again) == streamOf(*tree));
    }
    KvNReport::masterList().clear();
    return 0;
}
