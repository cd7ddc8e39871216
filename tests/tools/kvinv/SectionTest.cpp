#include "tests/tools/kvinv/Program.h"

namespace {

class Section : public CommandTest
{};

}  // namespace

TEST_F(Section, SaysWhatHeaderAndTrailerAnnounce)
{
    const Ended ended = kvinv({"section", sample("single-board.inv")});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.out,
              "frame       at  section  header   data  trailer  version\n"
              "header       0        0      24  27171       24        1\n"
              "trailer  27195        0      24  27171       24        1\n");
}

TEST_F(Section, FindsItsPlaceInAnImage)
{
    EXPECT_EQ(kvinv({"section", "--json", sample("firmware-image.bin")}).out,
              "[\n"
              " {\"frame\": \"header\", \"at\": 90000, \"begins\": 90000, \"headerSize\": 24, \"dataSize\": 471, "
              "\"trailerSize\": 24, \"version\": 1},\n"
              " {\"frame\": \"trailer\", \"at\": 90495, \"begins\": 90000, \"headerSize\": 24, \"dataSize\": 471, "
              "\"trailerSize\": 24, \"version\": 1}\n"
              "]\n");
    EXPECT_EQ(kvinv({"section", sample("section-then-junk.bin")}).out,
              "frame   at  section  header  data  trailer  version\n"
              "header   0        0      24   471       24        1\n");
    Circumstances piped;
    piped.input = content(sample("firmware-image.bin"));
    EXPECT_EQ(kvinv({"section", "-"}, piped).out, kvinv({"section", sample("firmware-image.bin")}).out);
}

TEST_F(Section, SaysWhatIsWrongWithAFrame)
{
    const auto problemOf = [&](const std::string& name) {
        const Ended ended = kvinv({"section", sample("broken/" + name)});
        EXPECT_EQ(ended.status, 1) << name;
        EXPECT_NE(ended.out, "") << name;
        return ended.err.substr(7 + sample("broken/" + name).size());
    };
    EXPECT_EQ(problemOf("trailer-version-2.inv"), ": the trailer has the unknown version 2\n");
    EXPECT_EQ(problemOf("header-version-2.bin"), ": the header has the unknown version 2\n");
    EXPECT_EQ(problemOf("trailer-size-23.inv"), ": the trailer announces less than its own 24 bytes\n");
    EXPECT_EQ(problemOf("header-too-much.bin"), ": the header announces more than there is\n");
}

TEST_F(Section, SaysWhenThereIsNone)
{
    put("short", "INVE");
    for (const std::string& file : {sample("broken/no-section.bin"), path("short"), std::string("/dev/null")}) {
        const Ended ended = kvinv({"section", file});
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "kvinv: no inventory section in " + file + "\n");
    }
    EXPECT_EQ(kvinv({"section", m_folder.string()}).err, "kvinv: " + m_folder.string() + ": Is a directory\n");
    EXPECT_EQ(kvinv({"section", path("none")}).err, "kvinv: " + path("none") + ": No such file or directory\n");
}
