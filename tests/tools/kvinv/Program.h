#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

/** How a program has ended, and what it said. */
struct Ended
{
    int status = -1;  ///< exit status; 128 and the signal's number when a signal ended it
    std::string out;
    std::string err;
};

/** What a program is run with beside its arguments. */
struct Circumstances
{
    std::string input;                     ///< standard input; empty: /dev/null
    std::vector<std::string> environment;  ///< NAME=VALUE, added
    std::string output;                    ///< a file in place of the collected standard output
    bool onTerminal = false;               ///< standard output is a terminal
    bool errorsOnTerminal = false;         ///< standard error is a terminal, the same one
    std::string folder;                    ///< working directory
};

/** A program that runs. Ends it when it is still there at the end of its scope. */
class Running
{
public:
    Running(const std::string& program, const std::vector<std::string>& arguments,
            const Circumstances& circumstances = {});
    ~Running();
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    void signal(int number) const;
    /** Waits until `text` stands on its standard output ("out") or standard error ("err"), when that is no terminal;
        false when the program ended before. */
    bool waitFor(const std::string& text, const char* stream = "out");
    /** Waits for its end. */
    Ended wait();

private:
    void start(const std::string& program, const std::vector<std::string>& arguments,
               const Circumstances& circumstances);

    std::filesystem::path m_folder;
    bool m_onTerminal;
    bool m_errorsOnTerminal;
    std::string m_terminalText;
    pid_t m_child = -1;
    int m_terminal = -1;
};

/** Runs the command under test. */
Ended kvinv(const std::vector<std::string>& arguments, const Circumstances& circumstances = {});

/** A test with a folder of its own. */
class CommandTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override { std::filesystem::remove_all(m_folder); }

    std::string path(const std::string& name) const { return (m_folder / name).string(); }
    static std::string sample(const std::string& name) { return std::string(KV_SAMPLES_DIR) + "/" + name; }
    static std::string content(const std::string& path);
    void put(const std::string& name, const std::string& text) const;
    /** The names of the files in the folder, the hidden ones too. */
    std::vector<std::string> names() const;

    std::filesystem::path m_folder;
};

/** The lines of a text. */
std::vector<std::string> lines(const std::string& text);
