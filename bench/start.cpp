// SPDX-License-Identifier: MIT
//
// Starts a program and waits for its exit, with and without the library:
//   kestrova-bench-start LINKED EMPTY PLAIN
// None of the three does anything. LINKED is linked with the library, EMPTY with the C++ library
// like every application of ours, PLAIN with the C library alone.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/figure.h"

namespace {

constexpr int kRounds = 1001;
constexpr double kBound = 1e6;  // nanoseconds

/// Starts a program and waits for its exit.
class Run {
public:
    explicit Run(char* program) : mProgram(program) {}

    void operator()() const {
        char* const arguments[] = {mProgram, nullptr};
        pid_t child = -1;
        int status = -1;
        if (posix_spawn(&child, mProgram, nullptr, nullptr, arguments, environ) != 0 ||
            ::waitpid(child, &status, 0) != child || status != 0) {
            bench::fail(mProgram);
        }
    }

private:
    char* mProgram;
};

void compare(bench::Report& report, const char* name, char* linked, char* control) {
    const bench::Times times = bench::measure(kRounds, 1, Run(linked), Run(control));
    report.figure(name, (times.mSubject - times.mControl) / kBound, times);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        bench::fail("usage: kestrova-bench-start LINKED EMPTY PLAIN");
    }
    bench::Report report;
    compare(report, "start", argv[1], argv[2]);
    compare(report, "start-plain", argv[1], argv[3]);
    return 0;
}
