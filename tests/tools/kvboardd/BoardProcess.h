#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include "TemporaryFolder.h"

/** The program kvboardd, run by a test and ended with it. */
class BoardProcess
{
public:
    BoardProcess() = default;
    ~BoardProcess();
    BoardProcess(const BoardProcess&) = delete;
    BoardProcess& operator=(const BoardProcess&) = delete;

    /** Starts it with these arguments and waits, at most a minute, for a line on its standard output or for its end. */
    void start(const std::vector<std::string>& arguments);
    /** Sends SIGTERM (or another signal) and waits, at most a minute, for its end; its exit status, 128 and the number
        of the signal that ended it, or -1 when it had to be killed. */
    int stop(int signal = 15);
    /** Waits for an end that nobody asks for. */
    int wait();
    bool isRunning();
    pid_t id() const { return m_process; }

    /** What came on standard output until now. */
    const std::string& output();
    /** What it has logged until now. */
    std::string log() const { return m_folder.read("log"); }
    /** Where it has its temporary files. */
    std::string temporaryPath() const { return m_folder.path("tmp"); }

private:
    bool readMore(int milliseconds);

    TemporaryFolder m_folder;
    pid_t m_process = -1;
    int m_pipe = -1;
    std::string m_output;
};
