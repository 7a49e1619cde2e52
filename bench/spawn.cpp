// SPDX-License-Identifier: MIT
//
// Starts a shell that does nothing and waits for it, in a caller with this much memory:
//   kestrova-bench-spawn MIB
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "System/KestrovaPOpen.h"
#include "bench/figure.h"

namespace {

constexpr int kRounds = 1001;
constexpr int kForkRounds = 51;  // slow with much memory
constexpr char kNothing[] = ":";

const char* const kArguments[] = {"/bin/sh", "-c", kNothing, nullptr};

char* const* arguments() {
    return const_cast<char* const*>(kArguments);
}

/// Allocates memory in pages of the normal size, like an application's heap, and keeps it resident.
void fill(std::size_t mib) {
    const std::size_t bytes = mib << 20U;
    if (bytes == 0) {
        return;
    }
    void* const memory =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        bench::fail("memory");
    }
    (void)::madvise(memory, bytes, MADV_NOHUGEPAGE);
    for (std::size_t at = 0; at < bytes; at += 4096) {
        static_cast<char*>(memory)[at] = 1;
    }
}

void check(pid_t child) {
    int status = -1;
    if (child <= 0 || ::waitpid(child, &status, 0) != child || status != 0) {
        bench::fail("child");
    }
}

void spawnByLibrary() {
    int status = -1;
    const int child = kestrova_popen3(nullptr, nullptr, nullptr, kNothing);
    if (child <= 0 || kestrova_pstatus(child, status, true) != eCsExited || status != 0) {
        bench::fail("kestrova_popen3");
    }
}

void spawnBare() {
    pid_t child = -1;
    if (posix_spawn(&child, kArguments[0], nullptr, nullptr, arguments(), environ) != 0) {
        bench::fail("posix_spawn");
    }
    check(child);
}

void forkAndExecute() {
    const pid_t child = ::fork();
    if (child == 0) {
        (void)::execve(kArguments[0], arguments(), environ);
        ::_exit(1);
    }
    check(child);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        (void)std::fprintf(stderr, "usage: %s MIB\n", argv[0]);
        return 2;
    }
    const std::string size = argv[1];
    bench::Report report;
    fill(std::strtoul(argv[1], nullptr, 10));
    const bench::Times library = bench::measure(kRounds, 1, spawnByLibrary, spawnBare);
    report.figure("spawn-" + size, library.mSubject / library.mControl, library);
    const bench::Times fork = bench::measure(kForkRounds, 1, forkAndExecute, spawnBare);
    report.figure("spawn-fork-" + size, fork.mSubject / fork.mControl, fork);
    return 0;
}
