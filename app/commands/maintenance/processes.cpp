// SPDX-License-Identifier: MIT
#include "app/commands/maintenance/processes.h"

#include <dirent.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "app/ui/interrupts.h"

namespace app {

namespace {

/// Reads /proc/PID/stat. Returns false if there is no such process.
bool readProcess(const std::string& pid, Process& process) {
    std::ifstream file("/proc/" + pid + "/stat");
    std::string text;
    if (!std::getline(file, text, '\0')) {
        return false;
    }
    // The name is in parentheses and can contain any character, including parentheses.
    const std::size_t begin = text.find('(');
    const std::size_t end = text.rfind(')');
    if (begin == std::string::npos || end == std::string::npos || end < begin) {
        return false;
    }
    process.mPid = static_cast<int>(std::strtol(pid.c_str(), nullptr, 10));
    process.mName = text.substr(begin + 1, end - begin - 1);
    std::istringstream fields(text.substr(end + 1));
    std::string state;
    std::string ignored;
    fields >> state >> process.mParent;
    constexpr int between = 17;  // fields 5 to 21
    for (int i = 0; i < between; ++i) {
        fields >> ignored;
    }
    fields >> process.mStart;
    process.mEnded = state == "Z" || state == "X";
    return static_cast<bool>(fields);
}

template <typename Condition>
std::vector<Process> processesThat(Condition condition) {
    std::vector<Process> processes = allProcesses();
    processes.erase(std::remove_if(processes.begin(), processes.end(),
                                   [&](const Process& process) { return !condition(process); }),
                    processes.end());
    return processes;
}

}  // namespace

std::vector<Process> allProcesses() {
    std::vector<Process> processes;
    DIR* const folder = ::opendir("/proc");
    if (folder == nullptr) {
        return processes;
    }
    while (const dirent* const entry = ::readdir(folder)) {
        Process process;
        if (entry->d_name[0] >= '1' && entry->d_name[0] <= '9' &&
            readProcess(entry->d_name, process)) {
            processes.push_back(process);
        }
    }
    (void)::closedir(folder);
    return processes;
}

std::vector<Process> processesNamed(const std::string& name) {
    return processesThat(
        [&](const Process& process) { return process.mName == name && !process.mEnded; });
}

std::vector<Process> processesBelow(int parent) {
    return processesThat([=](const Process& process) { return process.mParent == parent; });
}

Process newProcess(const std::vector<Process>& before, const std::vector<Process>& now) {
    for (const Process& process : now) {
        if (std::find(before.begin(), before.end(), process) == before.end()) {
            return process;
        }
    }
    return {};
}

bool staysAlive(const Process& process, const Interrupts& interrupts) {
    constexpr int interval = 20;  // milliseconds
    constexpr int looks = 15;
    for (int i = 0; i < looks; ++i) {
        Process now;
        if (!readProcess(std::to_string(process.mPid), now) || now.mEnded || !(now == process)) {
            return false;
        }
        if (interrupts.wait(interval)) {
            return true;
        }
    }
    return true;
}

ParentOfDaemons::ParentOfDaemons() {
    (void)::prctl(PR_SET_CHILD_SUBREAPER, 1);
}

ParentOfDaemons::~ParentOfDaemons() {
    (void)::prctl(PR_SET_CHILD_SUBREAPER, 0);
}

}  // namespace app
