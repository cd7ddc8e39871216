#include <algorithm>
#include <filesystem>

#include "tests/tools/kvinv/BoardService.h"

/* What the shells offer while a command line is typed, against the real service. */

namespace {

const char* const portMapperPort = "17174";
const std::string ip = "127.0.70.1,127.0.70.2";

using Words = std::vector<std::string>;

std::string quoted(const std::string& text)
{
    return "$'" + text + "'";
}

class Completion : public BoardServiceTest
{
protected:
    static void SetUpTestSuite() { s_service = startService({}, portMapperPort); }
    static void TearDownTestSuite() { s_service.reset(); }
    void SetUp() override
    {
        CommandTest::SetUp();
        ASSERT_NE(s_service, nullptr) << "the service does not start";
        put("kvinv.bash", kvinv({"--generate-bash-completion"}).out);
        put("_kvinv", kvinv({"--generate-zsh-completion"}).out);
    }
    /** What a shell's script prints, sorted. */
    Words said(const std::string& shell, const std::vector<std::string>& options, const std::string& script,
               const std::string& port) const
    {
        std::vector<std::string> arguments = options;
        arguments.insert(arguments.end(), {"-c", script});
        Circumstances circumstances = with({}, port);
        circumstances.folder = m_folder.string();
        const Ended ended = Running(shell, arguments, circumstances).wait();
        EXPECT_EQ(ended.err, "");
        Words list = lines(ended.out);
        std::sort(list.begin(), list.end());
        return list;
    }
    /** What bash offers for the last word. */
    Words bash(const Words& words, const std::string& port = portMapperPort) const
    {
        std::string script = "source ./kvinv.bash; COMP_WORDS=(" + quoted(KVINV_PROGRAM);
        for (const std::string& word : words)
            script += " " + quoted(word);
        script += "); COMP_CWORD=" + std::to_string(words.size()) + "; _kvinv; printf '%s\\n' \"${COMPREPLY[@]}\"";
        return said("/bin/bash", {"--norc"}, script, port);
    }
    /** What zsh offers for the last word: its own parts that take the offer only show it. */
    Words zsh(const Words& words) const
    {
        std::string script =
            "compdef() { }; compadd() { print -rl -- $found }; compset() { }; _files() { print FILES }; source "
            "./_kvinv; "
            "words=(" +
            quoted(KVINV_PROGRAM);
        for (const std::string& word : words)
            script += " " + quoted(word);
        script += "); CURRENT=" + std::to_string(words.size() + 1) + "; PREFIX=" + quoted(words.back()) + "; _kvinv";
        return said(zshProgram(), {"-f"}, script, portMapperPort);
    }
    static std::string zshProgram()
    {
        for (const char* path : {"/usr/bin/zsh", "/bin/zsh"}) {
            if (std::filesystem::exists(path))
                return path;
        }
        return "";
    }

    static std::unique_ptr<Running> s_service;
};

std::unique_ptr<Running> Completion::s_service;

bool has(const Words& words, const std::string& word)
{
    return std::find(words.begin(), words.end(), word) != words.end();
}

}  // namespace

TEST_F(Completion, OffersCommandsOptionsAndTheirValues)
{
    EXPECT_EQ(bash({"s"}), (Words{"scan", "section", "set", "show"}));
    EXPECT_EQ(bash({"update", "--d"}), (Words{"--dry-run"}));
    EXPECT_EQ(bash({"update", "--type", "IoF"}), (Words{"IoFpga1", "IoFpga2", "IoFpga3"}));
    EXPECT_EQ(bash({"show", "--format", "="}), (Words{"csv", "json", "text"})) << "as in --format=";
    EXPECT_EQ(bash({"--color", "al"}), (Words{"always"}));
    EXPECT_EQ(bash({"scan", "--ip", ""}), (Words{""})) << "nothing is known of it";
    EXPECT_EQ(bash({"--timeout", "5", "sec"}), (Words{"section"})) << "a value is no command";
    EXPECT_EQ(bash({"discover", "x"}), (Words{""}));
}

TEST_F(Completion, OffersTheBoardsOfTheSelection)
{
    EXPECT_EQ(bash({"get", "--ip", ip, ""}), (Words{"HCN[4711]", "HCN[4712]"}));
    EXPECT_EQ(bash({"get", "--ip", "=", "127.0.70.2", "H"}), (Words{"HCN[4712]"}));
    EXPECT_EQ(bash({"--ip=127.0.70.1", "ls", "HCN[47"}), (Words{"HCN[4711]"}));
    EXPECT_EQ(bash({"put", "--ip", "\\'" + ip + "\\'", "\\'HCN[4712"}), (Words{"HCN[4712]"})) << "typed in quotes";
    EXPECT_EQ(bash({"rm", "--ip", ip, "HCN\\\\[4711"}), (Words{"HCN[4711]"})) << "typed with backslashes";
}

TEST_F(Completion, AsksNobodyWithoutSelectionAndKeepsQuietWhenNobodyAnswers)
{
    EXPECT_EQ(bash({"get", ""}), (Words{"CN[", "HCN["}));
    EXPECT_EQ(bash({"get", "--ip", "127.0.70.99", "H"}), (Words{""}));
    EXPECT_EQ(bash({"get", "--ip", "nonsense", "H"}), (Words{""}));
    EXPECT_EQ(bash({"get", "--ip", ip, "H"}, "17175"), (Words{""})) << "no port mapper there";
}

TEST_F(Completion, OffersTheCatalogueInAddresses)
{
    EXPECT_EQ(bash({"get", "HCN[4711]/FIRMW"}), (Words{"HCN[4711]/FIRMWARE"}));
    EXPECT_EQ(bash({"set", "HCN[4711]/FIRMWARE/VERSION_"}), (Words{"HCN[4711]/FIRMWARE/VERSION_HISTORY"}));
    EXPECT_EQ(bash({"ids", "CNIPL"}), (Words{"CNIPLFIRMWARE"}));
    EXPECT_GT(bash({"get", "HCN[4711]/"}).size(), 800U);
    EXPECT_EQ(bash({"set", "HCN[4711]/LOCATION", "FIRMW"}), (Words{""})) << "a value is anything";
}

TEST_F(Completion, OffersFilesWhereFilesAreMeant)
{
    put("an image.bin", "");
    put("another.bin", "");
    EXPECT_EQ(bash({"show", "an"}), (Words{"an image.bin", "another.bin"}));
    EXPECT_EQ(bash({"update", "--ip", ip, "HCN[4711]/FIRMWARE", "anot"}), (Words{"another.bin"}));
    EXPECT_EQ(bash({"diff", "a", "ano"}), (Words{"another.bin"}));
    EXPECT_EQ(bash({"import", "-o", "ano"}), (Words{"another.bin"}));
    EXPECT_EQ(bash({"lock", "HCN[4711]", "--", "ano"}), (Words{"another.bin"}));
}

TEST_F(Completion, OffersTheFilesOnABoard)
{
    const std::string name =
        kvinv({"put", "--ip", ip, "HCN[4711]", sample("single-board.inv")}, with({}, portMapperPort)).out;
    ASSERT_GT(name.size(), 1U);
    EXPECT_EQ(bash({"rm", "--ip", ip, "HCN[4711]", name.substr(0, 2)}), (Words{name.substr(0, name.size() - 1)}));
    EXPECT_EQ(bash({"rm", "--ip", ip, "HCN[4712]", ""}), (Words{""}));
}

TEST_F(Completion, IsTheSameInZsh)
{
    if (zshProgram().empty())
        GTEST_SKIP() << "there is no zsh";
    EXPECT_EQ(zsh({"s"}), (Words{"scan", "section", "set", "show"}));
    EXPECT_EQ(zsh({"update", "--d"}), (Words{"--dry-run"}));
    EXPECT_EQ(zsh({"update", "--type=IoF"}), (Words{"IoFpga1", "IoFpga2", "IoFpga3"}));
    EXPECT_EQ(zsh({"show", "x"}), (Words{"FILES"}));
    EXPECT_EQ(zsh({"get", "--ip", ip, ""}), (Words{"HCN[4711]", "HCN[4712]"}));
    EXPECT_EQ(zsh({"get", "--ip=127.0.70.2", "HCN\\\\[47"}), (Words{"HCN[4712]"}));
    EXPECT_EQ(zsh({"get", "HCN[4711]/FIRMW"}), (Words{"HCN[4711]/FIRMWARE"}));
    EXPECT_EQ(zsh({"get", "--ip", "127.0.70.99", "H"}), (Words{""}));
    EXPECT_TRUE(has(zsh({"get", ""}), "HCN["));
}

TEST_F(Completion, BelongsToTheCommand)
{
    EXPECT_EQ(said("/bin/bash", {"--norc"}, "source ./kvinv.bash; complete -p kvinv", portMapperPort),
              (Words{"complete -F _kvinv kvinv"}));
    EXPECT_EQ(lines(content(path("_kvinv"))).front(), "#compdef kvinv");
}
