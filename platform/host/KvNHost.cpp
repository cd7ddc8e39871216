#include "platform/host/KvNHost.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <system_error>

#if defined(_WIN32)
#include <io.h>
#define WIN32_LEAN_AND_MEAN
#include <process.h>
#include <windows.h>
#else
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;
#endif

namespace KvNHost {

namespace {

constexpr unsigned usualColumns = 80;

void (*g_interrupted)(int signal) = nullptr;

}  // namespace

const char* environment(const char* name)
{
    return std::getenv(name);
}

bool wasBrokenPipe()
{
    return errno == EPIPE;
}

#if defined(_WIN32)

bool isTerminal(std::FILE* stream)
{
    return _isatty(_fileno(stream)) != 0;
}

unsigned terminalColumns(std::FILE* stream)
{
    CONSOLE_SCREEN_BUFFER_INFO info;
    const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    if (GetConsoleScreenBufferInfo(handle, &info) == 0 || info.srWindow.Right < info.srWindow.Left)
        return usualColumns;
    return static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left) + 1;
}

void surviveFailedWrites() {}

void onInterrupt(void (*function)(int signal))
{
    g_interrupted = function;
    std::signal(SIGINT, function);
    std::signal(SIGTERM, function);
}

void endNow(int status) noexcept
{
    _exit(status);
}

Ending run(const std::vector<std::string>& command, const std::vector<std::pair<std::string, std::string>>& additions)
{
    Ending ending;
    for (const auto& [name, value] : additions)
        _putenv_s(name.c_str(), value.c_str());
    std::vector<const char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(argument.c_str());
    arguments.push_back(nullptr);
    const auto status = _spawnvp(_P_WAIT, arguments[0], arguments.data());
    ending.started = status != -1;
    ending.status = static_cast<int>(status);
    if (!ending.started)
        ending.problem = command[0] + ": " + std::generic_category().message(errno);
    return ending;
}

#else

namespace {

/** The command that runs: its process, startingChild until that is known, 0 without one. */
constexpr pid_t startingChild = -1;
std::atomic<pid_t> g_child{0};
std::atomic<int> g_forChild{0};  // a signal that came while the command was being started

void handle(int signal, siginfo_t* info, void*)
{
    const pid_t child = g_child;
    if (child == 0) {
        if (g_interrupted != nullptr)
            g_interrupted(signal);
        return;
    }
    // The terminal sends an interruption to every process of the group; what was sent to this one alone goes on.
    const bool isForThisOneAlone = info != nullptr && info->si_code <= 0;
    if (isForThisOneAlone && child == startingChild)
        g_forChild = signal;
    else if (isForThisOneAlone)
        kill(child, signal);
}

/** The environment of this process with `additions` in place of what had their names. */
std::vector<std::string> environmentWith(const std::vector<std::pair<std::string, std::string>>& additions)
{
    std::vector<std::string> all;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        bool replaced = false;
        for (const auto& addition : additions) {
            const std::size_t length = addition.first.size();
            replaced =
                replaced || (std::strncmp(*entry, addition.first.c_str(), length) == 0 && (*entry)[length] == '=');
        }
        if (!replaced)
            all.emplace_back(*entry);
    }
    for (const auto& [name, value] : additions)
        all.push_back(name + "=" + value);
    return all;
}

std::vector<char*> pointers(const std::vector<std::string>& texts)
{
    std::vector<char*> list;
    for (const std::string& text : texts)
        list.push_back(const_cast<char*>(text.c_str()));
    list.push_back(nullptr);
    return list;
}

int waitFor(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return 127;
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

bool isTerminal(std::FILE* stream)
{
    return isatty(fileno(stream)) == 1;
}

unsigned terminalColumns(std::FILE* stream)
{
    winsize size = {};
    return ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : usualColumns;
}

void surviveFailedWrites()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

void onInterrupt(void (*function)(int signal))
{
    g_interrupted = function;
    struct sigaction action = {};
    action.sa_sigaction = handle;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART for a user who waits: what blocks is to come back.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction former = {};
        if (sigaction(signal, nullptr, &former) == 0 && former.sa_handler == SIG_IGN)
            continue;  // started so that it goes on in the background, by nohup for example
        sigaction(signal, &action, nullptr);
    }
}

void endNow(int status) noexcept
{
    _exit(status);
}

Ending run(const std::vector<std::string>& command, const std::vector<std::pair<std::string, std::string>>& additions)
{
    Ending ending;
    const std::vector<std::string> variables = environmentWith(additions);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t restored;
    sigemptyset(&restored);
    sigaddset(&restored, SIGPIPE);
    sigaddset(&restored, SIGXFSZ);
    posix_spawnattr_setsigdefault(&attributes, &restored);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t child = 0;
    g_forChild = 0;
    g_child = startingChild;
    const int error = posix_spawnp(&child, command[0].c_str(), nullptr, &attributes, pointers(command).data(),
                                   pointers(variables).data());
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        g_child = 0;
        ending.problem = command[0] + ": " + std::generic_category().message(error);
        return ending;
    }
    g_child = child;
    if (const int missed = g_forChild.exchange(0); missed != 0)
        kill(child, missed);
    ending.started = true;
    ending.status = waitFor(child);
    g_child = 0;
    return ending;
}

#endif

}  // namespace KvNHost
