// SPDX-License-Identifier: MIT
#ifndef KESTROVA_SYSTEM_SYSSUPERUSERUTILS_H
#define KESTROVA_SYSTEM_SYSSUPERUSERUTILS_H

#include "base/export.h"

class sysInterface;

/// Maintenance for service staff, reached through the system object, which owns it.
class KESTROVA_EXPORT sysSuperUserUtils {
public:
    /// `system` is the object that it belongs to; not owned, outlives it.
    explicit sysSuperUserUtils(sysInterface* system);
    ~sysSuperUserUtils();
    sysSuperUserUtils(const sysSuperUserUtils&) = delete;
    sysSuperUserUtils& operator=(const sysSuperUserUtils&) = delete;

private:
    // Leads to the boot variables, where the remote log address is kept.
    [[maybe_unused]] sysInterface* mpSystem;
};

#endif
