#include "tools/common/JsonEvents.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace KvNJson;

namespace {

/** Writes down what it is told. */
class Recorder : public Handler
{
public:
    bool null() override { return add("null"); }
    bool boolean(bool value) override { return add(value ? "true" : "false"); }
    bool number(const Number& value) override
    {
        switch (value.kind) {
            case Number::Kind::Signed:
                return add("i" + std::to_string(value.asSigned));
            case Number::Kind::Unsigned:
                return add("u" + std::to_string(value.asUnsigned));
            default:
                return add("f" + std::string(value.text));
        }
    }
    bool text(std::string_view value) override { return add("'" + std::string(value) + "'"); }
    bool startObject() override { return add("{"); }
    bool key(std::string_view name) override { return add(std::string(name) + ":"); }
    bool endObject() override { return add("}"); }
    bool startArray() override { return add("["); }
    bool endArray() override { return add("]"); }
    void malformed(const std::string& what) override { problem = what; }

    std::string events;
    std::string problem;
    std::size_t most = 1000;

private:
    bool add(const std::string& event)
    {
        events += event + " ";
        return --most > 0;
    }
};

/** Delivers a text in pieces of a few bytes. */
class Drip : public Source
{
public:
    Drip(std::string_view text, std::size_t piece) : m_text(text), m_piece(piece) {}
    std::string_view next() override
    {
        const std::string_view piece = m_text.substr(0, m_piece);
        m_text.remove_prefix(piece.size());
        return piece;
    }

private:
    std::string_view m_text;
    std::size_t m_piece;
};

std::string inJson(std::string_view bytes)
{
    std::string out;
    appendText(out, bytes);
    return out;
}

template <class T>
std::enable_if_t<std::is_floating_point_v<T>, std::string> inJson(T value)
{
    std::string out;
    appendFloat(out, value);
    return out;
}

}  // namespace

TEST(JsonReading, TellsTheTokensInOrder)
{
    const std::string_view text = R"( {"a": [1, -2, 2.5e3, "x\n", true, false, null], "b": {}} )";
    for (const std::size_t piece : {1, 2, 7, 1000}) {
        Drip source(text, piece);
        Recorder recorder;
        EXPECT_TRUE(parse(source, recorder));
        EXPECT_EQ(recorder.events, "{ a: [ u1 i-2 f2.5e3 'x\n' true false null ] b: { } } ");
    }
}

TEST(JsonReading, StopsWhenTheHandlerHasEnough)
{
    TextSource source("[1, 2, 3]");
    Recorder recorder;
    recorder.most = 2;
    EXPECT_FALSE(parse(source, recorder));
    EXPECT_EQ(recorder.events, "[ u1 ");
    EXPECT_EQ(recorder.problem, "");
}

TEST(JsonReading, SaysWhereADocumentIsNone)
{
    for (const char* text :
         {"", "{", "[1,]", "{\"a\" 1}", "[1] 2", "nul", "\"\x01\"", "\"\xFF\"", "\"\\ud800\"", "01", "1e999"}) {
        TextSource source(text);
        Recorder recorder;
        EXPECT_FALSE(parse(source, recorder)) << text;
        EXPECT_NE(recorder.problem, "") << text;
        EXPECT_EQ(recorder.problem.find("json.exception"), std::string::npos) << text;
    }
}

TEST(JsonReading, KeepsMessagesShort)
{
    const std::string text = "[" + std::string(100000, 'x');
    TextSource source(text);
    Recorder recorder;
    EXPECT_FALSE(parse(source, recorder));
    EXPECT_LE(recorder.problem.size(), 303U);
}

TEST(JsonReading, ReadsAMillionLevels)
{
    const std::string text = std::string(1000000, '[') + std::string(1000000, ']');
    TextSource source(text);
    Recorder recorder;
    recorder.most = 2000001;
    EXPECT_TRUE(parse(source, recorder));
    EXPECT_EQ(recorder.events.size(), 4000000U);
}

TEST(JsonTexts, EscapeWhatJsonAndTerminalsCannotTake)
{
    EXPECT_EQ(inJson("plain /"), "\"plain /\"");
    EXPECT_EQ(inJson("\"\\\b\f\n\r\t"), R"("\"\\\b\f\n\r\t")");
    EXPECT_EQ(inJson("\x01\x1f\x7f\xC2\x9B"), R"("\u0001\u001f\u007f\u009b")");
    EXPECT_EQ(inJson("\xC3\xA4\xC2\xA0\xE2\x82\xAC"), "\"\xC3\xA4\xC2\xA0\xE2\x82\xAC\"");
    EXPECT_EQ(inJson("a\xE2\x80\xAE\xE2\x81\xA6\xD8\x9C\xEF\xBB\xBF\xF0\x9F\x98\x80"),
              "\"a\\u202e\\u2066\\u061c\\ufeff\xF0\x9F\x98\x80\"");
}

TEST(JsonTexts, AreBase64WhenTheyAreNoUtf8)
{
    EXPECT_EQ(inJson("\xFF"), R"({"base64": "/w=="})");
    EXPECT_EQ(inJson("a\xFF"), R"({"base64": "Yf8="})");
    EXPECT_EQ(inJson("ab\xFF"), R"({"base64": "YWL/"})");
    EXPECT_EQ(inJson("abc\xFF"), R"({"base64": "YWJj/w=="})");
}

TEST(Utf8, IsWhatTheStandardAllows)
{
    for (const char* good : {"", "a", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                             "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(isUtf8(good)) << inJson(good);
    for (const char* bad :
         {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2(", "\xE0\x9F\xBF", "\xE2\x82", "\xED\xA0\x80",
          "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFE", "\xFF", "a\xE2"})
        EXPECT_FALSE(isUtf8(bad)) << inJson(bad);
}

TEST(Base64, ReadsBackEveryByte)
{
    std::string bytes;
    for (int i = 255; i > 0; --i) {
        bytes += static_cast<char>(i);
        const std::string text = inJson(bytes);
        std::string back;
        ASSERT_TRUE(decodeBase64(text.substr(12, text.size() - 14), back)) << text;
        EXPECT_EQ(back, bytes);
    }
}

TEST(Base64, IsRefusedWhenItIsNone)
{
    std::string out;
    for (const char* text : {"a", "ab", "abc", "a===", "====", "ab=c", "ab!=", "YWJ=", "YR==", "YWJj\n", "YQ==YQ=="})
        EXPECT_FALSE(decodeBase64(text, out)) << text;
    EXPECT_FALSE(decodeBase64(std::string_view("a\0==", 4), out));
    EXPECT_TRUE(decodeBase64("", out));
    EXPECT_EQ(out, "");
}

TEST(JsonFloats, AreTheShortestThatReadBack)
{
    EXPECT_EQ(inJson(0.1F), "0.1");
    EXPECT_EQ(inJson(0.1), "0.1");
    EXPECT_EQ(inJson(16777216.0F), "16777216");
    EXPECT_EQ(inJson(1e22), "1e+22");
    EXPECT_EQ(inJson(-2.5), "-2.5");
    EXPECT_EQ(inJson(std::numeric_limits<float>::denorm_min()), "1e-45");
    EXPECT_EQ(inJson(std::numeric_limits<double>::max()), "1.7976931348623157e+308");
    EXPECT_EQ(inJson(0.0), "0");
    EXPECT_EQ(inJson(-0.0), "-0.0");
}

TEST(JsonFloats, AreNamesWhenTheyAreNoNumbers)
{
    EXPECT_EQ(inJson(std::numeric_limits<double>::quiet_NaN()), "\"NaN\"");
    EXPECT_EQ(inJson(std::numeric_limits<float>::infinity()), "\"Infinity\"");
    EXPECT_EQ(inJson(-std::numeric_limits<double>::infinity()), "\"-Infinity\"");
}

TEST(Pointers, EscapeNamesAndAreCut)
{
    EXPECT_EQ(Pointer("/tree").member("a/b~c").element(12).text(), "/tree/a~1b~0c/12");
    Pointer pointer("");
    for (int i = 0; i < 1000; ++i)
        pointer.member("items").element(7);
    EXPECT_EQ(pointer.text().size(), 200U);
    EXPECT_TRUE(pointer.isFull());
    EXPECT_EQ(pointer.text().substr(0, 16), "/items/7/items/7");
}
