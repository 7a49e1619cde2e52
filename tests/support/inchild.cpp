// SPDX-License-Identifier: MIT
#include "tests/support/inchild.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "tests/support/descriptors.h"

namespace tests {

namespace {

/// Well above the numbers that a test closes or examines.
constexpr int kReport = 600;

[[noreturn]] void runAndReport(const std::function<std::string()>& function, int report) {
    std::string text;
    try {
        text = function();
    } catch (...) {
        text = "an exception";
    }
    const bool told =
        ::write(report, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::_exit(told ? 0 : 1);
}

}  // namespace

std::string inChild(const std::function<std::string()>& function) {
    (void)std::fflush(nullptr);
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return "no pipe";
    }
    const pid_t child = ::fork();
    if (child < 0) {
        return "no child";
    }
    if (child == 0) {
        (void)::close(ends[0]);
        const int report = ::fcntl(ends[1], F_DUPFD_CLOEXEC, kReport);
        (void)::close(ends[1]);
        runAndReport(function, report);
    }
    (void)::close(ends[1]);
    const std::string text = readToEnd(ends[0]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) {
        return "signal " + std::to_string(WTERMSIG(status));
    }
    if (WEXITSTATUS(status) != 0) {
        return text + "exit status " + std::to_string(WEXITSTATUS(status));
    }
    return text;
}

}  // namespace tests
