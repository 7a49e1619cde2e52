// SPDX-License-Identifier: MIT
/// @file
/// Maintenance for service staff: production-test marker, serial login prompt, remote system log.
#ifndef KESTROVA_SYSTEM_SYSSUPERUSERUTILS_H
#define KESTROVA_SYSTEM_SYSSUPERUSERUTILS_H

#include "base/export.h"

class sysInterface;

/// Maintenance, reached through the system object, which owns it. Most of it needs root.
///
/// Threads: no lock; the remote log address is a boot variable, whose users take turns by a
/// sysResourceLock, see sysBootVarsManager. Failures
/// are told by results only, and nothing is logged, but for what the boot variables log.
class KESTROVA_EXPORT sysSuperUserUtils {
public:
    /// Does nothing but remember its owner.
    /// @param system the object that it belongs to; not owned, outlives it
    explicit sysSuperUserUtils(sysInterface* system);
    /// Ends nothing that was started.
    ~sysSuperUserUtils();
    sysSuperUserUtils(const sysSuperUserUtils&) = delete;
    sysSuperUserUtils& operator=(const sysSuperUserUtils&) = delete;

    /// Leaves the production-test setting by removing "/settings/noptest".
    /// @return 0 on success; -1 on failure, also when it is not there: errno tells why
    int ResetToProduction();

    /// Counts the nodes "/dev/ttyS", "/dev/tty/" and "/dev/ttyAS" with the numbers 0 to 9.
    /// @return 0 to 30
    unsigned GetNumSerial();

    /// Starts "/sbin/getty" on a serial port at 115200 baud, detached, with nothing of the caller's
    /// open and no signal blocked or ignored. Blocks until it is detached. Whether a getty could be
    /// executed is not told: its standard streams are /dev/null by then.
    /// @param port number behind the first of "/dev/ttyS", "/dev/tts/" and "/dev/ttyAS" that exists
    /// with it
    /// @return the pid of the child that detached it, which has ended; negative when there is no
    /// such device or no process, or when the child could not be waited for: errno tells why
    int SpawnGetty(int port);

    /// Restarts the system's log daemon by "killall syslogd" and, a second later, "/sbin/syslogd
    /// -C", with "-R" and the address. Blocks for that time and the two shell commands; nothing
    /// tells whether they worked. The daemon inherits the standard streams and the signal mask of
    /// the calling thread.
    /// @param ip IPv4 address to log to, first octet in the highest byte; 0 for none
    void RestartRemoteLog(unsigned ip);

    /// Reads the boot variable "syslog", as sysBootVarsManager::getVarS().
    /// @return the stored address; 0 when there is none, it is no dotted address, or the boot
    /// variables cannot be read
    unsigned GetRemoteLogIP();

    /// Stores the address in the boot variable "syslog", as sysBootVarsManager::setVarS(); takes
    /// effect with RestartRemoteLog().
    /// @param ip as there; 0 removes the variable
    /// @return not 0 on success, 0 on failure; an address that is stored already is returned
    /// itself, so storing 0 when there is none returns 0
    int StoreRemoteLogIP(unsigned ip);

private:
    sysInterface* mpSystem;  // leads to the boot variables
};

#endif
