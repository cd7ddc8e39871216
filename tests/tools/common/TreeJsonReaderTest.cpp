#include <gtest/gtest.h>

#include <cmath>

#include "inventory/ids/KvNInventoryIDs.h"
#include "tests/support/FailingAllocation.h"
#include "tests/tools/common/TreeJsonTest.h"

using namespace KvNInventoryIDs;

namespace {

/** A document around the members of its root item. */
std::string document(const std::string& members)
{
    return "{\"format\": \"korvel-inventory\", \"version\": 1, \"tree\": {\"id\": \"ROOT\"" +
           (members.empty() ? "" : ", " + members) + "}}";
}

/** A document whose root has one parameter. */
std::string oneParameter(const std::string& members)
{
    return document("\"parameters\": [{" + members + "}]");
}

std::string withValue(const std::string& type, const std::string& value)
{
    return oneParameter("\"id\": \"SIZE\", \"type\": \"" + type + "\", \"value\": " + value);
}

std::string problemOf(const std::string& text)
{
    std::string problem;
    const auto tree = jsonTree(text, problem);
    EXPECT_EQ(tree == nullptr, !problem.empty()) << text;
    return problem;
}

/** The only parameter of a document, written again. */
std::string valueThrough(const std::string& type, const std::string& value)
{
    std::string problem;
    const auto tree = jsonTree(withValue(type, value), problem);
    if (tree == nullptr)
        return problem;
    std::string out;
    KvNTreeJson::appendValue(out, *tree->getParameter(SIZE));
    return out;
}

constexpr const char* valuePlace = "at \"/tree/parameters/0/value\": ";

}  // namespace

TEST(TreeJsonReading, FillsInWhatMayBeLeftOut)
{
    std::string problem;
    const auto tree = jsonTree(
        document("\"parameters\": [{\"id\": \"SIZE\", \"type\": \"UInt8\", \"value\": 5}], \"items\": [{\"id\": 2}]"),
        problem);
    ASSERT_NE(tree, nullptr) << problem;
    EXPECT_STREQ(tree->getDescription(), "ROOT");
    EXPECT_EQ(tree->getUnitId(), 1U);
    const KvCInventoryParameter* size = tree->getParameter(SIZE);
    ASSERT_NE(size, nullptr);
    EXPECT_STREQ(size->getDescription(), "SIZE");
    EXPECT_STREQ(size->getUnit(), "");
    EXPECT_FALSE(size->isModifiable());
    EXPECT_EQ(size->getRelevance(), 0U);
    KvCErrorListPool errors;
    EXPECT_EQ(size->getValue<unsigned char>(errors), 5);
    ASSERT_NE(tree->getItem(CPU), nullptr);
    EXPECT_STREQ(tree->getItem(CPU)->getDescription(), "CPU");
}

TEST(TreeJsonReading, TakesKeysInAnyOrder)
{
    const std::string text =
        "{\"tree\": {\"items\": [{\"index\": 3, \"parameters\": [{\"relevance\": 9, \"value\": \"7\", \"modifiable\": "
        "true, "
        "\"unit\": \"V\", \"type\": \"ULong64\", \"description\": \"d\", \"id\": 98}], \"description\": \"c\", \"id\": "
        "\"CPU\"}], "
        "\"id\": 1}, \"version\": 1, \"format\": \"korvel-inventory\"}";
    std::string problem;
    const auto tree = jsonTree(text, problem);
    ASSERT_NE(tree, nullptr) << problem;
    const KvCInventoryParameter* size = tree->getParameter(CPU[3] / SIZE);
    ASSERT_NE(size, nullptr);
    KvCErrorListPool errors;
    EXPECT_EQ(size->getValue<KvUInt64>(errors), 7U);
    EXPECT_STREQ(size->getUnit(), "V");
    EXPECT_STREQ(size->getDescription(), "d");
    EXPECT_TRUE(size->isModifiable());
    EXPECT_EQ(size->getRelevance(), 9U);
    EXPECT_STREQ(tree->getItem(CPU[3])->getDescription(), "c");
}

TEST(TreeJsonReading, TakesNumbersAndThePlaceholderForIds)
{
    std::string problem;
    const auto tree = jsonTree(
        "{\"format\": \"korvel-inventory\", \"version\": 1, \"tree\": {\"id\": \"DUMMY\", \"items\": [{\"id\": "
        "4294967295, "
        "\"index\": 4294967295, \"description\": \"x\"}]}}",
        problem);
    ASSERT_NE(tree, nullptr) << problem;
    EXPECT_EQ(tree->getClassId(), 0U);
    EXPECT_EQ(tree->getFirstSubItem()->getClassId(), 4294967295U);
    EXPECT_EQ(tree->getFirstSubItem()->getUnitId(), 4294967295U);
}

TEST(TreeJsonReading, ReadsEachTypeOfValue)
{
    const char* const rows[][2] = {{"Int8", "-128"},
                                   {"UInt8", "255"},
                                   {"Int16", "-32768"},
                                   {"UInt16", "65535"},
                                   {"Int32", "-2147483648"},
                                   {"UInt32", "4294967295"},
                                   {"Long64", "\"-9223372036854775808\""},
                                   {"ULong64", "\"18446744073709551615\""},
                                   {"Float32", "3.4028235e+38"},
                                   {"Float32", "1e-45"},
                                   {"Float32", "-0.0"},
                                   {"Float32", "\"NaN\""},
                                   {"Float64", "5e-324"},
                                   {"Float64", "2e+09"},
                                   {"Float64", "\"-Infinity\""},
                                   {"String", "\"\""},
                                   {"String", "\"a\\u0001\""},
                                   {"String", "{\"base64\": \"/w==\"}"},
                                   {"Version", "\"3.1.2b4p7\""},
                                   {"Version", "\"0x0102000300040000\""},
                                   {"UInt32Arr", "[]"},
                                   {"UInt32Arr", "[0, 4294967295]"},
                                   {"Float64Arr", "[1, -2.5, \"NaN\", \"Infinity\", \"-Infinity\"]"}};
    for (const auto& row : rows)
        EXPECT_EQ(valueThrough(row[0], row[1]), row[1]) << row[0];
}

TEST(TreeJsonReading, RoundsOnceToFloats)
{
    // Halfway between two floats but for its last digit: by way of a double it would go down.
    EXPECT_EQ(valueThrough("Float32", "1.000000178813934326171876"), "1.0000002");
    EXPECT_EQ(valueThrough("Float32", "16777217"), "16777216");
    EXPECT_EQ(valueThrough("Float64", "18446744073709551615"), "18446744073709551616");
    EXPECT_EQ(valueThrough("Float64", "1e-400"), "0");
    EXPECT_EQ(valueThrough("Float32", "-1e-60"), "-0.0");
}

TEST(TreeJsonReading, RefusesValuesThatDoNotFitTheirType)
{
    const auto expect = [](const char* type, const char* value, const std::string& what) {
        EXPECT_EQ(problemOf(withValue(type, value)), valuePlace + what) << type << " " << value;
    };
    expect("Int8", "128", "Int8 takes an integer from -128 to 127");
    expect("Int8", "-129", "Int8 takes an integer from -128 to 127");
    expect("UInt8", "-1", "UInt8 takes an integer from 0 to 255");
    expect("UInt16", "65536", "UInt16 takes an integer from 0 to 65535");
    expect("UInt16", "1.0", "UInt16 takes an integer from 0 to 65535");
    expect("Int32", "2147483648", "Int32 takes an integer from -2147483648 to 2147483647");
    expect("UInt32", "4294967296", "UInt32 takes an integer from 0 to 4294967295");
    expect("UInt32", "\"1\"", "UInt32 takes an integer from 0 to 4294967295");
    expect("UInt32", "[1]", "UInt32 takes an integer from 0 to 4294967295");
    const std::string long64 = "Long64 takes an integer from -9223372036854775808 to 9223372036854775807 as a string";
    for (const char* value : {"1", "\"\"", "\"x\"", "\"1 \"", "\"+1\"", "\"9223372036854775808\"", "\"1\\u0000\""})
        expect("Long64", value, long64);
    expect("ULong64", "\"-1\"", "ULong64 takes an integer from 0 to 18446744073709551615 as a string");
    const std::string number = " takes a number, \"NaN\", \"Infinity\" or \"-Infinity\"";
    for (const char* value : {"\"1\"", "\"nan\"", "1e39", "[]", "{\"base64\": \"\"}"})
        expect("Float32", value, "Float32" + number);
    expect("Float64", "\"\"", "Float64" + number);
    expect("String", "1", "String takes a text");
    expect("String", "\"a\\u0000b\"", "contains a NUL");
    const std::string version = "Version takes a version such as \"3.1.2b4p7\", or \"0x\" and 16 hexadecimal digits";
    for (const char* value :
         {"1.2", "\"1\"", "\"1.2x\"", "\"300.1\"", "\"0x1\"", "\"0x010200030004000g\"", "\"1.2\\u0000\""})
        expect("Version", value, version);
    expect("UInt32Arr", "1", "UInt32Arr takes an array of integers from 0 to 4294967295");
    EXPECT_EQ(problemOf(withValue("UInt32Arr", "[1, 2, -1]")),
              "at \"/tree/parameters/0/value/2\": UInt32Arr takes an array of integers from 0 to 4294967295");
    EXPECT_EQ(problemOf(withValue("UInt32Arr", "[1.5]")),
              "at \"/tree/parameters/0/value/0\": UInt32Arr takes an array of integers from 0 to 4294967295");
    EXPECT_EQ(problemOf(withValue("Float64Arr", "[1, \"x\"]")), "at \"/tree/parameters/0/value/1\": must be a number");
    EXPECT_EQ(problemOf(withValue("Float64Arr", "[1, [2]]")), "at \"/tree/parameters/0/value/1\": must be a number");
    for (const char* value : {"null", "true"})
        expect("UInt8", value, "must be a value");
}

TEST(TreeJsonReading, NamesThePlaceOfWhatIsMissing)
{
    EXPECT_EQ(problemOf("{}"), "at \"/format\": is missing");
    EXPECT_EQ(problemOf("{\"format\": \"korvel-inventory\"}"), "at \"/version\": is missing");
    EXPECT_EQ(problemOf("{\"format\": \"korvel-inventory\", \"version\": 1}"), "at \"/tree\": is missing");
    EXPECT_EQ(problemOf("{\"format\": \"korvel-inventory\", \"version\": 1, \"tree\": {}}"),
              "at \"/tree/id\": is missing");
    EXPECT_EQ(problemOf(document("\"items\": [{\"id\": 2}, {}]")), "at \"/tree/items/1/id\": is missing");
    EXPECT_EQ(problemOf(oneParameter("")), "at \"/tree/parameters/0/id\": is missing");
    EXPECT_EQ(problemOf(oneParameter("\"id\": 1")), "at \"/tree/parameters/0/type\": is missing");
    EXPECT_EQ(problemOf(oneParameter("\"id\": 1, \"type\": \"UInt8\"")), "at \"/tree/parameters/0/value\": is missing");
    EXPECT_EQ(problemOf(document("\"items\": [{\"id\": 811}]")),
              "at \"/tree/items/0/description\": is missing, and the ID has no registered name");
    EXPECT_EQ(problemOf(oneParameter("\"id\": 811, \"type\": \"UInt8\", \"value\": 1")),
              "at \"/tree/parameters/0/description\": is missing, and the ID has no registered name");
    EXPECT_EQ(problemOf(oneParameter("\"unit\": {}")), "at \"/tree/parameters/0/unit/base64\": is missing");
}

TEST(TreeJsonReading, NamesThePlaceOfWhatIsUnknown)
{
    EXPECT_EQ(problemOf("{\"formats\": 1}"), "at \"/formats\": is no member of a tree document");
    EXPECT_EQ(problemOf(document("\"a/b\": 1")), "at \"/tree/a~1b\": is no member of an item");
    EXPECT_EQ(problemOf(document("\"items\": [{\"id\": 2, \"items\": [{\"id\": 2}, {\"type\": 1}]}]")),
              "at \"/tree/items/0/items/1/type\": is no member of an item");
    EXPECT_EQ(problemOf(oneParameter("\"index\": 1")), "at \"/tree/parameters/0/index\": is no member of a parameter");
    EXPECT_EQ(problemOf(document("\"items\": [{\"id\": \"CPUS\"}]")),
              "at \"/tree/items/0/id\": \"CPUS\" is not the name of an ID");
    EXPECT_EQ(problemOf(oneParameter("\"type\": \"UInt7\"")),
              "at \"/tree/parameters/0/type\": \"UInt7\" is not a type");
    EXPECT_EQ(problemOf(document("\"description\": {\"base65\": \"\"}")),
              "at \"/tree/description/base65\": is unknown: a text is a string or {\"base64\": \"...\"}");
}

TEST(TreeJsonReading, NamesThePlaceOfWhatIsOfAnotherKind)
{
    EXPECT_EQ(problemOf("1"), "at \"\": must be an object with \"format\", \"version\" and \"tree\"");
    EXPECT_EQ(problemOf("[]"), "at \"\": must be an object with \"format\", \"version\" and \"tree\"");
    EXPECT_EQ(problemOf("{\"format\": \"korvel-board\"}"), "at \"/format\": must be \"korvel-inventory\"");
    EXPECT_EQ(problemOf("{\"format\": 1}"), "at \"/format\": must be \"korvel-inventory\"");
    for (const char* version : {"2", "\"1\"", "1.0", "-1", "{}", "null"})
        EXPECT_EQ(problemOf(std::string("{\"version\": ") + version + "}"), "at \"/version\": must be 1");
    for (const char* tree : {"1", "[]", "null", "\"x\"", "true"})
        EXPECT_EQ(problemOf(std::string("{\"tree\": ") + tree + "}"), "at \"/tree\": must be an item");
    for (const char* index : {"-1", "4294967296", "1.0", "\"1\"", "null", "[]", "{}"})
        EXPECT_EQ(problemOf(document(std::string("\"index\": ") + index)),
                  "at \"/tree/index\": must be an integer from 0 to 4294967295");
    EXPECT_EQ(problemOf(oneParameter("\"id\": 4294967296")),
              "at \"/tree/parameters/0/id\": must be the name of an ID or a number from 0 to 4294967295");
    EXPECT_EQ(problemOf(oneParameter("\"id\": true")),
              "at \"/tree/parameters/0/id\": must be the name or the number of an ID");
    EXPECT_EQ(problemOf(oneParameter("\"modifiable\": 1")),
              "at \"/tree/parameters/0/modifiable\": must be true or false");
    EXPECT_EQ(problemOf(oneParameter("\"relevance\": -1")),
              "at \"/tree/parameters/0/relevance\": must be an integer from 0 to 4294967295");
    EXPECT_EQ(problemOf(oneParameter("\"type\": 1")), "at \"/tree/parameters/0/type\": must be the name of a type");
    EXPECT_EQ(problemOf(oneParameter("\"unit\": []")), "at \"/tree/parameters/0/unit\": must be a text");
    EXPECT_EQ(problemOf(oneParameter("\"description\": 1")), "at \"/tree/parameters/0/description\": must be a text");
    EXPECT_EQ(problemOf(document("\"parameters\": {}")), "at \"/tree/parameters\": must be an array of parameters");
    EXPECT_EQ(problemOf(document("\"parameters\": [1]")), "at \"/tree/parameters/0\": must be a parameter");
    EXPECT_EQ(problemOf(document("\"items\": 1")), "at \"/tree/items\": must be an array of items");
    EXPECT_EQ(problemOf(document("\"items\": [{\"id\": 2}, [] ]")), "at \"/tree/items/1\": must be an item");
    EXPECT_EQ(problemOf(document("\"description\": {\"base64\": 1}")),
              "at \"/tree/description/base64\": must be a string");
    EXPECT_EQ(problemOf(document("\"description\": {\"base64\": \"x\"}")),
              "at \"/tree/description/base64\": is not base64");
    EXPECT_EQ(problemOf(document("\"description\": {\"base64\": \"AA==\"}")),
              "at \"/tree/description\": contains a NUL");
    EXPECT_EQ(problemOf(oneParameter("\"unit\": \"\\u0000\"")), "at \"/tree/parameters/0/unit\": contains a NUL");
}

TEST(TreeJsonReading, NamesThePlaceOfWhatIsThereTwice)
{
    EXPECT_EQ(problemOf("{\"version\": 1, \"version\": 1}"), "at \"/version\": is given twice");
    EXPECT_EQ(problemOf(document("\"id\": 1")), "at \"/tree/id\": is given twice");
    EXPECT_EQ(problemOf(oneParameter("\"id\": 1, \"id\": 1")), "at \"/tree/parameters/0/id\": is given twice");
    EXPECT_EQ(problemOf(document("\"description\": {\"base64\": \"\", \"base64\": \"\"}")),
              "at \"/tree/description/base64\": is given twice");
    EXPECT_EQ(problemOf(document("\"items\": [{\"id\": 2}, {\"id\": 3}, {\"id\": \"CPU\", \"index\": 1}]")),
              "at \"/tree/items/2\": has the ID and the index of an earlier item");
    const std::string parameter = "{\"id\": \"SIZE\", \"type\": \"UInt8\", \"value\": 1}";
    EXPECT_EQ(problemOf(document("\"parameters\": [" + parameter + ", " + parameter + "]")),
              "at \"/tree/parameters/1/id\": is the ID of an earlier parameter");
}

TEST(TreeJsonReading, NamesThePlaceWhereTheTextBreaks)
{
    EXPECT_EQ(problemOf("").substr(0, 21), "at \"\": parse error at");
    EXPECT_EQ(problemOf(document("\"items\": [{\"id\": 2, ]")).substr(0, 38),
              "at \"/tree/items/0/id\": parse error at ");
    EXPECT_EQ(problemOf(document("") + "x").substr(0, 23), "at \"/tree\": parse error");
    EXPECT_EQ(problemOf(withValue("Float64", "1e999")).substr(0, 42), "at \"/tree/parameters/0/value\": number over");
    EXPECT_EQ(problemOf(withValue("String", "\"\xFF\"")).substr(0, 42), "at \"/tree/parameters/0/value\": parse error");
}

TEST(TreeJsonReading, CutsLongPointersAndNames)
{
    std::string text = document("\"items\": [");
    std::string items;
    for (int i = 0; i < 1000; ++i)
        items += "{\"id\": 2, \"items\": [";
    const std::string problem = problemOf(text.substr(0, text.size() - 2) + items + "7");
    EXPECT_EQ(problem.size(), 4 + 200 + 3 + std::string("must be an item").size());
    EXPECT_EQ(problem.substr(0, 27), "at \"/tree/items/0/items/0/i");
    EXPECT_LE(problemOf(document("\"items\": [{\"id\": \"" + std::string(100000, 'X') + "\"}]")).size(), 200U);
    EXPECT_LE(problemOf(document("\"" + std::string(100000, 'X') + "\": 1")).size(), 300U);
}

TEST(TreeJsonReading, EveryPrefixIsAnErrorThatNamesAPlace)
{
    const std::string text = fileBytes(std::string(KV_SAMPLES_DIR) + "/single-board.json");
    ASSERT_GT(text.size(), 3000U);
    const std::size_t end = text.find_last_not_of(" \r\n") + 1;
    for (std::size_t length = 0; length < end; length += length < 2000 ? 1 : 997)
        EXPECT_EQ(problemOf(text.substr(0, length)).substr(0, 4), "at \"") << length;
}

TEST(TreeJsonReading, AnItemCanStandInAnotherDocument)
{
    KvNJson::TextSource good("{\"id\": \"CPU\", \"index\": 2}");
    std::string problem;
    const auto tree = KvNTreeJson::readItem(good, problem, "/boards/3/tree");
    ASSERT_NE(tree, nullptr) << problem;
    EXPECT_EQ(tree->getID(), CPU[2]);
    KvNJson::TextSource bad("{\"id\": \"CPU\", \"items\": [{\"id\": null}]}");
    EXPECT_EQ(KvNTreeJson::readItem(bad, problem, "/boards/3/tree"), nullptr);
    EXPECT_EQ(problem, "at \"/boards/3/tree/items/0/id\": must be the name or the number of an ID");
    KvNJson::TextSource none("[]");
    EXPECT_EQ(KvNTreeJson::readItem(none, problem, "/boards/0/tree"), nullptr);
    EXPECT_EQ(problem, "at \"/boards/0/tree\": must be an item");
}

TEST(TreeJsonReading, TellsOfMissingMemory)
{
    const std::string text = document(
        "\"parameters\": [{\"id\": \"NAME\", \"type\": \"String\", \"value\": \"longer than any short one\", "
        "\"unit\": \"another long one of more than fifteen\"}], \"items\": [{\"id\": 2, "
        "\"description\": \"a processor of some kind\"}]");
    std::size_t number = 1;
    for (;; ++number) {
        std::string problem;
        const FailingAllocation failing(number);
        const auto tree = jsonTree(text, problem);
        if (!failing.hasFailed()) {
            EXPECT_NE(tree, nullptr);
            break;
        }
        EXPECT_EQ(tree, nullptr) << number;
        EXPECT_NE(problem, "") << number;
    }
    EXPECT_GT(number, 4U);
}
