// SPDX-License-Identifier: MIT
#include "System/KestrovaPOpen.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>

#include "base/log/log.h"
#include "base/process/popen3.h"
#include "base/text/boundedtext.h"

namespace {

constexpr char kSource[] = "System/KestrovaPOpen";

/// A formatted command line, truncated to 255 characters.
struct CommandLine {
    char mText[256];
};

/// Returns false, with errno set, if a conversion fails. The truncated command must not run then.
__attribute__((format(printf, 2, 0))) bool formatCommand(CommandLine& command, const char* format,
                                                         va_list arguments) {
    return kestrova_vsnprintf(command.mText, sizeof(command.mText), format, arguments) >= 0;
}

}  // namespace

int kestrova_popen3(int* in, int* out, int* err, const char* command) {
    const char* arguments[] = {"/bin/sh", "-c", command, nullptr};
    return kestrova_popen3_adv(in, out, err, arguments, environ, nullptr, nullptr, nullptr);
}

int kestrova_vpopen3(int* in, int* out, int* err, const char* format, ...) {
    CommandLine command;
    va_list arguments;
    va_start(arguments, format);
    const bool formatted = formatCommand(command, format, arguments);
    va_end(arguments);
    return !formatted ? -1 : kestrova_popen3(in, out, err, command.mText);
}

int kestrova_pstatus(int pid, int& status, bool wait) {
    int raw = 0;
    const pid_t waited = ::waitpid(pid, &raw, wait ? 0 : WNOHANG);
    if (waited == -1) {
        return eCsWaitFailed;
    }
    if (waited == 0) {
        return eCsRunning;
    }
    if (WIFEXITED(raw)) {
        status = WEXITSTATUS(raw);
        return eCsExited;
    }
    if (WIFSIGNALED(raw)) {
        status = WTERMSIG(raw);
        return eCsKilled;
    }
    return eCsStopped;
}

int kestrova_popen_fout(std::FILE*& stream, const char* command) {
    int output = -1;
    const int pid = kestrova_popen3(nullptr, &output, nullptr, command);
    if (pid < 0) {
        base::reportFailedAttention(kSource, __LINE__, "pid >= 0");
        return pid;
    }
    if (pid == 0) {
        return 0;
    }
    stream = ::fdopen(output, "r");
    if (stream == nullptr) {
        // Leaves the descriptor open on purpose: closing it would raise SIGPIPE in the child before
        // it receives SIGINT.
        int scratch = 0;
        (void)::kill(pid, SIGINT);
        while (kestrova_pstatus(pid, scratch, true) == eCsWaitFailed && errno == EINTR) {
        }
        return -1;
    }
    return pid;
}

int kestrova_popen_fout_fmt(std::FILE*& stream, const char* format, ...) {
    CommandLine command;
    va_list arguments;
    va_start(arguments, format);
    const bool formatted = formatCommand(command, format, arguments);
    va_end(arguments);
    return !formatted ? -1 : kestrova_popen_fout(stream, command.mText);
}
