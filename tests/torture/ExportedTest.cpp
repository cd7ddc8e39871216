#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "Exported.h"
#include "Operations.h"

/* The table of operations against what the shared library exports: none is left out, and none is made up. */

namespace {

using Exported::Access;

/** Operations without a row of their own, and why. */
const std::map<std::string, const char*> exceptions = {
    {"KvCInventoryManager::createRootHandleByIpSubnetMask",
     "searches by broadcast, whose time passes for every allocation; the rest is that of createRootHandleByFilter"},
    {"KvCInventoryManager::createRootHandleBySystemName", "the same"},
    {"KvCRpcClient::sendCall", "takes what only the library can make; a part of KvDAL_putFileU"},
    {"KvCRpcClient::takeReply", "the same"},
    {"KvCRpcClient::dropCall", "the same"},
};

std::string outputOf(const std::string& command)
{
    std::string output;
    if (std::FILE* const pipe = popen(command.c_str(), "r")) {
        char block[65536];
        while (const std::size_t got = std::fread(block, 1, sizeof block, pipe))
            output.append(block, got);
        if (pclose(pipe) != 0)
            output.clear();
    }
    return output;
}

std::map<std::string, Access> declared()
{
    std::map<std::string, Access> all;
    std::istringstream headers(KV_PUBLIC_HEADERS);
    for (std::string header; std::getline(headers, header, ',');) {
        std::ifstream file(KV_SOURCE_DIR "/" + header);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        EXPECT_FALSE(text.empty()) << header;
        for (const auto& [name, access] : Exported::declarations(text)) {
            const auto [place, isNew] = all.emplace(name, access);
            if (!isNew && access == Access::Public)
                place->second = access;
        }
    }
    return all;
}

/** "KvCString" of "KvCString::split"; empty for what belongs to no class. */
std::string classOf(const std::string& name)
{
    const std::size_t end = name.rfind("::");
    return end == std::string::npos ? "" : name.substr(0, end);
}

std::set<std::string> tabled()
{
    std::set<std::string> names;
    for (const Row& row : operations()) {
        std::string rest = row.names;
        // Names are separated by blanks; that of an allocation operator has one of its own.
        for (std::istringstream words(rest); words >> rest;) {
            if (rest == "operator") {
                words >> rest;
                rest = "operator " + rest;
            }
            EXPECT_TRUE(names.insert(rest).second || rest.find("KvCArrayParam") == 0) << rest << " has two rows";
        }
    }
    return names;
}

struct Operations : testing::Test
{
    const std::set<std::string> exported =
        Exported::functions(outputOf("nm -D --defined-only --demangle '" KV_LIBRARY "'"));
    const std::map<std::string, Access> declarations = declared();
    const std::set<std::string> table = tabled();
};

TEST_F(Operations, OfTheLibraryAllHaveARow)
{
    ASSERT_GT(exported.size(), 300u);
    std::size_t operationCount = 0;
    std::string missing;
    for (const std::string& name : exported) {
        const auto place = declarations.find(name);
        if (place == declarations.end() || place->second != Access::Public)
            continue;
        ++operationCount;
        const auto exception = exceptions.find(name);
        if (exception != exceptions.end())
            std::printf("without a row: %s: %s\n", name.c_str(), exception->second);
        else if (table.count(name) == 0)
            missing += name + " ";
    }
    EXPECT_EQ(missing, "");
    EXPECT_GT(operationCount, 300u);
    std::printf("%zu exported names, %zu of them operations, in %zu rows\n", exported.size(), operationCount,
                operations().size());
}

TEST_F(Operations, InTheTableAreAllExportedOrInPublicHeaders)
{
    std::string unknown;
    for (const std::string& name : table) {
        const auto place = declarations.find(name);
        const bool isInline = place != declarations.end() && place->second == Access::Public;
        if (exported.count(name) == 0 && !isInline)
            unknown += name + " ";
    }
    for (const auto& [name, why] : exceptions)
        if (exported.count(name) == 0 || table.count(name) != 0)
            unknown += name + " ";
    EXPECT_EQ(unknown, "");
}

/* What the reading of headers did not see would be left out without a word. */
TEST_F(Operations, OfClassesInPublicHeadersAreSeenInThem)
{
    std::set<std::string> classes;
    for (const auto& [name, access] : declarations)
        classes.insert(classOf(name));
    std::string unseen;
    for (const std::string& name : exported)
        if (!classOf(name).empty() && classes.count(classOf(name)) != 0 && declarations.count(name) == 0)
            unseen += name + " ";
    EXPECT_EQ(unseen, "");
}

}  // namespace
