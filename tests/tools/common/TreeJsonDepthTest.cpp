#include <gtest/gtest.h>

#include "inventory/ids/KvNInventoryIDs.h"
#include "tests/tools/common/TreeJsonTest.h"

using namespace KvNInventoryIDs;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t many = 200000;
#else
constexpr std::size_t many = 1000000;
#endif

/** The text of the item that the tests use, without its items. */
const std::string item = "{\"id\":2,\"items\":[";

std::size_t count(std::string_view text, std::string_view piece)
{
    std::size_t found = 0;
    for (std::size_t at = text.find(piece); at != std::string_view::npos; at = text.find(piece, at + piece.size()))
        ++found;
    return found;
}

}  // namespace

TEST(TreeJsonSize, AChainOfAMillionItemsIsReadAndWritten)
{
    std::string text = "{\"format\":\"korvel-inventory\",\"version\":1,\"tree\":";
    for (std::size_t i = 0; i < many; ++i)
        text += item;
    for (std::size_t i = 0; i < many; ++i)
        text += "]}";
    text += "}";
    std::string problem;
    const auto tree = jsonTree(text, problem);
    ASSERT_NE(tree, nullptr) << problem;
    std::size_t depth = 0;
    for (const KvCInventoryItem* node = tree.get(); node != nullptr; node = node->getFirstSubItem())
        ++depth;
    EXPECT_EQ(depth, many);
    const std::string written = jsonText(*tree);
    EXPECT_EQ(count(written, "{\"id\": \"CPU\""), many);
    EXPECT_EQ(count(written.substr(written.size() - 2 * many - 2), "]}"), many);
}

TEST(TreeJsonSize, ItemsAndParametersSideBySideAreReadAndWritten)
{
    std::string text = "{\"format\":\"korvel-inventory\",\"version\":1,\"tree\":{\"id\":1,\"items\":[";
    for (std::size_t i = 0; i < many / 10; ++i)
        text += (i > 0 ? "," : "") + ("{\"id\":2,\"index\":" + std::to_string(i)) + "}";
    text += "],\"parameters\":[";
    for (std::size_t i = 0; i < many / 10; ++i)
        text += (i > 0 ? "," : "") +
                ("{\"description\":\"d\",\"type\":\"UInt8\",\"value\":1,\"id\":" + std::to_string(i)) + "}";
    text += "]}}";
    std::string problem;
    const auto tree = jsonTree(text, problem);
    ASSERT_NE(tree, nullptr) << problem;
    const auto again = jsonTree(jsonText(*tree), problem);
    ASSERT_NE(again, nullptr) << problem;
    EXPECT_EQ(sectionBytes(*again), sectionBytes(*tree));
}

TEST(TreeJsonSize, ABrokenChainLeavesNothingBehind)
{
    std::string text = "{\"format\":\"korvel-inventory\",\"version\":1,\"tree\":";
    for (std::size_t i = 0; i < many / 5; ++i)
        text += item;
    std::string problem;
    EXPECT_EQ(jsonTree(text, problem), nullptr);
    EXPECT_EQ(problem.substr(0, 26), "at \"/tree/items/0/items/0/");
    EXPECT_LE(problem.size(), 600U);
}
