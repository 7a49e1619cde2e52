// SPDX-License-Identifier: MIT
//
// Processes that the library starts without reporting their fate.
#ifndef KESTROVA_APP_COMMANDS_MAINTENANCE_PROCESSES_H
#define KESTROVA_APP_COMMANDS_MAINTENANCE_PROCESSES_H

#include <string>
#include <vector>

namespace app {

class Interrupts;

struct Process {
    int mPid = 0;
    int mParent = 0;
    std::string mName;              ///< of its program, at most 15 characters
    unsigned long long mStart = 0;  ///< in clock ticks since the boot; detects a reused pid

    bool mEnded = false;  ///< exited, and not yet reaped by its parent

    bool operator==(const Process& other) const {
        return mPid == other.mPid && mStart == other.mStart;
    }
};

/// Returns the processes of the machine. Empty if /proc cannot be read.
std::vector<Process> allProcesses();

/// Return the running processes with a program's name, or the children of a process, including
/// those that have exited.
std::vector<Process> processesNamed(const std::string& name);
std::vector<Process> processesBelow(int parent);

/// Returns the first process of `now` that is not in `before`; its pid is 0 if there is none.
Process newProcess(const std::vector<Process>& before, const std::vector<Process>& now);

/// Watches a process long enough to detect a program that fails at its start. Returns false if it
/// has exited meanwhile. A signal ends the watch early.
bool staysAlive(const Process& process, const Interrupts& interrupts);

/// Makes this process the parent of daemons that are started in this scope.
class ParentOfDaemons {
public:
    ParentOfDaemons();
    ~ParentOfDaemons();
    ParentOfDaemons(const ParentOfDaemons&) = delete;
    ParentOfDaemons& operator=(const ParentOfDaemons&) = delete;
};

}  // namespace app

#endif
