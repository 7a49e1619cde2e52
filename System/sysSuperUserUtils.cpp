// SPDX-License-Identifier: MIT
#include "System/sysSuperUserUtils.h"

sysSuperUserUtils::sysSuperUserUtils(sysInterface* system) : mpSystem(system) {}

sysSuperUserUtils::~sysSuperUserUtils() = default;
