// SPDX-License-Identifier: MIT
//
// Fetches one document into a file, as a whole process: the command against curl, and against the
// minimum that such a process must do:
//   kestrova-bench-fetchprocess KESTROVA CURL FOLDER
// The documents are written to FOLDER, always under the same name.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "bench/barehttp.h"
#include "bench/documentserver.h"
#include "bench/figure.h"

namespace {

constexpr std::size_t kLarge = std::size_t{64} * 1048576;
constexpr std::size_t kSmall = 1024;
constexpr std::size_t kPiece = 262144;

/// The cost of one process, in nanoseconds.
struct Cost {
    double mWall;
    double mProcessor;
};

using Start = std::function<pid_t()>;

double nanoseconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_usec) * 1e3;
}

Cost costOf(const Start& start) {
    const double begin = bench::now();
    const pid_t child = start();
    int status = 0;
    rusage usage = {};
    if (::wait4(child, &status, 0, &usage) != child || status != 0) {
        errno = 0;
        bench::fail("a process has failed");
    }
    return {bench::now() - begin, nanoseconds(usage.ru_utime) + nanoseconds(usage.ru_stime)};
}

/// Starts a program whose standard output is discarded, like this program's own.
pid_t spawn(const std::vector<std::string>& words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    pid_t child = -1;
    errno = ::posix_spawn(&child, arguments[0], nullptr, nullptr, arguments.data(), environ);
    if (errno != 0) {
        bench::fail(arguments[0]);
    }
    return child;
}

/// Starts a process that runs a function.
pid_t fork(const std::function<void()>& body) {
    const pid_t child = ::fork();
    if (child < 0) {
        bench::fail("fork");
    }
    if (child == 0) {
        body();
        ::_exit(0);
    }
    return child;
}

int createFile(const std::string& path) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0) {
        bench::fail(path.c_str());
    }
    return file;
}

/// Only recv() and write().
void copyBare(int socket, int file) {
    std::vector<char> buffer(kPiece);
    ssize_t count = 0;
    while ((count = ::recv(socket, buffer.data(), buffer.size(), 0)) > 0) {
        if (::write(file, buffer.data(), static_cast<std::size_t>(count)) != count) {
            bench::fail("write");
        }
    }
}

/// Copies within the kernel, through a pipe.
void copySpliced(int socket, int file) {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0 || ::fcntl(ends[1], F_SETPIPE_SZ, kPiece) < 0) {
        bench::fail("pipe");
    }
    ssize_t count = 0;
    while ((count = ::splice(socket, nullptr, ends[1], nullptr, kPiece, SPLICE_F_MOVE)) > 0) {
        while (count > 0) {
            const ssize_t written = ::splice(ends[0], nullptr, file, nullptr,
                                             static_cast<std::size_t>(count), SPLICE_F_MOVE);
            if (written <= 0) {
                bench::fail("splice");
            }
            count -= written;
        }
    }
}

/// Medians of one way to fetch.
struct Column {
    std::vector<double> mWall;
    std::vector<double> mProcessor;

    void add(const Cost& cost) {
        mWall.push_back(cost.mWall);
        mProcessor.push_back(cost.mProcessor);
    }
};

/// Runs the ways in turn, in reverse order in every second round. The first round is not counted.
std::vector<Column> compare(int rounds, const std::vector<Start>& ways) {
    std::vector<Column> columns(ways.size());
    for (int round = 0; round <= rounds; ++round) {
        for (std::size_t i = 0; i < ways.size(); ++i) {
            const std::size_t way = round % 2 == 0 ? i : ways.size() - 1 - i;
            const Cost cost = costOf(ways[way]);
            if (round > 0) {
                columns[way].add(cost);
            }
        }
    }
    return columns;
}

void compareSize(bench::Report& report, const bench::DocumentServer& server, char** words,
                 std::size_t size, int rounds, const std::string& name) {
    const std::string path = std::to_string(size);
    const std::string url = server.url(path);
    const std::string file = std::string(words[3]) + "/document";
    const auto bare = [&](void (*copy)(int, int)) {
        return fork([&, copy] { copy(bench::openBare(server.port(), path), createFile(file)); });
    };
    std::vector<Column> columns =
        compare(rounds, {[&] {
                             return spawn({words[1], "fetch", url, "-o", file});
                         },
                         [&] {
                             return spawn({words[2], "-s", "-0", "-o", file, url});
                         },
                         [&] { return bare(copyBare); }, [&] { return bare(copySpliced); }});
    const char* const others[] = {"recv and write", "splice"};
    for (std::size_t i = 0; i < 2; ++i) {
        report.comment(name + " " + others[i] + ": " +
                       std::to_string(bench::median(columns[i + 2].mWall)) + " ns, processor " +
                       std::to_string(bench::median(columns[i + 2].mProcessor)) + " ns");
    }
    const bench::Times wall = {bench::median(columns[0].mWall), bench::median(columns[1].mWall)};
    report.figure(name, wall.mSubject / wall.mControl, wall);
    const bench::Times processor = {bench::median(columns[0].mProcessor),
                                    bench::median(columns[1].mProcessor)};
    report.figure(name + "-processor", processor.mSubject / processor.mControl, processor);
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int wordCount = 4;
    constexpr int largeRounds = 21;
    constexpr int smallRounds = 101;
    if (argc != wordCount) {
        (void)std::fprintf(stderr, "usage: %s KESTROVA CURL FOLDER\n", argv[0]);
        return 2;
    }
    bench::Report report;
    const bench::DocumentServer server;
    compareSize(report, server, argv, kLarge, largeRounds, "fetch-process-large");
    compareSize(report, server, argv, kSmall, smallRounds, "fetch-process-small");
    return 0;
}
