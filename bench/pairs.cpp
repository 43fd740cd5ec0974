// SPDX-License-Identifier: MIT
/**
 * @file pairs.cpp
 * pairs NAME ROUNDS OURS PEER: runs two shell commands in turn and prints the processor time that
 * each takes, in ms, as Pairs.h says. A command that fails ends it.
 */
#include "Pairs.h"

#include <cstdlib>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

double Run(const char* command)
{
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", command, nullptr);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    if (status != 0) {
        std::fprintf(stderr, "pairs: failed: %s\n", command);
        std::exit(1);
    }
    const auto milliseconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
    };
    return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fputs("usage: pairs NAME ROUNDS OURS PEER\n", stderr);
        return 2;
    }
    PrintPairs(
        argv[1], std::atoi(argv[2]), [&] { return Run(argv[3]); }, [&] { return Run(argv[4]); });
}
