// SPDX-License-Identifier: MIT
#include "app/commands/drive/toolrun.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "System/KestrovaPOpen.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

constexpr std::size_t kPiece = 4096;
constexpr std::size_t kKept = 1U << 20U;

/// Reads the available bytes, and closes the descriptor at the end of the stream.
void take(int& descriptor, std::string& kept, const ToolListener& listener) {
    char piece[kPiece];
    const ssize_t count = ::read(descriptor, piece, sizeof(piece));
    if (count < 0 && errno == EINTR) {
        return;
    }
    if (count <= 0) {
        (void)::close(descriptor);
        descriptor = -1;
        return;
    }
    const std::string text(piece, static_cast<std::size_t>(count));
    kept += kept.size() < kKept ? text : std::string();
    if (listener) {
        listener(text);
    }
}

int endOf(int pid) {
    constexpr int signalBase = 128;
    int status = 0;
    int state = eCsWaitFailed;
    do {
        state = kestrova_pstatus(pid, status, true);
    } while (state == eCsWaitFailed && errno == EINTR);
    if (state == eCsExited) {
        return status;
    }
    return state == eCsKilled ? signalBase + status : -1;
}

}  // namespace

std::string ToolRun::reason(const char* name) const {
    const std::string line = printable(trimmed(mErrors.substr(0, mErrors.find('\n'))));
    std::string text = name;
    if (mStatus < 0) {
        text += ": no process could be made for it";
    } else if (mStatus > 128) {
        text += ": ended by signal " + std::to_string(mStatus - 128);
    } else {
        text += ": exit status " + std::to_string(mStatus);
    }
    return line.empty() ? text : text + ", \"" + line + "\"";
}

std::string commandLine(const base::ToolCommand& command) {
    std::string line;
    for (const std::string& argument : command.mArguments) {
        line += (line.empty() ? "" : " ") + argument;
    }
    return line;
}

ToolRun runTool(const std::string& command, const ToolListener& listener) {
    ToolRun run;
    int out = -1;
    int err = -1;
    const int pid = kestrova_popen3(nullptr, &out, &err, ("LC_ALL=C " + command).c_str());
    if (pid < 0) {
        run.mErrors = std::strerror(errno);
        return run;
    }
    while (out >= 0 || err >= 0) {
        pollfd ends[] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
        if (::poll(ends, 2, -1) < 0) {
            continue;  // EINTR
        }
        if (ends[0].revents != 0) {
            take(out, run.mOutput, listener);
        }
        if (ends[1].revents != 0) {
            take(err, run.mErrors, listener);
        }
    }
    run.mStatus = endOf(pid);
    return run;
}

}  // namespace app
