#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "Support.h"
#include "composite/KvCXmlSerializer.h"
#include "tests/support/FailingAllocation.h"

namespace {

class CompositeDumpsTest : public testing::Test
{
protected:
    std::string ascii(KvCComposite* composite, bool withParameters = false)
    {
        testing::internal::CaptureStdout();
        KvCCompositeFactory::printAsciiComposite(errors, composite, withParameters ? 1 : 0);
        return testing::internal::GetCapturedStdout();
    }
    std::string xml(KvUInt32 mode)
    {
        KvCXmlSerializer printer(errors, mode);
        printer.traverse(errors, &root);
        return std::string(printer.getBuffer()->getStartPointer(), printer.getBuffer()->getOccupiedSize());
    }

    KvCErrorListPool errors;
    KvCComposite root{errors, 0x10, 0, "root"};
};

TEST_F(CompositeDumpsTest, ASingleNodeIsOneLineAndAnEmptyOne)
{
    EXPECT_EQ(ascii(&root), "\x1B[0m\x1B[00;39mroot (id=0x10 unit=0 state=0)\x1B[0m\x1B[00;39m\n\n");
    EXPECT_EQ(ascii(nullptr), "");
}

TEST_F(CompositeDumpsTest, TheTreeIsDrawnWithItsBranches)
{
    KvCComposite* const first = addNode(root, 0x20, 1, "a");
    KvCComposite* const deep = addNode(*addNode(*first, 0x21, 1, "b"), 0x22, 1, "c");
    KvCComposite* const last = addNode(root, 0x30, 2, "d");
    addNode(*last, 0x31, 1, "e");
    first->setStateBit(0x101);
    last->setFriend(deep);
    const std::string plain = "\x1B[0m\x1B[00;39m";
    const std::string colour = "\x1B[35;1m";
    const std::string line = colour + "\xB3 ";
    const std::string blank = colour + "  ";
    const std::string tee = colour + "\xC3" + colour + "\xC4\xC4\xC4";
    const std::string corner = colour + "\xC0" + colour + "\xC4\xC4\xC4";
    EXPECT_EQ(ascii(&root),
              plain + "root (id=0x10 unit=0 state=0)" + plain + "\n" +                                      //
                  tee + plain + "\x1B[0m\x1B[01;32m" + "a (id=0x20 unit=0x1 state=0x101)" + plain + "\n" +  //
                  line + corner + plain + "b (id=0x21 unit=0x1 state=0)" + plain + "\n" +                   //
                  line + blank + corner + plain + "c (id=0x22 unit=0x1 state=0)" + plain + "\n" +           //
                  corner + plain + "d (id=0x30 unit=0x2 friend=c 0x1 state=0)" + plain + "\n" +             //
                  blank + corner + plain + "e (id=0x31 unit=0x1 state=0)" + plain + "\n\n");
    EXPECT_EQ(ascii(deep), plain + "c (id=0x22 unit=0x1 state=0)" + plain + "\n\n") << "the printed root has depth 0";
}

TEST_F(CompositeDumpsTest, ParametersFollowTheirNode)
{
    addNode(root, 0x20, 1, "a")->createParameter(errors, 5, "p", 0, 1U);
    const std::string text = ascii(&root, true);
    EXPECT_NE(text.find("\nParameter list of root (0x10/0):\n\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\n Parameter list of a (0x20/0x1):\n   parameter 5 (state: 1)\n\n"), std::string::npos)
        << text;
}

TEST_F(CompositeDumpsTest, ADrawingThatRunsOutOfMemoryIsReported)
{
    addNode(root, 0x20, 1, "a");
    const FailingAllocation failing(1);
    testing::internal::CaptureStdout();
    KvCCompositeFactory::printAsciiComposite(errors, &root, 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(codesOf(errors), Codes{0x601002});
}

TEST_F(CompositeDumpsTest, TheDefaultXmlModeShowsCompositesAndParameters)
{
    root.createParameter(errors, 5, "num", 0x20000, KvUInt32(255));
    root.createParameter(errors, 6, nullptr, 0, -1);
    KvCComposite* const child = addNode(root, 0x20, 7, "child");
    child->setFriend(&root);
    child->createParameter(errors, 8, "t", 0, KvCString("text"));
    EXPECT_EQ(xml(0),
              "<COMPOSITE ID= '0x00000010' UNIT= '0x00000000'  NAME = 'root' >\n"
              "      <PARAMETER ID='5' NAME = 'num' TYPE='131364' VALUE = '255' HEX = '0x000000ff'/> \n"
              "      <PARAMETER ID='6' NAME = 'Unknown' TYPE='276' VALUE = '-1' /> \n"
              "  <COMPOSITE ID= '0x00000020' UNIT= '0x00000007'  NAME = 'child' >\n"
              "        <FRIEND ID= '0x00000010' UNIT= '0x00000000'  NAME = 'root' >\n"
              "        <PARAMETER ID='8' NAME = 't' TYPE='8192' VALUE = 'text' /> \n"
              "  </COMPOSITE>\n"
              "</COMPOSITE>\n");
}

TEST_F(CompositeDumpsTest, TheItemModeShowsItemsAndParams)
{
    root.createParameter(errors, 5, "num", 0, KvUInt32(255));
    root.createParameter(errors, 6, "neg", 0x10000, -1);
    addNode(root, 0x20, 7, "child")->setFriend(&root);
    EXPECT_EQ(xml(0x200),
              "<ITEM ID=\"0x00000010[0xffffffff]\" Descr = \"root\" >\n"
              "      <PARAM ID=\"5\" Descr = \"num\" Type=\"UInt32\"> <VALUE>255</VALUE> </PARAM>  \n"
              "      <PARAM ID=\"6\" Descr = \"neg\" Type=\"65812\"> <VALUE> -1  </VALUE> </PARAM>  \n"
              "  <ITEM ID=\"0x00000020[0x00000007]\" Descr = \"child\" >\n"
              "  </ITEM>\n"
              "</ITEM>\n");
}

TEST_F(CompositeDumpsTest, TheGraphModeShowsEdgesOnly)
{
    root.createParameter(errors, 5, "num", 0, KvUInt32(255));
    addNode(*addNode(root, 0x20, 7, "child"), 1, 1, nullptr);
    EXPECT_EQ(xml(0x100), "\" child \" -> \" root \" \n\" Unknown \" -> \" child \" \n");
}

TEST_F(CompositeDumpsTest, LinesAreLimited)
{
    KvCComposite wide(errors, 1, 1, std::string(300, 'x').c_str());
    wide.createParameter(errors, 5, "p", 0, KvCString(std::string(400, 'y').c_str()));
    KvCXmlSerializer printer(errors, 0);
    printer.traverse(errors, &wide);
    const std::string text(printer.getBuffer()->getStartPointer(), printer.getBuffer()->getOccupiedSize());
    EXPECT_EQ(text.size(), 100U + 2U + 256U + 13U);
    EXPECT_EQ(text.substr(text.size() - 13), "</COMPOSITE>\n");
}

TEST_F(CompositeDumpsTest, TheXmlFileIsWrittenInTheCurrentFolder)
{
    namespace fs = std::filesystem;
    const fs::path before = fs::current_path();
    const fs::path folder =
        fs::temp_directory_path() / ("kv_dump_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                                     "_" + std::to_string(reinterpret_cast<std::uintptr_t>(this)));
    fs::create_directories(folder);
    fs::current_path(folder);
    testing::internal::CaptureStdout();
    KvCCompositeFactory::printXmlComposite(errors, &root, 0x200);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " Xml Output dumped to SystemManagerDump.xml \n");
    std::ifstream file("SystemManagerDump.xml", std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_EQ(text.str(), "<ITEM ID=\"0x00000010[0xffffffff]\" Descr = \"root\" >\n</ITEM>\n");
    EXPECT_EQ(errors.getErrorCount(), 0U);

    file.close();
    fs::remove("SystemManagerDump.xml");
    fs::create_directory("SystemManagerDump.xml");
    testing::internal::CaptureStdout();
    KvCCompositeFactory::printXmlComposite(errors, &root, 0);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(codesOf(errors), Codes{0xA00005});
    EXPECT_STREQ(errors.getErrorText(0),
                 "Internal error. Korvel Support information: Cannot write to file SystemManagerDump.xml.");
    fs::current_path(before);
    fs::remove_all(folder);
}

}  // namespace
