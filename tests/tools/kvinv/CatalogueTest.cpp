#include "tests/tools/kvinv/Program.h"

TEST(Ids, ListsTheCatalogue)
{
    const Ended ended = kvinv({"ids"});
    EXPECT_EQ(ended.status, 0);
    const std::vector<std::string> all = lines(ended.out);
    ASSERT_EQ(all.size(), 811U);
    EXPECT_EQ(all[0], "  0  DUMMY");
    EXPECT_EQ(all[1], "  1  ROOT");
    EXPECT_EQ(all[380], "380  HCN");
}

TEST(Ids, AreFoundByNameAndByNumber)
{
    EXPECT_EQ(kvinv({"ids", "test_i*"}).out, " 11  TEST_I8\n 23  TEST_I16\n 24  TEST_I32\n 25  TEST_I64\n");
    EXPECT_EQ(kvinv({"ids", "380"}).out, "380  HCN\n");
    EXPECT_EQ(kvinv({"ids", "0x2"}).out, "  2  CPU\n");
    EXPECT_EQ(kvinv({"ids", "--json", "PLL_IC"}).out, "[\n {\"id\": 156, \"name\": \"PLL_IC\"}\n]\n");
}

TEST(Ids, SaysWhenThereIsNone)
{
    const Ended ended = kvinv({"ids", "nothing like it"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "kvinv: no ID is like nothing like it\n");
    EXPECT_EQ(kvinv({"ids", "--json", "811"}).out, "[]\n");
    EXPECT_EQ(kvinv({"ids", std::string(100000, '*')}).status, 0);
}

TEST(Explain, GivesTheTextOfACode)
{
    EXPECT_EQ(kvinv({"explain", "0x1600804"}).out, "Communication error. Cannot call remote procedure %1.\n");
    EXPECT_EQ(kvinv({"explain", "23070724"}).out, kvinv({"explain", "0x1600804"}).out);
    EXPECT_EQ(kvinv({"explain", "0xA00001"}).out, "Internal error. Korvel Support information: Invalid type size.\n");
    EXPECT_EQ(
        kvinv({"explain", "--json", "0x160081A"}).out,
        "{\"code\": \"0x160081a\", \"message\": \"Out of  memory. The requested operation cannot be completed.\"}\n");
    for (const char* code : {"0x401", "0x603000", "0x1300000", "0x100000", "0x200001", "0x300000"})
        EXPECT_EQ(kvinv({"explain", code}).status, 0) << code;
}

TEST(Explain, SaysWhenThereIsNone)
{
    const Ended hexadecimal = kvinv({"explain", "1600804"});
    EXPECT_EQ(hexadecimal.status, 1);
    EXPECT_EQ(hexadecimal.err, "kvinv: no message has the code 0x186d24; did you mean 0x1600804?\n");
    const Ended letters = kvinv({"explain", "160080a"});
    EXPECT_EQ(letters.status, 2);
    EXPECT_EQ(letters.err,
              "kvinv: a message code is a number such as 0x1600804, not 160080a; did you mean 0x160080a?\n");
    EXPECT_EQ(kvinv({"explain", "0xFFFFFFFF"}).err, "kvinv: no message has the code 0xffffffff\n");
    EXPECT_EQ(kvinv({"explain", "0x100000000"}).status, 2);
    EXPECT_EQ(kvinv({"explain", ""}).status, 2);
}
