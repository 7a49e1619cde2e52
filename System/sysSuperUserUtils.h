// SPDX-License-Identifier: MIT
/// @file
/// Maintenance for service staff: production-test marker, serial login prompt, remote system log.
#ifndef KESTROVA_SYSTEM_SYSSUPERUSERUTILS_H
#define KESTROVA_SYSTEM_SYSSUPERUSERUTILS_H

#include "base/export.h"

class sysInterface;

/// Maintenance operations of the system object, which owns the instance. Most of them need root.
///
/// Threads: no lock; the remote log address is a boot variable, and users of boot variables exclude
/// each other with a sysResourceLock: see sysBootVarsManager. Failures are reported by results
/// only. Only the boot variables log.
class KESTROVA_EXPORT sysSuperUserUtils {
public:
    /// Stores its owner and has no other effect.
    /// @param system the object that it belongs to; not owned, outlives it
    explicit sysSuperUserUtils(sysInterface* system);
    /// Processes it has started keep running.
    ~sysSuperUserUtils();
    sysSuperUserUtils(const sysSuperUserUtils&) = delete;
    sysSuperUserUtils& operator=(const sysSuperUserUtils&) = delete;

    /// Leaves the production-test mode by removing "/settings/noptest".
    /// @return 0 on success; -1 on failure, also if it does not exist, with errno set
    int ResetToProduction();

    /// Counts the nodes "/dev/ttyS", "/dev/tty/" and "/dev/ttyAS" with the numbers 0 to 9.
    /// @return 0 to 30
    unsigned GetNumSerial();

    /// Starts "/sbin/getty" on a serial port at 115200 baud, detached, with none of the caller's
    /// descriptors open and no signal blocked or ignored. Blocks until it is detached. A getty that
    /// cannot be executed is not reported, because its standard streams are already /dev/null.
    /// @param port number after the first of "/dev/ttyS", "/dev/tts/" and "/dev/ttyAS" that exists
    /// with it
    /// @return the pid of the child that detached it, which has exited; negative if there is no
    /// such device, fork() fails, or the child could not be waited for, with errno set
    int SpawnGetty(int port);

    /// Restarts the system's log daemon with "killall syslogd" and, a second later, "/sbin/syslogd
    /// -C", with "-R" and the address. Blocks for that second and the two shell commands, whose
    /// results are not reported. The daemon inherits the standard streams and the signal mask of
    /// the calling thread.
    /// @param ip IPv4 address to log to, first octet in the highest byte; 0 for none
    void RestartRemoteLog(unsigned ip);

    /// Reads the boot variable "syslog". See sysBootVarsManager::getVarS().
    /// @return the stored address; 0 if there is none, it is not a dotted address, or the boot
    /// variables cannot be read
    unsigned GetRemoteLogIP();

    /// Stores the address in the boot variable "syslog". See sysBootVarsManager::setVarS().
    /// RestartRemoteLog() applies it.
    /// @param ip IPv4 address, first octet in the highest byte; 0 removes the variable
    /// @return non-zero on success, 0 on failure; an address that is already stored is returned
    /// itself, so storing 0 if there is none returns 0
    int StoreRemoteLogIP(unsigned ip);

private:
    sysInterface* mpSystem;  // provides the boot variables
};

#endif
