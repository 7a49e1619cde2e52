// SPDX-License-Identifier: MIT
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_SYSBOOTVARSMANAGER_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_SYSBOOTVARSMANAGER_H

#include "base/export.h"

/// The boot variables, reached through the system object, which owns it. An object without data.
class KESTROVA_EXPORT sysBootVarsManager {};

#endif
