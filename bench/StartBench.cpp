// What starting a program costs that loads the library, and kvinv --version, more than an empty C++ program: each is
// started, and waited for, in turn. Empty has the C++ runtime; bare has not, so that what the runtime costs is seen.
//
//     bench_start [--json FILE] BARE EMPTY LOADING KVINV [rounds]

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "bench/Rows.h"

namespace {

/** The milliseconds from the start of the program to its end; its output is dropped. */
double run(std::vector<const char*> words)
{
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    int status = 0;
    const double took = timeOf([&] {
        pid_t child = 0;
        errno = ::posix_spawn(&child, words[0], &actions, nullptr, const_cast<char**>(words.data()), environ);
        check(errno == 0, words[0]);
        check(::waitpid(child, &status, 0) == child, "waitpid");
    });
    ::posix_spawn_file_actions_destroy(&actions);
    check(WIFEXITED(status) && WEXITSTATUS(status) == 0, words[0]);
    return took;
}

}  // namespace

int main(int argc, char** argv)
{
    Rows rows(takeJsonOption(argc, argv));
    if (argc < 5) {
        std::fprintf(stderr, "usage: bench_start [--json FILE] BARE EMPTY LOADING KVINV [rounds]\n");
        return 2;
    }
    const int rounds = argc > 5 ? std::max(1, std::atoi(argv[5])) : 301;
    std::vector<double> bare;
    std::vector<double> empty;
    std::vector<double> loading;
    std::vector<double> kvinv;
    for (int round = 0; round < rounds; ++round) {
        bare.push_back(run({argv[1]}));
        empty.push_back(run({argv[2]}));
        loading.push_back(run({argv[3]}));
        kvinv.push_back(run({argv[4], "--version"}));
    }
    rows.difference("loading the shared library", "an empty C++ program", median(loading), median(empty), 0.5, "ms");
    rows.difference("kvinv --version", "an empty C++ program", median(kvinv), median(empty), 2, "ms");
    rows.difference("the C++ runtime", "a program without it", median(empty), median(bare), 0, "ms");
    return 0;
}
