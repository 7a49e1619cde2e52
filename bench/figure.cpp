// SPDX-License-Identifier: MIT
#include "bench/figure.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace bench {

double now() {
    constexpr double nanosecondsPerSecond = 1e9;
    timespec time = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) * nanosecondsPerSecond +
           static_cast<double>(time.tv_nsec);
}

double median(std::vector<double>& times) {
    std::sort(times.begin(), times.end());
    const std::size_t middle = times.size() / 2;
    return times.size() % 2 != 0 ? times[middle] : (times[middle - 1] + times[middle]) / 2;
}

Report::Report() : mpRows(fdopen(dup(STDOUT_FILENO), "w")) {
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (mpRows == nullptr || nowhere < 0 || ::dup2(nowhere, STDOUT_FILENO) < 0) {
        fail("standard output");
    }
    (void)fcntl(fileno(mpRows), F_SETFD, FD_CLOEXEC);
    (void)::close(nowhere);
}

Report::~Report() {
    (void)std::fclose(mpRows);
}

void Report::figure(const std::string& name, double ratio, const Times& times) {
    (void)std::fprintf(mpRows, "# %s: %.0f ns, control %.0f ns\n", name.c_str(), times.mSubject,
                       times.mControl);
    this->ratio(name, ratio);
}

void Report::ratio(const std::string& name, double ratio) {
    (void)std::fprintf(mpRows, "%s\t%.3f\n", name.c_str(), ratio);
    (void)std::fflush(mpRows);
}

void Report::comment(const std::string& text) {
    (void)std::fprintf(mpRows, "# %s\n", text.c_str());
}

void fail(const char* what) {
    if (errno != 0) {
        std::perror(what);
    } else {
        (void)std::fprintf(stderr, "%s\n", what);
    }
    std::exit(EXIT_FAILURE);
}

}  // namespace bench
