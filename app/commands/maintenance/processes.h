// SPDX-License-Identifier: MIT
//
// Processes that the library starts without telling what becomes of them.
#ifndef KESTROVA_APP_COMMANDS_MAINTENANCE_PROCESSES_H
#define KESTROVA_APP_COMMANDS_MAINTENANCE_PROCESSES_H

#include <string>
#include <vector>

namespace app {

class Interrupts;

struct Process {
    int mPid = 0;
    int mParent = 0;
    std::string mName;  ///< of its program, at most 15 characters
    unsigned long long mStart =
        0;  ///< in clock ticks since the boot; tells a pid that was used again

    bool mEnded = false;  ///< and its parent has not taken note yet

    bool operator==(const Process& other) const {
        return mPid == other.mPid && mStart == other.mStart;
    }
};

/// The processes of the machine. Empty when /proc cannot be read.
std::vector<Process> allProcesses();

/// Those with a program's name that run, or those with a parent, also when they have ended.
std::vector<Process> processesNamed(const std::string& name);
std::vector<Process> processesBelow(int parent);

/// The first of `now` that is not in `before`; its pid is 0 when there is none.
Process newProcess(const std::vector<Process>& before, const std::vector<Process>& now);

/// Watches a process for a moment that is long enough for a program that cannot do its work. False
/// when it has ended until then. A signal ends the watch early.
bool staysAlive(const Process& process, const Interrupts& interrupts);

/// Makes this process the parent of daemons that are started in its scope.
class ParentOfDaemons {
public:
    ParentOfDaemons();
    ~ParentOfDaemons();
    ParentOfDaemons(const ParentOfDaemons&) = delete;
    ParentOfDaemons& operator=(const ParentOfDaemons&) = delete;
};

}  // namespace app

#endif
