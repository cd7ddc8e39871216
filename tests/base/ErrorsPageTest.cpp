#include "ErrorsPage.h"

#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

namespace {

TEST(ErrorsPage, InTheDocumentationIsUpToDate)
{
    std::ifstream file(KV_ERRORS_PAGE, std::ios::binary);
    ASSERT_TRUE(file) << "docs/errors.md is missing; kv_errors_page writes it";
    const std::string committed{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    EXPECT_TRUE(committed == errorsPage()) << "messages have changed; write docs/errors.md anew with kv_errors_page";
}

TEST(ErrorsPage, HasARowForEachMessage)
{
    const std::string page = errorsPage();
    EXPECT_NE(page.find("| 0x000401 | AllocationFailed |  | `Memory allocation failed. Not enough memory for requested "
                        "operation.` |\n"),
              std::string::npos);
    EXPECT_NE(page.find("| 0x1600813 | DownloadToPathFailed | %s%s%s%s%s | `"), std::string::npos);
    EXPECT_NE(page.find("`Out of  memory. The requested operation cannot be completed.`"), std::string::npos);
}

}  // namespace
