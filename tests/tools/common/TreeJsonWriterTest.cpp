#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "inventory/ids/KvNInventoryIDs.h"
#include "tests/tools/common/TreeJsonTest.h"

using namespace KvNInventoryIDs;

namespace {

class TreeJsonWriting : public testing::Test
{
protected:
    template <class T>
    void add(const KvCInventoryAddress& address, const T& value, const char* unit = "", bool modifiable = false,
             KvUInt32 relevance = 0)
    {
        m_root.createParameter<T>(m_errors, address, value, unit, modifiable, relevance, nullptr, nullptr, nullptr);
    }
    template <class T>
    std::string valueOf(const T& value)
    {
        const KvCInventoryParameter parameter(m_errors, SIZE, "SIZE", value, "", false, 0);
        std::string out;
        KvNTreeJson::appendValue(out, parameter);
        return out;
    }

    KvCErrorListPool m_errors;
    KvCInventoryItem m_root{m_errors, ROOT, "ROOT"};
};

/** Takes a few pieces only. */
class FullSink : public KvNTreeJson::Sink
{
public:
    bool write(std::string_view) override { return ++pieces < 3; }
    int pieces = 0;
};

}  // namespace

TEST_F(TreeJsonWriting, HasEveryKeyInItsPlace)
{
    add<KvUInt32>(SIZE, 7, "Byte", true, 3);
    add<KvCString>(CPU[2] / NAME, "x");
    EXPECT_EQ(
        jsonText(m_root),
        "{\"format\": \"korvel-inventory\", \"version\": 1, \"tree\":\n"
        "{\"id\": \"ROOT\", \"index\": 1, \"description\": \"ROOT\",\n"
        " \"parameters\": [\n"
        "  {\"id\": \"SIZE\", \"description\": \"SIZE\", \"type\": \"UInt32\", \"value\": 7, \"unit\": \"Byte\", "
        "\"modifiable\": true, \"relevance\": 3}],\n"
        " \"items\": [\n"
        "  {\"id\": \"CPU\", \"index\": 2, \"description\": \"CPU\",\n"
        "   \"parameters\": [\n"
        "    {\"id\": \"NAME\", \"description\": \"NAME\", \"type\": \"String\", \"value\": \"x\", \"unit\": \"\", "
        "\"modifiable\": false, \"relevance\": 0}],\n"
        "   \"items\": []}]}}\n");
}

TEST_F(TreeJsonWriting, NumbersAnIdWithoutName)
{
    KvCInventoryItem item(m_errors, KvCInventoryAddress(4711, 9), "of its own");
    KvNTreeJson::TextSink sink;
    EXPECT_TRUE(KvNTreeJson::writeItem(sink, item));
    EXPECT_EQ(sink.text(),
              "{\"id\": 4711, \"index\": 9, \"description\": \"of its own\",\n \"parameters\": [],\n \"items\": []}");
}

TEST_F(TreeJsonWriting, WritesEachTypeOfValue)
{
    EXPECT_EQ(valueOf<char>(-128), "-128");
    EXPECT_EQ(valueOf<unsigned char>(255), "255");
    EXPECT_EQ(valueOf<short>(-32768), "-32768");
    EXPECT_EQ(valueOf<unsigned short>(65535), "65535");
    EXPECT_EQ(valueOf<KvInt32>(-2147483647 - 1), "-2147483648");
    EXPECT_EQ(valueOf<KvUInt32>(4294967295U), "4294967295");
    EXPECT_EQ(valueOf<KvInt64>(std::numeric_limits<KvInt64>::min()), "\"-9223372036854775808\"");
    EXPECT_EQ(valueOf<KvUInt64>(std::numeric_limits<KvUInt64>::max()), "\"18446744073709551615\"");
    EXPECT_EQ(valueOf<float>(0.1F), "0.1");
    EXPECT_EQ(valueOf<double>(0.1), "0.1");
    EXPECT_EQ(valueOf<double>(std::numeric_limits<double>::infinity()), "\"Infinity\"");
    EXPECT_EQ(valueOf<KvCString>("a\"b\n"), "\"a\\\"b\\n\"");
    EXPECT_EQ(valueOf<KvCString>("\xFF"), "{\"base64\": \"/w==\"}");
    EXPECT_EQ(valueOf<KvCVersion>(KvCVersion(3, 1, 2, 2, 4, 7)), "\"3.1.2b4p7\"");
}

TEST_F(TreeJsonWriting, PacksAVersionWhoseTextLosesSomething)
{
    EXPECT_EQ(valueOf<KvCVersion>(KvCVersion(1, 2, 0, 3, 4, 0)), "\"0x0102000300040000\"");
    EXPECT_EQ(valueOf<KvCVersion>(KvCVersion(1, 2, 0, 0, 4, 0)), "\"0x0102000000040000\"");
}

TEST_F(TreeJsonWriting, WritesArrays)
{
    KvCInventoryParameter numbers(m_errors, SIZE, "SIZE", 0x1124);
    const KvUInt32 three[] = {1, 2, 4294967295U};
    static_cast<KvCParam&>(numbers).setValue(m_errors, KvCArrayParam<KvUInt32>(3, three, nullptr));
    std::string out;
    KvNTreeJson::appendParameter(out, numbers);
    EXPECT_EQ(out,
              "{\"id\": \"SIZE\", \"description\": \"SIZE\", \"type\": \"UInt32Arr\", \"value\": [1, 2, 4294967295], "
              "\"unit\": \"\", \"modifiable\": false, \"relevance\": 0}");
    KvCInventoryParameter floats(m_errors, SIZE, "SIZE", 0x1218);
    const double two[] = {0.5, std::numeric_limits<double>::quiet_NaN()};
    static_cast<KvCParam&>(floats).setValue(m_errors, KvCArrayParam<double>(2, two, nullptr));
    out.clear();
    KvNTreeJson::appendValue(out, floats);
    EXPECT_EQ(out, "[0.5, \"NaN\"]");
}

TEST_F(TreeJsonWriting, EndsWhenNobodyTakesTheText)
{
    for (KvUInt32 i = 1; i < 5000; ++i)
        add<KvUInt32>(CPU[i] / SIZE, i);
    FullSink sink;
    EXPECT_FALSE(KvNTreeJson::writeTree(sink, m_root));
    EXPECT_EQ(sink.pieces, 3);
}

TEST(TreeJsonSamples, SectionsAndTextsAreTheSameTrees)
{
    for (const std::string name : {"single-board", "rack"}) {
        const std::string section = fileBytes(std::string(KV_SAMPLES_DIR) + "/" + name + ".inv");
        const std::string text = fileBytes(std::string(KV_SAMPLES_DIR) + "/" + name + ".json");
        std::string problem;
        const auto read = jsonTree(text, problem);
        ASSERT_NE(read, nullptr) << problem;
        EXPECT_EQ(sectionBytes(*read), section) << name;
        const auto stored = sectionTree(section);
        ASSERT_NE(stored, nullptr);
        EXPECT_EQ(jsonText(*stored), jsonText(*read)) << name;
        const auto again = jsonTree(jsonText(*stored), problem);
        ASSERT_NE(again, nullptr) << problem;
        EXPECT_EQ(sectionBytes(*again), section) << name;
    }
}
