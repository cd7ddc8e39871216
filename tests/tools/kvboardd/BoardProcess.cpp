#include "BoardProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr int patience = 60000;
constexpr int step = 20;

}  // namespace

BoardProcess::~BoardProcess()
{
    if (m_process > 0)
        stop(SIGKILL);
    if (m_pipe >= 0)
        close(m_pipe);
}

void BoardProcess::start(const std::vector<std::string>& arguments)
{
    std::vector<std::string> all = {KV_BOARDD};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& argument : all)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    const std::string log = m_folder.path("log");
    // Whoever the service becomes may clear its temporary files away.
    mkdir(temporaryPath().c_str(), 0700);
    chmod(m_folder.path().c_str(), 0711);
    chmod(temporaryPath().c_str(), 01777);
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0)
        return;
    m_process = fork();
    if (m_process == 0) {
        const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(ends[1], STDOUT_FILENO);
        dup2(file, STDERR_FILENO);
        setenv("TMPDIR", temporaryPath().c_str(), 1);
        execv(pointers[0], pointers.data());
        _exit(127);
    }
    close(ends[1]);
    m_pipe = ends[0];
    m_output.clear();
    while (m_output.find('\n') == std::string::npos && readMore(patience)) {
    }
}

bool BoardProcess::readMore(int milliseconds)
{
    pollfd entry{m_pipe, POLLIN, 0};
    if (poll(&entry, 1, milliseconds) != 1)
        return false;
    char block[4096];
    const ssize_t got = read(m_pipe, block, sizeof block);
    if (got <= 0)
        return false;
    m_output.append(block, static_cast<std::size_t>(got));
    return true;
}

const std::string& BoardProcess::output()
{
    while (m_pipe >= 0 && readMore(0)) {
    }
    return m_output;
}

bool BoardProcess::isRunning()
{
    return m_process > 0 && waitpid(m_process, nullptr, WNOHANG) == 0;
}

int BoardProcess::stop(int signal)
{
    if (m_process <= 0)
        return -1;
    kill(m_process, signal);
    return wait();
}

int BoardProcess::wait()
{
    int status = 0;
    pid_t ended = 0;
    for (int waited = 0; waited < patience && ended == 0; waited += step) {
        ended = waitpid(m_process, &status, WNOHANG);
        if (ended == 0)
            usleep(step * 1000);
    }
    if (ended == 0) {
        kill(m_process, SIGKILL);
        waitpid(m_process, &status, 0);
    }
    m_process = -1;
    if (ended == 0)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
