// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_SHELL_H
#define KESTROVA_BASE_SHELL_H

#include <csignal>
#include <mutex>
#include <string>

namespace base {

/// Runs a simple command by system() and returns its raw status. Where the caller has no standard
/// stream the command gets /dev/null, as base/tool.h does it.
int runShell(const std::string& command);

/// While a command of runShell() runs, system() has the whole process ignore SIGINT and SIGQUIT. A
/// child that another thread starts meanwhile would inherit that; what holds this while it starts
/// one can see to it. No command of runShell() begins meanwhile.
class ShellSignals {
public:
    ShellSignals();
    ShellSignals(const ShellSignals&) = delete;
    ShellSignals& operator=(const ShellSignals&) = delete;

    /// The signals that are ignored for no other reason; to have their default action in a child.
    const sigset_t& borrowed() const { return mBorrowed; }

private:
    std::lock_guard<std::mutex> mLock;
    sigset_t mBorrowed;
};

}  // namespace base

#endif
