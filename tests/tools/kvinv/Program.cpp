#include "tests/tools/kvinv/Program.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace fs = std::filesystem;

namespace {

std::string readFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

fs::path newFolder()
{
    std::string pattern = (fs::temp_directory_path() / "kvinv-test-XXXXXX").string();
    return mkdtemp(pattern.data()) != nullptr ? fs::path(pattern) : fs::path();
}

/** In the child: puts `path` in the place of a standard stream. */
void redirect(const std::string& path, int flags, int stream)
{
    const int descriptor = open(path.c_str(), flags, 0600);
    if (descriptor < 0 || dup2(descriptor, stream) < 0)
        _exit(126);
    close(descriptor);
}

}  // namespace

Running::Running(const std::string& program, const std::vector<std::string>& arguments,
                 const Circumstances& circumstances)
    : m_folder(newFolder()), m_onTerminal(circumstances.onTerminal), m_errorsOnTerminal(circumstances.errorsOnTerminal)
{
    if (!circumstances.input.empty())
        std::ofstream(m_folder / "in", std::ios::binary) << circumstances.input;
    if (m_onTerminal || m_errorsOnTerminal) {
        m_terminal = posix_openpt(O_RDWR | O_NOCTTY);
        grantpt(m_terminal);
        unlockpt(m_terminal);
    }
    start(program, arguments, circumstances);
}

void Running::start(const std::string& program, const std::vector<std::string>& arguments,
                    const Circumstances& circumstances)
{
    std::string output = circumstances.output.empty() ? (m_folder / "out").string() : circumstances.output;
    std::string errors = (m_folder / "err").string();
    if (m_onTerminal)
        output = ptsname(m_terminal);
    if (m_errorsOnTerminal)
        errors = ptsname(m_terminal);
    m_child = fork();
    if (m_child != 0)
        return;
    if (m_terminal >= 0)
        setenv("TERM", "xterm", 1);
    for (const std::string& variable : circumstances.environment)
        putenv(const_cast<char*>(variable.c_str()));
    redirect(circumstances.input.empty() ? "/dev/null" : (m_folder / "in").string(), O_RDONLY, 0);
    redirect(output, O_WRONLY | O_CREAT | O_NOCTTY, 1);
    redirect(errors, O_WRONLY | O_CREAT | O_NOCTTY, 2);
    if (!circumstances.folder.empty() && chdir(circumstances.folder.c_str()) != 0)
        _exit(126);
    std::vector<char*> pointers = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    execv(program.c_str(), pointers.data());
    _exit(127);
}

Running::~Running()
{
    if (m_child > 0) {
        // A service cleans up behind itself when it is asked to end; one that does not is ended.
        kill(m_child, SIGTERM);
        for (int i = 0; i < 500 && waitpid(m_child, nullptr, WNOHANG) == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (kill(m_child, SIGKILL) == 0)
            waitpid(m_child, nullptr, 0);
    }
    if (m_terminal >= 0)
        close(m_terminal);
    fs::remove_all(m_folder);
}

void Running::signal(int number) const
{
    kill(m_child, number);
}

bool Running::waitFor(const std::string& text, const char* stream)
{
    for (;;) {
        if (readFile(m_folder / stream).find(text) != std::string::npos)
            return true;
        if (waitpid(m_child, nullptr, WNOHANG) == m_child) {
            m_child = -1;
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

Ended Running::wait()
{
    if (m_terminal >= 0) {
        // The other end closes when the program ends; until then what it writes must be taken.
        char block[4096];
        ssize_t count = 0;
        while ((count = read(m_terminal, block, sizeof block)) > 0)
            m_terminalText.append(block, static_cast<std::size_t>(count));
    }
    int status = 0;
    waitpid(m_child, &status, 0);
    m_child = -1;
    Ended ended;
    ended.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    ended.out = m_onTerminal ? m_terminalText : readFile(m_folder / "out");
    ended.err = m_errorsOnTerminal ? m_terminalText : readFile(m_folder / "err");
    return ended;
}

Ended kvinv(const std::vector<std::string>& arguments, const Circumstances& circumstances)
{
    return Running(KVINV_PROGRAM, arguments, circumstances).wait();
}

void CommandTest::SetUp()
{
    m_folder = newFolder();
    ASSERT_FALSE(m_folder.empty());
}

std::string CommandTest::content(const std::string& path)
{
    return readFile(path);
}

void CommandTest::put(const std::string& name, const std::string& text) const
{
    std::ofstream(m_folder / name, std::ios::binary) << text;
}

std::vector<std::string> CommandTest::names() const
{
    std::vector<std::string> list;
    for (const fs::directory_entry& entry : fs::directory_iterator(m_folder))
        list.push_back(entry.path().filename().string());
    std::sort(list.begin(), list.end());
    return list;
}

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> list;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        list.push_back(line);
    return list;
}
