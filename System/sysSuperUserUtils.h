// SPDX-License-Identifier: MIT
//
// Maintenance for service staff: production-test marker, serial login prompt, remote system log.
#ifndef KESTROVA_SYSTEM_SYSSUPERUSERUTILS_H
#define KESTROVA_SYSTEM_SYSSUPERUSERUTILS_H

#include "base/export.h"

class sysInterface;

/// Maintenance, reached through the system object, which owns it. Most of it needs root.
///
/// Threads: no lock; the remote log address is a boot variable, whose users take turns. Failures
/// are told by results only, and nothing is logged, but for what the boot variables log.
class KESTROVA_EXPORT sysSuperUserUtils {
public:
    /// `system` is the object that it belongs to; not owned, outlives it.
    explicit sysSuperUserUtils(sysInterface* system);
    ~sysSuperUserUtils();
    sysSuperUserUtils(const sysSuperUserUtils&) = delete;
    sysSuperUserUtils& operator=(const sysSuperUserUtils&) = delete;

    /// Leaves the production-test setting by removing "/settings/noptest". 0 on success, -1 on
    /// failure, also when it is not there; errno tells why.
    int ResetToProduction();

    /// Number of serial device nodes, 0 to 30.
    unsigned GetNumSerial();

    /// Starts "/sbin/getty" on a serial port, detached, with nothing of the caller's open and no
    /// signal blocked or ignored. Returns the pid of the child that detached it; negative when
    /// there is no such device or no process. Blocks until it is detached. Whether a getty could be
    /// executed is not told: its standard streams are /dev/null by then.
    int SpawnGetty(int port);

    /// Restarts the system's log daemon with an IPv4 address to log to (first octet in the highest
    /// byte), 0 for none. Blocks for a second and two shell commands; nothing tells whether they
    /// worked. The daemon inherits the standard streams and the signal mask of the calling thread.
    void RestartRemoteLog(unsigned ip);

    /// The stored address, 0 when there is none or the boot variables cannot be read.
    unsigned GetRemoteLogIP();

    /// Stores the address, 0 to remove it; takes effect with RestartRemoteLog(). Not 0 on success,
    /// 0 on failure; an address that is stored already is returned itself, so storing 0 when there
    /// is none returns 0.
    int StoreRemoteLogIP(unsigned ip);

private:
    sysInterface* mpSystem;  // leads to the boot variables
};

#endif
